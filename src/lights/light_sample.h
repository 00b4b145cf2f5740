// What the lights that place their own samples share: the sphere light and
// the spot light with a radius pick a point on themselves with the host's
// random numbers and move the host's light sample there, so that the shadow
// query, the direction the host evaluates the surface for and the distance
// all refer to that point. Over many samples the shadows come out soft.
#pragma once

#include <cmath>

#include "frame/vector3.h"
#include "kvi/state.h"

namespace kvi {

inline constexpr float kTwoPiF = 6.2831855f;          // 2 pi, the float nearest to it
inline constexpr float kRadiansPerDegree = 0.017453292f;

// lightColor = color x k, channel by channel.
inline void writeScaledColor(ShadingState* state, const float color[3], float k) {
  state->lightColor[0] = color[0] * k;
  state->lightColor[1] = color[1] * k;
  state->lightColor[2] = color[2] * k;
}

// Moves the light sample to `point` on the light: lightSamplePosition, the
// unit direction from it towards the shaded point, and the distance.
inline void moveLightSample(ShadingState* state, const float point[3], const float towardsShaded[3], float distance) {
  for (int i = 0; i < 3; ++i) {
    state->lightSamplePosition[i] = point[i];
    state->lightDirection[i] = towardsShaded[i];
  }
  state->lightDistance = distance;
}

}  // namespace kvi
