// velk_qora_Mtl_Mirror: the perfect mirror of the physically based family. One
// specular reflection coloured by "u_tintColor" (or the per-object colour),
// with the common tint and the global clipping planes; opaque to shadows, no
// diffuse part, no answer to light samples (its evaluateBsdf and
// evaluateRadiance are empty, though the operation mask keeps evaluateBsdf's
// bit) and no varyings.
#include "frame/vector3.h"
#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/physical/parameters.h"
#include "materials/physical/shared.h"

namespace kvi {

#define KVI_MIRROR_PARAMETERS(PARAM, VARYING)                                                              \
  PARAM(Color3, u_tintColor, doc("colour of the reflection", "0 to 1 per channel"), {0.0f, 0.0f, 0.0f})    \
  KVI_PHYSICAL_TINT_PARAMETERS(PARAM)                                                                      \
  PARAM(Bool, u_colorByObject, doc("the reflection takes the per-object colour"), false)                   \
  KVI_PHYSICAL_CLIPPING_PARAMETERS(PARAM)                                                                  \
  KVI_PHYSICAL_OBJECT_COLOR_PARAMETERS(PARAM)

class velk_qora_Mtl_Mirror final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_Mirror,
                        kOpTestCutout | kOpShadeSurface | kOpShadowTransmission | kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_MIRROR_PARAMETERS)

  // The mirror writes 0 in the fourth component where the metal writes 1.
  void shadeSurface(IShadingContext*, ShadingState* state) override {
    physical::writeSurfaceResult(state, 1, 0, 0, 0);
  }

  void shadowTransmission(IShadingContext*, ShadingState* state) override { setAll3(state->shadowTransmission, 0.0f); }

  void evaluateBsdf(IShadingContext*, ShadingState*) override {}

  // The cosine is deliberately not guarded: a ray from behind the normal
  // gives a negative pdf and weight, a grazing one divides by zero.
  void sampleBsdf(IShadingContext*, ShadingState* state) override {
    if (!state->reflectionAllowed) {
      state->lobeFlags = 0;
      return;
    }
    const float* color =
        physical::perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set) ? u_extra_color_and_alpha
                                                                                           : u_tintColor;
    const float* d = state->rayDirection;
    const float* n = state->normal;
    const float mu = -dot3(d, n);
    state->pdf = mu;
    for (int i = 0; i < 3; ++i) state->sampledDirection[i] = d[i] + 2.0f * mu * n[i];
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = color[i] * (1.0f / mu);
    physical::applyTint(u_commonTintEnable, u_commonTintColor, state->bsdfWeight);
    state->pdfSecondary = 1.0f;
    state->lobeFlags = 4;
  }

  void evaluateRadiance(IShadingContext*, ShadingState*) override {}

  void testCutout(IShadingContext*, ShadingState* state) override {
    physical::testGlobalClipping(u_globalClippingMapEnable, u_globalClippingMap, state);
  }
};

KVI_SHADER_FACTORY(velk_qora_Mtl_Mirror)

}  // namespace kvi
