// The Tile node: rows of bricks with mortar joints, laid out in the plane of
// (x, y) = (u, v, 0, 1) times "xform" (one pattern unit = the uv unit square
// under the identity).
//
// Rows are brickHeight / verticalCount high and bricks brickWidth /
// horizontalCount long. Row r is shifted by r * lineShift brick lengths
// (its fraction) plus a random share of randomShift. The row edit makes every
// perRow-th row changeRow times as high; the column edit makes every
// perColumn-th brick of a row changeColumn times as long. A point is mortar
// within half a joint (horizontalGap across, verticalGap up) of its brick's
// edge; edgeRoughness lets that half-width wander with the host's noise.
// "holes" percent of the bricks are left out. Each brick's colour is the
// brick colour with its hue turned by up to +-colorVariance / 2 of the hue
// circle and darkened by up to fadeVariance, drawn per brick from the host's
// hashRandom with "randomSeed". Without repeatX (repeatY) everything outside
// 0 <= x < 1 (y) is mortar. Sizes that are not positive and finite give
// mortar everywhere.
#include <cmath>
#include <cstdint>

#include "materials/physical/lobes.h"
#include "materials/ward/nodes.h"

namespace kvi::ward {
namespace {

// One cell of a row or column partition: its index, the point's offset
// into it, and its size.
struct Cell {
  int64_t index;
  float offset;
  float size;
};

// Floor of x as an index; far or undefined values fold onto a bounded range
// (the pattern there is meaningless anyway, and must only stay defined).
int64_t indexOf(float x) { return x >= -1e9f && x <= 1e9f ? static_cast<int64_t>(x) : 0; }

// Cells of `size` along a line, every `per`-th one `change` times as large
// (per < 1, or a change that is not positive and finite, leaves them even).
Cell partition(float coordinate, float size, int32_t per, float change) {
  const float edited = size * change;
  if (per < 1 || !(edited > 0.0f) || !std::isfinite(edited)) {
    const float k = std::floor(coordinate / size);
    return {indexOf(k), coordinate - k * size, size};
  }
  const float plain = float(per - 1) * size;
  const float period = plain + edited;
  const float k = std::floor(coordinate / period);
  const float local = coordinate - k * period;
  if (local >= plain) return {indexOf(k) * per + (per - 1), local - plain, edited};
  const float j = std::fmin(std::fmax(std::floor(local / size), 0.0f), float(per - 1));
  return {indexOf(k) * per + indexOf(j), local - j * size, size};
}

enum RandomUse : uint32_t { kRowShift = 1, kHole = 2, kHue = 3, kFade = 4 };

// A number in [0, 1] for one use of one brick, from the host's hash.
float brickRandom(IShadingContext* context, int64_t row, int64_t column, int32_t seed, RandomUse use) {
  uint32_t h = uint32_t(uint64_t(row)) * 0x9E3779B1u;
  h ^= uint32_t(uint64_t(column)) * 0x85EBCA77u + (h >> 13);
  h ^= uint32_t(seed) * 0xC2B2AE3Du + (h >> 11);
  h ^= uint32_t(use) * 0x27D4EB2Fu + (h >> 15);
  // Keys below 2^24 are exact floats, each a different one.
  return context->hashRandom(float(h & 0xFFFFFFu));
}

float fraction(float x) { return x - std::floor(x); }

NodeColor variedBrick(const NodeHit& hit, const TileParameters& node, int64_t row, int64_t column, NodeColor c) {
  if (node.colorVariance != 0.0f) {
    float hsl[3];
    physical::rgbToHsl(c.c, hsl);
    hsl[0] =
        fraction(hsl[0] + node.colorVariance * (brickRandom(hit.context, row, column, node.randomSeed, kHue) - 0.5f));
    physical::hslToRgb(hsl, c.c);
  }
  if (node.fadeVariance != 0.0f) {
    const float keep = 1.0f - node.fadeVariance * brickRandom(hit.context, row, column, node.randomSeed, kFade);
    for (int i = 0; i < 3; ++i) c.c[i] *= keep;
  }
  return c;
}

}  // namespace

NodeColor tileNode(const NodeHit& hit, const TileParameters& node, const NodeColor& brick, const NodeColor& mortar) {
  float p[3];
  const float uv[3] = {hit.uv[0], hit.uv[1], 0.0f};
  transformPoint(p, uv, node.xform);
  const float x = p[0], y = p[1];
  if (!node.repeatX && !(x >= 0.0f && x < 1.0f)) return mortar;
  if (!node.repeatY && !(y >= 0.0f && y < 1.0f)) return mortar;
  const float rowHeight = node.brickHeight / node.verticalCount;
  const float brickLength = node.brickWidth / node.horizontalCount;
  if (!(rowHeight > 0.0f && std::isfinite(rowHeight) && brickLength > 0.0f && std::isfinite(brickLength)))
    return mortar;

  const Cell row = partition(y, rowHeight, node.useRowEdit ? node.perRow : 0, node.changeRow);
  const float shift = (fraction(float(row.index) * node.lineShift) +
                       node.randomShift * brickRandom(hit.context, row.index, 0, node.randomSeed, kRowShift)) *
                      brickLength;
  const Cell column = partition(x - shift, brickLength, node.useColumnEdit ? node.perColumn : 0, node.changeColumn);

  float halfJointX = 0.5f * node.horizontalGap, halfJointY = 0.5f * node.verticalGap;
  if (node.edgeRoughness != 0.0f) {
    // The joints wander over about a quarter of a row height.
    const float k = 4.0f / rowHeight;
    const float q[4] = {x * k, y * k, float(node.randomSeed & 0xFFFF), 0.5f};
    const float wander = 1.0f + node.edgeRoughness * hit.context->noise4D(q);
    halfJointX *= wander;
    halfJointY *= wander;
  }
  if (column.offset < halfJointX || column.offset > column.size - halfJointX || row.offset < halfJointY ||
      row.offset > row.size - halfJointY)
    return mortar;
  if (node.holes > 0 &&
      brickRandom(hit.context, row.index, column.index, node.randomSeed, kHole) * 100.0f < float(node.holes))
    return mortar;
  return variedBrick(hit, node, row.index, column.index, brick);
}

}  // namespace kvi::ward
