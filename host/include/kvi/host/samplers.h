// Simple samplers a host binds to texture parameters.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kvi/types.h"

namespace kvi::host {

// The same colour wherever sampled.
class ConstantSampler : public ITextureSampler {
 public:
  explicit ConstantSampler(const std::array<float, 4>& rgba) : rgba_(rgba) {}
  void sample(float out[4], const float* coords) override;

 private:
  std::array<float, 4> rgba_;
};

// An RGBA float image sampled at (s, t) in [0, 1]^2 with bilinear filtering
// and wrapping (repeat). Texel (i, j) has its centre at ((i + 0.5) / width,
// (j + 0.5) / height); t = 0 is the first row. Non-finite coordinates give
// the first texel.
class ImageSampler : public ITextureSampler {
 public:
  // rgba holds width * height * 4 floats, row by row.
  ImageSampler(int width, int height, std::vector<float> rgba);
  void sample(float out[4], const float* coords) override;

  int width() const { return width_; }
  int height() const { return height_; }
  // The bilinear look-up itself, for samplers that map other coordinates to (s, t).
  void lookup(float out[4], float s, float t) const;
  const float* texel(int x, int y) const;

 private:
  int width_;
  int height_;
  std::vector<float> rgba_;
};

// The table behind a global clipping map: texel 0 holds the plane count N in
// red, texels 1 to N one plane (a, b, c, d) each; a point P is cut away by a
// plane when a Px + b Py + c Pz <= -d. lookup(u) answers texel
// floor(u * (N + 1)) (nearest), clamped to the table.
class ClippingPlaneTable : public IClippingMapSampler {
 public:
  explicit ClippingPlaneTable(std::vector<std::array<float, 4>> planes);
  void lookup(float out[4], float u) override;
  const std::vector<std::array<float, 4>>& planes() const { return planes_; }

 private:
  std::vector<std::array<float, 4>> planes_;
};

}  // namespace kvi::host
