// Vector arithmetic and the Phong highlight the basic materials share.
#pragma once

#include <cmath>

#include "frame/vector3.h"

namespace kvi::basic {

// The shared vector helpers, under the names the family has always used.
using ::kvi::copy3;
using ::kvi::dot3;
using ::kvi::mirrorDirection;
using ::kvi::setAll3;

// Phong highlight factor k^shininess of k = N . H, H the half vector between
// the direction towards the light and the reversed ray, normalised unless it
// has zero length (then k = 0). 0 when k is not positive.
inline float phongHighlight(const float normal[3], const float towardsLight[3], const float rayDirection[3],
                            float shininess) {
  float half[3] = {towardsLight[0] - rayDirection[0], towardsLight[1] - rayDirection[1],
                   towardsLight[2] - rayDirection[2]};
  normalizeIfNonZero(half);
  const float k = dot3(normal, half);
  return k > 0.0f ? std::pow(k, shininess) : 0.0f;
}

}  // namespace kvi::basic
