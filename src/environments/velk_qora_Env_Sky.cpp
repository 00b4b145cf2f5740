// velk_qora_Env_Sky: the physically based daylight sky. A ray leaving the
// scene sees an analytic clear sky (Perez luminance and chromaticity
// distributions around the sun, turbidity-dependent zenith values), a glow
// around the sun, a ground blended in below a movable horizon, a saturation
// and red/blue shift control and a night-colour floor. A user sky map can
// replace the analytic sky, except near the sun and the horizon for rays
// that are not illumination rays.
//
// Directions are in a z-up frame: the ray direction is turned into it when
// "y_is_up" is set; "adj_sun_direction" is already in it and is used as
// given (not normalised).
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"

namespace kvi {

#define KVI_ENV_SKY_PARAMETERS(PARAM, VARYING)                                                                        \
  PARAM(Color4, ground_color, doc("ground tint", "0 to 1 per channel"), {0.2f, 0.2f, 0.2f, 1.0f})                     \
  PARAM(Float, haze, doc("haze; turbidity T = haze + 2 (at least 2)", "0 to 15"), 0.0f)                               \
  PARAM(Float, horizon_height,                                                                                        \
        doc("horizon shift, in tenths of the up component", "-10 to 10", "tenths of the up component"),               \
        0.0f)                                                                                                         \
  PARAM(Float, saturation, doc("colour saturation", "0 to 2"), 1.0f)                                                  \
  PARAM(Float, horizon_blur,                                                                                          \
        doc("width of the sky-to-ground blend, in tenths of the up component",                                        \
            "0 to 10",                                                                                                \
            "tenths of the up component"),                                                                            \
        0.1f)                                                                                                         \
  PARAM(Bool, y_is_up, doc("the scene's up axis is y (else z)"), true)                                                \
  PARAM(Bool, backgroundOn, doc("the sky is visible at all"), true)                                                   \
  PARAM(Bool, illuminationOn, doc("the sky answers illumination rays (kind 8)"), true)                                \
  PARAM(Float, multiplier, doc("overall intensity", "0 or more"), 1.0f)                                               \
  PARAM(Color4, rgb_unit_conversion,                                                                                  \
        doc("photometric to RGB scale (1/1500); a negative red gives 1.25e-5 for all",                                \
            "more than 0 per channel",                                                                                \
            "RGB per cd/m²"),                                                                                         \
        {0.000666667f, 0.000666667f, 0.000666667f, 1.0f})                                                             \
  PARAM(Float, sun_disk_scale, doc("size of the sun glow", "0 or more"), 1.0f)                                        \
  PARAM(Float, sun_disk_intensity, doc("gates the sun glow (must be above 0)", "0 or more"), 1.0f)                    \
  PARAM(Float, sun_glow_intensity, doc("weight of the glow", "0 or more"), 1.0f)                                      \
  PARAM(Float, redblueshift, doc("red up and blue down by this fraction", "-1 to 1"), 0.0f)                           \
  PARAM(Color4, night_color, doc("minimum sky colour", "0 or more per channel"), {0.2f, 0.2f, 0.2f, 1.0f})            \
  PARAM(Color4, sun_color, doc("tint of the sun's colour", "0 or more per channel"), {1.0f, 1.0f, 1.0f, 1.0f})        \
  PARAM(Float, sun_region,                                                                                            \
        doc("cosine of the angle around the sun where camera rays ignore the sky map", "-1 to 1", "cosine"),          \
        0.998919129f)                                                                                                 \
  PARAM(Float, horizon_region,                                                                                        \
        doc("half-height of the horizon band where camera rays ignore the sky map", "0 to 1", "up component"),        \
        0.008726646f)                                                                                                 \
  PARAM(Color3, adj_sun_direction,                                                                                    \
        doc("unit direction towards the sun, in the sky's z-up frame; used as given", "unit vector"),                 \
        unset)                                                                                                        \
  PARAM(Float, ground_factor, doc("scales the sky colour when below 1", "0 to 1"), 1.0f)                              \
  PARAM(Bool, use_sky_map, doc("show sky_map instead of the analytic sky"), false)                                    \
  PARAM(EnvironmentMap, sky_map, doc("the user sky map, sampled with the ray direction"), unbound)                    \
  PARAM(Bool, u_hasLightRepresentation, doc("a light stands for this background: illumination rays see black"), true)

namespace sky {
namespace {

constexpr int32_t kIlluminationRay = 8;
constexpr float kPi = 3.14159265f;
// The value of pi in the XYZ to RGB conversion and the air mass, as stored.
constexpr float kStoredPi = 3.141593f;

// 1 + a e^x. Rays at and below the horizon divide by a cosine floored at
// 0.001, which sends x far below -87: there e^x is subnormal or zero, slow to
// compute and to multiply, and for any a of sane size a e^x vanishes against
// 1, so the sum is exactly 1 and is answered directly.
float onePlusScaledExp(float a, float x) {
  if (x < -87.0f && std::fabs(a) < 1e10f) return 1.0f;
  return 1.0f + a * std::exp(x);
}

// The five coefficients of a Perez distribution, and its denominator: the
// distribution at the zenith, which depends on the sun alone.
struct Perez {
  float a, b, c, d, e;
  float zenith;

  // F(gamma, theta): 1 + c e^(d gamma) + e cos^2 gamma over 1 + a e^(b / cos theta).
  float distribution(float gamma, float cosGamma, float cosTheta) const {
    return (1.0f + c * std::exp(d * gamma) + e * (cosGamma * cosGamma)) * onePlusScaledExp(a, b / cosTheta);
  }
  void setZenith(float thetaSun, float cosThetaSun) {
    zenith = (1.0f + c * std::exp(d * thetaSun) + e * (cosThetaSun * cosThetaSun)) * (1.0f + a * std::exp(b));
  }
  float ratio(float gamma, float cosGamma, float cosTheta) const {
    return distribution(gamma, cosGamma, cosTheta) / zenith;
  }
};

// Everything that depends on the parameters alone, the sun and the turbidity
// above all.
struct Constants {
  float turbidity;
  float saturation;    // the effective saturation, haze-dependent below 1
  float unitScale[3];  // "rgb_unit_conversion" times "multiplier"
  float sunColor[3];
  float zenithLuminance;
  float zenithX;
  float zenithY;
  Perez luminance;
  Perez chromaX;
  Perez chromaY;
  float glowRadius;
  float diskFalloff;  // the disk term's denominator
};

float clamp01(float x) {
  if (x < 0.0f) x = 0.0f;
  if (x > 1.0f) x = 1.0f;
  return x;
}

float dot3(const float a[3], const float b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

float turbidityOf(float haze) {
  float t = haze + 2.0f;
  if (t < 2.0f) t = 2.0f;
  return t;
}

// Below 1 the saturation is drawn towards its cube as the haze grows.
float effectiveSaturation(float s, float turbidity) {
  if (!(s <= 1.0f)) return s;
  const float t = clamp01((turbidity - 2.0f) / 15.0f);
  const float t3 = t * t * t;
  return s * s * s * t3 + (1.0f - t3) * s;
}

Perez luminanceCoefficients(float t) {
  return {0.178721f * t - 1.463037f, -0.355402f * t + 0.427494f, -0.022669f * t + 5.325056f,
          0.120647f * t - 2.577052f, -0.066967f * t + 0.370275f, 0.0f};
}

Perez chromaXCoefficients(float t, float cosThetaSun) {
  return {-0.019257f * t - (0.29f - 0.09f * std::sqrt(cosThetaSun)), -0.066513f * t + 0.000818f,
          -0.000417f * t + 0.212479f, -0.064097f * t - 0.898875f, -0.003251f * t + 0.045178f, 0.0f};
}

Perez chromaYCoefficients(float t) {
  return {-0.016698f * t - 0.260787f, -0.094958f * t + 0.009213f, -0.007928f * t + 0.21023f,
          -0.04405f * t - 1.653694f, -0.010922f * t + 0.052919f, 0.0f};
}

// Zenith luminance. The factor 1000 applies to the tangent term only; this
// is the model's own scaling and is kept so. The angle term uses the float
// nearest to pi, not the stored 3.141593.
float zenithLuminance(float thetaSun, float t) {
  const float chi = (kPi - 2.0f * thetaSun) * (4.0f / 9.0f - t / 120.0f);
  return std::tan(chi) * ((4.0453f * t - 4.971f) * 1000.0f) - 0.2155f * t + 2.4192f;
}

float zenithChromaX(float th, float t) {
  const float th2 = th * th;
  const float th3 = th * th * th;
  return t * t * (0.00165f * th3 - 0.003742f * th2 + 0.002088f * th) +
         t * (-0.029028f * th3 + 0.063773f * th2 - 0.03202f * th + 0.003948f) +
         (0.116936f * th3 - 0.21196f * th2 + 0.060523f * th + 0.258852f);
}

float zenithChromaY(float th, float t) {
  const float th2 = th * th;
  const float th3 = th * th * th;
  return t * t * (0.002759f * th3 - 0.006105f * th2 + 0.003162f * th) +
         t * (-0.042149f * th3 + 0.089701f * th2 - 0.041536f * th + 0.005158f) +
         (0.153467f * th3 - 0.267568f * th2 + 0.066698f * th + 0.266881f);
}

// The sun's colour through the atmosphere: Rayleigh, aerosol and ozone
// extinction over the air mass of its elevation, tinted. None below the
// horizon.
void sunColorOf(float out[3], const float sun[3], float t, const float tint[4]) {
  const float cz = sun[2];
  if (cz <= 0.0f) {
    out[0] = out[1] = out[2] = 0.0f;
    return;
  }
  const float m = 1.0f / (cz + 0.15f * std::pow(93.885f - std::acos(cz) * 180.0f / kStoredPi, -1.253f));
  const float beta = 0.04608f * t - 0.04586f;
  constexpr float kWavelength[3] = {0.61f, 0.55f, 0.47f};
  constexpr float kOzone[3] = {12.0f, 8.5f, 0.9f};
  constexpr float kScale[3] = {129074.71f, 128042.12f, 117587.06f};
  for (int i = 0; i < 3; ++i) {
    const float rayleigh = std::exp(-0.008735f * m * std::pow(kWavelength[i], -4.08f));
    const float aerosol = std::exp(-m * beta * std::pow(kWavelength[i], -1.3f));
    const float ozone = std::exp(-m * kOzone[i] * 0.0035f);
    out[i] = kScale[i] * rayleigh * aerosol * ozone * tint[i];
  }
}

// The angle whose cosine is c, taken from an angle already known for the
// cosine `known` when c is that cosine (same argument, same result).
float angleOf(float c, float known, float knownAngle) { return c == known ? knownAngle : std::acos(c); }

// The analytic sky towards v (unit, z up), RGB. Returns the angle to the sun
// as the chromaticity sees it (cosine folded above 1).
float skyColor(float out[3], const Constants& k, const float v[3], float cosGamma) {
  // The luminance treats every direction more than 90 degrees from the sun
  // as 90 degrees away; the chromaticity only folds values above 1.
  float cosGammaY = cosGamma;
  if (cosGammaY > 1.0f) cosGammaY = 2.0f - cosGammaY;
  if (cosGammaY < 0.0f) cosGammaY = 0.0f;
  float cosGammaC = cosGamma;
  if (cosGammaC > 1.0f) cosGammaC = 2.0f - cosGammaC;
  const float gammaC = std::acos(cosGammaC);

  const float y = k.zenithLuminance * k.luminance.ratio(angleOf(cosGammaY, cosGammaC, gammaC), cosGammaY, v[2]);
  const float cx = k.chromaX.ratio(gammaC, cosGammaC, v[2]) * k.zenithX;
  const float cy = k.chromaY.ratio(gammaC, cosGammaC, v[2]) * k.zenithY;
  const float x = cx / cy * y;
  const float z = (1.0f - cx - cy) / cy * y;
  out[0] = (3.241f * x - 1.537f * y - 0.499f * z) * kStoredPi;
  out[1] = (-0.969f * x + 1.876f * y + 0.042f * z) * kStoredPi;
  out[2] = (0.056f * x - 0.204f * y + 1.057f * z) * kStoredPi;
  return gammaC;
}

// Saturation about the luminance, then the red/blue shift.
void saturateAndShift(float c[3], float sigma, float shift) {
  const float luminance = 0.71516f * c[1] + 0.212671f * c[0] + 0.072169f * c[2];
  for (int i = 0; i < 3; ++i)
    if (c[i] < 0.0f) c[i] = 0.0f;
  if (sigma <= 0.0f) {
    c[0] = c[1] = c[2] = luminance;
  } else {
    for (int i = 0; i < 3; ++i) c[i] = c[i] * sigma + (1.0f - sigma) * luminance;
    if (sigma > 1.0f)
      for (int i = 0; i < 3; ++i)
        if (c[i] < 0.0f) c[i] = 0.0f;
  }
  c[0] = c[0] * (1.0f + shift);
  c[2] = c[2] * (1.0f - shift);
}

}  // namespace
}  // namespace sky

class velk_qora_Env_Sky final : public ShaderImpl<EnvironmentShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Env_Sky, kOpEnvironmentShade, KVI_ENV_SKY_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float* result = state->surfaceResult;
    if (!backgroundOn || 0.0f >= multiplier) return writeColor(result, 0.0f, 0.0f, 0.0f, 0.0f);
    // The ray's kind does not change during the call: asked once.
    const int32_t illumination = context->isRayKind(sky::kIlluminationRay);
    if (illumination >= 1 && !illuminationOn) return writeColor(result, 0.0f, 0.0f, 0.0f, 0.0f);

    float v[3];
    const float upRaw = viewDirection(v, state->rayDirection);
    const float cosGamma = sky::dot3(v, adj_sun_direction);
    if (use_sky_map && !nearSunOrHorizon(cosGamma, upRaw, illumination)) {
      result[0] = 0.0f;
      result[1] = 0.0f;
      result[2] = 0.0f;
      result[3] = 1.0f;
      if (sky_map.sampler) sky_map.sampler->sample(result, state->rayDirection);
      return;
    }

    // Only red, green and blue are carried: the sky's alpha is written as 1.
    const sky::Constants& k = constants_;
    float q[3];
    const float gammaC = sky::skyColor(q, k, v, cosGamma);
    if (ground_factor < 1.0f)
      for (int i = 0; i < 3; ++i) q[i] = q[i] * ground_factor;
    if (sun_disk_intensity > 0.0f && sun_disk_scale > 0.0f && illumination == 0) addSunGlow(q, k, cosGamma, gammaC);
    for (int i = 0; i < 3; ++i) q[i] = q[i] * k.unitScale[i];
    const float skyShare = blendGround(q, upRaw);
    sky::saturateAndShift(q, k.saturation, redblueshift);
    if (skyShare > 0.0f) applyNightFloor(q, skyShare);
    writeColor(result, q[0], q[1], q[2], 1.0f);
  }

 private:
  sky::Constants constants_{};

  void deriveCachedValues() { constants_ = constants(); }

  sky::Constants constants() const {
    sky::Constants k;
    const float* sun = adj_sun_direction;
    k.turbidity = sky::turbidityOf(haze);
    const float t = k.turbidity;
    k.saturation = sky::effectiveSaturation(saturation, t);
    const float* unit = rgb_unit_conversion;
    const float fallback = 1.25e-5f;
    for (int i = 0; i < 3; ++i) k.unitScale[i] = (unit[0] < 0.0f ? fallback : unit[i]) * multiplier;
    sky::sunColorOf(k.sunColor, sun, t, sun_color);
    const float thetaSun = std::acos(sun[2]);
    k.zenithLuminance = sky::zenithLuminance(thetaSun, t);
    k.zenithX = sky::zenithChromaX(thetaSun, t);
    k.zenithY = sky::zenithChromaY(thetaSun, t);
    k.luminance = sky::luminanceCoefficients(t);
    k.chromaX = sky::chromaXCoefficients(t, sun[2]);
    k.chromaY = sky::chromaYCoefficients(t);
    k.luminance.setZenith(thetaSun, sun[2]);
    k.chromaX.setZenith(thetaSun, sun[2]);
    k.chromaY.setZenith(thetaSun, sun[2]);
    k.glowRadius = sun_disk_scale * 0.00465f * 10.0f;
    k.diskFalloff = t / 50.0f + 9.5f - 8.5f;
    return k;
  }

  static void writeColor(float out[4], float r, float g, float b, float a) {
    out[0] = r;
    out[1] = g;
    out[2] = b;
    out[3] = a;
  }

  // The ray direction in the z-up frame, lowered by the horizon shift, its
  // up component floored at 0.001 and normalised. Returns the up component
  // before the floor.
  float viewDirection(float v[3], const float d[3]) const {
    v[0] = d[0];
    v[1] = y_is_up ? d[2] : d[1];
    v[2] = y_is_up ? d[1] : d[2];
    const float shift = horizon_height / 10.0f;
    if (shift != 0.0f) v[2] = v[2] - shift;
    const float upRaw = v[2];
    if (0.001f > v[2]) v[2] = 0.001f;
    const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length > 0.0f)
      for (int i = 0; i < 3; ++i) v[i] = v[i] / length;
    return upRaw;
  }

  // Where camera rays keep the analytic sky although a sky map is used.
  bool nearSunOrHorizon(float cosGamma, float upRaw, int32_t illumination) const {
    return (cosGamma > sun_region || (upRaw > -horizon_region && upRaw < horizon_region)) && illumination == 0;
  }

  // The glow around the sun. The disk term is computed from a value that is
  // clamped to [0, 1] before 8.5 is subtracted from it, so it always comes
  // out 0 and only the glow acts: that order is deliberate and kept.
  void addSunGlow(float q[3], const sky::Constants& k, float cosGamma, float gammaC) const {
    float cg = cosGamma;
    if (cg < -1.0f) cg = -1.0f;
    if (cg > 1.0f) cg = 1.0f;
    float gamma = sky::angleOf(cg, cosGamma, gammaC);
    if (gamma <= 0.01f)
      gamma = 0.01f;
    else if (gamma > 3.1415929f)
      gamma = 3.1415929f;
    const float radius = k.glowRadius;
    if (!(radius > gamma)) return;
    float a = (1.0f - gamma / radius) * 10.0f;
    const float tenth = a / 10.0f;
    const float glow = tenth * tenth * tenth;
    a = sky::clamp01(a);
    a = sky::clamp01((a - 8.5f) / k.diskFalloff);
    const float w = (3.0f - 2.0f * a) * (a * a) * 100.0f * sun_disk_intensity + 2.0f * glow * sun_glow_intensity;
    for (int i = 0; i < 3; ++i) q[i] = q[i] + w * k.sunColor[i];
  }

  // Each channel becomes the larger of itself and the night colour scaled by
  // the sky's share. A channel that is NaN gives way to the floor: with the
  // sun below the horizon the chromaticity takes the square root of a
  // negative sun height, and the floor is then what the sky shows.
  void applyNightFloor(float q[3], float skyShare) const {
    for (int i = 0; i < 3; ++i) {
      const float floor = skyShare * night_color[i];
      q[i] = q[i] > floor ? q[i] : floor;
    }
  }

  // Below the horizon the ground (the sky's luminance times "ground_color")
  // is blended in over "horizon_blur" tenths of the up component. Returns
  // the share of the sky that is left, which scales the night floor.
  float blendGround(float q[3], float upRaw) const {
    if (!(upRaw <= 0.0f)) return 1.0f;
    const float luminance = 0.3f * q[0] + 0.59f * q[1] + 0.11f * q[2];
    float ground[3];
    for (int i = 0; i < 3; ++i) ground[i] = luminance * ground_color[i];
    const float blur = horizon_blur / 10.0f;
    if (!(blur > 0.0f)) {
      for (int i = 0; i < 3; ++i) q[i] = ground[i];
      return 0.0f;
    }
    float t = -upRaw / blur;
    if (t > 1.0f) t = 1.0f;
    t = sky::clamp01(t);
    const float s = (3.0f - 2.0f * t) * (t * t);
    for (int i = 0; i < 3; ++i) q[i] = (1.0f - s) * q[i] + s * ground[i];
    return 1.0f - s;
  }
};

KVI_SHADER_FACTORY(velk_qora_Env_Sky)

}  // namespace kvi
