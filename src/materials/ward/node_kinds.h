// The procedural texture nodes that drive the inputs of the generated Ward
// variants, one X-macro per node kind, in the order in which a node's
// parameters are declared:
//
//   PARAM(Kind, name, doc(meaning, range, unit), default...)  a parameter of the node
//   INPUT(name, doc(meaning, range, unit), default)            a colour input: a parameter
//                                                               (colour with alpha) unless
//                                                               a nested node drives it
//
// These lists are the only place the node parameters are written down. The
// build-time generator (generate_variants.cpp) reads them, together with the
// description of each variant's graphs (variants.txt), and writes every
// variant's parameter list under the generated names; the nodes' code
// (nodes.h) builds its views of a node's fields from them. Nothing here
// depends on anything else, so the generator can include it on its own.
#pragma once

#define KVI_WARD_IDENTITY4 \
  { 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f }

// Noise: a band-limited multi-level solid noise blending two colours.
#define KVI_WARD_NOISE_NODE(PARAM, INPUT)                                                                         \
  PARAM(Matrix4, xform,                                                                                           \
        doc("placement of the noise space: the hit position, as the row vector (x, y, z, 1), times this matrix",  \
            "any 4 x 4 transform"),                                                                               \
        KVI_WARD_IDENTITY4)                                                                                       \
  PARAM(Int, type, doc("kind of noise: 0 regular (one level), 1 fractal, 2 turbulence", "0, 1 or 2"), 2)          \
  INPUT(color1, doc("colour at noise value 0", "0 to 1 per channel"), {0.2f, 0.18f, 0.17f, 1.0f})                \
  INPUT(color2, doc("colour at noise value 1", "0 to 1 per channel"), {0.88f, 0.85f, 0.8f, 1.0f})                \
  PARAM(Float, size,                                                                                              \
        doc("feature size; the placed point is divided by it, 0 counts as 1e-5", "above 0", "noise-space units"), \
        0.35f)                                                                                                    \
  PARAM(Float, thresholdLow, doc("noise value mapped to 0; no remap unless below thresholdHigh", "0 to 1"), 0.0f) \
  PARAM(Float, thresholdHigh, doc("noise value mapped to 1", "0 to 1"), 0.3f)                                     \
  PARAM(Float, levels,                                                                                            \
        doc("number of octaves of the fractal and turbulence sums, fractions allowed; capped by the footprint",   \
            "1 or more"),                                                                                         \
        3.0f)                                                                                                     \
  PARAM(Float, phase, doc("fourth noise coordinate; moving it animates the pattern", "any", "noise-space units"), 0.0f)

// Tile: bricks in rows, laid out in the uv plane, with mortar between them.
#define KVI_WARD_TILE_NODE(PARAM, INPUT)                                                                               \
  PARAM(Matrix4, xform,                                                                                                \
        doc("placement of the pattern: (u, v, 0, 1) times this matrix gives the pattern's (x, y)",                     \
            "any 4 x 4 transform"),                                                                                    \
        KVI_WARD_IDENTITY4)                                                                                            \
  PARAM(Float, verticalCount, doc("rows of bricks per pattern unit (along y)", "above 0", "per unit"), 8.0f)           \
  PARAM(Float, horizontalCount, doc("bricks per pattern unit along a row (along x)", "above 0", "per unit"), 4.0f)     \
  PARAM(Float, colorVariance, doc("random hue shift per brick, as a fraction of the hue circle", "0 to 1"), 0.05f)     \
  PARAM(Float, fadeVariance, doc("random darkening per brick: up to this fraction of the colour", "0 to 1"), 0.3f)     \
  PARAM(Float, horizontalGap,                                                                                          \
        doc("width of the mortar joints between the bricks of a row", "0 or more", "pattern units"), 0.01f)            \
  PARAM(Float, verticalGap, doc("height of the mortar joints between rows", "0 or more", "pattern units"), 0.01f)      \
  PARAM(Float, edgeRoughness, doc("ragged brick edges: the joints' half-width varies by this fraction", "0 to 1"),     \
        0.3f)                                                                                                          \
  PARAM(Int, randomSeed, doc("seed of every random variation of the bricks", "any"), 1)                                \
  PARAM(Float, lineShift, doc("shift of each row against the one below, as a fraction of a brick's length", "0 to 1"), \
        0.5f)                                                                                                          \
  PARAM(Float, randomShift, doc("random extra shift of each row, up to this fraction of a brick's length", "0 to 1"),  \
        0.0f)                                                                                                          \
  PARAM(Float, changeRow, doc("height of every perRow-th row, as a multiple of the others' (row edit)", "above 0"),    \
        2.0f)                                                                                                          \
  PARAM(Int, perRow, doc("which rows the row edit changes: every perRow-th", "1 or more"), 4)                          \
  PARAM(Bool, useColumnEdit, doc("apply the column edit"), false)                                                      \
  PARAM(Bool, useRowEdit, doc("apply the row edit"), false)                                                            \
  PARAM(Float, changeColumn,                                                                                           \
        doc("length of every perColumn-th brick of a row, as a multiple of the others' (column edit)", "above 0"),     \
        2.0f)                                                                                                          \
  PARAM(Int, perColumn, doc("which bricks of a row the column edit changes: every perColumn-th", "1 or more"), 3)      \
  PARAM(Int, holes, doc("share of bricks left out, showing mortar", "0 to 100", "%"), 0)                               \
  PARAM(Float, brickHeight, doc("scale of the row height (1 keeps verticalCount rows per unit)", "above 0"), 1.0f)     \
  PARAM(Float, brickWidth, doc("scale of the brick length (1 keeps horizontalCount bricks per unit)", "above 0"),      \
        1.0f)                                                                                                          \
  PARAM(Bool, repeatX, doc("repeat the pattern along x; off: mortar outside 0 to 1"), true)                            \
  PARAM(Bool, repeatY, doc("repeat the pattern along y; off: mortar outside 0 to 1"), true)                            \
  INPUT(brickColor, doc("colour of the bricks", "0 to 1 per channel"), {0.56f, 0.25f, 0.16f, 1.0f})                    \
  INPUT(mortarColor, doc("colour of the mortar", "0 to 1 per channel"), {0.78f, 0.76f, 0.72f, 1.0f})

// UnifiedBitmap: an image looked up through a placement, scaled by an amount
// and a colour gain. An image that is not bound reads as white, so that the
// gain alone colours the node.
#define KVI_WARD_UNIFIED_BITMAP_NODE(PARAM, INPUT)                                                                   \
  PARAM(Matrix4, xform,                                                                                              \
        doc("placement: (u, v, 0, 1) times this matrix gives the image coordinates (s, t, w); for a cube "           \
            "image it turns the shading normal",                                                                     \
            "any 4 x 4 transform"),                                                                                  \
        KVI_WARD_IDENTITY4)                                                                                          \
  PARAM(Texture, texture, doc("the image; unbound reads as white"), unbound)                                         \
  PARAM(Float, amount, doc("scale of the image's colour", "0 or more"), 1.0f)                                        \
  PARAM(Bool, isCube, doc("the image is a cube (environment) image, looked up by the turned shading normal"), false) \
  PARAM(Color3, gain, doc("colour the image is multiplied by", "0 or more per channel"), {1.0f, 1.0f, 1.0f})

// The node kinds by their names in the generated parameter names, with the
// function that evaluates a node of the kind (nodes.h).
#define KVI_WARD_NODE_KINDS(KIND)             \
  KIND(Noise, noiseNode, KVI_WARD_NOISE_NODE) \
  KIND(Tile, tileNode, KVI_WARD_TILE_NODE)    \
  KIND(UnifiedBitmap, unifiedBitmapNode, KVI_WARD_UNIFIED_BITMAP_NODE)
