// The shared surface routines called directly (the glossy lobe, which no
// material of this family uses, and the ray-kind override of a two-lobe
// choice), and the basic materials through the module loader as a host drives
// them, with a scripted context whose samples, ray kinds and answers each test
// sets. The clipping map and the uv rectangle are exercised through the
// materials.
#include "frame/surface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInvPi = 0.31830984f;          // bits 0x3EA2F982
constexpr float kDiffuseDensity = 0.3183099f;  // bits 0x3EA2F984
constexpr double kPiD = 3.14159265358979;
using Color = std::array<float, 3>;

// ---- The glossy reflection lobe.

// The distribution at a half vector along the normal: 1 / (m^2 pi), pi stored as 3.141593.
float peak(float m) { return 1.0f / (m * m * 3.141593f); }

// A view at cosine vz in the xz plane and its mirror image, so that the half
// vector is exactly the normal and only the fade and the geometry term vary.
float mirrored(float vz, float m) {
  const float vx = std::sqrt(1.0f - vz * vz), incoming[3] = {-vx, 0.0f, -vz}, outgoing[3] = {-vx, 0.0f, vz};
  return glossyReflectionLobe(incoming, outgoing, m);
}

TEST(GlossyLobe, PeakGeometryCapRoughnessFloorAndHorizonFade) {
  const float down[3] = {0, 0, -1}, up[3] = {0, 0, 1};
  EXPECT_BITEQ(glossyReflectionLobe(down, up, 0.5f), peak(0.5f) * 0.25f);  // head on: G = min(2, 2, 1) = 1
  const float capped = 2.236f * peak(0.2f) * 0.25f;  // at a view cosine of 0.3 every bound exceeds 3.3
  EXPECT_BITEQ(mirrored(0.3f, 0.2f), capped);
  for (float m : {0.0f, 0.01f, -3.0f, kNaN}) EXPECT_BITEQ(mirrored(0.6f, m), mirrored(0.6f, 0.0225f)) << m;
  EXPECT_LT(mirrored(0.6f, 0.03f), mirrored(0.6f, 0.0225f));
  // x = 36 * 2^-6 = 0.5625: 6x^5 - 15x^4 + 10x^3 = 645894 / 2^20, exact in single precision.
  EXPECT_BITEQ(mirrored(0.015625f, 0.2f), 2.236f * (645894.0f / 1048576.0f) * peak(0.2f) * 0.25f);
  // Nothing is faded from the stored threshold 0x3CE38E0F (just below 1/36)
  // on; the polynomial would give 0.999999 at 0x3CE38E13.
  for (uint32_t bits : {0x3CE38E0Fu, 0x3CE38E13u}) EXPECT_BITEQ(mirrored(std::bit_cast<float>(bits), 0.2f), capped);
  EXPECT_LT(mirrored(0.02f, 0.2f), capped);
}

TEST(GlossyLobe, OppositeSidesGiveNothingAndGeneralDirectionsMatchDoublePrecision) {
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
  struct Case { int32_t kind; float a, b; int32_t flags; uint8_t diffuseSampled, frontFacing; bool decided; float p; };
  const Case cases[] = {
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
  for (const auto& c : cases) {
    ScriptedContext context;
    context.rayKind = c.kind, context.rayFlags = c.flags, context.diffuseSampled = c.diffuseSampled;
    float p = 0.5f;
    EXPECT_EQ(overrideLobeChoice(&context, c.a, p, c.b, c.frontFacing), c.decided) << "case " << &c - cases;
    EXPECT_BITEQ(p, c.p) << "case " << &c - cases;
    for (int32_t flag : context.rayFlagsAsked) EXPECT_EQ(flag, 1);
  }
}

// ---- BasicMaterial and PhongReflective.

// A texture answering one texel and recording where it was sampled.
struct RecordingSampler : ITextureSampler {
  std::array<float, 4> texel;
  std::vector<std::array<float, 2>> coords;
  explicit RecordingSampler(std::array<float, 4> t) : texel(t) {}
  void sample(float out[4], const float* c) override {
    coords.push_back({c[0], c[1]});
    std::copy(texel.begin(), texel.end(), out);
  }
};

// A surface of the basic family (BasicMaterial unless named) at a front-facing hit.
struct BasicSurface {
  explicit BasicSurface(const char* name = "BasicMaterial") : shader(name) {
    shader.block.setMatrix4("diffuse_map_transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    shader.block.setColor3("diffuse_map_tint", {1, 1, 1});
    state.normal[2] = state.position[2] = 1.0f;
    state.rayDirection[2] = -1.0f;
    state.frontFacing = 1;
    shader.setVarying(state, "uv", {0.25f, 0.75f});
    shader.setVarying(state, "vtxcolor", {0.1f, 0.2f, 0.3f, 0.4f});
    context.rayKind = 0;  // none of 1, 2, 3: the override leaves the odds alone
  }
  TestShader shader;
  ScriptedContext context;
  ShadingState state = shader.state();

  MaterialShader* material() {
    shader.apply();
    return shader.material();
  }
  float transmission() {
    material()->shadowTransmission(&context, &state);
    EXPECT_TRUE(state.shadowTransmission[0] == state.shadowTransmission[2] &&
                state.shadowTransmission[1] == state.shadowTransmission[2]);
    return state.shadowTransmission[2];
  }
  // Read through the gathered light: with E = 1 the radiance is coverage x colour x 1/pi.
  float redOverPi() {
    context.irradiance[0] = 1.0f;
    material()->evaluateRadiance(&context, &state);
    return state.radiance[0];
  }
  uint8_t cutAway() {
    state.cutAway = 0xEE;
    material()->testCutout(&context, &state);
    return state.cutAway;
  }
  void sample(float x, int32_t kind = 0) {
    context.rayKind = kind;
    context.samples1D = {x};
    material()->sampleBsdf(&context, &state);
  }
};

class BasicSurfaceTest : public ::testing::Test, protected BasicSurface {
 protected:
  explicit BasicSurfaceTest(const char* name = "BasicMaterial") : BasicSurface(name) {}
};
using BasicMaterialTest = BasicSurfaceTest;

// The cut-outs every member of the family shares.
class BasicFamilyTest : public BasicSurfaceTest, public ::testing::WithParamInterface<const char*> {
 protected:
  BasicFamilyTest() : BasicSurfaceTest(GetParam()) {}
};

TEST_F(BasicMaterialTest, CullModesInBothDirections) {
  EXPECT_EQ(shader.info->operationMask, 63u);  // all six material operations
  shader.block.setColor3("emissive", {1, 1, 1});
  shader.block.setFloat("reflection_blend", 0.5f);
  struct Case { int32_t mode; uint8_t front; bool culled; };
  for (const Case& c : {Case{1, 0, true}, Case{1, 1, false}, Case{2, 0x40, true}, Case{2, 0, false},
                        Case{0, 0, false}, Case{7, 0, false}}) {
    SCOPED_TRACE(testing::Message() << "cull_mode " << c.mode << " frontFacing " << int(c.front));
    shader.block.setInt("cull_mode", c.mode);
    state.frontFacing = c.front;
    EXPECT_BITEQ(transmission(), c.culled ? 1.0f : 0.0f);
    material()->evaluateRadiance(&context, &state);
    EXPECT_BITEQ(state.radiance[0], c.culled ? 0.0f : 1.0f);
    state.sampledDirection[2] = 1.0f;
    material()->evaluateBsdf(&context, &state);
    EXPECT_BITEQ(state.pdf, 1.0f);
    EXPECT_EQ(state.bsdfWeight[0] == 0.0f, c.culled);
  }
  // In sampleBsdf a culled hit goes straight on, unless the override decided for
  // the mirror (kind 1 on a front face with a mirror share): then the path ends.
  shader.block.setInt("cull_mode", 2);
  state.frontFacing = 1;
  for (int32_t kind : {3, 1}) {
    sample(0.0f, kind);
    EXPECT_EQ(state.lobeFlags, kind == 3 ? 64 : 0);
    EXPECT_BITEQ(state.bsdfWeight[1], kind == 3 ? 1.0f : 0.0f);
    EXPECT_BITEQ(state.sampledDirection[2], -1.0f);
  }
}

TEST_F(BasicMaterialTest, TransparencyCombinesOpacityVertexTextureAndExtraAlpha) {
  for (auto [opacity, expected] : {std::pair{1.0f, 0.0f}, {0.0f, 1.0f}, {0.25f, 0.75f}, {3.0f, 0.0f}, {-2.0f, 1.0f},
                                   {kNaN, 1.0f}}) {
    shader.block.setFloat("opacity", opacity);
    EXPECT_BITEQ(transmission(), expected) << opacity;
  }
  shader.block.setBool("use_diffuse_vertex_color", 0x10);  // vertex alpha 0.4 replaces the opacity
  RecordingSampler texture({1, 1, 1, 0.5f});
  shader.block.setTexture("diffuse_map", &texture, 0);
  shader.block.setBool("use_diffuse_map", 1);
  EXPECT_BITEQ(transmission(), 1.0f - 0.4f);  // the texel's alpha counts only with its flag
  shader.block.setBool("use_diffuse_map_alpha", 1);
  shader.block.setColor4("u_extra_color_and_alpha", {0, 0, 0, 0.5f});
  shader.block.setBool("use_extra_color_and_alpha", 1);
  EXPECT_BITEQ(transmission(), 1.0f - 0.4f * 0.5f);  // the extra alpha is not valid yet
  shader.block.setBool("u_extra_color_and_alpha_is_set", 1);
  EXPECT_BITEQ(transmission(), 1.0f - 0.4f * 0.5f * 0.5f);
  shader.block.setTexture("diffuse_map", nullptr, 3);  // unbound: the factor is 1
  EXPECT_BITEQ(transmission(), 1.0f - 0.4f * 0.5f);
}

TEST_F(BasicMaterialTest, DecalBlendsByTexelAlphaModulateMultiplies) {
  shader.block.setColor3("diffuse", {0.2f, 0.4f, 0.8f});
  shader.block.setColor3("diffuse_map_tint", {2.0f, 1.0f, 1.0f});
  // The texture coordinates are (u, v, 1, 1) times the transform: m8 and m9 shift them.
  shader.block.setMatrix4("diffuse_map_transform", {2, 0, 0, 0, 0, 1, 0, 0, 0.5f, 0.25f, 1, 0, 1, 0, 0, 1});
  RecordingSampler texture({0.25f, 0.25f, 1.0f, 0.25f});
  shader.block.setTexture("diffuse_map", &texture, 0);
  shader.block.setBool("use_diffuse_map", 1);
  EXPECT_BITEQ(redOverPi(), (0.25f * 0.5f + 0.75f * 0.2f) * kInvPi);
  EXPECT_EQ(texture.coords.at(0), (std::array<float, 2>{0.25f * 2 + 0.5f + 1, 0.75f + 0.25f}));
  shader.block.setBool("use_decal_mode", 0);
  EXPECT_BITEQ(redOverPi(), 0.2f * 0.5f * kInvPi);
  shader.block.setTexture("diffuse_map", nullptr, -1);  // enabled but unbound: (0, 0, 0, 1), black
  EXPECT_BITEQ(redOverPi(), 0.0f);
  shader.block.setBool("use_decal_mode", 1);
  EXPECT_BITEQ(redOverPi(), 0.0f);
  // Without the map the extra colour wins over the vertex colour, which wins over "diffuse".
  shader.block.setBool("use_diffuse_map", 0);
  shader.block.setBool("use_diffuse_vertex_color", 1);
  const float coverage = 1.0f - (1.0f - 0.4f);  // the vertex alpha, through the transparency
  EXPECT_BITEQ(redOverPi(), coverage * 0.1f * kInvPi);
  shader.block.setColor4("u_extra_color_and_alpha", {0.5f, 0.5f, 0.5f, 1.0f});
  shader.block.setBool("use_extra_color_and_alpha", 1);
  shader.block.setBool("u_extra_color_and_alpha_is_set", 1);
  EXPECT_BITEQ(redOverPi(), coverage * 0.5f * kInvPi);
}

TEST_F(BasicMaterialTest, EvaluateBsdfAddsPhongToAnUnclampedDiffuseTerm) {
  shader.block.setColor3("diffuse", {0.5f, 0.25f, 1.0f});
  shader.block.setColor3("specular", {0.5f, 0.5f, 0.5f});
  shader.block.setFloat("reflection_blend", 0.25f);
  shader.block.setFloat("opacity", 0.5f);
  state.sampledDirection[2] = 1.0f;  // light along the normal: H = N, highlight 1
  material()->evaluateBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[1], (0.5f + 0.25f * 0.75f) * (0.5f * kInvPi));
  state.sampledDirection[2] = -1.0f;  // along the ray: H = 0, no highlight, N . L = -1
  material()->evaluateBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[0], -(0.5f * 0.75f) * (0.5f * kInvPi));
  state.sampledDirection[0] = 0.6f, state.sampledDirection[2] = 0.8f;  // N . H = 1.8 / sqrt(3.6), to the default 32
  material()->evaluateBsdf(&context, &state);
  EXPECT_NEAR(state.bsdfWeight[1], (0.5 * 0.18530202 + 0.25 * 0.75 * 0.8) * (0.5 * kInvPi), 1e-7);
}

// Opacity 0.5, reflection_blend 0.5 and a diffuse maximum of 1 give the odds
// pass 1/2, mirror 1/4, diffuse 1/4 exactly; the 1D sample picks the branch.
TEST_F(BasicMaterialTest, SampleBsdfPicksEachEventByTheSample) {
  shader.block.setFloat("opacity", 0.5f);
  shader.block.setFloat("reflection_blend", 0.5f);
  shader.block.setColor3("diffuse", {1.0f, 0.5f, 0.25f});
  state.rayDirection[0] = 0.6f, state.rayDirection[2] = -0.8f;
  for (float x : {0.0f, 0.4999f, 0.5f, 0.7499f}) {
    sample(x);
    EXPECT_EQ(state.lobeFlags, x < 0.5f ? 64 : 4);
    EXPECT_BITEQ(state.bsdfWeight[2], 1.0f);  // tr / pPass, wMirror / pMirror
    EXPECT_BITEQ(state.sampledDirection[2], x < 0.5f ? -0.8f : 0.8f);
  }
  context.samples2D = {{0.125f, 0.64f}};
  sample(0.75f);
  EXPECT_EQ(state.lobeFlags, 1);
  EXPECT_BITEQ(state.bsdfWeight[1], 0.5f * kDiffuseDensity);
  EXPECT_BITEQ(state.pdfSecondary, kDiffuseDensity);
  const float* d = state.sampledDirection;
  EXPECT_BITEQ(d[2], std::sqrt(1.0f - 0.64f));  // the cosine to the normal
  EXPECT_NEAR(d[0] * d[0] + d[1] * d[1] + d[2] * d[2], 1.0f, 1e-6f);
  state.rayDirection[2] = 0.8f;  // from below: around the flipped normal, never flatter than one degree
  context.samples2D = {{0.125f, 1.0f}};
  sample(0.75f);
  EXPECT_BITEQ(d[2], -0.01745241f);
  // Ray kind 3 rules the mirror out (pPass = 1 - 0); kind 2 with flag 1 through a transmitting surface forces it.
  sample(0.99f, 3);
  EXPECT_EQ(state.lobeFlags, 64);
  EXPECT_BITEQ(state.bsdfWeight[0], 0.5f);
  context.rayFlags = 1;
  sample(0.0f, 2);
  EXPECT_EQ(state.lobeFlags, 4);
  EXPECT_BITEQ(state.bsdfWeight[0], 0.25f);
  // With neither transmission, mirror nor colour no event remains: the path ends, the rest untouched.
  shader.block.setFloat("opacity", 1.0f);
  shader.block.setFloat("reflection_blend", 0.0f);
  shader.block.setColor3("diffuse", {0, 0, 0});
  const ShadingState before = state;
  sample(0.5f);
  EXPECT_EQ(state.lobeFlags, 0);
  const size_t first = offsetof(ShadingState, sampledDirection), end = offsetof(ShadingState, lobeFlags);
  EXPECT_EQ(std::memcmp(d, reinterpret_cast<const char*>(&before) + first, end - first), 0);
}

TEST_F(BasicMaterialTest, EvaluateRadianceGathersUnlessTheRayKindForbids) {
  shader.block.setColor3("emissive", {0.5f, 1.0f, 2.0f});
  shader.block.setFloat("opacity", 0.5f);
  shader.block.setFloat("reflection_blend", 0.5f);
  context.irradiance[0] = 4.0f;
  material()->evaluateRadiance(&context, &state);
  EXPECT_EQ(state.radianceDone, 1);
  EXPECT_BITEQ(state.radiance[0], 0.5f * 0.5f + 0.5f * 0.5f * 4.0f * 1.0f * kInvPi);
  EXPECT_BITEQ(state.radiance[1], 0.5f * 1.0f);
  EXPECT_EQ(context.lastIrradianceNormal, (std::array<float, 3>{0, 0, 1}));
  EXPECT_EQ(context.rayKindMasksAsked, std::vector<int32_t>{8});
  context.irradiance[0] = 1e-5f;  // not above the floor
  material()->evaluateRadiance(&context, &state);
  EXPECT_BITEQ(state.radiance[0], 0.25f);
  context.irradiance[0] = 4.0f;
  context.rayKindBits = 8;
  material()->evaluateRadiance(&context, &state);
  EXPECT_BITEQ(state.radiance[0], 0.25f);
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

TEST_P(BasicFamilyTest, ClippingPlanesCutPointsOnOrBehindThem) {
  host::ClippingPlaneTable table({{1, 0, 0, 5}, {0, 0, 1, -1}});  // keeps x > -5 and z > 1
  shader.block.setClippingMap("u_globalClippingMap", &table, 0);
  EXPECT_EQ(cutAway(), 0);  // not enabled
  shader.block.setBool("u_globalClippingMapEnable", 0x02);
  EXPECT_EQ(cutAway(), 1);  // z = 1 lies on the second plane
  state.position[2] = 1.0001f;
  EXPECT_EQ(cutAway(), 0);
  state.position[0] = -5.0f;
  EXPECT_EQ(cutAway(), 1);
  shader.block.setClippingMap("u_globalClippingMap", nullptr, -1);
  EXPECT_EQ(cutAway(), 0);  // unbound keeps everything

  ScriptedClippingMap map;
  shader.block.setClippingMap("u_globalClippingMap", &map, 0);
  for (float count : {0.0f, 0.999f, kNaN}) {
    map.answers = {{count, 0, 0, 1}, {0, 0, 0, 10}};
    map.asked.clear();
    EXPECT_EQ(cutAway(), 0) << count;
    EXPECT_EQ(map.asked.size(), 1u);
  }
  // Two and a half planes: two are read, at the centres of texels 1 and 2 of 3.5.
  map.answers = {{2.5f, 0, 0, 1}, {0, 0, 1, 0}, {0, 0, 1, 0}, {0, 0, 1, -100}};
  map.asked.clear();
  EXPECT_EQ(cutAway(), 0);
  EXPECT_EQ(map.asked, (std::vector<float>{0.0f, 1.5f / 3.5f, 2.5f / 3.5f}));
  map.answers = {{std::numeric_limits<float>::infinity(), 0, 0, 1}, {0, 0, 1, 0}};
  EXPECT_EQ(cutAway(), 0);  // an infinite count reads a bounded number of planes
}

TEST_P(BasicFamilyTest, UvClipKeepsTheClosedUnitSquare) {
  shader.block.setBool("use_uv_clip", 1);
  // x = 4u - 1, y = v; m8 and m9 multiply the third component 0.
  shader.block.setMatrix4("uv_clip_transform", {4, 0, 0, 0, 0, 1, 0, 0, 7, 7, 1, 0, -1, 0, 0, 1});
  struct Case { float u, v; uint8_t cut; };
  for (const Case& c : {Case{0.25f, 0.75f, 0}, Case{0.5f, 0.0f, 0}, Case{0.5f, 1.0f, 0}, Case{0.24f, 0.5f, 1},
                        Case{0.51f, 0.5f, 1}, Case{0.3f, -0.01f, 1}, Case{kNaN, 0.5f, 1}, Case{0.3f, kNaN, 1}}) {
    shader.setVarying(state, "uv", {c.u, c.v});
    EXPECT_EQ(cutAway(), c.cut) << c.u << ", " << c.v;
  }
  shader.block.setBool("use_uv_clip", 0);
  EXPECT_EQ(cutAway(), 0);
}

INSTANTIATE_TEST_SUITE_P(Basic, BasicFamilyTest, ::testing::Values("BasicMaterial", "SolidEffect", "VertexColorEffect"));

// The effects with colour c = (0.8, 0.4, 0.2) and coverage 0.75, from the
// parameters (SolidEffect) or the vertices (VertexColorEffect). Lit, they are
// Lambertian: the evaluated BSDF x cosine integrates over the hemisphere to
// coverage x c (none from below), and over stratified samples of sampleBsdf
// the mean throughput of a bounce is coverage x c plus the transparency.
// Unlit, they show coverage x (emission + c) and reflect nothing.
TEST(BasicEffects, LitOnesReflectLambertianlyUnlitOnesShowTheirColour) {
  const Color c{0.8f, 0.4f, 0.2f};
  for (const char* name : {"SolidEffect", "VertexColorEffect"})
    for (uint8_t unlit : {0, 5}) {
      SCOPED_TRACE(::testing::Message() << name << " unlit " << int(unlit));
      BasicSurface f(name);
      f.context.irradiance[1] = 2.0f;
      EXPECT_EQ(f.shader.info->operationMask, 63u);
      f.shader.block.setBool("unlit", unlit);
      f.shader.block.setColor3("emissive", {0.5f, 0.0f, 0.0f});
      if (std::string(name) == "SolidEffect") {
        f.shader.block.setColor3("diffuse", c);
        f.shader.block.setFloat("opacity", 0.75f);
      } else {
        f.shader.setVarying(f.state, "vtxcolor", {c[0], c[1], c[2], 0.75f});
      }
      MaterialShader* m = f.material();
      m->evaluateRadiance(&f.context, &f.state);
      const float gathered = unlit ? 0.0f : 0.75f * 1.0f * 2.0f * c[1] * kInvPi;  // irradiance 2 in green
      EXPECT_FLOAT_EQ(f.state.radiance[1], unlit ? 0.75f * c[1] : gathered);
      EXPECT_FLOAT_EQ(f.state.radiance[0], 0.75f * (0.5f + (unlit ? c[0] : 0.0f)));
      double integral = 0;
      for (int k = 0; k < 2000; ++k) {  // midpoint rule over theta in [0, pi]
        const double theta = (k + 0.5) * kPiD / 2000;
        f.state.sampledDirection[0] = float(std::sin(theta)), f.state.sampledDirection[2] = float(std::cos(theta));
        m->evaluateBsdf(&f.context, &f.state);
        EXPECT_GE(f.state.bsdfWeight[0], 0.0f);
        integral += f.state.bsdfWeight[0] * 2 * kPiD * std::sin(theta) * (kPiD / 2000);
      }
      EXPECT_NEAR(integral, unlit ? 0.0 : 0.75 * c[0], 1e-4);
      f.context.diffuseSampled = 1;
      Color mean{0, 0, 0};
      for (int k = 0; k < 1000; ++k) {
        f.context.samples1D = {(k + 0.5f) / 1000};
        f.context.samples2D = {{0.3f, (k + 0.5f) / 1000}};
        m->sampleBsdf(&f.context, &f.state);
        if (f.state.lobeFlags == 0) continue;
        const float passProbability = unlit ? 1.0f : 0.25f / (0.25f + 0.75f * c[0]);
        EXPECT_EQ(f.state.lobeFlags, (k + 0.5f) / 1000 < passProbability ? 64 : 1) << k;
        for (int i = 0; i < 3; ++i) mean[i] += f.state.bsdfWeight[i] * f.state.pdf / f.state.pdfSecondary / 1000;
      }
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(mean[i], 0.25f + (unlit ? 0.0f : 0.75f * c[i]), 1e-3f) << i;
    }
  // VertexColorEffect multiplies the vertex colour by the tinted texel.
  BasicSurface f("VertexColorEffect");
  RecordingSampler texture({0.5f, 1.0f, 1.0f, 1.0f});
  f.shader.block.setTexture("diffuse_map", &texture, 0);
  f.shader.block.setBool("use_diffuse_map", 1);
  f.shader.block.setBool("unlit", 1);
  f.material()->evaluateRadiance(&f.context, &f.state);
  EXPECT_FLOAT_EQ(f.state.radiance[0], 0.4f * (0.1f * 0.5f));  // vertex alpha 0.4, red 0.1
}

class PhongReflectiveTest : public ::testing::Test {
 protected:
  TestShader shader{"PhongReflective"};
  ScriptedContext context;
  ShadingState state = patternState();  // unwritten fields keep the pattern

  void SetUp() override {
    const float position[3] = {1, 2, 3}, normal[3] = {0, 0, 1}, ray[3] = {0.6f, 0, -0.8f};
    std::memcpy(state.position, position, sizeof position);
    std::memcpy(state.normal, normal, sizeof normal);
    std::memcpy(state.rayDirection, ray, sizeof ray);
    context.traced[0] = 2.0f, context.traced[1] = 4.0f, context.traced[2] = 8.0f;
  }
  void shade() {
    shader.apply();
    shader.material()->shadeSurface(&context, &state);
  }
};

TEST_F(PhongReflectiveTest, SumsTheLightsInListOrderAndAddsTheTracedMirror) {
  // Diffuse factors 1, 1e8, -1e8 sum to 0 in list order (the first light's
  // 0.5 is lost against 1e8) and to 0.5 in reverse. Highlights: 1 for the
  // lights along the mirror direction, 0 for the one opposite the view (zero
  // half vector), so the highlights sum to 0.5 + 1.
  LightSample lights[3] = {{{0.6f, 0, 0.8f}, 1.0f, {0.5f, 0.5f, 0.5f}, &lights[1]},
                           {{0.6f, 0, -0.8f}, 1e8f, {1, 1, 1}, &lights[2]},
                           {{0.6f, 0, 0.8f}, -1e8f, {1, 1, 1}, nullptr}};
  context.lightSamples = lights;
  shader.block.setColor3("specular", {0.25f, 0.5f, 1.0f});
  shader.block.setColor3("reflection", {0.5f, 0.5f, 0.5f});
  const ShadingState before = state;
  shade();
  EXPECT_BITEQ(state.surfaceResult[0], 1.5f * 0.25f + 2.0f * 0.5f);
  EXPECT_BITEQ(state.surfaceResult[1], 1.5f * 0.5f + 4.0f * 0.5f);
  EXPECT_BITEQ(state.surfaceResult[2], 1.5f * 1.0f + 8.0f * 0.5f);
  std::memcpy(state.surfaceResult, before.surfaceResult, 3 * sizeof(float));
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0) << "alpha and the rest untouched";
  EXPECT_EQ(context.lastLightsWhich, 0);
  EXPECT_EQ(context.lastLightsPosition, (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(context.lastRayOrigin, (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(context.lastLightsNormal, (std::array<float, 3>{0, 0, 1}));
  EXPECT_EQ(context.lastRayDirection, (std::array<float, 3>{0.6f, 0, 0.8f}));
  EXPECT_BITEQ(context.lastRayWeight, 1.0f);
}

TEST_F(PhongReflectiveTest, ShininessShapesTheHighlightAndNoLightLeavesTheReflection) {
  LightSample light = {{0.6f, 0, 0.8f}, 0.0f, {1, 1, 1}, nullptr};
  state.rayDirection[0] = 0.0f, state.rayDirection[2] = -1.0f;
  context.lightSamples = &light;
  context.traced[0] = 0.0f;
  shader.block.setFloat("shininess", 2.0f);
  shade();
  EXPECT_NEAR(state.surfaceResult[0], 0.9, 1e-6);  // (N . H)^2 = 1.8^2 / 3.6
  context.lightSamples = nullptr;
  shade();
  EXPECT_BITEQ(state.surfaceResult[1], 4.0f);
}

TEST_F(PhongReflectiveTest, ClippedHitsAreDiscardedAndTheOtherOperationsDoNothing) {
  EXPECT_EQ(shader.info->operationMask, 12u);  // shadeSurface and shadowTransmission alone
  host::ClippingPlaneTable table({{0, 0, 1, -3}});  // cuts z <= 3
  shader.block.setClippingMap("u_globalClippingMap", &table, 0);
  shader.block.setBool("u_globalClippingMapEnable", 0x7F);
  const ShadingState before = state;
  shade();
  EXPECT_EQ(state.hitDiscarded, 1);
  state.hitDiscarded = before.hitDiscarded;
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  EXPECT_EQ(context.totalCalls(), 0);
  shader.material()->shadowTransmission(&context, &state);
  EXPECT_EQ(state.hitDiscarded, 1);
  state = before;
  MaterialShader* m = shader.material();
  m->evaluateBsdf(&context, &state);
  m->sampleBsdf(&context, &state);
  m->evaluateRadiance(&context, &state);
  m->testCutout(&context, &state);
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  EXPECT_EQ(context.totalCalls(), 0);
  // An unbound map keeps every point.
  shader.block.setClippingMap("u_globalClippingMap", nullptr, -1);
  state.position[2] = 0.0f;
  shade();
  EXPECT_EQ(state.hitDiscarded, before.hitDiscarded);
  EXPECT_EQ(context.calls(kTraceRay), 1);
}

}  // namespace
}  // namespace kvi::test
