// Vector arithmetic and the Phong highlight the basic materials share.
#pragma once

#include <cmath>

#include "frame/vector3.h"

namespace kvi::basic {

// The shared vector helpers, under the names the family has always used.
using ::kvi::copy3;
using ::kvi::dot3;
using ::kvi::setAll3;

// The mirror image of the ray direction D about the normal N: D - 2 (D . N) N.
inline void mirrorDirection(float out[3], const float direction[3], const float normal[3]) {
  const float twiceCosine = 2.0f * dot3(direction, normal);
  for (int i = 0; i < 3; ++i) out[i] = direction[i] - twiceCosine * normal[i];
}

// Phong highlight factor k^shininess of k = N . H, H the half vector between
// the direction towards the light and the reversed ray, normalised unless it
// has zero length (then k = 0). 0 when k is not positive.
inline float phongHighlight(const float normal[3], const float towardsLight[3], const float rayDirection[3],
                            float shininess) {
  float half[3] = {towardsLight[0] - rayDirection[0], towardsLight[1] - rayDirection[1],
                   towardsLight[2] - rayDirection[2]};
  const float length = std::sqrt(dot3(half, half));
  if (length > 0.0f) {
    half[0] = half[0] / length;
    half[1] = half[1] / length;
    half[2] = half[2] / length;
  }
  const float k = dot3(normal, half);
  return k > 0.0f ? std::pow(k, shininess) : 0.0f;
}

}  // namespace kvi::basic
