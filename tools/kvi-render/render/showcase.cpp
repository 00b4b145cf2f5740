#include "render/showcase.h"

#include <algorithm>
#include <cmath>

#include "kvi/shader.h"
#include "render/scene.h"
#include "render/math.h"
#include "render/scene_loader.h"

namespace kvi::render {

using nlohmann::json;
using host::ParamKind;

namespace {

// Values chosen per known shader. Names a shader does not declare are left
// out when the scene is built, so a shader that changes costs nothing here.
const json& knownPresets() {
  static const json presets = json::parse(R"({
    "BasicMaterial": {"diffuse": [0.75, 0.2, 0.12], "specular": [0.5, 0.5, 0.5], "shininess": 60.0,
                      "reflection_blend": 0.06},
    "PhongReflective": {"diffuse": [0.12, 0.25, 0.7], "specular": [0.4, 0.4, 0.4], "shininess": 40.0,
                        "reflection": [0.12, 0.12, 0.12]},
    "SolidEffect": {"diffuse": [0.3, 0.65, 0.3]},
    "VertexColorEffect": {"use_diffuse_map": true, "diffuse_map": "checker", "diffuse_map_tint": [0.9, 0.75, 0.4]},
    "velk_qora_Mtl_Metal": {"u_diffuseColor": [0.08, 0.06, 0.04], "u_diffuseWeight": 0.2,
                            "u_specularColor": [0.95, 0.72, 0.4], "u_glossiness": 0.45, "u_reflectivity": 1.0,
                            "u_brdfCurvePower": 5.0, "u_brdf00Reflectivity": 0.85, "u_brdf90Reflectivity": 1.0},
    "velk_qora_Mtl_Mirror": {"u_tintColor": [0.9, 0.9, 0.92]},
    "velk_qora_Mtl_Glazing": {"u_refractColor": [0.8, 0.95, 0.9], "u_reflectance": 0.25},
    "velk_qora_Mtl_Ward": {"u_diffuseColor": [0.08, 0.3, 0.18], "u_specularColor": [1.0, 1.0, 1.0],
                           "u_glossinessValue": 0.35, "u_brdfCurvePower": 5.0, "u_brdf00Reflectivity": 0.06,
                           "u_brdf90Reflectivity": 1.0, "u_reflectivity": 1.0, "u_additionalColor": [0.0, 0.0, 0.0]},
    "velk_qora_Mtl_Dielectric": {"u_ior": 1.5, "u_transmissionColor": [0.55, 0.85, 0.78], "u_transmissionDistance": 0.6},
    "velk_qora_Mtl_MetallicPaint": {"u_baseColor": [0.45, 0.04, 0.05], "u_flakeColor": [0.85, 0.5, 0.45],
                                    "u_flakeDensity": 0.2, "u_pearlHueShift": 0.06},
    "PointLight": {"color": [1.0, 0.95, 0.9], "attenuationFactors": [0.0, 0.0, 1.0], "decayStartDistance": 3.0},
    "SpotLight": {"color": [1.0, 0.95, 0.9], "cosPenumbra": 0.9, "cosUmbra": 0.96},
    "DirectionalLight": {"color": [1.6, 1.5, 1.4]},
    "SimplePointLight": {"color": [0.9, 0.85, 0.8]},
    "AmbientLight": {"color": [0.3, 0.3, 0.35]},
    "velk_qora_Lgt_Direction": {"color": [1.0, 0.95, 0.9], "intensity": 1.6},
    "velk_qora_Lgt_Sky": {"intensity": [1.0, 1.0, 1.0]},
    "velk_qora_Lgt_Sphere": {"color": [1.0, 0.92, 0.8], "units": 1, "intensity": 110.0, "radius": 0.3},
    "velk_qora_Lgt_Spot": {"color": [1.0, 0.9, 0.75], "intensity": 9.0, "coneAngle": 22.0, "penumbraAngle": 12.0,
                           "radius": 0.15},
    "velk_qora_Lgt_PhotometricWeb": {"color": [1.0, 0.95, 0.85], "intensity": 0.012, "web": {"ies_text":
      "IESNA:LM-63-2002\n[TEST] a wide downlight with a bright ring\nTILT=NONE\n1 -1 1 10 1 1 2 0 0 0\n1 1 20\n0 10 20 30 40 50 60 70 80 90\n0\n600 650 760 900 820 420 150 40 10 0\n"}},
    "velk_qora_Lgt_Diffuse": {"color": [1.0, 0.95, 0.85], "integratedColor": [12.0, 11.4, 10.2],
                              "intensity": 12.0, "cast_shadows": true},
    "DiffuseIBL": {"diffuseMap": {"gradient": {"zenith": [0.35, 0.5, 0.9], "horizon": [0.9, 0.85, 0.8],
                                               "ground": [0.25, 0.22, 0.2]}}},
    "GradientBackground": {"backgroundTopColor": [0.3, 0.45, 0.75], "backgroundBottomColor": [0.85, 0.85, 0.82],
                           "backgroundMiddleColor": [0.7, 0.75, 0.85], "backgroundColor": [0.45, 0.5, 0.6]},
    "velk_qora_Env_Sky": {"multiplier": 0.06},
    "SimpleBackground": {"backgroundMode": 1, "backgroundImage": {"gradient": {"zenith": [0.3, 0.45, 0.8],
                         "horizon": [0.85, 0.8, 0.75], "ground": [0.3, 0.28, 0.25]}}},
    "ImageBackground": {"image": {"gradient": {"zenith": [0.2, 0.3, 0.6], "horizon": [0.95, 0.7, 0.45],
                        "ground": [0.25, 0.2, 0.2], "width": 64, "height": 40}}, "backgroundColor": [0.1, 0.1, 0.12]}
  })");
  return presets;
}

// Values by the end of a parameter's name, for fields the constructor leaves
// unset (the generated node parameters of the Ward variants among them).
const std::pair<const char*, json>* patternPreset(const std::string& name) {
  static const std::vector<std::pair<const char*, json>> patterns = {
      {"Noise_size", 0.35},           {"Noise_levels", 3.0},          {"Noise_thresholdLow", 0.0},
      {"Noise_thresholdHigh", 1.0},   {"Noise_type", 1},              {"Noise_phase", 0.0},
      {"Noise_color1", json::array({0.85, 0.5, 0.2, 1.0})},        {"Noise_color2", json::array({0.1, 0.2, 0.5, 1.0})},
      {"UnifiedBitmap_amount", 1.0},  {"UnifiedBitmap_gain", json::array({1.0, 1.0, 1.0})},
      {"UnifiedBitmap_texture", "checker"},                         {"Tile_verticalCount", 4.0},
      {"Tile_horizontalCount", 4.0},  {"Tile_brickHeight", 1.0},      {"Tile_brickWidth", 1.0},
      {"u_brdfCurvePower", 5.0},      {"u_reflectivity", 1.0},        {"u_brdf00Reflectivity", 0.05},
      {"u_brdf90Reflectivity", 1.0},  {"u_glossiness", 0.6},          {"u_roughValue", 0.3},
      {"u_diffuseColor", json::array({0.5, 0.5, 0.5})},             {"u_additionalColor", json::array({0.0, 0.0, 0.0})},
      {"u_patinaColor", json::array({0.3, 0.5, 0.4})},
  };
  for (const auto& p : patterns) {
    const std::string suffix = p.first;
    if (name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) return &p;
  }
  return nullptr;
}

bool fits(ParamKind kind, const json& v) {
  switch (kind) {
    case ParamKind::Bool: return v.is_boolean();
    case ParamKind::Int: return v.is_number_integer();
    case ParamKind::Float: return v.is_number();
    case ParamKind::ClippingMap: return false;
    case ParamKind::Texture:
    case ParamKind::EnvironmentMap: return v.is_string() || v.is_object();
    default: return v.is_array() && v.size() == host::kindFloatCount(kind);
  }
}

json vec(float x, float y, float z) { return json::array({x, y, z}); }

json shaderInstance(const ShaderLibrary& library, const std::string& shader, const json& extra = json::object()) {
  json parameters = presetParameters(library, shader);
  const auto info = library.info(shader);
  for (auto it = extra.begin(); it != extra.end(); ++it)
    if (info->findParameter(it.key())) parameters[it.key()] = it.value();
  return json{{"shader", shader}, {"parameters", parameters}};
}

std::string firstOf(const ShaderLibrary& library, std::initializer_list<const char*> names) {
  for (const char* n : names)
    if (library.has(n)) return n;
  return {};
}

json textures() {
  return json{{"checker", {{"checker", {{"size", 64}, {"squares", 8},
                                         {"colors", {{0.75, 0.75, 0.72, 1.0}, {0.35, 0.35, 0.34, 1.0}}}}}}}};
}

// A ground material: the basic material with a checker map when there is
// one; otherwise no ground.
json groundObject(const ShaderLibrary& library, float size) {
  if (!library.has("BasicMaterial")) return nullptr;
  json material = {{"shader", "BasicMaterial"},
                   {"parameters", {{"diffuse", {1.0, 1.0, 1.0}}, {"specular", {0.0, 0.0, 0.0}}}}};
  const auto info = library.info("BasicMaterial");
  const json textured = {{"use_diffuse_map", true}, {"diffuse_map", "checker"}, {"diffuse_map_tint", {0.8, 0.8, 0.8}}};
  for (auto it = textured.begin(); it != textured.end(); ++it)
    if (info->findParameter(it.key())) material["parameters"][it.key()] = it.value();
  return {{"name", "ground"}, {"shape", "plane"}, {"size", size}, {"uv_scale", size / 2.0f}, {"material", material}};
}

json greyBall(const ShaderLibrary& library, json transform) {
  std::string shader = firstOf(library, {"BasicMaterial"});
  if (shader.empty()) {
    const auto all = library.shadersOfKind(kMaterialKind);
    if (all.empty()) return nullptr;
    shader = all.front();
  }
  json material = shaderInstance(library, shader, {{"diffuse", {0.7, 0.7, 0.7}}, {"specular", {0.0, 0.0, 0.0}},
                                             {"reflection_blend", 0.0}});
  return {{"name", "ball"}, {"shape", "sphere"}, {"transform", std::move(transform)}, {"material", material}};
}

// Where and how a light of each type stands in the built-in scenes, looking
// at a stage around the origin.
json placedLight(const ShaderLibrary& library, const std::string& shader, LightType type, const json& extra,
                 Vec3 from) {
  json light = shaderInstance(library, shader, extra);
  light["type"] = lightTypeName(type);
  const Vec3 dir = normalize(-from);
  switch (type) {
    case LightType::Point:
    case LightType::Sphere: light["position"] = vec(from.x, from.y, from.z); break;
    case LightType::Spot:
      light["position"] = vec(from.x, from.y, from.z);
      light["target"] = vec(0, 0, 0);
      break;
    case LightType::Directional: light["direction"] = vec(dir.x, dir.y, dir.z); break;
    case LightType::Area: {
      // A square facing the stage: the plane's +Y normal turned onto dir.
      const Vec3 up{0, 1, 0};
      const Vec3 axis = cross(up, dir);
      const float angle = std::acos(std::max(-1.0f, std::min(1.0f, dot(up, dir)))) * 180.0f / kPi;
      json transform = {{"translate", vec(from.x, from.y, from.z)}};
      if (length(axis) > 1e-6f) transform["rotate"] = json::array({axis.x, axis.y, axis.z, angle});
      light["emitter"] = {{"shape", "plane"}, {"size", 2.0}, {"transform", transform}};
      break;
    }
    default: break;
  }
  return light;
}

LightType typeOf(const std::string& shader) { return lightTypeFromShaderName(shader).value_or(LightType::Point); }

json toneMapping() {
  return {{"enabled", true}, {"exposure", 1.0}, {"gamma", 2.2}, {"burn_highlights_inv", 2.0}, {"saturation", 1.0}};
}

}  // namespace

json presetParameters(const ShaderLibrary& library, const std::string& shader) {
  const auto info = library.info(shader);
  json parameters = json::object();
  const json& known = knownPresets();
  for (const auto& p : info->parameters) {
    if (known.contains(shader) && known[shader].contains(p.name)) {
      const json& v = known[shader][p.name];
      if (fits(p.kind, v)) parameters[p.name] = v;
      continue;
    }
    if (p.hasDefault) continue;
    if (const auto* pattern = patternPreset(p.name); pattern && fits(p.kind, pattern->second))
      parameters[p.name] = pattern->second;
  }
  return parameters;
}

json showcaseScene(const ShaderLibrary& library) {
  const auto materials = library.shadersOfKind(kMaterialKind);
  const int n = std::max(1, int(materials.size()));
  const int columns = std::max(1, int(std::ceil(std::sqrt(double(n) * 1.6))));
  const int rows = (n + columns - 1) / columns;
  const float spacing = 1.3f;
  // The stage's half extent: lights and camera stand in proportion to it.
  const float half = 0.5f * spacing * float(std::max(columns, rows)) + 0.6f;

  json scene;
  // Far enough back, looking down at about 27 degrees, for the front row to
  // fit the width of a 40-degree, 16:10 picture.
  const float tanHalfWidth = std::tan(20.0f * kPi / 180.0f) * 1.6f;
  const float distance = (0.5f * spacing * float(columns) + 0.4f) / tanHalfWidth + 0.25f * spacing * float(rows);
  const Vec3 eye = normalize(Vec3{0.0f, 0.5f, 1.0f}) * distance;
  scene["camera"] = {{"position", vec(eye.x, eye.y + 0.3f, eye.z)},
                     {"look_at", vec(0.0f, 0.1f, 0.06f * spacing * float(rows))},
                     {"fov", 40.0}};
  scene["render"] = {{"width", 640}, {"height", 400}, {"spp", 48}, {"max_depth", 6}, {"seed", 1}};
  scene["tone_mapping"] = toneMapping();
  scene["textures"] = textures();

  json objects = json::array();
  if (json ground = groundObject(library, 6.0f * half); !ground.is_null()) objects.push_back(ground);
  for (int i = 0; i < int(materials.size()); ++i) {
    const int row = i / columns, column = i % columns;
    const int inRow = std::min(columns, int(materials.size()) - row * columns);
    const float x = (float(column) - 0.5f * float(inRow - 1)) * spacing;
    const float z = (float(row) - 0.5f * float(rows - 1)) * spacing;
    objects.push_back({{"name", materials[size_t(i)]},
                       {"shape", "shader_ball"},
                       {"transform", {{"scale", 0.55}, {"rotate", {0.0, 1.0, 0.0, 30.0}}, {"translate", vec(x, 0, z)}}},
                       {"material", shaderInstance(library, materials[size_t(i)])}});
  }
  scene["objects"] = objects;

  // A soft key light from the upper left, a warm spot from the right, a
  // cool rim light from behind and a faint fill, each from the first of the
  // module's shaders that can play the part.
  json lights = json::array();
  const Vec3 keyFrom = Vec3{-1.2f, 1.6f, 1.0f} * half;
  if (const std::string key = firstOf(library, {"velk_qora_Lgt_Diffuse"}); !key.empty()) {
    json light = placedLight(library, key, LightType::Area, json::object(), keyFrom);
    light["emitter"]["size"] = 0.8f * half;
    lights.push_back(light);
  } else if (const std::string sun = firstOf(library, {"velk_qora_Lgt_Direction", "DirectionalLight", "SimplePointLight"});
             !sun.empty()) {
    lights.push_back(placedLight(library, sun, typeOf(sun), json::object(), keyFrom));
  }
  if (const std::string spot = firstOf(library, {"SpotLight", "velk_qora_Lgt_Spot"}); !spot.empty())
    lights.push_back(placedLight(library, spot, LightType::Spot,
                                 {{"color", {0.9, 0.5, 0.25}}, {"cosPenumbra", 0.94}, {"cosUmbra", 0.975}},
                                 Vec3{1.3f, 1.5f, 0.7f} * half));
  if (const std::string rim = firstOf(library, {"PointLight", "SimplePointLight"}); !rim.empty())
    lights.push_back(placedLight(library, rim, LightType::Point,
                                 {{"color", {0.8, 1.0, 1.6}}, {"attenuationFactors", {0.0, 0.0, 1.0}},
                                  {"decayStartDistance", 1.2 * half}},
                                 Vec3{0.4f, 0.9f, -1.4f} * half));
  if (const std::string fill = firstOf(library, {"AmbientLight"}); !fill.empty())
    lights.push_back(placedLight(library, fill, LightType::Ambient, {{"color", {0.02, 0.02, 0.025}}}, {}));
  scene["lights"] = lights;

  // The background lights the stage only faintly: its flat colour is what
  // reflections and illumination rays see.
  if (const std::string env = firstOf(library, {"GradientBackground", "velk_qora_Env_Sky"}); !env.empty()) {
    scene["environment"] = shaderInstance(library, env, {{"backgroundColor", {0.16, 0.18, 0.22}}});
  } else if (const auto environments = library.shadersOfKind(kEnvironmentKind); !environments.empty()) {
    scene["environment"] = shaderInstance(library, environments.front());
  }
  return scene;
}

json galleryScene(const ShaderLibrary& library, const std::string& shader, int size, int samplesPerPixel,
                  uint32_t seed) {
  const auto info = library.info(shader);
  json scene;
  scene["render"] = {{"width", size}, {"height", size}, {"spp", samplesPerPixel}, {"max_depth", 5}, {"seed", seed}};
  scene["tone_mapping"] = toneMapping();
  scene["textures"] = textures();
  json objects = json::array();
  json lights = json::array();
  const std::string background = firstOf(library, {"GradientBackground", "velk_qora_Env_Sky"});

  if (info->kind == kMaterialKind) {
    scene["camera"] = {{"position", vec(0.0f, 1.7f, 3.2f)}, {"look_at", vec(0.0f, 0.5f, 0.0f)}, {"fov", 30.0}};
    if (json ground = groundObject(library, 12.0f); !ground.is_null()) objects.push_back(ground);
    objects.push_back({{"name", shader},
                       {"shape", "shader_ball"},
                       {"transform", {{"scale", 0.6}, {"rotate", {0.0, 1.0, 0.0, 30.0}}}},
                       {"material", shaderInstance(library, shader)}});
    if (const std::string key = firstOf(library, {"velk_qora_Lgt_Direction", "DirectionalLight", "SimplePointLight",
                                                  "PointLight"});
        !key.empty())
      lights.push_back(placedLight(library, key, typeOf(key) == LightType::Spot ? LightType::Point : typeOf(key),
                                   {{"attenuationFactors", {1.0, 0.0, 0.0}}}, {-2.5f, 4.0f, 2.5f}));
    if (!background.empty()) scene["environment"] = shaderInstance(library, background);
  } else if (info->kind == kLightKind) {
    scene["camera"] = {{"position", vec(0.0f, 2.4f, 4.2f)}, {"look_at", vec(0.0f, 0.4f, 0.0f)}, {"fov", 34.0}};
    if (json ground = groundObject(library, 12.0f); !ground.is_null()) objects.push_back(ground);
    if (json ball = greyBall(library, {{"scale", 0.5}, {"translate", vec(0, 0.5f, 0)}}); !ball.is_null())
      objects.push_back(ball);
    const LightType type = typeOf(shader);
    // Closer than in the showcase: area lights are dimmed to match.
    const json dimmer = type == LightType::Area
                            ? json{{"intensity", 3.0}, {"integratedColor", {3.0, 2.85, 2.55}}}
                            : json::object();
    lights.push_back(placedLight(library, shader, type, dimmer, {-1.5f, 3.0f, 1.5f}));
    // A sky light shows the sky it stands for.
    if (type == LightType::Sky && library.has("velk_qora_Env_Sky"))
      scene["environment"] = shaderInstance(library, "velk_qora_Env_Sky");
  } else {
    scene["camera"] = {{"position", vec(0.0f, 0.9f, 3.6f)}, {"look_at", vec(0.0f, 1.1f, 0.0f)}, {"fov", 60.0}};
    if (json ball = greyBall(library, {{"scale", 0.5}, {"translate", vec(0, 0.5f, 0)}}); !ball.is_null())
      objects.push_back(ball);
    scene["environment"] = shaderInstance(library, shader);
  }
  scene["objects"] = objects;
  scene["lights"] = lights;
  return scene;
}

}  // namespace kvi::render
