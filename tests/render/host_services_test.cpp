// What the renderer's context answers for each kind of ray, read from a
// probe material that reports them as radiance (see probe_module.cpp):
// camera rays, rays traced for materials and gather rays, below and at the
// depth limit.
#include "render/integrator.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

std::shared_ptr<const ShaderLibrary> probeLibrary() {
  static const auto library = std::make_shared<const ShaderLibrary>(KVI_RENDER_PROBE_MODULE_PATH);
  return library;
}

json probe(int mode) { return {{"shader", "Probe"}, {"parameters", {{"mode", mode}}}}; }

// What the probe reports: kind bits, getRayKind, and the flags sum
// (diffuse sampled 1, random lobe choice 2, reflection allowed 4, front 8).
struct Answers {
  float kindBits, rayKind, flags;
};

// The camera looks at a small probe in the middle of a large probe that
// reports what reaches it; returns the middle pixel.
Answers answersSeenThrough(int innerMode, int maxDepth) {
  json scene = emptyScene(9, 9, 4);
  scene["render"]["max_depth"] = maxDepth;
  scene["camera"] = {{"position", {0, 0, 4}}, {"look_at", {0, 0, 0}}, {"fov", 20}};
  scene["objects"].push_back({{"shape", "sphere"}, {"material", probe(innerMode)}});
  scene["objects"].push_back({{"shape", "sphere"}, {"radius", 10.0}, {"material", probe(0)}});
  const Rendered r = renderScene(scene, probeLibrary());
  const float* p = r.pixel(4, 4);
  return {p[0], p[1], p[2]};
}

TEST(HostServicesTest, CameraRaysAreEyeRaysThatMayReflect) {
  const Answers a = answersSeenThrough(0, 8);
  EXPECT_EQ(a.kindBits, 1.0f);  // a camera ray, nothing else
  EXPECT_EQ(a.rayKind, 1.0f);   // eye path: dominant lobe, no diffuse sampling
  EXPECT_EQ(a.flags, 4.0f + 8.0f);
}

TEST(HostServicesTest, GatherRaysAreIlluminationRaysThatSampleDiffuseLobesAtRandom) {
  // The gather averages what its rays see: here every ray reports alike.
  const Answers a = answersSeenThrough(1, 8);
  EXPECT_NEAR(a.kindBits, 2.0f + 8.0f, 1e-4f);  // secondary, illumination
  EXPECT_NEAR(a.rayKind, 2.0f, 1e-5f);
  EXPECT_NEAR(a.flags, 1.0f + 2.0f + 4.0f, 1e-4f);  // inside the big probe: its back face
}

TEST(HostServicesTest, RaysTracedForMaterialsKeepTheirPathsKind) {
  const Answers a = answersSeenThrough(2, 8);
  EXPECT_EQ(a.kindBits, 2.0f + 4.0f);
  EXPECT_EQ(a.rayKind, 1.0f);
  EXPECT_EQ(a.flags, 4.0f);
}

TEST(HostServicesTest, AtTheDepthLimitRaysOnlyPassThrough) {
  const Answers camera = answersSeenThrough(0, 0);
  EXPECT_EQ(camera.rayKind, 3.0f);
  EXPECT_EQ(camera.flags, 8.0f);  // no reflection, no diffuse sampling
  // One event deep: the gather rays stand at the limit.
  const Answers gathered = answersSeenThrough(1, 1);
  EXPECT_NEAR(gathered.rayKind, 3.0f, 1e-5f);
  EXPECT_NEAR(gathered.flags, 2.0f, 1e-5f);
  // A material cannot trace further than the limit either.
  EXPECT_EQ(answersSeenThrough(2, 0).kindBits, 0.0f);
}

// Probed once per material: whether its evaluateBsdf answers light samples at
// all, and how gathered light reaches its evaluateRadiance.
TEST(HostServicesTest, MaterialsAreProbedForLightSamplesAndTheirGather) {
  struct Case { const char* shader; bool answers; float gatherScale; };
  for (const Case& c : {Case{"BasicMaterial", true, 1.0f}, Case{"velk_qora_Mtl_Metal", true, kInvPi},
                        Case{"velk_qora_Mtl_Glazing", true, 1.0f}, Case{"velk_qora_Mtl_Mirror", false, 1.0f}}) {
    if (!testLibrary()->has(c.shader)) continue;
    Material material;
    material.shader = createShader(*testLibrary(), c.shader);
    const MaterialTraits traits = materialTraits(material);
    EXPECT_EQ(traits.answersLightSamples, c.answers) << c.shader;
    EXPECT_EQ(traits.gatherScale, c.gatherScale) << c.shader;
  }
}

}  // namespace
}  // namespace kvi::render::test
