// PhongReflective: direct Phong lighting from the host's list of light
// samples plus one traced mirror ray, all computed in shadeSurface. It takes
// no part in sampling, BSDF evaluation, radiance gathering or cutouts: those
// operations are empty and leave the state as it is.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "frame/surface.h"
#include "materials/basic/basic_common.h"
#include "materials/basic/basic_surface.h"

namespace kvi {

#define KVI_PHONG_REFLECTIVE_PARAMETERS(PARAM, VARYING)                                                              \
  PARAM(Color3, diffuse, doc("diffuse colour (reflectance)", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})              \
  PARAM(Color3, specular, doc("Phong highlight colour", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})                   \
  PARAM(Color3, reflection, doc("colour of the traced mirror reflection", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f}) \
  PARAM(Float, shininess, doc("Phong exponent of the highlight", "0 or more; typically 1 to 1000"), 32.0f)           \
  KVI_BASIC_CLIPPING_PARAMETERS(PARAM)

class PhongReflective final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(PhongReflective, kOpShadeSurface | kOpShadowTransmission, KVI_PHONG_REFLECTIVE_PARAMETERS)

  void shadeSurface(IShadingContext* context, ShadingState* state) override {
    if (clippedAway(state)) {
      state->hitDiscarded = 1;
      return;
    }
    float diffuseSum[3] = {0.0f, 0.0f, 0.0f};
    float specularSum[3] = {0.0f, 0.0f, 0.0f};
    for (const LightSample* light = context->collectLightSamples(0, state->position, state->normal); light;
         light = light->next) {
      const float highlight = basic::phongHighlight(state->normal, light->direction, state->rayDirection, shininess);
      for (int i = 0; i < 3; ++i) {
        specularSum[i] += light->color[i] * highlight;
        diffuseSum[i] += light->color[i] * light->diffuseFactor;
      }
    }
    float mirror[3];
    basic::mirrorDirection(mirror, state->rayDirection, state->normal);
    float buffer[3];
    const float* traced = context->traceRay(buffer, state->position, mirror, 1.0f);
    // Only r, g and b are written; the alpha of surfaceResult stays the host's.
    for (int i = 0; i < 3; ++i)
      state->surfaceResult[i] = diffuseSum[i] * diffuse[i] + specularSum[i] * specular[i] + traced[i] * reflection[i];
  }

  // The surface is opaque to shadow rays: only a clipped hit is reported.
  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    if (clippedAway(state)) state->hitDiscarded = 1;
  }

  void evaluateBsdf(IShadingContext*, ShadingState*) override {}
  void sampleBsdf(IShadingContext*, ShadingState*) override {}
  void evaluateRadiance(IShadingContext*, ShadingState*) override {}
  void testCutout(IShadingContext*, ShadingState*) override {}

 private:
  bool clippedAway(const ShadingState* state) const {
    return u_globalClippingMapEnable && !clippingMapKeeps(u_globalClippingMap, state->position);
  }
};

KVI_SHADER_FACTORY(PhongReflective)

}  // namespace kvi
