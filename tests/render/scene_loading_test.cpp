// What a loaded scene hands the shaders: parameter values of every kind, the
// renderer's defaults for fields constructors leave unset, and the values
// the renderer fills in for environments and materials.
#include <cmath>

#include "kvi/host/samplers.h"
#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

using nlohmann::json;

std::unique_ptr<Scene> load(const json& scene) { return loadScene(scene, "<test scene>", ".", testLibrary()); }

const std::vector<float> kIdentity4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

TEST(SceneLoadingTest, ValuesOfEveryKindReachTheBlockAndUnsetFieldsGetTheRenderersDefaults) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  json scene = emptyScene(4, 4, 1);
  scene["textures"] = {{"grey", {{"color", {0.5, 0.5, 0.5, 1.0}}}}};
  scene["objects"].push_back(
      {{"shape", "sphere"},
       {"material",
        {{"shader", "BasicMaterial"},
         {"parameters",
          {{"use_decal_mode", 7},  // any byte: shaders test for non-zero
           {"cull_mode", 2},
           {"shininess", 3e38},  // as large as a float gets: passed on as it is
           {"u_extra_color_and_alpha", {0.1, 0.2, 0.3, 0.4}},
           {"uv_clip_transform", {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, -0.5, -0.5, 0, 1}},
           {"diffuse_map", "grey"},
           {"environment_map", {{"color", {1, 0, 0, 1}}}},
           {"u_globalClippingMap", {{"planes", {{0, 1, 0, 0}}}}}}}}}});
  const auto loaded = load(scene);
  const host::ParameterBlock& b = *loaded->materials[0].shader.block;
  EXPECT_EQ(b.getBool("use_decal_mode"), 7);
  EXPECT_EQ(b.getInt("cull_mode"), 2);
  EXPECT_EQ(b.getFloat("shininess"), 3e38f);
  EXPECT_EQ(b.getFloats("u_extra_color_and_alpha"), (std::vector<float>{0.1f, 0.2f, 0.3f, 0.4f}));
  EXPECT_EQ(b.getFloats("uv_clip_transform")[12], -0.5f);
  // A 2D texture and an environment map are bound to different samplers,
  // each with its slot.
  const TextureRef diffuse = b.getTexture("diffuse_map"), environment = b.getTexture("environment_map");
  ASSERT_NE(diffuse.sampler, nullptr);
  ASSERT_NE(environment.sampler, nullptr);
  EXPECT_NE(diffuse.slot, environment.slot);
  float texel[4] = {0, 0, 0, 1};
  const float st[2] = {0.3f, 0.7f};
  diffuse.sampler->sample(texel, st);
  EXPECT_EQ(texel[0], 0.5f);
  const ClippingMapRef clipping = b.getClippingMap("u_globalClippingMap");
  ASSERT_NE(clipping.sampler, nullptr);
  float count[4];
  clipping.sampler->lookup(count, 0.0f);
  EXPECT_EQ(count[0], 1.0f);
  // Left unset by the constructor and not given: identity and zeros.
  const auto& info = *loaded->materials[0].shader.info;
  if (info.unsetDetected && !info.findParameter("diffuse_map_transform")->hasDefault) {
    EXPECT_EQ(b.getFloats("diffuse_map_transform"), kIdentity4);
    EXPECT_EQ(b.getFloats("diffuse_map_tint"), (std::vector<float>{0, 0, 0}));
  }
}

TEST(SceneLoadingTest, EnvironmentsGetTheToneMappingTheCameraAndTheSun) {
  KVI_REQUIRE_SHADERS("GradientBackground", "velk_qora_Env_Sky", "velk_qora_Lgt_Sky");
  json scene = emptyScene(200, 100, 1);
  scene["camera"] = {{"fov", 60}};
  scene["tone_mapping"] = {{"enabled", true}, {"exposure", 2.5}, {"gamma", 1.8}, {"white", {1, 0.9, 0.8}}};
  scene["environment"] = {{"shader", "GradientBackground"}};
  auto loaded = load(scene);
  const host::ParameterBlock& g = *loaded->environment->shader.block;
  EXPECT_EQ(g.getBool("u_tm_enabled"), 1);
  EXPECT_EQ(g.getFloat("u_tm_exposure"), 2.5f);
  EXPECT_EQ(g.getFloat("u_tm_gamma"), 1.8f);
  EXPECT_EQ(g.getFloats("u_tm_whiteColor"), (std::vector<float>{1.0f, 0.9f, 0.8f}));
  EXPECT_NEAR(g.getFloat("u_cam_imagePlaneHeight"), 2.0f * std::tan(0.5236f), 1e-4f);
  EXPECT_NEAR(g.getFloat("u_cam_imagePlaneWidth"), 2.0f * g.getFloat("u_cam_imagePlaneHeight"), 1e-5f);
  EXPECT_EQ(g.getFloat("u_cam_focalDistance"), 1.0f);
  EXPECT_EQ(g.getBool("u_hasLightRepresentation"), 0);

  // A sky light stands for the sky: illumination rays see black there, and
  // the light reads the sky from a twin that shows it to them.
  scene["lights"].push_back({{"shader", "velk_qora_Lgt_Sky"}});
  scene["environment"] = {{"shader", "velk_qora_Env_Sky"}, {"sun_direction", {0, 3, 4}}};
  loaded = load(scene);
  const Environment& sky = *loaded->environment;
  EXPECT_EQ(sky.shader.block->getBool("illuminationOn"), 0);
  ASSERT_TRUE(sky.forLights.has_value());
  EXPECT_NE(sky.forLights->block->getBool("illuminationOn"), 0);
  // In the sky's z-up frame, with y up in the scene: (x, z, y).
  EXPECT_EQ(sky.shader.block->getFloats("adj_sun_direction"), (std::vector<float>{0.0f, 0.8f, 0.6f}));
}

TEST(SceneLoadingTest, MaterialsAreShadedWholeOnlyWhenTheirOperationsSaySo) {
  KVI_REQUIRE_SHADERS("BasicMaterial", "PhongReflective");
  json scene = emptyScene(4, 4, 1);
  for (const json& m : {json{{"shader", "BasicMaterial"}}, json{{"shader", "PhongReflective"}},
                        json{{"shader", "PhongReflective"}, {"shading", "bsdf"}}})
    scene["objects"].push_back({{"shape", "sphere"}, {"material", m}});
  const auto loaded = load(scene);
  EXPECT_FALSE(loaded->materials[0].wholeHit);
  EXPECT_TRUE(loaded->materials[1].wholeHit);
  EXPECT_FALSE(loaded->materials[2].wholeHit);
  EXPECT_EQ(loaded->materials[0].uvOffset, 0);
  EXPECT_EQ(loaded->materials[0].colorOffset, 8);
  EXPECT_EQ(loaded->materials[1].uvOffset, -1);
}

TEST(SceneLoadingTest, ObjectsShareTheirShapesAndApplyScaleThenRotationThenTranslation) {
  KVI_REQUIRE_SHADERS("BasicMaterial");
  json scene = emptyScene(4, 4, 1);
  const json m = matteMaterial(1, 1, 1);
  scene["objects"] = {
      {{"shape", "plane"}, {"size", 2.0}, {"material", m}},
      {{"shape", "plane"}, {"size", 2.0}, {"material", m},
       {"transform", {{"scale", 2.0}, {"rotate", {0, 1, 0, 90}}, {"translate", {0, 1, 0}}}}},
      {{"shape", "plane"}, {"size", 3.0}, {"material", m}},
      {{"shape", "sphere"}, {"material", m}},
      {{"shape", "sphere"}, {"radius", 2.0}, {"material", m}}};
  const auto loaded = load(scene);
  const auto& o = loaded->objects;
  EXPECT_EQ(o[0].prototype, o[1].prototype);
  EXPECT_NE(o[0].prototype, o[2].prototype);
  EXPECT_EQ(o[3].prototype, o[4].prototype);
  // An emitter needs triangles to be sampled: a sphere emitter is meshed
  // even beside analytic spheres.
  scene["lights"] = {{{"shader", "velk_qora_Lgt_Diffuse"}, {"type", "area"}, {"emitter", {{"shape", "sphere"}}}}};
  if (testLibrary()->has("velk_qora_Lgt_Diffuse")) {
    const auto withEmitter = load(scene);
    EXPECT_NEAR(withEmitter->lights[0].area, 4.0f * 3.14159265f, 0.01f * 4.0f * 3.14159265f);
    const Object& emitter = withEmitter->objects[size_t(withEmitter->lights[0].object)];
    EXPECT_EQ(withEmitter->prototypes[size_t(emitter.prototype)].kind, Prototype::Kind::Mesh);
  }
  const Vec3 p = o[1].toWorld.point({1, 0, 0});
  EXPECT_NEAR(p.x, 0.0f, 1e-6f);
  EXPECT_NEAR(p.y, 1.0f, 1e-6f);
  EXPECT_NEAR(p.z, -2.0f, 1e-6f);
}

TEST(SceneLoadingTest, ComputedNormalsAreSplitAtEdgesSharperThanTheCreaseAngle) {
  // Two triangles hinged on the z axis, the second folded up by `fold`
  // degrees: below the 30-degree crease their hinge corners share the mean
  // normal; above it each keeps its own, as the far corners always do.
  for (const float fold : {20.0f, 40.0f}) {
    const float a = fold * 3.14159265f / 180.0f;
    const std::vector<Vec3> positions = {{0, 0, 0}, {0, 0, 1}, {-1, 0, 0}, {std::cos(a), std::sin(a), 0}};
    const std::vector<uint32_t> triangles = {0, 2, 1, 0, 1, 3};
    const auto normals = creaseNormals(positions, triangles, kDefaultCreaseAngle);
    const Vec3 left{0, 1, 0}, right{-std::sin(a), std::cos(a), 0}, mean = normalize(left + right);
    const Vec3 hingeLeft = normals[0], hingeRight = normals[3];
    for (const auto& [normal, expected] : {std::pair{hingeLeft, fold < 30.0f ? mean : left},
                                           std::pair{hingeRight, fold < 30.0f ? mean : right},
                                           std::pair{normals[1], left}, std::pair{normals[5], right}})
      EXPECT_NEAR(length(normal - expected), 0.0f, 1e-6f) << "fold " << fold;
  }
}

TEST(SceneLoadingTest, LightsArePlacedAsTheirNamesSayUnlessTheSceneSaysOtherwise) {
  for (const auto& [name, type] : std::initializer_list<std::pair<const char*, std::optional<LightType>>>{
           {"SpotLight", LightType::Spot}, {"velk_qora_Lgt_Spot", LightType::Spot}, {"PointLight", LightType::Point},
           {"velk_qora_Lgt_Direction", LightType::Directional}, {"AmbientLight", LightType::Ambient},
           {"DiffuseIBL", LightType::Environment}, {"velk_qora_Lgt_Sky", LightType::Sky},
           {"velk_qora_Lgt_Diffuse", LightType::Area}, {"SomethingElse", std::nullopt}})
    EXPECT_EQ(lightTypeFromShaderName(name), type) << name;
  KVI_REQUIRE_SHADERS("PointLight");
  json scene = emptyScene(4, 4, 1);
  scene["lights"].push_back({{"shader", "PointLight"}, {"type", "directional"}, {"direction", {0, 0, -2}}});
  const auto loaded = load(scene);
  EXPECT_EQ(loaded->lights[0].type, LightType::Directional);
  EXPECT_EQ(loaded->lights[0].direction.z, -1.0f);
}

}  // namespace
}  // namespace kvi::render::test
