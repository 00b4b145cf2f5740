#include "kvi/host/samplers.h"

#include <algorithm>
#include <cmath>

#include "kvi/host/error.h"

namespace kvi::host {
namespace {

// floor(x) for finite x, without a library call: below 2^23 in magnitude
// through the integer part, above it x is a whole number already.
inline float floorFinite(float x) {
  if (!(std::fabs(x) < 8388608.0f)) return x;
  const float whole = float(int(x));
  return whole > x ? whole - 1.0f : whole;
}

}  // namespace

void ConstantSampler::sample(float out[4], const float*) { std::copy(rgba_.begin(), rgba_.end(), out); }

ImageSampler::ImageSampler(int width, int height, std::vector<float> rgba)
    : width_(width), height_(height), rgba_(std::move(rgba)) {
  if (width <= 0 || height <= 0 || rgba_.size() != size_t(width) * size_t(height) * 4)
    throw Error("image sampler: " + std::to_string(width) + " x " + std::to_string(height) + " image needs " +
                std::to_string(size_t(std::max(width, 0)) * size_t(std::max(height, 0)) * 4) + " floats, given " +
                std::to_string(rgba_.size()));
}

const float* ImageSampler::texel(int x, int y) const { return &rgba_[(size_t(y) * size_t(width_) + size_t(x)) * 4]; }

void ImageSampler::lookup(float out[4], float s, float t) const {
  if (!std::isfinite(s) || !std::isfinite(t)) {
    std::copy(texel(0, 0), texel(0, 0) + 4, out);
    return;
  }
  // Keep the coordinates in one period, so huge values cannot overflow the index.
  s -= floorFinite(s);
  t -= floorFinite(t);
  const float x = s * float(width_) - 0.5f;
  const float y = t * float(height_) - 0.5f;
  const float fx = floorFinite(x), fy = floorFinite(y);
  const float ax = x - fx, ay = y - fy;
  // With s and t in [0, 1] the lower texel lies in [-1, size - 1]: wrapping
  // needs a comparison, not a division (shading samples maps many times per hit).
  int x0 = int(fx), y0 = int(fy);
  int x1 = x0 + 1, y1 = y0 + 1;
  if (x0 < 0) x0 += width_;
  if (y0 < 0) y0 += height_;
  if (x1 >= width_) x1 -= width_;
  if (y1 >= height_) y1 -= height_;
  const float *a = texel(x0, y0), *b = texel(x1, y0), *c = texel(x0, y1), *d = texel(x1, y1);
  for (int k = 0; k < 4; ++k) {
    const float top = a[k] + (b[k] - a[k]) * ax;
    const float bottom = c[k] + (d[k] - c[k]) * ax;
    out[k] = top + (bottom - top) * ay;
  }
}

void ImageSampler::sample(float out[4], const float* coords) { lookup(out, coords[0], coords[1]); }

ClippingPlaneTable::ClippingPlaneTable(std::vector<std::array<float, 4>> planes) : planes_(std::move(planes)) {}

void ClippingPlaneTable::lookup(float out[4], float u) {
  const size_t texels = planes_.size() + 1;
  float position = u * float(texels);
  size_t index = 0;
  if (position >= float(texels))
    index = texels - 1;
  else if (position > 0.0f)
    index = static_cast<size_t>(position);
  if (index == 0) {
    out[0] = float(planes_.size());
    out[1] = out[2] = 0.0f;
    out[3] = 1.0f;
    return;
  }
  std::copy(planes_[index - 1].begin(), planes_[index - 1].end(), out);
}

}  // namespace kvi::host
