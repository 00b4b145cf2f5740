// PhongReflective through the module loader: the light loop, the traced
// mirror ray, the clipping planes and the operations it takes no part in.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "kvi/host/samplers.h"
#include "scripted_context.h"
#include "test_shader.h"

namespace {

using kvi::ShadingState;

class PhongReflectiveTest : public ::testing::Test {
 protected:
  kvi::test::TestShader shader{"PhongReflective"};
  kvi::test::ScriptedContext context;
  ShadingState state = kvi::test::patternState();  // unwritten fields keep the pattern

  void SetUp() override {
    const float position[3] = {1, 2, 3}, normal[3] = {0, 0, 1}, ray[3] = {0.6f, 0, -0.8f};
    std::memcpy(state.position, position, sizeof position);
    std::memcpy(state.normal, normal, sizeof normal);
    std::memcpy(state.rayDirection, ray, sizeof ray);
    context.traced[0] = 2.0f;
    context.traced[1] = 4.0f;
    context.traced[2] = 8.0f;
    shader.apply();
  }
  void shade() {
    shader.apply();
    shader.material()->shadeSurface(&context, &state);
  }
};

TEST_F(PhongReflectiveTest, SumsTheLightsInListOrderAndAddsTheTracedMirror) {
  std::string names;
  for (const auto& p : shader.info->parameters) names += p.name + " ";
  EXPECT_EQ(names, "diffuse specular reflection shininess u_globalClippingMap u_globalClippingMapEnable ");
  EXPECT_EQ(shader.info->operationMask, 12u);
  EXPECT_TRUE(shader.info->varyings.empty());

  // Diffuse factors 1, 1e8, -1e8 sum to 0 in list order (the 1 is lost against
  // 1e8) and to 1 in reverse. Highlights: 1 for the lights along the mirror
  // direction, 0 for the one opposite the view (zero half vector).
  kvi::LightSample lights[3] = {{{0.6f, 0, 0.8f}, 1.0f, {1, 1, 1}, &lights[1]},
                                {{0.6f, 0, -0.8f}, 1e8f, {1, 1, 1}, &lights[2]},
                                {{0.6f, 0, 0.8f}, -1e8f, {1, 1, 1}, nullptr}};
  context.lightSamples = lights;
  shader.block.setColor3("specular", {0.25f, 0.5f, 1.0f});
  shader.block.setColor3("reflection", {0.5f, 0.5f, 0.5f});
  const ShadingState before = state;
  shade();
  EXPECT_BITEQ(state.surfaceResult[0], 2.0f * 0.25f + 2.0f * 0.5f);
  EXPECT_BITEQ(state.surfaceResult[1], 2.0f * 0.5f + 4.0f * 0.5f);
  EXPECT_BITEQ(state.surfaceResult[2], 2.0f * 1.0f + 8.0f * 0.5f);
  EXPECT_EQ(std::memcmp(&state.surfaceResult[3], &before.surfaceResult[3], 4), 0);  // alpha untouched
  EXPECT_EQ(state.hitDiscarded, before.hitDiscarded);
  EXPECT_EQ(context.lastLightsWhich, 0);
  EXPECT_EQ(context.lastLightsPosition, context.lastRayOrigin);
  EXPECT_EQ(context.lastRayOrigin, (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(context.lastLightsNormal, (std::array<float, 3>{0, 0, 1}));
  EXPECT_EQ(context.lastRayDirection, (std::array<float, 3>{0.6f, 0, 0.8f}));
  EXPECT_BITEQ(context.lastRayWeight, 1.0f);
}

TEST_F(PhongReflectiveTest, ShininessShapesTheHighlightAndNoLightLeavesTheReflection) {
  kvi::LightSample light = {{0.6f, 0, 0.8f}, 0.0f, {1, 1, 1}, nullptr};
  state.rayDirection[0] = 0.0f;
  state.rayDirection[2] = -1.0f;
  context.lightSamples = &light;
  context.traced[0] = 0.0f;
  shader.block.setFloat("shininess", 2.0f);
  shade();
  EXPECT_NEAR(state.surfaceResult[0], 0.9, 1e-6);  // (N . H)^2 = 1.8^2 / 3.6
  context.lightSamples = nullptr;
  shade();
  EXPECT_BITEQ(state.surfaceResult[1], 4.0f);
}

TEST_F(PhongReflectiveTest, ClippedHitsAreDiscardedAndNothingElseIsWritten) {
  kvi::host::ClippingPlaneTable table({{0, 0, 1, -3}});  // cuts z <= 3
  shader.block.setClippingMap("u_globalClippingMap", &table, 0);
  shader.block.setBool("u_globalClippingMapEnable", 0x7F);
  const ShadingState before = state;
  shade();
  EXPECT_EQ(state.hitDiscarded, 1);
  state.hitDiscarded = before.hitDiscarded;
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  EXPECT_EQ(context.totalCalls(), 0);
  shader.material()->shadowTransmission(&context, &state);
  EXPECT_EQ(state.hitDiscarded, 1);
  // An unbound map keeps every point.
  state = before;
  shader.block.setClippingMap("u_globalClippingMap", nullptr, -1);
  state.position[2] = 0.0f;
  shade();
  EXPECT_EQ(state.hitDiscarded, before.hitDiscarded);
  EXPECT_EQ(context.calls(kvi::test::kTraceRay), 1);
}

TEST_F(PhongReflectiveTest, TheOperationsItTakesNoPartInDoNothing) {
  auto* m = shader.material();
  const ShadingState before = state;
  m->evaluateBsdf(&context, &state);
  m->sampleBsdf(&context, &state);
  m->evaluateRadiance(&context, &state);
  m->testCutout(&context, &state);
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
  EXPECT_EQ(context.totalCalls(), 0);
}

}  // namespace
