// The built-in procedural bumps of the Ward family ("u_procedureMapEnable").
// Each works on the world position X scaled per axis by the tiling and gives
// a perturbation p of the normal in the frame; "u_procedureMapAmount"
// scales it. Most are height fields h: p = -amount x (dh/dT, dh/dB, 0), the
// derivatives taken by forward differences of kStep along the frame's
// tangent and bitangent (true bump mapping: the normal leans away from the
// slope).
//
//   1 noise: one regular noise octave through the thresholds -0.6 and 0.5:
//     rounded dents rising to flat plateaus.
//   2 ripples: rings on the contours of a broad noise (the point scaled by
//     0.285714): x = 1.2 fract(4 v) runs through the bands of a trapezoid
//     profile (5x up to 0.2, 1 up to 1.0, 6 - 5x down to 1.2), faded in with
//     the noise value by (v - 0.3) / 0.7, slopes times 2.555556; plus, where a
//     smoke map is bound, its relief: the one-row table looked up at
//     0.0005 (X.x + X.y + X.z) and at offsets 0.1 along the three frame axes,
//     the differences times 10 give a normal that is blended into the
//     incoming one by 0.9 - the ripples' fade (the ripples win where they
//     stand).
//   3 broad waves: the tiling scaled by 0.02; two noise values tilt the
//     normal directly (no differences): slow undulation over tens of units.
//   5, 6, 7 regular, fractal and turbulent noise relief: the height is the
//     Noise node's colour between the grey levels 0.901961 and 0.135294
//     (four levels, unit size).
//   4 and every other value add nothing.
#include <cmath>

#include "materials/ward/ward_surface.h"

namespace kvi::ward {
namespace {

constexpr float kStep = 0.01f;  // world units

constexpr float kNoiseBumpLow = -0.6f, kNoiseBumpHigh = 0.5f, kNoiseBumpBlur = 0.05f;

constexpr float kRippleScale = 0.285714f;
constexpr float kRippleGain = 2.555556f;
constexpr float kRippleRings = 4.0f;
constexpr float kSmokeScale = 0.0005f, kSmokeOffset = 0.1f, kSmokeGain = 10.0f, kSmokeBlend = 0.9f;

constexpr float kWaveScale = 0.02f;

constexpr float kReliefHigh = 0.901961f, kReliefLow = 0.135294f;
constexpr float kReliefLevels = 4.0f;
constexpr float kReliefTurbulence = 0.1256065f;

// The point moved by `step` along a world direction, then tiled.
void tiledPoint(const float position[3], const float direction[3], float step, const float tiling[3], float x[3]) {
  for (int i = 0; i < 3; ++i) x[i] = (position[i] + step * direction[i]) * tiling[i];
}

// -amount x the gradient of h along the frame's tangent and bitangent.
template <class Height>
void heightSlope(const Height& h, const float position[3], const float frame[9], const float tiling[3], float amount,
                 float p[3]) {
  const float none[3] = {0.0f, 0.0f, 0.0f};
  float x[3];
  tiledPoint(position, none, 0.0f, tiling, x);
  const float h0 = h(x);
  tiledPoint(position, frame, kStep, tiling, x);
  const float hT = h(x);
  tiledPoint(position, frame + 3, kStep, tiling, x);
  const float hB = h(x);
  p[0] = -amount * (hT - h0) / kStep;
  p[1] = -amount * (hB - h0) / kStep;
  p[2] = 0.0f;
}

// The trapezoid profile of a ripple ring over x in [0, 1.2].
float rippleBand(float x) {
  if (x < 0.0f) return 0.0f;
  if (x < 0.2f) return 5.0f * x;
  if (x < 1.0f) return 1.0f;
  if (x < 1.2f) return 6.0f - 5.0f * x;
  return 0.0f;
}

float rippleNoise(IShadingContext* context, const float x[3]) {
  const float y[3] = {x[0] * kRippleScale, x[1] * kRippleScale, x[2] * kRippleScale};
  NoiseSettings s{1.0f, 1.0f, 0.5f, 0, 0.0f, 0.0f, 0.0f, 0.0f};
  return noiseValue(context, y, 1.0f, 0.0f, s);
}

float rippleFade(float v) { return clampUnit((v - 0.3f) / 0.7f); }

float smokeAt(const ClippingMapRef& map, const float x[3]) {
  float texel[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  map.sampler->lookup(texel, kSmokeScale * (x[0] + x[1] + x[2]));
  return texel[0];
}

void ripples(IShadingContext* context, const ProceduralBump& bump, const float position[3], const float frame[9],
             float p[3]) {
  auto height = [&](const float x[3]) {
    const float v = rippleNoise(context, x);
    const float ring = kRippleRings * v;
    return rippleBand(1.2f * (ring - std::floor(ring))) * rippleFade(v);
  };
  heightSlope(height, position, frame, bump.tiling, bump.amount * kRippleGain, p);
  if (!bump.smokeMap->sampler) return;
  const float none[3] = {0.0f, 0.0f, 0.0f};
  float x[3];
  tiledPoint(position, none, 0.0f, bump.tiling, x);
  const float s0 = smokeAt(*bump.smokeMap, x);
  const float weight = kSmokeBlend - rippleFade(rippleNoise(context, x));
  float g[3];
  for (int axis = 0; axis < 3; ++axis) {
    tiledPoint(position, frame + 3 * axis, kSmokeOffset, bump.tiling, x);
    g[axis] = (smokeAt(*bump.smokeMap, x) - s0) * kSmokeGain;
  }
  g[2] -= 1.0f;  // towards the smoke normal from the incoming one, (0, 0, 1)
  for (int i = 0; i < 3; ++i) p[i] += bump.amount * weight * g[i];
}

void broadWaves(IShadingContext* context, const ProceduralBump& bump, const float position[3], float p[3]) {
  const float q0[4] = {position[0] * bump.tiling[0] * kWaveScale, position[1] * bump.tiling[1] * kWaveScale,
                       position[2] * bump.tiling[2] * kWaveScale, 0.0f};
  const float q1[4] = {q0[0], q0[1], q0[2], 0.5f};
  p[0] = bump.amount * context->noise4D(q0);
  p[1] = bump.amount * context->noise4D(q1);
  p[2] = 0.0f;
}

void noiseRelief(IShadingContext* context, const ProceduralBump& bump, int32_t type, const float position[3],
                 const float frame[9], float p[3]) {
  const NoiseSettings s{1.0f, kReliefLevels, meanNoiseValue(type), type, 0.0f, 0.0f, 1.0f, kReliefTurbulence};
  float filter[3];
  for (int i = 0; i < 3; ++i) filter[i] = kWorldFootprint * bump.tiling[i];
  const NodeColor high{{kReliefHigh, kReliefHigh, kReliefHigh, 1.0f}}, low{{kReliefLow, kReliefLow, kReliefLow, 1.0f}};
  auto height = [&](const float x[3]) { return noiseColor(context, x, s, filter, high, low).c[0]; };
  heightSlope(height, position, frame, bump.tiling, bump.amount, p);
}

}  // namespace

bool proceduralBump(IShadingContext* context, const ProceduralBump& bump, const float position[3], const float frame[9],
                    float p[3]) {
  if (bump.amount == 0.0f) return false;
  switch (bump.mode) {
    case 1: {
      const NoiseSettings s{1.0f, 1.0f, 0.5f, 0, 0.0f, kNoiseBumpLow, kNoiseBumpHigh, 0.0f};
      auto height = [&](const float x[3]) { return noiseValue(context, x, 1.0f, kNoiseBumpBlur, s); };
      heightSlope(height, position, frame, bump.tiling, bump.amount, p);
      return true;
    }
    case 2:
      ripples(context, bump, position, frame, p);
      return true;
    case 3:
      broadWaves(context, bump, position, p);
      return true;
    case 5:
    case 6:
    case 7:
      noiseRelief(context, bump, bump.mode - 5, position, frame, p);
      return true;
    default:
      return false;
  }
}

}  // namespace kvi::ward
