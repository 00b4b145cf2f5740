#include "render/textures.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace kvi::render {

MapSampler::MapSampler(int width, int height, std::vector<float> rgba)
    : width_(width), height_(height), rgba_(std::move(rgba)) {
  if (width <= 0 || height <= 0 || rgba_.size() != size_t(width) * size_t(height) * 4)
    throw std::invalid_argument("texture of " + std::to_string(width) + " x " + std::to_string(height) +
                                " pixels needs that many RGBA texels");
}

void MapSampler::sample(float out[4], const float* coords) {
  float s = coords[0], t = coords[1];
  if (!std::isfinite(s) || !std::isfinite(t)) {
    for (int k = 0; k < 4; ++k) out[k] = rgba_[size_t(k)];
    return;
  }
  s -= std::floor(s);
  t -= std::floor(t);
  const float x = s * float(width_) - 0.5f;
  const float y = t * float(height_) - 0.5f;
  const float fx = std::floor(x), fy = std::floor(y);
  const float ax = x - fx, ay = y - fy;
  // With s and t in [0, 1) the lower texel lies in [-1, size - 1]: wrapping
  // needs a comparison, not a division. (s = 1 - ulp can round x up to
  // size - 0.5, still inside.)
  int x0 = int(fx), y0 = int(fy);
  int x1 = x0 + 1, y1 = y0 + 1;
  if (x0 < 0) x0 += width_;
  if (y0 < 0) y0 += height_;
  if (x1 >= width_) x1 -= width_;
  if (y1 >= height_) y1 -= height_;
  const float* a = &rgba_[(size_t(y0) * size_t(width_) + size_t(x0)) * 4];
  const float* b = &rgba_[(size_t(y0) * size_t(width_) + size_t(x1)) * 4];
  const float* c = &rgba_[(size_t(y1) * size_t(width_) + size_t(x0)) * 4];
  const float* d = &rgba_[(size_t(y1) * size_t(width_) + size_t(x1)) * 4];
  for (int k = 0; k < 4; ++k) {
    const float top = a[k] + (b[k] - a[k]) * ax;
    const float bottom = c[k] + (d[k] - c[k]) * ax;
    out[k] = top + (bottom - top) * ay;
  }
}

}  // namespace kvi::render
