// The backgrounds' tone-mapping compensation, seen through GradientBackground:
// a ray of kind 2 shows "backgroundColor" as it is, so the shader's result is
// exactly the inversion of that colour. Checked against the host's forward
// tone mapper, against values worked out by hand for each step, and bit for
// bit against the inversion written out in single precision.
#include <array>
#include <cmath>
#include <random>

#include "kvi/host/tone_mapper.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

using Color = std::array<float, 3>;
using host::ToneMapSettings;

struct Pixel {
  float x = 320.0f;
  float y = 240.0f;
  int32_t width = 640;
  int32_t height = 480;
};

// Every step at a setting that is the identity in exact arithmetic.
const ToneMapSettings kIdentity{.enabled = 1, .gamma = 1.0f};
// Far from the identity in every step.
const ToneMapSettings kStrong{.enabled = 1, .exposure = 1.7f, .white = {1.1f, 1.0f, 0.85f}, .vignetting = 1.5f,
                              .crushBlacks = 0.25f, .burnHighlightsInv = 3.0f, .saturation = 1.2f, .gamma = 2.2f,
                              .imagePlaneWidth = 1.6f, .imagePlaneHeight = 0.9f, .focalDistance = 1.2f};
const ToneMapSettings kMild{.enabled = 1, .exposure = 0.6f, .crushBlacks = 0.1f, .burnHighlightsInv = 8.0f,
                            .saturation = 0.7f, .gamma = 1.8f};

Color compensate(const ToneMapSettings& t, const Color& picked, const Pixel& p = {}) {
  TestShader background("GradientBackground");
  host::setToneMapParameters(background.block, t);
  background.block.setColor3("backgroundColor", picked);
  background.apply();
  ScriptedContext context;
  context.rayKindBits = 2;
  ShadingState state = background.state();
  state.rasterPosition[0] = p.x;
  state.rasterPosition[1] = p.y;
  state.frameResolution[0] = p.width;
  state.frameResolution[1] = p.height;
  background.environment()->shade(&context, &state);
  return {state.surfaceResult[0], state.surfaceResult[1], state.surfaceResult[2]};
}

Color forward(const ToneMapSettings& t, const Color& c, const Pixel& p = {}) {
  Color out;
  host::toneMap(t, out.data(), c.data(), p.x, p.y, p.width, p.height);
  return out;
}

// The inversion in single precision, step by step, each luminance sum in its
// own order.
Color writtenOutInverse(const ToneMapSettings& t, Color c, const Pixel& p) {
  for (float& x : c) x = std::pow(x, t.gamma);
  const float crushLuminance = 0.7152f * c[1] + 0.2126f * c[0] + 0.0722f * c[2];
  const float s = crushLuminance > 0.0f ? std::sqrt(crushLuminance) : 0.0f;
  const float a = 0.4f * t.crushBlacks, e = 2.0f * t.crushBlacks + 1.0f;
  if (!(s >= 1.0f))
    for (float& x : c)
      x = a * (std::pow(x, 0.2f) - std::pow(x, 0.3f)) + 2.0f * x - ((1.0f - s) * std::pow(x, e) + s * x);
  const float grey = (0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]) * (1.0f - t.saturation);
  for (float& x : c) x = (x - grey) * (1.0f / t.saturation);
  for (float& x : c)
    if (x != 0.0f) {
      const float q = x * t.burnHighlightsInv, h = (1.0f / x - 1.0f) * 0.5f * q;
      x = std::sqrt(h * h + q) - h;
    }
  float v = 1.0f;
  if (t.vignetting > 0.0f) {
    const float u = (p.x / float(p.width) - 0.5f) * t.imagePlaneWidth;
    const float w = (p.y / float(p.height) - 0.5f) * t.imagePlaneHeight;
    const float d = std::sqrt(u * u + w * w + t.focalDistance * t.focalDistance);
    v = std::pow(d > 0.0f ? t.focalDistance * (1.0f / d) : t.focalDistance, t.vignetting);
  }
  for (int i = 0; i < 3; ++i) c[i] = c[i] / (t.exposure * t.white[i] * v);
  return c;
}

void expectNear(const Color& actual, const Color& expected, float relative, float absolute = 1e-7f) {
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(actual[i], expected[i], relative * std::fabs(expected[i]) + absolute) << "channel " << i;
}

TEST(ToneMappingCompensation, TheHostsToneMapperGivesThePickedColourBack) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> channel(0.02f, 0.98f);
  const Pixel pixels[] = {{320, 240, 640, 480}, {10, 20, 640, 480}, {630, 470, 640, 480}};
  for (const auto& settings : {kStrong, kMild})
    for (int i = 0; i < 200; ++i) {
      const Color picked{channel(rng), channel(rng), channel(rng)};
      const Pixel& pixel = pixels[i % 3];
      // The closed form of the burn step loses digits to cancellation in dark
      // channels (sqrt(h^2 + q) - h with h much larger than the result),
      // hence the absolute allowance.
      const Color scene = compensate(settings, picked, pixel);
      expectNear(forward(settings, scene, pixel), picked, 2e-5f, 4e-6f);
      expectNear(compensate(settings, forward(settings, scene, pixel), pixel), scene, 1e-4f, 4e-6f);
    }
}

TEST(ToneMappingCompensation, FollowsTheWrittenArithmeticBitForBit) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> channel(0.0f, 1.5f);
  const Pixel pixel{100.0f, 400.0f, 640, 480};
  for (const auto& settings : {kStrong, kMild, kIdentity})
    for (int i = 0; i < 150; ++i) {
      const Color picked{channel(rng), channel(rng), channel(rng)};
      const Color actual = compensate(settings, picked, pixel);
      const Color expected = writtenOutInverse(settings, picked, pixel);
      for (int k = 0; k < 3; ++k) EXPECT_BITEQ(actual[k], expected[k]);
    }
}

// Each step alone, the others at the identity; the expected values were
// worked out by hand.
TEST(ToneMappingCompensation, EachStepMatchesHandWorkedValues) {
  ToneMapSettings t = kIdentity;
  t.gamma = 2.2f;
  expectNear(compensate(t, {0.5f, 0.5f, 0.5f}), {0.21763764f, 0.21763764f, 0.21763764f}, 2e-6f);
  t = kIdentity;
  t.crushBlacks = 0.5f;
  expectNear(compensate(t, {0.2f, 0.3f, 0.1f}), {0.29929298f, 0.41987031f, 0.16968492f}, 2e-6f);
  t = kIdentity;
  t.saturation = 0.5f;
  expectNear(compensate(t, {0.2f, 0.3f, 0.1f}), {0.1357f, 0.3357f, -0.0643f}, 2e-6f);
  t = kIdentity;
  t.burnHighlightsInv = 2.0f;
  expectNear(compensate(t, {0.6f, 0.2f, 1.5f}), {0.76619038f, 0.21980390f, 2.30277564f}, 2e-6f);
  t = ToneMapSettings{.enabled = 1, .exposure = 2.0f, .white = {1.0f, 0.5f, 0.25f}, .vignetting = 2.0f,
                      .gamma = 1.0f, .imagePlaneWidth = 2.0f, .imagePlaneHeight = 1.0f, .focalDistance = 1.5f};
  expectNear(compensate(t, {0.2f, 0.3f, 0.1f}, {150.0f, 25.0f, 200, 100}),
             {0.11388889f, 0.34166667f, 0.22777778f}, 2e-6f);
}

TEST(ToneMappingCompensation, AppliesOnlyToAnEnabledTypeOneMapper) {
  const Color picked{0.3f, 0.6f, 0.9f};
  ToneMapSettings t = kStrong;
  const Color inverted = compensate(t, picked);
  ASSERT_NE(inverted, picked);
  t.enabled = 0;
  EXPECT_EQ(compensate(t, picked), picked);
  t.enabled = 7;  // any non-zero byte enables
  EXPECT_EQ(compensate(t, picked), inverted);
  for (int32_t type : {0, 2, -1}) {
    t.type = type;
    EXPECT_EQ(compensate(t, picked), picked) << "type " << type;
  }
}

TEST(ToneMappingCompensation, EdgeCasesAndBadSettings) {
  // A colour whose luminance reaches 1 skips the crush step: the amount no
  // longer matters. Below 1 it does.
  ToneMapSettings t = kIdentity, other = kIdentity;
  t.crushBlacks = 0.8f;
  other.crushBlacks = 0.3f;
  const Color bright{2.0f, 0.9f, 0.9f}, dim{0.5f, 0.4f, 0.3f};
  EXPECT_EQ(compensate(t, bright), compensate(other, bright));
  EXPECT_NE(compensate(t, dim), compensate(other, dim));

  // A channel at 0 stays 0 in the burn step instead of becoming 0 * inf.
  t = kIdentity;
  t.burnHighlightsInv = 2.0f;
  EXPECT_BITEQ(compensate(t, {0.5f, 0.0f, 0.3f})[1], 0.0f);

  // At the image centre there is no vignetting, whatever the exponent.
  t = kStrong;
  t.focalDistance = 2.0f;
  other = t;
  other.vignetting = 0.0f;
  EXPECT_EQ(compensate(t, dim), compensate(other, dim));

  // Divisions by zero give infinities; no crash.
  t = kIdentity;
  t.exposure = 0.0f;
  for (float x : compensate(t, dim)) EXPECT_TRUE(std::isinf(x));
  t = kIdentity;
  t.white[1] = 0.0f;
  const Color noGreen = compensate(t, dim);
  EXPECT_TRUE(std::isfinite(noGreen[0]) && std::isinf(noGreen[1]) && std::isfinite(noGreen[2]));
  t = kIdentity;
  t.saturation = 0.0f;
  for (float x : compensate(t, dim)) EXPECT_FALSE(std::isfinite(x));
  t = kIdentity;  // vignetting with no focal distance at the centre: v = 0
  t.vignetting = 1.0f;
  t.focalDistance = 0.0f;
  for (float x : compensate(t, dim)) EXPECT_TRUE(std::isinf(x));
}

TEST(HostToneMapper, CrushesBlacksAndPassesWhenOff) {
  // 0.29929298... is where the inversion took 0.2 (worked out by hand).
  ToneMapSettings t = kIdentity;
  t.crushBlacks = 0.5f;
  expectNear(forward(t, {0.29929298f, 0.41987031f, 0.16968492f}), {0.2f, 0.3f, 0.1f}, 2e-6f);

  const Color c{0.3f, 1.6f, -0.2f};
  t = kStrong;
  t.enabled = 0;
  EXPECT_EQ(forward(t, c), c);
  t.enabled = 1;
  t.type = 3;
  EXPECT_EQ(forward(t, c), c);
}

}  // namespace
}  // namespace kvi::test
