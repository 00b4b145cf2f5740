#include "render/sampling.h"

#include <cmath>

namespace kvi::render {

uint32_t hashCombine(uint32_t seed, uint32_t value) {
  return seed ^ (hashInt(value) + 0x9e3779b9u + (seed << 6) + (seed >> 2));
}

SampleStream SampleStream::split() {
  SampleStream child = *this;
  child.seed_ = hashCombine(seed_, 0x5eed0000u + dimension_++);
  child.dimension_ = 0;
  child.prepare();
  prepare();
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
