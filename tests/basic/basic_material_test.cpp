// BasicMaterial through the module loader, as a host drives it, with a
// scripted context whose samples, ray kind and answers each test sets.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "scripted_context.h"
#include "test_shader.h"

namespace {

using kvi::ShadingState;
constexpr float kInvPi = 0.31830984f;          // bits 0x3EA2F982
constexpr float kDiffuseDensity = 0.3183099f;  // bits 0x3EA2F984
const float kNaN = std::numeric_limits<float>::quiet_NaN();

// A texture answering one texel and recording where it was sampled.
struct RecordingSampler : kvi::ITextureSampler {
  std::array<float, 4> texel;
  std::vector<std::array<float, 2>> coords;
  explicit RecordingSampler(std::array<float, 4> t) : texel(t) {}
  void sample(float out[4], const float* c) override {
    coords.push_back({c[0], c[1]});
    std::copy(texel.begin(), texel.end(), out);
  }
};

// A clipping table answering in call order (the last answer repeated) and recording where it was read.
struct ScriptedClippingMap : kvi::IClippingMapSampler {
  std::vector<std::array<float, 4>> answers;
  std::vector<float> asked;
  void lookup(float out[4], float u) override {
    asked.push_back(u);
    const auto& a = answers[std::min(asked.size(), answers.size()) - 1];
    std::copy(a.begin(), a.end(), out);
  }
};

class BasicMaterialTest : public ::testing::Test {
 protected:
  kvi::test::TestShader shader{"BasicMaterial"};
  kvi::test::ScriptedContext context;
  ShadingState state = shader.state();

  void SetUp() override {
    shader.block.setMatrix4("diffuse_map_transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    shader.block.setColor3("diffuse_map_tint", {1, 1, 1});
    state.normal[2] = state.position[2] = 1.0f;
    state.rayDirection[2] = -1.0f;
    state.frontFacing = 1;
    shader.setVarying(state, "uv", {0.25f, 0.75f});
    shader.setVarying(state, "vtxcolor", {0.1f, 0.2f, 0.3f, 0.4f});
    context.rayKind = 0;  // none of 1, 2, 3: the override leaves the odds alone
  }
  kvi::MaterialShader* material() {
    shader.apply();
    return shader.material();
  }
  float transmission() {
    material()->shadowTransmission(&context, &state);
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

TEST_F(BasicMaterialTest, DeclaresItsInterface) {
  std::string names, varyings;
  for (const auto& p : shader.info->parameters) names += p.name + (p.hasDefault ? " " : "* ");
  for (const auto& v : shader.info->varyings) varyings += v.name + std::to_string(v.kind) + std::to_string(v.offset);
  // Fields the constructor leaves for the host carry a star (when the host can tell).
  std::string expected =
      "u_globalClippingMap u_globalClippingMapEnable diffuse diffuse_map diffuse_map_transform* use_decal_mode "
      "use_diffuse_map use_diffuse_map_alpha diffuse_map_tint* specular shininess emissive ambient opacity "
      "environment_map use_environment_map reflection_blend use_uv_clip uv_clip_transform* "
      "use_diffuse_vertex_color use_extra_color_and_alpha cull_mode u_extra_color_and_alpha "
      "u_extra_color_and_alpha_is_set ";
  if (!shader.info->unsetDetected) expected.erase(std::remove(expected.begin(), expected.end(), '*'), expected.end());
  EXPECT_EQ(names, expected);
  EXPECT_EQ(varyings, "uv10vtxcolor38");
  EXPECT_EQ(shader.info->operationMask, 63u);
}

TEST_F(BasicMaterialTest, CullModesInBothDirections) {
  shader.block.setColor3("emissive", {1, 1, 1});
  shader.block.setFloat("reflection_blend", 0.5f);
  const struct {
    int32_t mode;
    uint8_t front;
    bool culled;
  } cases[] = {{1, 0, true}, {1, 1, false}, {2, 0x40, true}, {2, 0, false}, {0, 0, false}, {7, 0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "cull_mode " << c.mode << " frontFacing " << int(c.front));
    shader.block.setInt("cull_mode", c.mode);
    state.frontFacing = c.front;
    EXPECT_BITEQ(transmission(), c.culled ? 1.0f : 0.0f);
    material()->evaluateRadiance(&context, &state);
    EXPECT_BITEQ(state.radiance[0], c.culled ? 0.0f : 1.0f);
    state.sampledDirection[2] = 1.0f;
    material()->evaluateBsdf(&context, &state);
    EXPECT_EQ(state.bsdfWeight[0] == 0.0f && state.pdf == 1.0f, c.culled);
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
  const std::pair<float, float> opacities[] = {{1, 0}, {0, 1}, {0.25f, 0.75f}, {3, 0}, {-2, 1}, {kNaN, 1}};
  for (auto [opacity, expected] : opacities) {
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
}

// Opacity 0.5, reflection_blend 0.5 and a diffuse maximum of 1 give the odds
// pass 1/2, mirror 1/4, diffuse 1/4 exactly; the 1D sample picks the branch.
TEST_F(BasicMaterialTest, SampleBsdfPicksEachEventByTheSample) {
  shader.block.setFloat("opacity", 0.5f);
  shader.block.setFloat("reflection_blend", 0.5f);
  shader.block.setColor3("diffuse", {1.0f, 0.5f, 0.25f});
  state.rayDirection[0] = 0.6f;
  state.rayDirection[2] = -0.8f;
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
  EXPECT_EQ(context.calls(kvi::test::kGatherIrradiance), 2);
}

TEST_F(BasicMaterialTest, ClippingPlanesCutPointsOnOrBehindThem) {
  kvi::host::ClippingPlaneTable table({{1, 0, 0, 5}, {0, 0, 1, -1}});  // keeps x > -5 and z > 1
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

TEST_F(BasicMaterialTest, UvClipKeepsTheClosedUnitSquare) {
  shader.block.setBool("use_uv_clip", 1);
  // x = 4u - 1, y = v; m8 and m9 multiply the third component 0.
  shader.block.setMatrix4("uv_clip_transform", {4, 0, 0, 0, 0, 1, 0, 0, 7, 7, 1, 0, -1, 0, 0, 1});
  const struct {
    float u, v;
    uint8_t cut;
  } cases[] = {{0.25f, 0.75f, 0}, {0.5f, 0.0f, 0},   {0.5f, 1.0f, 0}, {0.24f, 0.5f, 1},
               {0.51f, 0.5f, 1},  {0.3f, -0.01f, 1}, {kNaN, 0.5f, 1}, {0.3f, kNaN, 1}};
  for (const auto& c : cases) {
    shader.setVarying(state, "uv", {c.u, c.v});
    EXPECT_EQ(cutAway(), c.cut) << c.u << ", " << c.v;
  }
  shader.block.setBool("use_uv_clip", 0);
  EXPECT_EQ(cutAway(), 0);
}

}  // namespace
