// Sample streams: well-distributed random numbers for one pixel sample,
// reproducible from the render seed, and the small warps built on them.
#pragma once

#include <cstdint>

#include "render/math.h"

namespace kvi::render {

// A 32-bit integer hash: every input bit reaches every output bit.
uint32_t hashInt(uint32_t x);
uint32_t hashCombine(uint32_t seed, uint32_t value);

// The numbers one pixel sample consumes, in the order it asks for them.
// Each request opens a new dimension (a pair for next2D) of an Owen-scrambled
// Sobol sequence over the pixel's samples: across the samples of a pixel,
// every dimension is stratified in 1D and every pair in 2D, and dimensions
// are decorrelated by independent scrambles. The scrambles depend on the
// seed and the pixel, so a render is reproducible from its seed.
class SampleStream {
 public:
  SampleStream() = default;
  SampleStream(uint32_t seed, uint32_t pixel, uint32_t sampleIndex);

  float next1D();
  void next2D(float out[2]);
  // A stream for a nested path (a gather ray's, a ray a material traces):
  // as stratified over the pixel's samples as this one, independent of it,
  // and using up one dimension here, so that how many numbers the nested
  // path takes does not shift the numbers this stream hands out next.
  SampleStream split();
  uint32_t dimensionsUsed() const { return dimension_; }

 private:
  uint32_t seed_ = 0;
  uint32_t reversedIndex_ = 0;  // the sample's index within its pixel, bit-reversed
  uint32_t dimension_ = 0;
};

// Cosine-weighted direction about +z for a sample in [0, 1)^2; its density
// per solid angle is z / pi.
Vec3 cosineHemisphere(float u1, float u2);
// A uniformly distributed point of a triangle, as barycentric weights of its
// second and third corners.
void uniformTriangle(float u1, float u2, float& b1, float& b2);

}  // namespace kvi::render
