// A scene ready to render: camera and settings, configured shader objects,
// geometry, lights and the environment.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kvi/host/samplers.h"
#include "kvi/host/tone_mapper.h"
#include "render/geometry.h"
#include "render/math.h"
#include "render/shader_library.h"

namespace kvi::render {

struct Camera {
  Vec3 position{0.0f, 1.0f, 5.0f};
  Vec3 lookAt{0.0f, 0.5f, 0.0f};
  Vec3 up{0.0f, 1.0f, 0.0f};
  float fovY = 40.0f;  // vertical field of view, degrees
};

struct RenderSettings {
  int width = 640;
  int height = 480;
  int samplesPerPixel = 32;
  uint32_t seed = 1;
  int maxDepth = 8;              // scattering events after the camera ray
  int gatherSamples = 1;         // rays per irradiance gather
  int russianRouletteDepth = 3;  // events before paths may end at random
  float glossinessBias = 0.0f;   // ShadingState::glossinessBias
};

// Geometry shared by the objects that instance it.
struct Prototype {
  enum class Kind { Mesh, Sphere };  // Sphere: the analytic unit sphere
  Kind kind = Kind::Mesh;
  std::shared_ptr<const Mesh> mesh;
  std::string key;  // what it was made from, for sharing
};

struct Material {
  ShaderInstance shader;
  // Shaded whole by shadeSurface instead of by radiance, BSDF and sampling.
  bool wholeHit = false;
  // Offsets of the varyings the shader requested inside the state's
  // varying area, -1 when not requested.
  int uvOffset = -1, colorOffset = -1, tangentOffset = -1, bitangentOffset = -1;
};

struct Object {
  std::string name;
  int prototype = -1;
  Affine toWorld;
  Affine toObject;
  int material = -1;  // -1 for the emitter of a light
  int light = -1;     // the light this object is the emitter of, or -1
};

enum class LightType { Point, Spot, Directional, Area, Ambient, Environment, Sky, Sphere };
const char* lightTypeName(LightType type);

struct Light {
  ShaderInstance shader;
  LightType type = LightType::Point;
  Vec3 position;
  Vec3 direction{0.0f, -1.0f, 0.0f};  // unit; where the light travels (spot axis, directional)
  // Area lights: the emitter's world-space triangles (3 corners each), their
  // unit normals, the running sum of their areas and the total area.
  std::vector<Vec3> corners;
  std::vector<Vec3> normals;
  std::vector<float> areaCdf;
  float area = 0.0f;
  // Lights that place their own samples (a sphere light, a spot light with a
  // radius): the radius of the ball or disk they shine from.
  float radius = 0.0f;
  int object = -1;  // the emitter object when visible to rays, -1 otherwise
};

struct Environment {
  ShaderInstance shader;
  // When a light stands for the environment, the environment the rays see
  // shows black to illumination rays; the light looks the environment up in
  // this twin, configured as if no light stood for it.
  std::optional<ShaderInstance> forLights;
};

// Pictures loaded for texture parameters and the samplers bound to them.
struct TextureStore {
  std::map<std::string, std::shared_ptr<void>> data;           // decoded pictures by definition
  std::vector<std::unique_ptr<ITextureSampler>> samplers;      // owned, bound by address; slot = index
  std::map<std::string, size_t> samplerByKey;                  // texture definition + projection
};

struct Scene {
  std::shared_ptr<const ShaderLibrary> library;
  Camera camera;
  RenderSettings settings;
  host::ToneMapSettings toneMap;
  TextureStore textures;
  std::unique_ptr<host::ClippingPlaneTable> clippingPlanes;
  std::vector<std::unique_ptr<host::ClippingPlaneTable>> ownedClippingTables;
  std::vector<Prototype> prototypes;
  std::vector<Material> materials;
  std::vector<Object> objects;
  std::vector<Light> lights;
  std::optional<Environment> environment;
  size_t droppedTriangles = 0;  // degenerate or invalid triangles left out

  Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
};

// The tone-mapping parameters the renderer hands to the environment: the
// scene's tone mapping plus the camera's image plane at focal distance 1.
host::ToneMapSettings cameraToneMapSettings(const Scene& scene);

}  // namespace kvi::render
