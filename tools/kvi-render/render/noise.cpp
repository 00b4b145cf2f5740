#include "render/noise.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "render/sampling.h"

namespace kvi::render {
namespace {

// v with its sign flipped when flip is non-zero: the same bits as v * -1.
float signedBy(float v, uint32_t flip) {
  uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  bits ^= flip ? 0x80000000u : 0u;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// The 32 gradients: every vector with one zero component and +-1 in the
// other three (the midpoints of the 4D hypercube's edges). Bits 0 to 2 of the
// hash pick the signs, bits 3 and 4 the zero component. The three terms are
// picked and signed without branches (the hash is random, so branches on it
// are mispredicted half the time); the sum is the same, term for term.
float gradientDot(uint32_t hash, float x, float y, float z, float w) {
  const uint32_t zero = (hash >> 3) & 3u;
  const float first = zero == 0 ? y : x;
  const float second = zero <= 1 ? z : y;
  const float third = zero <= 2 ? w : z;
  return signedBy(first, hash & 1u) + signedBy(second, hash & 2u) + signedBy(third, hash & 4u);
}

// The lattice hash of a corner chains the coordinates w, z, y, x; the 16
// corners of a cell share the first links of their chains, so each link is
// computed once: 2 + 4 + 8 + 16 hashes instead of 64. Corner c has
// dx = bit 0, dy = bit 1, dz = bit 2 and dw = bit 3 of c.
void cornerHashes(const int32_t index[4], uint32_t hashes[16]) {
  uint32_t w[2], zw[4], yzw[8];
  for (int c = 0; c < 2; ++c) w[c] = hashInt(uint32_t(index[3] + c));
  for (int c = 0; c < 4; ++c) zw[c] = hashInt(w[c >> 1] ^ uint32_t(index[2] + (c & 1)));
  for (int c = 0; c < 8; ++c) yzw[c] = hashInt(zw[c >> 1] ^ uint32_t(index[1] + (c & 1)));
  for (int c = 0; c < 16; ++c) hashes[c] = hashInt(yzw[c >> 1] ^ uint32_t(index[0] + (c & 1)));
}

// A far coordinate wrapped into a large period so that its integer cell stays
// exact; nearer ones are left as they are (the remainder would be the value
// itself) without the library call.
float wrapped(float v) {
  constexpr float kPeriod = 16777216.0f;
  return std::fabs(v) < kPeriod ? v : std::fmod(v, kPeriod);
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
  float frac[4];
  int32_t index[4];
  for (int k = 0; k < 4; ++k) {
    const float v = wrapped(p[k]);
    const float cell = std::floor(v);
    frac[k] = v - cell;
    index[k] = static_cast<int32_t>(cell);
  }
  uint32_t hashes[16];
  cornerHashes(index, hashes);
  float corners[16];
  for (int c = 0; c < 16; ++c) {
    const int dx = c & 1, dy = (c >> 1) & 1, dz = (c >> 2) & 1, dw = (c >> 3) & 1;
    corners[c] = gradientDot(hashes[c], frac[0] - float(dx), frac[1] - float(dy), frac[2] - float(dz), frac[3] - float(dw));
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
