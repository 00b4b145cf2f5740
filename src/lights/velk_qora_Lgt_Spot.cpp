// velk_qora_Lgt_Spot: the physically based spot light. Its intensity is full
// within "coneAngle" of its axis and fades smoothly (a smooth step in the
// cosine) to nothing at "coneAngle" + "penumbraAngle"; the light falls off
// with the inverse square of the distance.
//
// With a radius the light is a disk of that radius facing along the axis:
// the host hands over the disk's centre as the light sample, and the shader
// moves the sample to a point spread uniformly over the disk, so the shadows
// are soft and the falloff is measured from that point. The disk's intensity
// in a direction is then the same cone profile, which makes the estimate
// unbiased for such a disk. Without a radius the host's sample is used as it
// is, as for a point.
//
// "intensity" is the intensity on the axis (W/sr), or with "units" 1 the power
// sent into the whole cone (W), divided by the cone profile's solid angle
// 2 pi ((1 - cos inner) + (cos inner - cos outer) / 2) (a cone of no solid angle
// is dark then). Angles are clamped to
// [0, 90] degrees; a negative penumbra makes a hard edge. Where the light is
// 0 (outside the cone, behind the disk) no shadow is asked.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/attenuation.h"
#include "lights/light_common.h"
#include "lights/light_sample.h"

namespace kvi {

#define KVI_LGT_SPOT_PARAMETERS(PARAM, VARYING)                                                                     \
  PARAM(Color3, color, doc("colour of the light, multiplied by intensity", "0 or more per channel"),               \
        {1.0f, 1.0f, 1.0f})                                                                                         \
  PARAM(Float, intensity, doc("strength of the light, in the unit units names", "0 or more", "W/sr or W"), 1.0f)   \
  PARAM(Int, units,                                                                                                 \
        doc("what intensity measures: 0 the intensity on the axis (W/sr), 1 the power sent into the cone (W); "    \
            "other values count as 0",                                                                              \
            "0 or 1"),                                                                                              \
        0)                                                                                                          \
  PARAM(Float, coneAngle, doc("half-angle of the cone of full light", "0 to 90", "degrees"), 30.0f)                \
  PARAM(Float, penumbraAngle,                                                                                       \
        doc("angle beyond the cone over which the light fades smoothly to 0", "0 to 90 - coneAngle", "degrees"),  \
        5.0f)                                                                                                       \
  PARAM(Float, radius,                                                                                              \
        doc("radius of the emitting disk, facing along the axis; 0 is a point with hard shadows", "0 or more",     \
            "scene units"),                                                                                         \
        0.0f)                                                                                                       \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow towards the light's point"), true)

class velk_qora_Lgt_Spot final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_Spot, kOpLightShade, KVI_LGT_SPOT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    if (radius > 0.0f) sampleDisk(context, state);
    const float d = state->lightDistance;
    const float k = intensity * (unitScale_ * coneProfile(dot3(state->lightAxis, state->lightDirection))) / (d * d);
    writeScaledColor(state, color, k);
    if (cast_shadows && k != 0.0f) queryShadow(context, state);
  }

  void deriveCachedValues() {
    const float inner = clampAngle(coneAngle);
    float outer = clampAngle(coneAngle + penumbraAngle);
    if (!(outer > inner)) outer = inner;
    cosInner_ = std::cos(inner * kRadiansPerDegree);
    cosOuter_ = std::fmax(0.0f, std::cos(outer * kRadiansPerDegree));
    const float span = cosInner_ - cosOuter_;
    inverseSpan_ = span > 0.0f ? 1.0f / span : 0.0f;
    // The cone profile integrates to 2 pi ((1 - cos inner) + span / 2); a
    // cone without a solid angle sends its power nowhere.
    const float solidAngle = kTwoPiF * ((1.0f - cosInner_) + 0.5f * span);
    unitScale_ = units != 1 ? 1.0f : solidAngle > 0.0f ? 1.0f / solidAngle : 0.0f;
  }

 private:
  // Degrees clamped to [0, 90]; NaN gives 0.
  static float clampAngle(float degrees) { return degrees > 0.0f ? (degrees < 90.0f ? degrees : 90.0f) : 0.0f; }

  // 1 inside the cone, 0 beyond the penumbra (and behind the light), a
  // smooth step of the cosine between. A NaN cosine gives 0.
  float coneProfile(float cosine) const {
    if (cosine >= cosInner_) return 1.0f;
    if (!(cosine > cosOuter_)) return 0.0f;
    return smoothRamp((cosine - cosOuter_) * inverseSpan_);
  }

  // Moves the light sample from the disk's centre to a point spread
  // uniformly over the disk facing along lightAxis.
  void sampleDisk(IShadingContext* context, ShadingState* state) const {
    float t[3], b[3];
    completeFrame(state->lightAxis, t, b);
    float buffer[2];
    const float* xi = context->nextSample2D(buffer);
    const float r = radius * std::sqrt(xi[0]);
    const float phi = kTwoPiF * xi[1];
    const float rc = r * std::cos(phi), rs = r * std::sin(phi);
    float point[3], towardsShaded[3];
    for (int i = 0; i < 3; ++i) {
      point[i] = state->lightSamplePosition[i] + t[i] * rc + b[i] * rs;
      towardsShaded[i] = state->position[i] - point[i];
    }
    const float distance = std::sqrt(dot3(towardsShaded, towardsShaded));
    for (float& c : towardsShaded) c = c / distance;
    moveLightSample(state, point, towardsShaded, distance);
  }

  // From the parameter defaults (30 and 5 degrees, units 0) until the first update.
  float cosInner_ = 0.8660254f;
  float cosOuter_ = 0.81915206f;
  float inverseSpan_ = 1.0f / (0.8660254f - 0.81915206f);
  float unitScale_ = 1.0f;
};

KVI_SHADER_FACTORY(velk_qora_Lgt_Spot)

}  // namespace kvi
