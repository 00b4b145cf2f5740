// Ray casting on Embree: the scene's objects as instances of shared
// triangle meshes and analytic spheres, with any-hit filtering so that
// materials can cut hits away and let shadow rays through.
#pragma once

#include <embree3/rtcore.h>

#include <cstdint>
#include <vector>

#include "render/math.h"
#include "render/scene.h"

namespace kvi::render {

// A candidate or final hit: the object, its primitive, the primitive's
// parametric position and the distance along the ray (in units of the ray
// direction's length).
struct HitRecord {
  int object = -1;
  uint32_t primitive = 0;
  float u = 0.0f, v = 0.0f;
  float t = 0.0f;
};

// What a ray does at every candidate hit before it counts: false rejects
// the candidate and the ray goes on as if nothing were there. Called for
// candidates in no particular order, from the thread that traces.
class HitFilter {
 public:
  virtual ~HitFilter() = default;
  virtual bool accept(const HitRecord& candidate) = 0;
};

// The geometry at a hit, in world space. Normals point out of the surface's
// front side (the side its winding or, for spheres, its outside faces).
struct SurfacePoint {
  int object = -1;
  Vec3 position;
  Vec3 geometricNormal;
  Vec3 shadingNormal;
  Vec3 tangent;  // along increasing u, orthogonal to the shading normal
  float uv[2] = {0.0f, 0.0f};
  float color[4] = {1.0f, 1.0f, 1.0f, 1.0f};
};

// A ray as handed to Embree, for replaying a render's rays without the
// renderer (benchmarks): closest-hit or shadow query, and its far end.
struct TracedRay {
  Vec3 origin, direction;
  float tfar = 0.0f;
  bool shadow = false;
};

class Tracer {
 public:
  explicit Tracer(const Scene& scene);
  ~Tracer();
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  // The closest accepted hit in (0, tfar) along origin + t direction.
  bool intersect(Vec3 origin, Vec3 direction, float tfar, HitFilter* filter, HitRecord& hit) const;
  // True when an accepted hit lies in (0, tfar).
  bool occluded(Vec3 origin, Vec3 direction, float tfar, HitFilter* filter) const;

  // What of a surface point beyond its position and normals a caller needs
  // (the varyings its material asked for).
  enum Attributes : unsigned { kUv = 1, kColor = 2, kTangent = 4, kAllAttributes = 7 };

  // The surface at a hit of a ray; the attributes not asked for are left at
  // their defaults.
  SurfacePoint surface(const HitRecord& hit, Vec3 origin, Vec3 direction, unsigned attributes = kAllAttributes) const;

  // How far to move a ray's origin off a surface at p so that it does not
  // find the surface again.
  float offsetAt(Vec3 p) const { return offsetScale_ * (1.0f + std::fabs(p.x) + std::fabs(p.y) + std::fabs(p.z)); }
  // While set, every ray traced is appended to the log (one tracing thread only).
  void logRays(std::vector<TracedRay>* log) { log_ = log; }

  Vec3 boundsCentre() const { return centre_; }
  float boundsRadius() const { return radius_; }

 private:
  [[gnu::noinline, gnu::cold]] void logRay(Vec3 origin, Vec3 direction, float tfar, bool shadow) const;

  const Scene& scene_;
  RTCDevice device_ = nullptr;
  RTCScene top_ = nullptr;
  std::vector<RTCScene> prototypes_;
  // Per object, the world-space geometric normal of each triangle of its
  // mesh, made once so that a hit reads it instead of working it out (empty
  // for spheres, and for every object in scenes with too many triangles).
  std::vector<std::vector<Vec3>> geometricNormals_;
  Vec3 centre_;
  float radius_ = 1.0f;
  float offsetScale_ = 1e-5f;
  std::vector<TracedRay>* log_ = nullptr;
};

}  // namespace kvi::render
