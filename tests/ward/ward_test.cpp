// The Ward family. The Noise node's arithmetic, the Tile and bitmap nodes,
// the Ward lobe and the event choice are called directly; the material and
// the nine generated variants are driven through the module loader, with a
// scripted context whose noise basis, samples and answers each test sets.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "materials/ward/nodes.h"
#include "materials/ward/ward_sampling.h"
#include "materials/ward/ward_surface.h"
#include "statistics.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kInvPi = 0.31830984f;  // bits 0x3EA2F982

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

ward::NoiseSettings settings(int32_t type, float levels, float low = 0.0f, float high = 1.0f, float tau = 0.0f) {
  return {1.0f, levels, 0.25f, type, 0.5f, low, high, tau};
}

// ---- the Noise node ---------------------------------------------------------

TEST(NoiseNode, FootprintCapsTheOctavesWhateverTheLevels) {
  const float p[3] = {0.3f, 0.7f, 1.1f}, wide[3] = {0.03f, 0.03f, 0.03f}, none[3] = {0, 0, 0};
  // w = 0.03: ln(1 / w) / 0.69314778 = 5.06 levels, so 5 octaves and a fraction.
  for (float levels : {20.0f, 1e30f, kInf, kNaN}) {
    NoiseContext context;
    ward::noiseBlend(&context, p, settings(1, levels), wide);
    EXPECT_EQ(context.asked.size(), 6u) << levels;
  }
  NoiseContext context;  // no footprint: 1e-5, log2(1e5) = 16.6 levels at most
  ward::noiseBlend(&context, p, settings(2, kInf), none);
  EXPECT_EQ(context.asked.size(), 17u);
  EXPECT_EQ(context.asked[3], (std::array<float, 4>{0.3f * 8, 0.7f * 8, 1.1f * 8, 0.5f}));
  context.asked.clear();
  ward::noiseBlend(&context, p, settings(1, 2.5f), none);  // below the cap: 2 octaves and half of one
  EXPECT_EQ(context.asked.size(), 3u);
}

TEST(NoiseNode, SizeZeroAverageFadeAndTypes) {
  NoiseContext context;
  context.basis = [](const float*) { return -0.5f; };
  const float p[3] = {1e-5f, 2e-5f, 0.0f}, none[3] = {0, 0, 0};
  ward::NoiseSettings s = settings(0, 3.0f);
  for (float size : {0.0f, -4.0f, kNaN}) {  // all count as 1e-5
    s.size = size;
    context.asked.clear();
    EXPECT_EQ(ward::noiseBlend(&context, p, s, none), 0.25f);  // (-0.5 + 1) * 0.5
    EXPECT_EQ(context.asked.at(0), (std::array<float, 4>{1.0f, 2.0f, 0.0f, 0.5f}));
  }
  // The fixed built-in fade: a footprint of 33 noise units hides every octave.
  context.asked.clear();
  float g[3];
  const float position[3] = {4.0f, -2.0f, 9.0f};
  ward::builtInNoiseFade(&context, position, g);
  EXPECT_EQ(g[1], 0.58f * (1.0f - 0.2160714f) + 0.65f * 0.2160714f);
  EXPECT_TRUE(context.asked.empty());
  // Fractal and turbulence sums over three octaves of a constant basis;
  // unknown types give 0; equal thresholds leave the value alone.
  const float q[3] = {0, 0, 0};
  EXPECT_EQ(ward::noiseValue(&context, q, 3.0f, 0.1f, settings(1, 3, 0.5f, 0.5f)), (-0.875f + 1.0f) * 0.5f);
  EXPECT_EQ(ward::noiseValue(&context, q, 3.0f, 0.1f, settings(2, 3, 0.5f, 0.5f)), 0.875f);
  EXPECT_LT(ward::noiseValue(&context, q, 3.0f, 0.1f, settings(2, 3, 0.5f, 0.5f, 0.1256065f)), 0.875f);
  EXPECT_EQ(ward::noiseValue(&context, q, 3.0f, 0.1f, settings(7, 3, 0.5f, 0.5f)), 0.0f);
  // Levels below -3 give the average; between -3 and 1 the value fades in linearly.
  EXPECT_EQ(ward::noiseValue(&context, q, -3.5f, 0.1f, settings(0, 1)), 0.25f);
  EXPECT_EQ(ward::noiseValue(&context, q, -1.0f, 0.1f, settings(0, 1)), 0.25f);  // value 0.25 as well
  context.basis = [](const float*) { return 1.0f; };
  EXPECT_FLOAT_EQ(ward::noiseValue(&context, q, -1.0f, 0.1f, settings(0, 1)), 0.5f * 0.25f + 0.5f * 1.0f);
  EXPECT_FLOAT_EQ(ward::noiseValue(&context, q, 0.6f, 0.1f, settings(0, 1)), 0.1f * 0.25f + 0.9f * 1.0f);
}

// The remap is continuous, 0 at the low threshold and 1 at the high one;
// as written, its ramps dip just below 0 and above 1 near the thresholds.
TEST(NoiseNode, ThresholdRemapIsContinuousThroughItsRamps) {
  for (const auto& [low, high, blur] : {std::array<float, 3>{0.2f, 0.8f, 0.05f}, {0.3f, 0.5f, 0.04f}, {0, 1, 2e-6f}}) {
    float previous = ward::thresholdRemap(-1.0f, low, high, blur);
    EXPECT_EQ(previous, 0.0f);
    for (int i = 1; i <= 3000; ++i) {
      const float v = -1.0f + 3.0f * float(i) / 3000.0f, r = ward::thresholdRemap(v, low, high, blur);
      EXPECT_LE(std::fabs(r - previous), 0.01f + 3.0f / 3000.0f / (high - low)) << "jump at " << v;
      EXPECT_GT(r, -0.1f * blur / (high - low) - 1e-6f) << v;  // the dips stay within a tenth of blur / span
      EXPECT_LT(r, 1.0f + 0.1f * blur / (high - low) + 1e-6f) << v;
      previous = r;
    }
    EXPECT_EQ(previous, 1.0f);
    EXPECT_EQ(ward::thresholdRemap(low, low, high, blur), 0.0f);
    EXPECT_FLOAT_EQ(ward::thresholdRemap(high, low, high, blur), 1.0f);
  }
  EXPECT_FLOAT_EQ(ward::thresholdRemap(0.5f, 0.2f, 0.8f, 0.05f), 0.5f);  // linear between the ramps
  EXPECT_LT(ward::thresholdRemap(0.18f, 0.2f, 0.8f, 0.05f), 0.0f);
}

// ---- the Tile and bitmap nodes --------------------------------------------

struct TileFields {
  float xform[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  float vertical = 4, horizontal = 2, colorVariance = 0, fadeVariance = 0, hGap = 0.04f, vGap = 0.04f, rough = 0;
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

const ward::NodeColor kBrick{{0.6f, 0.3f, 0.2f, 1.0f}}, kMortar{{0.8f, 0.8f, 0.8f, 1.0f}};

float tileRed(const TileFields& t, float u, float v, IShadingContext* context) {
  ward::NodeHit hit{context, {0, 0, 0}, {0, 0, 1}, {u, v}};
  return ward::tileNode(hit, t.view(), kBrick, kMortar).c[0];
}

TEST(TileNode, BricksJointsShiftsEditsHolesAndBadSizes) {
  NoiseContext context;
  TileFields t;  // rows 0.25 high, bricks 0.5 long, odd rows shifted by a quarter
  struct Case {
    float u, v;
    float red;
  };
  for (const Case& c : {Case{0.25f, 0.125f, 0.6f}, Case{0.49f, 0.125f, 0.8f}, Case{0.25f, 0.01f, 0.8f},
                        Case{0.25f, 0.375f, 0.8f}, Case{0.5f, 0.375f, 0.6f}, Case{-3.75f, 5.125f, 0.6f}})
    EXPECT_EQ(tileRed(t, c.u, c.v, &context), c.red) << c.u << ", " << c.v;
  t.repeatX = 0;
  EXPECT_EQ(tileRed(t, -3.75f, 5.125f, &context), 0.8f);
  t.repeatX = 1;
  EXPECT_EQ(tileRed(t, 0.5f, 0.5f, &context), 0.8f);  // a joint between rows
  t.rowEdit = 1;                                      // every second row twice as high: rows from 0, 0.25, 0.75
  EXPECT_EQ(tileRed(t, 0.5f, 0.5f, &context), 0.6f);
  t.holes = 100;
  EXPECT_EQ(tileRed(t, 0.25f, 0.125f, &context), 0.8f);
  t.holes = 0, t.colorVariance = 0.3f, t.fadeVariance = 0.5f;
  std::vector<float> reds;
  for (int k = 0; k < 8; ++k) reds.push_back(tileRed(t, 0.25f + 0.5f * float(k), 0.125f, &context));
  EXPECT_NE(*std::min_element(reds.begin(), reds.end()), *std::max_element(reds.begin(), reds.end()));
  for (float bad : {0.0f, -4.0f, kNaN, kInf}) {
    TileFields b;
    b.vertical = bad;
    EXPECT_EQ(tileRed(b, 0.25f, 0.125f, &context), 0.8f) << bad;
    b = TileFields{}, b.perRow = -7, b.rowEdit = 1, b.changeRow = bad, b.xform[0] = bad;
    EXPECT_TRUE(std::isfinite(tileRed(b, 1e20f, -1e20f, &context)));
  }
}

TEST(BitmapNode, UnboundReadsWhiteFlatAndCubeLookUps) {
  float xform[16] = {2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1, 0, 0.5f, 0.25f, 0, 1}, gain[3] = {0.5f, 1.0f, 2.0f};
  TextureRef none{nullptr, -1};
  float amount = 0.5f;
  uint8_t cube = 0;
  ward::NodeHit hit{nullptr, {0, 0, 0}, {0, 0, 1}, {0.25f, 0.5f}};
  ward::NodeColor c = ward::unifiedBitmapNode(hit, {xform, none, amount, cube, gain});
  EXPECT_EQ((std::array<float, 4>{c.c[0], c.c[1], c.c[2], c.c[3]}), (std::array<float, 4>{0.25f, 0.5f, 1.0f, 1.0f}));
  struct Recorder : ITextureSampler {
    std::array<float, 3> at{};
    void sample(float out[4], const float* p) override {
      at = {p[0], p[1], p[2]};
      out[0] = out[1] = out[2] = out[3] = 0.5f;
    }
  } image;
  TextureRef bound{&image, 0};
  c = ward::unifiedBitmapNode(hit, {xform, bound, amount, cube, gain});
  EXPECT_EQ(image.at, (std::array<float, 3>{0.25f * 2 + 0.5f, 0.5f * 3 + 0.25f, 0.0f}));
  EXPECT_EQ(c.c[2], 0.5f * 0.5f * 2.0f);
  cube = 1;  // by the normal turned by the 3 x 3 part
  ward::unifiedBitmapNode(hit, {xform, bound, amount, cube, gain});
  EXPECT_EQ(image.at, (std::array<float, 3>{0.0f, 0.0f, 1.0f}));
}

// ---- the Ward lobe and the event choice ------------------------------------

TEST(WardLobe, ThresholdsPureDiffuseAndTheWrittenNormalisation) {
  const float cd[3] = {0.5f, 0.25f, 1.0f}, cs[3] = {1.0f, 1.0f, 1.0f};
  const float down[3] = {0, 0, -1}, up[3] = {0, 0, 1};
  struct Case {
    std::array<float, 3> i, o;
    float ax;
    bool zero, diffuseOnly;
  };
  const Case cases[] = {
      {{0, 0, -1}, {0, 0, 1}, 0.2f, false, false},                       // head on: e = 1
      {{0, 0, -0.00009f}, {0, 0, 1}, 0.2f, true, false},                 // |i.z| below 0.0001
      {{1, 0, 0}, {-1, 0, 0.00005f}, 0.2f, true, false},                 // |h.z| below 0.0001
      {{0, 0, 1}, {0, 0, 1}, 0.2f, true, false},                         // same side
      {{0, 0, -1}, {0, 0, -1}, 0.2f, true, false},                       // o below
      {{0.9f, 0, -0.43589f}, {-0.9f, 0, 0.43589f}, 0.01f, false, true},  // e = exp(-(1.8/0.01)^2 / 0.76) -> 0
  };
  for (const Case& c : cases) {
    float out[3];
    ward::wardLobe(c.i.data(), c.o.data(), cd, cs, c.ax, c.ax, out);
    SCOPED_TRACE(&c - cases);
    if (c.zero) {
      EXPECT_EQ(out[1], 0.0f);
    }
    if (c.diffuseOnly) {
      EXPECT_EQ(out[1], 0.25f * 0.3183099f);
    }
  }
  float out[3];
  ward::wardLobe(down, up, cd, cs, 0.2f, 0.4f, out);
  EXPECT_EQ(out[0], 0.5f * 0.3183099f + 1.0f * (1.0f / (std::sqrt(1.0f) * (0.2f * 12.566372f * 0.4f))) * 1.0f);
}

TEST(WardEvents, SnappingBandsAndTheChoice) {
  for (const auto& [p, banded] : {std::pair{0.003f, 0.0f},
                                  {0.00390625f, 0.08f},
                                  {0.05f, 0.08f},
                                  {0.5f, 0.5f},
                                  {0.95f, 0.92f},
                                  {0.99609375f, 0.92f},
                                  {0.997f, 1.0f}})
    EXPECT_EQ(ward::bandedProbability(p), banded) << p;
  ScriptedContext context;
  const ward::WardEvent events[3] = {{{0.5f, 0.5f, 0.5f}}, {{0.0005f, 0, 0}}, {{0.25f, 0.5f, 0.0f}}};
  float scale;
  context.samples1D = {0.4f};  // p = 0.5 / (0.5 + 0.5): taken
  EXPECT_EQ(ward::chooseEvent(&context, events, 3, scale), 0);
  EXPECT_EQ(scale, 2.0f);
  context.samples1D = {0.6f};  // passed over: the second is below 0.001, the third is certain
  EXPECT_EQ(ward::chooseEvent(&context, events, 3, scale), 2);
  EXPECT_EQ(scale, 2.0f);
  EXPECT_EQ(context.calls(kNextSample1D), 2);
  const ward::WardEvent nothing[2] = {{{0, 0, 0}}, {{kNaN, 1e-4f, 0}}};
  EXPECT_EQ(ward::chooseEvent(&context, nothing, 2, scale), -1);
}

// ---- the Ward material -----------------------------------------------------

class WardTest : public ::testing::Test {
 protected:
  TestShader shader{"velk_qora_Mtl_Ward"};
  NoiseContext context;
  ShadingState state = shader.state();

  void SetUp() override {
    for (const auto& p : shader.info->parameters)
      if (p.kind == host::ParamKind::Matrix3 && !p.hasDefault)
        shader.block.setMatrix3(p.name, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    shader.block.setFloat("u_brdfCurvePower", 5.0f);
    shader.block.setColor3("u_additionalColor", {0, 0, 0});
    shader.block.setInt("u_imageFadeEnable", 0);
    shader.block.setFloat("u_brdf00Reflectivity", 0.0f);
    shader.block.setFloat("u_brdf90Reflectivity", 0.0f);
    state.normal[2] = 1.0f;
    state.tangentFrame[0] = state.tangentFrame[4] = state.tangentFrame[8] = 1.0f;
    state.rayDirection[2] = -1.0f;
    state.frontFacing = 1;
    shader.setVarying(state, "tangent", {1, 0, 0});
    shader.setVarying(state, "bitangent", {0, 1, 0});
    shader.setVarying(state, "uv", {0.25f, 0.75f});
  }
  MaterialShader* material() {
    shader.apply();
    return shader.material();
  }
  // The diffuse colour, read through the gathered light (Rf = 0, T = 0): E = D / pi.
  std::array<float, 3> diffuse() {
    context.irradiance[0] = context.irradiance[1] = context.irradiance[2] = 1.0f;
    material()->evaluateRadiance(&context, &state);
    return {state.radiance[0] / kInvPi, state.radiance[1] / kInvPi, state.radiance[2] / kInvPi};
  }
};

TEST_F(WardTest, ImageFadeModes) {
  shader.block.setColor3("u_diffuseColor", {0.25f, 0.75f, 0.5f});
  shader.block.setColor3("u_imageFadeColor", {0.5f, 0.5f, 0.5f});
  shader.block.setFloat("u_imageFade", 1.0f);
  host::ConstantSampler half({0.5f, 0.5f, 0.5f, 0.5f});
  shader.block.setTexture("u_imageFadeMap", &half, 0);
  shader.block.setFloat("u_imageFadeAmount", 1.0f);
  // Against G = 0.5 with t = 1: overlay then multiply, 0.25 -> 0.125, 0.75 -> 0.375, 0.5 -> 0.25;
  // an unknown mode blends D against itself.
  const float fixedFade = 0.58f * (1.0f - 0.2160714f) + 0.65f * 0.2160714f;
  struct Case {
    int32_t mode;
    std::array<float, 3> d;
  };
  for (const Case& c : {Case{0, {0.25f, 0.75f, 0.5f}}, Case{1, {0.25f, 0.75f, 0.5f}}, Case{2, {0.125f, 0.375f, 0.25f}},
                        Case{3, {0.125f, 0.375f, 0.25f}}, Case{9, {0.03125f, 0.65625f, 0.25f}}}) {
    shader.block.setInt("u_imageFadeEnable", c.mode);
    const auto d = diffuse();
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(d[i], c.d[i]) << "mode " << c.mode << " channel " << i;
  }
  shader.block.setInt("u_imageFadeEnable", 4);
  EXPECT_FLOAT_EQ(diffuse()[0], 2.0f * 0.25f * fixedFade * fixedFade);  // overlay 2 D G, then times G
  // Mode 1 fades the map by its alpha towards the constant and never blends further.
  shader.block.setInt("u_imageFadeEnable", 1);
  shader.block.setBool("u_diffuseMapEnable", 1);
  shader.block.setTexture("u_diffuseMap", &half, 0);
  EXPECT_FLOAT_EQ(diffuse()[0], 0.5f * 0.5f + 0.5f * 0.25f);
  // With the per-object colour and another mode the map is ignored.
  shader.block.setInt("u_imageFadeEnable", 0);
  shader.block.setBool("u_colorByObject", 1);
  shader.block.setBool("u_extra_color_and_alpha_is_set", 1);
  shader.block.setColor4("u_extra_color_and_alpha", {0.1f, 0.2f, 0.3f, 1.0f});
  EXPECT_FLOAT_EQ(diffuse()[2], 0.3f);
}

TEST_F(WardTest, FixedBodiesEmissionShadowsAndCutouts) {
  EXPECT_EQ(shader.info->operationMask, 63u);
  material()->shadeSurface(&context, &state);
  EXPECT_EQ((std::array<float, 4>{state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2],
                                  state.surfaceResult[3]}),
            (std::array<float, 4>{1.0f, 0.1f, 1.0f, 1.0f}));
  // Emission on the front side; to kind-8 rays only while it illuminates.
  shader.block.setColor3("u_additionalColor", {2, 2, 2});
  struct Case {
    uint8_t illuminates;
    int32_t kinds;
    uint8_t front;
    float red;
  };
  for (const Case& c : {Case{1, 8, 1, 2.0f}, Case{0, 8, 1, 0.0f}, Case{0, 0, 1, 2.0f}, Case{1, 0, 0, 0.0f}}) {
    shader.block.setBool("u_emissionIlluminates", c.illuminates);
    context.rayKindBits = c.kinds;
    state.frontFacing = c.front;
    material()->evaluateRadiance(&context, &state);
    EXPECT_EQ(state.radiance[0], c.red) << int(c.illuminates) << " " << c.kinds << " " << int(c.front);
    EXPECT_EQ(state.radianceDone, 1);
  }
  // Shadows: a fully transparent, fully translucent black surface lets w^2 through, w = 1 - 0.68169016.
  shader.block.setBool("u_transparency", 1);
  shader.block.setFloat("u_transparencyValue", 1.0f);
  shader.block.setFloat("u_translucencyValue", 1.0f);
  material()->shadowTransmission(&context, &state);
  const float w = 1.0f - 0.68169016f;
  EXPECT_FLOAT_EQ(state.shadowTransmission[0], w * w);
  shader.block.setBool("u_cutoutMapEnable", 1);  // no map bound: coverage 0, everything passes
  material()->shadowTransmission(&context, &state);
  EXPECT_EQ(state.shadowTransmission[1], 1.0f);
  // Decal rectangle, then the clipping planes.
  shader.block.setBool("u_isDecal", 1);
  shader.block.setMatrix4("u_decalTransform", {4, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -0.5f, 0, 0, 1});
  host::ClippingPlaneTable table({{0, 0, 1, -1}});  // keeps z > 1
  shader.block.setClippingMap("u_globalClippingMap", &table, 0);
  shader.block.setBool("u_globalClippingMapEnable", 1);
  struct Cut {
    float u;
    float z;
    uint8_t cut;
  };
  for (const Cut& c : {Cut{0.25f, 2.0f, 0}, Cut{0.4f, 2.0f, 1}, Cut{0.25f, 0.5f, 1}}) {
    shader.setVarying(state, "uv", {c.u, 0.5f});
    state.position[2] = c.z;
    material()->testCutout(&context, &state);
    EXPECT_EQ(state.cutAway, c.cut) << c.u << " " << c.z;
  }
}

TEST_F(WardTest, SampleBsdfEventsByConfiguration) {
  struct Case {
    const char* what;
    std::function<void(host::ParameterBlock&)> set;
    uint8_t diffuseSampled;
    int32_t flags;
  };
  const Case cases[] = {
      {"black and unreflecting: nothing", [](host::ParameterBlock&) {}, 1, 0},
      {"diffuse, sampled",
       [](host::ParameterBlock& b) {
         b.setColor3("u_diffuseColor", {0.5f, 0.5f, 0.5f});
       },
       1, 1},
      {"diffuse, left to the gather",
       [](host::ParameterBlock& b) {
         b.setColor3("u_diffuseColor", {1, 1, 1});
       },
       0, 0},
      {"mirror at glossiness 1",
       [](host::ParameterBlock& b) {
         b.setFloat("u_brdf90Reflectivity", 1), b.setFloat("u_brdf00Reflectivity", 1),
             b.setFloat("u_glossinessValue", 1);
       },
       1, 4},
      {"glossy",
       [](host::ParameterBlock& b) { b.setFloat("u_brdf00Reflectivity", 1), b.setFloat("u_brdf90Reflectivity", 1); }, 1,
       2},
      {"refraction",
       [](host::ParameterBlock& b) { b.setBool("u_transparency", 1), b.setFloat("u_transparencyValue", 1); }, 1, 8},
      {"translucency",
       [](host::ParameterBlock& b) {
         b.setBool("u_transparency", 1), b.setFloat("u_transparencyValue", 1), b.setFloat("u_translucencyValue", 1);
         b.setColor3("u_diffuseColor", {1, 1, 1});
       },
       1, 32},
      {"cut away", [](host::ParameterBlock& b) { b.setBool("u_cutoutMapEnable", 1); }, 1, 64},
  };
  for (const Case& c : cases) {
    TestShader fresh("velk_qora_Mtl_Ward");
    shader.block = fresh.block;
    SetUp();
    c.set(shader.block);
    context.diffuseSampled = c.diffuseSampled;
    context.samples1D = {0.5f};
    material()->sampleBsdf(&context, &state);
    EXPECT_EQ(state.lobeFlags, c.flags) << c.what;
    if (c.flags == 1) {  // D, the only event
      EXPECT_FLOAT_EQ(state.bsdfWeight[0], 0.5f) << c.what;
    }
    if (c.flags == 4) {
      EXPECT_FLOAT_EQ(state.sampledDirection[2], 1.0f) << c.what;
    }
    if (c.flags == 8) {  // head on: straight
      EXPECT_FLOAT_EQ(state.sampledDirection[2], -1.0f) << c.what;
    }
    if (c.flags == 32) {
      EXPECT_LT(state.sampledDirection[2], 0.0f) << c.what;
    }
  }
}

// A glossy-only Ward surface (white specular, Rf = 1, no diffuse): the
// directions sampleBsdf draws follow the density it reports, and that
// density times the sampled weight is evaluateBsdf's value for the same
// direction (sampling and evaluation describe one lobe). Widths above 0.1
// keep the sampling remap out of the way.
TEST_F(WardTest, GlossySamplingFollowsItsDensityAndMatchesEvaluation) {
  shader.block.setFloat("u_brdf00Reflectivity", 1.0f);
  shader.block.setFloat("u_brdf90Reflectivity", 1.0f);
  shader.block.setFloat("u_glossinessValue", 0.3f);
  shader.block.setFloat("u_anisotropyValue", 0.5f);
  shader.block.setFloat("u_anisoRotationValue", 0.7f);
  state.rayDirection[0] = 0.6f, state.rayDirection[2] = -0.8f;
  MaterialShader* m = material();
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  int drawn = 0;
  auto draw = [&](float l[3]) {
    context.samples2D = {{unit(rng), unit(rng)}};
    m->sampleBsdf(&context, &state);
    if (state.lobeFlags != 2) return false;
    std::copy(state.sampledDirection, state.sampledDirection + 3, l);
    if (++drawn % 97 == 0) {  // weight x density is the evaluated value
      ShadingState probe = state;
      m->evaluateBsdf(&context, &probe);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(state.bsdfWeight[c], probe.bsdfWeight[c], 1e-4f * (1 + probe.bsdfWeight[c]));
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
}

// ---- the generated variants ----------------------------------------------

struct VariantCase {
  const char* suffix;
  int nodeParameters;
  const char* firstNode;
  const char* lastNode;
};
// The table of the nine variants: node parameters, and where their lists start and end.
const VariantCase kVariants[] = {
    {"120b7820", 9, "_ward_diffuse_color_Noise_xform", "_ward_diffuse_color_Noise_phase"},
    {"33632204", 82, "_ward_normal0_map_Noise_xform",
     "_ward_diffuse_color_Noise_color2_Noise_color2_UnifiedBitmap_gain"},
    {"5592d496", 22, "_ward_normal0_map_UnifiedBitmap_xform", "_ward_diffuse_color_Noise_color2_UnifiedBitmap_gain"},
    {"5ba0bfff", 9, "_ward_normal0_map_Noise_xform", "_ward_normal0_map_Noise_phase"},
    {"82261344", 22, "_ward_cutout_map_UnifiedBitmap_xform", "_ward_diffuse_color_Noise_color2_UnifiedBitmap_gain"},
    {"aa598cb4", 34, "_ward_normal0_map_Noise_xform", "_ward_diffuse_color_Noise_color2_UnifiedBitmap_gain"},
    {"b9aac246", 76, "_ward_normal0_map_UnifiedBitmap_xform", "_ward_diffuse_color_Noise_phase"},
    {"ccb3a2e6", 17, "_ward_diffuse_color_Noise_xform", "_ward_diffuse_color_Noise_color2_UnifiedBitmap_gain"},
    {"f05db29e", 37, "_ward_normal0_map_UnifiedBitmap_xform",
     "_ward_diffuse_color_Tile_mortarColor_UnifiedBitmap_gain"},
};
constexpr int kCommonParameters = 96;

std::string variantName(const VariantCase& v) { return std::string("velk_qora_Mtl_Ward_") + v.suffix; }

// A variant as the showcase would configure it: unset fields set, three lights.
struct LitVariant {
  TestShader shader;
  NoiseContext context;
  ShadingState state;
  LightSample lights[3];
  explicit LitVariant(const std::string& name) : shader(name), state(shader.state()) {
    for (const auto& p : shader.info->parameters)
      if (p.kind == host::ParamKind::Matrix3 && !p.hasDefault)
        shader.block.setMatrix3(p.name, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    shader.block.setFloat("u_brdfCurvePower", 5.0f);
    shader.block.setFloat("u_roughValue", 0.5f);
    shader.block.setColor3("u_additionalColor", {0, 0, 0});
    shader.block.setInt("u_imageFadeEnable", 0);
    const float dirs[3][3] = {{0, 0, 1}, {0.6f, 0, 0.8f}, {0, -0.6f, 0.8f}};
    for (int i = 0; i < 3; ++i)
      lights[i] = {{dirs[i][0], dirs[i][1], dirs[i][2]}, 0, {1, 1, 1}, i < 2 ? &lights[i + 1] : nullptr};
    context.lightSamples = lights;
    state.normal[2] = state.tangentFrame[8] = state.tangentFrame[0] = state.tangentFrame[4] = 1.0f;
    state.rayDirection[1] = 0.6f, state.rayDirection[2] = -0.8f;
    state.frontFacing = state.reflectionAllowed = 1;
    shader.setVarying(state, "tangent", {1, 0, 0});
    shader.setVarying(state, "bitangent", {0, 1, 0});
  }
  std::array<float, 3> shadeAt(float x, float y) {
    state.position[0] = x, state.position[1] = y;
    shader.setVarying(state, "uv", {x, y});
    shader.apply();
    shader.material()->shadeSurface(&context, &state);
    return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2]};
  }
};

TEST(WardVariants, NamesCountsOrderKindsAndDefaults) {
  const auto base = testShaderInfo("velk_qora_Mtl_Ward");
  std::vector<std::string> common;
  for (const VariantCase& v : kVariants) {
    SCOPED_TRACE(v.suffix);
    const auto info = testShaderInfo(variantName(v));
    ASSERT_EQ(int(info->parameters.size()), kCommonParameters + v.nodeParameters);
    EXPECT_EQ(info->operationMask, 60u);
    ASSERT_EQ(info->varyings.size(), 3u);
    EXPECT_EQ(info->varyings[2].name, "uv");
    EXPECT_EQ(info->varyings[2].offset, 24u);
    std::vector<std::string> names;
    for (const auto& p : info->parameters) names.push_back(p.name);
    EXPECT_EQ(names.front(), "u_globalClippingMap");
    EXPECT_EQ(names[kCommonParameters - 1], "u_commonTintColor");
    EXPECT_EQ(names[kCommonParameters], v.firstNode);
    EXPECT_EQ(names.back(), v.lastNode);
    // The same common list everywhere, each shared parameter of the base's kind.
    std::vector<std::string> mine(names.begin(), names.begin() + kCommonParameters);
    if (common.empty()) common = mine;
    EXPECT_EQ(mine, common);
    for (int i = 0; i < kCommonParameters; ++i) {
      if (const auto* same = base->findParameter(names[size_t(i)])) {
        EXPECT_EQ(same->kind, info->parameters[size_t(i)].kind) << names[size_t(i)];
      }
    }
    // Node parameters: the generated prefix, the kind table's kinds, the normal-map or cutout graph first.
    bool diffuseSeen = false;
    for (int i = kCommonParameters; i < int(names.size()); ++i) {
      const std::string& n = names[size_t(i)];
      EXPECT_EQ(n.rfind("_ward_", 0), 0u) << n;
      const bool diffuse = n.rfind("_ward_diffuse_color_", 0) == 0;
      EXPECT_FALSE(diffuseSeen && !diffuse) << n << " after the diffuse graph";
      diffuseSeen = diffuseSeen || diffuse;
      const auto kind = info->parameters[size_t(i)].kind;
      if (n.ends_with("_xform")) {
        EXPECT_EQ(kind, host::ParamKind::Matrix4) << n;
      }
      if (n.ends_with("_texture")) {
        EXPECT_EQ(kind, host::ParamKind::Texture) << n;
      }
      if (n.ends_with("_gain")) {
        EXPECT_EQ(kind, host::ParamKind::Color3) << n;
      }
      if (n.ends_with("_color1")) {
        EXPECT_EQ(kind, host::ParamKind::Color4) << n;
      }
      if (n.ends_with("_randomSeed") || n.ends_with("_perRow")) {
        EXPECT_EQ(kind, host::ParamKind::Int) << n;
      }
    }
    const bool drivesNormal = std::string(v.firstNode).rfind("_ward_normal0_map_", 0) == 0;
    TestShader object(variantName(v));
    EXPECT_EQ(object.block.info().findParameter("u_normal0MapEnable")->defaultValue.at(0), drivesNormal ? 1 : 0);
  }
  const auto deep = testShaderInfo("velk_qora_Mtl_Ward_33632204");
  EXPECT_NE(deep->findParameter("_ward_normal0_map_Noise_color1_Noise_color2_UnifiedBitmap_texture"), nullptr);
  EXPECT_EQ(deep->findParameter("_ward_normal0_map_Noise_color1"), nullptr);  // driven: not declared
  // b9aac246: both Tile subtrees before the outer Noise node's own parameters.
  const auto bricks = testShaderInfo("velk_qora_Mtl_Ward_b9aac246");
  const auto at = [&](const char* n) { return bricks->findParameter(n) - bricks->parameters.data(); };
  EXPECT_LT(at("_ward_diffuse_color_Noise_color2_Tile_mortarColor_UnifiedBitmap_gain"),
            at("_ward_diffuse_color_Noise_xform"));
  EXPECT_EQ(at("_ward_diffuse_color_Noise_color1_Tile_xform"), kCommonParameters + 5);
}

TEST(WardVariants, FixedBodiesAndAVisiblePatternOutOfTheBox) {
  for (const VariantCase& v : kVariants) {
    SCOPED_TRACE(v.suffix);
    LitVariant lit(variantName(v));
    lit.shader.apply();
    MaterialShader* m = lit.shader.material();
    ShadingState s = lit.state;
    m->evaluateBsdf(&lit.context, &s);
    EXPECT_EQ((std::array<float, 4>{s.bsdfWeight[0], s.bsdfWeight[1], s.bsdfWeight[2], s.pdf}),
              (std::array<float, 4>{0.2f, 0.2f, 0.2f, 0.0f}));
    s.lobeFlags = 77;
    m->sampleBsdf(&lit.context, &s);
    EXPECT_EQ(s.lobeFlags, 0);
    float low = kInf, high = -kInf;
    for (int k = 0; k < 25; ++k) {
      const auto c = lit.shadeAt(0.37f * float(k % 5), 0.29f * float(k / 5));
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
      const float phi = 2 * float(M_PI) * (float(s) + 0.5f) / kSectors;
      LightSample& l = sky[size_t(r * kSectors + s)];
      l = {{radius * std::cos(phi), radius * std::sin(phi), z}, 0, {}, nullptr};
      for (float& c : l.color) c = 2 * float(M_PI) / (kRings * kSectors);
      if (r * kSectors + s > 0) sky[size_t(r * kSectors + s - 1)].next = &l;
    }
  struct Case {
    float f0, rough, viewCosine, low, high;
  };
  for (const Case& c : {Case{0.0f, 0.5f, 0.8f, 0.995f, 1.005f}, Case{0.0f, 0.9f, 0.1f, 0.995f, 1.005f},
                        Case{1.0f, 0.6f, 1.0f, 0.93f, 1.0f}, Case{1.0f, 0.6f, 0.6f, 0.55f, 0.6f},
                        Case{1.0f, 0.8f, 0.8f, 0.5f, 0.8f}, Case{1.0f, 0.9f, 0.2f, 0.2f, 1.0f}}) {
    LitVariant lit("velk_qora_Mtl_Ward_5ba0bfff");  // the normal map driven, the diffuse colour a constant
    lit.context.lightSamples = sky.data();
    lit.shader.block.setBool("u_normal0MapEnable", 0);
    lit.shader.block.setColor3("u_diffuseColor", {1, 1, 1});
    lit.shader.block.setFloat("u_brdf00Reflectivity", c.f0);
    lit.shader.block.setFloat("u_brdf90Reflectivity", c.f0);
    lit.shader.block.setFloat("u_roughValue", c.rough);
    lit.state.rayDirection[1] = std::sqrt(1 - c.viewCosine * c.viewCosine), lit.state.rayDirection[2] = -c.viewCosine;
    lit.state.reflectionAllowed = 0;
    const float red = lit.shadeAt(0.5f, 0.5f)[0];
    EXPECT_GE(red, c.low) << c.f0 << " " << c.rough << " " << c.viewCosine;
    EXPECT_LE(red, c.high) << c.f0 << " " << c.rough << " " << c.viewCosine;
  }
}

}  // namespace
}  // namespace kvi::test
