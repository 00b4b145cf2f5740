// DiffuseIBL: lights a point from a pre-filtered environment map looked up in
// the direction of the point's normal turned by "transform", scaled by
// "gain". No shadow, no falloff: lightShadow is never touched.
//
// The turned normal is deliberately left in the state's normal for whoever
// reads it next, unnormalised; the environment sampler receives it as its
// three coordinates.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

#define KVI_DIFFUSE_IBL_PARAMETERS(PARAM, VARYING)                                                        \
  PARAM(Color3, gain, doc("multiplier of the map's colour", "0 or more per channel"), {1.0f, 1.0f, 1.0f}) \
  PARAM(Matrix4, transform, doc("orientation of the map; only the upper-left 3 × 3 acts"), unset)         \
  PARAM(EnvironmentMap, diffuseMap, doc("the pre-filtered diffuse environment map"), unbound)

class DiffuseIBL final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(DiffuseIBL, kOpLightShade, KVI_DIFFUSE_IBL_PARAMETERS)

  void shade(IShadingContext*, ShadingState* state) override {
    turnNormal(state->normal);
    float texel[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    if (diffuseMap.sampler) diffuseMap.sampler->sample(texel, state->normal);
    state->lightColor[0] = texel[0] * gain[0];
    state->lightColor[1] = texel[1] * gain[1];
    state->lightColor[2] = texel[2] * gain[2];
  }

  void deriveCachedValues() {
    for (int i = 0; i < 3; ++i) translationTimesZero_[i] = transform[12 + i] * 0.0f;
  }

 private:
  // Row vector times matrix with the translation weighted by 0. The products
  // with 0 are kept on purpose: an infinite or NaN translation still turns
  // the result into NaN, and a negative one adds -0.
  void turnNormal(float n[3]) const {
    const float nx = n[0], ny = n[1], nz = n[2];
    n[0] = ny * transform[4] + nx * transform[0] + nz * transform[8] + translationTimesZero_[0];
    n[1] = ny * transform[5] + nx * transform[1] + nz * transform[9] + translationTimesZero_[1];
    n[2] = ny * transform[6] + nx * transform[2] + nz * transform[10] + translationTimesZero_[2];
  }

  // transform[12..14] * 0, derived from the transform once per update.
  float translationTimesZero_[3] = {0.0f, 0.0f, 0.0f};
};

KVI_SHADER_FACTORY(DiffuseIBL)

}  // namespace kvi
