// GradientBackground: its declaration, the gradient over the image (two and
// three colours, turned, extrapolated), the ray kinds and what it leaves alone.
#include <array>
#include <cmath>
#include <cstring>

#include "kvi/host/tone_mapper.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

using Color = std::array<float, 3>;

const Color kTop{0.1f, 0.25f, 0.75f};
const Color kMiddle{0.5f, 0.5f, 0.125f};
const Color kBottom{0.9f, 0.25f, 0.0f};
const Color kFlat{0.3f, 0.6f, 0.2f};

struct Gradient {
  TestShader shader{"GradientBackground"};
  ScriptedContext context;
  int32_t width = 640;
  int32_t height = 480;

  explicit Gradient(bool threeColors = false, float rotation = 0.0f) {
    shader.block.setBool("twoColorsOnly", threeColors ? 0 : 1);
    shader.block.setColor3("backgroundTopColor", kTop);
    shader.block.setColor3("backgroundMiddleColor", kMiddle);
    shader.block.setColor3("backgroundBottomColor", kBottom);
    shader.block.setColor3("backgroundColor", kFlat);
    shader.block.setFloat("rotationAngle", rotation);
    shader.apply();
  }
  std::array<float, 4> at(float px, float py) {
    ShadingState state = shader.state();
    state.rasterPosition[0] = px;
    state.rasterPosition[1] = py;
    state.frameResolution[0] = width;
    state.frameResolution[1] = height;
    shader.environment()->shade(&context, &state);
    return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2], state.surfaceResult[3]};
  }
  Color colorAt(float px, float py) {
    const auto r = at(px, py);
    return {r[0], r[1], r[2]};
  }
};

Color mix(const Color& a, float wa, const Color& b, float wb) {
  return {wa * a[0] + wb * b[0], wa * a[1] + wb * b[1], wa * a[2] + wb * b[2]};
}

void expectBitEqual(const Color& actual, const Color& expected) {
  for (int i = 0; i < 3; ++i) EXPECT_BITEQ(actual[i], expected[i]);
}

TEST(GradientBackground, DeclaresItsParametersWithTheirDefaults) {
  const auto info = testShaderInfo("GradientBackground");
  EXPECT_EQ(info->operationMask, 128u);
  EXPECT_EQ(info->kind, 2);
  const char* names[] = {"u_tm_enabled", "u_tm_type", "u_tm_exposure", "u_tm_whiteColor", "u_tm_vignetting",
                         "u_tm_crushBlacks", "u_tm_burnHighlightsInv", "u_tm_saturation", "u_tm_gamma",
                         "u_cam_imagePlaneWidth", "u_cam_imagePlaneHeight", "u_cam_focalDistance",
                         "u_hasLightRepresentation", "twoColorsOnly", "backgroundTopColor",
                         "backgroundBottomColor", "backgroundMiddleColor", "backgroundColor", "rotationAngle"};
  ASSERT_EQ(info->parameters.size(), std::size(names));
  for (size_t i = 0; i < std::size(names); ++i) EXPECT_EQ(info->parameters[i].name, names[i]);
  EXPECT_EQ(info->parameters[0].offset, 8u);  // right after the table of virtual operations

  TestShader fresh("GradientBackground");
  EXPECT_EQ(fresh.block.getBool("u_hasLightRepresentation"), 0);
  EXPECT_EQ(fresh.block.getBool("twoColorsOnly"), 1);
  EXPECT_EQ(fresh.block.getFloats("backgroundMiddleColor"), (std::vector<float>{0.7f, 0.7f, 0.7f}));
}

TEST(GradientBackground, RunsFromTheTopColourToTheBottomColour) {
  Gradient g;
  expectBitEqual(g.colorAt(17.0f, 0.0f), kTop);
  expectBitEqual(g.colorAt(600.0f, 480.0f), kBottom);
  expectBitEqual(g.colorAt(5.0f, 240.0f), mix(kTop, 0.5f, kBottom, 0.5f));
  expectBitEqual(g.colorAt(5.0f, 120.0f), mix(kTop, 0.75f, kBottom, 0.25f));
  EXPECT_EQ(g.at(5.0f, 120.0f)[3], 0.0f);
  // Outside the image the colours extrapolate.
  expectBitEqual(g.colorAt(5.0f, -240.0f), mix(kTop, 1.5f, kBottom, -0.5f));
}

TEST(GradientBackground, ThreeColoursMeetInTheMiddle) {
  Gradient g(true);
  expectBitEqual(g.colorAt(0.0f, 0.0f), kTop);
  expectBitEqual(g.colorAt(0.0f, 240.0f), kMiddle);
  expectBitEqual(g.colorAt(0.0f, 480.0f), kBottom);
  expectBitEqual(g.colorAt(0.0f, 120.0f), mix(kTop, 0.5f, kMiddle, 0.5f));
  expectBitEqual(g.colorAt(0.0f, 360.0f), mix(kBottom, 0.5f, kMiddle, 0.5f));
  expectBitEqual(g.colorAt(0.0f, 720.0f), mix(kBottom, 2.0f, kMiddle, -1.0f));
  expectBitEqual(g.colorAt(0.0f, -120.0f), mix(kTop, 1.5f, kMiddle, -0.5f));
}

// Gradient parameter t recovered from the red channel of a two-colour gradient.
float parameterAt(Gradient& g, float px, float py) { return (g.colorAt(px, py)[0] - kTop[0]) / (kBottom[0] - kTop[0]); }

TEST(GradientBackground, TurnedGradientSpansTheImageCornerToCorner) {
  Gradient turned(false, 0.5f);
  // Turned by a positive angle, the top colour sits in the top-right corner
  // and the bottom colour in the bottom-left one, the centre halfway.
  EXPECT_NEAR(parameterAt(turned, 640.0f, 0.0f), 0.0f, 1e-5f);
  EXPECT_NEAR(parameterAt(turned, 0.0f, 480.0f), 1.0f, 1e-5f);
  EXPECT_NEAR(parameterAt(turned, 320.0f, 240.0f), 0.5f, 1e-5f);
  EXPECT_LT(parameterAt(turned, 0.0f, 0.0f), 0.5f);
  EXPECT_GT(parameterAt(turned, 640.0f, 480.0f), 0.5f);

  // A quarter turn runs from right (top colour) to left.
  Gradient quarter(false, 1.5707964f);
  EXPECT_NEAR(parameterAt(quarter, 640.0f, 100.0f), 0.0f, 1e-5f);
  EXPECT_NEAR(parameterAt(quarter, 0.0f, 300.0f), 1.0f, 1e-5f);
  EXPECT_NEAR(parameterAt(quarter, 160.0f, 0.0f), 0.75f, 1e-5f);
}

TEST(GradientBackground, OppositeTurnsAreMirrorImages) {
  // The extent uses |rho| and the projection rho: turning the other way
  // mirrors the gradient left to right.
  Gradient left(false, -0.7f);
  Gradient right(false, 0.7f);
  for (float px : {0.0f, 100.0f, 320.0f, 555.0f})
    for (float py : {0.0f, 200.0f, 480.0f})
      EXPECT_NEAR(parameterAt(left, px, py), parameterAt(right, 640.0f - px, py), 1e-5f) << px << ", " << py;
}

TEST(GradientBackground, RaysOfKindTwoSeeTheFlatColourOrBlack) {
  Gradient g;
  g.context.rayKindBits = 2;
  const auto flat = g.at(5.0f, 5.0f);
  expectBitEqual({flat[0], flat[1], flat[2]}, kFlat);
  EXPECT_EQ(flat[3], 0.0f);
  g.context.rayKindBits = 2 | 8;
  EXPECT_EQ(g.at(5.0f, 5.0f), flat) << "without a light representation kind 8 changes nothing";

  g.shader.block.setBool("u_hasLightRepresentation", 3);
  g.shader.apply();
  EXPECT_EQ(g.at(5.0f, 5.0f), (std::array<float, 4>{0.0f, 0.0f, 0.0f, 1.0f}));
  g.context.rayKindBits = 2;
  EXPECT_EQ(g.at(5.0f, 5.0f), flat);
  // Not of kind 2: the gradient, whatever else the ray is.
  g.context.rayKindBits = 8;
  expectBitEqual(g.colorAt(5.0f, 0.0f), kTop);
  EXPECT_EQ(g.at(5.0f, 0.0f)[3], 0.0f);
}

TEST(GradientBackground, CompensatesEveryBranchAndWritesOnlyTheResult) {
  Gradient g;
  host::ToneMapSettings t;
  t.enabled = 1;
  t.exposure = 1.5f;
  t.saturation = 0.8f;
  host::setToneMapParameters(g.shader.block, t);
  g.shader.apply();
  for (int32_t kinds : {0, 2}) {
    g.context.rayKindBits = kinds;
    const Color expected = kinds ? kFlat : kTop;
    const Color shown = g.colorAt(0.0f, 0.0f);
    EXPECT_NE(shown, expected);
    Color displayed;
    host::toneMap(t, displayed.data(), shown.data(), 0.0f, 0.0f, g.width, g.height);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(displayed[i], expected[i], 1e-5f) << "kinds " << kinds;
  }

  ShadingState state = patternState();
  state.rasterPosition[0] = 3.0f;
  state.rasterPosition[1] = 7.0f;
  state.frameResolution[0] = 64;
  state.frameResolution[1] = 48;
  ShadingState before = state;
  g.shader.environment()->shade(&g.context, &state);
  std::memcpy(before.surfaceResult, state.surfaceResult, sizeof state.surfaceResult);
  EXPECT_EQ(std::memcmp(&before, &state, sizeof state), 0);
}

}  // namespace
}  // namespace kvi::test
