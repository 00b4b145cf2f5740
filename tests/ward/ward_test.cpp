// The Ward family. The Noise node's arithmetic, the Tile and bitmap nodes,
// the Ward lobe and the event choice are called directly; the material and
// the nine generated variants are driven through the module loader, with a
// scripted context whose noise basis, samples and answers each test sets.
#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "materials/ward/nodes.h"
#include "materials/ward/ward_sampling.h"
#include "materials/ward/ward_surface.h"
#include "statistics.h"
#include "tables.h"

namespace kvi::test {
namespace {

constexpr float kInvPi = 0.31830984f;  // bits 0x3EA2F982
// Mode 4's fade colour: the footprint hides every octave, leaving the average.
constexpr float kFixedFade = 0.58f * (1.0f - 0.2160714f) + 0.65f * 0.2160714f;

// A context whose noise basis is a function the test picks (a smooth one by
// default) and which records where it was asked.
struct NoiseContext : ScriptedContext {
  std::function<float(const float*)> basis = [](const float* p) {
    return 0.5f * std::sin(1.7f * p[0] + 0.3f) * std::cos(1.3f * p[1] - 0.2f * p[2] + p[3]);
  };
  std::vector<std::array<float, 4>> asked;
  float noise4D(const float p[4]) override {
    ScriptedContext::noise4D(p);
    asked.push_back({p[0], p[1], p[2], p[3]});
    return basis(p);
  }
};

// Size 1, average 0.25, phase 0.5.
ward::NoiseSettings settings(int32_t type, float levels, float low = 0.0f, float high = 1.0f, float tau = 0.0f) {
  return {1.0f, levels, 0.25f, type, 0.5f, low, high, tau};
}

// ---- the Noise node ---------------------------------------------------------

// (levels, footprint, type) -> octaves asked: w = 0.03 allows ln(1 / w) /
// 0.69314778 = 5.06 levels, no footprint (1e-5) 16.6, whatever "levels" says;
// whole levels ask no empty fractional octave.
TEST(NoiseNode, FootprintCapsTheOctavesAndEachOctaveDoublesTheFrequency) {
  const float p[3] = {0.3f, 0.7f, 1.1f}, wide[3] = {0.03f, 0.03f, 0.03f}, none[3] = {0, 0, 0};
  struct Row { float levels; const float* footprint; int32_t type; size_t asked; };
  for (const Row& r : {Row{20, wide, 1, 6}, Row{1e30f, wide, 1, 6}, Row{kInf, wide, 1, 6}, Row{kNaN, wide, 1, 6},
                       Row{kInf, none, 2, 17}, Row{2.5f, none, 1, 3}, Row{3, none, 1, 3}}) {
    NoiseContext context;
    ward::noiseBlend(&context, p, settings(r.type, r.levels), r.footprint);
    EXPECT_EQ(context.asked.size(), r.asked) << r.levels;
    if (r.asked == 17) { EXPECT_EQ(context.asked[3], (std::array<float, 4>{0.3f * 8, 0.7f * 8, 1.1f * 8, 0.5f})); }
  }
  for (float size : {0.0f, -4.0f, kNaN}) {  // all count as 1e-5
    NoiseContext context;
    context.basis = [](const float*) { return -0.5f; };
    ward::NoiseSettings s = settings(0, 3.0f);
    s.size = size;
    const float tiny[3] = {1e-5f, 2e-5f, 0.0f};
    EXPECT_EQ(ward::noiseBlend(&context, tiny, s, none), 0.25f);  // (-0.5 + 1) * 0.5
    EXPECT_EQ(context.asked.at(0), (std::array<float, 4>{1.0f, 2.0f, 0.0f, 0.5f}));
  }
}

// Values over a constant basis b: three octaves of fractal and turbulence
// sums, unknown types, the fade from the average between -3 and 1 level, and
// the built-in fade of the image fade's mode 4.
TEST(NoiseNode, TypesLevelsAndTheBuiltInFade) {
  auto value = [](float b, float levels, const ward::NoiseSettings& s) {
    NoiseContext context;
    context.basis = [b](const float*) { return b; };
    const float q[3] = {0, 0, 0};
    return ward::noiseValue(&context, q, levels, 0.1f, s);
  };
  const std::tuple<const char*, float, float> rows[] = {
      {"fractal", value(-0.5f, 3, settings(1, 3, 0.5f, 0.5f)), (-0.875f + 1.0f) * 0.5f},
      {"turbulence", value(-0.5f, 3, settings(2, 3, 0.5f, 0.5f)), 0.875f},
      {"unknown type", value(-0.5f, 3, settings(7, 3, 0.5f, 0.5f)), 0.0f},
      {"below -3 levels: the average", value(1.0f, -3.5f, settings(0, 1)), 0.25f},
      {"-1 level: half way", value(1.0f, -1.0f, settings(0, 1)), 0.5f * 0.25f + 0.5f * 1.0f},
      {"0.6 level", value(1.0f, 0.6f, settings(0, 1)), 0.1f * 0.25f + 0.9f * 1.0f},
  };
  for (const auto& [label, actual, expected] : rows) EXPECT_FLOAT_EQ(actual, expected) << label;
  EXPECT_LT(value(-0.5f, 3, settings(2, 3, 0.5f, 0.5f, 0.1256065f)), 0.875f);  // softened creases
  // The cut-off at -3 levels, to the float (v = 1, no remap): one step below,
  // the average; one step above, a = 2^-24 and 0.25 + 3 x 2^-26 rounds to even.
  EXPECT_BITEQ(value(1.0f, std::nextafter(-3.0f, -4.0f), settings(0, 1, 0.5f, 0.5f)), 0.25f);
  EXPECT_BITEQ(value(1.0f, std::nextafter(-3.0f, 0.0f), settings(0, 1, 0.5f, 0.5f)), 0x1.000004p-2f);
  // Mode 4's fixed noise asks for nothing and gives its average, to the bit.
  NoiseContext context;
  float fade[3];
  const float anywhere[3] = {3.0f, -5.0f, 7.0f};
  ward::builtInNoiseFade(&context, anywhere, fade);
  EXPECT_BITEQ(fade[1], kFixedFade);
  EXPECT_TRUE(context.asked.empty());
}

// The remap is continuous, 0 at the low threshold and 1 at the high one;
// as written, its ramps dip just below 0 and above 1 near the thresholds.
TEST(NoiseNode, ThresholdRemapIsContinuousThroughItsRamps) {
  for (const auto& [low, high, blur] : {std::array<float, 3>{0.2f, 0.8f, 0.05f}, {0.3f, 0.5f, 0.04f}, {0, 1, 2e-6f}}) {
    float previous = ward::thresholdRemap(-1.0f, low, high, blur);
    EXPECT_EQ(previous, 0.0f);
    for (int i = 1; i <= 3000; ++i) {
      const float v = -1.0f + 3.0f * float(i) / 3000.0f, r = ward::thresholdRemap(v, low, high, blur);
      ASSERT_LE(std::fabs(r - previous), 0.01f + 3.0f / 3000.0f / (high - low)) << "jump at " << v;
      ASSERT_GT(r, -0.1f * blur / (high - low) - 1e-6f) << v;  // the dips stay within a tenth of blur / span
      ASSERT_LT(r, 1.0f + 0.1f * blur / (high - low) + 1e-6f) << v;
      previous = r;
    }
    EXPECT_EQ(previous, 1.0f);
    EXPECT_EQ(ward::thresholdRemap(low, low, high, blur), 0.0f);
    EXPECT_FLOAT_EQ(ward::thresholdRemap(high, low, high, blur), 1.0f);
  }
  EXPECT_FLOAT_EQ(ward::thresholdRemap(0.5f, 0.2f, 0.8f, 0.05f), 0.5f);  // linear between the ramps
  EXPECT_LT(ward::thresholdRemap(0.18f, 0.2f, 0.8f, 0.05f), 0.0f);
  // The ramps end strictly: at low + blur the value is already linear; at
  // high + blur the high ramp still applies (here its end rounds to 1 + 2^-23).
  EXPECT_BITEQ(ward::thresholdRemap(0.25f, 0.2f, 0.7f, 0.05f), (0.25f - 0.2f) / (0.7f - 0.2f));
  EXPECT_BITEQ(ward::thresholdRemap(0.8f, 0.5f, 0.6f, 0.2f), 0x1.000002p+0f);
  // A footprint of 3 blurs by the cap 0.4, not 0.6: the low ramp's dip starts
  // exactly 0.4 below the low threshold (average 0, turbulence v = |b|).
  for (const auto& [value, dips] : {std::pair{0.5f - 0.4f, false}, {std::nextafter(0.5f - 0.4f, 1.0f), true}}) {
    const float v = value;  // a copy the basis can capture
    NoiseContext context;
    context.basis = [v](const float*) { return v; };
    ward::NoiseSettings s = settings(2, 3, 0.5f, 1.0f);
    s.average = 0.0f;
    const float p[3] = {0, 0, 0}, footprint[3] = {3, 3, 3};
    EXPECT_EQ(ward::noiseBlend(&context, p, s, footprint) < 0.0f, dips) << v;
  }
}

// ---- the Tile and bitmap nodes --------------------------------------------

struct TileFields {
  float xform[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  float vertical = 4, horizontal = 2, colorVariance = 0, fadeVariance = 0, hGap = 0.04f, vGap = 0.1f, rough = 0;
  int32_t seed = 1;
  float lineShift = 0.5f, randomShift = 0, changeRow = 2;
  int32_t perRow = 2;
  uint8_t columnEdit = 0, rowEdit = 0;
  float changeColumn = 2;
  int32_t perColumn = 3, holes = 0;
  float height = 1, width = 1;
  uint8_t repeatX = 1, repeatY = 1;
  ward::TileParameters view() const {
    return {xform,     vertical,  horizontal,  colorVariance, fadeVariance, hGap,       vGap,    rough,
            seed,      lineShift, randomShift, changeRow,     perRow,       columnEdit, rowEdit, changeColumn,
            perColumn, holes,     height,      width,         repeatX,      repeatY};
  }
};

// The red of the brick (0.6) or the mortar (0.8) at (u, v).
float tileRed(const TileFields& t, float u, float v) {
  NoiseContext context;
  const ward::NodeHit hit{&context, {0, 0, 0}, {0, 0, 1}, {u, v}};
  return ward::tileNode(hit, t.view(), {{0.6f, 0.3f, 0.2f, 1.0f}}, {{0.8f, 0.8f, 0.8f, 1.0f}}).c[0];
}

// Rows 0.25 high, bricks 0.5 long, odd rows shifted by a quarter; joints 0.04
// wide between bricks and 0.1 high between rows.
TEST(TileNode, BricksJointsShiftsEditsHolesAndBadSizes) {
  struct Row { const char* what; void (*edit)(TileFields&); float u, v, red; };
  const Row rows[] = {
      {"a brick", nullptr, 0.25f, 0.125f, 0.6f},
      {"the joint at its end", nullptr, 0.49f, 0.125f, 0.8f},
      {"the joint below it", nullptr, 0.25f, 0.04f, 0.8f},
      {"short of the narrower end joint", nullptr, 0.47f, 0.125f, 0.6f},
      {"an odd row's joint", nullptr, 0.25f, 0.375f, 0.8f},
      {"an odd row's brick", nullptr, 0.5f, 0.375f, 0.6f},
      {"repeated far away", nullptr, -3.75f, 5.125f, 0.6f},
      {"not repeated", [](TileFields& t) { t.repeatX = 0; }, -3.75f, 5.125f, 0.8f},
      {"a joint between rows", nullptr, 0.5f, 0.5f, 0.8f},
      {"every second row twice as high", [](TileFields& t) { t.rowEdit = 1; }, 0.5f, 0.5f, 0.6f},
      {"every brick a hole", [](TileFields& t) { t.holes = 100; }, 0.25f, 0.125f, 0.8f},
  };
  for (const Row& r : rows) {
    TileFields t;
    if (r.edit) r.edit(t);
    EXPECT_EQ(tileRed(t, r.u, r.v), r.red) << r.what;
  }
  TileFields varied;
  varied.colorVariance = 0.3f, varied.fadeVariance = 0.5f;
  std::vector<float> reds;
  for (int k = 0; k < 8; ++k) reds.push_back(tileRed(varied, 0.25f + 0.5f * float(k), 0.125f));
  EXPECT_NE(*std::min_element(reds.begin(), reds.end()), *std::max_element(reds.begin(), reds.end()));
  for (float bad : {0.0f, -4.0f, kNaN, kInf}) {
    TileFields b;
    b.vertical = bad;
    EXPECT_EQ(tileRed(b, 0.25f, 0.125f), 0.8f) << bad;
    b = TileFields{}, b.perRow = -7, b.rowEdit = 1, b.changeRow = bad, b.xform[0] = bad;
    EXPECT_TRUE(std::isfinite(tileRed(b, 1e20f, -1e20f)));
  }
}

TEST(BitmapNode, UnboundReadsWhiteFlatAndCubeLookUps) {
  float xform[16] = {2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1, 0, 0.5f, 0.25f, 0, 1}, gain[3] = {0.5f, 1.0f, 2.0f};
  float amount = 0.5f;
  uint8_t cube = 0;
  const ward::NodeHit hit{nullptr, {0, 0, 0}, {0, 0, 1}, {0.25f, 0.5f}};
  ward::NodeColor c = ward::unifiedBitmapNode(hit, {xform, {nullptr, -1}, amount, cube, gain});
  EXPECT_EQ((Color{c.c[0], c.c[1], c.c[2]}), (Color{0.25f, 0.5f, 1.0f}));
  EXPECT_EQ(c.c[3], 1.0f);
  RecordingSampler image(3, {0.5f, 0.5f, 0.5f, 0.5f});
  c = ward::unifiedBitmapNode(hit, {xform, {&image, 0}, amount, cube, gain});
  EXPECT_EQ(image.coords.back(), (std::vector<float>{0.25f * 2 + 0.5f, 0.5f * 3 + 0.25f, 0.0f}));
  EXPECT_EQ(c.c[2], 0.5f * 0.5f * 2.0f);
  cube = 1;  // by the normal turned by the 3 x 3 part
  ward::unifiedBitmapNode(hit, {xform, {&image, 0}, amount, cube, gain});
  EXPECT_EQ(image.coords.back(), (std::vector<float>{0.0f, 0.0f, 1.0f}));
}

// ---- the Ward lobe and the event choice ------------------------------------

// (i, o, widths) -> the green of Cd / pi + Cs k e to the bit, Cd green 0.25,
// Cs green 0.7, k = 1 / (sqrt(-i.z o.z) (ax 4 pi ay)) in the written order.
TEST(WardLobe, ThresholdsPureDiffuseAndTheWrittenNormalisation) {
  const float cd[3] = {0.5f, 0.25f, 1.0f}, cs[3] = {1.0f, 0.7f, 1.0f}, diffuse = 0.25f * 0.3183099f;
  struct Row { const char* what; std::array<float, 3> i, o; float ax, ay, green; };
  const Row rows[] = {
      {"head on: e = 1, 4 pi and 1 / pi as stored", {0, 0, -1}, {0, 0, 1}, 0.2f, 0.4f,
       diffuse + 0.7f * (1.0f / (std::sqrt(1.0f) * (0.2f * 12.566372f * 0.4f)))},
      {"h = (ax, 0, 1): e = exp(-1); every other grouping of the products differs here", {-0.23f, 0, -0.36f},
       {0, 0, 0.64f}, 0.23f, 0.48f,
       diffuse + 0.7f * (1.0f / (std::sqrt(0.36f * 0.64f) * (0.23f * 12.566372f * 0.48f))) * std::exp(-1.0f)},
      {"|i.z| below 0.0001", {0, 0, -0.00009f}, {0, 0, 1}, 0.2f, 0.2f, 0},
      {"|h.z| below 0.0001", {1, 0, 0}, {-1, 0, 0.00005f}, 0.2f, 0.2f, 0},
      {"the same side", {0, 0, 1}, {0, 0, 1}, 0.2f, 0.2f, 0},
      {"both above, wide (else a NaN)", {0.6f, 0, 0.8f}, {0, 0, 1}, 2, 2, 0},
      {"o below", {0, 0, -1}, {0, 0, -1}, 0.2f, 0.2f, 0},
      {"e = exp(-(1.8 / 0.01)^2 / 0.76): diffuse only", {0.9f, 0, -0.43589f}, {-0.9f, 0, 0.43589f}, 0.01f, 0.01f,
       diffuse},
  };
  for (const Row& r : rows) {
    float out[3];
    ward::wardLobe(r.i.data(), r.o.data(), cd, cs, r.ax, r.ay, out);
    EXPECT_BITEQ(out[1], r.green) << r.what;
  }
}

TEST(WardEvents, SnappingBandsAndTheChoice) {
  const float belowCertainlyNot = std::nextafter(0.00390625f, 0.0f), aboveCertainly = std::nextafter(0.99609375f, 1.0f);
  for (const auto& [p, banded] : {std::pair{belowCertainlyNot, 0.0f}, {0.00390625f, 0.08f}, {0.05f, 0.08f},
                                  {0.5f, 0.5f}, {0.95f, 0.92f}, {0.99609375f, 0.92f}, {aboveCertainly, 1.0f}})
    EXPECT_EQ(ward::bandedProbability(p), banded) << p;
  ScriptedContext context;
  const ward::WardEvent events[3] = {{{0.5f, 0.5f, 0.5f}}, {{0.0005f, 0, 0}}, {{0.25f, 0.25f, 0.0f}}};
  float scale;
  const float p = 0.5f / 0.75f;  // the first against all offered (the largest channel of each)
  context.samples1D = {0.6f};    // taken, weighed by 1 / p
  EXPECT_EQ(ward::chooseEvent(&context, events, 3, scale), 0);
  EXPECT_FLOAT_EQ(scale, 1.0f / p);
  context.samples1D = {0.7f};  // passed over (1 / (1 - p)): the second is below 0.001, the third is certain
  EXPECT_EQ(ward::chooseEvent(&context, events, 3, scale), 2);
  EXPECT_FLOAT_EQ(scale, 1.0f / (1.0f - p));
  EXPECT_EQ(context.calls(kNextSample1D), 2);
  const ward::WardEvent nothing[2] = {{{0, 0, 0}}, {{kNaN, 1e-4f, 0}}};
  EXPECT_EQ(ward::chooseEvent(&context, nothing, 2, scale), -1);
}

// ---- the Ward material and its variants through the module ---------------

const char* const kWard = "velk_qora_Mtl_Ward";

// The base material, black and unreflecting but for `params`, at prepared()'s hit.
MaterialShader* ward(const Params& params, ShadingState& state) {
  return prepared(kWard, Params{{"u_brdf00Reflectivity", {0}}, {"u_brdf90Reflectivity", {0}}} + params, state);
}

// The diffuse colour D, read through the gathered light (Rf = 0, T = 0): E = D / pi.
Color diffuseOf(const Params& params) {
  ScriptedContext context;
  context.irradiance[0] = context.irradiance[1] = context.irradiance[2] = 1.0f;
  ShadingState s;
  ward(params, s)->evaluateRadiance(&context, &s);
  return {s.radiance[0] / kInvPi, s.radiance[1] / kInvPi, s.radiance[2] / kInvPi};
}

// D = (0.25, 0.75, 0.5) against G = 0.5 with t = 1, by mode: overlay then
// multiply from mode 2 on; an unknown mode blends D against itself; mode 1
// fades the map by its alpha and blends no further; the per-object colour
// with any other mode ignores the map.
TEST(WardMaterial, ImageFadeModes) {
  static host::ConstantSampler half({0.5f, 0.5f, 0.5f, 0.5f});
  const Params fading{{"u_diffuseColor", {0.25f, 0.75f, 0.5f}}, {"u_imageFadeColor", {0.5f, 0.5f, 0.5f}},
                      {"u_imageFade", {1}}, {"u_imageFadeMap", {}, &half}, {"u_imageFadeAmount", {1}}};
  const Params mapped{{"u_diffuseMapEnable", {1}}, {"u_diffuseMap", {}, &half}};
  const Params byObject{{"u_colorByObject", {1}}, {"u_extra_color_and_alpha_is_set", {1}},
                        {"u_extra_color_and_alpha", {0.1f, 0.2f, 0.3f, 1.0f}}};
  const float g = kFixedFade;
  const std::pair<Params, Color> rows[] = {
      {{{"u_imageFadeEnable", {0}}}, {0.25f, 0.75f, 0.5f}},
      {{{"u_imageFadeEnable", {1}}}, {0.25f, 0.75f, 0.5f}},
      {{{"u_imageFadeEnable", {2}}}, {0.125f, 0.375f, 0.25f}},
      {{{"u_imageFadeEnable", {3}}}, {0.125f, 0.375f, 0.25f}},
      {{{"u_imageFadeEnable", {4}}}, {0.5f * g * g, (0.5f + 0.5f * g) * g, g * g}},
      {{{"u_imageFadeEnable", {9}}}, {0.03125f, 0.65625f, 0.25f}},
      {Params{{"u_imageFadeEnable", {1}}} + mapped, {0.375f, 0.625f, 0.5f}},
      {Params{{"u_imageFadeEnable", {0}}} + mapped + byObject, {0.1f, 0.2f, 0.3f}},
  };
  for (size_t row = 0; row < std::size(rows); ++row) {
    const Color d = diffuseOf(fading + rows[row].first);
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(d[i], rows[row].second[i]) << "row " << row << " channel " << i;
  }
}

TEST(WardMaterial, FixedBodiesEmissionShadowsAndCutouts) {
  ScriptedContext context;
  ShadingState s;
  // Emission on the front side; to kind-8 rays only while it illuminates.
  struct Emission { uint8_t illuminates; int32_t kinds; uint8_t front; float red; };
  for (const Emission& e : {Emission{1, 8, 1, 2.0f}, Emission{0, 8, 1, 0.0f}, Emission{0, 0, 1, 2.0f},
                            Emission{1, 0, 0, 0.0f}}) {
    MaterialShader* m = ward({{"u_additionalColor", {2, 2, 2}}, {"u_emissionIlluminates", {float(e.illuminates)}}}, s);
    context.rayKindBits = e.kinds;
    s.frontFacing = e.front;
    m->evaluateRadiance(&context, &s);
    EXPECT_EQ(s.radiance[0], e.red) << int(e.illuminates) << " " << e.kinds << " " << int(e.front);
    EXPECT_EQ(s.radianceDone, 1);
  }
  // A fully transparent, fully translucent black surface lets w^2 through,
  // w = T (1 - 0.68169016), T halved by a per-object alpha of 0.5; a cutout
  // without a map covers nothing.
  const Params clear{{"u_transparency", {1}}, {"u_transparencyValue", {1}}, {"u_translucencyValue", {1}}};
  const Params halfAlpha{{"u_colorByObject", {1}}, {"u_extra_color_and_alpha_is_set", {1}},
                         {"u_extra_color_and_alpha", {0, 0, 0, 0.5f}}};
  const float w = 1.0f - 0.68169016f;
  for (const auto& [params, passed] : {std::pair{clear, w * w}, {clear + halfAlpha, 0.25f * w * w},
                                       {clear + Params{{"u_cutoutMapEnable", {1}}}, 1.0f}}) {
    ward(params, s)->shadowTransmission(&context, &s);
    EXPECT_NEAR(s.shadowTransmission[1], passed, 1e-6f);
  }
  // The decal rectangle, then the clipping planes (keeping z > 1).
  static host::ClippingPlaneTable table({{0, 0, 1, -1}});
  MaterialShader* cutting = ward({{"u_isDecal", {1}},
                                  {"u_decalTransform", {4, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -0.5f, 0, 0, 1}},
                                  {"u_globalClippingMap", {}, nullptr, &table},
                                  {"u_globalClippingMapEnable", {1}}},
                                 s);
  struct Cut { float u, z; uint8_t cut; };
  for (const Cut& c : {Cut{0.25f, 2.0f, 0}, Cut{0.4f, 2.0f, 1}, Cut{0.25f, 0.5f, 1}}) {
    host::setVarying(s, *testShaderInfo(kWard), "uv", {c.u, 0.5f});
    s.position[2] = c.z;
    cutting->testCutout(&context, &s);
    EXPECT_EQ(s.cutAway, c.cut) << c.u << " " << c.z;
  }
}

// (configuration, isDiffuseSampled) -> the event sampleBsdf takes head on, at a sample of 0.5.
TEST(WardMaterial, SampleBsdfEventsByConfiguration) {
  const Params reflecting{{"u_brdf00Reflectivity", {1}}, {"u_brdf90Reflectivity", {1}}};
  const Params transparent{{"u_transparency", {1}}, {"u_transparencyValue", {1}}};
  struct Row { const char* what; Params params; uint8_t diffuseSampled; int32_t flags; };
  const Row rows[] = {
      {"black and unreflecting: nothing", {}, 1, 0},
      {"diffuse, sampled (weight D)", {{"u_diffuseColor", {0.5f, 0.5f, 0.5f}}}, 1, 1},
      {"diffuse, left to the gather", {{"u_diffuseColor", {1, 1, 1}}}, 0, 0},
      {"a mirror at glossiness 1 (straight up)", reflecting + Params{{"u_glossinessValue", {1}}}, 1, 4},
      {"glossy", reflecting, 1, 2},
      {"refraction (straight through)", transparent, 1, 8},
      {"translucency (below)", transparent + Params{{"u_translucencyValue", {1}}, {"u_diffuseColor", {1, 1, 1}}}, 1,
       32},
      {"cut away", {{"u_cutoutMapEnable", {1}}}, 1, 64},
  };
  for (const Row& r : rows) {
    ScriptedContext context;
    context.diffuseSampled = r.diffuseSampled;
    context.samples1D = {0.5f};
    ShadingState s;
    ward(r.params, s)->sampleBsdf(&context, &s);
    EXPECT_EQ(s.lobeFlags, r.flags) << r.what;
    const float z = s.sampledDirection[2];
    if (r.flags == 1) { EXPECT_FLOAT_EQ(s.bsdfWeight[0], 0.5f) << r.what; }
    if (r.flags == 4 || r.flags == 8) { EXPECT_FLOAT_EQ(z, r.flags == 4 ? 1.0f : -1.0f) << r.what; }
    if (r.flags == 32) { EXPECT_LT(z, 0.0f) << r.what; }
  }
}

// A glossy-only Ward surface (white specular, Rf = 1, no diffuse): the
// directions sampleBsdf draws follow the density it reports, and that
// density times the sampled weight is evaluateBsdf's value for the same
// direction (sampling and evaluation describe one lobe). Widths above 0.1
// keep the sampling remap out of the way.
TEST(WardMaterial, GlossySamplingFollowsItsDensityAndMatchesEvaluation) {
  ShadingState state;
  MaterialShader* m = ward({{"u_brdf00Reflectivity", {1}}, {"u_brdf90Reflectivity", {1}}, {"u_glossinessValue", {0.3f}},
                            {"u_anisotropyValue", {0.5f}}, {"u_anisoRotationValue", {0.7f}}},
                           state);
  state.rayDirection[0] = 0.6f, state.rayDirection[2] = -0.8f;
  ScriptedContext context;
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  int drawn = 0;
  auto draw = [&](float l[3]) {
    context.samples2D = {{unit(rng), unit(rng)}};
    ShadingState s = state;
    m->sampleBsdf(&context, &s);
    if (s.lobeFlags != 2) return false;
    std::copy(s.sampledDirection, s.sampledDirection + 3, l);
    if (++drawn % 97 == 0) {  // weight x density is the evaluated value
      ShadingState probe = s;
      m->evaluateBsdf(&context, &probe);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(s.bsdfWeight[c], probe.bsdfWeight[c], 1e-4f * (1 + probe.bsdfWeight[c]));
    }
    return true;
  };
  // The density pdfSecondary reports: lobe x (l + v).z / 2, from evaluateBsdf's lobe x l.z (white, Rf = 1).
  auto density = [&](const float l[3]) {
    ShadingState probe = state;
    std::copy(l, l + 3, probe.sampledDirection);
    m->evaluateBsdf(&context, &probe);
    return double(probe.bsdfWeight[0]) / l[2] * (l[2] + 0.8) / 2;
  };
  constexpr int kSamples = 60000;
  const HemisphereChiSquare r = hemisphereChiSquare(draw, density, kSamples, 8, 12, 16);
  EXPECT_NEAR(r.expectedInside, drawn, 0.01 * kSamples);
  EXPECT_GT(r.pValue, 1e-3);
  // The host's glossiness bias (0.3 - 0.2) widens the lobe: less at its peak.
  ShadingState peak = state;
  peak.sampledDirection[0] = 0.6f, peak.sampledDirection[2] = 0.8f;
  ShadingState biased = peak;
  biased.glossinessBias = 0.2f;
  m->evaluateBsdf(&context, &peak);
  m->evaluateBsdf(&context, &biased);
  EXPECT_LT(biased.bsdfWeight[0], 0.5f * peak.bsdfWeight[0]);
}

// The nine generated variants. Their declarations to the name, kind and default
// are pinned by docs/parameters.md (the spine suite fails when it is stale);
// here the rules the generator follows.
const char* const kVariants[] = {"120b7820", "33632204", "5592d496", "5ba0bfff", "82261344",
                                 "aa598cb4", "b9aac246", "ccb3a2e6", "f05db29e"};

std::string variantName(const char* suffix) { return std::string(kWard) + "_" + suffix; }

// The common parameters are the same list in every variant, of the base's
// kinds; node parameters follow, prefixed, with the normal-map or cutout
// graph before the diffuse graph, kinds by their names, and the normal map
// on by default exactly where a graph drives it.
TEST(WardVariants, CommonListNodeOrderKindsAndDefaults) {
  const auto base = testShaderInfo(kWard);
  std::vector<std::string> common;
  const std::pair<const char*, host::ParamKind> kindBySuffix[] = {
      {"_xform", host::ParamKind::Matrix4}, {"_texture", host::ParamKind::Texture}, {"_gain", host::ParamKind::Color3},
      {"_color1", host::ParamKind::Color4}, {"_randomSeed", host::ParamKind::Int},  {"_perRow", host::ParamKind::Int}};
  for (const char* v : kVariants) {
    SCOPED_TRACE(v);
    const auto info = testShaderInfo(variantName(v));
    const auto& params = info->parameters;
    std::vector<std::string> names;
    for (const auto& p : params) names.push_back(p.name);
    const size_t nodes = size_t(std::find_if(names.begin(), names.end(),
                                             [](const std::string& n) { return n.rfind("_ward_", 0) == 0; }) -
                                names.begin());
    ASSERT_LT(nodes, names.size());
    const std::vector<std::string> mine(names.begin(), names.begin() + long(nodes));
    if (common.empty()) common = mine;
    EXPECT_EQ(mine, common);
    for (size_t i = 0; i < nodes; ++i)
      if (const auto* same = base->findParameter(names[i])) { EXPECT_EQ(same->kind, params[i].kind) << names[i]; }
    bool diffuseSeen = false;
    for (size_t i = nodes; i < names.size(); ++i) {
      const std::string& n = names[i];
      EXPECT_EQ(n.rfind("_ward_", 0), 0u) << n;
      const bool diffuse = n.rfind("_ward_diffuse_color_", 0) == 0;
      EXPECT_FALSE(diffuseSeen && !diffuse) << n << " after the diffuse graph";
      diffuseSeen = diffuseSeen || diffuse;
      for (const auto& [suffix, kind] : kindBySuffix)
        if (n.ends_with(suffix)) { EXPECT_EQ(params[i].kind, kind) << n; }
    }
    const bool drivesNormal = names[nodes].rfind("_ward_normal0_map_", 0) == 0;
    EXPECT_EQ(info->findParameter("u_normal0MapEnable")->defaultValue.at(0), drivesNormal ? 1 : 0);
  }
  const auto deep = testShaderInfo(variantName(kVariants[1]));
  EXPECT_NE(deep->findParameter("_ward_normal0_map_Noise_color1_Noise_color2_UnifiedBitmap_texture"), nullptr);
  EXPECT_EQ(deep->findParameter("_ward_normal0_map_Noise_color1"), nullptr);  // driven: not declared
  // b9aac246: both Tile subtrees before the outer Noise node's own parameters.
  const auto bricks = testShaderInfo(variantName(kVariants[6]));
  const auto at = [&](const char* n) { return size_t(bricks->findParameter(n) - bricks->parameters.data()); };
  EXPECT_LT(at("_ward_diffuse_color_Noise_color2_Tile_mortarColor_UnifiedBitmap_gain"),
            at("_ward_diffuse_color_Noise_xform"));
  EXPECT_EQ(at("_ward_diffuse_color_Noise_color1_Tile_xform"), common.size() + 5);
}

// A variant as the showcase configures it (curve power 5, roughness 0.5),
// lit by `lights` and seen along `ray`: what shadeSurface writes at (x, y).
Color shadeVariant(const std::string& name, const Params& params, const LightSample* lights,
                   std::array<float, 3> ray, float x, float y, uint8_t reflectionAllowed = 1) {
  NoiseContext context;
  context.lightSamples = lights;
  ShadingState s;
  MaterialShader* m = prepared(name, Params{{"u_brdfCurvePower", {5}}, {"u_roughValue", {0.5f}}} + params, s);
  std::copy(ray.begin(), ray.end(), s.rayDirection);
  s.reflectionAllowed = reflectionAllowed;
  s.position[0] = x, s.position[1] = y;
  host::setVarying(s, *testShaderInfo(name), "uv", {x, y});
  m->shadeSurface(&context, &s);
  return {s.surfaceResult[0], s.surfaceResult[1], s.surfaceResult[2]};
}

// The fixed bodies of evaluateBsdf and sampleBsdf, and a pattern that shows
// under three white lights with the defaults.
TEST(WardVariants, FixedBodiesAndAVisiblePatternOutOfTheBox) {
  LightSample lights[3];
  const float dirs[3][3] = {{0, 0, 1}, {0.6f, 0, 0.8f}, {0, -0.6f, 0.8f}};
  for (int i = 0; i < 3; ++i)
    lights[i] = {{dirs[i][0], dirs[i][1], dirs[i][2]}, 0, {1, 1, 1}, i < 2 ? &lights[i + 1] : nullptr};
  for (const char* v : kVariants) {
    SCOPED_TRACE(v);
    ShadingState s;
    MaterialShader* m = prepared(variantName(v), {}, s);
    m->evaluateBsdf(nullptr, &s);
    EXPECT_EQ((std::array<float, 4>{s.bsdfWeight[0], s.bsdfWeight[1], s.bsdfWeight[2], s.pdf}),
              (std::array<float, 4>{0.2f, 0.2f, 0.2f, 0.0f}));
    s.lobeFlags = 77;
    m->sampleBsdf(nullptr, &s);
    EXPECT_EQ(s.lobeFlags, 0);
    float low = kInf, high = -kInf;
    for (int k = 0; k < 25; ++k) {
      const Color c =
          shadeVariant(variantName(v), {}, lights, {0, 0.6f, -0.8f}, 0.37f * float(k % 5), 0.29f * float(k / 5));
      for (float channel : c) EXPECT_TRUE(std::isfinite(channel) && channel >= 0.0f);
      const float luminance = 0.2f * c[0] + 0.7f * c[1] + 0.1f * c[2];
      low = std::min(low, luminance), high = std::max(high, luminance);
    }
    EXPECT_GT(high - low, 0.02f) << "no pattern";
    EXPECT_GT(high, 0.05f);
  }
}

// A white furnace for the light loop: 32768 lights of equal solid angle
// over the hemisphere (stratified), each of colour 2 pi / 32768, stand for a
// uniform white sky. A white diffuse surface returns 1. The Ward lobe as it
// stands never returns more than 1; for a narrow lobe it returns about the
// view cosine (its 1 / sqrt(cos i cos o) does not make up for the lobe's
// solid angle shrinking with the view), for a wide one less head on.
TEST(WardVariants, LightLoopFurnace) {
  constexpr int kRings = 128, kSectors = 256;
  std::vector<LightSample> sky(kRings * kSectors);
  for (int r = 0; r < kRings; ++r)
    for (int s = 0; s < kSectors; ++s) {
      const float z = (float(r) + 0.5f) / kRings, radius = std::sqrt(1 - z * z);
      const float phi = 2 * float(M_PI) * (float(s) + 0.5f) / kSectors, c = 2 * float(M_PI) / (kRings * kSectors);
      LightSample& l = sky[size_t(r * kSectors + s)];
      l = {{radius * std::cos(phi), radius * std::sin(phi), z}, 0, {c, c, c}, nullptr};
      if (r * kSectors + s > 0) sky[size_t(r * kSectors + s - 1)].next = &l;
    }
  struct Row { float f0, rough, viewCosine, low, high; };
  for (const Row& r : {Row{0.0f, 0.5f, 0.8f, 0.995f, 1.005f}, Row{0.0f, 0.9f, 0.1f, 0.995f, 1.005f},
                       Row{1.0f, 0.6f, 1.0f, 0.93f, 1.0f}, Row{1.0f, 0.6f, 0.6f, 0.55f, 0.6f},
                       Row{1.0f, 0.8f, 0.8f, 0.5f, 0.8f}, Row{1.0f, 0.9f, 0.2f, 0.2f, 1.0f}}) {
    // The normal map driven, the diffuse colour a constant.
    const Params white{{"u_normal0MapEnable", {0}}, {"u_diffuseColor", {1, 1, 1}}, {"u_brdf00Reflectivity", {r.f0}},
                       {"u_brdf90Reflectivity", {r.f0}}, {"u_roughValue", {r.rough}}};
    const float red = shadeVariant(variantName(kVariants[3]), white, sky.data(),
                                   {0, std::sqrt(1 - r.viewCosine * r.viewCosine), -r.viewCosine}, 0.5f, 0.5f, 0)[0];
    EXPECT_GE(red, r.low) << r.f0 << " " << r.rough << " " << r.viewCosine;
    EXPECT_LE(red, r.high) << r.f0 << " " << r.rough << " " << r.viewCosine;
  }
}

}  // namespace
}  // namespace kvi::test
