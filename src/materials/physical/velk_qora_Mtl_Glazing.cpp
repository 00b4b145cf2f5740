// velk_qora_Mtl_Glazing: thin glass such as a glazed pane. A ray either
// reflects (a mirror, or the shared glossy lobe for light samples when
// "u_rough" is above 0.001) or passes straight through without offset, and a
// shadow lets a coloured share of the light through. "u_level" counts the
// panes: it divides the reflectance and is the exponent of the mapped
// transmittance. No cutout; the global clipping planes, the common tint and
// the per-object colour. The normal-map parameters are declared and copied so
// that the glazing takes its siblings' parameter set, and read by nothing.
#include <cmath>

#include "frame/vector3.h"
#include "frame/parameters.h"
#include "frame/registry.h"
#include "frame/surface.h"
#include "materials/physical/parameters.h"
#include "materials/physical/shared.h"

namespace kvi {

#define KVI_GLAZING_PARAMETERS(PARAM, VARYING)                                                                      \
  VARYING(Vector, bitangent, physical::kBitangentOffset)                                                            \
  VARYING(Vector, tangent, physical::kTangentOffset)                                                                \
  VARYING(Uv, uv, physical::kUvOffset)                                                                              \
  PARAM(Bool, u_colorByObject, doc("the transmitted colour comes from the per-object colour"), false)              \
  PARAM(Float, u_reflectance, doc("reflectance r of one pane; r^2 / u_level is reflected", "0 to 1"), 0.1f)         \
  PARAM(Color3, u_reflectColor, doc("colour of the reflection", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})          \
  PARAM(Color3, u_refractColor, doc("colour of the transmitted light", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})   \
  PARAM(Float, u_rough, doc("roughness of the reflection lobe for light samples; 0.001 or less: none", "0 to 1"),   \
        0.0001f)                                                                                                    \
  PARAM(Float, u_level, doc("number of panes: divides the reflectance, exponent 1 / level of the mapped "           \
                            "transmittance",                                                                        \
                            "1 or more"),                                                                           \
        1.0f)                                                                                                       \
  PARAM(Bool, u_transmittanceMapEnable, doc("transmittance map on (replaces u_refractColor)"), false)               \
  PARAM(Texture, u_transmittanceMap, doc("transmittance map (colour)"), unbound)                                    \
  PARAM(Matrix3, u_transmittanceTransform, doc("uv transform of the transmittance map (3 x 3, by columns)"), unset) \
  PARAM(Float, u_transmittanceAmount, doc("multiplier of the map's colour", "0 to 1"), 1.0f)                        \
  KVI_PHYSICAL_TINT_PARAMETERS(PARAM)                                                                               \
  KVI_PHYSICAL_NORMAL_MAP_PARAMETERS(PARAM, KVI_INERT_DOC, KVI_INERT_DOC())                                         \
  KVI_PHYSICAL_CLIPPING_PARAMETERS(PARAM)                                                                           \
  KVI_PHYSICAL_OBJECT_COLOR_PARAMETERS(PARAM)

class velk_qora_Mtl_Glazing final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_Glazing,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpShadowTransmission |
                            kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_GLAZING_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState* state) override { physical::shadeGlassSurface(state); }

  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    float transmitted[3];
    transmissionColor(state, transmitted);
    for (int i = 0; i < 3; ++i) state->shadowTransmission[i] = transmitted[i] * (1.0f - reflected_);
    physical::applyTint(u_commonTintEnable, u_commonTintColor, state->shadowTransmission);
  }

  // A smooth pane (u_rough at most 0.001) leaves the weight as the host set it.
  void evaluateBsdf(IShadingContext*, ShadingState* state) override {
    float frame[9], view[3], light[3];
    buildFrame(state, frame, view);
    physical::toLocal(frame, state->sampledDirection, light);
    if (u_rough > 0.001f) {
      const float lobe = glossyReflectionLobe(view, light, u_rough);
      for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = reflected_ * u_reflectColor[i] * lobe;
    }
    state->pdf = 1.0f;
    state->pdfSecondary = 1.0f;
    physical::applyTint(u_commonTintEnable, u_commonTintColor, state->bsdfWeight);
  }

  // The frame of the written steps takes no part in what sampleBsdf writes,
  // so it is not built here.
  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    float transmitted[3];
    transmissionColor(state, transmitted);
    const float reflectedWeight = max3(u_reflectColor) * reflected_;
    const float transmittedWeight = (1.0f - reflected_) * max3(transmitted);
    const float p = snappedChance(reflected_ * max3(u_reflectColor));
    const float total = p + transmittedWeight;
    if (total == 0.0f) {
      state->lobeFlags = 0;
      return;
    }
    float reflectChance = p / total;
    overrideLobeChoice(context, reflectedWeight, reflectChance, transmittedWeight, state->frontFacing);
    state->pdfSecondary = 1.0f;
    const float x = context->nextSample1D();
    if (reflectChance >= x) {
      mirrorDirection(state->sampledDirection, state->rayDirection, state->normal);
      state->lobeFlags = 4;
      for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = reflected_ * u_reflectColor[i] / reflectChance;
    } else {
      copy3(state->sampledDirection, state->rayDirection);
      state->lobeFlags = 64;
      for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = (1.0f - reflected_) * transmitted[i] / (1.0f - reflectChance);
    }
    state->pdf = 1.0f;
    physical::applyTint(u_commonTintEnable, u_commonTintColor, state->bsdfWeight);
  }

  void evaluateRadiance(IShadingContext*, ShadingState* state) override { physical::markRadianceDone(state); }

  void testCutout(IShadingContext*, ShadingState* state) override {
    physical::testGlobalClipping(u_globalClippingMapEnable, u_globalClippingMap, state);
  }

  void deriveCachedValues() {
    reflected_ = u_reflectance * u_reflectance / u_level;
    inverseLevel_ = 1.0f / u_level;
  }

 private:
  // Between 1/256 and 255/256 neither event may fall below 8 %; outside them
  // one event is taken as impossible or certain.
  static float snappedChance(float p) {
    if (p > 0.00390625f && p < 0.99609375f) return p < 0.08f ? 0.08f : (p > 0.92f ? 0.92f : p);
    if (p >= 0.99609375f) return 1.0f;
    return 0.0f;
  }

  // "u_refractColor", or the transmittance map's colour x amount to the power
  // 1 / level; the per-object colour overrides both.
  void transmissionColor(const ShadingState* state, float color[3]) const {
    copy3(color, u_refractColor);
    if (u_transmittanceMapEnable) {
      float uv[2], texel[4];
      physical::readVarying(state, physical::kUvOffset, uv);
      physical::sampleChannel(u_transmittanceMap, u_transmittanceTransform, uv, texel);
      for (int i = 0; i < 3; ++i) color[i] = std::pow(texel[i] * u_transmittanceAmount, inverseLevel_);
    }
    if (physical::perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set))
      copy3(color, u_extra_color_and_alpha);
  }

  // The tangent varying through the host's frame about the shading normal,
  // kept facing the viewer, and the ray direction in it.
  static void buildFrame(const ShadingState* state, float frame[9], float view[3]) {
    float tangent[3], bitangent[3];
    physical::readVarying(state, physical::kTangentOffset, tangent);
    physical::readVarying(state, physical::kBitangentOffset, bitangent);
    physical::initialFrame(state->tangentFrame, tangent, bitangent, state->normal, frame);
    const float unbent[3] = {0.0f, 0.0f, 1.0f};
    physical::bendFrameTowardViewer(state->rayDirection, unbent, frame);
    physical::toLocal(frame, state->rayDirection, view);
  }

  // k = r^2 / level, the reflected share of the light, and 1 / level.
  float reflected_ = 0.1f * 0.1f / 1.0f;
  float inverseLevel_ = 1.0f;
};

KVI_SHADER_FACTORY(velk_qora_Mtl_Glazing)

}  // namespace kvi
