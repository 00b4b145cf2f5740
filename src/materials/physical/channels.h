// Texture channels of the physically based materials and of the Ward family:
// uv transforms, texture look-ups, scalar and colour channels, the cutout
// opacity, the per-object colour and alpha, the common tint, and the normal-map
// and procedural tile-bump channels. Free functions of explicit arguments (a
// channel's flag, map, transform, value and amount, the hit's uv), so that
// every material of both families reads its channels the same way.
//
// A texture reference without a sampler reads as (0, 0, 0, 1): a scalar
// channel then yields 0, a cutout map opacity 0, a normal map the slope
// (0, 0, 0). Nothing is validated; every value flows through as written.
#pragma once

#include <cstdint>
#include <cstring>

#include "kvi/state.h"
#include "kvi/types.h"

namespace kvi::physical {

// The varyings every material of the family requests, at these offsets.
inline constexpr uint32_t kBitangentOffset = 0;
inline constexpr uint32_t kTangentOffset = 12;
inline constexpr uint32_t kUvOffset = 24;

// Reads n floats of the state's varying area at a byte offset.
template <int N>
inline void readVarying(const ShadingState* state, uint32_t offset, float (&out)[N]) {
  std::memcpy(out, state->varyings + offset, sizeof out);
}

// (s, t, w) of the homogeneous point (u, v, 1) under a 3 x 3 transform stored
// by columns: s = m0 u + m3 v + m6, t = m1 u + m4 v + m7, w = m2 u + m5 v + m8.
inline void applyUvTransform(const float m[9], const float uv[2], float point[3]) {
  point[0] = m[0] * uv[0] + m[3] * uv[1] + m[6];
  point[1] = m[1] * uv[0] + m[4] * uv[1] + m[7];
  point[2] = m[2] * uv[0] + m[5] * uv[1] + m[8];
}

// The texel at a point, pre-set to (0, 0, 0, 1) and left so without a sampler.
inline void sampleTexture(const TextureRef& map, const float point[3], float rgba[4]) {
  rgba[0] = rgba[1] = rgba[2] = 0.0f;
  rgba[3] = 1.0f;
  if (map.sampler) map.sampler->sample(rgba, point);
}

// The texel of a channel's map at its transform of uv.
inline void sampleChannel(const TextureRef& map, const float transform[9], const float uv[2], float rgba[4]) {
  float point[3];
  applyUvTransform(transform, uv, point);
  sampleTexture(map, point, rgba);
}

// A scalar channel selected by a switcher (the metal's anisotropy and its
// rotation): the constant, or red x value x amount of the map when selected.
inline float scaledScalarChannel(bool selected, const TextureRef& map, const float transform[9], float value,
                                 float amount, const float uv[2]) {
  if (!selected) return value;
  float texel[4];
  sampleChannel(map, transform, uv, texel);
  return texel[0] * value * amount;
}

// A scalar channel with an enable flag (the Ward family): the constant, or
// red x amount of the map when enabled.
inline float scalarChannel(uint8_t enabled, const TextureRef& map, const float transform[9], float value,
                           float amount, const float uv[2]) {
  if (!enabled) return value;
  float texel[4];
  sampleChannel(map, transform, uv, texel);
  return texel[0] * amount;
}

// A colour channel with an enable flag: the constant, or the map's colour x
// amount when enabled.
inline void colorChannel(uint8_t enabled, const TextureRef& map, const float transform[9], const float value[3],
                         float amount, const float uv[2], float color[3]) {
  if (!enabled) {
    for (int i = 0; i < 3; ++i) color[i] = value[i];
    return;
  }
  float texel[4];
  sampleChannel(map, transform, uv, texel);
  for (int i = 0; i < 3; ++i) color[i] = texel[i] * amount;
}

// Luminance of a colour with the family's weights 0.212671, 0.71516, 0.072169.
inline float luminance(const float c[3]) { return 0.212671f * c[0] + 0.71516f * c[1] + 0.072169f * c[2]; }

// The per-object colour and alpha count only when both flags are set.
inline bool perObjectColorApplies(uint8_t colorByObject, uint8_t isSet) { return colorByObject && isSet; }

// The per-object alpha, or 1.
inline float objectAlpha(uint8_t colorByObject, const float extraColorAndAlpha[4], uint8_t isSet) {
  return perObjectColorApplies(colorByObject, isSet) ? extraColorAndAlpha[3] : 1.0f;
}

// Multiplies a finished weight colour by the tint's first three components
// when the tint is on (before any cutout opacity is applied).
inline void applyTint(uint8_t enabled, const float tint[4], float color[3]) {
  if (!enabled) return;
  for (int i = 0; i < 3; ++i) color[i] = color[i] * tint[i];
}

// The opacity of a cutout switcher's pattern at uv, 1 = solid:
//   1 round holes, 2 square holes, 3 slots, 4 diamonds, 6 staggered round
//   holes (a perforated sheet): holes of "size" at a pitch of "space" in the
//   pattern coordinates uv x uvScale - center, 0 inside, 1 outside, with a
//   thin linear edge; a pitch that is not positive gives no holes;
//   7 the cutout map at its transform, (red + green + blue) / 3;
//   5, 0, negatives and everything above 7: 1 (no cut).
float evaluateCutoutOpacity(int32_t switcher, const float uv[2], float uvScale, const TextureRef& cutoutMap,
                            const float cutoutTransform[9], float center, float space, float size);

// The opacity of a material with a cutout: the per-object alpha, or, when the
// switcher is positive, the cutout pattern's opacity times the per-object
// alpha (when both per-object flags are set). Consumers test opacity == 1.0
// exactly for a solid surface.
inline float cutoutOpacity(int32_t switcher, const float uv[2], float uvScale, const TextureRef& cutoutMap,
                           const float cutoutTransform[9], float center, float space, float size,
                           uint8_t colorByObject, const float extraColorAndAlpha[4], uint8_t isSet) {
  float opacity = objectAlpha(colorByObject, extraColorAndAlpha, isSet);
  if (switcher > 0) {
    opacity = evaluateCutoutOpacity(switcher, uv, uvScale, cutoutMap, cutoutTransform, center, space, size);
    if (perObjectColorApplies(colorByObject, isSet)) opacity = opacity * extraColorAndAlpha[3];
  }
  return opacity;
}

// Normal-map channel: (0, 0, 1) when disabled; otherwise the map's (r, g, b)
// at its transform as (r x s, g x s, b) with s = strength x 3.3 x k, the
// strength being "amount", or the red of the amount map when that is enabled
// (0 without a sampler). The map's colours are used as they come: a map holds
// signed slopes in red and green, not colours remapped from [0, 1].
void normalMapSlope(uint8_t enabled, const TextureRef& map, const float transform[9], float amount,
                    uint8_t amountMapEnabled, const TextureRef& amountMap, const float amountTransform[9],
                    const float uv[2], float k, float slope[3]);

// The two steps of normalMapSlope, for a normal texel that comes from
// elsewhere (a node graph): the strength ("amount", or the red of the
// amount map when that is enabled), and the slope (r x s, g x s, b) of a
// texel with s = strength x 3.3 x k.
float normalMapStrength(float amount, uint8_t amountMapEnabled, const TextureRef& amountMap,
                        const float amountTransform[9], const float uv[2]);
void normalTexelSlope(const float texel[4], float strength, float k, float slope[3]);

// Procedural tile bump: the slope (+-1 on one axis) of the pyramid of the
// tile cell around uv x scale x 0.5; the steeper axis wins, a tie goes to u,
// and 0 counts as positive.
void tileBumpSlope(const float uv[2], float scale, float slope[2]);

}  // namespace kvi::physical
