// The distance falloff of PointLight and SpotLight: smooth near and far fade
// ranges, a decay law picked by the flags of "attenuationFactors", and a soft
// cap on the resulting intensity.
//
// The routines read the lights' parameter fields by name, so both lights
// share them although their fields sit in different orders.
#pragma once

#include <cstdint>

#include "kvi/context.h"
#include "kvi/state.h"
#include "lights/light_common.h"

// The parameters both lights end their lists with, in their shared order.
#define KVI_ATTENUATION_PARAMETERS(PARAM)                                                                            \
  PARAM(Float, decayStartDistance, doc("distance below which no decay applies", "0 or more", "scene units"), 1.0f)   \
  PARAM(Bool, nearAttenuationOn, doc("enables the near fade"), false)                                                \
  PARAM(Float, nearAttenuationStart, doc("distance where the near fade leaves 0", "0 or more", "scene units"), 1.0f) \
  PARAM(Float, nearAttenuationEnd,                                                                                   \
        doc("distance where the near fade reaches 1", "nearAttenuationStart or more", "scene units"),                \
        1.0f)                                                                                                        \
  PARAM(Bool, farAttenuationOn, doc("enables the far fade"), false)                                                  \
  PARAM(Float, farAttenuationStart, doc("distance where the far fade leaves 1", "0 or more", "scene units"), 1.0f)   \
  PARAM(Float, unitMultiplier, doc("scale applied to lightDistance before any falloff", "more than 0"), 1.0f)

namespace kvi {

// The smooth ramp (3 - 2t) t^2 of the fades and the spot cone.
inline float smoothRamp(float t) { return (3.0f - 2.0f * t) * (t * t); }

// How "attenuationFactors" (fx, fy, fz) scales the intensity beyond the decay
// start distance: fx = 1 means no decay; otherwise fz = 1 means inverse
// square and anything else inverse linear. fy is never read, and a NaN fx
// counts as unequal to 1.
enum class DecayLaw : uint8_t { kNone, kInverseLinear, kInverseSquare };

inline DecayLaw decayLawOf(const float factors[3]) {
  if (factors[0] == 1.0f) return DecayLaw::kNone;
  return factors[2] == 1.0f ? DecayLaw::kInverseSquare : DecayLaw::kInverseLinear;
}

// What the attenuation model derives once from a light's parameters. The
// initial values are those of the parameter defaults both lights share (fade
// ranges 1 to 1 and 1 to 10000, factors (1, 0, 0)).
struct DistanceAttenuation {
  float nearSpan = 0.0f;     // nearAttenuationEnd - nearAttenuationStart
  float farSpan = 9999.0f;   // farAttenuationEnd - farAttenuationStart
  DecayLaw decayLaw = DecayLaw::kNone;

  template <class Light>
  void derive(const Light& light) {
    nearSpan = light.nearAttenuationEnd - light.nearAttenuationStart;
    farSpan = light.farAttenuationEnd - light.farAttenuationStart;
    decayLaw = decayLawOf(light.attenuationFactors);
  }

  // The weight of the near and far fades at distance d. The comparisons at
  // the fade ends are strict on purpose: a point exactly at the near start or
  // the far end reaches the ramp and gets 0 from it. With equal near start
  // and end the near fade is a hard step and the ramp's division is never
  // reached.
  template <class Light>
  float fade(const Light& light, float d) const {
    float w = 1.0f;
    if (light.nearAttenuationOn) {
      if (light.nearAttenuationStart > d) return 0.0f;
      if (light.nearAttenuationEnd > d) w = smoothRamp((d - light.nearAttenuationStart) / nearSpan);
    }
    if (!light.farAttenuationOn) return w;
    if (d > light.farAttenuationEnd) return 0.0f;
    if (!(d > light.farAttenuationStart)) return w;
    const float t = (light.farAttenuationEnd - d) / farSpan;
    return w * (3.0f - 2.0f * t) * (t * t);
  }

  // Scales a by decayStart / d (squared for the inverse-square law) where
  // that ratio is below 1; no decay at d = 0.
  float decay(float a, float d, float decayStart) const {
    if (decayLaw == DecayLaw::kNone || d == 0.0f) return a;
    float r = decayStart / d;
    if (r < 1.0f) {
      if (decayLaw == DecayLaw::kInverseSquare) r = r * r;
      a = a * r;
    }
    return a;
  }
};

// Passes intensities up to 16 unchanged (up to the rounding of the two
// reciprocals) and bends larger ones smoothly towards 1 / 0.0225 instead of
// letting them grow without bound. A negative intensity also takes the bend.
inline float softIntensityCap(float a) {
  float i = 1.0f / a;
  if (0.0625f > i) {
    const float t = 16.0f * i;
    i = (1.0f - t) * 0.0225f + t * 0.0625f;
  }
  return 1.0f / i;
}

// The steps both lights share: the host's distance in scene units, the fades
// (a point they cut off completely gets nothing written, not even the
// shadow), the shadow query or full transmission, then decay and the soft
// cap. Returns false when nothing is to be written; otherwise intensity holds
// the capped intensity.
template <class Light>
bool attenuatedIntensity(const Light& light, const DistanceAttenuation& attenuation, IShadingContext* context,
                         ShadingState* state, float& intensity) {
  const float d = state->lightDistance * light.unitMultiplier;
  const float faded = attenuation.fade(light, d);
  if (faded == 0.0f) return false;
  queryShadowOrUnshadowed(context, state, light.castShadows);
  intensity = softIntensityCap(attenuation.decay(faded, d, light.decayStartDistance));
  return true;
}

}  // namespace kvi
