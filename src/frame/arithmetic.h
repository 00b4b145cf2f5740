// Scalar and three-float vector arithmetic the shaders share, beside the
// vector helpers of frame/vector3.h (included). Single precision, summed in
// x, y, z order; a zero vector is left as it is by normalizeIfNonZero.
#pragma once

#include <algorithm>
#include <cmath>

#include "frame/vector3.h"

namespace kvi {

// Clamps to [0, 1]; a value not above 0, NaN included, gives 0.
inline float clampUnit(float x) { return x > 0.0f ? (x < 1.0f ? x : 1.0f) : 0.0f; }

inline float max3(const float c[3]) { return std::max(std::max(c[0], c[1]), c[2]); }

inline void cross3(const float a[3], const float b[3], float out[3]) {
  const float x = a[1] * b[2] - a[2] * b[1];
  const float y = a[2] * b[0] - a[0] * b[2];
  const float z = a[0] * b[1] - a[1] * b[0];
  out[0] = x;
  out[1] = y;
  out[2] = z;
}

// Divides by the length when it is positive; returns the length.
inline float normalizeIfNonZero(float v[3]) {
  const float length = std::sqrt(dot3(v, v));
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

}  // namespace kvi
