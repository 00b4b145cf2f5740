// The shared surface routines called directly (the glossy lobe, which no
// material of this family uses, and the ray-kind override of a two-lobe
// choice), and the basic materials through the module loader as a host drives
// them: one table of coverage and colour as shadow transmission, gathered
// radiance and BSDF see them, the sampled events, the cut-outs of every member
// of the family, the effects' Lambertian closed forms and PhongReflective's
// light loop.
#include "frame/surface.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <tuple>

#include "kvi/host/samplers.h"
#include "kvi/host/state.h"
#include "tables.h"

namespace kvi::test {
namespace {

constexpr float kInvPi = 0.31830984f;          // bits 0x3EA2F982
constexpr float kDiffuseDensity = 0.3183099f;  // bits 0x3EA2F984
constexpr double kPiD = 3.14159265358979;

// ---- The glossy reflection lobe.

// The distribution at a half vector along the normal: 1 / (m^2 pi), pi stored as 3.141593.
float peak(float m) { return 1.0f / (m * m * 3.141593f); }

// A view at cosine vz in the xz plane and its mirror image, so that the half
// vector is exactly the normal and only the fade and the geometry term vary.
float mirrored(float vz, float m) {
  const float vx = std::sqrt(1.0f - vz * vz), incoming[3] = {-vx, 0.0f, -vz}, outgoing[3] = {-vx, 0.0f, vz};
  return glossyReflectionLobe(incoming, outgoing, m);
}

TEST(GlossyLobe, PeakGeometryCapRoughnessFloorHorizonFadeAndSides) {
  const float capped = 2.236f * peak(0.2f) * 0.25f;  // at a view cosine of 0.3 every bound exceeds 3.3
  const std::tuple<const char*, float, float> rows[] = {
      {"head on: G = min(2, 2, 1) = 1", mirrored(1, 0.5f), peak(0.5f) * 0.25f},
      {"the geometry cap", mirrored(0.3f, 0.2f), capped},
      {"roughness 0 floored at 0.0225", mirrored(0.6f, 0), mirrored(0.6f, 0.0225f)},
      {"roughness 0.01 floored", mirrored(0.6f, 0.01f), mirrored(0.6f, 0.0225f)},
      {"a negative roughness floored", mirrored(0.6f, -3), mirrored(0.6f, 0.0225f)},
      {"a NaN roughness floored", mirrored(0.6f, kNaN), mirrored(0.6f, 0.0225f)},
      // x = 36 * 2^-6 = 0.5625: 6x^5 - 15x^4 + 10x^3 = 645894 / 2^20, exact in single precision.
      {"the horizon fade", mirrored(0.015625f, 0.2f), 2.236f * (645894.0f / 1048576.0f) * peak(0.2f) * 0.25f},
      // Nothing is faded from the stored threshold 0x3CE38E0F (just below
      // 1/36) on; the polynomial would give 0.999999 at 0x3CE38E13.
      {"no fade from the stored threshold", mirrored(std::bit_cast<float>(0x3CE38E0Fu), 0.2f), capped},
      {"no fade above it", mirrored(std::bit_cast<float>(0x3CE38E13u), 0.2f), capped},
  };
  for (const auto& [label, actual, expected] : rows) EXPECT_BITEQ(actual, expected) << label;
  EXPECT_LT(mirrored(0.6f, 0.03f), mirrored(0.6f, 0.0225f));
  EXPECT_LT(mirrored(0.02f, 0.2f), capped);
  // Opposite sides (or a NaN direction) give nothing.
  const float down[3] = {0, 0, -1}, up[3] = {0, 0, 1}, slantDown[3] = {0.6f, 0, -0.8f}, broken[3] = {0, 0, kNaN};
  const float grazeIn[3] = {-1, 0, 0}, grazeOut[3] = {1, 0, 0};  // both in the surface
  for (const auto& [a, b] : {std::pair<const float*, const float*>{down, slantDown}, {up, up}, {broken, up},
                             {down, broken}, {grazeIn, grazeOut}})
    EXPECT_EQ(glossyReflectionLobe(a, b, 0.3f), 0.0f);
  // Evaluated in double precision from these exact floats; the first is
  // bounded by g3 = 1/|Vz|, the second by g2.
  const float a1[3] = {0.309426367f, -0.206284255f, -0.928279102f}, b1[3] = {-0.527046263f, 0.421637028f, 0.737864792f};
  EXPECT_NEAR(glossyReflectionLobe(a1, b1, 0.3f), 0.02321809330864005, 2e-7);
  const float a2[3] = {0.0995037183f, 0.0f, -0.995037198f}, b2[3] = {-0.953998089f, 0.21199958f, 0.21199958f};
  EXPECT_NEAR(glossyReflectionLobe(a2, b2, 0.4f), 0.0044415328162798655, 4e-8);
}

// (ray kind, a, b, flag 1 set, isDiffuseSampled, frontFacing) -> (decided, p), from p = 0.5.
TEST(LobeChoiceOverride, DecisionsByRayKind) {
  const float t = 0.00390625f;  // 1/256
  struct Row { int32_t kind; float a, b; int32_t flags; uint8_t diffuseSampled, frontFacing; bool decided; float p; };
  const Row rows[] = {
      {3, 0.9f, 0.1f, 0, 1, 1, true, 0.0f},     // kind 3 always forces the first lobe off
      {3, 0.9f, 0.0f, 1, 0, 1, true, 0.0f},     // even where step 1 had chosen it
      {1, 0.9f, 0.1f, 1, 1, 1, true, 0.0f},     // kind 1, flag set: forced off
      {1, 0.9f, 0.1f, 0, 1, 1, true, 1.0f},     // flag clear: a > b on the front face picks it
      {1, 0.9f, 0.1f, 0, 1, 0, true, 0.0f},     // ... but not on the back face
      {1, 0.9f, 0.1f, 0, 1, 0x80, true, 1.0f},  // any non-zero byte is the front
      {2, 0.0f, 0.5f, 1, 1, 1, true, 1.0f},     // kind 2 with transmission above 1/256
      {2, 0.0f, 0.5f, 0, 1, 1, true, 0.0f},     // step 3 overrides p, decided stays
      {2, 0.5f, t, 1, 1, 1, false, 0.5f},       // exactly 1/256 is not above it
      {2, 0.5f, 0.0f, 1, 0, 1, true, 1.0f},     // diffuse not sampled and b below 1/256
      {2, 0.5f, t, 1, 0, 1, false, 0.5f},       // ... b exactly 1/256 is not below it
      {2, 0.5f, 0.0f, 0, 1, 1, false, 1.0f},    // step 3 alone: p changes, undecided
  };
  for (const Row& row : rows) {
    ScriptedContext context;
    context.rayKind = row.kind, context.rayFlags = row.flags, context.diffuseSampled = row.diffuseSampled;
    float p = 0.5f;
    EXPECT_EQ(overrideLobeChoice(&context, row.a, p, row.b, row.frontFacing), row.decided) << "row " << &row - rows;
    EXPECT_BITEQ(p, row.p) << "row " << &row - rows;
    for (int32_t flag : context.rayFlagsAsked) EXPECT_EQ(flag, 1);
  }
}

// ---- The family through the module.

const char* const kFamily[] = {"BasicMaterial", "SolidEffect", "VertexColorEffect"};

// What BasicMaterial leaves for the host's first update: identity transforms and a white tint.
const std::vector<float> kIdentity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
const Params kHostSet{{"diffuse_map_transform", kIdentity}, {"diffuse_map_tint", {1, 1, 1}}};

MaterialShader* material(const char* name, const Params& params) {
  const bool textured = testShaderInfo(name)->findParameter("diffuse_map_tint");
  return configured(name, (textured ? kHostSet : Params{}) + params).material();
}

void vary(ShadingState& s, const char* name, const char* varying, std::initializer_list<float> values) {
  host::setVarying(s, *testShaderInfo(name), varying, values);
}

// A hit at (0, 0, 1) seen straight down the normal (0, 0, 1), uv (0.25, 0.75),
// vertex colour (0.1, 0.2, 0.3, 0.4).
ShadingState hit(const char* name, uint8_t frontFacing = 1) {
  ShadingState s = host::zeroState();
  s.normal[2] = s.position[2] = 1.0f;
  s.rayDirection[2] = -1.0f;
  s.frontFacing = frontFacing;
  vary(s, name, "uv", {0.25f, 0.75f});
  vary(s, name, "vtxcolor", {0.1f, 0.2f, 0.3f, 0.4f});
  return s;
}

// Coverage and surface colour (culling, opacity, vertex colour and alpha,
// texture in decal or modulate mode with its alpha, the per-object colour),
// each row read three ways: shadow transmission 1 - coverage; with an
// irradiance of 1 in red, gathered radiance coverage x red / pi; and the BSDF
// with the light along the normal (no highlight), the same.
TEST(BasicFamily, CoverageAndColourReachTransmissionRadianceAndBsdfAlike) {
  RecordingSampler halfAlpha(2, {1, 1, 1, 0.5f}), texel(2, {0.25f, 0.25f, 1, 0.25f}), halfRed(2, {0.5f, 1, 1, 1});
  const Params vertex{{"diffuse", {0.2f, 0.4f, 0.8f}}, {"use_diffuse_vertex_color", {16}}};
  const Params map = vertex + Params{{"diffuse_map", {}, &halfAlpha}, {"use_diffuse_map", {1}}};
  const Params alpha = map + Params{{"use_diffuse_map_alpha", {1}}};
  const Params extra =
      alpha + Params{{"u_extra_color_and_alpha", {0.5f, 0.5f, 0.5f, 0.5f}}, {"use_extra_color_and_alpha", {1}}};
  const Params valid = extra + Params{{"u_extra_color_and_alpha_is_set", {1}}};
  // The texture coordinates are (u, v, 1, 1) times the transform: m8 and m9 shift them.
  const Params decal{{"diffuse", {0.2f, 0.4f, 0.8f}},
                     {"diffuse_map_tint", {2, 1, 1}},
                     {"diffuse_map", {}, &texel},
                     {"use_diffuse_map", {1}},
                     {"diffuse_map_transform", {2, 0, 0, 0, 0, 1, 0, 0, 0.5f, 0.25f, 1, 0, 1, 0, 0, 1}}};
  const Params modulate = decal + Params{{"use_decal_mode", {0}}};
  const Params unbound{{"diffuse_map", {}}};
  struct Row {
    const char* label;
    const char* shader;
    Params params;
    float transmission, red;  // 1 - coverage; the surface colour's red
    uint8_t frontFacing = 1;
  };
  const Row rows[] = {
      {"cull back faces: a back face", "BasicMaterial", {{"cull_mode", {1}}}, 1, 1, 0},
      {"cull back faces: a front face", "BasicMaterial", {{"cull_mode", {1}}}, 0, 1},
      {"cull front faces: any non-zero byte is front", "BasicMaterial", {{"cull_mode", {2}}}, 1, 1, 0x40},
      {"cull front faces: a back face", "BasicMaterial", {{"cull_mode", {2}}}, 0, 1, 0},
      {"no culling", "BasicMaterial", {{"cull_mode", {0}}}, 0, 1, 0},
      {"unknown cull modes cull nothing", "BasicMaterial", {{"cull_mode", {7}}}, 0, 1, 0},
      {"opacity 0", "BasicMaterial", {{"opacity", {0}}}, 1, 1},
      {"opacity 0.25", "BasicMaterial", {{"opacity", {0.25f}}}, 0.75f, 1},
      {"opacity clamped to 1", "BasicMaterial", {{"opacity", {3}}}, 0, 1},
      {"opacity clamped to 0", "BasicMaterial", {{"opacity", {-2}}}, 1, 1},
      {"a NaN opacity counts as 0", "BasicMaterial", {{"opacity", {kNaN}}}, 1, 1},
      {"the vertex colour and alpha over diffuse", "BasicMaterial", vertex, 1 - 0.4f, 0.1f},
      {"a texel's alpha counts only with its flag", "BasicMaterial", map, 1 - 0.4f, 0.55f},
      {"the texel's alpha", "BasicMaterial", alpha, 1 - 0.4f * 0.5f, 0.55f},
      {"the extra alpha and colour need both flags", "BasicMaterial", extra, 1 - 0.4f * 0.5f, 0.55f},
      {"the extra alpha and colour", "BasicMaterial", valid, 1 - 0.4f * 0.5f * 0.5f, 0.75f},
      {"an unbound map: alpha factor 1, texel (0, 0, 0, 1)", "BasicMaterial", valid + unbound, 1 - 0.4f * 0.5f, 0},
      {"decal: the tinted texel over the colour by its alpha", "BasicMaterial", decal, 0, 0.25f * 0.5f + 0.75f * 0.2f},
      {"modulate: the tinted texel times the colour", "BasicMaterial", modulate, 0, 0.2f * 0.5f},
      {"modulate, unbound: black", "BasicMaterial", modulate + unbound, 0, 0},
      {"decal, unbound: black", "BasicMaterial", decal + unbound, 0, 0},
      {"the extra colour over the vertex colour", "BasicMaterial",
       vertex + Params{{"u_extra_color_and_alpha", {0.5f, 0.5f, 0.5f, 1}}, {"use_extra_color_and_alpha", {1}},
                       {"u_extra_color_and_alpha_is_set", {1}}},
       1 - 0.4f, 0.5f},
      {"solid effect culled", "SolidEffect", {{"cull_mode", {1}}}, 1, 1, 0},
      {"vertex colour effect: the tinted texel multiplies", "VertexColorEffect",
       {{"diffuse_map", {}, &halfRed}, {"use_diffuse_map", {1}}}, 1 - 0.4f, 0.1f * 0.5f},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const bool basic = std::string(row.shader) == "BasicMaterial";
    EXPECT_EQ(testShaderInfo(row.shader)->operationMask, 63u);  // all six material operations
    MaterialShader* m = material(row.shader, row.params + (basic ? Params{{"specular", {0, 0, 0}}} : Params{}));
    ShadingState s = hit(row.shader, row.frontFacing);
    ScriptedContext context;
    context.irradiance[0] = 1.0f;
    m->shadowTransmission(&context, &s);
    expectBits(s.shadowTransmission, {row.transmission, row.transmission, row.transmission});
    m->evaluateRadiance(&context, &s);
    EXPECT_EQ(s.radianceDone, 1);
    EXPECT_FLOAT_EQ(s.radiance[0], (1 - row.transmission) * row.red * kInvPi);
    s.sampledDirection[2] = 1.0f;
    m->evaluateBsdf(&context, &s);
    EXPECT_BITEQ(s.pdf, 1.0f);
    EXPECT_FLOAT_EQ(s.bsdfWeight[0], s.radiance[0]);
  }
  EXPECT_EQ(texel.coords.at(0), (std::vector<float>{0.25f * 2 + 0.5f + 1, 0.75f + 0.25f}));
}

TEST(BasicMaterial, EvaluateBsdfAddsPhongToAnUnclampedDiffuseTerm) {
  MaterialShader* m = material("BasicMaterial", {{"diffuse", {0.5f, 0.25f, 1}}, {"specular", {0.5f, 0.5f, 0.5f}},
                                                 {"reflection_blend", {0.25f}}, {"opacity", {0.5f}}});
  ShadingState s = hit("BasicMaterial");
  ScriptedContext context;
  const auto weight = [&](Color towardsLight, int channel) {
    std::copy(towardsLight.begin(), towardsLight.end(), s.sampledDirection);
    m->evaluateBsdf(&context, &s);
    return s.bsdfWeight[channel];
  };
  EXPECT_BITEQ(weight({0, 0, 1}, 1), (0.5f + 0.25f * 0.75f) * (0.5f * kInvPi));  // H = N: highlight 1
  EXPECT_BITEQ(weight({0, 0, -1}, 0), -(0.5f * 0.75f) * (0.5f * kInvPi));      // H = 0: no highlight, N . L = -1
  // N . H = 1.8 / sqrt(3.6), to the default 32.
  EXPECT_NEAR(weight({0.6f, 0, 0.8f}, 1), (0.5 * 0.18530202 + 0.25 * 0.75 * 0.8) * (0.5 * kInvPi), 1e-7);
}

// Opacity 0.5, reflection_blend 0.5 and a diffuse maximum of 1 give the odds
// pass 1/2, mirror 1/4, diffuse 1/4 exactly; the 1D sample picks the event,
// weighed by its value over its odds. The ray comes in at (0.6, 0, -0.8), or
// from below at (0.6, 0, 0.8).
TEST(BasicMaterial, SampleBsdfPicksEachEventByTheSampleWeighedByItsOdds) {
  const Params odds{{"opacity", {0.5f}}, {"reflection_blend", {0.5f}}, {"diffuse", {1.0f, 0.5f, 0.25f}}};
  const Params culled{{"cull_mode", {2}}, {"reflection_blend", {0.5f}}};
  const float k = kDiffuseDensity, z = std::sqrt(1.0f - 0.64f);
  struct Row { const char* label; Params params; float x, xi, rayZ; int32_t kind, flag, lobe; Color weight; float z; };
  const Row rows[] = {
      {"pass from 0", odds, 0.0f, 0.64f, -0.8f, 0, 0, 64, {1, 1, 1}, -0.8f},
      {"pass below 1/2", odds, 0.4999f, 0.64f, -0.8f, 0, 0, 64, {1, 1, 1}, -0.8f},
      {"mirror from 1/2", odds, 0.5f, 0.64f, -0.8f, 0, 0, 4, {1, 1, 1}, 0.8f},
      {"mirror below 3/4", odds, 0.7499f, 0.64f, -0.8f, 0, 0, 4, {1, 1, 1}, 0.8f},
      {"diffuse, cosine-distributed", odds, 0.75f, 0.64f, -0.8f, 0, 0, 1, {k, 0.5f * k, 0.25f * k}, z},
      {"diffuse from below: never flatter than 1 degree", odds, 0.75f, 1, 0.8f, 0, 0, 1, {k, 0.5f * k, 0.25f * k},
       -0.01745241f},
      {"kind 3 rules the mirror out: pPass 1", odds, 0.99f, 0.64f, -0.8f, 3, 0, 64, {0.5f, 0.5f, 0.5f}, -0.8f},
      {"kind 2, flag 1, transmitting: the mirror", odds, 0.0f, 0.64f, -0.8f, 2, 1, 4, {0.25f, 0.25f, 0.25f}, 0.8f},
      {"culled: straight on", culled, 0.0f, 0.64f, -0.8f, 3, 0, 64, {1, 1, 1}, -0.8f},
      {"culled, kind 1 decided the mirror: the end", culled, 0.0f, 0.64f, -0.8f, 1, 0, 0, {0, 0, 0}, -0.8f},
  };
  ScriptedContext context;
  ShadingState s = hit("BasicMaterial");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    s.rayDirection[0] = 0.6f, s.rayDirection[2] = row.rayZ;
    context.rayKind = row.kind, context.rayFlags = row.flag;
    context.samples1D = {row.x}, context.samples2D = {{0.125f, row.xi}};
    material("BasicMaterial", row.params)->sampleBsdf(&context, &s);
    EXPECT_EQ(s.lobeFlags, row.lobe);
    expectBits(s.bsdfWeight, {row.weight.begin(), row.weight.end()});
    EXPECT_BITEQ(s.sampledDirection[2], row.z);
    const float* d = s.sampledDirection;
    EXPECT_NEAR(std::hypot(d[0], d[1]), row.lobe == 1 ? std::sqrt(row.xi) : 0.6f, 1e-6f);  // diffuse: sqrt(xi)
    EXPECT_BITEQ(s.pdfSecondary, row.lobe == 1 ? k : 1.0f);
  }
  // With neither transmission, mirror nor colour no event remains: the path ends, the rest untouched.
  const ShadingState before = s;
  context.rayKind = 0, context.samples1D = {0.5f};
  material("BasicMaterial", {{"diffuse", {0, 0, 0}}})->sampleBsdf(&context, &s);
  EXPECT_EQ(s.lobeFlags, 0);
  const size_t first = offsetof(ShadingState, sampledDirection), end = offsetof(ShadingState, lobeFlags);
  EXPECT_EQ(std::memcmp(s.sampledDirection, reinterpret_cast<const char*>(&before) + first, end - first), 0);
}

TEST(BasicMaterial, EvaluateRadianceEmitsAndGathersUnlessTheRayKindForbids) {
  MaterialShader* m = material("BasicMaterial", {{"emissive", {0.5f, 1, 2}}, {"opacity", {0.5f}},
                                                 {"reflection_blend", {0.5f}}});
  ShadingState s = hit("BasicMaterial");
  KindBitsContext context;
  const auto red = [&](float irradiance, int32_t kinds) {
    context.irradiance[0] = irradiance, context.rayKindBits = kinds;
    m->evaluateRadiance(&context, &s);
    return s.radiance[0];
  };
  EXPECT_BITEQ(red(4, 0), 0.5f * 0.5f + 0.5f * 0.5f * 4.0f * 1.0f * kInvPi);
  EXPECT_BITEQ(s.radiance[1], 0.5f * 1.0f);
  EXPECT_EQ(context.lastIrradianceNormal, (Color{0, 0, 1}));
  EXPECT_EQ(context.rayKindMasksAsked, std::vector<int32_t>{8});
  EXPECT_BITEQ(red(1e-5f, 0), 0.25f);  // not above the floor
  EXPECT_BITEQ(red(4, 8), 0.25f);      // an illumination ray gathers nothing
  EXPECT_EQ(context.calls(kGatherIrradiance), 2);
}

// A clipping table answering in call order (the last answer repeated) and recording where it was read.
struct ScriptedClippingMap : IClippingMapSampler {
  std::vector<std::array<float, 4>> answers;
  std::vector<float> asked;
  void lookup(float out[4], float u) override {
    asked.push_back(u);
    const auto& a = answers[std::min(asked.size(), answers.size()) - 1];
    std::copy(a.begin(), a.end(), out);
  }
};

// The global clipping planes (a point on or behind a plane is cut away) and
// the uv clip rectangle (the closed unit square is kept), for every member.
TEST(BasicFamily, CutoutsRemovePointsOnOrBehindAPlaneAndOutsideTheUvSquare) {
  for (const char* name : kFamily) {
    SCOPED_TRACE(name);
    ScriptedContext context;
    const auto cutAway = [&](const Params& params, Color position, float u = 0.25f, float v = 0.75f) {
      ShadingState s = hit(name);
      std::copy(position.begin(), position.end(), s.position);
      vary(s, name, "uv", {u, v});
      s.cutAway = 0xEE;
      material(name, params)->testCutout(&context, &s);
      return int(s.cutAway);
    };
    host::ClippingPlaneTable table({{1, 0, 0, 5}, {0, 0, 1, -1}});  // keeps x > -5 and z > 1
    const Params planes{{"u_globalClippingMap", {}, nullptr, &table}, {"u_globalClippingMapEnable", {2}}};
    EXPECT_EQ(cutAway({{"u_globalClippingMap", {}, nullptr, &table}}, {0, 0, 1}), 0);  // not enabled
    EXPECT_EQ(cutAway(planes, {0, 0, 1}), 1);                                          // on the second plane
    EXPECT_EQ(cutAway(planes, {0, 0, 1.0001f}), 0);
    EXPECT_EQ(cutAway(planes, {-5, 0, 1.0001f}), 1);
    EXPECT_EQ(cutAway({{"u_globalClippingMapEnable", {1}}}, {0, 0, 0}), 0);  // unbound keeps everything
    ScriptedClippingMap map;
    const Params scripted{{"u_globalClippingMap", {}, nullptr, &map}, {"u_globalClippingMapEnable", {1}}};
    for (float count : {0.0f, 0.999f, kNaN}) {
      map.answers = {{count, 0, 0, 1}, {0, 0, 0, 10}}, map.asked.clear();
      EXPECT_EQ(cutAway(scripted, {0, 0, 1}), 0) << count;
      EXPECT_EQ(map.asked.size(), 1u);
    }
    // Two and a half planes: two are read, at the centres of texels 1 and 2 of 3.5.
    map.answers = {{2.5f, 0, 0, 1}, {0, 0, 1, 0}, {0, 0, 1, 0}, {0, 0, 1, -100}}, map.asked.clear();
    EXPECT_EQ(cutAway(scripted, {0, 0, 1}), 0);
    EXPECT_EQ(map.asked, (std::vector<float>{0.0f, 1.5f / 3.5f, 2.5f / 3.5f}));
    map.answers = {{kInf, 0, 0, 1}, {0, 0, 1, 0}};
    EXPECT_EQ(cutAway(scripted, {0, 0, 1}), 0);  // an infinite count reads a bounded number of planes
    // x = 4u - 1, y = v; m8 and m9 multiply the third component 0.
    const Params clip{{"use_uv_clip", {1}}, {"uv_clip_transform", {4, 0, 0, 0, 0, 1, 0, 0, 7, 7, 1, 0, -1, 0, 0, 1}}};
    const std::tuple<float, float, int> uvs[] = {{0.25f, 0.75f, 0}, {0.5f, 0.0f, 0},   {0.5f, 1.0f, 0},
                                                 {0.24f, 0.5f, 1},  {0.51f, 0.5f, 1},  {0.3f, -0.01f, 1},
                                                 {kNaN, 0.5f, 1},   {0.3f, kNaN, 1}};
    for (const auto& [u, v, cut] : uvs) EXPECT_EQ(cutAway(clip, {0, 0, 1}, u, v), cut) << u << ", " << v;
    EXPECT_EQ(cutAway(clip + Params{{"use_uv_clip", {0}}}, {0, 0, 1}, 0.0f, 5.0f), 0);
  }
}

// The effects with colour c = (0.8, 0.4, 0.2) and coverage 0.75, from the
// parameters (SolidEffect) or the vertices (VertexColorEffect). Lit, they are
// Lambertian: the evaluated BSDF x cosine integrates over the hemisphere to
// coverage x c (none from below), and over stratified samples of sampleBsdf
// the mean throughput of a bounce is coverage x c plus the transparency.
// Unlit, they show coverage x (emission + c) and reflect nothing.
TEST(BasicEffects, LitOnesReflectLambertianlyUnlitOnesShowTheirColour) {
  const Color c{0.8f, 0.4f, 0.2f};
  for (const char* name : {"SolidEffect", "VertexColorEffect"})
    for (float unlit : {0.0f, 5.0f}) {
      SCOPED_TRACE(::testing::Message() << name << " unlit " << unlit);
      const bool solid = std::string(name) == "SolidEffect";
      const Params colour = solid ? Params{{"diffuse", {c[0], c[1], c[2]}}, {"opacity", {0.75f}}} : Params{};
      MaterialShader* m = material(name, colour + Params{{"unlit", {unlit}}, {"emissive", {0.5f, 0, 0}}});
      ShadingState s = hit(name);
      if (!solid) vary(s, name, "vtxcolor", {c[0], c[1], c[2], 0.75f});
      ScriptedContext context;
      context.irradiance[1] = 2.0f;
      m->evaluateRadiance(&context, &s);
      EXPECT_FLOAT_EQ(s.radiance[1], unlit ? 0.75f * c[1] : 0.75f * 2.0f * c[1] * kInvPi);  // irradiance 2 in green
      EXPECT_FLOAT_EQ(s.radiance[0], 0.75f * (0.5f + (unlit ? c[0] : 0.0f)));
      double integral = 0;
      for (int k = 0; k < 2000; ++k) {  // midpoint rule over theta in [0, pi]
        const double theta = (k + 0.5) * kPiD / 2000;
        s.sampledDirection[0] = float(std::sin(theta)), s.sampledDirection[2] = float(std::cos(theta));
        m->evaluateBsdf(&context, &s);
        EXPECT_GE(s.bsdfWeight[0], 0.0f);
        integral += s.bsdfWeight[0] * 2 * kPiD * std::sin(theta) * (kPiD / 2000);
      }
      EXPECT_NEAR(integral, unlit ? 0.0 : 0.75 * c[0], 1e-4);
      Color mean{0, 0, 0};
      for (int k = 0; k < 1000; ++k) {
        context.samples1D = {(k + 0.5f) / 1000};
        context.samples2D = {{0.3f, (k + 0.5f) / 1000}};
        m->sampleBsdf(&context, &s);
        if (s.lobeFlags == 0) continue;
        const float passProbability = unlit ? 1.0f : 0.25f / (0.25f + 0.75f * c[0]);
        EXPECT_EQ(s.lobeFlags, (k + 0.5f) / 1000 < passProbability ? 64 : 1) << k;
        for (int i = 0; i < 3; ++i) mean[i] += s.bsdfWeight[i] * s.pdf / s.pdfSecondary / 1000;
      }
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(mean[i], 0.25f + (unlit ? 0.0f : 0.75f * c[i]), 1e-3f) << i;
    }
}

// PhongReflective at (1, 2, 3), normal up, the traced mirror ray bringing
// back (2, 4, 8); fields it must not write keep a pattern.
TEST(PhongReflective, SumsTheLightsInListOrderAddsTheTracedMirrorAndDiscardsClippedHits) {
  EXPECT_EQ(testShaderInfo("PhongReflective")->operationMask, 12u);  // shadeSurface and shadowTransmission alone
  ScriptedContext context;
  context.traced[0] = 2.0f, context.traced[1] = 4.0f, context.traced[2] = 8.0f;
  ShadingState before = patternState();
  const float position[3] = {1, 2, 3}, normal[3] = {0, 0, 1};
  std::copy(position, position + 3, before.position), std::copy(normal, normal + 3, before.normal);
  const auto shade = [&](const Params& params, Color ray = {0.6f, 0, -0.8f}) {
    ShadingState s = before;
    std::copy(ray.begin(), ray.end(), s.rayDirection);
    material("PhongReflective", params)->shadeSurface(&context, &s);
    return s;
  };
  // Diffuse factors 1, 1e8, -1e8 sum to 0 in list order (the first light's
  // 0.5 is lost against 1e8) and to 0.5 in reverse. Highlights: 1 for the
  // lights along the mirror direction, 0 for the one opposite the view (zero
  // half vector), so the highlights sum to 0.5 + 1.
  LightSample lights[3] = {{{0.6f, 0, 0.8f}, 1.0f, {0.5f, 0.5f, 0.5f}, &lights[1]},
                           {{0.6f, 0, -0.8f}, 1e8f, {1, 1, 1}, &lights[2]},
                           {{0.6f, 0, 0.8f}, -1e8f, {1, 1, 1}, nullptr}};
  context.lightSamples = lights;
  ShadingState s = shade({{"specular", {0.25f, 0.5f, 1.0f}}, {"reflection", {0.5f, 0.5f, 0.5f}}});
  expectBits(s.surfaceResult, {1.5f * 0.25f + 2.0f * 0.5f, 1.5f * 0.5f + 4.0f * 0.5f, 1.5f * 1.0f + 8.0f * 0.5f});
  std::copy(s.surfaceResult, s.surfaceResult + 3, before.surfaceResult);
  std::copy(s.rayDirection, s.rayDirection + 3, before.rayDirection);
  EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0) << "alpha and the rest untouched";
  EXPECT_EQ(context.lastLightsWhich, 0);
  EXPECT_EQ(context.lastLightsPosition, (Color{1, 2, 3}));
  EXPECT_EQ(context.lastLightsNormal, (Color{0, 0, 1}));
  EXPECT_EQ(context.lastRayOrigin, (Color{1, 2, 3}));
  EXPECT_EQ(context.lastRayDirection, (Color{0.6f, 0, 0.8f}));
  EXPECT_BITEQ(context.lastRayWeight, 1.0f);
  // Shininess 2 seen head on: (N . H)^2 = 1.8^2 / 3.6; no light leaves the reflection alone.
  LightSample light = {{0.6f, 0, 0.8f}, 0.0f, {1, 1, 1}, nullptr};
  context.lightSamples = &light;
  EXPECT_NEAR(shade({{"shininess", {2}}, {"reflection", {0, 0, 0}}}, {0, 0, -1}).surfaceResult[0], 0.9, 1e-6);
  context.lightSamples = nullptr;
  EXPECT_BITEQ(shade({}).surfaceResult[1], 4.0f);
  // A clipped hit is discarded, by shadeSurface without a call and by
  // shadowTransmission; the other operations do nothing; an unbound map keeps every point.
  context.resetCounts();
  host::ClippingPlaneTable table({{0, 0, 1, -3}});  // cuts z <= 3
  const Params clipped{{"u_globalClippingMap", {}, nullptr, &table}, {"u_globalClippingMapEnable", {0x7F}}};
  s = shade(clipped);
  EXPECT_EQ(s.hitDiscarded, 1);
  EXPECT_TRUE(onlyWrote(before, s, &ShadingState::hitDiscarded));
  MaterialShader* m = material("PhongReflective", clipped);
  m->shadowTransmission(&context, &s);
  EXPECT_EQ(s.hitDiscarded, 1);
  s = before;
  for (auto op : {&MaterialShader::evaluateBsdf, &MaterialShader::sampleBsdf, &MaterialShader::evaluateRadiance,
                  &MaterialShader::testCutout})
    (m->*op)(&context, &s);
  EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
  EXPECT_EQ(context.totalCalls(), 0);
  EXPECT_EQ(shade({{"u_globalClippingMapEnable", {1}}}).hitDiscarded, before.hitDiscarded);
}

}  // namespace
}  // namespace kvi::test
