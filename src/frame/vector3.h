// Three-float vector helpers that several shader families share: the basic
// materials for their half vectors and diffuse samples, the lights for their
// samples on the light.
#pragma once

#include <cmath>

namespace kvi {

inline float dot3(const float a[3], const float b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

inline void setAll3(float out[3], float value) {
  out[0] = value;
  out[1] = value;
  out[2] = value;
}

inline void copy3(float out[3], const float in[3]) {
  out[0] = in[0];
  out[1] = in[1];
  out[2] = in[2];
}

// A right-handed orthonormal frame (t, b, n) completed from the unit vector n
// alone, without a branch on its direction.
inline void completeFrame(const float n[3], float t[3], float b[3]) {
  const float sign = std::copysign(1.0f, n[2]);
  const float a = -1.0f / (sign + n[2]);
  const float c = n[0] * n[1] * a;
  t[0] = 1.0f + sign * n[0] * n[0] * a;
  t[1] = sign * c;
  t[2] = -sign * n[0];
  b[0] = c;
  b[1] = sign + n[1] * n[1] * a;
  b[2] = -n[1];
}

}  // namespace kvi
