// velk_qora_Env_Sky: the shape a daylight sky must have (brighter towards the
// sun, zenith growing with haze, ground below the horizon, night floor),
// exact relations where the arithmetic is fixed, the sky-map path and bad
// input.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "kvi/host/environment_samplers.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

using Rgba = std::array<float, 4>;
constexpr double kPi = 3.14159265358979323846;

std::array<float, 3> direction(double elevationDegrees, double azimuthDegrees) {
  const double e = elevationDegrees * kPi / 180.0;
  const double a = azimuthDegrees * kPi / 180.0;
  return {float(std::cos(e) * std::cos(a)), float(std::cos(e) * std::sin(a)), float(std::sin(e))};
}

// A sky in the z-up frame (y_is_up off) with the sun at 30 degrees, azimuth 0.
struct Sky {
  TestShader shader{"velk_qora_Env_Sky"};
  ScriptedContext context;

  Sky() {
    shader.block.setBool("y_is_up", 0);
    sun(30.0, 0.0);
  }
  void sun(double elevation, double azimuth) {
    shader.block.setColor3("adj_sun_direction", direction(elevation, azimuth));
    shader.apply();
  }
  template <class Value>
  Sky& set(const char* name, const Value& value) {
    if constexpr (std::is_same_v<Value, float>) shader.block.setFloat(name, value);
    if constexpr (std::is_same_v<Value, uint8_t>) shader.block.setBool(name, value);
    if constexpr (std::is_same_v<Value, Rgba>) shader.block.setColor4(name, value);
    shader.apply();
    return *this;
  }
  Rgba look(const std::array<float, 3>& d) {
    ShadingState state = shader.state();
    std::memcpy(state.rayDirection, d.data(), sizeof state.rayDirection);
    shader.environment()->shade(&context, &state);
    return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2], state.surfaceResult[3]};
  }
  Rgba look(double elevation, double azimuth) { return look(direction(elevation, azimuth)); }
};

float luminance(const Rgba& c) { return 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]; }

void expectBitEqual(const Rgba& actual, const Rgba& expected) {
  for (int i = 0; i < 4; ++i) EXPECT_BITEQ(actual[i], expected[i]) << "channel " << i;
}

TEST(Sky, DeclaresItsParametersWithTheirDefaults) {
  const auto info = testShaderInfo("velk_qora_Env_Sky");
  EXPECT_EQ(info->operationMask, 128u);
  const char* names[] = {"ground_color", "haze", "horizon_height", "saturation", "horizon_blur", "y_is_up",
                         "backgroundOn", "illuminationOn", "multiplier", "rgb_unit_conversion", "sun_disk_scale",
                         "sun_disk_intensity", "sun_glow_intensity", "redblueshift", "night_color", "sun_color",
                         "sun_region", "horizon_region", "adj_sun_direction", "ground_factor", "use_sky_map",
                         "sky_map", "u_hasLightRepresentation"};
  ASSERT_EQ(info->parameters.size(), std::size(names));
  for (size_t i = 0; i < std::size(names); ++i) EXPECT_EQ(info->parameters[i].name, names[i]);
  EXPECT_EQ(info->findParameter("sky_map")->kind, host::ParamKind::EnvironmentMap);
  EXPECT_TRUE(!info->unsetDetected || !info->findParameter("adj_sun_direction")->hasDefault);

  TestShader fresh("velk_qora_Env_Sky");
  EXPECT_EQ(fresh.block.getFloat("sun_region"), 0.998919129f);
  EXPECT_EQ(fresh.block.getFloat("horizon_region"), 0.008726646f);
  EXPECT_EQ(fresh.block.getTexture("sky_map").slot, -1);
  EXPECT_EQ(fresh.block.getBool("u_hasLightRepresentation"), 1);
}

TEST(Sky, SwitchedOffOrWithoutMultiplierIsTransparentBlack) {
  const Rgba none{0.0f, 0.0f, 0.0f, 0.0f};
  Sky sky;
  EXPECT_EQ(sky.look(40.0, 10.0)[3], 1.0f);
  sky.set("backgroundOn", uint8_t{0});
  for (double e : {-60.0, 0.0, 30.0, 89.0}) EXPECT_EQ(sky.look(e, 0.0), none);

  Sky dark;
  for (float m : {0.0f, -2.0f}) EXPECT_EQ(dark.set("multiplier", m).look(40.0, 10.0), none);

  Sky unlit;
  unlit.set("illuminationOn", uint8_t{0});
  unlit.context.rayKindBits = 8;
  EXPECT_EQ(unlit.look(40.0, 10.0), none);
  unlit.context.rayKindBits = 2;
  EXPECT_GT(unlit.look(40.0, 10.0)[0], 0.0f);
}

TEST(Sky, IsBrighterTowardsTheSun) {
  Sky sky;
  sky.set("night_color", Rgba{0.0f, 0.0f, 0.0f, 0.0f});
  float previous = INFINITY;
  for (double azimuth : {0.0, 10.0, 45.0, 90.0, 135.0}) {
    const float y = luminance(sky.look(30.0, azimuth));
    EXPECT_LT(y, previous) << "azimuth " << azimuth;
    previous = y;
  }
  // Beyond 90 degrees from the sun the luminance stops changing (only the
  // chromaticity does).
  sky.sun(10.0, 0.0);
  const float beyond = luminance(sky.look(10.0, 120.0));
  for (double azimuth : {140.0, 180.0}) EXPECT_NEAR(luminance(sky.look(10.0, azimuth)), beyond, 1e-3f * beyond);
  sky.sun(30.0, 0.0);
  // The glow sits on the sun and is gone a few degrees away.
  EXPECT_GT(luminance(sky.look(30.0, 0.0)), 2.0f * luminance(sky.look(30.0, 6.0)));
}

TEST(Sky, ZenithBrightensWithHaze) {
  Sky sky;
  float previous = 0.0f;
  for (float haze : {0.0f, 1.0f, 3.0f, 8.0f}) {
    EXPECT_GT(luminance(sky.set("haze", haze).look(90.0, 0.0)), previous) << "haze " << haze;
    previous = luminance(sky.look(90.0, 0.0));
  }
}

// The sun and the view at the zenith, where every Perez ratio is 1: the
// colour is the zenith colour plus the glow at its 0.01 rad floor, worked out
// in double precision.
TEST(Sky, ZenithSunMatchesTheModelWorkedOutInDouble) {
  Sky sky;
  sky.shader.block.setColor3("adj_sun_direction", {0.0f, 0.0f, 1.0f});
  sky.shader.apply();
  const Rgba actual = sky.look({0.0f, 0.0f, 1.0f});

  const double t = 2.0;
  const double chi = kPi * (4.0 / 9.0 - t / 120.0);
  const double y = std::tan(chi) * ((4.0453 * t - 4.971) * 1000.0) - 0.2155 * t + 2.4192;
  const double cx = t * 0.003948 + 0.258852;
  const double cy = t * 0.005158 + 0.266881;
  const double x = cx / cy * y;
  const double z = (1.0 - cx - cy) / cy * y;
  const double pi = 3.141593;
  const double skyRgb[3] = {(3.241 * x - 1.537 * y - 0.499 * z) * pi, (-0.969 * x + 1.876 * y + 0.042 * z) * pi,
                            (0.056 * x - 0.204 * y + 1.057 * z) * pi};
  const double m = 1.0 / (1.0 + 0.15 * std::pow(93.885, -1.253));
  const double beta = 0.04608 * t - 0.04586;
  const double lambda[3] = {0.61, 0.55, 0.47}, ozone[3] = {12.0, 8.5, 0.9};
  const double scale[3] = {129074.71, 128042.12, 117587.06};
  const double a = (1.0 - 0.01 / 0.0465) * 10.0;
  const double glow = 2.0 * std::pow(a / 10.0, 3.0);
  for (int i = 0; i < 3; ++i) {
    const double sun = scale[i] * std::exp(-0.008735 * m * std::pow(lambda[i], -4.08)) *
                       std::exp(-m * beta * std::pow(lambda[i], -1.3)) * std::exp(-m * ozone[i] * 0.0035);
    const double expected = (skyRgb[i] + glow * sun) * 0.000666667;
    EXPECT_NEAR(actual[i], expected, 2e-5 * expected) << "channel " << i;
  }
  EXPECT_EQ(actual[3], 1.0f);
}

TEST(Sky, GroundIsTheHorizonLuminanceTimesTheGroundColour) {
  // The horizon ray and the rays below it share the floored view vector;
  // without the night floor the horizon shows the sky as it is.
  for (double azimuth : {0.0, 50.0, 100.0, 150.0, 200.0, 250.0, 300.0, 350.0}) {
    const auto d = direction(0.0, azimuth);
    Sky sky;
    sky.set("night_color", Rgba{0.0f, 0.0f, 0.0f, 0.0f});
    const Rgba horizon = sky.look({d[0], d[1], 0.001f});
    const float l = 0.3f * horizon[0] + 0.59f * horizon[1] + 0.11f * horizon[2];
    const Rgba ground{l * 1.0f, l * 0.5f, l * 0.25f, 1.0f};

    sky.set("ground_color", Rgba{1.0f, 0.5f, 0.25f, 1.0f}).set("night_color", Rgba{0.5f, 0.5f, 0.5f, 1.0f});
    // Below the blur band the ground is all there is, with no night floor.
    expectBitEqual(sky.look({d[0], d[1], -0.3f}), ground);
    const Rgba inBand = sky.look({d[0], d[1], -0.005f});
    for (int i = 0; i < 3; ++i) {
      EXPECT_LT(inBand[i], std::max({horizon[i], ground[i], 0.5f * 0.5f}) + 1e-6f);
      EXPECT_GT(inBand[i], std::min(horizon[i], ground[i]));
    }
    // A sharp horizon: the ground starts right below it.
    sky.set("horizon_blur", 0.0f);
    expectBitEqual(sky.look({d[0], d[1], -0.0001f}), ground);
  }
  // Raised by 2 tenths, the horizon puts a ray 0.1 up on the ground.
  Sky raised;
  raised.set("ground_color", Rgba{1.0f, 0.5f, 0.25f, 1.0f}).set("horizon_blur", 0.0f).set("horizon_height", 2.0f);
  const Rgba onGround = raised.look({0.6f, 0.8f, 0.1f});
  EXPECT_BITEQ(onGround[1], onGround[0] * 0.5f);
  EXPECT_BITEQ(onGround[2], onGround[0] * 0.25f);
}

TEST(Sky, SaturationShiftAndScaleActExactly) {
  Sky base;
  base.set("night_color", Rgba{0.0f, 0.0f, 0.0f, 0.0f});
  const auto view = direction(25.0, 70.0);
  const Rgba plain = base.look(view);

  const Rgba grey = base.set("saturation", 0.0f).look(view);
  const float y = 0.71516f * plain[1] + 0.212671f * plain[0] + 0.072169f * plain[2];
  expectBitEqual(grey, {y, y, y, 1.0f});

  const Rgba shifted = base.set("saturation", 1.0f).set("redblueshift", 0.1f).look(view);
  expectBitEqual(shifted, {plain[0] * (1.0f + 0.1f), plain[1], plain[2] * (1.0f - 0.1f), 1.0f});

  const Rgba doubled = base.set("redblueshift", 0.0f).set("multiplier", 2.0f).look(view);
  expectBitEqual(doubled, {2.0f * plain[0], 2.0f * plain[1], 2.0f * plain[2], 1.0f});

  // A negative unit conversion falls back to 1.25e-5 in every channel.
  Sky fallback;
  fallback.set("rgb_unit_conversion", Rgba{-1.0f, 5.0f, 5.0f, 5.0f});
  Sky explicitUnit;
  explicitUnit.set("rgb_unit_conversion", Rgba{1.25e-5f, 1.25e-5f, 1.25e-5f, 1.25e-5f});
  explicitUnit.set("night_color", Rgba{0.0f, 0.0f, 0.0f, 0.0f});
  fallback.set("night_color", Rgba{0.0f, 0.0f, 0.0f, 0.0f});
  expectBitEqual(fallback.look(view), explicitUnit.look(view));
}

TEST(Sky, GlowIsTheOnlySunTermAndCameraRaysAloneSeeIt) {
  Sky sky;
  const auto nearSun = direction(30.5, 0.5);
  const Rgba withGlow = sky.look(nearSun);
  // The disk term is inert: its intensity changes nothing while it is > 0.
  expectBitEqual(sky.set("sun_disk_intensity", 50.0f).look(nearSun), withGlow);
  const Rgba noGlow = sky.set("sun_glow_intensity", 0.0f).look(nearSun);
  EXPECT_LT(noGlow[0], withGlow[0]);
  // Illumination rays get no glow at all.
  sky.set("sun_glow_intensity", 1.0f);
  sky.context.rayKindBits = 8;
  expectBitEqual(sky.look(nearSun), noGlow);
}

TEST(Sky, ParameterChangesReachTheCachedValues) {
  Sky changed;
  changed.look(40.0, 20.0);
  changed.set("haze", 5.0f).set("sun_disk_scale", 2.0f);
  changed.sun(12.0, 40.0);
  Sky fresh;
  fresh.shader.block.setFloat("haze", 5.0f);
  fresh.shader.block.setFloat("sun_disk_scale", 2.0f);
  fresh.sun(12.0, 40.0);
  for (double az : {40.0, 41.0, 100.0}) expectBitEqual(changed.look(12.0, az), fresh.look(12.0, az));
}

// Records the coordinates it is asked for and answers a fixed colour.
struct RecordingSampler : ITextureSampler {
  std::array<float, 3> coords{};
  int calls = 0;
  void sample(float out[4], const float* c) override {
    ++calls;
    coords = {c[0], c[1], c[2]};
    out[0] = 0.1f;
    out[1] = 0.2f;
    out[2] = 0.3f;
    out[3] = 0.4f;
  }
};

TEST(Sky, SkyMapReplacesTheSkyAwayFromTheSunAndHorizon) {
  RecordingSampler map;
  Sky sky;
  sky.shader.block.setBool("y_is_up", 1);  // the map gets the ray direction untouched
  sky.shader.block.setBool("use_sky_map", 1);
  sky.shader.block.setEnvironmentMap("sky_map", &map, 3);
  sky.shader.apply();
  // Sun at 30 degrees towards +x, in the z-up frame; with y up the ray
  // direction (x, y, z) is seen as (x, z, y).
  const std::array<float, 3> away{-0.6f, 0.48f, 0.64f};
  EXPECT_EQ(sky.look(away), (Rgba{0.1f, 0.2f, 0.3f, 0.4f}));
  EXPECT_EQ(map.coords, away);

  const auto sun = direction(30.0, 0.0);
  const std::array<float, 3> atSun{sun[0], sun[2], sun[1]};
  const std::array<float, 3> atHorizon{0.0f, 0.001f, -1.0f};
  for (const auto& d : {atSun, atHorizon}) {
    map.calls = 0;
    EXPECT_EQ(sky.look(d)[3], 1.0f);
    EXPECT_EQ(map.calls, 0) << "camera rays keep the analytic sky near the sun and horizon";
    sky.context.rayKindBits = 8;
    EXPECT_EQ(sky.look(d), (Rgba{0.1f, 0.2f, 0.3f, 0.4f}));
    sky.context.rayKindBits = 0;
  }

  sky.shader.block.setEnvironmentMap("sky_map", nullptr, -1);
  sky.shader.apply();
  EXPECT_EQ(sky.look(away), (Rgba{0.0f, 0.0f, 0.0f, 1.0f}));

  // Through the host's latitude-longitude sampler: upper half blue, lower green.
  std::vector<float> rgba;
  for (int texel = 0; texel < 32; ++texel) {
    const float upper = texel < 16 ? 1.0f : 0.0f;
    rgba.insert(rgba.end(), {0.0f, 1.0f - upper, upper, 1.0f});
  }
  host::LatLongSampler latLong(8, 4, rgba);
  sky.shader.block.setEnvironmentMap("sky_map", &latLong, 0);
  sky.shader.apply();
  EXPECT_EQ(sky.look({0.3f, 0.8f, -0.5f}), (Rgba{0.0f, 0.0f, 1.0f, 1.0f}));
  EXPECT_EQ(sky.look({0.3f, -0.8f, -0.5f}), (Rgba{0.0f, 1.0f, 0.0f, 1.0f}));
}

TEST(Sky, SunBelowTheHorizonAndBadInput) {
  Sky sky;
  // A zero direction is floored to straight up.
  for (float x : sky.look({0.0f, 0.0f, 0.0f})) EXPECT_TRUE(std::isfinite(x));
  // The host never set the sun: the block's zero direction, a sun on the horizon.
  TestShader unset("velk_qora_Env_Sky");
  unset.apply();
  ShadingState state = unset.state();
  state.rayDirection[1] = 1.0f;
  unset.environment()->shade(&sky.context, &state);
  EXPECT_TRUE(std::isfinite(state.surfaceResult[0]));

  // With the sun below the horizon (or NaN) the chromaticity is NaN: above
  // the horizon the night floor shows, the ground below the blur band (which
  // has no floor) passes the NaN on.
  const Rgba night{0.2f, 0.2f, 0.2f, 1.0f};
  for (const auto& sun : {direction(-10.0, 0.0), std::array<float, 3>{NAN, 0.0f, 1.0f}}) {
    sky.shader.block.setColor3("adj_sun_direction", sun);
    sky.shader.apply();
    for (double e : {5.0, 45.0, 80.0}) EXPECT_EQ(sky.look(e, 90.0), night);
    EXPECT_TRUE(std::isnan(sky.look(-45.0, 0.0)[0]));
  }
  sky.sun(30.0, 0.0);
  EXPECT_EQ(sky.set("haze", INFINITY).look(45.0, 0.0), night);
}

TEST(Sky, WritesOnlyTheResult) {
  Sky sky;
  for (int8_t kinds : {0, 8}) {
    sky.context.rayKindBits = kinds;
    ShadingState state = patternState();
    const auto d = direction(-20.0, 30.0);
    std::memcpy(state.rayDirection, d.data(), sizeof state.rayDirection);
    ShadingState before = state;
    sky.shader.environment()->shade(&sky.context, &state);
    std::memcpy(before.surfaceResult, state.surfaceResult, sizeof state.surfaceResult);
    EXPECT_EQ(std::memcmp(&before, &state, sizeof state), 0);
  }
}

}  // namespace
}  // namespace kvi::test
