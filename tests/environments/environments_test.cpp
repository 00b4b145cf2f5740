// The environments through the module loader: the backgrounds' tone-mapping
// compensation (against the host's forward tone mapper and against values
// worked out by hand and in single precision), the gradient background and
// the daylight sky.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/samplers.h"
#include "kvi/host/tone_mapper.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

using Color = std::array<float, 3>;
using Rgba = std::array<float, 4>;
using host::ToneMapSettings;

Rgba resultOf(EnvironmentShader* shader, ScriptedContext& context, ShadingState state) {
  shader->shade(&context, &state);
  return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2], state.surfaceResult[3]};
}

void expectBitEqual(const Rgba& actual, const Rgba& expected) {
  for (int i = 0; i < 4; ++i) EXPECT_BITEQ(actual[i], expected[i]) << "channel " << i;
}

// ---- Tone-mapping compensation, seen through GradientBackground: a ray of
// kind 2 shows "backgroundColor" as it is, so the result is exactly the
// inversion of that colour.

struct Pixel {
  float x = 320.0f, y = 240.0f;
  int32_t width = 640, height = 480;
};

const ToneMapSettings kIdentity{.enabled = 1, .gamma = 1.0f};  // every step the identity in exact arithmetic
const ToneMapSettings kStrong{.enabled = 1, .exposure = 1.7f, .white = {1.1f, 1.0f, 0.85f}, .vignetting = 1.5f,
                              .crushBlacks = 0.25f, .burnHighlightsInv = 3.0f, .saturation = 1.2f, .gamma = 2.2f,
                              .imagePlaneWidth = 1.6f, .imagePlaneHeight = 0.9f, .focalDistance = 1.2f};
const ToneMapSettings kMild{.enabled = 1, .exposure = 0.6f, .crushBlacks = 0.1f, .burnHighlightsInv = 8.0f,
                            .saturation = 0.7f, .gamma = 1.8f};

// The colour a background shows for `picked` after its compensation: the
// gradient's flat colour (a ray of kind 2), the simple background's image,
// the image background's picture (camera rays), each showing `picked`.
Color compensate(const ToneMapSettings& t, const Color& picked, const Pixel& p = {},
                 const std::string& name = "GradientBackground") {
  TestShader background(name);
  host::setToneMapParameters(background.block, t);
  host::ConstantSampler image({picked[0], picked[1], picked[2], 1.0f});
  ScriptedContext context;
  context.rayKindBits = 2;
  if (name == "SimpleBackground") {
    background.block.setInt("backgroundMode", 1);
    background.block.setEnvironmentMap("backgroundImage", &image, 0);
  } else {
    background.block.setColor3("backgroundColor", picked);
  }
  if (name == "ImageBackground") {
    background.block.setTexture("image", &image, 0);
    context.rayKindBits = 1;
  }
  background.apply();
  ShadingState state = background.state();
  state.rayDirection[2] = -1.0f;
  state.rasterPosition[0] = p.x, state.rasterPosition[1] = p.y;
  state.frameResolution[0] = p.width, state.frameResolution[1] = p.height;
  const Rgba r = resultOf(background.environment(), context, state);
  return {r[0], r[1], r[2]};
}

Color forward(const ToneMapSettings& t, const Color& c, const Pixel& p = {}) {
  Color out;
  host::toneMap(t, out.data(), c.data(), p.x, p.y, p.width, p.height);
  return out;
}

void expectNear(const Color& actual, const Color& expected, float relative, float absolute = 1e-7f) {
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(actual[i], expected[i], relative * std::fabs(expected[i]) + absolute) << "channel " << i;
}

TEST(ToneMappingCompensation, TheHostsToneMapperGivesThePickedColourBack) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> channel(0.02f, 0.98f);
  const Pixel pixels[] = {{320, 240, 640, 480}, {10, 20, 640, 480}, {630, 470, 640, 480}};
  for (const char* background : {"GradientBackground", "SimpleBackground", "ImageBackground"})
    for (const auto& settings : {kStrong, kMild, kIdentity})
      for (int i = 0; i < 60; ++i) {
        SCOPED_TRACE(background);
        const Pixel& pixel = pixels[i % 3];
        const Color picked{channel(rng), channel(rng), channel(rng)};
        // The closed form of the burn step loses digits to cancellation in dark
        // channels (sqrt(h^2 + q) - h with h much larger than the result),
        // hence the absolute allowance (far inside one 8-bit step).
        expectNear(forward(settings, compensate(settings, picked, pixel, background), pixel), picked, 2e-5f, 4e-6f);
      }
}

// Each step alone (the others at the identity) against values worked out by
// hand, then every step at once against values worked out in single
// precision from the written steps: those depend on each sum's order and on
// F (1/d) and (x - L) (1/S) being multiplications.
TEST(ToneMappingCompensation, MatchesWorkedOutValues) {
  const auto with = [](auto change) {
    ToneMapSettings t = kIdentity;
    change(t);
    return t;
  };
  const std::tuple<ToneMapSettings, Pixel, Color, Color> steps[] = {
      {with([](auto& t) { t.gamma = 2.2f; }), {}, {0.5f, 0.5f, 0.5f}, {0.21763764f, 0.21763764f, 0.21763764f}},
      {with([](auto& t) { t.crushBlacks = 0.5f; }), {}, {0.2f, 0.3f, 0.1f}, {0.29929298f, 0.41987031f, 0.16968492f}},
      {with([](auto& t) { t.saturation = 0.5f; }), {}, {0.2f, 0.3f, 0.1f}, {0.1357f, 0.3357f, -0.0643f}},
      {with([](auto& t) { t.burnHighlightsInv = 2.0f; }), {}, {0.6f, 0.2f, 1.5f}, {0.76619038f, 0.21980390f, 2.30277564f}},
      {with([](auto& t) { t.exposure = 2, t.white[1] = 0.5f, t.white[2] = 0.25f, t.vignetting = 2,
                          t.imagePlaneWidth = 2, t.focalDistance = 1.5f; }),
       {150.0f, 25.0f, 200, 100}, {0.2f, 0.3f, 0.1f}, {0.11388889f, 0.34166667f, 0.22777778f}},
  };
  for (const auto& [settings, pixel, picked, expected] : steps) expectNear(compensate(settings, picked, pixel), expected, 2e-6f);
  // The host's forward operator takes the crush step back (it has no closed form there).
  expectNear(forward(with([](auto& t) { t.crushBlacks = 0.5f; }), {0.29929298f, 0.41987031f, 0.16968492f}),
             {0.2f, 0.3f, 0.1f}, 2e-6f);
  const Pixel offCentre{100.0f, 400.0f, 640, 480};
  EXPECT_EQ(compensate(kStrong, {1.2f, 0.8f, 0.3f}, offCentre), (Color{1.64127243f, 0.689456999f, 0.19332698f}));
  // Bright enough after the gamma step (luminance >= 1) to skip the crush step.
  EXPECT_EQ(compensate(kStrong, {2.0f, 0.9f, 0.9f}, offCentre), (Color{6.70332527f, 1.10201716f, 1.29649079f}));
  EXPECT_EQ(compensate(kMild, {0.7f, 0.1f, 0.4f}, offCentre), (Color{2.70716071f, -0.0458288193f, 0.55997926f}));
  // A channel at 0 stays 0 in the burn step instead of becoming 0 * inf.
  EXPECT_BITEQ(compensate(with([](auto& t) { t.burnHighlightsInv = 2.0f; }), {0.5f, 0.0f, 0.3f})[1], 0.0f);
  // At the image centre there is no vignetting, whatever the exponent.
  ToneMapSettings flat = kStrong;
  flat.vignetting = 0.0f;
  EXPECT_EQ(compensate(kStrong, {0.5f, 0.4f, 0.3f}), compensate(flat, {0.5f, 0.4f, 0.3f}));
}

TEST(ToneMappingCompensation, AppliesOnlyToAnEnabledTypeOneMapperAndPassesDivisionsByZeroOn) {
  const Color picked{0.3f, 0.6f, 0.9f};
  ToneMapSettings t = kStrong;
  const Color inverted = compensate(t, picked);
  ASSERT_NE(inverted, picked);
  t.enabled = 0;
  EXPECT_EQ(compensate(t, picked), picked);
  EXPECT_EQ(forward(t, picked), picked);
  t.enabled = 7;  // any non-zero byte enables
  EXPECT_EQ(compensate(t, picked), inverted);
  for (int32_t type : {0, 2, -1}) {
    t.type = type;
    EXPECT_EQ(compensate(t, picked), picked) << "type " << type;
    EXPECT_EQ(forward(t, picked), picked) << "type " << type;
  }
  // Exposure 0, a zero white channel, and vignetting with no focal distance at
  // the centre divide by zero: infinities where that channel is divided.
  const auto infinite = [&](auto change) {
    ToneMapSettings z = kIdentity;
    change(z);
    const Color c = compensate(z, picked);
    return std::array<bool, 3>{std::isinf(c[0]), std::isinf(c[1]), std::isinf(c[2])};
  };
  EXPECT_EQ(infinite([](auto& z) { z.exposure = 0; }), (std::array<bool, 3>{true, true, true}));
  EXPECT_EQ(infinite([](auto& z) { z.white[1] = 0; }), (std::array<bool, 3>{false, true, false}));
  EXPECT_EQ(infinite([](auto& z) { z.vignetting = 1, z.focalDistance = 0; }), (std::array<bool, 3>{true, true, true}));
}

// The environments write surfaceResult and nothing else, and ask the host
// only for ray kinds.
TEST(Environments, WriteOnlyTheResult) {
  for (const char* name : {"GradientBackground", "SimpleBackground", "ImageBackground", "velk_qora_Env_Sky"})
    for (int32_t kinds : {0, 2, 8, 10}) {
      TestShader shader(name);
      shader.apply();
      ScriptedContext context;
      context.rayKindBits = kinds;
      ShadingState before = patternState();
      before.rayDirection[0] = before.rayDirection[1] = 0.0f, before.rayDirection[2] = -1.0f;
      ShadingState after = before;
      shader.environment()->shade(&context, &after);
      std::memcpy(before.surfaceResult, after.surfaceResult, sizeof after.surfaceResult);
      EXPECT_EQ(std::memcmp(&before, &after, sizeof after), 0) << name << " " << kinds;
      EXPECT_EQ(context.totalCalls(), context.calls(kIsRayKind)) << name;
    }
}

// ---- GradientBackground.

// Blue runs from 0 at the top to 1 at the bottom: in two colours it is t itself.
const Color kTop{0.125f, 0.25f, 0.0f}, kMiddle{0.5f, 0.5f, 0.125f}, kBottom{0.875f, 0.25f, 1.0f};
const Color kFlat{0.3f, 0.6f, 0.2f};

struct Gradient {
  TestShader shader{"GradientBackground"};
  ScriptedContext context;

  explicit Gradient(bool threeColors = false, float rotation = 0.0f) {
    if (threeColors) shader.block.setBool("twoColorsOnly", 0);  // two by default
    shader.block.setColor3("backgroundTopColor", kTop);
    shader.block.setColor3("backgroundMiddleColor", kMiddle);
    shader.block.setColor3("backgroundBottomColor", kBottom);
    shader.block.setColor3("backgroundColor", kFlat);
    shader.block.setFloat("rotationAngle", rotation);
    shader.apply();
  }
  Rgba at(float px, float py) {
    ShadingState state = shader.state();
    state.rasterPosition[0] = px, state.rasterPosition[1] = py;
    state.frameResolution[0] = 640, state.frameResolution[1] = 480;
    return resultOf(shader.environment(), context, state);
  }
  // The gradient parameter t, read back from the blue of two colours.
  float parameterAt(float px, float py) { return at(px, py)[2]; }
};

TEST(GradientBackground, RunsDownTheImageInTwoOrThreeColoursExtrapolatedOutside) {
  const std::tuple<bool, float, Color> cases[] = {  // three colours, row, colour
      {false, 0, kTop},      {false, 480, kBottom},     {false, 240, {0.5f, 0.25f, 0.5f}},
      {false, 120, {0.3125f, 0.25f, 0.25f}},            {false, -240, {-0.25f, 0.25f, -0.5f}},
      {true, 0, kTop},       {true, 240, kMiddle},      {true, 480, kBottom},
      {true, 120, {0.3125f, 0.375f, 0.0625f}},          {true, 360, {0.6875f, 0.375f, 0.5625f}},
      {true, 720, {1.25f, 0.0f, 1.875f}},               {true, -120, {-0.0625f, 0.125f, -0.0625f}},
  };
  for (const auto& [three, py, color] : cases) {
    Gradient g(three);
    expectBitEqual(g.at(17.0f, py), {color[0], color[1], color[2], 0.0f});
  }
  EXPECT_BITEQ(Gradient().at(17.0f, -50.0f)[2], -50.0f / 480.0f);  // unturned, t is py / H exactly
}

TEST(GradientBackground, TurnedGradientSpansTheImageCornerToCorner) {
  // A positive turn puts the top colour in the top-right corner, a negative
  // one in the top-left (the extent takes |rho|, the projection rho); a
  // quarter turn runs from right to left.
  const std::array<float, 4> cases[] = {  // rotation, px, py, t
      {0.5f, 640, 0, 0},     {0.5f, 0, 480, 1},    {0.5f, 320, 240, 0.5f},    {-0.5f, 0, 0, 0},
      {-0.5f, 640, 480, 1},  {-0.5f, 320, 240, 0.5f}, {1.5707964f, 640, 100, 0}, {1.5707964f, 0, 300, 1},
      {1.5707964f, 160, 0, 0.75f},
  };
  for (const auto& c : cases)
    EXPECT_NEAR(Gradient(false, c[0]).parameterAt(c[1], c[2]), c[3], 1e-5f) << c[0] << " " << c[1] << " " << c[2];
}

TEST(GradientBackground, RaysOfKindTwoSeeTheFlatColourOrBlackForALight) {
  const std::tuple<uint8_t, int32_t, Rgba> cases[] = {  // light representation, ray kinds, result
      {0, 2, {0.3f, 0.6f, 0.2f, 0}}, {0, 2 | 8, {0.3f, 0.6f, 0.2f, 0}}, {3, 2, {0.3f, 0.6f, 0.2f, 0}},
      {3, 2 | 8, {0, 0, 0, 1}},      {3, 8, {0.125f, 0.25f, 0.0f, 0}},  // not of kind 2: the gradient
  };
  for (const auto& [light, kinds, result] : cases) {
    Gradient g;
    if (light) g.shader.block.setBool("u_hasLightRepresentation", light);  // none by default
    g.shader.apply();
    g.context.rayKindBits = kinds;
    expectBitEqual(g.at(5.0f, 0.0f), result);
  }
}

// The flat colour's compensation is checked above; the gradient's is the same.
TEST(GradientBackground, CompensatesTheGradientToo) {
  Gradient g;
  const ToneMapSettings t{.enabled = 1, .exposure = 1.5f, .saturation = 0.8f};
  host::setToneMapParameters(g.shader.block, t);
  g.shader.apply();
  const Rgba r = g.at(0.0f, 240.0f);
  EXPECT_NE(r[0], 0.5f);
  expectNear(forward(t, {r[0], r[1], r[2]}, {0.0f, 240.0f, 640, 480}), {0.5f, 0.25f, 0.5f}, 1e-5f);
}

// ---- SimpleBackground and ImageBackground.

// Records the first `dimensions` coordinates it is asked for and answers a
// fixed texel.
struct CoordinateRecorder : ITextureSampler {
  int dimensions;
  Rgba texel;
  std::vector<float> coords;
  CoordinateRecorder(int d, Rgba t) : dimensions(d), texel(t) {}
  void sample(float out[4], const float* c) override {
    coords.assign(c, c + dimensions);
    std::copy(texel.begin(), texel.end(), out);
  }
};

// What each ray sees of a simple background: its colour, or an image looked
// up in the ray direction turned by cubeMatrix (a lat-long image by the
// direction itself, a cube image by the face coordinates of the turned
// direction), the illumination image for illumination rays when asked for,
// black with full alpha for them when a light stands for the background.
TEST(SimpleBackground, ShowsItsColourOrImageInTheTurnedDirection) {
  const Rgba image{0.1f, 0.2f, 0.3f, 0.5f}, lighting{0.6f, 0.5f, 0.4f, 1.0f};
  const Color colour{0.3f, 0.6f, 0.9f};
  const std::array<float, 9> turn{0, 0, 1, 1, 0, 0, 0, 1, 0};  // (x, y, z) becomes (y, z, x)
  const std::array<float, 3> d{0.6f, -0.8f, 0.0f}, turned{-0.8f, 0.0f, 0.6f};
  enum Source { kColour, kImage, kCube, kLighting, kBlack, kNothing };
  struct Case { int32_t mode, kinds; uint8_t useLighting, light; bool bound; Source seen; };
  const Case cases[] = {
      {0, 0, 0, 0, true, kColour},    {1, 2, 0, 0, true, kImage},      {2, 0, 0, 0, true, kCube},
      {5, 0, 0, 0, true, kColour},    {1, 8, 1, 0, true, kLighting},   {1, 8, 0, 0, true, kImage},
      {1, 2, 1, 0, true, kImage},     {1, 10, 1, 1, true, kBlack},     {1, 2, 1, 1, true, kImage},
      {1, 0, 0, 0, false, kNothing},  {2, 0, 0, 0, false, kNothing},   {1, 8, 1, 0, false, kNothing},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "mode " << c.mode << " kinds " << c.kinds << " case " << &c - cases);
    TestShader background("SimpleBackground");
    CoordinateRecorder latLong(3, image), cube(3, image), lightingImage(3, lighting);
    background.block.setInt("backgroundMode", c.mode);
    background.block.setColor3("backgroundColor", colour);
    background.block.setMatrix3("cubeMatrix", turn);
    background.block.setBool("useIlluminationImage", c.useLighting);
    background.block.setBool("u_hasLightRepresentation", c.light);
    if (c.bound) {
      background.block.setEnvironmentMap("backgroundImage", &latLong, 0);
      background.block.setTexture("cubeImage", &cube, 1);
      background.block.setEnvironmentMap("illuminationImage", &lightingImage, 2);
    }
    background.apply();
    ScriptedContext context;
    context.rayKindBits = c.kinds;
    ShadingState state = background.state();
    std::copy(d.begin(), d.end(), state.rayDirection);
    const Rgba r = resultOf(background.environment(), context, state);
    const auto p = host::CubeFaceSampler::project(turned.data());
    switch (c.seen) {
      case kColour: expectBitEqual(r, {colour[0], colour[1], colour[2], 0}); break;
      case kImage: expectBitEqual(r, {0.1f, 0.2f, 0.3f, 0}); EXPECT_EQ(latLong.coords, std::vector<float>(turned.begin(), turned.end())); break;
      case kCube:
        expectBitEqual(r, {0.1f, 0.2f, 0.3f, 0});
        EXPECT_EQ(cube.coords, (std::vector<float>{p.s, p.t, float(p.face)}));
        break;
      case kLighting: expectBitEqual(r, {0.6f, 0.5f, 0.4f, 0}); break;
      case kBlack: expectBitEqual(r, {0, 0, 0, 1}); break;
      case kNothing: expectBitEqual(r, {0, 0, 0, 0}); break;
    }
  }
}

// Where each layout puts the picture: a 4 x 2 picture on a 16 x 16 frame, the
// texel centre (u, v) each pixel should see, or the background colour where
// the picture does not reach.
TEST(ImageBackground, EachLayoutPlacesTheKnownTexelWhereItShould) {
  constexpr float kBackground = -1;
  struct Case { int32_t layout; uint8_t keep; float target, scale[2], offset[2], x, y, u, v; };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "case " << &c - cases);
    TestShader background("ImageBackground");
    CoordinateRecorder picture(2, texel);
    background.block.setTexture("image", &picture, 0);
    background.block.setColor3("backgroundColor", colour);
    background.block.setInt("layoutType", c.layout);
    background.block.setBool("keepAspectRatio", c.keep);
    background.block.setColor3("imageResolution", {4, 2, 0});
    background.block.setColor3("renderTargetResolution", {c.target, c.target, 0});
    background.block.setFloat2("uv_scale", {c.scale[0], c.scale[1]});
    background.block.setColor3("uv_offset", {c.offset[0], c.offset[1], 7});
    background.apply();
    ScriptedContext context;
    ShadingState state = background.state();
    state.rasterPosition[0] = c.x, state.rasterPosition[1] = c.y;
    state.frameResolution[0] = state.frameResolution[1] = 16;
    const Rgba r = resultOf(background.environment(), context, state);
    if (c.u == kBackground) {
      expectBitEqual(r, {colour[0], colour[1], colour[2], 0});
      EXPECT_TRUE(picture.coords.empty());
      continue;
    }
    EXPECT_EQ(picture.coords, (std::vector<float>{c.u, c.v}));
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(r[i], 0.25f * texel[i] + 0.75f * colour[i]);  // laid over by alpha
  }
  // A real picture: texel (1, 0) of the bottom row shows at its pixel.
  std::vector<float> rgba;
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 4; ++i) rgba.insert(rgba.end(), {float(i), float(j), 0.5f, 1.0f});
  host::ImageSampler image(4, 2, rgba);
  TestShader background("ImageBackground");
  background.block.setTexture("image", &image, 0);
  background.block.setColor3("imageResolution", {4, 2, 0});
  background.apply();
  ScriptedContext context;
  ShadingState state = background.state();
  state.rasterPosition[0] = 6, state.rasterPosition[1] = 10;
  state.frameResolution[0] = state.frameResolution[1] = 16;
  expectBitEqual(resultOf(background.environment(), context, state), {1, 0, 0.5f, 0});
}

// ---- velk_qora_Env_Sky.

constexpr double kPi = 3.14159265358979323846;

std::array<float, 3> direction(double elevationDegrees, double azimuthDegrees) {
  const double e = elevationDegrees * kPi / 180.0, a = azimuthDegrees * kPi / 180.0;
  return {float(std::cos(e) * std::cos(a)), float(std::cos(e) * std::sin(a)), float(std::sin(e))};
}

const Rgba kNone{0, 0, 0, 0};

// A sky in the z-up frame (y_is_up off) with the sun at 30 degrees, azimuth 0.
struct Sky {
  TestShader shader{"velk_qora_Env_Sky"};
  ScriptedContext context;

  Sky() {
    shader.block.setBool("y_is_up", 0);
    sun(30.0, 0.0);
  }
  Sky& sun(double elevation, double azimuth) {
    shader.block.setColor3("adj_sun_direction", direction(elevation, azimuth));
    shader.apply();
    return *this;
  }
  template <class Value>  // a float, an Rgba or a flag
  Sky& set(const char* name, const Value& value) {
    if constexpr (std::is_same_v<Value, float>) shader.block.setFloat(name, value);
    else if constexpr (std::is_same_v<Value, uint8_t>) shader.block.setBool(name, value);
    else shader.block.setColor4(name, value);
    shader.apply();
    return *this;
  }
  Rgba look(const std::array<float, 3>& d) {
    ShadingState state = shader.state();
    std::memcpy(state.rayDirection, d.data(), sizeof state.rayDirection);
    return resultOf(shader.environment(), context, state);
  }
  Rgba look(double elevation, double azimuth) { return look(direction(elevation, azimuth)); }
};

float luminance(const Rgba& c) { return 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]; }

TEST(Sky, SwitchedOffWithoutMultiplierOrUnlitIsTransparentBlack) {
  EXPECT_EQ(Sky().look(40.0, 10.0)[3], 1.0f);
  for (double e : {-60.0, 0.0, 30.0, 89.0}) EXPECT_EQ(Sky().set("backgroundOn", uint8_t{0}).look(e, 0.0), kNone);
  for (float m : {0.0f, -2.0f}) EXPECT_EQ(Sky().set("multiplier", m).look(40.0, 10.0), kNone);
  Sky unlit;
  unlit.set("illuminationOn", uint8_t{0}).context.rayKindBits = 8;
  EXPECT_EQ(unlit.look(40.0, 10.0), kNone);
  unlit.context.rayKindBits = 2;
  EXPECT_GT(unlit.look(40.0, 10.0)[0], 0.0f);
}

TEST(Sky, IsBrighterTowardsTheSunAndAtTheZenithWithHaze) {
  Sky sky;
  sky.set("night_color", kNone);
  float previous = INFINITY;
  for (double azimuth : {0.0, 10.0, 45.0, 90.0, 135.0}) {
    EXPECT_LT(luminance(sky.look(30.0, azimuth)), previous) << "azimuth " << azimuth;
    previous = luminance(sky.look(30.0, azimuth));
  }
  // Beyond 90 degrees from the sun the luminance stops changing (only the chromaticity does).
  sky.sun(10.0, 0.0);
  const float beyond = luminance(sky.look(10.0, 120.0));
  for (double azimuth : {140.0, 180.0}) EXPECT_NEAR(luminance(sky.look(10.0, azimuth)), beyond, 1e-3f * beyond);
  // The glow sits on the sun and is gone a few degrees away, farther with a larger disk.
  sky.sun(30.0, 0.0);
  EXPECT_GT(luminance(sky.look(30.0, 0.0)), 2.0f * luminance(sky.look(30.0, 6.0)));
  const float narrow = luminance(sky.look(30.0, 3.0));
  EXPECT_GT(luminance(sky.set("sun_disk_scale", 2.0f).look(30.0, 3.0)), 1.3f * narrow);
  previous = 0.0f;
  for (float haze : {0.0f, 1.0f, 3.0f, 8.0f}) {
    EXPECT_GT(luminance(sky.set("haze", haze).look(90.0, 0.0)), previous) << "haze " << haze;
    previous = luminance(sky.look(90.0, 0.0));
  }
}

// The sun and the view at the zenith, where every Perez ratio is 1: the
// colour is the zenith colour plus the glow at its 0.01 rad floor, worked out
// in double precision.
TEST(Sky, ZenithSunMatchesTheModelWorkedOutInDouble) {
  const Rgba actual = Sky().sun(90.0, 0.0).look({0.0f, 0.0f, 1.0f});
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
  for (double azimuth : {0.0, 100.0, 250.0}) {
    const auto d = direction(0.0, azimuth);
    Sky sky;
    sky.set("night_color", kNone);
    // The view's up component is floored at 0.001: the horizon ray sees what the ray at 0.001 sees.
    const Rgba horizon = sky.look({d[0], d[1], 0.001f});
    EXPECT_EQ(sky.look({d[0], d[1], 0.0002f}), horizon);
    EXPECT_NE(sky.look({d[0], d[1], 0.002f}), horizon);
    const float l = 0.3f * horizon[0] + 0.59f * horizon[1] + 0.11f * horizon[2];
    const Rgba ground{l * 1.0f, l * 0.5f, l * 0.25f, 1.0f};
    sky.set("ground_color", Rgba{1.0f, 0.5f, 0.25f, 1.0f}).set("night_color", Rgba{0.5f, 0.5f, 0.5f, 1.0f});
    expectBitEqual(sky.look({d[0], d[1], -0.3f}), ground);  // below the blur band: no night floor
    // Half-way down a band 1 deep the smooth step is 1/2: half sky, half ground, half the night floor.
    const auto half = [&](int i) { return std::max(0.5f * horizon[i] + 0.5f * ground[i], 0.5f * 0.5f); };
    expectBitEqual(sky.set("horizon_blur", 10.0f).look({d[0], d[1], -0.5f}), {half(0), half(1), half(2), 1.0f});
    expectBitEqual(sky.set("horizon_blur", 0.0f).look({d[0], d[1], -0.0001f}), ground);  // a sharp horizon
  }
  // Raised by 2 tenths, the horizon puts a ray 0.1 up on the ground.
  const Rgba raised = Sky().set("ground_color", Rgba{1.0f, 0.5f, 0.25f, 1.0f}).set("horizon_blur", 0.0f)
                          .set("horizon_height", 2.0f).look({0.6f, 0.8f, 0.1f});
  EXPECT_BITEQ(raised[1], raised[0] * 0.5f);
  EXPECT_BITEQ(raised[2], raised[0] * 0.25f);
}

TEST(Sky, SaturationShiftAndScaleActExactly) {
  const auto view = direction(25.0, 70.0);
  const auto plain = [&](float haze) { return Sky().set("night_color", kNone).set("haze", haze).look(view); };
  const auto with = [&](float haze, const char* name, float value) {
    return Sky().set("night_color", kNone).set("haze", haze).set(name, value).look(view);
  };
  const Rgba p = plain(0.0f);
  const float y = 0.71516f * p[1] + 0.212671f * p[0] + 0.072169f * p[2];
  expectBitEqual(with(0.0f, "saturation", 0.0f), {y, y, y, 1.0f});
  expectBitEqual(with(0.0f, "redblueshift", 0.1f), {p[0] * (1.0f + 0.1f), p[1], p[2] * (1.0f - 0.1f), 1.0f});
  expectBitEqual(with(0.0f, "multiplier", 2.0f), {2.0f * p[0], 2.0f * p[1], 2.0f * p[2], 1.0f});
  // With haze 7.5 (t = 0.5) a saturation of 0.5 acts as 0.5^3 t^3 + (1 - t^3) 0.5 = 0.453125.
  const Rgba hazy = plain(7.5f), desaturated = with(7.5f, "saturation", 0.5f);
  const float hy = 0.71516f * hazy[1] + 0.212671f * hazy[0] + 0.072169f * hazy[2];
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(desaturated[i], hazy[i] * 0.453125f + 0.546875f * hy, 1e-6f * hy);
  // A negative unit conversion falls back to 1.25e-5 in every channel.
  Sky fallback, explicitUnit;
  fallback.set("rgb_unit_conversion", Rgba{-1.0f, 5.0f, 5.0f, 5.0f}).set("night_color", kNone);
  explicitUnit.set("rgb_unit_conversion", Rgba{1.25e-5f, 1.25e-5f, 1.25e-5f, 1.25e-5f}).set("night_color", kNone);
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
  sky.set("sun_glow_intensity", 1.0f).context.rayKindBits = 8;  // illumination rays: no glow
  expectBitEqual(sky.look(nearSun), noGlow);
}

TEST(Sky, ParameterChangesReachTheCachedValues) {
  Sky changed, fresh;
  changed.look(40.0, 20.0);
  changed.set("haze", 5.0f).set("sun_disk_scale", 2.0f).sun(12.0, 40.0);
  fresh.shader.block.setFloat("haze", 5.0f);
  fresh.shader.block.setFloat("sun_disk_scale", 2.0f);
  fresh.sun(12.0, 40.0);
  for (double az : {40.0, 41.0, 100.0}) expectBitEqual(changed.look(12.0, az), fresh.look(12.0, az));
}

// Records the direction it is asked for and answers a fixed colour.
struct RecordingSampler : ITextureSampler {
  std::array<float, 3> coords{};
  int calls = 0;
  void sample(float out[4], const float* c) override {
    ++calls, coords = {c[0], c[1], c[2]};
    out[0] = 0.1f, out[1] = 0.2f, out[2] = 0.3f, out[3] = 0.4f;
  }
};

TEST(Sky, SkyMapReplacesTheSkyAwayFromTheSunAndTheHorizon) {
  const Rgba mapped{0.1f, 0.2f, 0.3f, 0.4f};
  RecordingSampler map;
  Sky sky;
  sky.shader.block.setEnvironmentMap("sky_map", &map, 3);
  sky.set("y_is_up", uint8_t{1}).set("use_sky_map", uint8_t{1});  // with y up, (x, y, z) is seen as (x, z, y)
  const std::array<float, 3> away{-0.6f, 0.48f, 0.64f};
  EXPECT_EQ(sky.look(away), mapped);
  EXPECT_EQ(map.coords, away);  // the ray direction itself, not the turned view
  // Camera rays keep the analytic sky within acos(0.998919129) (2.66 degrees)
  // of the sun and strictly within 0.008726646 of the horizon.
  const auto nearSun = direction(28.0, 0.0), offSun = direction(25.0, 0.0);
  const std::tuple<std::array<float, 3>, bool> cases[] = {
      {{nearSun[0], nearSun[2], nearSun[1]}, true}, {{offSun[0], offSun[2], offSun[1]}, false},
      {{0.0f, 0.008f, -1.0f}, true}, {{0.0f, 0.008726646f, -1.0f}, false}, {{0.0f, 0.0095f, -1.0f}, false}};
  for (const auto& [d, analytic] : cases) {
    map.calls = 0;
    sky.context.rayKindBits = 0;
    EXPECT_EQ(sky.look(d)[3] == 1.0f, analytic) << d[0] << " " << d[1] << " " << d[2];
    EXPECT_EQ(map.calls, analytic ? 0 : 1);
    sky.context.rayKindBits = 8;  // illumination rays always see the map
    EXPECT_EQ(sky.look(d), mapped);
  }
  sky.shader.block.setEnvironmentMap("sky_map", nullptr, -1);
  sky.shader.apply();
  EXPECT_EQ(sky.look(away), (Rgba{0.0f, 0.0f, 0.0f, 1.0f}));
}

TEST(Sky, SunBelowTheHorizonLeavesTheNightFloorAboveAndNaNBelow) {
  // The chromaticity takes the square root of a negative (or NaN) sun height:
  // above the horizon the night floor shows, the ground below the blur band
  // (which has no floor) passes the NaN on.
  const Rgba night{0.2f, 0.2f, 0.2f, 1.0f};
  for (const auto& sun : {direction(-10.0, 0.0), std::array<float, 3>{NAN, 0.0f, 1.0f}}) {
    Sky sky;
    sky.shader.block.setColor3("adj_sun_direction", sun);
    sky.shader.apply();
    for (double e : {5.0, 45.0, 80.0}) EXPECT_EQ(sky.look(e, 90.0), night);
    EXPECT_TRUE(std::isnan(sky.look(-45.0, 0.0)[0]));
  }
  EXPECT_EQ(Sky().set("haze", INFINITY).look(45.0, 0.0), night);
}

}  // namespace
}  // namespace kvi::test
