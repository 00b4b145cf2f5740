// The shared surface routines called directly: the glossy reflection lobe
// (no material of this family uses it) and the ray-kind override of a
// two-lobe choice. The clipping map and the uv rectangle are exercised
// through BasicMaterial's testCutout.
#include "frame/surface.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "scripted_context.h"
#include "test_shader.h"

namespace {

using kvi::glossyReflectionLobe;

// The distribution at a half vector along the normal: 1 / (m^2 pi), pi stored as 3.141593.
float peakDistribution(float m) { return 1.0f / (m * m * 3.141593f); }

// A view at cosine vz in the xz plane and its mirror image, so that the half
// vector is exactly the normal and only the fade and the geometry term vary.
float mirroredLobe(float vz, float m) {
  const float vx = std::sqrt(1.0f - vz * vz);
  const float incoming[3] = {-vx, 0.0f, -vz};
  const float outgoing[3] = {-vx, 0.0f, vz};
  return glossyReflectionLobe(incoming, outgoing, m);
}

TEST(GlossyLobe, PeakGeometryCapAndRoughnessFloor) {
  const float down[3] = {0, 0, -1}, up[3] = {0, 0, 1};
  // Head on: G = min(2, 2, 1) = 1, no fade.
  EXPECT_BITEQ(glossyReflectionLobe(down, up, 0.5f), peakDistribution(0.5f) * 0.25f);
  // At a view cosine of 0.3 every geometry bound exceeds 3.3; the cap wins.
  EXPECT_BITEQ(mirroredLobe(0.3f, 0.2f), 2.236f * peakDistribution(0.2f) * 0.25f);
  const float floorValue = mirroredLobe(0.6f, 0.0225f);
  for (float m : {0.0f, 0.01f, -3.0f, std::numeric_limits<float>::quiet_NaN()})
    EXPECT_BITEQ(mirroredLobe(0.6f, m), floorValue) << m;
  EXPECT_LT(mirroredLobe(0.6f, 0.03f), floorValue);
}

TEST(GlossyLobe, GrazingViewsFadeSmoothlyToZero) {
  // x = 36 * 2^-6 = 0.5625: 6x^5 - 15x^4 + 10x^3 is exact in single precision.
  const float fade = 645894.0f / 1048576.0f;
  const float unfaded = 2.236f * peakDistribution(0.2f) * 0.25f;
  EXPECT_BITEQ(mirroredLobe(0.015625f, 0.2f), 2.236f * fade * peakDistribution(0.2f) * 0.25f);
  // From the stored threshold 0x3CE38E0F on (just below 1/36) nothing is faded; the
  // polynomial would give 0.999999 at 0x3CE38E13.
  for (uint32_t bits : {0x3CE38E0Fu, 0x3CE38E13u})
    EXPECT_BITEQ(mirroredLobe(std::bit_cast<float>(bits), 0.2f), unfaded);
  EXPECT_LT(mirroredLobe(0.02f, 0.2f), unfaded);
  // At the horizon both directions lie in the surface: nothing, and no NaN.
  const float grazeIn[3] = {-1, 0, 0}, grazeOut[3] = {1, 0, 0};
  EXPECT_EQ(glossyReflectionLobe(grazeIn, grazeOut, 0.2f), 0.0f);
}

TEST(GlossyLobe, SidesAndGeneralDirections) {
  const float down[3] = {0, 0, -1}, up[3] = {0, 0, 1}, slantDown[3] = {0.6f, 0, -0.8f};
  const float broken[3] = {0, 0, std::numeric_limits<float>::quiet_NaN()};
  EXPECT_BITEQ(glossyReflectionLobe(down, slantDown, 0.3f), 0.0f);  // light below, view above
  EXPECT_BITEQ(glossyReflectionLobe(up, up, 0.3f), 0.0f);
  EXPECT_BITEQ(glossyReflectionLobe(broken, up, 0.3f), 0.0f);
  EXPECT_BITEQ(glossyReflectionLobe(down, broken, 0.3f), 0.0f);
  // Expected values evaluated in double precision from these exact floats;
  // the first is bounded by g3 = 1/|Vz|, the second by g2.
  const float a1[3] = {0.309426367f, -0.206284255f, -0.928279102f};
  const float b1[3] = {-0.527046263f, 0.421637028f, 0.737864792f};
  EXPECT_NEAR(glossyReflectionLobe(a1, b1, 0.3f), 0.02321809330864005, 2e-7);
  const float a2[3] = {0.0995037183f, 0.0f, -0.995037198f};
  const float b2[3] = {-0.953998089f, 0.21199958f, 0.21199958f};
  EXPECT_NEAR(glossyReflectionLobe(a2, b2, 0.4f), 0.0044415328162798655, 4e-8);
}

// The override's decisions: (ray kind, a, b, flag 1 set, isDiffuseSampled,
// frontFacing) -> (decided, p), starting from p = 0.5.
struct OverrideCase {
  int32_t kind;
  float a, b;
  int32_t flags;
  uint8_t diffuseSampled, frontFacing;
  bool decided;
  float p;
};

TEST(LobeChoiceOverride, DecisionsByRayKind) {
  const float t = 0.00390625f;  // 1/256
  const OverrideCase cases[] = {
      {3, 0.9f, 0.1f, 0, 1, 1, true, 0.0f},     // kind 3 always forces the first lobe off
      {3, 0.9f, 0.0f, 1, 0, 1, true, 0.0f},     // even where step 1 had chosen it
      {1, 0.9f, 0.1f, 1, 1, 1, true, 0.0f},     // kind 1, flag set: forced off
      {1, 0.9f, 0.1f, 0, 1, 1, true, 1.0f},     // flag clear: a > b on the front face picks it
      {1, 0.9f, 0.1f, 0, 1, 0, true, 0.0f},     // ... but not on the back face
      {1, 0.9f, 0.1f, 0, 1, 0x80, true, 1.0f},  // any non-zero byte is the front
      {2, 0.0f, 0.5f, 1, 1, 1, true, 1.0f},     // kind 2 with transmission above 1/256
      {2, 0.0f, 0.5f, 0, 1, 1, true, 0.0f},     // step 3 overrides p, decided stays
      {2, 0.5f, t, 1, 1, 1, false, 0.5f},       // exactly 1/256 is not above it
      {2, 0.5f, 0.0f, 1, 0, 1, true, 1.0f},     // diffuse not sampled and b below 1/256
      {2, 0.5f, t, 1, 0, 1, false, 0.5f},       // ... b exactly 1/256 is not below it
      {2, 0.5f, 0.0f, 0, 1, 1, false, 1.0f},    // step 3 alone: p changes, undecided
  };
  for (const auto& c : cases) {
    kvi::test::ScriptedContext context;
    context.rayKind = c.kind;
    context.rayFlags = c.flags;
    context.diffuseSampled = c.diffuseSampled;
    float p = 0.5f;
    const bool decided = kvi::overrideLobeChoice(&context, c.a, p, c.b, c.frontFacing);
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    EXPECT_EQ(decided, c.decided);
    EXPECT_BITEQ(p, c.p);
    for (int32_t flag : context.rayFlagsAsked) EXPECT_EQ(flag, 1);
  }
}

}  // namespace
