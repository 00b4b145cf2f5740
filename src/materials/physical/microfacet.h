// Microfacet routines any material of the physically based family may use:
// the GGX distribution with height-correlated Smith masking and shadowing,
// the sampling of its visible normals, the exact Fresnel reflectance of a
// boundary between two dielectrics, reflection and refraction about a
// microfacet normal, and the value and density of a GGX reflection or
// transmission lobe. Every direction is a unit vector in the local shading
// frame (z along the normal) pointing away from the surface; single
// precision, no state.
#pragma once

#include <cmath>

#include "materials/physical/lobes.h"

namespace kvi::microfacet {

struct Vector {
  float x, y, z;
};

inline Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vector operator-(Vector a) { return {-a.x, -a.y, -a.z}; }
inline Vector operator*(Vector a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline float dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The unit vector along v; a zero or non-finite length leaves v as it is.
inline Vector normalized(Vector v) {
  const float length = std::sqrt(dot(v, v));
  return length > 0.0f && length < INFINITY ? v * (1.0f / length) : v;
}

constexpr float kPi = physical::kPi;

// GGX widths below this are a perfect mirror or a perfect refraction: the
// materials take their delta branch instead of a lobe too narrow to sample.
constexpr float kSmoothAlpha = 1e-3f;

// The GGX width of a roughness in [0, 1]: its square, so that roughness is
// perceptually even. NaN and values not above 0 give 0, values above 1 give 1.
inline float alphaFromRoughness(float roughness) {
  if (!(roughness > 0.0f)) return 0.0f;
  const float r = roughness < 1.0f ? roughness : 1.0f;
  return r * r;
}

// A relative index of refraction fit for the Fresnel equations: NaN, 0 and
// negative values are 1 (no boundary); the rest is clamped to [0.01, 100],
// beyond which a boundary is already a mirror to single precision.
inline float relativeIndex(float ior) {
  if (!(ior > 0.0f)) return 1.0f;
  return std::fmin(std::fmax(ior, 0.01f), 100.0f);
}

// D(m): the density of microfacet normals per unit of projected area; 0 below
// the surface.
inline float ggxDistribution(Vector m, float alpha) {
  if (!(m.z > 0.0f)) return 0.0f;
  const float a2 = alpha * alpha;
  const float cos2 = m.z * m.z;
  const float t = cos2 * (a2 - 1.0f) + 1.0f;
  return t > 0.0f ? a2 / (kPi * t * t) : 0.0f;  // a width of 0 is a delta: no density
}

// Smith's Lambda of GGX for a direction v; infinite at the horizon.
inline float ggxLambda(Vector v, float alpha) {
  const float cos2 = v.z * v.z;
  if (!(cos2 > 0.0f)) return INFINITY;
  const float sin2 = v.x * v.x + v.y * v.y;
  return 0.5f * (std::sqrt(1.0f + alpha * alpha * sin2 / cos2) - 1.0f);
}

// A microfacet normal drawn from the normals visible from v (v.z > 0), with
// the density G1(v) max(0, v.m) D(m) / v.z (G1 = 1 / (1 + Lambda(v))), from
// two uniform numbers in [0, 1).
inline Vector sampleGgxVisibleNormal(Vector v, float alpha, float u1, float u2) {
  // The view stretched to the configuration of a unit-width distribution, in
  // which the visible normals are a projected hemisphere.
  const Vector stretched = normalized(Vector{alpha * v.x, alpha * v.y, v.z});
  const float lengthSquared = stretched.x * stretched.x + stretched.y * stretched.y;
  const Vector t1 = lengthSquared > 0.0f
                        ? Vector{-stretched.y, stretched.x, 0.0f} * (1.0f / std::sqrt(lengthSquared))
                        : Vector{1.0f, 0.0f, 0.0f};
  const Vector t2{stretched.y * t1.z - stretched.z * t1.y, stretched.z * t1.x - stretched.x * t1.z,
                  stretched.x * t1.y - stretched.y * t1.x};
  const float r = std::sqrt(u1);
  const float phi = 2.0f * kPi * u2;
  const float p1 = r * std::cos(phi);
  const float s = 0.5f * (1.0f + stretched.z);
  const float p2 = (1.0f - s) * std::sqrt(std::fmax(0.0f, 1.0f - p1 * p1)) + s * r * std::sin(phi);
  const float p3 = std::sqrt(std::fmax(0.0f, 1.0f - p1 * p1 - p2 * p2));
  const Vector h = t1 * p1 + t2 * p2 + stretched * p3;
  return normalized(Vector{alpha * h.x, alpha * h.y, std::fmax(0.0f, h.z)});
}

// Fresnel reflectance of unpolarised light meeting the boundary at the given
// cosine (its sign is ignored) from the side of index 1 into the side of
// index eta (a relative index). 1 beyond the critical angle (total internal
// reflection); ((eta - 1) / (eta + 1))^2 head on.
inline float dielectricFresnel(float cosine, float eta) {
  float c = std::fabs(cosine);
  c = c < 1.0f ? c : 1.0f;
  const float sin2Transmitted = (1.0f - c * c) / (eta * eta);
  if (!(sin2Transmitted < 1.0f)) return 1.0f;
  const float cosTransmitted = std::sqrt(1.0f - sin2Transmitted);
  const float s = (c - eta * cosTransmitted) / (c + eta * cosTransmitted);
  const float p = (eta * c - cosTransmitted) / (eta * c + cosTransmitted);
  return 0.5f * (s * s + p * p);
}

// v mirrored about the unit normal m.
inline Vector reflectDirection(Vector v, Vector m) { return m * (2.0f * dot(v, m)) - v; }

// v refracted through a boundary with normal m (v.m > 0) into the side of
// relative index eta (Snell: sin t = sin v / eta); false, and `out` left
// alone, under total internal reflection.
inline bool refractDirection(Vector v, Vector m, float eta, Vector& out) {
  const float c = dot(v, m);
  const float sin2Transmitted = (1.0f - c * c) / (eta * eta);
  if (!(sin2Transmitted < 1.0f)) return false;
  const float cosTransmitted = std::sqrt(1.0f - sin2Transmitted);
  out = m * (c / eta - cosTransmitted) - v * (1.0f / eta);
  return true;
}

// One direction of a lobe: the BSDF times |cos i| (without the Fresnel
// factor, which the material applies with the half vector's cosine), the
// density of i when the lobe's normals are drawn by sampleGgxVisibleNormal
// (before the material's choice between reflection and refraction), and the
// half vector (z >= 0).
struct LobeValue {
  float value = 0.0f;
  float density = 0.0f;
  Vector half{0.0f, 0.0f, 1.0f};
  bool valid() const { return density > 0.0f; }
};

// The value and density of a lobe at i whose half vector h (in `lobe`) maps
// to i with the Jacobian |d omega_h / d omega_i|: the value
// D G2 |o.h| J / cos o, the density of the visible normals times J,
// G1 |o.h| D J / cos o (one Lambda of o serves both).
inline void weighLobe(Vector o, Vector i, float alpha, float oh, float jacobian, LobeValue& lobe) {
  const float common = ggxDistribution(lobe.half, alpha) * oh * jacobian / o.z;
  const float lambdaO = ggxLambda(o, alpha);
  lobe.value = common / (1.0f + lambdaO + ggxLambda(i, alpha));
  lobe.density = common / (1.0f + lambdaO);
}

// GGX reflection from o to i, both above the surface.
inline LobeValue ggxReflection(Vector o, Vector i, float alpha) {
  LobeValue lobe;
  if (!(o.z > 0.0f) || !(i.z > 0.0f)) return lobe;
  lobe.half = normalized(o + i);
  const float oh = dot(o, lobe.half);
  if (!(oh > 0.0f)) return lobe;
  weighLobe(o, i, alpha, oh, 1.0f / (4.0f * oh), lobe);
  return lobe;
}

// GGX transmission from o (above, in the medium of index 1) to i (below, in
// the medium of relative index eta), for the flow of energy: a refraction
// weighs (1 - F), without the change of radiance by eta^2 across the
// boundary, so value / |cos i| with o and i swapped (the indices then seen
// from i) is value / |cos i| / eta^2. eta must not be 1 (the half vector of a
// refraction without bending is undefined).
inline LobeValue ggxTransmission(Vector o, Vector i, float alpha, float eta) {
  LobeValue lobe;
  if (!(o.z > 0.0f) || !(i.z < 0.0f)) return lobe;
  Vector h = normalized(o + i * eta);
  if (h.z < 0.0f) h = -h;
  lobe.half = h;
  const float oh = dot(o, h), ih = dot(i, h);
  if (!(oh > 0.0f) || !(ih < 0.0f)) return lobe;
  const float denominator = oh + eta * ih;
  const float jacobian = eta * eta * -ih / (denominator * denominator);
  if (!(jacobian < INFINITY)) return lobe;
  weighLobe(o, i, alpha, oh, jacobian, lobe);
  return lobe;
}

}  // namespace kvi::microfacet
