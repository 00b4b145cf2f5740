// The procedural texture nodes of the Ward family: Noise, Tile and
// UnifiedBitmap. A node reads its own parameters through a view of the
// variant's fields (built from node_kinds.h), takes the colours of its
// colour inputs (a nested node's result, or the input's own parameter) and
// gives a colour with alpha. The Noise arithmetic is also what the base
// material's built-in noise fade uses.
#pragma once

#include <cstdint>

#include "frame/parameters.h"
#include "kvi/context.h"
#include "kvi/types.h"
#include "materials/ward/node_kinds.h"

namespace kvi::ward {

// A node's result: r, g, b, a.
struct NodeColor {
  float c[4];
  static NodeColor of(const float (&rgba)[4]) { return {{rgba[0], rgba[1], rgba[2], rgba[3]}}; }
};

// Where a node is evaluated: the hit as the nodes see it.
struct NodeHit {
  IShadingContext* context;
  float position[3];  // the hit position
  float normal[3];    // the shading normal (cube images are looked up by it)
  float uv[2];        // the "uv" varying
};

// A view of one node's parameters: a reference to each of the variant's
// fields, in the kind's order (the colour inputs are passed separately).
#define KVI_WARD_NODE_VIEW_FIELD_(Kind, name, ...) const ::kvi::parameter_kind::Kind::Field& name;
#define KVI_WARD_NODE_VIEW_(Name, function, LIST) \
  struct Name##Parameters {                       \
    LIST(KVI_WARD_NODE_VIEW_FIELD_, KVI_IGNORE_)  \
  };
KVI_WARD_NODE_KINDS(KVI_WARD_NODE_VIEW_)
#undef KVI_WARD_NODE_VIEW_
#undef KVI_WARD_NODE_VIEW_FIELD_

NodeColor noiseNode(const NodeHit& hit, const NoiseParameters& node, const NodeColor& color1, const NodeColor& color2);
NodeColor tileNode(const NodeHit& hit, const TileParameters& node, const NodeColor& brick, const NodeColor& mortar);
NodeColor unifiedBitmapNode(const NodeHit& hit, const UnifiedBitmapParameters& node);

// ---- the noise arithmetic -------------------------------------------------

// Settings of one noise evaluation besides the point and the colours.
struct NoiseSettings {
  float size;
  float levels;
  float average;  // the value returned where the footprint hides every octave
  int32_t type;   // 0 regular, 1 fractal, 2 turbulence; anything else gives 0
  float phase;
  float thresholdLow, thresholdHigh;
  float turbulence;  // softens the creases of the turbulence sum (see noiseValue)
};

// The blend factor t in [0, 1] (or the average) of the noise at point p
// (noise-space units) whose shading footprint there is the filter vector.
float noiseBlend(IShadingContext* context, const float p[3], const NoiseSettings& s, const float filter[3]);

// colour1 (1 - t) + colour2 t, per component, t = noiseBlend(...).
NodeColor noiseColor(IShadingContext* context, const float p[3], const NoiseSettings& s, const float filter[3],
                     const NodeColor& color1, const NodeColor& color2);

// The noise value at the scaled point q for `levels` effective octaves and
// the threshold blur `blur`.
float noiseValue(IShadingContext* context, const float q[3], float levels, float blur, const NoiseSettings& s);

// The threshold remap of a noise value v (only when high > low).
float thresholdRemap(float v, float low, float high, float blur);

// World-space size of one shading sample's footprint that the nodes and the
// procedural bumps assume (about a pixel at a few units from a 40-degree
// camera): the source of the filter vector where the host gives none.
inline constexpr float kWorldFootprint = 0.002f;

// The mean noise value of a type: (v + 1) / 2 of an odd basis for the
// regular and fractal types, one softened turbulence octave of a gradient
// noise for the turbulence type, 0 for unknown types.
float meanNoiseValue(int32_t type);

// The settings with which the variants' Noise nodes are evaluated: the
// node's parameters, a fixed turbulence softening and the mean value of the
// node's noise type.
NoiseSettings nodeNoiseSettings(const NoiseParameters& node);

// The footprint of a shading sample in the noise space placed by `xform`:
// a fixed world-space footprint carried through the matrix.
void placedFootprint(float out[3], const float (&xform)[16]);

// (x, y, z, 1) times a row-vector 4 x 4 matrix; the first three components.
void transformPoint(float out[3], const float p[3], const float (&m)[16]);

}  // namespace kvi::ward
