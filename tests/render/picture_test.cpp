// Rendered pictures checked against physical and designed facts rather than
// stored pictures.
#include <cmath>
#include <fstream>

#include "kvi/host/tone_mapper.h"
#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

constexpr float kPi = 3.14159265f;

// A camera straight above the origin looking down, +X to the right of the
// picture and -Z up, and the ground point a pixel centre sees.
json cameraLookingDown(float height, float fov) {
  return {{"position", {0, height, 0}}, {"look_at", {0, 0, 0}}, {"up", {0, 0, -1}}, {"fov", fov}};
}
float groundOfPixel(int p, int size, float height, float fov) {
  return (2.0f * (float(p) + 0.5f) / float(size) - 1.0f) * std::tan(0.5f * fov * kPi / 180.0f) * height;
}
json ground(const json& material) { return {{"shape", "plane"}, {"size", 20.0}, {"material", material}}; }

// An OBJ file of the given text in the test folder.
std::string objFile(const std::string& name, const std::string& text) {
  const std::string path = ::testing::TempDir() + name;
  std::ofstream(path) << text;
  return path;
}

TEST(PictureTest, GradientBackgroundComesOutOfTheToneMapperAsPicked) {
  KVI_REQUIRE_SHADERS("GradientBackground");
  const int w = 24, h = 16;
  const float top[3] = {0.8f, 0.3f, 0.2f}, bottom[3] = {0.1f, 0.45f, 0.7f};
  json scene = emptyScene(w, h, 4);
  scene["tone_mapping"] = {{"enabled", true}, {"exposure", 1.7}, {"white", {1.0, 0.9, 0.8}}, {"vignetting", 2.0},
                           {"crush_blacks", 0.1}, {"burn_highlights_inv", 3.0}, {"saturation", 0.8}, {"gamma", 2.2}};
  scene["environment"] = {{"shader", "GradientBackground"},
                          {"parameters", {{"backgroundTopColor", {top[0], top[1], top[2]}},
                                          {"backgroundBottomColor", {bottom[0], bottom[1], bottom[2]}}}}};
  const Rendered r = renderScene(scene);
  const ByteImage picture = displayImage(r.result.film, *r.scene);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 3; ++c) {
        const float t = (float(y) + 0.5f) / float(h), picked = (1.0f - t) * top[c] + t * bottom[c];
        EXPECT_NEAR(int(picture.pixel(x, y)[c]), int(std::lround(picked * 255.0f)), 1) << x << ", " << y << " " << c;
      }
}

// A white Lambertian plane under a point light 2 above it shows irradiance /
// pi, by each attenuation flag (decay start distance 1).
TEST(PictureTest, PointLightIrradianceFollowsItsAttenuationFlags) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "PointLight");
  const int size = 33;
  const float height = 6.0f, fov = 60.0f, lightHeight = 2.0f;
  const std::pair<json, float (*)(float)> laws[] = {
      {{0, 0, 1}, [](float d) { return d > 1.0f ? 1.0f / (d * d) : 1.0f; }},  // inverse square
      {{0, 1, 0}, [](float d) { return d > 1.0f ? 1.0f / d : 1.0f; }},        // inverse linear
      {{1, 0, 0}, [](float) { return 1.0f; }},                                 // no decay
  };
  for (const auto& [flags, attenuation] : laws) {
    json scene = emptyScene(size, size, 16);
    scene["camera"] = cameraLookingDown(height, fov);
    scene["objects"].push_back(ground(matteMaterial(1, 1, 1)));
    scene["lights"].push_back({{"shader", "PointLight"}, {"position", {0.0f, lightHeight, 0.0f}},
                               {"parameters", {{"color", {1, 1, 1}}, {"attenuationFactors", flags},
                                               {"decayStartDistance", 1.0}, {"castShadows", false}}}});
    const Rendered r = renderScene(scene);
    for (int py : {16, 9, 2})
      for (int px : {16, 22, 30}) {
        const float x = groundOfPixel(px, size, height, fov), z = groundOfPixel(py, size, height, fov);
        const float d = std::sqrt(x * x + z * z + lightHeight * lightHeight);
        const float expected = attenuation(d) * (lightHeight / d) / kPi;
        EXPECT_NEAR(r.pixel(px, py)[0], expected, 0.02f * expected) << flags << " pixel " << px << ", " << py;
      }
  }
}

// A uniform environment: radiance is the same along every ray, and surfaces
// that conserve energy change nothing in it. A white diffuse ball (eye paths
// gather its light; the gather rays that meet it from a floor go on by its
// diffuse continuation), clear glass that refracts in and out, alone, on a
// floor of its own kind or over a white floor it lights through refraction:
// every pixel shows the environment.
TEST(PictureTest, WhiteFurnaceEverySurfaceIsAsBrightAsTheEnvironment) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "GradientBackground");
  const float sky = 0.6f;
  const json matte = matteMaterial(1, 1, 1);
  const json glass = {{"shader", "velk_qora_Mtl_Dielectric"}, {"parameters", {{"u_ior", 1.5}}}};
  const json ward = {{"shader", "velk_qora_Mtl_Ward"},
                     {"parameters",
                      {{"u_diffuseColor", {1, 1, 1}}, {"u_specularColor", {0, 0, 0}}, {"u_reflectivity", 0.0},
                       {"u_brdfCurvePower", 1.0}, {"u_additionalColor", {0, 0, 0}}, {"u_imageFadeEnable", 0}}}};
  // Its gathered light carries no 1 / pi: the renderer answers it the mean radiance.
  const json metal = {{"shader", "velk_qora_Mtl_Metal"},
                      {"parameters", {{"u_diffuseColor", {1, 1, 1}}, {"u_diffuseWeight", 1.0}, {"u_reflectivity", 0.0},
                                      {"u_glossiness", 0.5}}}};
  struct Row { json ball, floor; float tolerance; };
  const Row rows[] = {{matte, nullptr, 0.01f}, {matte, matte, 0.01f}, {glass, nullptr, 0.01f}, {glass, glass, 0.01f},
                      {ward, nullptr, 0.01f},  {ward, ward, 0.01f},   {metal, nullptr, 0.01f}, {metal, metal, 0.01f},
                      {glass, matte, 1e-4f}};
  for (const Row& row : rows) {
    if (!testLibrary()->has(row.ball["shader"])) continue;
    if (!row.floor.is_null() && !testLibrary()->has(row.floor["shader"])) continue;
    json scene = emptyScene(24, 24, 8);
    scene["render"]["max_depth"] = 40;  // white surfaces on all sides: no path may end early
    scene["render"]["russian_roulette_depth"] = 40;
    scene["camera"] = {{"position", {0, 0.5, 3.0}}, {"look_at", {0, -0.3, 0}}, {"fov", 50}};
    const json c = {sky, sky, sky};
    scene["environment"] = {
        {"shader", "GradientBackground"},
        {"parameters", {{"backgroundTopColor", c}, {"backgroundBottomColor", c}, {"backgroundColor", c}}}};
    scene["objects"].push_back({{"shape", "sphere"}, {"material", row.ball}});
    if (!row.floor.is_null())
      scene["objects"].push_back({{"shape", "plane"}, {"size", 3.0}, {"transform", {{"translate", {0, -1.3, 0}}}},
                                  {"material", row.floor}});
    const Rendered r = renderScene(scene);
    int onBall = 0;
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 24; ++x) {
        onBall += r.pixel(x, y)[3] == 1.0f;
        for (int c = 0; c < 3; ++c)
          EXPECT_NEAR(r.pixel(x, y)[c], sky, row.tolerance * sky) << row.ball << " over " << row.floor << " at " << x
                                                                   << ", " << y;
      }
    EXPECT_GT(onBall, 100) << row.ball;
  }
}

TEST(PictureTest, InsideAClosedEmissiveSphereTheRadianceIsTheGeometricSeries) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  // Every bounce gives back the albedo a of what arrives, and every surface
  // emits e: L = e + a L, so L = e / (1 - a).
  const float albedo = 0.5f, emission = 0.1f;
  json scene = emptyScene(16, 16, 128);
  scene["render"]["max_depth"] = 30;
  scene["camera"] = {{"position", {0, 0, 0}}, {"look_at", {0, 0, -1}}, {"fov", 60}};
  json material = matteMaterial(albedo, albedo, albedo);
  material["parameters"]["emissive"] = {emission, emission, emission};
  scene["objects"].push_back({{"shape", "sphere"}, {"radius", 5.0}, {"material", material}});
  const Rendered r = renderScene(scene);
  double mean = 0.0;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) mean += r.pixel(x, y)[1] / 256.0;
  EXPECT_NEAR(mean, emission / (1.0f - albedo), 0.01 * emission / (1.0f - albedo));
}

TEST(PictureTest, ClippingPlaneRemovesTheHalfOfABallBelowIt) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  for (bool clipped : {false, true}) {
    json scene = emptyScene(32, 32, 4);
    scene["camera"] = {{"position", {0, 0, 4.0}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
    scene["objects"].push_back({{"shape", "sphere"}, {"material", matteMaterial(0.8f, 0.8f, 0.8f)}});
    // Points with 0 x + 1 y + 0 z <= -0.001 are cut away: the lower half.
    if (clipped) scene["clipping_planes"] = {{0.0, 1.0, 0.0, 0.001}};
    const Rendered r = renderScene(scene);
    for (int x = 12; x < 20; ++x) {  // pixel rows above and below the middle, inside the ball's disc
      EXPECT_EQ(r.pixel(x, 11)[3], 1.0f) << "upper half kept, column " << x;
      EXPECT_EQ(r.pixel(x, 20)[3], clipped ? 0.0f : 1.0f) << "lower half, column " << x;
    }
  }
}

// A black square plate 1 above a white floor keeps only its middle (uv
// clip), lit from the upper left at 45 degrees: its shadow lies at x in [0,
// 2]; ground around x = 2.5 is lit through the cut-away ring.
TEST(PictureTest, CutOutHoleLetsTheCameraAndTheShadowsThrough) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight");
  const int size = 41;
  const float height = 8.0f, fov = 40.0f, lit = std::cos(kPi / 4.0f) / kPi;
  const float t = std::tan(0.5f * fov * kPi / 180.0f) * height;
  auto pixelOfGround = [&](float x) { return int(std::floor((x / t + 1.0f) * 0.5f * float(size))); };
  for (bool cutOut : {false, true}) {
    json plate = matteMaterial(0, 0, 0);
    plate["parameters"]["use_uv_clip"] = cutOut;
    plate["parameters"]["uv_clip_transform"] = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, -0.5, -0.5, 0, 1};
    json scene = emptyScene(size, size, 8);
    scene["camera"] = cameraLookingDown(height, fov);
    scene["objects"].push_back(ground(matteMaterial(1, 1, 1)));
    scene["objects"].push_back(
        {{"shape", "plane"}, {"size", 4.0}, {"transform", {{"translate", {0, 1, 0}}}}, {"material", plate}});
    scene["lights"].push_back({{"shader", "DirectionalLight"}, {"direction", {1, -1, 0}},
                               {"parameters", {{"color", {1, 1, 1}}, {"castShadows", true}}}});
    const Rendered r = renderScene(scene);
    // Through the ring: lit when cut out, else the plate's shadow; the kept middle's shadow or the black plate.
    EXPECT_NEAR(r.pixel(pixelOfGround(2.5f), size / 2)[0], cutOut ? lit : 0.0f, cutOut ? 0.01f * lit : 1e-4f) << cutOut;
    EXPECT_NEAR(r.pixel(pixelOfGround(1.5f), size / 2)[0], 0.0f, 1e-4f) << cutOut;
  }
}

// Smoothed across its 90-degree edges, a box's top face's normals lean out
// past the grazing light, and the material's unclamped cosine goes negative
// there; split at the default crease angle, every face is flat.
TEST(PictureTest, AnObjBoxWithoutNormalsKeepsItsEdgesSharpAndGivesNoNegativeSamples) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight");
  const std::string obj = objFile("kvi_render_box_without_normals.obj",
                                  "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n"
                                  "f 1 4 3 2\nf 5 6 7 8\nf 1 5 8 4\nf 2 3 7 6\nf 4 8 7 3\nf 1 2 6 5\n");
  EXPECT_EQ(loadObj(obj).positions.size(), 24u);  // four corners a face, or one a vertex when smooth
  EXPECT_EQ(loadObj(obj, 180.0f).positions.size(), 8u);
  for (const bool smooth : {true, false}) {
    json scene = emptyScene(24, 24, 4);
    scene["camera"] = {{"position", {-2, 4, 5}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
    json box = {{"shape", "obj"}, {"file", obj}, {"material", matteMaterial(0.8f, 0.8f, 0.8f)}};
    if (smooth) box["crease_angle"] = 180;
    scene["objects"].push_back(box);
    scene["lights"].push_back({{"shader", "DirectionalLight"}, {"direction", {-1, -0.15, 0}},
                               {"parameters", {{"color", {1, 1, 1}}, {"castShadows", false}}}});
    const Rendered r = renderScene(scene);
    EXPECT_EQ(r.result.stats.negativeSamples > 0, smooth);
    EXPECT_EQ(sampleWarnings(r.result.stats).find("negative") != std::string::npos, smooth);
    for (float v : r.result.film.rgba) ASSERT_TRUE(smooth || v >= 0.0f);
  }
}

// An emitter whose only triangle has no area, next to a light whose
// highlight on the ball overflows (a huge negative Phong exponent).
TEST(PictureTest, InfiniteSamplesAndZeroAreaLightsAreKeptOutOfThePicture) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight", "velk_qora_Lgt_Diffuse");
  const std::string obj = objFile("kvi_render_flat_triangle.obj", "v 0 2 0\nv 1 2 0\nv 2 2 0\nf 1 2 3\n");
  json scene = emptyScene(16, 16, 4);
  scene["camera"] = {{"position", {0, 0, 4.0}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
  json overflowing = matteMaterial(1, 1, 1);
  overflowing["parameters"]["specular"] = {1, 1, 1};
  overflowing["parameters"]["shininess"] = -1e6;
  scene["objects"].push_back({{"shape", "sphere"}, {"material", overflowing}});
  scene["lights"] = {
      {{"shader", "DirectionalLight"}, {"direction", {0, 0, -1}}, {"parameters", {{"color", {1, 1, 1}}}}},
      {{"shader", "velk_qora_Lgt_Diffuse"}, {"type", "area"}, {"emitter", {{"shape", "obj"}, {"file", obj}}}}};
  const Rendered r = renderScene(scene);
  EXPECT_GT(r.result.stats.nonFiniteSamples, 0u);
  for (float v : r.result.film.rgba) ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
}  // namespace kvi::render::test
