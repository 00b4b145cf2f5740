#include "render/sampling.h"

#include <cmath>

namespace kvi::render {
namespace {

constexpr uint32_t reverseBitsConst(uint32_t x) {
  uint32_t r = 0;
  for (int i = 0; i < 32; ++i, x >>= 1) r = (r << 1) | (x & 1u);
  return r;
}

inline uint32_t reverseBits(uint32_t x) {
  x = __builtin_bswap32(x);
  x = ((x >> 4) & 0x0F0F0F0Fu) | ((x & 0x0F0F0F0Fu) << 4);
  x = ((x >> 2) & 0x33333333u) | ((x & 0x33333333u) << 2);
  return ((x >> 1) & 0x55555555u) | ((x & 0x55555555u) << 1);
}

// A random permutation of the integers that only mixes lower bits into
// higher ones; on bit-reversed values it is a nested uniform (Owen)
// scramble.
inline uint32_t laineKarrasPermutation(uint32_t x, uint32_t seed) {
  x += seed;
  x ^= x * 0x6c50b47cu;
  x ^= x * 0xb82f1e52u;
  x ^= x * 0xc7afe638u;
  x ^= x * 0x8d22f6e6u;
  return x;
}

// The nested uniform scramble of a value given bit-reversed; the result is
// in natural bit order.
inline uint32_t owenScrambleReversed(uint32_t reversed, uint32_t seed) {
  return reverseBits(laineKarrasPermutation(reversed, seed));
}

// The second dimension of the Sobol sequence (the first is the index's
// bit reversal): the XOR of the direction numbers of the index's set bits.
constexpr uint32_t sobol1Direct(uint32_t index) {
  uint32_t result = 0;
  for (uint32_t v = 1u << 31; index != 0; index >>= 1, v ^= v >> 1)
    if (index & 1u) result ^= v;
  return result;
}

// The same, bit-reversed, one table per byte of the index: the sequence is
// linear in the index's bits, so the XOR of four look-ups replaces a loop
// over 32 bits and a reversal.
struct ReversedSobol1Tables {
  uint32_t byte[4][256];
  constexpr ReversedSobol1Tables() : byte{} {
    for (uint32_t k = 0; k < 4; ++k)
      for (uint32_t b = 0; b < 256; ++b) byte[k][b] = reverseBitsConst(sobol1Direct(b << (8 * k)));
  }
};
constexpr ReversedSobol1Tables kReversedSobol1;

inline uint32_t reversedSobol1(uint32_t index) {
  return kReversedSobol1.byte[0][index & 0xFFu] ^ kReversedSobol1.byte[1][(index >> 8) & 0xFFu] ^
         kReversedSobol1.byte[2][(index >> 16) & 0xFFu] ^ kReversedSobol1.byte[3][index >> 24];
}

// The seed of a dimension, and seeds derived from it for the scrambles.
uint32_t dimensionSeed(uint32_t streamSeed, uint32_t dimension) { return hashInt(streamSeed ^ (dimension * 0x9e3779b9u)); }
uint32_t derivedSeed(uint32_t seed, uint32_t k) { return seed + k * 0x6a09e667u; }

// [0, 1) from the top 24 bits.
float toUnitFloat(uint32_t x) { return float(x >> 8) * (1.0f / 16777216.0f); }

}  // namespace

uint32_t hashInt(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  x ^= x >> 16;
  return x;
}

uint32_t hashCombine(uint32_t seed, uint32_t value) {
  return seed ^ (hashInt(value) + 0x9e3779b9u + (seed << 6) + (seed >> 2));
}

SampleStream::SampleStream(uint32_t seed, uint32_t pixel, uint32_t sampleIndex)
    : seed_(hashCombine(hashInt(seed), pixel)), reversedIndex_(reverseBits(sampleIndex)) {}

// Each dimension (pair) shuffles the sample index with a scramble of its own,
// so that dimensions are not correlated through a shared order, then takes
// the first (and second) Sobol dimension of the shuffled index, scrambled.
// The first Sobol dimension of an index is its bit reversal, which the
// scramble's own first reversal undoes.
float SampleStream::next1D() {
  const uint32_t seed = dimensionSeed(seed_, dimension_++);
  const uint32_t shuffled = owenScrambleReversed(reversedIndex_, seed);
  return toUnitFloat(owenScrambleReversed(shuffled, derivedSeed(seed, 1)));
}

void SampleStream::next2D(float out[2]) {
  const uint32_t seed = dimensionSeed(seed_, dimension_);
  dimension_ += 2;
  const uint32_t shuffled = owenScrambleReversed(reversedIndex_, seed);
  out[0] = toUnitFloat(owenScrambleReversed(shuffled, derivedSeed(seed, 1)));
  out[1] = toUnitFloat(owenScrambleReversed(reversedSobol1(shuffled), derivedSeed(seed, 2)));
}

SampleStream SampleStream::split() {
  SampleStream child = *this;
  child.seed_ = hashCombine(seed_, 0x5eed0000u + dimension_++);
  child.dimension_ = 0;
  return child;
}

Vec3 cosineHemisphere(float u1, float u2) {
  const float phi = 2.0f * kPi * u1;
  const float r = std::sqrt(u2);
  return {r * std::cos(phi), r * std::sin(phi), std::sqrt(std::max(0.0f, 1.0f - u2))};
}

void uniformTriangle(float u1, float u2, float& b1, float& b2) {
  const float s = std::sqrt(u1);
  b1 = 1.0f - s;
  b2 = u2 * s;
}

}  // namespace kvi::render
