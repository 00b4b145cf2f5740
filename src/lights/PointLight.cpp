// PointLight: its colour scaled by the distance attenuation (fades, decay,
// soft cap), with the host's shadow when "castShadows" is set. A point the
// fades cut off completely gets nothing written, not even the shadow.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/attenuation.h"
#include "lights/light_common.h"

namespace kvi {

// The orange default colour is the shader's own choice and is kept.
#define KVI_POINT_LIGHT_PARAMETERS(PARAM, VARYING)        \
  PARAM(Color3, color, {1.0f, 0.5f, 0.1f})                \
  PARAM(Color3, attenuationFactors, {1.0f, 0.0f, 0.0f})   \
  PARAM(Bool, castShadows, true)                          \
  PARAM(Float, farAttenuationEnd, 10000.0f)               \
  PARAM(Float, decayStartDistance, 1.0f)                  \
  PARAM(Bool, nearAttenuationOn, false)                   \
  PARAM(Float, nearAttenuationStart, 1.0f)                \
  PARAM(Float, nearAttenuationEnd, 1.0f)                  \
  PARAM(Bool, farAttenuationOn, false)                    \
  PARAM(Float, farAttenuationStart, 1.0f)                 \
  PARAM(Float, unitMultiplier, 1.0f)

class PointLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(PointLight, kOpLightShade, KVI_POINT_LIGHT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    const float d = state->lightDistance * unitMultiplier;
    const float faded = attenuation_.fade(*this, d);
    if (faded == 0.0f) return;
    queryShadowOrUnshadowed(context, state, castShadows);
    const float s = softIntensityCap(attenuation_.decay(faded, d, decayStartDistance));
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
