#include "materials/physical/lobes.h"

#include <algorithm>

#include "frame/vector3.h"
#include "materials/physical/frames.h"

namespace kvi::physical {
namespace {

// One channel of hslToRgb: the hexcone ramp between m1 and m2 at hue x.
float hueRamp(float m1, float m2, float x) {
  if (x < 0.16666667f) return m1 + (m2 - m1) * 6.0f * x;
  if (x < 0.5f) return m2;
  if (x < 0.6666667f) return m1 + (m2 - m1) * (0.6666667f - x) * 6.0f;
  return m1;
}

}  // namespace

float sampleCosineHemisphere(IShadingContext* context, float local[3]) {
  float buffer[2];
  const float* xi = context->nextSample2D(buffer);
  const float phi = kTwoPi * xi[0];
  const float r = std::sqrt(xi[1]);
  float z = std::sqrt(1.0f - xi[1]);
  if (!(z > kMinDiffuseCosine)) z = kMinDiffuseCosine;
  local[0] = std::cos(phi) * r;
  local[1] = std::sin(phi) * r;
  local[2] = z;
  return 1.0f;
}

bool sampleAnisotropicLobe(const float xi[2], const float view[3], float wx, float wy, const float frame[9],
                           LobeSample& out) {
  const float v[3] = {-view[0], -view[1], -view[2]};
  if (!(v[2] > 0.0f)) return false;
  // The slope of the half vector, Gaussian with the lobe's widths.
  const float radius = std::sqrt(-std::log(1.0f - xi[0]));
  const float phi = kTwoPi * xi[1];
  // The half vector (slope, 1), not normalised: the reflection divides by
  // its squared length instead.
  const float h[3] = {wx * radius * std::cos(phi), wy * radius * std::sin(phi), 1.0f};
  const float vh = dot3(v, h);
  if (!(vh > 0.0f)) return false;
  const float scale = 2.0f * vh / dot3(h, h);
  float* l = out.local;
  for (int i = 0; i < 3; ++i) l[i] = scale * h[i] - v[i];
  if (!(l[2] > 0.0f)) return false;
  toWorld(frame, l, out.direction);
  for (int i = 0; i < 3; ++i) out.halfVector[i] = l[i] + v[i];
  const float origin[3] = {0.0f, 0.0f, 0.0f};
  out.pdf = anisotropicHalfVectorLobe(origin, out.halfVector, wx, wy) * out.halfVector[2] * 0.5f;
  out.weight = 2.0f * l[2] / (l[2] + v[2]);
  return true;
}

bool sampleAnisotropicLobe(IShadingContext* context, const float view[3], float wx, float wy, const float frame[9],
                           LobeSample& out) {
  float buffer[2];
  const float* xi = context->nextSample2D(buffer);
  return sampleAnisotropicLobe(xi, view, wx, wy, frame, out);
}

void rgbToHsl(const float rgb[3], float hsl[3]) {
  const float r = rgb[0], g = rgb[1], b = rgb[2];
  const float mx = std::max(std::max(r, g), b);
  const float mn = std::min(std::min(r, g), b);
  const float l = (mx + mn) / 2.0f;
  if (l <= 0.0f || mx == mn) {
    hsl[0] = 0.0f;
    hsl[1] = 0.0f;
    hsl[2] = r;  // the red input as the lightness, deliberately
    return;
  }
  const float delta = mx - mn;
  const float s = l <= 0.5f ? delta / (mx + mn) : delta / (2.0f - mx - mn);
  const float dr = (mx - r) / delta, dg = (mx - g) / delta, db = (mx - b) / delta;
  float h;
  if (r == mx)
    h = g == mn ? 5.0f + db : 1.0f - dg;
  else if (g == mx)
    h = b == mn ? 1.0f + dr : 3.0f - db;
  else
    h = r == mn ? 3.0f + dg : 5.0f - dr;
  hsl[0] = h / 6.0f;
  hsl[1] = s;
  hsl[2] = (mn + mx) / 2.0f;
}

void hslToRgb(const float hsl[3], float rgb[3]) {
  const float h = hsl[0], s = hsl[1], l = hsl[2];
  if (s == 0.0f) {
    rgb[0] = rgb[1] = rgb[2] = l;
    return;
  }
  const float m2 = l < 0.5f ? l * (1.0f + s) : l + s - l * s;
  const float m1 = 2.0f * l - m2;
  float red = h + 0.33333334f;
  if (red > 1.0f) red = red - 1.0f;
  float blue = h - 0.33333334f;
  if (blue < 0.0f) blue = blue + 1.0f;
  rgb[0] = hueRamp(m1, m2, red);
  rgb[1] = hueRamp(m1, m2, h);
  rgb[2] = hueRamp(m1, m2, blue);
}

}  // namespace kvi::physical
