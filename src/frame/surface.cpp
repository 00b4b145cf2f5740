#include "frame/surface.h"

#include <cmath>

#include "frame/vector3.h"

namespace kvi {
namespace {

// An infinite or absurd plane count must not turn the plane loop into a hang:
// no real table comes near this many planes, so reading at most this many
// changes nothing for a genuine map.
constexpr int32_t kMaxClippingPlanes = 65536;

// -1, 0 or +1; NaN stays NaN.
float signOf(float x) {
  if (x > 0.0f) return 1.0f;
  if (x < 0.0f) return -1.0f;
  return x == 0.0f ? 0.0f : x;
}

// The smaller value, the later one on a tie or when either is NaN.
float minLaterWins(float first, float later) { return first < later ? first : later; }

// 1 at and above a view cosine of 1/36, falling smoothly (6x^5 - 15x^4 + 10x^3
// of x = 36 c) to 0 at the horizon. The threshold is the stored 0.0277777
// (0x3CE38E0F), a little below 1/36, kept deliberately.
float horizonFade(float viewCosine) {
  const float c = viewCosine < 0.0f ? 0.0f : (viewCosine > 1.0f ? 1.0f : viewCosine);
  if (c >= 0.0277777f) return 1.0f;
  const float x = 36.0f * c;
  const float x3 = x * x * x;
  const float x4 = x3 * x;
  const float x5 = x4 * x;
  return 6.0f * x5 - 15.0f * x4 + 10.0f * x3;
}

// Shadowing and masking of the lobe, capped at 2.236; 0 below the horizon of
// the half vector.
float geometryTerm(const float view[3], const float half[3], const float outgoing[3]) {
  if (!(half[2] >= 0.0f)) return 0.0f;
  const float viewDotHalf = std::fabs(dot3(view, half));
  const float twoHz = 2.0f * std::fabs(half[2]);
  const float viewCosine = std::fabs(view[2]);
  const float g1 = twoHz / viewDotHalf;
  const float g2 = std::fabs(outgoing[2]) * twoHz / (viewDotHalf * viewCosine);
  const float g3 = 1.0f / viewCosine;
  const float g = minLaterWins(minLaterWins(g1, g2), g3);
  if (!(g > 0.0f)) return 0.0f;
  return minLaterWins(g, 2.236f);
}

// Beckmann-style distribution of half vectors, roughness floored at 0.0225.
// The stored 3.141593 stands for pi.
float distributionTerm(float halfZ, float roughness) {
  if (!(halfZ > 0.0f)) return 0.0f;
  const float m = 0.0225f < roughness ? roughness : 0.0225f;
  const float m2 = m * m;
  const float hz2 = halfZ * halfZ;
  const float tan2 = (1.0f - hz2) / hz2;
  return std::exp(-tan2 / m2) / (hz2 * hz2 * m2 * 3.141593f);
}

}  // namespace

bool clippingMapKeeps(const ClippingMapRef& map, const float position[3]) {
  if (!map.sampler) return true;
  // The count texel is read at exactly 0 while plane i is read at the centre
  // (i + 0.5) / (N + 1) of its texel: the asymmetry is deliberate, the host
  // filters the N + 1 texels its own way.
  float texel[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  map.sampler->lookup(texel, 0.0f);
  const float count = texel[0];
  if (!(count >= 1.0f)) return true;
  const float texels = count + 1.0f;
  const int32_t planes = count < float(kMaxClippingPlanes) ? int32_t(count) : kMaxClippingPlanes;
  for (int32_t i = 1; i <= planes; ++i) {
    float plane[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    map.sampler->lookup(plane, (float(i) + 0.5f) / texels);
    if (plane[0] * position[0] + plane[1] * position[1] + plane[2] * position[2] <= -plane[3]) return false;
  }
  return true;
}

bool uvOutsideUnitSquare(float u, float v, const float m[16]) {
  // The row vector is (u, v, 0, 1); the zero third component is multiplied
  // as written so a non-finite m8 or m9 still reaches the result.
  const float x = u * m[0] + v * m[4] + 0.0f * m[8] + m[12];
  const float y = u * m[1] + v * m[5] + 0.0f * m[9] + m[13];
  const bool inside = x >= 0.0f && x <= 1.0f && y >= 0.0f && y <= 1.0f;
  return !inside;
}

bool overrideLobeChoice(IShadingContext* context, float a, float& p, float b, uint8_t frontFacing) {
  constexpr float kThreshold = 0.00390625f;  // 1/256
  bool decided = false;
  // The ray kind is asked afresh for every comparison; a host answers the
  // same within one call, so only the number of questions depends on it.
  if ((context->getRayKind() == 2 && b > kThreshold) || (!context->isDiffuseSampled() && b < kThreshold)) {
    p = 1.0f;
    decided = true;
  }
  if (context->getRayKind() == 3 || context->getRayKind() == 1) {
    p = 0.0f;
    decided = true;
  }
  if ((context->getRayKind() == 2 || context->getRayKind() == 1) && !context->isRayFlagSet(1)) {
    p = (a > b && frontFacing) ? 1.0f : 0.0f;
  }
  return decided;
}

float glossyReflectionLobe(const float incoming[3], const float outgoing[3], float roughness) {
  const float outgoingSide = signOf(outgoing[2]);
  const float viewSide = signOf(-incoming[2]);
  // Different sides of the surface (or a NaN direction): nothing reflected.
  if (!(outgoingSide == viewSide)) return 0.0f;

  const float view[3] = {-incoming[0], -incoming[1], -incoming[2]};
  float half[3] = {(outgoing[0] + view[0]) * viewSide, (outgoing[1] + view[1]) * viewSide,
                   (outgoing[2] + view[2]) * viewSide};
  normalizeIfNonZero(half);

  const float fade = horizonFade(view[2]);
  const float geometry = geometryTerm(view, half, outgoing);
  const float distribution = distributionTerm(half[2], roughness);
  return geometry * fade * distribution * 0.25f;
}

}  // namespace kvi
