// The metal, the glazing and the mirror through the module loader, as a host
// drives them: declarations, the written steps to the bit, a white furnace of
// the metal's sampled weights, and finite results for awkward hits.
#include <cstring>
#include <functional>

#include "kvi/host/samplers.h"
#include "materials/physical/shared.h"
#include "presets.h"
#include "tables.h"
#include "variations.h"

namespace kvi::test {
namespace {

using namespace kvi::physical;

// The physically based materials and the Ward material: the mirror requests
// no varyings, and shadeSurface writes a fixed colour whatever the hit (masks
// and parameter lists are pinned by docs/parameters.md).
TEST(PhysicalMaterials, VaryingsAndFixedSurfaceResults) {
  struct Case { const char* name; bool varyings; float surface[4]; };
  for (const Case& c : {Case{"velk_qora_Mtl_Metal", true, {1, 0, 0, 1}},
                        Case{"velk_qora_Mtl_Glazing", true, {1, 0.1f, 1, 1}},
                        Case{"velk_qora_Mtl_Mirror", false, {1, 0, 0, 0}},
                        Case{"velk_qora_Mtl_Dielectric", true, {1, 0.1f, 1, 1}},
                        Case{"velk_qora_Mtl_MetallicPaint", true, {1, 0.1f, 1, 1}},
                        Case{"velk_qora_Mtl_Ward", true, {1, 0.1f, 1, 1}}}) {
    TestShader shader(c.name);
    std::string varyings;
    for (const auto& v : shader.info->varyings) varyings += v.name + "@" + std::to_string(v.offset) + " ";
    EXPECT_EQ(varyings, c.varyings ? "bitangent@0 tangent@12 uv@24 " : "") << c.name;
    ShadingState state = patternState();
    shader.material()->shadeSurface(nullptr, &state);
    for (int i = 0; i < 4; ++i) EXPECT_BITEQ(state.surfaceResult[i], c.surface[i]) << c.name;
  }
}

// A metal where the written steps give closed forms head on: F =
// reflectivity x f0 (the grazing part is 0^5 = 0).
const float kFraction = 0.8f * (0.0f * (1.0f - 0.9f) + 0.9f);
const Params kMetal{{"u_diffuseColor", {0.5f, 0.25f, 1.0f}}, {"u_specularColor", {1.0f, 0.5f, 0.25f}},
                    {"u_glossiness", {0.8f}},    {"u_reflectivity", {0.8f}},      {"u_brdfCurvePower", {5}},
                    {"u_brdf00Reflectivity", {0.9f}}, {"u_brdf90Reflectivity", {1}}};
MaterialShader* metal(const Params& params, ShadingState& state) {
  return prepared("velk_qora_Mtl_Metal", kMetal + params, state);
}

TEST(Metal, EvaluateBsdfAndRadianceFollowTheWrittenSteps) {
  const float w = reflectanceCurve(0.8f), lobe = 1.0f * (1.0f / (w * 3.141593f * w)) * 4.0f / 16.0f;  // h = (0, 0, 2)
  const float d[3] = {0.5f * 0.5f, 0.25f * 0.5f, 1.0f * 0.5f}, s[3] = {1.0f, 0.5f, 0.25f};
  ScriptedContext context;
  ShadingState state;
  metal({}, state)->evaluateBsdf(&context, &state);
  for (int i = 0; i < 3; ++i)
    EXPECT_BITEQ(state.bsdfWeight[i], d[i] * (1.0f - kFraction) * 0.31830984f * 1.0f + s[i] * kFraction * lobe * 1.0f);
  EXPECT_BITEQ(state.pdf, 1.0f);
  // The tint, then the cutout opacity; gathered light: nothing up to 1e-5,
  // then (from the next float on) D (1 - F) E, tinted and by the opacity,
  // without 1 / pi.
  host::ConstantSampler half({0.5f, 0.5f, 0.5f, 1.0f});
  MaterialShader* tinted = metal({{"u_commonTintEnable", {1}}, {"u_commonTintColor", {0.5f, 1.0f, 2.0f, 9.0f}},
                                  {"u_cutoutsSwitcher", {7}}, {"u_cutoutMap", {}, &half}},
                                 state);
  tinted->evaluateBsdf(&context, &state);
  EXPECT_BITEQ(state.bsdfWeight[2], (d[2] * (1.0f - kFraction) * 0.31830984f + s[2] * kFraction * lobe) * 2.0f * 0.5f);
  context.irradiance[0] = context.irradiance[1] = context.irradiance[2] = 1e-5f;
  tinted->evaluateRadiance(&context, &state);
  EXPECT_EQ(state.radianceDone, 1);
  EXPECT_BITEQ(state.radiance[0], 0.0f);
  const float justAbove = std::nextafter(1e-5f, 1.0f);
  context.irradiance[1] = justAbove;
  tinted->evaluateRadiance(&context, &state);
  EXPECT_BITEQ(state.radiance[1], 0.25f * 0.5f * (1.0f - kFraction) * justAbove * 1.0f * 0.5f);
}

// (switcher, map value, per-object alpha or none) -> transmission; a map of
// -1: unbound (opacity 0). sampleBsdf passes through exactly when the first
// sample lies above the opacity.
TEST(Metal, ShadowTransmissionAndPassThroughFollowTheExactOpacity) {
  struct Case { int32_t switcher; float map, alpha, transmitted; };
  for (const Case& c :
       {Case{0, 0.5f, -1, 0}, Case{-2, 0.5f, -1, 0}, Case{7, 1.0f, -1, 0}, Case{7, 0.999f, -1, 1 - 0.999f},
        Case{0, 0.5f, 0.25f, 0.75f}, Case{7, 0.5f, 0.5f, 0.75f}, Case{5, 0.5f, -1, 0}, Case{8, 0.5f, -1, 0},
        Case{7, -1, -1, 1}}) {
    host::ConstantSampler map({c.map, c.map, c.map, 1});
    ScriptedContext context;
    ShadingState state;
    MaterialShader* m = metal({{"u_cutoutsSwitcher", {float(c.switcher)}},
                               {"u_cutoutMap", {}, c.map < 0 ? nullptr : &map},
                               {"u_colorByObject", {float(c.alpha >= 0)}},
                               {"u_extra_color_and_alpha_is_set", {1}},
                               {"u_extra_color_and_alpha", {0, 0, 0, c.alpha}}},
                              state);
    m->shadowTransmission(&context, &state);
    for (int i = 0; i < 3; ++i) EXPECT_BITEQ(state.shadowTransmission[i], c.transmitted) << c.switcher << " " << c.map;
    const float opacity = 1.0f - c.transmitted;
    context.samples1D = {std::min(std::nextafter(opacity, 2.0f), 0.99999994f), 0.99f};
    m->sampleBsdf(&context, &state);
    EXPECT_EQ(state.lobeFlags, opacity < 1.0f ? 64 : 1);
  }
}

// The events of sampleBsdf by the samples and the host's answers.
TEST(Metal, SampleBsdfEvents) {
  // xi: the lobe sample's first number; floor: the pdfSecondary it must report (-1: not pinned).
  struct Case {
    float glossiness, anisotropy, choice; uint8_t diffuse, glossy; int32_t flags; float asked, xi = 0.3f, floor = -1;
  };
  for (const Case& c : {Case{0.8f, 1.0f, 0.9f, 1, 1, 1, -1},           // past F, diffuse sampled: weight D
                        Case{0.8f, 1.0f, 0.9f, 0, 1, 2, 1.0f - 0.8f},  // no diffuse sampling: glossy, asks 1 - g
                        Case{0.8f, 1.0f, 0.1f, 1, 0, 4, 1.0f - 0.8f},  // glossy refused: mirror
                        Case{1.0f, 1.0f, 0.1f, 1, 1, 4, -1},           // g = A = 1: a mirror, nothing asked
                        Case{1.0f, 0.5f, 0.1f, 1, 1, 2, 0.5f},         // only the second axis rough: asks 1 - A g
                        // Four widths out in the tail the density is about 5e-6: floored to 0.001 exactly.
                        Case{0.8f, 1.0f, 0.1f, 1, 1, 2, 1.0f - 0.8f, 0.99999994f, 0.001f}}) {
    SCOPED_TRACE(testing::Message() << "glossiness " << c.glossiness << " choice " << c.choice);
    ScriptedContext context;
    context.diffuseSampled = c.diffuse;
    context.glossyAccepted = c.glossy;
    context.samples1D = {0.0f, c.choice};
    context.samples2D = {{c.xi, 0.2f}};
    ShadingState state;
    MaterialShader* m = metal({{"u_glossiness", {c.glossiness}}, {"u_anisotropyValue", {c.anisotropy}}}, state);
    state.pdf = 1.0f;  // the mirror event leaves pdf as it stands
    m->sampleBsdf(&context, &state);
    EXPECT_EQ(state.lobeFlags, c.flags);
    EXPECT_EQ(context.roughnessesAsked, c.asked < 0 ? std::vector<float>{} : std::vector<float>{c.asked});
    const float share = c.diffuse ? 1.0f : kFraction;  // without a random lobe choice the reflection carries F
    const float* l = state.sampledDirection;
    // Green: D = 0.125, S = 0.5; the lobe sample's weight is 2 l.z / (l.z + v.z).
    const float expected =
        c.flags == 1 ? 0.125f : c.flags == 4 ? 0.5f * share : 0.5f * 2.0f * l[2] / (l[2] + 1.0f) * share;
    EXPECT_NEAR(state.bsdfWeight[1] * state.pdf / state.pdfSecondary, expected, 1e-6);
    if (c.flags == 4) { EXPECT_BITEQ(l[2], 1.0f); }
    if (c.floor >= 0) { EXPECT_BITEQ(state.pdfSecondary, c.floor); }
  }
}

TEST(PhysicalMaterials, GlazingSteps) {
  ScriptedContext context;
  context.rayKind = 0;  // the override leaves the odds alone
  ShadingState state;
  auto glazing = [&](const Params& params) {
    MaterialShader* m = prepared("velk_qora_Mtl_Glazing", params, state);
    state.rayDirection[0] = 0.6f, state.rayDirection[2] = -0.8f;
    return m;
  };
  auto sample = [&](const Params& params, float x) {
    context.samples1D = {x};
    glazing(params)->sampleBsdf(&context, &state);
    return state.lobeFlags;
  };
  const float k = 0.1f * 0.1f / 1.0f, p = 0.08f / (0.08f + (1.0f - k) * 1.0f);  // defaults: 0.01 snaps to 0.08
  EXPECT_EQ(sample({}, std::nextafter(p, 0.0f)), 4);
  EXPECT_BITEQ(state.bsdfWeight[0], k * 1.0f / p);
  EXPECT_BITEQ(state.sampledDirection[2], 0.8f);
  EXPECT_EQ(sample({}, std::nextafter(p, 1.0f)), 64);
  EXPECT_BITEQ(state.bsdfWeight[0], (1.0f - k) * 1.0f / (1.0f - p));
  const Params black{{"u_reflectColor", {0, 0, 0}}};
  EXPECT_EQ(sample(black, 0.001f), 64);  // a black reflection never reflects (but at a sample of 0)
  EXPECT_EQ(sample(black + Params{{"u_reflectance", {0}}, {"u_refractColor", {0, 0, 0}}}, 0.5f), 0);  // nothing at all
  // Mapped transmittance at level 2: 0.25 becomes 0.5; the per-object colour overrides it.
  host::ConstantSampler map({0.25f, 0.25f, 0.25f, 1});
  for (uint8_t byObject : {0, 1}) {
    glazing({{"u_reflectance", {0.5f}}, {"u_level", {2}}, {"u_transmittanceMapEnable", {1}},
             {"u_transmittanceMap", {}, &map}, {"u_colorByObject", {float(byObject)}},
             {"u_extra_color_and_alpha_is_set", {1}}, {"u_extra_color_and_alpha", {0.4f, 0.4f, 0.4f, 1.0f}}})
        ->shadowTransmission(&context, &state);
    EXPECT_BITEQ(state.shadowTransmission[0], (byObject ? 0.4f : 0.5f) * (1.0f - 0.5f * 0.5f / 2.0f));
  }
  // A smooth pane leaves the light sample's weight as it was; a rough one answers.
  for (float rough : {0.001f, std::nextafter(0.001f, 1.0f)}) {
    MaterialShader* m = glazing({{"u_rough", {rough}}});
    state.bsdfWeight[0] = 7.0f;
    state.sampledDirection[0] = -0.6f, state.sampledDirection[2] = 0.8f;
    m->evaluateBsdf(&context, &state);
    EXPECT_EQ(state.bsdfWeight[0] == 7.0f, rough == 0.001f);
    EXPECT_EQ(state.pdf + state.pdfSecondary, 2.0f);
  }
}

// Empty light-sample and radiance bodies, no reflection where none is
// allowed, and the colour by the flags: (tint, colorByObject, isSet) -> weight.
TEST(PhysicalMaterials, MirrorSteps) {
  ScriptedContext context;
  ShadingState state = patternState();
  for (int i = 0; i < 3; ++i) state.rayDirection[i] = -(state.normal[i] = i == 2 ? 1.0f : 0.0f);
  state.reflectionAllowed = 0;
  const ShadingState before = state;
  MaterialShader* mirror = configured("velk_qora_Mtl_Mirror", {}).material();
  mirror->evaluateBsdf(&context, &state);
  mirror->evaluateRadiance(&context, &state);
  mirror->sampleBsdf(&context, &state);
  EXPECT_EQ(state.lobeFlags, 0);
  state.lobeFlags = before.lobeFlags;
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  state.reflectionAllowed = 0x10;
  struct Case { float tint; uint8_t byObject, isSet; float weight; };
  for (const Case& c : {Case{0, 0, 0, 0}, Case{0.5f, 1, 0, 0.5f}, Case{0.5f, 1, 1, 0.25f}}) {
    const Params colour{{"u_tintColor", {c.tint, c.tint, c.tint}}, {"u_colorByObject", {float(c.byObject)}},
                        {"u_extra_color_and_alpha_is_set", {float(c.isSet)}},
                        {"u_extra_color_and_alpha", {0.25f, 0.25f, 0.25f, 1}}};
    configured("velk_qora_Mtl_Mirror", colour).material()->sampleBsdf(&context, &state);  // along -n: reflects along n
    EXPECT_EQ(state.lobeFlags + state.pdf + state.sampledDirection[2], 4 + 1 + 1);
    EXPECT_BITEQ(state.bsdfWeight[0], c.weight);
  }
}

// A white furnace: the mean sampled weight (bsdfWeight x pdf / pdfSecondary,
// as a host weighs it, pass-through counting 1) of every preset and of white
// metals never exceeds 1 at three view angles; the white diffuse metal
// reflects exactly 1, a white glossy one head on nearly 1.
TEST(Metal, SampledWeightsGainNoEnergy) {
  auto white = [](float reflectivity, float glossiness) {
    return [=](PresetFixture& f) {
      setParams(f.block, {{"u_diffuseColor", {1, 1, 1}}, {"u_diffuseWeight", {1}}, {"u_brdf00Reflectivity", {1}},
                          {"u_brdf90Reflectivity", {1}}, {"u_reflectivity", {reflectivity}},
                          {"u_glossiness", {glossiness}}});
    };
  };
  struct Config { std::string label; std::function<void(PresetFixture&)> configure; float low, high; };
  std::vector<Config> configs = {{"white diffuse", white(0.0f, 0.5f), 1.0f, 1.0f},
                                 {"white glossy", white(1.0f, 0.9f), 0.97f, 1.01f}};
  for (const auto& preset : presetsOf("velk_qora_Mtl_Metal"))
    configs.push_back({preset.variant, preset.configure, 0, 1.01f});
  for (const Config& config : configs)
    for (float viewCosine : {1.0f, 0.6f, 0.15f}) {
      TestShader shader("velk_qora_Mtl_Metal");
      ShadingState state;
      RandomContext context(11);
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
        for (int c = 0; c < 3 && s.lobeFlags != 0; ++c) sum[c] += s.bsdfWeight[c] * s.pdf / s.pdfSecondary;
      }
      for (int c = 0; c < 3; ++c) {
        EXPECT_LE(sum[c] / kSamples, config.high) << config.label << " at view cosine " << viewCosine;
        EXPECT_GE(sum[c] / kSamples, viewCosine == 1.0f ? config.low - 1e-6 : 0.0) << config.label;
      }
    }
}

// Grazing rays, a frame without any tangent and a normal map that turns the
// surface away from the viewer give finite results in every operation of every
// preset of the family (the mirror's unguarded cosine is kept off exact 0).
TEST(PhysicalMaterials, AwkwardHitsStayFinite) {
  host::ConstantSampler away({-40.0f, 3.0f, -1.0f, 1.0f});
  struct Hit { const char* label; float ray[3]; bool noTangent, bentAway; };
  for (const char* name : {"velk_qora_Mtl_Metal", "velk_qora_Mtl_Glazing", "velk_qora_Mtl_Mirror"})
    for (auto& variation : variationsOf(name, 0, 0))
      for (const Hit& hit : {Hit{"grazing", {0.99995f, 0.0f, -0.01f}, false, false},
                             Hit{"no tangent", {0.3f, 0.4f, -0.8660254f}, true, false},
                             Hit{"bent away", {0.6f, 0.0f, -0.8f}, false, true}}) {
        auto& shader = *variation->shader;
        if (hit.bentAway && shader.info->parameters.size() == 69) {
          setParams(shader.block, {{"u_normal0MapEnable", {1}}, {"u_normal0Map", {}, &away}, {"u_normal0Amount", {1}}});
          shader.apply();
        }
        ShadingState start = variation->state;
        std::copy(hit.ray, hit.ray + 3, start.rayDirection);
        if (hit.noTangent)
          std::fill(start.tangentFrame, start.tangentFrame + 9, 0.0f), std::memset(start.varyings, 0, 24);
        for (const auto& op : operationsOf(*shader.info)) {
          ShadingState s = start;
          op.call(shader.object.get(), &variation->context, &s);
          for (const float* v : {s.radiance, s.surfaceResult, s.shadowTransmission, s.sampledDirection, s.bsdfWeight})
            EXPECT_TRUE(std::isfinite(v[0] + v[1] + v[2]))
                << name << " " << variation->label << " " << hit.label << " " << op.name;
          EXPECT_TRUE(std::isfinite(s.pdf + s.pdfSecondary)) << name << " " << hit.label << " " << op.name;
        }
      }
}

}  // namespace
}  // namespace kvi::test
