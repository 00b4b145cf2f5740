#include "materials/physical/channels.h"

#include <cmath>

namespace kvi::physical {
namespace {

// Width of the linear edge of a procedural hole, as a share of the pitch: thin
// enough to read as a sharp edge, wide enough that neighbouring samples of a
// pixel blend it.
constexpr float kHoleEdgeShareOfPitch = 0.04f;
constexpr float kInvSqrt2 = 0.70710677f;

enum HolePattern : int32_t {
  kRoundHoles = 1,
  kSquareHoles = 2,
  kSlots = 3,
  kDiamonds = 4,
  kPerforatedSheet = 6,
};

float fractionalPart(float x) { return x - std::floor(x); }

bool isOdd(float integral) { return integral - 2.0f * std::floor(integral * 0.5f) != 0.0f; }

// Signed distance (negative inside) from a point of a cell, relative to the
// cell's centre, to the edge of the pattern's hole of half-size h.
float holeDistance(int32_t pattern, float px, float py, float h) {
  const float ax = std::fabs(px), ay = std::fabs(py);
  switch (pattern) {
    case kSquareHoles: return (ax > ay ? ax : ay) - h;
    case kSlots: {
      // A stadium: half-circles of radius h joined by a straight part of 2h.
      const float along = ax > h ? ax - h : 0.0f;
      return std::sqrt(along * along + py * py) - h;
    }
    case kDiamonds: return (ax + ay - h) * kInvSqrt2;
    default: return std::sqrt(px * px + py * py) - h;  // round holes, plain or staggered
  }
}

// Holes of diameter (or width) `size` at a pitch of `space` (slots: twice
// that along u; staggered holes: every other row shifted by half a pitch),
// in the coordinates uv x scale - center.
float holePatternOpacity(int32_t pattern, const float uv[2], float scale, float center, float space, float size) {
  if (!(space > 0.0f)) return 1.0f;
  const float cellWidth = pattern == kSlots ? 2.0f * space : space;
  float column = (uv[0] * scale - center) / cellWidth;
  const float row = (uv[1] * scale - center) / space;
  if (pattern == kPerforatedSheet && isOdd(std::floor(row))) column = column + 0.5f;
  const float px = (fractionalPart(column) - 0.5f) * cellWidth;
  const float py = (fractionalPart(row) - 0.5f) * space;
  const float distance = holeDistance(pattern, px, py, 0.5f * size);
  const float opacity = 0.5f + distance / (kHoleEdgeShareOfPitch * space);
  if (!(opacity < 1.0f)) return 1.0f;  // outside the hole, or undefined (NaN): solid
  return opacity > 0.0f ? opacity : 0.0f;
}

}  // namespace

float evaluateCutoutOpacity(int32_t switcher, const float uv[2], float uvScale, const TextureRef& cutoutMap,
                            const float cutoutTransform[9], float center, float space, float size) {
  switch (switcher) {
    case kRoundHoles:
    case kSquareHoles:
    case kSlots:
    case kDiamonds:
    case kPerforatedSheet: return holePatternOpacity(switcher, uv, uvScale, center, space, size);
    case 7: {
      float texel[4];
      sampleChannel(cutoutMap, cutoutTransform, uv, texel);
      return (texel[0] + texel[1] + texel[2]) / 3.0f;
    }
    default: return 1.0f;
  }
}

void normalMapSlope(uint8_t enabled, const TextureRef& map, const float transform[9], float amount,
                    uint8_t amountMapEnabled, const TextureRef& amountMap, const float amountTransform[9],
                    const float uv[2], float k, float slope[3]) {
  if (!enabled) {
    slope[0] = 0.0f;
    slope[1] = 0.0f;
    slope[2] = 1.0f;
    return;
  }
  const float strength = normalMapStrength(amount, amountMapEnabled, amountMap, amountTransform, uv);
  float normal[4];
  sampleChannel(map, transform, uv, normal);
  normalTexelSlope(normal, strength, k, slope);
}

float normalMapStrength(float amount, uint8_t amountMapEnabled, const TextureRef& amountMap,
                        const float amountTransform[9], const float uv[2]) {
  if (!amountMapEnabled) return amount;
  float texel[4];
  sampleChannel(amountMap, amountTransform, uv, texel);
  return texel[0];
}

void normalTexelSlope(const float texel[4], float strength, float k, float slope[3]) {
  const float s = strength * 3.3f * k;
  slope[0] = texel[0] * s;
  slope[1] = texel[1] * s;
  slope[2] = texel[2];
}

void tileBumpSlope(const float uv[2], float scale, float slope[2]) {
  const float x = uv[0] * scale * 0.5f;
  const float y = uv[1] * scale * 0.5f;
  const float fu = x - std::floor(x) - 0.5f;
  const float fv = y - std::floor(y) - 0.5f;
  const auto sign = [](float a) { return a < 0.0f ? -1.0f : 1.0f; };
  if (std::fabs(fv) > std::fabs(fu)) {
    slope[0] = 0.0f;
    slope[1] = sign(fv);
  } else {
    slope[0] = sign(fu);
    slope[1] = 0.0f;
  }
}

}  // namespace kvi::physical
