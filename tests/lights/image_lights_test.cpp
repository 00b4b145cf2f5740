// DiffuseIBL and velk_qora_Lgt_Diffuse: the turned normal, the power falloff,
// the shadow blend's regimes and the cube-face projections against the host's
// samplers.
#include <cmath>

#include "light_testing.h"

namespace kvi::test {
namespace {

ShadingState withNormal(float x, float y, float z) {
  ShadingState s = patternState();
  s.normal[0] = x, s.normal[1] = y, s.normal[2] = z;
  return s;
}

TEST(DiffuseIBL, TurnsTheNormalInTheStateAndLooksTheMapUpThere) {
  TestShader light("DiffuseIBL");
  const std::array<float, 16> m = {0, 2, 0.5f, 9, -1.5f, 0.25f, 3, 9, 0.75f, -1, 1.25f, 9, 7, -8, 5, 1};
  std::vector<float> rgba;
  for (int i = 0; i < 8 * 4 * 4; ++i) rgba.push_back(float(i % 13) * 0.125f);
  host::LatLongSampler sky(8, 4, rgba);
  light.block.setMatrix4("transform", m);
  light.block.setColor3("gain", {2.0f, -0.5f, 0.25f});
  light.block.setEnvironmentMap("diffuseMap", &sky, 3);
  light.apply();
  ScriptedContext context;
  const float nx = 0.6f, ny = -0.8f, nz = 0.3f;
  const ShadingState before = withNormal(nx, ny, nz), after = shaded(light, context, before);
  const float turned[3] = {ny * m[4] + nx * m[0] + nz * m[8] + m[12] * 0.0f, ny * m[5] + nx * m[1] + nz * m[9] + m[13] * 0.0f,
                           ny * m[6] + nx * m[2] + nz * m[10] + m[14] * 0.0f};
  expectColor(after.normal, {turned[0], turned[1], turned[2]});
  float texel[4];
  sky.lookupDirection(texel, turned);
  expectColor(after.lightColor, {texel[0] * 2.0f, texel[1] * -0.5f, texel[2] * 0.25f});
  EXPECT_EQ(context.totalCalls(), 0);
  expectOnlyChanged(before, after, {KVI_STATE_FIELD(normal), KVI_STATE_FIELD(lightColor)});
  // Summed in the written order: 4 + (tiny) rounds to 4 before -4 is added.
  const float e = -1.1920929e-7f;
  light.block.setMatrix4("transform", {e, e, e, 0, 4, 4, 4, 0, -4, -4, -4, 0, 0, 0, 0, 1});
  light.apply();
  expectColor(shaded(light, context, withNormal(1, 1, 1)).normal, {0, 0, 0});
}

TEST(DiffuseIBL, UnboundMapGivesBlackAndTheTranslationActsThroughItsZeroWeight) {
  TestShader light("DiffuseIBL");
  light.block.setMatrix4("transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, kInf, 0, -3, 1});
  light.apply();
  ScriptedContext context;
  const ShadingState after = shaded(light, context, withNormal(0.5f, -0.25f, 1.0f));
  expectColor(after.lightColor, {0, 0, 0});
  EXPECT_TRUE(std::isnan(after.normal[0]));  // inf * 0
  EXPECT_BITEQ(after.normal[1], -0.25f);
  light.block.setMatrix4("transform", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 4, 0, -3, 1});
  light.apply();  // the update replaces the derived translation term
  EXPECT_BITEQ(shaded(light, context, withNormal(0.5f, -0.25f, 1.0f)).normal[0], 0.5f);
}

// An area light sample at distance 1 with the axis along the direction
// (k = 1), so that lightColor is the blend (or integratedColor) times P.
struct AreaLight {
  TestShader light{"velk_qora_Lgt_Diffuse"};
  ScriptedContext context;
  ShadingState state = lightSampleState(1.0f);

  void shadowed(std::array<float, 3> transmission, float density, uint8_t lightAffects) {
    light.block.setBool("cast_shadows", 1);
    light.block.setColor3("color", {0.7f, 0.3f, 1.9f});
    light.block.setColor3("shadowCol", {0.23f, 0.41f, 0.67f});
    light.block.setFloat("shadowDensity", density);
    light.block.setBool("lightAffectShadowCol", lightAffects);
    for (int i = 0; i < 3; ++i) context.shadow[i] = transmission[i];
  }
  void direction(const std::array<float, 3>& d) {
    for (int i = 0; i < 3; ++i) state.lightDirection[i] = d[i], state.lightAxis[i] = 4.0f * d[i];
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
  l.state = lightSampleState(2.0f);
  l.state.lightDirection[0] = 0.6f, l.state.lightDirection[2] = -0.8f;
  const ShadingState after = l.shade();
  expectColor(after.lightColor, {0.8f / 4.0f * 2.0f, 0.8f / 4.0f * 3.0f, 0.8f / 4.0f * 4.0f});
  EXPECT_EQ(l.context.totalCalls(), 0);
  expectOnlyChanged(l.state, after, {KVI_STATE_FIELD(lightColor)});
  l.state.lightDirection[2] = 0.8f;  // behind the light's axis
  expectColor(l.shade().lightColor, {0, 0, 0});

  AreaLight f;  // integratedColor 1: lightColor is 1 / falloff
  f.light.block.setFloat("exponent", 3.0f);
  f.light.block.setFloat("exponentUnitsMultiplier", 0.5f);
  f.state.lightDistance = 3.0f;
  EXPECT_BITEQ(f.shade().lightColor[0], 1.0f / (std::pow(3.0f, 3.0f) * 0.5f));
  f.light.block.setFloat("exponentLowerClamp", 0.37f);
  f.light.block.setFloat("exponentUpperClamp", 7.0f);
  f.state.lightDistance = 2.0f;
  const float t = std::pow(2.0f, 3.0f) * 0.5f / 7.0f;
  EXPECT_BITEQ(f.shade().lightColor[0], 1.0f / ((1.0f - t) * 0.37f + 7.0f * t));
  f.state.lightDistance = 0.0f;
  EXPECT_BITEQ(f.shade().lightColor[0], 1.0f / 0.37f);  // the lower clamp
}

TEST(AreaLight, ShadowBlendFollowsItsThreeRegimes) {
  const float C[3] = {0.7f, 0.3f, 1.9f}, S[3] = {0.23f, 0.41f, 0.67f};
  using Blend = float (*)(float a, float c, float s);
  const Blend negative[2] = {[](float a, float c, float s) { return a * s + c; },
                             [](float a, float c, float s) { return (a * s + 1.0f) * c; }};
  const Blend middle[2] = {[](float a, float c, float s) { return (1.0f - a) * c + a * s; },
                           [](float a, float c, float s) { return ((1.0f - a) + a * s) * c; }};
  const Blend above[2] = {[](float a, float, float s) { return a * s; },
                          [](float a, float c, float s) { return a * c * s; }};
  const struct {
    std::array<float, 3> transmission;
    float density;
    const Blend* blend;
  } cases[] = {
      {{1, 1, 1}, 1.0f, middle},          // unoccluded: C either way
      {{0, 0, 0}, 1.0f, middle},          // m = 0.999: S C, or S
      {{0, 0, 0}, 1.001f, middle},        // 3.003 * 0.333 <= 1, though 3.003 / 3 is not
      {{1.0000001f, -3, 5}, 1.0f, middle},  // a.g + a.r rounds to 4 before a.b: m = 0
      {{0.25f, 0.5f, 0}, 2.3f, above},    // m > 1
      {{0, 0, 0}, -1.0f, negative},       // m < 0
      {{kNaN, 0, 0}, 1.0f, negative},     // m NaN: the finite channels take the first regime
  };
  for (const auto& c : cases) {
    for (uint8_t affects : {0, 9}) {
      SCOPED_TRACE(::testing::Message() << "T " << c.transmission[0] << " D " << c.density << " L " << int(affects));
      AreaLight l;
      l.shadowed(c.transmission, c.density, affects);
      const ShadingState after = l.shade();
      for (int i = 0; i < 3; ++i) {
        const float b = c.blend[affects != 0]((1.0f - c.transmission[i]) * c.density, C[i], S[i]);
        if (std::isnan(b)) {
          EXPECT_TRUE(std::isnan(after.lightColor[i]));
        } else {
          EXPECT_BITEQ(after.lightColor[i], b);
        }
      }
      expectColor(after.lightShadow, {1, 1, 1});
      EXPECT_EQ(l.context.totalCalls(), 1);
      EXPECT_EQ(l.context.lastShadowTo, (std::array<float, 3>{0, 0, 2}));
    }
  }
  AreaLight l;  // the blend is scaled last by (k intensity) P
  host::ConstantSampler projection({0.3f, 0.7f, 0.9f, 1.0f});
  l.shadowed({1, 1, 1}, 1.0f, 0);
  l.light.block.setFloat("intensity", 2.7f);
  l.light.block.setBool("projMapOn", 1);
  l.light.block.setTexture("projMap", &projection, 0);
  l.state.lightDistance = 3.0f;
  const float k = 1.0f / 9.0f;
  expectColor(l.shade().lightColor, {C[0] * (k * 2.7f * 0.3f), C[1] * (k * 2.7f * 0.7f), C[2] * (k * 2.7f * 0.9f)});
}

const std::array<float, 3> kDirections[] = {
    {0.9f, 0.2f, -0.3f}, {-0.8f, 0.5f, 0.1f}, {0.1f, 0.7f, -0.4f}, {0.3f, -0.9f, 0.2f}, {-0.2f, 0.1f, 0.6f},
    {0.4f, -0.3f, -0.95f}, {0.5f, 0.5f, 0.2f}, {0.5f, -0.5f, 0.5f}, {-0.6f, 0.6f, -0.6f}, {0.0f, 0.0f, -1.0f}};

TEST(AreaLight, CubeMapsAgreeWithTheHostsFacesTheShadowMapMirrored) {
  host::CubeFaceSampler cube = taggedCube();
  for (const auto& d : kDirections) {
    SCOPED_TRACE(::testing::Message() << d[0] << " " << d[1] << " " << d[2]);
    AreaLight p;
    p.light.block.setBool("projMapOn", 1);
    p.light.block.setTexture("projMap", &cube, 0);
    p.direction(d);
    float expected[4];
    cube.lookupDirection(expected, d.data());
    expectColor(p.shade().lightColor, {expected[0], expected[1], expected[2]});

    AreaLight s;
    s.shadowed({0, 0, 0}, 1.0f, 0);  // fully occluded at density 1: the blend is the shadow colour
    s.light.block.setBool("useShadowColMap", 1);
    s.light.block.setTexture("shadowColMap", &cube, 0);
    s.direction(d);
    const auto c = host::CubeFaceSampler::project(d.data());
    cube.lookup(expected, 1.0f - c.s, 1.0f - c.t, float(c.face));
    const ShadingState after = s.shade();
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(after.lightColor[i], expected[i], 1e-5f);
  }
  AreaLight unbound;  // switched on without a map: black
  unbound.light.block.setBool("projMapOn", 1);
  expectColor(unbound.shade().lightColor, {0, 0, 0});
}

}  // namespace
}  // namespace kvi::test
