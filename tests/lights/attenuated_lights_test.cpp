// PointLight and SpotLight: fades, decay laws, soft cap and cone. Expected
// values repeat the float operations in their order.
#include <cmath>

#include "light_testing.h"

namespace kvi::test {
namespace {

float ramp(float t) { return (3.0f - 2.0f * t) * (t * t); }
float cap(float a) {
  float i = 1.0f / a;
  if (0.0625f > i) i = (1.0f - 16.0f * i) * 0.0225f + (16.0f * i) * 0.0625f;
  return 1.0f / i;
}

// A white light of either kind on its axis, so that every channel of
// lightColor is the capped intensity.
class Attenuation : public ::testing::TestWithParam<const char*> {
 protected:
  TestShader light{GetParam()};
  ScriptedContext context;
  void SetUp() override { light.block.setColor3("color", {1, 1, 1}); }
  void set(const char* on, const char* start, const char* end, float s, float e) {
    light.block.setBool(on, 7);
    light.block.setFloat(start, s);
    light.block.setFloat(end, e);
  }
  void near(float s, float e) { set("nearAttenuationOn", "nearAttenuationStart", "nearAttenuationEnd", s, e); }
  void far(float s, float e) { set("farAttenuationOn", "farAttenuationStart", "farAttenuationEnd", s, e); }
  void decay(std::array<float, 3> factors, float start) {
    light.block.setColor3("attenuationFactors", factors);
    light.block.setFloat("decayStartDistance", start);
  }
  // The intensity at a distance; the shadow must have been queried.
  float at(float distance) {
    light.apply();
    context.resetCounts();
    const ShadingState s = shaded(light, context, lightSampleState(distance));
    EXPECT_EQ(context.calls(kTraceShadow), 1) << "at " << distance;
    return s.lightColor[2];
  }
  // Nothing written and nothing called at that distance.
  bool silentAt(float distance) {
    light.apply();
    context.resetCounts();
    const ShadingState before = lightSampleState(distance), after = shaded(light, context, before);
    return context.totalCalls() == 0 && std::memcmp(&before, &after, sizeof before) == 0;
  }
};

TEST_P(Attenuation, FadesRampBetweenTheirStrictEnds) {
  near(2.0f, 4.0f);
  EXPECT_TRUE(silentAt(1.0f));
  EXPECT_TRUE(silentAt(2.0f));  // reaches the ramp with t = 0
  EXPECT_BITEQ(at(3.0f), 0.5f);
  EXPECT_BITEQ(at(2.7f), cap(ramp((2.7f - 2.0f) / (4.0f - 2.0f))));
  EXPECT_BITEQ(at(4.0f), 1.0f);
  near(2.0f, 2.0f);  // equal ends: a hard step
  EXPECT_TRUE(silentAt(1.999f));
  EXPECT_BITEQ(at(2.0f), 1.0f);
  light.block.setBool("nearAttenuationOn", 0);
  far(10.0f, 20.0f);
  EXPECT_BITEQ(at(10.0f), 1.0f);
  EXPECT_BITEQ(at(15.0f), 0.5f);
  EXPECT_TRUE(silentAt(20.0f));  // not cut off, but the ramp gives 0
  EXPECT_TRUE(silentAt(25.0f));
  near(2.0f, 14.0f);  // both ramps: w (3 - 2t) t^2, left to right
  const float w = ramp((13.0f - 2.0f) / (14.0f - 2.0f)), t = (20.0f - 13.0f) / (20.0f - 10.0f);
  EXPECT_BITEQ(at(13.0f), cap(w * (3.0f - 2.0f * t) * (t * t)));
  light.block.setFloat("unitMultiplier", 10.0f);  // scales the distance first
  EXPECT_BITEQ(at(1.5f), 0.5f);
  far(20.0f, 20.0f);  // equal far ends: full light up to the end
  light.block.setBool("nearAttenuationOn", 0);
  EXPECT_BITEQ(at(2.0f), 1.0f);
  EXPECT_TRUE(silentAt(2.05f));
}

TEST_P(Attenuation, DecayLawFollowsTheFlags) {
  decay({0, 0, 1}, 2.0f);
  EXPECT_BITEQ(at(4.0f), 0.25f);
  EXPECT_BITEQ(at(1.0f), 1.0f);  // inside the decay start: none
  EXPECT_BITEQ(at(3.0f), cap((2.0f / 3.0f) * (2.0f / 3.0f)));
  decay({0, 1, 0}, 2.0f);
  EXPECT_BITEQ(at(4.0f), 0.5f);
  decay({-3, 0, 0.5f}, 2.0f);
  EXPECT_BITEQ(at(3.0f), cap(2.0f / 3.0f));
  decay({kNaN, 0, 1}, 2.0f);  // NaN counts as unequal to 1
  EXPECT_BITEQ(at(4.0f), 0.25f);
  decay({1, 1, 1}, 2.0f);  // fx = 1: no decay whatever the others say
  EXPECT_BITEQ(at(4.0f), 1.0f);
  decay({0, 0, 1}, -2.0f);
  light.block.setFloat("unitMultiplier", 0.0f);  // d = 0: no decay, not even -2 / 0
  EXPECT_BITEQ(at(4.0f), 1.0f);
}

TEST_P(Attenuation, SoftCapPassesUpTo16AndBendsBeyond) {
  // A negative decay start squared is the only road above an intensity of 1.
  decay({0, 0, 1}, -8.0f);
  EXPECT_BITEQ(at(2.0f), 16.0f);  // the knee
  decay({0, 0, 1}, -10.0f);
  EXPECT_BITEQ(at(2.0f), cap(25.0f));
  EXPECT_LT(at(2.0f), 25.0f);
  decay({0, 0, 1}, -kInf);
  EXPECT_BITEQ(at(2.0f), 1.0f / 0.0225f);
  decay({0, 1, 0}, -2.0f);  // a negative intensity bends too
  EXPECT_BITEQ(at(2.0f), cap(-1.0f));
}

INSTANTIATE_TEST_SUITE_P(Lights, Attenuation, ::testing::Values("PointLight", "SpotLight"));

TEST(PointLight, DefaultsGiveItsOrangeAndTheHostsShadowAtAnyDistance) {
  TestShader light("PointLight");
  light.apply();
  ScriptedContext context;
  context.shadow[0] = 0.2f, context.shadow[1] = 0.3f, context.shadow[2] = 0.4f;
  for (float d : {0.0f, 0.5f, 7.0f, 1e6f}) {
    const ShadingState before = lightSampleState(d), after = shaded(light, context, before);
    expectColor(after.lightColor, {1.0f, 0.5f, 0.1f});
    expectColor(after.lightShadow, {0.2f, 0.3f, 0.4f});
    expectOnlyChanged(before, after, {KVI_STATE_FIELD(lightColor), KVI_STATE_FIELD(lightShadow)});
  }
  light.block.setBool("castShadows", 0);
  light.apply();
  context.resetCounts();
  expectColor(shaded(light, context, lightSampleState()).lightShadow, {1, 1, 1});
  EXPECT_EQ(context.totalCalls(), 0);
}

// A direction off the axis (0, 0, -1) whose cosine with it is c.
ShadingState offAxis(float c, float distance = 2.0f) {
  ShadingState s = lightSampleState(distance);
  s.lightDirection[0] = std::sqrt(1.0f - c * c);
  s.lightDirection[2] = -c;
  return s;
}

TEST(SpotLight, ConeIsASmoothStepAndTheShadowComesFirst) {
  TestShader light("SpotLight");
  light.apply();
  ScriptedContext context;
  // The default colour's green is 1: green is the cone factor.
  const auto green = [&](const ShadingState& s) { return shaded(light, context, s).lightColor[1]; };
  const float k = ramp((0.925f - 0.9f) / (0.95f - 0.9f));
  EXPECT_BITEQ(green(offAxis(0.925f)), k);
  EXPECT_NEAR(k, 0.5f, 1e-4f);
  EXPECT_BITEQ(green(offAxis(0.97f)), 1.0f);
  EXPECT_BITEQ(green(offAxis(0.9f)), 0.0f);  // at the penumbra: the ramp's 0
  context.resetCounts();
  context.shadow[0] = 0.5f;
  const ShadingState outside = shaded(light, context, offAxis(0.5f));
  expectColor(outside.lightColor, {0, 0, 0});
  EXPECT_EQ(context.calls(kTraceShadow), 1);
  EXPECT_BITEQ(outside.lightShadow[0], 0.5f);
  // With decay, the cone scales the colour before the capped intensity does.
  light.block.setColor3("attenuationFactors", {0, 1, 0});
  light.apply();
  const float s = cap(1.0f / 9.0f);
  expectColor(shaded(light, context, offAxis(0.925f, 9.0f)).lightColor, {s * (k * 0.1f), s * (k * 1.0f), s * (k * 0.5f)});
}

TEST(SpotLight, CosineIsSummedYXZAndClampedToTheUnitRange) {
  TestShader light("SpotLight");
  light.block.setFloat("cosPenumbra", 0.0f);  // the cone factor is ramp(cosA)
  light.block.setFloat("cosUmbra", 1.0f);
  light.apply();
  ScriptedContext context;
  ShadingState s = lightSampleState();
  const float axis[3] = {0.3f, 0.7f, 0.1f}, dir[3] = {0.9f, 0.31f, -0.2f};
  std::memcpy(s.lightAxis, axis, sizeof axis);
  std::memcpy(s.lightDirection, dir, sizeof dir);
  EXPECT_BITEQ(shaded(light, context, s).lightColor[1], ramp(axis[1] * dir[1] + axis[0] * dir[0] + axis[2] * dir[2]));
  light.block.setFloat("cosPenumbra", -0.5f);  // below 0, so that the clamp to 0 shows
  light.apply();
  const float clampedToZero = ramp((0.0f - -0.5f) / (1.0f - -0.5f));
  for (const auto& [d, k] : {std::pair{5.0f, 1.0f}, std::pair{-0.5f, clampedToZero}, std::pair{kNaN, 1.0f}}) {
    s.lightDirection[0] = s.lightDirection[1] = s.lightDirection[2] = d;  // cosA 5.5, -0.55, NaN
    EXPECT_BITEQ(shaded(light, context, s).lightColor[1], k) << d;
  }
}

}  // namespace
}  // namespace kvi::test
