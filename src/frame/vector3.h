// Three-float vector helpers that several shader families share: the basic
// materials for their half vectors and diffuse samples, the lights for their
// samples on the light, the physically based family for its frames. Single
// precision, summed in x, y, z order.
#pragma once

#include <algorithm>
#include <cmath>

namespace kvi {

// Clamps to [0, 1]; a value not above 0, NaN included, gives 0.
inline float clampUnit(float x) { return x > 0.0f ? (x < 1.0f ? x : 1.0f) : 0.0f; }

inline float max3(const float c[3]) { return std::max(std::max(c[0], c[1]), c[2]); }

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

inline void cross3(const float a[3], const float b[3], float out[3]) {
  const float x = a[1] * b[2] - a[2] * b[1];
  const float y = a[2] * b[0] - a[0] * b[2];
  const float z = a[0] * b[1] - a[1] * b[0];
  out[0] = x;
  out[1] = y;
  out[2] = z;
}

// Divides by the length when it is positive, so a zero vector is left as it
// is; returns the length. A squared length of exactly 1 (about half of all
// unit vectors) skips the square root and the divisions, which would leave
// every bit as it is.
inline float normalizeIfNonZero(float v[3]) {
  const float squared = dot3(v, v);
  if (squared == 1.0f) return 1.0f;
  const float length = std::sqrt(squared);
  if (length > 0.0f) {
    v[0] = v[0] / length;
    v[1] = v[1] / length;
    v[2] = v[2] / length;
  }
  return length;
}

// The mirror image of the ray direction D about the normal N: D - 2 (D . N) N.
inline void mirrorDirection(float out[3], const float direction[3], const float normal[3]) {
  const float twiceCosine = 2.0f * dot3(direction, normal);
  for (int i = 0; i < 3; ++i) out[i] = direction[i] - twiceCosine * normal[i];
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
