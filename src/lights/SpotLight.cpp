// SpotLight: the point light's distance attenuation times a cone falloff that
// is full inside "cosUmbra" and fades out smoothly to "cosPenumbra". The
// shadow is queried before the cone is known, so a point outside the cone
// still gets a shadow query and a black colour.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/attenuation.h"
#include "lights/light_common.h"

namespace kvi {

// The greenish default colour is the shader's own choice and is kept.
#define KVI_SPOT_LIGHT_PARAMETERS(PARAM, VARYING)                                                                  \
  PARAM(Color3, color,                                                                                             \
        doc("irradiance at distances up to decayStartDistance; beyond it the decay law lowers it",                 \
            "0 or more per channel", "irradiance"),                                                                \
        {0.1f, 1.0f, 0.5f})                                                                                        \
  PARAM(Float, farAttenuationEnd,                                                                                  \
        doc("distance where the far fade reaches 0", "more than farAttenuationStart", "scene units"),              \
        10000.0f)                                                                                                  \
  PARAM(Color3, attenuationFactors,                                                                                \
        doc("decay law flags (fx, fy, fz): fx = 1 no decay; else fz = 1 inverse square, otherwise inverse linear", \
            "0 or 1 per flag"),                                                                                    \
        {1.0f, 0.0f, 0.0f})                                                                                        \
  PARAM(Bool, castShadows, doc("ask the host for the shadow"), true)                                               \
  PARAM(Float, cosPenumbra,                                                                                        \
        doc("cosine of the outer cone half-angle: no light outside it", "-1 to 1, below cosUmbra"),                \
        0.9f)                                                                                                      \
  PARAM(Float, cosUmbra,                                                                                           \
        doc("cosine of the inner cone half-angle: full light inside it", "-1 to 1, above cosPenumbra"),            \
        0.95f)                                                                                                     \
  KVI_ATTENUATION_PARAMETERS(PARAM)

class SpotLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(SpotLight, kOpLightShade, KVI_SPOT_LIGHT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float s;
    if (!attenuatedIntensity(*this, attenuation_, context, state, s)) return;
    const float k = coneFactor(state->lightAxis, state->lightDirection);
    state->lightColor[0] = s * (k * color[0]);
    state->lightColor[1] = s * (k * color[1]);
    state->lightColor[2] = s * (k * color[2]);
  }

  void deriveCachedValues() {
    attenuation_.derive(*this);
    coneSpan_ = cosUmbra - cosPenumbra;
  }

 private:
  // The cosine of the angle off the axis, clamped to [0, 1] (a NaN stays
  // NaN and then counts as inside the umbra), mapped to 0 outside the
  // penumbra, 1 inside the umbra and a smooth ramp between.
  float coneFactor(const float axis[3], const float direction[3]) const {
    float cosA = axis[1] * direction[1] + axis[0] * direction[0] + axis[2] * direction[2];
    if (cosA < 0.0f) {
      cosA = 0.0f;
    } else if (cosA > 1.0f) {
      cosA = 1.0f;
    }
    if (cosPenumbra > cosA) return 0.0f;
    if (!(cosUmbra > cosA)) return 1.0f;
    float t = (cosA - cosPenumbra) / coneSpan_;
    if (t < 0.0f) {
      t = 0.0f;
    } else if (t > 1.0f) {
      t = 1.0f;
    }
    return smoothRamp(t);
  }

  DistanceAttenuation attenuation_;
  float coneSpan_ = 0.95f - 0.9f;  // cosUmbra - cosPenumbra, from the defaults until the first update
};

KVI_SHADER_FACTORY(SpotLight)

}  // namespace kvi
