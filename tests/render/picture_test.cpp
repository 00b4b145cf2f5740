// Rendered pictures checked against physical and designed facts rather than
// stored pictures.
#include <cmath>
#include <fstream>

#include "kvi/host/tone_mapper.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

constexpr float kPi = 3.14159265f;

// A camera straight above the origin looking down, +X to the right of the
// picture and -Z up; the ground point a pixel centre sees.
json cameraLookingDown(float height, float fov) {
  return {{"position", {0.0f, height, 0.0f}}, {"look_at", {0.0f, 0.0f, 0.0f}}, {"up", {0.0f, 0.0f, -1.0f}}, {"fov", fov}};
}
void groundPointOfPixel(int px, int py, int size, float height, float fov, float& x, float& z) {
  const float t = std::tan(0.5f * fov * kPi / 180.0f);
  x = (2.0f * (float(px) + 0.5f) / float(size) - 1.0f) * t * height;
  z = -(1.0f - 2.0f * (float(py) + 0.5f) / float(size)) * t * height;
}
// The pixel whose centre sees the ground point closest to (x, 0).
int pixelOfGroundX(float x, int size, float height, float fov) {
  const float t = std::tan(0.5f * fov * kPi / 180.0f);
  return int(std::floor((x / (t * height) + 1.0f) * 0.5f * float(size)));
}

json ground(const json& material, float size = 20.0f) {
  return {{"shape", "plane"}, {"size", size}, {"material", material}};
}

// ---- tone-mapping compensation ------------------------------------------

TEST(PictureTest, GradientBackgroundComesOutOfTheToneMapperAsPicked) {
  KVI_REQUIRE_SHADERS("GradientBackground");
  const int w = 24, h = 16;
  const float top[3] = {0.8f, 0.3f, 0.2f}, bottom[3] = {0.1f, 0.45f, 0.7f};
  json scene = emptyScene(w, h, 4);
  scene["tone_mapping"] = {{"enabled", true}, {"exposure", 1.7},     {"white", {1.0, 0.9, 0.8}},
                           {"vignetting", 2.0}, {"crush_blacks", 0.1}, {"burn_highlights_inv", 3.0},
                           {"saturation", 0.8}, {"gamma", 2.2}};
  scene["environment"] = {{"shader", "GradientBackground"},
                          {"parameters",
                           {{"backgroundTopColor", {top[0], top[1], top[2]}},
                            {"backgroundBottomColor", {bottom[0], bottom[1], bottom[2]}}}}};
  const Rendered r = renderScene(scene);
  const ByteImage picture = displayImage(r.result.film, *r.scene);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const float t = (float(y) + 0.5f) / float(h);
      for (int c = 0; c < 3; ++c) {
        const float picked = (1.0f - t) * top[c] + t * bottom[c];
        EXPECT_NEAR(int(picture.pixel(x, y)[c]), int(std::lround(picked * 255.0f)), 1)
            << "pixel (" << x << ", " << y << ") channel " << c;
      }
    }
}

// ---- a point light over a diffuse plane ---------------------------------

struct Falloff {
  float flags[3];
  float (*attenuation)(float distance);  // with decay start distance 1
};

TEST(PictureTest, PointLightIrradianceFollowsItsAttenuationFlags) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "PointLight");
  const int size = 33;
  const float height = 6.0f, fov = 60.0f, lightHeight = 2.0f;
  const Falloff laws[] = {
      {{0, 0, 1}, [](float d) { return d > 1.0f ? 1.0f / (d * d) : 1.0f; }},  // inverse square
      {{0, 1, 0}, [](float d) { return d > 1.0f ? 1.0f / d : 1.0f; }},        // inverse linear
      {{1, 0, 0}, [](float) { return 1.0f; }},                                 // no decay
  };
  for (const Falloff& law : laws) {
    json scene = emptyScene(size, size, 16);
    scene["camera"] = cameraLookingDown(height, fov);
    scene["objects"].push_back(ground(matteMaterial(1, 1, 1)));
    scene["lights"].push_back({{"shader", "PointLight"},
                               {"position", {0.0f, lightHeight, 0.0f}},
                               {"parameters",
                                {{"color", {1, 1, 1}},
                                 {"attenuationFactors", {law.flags[0], law.flags[1], law.flags[2]}},
                                 {"decayStartDistance", 1.0},
                                 {"castShadows", false}}}});
    const Rendered r = renderScene(scene);
    for (int py : {16, 9, 2})
      for (int px : {16, 22, 30}) {
        float x, z;
        groundPointOfPixel(px, py, size, height, fov, x, z);
        const float d = std::sqrt(x * x + z * z + lightHeight * lightHeight);
        // A white Lambertian plane: radiance = irradiance / pi.
        const float expected = law.attenuation(d) * (lightHeight / d) / kPi;
        EXPECT_NEAR(r.pixel(px, py)[0], expected, 0.02f * expected)
            << "flags (" << law.flags[0] << ", " << law.flags[1] << ", " << law.flags[2] << ") pixel (" << px << ", "
            << py << ")";
      }
  }
}

// ---- furnaces -----------------------------------------------------------

// A gradient background of the same radiance in every direction.
json uniformEnvironment(float radiance) {
  const json c = {radiance, radiance, radiance};
  return {{"shader", "GradientBackground"},
          {"parameters", {{"backgroundTopColor", c}, {"backgroundBottomColor", c}, {"backgroundColor", c}}}};
}

// Materials that conserve energy, set up as white diffuse reflectors or as
// clear glass (a path refracts in and out, reflecting its Fresnel share).
const std::pair<const char*, json> kWhiteDiffuse[] = {
    {"BasicMaterial", {{"diffuse", {1, 1, 1}}, {"specular", {0, 0, 0}}}},
    {"velk_qora_Mtl_Dielectric", {{"u_ior", 1.5}}},
    {"velk_qora_Mtl_Ward",
     {{"u_diffuseColor", {1, 1, 1}}, {"u_specularColor", {0, 0, 0}}, {"u_reflectivity", 0.0}, {"u_brdfCurvePower", 1.0},
      {"u_additionalColor", {0, 0, 0}}, {"u_imageFadeEnable", 0}}},
    // Its gathered light carries no 1 / pi: the renderer answers it the mean radiance.
    {"velk_qora_Mtl_Metal",
     {{"u_diffuseColor", {1, 1, 1}}, {"u_diffuseWeight", 1.0}, {"u_reflectivity", 0.0}, {"u_glossiness", 0.5}}},
};

// Eye paths gather the ball's light; on the floor the gather rays that meet
// the ball go on by its diffuse continuation: both ways give the sky.
TEST(PictureTest, WhiteDiffuseBallInAUniformEnvironmentIsAsBrightAsTheEnvironment) {
  KVI_REQUIRE_SHADERS("GradientBackground");
  const float sky = 0.6f;
  int tested = 0;
  for (const auto& [shader, parameters] : kWhiteDiffuse) {
    if (!testLibrary()->has(shader)) continue;
    ++tested;
    for (bool onFloor : {false, true}) {
      json scene = emptyScene(24, 24, 8);
      scene["render"]["max_depth"] = 30;  // white surfaces on all sides: no path may end early
      scene["render"]["russian_roulette_depth"] = 30;
      scene["camera"] = {{"position", {0, 0.5, 3.0}}, {"look_at", {0, -0.3, 0}}, {"fov", 50}};
      const json material = {{"shader", shader}, {"parameters", parameters}};
      scene["objects"].push_back({{"shape", "sphere"}, {"material", material}});
      if (onFloor)
        scene["objects"].push_back(
            {{"shape", "plane"}, {"size", 3.0}, {"transform", {{"translate", {0, -1.3, 0}}}}, {"material", material}});
      scene["environment"] = uniformEnvironment(sky);
      const Rendered r = renderScene(scene);
      int onBall = 0;
      for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 24; ++x) {
          if (r.pixel(x, y)[3] < 1.0f) continue;  // not fully covered by the ball
          ++onBall;
          for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(r.pixel(x, y)[c], sky, 0.01f * sky)
                << shader << (onFloor ? " on a floor" : "") << " at " << x << ", " << y;
        }
      EXPECT_GT(onBall, 100) << shader;
    }
  }
  if (tested == 0) GTEST_SKIP() << "no energy-conserving material in the module";
}

// Radiance is the same along every ray of a uniform environment, and clear
// glass bends rays without losing any: a white floor seen around and through
// a glass ball, lit through it by gather rays that refract in and out, keeps
// the environment's brightness everywhere.
TEST(PictureTest, ClearGlassOverAWhiteFloorChangesNothingInAUniformEnvironment) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "GradientBackground", "velk_qora_Mtl_Dielectric");
  const float sky = 0.6f;
  json scene = emptyScene(24, 24, 4);
  scene["render"]["max_depth"] = 40;
  scene["render"]["russian_roulette_depth"] = 40;
  scene["camera"] = {{"position", {0, 2.5, 2.5}}, {"look_at", {0, 0.4, 0}}, {"fov", 40}};
  scene["objects"].push_back({{"shape", "plane"}, {"size", 100.0}, {"material", matteMaterial(1, 1, 1)}});
  scene["objects"].push_back({{"shape", "sphere"}, {"radius", 0.5}, {"transform", {{"translate", {0, 0.6, 0}}}},
                              {"material", {{"shader", "velk_qora_Mtl_Dielectric"}, {"parameters", {{"u_ior", 1.5}}}}}});
  scene["environment"] = uniformEnvironment(sky);
  const Rendered r = renderScene(scene);
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 24; ++x) EXPECT_NEAR(r.pixel(x, y)[1], sky, 1e-4f) << "pixel " << x << ", " << y;
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
    for (int x = 0; x < 16; ++x) mean += r.pixel(x, y)[1];
  mean /= 256.0;
  EXPECT_NEAR(mean, emission / (1.0f - albedo), 0.01 * emission / (1.0f - albedo));
}

// ---- clipping and cut-outs ----------------------------------------------

TEST(PictureTest, ClippingPlaneRemovesTheHalfOfABallBelowIt) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  for (bool clipped : {false, true}) {
    json scene = emptyScene(32, 32, 4);
    scene["camera"] = {{"position", {0, 0, 4.0}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
    scene["objects"].push_back({{"shape", "sphere"}, {"material", matteMaterial(0.8f, 0.8f, 0.8f)}});
    // Points with 0 x + 1 y + 0 z <= -0.001 are cut away: the lower half.
    if (clipped) scene["clipping_planes"] = {{0.0, 1.0, 0.0, 0.001}};
    const Rendered r = renderScene(scene);
    // Pixel rows above and below the middle, inside the ball's disc.
    for (int x = 12; x < 20; ++x) {
      EXPECT_EQ(r.pixel(x, 11)[3], 1.0f) << "upper half kept, column " << x;
      EXPECT_EQ(r.pixel(x, 20)[3], clipped ? 0.0f : 1.0f) << "lower half, column " << x;
    }
  }
}

TEST(PictureTest, CutOutHoleLetsTheCameraAndTheShadowsThrough) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight");
  // A black square plate 1 above a white floor keeps only its middle
  // (uv clip), lit from the upper left at 45 degrees: its shadow lies at
  // x in [0, 2]; ground around x = 2.5 is lit through the cut-away ring.
  const int size = 41;
  const float height = 8.0f, fov = 40.0f;
  for (bool cutOut : {false, true}) {
    json plate = matteMaterial(0, 0, 0);
    plate["parameters"]["use_uv_clip"] = cutOut;
    plate["parameters"]["uv_clip_transform"] = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, -0.5, -0.5, 0, 1};
    json scene = emptyScene(size, size, 8);
    scene["camera"] = cameraLookingDown(height, fov);
    scene["objects"].push_back(ground(matteMaterial(1, 1, 1)));
    scene["objects"].push_back(
        {{"shape", "plane"}, {"size", 4.0}, {"transform", {{"translate", {0, 1, 0}}}}, {"material", plate}});
    scene["lights"].push_back({{"shader", "DirectionalLight"},
                               {"direction", {1, -1, 0}},
                               {"parameters", {{"color", {1, 1, 1}}, {"castShadows", true}}}});
    const Rendered r = renderScene(scene);
    const int mid = size / 2;
    const float lit = std::cos(kPi / 4.0f) / kPi;
    const float* throughRing = r.pixel(pixelOfGroundX(2.5f, size, height, fov), mid);
    const float* inShadow = r.pixel(pixelOfGroundX(1.5f, size, height, fov), mid);
    if (cutOut) {
      EXPECT_NEAR(throughRing[0], lit, 0.01f * lit) << "ground lit through the cut-away part";
      EXPECT_NEAR(inShadow[0], 0.0f, 1e-4f) << "shadow of the kept middle, seen through the ring";
    } else {
      EXPECT_NEAR(throughRing[0], 0.0f, 1e-4f) << "the whole plate shadows";
      EXPECT_NEAR(inShadow[0], 0.0f, 1e-4f) << "the camera sees the black plate";
    }
  }
}

// ---- extreme values -----------------------------------------------------

TEST(PictureTest, AnObjBoxWithoutNormalsKeepsItsEdgesSharpAndGivesNoNegativeSamples) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight");
  // Smoothed across its 90-degree edges, the top face's normals lean out
  // past the grazing light, and the material's unclamped cosine goes
  // negative there; split at the default crease angle, every face is flat.
  const std::string obj = ::testing::TempDir() + "kvi_render_box_without_normals.obj";
  std::ofstream(obj) << "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n"
                        "f 1 4 3 2\nf 5 6 7 8\nf 1 5 8 4\nf 2 3 7 6\nf 4 8 7 3\nf 1 2 6 5\n";
  for (const bool smooth : {true, false}) {
    json scene = emptyScene(24, 24, 4);
    scene["camera"] = {{"position", {-2, 4, 5}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
    json box = {{"shape", "obj"}, {"file", obj}, {"material", matteMaterial(0.8f, 0.8f, 0.8f)}};
    if (smooth) box["crease_angle"] = 180;
    scene["objects"].push_back(box);
    scene["lights"].push_back({{"shader", "DirectionalLight"}, {"direction", {-1, -0.15, 0}},
                               {"parameters", {{"color", {1, 1, 1}}, {"castShadows", false}}}});
    const Rendered r = renderScene(scene);
    if (smooth) {
      EXPECT_GT(r.result.stats.negativeSamples, 0u);
      EXPECT_NE(sampleWarnings(r.result.stats).find("negative"), std::string::npos);
    } else {
      EXPECT_EQ(r.result.stats.negativeSamples, 0u);
      for (float v : r.result.film.rgba) ASSERT_GE(v, 0.0f);
    }
  }
}

TEST(PictureTest, InfiniteSamplesAndZeroAreaLightsAreKeptOutOfThePicture) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "DirectionalLight", "velk_qora_Lgt_Diffuse");
  // An emitter whose only triangle has no area, next to a light whose
  // highlight on the ball overflows (a huge negative Phong exponent).
  const std::string obj = ::testing::TempDir() + "kvi_render_flat_triangle.obj";
  {
    std::ofstream out(obj);
    out << "v 0 2 0\nv 1 2 0\nv 2 2 0\nf 1 2 3\n";
  }
  json scene = emptyScene(16, 16, 4);
  scene["camera"] = {{"position", {0, 0, 4.0}}, {"look_at", {0, 0, 0}}, {"fov", 40}};
  json overflowing = matteMaterial(1, 1, 1);
  overflowing["parameters"]["specular"] = {1, 1, 1};
  overflowing["parameters"]["shininess"] = -1e6;
  scene["objects"].push_back({{"shape", "sphere"}, {"material", overflowing}});
  scene["lights"].push_back({{"shader", "DirectionalLight"}, {"direction", {0, 0, -1}}, {"parameters", {{"color", {1, 1, 1}}}}});
  scene["lights"].push_back(
      {{"shader", "velk_qora_Lgt_Diffuse"}, {"type", "area"}, {"emitter", {{"shape", "obj"}, {"file", obj}}}});
  const Rendered r = renderScene(scene);
  EXPECT_GT(r.result.stats.nonFiniteSamples, 0u);
  for (float v : r.result.film.rgba) ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
}  // namespace kvi::render::test
