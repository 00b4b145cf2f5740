// The metal, the glazing and the mirror through the module loader, as a host
// drives them: their declarations, the fixed steps of their operations to the
// bit where the arithmetic is written, a white furnace for the metal's sampled
// weights, and finite results for awkward hits on every preset.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "materials/physical/shared.h"
#include "presets.h"
#include "test_shader.h"
#include "variations.h"

namespace kvi::test {
namespace {

using namespace kvi::physical;

const char* const kShaders[] = {"velk_qora_Mtl_Metal", "velk_qora_Mtl_Glazing", "velk_qora_Mtl_Mirror"};

TEST(PhysicalMaterials, DeclarationsAndFixedSurfaceResults) {
  struct Case { const char* name; uint32_t mask; size_t parameters; bool varyings; float surface[4]; };
  const Case cases[] = {{"velk_qora_Mtl_Metal", 63, 69, true, {1, 0, 0, 1}},
                        {"velk_qora_Mtl_Glazing", 63, 29, true, {1, 0.1f, 1, 1}},
                        {"velk_qora_Mtl_Mirror", 61, 8, false, {1, 0, 0, 0}}};
  for (const Case& c : cases) {
    TestShader shader(c.name);
    SCOPED_TRACE(c.name);
    EXPECT_EQ(shader.info->operationMask, c.mask);
    EXPECT_EQ(shader.info->parameters.size(), c.parameters);
    std::vector<std::pair<std::string, uint32_t>> varyings;
    for (const auto& v : shader.info->varyings) varyings.emplace_back(v.name, v.offset);
    const decltype(varyings) expected = {{"bitangent", 0}, {"tangent", 12}, {"uv", 24}};
    EXPECT_EQ(varyings, c.varyings ? expected : decltype(varyings){});
    ShadingState state = patternState();
    ScriptedContext context;
    shader.material()->shadeSurface(&context, &state);
    for (int i = 0; i < 4; ++i) EXPECT_BITEQ(state.surfaceResult[i], c.surface[i]);
  }
}

// A metal hit head on, with an identity frame, for the written steps.
class MetalTest : public ::testing::Test {
 protected:
  TestShader shader{"velk_qora_Mtl_Metal"};
  ScriptedContext context;
  ShadingState state = shader.state();
  host::ConstantSampler cutout{{0.5f, 0.5f, 0.5f, 1.0f}};

  void SetUp() override {
    for (const char* m : {"u_cutoutTransform", "u_brushTransform", "u_breakTransform", "u_bumpMapColorTransform",
                          "u_normal0Transform", "u_normal0AmountTransform", "u_normal1Transform",
                          "u_anisotropyTransform", "u_anisoRotationTransform"})
      shader.block.setMatrix3(m, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    shader.block.setColor3("u_diffuseColor", {0.5f, 0.25f, 1.0f});
    shader.block.setColor3("u_specularColor", {1.0f, 0.5f, 0.25f});
    shader.block.setFloat("u_glossiness", 0.8f);
    shader.block.setFloat("u_reflectivity", 0.8f);
    shader.block.setFloat("u_brdfCurvePower", 5.0f);
    shader.block.setFloat("u_brdf00Reflectivity", 0.9f);
    shader.block.setFloat("u_brdf90Reflectivity", 1.0f);
    const float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::copy(frame, frame + 9, state.tangentFrame);
    state.normal[2] = 1.0f;
    state.rayDirection[2] = -1.0f;
    state.sampledDirection[2] = 1.0f;
    state.frontFacing = state.reflectionAllowed = 1;
    shader.setVarying(state, "tangent", {1, 0, 0});
    shader.setVarying(state, "bitangent", {0, 1, 0});
    shader.setVarying(state, "uv", {0.25f, 0.75f});
  }
  MaterialShader* metal() {
    shader.apply();
    return shader.material();
  }
  // F head on: reflectivity x f0, the curve's grazing part being 0^5 = 0.
  static float fraction() { return 0.8f * (0.0f * (1.0f - 0.9f) + 0.9f); }
};

TEST_F(MetalTest, EvaluateBsdfCombinesDiffuseAndLobeThenTintAndOpacity) {
  const float w = reflectanceCurve(0.8f), f = fraction();
  const float lobe = 1.0f * (1.0f / (w * 3.141593f * w)) * 4.0f / 16.0f;  // h = (0, 0, 2)
  const float d[3] = {0.5f * 0.5f, 0.25f * 0.5f, 1.0f * 0.5f}, s[3] = {1.0f, 0.5f, 0.25f};
  float expected[3];
  for (int i = 0; i < 3; ++i) expected[i] = d[i] * (1.0f - f) * 0.31830984f * 1.0f + s[i] * f * lobe * 1.0f;
  metal()->evaluateBsdf(&context, &state);
  for (int i = 0; i < 3; ++i) EXPECT_BITEQ(state.bsdfWeight[i], expected[i]) << i;
  EXPECT_BITEQ(state.pdf, 1.0f);
  shader.block.setBool("u_commonTintEnable", 1);
  shader.block.setColor4("u_commonTintColor", {0.5f, 1.0f, 2.0f, 9.0f});
  shader.block.setInt("u_cutoutsSwitcher", 7);
  shader.block.setTexture("u_cutoutMap", &cutout, 0);
  metal()->evaluateBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[2], expected[2] * 2.0f * 0.5f);
  // A glossiness bias lowers both widths: the lobe widens and its peak drops.
  state.glossinessBias = 0.3f;
  const float biased = state.bsdfWeight[0];
  metal()->evaluateBsdf(&context, &state);
  EXPECT_LT(state.bsdfWeight[0], biased);
}

TEST_F(MetalTest, ShadowTransmissionAndPassThroughFollowTheExactOpacity) {
  // (switcher, map value, per-object alpha or none) -> transmission
  struct Case { int32_t switcher; float map; float alpha; float transmitted; };
  for (const Case& c : {Case{0, 0.5f, -1, 0}, Case{-2, 0.5f, -1, 0}, Case{7, 1.0f, -1, 0}, Case{7, 0.999f, -1, 1 - 0.999f},
                        Case{0, 0.5f, 0.25f, 0.75f}, Case{7, 0.5f, 0.5f, 0.75f}, Case{5, 0.5f, -1, 0}}) {
    host::ConstantSampler map({c.map, c.map, c.map, 1});
    shader.block.setInt("u_cutoutsSwitcher", c.switcher);
    shader.block.setTexture("u_cutoutMap", &map, 0);
    shader.block.setBool("u_colorByObject", c.alpha >= 0);
    shader.block.setBool("u_extra_color_and_alpha_is_set", 1);
    shader.block.setColor4("u_extra_color_and_alpha", {0, 0, 0, c.alpha});
    metal()->shadowTransmission(&context, &state);
    for (int i = 0; i < 3; ++i) EXPECT_BITEQ(state.shadowTransmission[i], c.transmitted) << c.switcher << " " << c.map;
    // sampleBsdf passes through exactly when the sample lies above the opacity.
    const float opacity = 1.0f - c.transmitted;
    context.samples1D = {std::min(std::nextafter(opacity, 2.0f), 0.99999994f), 0.99f};
    metal()->sampleBsdf(&context, &state);
    EXPECT_EQ(state.lobeFlags, opacity < 1.0f ? 64 : 1);
  }
}

// The events of sampleBsdf by the samples and the host's answers.
TEST_F(MetalTest, SampleBsdfEvents) {
  const float f = fraction();
  struct Case { float glossiness, anisotropy, choice; uint8_t diffuse, glossy; int32_t flags; float asked; };
  const Case cases[] = {
      {0.8f, 1.0f, 0.9f, 1, 1, 1, -1},          // past F with diffuse sampling: diffuse, weight D
      {0.8f, 1.0f, 0.9f, 0, 1, 2, 1.0f - 0.8f},  // no diffuse sampling: glossy, asked 1 - g
      {0.8f, 1.0f, 0.1f, 1, 0, 4, 1.0f - 0.8f},  // glossy refused: mirror
      {1.0f, 1.0f, 0.1f, 1, 1, 4, -1},           // g = A = 1: the mirror, nothing asked
      {1.0f, 0.5f, 0.1f, 1, 1, 2, 0.5f},         // only the second axis is rough: asked 1 - A g
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    shader.block.setFloat("u_glossiness", c.glossiness);
    shader.block.setFloat("u_anisotropyValue", c.anisotropy);
    context.diffuseSampled = c.diffuse;
    context.glossyAccepted = c.glossy;
    context.samples1D = {0.0f, c.choice};
    context.samples2D = {{0.3f, 0.2f}};
    context.roughnessesAsked.clear();
    metal()->sampleBsdf(&context, &state);
    EXPECT_EQ(state.lobeFlags, c.flags);
    EXPECT_EQ(context.roughnessesAsked, c.asked < 0 ? std::vector<float>{} : std::vector<float>{c.asked});
    const float share = c.diffuse ? 1.0f : f;  // the reflection carries F when lobes are not chosen at random
    if (c.flags == 1) {
      EXPECT_BITEQ(state.bsdfWeight[2], 0.5f);
    }
    if (c.flags == 4) {
      EXPECT_BITEQ(state.bsdfWeight[1], 0.5f * share);
      EXPECT_BITEQ(state.sampledDirection[2], 1.0f);
    }
    if (c.flags == 2) {
      EXPECT_GE(state.pdfSecondary, 0.001f);
      const float* l = state.sampledDirection;
      const float estimate = state.bsdfWeight[0] * state.pdf / state.pdfSecondary;
      EXPECT_NEAR(estimate, 2.0f * l[2] / (l[2] + 1.0f) * share, 1e-5);
    }
  }
}

TEST_F(MetalTest, EvaluateRadianceGathersWithoutOneOverPi) {
  context.irradiance[0] = context.irradiance[1] = context.irradiance[2] = 1e-5f;  // not above the floor
  state.radiance[0] = 7.0f;
  metal()->evaluateRadiance(&context, &state);
  EXPECT_EQ(state.radianceDone, 1);
  EXPECT_BITEQ(state.radiance[0], 0.0f);
  context.irradiance[1] = 2.0f;
  metal()->evaluateRadiance(&context, &state);
  EXPECT_BITEQ(state.radiance[1], 0.25f * 0.5f * (1.0f - fraction()) * 2.0f * 1.0f);
  EXPECT_EQ(context.lastIrradianceNormal, (std::array<float, 3>{0, 0, 1}));
}

TEST(PhysicalMaterials, GlazingSteps) {
  TestShader glazing("velk_qora_Mtl_Glazing");
  glazing.block.setMatrix3("u_transmittanceTransform", {1, 0, 0, 0, 1, 0, 0, 0, 1});
  ScriptedContext context;
  context.rayKind = 0;  // the override leaves the odds alone
  ShadingState state = glazing.state();
  state.normal[2] = 1.0f, state.rayDirection[0] = 0.6f, state.rayDirection[2] = -0.8f;
  auto sample = [&](float x) {
    glazing.apply();
    context.samples1D = {x};
    glazing.material()->sampleBsdf(&context, &state);
  };
  const float k = 0.1f * 0.1f / 1.0f, p = 0.08f / (0.08f + (1.0f - k) * 1.0f);  // defaults: p = 0.01 snaps to 0.08
  sample(std::nextafter(p, 0.0f));
  EXPECT_EQ(state.lobeFlags, 4);
  EXPECT_BITEQ(state.bsdfWeight[0], k * 1.0f / p);
  EXPECT_BITEQ(state.sampledDirection[2], 0.8f);
  sample(std::nextafter(p, 1.0f));
  EXPECT_EQ(state.lobeFlags, 64);
  EXPECT_BITEQ(state.bsdfWeight[0], (1.0f - k) * 1.0f / (1.0f - p));
  glazing.block.setColor3("u_reflectColor", {0, 0, 0});  // black reflection: never reflects (but at a sample of 0)
  sample(0.001f);
  EXPECT_EQ(state.lobeFlags, 64);
  glazing.block.setFloat("u_reflectance", 0.0f);  // no reflection and black transmission: nothing
  glazing.block.setColor3("u_refractColor", {0, 0, 0});
  sample(0.5f);
  EXPECT_EQ(state.lobeFlags, 0);
  // Mapped transmittance at level 2: 0.25 becomes 0.5; the per-object colour overrides it.
  host::ConstantSampler map({0.25f, 0.25f, 0.25f, 1});
  glazing.block.setFloat("u_reflectance", 0.5f);
  glazing.block.setFloat("u_level", 2.0f);
  glazing.block.setBool("u_transmittanceMapEnable", 1);
  glazing.block.setTexture("u_transmittanceMap", &map, 0);
  glazing.apply();
  glazing.material()->shadowTransmission(&context, &state);
  EXPECT_BITEQ(state.shadowTransmission[0], 0.5f * (1.0f - 0.5f * 0.5f / 2.0f));
  glazing.block.setBool("u_colorByObject", 1);
  glazing.block.setBool("u_extra_color_and_alpha_is_set", 1);
  glazing.block.setColor4("u_extra_color_and_alpha", {0.2f, 0.3f, 0.4f, 1.0f});
  glazing.apply();
  glazing.material()->shadowTransmission(&context, &state);
  EXPECT_BITEQ(state.shadowTransmission[2], 0.4f * (1.0f - 0.5f * 0.5f / 2.0f));
  // A smooth pane leaves the light sample's weight as it was; a rough one answers.
  for (float rough : {0.001f, 0.05f}) {
    glazing.block.setFloat("u_rough", rough);
    glazing.apply();
    state.bsdfWeight[0] = 7.0f;
    state.sampledDirection[0] = -0.6f, state.sampledDirection[2] = 0.8f;
    glazing.material()->evaluateBsdf(&context, &state);
    EXPECT_EQ(state.bsdfWeight[0] == 7.0f, rough == 0.001f);
    EXPECT_BITEQ(state.pdf, 1.0f);
    EXPECT_BITEQ(state.pdfSecondary, 1.0f);
  }
}

TEST(PhysicalMaterials, MirrorSteps) {
  TestShader mirror("velk_qora_Mtl_Mirror");
  ScriptedContext context;
  ShadingState state = patternState();
  const float d[3] = {0, 0, -1}, n[3] = {0, 0, 1};
  std::copy(d, d + 3, state.rayDirection);
  std::copy(n, n + 3, state.normal);
  const ShadingState before = state;
  mirror.apply();
  mirror.material()->evaluateBsdf(&context, &state);
  mirror.material()->evaluateRadiance(&context, &state);
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  state.reflectionAllowed = 0;
  mirror.material()->sampleBsdf(&context, &state);
  EXPECT_EQ(state.lobeFlags, 0);
  EXPECT_EQ(std::memcmp(state.sampledDirection, before.sampledDirection, 24), 0);  // direction and weight kept
  state.reflectionAllowed = 2;
  mirror.material()->sampleBsdf(&context, &state);  // defaults reflect black
  EXPECT_EQ(state.lobeFlags, 4);
  EXPECT_BITEQ(state.bsdfWeight[1], 0.0f);
  EXPECT_EQ((std::vector<float>(state.sampledDirection, state.sampledDirection + 3)), (std::vector<float>{0, 0, 1}));
  EXPECT_BITEQ(state.pdf, 1.0f);
  mirror.block.setColor3("u_tintColor", {0.5f, 0.5f, 0.5f});
  mirror.block.setBool("u_colorByObject", 1);  // alone: the tint colour still counts
  mirror.block.setColor4("u_extra_color_and_alpha", {0.25f, 0.25f, 0.25f, 1});
  mirror.apply();
  mirror.material()->sampleBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[0], 0.5f);
  mirror.block.setBool("u_extra_color_and_alpha_is_set", 1);
  mirror.apply();
  mirror.material()->sampleBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[0], 0.25f);
}

// Random samples for the furnace; the other answers stay BaseContext's.
class RandomContext : public host::BaseContext {
 public:
  std::mt19937 rng{11};
  std::uniform_real_distribution<float> unit{0.0f, 0.99999994f};
  float nextSample1D() override { return unit(rng); }
  const float* nextSample2D(float buffer[2]) override {
    buffer[0] = unit(rng);
    buffer[1] = unit(rng);
    return buffer;
  }
};

// A white furnace: the mean sampled weight (bsdfWeight x pdf / pdfSecondary,
// as a host weighs it, pass-through counting 1) of every preset and of white
// metals, at three view angles, never exceeds 1; the white diffuse metal
// reflects exactly 1, a white mirror-like metal head on nearly 1.
TEST(PhysicalMaterials, MetalSampledWeightsGainNoEnergy) {
  auto white = [](float reflectivity, float glossiness) {
    return [=](PresetFixture& f) {
      f.block.setColor3("u_diffuseColor", {1, 1, 1});
      f.block.setFloat("u_diffuseWeight", 1.0f);
      f.block.setFloat("u_reflectivity", reflectivity);
      f.block.setFloat("u_brdf00Reflectivity", 1.0f);
      f.block.setFloat("u_brdf90Reflectivity", 1.0f);
      f.block.setFloat("u_glossiness", glossiness);
    };
  };
  struct Config { std::string label; std::function<void(PresetFixture&)> configure; float exactly; };
  std::vector<Config> configs = {{"white diffuse", white(0.0f, 0.5f), 1.0f}, {"white glossy", white(1.0f, 0.9f), -1},
                                 {"white rough", white(1.0f, 0.2f), -1}};
  for (const auto& preset : presetsOf("velk_qora_Mtl_Metal")) configs.push_back({preset.variant, preset.configure, -1});
  for (const Config& config : configs)
    for (float viewCosine : {1.0f, 0.6f, 0.15f}) {
      SCOPED_TRACE(config.label + " at view cosine " + std::to_string(viewCosine));
      TestShader shader("velk_qora_Mtl_Metal");
      ShadingState state;
      RandomContext context;
      std::vector<std::shared_ptr<void>> owned;
      PresetFixture fixture{shader.block, state, context, owned};
      prepareFixture(fixture);
      config.configure(fixture);
      shader.apply();
      state.rayDirection[0] = std::sqrt(1.0f - viewCosine * viewCosine), state.rayDirection[2] = -viewCosine;
      context.diffuseSampled = context.glossyAccepted = 1;
      constexpr int kSamples = 20000;
      double sum[3] = {0, 0, 0};
      for (int i = 0; i < kSamples; ++i) {
        ShadingState s = state;
        shader.material()->sampleBsdf(&context, &s);
        if (s.lobeFlags == 0) continue;
        for (int c = 0; c < 3; ++c) sum[c] += s.bsdfWeight[c] * s.pdf / s.pdfSecondary;
      }
      for (int c = 0; c < 3; ++c) {
        EXPECT_LE(sum[c] / kSamples, 1.01) << "channel " << c;
        if (config.exactly > 0) {
          EXPECT_NEAR(sum[c] / kSamples, config.exactly, 1e-6);
        }
      }
      if (config.label == "white glossy" && viewCosine == 1.0f) {
        EXPECT_GT(sum[0] / kSamples, 0.97);
      }
    }
}

// Grazing rays, a frame without any tangent and a normal map that points the
// surface away from the viewer give finite results in every operation of every
// preset of the family (the mirror's unguarded cosine is kept off exact 0).
TEST(PhysicalMaterials, AwkwardHitsStayFinite) {
  host::ConstantSampler away({-40.0f, 3.0f, -1.0f, 1.0f});
  struct Hit { const char* label; float ray[3]; bool noTangent, bentAway; };
  const Hit hits[] = {{"grazing", {0.99995f, 0.0f, -0.01f}, false, false},
                      {"no tangent", {0.3f, 0.4f, -0.8660254f}, true, false},
                      {"bent away", {0.6f, 0.0f, -0.8f}, false, true}};
  for (const char* name : kShaders)
    for (auto& variation : variationsOf(name, 0, 0))
      for (const Hit& hit : hits) {
        SCOPED_TRACE(std::string(name) + " " + variation->label + " " + hit.label);
        auto& shader = *variation->shader;
        if (hit.bentAway && shader.info->findParameter("u_normal0Map") && std::string(name) != kShaders[1]) {
          shader.block.setBool("u_normal0MapEnable", 1);
          shader.block.setTexture("u_normal0Map", &away, 0);
          shader.block.setFloat("u_normal0Amount", 1.0f);
          shader.apply();
        }
        ShadingState start = variation->state;
        std::copy(hit.ray, hit.ray + 3, start.rayDirection);
        if (hit.noTangent) {
          std::fill(start.tangentFrame, start.tangentFrame + 9, 0.0f);
          std::fill(start.varyings, start.varyings + 24, 0);
        }
        for (const auto& op : operationsOf(*shader.info)) {
          ShadingState s = start;
          op.call(shader.object.get(), &variation->context, &s);
          for (const float* v : {s.radiance, s.surfaceResult, s.shadowTransmission, s.sampledDirection, s.bsdfWeight})
            for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isfinite(v[i])) << op.name;
          EXPECT_TRUE(std::isfinite(s.pdf) && std::isfinite(s.pdfSecondary)) << op.name;
        }
      }
}

}  // namespace
}  // namespace kvi::test
