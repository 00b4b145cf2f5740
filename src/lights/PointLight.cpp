// PointLight: its colour scaled by the distance attenuation (fades, decay,
// soft cap), with the host's shadow when "castShadows" is set. A point the
// fades cut off completely gets nothing written, not even the shadow.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/attenuation.h"
#include "lights/light_common.h"

namespace kvi {

// The orange default colour is the shader's own choice and is kept.
#define KVI_POINT_LIGHT_PARAMETERS(PARAM, VARYING)                                                                 \
  PARAM(Color3, color,                                                                                             \
        doc("irradiance at distances up to decayStartDistance; beyond it the decay law lowers it",                 \
            "0 or more per channel", "irradiance"),                                                                \
        {1.0f, 0.5f, 0.1f})                                                                                        \
  PARAM(Color3, attenuationFactors,                                                                                \
        doc("decay law flags (fx, fy, fz): fx = 1 no decay; else fz = 1 inverse square, otherwise inverse linear", \
            "0 or 1 per flag"),                                                                                    \
        {1.0f, 0.0f, 0.0f})                                                                                        \
  PARAM(Bool, castShadows, doc("ask the host for the shadow"), true)                                               \
  PARAM(Float, farAttenuationEnd,                                                                                  \
        doc("distance where the far fade reaches 0", "more than farAttenuationStart", "scene units"),              \
        10000.0f)                                                                                                  \
  KVI_ATTENUATION_PARAMETERS(PARAM)

class PointLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(PointLight, kOpLightShade, KVI_POINT_LIGHT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float s;
    if (!attenuatedIntensity(*this, attenuation_, context, state, s)) return;
    state->lightColor[0] = s * color[0];
    state->lightColor[1] = s * color[1];
    state->lightColor[2] = s * color[2];
  }

  void deriveCachedValues() { attenuation_.derive(*this); }

 private:
  DistanceAttenuation attenuation_;
};

KVI_SHADER_FACTORY(PointLight)

}  // namespace kvi
