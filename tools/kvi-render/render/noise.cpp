#include "render/noise.h"

#include <cmath>
#include <cstdint>

#include "render/sampling.h"

namespace kvi::render {
namespace {

// The 32 gradients: every vector with one zero component and +-1 in the
// other three (the midpoints of the 4D hypercube's edges).
float gradientDot(uint32_t hash, float x, float y, float z, float w) {
  const uint32_t h = hash & 31u;
  const float a = (h & 1u) ? -1.0f : 1.0f;
  const float b = (h & 2u) ? -1.0f : 1.0f;
  const float c = (h & 4u) ? -1.0f : 1.0f;
  switch (h >> 3) {
    case 0: return a * y + b * z + c * w;
    case 1: return a * x + b * z + c * w;
    case 2: return a * x + b * y + c * w;
    default: return a * x + b * y + c * z;
  }
}

uint32_t latticeHash(int32_t x, int32_t y, int32_t z, int32_t w) {
  uint32_t h = hashInt(uint32_t(w));
  h = hashInt(h ^ uint32_t(z));
  h = hashInt(h ^ uint32_t(y));
  return hashInt(h ^ uint32_t(x));
}

// 6t^5 - 15t^4 + 10t^3: zero first and second derivatives at 0 and 1.
float fade(float t) { return t * t * t * (t * (t * 6.0f - 15.0f) + 10.0f); }
float mix(float a, float b, float t) { return a + (b - a) * t; }

// Observed extremes of the raw sum lie near +-1.1 (the theoretical bound of
// four-dimensional gradient noise is higher but never approached); scaling by
// this keeps typical values inside [-1, 1] with room to spare, and the clamp
// catches the rare rest.
constexpr float kScale = 0.85f;

}  // namespace

float gradientNoise4D(const float p[4]) {
  if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]) || !std::isfinite(p[3])) return 0.0f;
  // Wrap far coordinates into a large period so the integer cell stays exact.
  float cell[4], frac[4];
  int32_t index[4];
  for (int k = 0; k < 4; ++k) {
    const float v = std::fmod(p[k], 16777216.0f);
    cell[k] = std::floor(v);
    frac[k] = v - cell[k];
    index[k] = static_cast<int32_t>(cell[k]);
  }
  float corners[16];
  for (int c = 0; c < 16; ++c) {
    const int dx = c & 1, dy = (c >> 1) & 1, dz = (c >> 2) & 1, dw = (c >> 3) & 1;
    const uint32_t h = latticeHash(index[0] + dx, index[1] + dy, index[2] + dz, index[3] + dw);
    corners[c] = gradientDot(h, frac[0] - float(dx), frac[1] - float(dy), frac[2] - float(dz), frac[3] - float(dw));
  }
  const float u = fade(frac[0]), v = fade(frac[1]), s = fade(frac[2]), t = fade(frac[3]);
  float alongW[2];
  for (int w = 0; w < 2; ++w) {
    const float* q = corners + 8 * w;
    const float z0 = mix(mix(q[0], q[1], u), mix(q[2], q[3], u), v);
    const float z1 = mix(mix(q[4], q[5], u), mix(q[6], q[7], u), v);
    alongW[w] = mix(z0, z1, s);
  }
  const float value = mix(alongW[0], alongW[1], t) * kScale;
  return std::fmax(-1.0f, std::fmin(1.0f, value));
}

}  // namespace kvi::render
