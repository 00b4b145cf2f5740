#include "render/tracer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <bit>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

namespace kvi::render {
namespace {

// The intersection context handed through Embree to the filter callback.
struct FilterContext {
  RTCIntersectContext embree;  // first, so Embree's pointer is ours
  HitFilter* filter;
};

void contextFilter(const RTCFilterFunctionNArguments* args) {
  if (args->valid[0] == 0) return;
  const auto* context = reinterpret_cast<const FilterContext*>(args->context);
  if (!context->filter) return;
  const RTCHit* hit = reinterpret_cast<const RTCHit*>(args->hit);
  const RTCRay* ray = reinterpret_cast<const RTCRay*>(args->ray);
  HitRecord candidate;
  candidate.object = int(hit->instID[0]);
  candidate.primitive = hit->primID;
  candidate.u = hit->u;
  candidate.v = hit->v;
  candidate.t = ray->tfar;
  if (!context->filter->accept(candidate)) args->valid[0] = 0;
}

// The analytic unit sphere, one primitive per prototype; placement, size
// and squashing come from the instance transform.
void sphereBounds(const RTCBoundsFunctionArguments* args) {
  RTCBounds* b = args->bounds_o;
  b->lower_x = b->lower_y = b->lower_z = -1.0f;
  b->upper_x = b->upper_y = b->upper_z = 1.0f;
}

// The distances at which the ray meets the unit sphere, nearer first;
// false when it misses.
bool sphereRoots(const RTCRay& ray, float roots[2]) {
  const Vec3 o{ray.org_x, ray.org_y, ray.org_z}, d{ray.dir_x, ray.dir_y, ray.dir_z};
  const float a = dot(d, d), b = dot(o, d);
  // Measuring from the ray's point nearest the centre keeps the root
  // accurate for rays that start far away.
  const float tMid = -b / a;
  const Vec3 closest = o + d * tMid;
  const float h = 1.0f - dot(closest, closest);
  if (!(h >= 0.0f) || !(a > 0.0f)) return false;
  const float half = std::sqrt(h / a);
  roots[0] = tMid - half;
  roots[1] = tMid + half;
  return true;
}

RTCHit sphereHit(const Vec3& o, const Vec3& d, float t, unsigned geomID, unsigned primID, unsigned instID) {
  RTCHit hit{};
  const Vec3 n = o + d * t;
  hit.Ng_x = n.x;
  hit.Ng_y = n.y;
  hit.Ng_z = n.z;
  hit.u = 0.0f;
  hit.v = 0.0f;
  hit.primID = primID;
  hit.geomID = geomID;
  hit.instID[0] = instID;
  return hit;
}

// Offers the sphere's hits along the ray, nearer first, to the hit filter
// (runFilter: Embree's intersection or occlusion filter call) and hands the
// first one it keeps to keep(); the ray's far end is left as it was when the
// filter refuses a hit.
template <class Arguments, class RunFilter, class Keep>
void offerSphereHits(const Arguments* args, RTCRay& ray, RTCRayN* rayN, RunFilter runFilter, Keep keep) {
  if (args->N != 1 || args->valid[0] == 0) return;
  float roots[2];
  if (!sphereRoots(ray, roots)) return;
  const Vec3 o{ray.org_x, ray.org_y, ray.org_z}, d{ray.dir_x, ray.dir_y, ray.dir_z};
  for (float t : roots) {
    if (!(t > ray.tnear && t < ray.tfar)) continue;
    RTCHit hit = sphereHit(o, d, t, args->geomID, args->primID, args->context->instID[0]);
    const float previous = ray.tfar;
    ray.tfar = t;
    int valid = -1;
    RTCFilterFunctionNArguments filter;
    filter.valid = &valid;
    filter.geometryUserPtr = args->geometryUserPtr;
    filter.context = args->context;
    filter.ray = rayN;
    filter.hit = reinterpret_cast<RTCHitN*>(&hit);
    filter.N = 1;
    runFilter(args, &filter);
    if (valid != 0) {
      keep(hit);
      return;
    }
    ray.tfar = previous;
  }
}

void sphereIntersect(const RTCIntersectFunctionNArguments* args) {
  RTCRayHit* rayhit = reinterpret_cast<RTCRayHit*>(args->rayhit);
  offerSphereHits(args, rayhit->ray, reinterpret_cast<RTCRayN*>(&rayhit->ray), rtcFilterIntersection,
                  [rayhit](const RTCHit& hit) { rayhit->hit = hit; });
}

void sphereOccluded(const RTCOccludedFunctionNArguments* args) {
  RTCRay& ray = *reinterpret_cast<RTCRay*>(args->ray);
  offerSphereHits(args, ray, args->ray, rtcFilterOcclusion,
                  [&ray](const RTCHit&) { ray.tfar = -std::numeric_limits<float>::infinity(); });
}

void check(RTCDevice device, const char* what) {
  const RTCError error = rtcGetDeviceError(device);
  if (error != RTC_ERROR_NONE) throw std::runtime_error(std::string("ray tracing kernel error ") + std::to_string(int(error)) + " while " + what);
}

RTCScene newScene(RTCDevice device) {
  RTCScene scene = rtcNewScene(device);
  rtcSetSceneFlags(scene, RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION);
  rtcSetSceneBuildQuality(scene, RTC_BUILD_QUALITY_MEDIUM);  // no spatial splits: one filter call per candidate
  return scene;
}

RTCScene meshScene(RTCDevice device, const Mesh& mesh) {
  RTCScene scene = newScene(device);
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                                               3 * sizeof(float), mesh.positions.size()));
  for (size_t i = 0; i < mesh.positions.size(); ++i) mesh.positions[i].store(vertices + 3 * i);
  auto* indices = static_cast<uint32_t*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                                                 3 * sizeof(uint32_t), mesh.triangleCount()));
  std::copy(mesh.indices.begin(), mesh.indices.begin() + long(3 * mesh.triangleCount()), indices);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  return scene;
}

RTCScene sphereScene(RTCDevice device) {
  RTCScene scene = newScene(device);
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_USER);
  rtcSetGeometryUserPrimitiveCount(geometry, 1);
  rtcSetGeometryBoundsFunction(geometry, sphereBounds, nullptr);
  rtcSetGeometryIntersectFunction(geometry, sphereIntersect);
  rtcSetGeometryOccludedFunction(geometry, sphereOccluded);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  return scene;
}

void growBounds(Vec3& lo, Vec3& hi, Vec3 p) {
  lo = {std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
  hi = {std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
}

// Fills a ray in place, sixteen bytes at a time: the kernel reads the origin
// and tnear, the direction and time, and tfar to flags as vectors, and a
// vector load of bytes written by narrower stores waits until they have left
// the store buffer (about as long as a third of a ray's traversal here).
static_assert(offsetof(RTCRay, tnear) == 12 && offsetof(RTCRay, dir_x) == 16 && offsetof(RTCRay, time) == 28 &&
              offsetof(RTCRay, tfar) == 32 && offsetof(RTCRay, flags) == 44, "the ray's fields in groups of four");
void setRay(RTCRay& ray, Vec3 origin, Vec3 direction, float tfar) {
#if defined(__SSE2__)
  _mm_storeu_ps(&ray.org_x, _mm_setr_ps(origin.x, origin.y, origin.z, 0.0f));
  _mm_storeu_ps(&ray.dir_x, _mm_setr_ps(direction.x, direction.y, direction.z, 0.0f));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(&ray.tfar),
                   _mm_setr_epi32(std::bit_cast<int>(tfar), -1 /* mask: every geometry */, 0, 0));
#else
  ray.org_x = origin.x, ray.org_y = origin.y, ray.org_z = origin.z, ray.tnear = 0.0f;
  ray.dir_x = direction.x, ray.dir_y = direction.y, ray.dir_z = direction.z, ray.time = 0.0f;
  ray.tfar = tfar, ray.mask = 0xFFFFFFFFu, ray.id = 0, ray.flags = 0;
#endif
}

// The world-space unit normal of a mesh triangle of an object, facing where
// its winding does.
Vec3 worldGeometricNormal(const Object& object, const Mesh& mesh, size_t triangle) {
  const uint32_t* tri = &mesh.indices[triangle * 3];
  const Vec3 p0 = mesh.positions[tri[0]], p1 = mesh.positions[tri[1]], p2 = mesh.positions[tri[2]];
  return normalize(object.toObject.transposedVector(cross(p1 - p0, p2 - p0)));
}

// Above this many triangle instances the geometric normals are worked out at
// each hit instead of kept (twelve bytes each).
constexpr size_t kMaxKeptNormals = size_t(1) << 24;

}  // namespace

Tracer::Tracer(const Scene& scene) : scene_(scene) {
  device_ = rtcNewDevice(nullptr);
  if (!device_) throw std::runtime_error("cannot start the ray tracing kernel");
  for (const Prototype& p : scene.prototypes)
    prototypes_.push_back(p.kind == Prototype::Kind::Sphere ? sphereScene(device_) : meshScene(device_, *p.mesh));
  check(device_, "building the shapes");

  top_ = newScene(device_);
  Vec3 lo{1e30f, 1e30f, 1e30f}, hi{-1e30f, -1e30f, -1e30f};
  for (size_t i = 0; i < scene.objects.size(); ++i) {
    const Object& object = scene.objects[i];
    RTCGeometry instance = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(instance, prototypes_[size_t(object.prototype)]);
    rtcSetGeometryTransform(instance, 0, RTC_FORMAT_FLOAT3X4_ROW_MAJOR, object.toWorld.m.data());
    rtcCommitGeometry(instance);
    rtcAttachGeometryByID(top_, instance, unsigned(i));
    rtcReleaseGeometry(instance);
    const Prototype& p = scene.prototypes[size_t(object.prototype)];
    if (p.kind == Prototype::Kind::Sphere) {
      for (int c = 0; c < 8; ++c)
        growBounds(lo, hi, object.toWorld.point({c & 1 ? 1.0f : -1.0f, c & 2 ? 1.0f : -1.0f, c & 4 ? 1.0f : -1.0f}));
    } else {
      for (const Vec3& v : p.mesh->positions) growBounds(lo, hi, object.toWorld.point(v));
    }
  }
  for (const Light& light : scene.lights)
    for (const Vec3& c : light.corners) growBounds(lo, hi, c);
  rtcCommitScene(top_);
  check(device_, "building the scene");
  if (lo.x <= hi.x && isFinite(lo) && isFinite(hi)) {
    centre_ = (lo + hi) * 0.5f;
    radius_ = std::max(1e-3f, 0.5f * length(hi - lo));
  }
  offsetScale_ = 2e-6f * std::max(1.0f, radius_);

  size_t triangles = 0;
  for (const Object& object : scene.objects) {
    const Prototype& p = scene.prototypes[size_t(object.prototype)];
    if (p.kind == Prototype::Kind::Mesh) triangles += p.mesh->triangleCount();
  }
  if (triangles > kMaxKeptNormals) return;
  geometricNormals_.resize(scene.objects.size());
  for (size_t i = 0; i < scene.objects.size(); ++i) {
    const Object& object = scene.objects[i];
    const Prototype& p = scene.prototypes[size_t(object.prototype)];
    if (p.kind != Prototype::Kind::Mesh) continue;
    geometricNormals_[i].resize(p.mesh->triangleCount());
    for (size_t t = 0; t < geometricNormals_[i].size(); ++t)
      geometricNormals_[i][t] = worldGeometricNormal(object, *p.mesh, t);
  }
}

// Out of line and cold: the tracing calls' own code stays as it is without a log.
void Tracer::logRay(Vec3 origin, Vec3 direction, float tfar, bool shadow) const {
  log_->push_back({origin, direction, tfar, shadow});
}

Tracer::~Tracer() {
  if (top_) rtcReleaseScene(top_);
  for (RTCScene s : prototypes_) rtcReleaseScene(s);
  if (device_) rtcReleaseDevice(device_);
}

bool Tracer::intersect(Vec3 origin, Vec3 direction, float tfar, HitFilter* filter, HitRecord& hit) const {
  if (log_) [[unlikely]]
    logRay(origin, direction, tfar, false);
  FilterContext context;
  rtcInitIntersectContext(&context.embree);
  context.embree.filter = filter ? contextFilter : nullptr;
  context.filter = filter;
  RTCRayHit rayhit;
  setRay(rayhit.ray, origin, direction, tfar);
  rayhit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rayhit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(top_, &context.embree, &rayhit);
  if (rayhit.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
  hit.object = int(rayhit.hit.instID[0]);
  hit.primitive = rayhit.hit.primID;
  hit.u = rayhit.hit.u;
  hit.v = rayhit.hit.v;
  hit.t = rayhit.ray.tfar;
  return true;
}

bool Tracer::occluded(Vec3 origin, Vec3 direction, float tfar, HitFilter* filter) const {
  if (log_) [[unlikely]]
    logRay(origin, direction, tfar, true);
  FilterContext context;
  rtcInitIntersectContext(&context.embree);
  context.embree.filter = filter ? contextFilter : nullptr;
  context.filter = filter;
  RTCRay ray;
  setRay(ray, origin, direction, tfar);
  rtcOccluded1(top_, &context.embree, &ray);
  return ray.tfar < 0.0f;
}

SurfacePoint Tracer::surface(const HitRecord& hit, Vec3 origin, Vec3 direction, unsigned attributes) const {
  const Object& object = scene_.objects[size_t(hit.object)];
  const Prototype& prototype = scene_.prototypes[size_t(object.prototype)];
  SurfacePoint sp;
  sp.object = hit.object;
  if (prototype.kind == Prototype::Kind::Sphere) {
    Vec3 local = normalize(object.toObject.point(origin + direction * hit.t));
    sp.position = object.toWorld.point(local);
    sp.geometricNormal = normalize(object.toObject.transposedVector(local));
    sp.shadingNormal = sp.geometricNormal;
    if (!(attributes & (kUv | kTangent))) return sp;
    // uv as on the meshed sphere: u around the Y axis from +X towards -Z,
    // v from the bottom pole to the top one.
    float phi = std::atan2(-local.z, local.x);
    if (phi < 0.0f) phi += 2.0f * kPi;
    sp.uv[0] = phi / (2.0f * kPi);
    if (attributes & kUv) sp.uv[1] = std::asin(std::fmax(-1.0f, std::fmin(1.0f, local.y))) / kPi + 0.5f;
    if (attributes & kTangent) {
      const Vec3 tangent = object.toWorld.vector({-std::sin(phi), 0.0f, -std::cos(phi)});
      sp.tangent = normalize(tangent - sp.shadingNormal * dot(tangent, sp.shadingNormal));
    }
    return sp;
  }
  const Mesh& mesh = *prototype.mesh;
  const uint32_t* tri = &mesh.indices[size_t(hit.primitive) * 3];
  const float b0 = 1.0f - hit.u - hit.v, b1 = hit.u, b2 = hit.v;
  const Vec3 p0 = mesh.positions[tri[0]], p1 = mesh.positions[tri[1]], p2 = mesh.positions[tri[2]];
  sp.position = object.toWorld.point(p0 * b0 + p1 * b1 + p2 * b2);
  sp.geometricNormal = geometricNormals_.empty() ? worldGeometricNormal(object, mesh, hit.primitive)
                                                 : geometricNormals_[size_t(hit.object)][hit.primitive];
  Vec3 shading = sp.geometricNormal;
  if (!mesh.normals.empty()) {
    const Vec3 n = mesh.normals[tri[0]] * b0 + mesh.normals[tri[1]] * b1 + mesh.normals[tri[2]] * b2;
    bool unit;
    const Vec3 world = normalize(object.toObject.transposedVector(n), unit);
    if (unit || length(world) > 0.5f) shading = world;
  }
  sp.shadingNormal = shading;
  if ((attributes & kUv) && !mesh.uvs.empty()) {
    for (int k = 0; k < 2; ++k)
      sp.uv[k] = mesh.uvs[tri[0]][size_t(k)] * b0 + mesh.uvs[tri[1]][size_t(k)] * b1 + mesh.uvs[tri[2]][size_t(k)] * b2;
  }
  if ((attributes & kColor) && !mesh.colors.empty()) {
    for (int k = 0; k < 4; ++k)
      sp.color[k] = mesh.colors[tri[0]][size_t(k)] * b0 + mesh.colors[tri[1]][size_t(k)] * b1 +
                    mesh.colors[tri[2]][size_t(k)] * b2;
  }
  if (!(attributes & kTangent)) return sp;
  Vec3 tangent = mesh.tangents.empty() ? Vec3{}
                                       : object.toWorld.vector(mesh.tangents[tri[0]] * b0 + mesh.tangents[tri[1]] * b1 +
                                                               mesh.tangents[tri[2]] * b2);
  tangent = tangent - shading * dot(tangent, shading);
  if (!(length(tangent) > 1e-8f)) {
    Vec3 b;
    orthonormalBasis(shading, tangent, b);
  }
  sp.tangent = normalize(tangent);
  return sp;
}

}  // namespace kvi::render
