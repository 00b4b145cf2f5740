// The Noise node: a band-limited multi-level solid noise over the host's
// noise4D basis, blending two colours. The footprint of the shading sample
// caps the number of octaves, so that no level finer than a sample is summed
// (which also bounds the work of a call whatever "levels" says).
#include <cmath>

#include "materials/ward/nodes.h"

namespace kvi::ward {
namespace {

// ln 2 as the divisor is stored: slightly above it. Kept as it stands.
constexpr float kLevelDivisor = 0.69314778f;
// The footprint floor 1e-5 allows log2(1e5), under 17 octaves; the loop is
// bounded besides, for levels handed in directly.
constexpr int kMaxOctaves = 32;

// The turbulence softening the variants use: the crease of |noise| becomes
// a rounded valley of this half-width.
constexpr float kNodeTurbulence = 0.1256065f;
// Mean value of the regular and fractal noise values ((v + 1) / 2 of an odd
// basis), and of one softened turbulence octave of a gradient-noise basis.
constexpr float kMeanNoiseValue = 0.5f;
constexpr float kMeanTurbulenceValue = 0.12f;

float basis(IShadingContext* context, const float q[3], float scale, float phase) {
  const float p[4] = {q[0] * scale, q[1] * scale, q[2] * scale, phase};
  return context->noise4D(p);
}

// One turbulence octave: |b| with its crease rounded over the turbulence
// value (sqrt(b^2 + tau^2) - tau); exactly |b| when tau is not positive.
float turbulenceTerm(float b, float tau) { return tau > 0.0f ? std::sqrt(b * b + tau * tau) - tau : std::fabs(b); }

// The fractal (absolute = false) or turbulence sum over m >= 1 octaves, the
// last one fractional.
float octaveSum(IShadingContext* context, const float q[3], float m, const NoiseSettings& s, bool absolute) {
  float f = 1.0f, v = 0.0f;
  for (int octave = 0; m >= 1.0f && octave < kMaxOctaves; ++octave) {
    const float b = basis(context, q, f, s.phase);
    v += (absolute ? turbulenceTerm(b, s.turbulence) : b) / f;
    m -= 1.0f;
    f *= 2.0f;
  }
  if (m > 0.0f && m < 1.0f) {
    const float b = basis(context, q, f, s.phase);
    v += (absolute ? turbulenceTerm(b, s.turbulence) : b) * m / f;
  }
  return v;
}

}  // namespace

// As it stands, the low ramp multiplies the smoothstep by (v - low) / (high -
// low), which is negative just below "low", and the high ramp overshoots 1
// just below "high"; the dips are small (a few hundredths at most) and kept.
float thresholdRemap(float v, float low, float high, float blur) {
  if (v < low - blur) return 0.0f;
  if (v > high + blur) return 1.0f;
  if (v < low + blur) {
    const float s = (v - (low - blur)) / (2.0f * blur);
    return (3.0f - 2.0f * s) * s * s * (v - low) / (high - low);
  }
  if (v >= high - blur) {
    const float s = (v - (high - blur)) / (2.0f * blur);
    const float k = (3.0f - 2.0f * s) * s * s;
    return (v - low) * (1.0f - k) / (high - low) + k;
  }
  return (v - low) / (high - low);
}

float noiseValue(IShadingContext* context, const float q[3], float levels, float blur, const NoiseSettings& s) {
  if (levels < -3.0f) return s.average;
  const float m = levels > 1.0f ? levels : 1.0f;
  float v;
  switch (s.type) {
    case 0:
      v = (basis(context, q, 1.0f, s.phase) + 1.0f) * 0.5f;
      break;
    case 1:
      v = (octaveSum(context, q, m, s, false) + 1.0f) * 0.5f;
      break;
    case 2:
      v = octaveSum(context, q, m, s, true);
      break;
    default:
      v = 0.0f;
      break;
  }
  if (s.thresholdHigh > s.thresholdLow) v = thresholdRemap(v, s.thresholdLow, s.thresholdHigh, blur);
  if (levels < 1.0f) {
    // Between -3 and 1 level the noise fades in from the average.
    const float a = (levels + 4.0f - 1.0f) * 0.25f;
    return (1.0f - a) * s.average + a * v;
  }
  return v;
}

float noiseBlend(IShadingContext* context, const float p[3], const NoiseSettings& s, const float filter[3]) {
  const float size = s.size > 1e-5f ? s.size : 1e-5f;  // 0, negative and NaN sizes count as 1e-5
  const float q[3] = {p[0] / size, p[1] / size, p[2] / size};
  float w = (std::fabs(filter[0]) + std::fabs(filter[1]) + std::fabs(filter[2])) / 3.0f / size;
  w = w > 1e-5f ? w : 1e-5f;
  const float footprintLevels = std::log(1.0f / w) / kLevelDivisor;
  const float levels = s.levels < footprintLevels ? s.levels : footprintLevels;  // a NaN "levels" gives the cap
  const float blur = std::fmin(w * 0.2f, 0.4f);
  return noiseValue(context, q, levels, blur, s);
}

NodeColor noiseColor(IShadingContext* context, const float p[3], const NoiseSettings& s, const float filter[3],
                     const NodeColor& color1, const NodeColor& color2) {
  const float t = noiseBlend(context, p, s, filter);
  NodeColor out;
  for (int i = 0; i < 4; ++i) out.c[i] = color1.c[i] * (1.0f - t) + color2.c[i] * t;
  return out;
}

void transformPoint(float out[3], const float p[3], const float (&m)[16]) {
  for (int j = 0; j < 3; ++j) out[j] = p[0] * m[j] + p[1] * m[4 + j] + p[2] * m[8 + j] + m[12 + j];
}

void placedFootprint(float out[3], const float (&m)[16]) {
  for (int j = 0; j < 3; ++j) out[j] = kWorldFootprint * (std::fabs(m[j]) + std::fabs(m[4 + j]) + std::fabs(m[8 + j]));
}

float meanNoiseValue(int32_t type) {
  return type == 2 ? kMeanTurbulenceValue : type == 0 || type == 1 ? kMeanNoiseValue : 0.0f;
}

NoiseSettings nodeNoiseSettings(const NoiseParameters& node) {
  NoiseSettings s{node.size,         node.levels,        0.0f,           node.type, node.phase,
                  node.thresholdLow, node.thresholdHigh, kNodeTurbulence};
  const float mean = meanNoiseValue(node.type);
  // The average is the type's mean value through the thresholds (without blur).
  s.average = mean;
  if (s.thresholdHigh > s.thresholdLow) {
    const float t = (mean - s.thresholdLow) / (s.thresholdHigh - s.thresholdLow);
    s.average = t > 0.0f ? (t < 1.0f ? t : 1.0f) : 0.0f;
  }
  return s;
}

NodeColor noiseNode(const NodeHit& hit, const NoiseParameters& node, const NodeColor& color1, const NodeColor& color2) {
  float p[3], footprint[3];
  transformPoint(p, hit.position, node.xform);
  placedFootprint(footprint, node.xform);
  return noiseColor(hit.context, p, nodeNoiseSettings(node), footprint, color1, color2);
}

}  // namespace kvi::ward
