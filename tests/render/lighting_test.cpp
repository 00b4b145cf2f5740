// How the renderer samples each kind of light and answers the shaders' host
// services, and the paths of materials that shade whole hits, checked
// against closed forms.
#include <cmath>

#include "render/integrator.h"
#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

constexpr float kPi = 3.14159265f;

json scene16(int spp, const json& camera, const json& light) {
  json scene = emptyScene(16, 16, spp);
  scene["camera"] = camera;
  scene["objects"].push_back({{"shape", "plane"}, {"size", 20.0}, {"material", matteMaterial(1, 1, 1)}});
  scene["lights"].push_back(light);
  return scene;
}

// A square emitter of radiance L, side 2a = 1, at height h = 1, facing down.
const json kSquare = {
    {"shader", "velk_qora_Lgt_Diffuse"},
    {"type", "area"},
    {"parameters", {{"cast_shadows", false}, {"integratedColor", {2.0, 2.0, 2.0}}}},
    {"emitter",
     {{"shape", "plane"}, {"size", 1.0}, {"transform", {{"rotate", {1, 0, 0, 180}}, {"translate", {0, 1, 0}}}}}}};

// Lights 1 unit above a white floor, which shows irradiance / pi: a square
// emitter of radiance L = 2 gives the floor below its centre 4 L (u / s)
// atan(u / s) / pi, u = a / h, s = sqrt(1 + u^2); a ball of radius 0.25 and
// radiance 2 gives L (r / h)^2; a spot disk of radius 0.1 and 0.5 W/sr, aimed
// down, (2 I h / r^2)(1 / h - 1 / sqrt(h^2 + r^2)) / pi. Seen from below, the
// square and the ball show L, the disk I / (pi r^2); the square's back is
// black and hides what lies behind it.
TEST(LightingTest, AreaSphereAndSpotLightsLightTheFloorAndShowTheirRadiance) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Diffuse", "velk_qora_Lgt_Sphere", "velk_qora_Lgt_Spot");
  const double h = 1.0, r = 0.1, u = 0.5, s = std::sqrt(1 + u * u);
  const std::tuple<json, float, float> cases[] = {
      {kSquare, float(4 * 2.0 * (u / s) * std::atan(u / s) / kPi), 2.0f},
      {{{"shader", "velk_qora_Lgt_Sphere"}, {"position", {0, 1, 0}},
        {"parameters", {{"radius", 0.25}, {"units", 2}, {"intensity", 2.0}, {"cast_shadows", false}}}},
       2.0f * 0.0625f, 2.0f},
      {{{"shader", "velk_qora_Lgt_Spot"}, {"position", {0, 1, 0}}, {"direction", {0, -1, 0}},
        {"parameters", {{"radius", 0.1}, {"intensity", 0.5}, {"coneAngle", 40.0}}}},
       float(2 * 0.5 * h / (r * r) * (1 / h - 1 / std::sqrt(h * h + r * r)) / kPi), float(0.5 / (kPi * 0.01))},
  };
  for (const auto& [light, floor, radiance] : cases) {
    json scene = scene16(256, {{"position", {2.0, 0.5, 0.0}}, {"look_at", {0, 0, 0}}, {"fov", 2}}, light);
    const Rendered side = renderScene(scene);
    double mean = 0.0;
    for (int y = 6; y < 10; ++y)
      for (int x = 6; x < 10; ++x) mean += side.pixel(x, y)[1] / 16.0;
    EXPECT_NEAR(mean, floor, 0.02f * floor) << light["shader"];
    scene["camera"] = {{"position", {0, 0.2, 0}}, {"look_at", {0, 1, 0}}, {"up", {0, 0, -1}}, {"fov", 2}};
    scene["objects"] = json::array();
    EXPECT_NEAR(renderScene(scene).pixel(8, 8)[0], radiance, 1e-3f * radiance) << light["shader"];
  }
  const json downwards = {{"position", {0, 3, 0}}, {"look_at", {0, 1, 0}}, {"up", {0, 0, -1}}, {"fov", 30}};
  const Rendered above = renderScene(scene16(1, downwards, kSquare));
  EXPECT_EQ(above.pixel(8, 8)[0], 0.0f);
  EXPECT_EQ(above.pixel(8, 8)[3], 1.0f);
}

// A white floor under nothing but a dome light of colour c shows c: the
// ambient and image-based lights arrive along the normal with pi times their
// colour, the sky light (without an environment) from sampled directions
// weighed by pi / cos.
TEST(LightingTest, DomeLightsLightAnOpenFloorLikeAUniformSky) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  const json c = {0.3f, 0.5f, 0.7f};
  const std::pair<const char*, json> lights[] = {
      {"AmbientLight", {{"color", c}}},
      {"velk_qora_Lgt_Sky", {{"intensity", c}}},
      {"DiffuseIBL", {{"diffuseMap", {{"color", {c[0], c[1], c[2], 1.0}}}}, {"transform", "identity"}}},
  };
  for (const auto& [shader, parameters] : lights) {
    if (!testLibrary()->has(shader)) continue;
    const json camera = {{"position", {0, 3, 0}}, {"look_at", {0, 0, 0}}, {"up", {0, 0, -1}}, {"fov", 30}};
    const Rendered r = renderScene(scene16(4, camera, {{"shader", shader}, {"parameters", parameters}}));
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(r.pixel(8, 8)[k], c[k].get<float>(), 1e-5f) << shader;
  }
}

// A pure mirror: the traced reflection is a secondary ray, which sees the
// background's flat colour; the clipped lower half shows the gradient's top
// colour that the camera sees behind it.
TEST(LightingTest, WholeHitMirrorReflectsTheEnvironmentAndClippedPartsLetTheRayThrough) {
  KVI_REQUIRE_SHADERS("PhongReflective", "GradientBackground");
  json scene = emptyScene(16, 16, 1);
  scene["camera"] = {{"position", {0, 0, 4}}, {"look_at", {0, 0, 0}}, {"fov", 30}};
  scene["clipping_planes"] = {{0.0, 1.0, 0.0, 0.0}};
  const json mirror = {{"diffuse", {0, 0, 0}}, {"specular", {0, 0, 0}}, {"reflection", {1, 1, 1}},
                       {"u_globalClippingMap", "global"}, {"u_globalClippingMapEnable", true}};
  scene["objects"].push_back(
      {{"shape", "sphere"}, {"material", {{"shader", "PhongReflective"}, {"parameters", mirror}}}});
  const json top = {0.2, 0.3, 0.4}, flat = {0.6, 0.5, 0.1};
  scene["environment"] = {
      {"shader", "GradientBackground"},
      {"parameters", {{"backgroundTopColor", top}, {"backgroundBottomColor", top}, {"backgroundColor", flat}}}};
  const Rendered r = renderScene(scene);
  EXPECT_FLOAT_EQ(r.pixel(8, 5)[1], 0.5f);   // upper half: the mirror
  EXPECT_FLOAT_EQ(r.pixel(8, 11)[1], 0.3f);  // lower half: clipped away
}

TEST(LightingTest, AGlazedPaneLetsItsColouredShareOfTheSunThrough) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Mtl_Glazing", "DirectionalLight");
  // k = 0.5^2 / 1 is reflected; (1 - k) x "u_refractColor" reaches the floor.
  const float colour[3] = {0.8f, 0.5f, 0.2f}, k = 0.25f;
  json scene = scene16(4, {{"position", {0, 0.4, 4}}, {"look_at", {0, 0, 0}}, {"fov", 60}},
                       {{"shader", "DirectionalLight"}, {"direction", {0, -1, 0}}});
  scene["render"]["height"] = 8;
  scene["render"]["gather_samples"] = 0;  // direct light only: the pane also reflects the floor
  const json pane = {{"u_refractColor", {colour[0], colour[1], colour[2]}}, {"u_reflectance", 0.5}};
  scene["objects"].push_back({{"shape", "plane"},
                              {"size", json::array({2.0, 20.0})},
                              {"transform", {{"translate", {-1.0, 1.0, 0}}}},
                              {"material", {{"shader", "velk_qora_Mtl_Glazing"}, {"parameters", pane}}}});
  const Rendered r = renderScene(scene);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(r.pixel(3, 6)[c], r.pixel(12, 6)[c] * colour[c] * (1.0f - k), 1e-5f) << c;
  EXPECT_GT(r.pixel(12, 6)[0], 0.1f);
}

TEST(LightingTest, PicturesDependOnTheSeedOnlyNotOnTheThreads) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Diffuse");
  auto renderWith = [&](int threads, int seed) {
    json s = scene16(64, {{"position", {2, 1.5, 2}}, {"look_at", {0, 0, 0}}}, kSquare);
    s["render"]["seed"] = seed;
    RenderOptions options;
    options.threads = threads;
    return render(*loadScene(s, "<test scene>", ".", testLibrary()), options).film.rgba;
  };
  const auto one = renderWith(1, 7);
  EXPECT_EQ(one, renderWith(2, 7));
  EXPECT_NE(one, renderWith(2, 8));
}

// What the renderer's context answers for each kind of ray, read from a
// probe material that reports them as radiance (see probe_module.cpp): the
// camera looks at a small probe in the middle of a large one that reports
// what reaches it. The probe reports kind bits, getRayKind and the flags
// sum (diffuse sampled 1, random lobe choice 2, reflection allowed 4, front 8);
// the gather averages what its rays see (every ray reports alike).
TEST(HostServicesTest, AnswersByKindOfRayBelowAndAtTheDepthLimit) {
  static const auto probes = std::make_shared<const ShaderLibrary>(KVI_RENDER_PROBE_MODULE_PATH);
  struct Row { const char* what; int mode, maxDepth; float kindBits, rayKind, flags; };
  const Row rows[] = {
      {"camera rays: eye rays that may reflect", 0, 8, 1, 1, 4 + 8},
      {"gather rays: secondary illumination rays sampling diffuse lobes at random (inside: back faces)", 1, 8, 2 + 8, 2,
       1 + 2 + 4},
      {"rays traced for materials keep their path's kind", 2, 8, 2 + 4, 1, 4},
      {"at the depth limit, camera rays only pass through", 0, 0, 1, 3, 8},
      {"one event deep, the gather rays stand at the limit", 1, 1, 2 + 8, 3, 2},
      {"a material cannot trace beyond the limit", 2, 0, 0, 0, 0},
  };
  for (const Row& row : rows) {
    json scene = emptyScene(9, 9, 4);
    scene["render"]["max_depth"] = row.maxDepth;
    scene["camera"] = {{"position", {0, 0, 4}}, {"look_at", {0, 0, 0}}, {"fov", 20}};
    auto probe = [](int mode) { return json{{"shader", "Probe"}, {"parameters", {{"mode", mode}}}}; };
    scene["objects"] = {{{"shape", "sphere"}, {"material", probe(row.mode)}},
                        {{"shape", "sphere"}, {"radius", 10.0}, {"material", probe(0)}}};
    const Rendered rendered = renderScene(scene, probes);
    const float* p = rendered.pixel(4, 4);
    EXPECT_NEAR(p[0], row.kindBits, 1e-4f) << row.what;
    if (row.mode != 2 || row.maxDepth > 0) {
      EXPECT_NEAR(p[1], row.rayKind, 1e-5f) << row.what;
      EXPECT_NEAR(p[2], row.flags, 1e-4f) << row.what;
    }
  }
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
