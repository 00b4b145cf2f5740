// The light shaders through the module loader: each light's default colour,
// shadow switch and what it leaves untouched, the point and spot lights'
// attenuation and cone, the image-based lights, and the host's cube-face and
// lat-long samplers that the image lights are checked against.
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/error.h"
#include "kvi/host/photometric_web.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
using Color = std::array<float, 3>;

void set(float (&field)[3], Color value) { std::memcpy(field, value.data(), sizeof field); }

// A pattern-filled state with the point at the origin and the light sample 2
// units above it, looking down its axis (0, 0, -1).
ShadingState lightSampleState(float distance = 2.0f) {
  ShadingState s = patternState();
  set(s.position, {0, 0, 0}), set(s.lightSamplePosition, {0, 0, 2});
  set(s.lightAxis, {0, 0, -1}), set(s.lightDirection, {0, 0, -1});
  s.lightDistance = distance;
  return s;
}

ShadingState shaded(TestShader& light, ScriptedContext& context, ShadingState state) {
  light.light()->shade(&context, &state);
  return state;
}

// True when `after` differs from `before` in the listed fields at most.
template <class... Fields>
bool onlyWrote(ShadingState before, const ShadingState& after, Fields... fields) {
  (std::memcpy(&(before.*fields), &(after.*fields), sizeof(before.*fields)), ...);
  return std::memcmp(&before, &after, sizeof before) == 0;
}

void expectColor(const float actual[3], Color expected) {
  for (int i = 0; i < 3; ++i) {
    if (std::isnan(expected[i])) EXPECT_TRUE(std::isnan(actual[i])) << "channel " << i;
    else EXPECT_BITEQ(actual[i], expected[i]) << "channel " << i;
  }
}

// How a light treats the shadow: always or never asked, or switched by a flag
// with full transmission or an untouched field when the flag is off.
enum class Shadow { kAlways, kNever, kSwitchedFull, kSwitchedUntouched };

TEST(Lights, ColourAndShadowFollowEachLightsSwitchAtAnyDistance) {
  struct Case { const char* shader; const char* flag; Shadow shadow; Color defaultColor; };
  for (const Case& c : {Case{"AmbientLight", "", Shadow::kNever, {1, 1, 1}},
                        Case{"SimplePointLight", "", Shadow::kAlways, {1, 1, 1}},
                        Case{"DirectionalLight", "castShadows", Shadow::kSwitchedFull, {0.5f, 0.1f, 1}},
                        Case{"PointLight", "castShadows", Shadow::kSwitchedFull, {1, 0.5f, 0.1f}},
                        Case{"SpotLight", "castShadows", Shadow::kSwitchedFull, {0.1f, 1, 0.5f}},
                        Case{"velk_qora_Lgt_Direction", "cast_shadows", Shadow::kSwitchedUntouched, {1, 1, 1}},
                        Case{"velk_qora_Lgt_Sky", "cast_shadows", Shadow::kSwitchedUntouched, {1, 1, 1}}})
    for (int flag : {0, 0x80, -1})  // -1: the flag left at its default, on
      for (float distance : {0.0f, 7.0f, 1e6f}) {
        SCOPED_TRACE(::testing::Message() << c.shader << " flag " << flag << " at " << distance);
        TestShader light(c.shader);
        if (*c.flag && flag >= 0) light.block.setBool(c.flag, uint8_t(flag));
        light.apply();
        ScriptedContext context;
        context.shadow[0] = 0.25f, context.shadow[1] = 0.5f, context.shadow[2] = 0.75f;
        const ShadingState before = lightSampleState(distance), after = shaded(light, context, before);
        expectColor(after.lightColor, c.defaultColor);
        const bool asked = c.shadow == Shadow::kAlways || (flag && c.shadow != Shadow::kNever);
        EXPECT_EQ(context.totalCalls(), asked ? 1 : 0);
        if (asked) {
          EXPECT_EQ(context.lastShadowFrom, (std::array<float, 3>{0, 0, 0}));
          EXPECT_EQ(context.lastShadowTo, (std::array<float, 3>{0, 0, 2}));
          expectColor(after.lightShadow, {0.25f, 0.5f, 0.75f});
        } else if (c.shadow == Shadow::kSwitchedFull) {
          expectColor(after.lightShadow, {1, 1, 1});
        }
        const bool shadowWritten = asked || c.shadow == Shadow::kSwitchedFull;
        EXPECT_TRUE(onlyWrote(before, after, &ShadingState::lightColor,
                              shadowWritten ? &ShadingState::lightShadow : &ShadingState::lightColor));
      }
}

TEST(Lights, DirectionIntensityScalesTheColourUnclamped) {
  TestShader direction("velk_qora_Lgt_Direction");
  direction.block.setColor3("color", {0.5f, -0.25f, 3e38f});
  direction.block.setFloat("intensity", -2.0f);
  direction.apply();
  ScriptedContext context;
  expectColor(shaded(direction, context, lightSampleState()).lightColor, {-1, 0.5f, -kInf});
}

constexpr float kSilent = -1.0f;
constexpr Color kHalfOneTwo{0.5f, 1, 2};

// The green channel of a light of colour kHalfOneTwo, every channel scaled alike.
float greenOf(const ShadingState& s) {
  EXPECT_BITEQ(s.lightColor[0], 0.5f * s.lightColor[1]);
  EXPECT_BITEQ(s.lightColor[2], 2.0f * s.lightColor[1]);
  return s.lightColor[1];
}

// A point or spot light on its axis: its green is the capped intensity.
class Attenuation : public ::testing::TestWithParam<const char*> {
 protected:
  TestShader light{GetParam()};
  void SetUp() override { light.block.setColor3("color", kHalfOneTwo); }
  // The intensity at a distance, or kSilent when nothing was asked or written.
  float at(float distance) {
    light.apply();
    ScriptedContext context;
    const ShadingState before = lightSampleState(distance), after = shaded(light, context, before);
    if (context.totalCalls() == 0 && std::memcmp(&before, &after, sizeof before) == 0) return kSilent;
    EXPECT_EQ(context.calls(kTraceShadow), 1);
    return greenOf(after);
  }
};

TEST_P(Attenuation, FadesRampBetweenTheirStrictEnds) {
  // near on, far on, near start, near end, far start, far end, unit multiplier, distance, intensity
  const std::array<float, 9> cases[] = {
      {1, 0, 2, 4, 1, 1e4f, 1, 1, kSilent}, {1, 0, 2, 4, 1, 1e4f, 1, 2, kSilent},  // t = 0 at the start
      {1, 0, 2, 4, 1, 1e4f, 1, 3, 0.5f},    {1, 0, 2, 4, 1, 1e4f, 1, 4, 1},
      {1, 0, 2, 2, 1, 1e4f, 1, 1.999f, kSilent}, {1, 0, 2, 2, 1, 1e4f, 1, 2, 1},  // equal ends: a step
      {0, 1, 1, 1, 10, 20, 1, 10, 1},       {0, 1, 1, 1, 10, 20, 1, 15, 0.5f},
      {0, 1, 1, 1, 10, 20, 1, 20, kSilent}, {0, 1, 1, 1, 10, 20, 1, 25, kSilent},  // 20: the ramp's 0
      {1, 1, 2, 6, 3, 5, 1, 4, 0.25f},        // both ramps multiply
      {0, 1, 1, 1, 10, 20, 10, 1.5f, 0.5f},   // the unit multiplier scales the distance first
      {0, 1, 1, 1, 20, 20, 10, 2, 1},         // equal far ends: full light up to the end
      {0, 1, 1, 1, 20, 20, 10, 2.05f, kSilent},
  };
  const char* names[] = {"nearAttenuationStart", "nearAttenuationEnd", "farAttenuationStart", "farAttenuationEnd",
                         "unitMultiplier"};
  for (const auto& c : cases) {
    light.block.setBool("nearAttenuationOn", c[0] != 0);
    light.block.setBool("farAttenuationOn", c[1] != 0 ? 7 : 0);
    for (int i = 0; i < 5; ++i) light.block.setFloat(names[i], c[2 + i]);
    EXPECT_BITEQ(at(c[7]), c[8]) << "case " << &c - cases;
  }
}

TEST_P(Attenuation, DecayLawFollowsTheFlagsAndTheSoftCapBendsAbove16) {
  struct Case { Color factors; float start, distance, expected, tolerance; };
  const Case cases[] = {
      {{0, 0, 1}, 2, 4, 0.25f, 0},     {{0, 0, 1}, 2, 1, 1, 0},  // inverse square; none inside the start
      {{0, 1, 0}, 2, 4, 0.5f, 0},      {{-3, 0, 0.5f}, 2, 4, 0.5f, 0},  // inverse linear
      {{kNaN, 0, 1}, 2, 4, 0.25f, 0},  // NaN counts as unequal to 1
      {{1, 1, 1}, 2, 4, 1, 0},         // fx = 1: no decay whatever the others say
      {{0, 0, 1}, -2, 0, 1, 0},        // d = 0: no decay, not even -2 / 0
      // A negative decay start squared is the only road above an intensity of 1.
      {{0, 0, 1}, -8, 2, 16, 0},                   // the knee
      {{0, 0, 1}, -10, 2, 1.0f / 0.0481f, 1e-4f},  // 25 bent: 1 / (0.36 * 0.0225 + 0.64 * 0.0625)
      {{0, 0, 1}, -kInf, 2, 1.0f / 0.0225f, 0},
      {{0, 1, 0}, -2, 2, -1.0f / 0.6175f, 1e-5f},  // a negative intensity bends too
  };
  for (const auto& c : cases) {
    light.block.setColor3("attenuationFactors", c.factors);
    light.block.setFloat("decayStartDistance", c.start);
    if (c.tolerance == 0) EXPECT_BITEQ(at(c.distance), c.expected) << "case " << &c - cases;
    else EXPECT_NEAR(at(c.distance), c.expected, c.tolerance) << "case " << &c - cases;
  }
}

INSTANTIATE_TEST_SUITE_P(Lights, Attenuation, ::testing::Values("PointLight", "SpotLight"));

TEST(SpotLight, ConeIsASmoothStepOfTheClampedCosineAfterTheShadowQuery) {
  TestShader light("SpotLight");
  light.block.setColor3("color", kHalfOneTwo);
  const auto bounds = [&](float penumbra, float umbra) {
    light.block.setFloat("cosPenumbra", penumbra);
    light.block.setFloat("cosUmbra", umbra);
  };
  const auto cone = [&](Color axis, Color direction) {
    light.apply();
    ScriptedContext context;
    ShadingState s = lightSampleState();
    set(s.lightAxis, axis), set(s.lightDirection, direction);
    s = shaded(light, context, s);
    EXPECT_EQ(context.calls(kTraceShadow), 1);
    return greenOf(s);
  };
  EXPECT_NEAR(cone({0, 0, -1}, {0, 0, -0.925f}), 0.5f, 1e-4f);  // half-way from the defaults 0.9 to 0.95
  // Penumbra, umbra, cosine c (the axis is (0, 0, -1): c exactly, even out of range), cone factor.
  const std::array<float, 4> cases[] = {
      {0.5f, 0.75f, 0.625f, 0.5f}, {0.5f, 0.75f, 0.5625f, 0.15625f}, {0.5f, 0.75f, 0.8f, 1},
      {0.5f, 0.75f, 0.4f, 0},                          // outside: black, but the shadow was asked
      {-1, 3, 5.5f, 0.5f}, {-1, 3, -0.55f, 0.15625f},  // clamped to 1 and to 0
      {-1, 3, kNaN, 1},                                // a NaN cosine counts as inside the umbra
  };
  for (const auto& c : cases) {
    bounds(c[0], c[1]);
    EXPECT_BITEQ(cone({0, 0, -1}, {0, 0, -c[2]}), c[3]) << c[2];
  }
  // Summed y, x, then z: 1 + -1 first, so the tiny z survives and t = 0.5.
  bounds(0, 0x1p-29f);
  EXPECT_BITEQ(cone({1, 1, 1}, {-1, 1, 0x1p-30f}), 0.5f);
  // The cone scales the colour; the decay acts on the distance weight alone.
  bounds(0.5f, 0.75f);
  light.block.setColor3("attenuationFactors", {0, 1, 0});
  EXPECT_BITEQ(cone({0, 0, -1}, {0, 0, -0.625f}), 0.25f);
}

// Answers one texel and records where it was sampled.
struct RecordingSampler : ITextureSampler {
  std::array<float, 3> coords{};
  void sample(float out[4], const float* c) override {
    coords = {c[0], c[1], c[2]};
    out[0] = 0.5f, out[1] = 0.25f, out[2] = 2.0f, out[3] = 0.125f;
  }
};

TEST(DiffuseIBL, TurnsTheNormalInTheStateAndLooksTheMapUpThere) {
  TestShader light("DiffuseIBL");
  RecordingSampler map;
  // Rows (0 2 0.5), (-1.5 0.25 3), (0.75 -1 1.25); the translation acts only through its product with 0.
  light.block.setMatrix4("transform", {0, 2, 0.5f, 9, -1.5f, 0.25f, 3, 9, 0.75f, -1, 1.25f, 9, 7, -8, 5, 1});
  light.block.setColor3("gain", {2.0f, -0.5f, 0.25f});
  light.block.setEnvironmentMap("diffuseMap", &map, 3);
  ScriptedContext context;
  const auto turn = [&](Color normal) {
    light.apply();
    ShadingState s = patternState();
    set(s.normal, normal);
    return shaded(light, context, s);
  };
  const ShadingState after = turn({0.5f, -0.25f, 1.0f});
  expectColor(after.normal, {1.125f, -0.0625f, 0.75f});
  EXPECT_EQ(map.coords, (std::array<float, 3>{1.125f, -0.0625f, 0.75f}));
  expectColor(after.lightColor, {1.0f, -0.125f, 0.5f});
  EXPECT_EQ(context.totalCalls(), 0);
  EXPECT_TRUE(onlyWrote(patternState(), after, &ShadingState::normal, &ShadingState::lightColor));
  // Summed y, x, then z: 4 + (tiny) rounds to 4 before -4 is added.
  const float e = -0x1p-23f;
  light.block.setMatrix4("transform", {e, e, e, 0, 4, 4, 4, 0, -4, -4, -4, 0, 0, 0, 0, 1});
  expectColor(turn({1, 1, 1}).normal, {0, 0, 0});
  // Unbound: black. An infinite translation still reaches the normal (inf * 0), and an update replaces it.
  light.block.setEnvironmentMap("diffuseMap", nullptr, -1);
  light.block.setMatrix4("transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, kInf, 0, -3, 1});
  expectColor(turn({0.5f, -0.25f, 1.0f}).lightColor, {0, -0.0f, 0});  // 0 times the gain
  expectColor(turn({0.5f, -0.25f, 1.0f}).normal, {kNaN, -0.25f, 1.0f});
  light.block.setMatrix4("transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 4, 0, -3, 1});
  expectColor(turn({0.5f, -0.25f, 1.0f}).normal, {0.5f, -0.25f, 1.0f});
}

const Color kC{0.5f, 0.25f, 2.0f}, kS{0.25f, 0.5f, 0.75f};

// An area light sample at distance 1 with the axis along the direction
// (k = 1); when shadowed, with the light colour kC and the shadow colour kS.
struct AreaLight {
  TestShader light{"velk_qora_Lgt_Diffuse"};
  ScriptedContext context;
  ShadingState state = lightSampleState(1.0f);

  void shadowed(Color transmission, float density, uint8_t lightAffects) {
    light.block.setBool("cast_shadows", 1);
    light.block.setColor3("color", kC);
    light.block.setColor3("shadowCol", kS);
    light.block.setFloat("shadowDensity", density);
    light.block.setBool("lightAffectShadowCol", lightAffects);
    for (int i = 0; i < 3; ++i) context.shadow[i] = transmission[i];
  }
  ShadingState shade() {
    light.apply();
    context.resetCounts();
    return shaded(light, context, state);
  }
};

TEST(AreaLight, UnshadowedUsesIntegratedColourAndTheClampedPowerFalloff) {
  AreaLight l;
  l.light.block.setColor3("integratedColor", {2.0f, 3.0f, 4.0f});
  l.light.block.setFloat("intensity", 5.0f);
  l.state.lightDistance = 2.0f;
  set(l.state.lightDirection, {0.8660254f, 0, -0.5f});  // c = 0.5, k = 0.5 / 2^2
  const ShadingState after = l.shade();
  expectColor(after.lightColor, {0.25f, 0.375f, 0.5f});
  EXPECT_EQ(l.context.totalCalls(), 0);
  EXPECT_TRUE(onlyWrote(l.state, after, &ShadingState::lightColor));
  l.state.lightDirection[2] = 0.5f;  // behind the light's axis
  expectColor(l.shade().lightColor, {0, 0, 0});

  AreaLight f;  // integratedColor 1: lightColor is 1 / falloff
  f.light.block.setFloat("exponent", 3.0f);
  f.light.block.setFloat("exponentUnitsMultiplier", 0.5f);
  f.state.lightDistance = 3.0f;
  EXPECT_BITEQ(f.shade().lightColor[0], 1.0f / 13.5f);
  f.light.block.setFloat("exponentLowerClamp", 2.0f);
  f.light.block.setFloat("exponentUpperClamp", 8.0f);
  f.state.lightDistance = 2.0f;  // 4 is half-way to the upper clamp: 0.5 * 2 + 8 * 0.5
  EXPECT_BITEQ(f.shade().lightColor[0], 0.2f);
  f.state.lightDistance = 0.0f;
  EXPECT_BITEQ(f.shade().lightColor[0], 0.5f);  // the lower clamp
}

TEST(AreaLight, ShadowBlendFollowsItsThreeRegimes) {
  struct Case { Color transmission; float density; Color blend, lightAffected; };
  const Case cases[] = {
      {{1, 1, 1}, 1, kC, kC},                                             // unoccluded: m = 0
      {{0, 0, 0}, 1, kS, {0.125f, 0.125f, 1.5f}},                         // m = 0.999: S, or S C
      {{0.25f, 0.5f, 0}, 2, {0.375f, 0.5f, 1.5f}, {0.1875f, 0.125f, 3}},  // m > 1: a S, or a C S
      {{0, 0, 0}, -1, {0.25f, -0.25f, 1.25f}, {0.375f, 0.125f, 0.5f}},    // m < 0: a S + C, or (a S + 1) C
      {{kNaN, 0, 0}, 1, {kNaN, 0.75f, 2.75f}, {kNaN, 0.375f, 3.5f}},      // m NaN: as below 0
      // a.g + a.r rounds to 4 before a.b = -4 is added: m = 0, not below it.
      {{0x1.000002p0f, -3, 5}, 1, {0.5f, 1.25f, 7}, {0x1.000002p-1f, -0.25f, 4}},
  };
  for (const auto& c : cases)
    for (uint8_t affects : {0, 9}) {
      SCOPED_TRACE(::testing::Message() << "case " << &c - cases << " L " << int(affects));
      AreaLight l;
      l.shadowed(c.transmission, c.density, affects);
      const ShadingState after = l.shade();
      expectColor(after.lightColor, affects ? c.lightAffected : c.blend);
      expectColor(after.lightShadow, {1, 1, 1});
      EXPECT_EQ(l.context.totalCalls(), 1);
      EXPECT_EQ(l.context.lastShadowTo, (std::array<float, 3>{0, 0, 2}));
    }
  AreaLight l;  // 3.003 * 0.333 is still at most 1 (3.003 / 3 would not be): (1 - a) C + a S
  l.shadowed({0, 0, 0}, 1.001f, 0);
  EXPECT_NEAR(l.shade().lightColor[0], -0.001f * 0.5f + 1.001f * 0.25f, 1e-6f);

  AreaLight scaled;  // the blend is scaled last by (k intensity) P, k = 1 / 2^2
  host::ConstantSampler projection({0.5f, 0.25f, 1.0f, 1.0f});
  scaled.shadowed({1, 1, 1}, 1.0f, 0);
  scaled.light.block.setFloat("intensity", 2.0f);
  scaled.light.block.setBool("projMapOn", 1);
  scaled.light.block.setTexture("projMap", &projection, 0);
  scaled.state.lightDistance = 2.0f;
  expectColor(scaled.shade().lightColor, {0.125f, 0.03125f, 1.0f});
}

// The host's cube-face convention worked out by hand, and both of the area
// light's cube look-ups against it: the projection map at (s, t), the shadow
// colour map mirrored at (1 - s, 1 - t).
TEST(CubeFaces, HostConventionAndTheAreaLightsProjections) {
  std::vector<host::ImageSampler> faces;  // 2 x 2 faces; texel (x, y) of face f is (x, y, f, 1)
  for (int f = 0; f < 6; ++f)
    faces.emplace_back(2, 2, std::vector<float>{0, 0, float(f), 1, 1, 0, float(f), 1, 0, 1, float(f), 1, 1, 1, float(f), 1});
  host::CubeFaceSampler cube(std::move(faces));
  const std::tuple<Color, int, float, float> cases[] = {  // direction, face, s, t
      {{1, 0.5f, -0.5f}, 0, 0.75f, 0.25f}, {{-1, 0.5f, -0.5f}, 1, 0.25f, 0.25f}, {{0.5f, 1, -0.5f}, 2, 0.75f, 0.25f},
      {{0.5f, -1, -0.5f}, 3, 0.75f, 0.75f}, {{0.5f, 0.5f, 1}, 4, 0.75f, 0.25f}, {{0.5f, 0.5f, -1}, 5, 0.25f, 0.25f},
      {{2, -2, 1}, 0, 0.25f, 1.0f}, {{0, -3, 3}, 3, 0.5f, 0.0f},  // ties: X, then Y
      {{-0.0f, 0, 0}, 4, 0.5f, 0.5f}, {{kNaN, 1, 0}, 4, 0.5f, 0.5f},  // degenerate: the centre of +Z
  };
  for (const auto& [d, face, s, t] : cases) {
    SCOPED_TRACE(::testing::Message() << d[0] << " " << d[1] << " " << d[2]);
    const auto p = host::CubeFaceSampler::project(d.data());
    EXPECT_EQ(p.face, face);
    EXPECT_BITEQ(p.s, s);
    EXPECT_BITEQ(p.t, t);
    if (face == 4 && s == 0.5f) continue;  // the shaders send degenerate directions their own way
    AreaLight projected, shadowed;
    for (AreaLight* l : {&projected, &shadowed}) set(l->state.lightDirection, d), set(l->state.lightAxis, d);
    projected.light.block.setBool("projMapOn", 1);
    projected.light.block.setTexture("projMap", &cube, 0);
    shadowed.shadowed({0, 0, 0}, 1.0f, 0);  // fully occluded at density 1: the blend is the shadow colour
    shadowed.light.block.setBool("useShadowColMap", 1);
    shadowed.light.block.setTexture("shadowColMap", &cube, 0);
    float texel[4], mirrored[4];
    cube.lookup(texel, s, t, float(face));
    cube.lookup(mirrored, 1.0f - s, 1.0f - t, float(face));
    expectColor(projected.shade().lightColor, {texel[0], texel[1], texel[2]});
    expectColor(shadowed.shade().lightColor, {mirrored[0], mirrored[1], mirrored[2]});
  }
  AreaLight unbound;  // switched on without a map: black
  unbound.light.block.setBool("projMapOn", 1);
  expectColor(unbound.shade().lightColor, {0, 0, 0});
}

TEST(LatLongSampler, MinusZIsTheMiddleYIsUpAndSWrapsAtTheSeam) {
  std::vector<float> rgba;  // 4 x 2, texel (x, y) is (x, y, 0, 1)
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) rgba.insert(rgba.end(), {float(x), float(y), 0.0f, 1.0f});
  const host::LatLongSampler yUp(4, 2, rgba), zUp(4, 2, rgba, host::LatLongSampler::UpAxis::Z);
  const std::tuple<bool, Color, float, float> cases[] = {  // z up, direction, s, t
      {0, {0, 0, -1}, 0.5f, 0.5f},  {0, {0, 0, -7}, 0.5f, 0.5f},  {0, {1, 0, 0}, 0.75f, 0.5f},
      {0, {-1, 0, 0}, 0.25f, 0.5f}, {0, {0, 1, 0}, 0.5f, 0.0f},   {0, {0, -1, 0}, 0.5f, 1.0f},
      {0, {1, 0, -1}, 0.625f, 0.5f}, {1, {0, 1, 0}, 0.5f, 0.5f},  {1, {0, 0, 1}, 0.5f, 0.0f},
      {0, {0, 0, 0}, 0.5f, 0.5f},   {0, {kNaN, 0, -1}, 0.5f, 0.5f},  // degenerate: the middle
  };
  for (const auto& [z, d, s, t] : cases) {
    float projected[2];
    (z ? zUp : yUp).project(d.data(), projected[0], projected[1]);
    EXPECT_NEAR(projected[0], s, 1e-6f) << d[0] << " " << d[1] << " " << d[2];
    EXPECT_NEAR(projected[1], t, 1e-6f) << d[0] << " " << d[1] << " " << d[2];
  }
  float texel[4];  // +Z sits on the seam: half the last column, half the first
  const float back[3] = {0, 0, 1};
  yUp.lookupDirection(texel, back);
  EXPECT_NEAR(texel[0], 1.5f, 1e-5f);
}


// ---- The physically based lights that place their own samples, and the web.

constexpr double kPiD = 3.14159265358979;

// The sphere light seen from a point whose normal is tilted by `tilt` off
// the centre: lightColor x cos (the point's cosine towards the sample) over
// random samples estimates the irradiance pi L (r / d)^2 cos(tilt) of a
// sphere wholly above the horizon; the sample lies on the sphere's visible
// cap and the shadow is asked towards it.
TEST(SphereLight, IrradianceConvergesToPiLTimesTheSquaredRadiusOverDistance) {
  struct Case { int units; float intensity, radius, distance, tilt; double radiance; };
  const Case cases[] = {
      {2, 3.0f, 0.5f, 2.0f, 0.5f, 3.0},                          // the radiance itself
      {0, 5.0f, 0.25f, 4.0f, 0.0f, 5.0 / (kPiD * 0.0625)},      // intensity I = pi r^2 L
      {1, 100.0f, 1.0f, 1.5f, 0.3f, 100.0 / (4 * kPiD * kPiD)},  // power P = 4 pi^2 r^2 L
      {7, 2.0f, 1e-3f, 50.0f, 1.0f, 2.0 / (kPiD * 1e-6)},       // unknown units count as intensity
  };
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "units " << c.units << " r " << c.radius << " d " << c.distance);
    TestShader light("velk_qora_Lgt_Sphere");
    light.block.setInt("units", c.units);
    light.block.setFloat("intensity", c.intensity);
    light.block.setFloat("radius", c.radius);
    light.apply();
    const double r = c.radius, d = c.distance, cosMax = std::sqrt(1.0 - r * r / (d * d));
    const double solidAngle = 2 * kPiD * (1 - cosMax), expected = kPiD * c.radiance * r * r / (d * d) * std::cos(c.tilt);
    const float normal[3] = {std::sin(c.tilt), 0.0f, std::cos(c.tilt)};
    double sum = 0, sumSquares = 0;
    const int n = 20000;
    for (int k = 0; k < n; ++k) {
      ScriptedContext context;
      context.samples2D = {{uniform(rng), uniform(rng)}};
      ShadingState s = lightSampleState();
      s.lightSamplePosition[2] = c.distance;  // the centre
      s = shaded(light, context, s);
      const float* y = s.lightSamplePosition;
      ASSERT_NEAR(std::hypot(y[0], y[1], y[2] - c.distance), r, 1e-5 * d);
      ASSERT_LE(y[2], c.distance);  // on the cap facing the point
      ASSERT_EQ(context.lastShadowTo, (std::array<float, 3>{y[0], y[1], y[2]}));
      for (int i = 0; i < 3; ++i) ASSERT_NEAR(-s.lightDirection[i] * s.lightDistance, y[i], 1e-5 * d);
      ASSERT_NEAR(s.lightColor[0], c.radiance * solidAngle, 1e-5 * c.radiance * solidAngle);
      const double e = s.lightColor[0] * -(normal[0] * s.lightDirection[0] + normal[2] * s.lightDirection[2]);
      sum += e, sumSquares += e * e;
    }
    const double mean = sum / n, deviation = std::sqrt(std::max(0.0, sumSquares / n - mean * mean) / n);
    EXPECT_NEAR(mean, expected, 4 * deviation + 1e-6 * expected);
    EXPECT_NEAR(mean, expected, 0.01 * expected);
  }
  // On or inside the sphere: black, nothing asked; a radius of 0 is a point light.
  TestShader light("velk_qora_Lgt_Sphere");
  light.block.setFloat("radius", 2.0f);
  light.apply();
  ScriptedContext context;
  expectColor(shaded(light, context, lightSampleState()).lightColor, {0, 0, 0});
  EXPECT_EQ(context.totalCalls(), 0);
  light.block.setFloat("radius", 0.0f);
  light.apply();
  expectColor(shaded(light, context, lightSampleState()).lightColor, {0.25f, 0.25f, 0.25f});
}

// The spot's profile, read back as lightColor x d^2 / intensity at 0.05
// degree steps: 1 within the cone, 0 beyond cone + penumbra (and behind,
// without a shadow query), never rising in between. In power units the
// profile integrates over the sphere to the power.
TEST(PhysicalSpot, ProfileIsFullInTheConeFallsMonotonicallyAndIntegratesToThePower) {
  struct Case { float cone, penumbra, inner, outer; };
  const Case cases[] = {{30, 5, 30, 35}, {10, 40, 10, 50}, {0, 20, 0, 20}, {45, 0, 45, 45},
                        {60, -10, 60, 60}, {80, 30, 80, 90}, {-5, kNaN, 0, 0}};
  for (const Case& c : cases)
    for (int units : {0, 1}) {
      SCOPED_TRACE(::testing::Message() << c.cone << " + " << c.penumbra << " units " << units);
      TestShader light("velk_qora_Lgt_Spot");
      light.block.setFloat("coneAngle", c.cone);
      light.block.setFloat("penumbraAngle", c.penumbra);
      light.block.setInt("units", units);
      light.block.setFloat("intensity", 2.0f);
      light.apply();
      float previous = kInf;
      double power = 0;
      for (double degrees = 0; degrees <= 180; degrees += 0.05) {
        const double a = degrees * kPiD / 180;
        ScriptedContext context;
        ShadingState s = lightSampleState(2.0f);
        set(s.lightDirection, {float(std::sin(a)), 0.0f, float(-std::cos(a))});
        const float profile = shaded(light, context, s).lightColor[1] * 4.0f / 2.0f;
        if (units == 0 && degrees < c.inner - 1e-3) {
          EXPECT_NEAR(profile, 1.0f, 1e-6f) << degrees;
        }
        if (degrees > c.outer + 1e-3) {
          EXPECT_EQ(profile, 0.0f) << degrees;
          EXPECT_EQ(context.totalCalls(), 0);
        }
        EXPECT_LE(profile, previous) << degrees;
        previous = profile;
        power += 2 * kPiD * profile * 2.0 * std::sin(a) * (0.05 * kPiD / 180);
      }
      if (units == 1 && c.outer > 0) {
        EXPECT_NEAR(power, 2.0, 0.02);
      }
    }
  // With a radius the sample moves onto the disk facing along the axis, and
  // the falloff is measured from there.
  TestShader light("velk_qora_Lgt_Spot");
  light.block.setFloat("radius", 0.5f);
  light.block.setFloat("coneAngle", 89.0f);
  light.apply();
  ScriptedContext context;
  context.samples2D = {{1.0f, 0.25f}};  // the rim, a quarter turn round
  const ShadingState s = shaded(light, context, lightSampleState(2.0f));
  EXPECT_NEAR(std::hypot(s.lightSamplePosition[0], s.lightSamplePosition[1]), 0.5f, 1e-6f);
  EXPECT_FLOAT_EQ(s.lightSamplePosition[2], 2.0f);
  EXPECT_FLOAT_EQ(s.lightDistance, std::sqrt(4.25f));
  EXPECT_NEAR(s.lightColor[0], std::cos(std::atan(0.25f)) >= std::cos(89 * 3.14159265f / 180) ? 1 / 4.25f : 0, 1e-6f);
  EXPECT_EQ(context.lastShadowTo, (std::array<float, 3>{s.lightSamplePosition[0], s.lightSamplePosition[1], 2.0f}));
}

// IES text of type C photometry with the given angles and rows of candela.
std::string iesText(const std::vector<float>& vertical, const std::vector<float>& horizontal,
                    const std::vector<std::vector<float>>& rows, const char* multiplier = "1") {
  std::ostringstream t;
  t << "IESNA:LM-63-2002\n[TEST] kvi\nTILT=NONE\n1 -1 " << multiplier << " " << vertical.size() << " "
    << horizontal.size() << " 1 2 0 0 0\n1 1 10\n";
  for (float v : vertical) t << v << " ";
  t << "\n";
  for (float h : horizontal) t << h << " ";
  t << "\n";
  for (const auto& row : rows) {
    for (float c : row) t << c << " ";
    t << "\n";
  }
  return t.str();
}

// The photometric light turned by a rotation: its intensity in a direction
// given by the web's angles (H, V) is the table's, interpolated bilinearly
// between table angles, each symmetry unfolded, 0 beyond the vertical range.
TEST(PhotometricWeb, IntensityIsTheTablesAfterTheRotationInterpolatedAndUnfolded) {
  const std::vector<float> quadrantV{0, 90};
  const std::vector<std::vector<float>> threeRows{{10, 20}, {30, 40}, {50, 60}};
  const std::string webs[] = {
      iesText({0, 30, 90}, {0}, {{100, 60, 0}}, "2"),  // rotational, multiplier 2
      iesText(quadrantV, {0, 45, 90}, threeRows),       // each quadrant alike
      iesText(quadrantV, {0, 90, 180}, threeRows),      // mirrored about 0-180
      iesText(quadrantV, {90, 180, 270}, threeRows),    // mirrored about 90-270
      iesText(quadrantV, {0, 120, 240, 360}, {{10, 20}, {30, 40}, {50, 60}, {10, 20}}),
  };
  struct Case { int web; float h, v, candela; };
  const Case cases[] = {
      {0, 123, 0, 200}, {0, 200, 15, 160}, {0, 10, 60, 60}, {0, 0, 120, 0},  // beyond 90: nothing
      {1, 45, 90, 40},  {1, 22.5f, 90, 30}, {1, 135, 90, 40}, {1, 225, 90, 40}, {1, 315, 45, 35},
      {1, 100, 90, 40 + 20 * 35 / 45.0f},                                      // 100 folds to 80
      {2, 270, 90, 40}, {2, 300, 45, 15 + 20 * 60 / 90.0f}, {2, 180, 90, 60},  // 300 folds to 60
      {3, 0, 90, 40},   {3, 45, 90, 30},   {3, 300, 90, 40 + 20 * 60 / 90.0f}, {3, 135, 90, 30},  // 0 to 180, 300 to 240
      {4, 60, 90, 30},  {4, 300, 45, 35},  {4, 359, 90, 60 - 40 * 119 / 120.0f},
  };
  // Rows of the rotation: the web's -Y (its nadir) turns to -Z, its +X to +X.
  const std::array<float, 16> rotation{1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1};
  std::vector<std::unique_ptr<host::PhotometricWebSampler>> samplers;
  for (const auto& w : webs) samplers.push_back(std::make_unique<host::PhotometricWebSampler>(host::parseIes(w, "web.ies")));
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "web " << c.web << " H " << c.h << " V " << c.v);
    TestShader light("velk_qora_Lgt_PhotometricWeb");
    light.block.setTexture("web", samplers[size_t(c.web)].get(), 0);
    light.block.setMatrix4("webRotationMatrix", rotation);
    light.block.setFloat("intensity", 4.0f);
    light.apply();
    const double h = c.h * kPiD / 180, v = c.v * kPiD / 180;
    const float local[3] = {float(std::sin(v) * std::cos(h)), float(-std::cos(v)), float(-std::sin(v) * std::sin(h))};
    ShadingState s = lightSampleState(2.0f);
    for (int j = 0; j < 3; ++j)
      s.lightDirection[j] = local[0] * rotation[j] + local[1] * rotation[4 + j] + local[2] * rotation[8 + j];
    ScriptedContext context;
    EXPECT_NEAR(shaded(light, context, s).lightColor[2], c.candela, 1e-3f * c.candela + 1e-3f);
    EXPECT_EQ(context.totalCalls(), c.candela > 0 ? 1 : 0);
  }
  TestShader unbound("velk_qora_Lgt_PhotometricWeb");  // no web: black, no shadow asked
  unbound.apply();
  ScriptedContext context;
  expectColor(shaded(unbound, context, lightSampleState()).lightColor, {0, 0, 0});
  EXPECT_EQ(context.totalCalls(), 0);
}

// The host's IES reader: the shipped files read, and each malformed file is
// refused with its name, the line and what was expected there.
TEST(IesReader, ReadsTheShippedFilesAndRefusesMalformedOnesNamingTheLine) {
  for (const char* name : {"downlight.ies", "wallwash.ies", "cross.ies"}) {
    const auto web = host::readIesFile(std::string(KVI_ASSETS_DIR) + "/" + name);
    EXPECT_EQ(web.candela.size(), web.verticalAngles.size() * web.horizontalAngles.size()) << name;
    EXPECT_GT(web.intensity(0, 0), 0.0f) << name;
  }
  const std::string good = iesText({0, 45, 90}, {0, 90}, {{3, 2, 1}, {4, 3, 2}});
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string t = good;
    return t.replace(t.find(from), from.size(), to);
  };
  const std::pair<std::string, std::string> cases[] = {
      {good.substr(0, good.size() - 6), "web.ies:9: the file ends where a candela value (2 of 6"},
      {good + "7\n", "web.ies:10: unexpected '7' after the candela table"},
      {replaced("4 3 2", "4 -3 2"), "web.ies:9: negative candela -3 at horizontal angle 90, vertical angle 45"},
      {replaced("0 45 90", "0 90 45"), "web.ies:6: vertical angles out of order: 45 after 90"},
      {replaced("\n0 90 \n", "\n90 0 \n"), "web.ies:7: horizontal angles out of order"},
      {replaced("0 90 \n", "0 120 \n"), "web.ies:7: type C horizontal angles must run from 0"},
      {replaced(" 1 2 0 0 0", " 5 2 0 0 0"), "web.ies:4: unknown photometric type '5'"},
      {replaced(" 1 2 0 0 0", " 2 2 0 0 0"), "web.ies:4: type B photometry is not supported"},
      {replaced("1 -1 1 3 2", "1 -1 1 0 2"), "web.ies:4: expected the number of vertical angles from 1"},
      {replaced("1 1 10", "1 x 10"), "web.ies:5: expected the ballast-lamp factor (future use) (a number), got 'x'"},
      {replaced("TILT=NONE", "TILT"), "web.ies:9: the file ends before its TILT= line"},
      {replaced("TILT=NONE", "TILT=lamp.tlt"), "web.ies:3: TILT=lamp.tlt: tilt data from a separate file"},
      {replaced("IESNA:LM-63-2002", "IES:LM-63-2019"), "web.ies:1: unknown format line"},
  };
  for (const auto& [text, message] : cases) {
    try {
      host::parseIes(text, "web.ies");
      ADD_FAILURE() << "accepted, expected: " << message;
    } catch (const host::Error& e) {
      EXPECT_EQ(std::string(e.what()).rfind(message, 0), 0u) << e.what();
    }
  }
}

}  // namespace
}  // namespace kvi::test
