// The shared lobes and curves of the physically based materials and of the
// Ward family: the glossiness-to-width curve, the anisotropic Gaussian
// half-vector lobe and its importance sampler, the cosine-weighted hemisphere,
// and the hexcone HSL pair.
#pragma once

#include <cmath>

#include "frame/constants.h"
#include "kvi/context.h"

namespace kvi::physical {

// Pi as this family stores it; 2 pi and 1 / pi as the basic materials do.
inline constexpr float kPi = 3.141593f;
using ::kvi::kInvPi;
using ::kvi::kTwoPi;

// Glossiness-like x (clamped to [0, 1], NaN as 0) to a lobe width:
// 0.0463 x^4 - 2.4278 x^3 + 5.3416 x^2 - 3.9282 x + 1, which falls from 1 at
// x = 0 to 0.0319 at x = 1. The coefficients are kept as they stand.
inline float reflectanceCurve(float x) {
  const float c = x > 0.0f ? (x < 1.0f ? x : 1.0f) : 0.0f;
  const float c2 = c * c, c3 = c2 * c, c4 = c3 * c;
  return 0.0463f * c4 - 2.4278f * c3 + 5.3416f * c2 - 3.9282f * c + 1.0f;
}

// Reflectivity at the cosine mu between the view and the normal, from f0
// head on to f90 at grazing: (1 - clamp01(mu))^power (f90 - f0) + f0, the
// power with powf.
inline float angularReflectivity(float mu, float f0, float f90, float power) {
  const float c = mu > 0.0f ? (mu < 1.0f ? mu : 1.0f) : 0.0f;
  return std::pow(1.0f - c, power) * (f90 - f0) + f0;
}

// A width of the curve as the lobe samplers use it: below 0.1 it is mapped
// by (w - 0.0319) x 1.468429, which takes the curve's floor 0.0319 to 0 and
// keeps 0.1, so that a glossiness of 1 samples a perfect mirror.
inline float samplingWidth(float w) { return w < 0.1f ? (w - 0.0319f) * 1.468429f : w; }

// The anisotropic Gaussian lobe of the half vector h (in the frame, not
// necessarily of unit length) about the centre o with widths ax, ay:
// 0 when h.z <= 0; 1 when a width is 0 (the shaping is switched off);
// otherwise, with d = h - o,
//   exp(-(dx^2/ax^2 + dy^2/ay^2) / dz^2) / (ax pi ay) x |d|^2 / dz^4,
// pi stored as 3.141593. With o = 0 and h = l + v, the unnormalised sum of
// the directions towards the light and the viewer, it is a reflection lobe of
// bounded albedo, and the lobe times h.z / 2 is the density of the directions
// sampleAnisotropicLobe draws.
inline float anisotropicHalfVectorLobe(const float o[3], const float h[3], float ax, float ay) {
  if (h[2] <= 0.0f) return 0.0f;
  if (ax == 0.0f || ay == 0.0f) return 1.0f;
  const float dx = h[0] - o[0], dy = h[1] - o[1], dz = h[2] - o[2];
  const float dx2 = dx * dx, dy2 = dy * dy, dz2 = dz * dz;
  const float exponent = -(dx2 / (ax * ax) + dy2 / (ay * ay)) / dz2;
  // expf is 0 far below -103.97 anyway; its slow underflow path is skipped.
  const float e = exponent < -104.0f ? 0.0f : std::exp(exponent);
  return e * (1.0f / (ax * kPi * ay)) * (dx2 + dy2 + dz2) / (dz2 * dz2);
}

// A cosine-distributed direction about the frame's z axis from the context's
// next 2D sample (xi1, xi2): phi = 6.283186 xi1, radius sqrt(xi2), height
// sqrt(1 - xi2) but never below 0.01745241 (cos 89 degrees), not
// renormalised after that floor. Returns the value of the pdf slot, 1.0.
float sampleCosineHemisphere(IShadingContext* context, float local[3]);

// One direction drawn from the anisotropic lobe.
struct LobeSample {
  float local[3];       // the direction in the frame (unit)
  float direction[3];   // the same in world space, through the frame
  float halfVector[3];  // local + v, v the direction towards the viewer (not normalised)
  float weight;         // lobe x cosine / pdf: 2 l.z / (l.z + v.z)
  float pdf;            // density per solid angle: lobe(0, halfVector) x halfVector.z / 2
};

// Importance sampling of anisotropicHalfVectorLobe (centre 0) with widths
// wx, wy: the slope of the half vector is drawn from the lobe's Gaussian
// (s = (wx cos phi, wy sin phi) sqrt(-ln(1 - xi1)), phi = 2 pi xi2), the
// viewer's direction is reflected about the unit half vector (s, 1), and the
// result is carried into world space through the frame. `view` is the
// incoming ray direction in the frame (pointing at the surface). Returns
// false, leaving `out` undefined, when no direction above the surface comes
// out: the viewer below the surface, a half vector facing away from it, or a
// reflection below the surface (or any of them undefined).
bool sampleAnisotropicLobe(const float xi[2], const float view[3], float wx, float wy, const float frame[9],
                           LobeSample& out);
// The same with the 2D sample drawn from the context (nextSample2D).
bool sampleAnisotropicLobe(IShadingContext* context, const float view[3], float wx, float wy, const float frame[9],
                           LobeSample& out);

// Hexcone HSL of an RGB colour: (hue in [0, 1), saturation, lightness); a grey
// (or a lightness <= 0) gives (0, 0, red).
void rgbToHsl(const float rgb[3], float hsl[3]);
// Back from hexcone HSL; saturation 0 gives the grey of the lightness.
void hslToRgb(const float hsl[3], float rgb[3]);

}  // namespace kvi::physical
