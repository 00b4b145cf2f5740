// velk_qora_Lgt_Diffuse: colours the light samples the host takes on an
// emitting surface. A power-of-distance falloff (optionally clamped near the
// light), the cosine between the light's axis and the direction to the point,
// an optional cube projection map, and, when it casts shadows, the host's
// shadow blended with a shadow colour by a density: the shadow then lives in
// lightColor and lightShadow is set to full transmission. Without
// "cast_shadows" the colour is "integratedColor" (intensity already inside)
// and lightShadow is left as the host put it.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/cube_face.h"
#include "lights/light_common.h"

namespace kvi {

#define KVI_LGT_DIFFUSE_PARAMETERS(PARAM, VARYING)                                                                  \
  PARAM(Color3, color,                                                                                              \
        doc("emitter colour, multiplied by intensity when shadows are cast", "0 or more per channel", "radiance"),  \
        {1.0f, 1.0f, 1.0f})                                                                                         \
  PARAM(Color3, integratedColor,                                                                                    \
        doc("light colour used without shadows (intensity already included)", "0 or more per channel", "radiance"), \
        {1.0f, 1.0f, 1.0f})                                                                                         \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow"), false)                                              \
  PARAM(Color3, shadowCol,                                                                                          \
        doc("colour that shadowed light takes instead of black", "0 to 1 per channel"),                             \
        {0.0f, 0.0f, 0.0f})                                                                                         \
  PARAM(Float, intensity, doc("multiplier of color, only when shadows are cast", "0 or more"), 1.0f)                \
  PARAM(Float, shadowDensity, doc("strength of the shadow; 0 none, 1 full", "0 to 1"), 1.0f)                        \
  PARAM(Bool, useShadowColMap, doc("take the shadow colour from shadowColMap"), false)                              \
  PARAM(Bool, lightAffectShadowCol, doc("the light colour also tints the shadow"), false)                           \
  PARAM(Texture, shadowColMap, doc("shadow colour by direction (a cube map)"), unbound)                             \
  PARAM(Bool, projMapOn, doc("colour the light by projMap"), false)                                                 \
  PARAM(Texture, projMap, doc("projection colour by direction (a cube map)"), unbound)                              \
  PARAM(Float, exponentUnitsMultiplier,                                                                             \
        doc("multiplier of the falloff distance^exponent (the light divides by the product)", "more than 0"),      \
        1.0f)                                                                                                       \
  PARAM(Float, exponent, doc("power of the distance in the falloff; 2 is inverse square", "0 or more"), 2.0f)       \
  PARAM(Float, exponentLowerClamp, doc("falloff value at distance 0 when clamping", "0 or more"), unset)            \
  PARAM(Float, exponentUpperClamp,                                                                                  \
        doc("falloff value above which the clamp applies; 0 is no clamp", "0 or more"),                             \
        0.0f)

class velk_qora_Lgt_Diffuse final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_Diffuse, kOpLightShade, KVI_LGT_DIFFUSE_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    // The falloff first: nothing else is then alive across its pow call,
    // which would otherwise push the cosine and the direction out of the
    // registers and back.
    const float f = falloff(state->lightDistance);
    const float k = cosineOffAxis(state->lightAxis, state->lightDirection) / f;
    float projection[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    if (projMapOn) sampleProjectionCube(projMap, state->lightDirection, projection);

    if (!cast_shadows) {
      for (int i = 0; i < 3; ++i) state->lightColor[i] = k * integratedColor[i] * projection[i];
      return;
    }

    float shadowColour[4] = {shadowCol[0], shadowCol[1], shadowCol[2], 1.0f};
    if (useShadowColMap) sampleShadowCube(shadowColMap, state->lightDirection, shadowColour);
    float buffer[3];
    const float* transmission = context->traceShadow(buffer, state->position, state->lightSamplePosition);
    float blended[3];
    blendShadow(transmission, shadowColour, blended);
    for (int i = 0; i < 3; ++i) state->lightColor[i] = blended[i] * (k * intensity * projection[i]);
    state->lightShadow[0] = 1.0f;
    state->lightShadow[1] = 1.0f;
    state->lightShadow[2] = 1.0f;
  }

 private:
  // distance^exponent times the units multiplier; below the upper clamp value
  // remapped linearly so that distance 0 gives the lower clamp value.
  float falloff(float distance) const {
    float f = std::pow(distance, exponent) * exponentUnitsMultiplier;
    if (exponentUpperClamp > f) {
      const float t = f / exponentUpperClamp;
      f = (1.0f - t) * exponentLowerClamp + exponentUpperClamp * t;
    }
    return f;
  }

  // axis . direction, clamped to [0, 1] (a NaN stays NaN).
  static float cosineOffAxis(const float axis[3], const float direction[3]) {
    float c = axis[1] * direction[1] + axis[0] * direction[0] + axis[2] * direction[2];
    if (c < 0.0f) {
      c = 0.0f;
    } else if (c > 1.0f) {
      c = 1.0f;
    }
    return c;
  }

  // Mixes the light colour C and the shadow colour S by how much the host's
  // transmission T is occluded, a = (1 - T) * density. Which mix applies for
  // all three channels depends on m, the mean of a taken with the constant
  // 0.333 (deliberately not one third, so a full occlusion at density 1
  // gives m = 0.999 and stays in the middle regime).
  void blendShadow(const float transmission[3], const float shadowColour[4], float out[3]) const {
    float a[3];
    for (int i = 0; i < 3; ++i) a[i] = (1.0f - transmission[i]) * shadowDensity;
    const float m = (a[1] + a[0] + a[2]) * 0.333f;
    for (int i = 0; i < 3; ++i) {
      const float c = color[i], s = shadowColour[i];
      if (!(m >= 0.0f)) {
        out[i] = lightAffectShadowCol ? (a[i] * s + 1.0f) * c : a[i] * s + c;
      } else if (m <= 1.0f) {
        out[i] = lightAffectShadowCol ? ((1.0f - a[i]) + a[i] * s) * c : (1.0f - a[i]) * c + a[i] * s;
      } else {
        out[i] = lightAffectShadowCol ? a[i] * c * s : a[i] * s;
      }
    }
  }
};

KVI_SHADER_FACTORY(velk_qora_Lgt_Diffuse)

}  // namespace kvi
