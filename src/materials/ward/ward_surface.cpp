#include "materials/ward/ward_surface.h"

namespace kvi::ward {
namespace {

// Mode 4 of the image fade: the noise colour with these fixed settings.
constexpr float kFadePointScale = 0.2f;
constexpr NoiseSettings kFadeNoise{0.015f, 3.0f, 0.2160714f, 0, 0.0f, 0.0f, 1.0f, 0.1256065f};
constexpr float kFadeFilter[3] = {0.5f, 0.5f, 0.5f};
constexpr NodeColor kFadeDark{{0.58f, 0.58f, 0.58f, 0.58f}};
constexpr NodeColor kFadeLight{{0.65f, 0.65f, 0.65f, 0.65f}};

// The sign of x as -1, 0 or +1 (NaN as 0).
int signOf(float x) { return (x > 0.0f) - (x < 0.0f); }

}  // namespace

void fadeBlend(float d[3], const float g[3], float t) {
  for (int i = 0; i < 3; ++i) {
    const float overlay = d[i] < 0.5f ? 2.0f * d[i] * g[i] : 1.0f - 2.0f * (1.0f - d[i]) * (1.0f - g[i]);
    const float d1 = d[i] + (overlay - d[i]) * t;
    d[i] = d1 + (d1 * g[i] - d1) * t;
  }
}

void builtInNoiseFade(IShadingContext* context, const float position[3], float g[3]) {
  const float p[3] = {position[0] * kFadePointScale, position[1] * kFadePointScale, position[2] * kFadePointScale};
  const NodeColor c = noiseColor(context, p, kFadeNoise, kFadeFilter, kFadeDark, kFadeLight);
  copy3(g, c.c);
}

void wardLobe(const float i[3], const float o[3], const float cd[3], const float cs[3], float ax, float ay,
              float out[3]) {
  const float h[3] = {o[0] - i[0], o[1] - i[1], o[2] - i[2]};
  if (dot3(h, h) == 0.0f || std::fabs(h[2]) < 0.0001f || std::fabs(i[2]) < 0.0001f || !(o[2] > 0.0f) ||
      signOf(i[2]) == signOf(o[2])) {
    setAll3(out, 0.0f);
    return;
  }
  const float sx = h[0] / ax, sy = h[1] / ay;
  const float exponent = -(sx * sx + sy * sy) / (h[2] * h[2]);
  // Far below ln 1e-6 = -13.8 the exponential is not needed to know that it
  // is too small (and its underflow is slow).
  const float e = exponent > -20.0f ? std::exp(exponent) : 0.0f;
  if (!(e > 1e-6f)) {
    for (int c = 0; c < 3; ++c) out[c] = cd[c] * kWardInvPi;
    return;
  }
  const float k = 1.0f / (std::sqrt(-i[2] * o[2]) * (ax * kWardFourPi * ay));
  for (int c = 0; c < 3; ++c) out[c] = cd[c] * kWardInvPi + cs[c] * k * e;
}
}  // namespace kvi::ward
