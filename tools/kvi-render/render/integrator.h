// The path tracer: camera paths through the scene's materials, lights and
// environment, with the host services the shaders ask for along the way.
// docs/host-services.md explains what each service means here and how the
// shaders' results are combined.
#pragma once

#include <cstdint>
#include <vector>

#include "kvi/state.h"
#include "kvi/types.h"
#include "render/math.h"
#include "render/sampling.h"
#include "render/scene.h"
#include "render/stats.h"
#include "render/tracer.h"

namespace kvi::render {

// Bits of IShadingContext::isRayKind.
enum RayKindBits : int32_t {
  kCameraRay = 1,        // a primary ray from the camera
  kSecondaryRay = 2,     // any ray that is not a camera ray
  kTracedRay = 4,        // traced on a material's request (traceRay)
  kIlluminationRay = 8,  // carries light to a point whose direct light the lights already give
  kShadowRay = 16,       // a shadow query crossing surfaces
  kLightLookupRay = 32,  // the environment looked up by a sky light standing for it
};

// Answers of IShadingContext::getRayKind, which drive the lobe-choice override.
enum PathKind : int32_t {
  kEyePath = 1,           // camera rays and their mirror and pass-through continuations
  kIlluminationPath = 2,  // gather rays and continuations of diffuse and glossy events
  kPassThroughOnly = 3,   // rays past the depth limit, and shadow rays: only straight passage
};

// isRayFlagSet(1): the lobes of this ray are chosen at random by their
// probabilities (illumination paths); clear on eye paths.
constexpr int32_t kRandomLobeChoiceFlag = 1;

struct RayType {
  int32_t kindBits = kCameraRay;
  int32_t pathKind = kEyePath;
  int32_t flags = 0;
  bool diffuseSampled = false;  // isDiffuseSampled
  bool seesEmitters = true;     // emitters of area lights show their radiance
  int depth = 0;                // scattering events before this ray
};

// What one pixel sample carries along all of its rays.
struct PathState {
  SampleStream stream;
  float raster[2] = {0.0f, 0.0f};
  RenderStats* stats = nullptr;
  std::vector<std::vector<LightSample>>* lightLists = nullptr;  // one per live shading context
  int level = 0;                                                 // live shading contexts
  bool cameraRayHit = false;  // the camera ray met a surface (rather than the environment)
};

// A light's sample at a surface point: the direction towards it and the
// light it brings, with its shadow and the 1 / density of the sample.
struct LightContribution {
  Vec3 direction;
  Vec3 color;
};

// The surface being shaded: its state and the faced normals rays leave by.
struct Vertex {
  Vec3 position;
  Vec3 geometricNormal;  // faces the arriving ray
  Vec3 shadingNormal;    // faces the arriving ray
  const ShadingState* state = nullptr;
  float gatherScale = 1.0f;  // the material's MaterialTraits::gatherScale
};

// What the renderer learns of each material once, before rendering.
struct MaterialTraits {
  // False when evaluateBsdf leaves the state untouched (the mirror's empty
  // body): its hits get no light samples.
  bool answersLightSamples = true;
  // Multiplies gatherIrradiance's answer: 1 for materials that turn
  // irradiance into radiance with the Lambertian 1 / pi, 1 / pi for those
  // whose evaluateRadiance applies none (the metal), so that both see the
  // cosine-weighted mean radiance that their diffuse continuation carries.
  float gatherScale = 1.0f;
};

// Probes a configured material (see MaterialTraits).
MaterialTraits materialTraits(const Material& material);

// The renderer's answer to acceptsGlossyBounce: a glossy event is sampled
// while the path is below its maximum depth and the lobe is rougher than
// this; a smoother one is taken as the mirror reflection it looks like.
constexpr float kMirrorLikeRoughness = 0.01f;

class Integrator {
 public:
  Integrator(const Scene& scene, const Tracer& tracer);

  // One sample of pixel (x, y): radiance and alpha (1 where the camera ray
  // met a surface, the environment's alpha elsewhere).
  Vec3 cameraSample(int x, int y, PathState& path, float& alpha) const;

  // Radiance arriving along a ray of the given type.
  Vec3 tracePath(Vec3 origin, Vec3 direction, RayType type, PathState& path, float* alpha = nullptr) const;

  // The environment seen along a direction (black without an environment).
  Vec3 environment(Vec3 direction, const RayType& type, PathState& path, float* alpha = nullptr) const;

  // Samples one light at a vertex and shades it; false when the light does
  // not reach the point's side of the surface.
  bool sampleLight(size_t light, const Vertex& vertex, const RayType& type, PathState& path,
                   LightContribution& out) const;

  // Transmission between two points, through transmissive and cut-away
  // surfaces; emitters cast no shadows. Inline, and defined in
  // integrator.cpp for its one caller there.
  inline Vec3 shadowTransmission(Vec3 from, Vec3 to, const Vertex* vertex, PathState& path) const;

  // Irradiance from illumination rays over the hemisphere of the normal.
  Vec3 gatherIrradiance(Vec3 position, Vec3 normal, const Vertex* vertex, const RayType& type,
                        PathState& path) const;

  // Fills a state for a material at a surface hit by a ray.
  void fillSurfaceState(ShadingState& state, const SurfacePoint& surface, const Material& material, Vec3 direction,
                        const RayType& type, const PathState& path) const;

  const Scene& scene() const { return scene_; }
  const Tracer& tracer() const { return tracer_; }
  int maxDepth() const { return scene_.settings.maxDepth; }
  // The type of a ray continuing a path after an event of these lobe flags.
  RayType scattered(const RayType& parent, int32_t lobeFlags) const;
  RayType gatherRay(const RayType& parent) const;
  RayType tracedRay(const RayType& parent) const;
  RayType shadowRay(const RayType& parent) const;

 private:
  Vec3 directLight(const Material& material, ShadingState& state, const Vertex& vertex, const RayType& type,
                   PathState& path) const;
  Vec3 emitterRadiance(int light, const SurfacePoint& surface, Vec3 direction, PathState& path) const;
  Vec3 ownEmitterRadiance(const Light& light, const SurfacePoint& surface, Vec3 direction, PathState& path) const;
  bool followMovedSample(const ShadingState& state, Vec3 given, const Vertex& vertex, Vec3& towards) const;
  // Past the maximum depth a ray only passes straight through surfaces.
  void limitDepth(RayType& type) const;

  const Scene& scene_;
  const Tracer& tracer_;
  std::vector<MaterialTraits> traits_;  // by material index
  Vec3 cameraForward_, cameraRight_, cameraUp_;
  float tanHalfFov_ = 0.0f;
  float far_ = 1e4f;  // distance at which distant lights are placed
};

}  // namespace kvi::render
