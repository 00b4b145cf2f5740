// Sample streams: well-distributed random numbers for one pixel sample,
// reproducible from the render seed, and the small warps built on them.
#pragma once

#include <cstdint>

#include "render/math.h"

namespace kvi::render {

// A 32-bit integer hash: every input bit reaches every output bit.
constexpr uint32_t hashInt(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  x ^= x >> 16;
  return x;
}
uint32_t hashCombine(uint32_t seed, uint32_t value);

namespace sobol {

constexpr uint32_t reverseBits(uint32_t x) {
  x = __builtin_bswap32(x);
  x = ((x >> 4) & 0x0F0F0F0Fu) | ((x & 0x0F0F0F0Fu) << 4);
  x = ((x >> 2) & 0x33333333u) | ((x & 0x33333333u) << 2);
  return ((x >> 1) & 0x55555555u) | ((x & 0x55555555u) << 1);
}

// A random permutation of the integers that only mixes lower bits into
// higher ones; on bit-reversed values it is a nested uniform (Owen)
// scramble.
constexpr uint32_t laineKarrasPermutation(uint32_t x, uint32_t seed) {
  x += seed;
  x ^= x * 0x6c50b47cu;
  x ^= x * 0xb82f1e52u;
  x ^= x * 0xc7afe638u;
  x ^= x * 0x8d22f6e6u;
  return x;
}

// The nested uniform scramble of a value given bit-reversed; the result is
// in natural bit order.
constexpr uint32_t owenScrambleReversed(uint32_t reversed, uint32_t seed) {
  return reverseBits(laineKarrasPermutation(reversed, seed));
}

// The second dimension of the Sobol sequence (the first is the index's bit
// reversal), bit-reversed. Its generator matrix is Pascal's triangle modulo
// 2, so bit r of the reversed value is the XOR of the index's bits at every
// position whose binary digits include r's: five shift-and-XOR steps, one
// per digit of a bit position.
constexpr uint32_t reversedSecondDimension(uint32_t index) {
  index ^= (index >> 1) & 0x55555555u;
  index ^= (index >> 2) & 0x33333333u;
  index ^= (index >> 4) & 0x0F0F0F0Fu;
  index ^= (index >> 8) & 0x00FF00FFu;
  index ^= (index >> 16) & 0x0000FFFFu;
  return index;
}

// The seed of a dimension, and seeds derived from it for the scrambles.
constexpr uint32_t dimensionSeed(uint32_t streamSeed, uint32_t dimension) {
  return hashInt(streamSeed ^ (dimension * 0x9e3779b9u));
}
constexpr uint32_t derivedSeed(uint32_t seed, uint32_t k) { return seed + k * 0x6a09e667u; }

// [0, 1) from the top 24 bits.
constexpr float toUnitFloat(uint32_t x) { return float(x >> 8) * (1.0f / 16777216.0f); }

}  // namespace sobol

// The numbers one pixel sample consumes, in the order it asks for them.
// Each request opens a new dimension (a pair for next2D) of an Owen-scrambled
// Sobol sequence over the pixel's samples: across the samples of a pixel,
// every dimension is stratified in 1D and every pair in 2D, and dimensions
// are decorrelated by independent scrambles. The scrambles depend on the
// seed and the pixel, so a render is reproducible from its seed.
//
// Each dimension (pair) shuffles the sample index with a scramble of its
// own, so that dimensions are not correlated through a shared order, then
// takes the first (and second) Sobol dimension of the shuffled index,
// scrambled. The first Sobol dimension of an index is its bit reversal, which
// the scramble's own first reversal undoes. The numbers of the next dimension
// are computed as soon as a request is answered, so that the work runs while
// the caller uses the answer and the next request finds them ready: the same
// numbers, without waiting for their chain of multiplications.
class SampleStream {
 public:
  SampleStream() { prepare(); }
  SampleStream(uint32_t seed, uint32_t pixel, uint32_t sampleIndex)
      : seed_(hashCombine(hashInt(seed), pixel)), reversedIndex_(sobol::reverseBits(sampleIndex)) {
    prepare();
  }

  float next1D() {
    const float value = first_;
    dimension_ += 1;
    prepare();
    return value;
  }
  void next2D(float out[2]) {
    out[0] = first_;
    out[1] = second_;
    dimension_ += 2;
    prepare();
  }
  // A stream for a nested path (a gather ray's, a ray a material traces):
  // as stratified over the pixel's samples as this one, independent of it,
  // and using up one dimension here, so that how many numbers the nested
  // path takes does not shift the numbers this stream hands out next.
  SampleStream split();
  uint32_t dimensionsUsed() const { return dimension_; }

 private:
  // The next request's numbers: the first is the answer to next1D and the
  // first of next2D's pair.
  void prepare() {
    const uint32_t seed = sobol::dimensionSeed(seed_, dimension_);
    const uint32_t shuffled = sobol::owenScrambleReversed(reversedIndex_, seed);
    first_ = sobol::toUnitFloat(sobol::owenScrambleReversed(shuffled, sobol::derivedSeed(seed, 1)));
    second_ = sobol::toUnitFloat(
        sobol::owenScrambleReversed(sobol::reversedSecondDimension(shuffled), sobol::derivedSeed(seed, 2)));
  }

  uint32_t seed_ = 0;
  uint32_t reversedIndex_ = 0;  // the sample's index within its pixel, bit-reversed
  uint32_t dimension_ = 0;
  float first_ = 0.0f, second_ = 0.0f;  // the next dimension's numbers, computed ahead
};

// Cosine-weighted direction about +z for a sample in [0, 1)^2; its density
// per solid angle is z / pi.
Vec3 cosineHemisphere(float u1, float u2);
// A uniformly distributed point of a triangle, as barycentric weights of its
// second and third corners.
void uniformTriangle(float u1, float u2, float& b1, float& b2);

}  // namespace kvi::render
