// The environments through the module loader: the backgrounds' tone-mapping
// compensation (round trips through the host's forward tone mapper, values
// worked out by hand and in single precision), the gradient, simple and image
// backgrounds by table, and the daylight sky against its closed forms. Every
// look also checks that the shader wrote surfaceResult alone and asked the
// host for nothing but ray kinds.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <tuple>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/samplers.h"
#include "kvi/host/tone_mapper.h"
#include "tables.h"

namespace kvi::test {
namespace {

using Rgba = std::array<float, 4>;
using host::ToneMapSettings;

// A ray in a direction, at a pixel of a frame.
struct View {
  Color direction{0, 0, -1};
  float px = 320, py = 240;
  int32_t width = 640, height = 480;
};

// What environment `name` shows a ray of the given kinds, configured by
// `params` and, when given, the host's tone mapper.
Rgba look(const char* name, const Params& params, const View& view = {}, int32_t kinds = 0,
          const ToneMapSettings* toneMapper = nullptr) {
  TestShader& shader = configured(name, params);
  if (toneMapper) {
    host::setToneMapParameters(shader.block, *toneMapper);
    shader.apply();
  }
  KindBitsContext context;
  context.rayKindBits = kinds;
  ShadingState state = patternState();
  std::copy(view.direction.begin(), view.direction.end(), state.rayDirection);
  state.rasterPosition[0] = view.px, state.rasterPosition[1] = view.py;
  state.frameResolution[0] = view.width, state.frameResolution[1] = view.height;
  const ShadingState before = state;
  shader.environment()->shade(&context, &state);
  EXPECT_TRUE(onlyWrote(before, state, &ShadingState::surfaceResult)) << name << " wrote beyond surfaceResult";
  EXPECT_EQ(context.totalCalls(), context.calls(kIsRayKind)) << name << " asked the host for more than ray kinds";
  return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2], state.surfaceResult[3]};
}

std::vector<float> values(const Rgba& c) { return {c.begin(), c.end()}; }

// ---- Tone-mapping compensation.

const ToneMapSettings kIdentity{.enabled = 1, .gamma = 1.0f};  // every step the identity in exact arithmetic
const ToneMapSettings kStrong{.enabled = 1, .exposure = 1.7f, .white = {1.1f, 1.0f, 0.85f}, .vignetting = 1.5f,
                              .crushBlacks = 0.25f, .burnHighlightsInv = 3.0f, .saturation = 1.2f, .gamma = 2.2f,
                              .imagePlaneWidth = 1.6f, .imagePlaneHeight = 0.9f, .focalDistance = 1.2f};
const ToneMapSettings kMild{.enabled = 1, .exposure = 0.6f, .crushBlacks = 0.1f, .burnHighlightsInv = 8.0f,
                            .saturation = 0.7f, .gamma = 1.8f};

template <class Change>
ToneMapSettings with(ToneMapSettings t, Change change) {
  change(t);
  return t;
}

// How a background shows the picked colour: the gradient's flat colour (a
// ray of kind 2) or its ramp between two equal colours, the simple
// background's image, the image background's picture (or its bars).
enum Shown { kFlat, kRamp, kSimple, kImage };

Color compensate(const ToneMapSettings& t, const Color& picked, Shown shown = kFlat, const View& view = {}) {
  host::ConstantSampler image({picked[0], picked[1], picked[2], 1.0f});
  const std::vector<float> c(picked.begin(), picked.end());
  const Params params[] = {{{"backgroundColor", c}},
                           {{"backgroundTopColor", c}, {"backgroundBottomColor", c}},
                           {{"backgroundMode", {1}}, {"backgroundImage", {}, &image}},
                           {{"image", {}, &image}, {"backgroundColor", c}}};
  const char* names[] = {"GradientBackground", "GradientBackground", "SimpleBackground", "ImageBackground"};
  const Rgba r = look(names[shown], params[shown], view, shown == kFlat ? 2 : 0, &t);
  return {r[0], r[1], r[2]};
}

Color forward(const ToneMapSettings& t, const Color& c, const View& v = {}) {
  Color out;
  host::toneMap(t, out.data(), c.data(), v.px, v.py, v.width, v.height);
  return out;
}

void expectNear(const Color& actual, const Color& expected, float relative, float absolute = 1e-7f) {
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(actual[i], expected[i], relative * std::fabs(expected[i]) + absolute) << "channel " << i;
}

TEST(ToneMappingCompensation, TheHostsToneMapperGivesThePickedColourBack) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> channel(0.02f, 0.98f);
  const View pixels[] = {{}, {{0, 0, -1}, 10, 20}, {{0, 0, -1}, 630, 470}};
  for (Shown shown : {kFlat, kRamp, kSimple, kImage})
    for (const auto& settings : {kStrong, kMild, kIdentity})
      for (int i = 0; i < 45; ++i) {
        SCOPED_TRACE(::testing::Message() << "background " << shown << " case " << i);
        const View& pixel = pixels[i % 3];
        const Color picked{channel(rng), channel(rng), channel(rng)};
        // The closed form of the burn step loses digits to cancellation in dark
        // channels (sqrt(h^2 + q) - h with h much larger than the result),
        // hence the absolute allowance (far inside one 8-bit step).
        expectNear(forward(settings, compensate(settings, picked, shown, pixel), pixel), picked, 2e-5f, 4e-6f);
      }
}

// Each step alone (the others at the identity) against values worked out by
// hand, then every step at once against values worked out in single
// precision from the written steps: those depend on each sum's order and on
// F (1/d) and (x - L) (1/S) being multiplications.
TEST(ToneMappingCompensation, MatchesWorkedOutValues) {
  const View offCentre{{0, 0, -1}, 100.0f, 400.0f};
  const std::tuple<const char*, ToneMapSettings, View, Color, Color, float> rows[] = {
      {"gamma", with(kIdentity, [](auto& t) { t.gamma = 2.2f; }), {}, {0.5f, 0.5f, 0.5f},
       {0.21763764f, 0.21763764f, 0.21763764f}, 2e-6f},
      {"crush blacks", with(kIdentity, [](auto& t) { t.crushBlacks = 0.5f; }), {}, {0.2f, 0.3f, 0.1f},
       {0.29929298f, 0.41987031f, 0.16968492f}, 2e-6f},
      {"saturation", with(kIdentity, [](auto& t) { t.saturation = 0.5f; }), {}, {0.2f, 0.3f, 0.1f},
       {0.1357f, 0.3357f, -0.0643f}, 2e-6f},
      {"burn highlights", with(kIdentity, [](auto& t) { t.burnHighlightsInv = 2.0f; }), {}, {0.6f, 0.2f, 1.5f},
       {0.76619038f, 0.21980390f, 2.30277564f}, 2e-6f},
      {"burn keeps a 0 channel", with(kIdentity, [](auto& t) { t.burnHighlightsInv = 2.0f; }), {}, {0.5f, 0, 0.3f},
       {0.618034f, 0, 0.3440307f}, 2e-6f},
      {"exposure, white and vignetting",
       with(kIdentity, [](auto& t) { t.exposure = 2, t.white[1] = 0.5f, t.white[2] = 0.25f, t.vignetting = 2,
                                     t.imagePlaneWidth = 2, t.focalDistance = 1.5f; }),
       {{0, 0, -1}, 150, 25, 200, 100}, {0.2f, 0.3f, 0.1f}, {0.11388889f, 0.34166667f, 0.22777778f}, 2e-6f},
      {"every step", kStrong, offCentre, {1.2f, 0.8f, 0.3f}, {1.64127243f, 0.689456999f, 0.19332698f}, 0},
      // Bright enough after the gamma step (luminance >= 1) to skip the crush step.
      {"every step, crush skipped", kStrong, offCentre, {2.0f, 0.9f, 0.9f}, {6.70332527f, 1.10201716f, 1.29649079f}, 0},
      {"every step, mild", kMild, offCentre, {0.7f, 0.1f, 0.4f}, {2.70716071f, -0.0458288193f, 0.55997926f}, 0},
  };
  for (const auto& [label, settings, view, picked, expected, relative] : rows) {
    SCOPED_TRACE(label);
    const Color actual = compensate(settings, picked, kFlat, view);
    if (relative == 0) expectBits(actual.data(), {expected.begin(), expected.end()});
    else expectNear(actual, expected, relative);
  }
  // At the image centre there is no vignetting, whatever the exponent.
  EXPECT_EQ(compensate(kStrong, {0.5f, 0.4f, 0.3f}), compensate(with(kStrong, [](auto& t) { t.vignetting = 0; }),
                                                                {0.5f, 0.4f, 0.3f}));
}

TEST(ToneMappingCompensation, AppliesOnlyToAnEnabledTypeOneMapperAndPassesDivisionsByZeroOn) {
  const Color picked{0.3f, 0.6f, 0.9f}, inverted = compensate(kStrong, picked);
  ASSERT_NE(inverted, picked);
  enum Channel { kPicked, kInverted, kInfinite, kFinite };
  const std::tuple<const char*, ToneMapSettings, std::array<Channel, 3>> rows[] = {
      {"disabled", with(kStrong, [](auto& t) { t.enabled = 0; }), {kPicked, kPicked, kPicked}},
      {"any non-zero byte enables", with(kStrong, [](auto& t) { t.enabled = 7; }), {kInverted, kInverted, kInverted}},
      {"type 0", with(kStrong, [](auto& t) { t.type = 0; }), {kPicked, kPicked, kPicked}},
      {"type 2", with(kStrong, [](auto& t) { t.type = 2; }), {kPicked, kPicked, kPicked}},
      // Divisions by zero give infinities where that channel is divided.
      {"exposure 0", with(kIdentity, [](auto& t) { t.exposure = 0; }), {kInfinite, kInfinite, kInfinite}},
      {"a zero white channel", with(kIdentity, [](auto& t) { t.white[1] = 0; }), {kFinite, kInfinite, kFinite}},
      {"vignetting without focal distance", with(kIdentity, [](auto& t) { t.vignetting = 1, t.focalDistance = 0; }),
       {kInfinite, kInfinite, kInfinite}},
  };
  for (const auto& [label, settings, channels] : rows) {
    SCOPED_TRACE(label);
    const Color actual = compensate(settings, picked);
    for (int i = 0; i < 3; ++i) {
      if (channels[i] >= kInfinite) {
        EXPECT_EQ(std::isinf(actual[i]), channels[i] == kInfinite) << actual[i];
      } else {
        EXPECT_BITEQ(actual[i], (channels[i] == kPicked ? picked : inverted)[i]);
      }
    }
    if (channels[0] == kPicked) {
      EXPECT_EQ(forward(settings, picked), picked);  // the host passes them too
    }
  }
}

// ---- GradientBackground: blue runs from 0 at the top to 1 at the bottom,
// so in two colours it is t itself.

TEST(GradientBackground, RunsDownOrAcrossTheImageAndShowsRaysOfKindTwoTheFlatColour) {
  const Params colours{{"backgroundTopColor", {0.125f, 0.25f, 0}}, {"backgroundMiddleColor", {0.5f, 0.5f, 0.125f}},
                       {"backgroundBottomColor", {0.875f, 0.25f, 1}}, {"backgroundColor", {0.3f, 0.6f, 0.2f}}};
  const Params three = colours + Params{{"twoColorsOnly", {0}}};
  const Params light = colours + Params{{"u_hasLightRepresentation", {3}}};
  const auto turned = [&](float rho) { return colours + Params{{"twoColorsOnly", {128}}, {"rotationAngle", {rho}}}; };
  const auto ramp = [](float t) { return Rgba{0.125f + 0.75f * t, 0.25f, t, 0}; };  // two colours at t
  struct Row {
    const char* label;
    Params params;
    float px, py;
    Rgba expected;
    int32_t kinds = 0;
    float tolerance = 0;  // 0: to the bit
  };
  const Row rows[] = {
      {"two: top", colours, 17, 0, ramp(0)},
      {"two: bottom", colours, 17, 480, ramp(1)},
      {"two: extrapolated above", colours, 17, -240, {-0.25f, 0.25f, -0.5f, 0}},
      {"three: top", three, 17, 0, {0.125f, 0.25f, 0, 0}},
      {"three: the middle exactly", three, 17, 240, {0.5f, 0.5f, 0.125f, 0}},
      {"three: bottom", three, 17, 480, {0.875f, 0.25f, 1, 0}},
      {"three: a quarter down", three, 17, 120, {0.3125f, 0.375f, 0.0625f, 0}},
      {"three: three quarters down", three, 17, 360, {0.6875f, 0.375f, 0.5625f, 0}},
      {"three: extrapolated below", three, 17, 720, {1.25f, 0.0f, 1.875f, 0}},
      {"three: extrapolated above", three, 17, -120, {-0.0625f, 0.125f, -0.0625f, 0}},
      // A positive turn puts the top colour in the top-right corner, a negative
      // one in the top-left (the extent takes |rho|, the projection rho); a
      // quarter turn runs from right to left.
      {"turned: top right", turned(0.5f), 640, 0, ramp(0), 0, 1e-5f},
      {"turned: bottom left", turned(0.5f), 0, 480, ramp(1), 0, 1e-5f},
      {"turned back: top left", turned(-0.5f), 0, 0, ramp(0), 0, 1e-5f},
      {"turned back: bottom right", turned(-0.5f), 640, 480, ramp(1), 0, 1e-5f},
      {"quarter turn: right", turned(1.5707964f), 640, 100, ramp(0), 0, 1e-5f},
      {"quarter turn: a quarter from the left", turned(1.5707964f), 160, 0, ramp(0.75f), 0, 1e-5f},
      // Rays of kind 2 see the flat colour, or black for a light's illumination rays.
      {"kind 2: flat", colours, 5, 0, {0.3f, 0.6f, 0.2f, 0}, 2},
      {"kinds 2 and 8 without a light: flat", colours, 5, 0, {0.3f, 0.6f, 0.2f, 0}, 2 | 8},
      {"kind 2 with a light: flat", light, 5, 0, {0.3f, 0.6f, 0.2f, 0}, 2},
      {"kinds 2 and 8 with a light: black", light, 5, 0, {0, 0, 0, 1}, 2 | 8},
      {"kind 8 alone: the gradient", light, 5, 0, ramp(0), 8},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const Rgba r = look("GradientBackground", row.params, {{0, 0, -1}, row.px, row.py}, row.kinds);
    if (row.tolerance == 0) expectBits(r.data(), values(row.expected));
    else
      for (int i = 0; i < 4; ++i) EXPECT_NEAR(r[i], row.expected[i], row.tolerance) << "channel " << i;
  }
  EXPECT_BITEQ(look("GradientBackground", colours, {{0, 0, -1}, 17, -50})[2], -50.0f / 480.0f);  // unturned: py / H
}

// ---- SimpleBackground and ImageBackground.

// What each ray sees of a simple background: its colour, or an image looked
// up in the ray direction turned by cubeMatrix (a lat-long image by the
// direction itself, a cube image by the face coordinates of the turned
// direction), the illumination image for illumination rays when asked for,
// black with full alpha for them when a light stands for the background.
TEST(SimpleBackground, ShowsItsColourOrImageInTheTurnedDirection) {
  const Rgba image{0.1f, 0.2f, 0.3f, 0.5f}, lighting{0.6f, 0.5f, 0.4f, 1.0f};
  const Color d{0.6f, -0.8f, 0.0f}, turned{-0.8f, 0.0f, 0.6f};  // (x, y, z) turned to (y, z, x)
  const auto p = host::CubeFaceSampler::project(turned.data());
  enum Source { kColour, kImage, kCube, kLighting, kBlack, kNothing };
  struct Row { int32_t mode, kinds; float useLighting, light; bool bound; Source seen; };
  const Row rows[] = {
      {0, 0, 0, 0, true, kColour},    {1, 2, 0, 0, true, kImage},      {2, 0, 0, 0, true, kCube},
      {5, 0, 0, 0, true, kColour},    {1, 8, 1, 0, true, kLighting},   {1, 8, 0, 0, true, kImage},
      {1, 2, 1, 0, true, kImage},     {1, 10, 1, 1, true, kBlack},     {1, 2, 1, 1, true, kImage},
      {1, 0, 0, 0, false, kNothing},  {2, 0, 0, 0, false, kNothing},   {1, 8, 1, 0, false, kNothing},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << "mode " << row.mode << " kinds " << row.kinds << " row " << &row - rows);
    RecordingSampler latLong(3, image), cube(3, image), lightingImage(3, lighting);
    const Params params{{"backgroundMode", {float(row.mode)}},
                        {"backgroundColor", {0.3f, 0.6f, 0.9f}},
                        {"cubeMatrix", {0, 0, 1, 1, 0, 0, 0, 1, 0}},
                        {"useIlluminationImage", {row.useLighting}},
                        {"u_hasLightRepresentation", {row.light}},
                        {"backgroundImage", {}, row.bound ? &latLong : nullptr},
                        {"cubeImage", {}, row.bound ? &cube : nullptr},
                        {"illuminationImage", {}, row.bound ? &lightingImage : nullptr}};
    const Rgba r = look("SimpleBackground", params, {d}, row.kinds);
    const Rgba seen[] = {{0.3f, 0.6f, 0.9f, 0}, {0.1f, 0.2f, 0.3f, 0}, {0.1f, 0.2f, 0.3f, 0},
                         {0.6f, 0.5f, 0.4f, 0}, {0, 0, 0, 1},          {0, 0, 0, 0}};
    expectBits(r.data(), values(seen[row.seen]));
    const std::vector<float> lookedUp = row.seen == kImage ? std::vector<float>(turned.begin(), turned.end())
                                                            : std::vector<float>{p.s, p.t, float(p.face)};
    if (row.seen == kImage || row.seen == kCube) {
      EXPECT_EQ((row.seen == kImage ? latLong : cube).coords.at(0), lookedUp);
    }
  }
}

// Where each layout puts the picture: a 4 x 2 picture on a 16 x 16 frame, the
// texel centre (u, v) each pixel should see, or the background colour where
// the picture does not reach.
TEST(ImageBackground, EachLayoutPlacesTheKnownTexelWhereItShould) {
  constexpr float kBackground = -1;
  struct Row { int32_t layout; float keep, target, scale[2], offset[2], x, y, u, v; };
  const Row rows[] = {
      {0, 1, 0, {1, 1}, {0, 0}, 6, 10, 0.375f, 0.25f},           // fit: 16 x 8, bars above and below
      {0, 1, 0, {1, 1}, {0, 0}, 8, 2, kBackground, 0},
      {1, 1, 0, {1, 1}, {0, 0}, 8, 4, 0.5f, 0.75f},              // fill: 32 x 16, cropped at the sides
      {2, 1, 0, {1, 1}, {0, 0}, 6, 12, 0.375f, 0.25f},           // stretch: 16 x 16
      {0, 0, 0, {1, 1}, {0, 0}, 6, 12, 0.375f, 0.25f},           // fit without the aspect ratio stretches
      {3, 1, 0, {1, 1}, {0, 0}, 5, 3, 1.25f, -0.5f},             // tile: own size from the top left, repeated
      {4, 1, 0, {1, 1}, {0, 0}, 7, 8, 0.25f, 0.5f},              // centre: own size, at (6, 7)
      {4, 1, 0, {1, 1}, {0, 0}, 2, 2, kBackground, 0},
      {9, 1, 0, {1, 1}, {0, 0}, 6, 10, 0.375f, 0.25f},           // unknown layouts fit
      {0, 1, 32, {1, 1}, {0, 0}, 3, 6, 0.1875f, 0.75f},          // a 32 x 32 target: pixels count twice
      {2, 1, 0, {2, 0.5f}, {0.25f, 0.1f}, 6, 12, 1.0f, 0.225f},  // uv scaled and offset after the layout
      {2, 1, 0, {2, 1}, {0, 0}, 10, 12, kBackground, 0},         // scaled off the picture
  };
  const Rgba texel{0.2f, 0.4f, 0.6f, 0.25f};
  const Color colour{0.9f, 0.8f, 0.7f};
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
    RecordingSampler picture(2, texel);
    const Params params{{"image", {}, &picture}, {"backgroundColor", {colour.begin(), colour.end()}},
                        {"layoutType", {float(row.layout)}}, {"keepAspectRatio", {row.keep}},
                        {"imageResolution", {4, 2, 0}}, {"renderTargetResolution", {row.target, row.target, 0}},
                        {"uv_scale", {row.scale[0], row.scale[1]}}, {"uv_offset", {row.offset[0], row.offset[1], 7}}};
    const Rgba r = look("ImageBackground", params, {{0, 0, -1}, row.x, row.y, 16, 16});
    if (row.u == kBackground) {
      expectBits(r.data(), {colour[0], colour[1], colour[2], 0});
      EXPECT_TRUE(picture.coords.empty());
      continue;
    }
    EXPECT_EQ(picture.coords.at(0), (std::vector<float>{row.u, row.v}));
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(r[i], 0.25f * texel[i] + 0.75f * colour[i]);  // laid over by alpha
  }
  // A real picture: texel (1, 0) of the bottom row shows at its pixel.
  std::vector<float> rgba;
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 4; ++i) rgba.insert(rgba.end(), {float(i), float(j), 0.5f, 1.0f});
  host::ImageSampler image(4, 2, rgba);
  const Params picture{{"image", {}, &image}, {"imageResolution", {4, 2, 0}}};
  expectBits(look("ImageBackground", picture, {{0, 0, -1}, 6, 10, 16, 16}).data(), {1, 0, 0.5f, 0});
}

// ---- velk_qora_Env_Sky, in its z-up frame (y_is_up off), the sun at 30 degrees, azimuth 0, by default.

constexpr double kPi = 3.14159265358979323846;
const Rgba kNone{0, 0, 0, 0};

Color direction(double elevationDegrees, double azimuthDegrees) {
  const double e = elevationDegrees * kPi / 180.0, a = azimuthDegrees * kPi / 180.0;
  return {float(std::cos(e) * std::cos(a)), float(std::cos(e) * std::sin(a)), float(std::sin(e))};
}

Params sky(const Params& more = {}, Color sun = direction(30, 0)) {
  return Params{{"y_is_up", {0}}, {"adj_sun_direction", {sun.begin(), sun.end()}}} + more;
}
Rgba skyLook(const Params& params, const Color& view, int32_t kinds = 0) {
  return look("velk_qora_Env_Sky", params, {view}, kinds);
}
const Params kNoNight{{"night_color", {0, 0, 0, 0}}};

float luminance(const Rgba& c) { return 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]; }

TEST(Sky, IsBrighterTowardsTheSunAndAtTheZenithWithHaze) {
  float previous = INFINITY;
  for (double azimuth : {0.0, 10.0, 45.0, 90.0, 135.0}) {
    EXPECT_LT(luminance(skyLook(sky(kNoNight), direction(30, azimuth))), previous) << "azimuth " << azimuth;
    previous = luminance(skyLook(sky(kNoNight), direction(30, azimuth)));
  }
  // Beyond 90 degrees from the sun the luminance stops changing (only the chromaticity does).
  const float beyond = luminance(skyLook(sky(kNoNight, direction(10, 0)), direction(10, 120)));
  for (double azimuth : {140.0, 180.0})
    EXPECT_NEAR(luminance(skyLook(sky(kNoNight, direction(10, 0)), direction(10, azimuth))), beyond, 1e-3f * beyond);
  // The glow sits on the sun and is gone a few degrees away, farther with a larger disk.
  EXPECT_GT(luminance(skyLook(sky(kNoNight), direction(30, 0))),
            2 * luminance(skyLook(sky(kNoNight), direction(30, 6))));
  EXPECT_GT(luminance(skyLook(sky(kNoNight + Params{{"sun_disk_scale", {2}}}), direction(30, 3))),
            1.3f * luminance(skyLook(sky(kNoNight), direction(30, 3))));
  previous = 0.0f;
  for (float haze : {0.0f, 1.0f, 3.0f, 8.0f}) {
    EXPECT_GT(luminance(skyLook(sky(kNoNight + Params{{"haze", {haze}}}), direction(90, 0))), previous) << haze;
    previous = luminance(skyLook(sky(kNoNight + Params{{"haze", {haze}}}), direction(90, 0)));
  }
}

// The sun and the view at the zenith, where every Perez ratio is 1: the
// colour is the zenith colour plus the glow at its 0.01 rad floor, worked out
// in double precision.
TEST(Sky, ZenithSunMatchesTheModelWorkedOutInDouble) {
  const Rgba actual = skyLook(sky({}, {0, 0, 1}), {0, 0, 1});
  const double t = 2.0, chi = kPi * (4.0 / 9.0 - t / 120.0);
  const double y = std::tan(chi) * ((4.0453 * t - 4.971) * 1000.0) - 0.2155 * t + 2.4192;
  const double cx = t * 0.003948 + 0.258852, cy = t * 0.005158 + 0.266881;
  const double x = cx / cy * y, z = (1.0 - cx - cy) / cy * y, pi = 3.141593;
  const double skyRgb[3] = {(3.241 * x - 1.537 * y - 0.499 * z) * pi, (-0.969 * x + 1.876 * y + 0.042 * z) * pi,
                            (0.056 * x - 0.204 * y + 1.057 * z) * pi};
  const double m = 1.0 / (1.0 + 0.15 * std::pow(93.885, -1.253)), beta = 0.04608 * t - 0.04586;
  const double lambda[3] = {0.61, 0.55, 0.47}, ozone[3] = {12.0, 8.5, 0.9};
  const double scale[3] = {129074.71, 128042.12, 117587.06};
  const double glow = 2.0 * std::pow(1.0 - 0.01 / 0.0465, 3.0);
  for (int i = 0; i < 3; ++i) {
    const double sun = scale[i] * std::exp(-0.008735 * m * std::pow(lambda[i], -4.08)) *
                       std::exp(-m * beta * std::pow(lambda[i], -1.3)) * std::exp(-m * ozone[i] * 0.0035);
    const double expected = (skyRgb[i] + glow * sun) * 0.000666667;
    EXPECT_NEAR(actual[i], expected, 2e-5 * expected) << "channel " << i;
  }
  EXPECT_EQ(actual[3], 1.0f);
}

TEST(Sky, GroundIsTheLuminanceOfTheFlooredHorizonTimesTheGroundColour) {
  const Params ground{{"ground_color", {1.0f, 0.5f, 0.25f, 1.0f}}, {"night_color", {0.5f, 0.5f, 0.5f, 1.0f}}};
  for (double azimuth : {0.0, 100.0, 250.0}) {
    const Color d = direction(0.0, azimuth);
    const auto at = [&](const Params& params, float up) { return skyLook(params, {d[0], d[1], up}); };
    // The view's up component is floored at 0.001: the horizon ray sees what the ray at 0.001 sees.
    const Rgba horizon = at(sky(kNoNight), 0.001f);
    EXPECT_EQ(at(sky(kNoNight), 0.0002f), horizon);
    EXPECT_NE(at(sky(kNoNight), 0.002f), horizon);
    const float l = 0.3f * horizon[0] + 0.59f * horizon[1] + 0.11f * horizon[2];
    const Rgba g{l * 1.0f, l * 0.5f, l * 0.25f, 1.0f};
    expectBits(at(sky(ground), -0.3f).data(), values(g));  // below the blur band: no night floor
    // Half-way down a band 1 deep the smooth step is 1/2: half sky, half ground, half the night floor.
    const auto half = [&](int i) { return std::max(0.5f * horizon[i] + 0.5f * g[i], 0.5f * 0.5f); };
    expectBits(at(sky(ground + Params{{"horizon_blur", {10}}}), -0.5f).data(), {half(0), half(1), half(2), 1.0f});
    expectBits(at(sky(ground + Params{{"horizon_blur", {0}}}), -0.0001f).data(), values(g));  // a sharp horizon
  }
  // Raised by 2 tenths, the horizon puts a ray 0.1 up on the ground.
  const Rgba raised = skyLook(sky(ground + Params{{"horizon_blur", {0}}, {"horizon_height", {2}}}), {0.6f, 0.8f, 0.1f});
  EXPECT_BITEQ(raised[1], raised[0] * 0.5f);
  EXPECT_BITEQ(raised[2], raised[0] * 0.25f);
}

// Against fixed colours or the sky with other parameters: the switches,
// saturation and shift, the units, the glow, and the night floor, which is
// all a sun below the horizon leaves above it (the chromaticity takes the
// square root of a negative or NaN sun height); the ground below the blur
// band, which has no floor, passes the NaN on.
TEST(Sky, SwitchesSaturationShiftUnitsGlowAndTheNightFloorActExactly) {
  const Color view = direction(25.0, 70.0), nearSun = direction(30.5, 0.5);
  const Rgba p = skyLook(sky(kNoNight), view);
  const float y = 0.71516f * p[1] + 0.212671f * p[0] + 0.072169f * p[2];
  // With haze 7.5 (t = 0.5) a saturation of 0.5 acts as 0.5^3 t^3 + (1 - t^3) 0.5 = 0.453125.
  const Rgba hazy = skyLook(sky(kNoNight + Params{{"haze", {7.5f}}}), view);
  const float hy = 0.71516f * hazy[1] + 0.212671f * hazy[0] + 0.072169f * hazy[2];
  const Rgba glow = skyLook(sky(), nearSun), noGlow = skyLook(sky({{"sun_glow_intensity", {0}}}), nearSun);
  EXPECT_LT(noGlow[0], glow[0]);
  // Twice the disk puts a near the sun above 8.5, where the disk term would act but for the clamp before it.
  const Rgba wideGlow = skyLook(sky(kNoNight + Params{{"sun_disk_scale", {2}}}), nearSun);
  const Color below = direction(-10, 0);
  const Params night{{"night_color", {0.2f, 0.2f, 0.2f, 1}}};
  const Params sunBelow = night + Params{{"adj_sun_direction", {below[0], below[1], below[2]}}};
  const Params sunNaN = night + Params{{"adj_sun_direction", {NAN, 0, 1}}};
  const Rgba grey{0.2f, 0.2f, 0.2f, 1};
  const std::tuple<const char*, Params, Color, int32_t, Rgba, float> rows[] = {  // tolerance 0: to the bit
      {"switched off", {{"backgroundOn", {0}}}, direction(89, 0), 0, kNone, 0},
      {"switched off below", {{"backgroundOn", {0}}}, direction(-60, 0), 0, kNone, 0},
      {"multiplier 0", {{"multiplier", {0}}}, view, 0, kNone, 0},
      {"a negative multiplier", {{"multiplier", {-2}}}, view, 0, kNone, 0},
      {"illumination off: illumination rays see nothing", {{"illuminationOn", {0}}}, view, 8, kNone, 0},
      {"illumination off: camera rays see the sky", {{"illuminationOn", {0}}}, view, 2, p, 0},
      {"sun below: the night floor high", sunBelow, direction(80, 90), 0, grey, 0},
      {"sun below: the night floor low", sunBelow, direction(5, 90), 0, grey, 0},
      {"sun below: NaN below the band", sunBelow, direction(-45, 0), 0, {NAN, NAN, NAN, 1}, 0},
      {"NaN sun: the night floor", sunNaN, direction(45, 90), 0, grey, 0},
      {"NaN sun: NaN below the band", sunNaN, direction(-45, 0), 0, {NAN, NAN, NAN, 1}, 0},
      {"infinite haze: the night floor", night + Params{{"haze", {INFINITY}}}, direction(45, 0), 0, grey, 0},
      {"saturation 0: grey", {{"saturation", {0}}}, view, 0, {y, y, y, 1}, 0},
      {"red up, blue down", {{"redblueshift", {0.1f}}}, view, 0, {p[0] * (1 + 0.1f), p[1], p[2] * (1 - 0.1f), 1}, 0},
      {"multiplier", {{"multiplier", {2}}}, view, 0, {2 * p[0], 2 * p[1], 2 * p[2], 1}, 0},
      {"hazy saturation", {{"haze", {7.5f}}, {"saturation", {0.5f}}}, view, 0,
       {hazy[0] * 0.453125f + 0.546875f * hy, hazy[1] * 0.453125f + 0.546875f * hy,
        hazy[2] * 0.453125f + 0.546875f * hy, 1},
       1e-6f * hy},
      {"a negative unit conversion: 1.25e-5", {{"rgb_unit_conversion", {-1, 5, 5, 5}}}, view, 0,
       skyLook(sky(kNoNight + Params{{"rgb_unit_conversion", {1.25e-5f, 1.25e-5f, 1.25e-5f, 1.25e-5f}}}), view), 0},
      // The disk term is inert: its intensity changes nothing while it is > 0; illumination rays see no glow.
      {"the disk term is inert", {{"sun_disk_scale", {2}}, {"sun_disk_intensity", {50}}}, nearSun, 0, wideGlow, 0},
      {"illumination rays: no glow", {{"night_color", {0.2f, 0.2f, 0.2f, 1}}}, nearSun, 8, noGlow, 0},
  };
  for (const auto& [label, params, at, kinds, expected, tolerance] : rows) {
    SCOPED_TRACE(label);
    const Rgba actual = skyLook(sky(kNoNight + params), at, kinds);
    if (tolerance == 0) expectBits(actual.data(), values(expected));
    else
      for (int i = 0; i < 4; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << "channel " << i;
  }
}

TEST(Sky, SkyMapReplacesTheSkyAwayFromTheSunAndTheHorizon) {
  const Rgba mapped{0.1f, 0.2f, 0.3f, 0.4f};
  RecordingSampler map(3, mapped);
  // With y up (x, y, z) is seen as (x, z, y).
  const Params params = sky({{"y_is_up", {1}}, {"use_sky_map", {1}}, {"sky_map", {}, &map}});
  const Color away{-0.6f, 0.48f, 0.64f};
  EXPECT_EQ(look("velk_qora_Env_Sky", params, {away}), mapped);
  EXPECT_EQ(map.coords.back(), std::vector<float>(away.begin(), away.end()));  // the ray direction itself
  // Camera rays keep the analytic sky within acos(0.998919129) (2.66 degrees)
  // of the sun and strictly within 0.008726646 of the horizon.
  const Color nearSun = direction(28.0, 0.0), offSun = direction(25.0, 0.0);
  const std::tuple<Color, bool> cases[] = {
      {{nearSun[0], nearSun[2], nearSun[1]}, true}, {{offSun[0], offSun[2], offSun[1]}, false},
      {{0.0f, 0.008f, -1.0f}, true}, {{0.0f, 0.008726646f, -1.0f}, false}, {{0.0f, 0.0095f, -1.0f}, false}};
  for (const auto& [d, analytic] : cases) {
    SCOPED_TRACE(::testing::Message() << d[0] << " " << d[1] << " " << d[2]);
    map.coords.clear();
    EXPECT_EQ(look("velk_qora_Env_Sky", params, {d})[3] == 1.0f, analytic);
    EXPECT_EQ(map.coords.size(), analytic ? 0u : 1u);
    EXPECT_EQ(look("velk_qora_Env_Sky", params, {d}, 8), mapped);  // illumination rays always see the map
  }
  EXPECT_EQ(look("velk_qora_Env_Sky", params + Params{{"sky_map", {}}}, {away}), (Rgba{0.0f, 0.0f, 0.0f, 1.0f}));
}

}  // namespace
}  // namespace kvi::test
