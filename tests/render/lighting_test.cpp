// How the renderer samples each kind of light, and the paths of materials
// that shade whole hits, checked against closed forms.
#include <cmath>
#include <tuple>

#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

constexpr float kPi = 3.14159265f;

float meanOfBlock(const Rendered& r, int x0, int y0, int size, int channel) {
  double sum = 0.0;
  for (int y = y0; y < y0 + size; ++y)
    for (int x = x0; x < x0 + size; ++x) sum += r.pixel(x, y)[channel];
  return float(sum / (size * size));
}

// A white floor under a square emitter of radiance L, side 2a, at height h,
// facing down.
json squareLightOverFloor(float a, float h, float radiance, const json& camera) {
  json scene = emptyScene(16, 16, 64);
  scene["camera"] = camera;
  scene["objects"].push_back({{"shape", "plane"}, {"size", 20.0}, {"material", matteMaterial(1, 1, 1)}});
  scene["lights"].push_back(
      {{"shader", "velk_qora_Lgt_Diffuse"},
       {"type", "area"},
       {"parameters", {{"cast_shadows", false}, {"integratedColor", {radiance, radiance, radiance}}}},
       {"emitter",
        {{"shape", "plane"}, {"size", 2.0f * a}, {"transform", {{"rotate", {1, 0, 0, 180}}, {"translate", {0, h, 0}}}}}}});
  return scene;
}

TEST(LightingTest, AreaLightGivesTheIrradianceOfAUniformSquare) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Diffuse");
  const float a = 0.5f, h = 1.0f, radiance = 2.0f;
  // Seen from the side, under the light: the floor around the origin.
  const Rendered r = renderScene(squareLightOverFloor(
      a, h, radiance, {{"position", {2.0, 0.9, 0.0}}, {"look_at", {0, 0, 0}}, {"fov", 4}}));
  // Irradiance below the centre of a square: 4 L (u / s) atan(u / s) with
  // u = a / h, s = sqrt(1 + u^2); the white floor shows irradiance / pi.
  const float u = a / h, s = std::sqrt(1.0f + u * u);
  const float expected = 4.0f * radiance * (u / s) * std::atan(u / s) / kPi;
  EXPECT_NEAR(meanOfBlock(r, 6, 6, 4, 1), expected, 0.03f * expected);
}

TEST(LightingTest, AnAreaLightsEmitterShowsItsRadianceFromTheFrontOnly) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Diffuse");
  const float radiance = 2.0f;
  const Rendered below = renderScene(squareLightOverFloor(
      0.5f, 1.0f, radiance, {{"position", {0, 0.2, 0}}, {"look_at", {0, 1, 0}}, {"up", {0, 0, -1}}, {"fov", 30}}));
  for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(below.pixel(8, 8)[c], radiance);
  const Rendered above = renderScene(squareLightOverFloor(
      0.5f, 1.0f, radiance, {{"position", {0, 3, 0}}, {"look_at", {0, 1, 0}}, {"up", {0, 0, -1}}, {"fov", 30}}));
  EXPECT_EQ(above.pixel(8, 8)[0], 0.0f);   // its back: black, and it hides the floor
  EXPECT_EQ(above.pixel(8, 8)[3], 1.0f);
}

// Lights that sample themselves, 1 unit above a white floor: a ball of radius
// 0.25 and radiance 2 gives the floor below it L (r / h)^2; a spot disk of
// radius 0.1 and 0.5 W/sr, aimed down, (2 I h / r^2)(1 / h - 1 / sqrt(h^2 + r^2)) / pi.
// Seen from below, the ball shows L and the disk I / (pi r^2).
TEST(LightingTest, SphereAndSpotLightsLightTheFloorAndShowTheirRadiance) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Sphere", "velk_qora_Lgt_Spot");
  const double h = 1.0, r = 0.1, spotFloor = 2 * 0.5 * h / (r * r) * (1 / h - 1 / std::sqrt(h * h + r * r)) / kPi;
  const std::tuple<json, float, float> cases[] = {
      {{{"shader", "velk_qora_Lgt_Sphere"}, {"position", {0, 1, 0}},
        {"parameters", {{"radius", 0.25}, {"units", 2}, {"intensity", 2.0}, {"cast_shadows", false}}}},
       2.0f * 0.0625f, 2.0f},
      {{{"shader", "velk_qora_Lgt_Spot"}, {"position", {0, 1, 0}}, {"direction", {0, -1, 0}},
        {"parameters", {{"radius", 0.1}, {"intensity", 0.5}, {"coneAngle", 40.0}}}},
       float(spotFloor), float(0.5 / (kPi * 0.01))},
  };
  for (const auto& [light, floor, radiance] : cases) {
    json scene = emptyScene(16, 16, 256);
    scene["objects"].push_back({{"shape", "plane"}, {"size", 20.0}, {"material", matteMaterial(1, 1, 1)}});
    scene["lights"].push_back(light);
    scene["camera"] = {{"position", {2.0, 0.5, 0.0}}, {"look_at", {0, 0, 0}}, {"fov", 2}};
    EXPECT_NEAR(meanOfBlock(renderScene(scene), 6, 6, 4, 1), floor, 0.02f * floor) << light["shader"];
    scene["camera"] = {{"position", {0, 0.2, 0}}, {"look_at", {0, 1, 0}}, {"up", {0, 0, -1}}, {"fov", 2}};
    scene["objects"] = json::array();
    EXPECT_NEAR(renderScene(scene).pixel(8, 8)[0], radiance, 1e-3f * radiance) << light["shader"];
  }
}

TEST(LightingTest, DomeLightsLightAnOpenFloorLikeAUniformSky) {
  // A white floor under nothing but a dome light of colour c shows c: the
  // ambient and image-based lights arrive along the normal with pi times
  // their colour, the sky light (without an environment) from sampled
  // directions weighed by pi / cos.
  const float c[3] = {0.3f, 0.5f, 0.7f};
  const json colour = {c[0], c[1], c[2]};
  const std::pair<const char*, json> lights[] = {
      {"AmbientLight", {{"color", colour}}},
      {"velk_qora_Lgt_Sky", {{"intensity", colour}}},
      {"DiffuseIBL", {{"diffuseMap", {{"color", {c[0], c[1], c[2], 1.0}}}}, {"transform", "identity"}}},
  };
  int tested = 0;
  for (const auto& [shader, parameters] : lights) {
    if (!testLibrary()->has(shader) || !testLibrary()->has("BasicMaterial")) continue;
    ++tested;
    json scene = emptyScene(8, 8, 4);
    scene["camera"] = {{"position", {0, 3, 0}}, {"look_at", {0, 0, 0}}, {"up", {0, 0, -1}}, {"fov", 30}};
    scene["objects"].push_back({{"shape", "plane"}, {"size", 20.0}, {"material", matteMaterial(1, 1, 1)}});
    scene["lights"].push_back({{"shader", shader}, {"parameters", parameters}});
    const Rendered r = renderScene(scene);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(r.pixel(4, 4)[k], c[k], 1e-5f) << shader;
  }
  if (tested == 0) GTEST_SKIP() << "no dome light in the module";
}

TEST(LightingTest, WholeHitMirrorReflectsTheEnvironmentAndClippedPartsLetTheRayThrough) {
  KVI_REQUIRE_SHADERS("PhongReflective", "GradientBackground");
  // A pure mirror: the traced reflection is a secondary ray, which sees the
  // background's flat colour; the clipped lower half shows the gradient's
  // top colour that the camera sees behind it.
  json scene = emptyScene(16, 16, 1);
  scene["camera"] = {{"position", {0, 0, 4}}, {"look_at", {0, 0, 0}}, {"fov", 30}};
  scene["clipping_planes"] = {{0.0, 1.0, 0.0, 0.0}};
  scene["objects"].push_back({{"shape", "sphere"},
                              {"material",
                               {{"shader", "PhongReflective"},
                                {"parameters",
                                 {{"diffuse", {0, 0, 0}}, {"specular", {0, 0, 0}}, {"reflection", {1, 1, 1}},
                                  {"u_globalClippingMap", "global"}, {"u_globalClippingMapEnable", true}}}}}});
  scene["environment"] = {{"shader", "GradientBackground"},
                          {"parameters",
                           {{"backgroundTopColor", {0.2, 0.3, 0.4}}, {"backgroundBottomColor", {0.2, 0.3, 0.4}},
                            {"backgroundColor", {0.6, 0.5, 0.1}}}}};
  const Rendered r = renderScene(scene);
  EXPECT_FLOAT_EQ(r.pixel(8, 5)[1], 0.5f);   // upper half: the mirror
  EXPECT_FLOAT_EQ(r.pixel(8, 11)[1], 0.3f);  // lower half: clipped away
}

TEST(LightingTest, AGlazedPaneLetsItsColouredShareOfTheSunThrough) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Mtl_Glazing", "DirectionalLight");
  // k = 0.5^2 / 1 is reflected; (1 - k) x "u_refractColor" reaches the floor.
  const float colour[3] = {0.8f, 0.5f, 0.2f}, k = 0.25f;
  json scene = emptyScene(16, 8, 4);
  scene["render"]["gather_samples"] = 0;  // direct light only: the pane also reflects the floor
  scene["camera"] = {{"position", {0, 0.4, 4}}, {"look_at", {0, 0, 0}}, {"fov", 60}};
  scene["objects"].push_back({{"shape", "plane"}, {"size", 20.0}, {"material", matteMaterial(1, 1, 1)}});
  scene["objects"].push_back({{"shape", "plane"}, {"size", json::array({2.0, 20.0})}, {"transform", {{"translate", {-1.0, 1.0, 0}}}},
                              {"material",
                               {{"shader", "velk_qora_Mtl_Glazing"},
                                {"parameters", {{"u_refractColor", {colour[0], colour[1], colour[2]}}, {"u_reflectance", 0.5}}}}}});
  scene["lights"].push_back({{"shader", "DirectionalLight"}, {"direction", {0, -1, 0}}});
  const Rendered r = renderScene(scene);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(r.pixel(3, 6)[c], r.pixel(12, 6)[c] * colour[c] * (1.0f - k), 1e-5f) << c;
  EXPECT_GT(r.pixel(12, 6)[0], 0.1f);
}

TEST(LightingTest, PicturesDependOnTheSeedOnlyNotOnTheThreads) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "velk_qora_Lgt_Diffuse");
  const json scene = squareLightOverFloor(0.5f, 1.0f, 2.0f, {{"position", {2, 1.5, 2}}, {"look_at", {0, 0, 0}}});
  auto renderWith = [&](int threads, int seed) {
    json s = scene;
    s["render"]["seed"] = seed;
    auto loaded = loadScene(s, "<test scene>", ".", testLibrary());
    RenderOptions options;
    options.threads = threads;
    return render(*loaded, options).film.rgba;
  };
  const auto one = renderWith(1, 7);
  EXPECT_EQ(one, renderWith(2, 7));
  EXPECT_NE(one, renderWith(2, 8));
}

}  // namespace
}  // namespace kvi::render::test
