// The per-hit record every shading operation reads its inputs from and writes
// its results into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kvi {

// Booleans are bytes: 0 is false, any other value is true. What a host fills
// and presets before each operation, and how it uses the results, is the
// host contract (docs/host-contract.md).
//
// The scattering results, stated once:
// - evaluateBsdf: bsdfWeight is the BSDF times the cosine for the direction in
//   sampledDirection, per channel: the light a sample delivers (lightColor x
//   lightShadow / the sample's density) times bsdfWeight leaves the hit
//   towards the ray. pdf (and pdfSecondary, where written) carry nothing a
//   host uses there.
// - sampleBsdf: lobeFlags names the event chosen, and the event multiplies
//   the path's throughput by bsdfWeight x pdf / pdfSecondary, per channel
//   (BSDF x cosine / the density of choosing the event and its direction).
//   pdf and pdfSecondary are the factors a material reports apart from the
//   weight: pdfSecondary the density of the chosen direction (1/pi per
//   projected solid angle for the basic materials' cosine-distributed
//   diffuse direction; a glossy lobe's density, which the material has also
//   multiplied into bsdfWeight), pdf a factor kept apart (the mirror
//   material's view cosine, its weight being K / cosine); both are 1 where
//   bsdfWeight is the whole factor. A pdfSecondary that is not positive ends
//   the path.
struct ShadingState {
  float rayDirection[3];         // host: unit direction of the arriving ray, towards the surface
  float position[3];             // host: hit position (space of lights and clipping planes)
  float normal[3];               // host: unit shading normal
  float geometricNormal[3];      // host: geometric normal
  float rasterPosition[2];       // host: pixel position of the primary ray
  int32_t frameResolution[2];    // host: image width and height in pixels
  float tangentFrame[9];         // host: tangent, bitangent, normal
  float glossinessBias;          // host: subtracted from every glossiness (floor 0)
  uint8_t frontFacing;           // host: non-zero on the front side
  uint8_t cutAway;               // testCutout: 1 removes the hit
  float radiance[3];             // evaluateRadiance: emitted and gathered radiance
  uint8_t radianceDone;          // evaluateRadiance: set to 1 at entry
  float surfaceResult[4];        // shadeSurface, environment shade: r, g, b, a
  float shadowTransmission[3];   // shadowTransmission: fraction passing, per channel
  float sampledDirection[3];     // sampleBsdf output; host input of evaluateBsdf (unit, towards the light)
  float bsdfWeight[3];           // evaluateBsdf: BSDF x cosine; sampleBsdf: the event's weight (see above)
  float pdf;                     // sampleBsdf: multiplies the weight (see above); evaluateBsdf: not used
  float pdfSecondary;            // sampleBsdf: divides the weight, the direction's density (see above)
  // sampleBsdf: the event chosen: 0 none (the path ends), 1 diffuse
  // reflection, 2 glossy reflection, 4 mirror reflection, 8 specular
  // transmission (refraction), 16 glossy transmission, 32 diffuse
  // transmission (translucency), 64 straight pass-through.
  int32_t lobeFlags;
  uint8_t reflectionAllowed;     // host: 0 forbids starting a reflection here
  float lightSamplePosition[3];  // host: point on the light
  float lightAxis[3];            // host: the light's axis
  float lightDirection[3];       // host: unit direction from the light to the point
  // host: distance from the point to the light sample; for evaluateBsdf and
  // sampleBsdf of a material, how far the arriving ray travelled to the hit
  // (0 when the host does not tell; a dielectric absorbs along it).
  float lightDistance;
  float lightColor[3];           // light shade: light arriving at the point
  float lightShadow[3];          // light shade: shadow transmission of that light
  uint8_t hitDiscarded;          // PhongReflective: 1 when clipping planes reject the hit
  alignas(8) uint8_t varyings[64];  // host: requested varyings at their requested offsets
};

static_assert(std::is_standard_layout<ShadingState>::value, "ShadingState must be standard layout");
static_assert(sizeof(ShadingState) == 328, "ShadingState size is part of the ABI");
static_assert(offsetof(ShadingState, rayDirection) == 0, "ShadingState layout");
static_assert(offsetof(ShadingState, position) == 12, "ShadingState layout");
static_assert(offsetof(ShadingState, normal) == 24, "ShadingState layout");
static_assert(offsetof(ShadingState, geometricNormal) == 36, "ShadingState layout");
static_assert(offsetof(ShadingState, rasterPosition) == 48, "ShadingState layout");
static_assert(offsetof(ShadingState, frameResolution) == 56, "ShadingState layout");
static_assert(offsetof(ShadingState, tangentFrame) == 64, "ShadingState layout");
static_assert(offsetof(ShadingState, glossinessBias) == 100, "ShadingState layout");
static_assert(offsetof(ShadingState, frontFacing) == 104, "ShadingState layout");
static_assert(offsetof(ShadingState, cutAway) == 105, "ShadingState layout");
static_assert(offsetof(ShadingState, radiance) == 108, "ShadingState layout");
static_assert(offsetof(ShadingState, radianceDone) == 120, "ShadingState layout");
static_assert(offsetof(ShadingState, surfaceResult) == 124, "ShadingState layout");
static_assert(offsetof(ShadingState, shadowTransmission) == 140, "ShadingState layout");
static_assert(offsetof(ShadingState, sampledDirection) == 152, "ShadingState layout");
static_assert(offsetof(ShadingState, bsdfWeight) == 164, "ShadingState layout");
static_assert(offsetof(ShadingState, pdf) == 176, "ShadingState layout");
static_assert(offsetof(ShadingState, pdfSecondary) == 180, "ShadingState layout");
static_assert(offsetof(ShadingState, lobeFlags) == 184, "ShadingState layout");
static_assert(offsetof(ShadingState, reflectionAllowed) == 188, "ShadingState layout");
static_assert(offsetof(ShadingState, lightSamplePosition) == 192, "ShadingState layout");
static_assert(offsetof(ShadingState, lightAxis) == 204, "ShadingState layout");
static_assert(offsetof(ShadingState, lightDirection) == 216, "ShadingState layout");
static_assert(offsetof(ShadingState, lightDistance) == 228, "ShadingState layout");
static_assert(offsetof(ShadingState, lightColor) == 232, "ShadingState layout");
static_assert(offsetof(ShadingState, lightShadow) == 244, "ShadingState layout");
static_assert(offsetof(ShadingState, hitDiscarded) == 256, "ShadingState layout");
static_assert(offsetof(ShadingState, varyings) == 264, "ShadingState layout");

}  // namespace kvi
