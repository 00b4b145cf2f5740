// The renderer's sampler for 2D texture maps.
#pragma once

#include <vector>

#include "kvi/types.h"

namespace kvi::render {

// An RGBA float image looked up at (s, t) with bilinear filtering and
// wrapping: the convention of host::ImageSampler (texel (i, j) centred at
// ((i + 0.5) / width, (j + 0.5) / height), t = 0 the first row, non-finite
// coordinates give the first texel) and its arithmetic, bit for bit, with
// the wrapping done without divisions, since shading samples maps many times
// per hit.
class MapSampler final : public ITextureSampler {
 public:
  // rgba holds width * height * 4 floats, row by row; width and height > 0.
  MapSampler(int width, int height, std::vector<float> rgba);
  void sample(float out[4], const float* coords) override;

 private:
  int width_;
  int height_;
  std::vector<float> rgba_;
};

}  // namespace kvi::render
