// Plain records shared by the host and the shaders: texture references,
// light samples and the opaque parameter block.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvi {

// A 2D texture or an environment map, as the host samples it.
struct ITextureSampler {
  virtual ~ITextureSampler() = default;
  // Slot 1. Writes the filtered texel (r, g, b, a) at coords into out. The
  // caller pre-sets out to (0, 0, 0, 1). Basic materials pass two
  // coordinates (s, t), the physically based family three (s, t, w), and
  // environment look-ups a direction (x, y, z).
  virtual void sample(float out[4], const float* coords) = 0;
};

// The one-row table behind a global clipping map.
struct IClippingMapSampler {
  virtual ~IClippingMapSampler() = default;
  // Slot 1. Writes the texel at u of the one-row table into out.
  virtual void lookup(float out[4], float u) = 0;
};

// Value of a texture or environment-map parameter: the host's sampler (null
// when nothing is bound) and the host's index of the texture (-1 when none).
struct TextureRef {
  ITextureSampler* sampler;
  int32_t slot;
};

// Value of a clipping-map parameter.
struct ClippingMapRef {
  IClippingMapSampler* sampler;
  int32_t slot;
};

// One light reaching a point, as listed by IShadingContext::collectLightSamples.
// The host may keep further fields of its own between color and next.
struct LightSample {
  float direction[3];       // unit, towards the light
  float diffuseFactor;      // the light's cosine-weighted share for the normal
  float color[3];
  const LightSample* next;  // null at the end of the list
};

// The bytes handed to setParameters: a parameter field at object offset k
// sits at block byte k. Only ever used through pointers.
struct ShaderParameterBlock;

static_assert(sizeof(TextureRef) == 16 && alignof(TextureRef) == 8, "TextureRef layout");
static_assert(sizeof(ClippingMapRef) == 16 && alignof(ClippingMapRef) == 8, "ClippingMapRef layout");
static_assert(offsetof(TextureRef, slot) == 8, "TextureRef layout");
static_assert(offsetof(ClippingMapRef, slot) == 8, "ClippingMapRef layout");
static_assert(offsetof(LightSample, diffuseFactor) == 12, "LightSample layout");
static_assert(offsetof(LightSample, color) == 16, "LightSample layout");
static_assert(offsetof(LightSample, next) == 32, "LightSample layout");
static_assert(sizeof(LightSample) == 40, "LightSample layout");

}  // namespace kvi
