#include "render/integrator.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>

#include "kvi/host/context.h"
#include "render/noise.h"

namespace kvi::render {
namespace {

constexpr int kMaxPassThroughs = 64;   // straight passages along one ray (cut-aways, transparency)
constexpr int kMaxShadingLevels = 128;  // nested shading contexts (recursive services)
constexpr float kNoHit = std::numeric_limits<float>::infinity();

Vec3 load3(const float* v) { return Vec3(v); }
void zero3(float* v) { v[0] = v[1] = v[2] = 0.0f; }
void one3(float* v) { v[0] = v[1] = v[2] = 1.0f; }

Vec3 offsetPoint(const Tracer& tracer, Vec3 p, Vec3 normal, Vec3 towards) {
  const float side = dot(towards, normal) >= 0.0f ? 1.0f : -1.0f;
  return p + normal * (side * tracer.offsetAt(p));
}

// While alive, the pixel sample's stream is a split of its own (for a nested
// path); the original comes back afterwards.
class NestedStream {
 public:
  explicit NestedStream(PathState& path) : path_(path), parent_(path.stream.split()) {
    std::swap(path_.stream, parent_);
  }
  ~NestedStream() { std::swap(path_.stream, parent_); }
  NestedStream(const NestedStream&) = delete;
  NestedStream& operator=(const NestedStream&) = delete;

 private:
  PathState& path_;
  SampleStream parent_;
};

// The host services of IShadingContext for one shading operation: the
// current ray's type, the surface being shaded (if any), and the pixel
// sample's random numbers.
class ShadingContext final : public IShadingContext {
 public:
  ShadingContext(const Integrator& integrator, PathState& path, const RayType& type, const Vertex* vertex,
                 bool unoccluded = false)
      : integrator_(integrator), path_(path), type_(type), vertex_(vertex), unoccluded_(unoccluded), level_(path.level++) {}
  ~ShadingContext() override { --path_.level; }
  ShadingContext(const ShadingContext&) = delete;
  ShadingContext& operator=(const ShadingContext&) = delete;

  // The services that do the renderer's work count as the renderer's time,
  // not the calling shader's.
  const LightSample* collectLightSamples(int32_t, const float position[3], const float normal[3]) override {
    TimeScope scope(TimeCategory::Host);
    if (!vertex_ || level_ >= kMaxShadingLevels) return nullptr;
    auto& lists = *path_.lightLists;
    if (lists.size() <= size_t(level_)) lists.resize(size_t(level_) + 1);
    auto& list = lists[size_t(level_)];
    list.resize(integrator_.scene().lights.size());
    // The lights are sampled at the given point about the given normal.
    ShadingState state = *vertex_->state;
    Vertex at = *vertex_;
    at.position = load3(position);
    const Vec3 n = normalize(load3(normal));
    if (isFinite(n) && length(n) > 0.5f) at.shadingNormal = n;
    at.position.store(state.position);
    at.shadingNormal.store(state.normal);
    at.state = &state;
    LightSample* first = nullptr;
    LightSample* last = nullptr;
    size_t used = 0;
    for (size_t i = 0; i < list.size(); ++i) {
      LightContribution c;
      if (!integrator_.sampleLight(i, at, type_, path_, c)) continue;
      LightSample& s = list[used++];
      c.direction.store(s.direction);
      s.diffuseFactor = std::max(0.0f, dot(at.shadingNormal, c.direction)) * kInvPi;
      c.color.store(s.color);
      s.next = nullptr;
      if (last)
        last->next = &s;
      else
        first = &s;
      last = &s;
    }
    return first;
  }

  float* gatherIrradiance(float out[3], const float position[3], const float normal[3]) override {
    TimeScope scope(TimeCategory::Host);
    zero3(out);
    if (level_ >= kMaxShadingLevels) return out;
    const float scale = vertex_ ? vertex_->gatherScale : 1.0f;
    (integrator_.gatherIrradiance(load3(position), load3(normal), vertex_, type_, path_) * scale).store(out);
    return out;
  }

  const float* traceShadow(float out[3], const float from[3], const float to[3]) override {
    TimeScope scope(TimeCategory::Host);
    if (unoccluded_ || level_ >= kMaxShadingLevels) {
      one3(out);
      return out;
    }
    integrator_.shadowTransmission(load3(from), load3(to), vertex_, path_).store(out);
    return out;
  }

  const float* traceRay(float out[3], const float origin[3], const float direction[3], float) override {
    TimeScope scope(TimeCategory::Host);
    zero3(out);
    if (level_ >= kMaxShadingLevels || type_.depth >= integrator_.maxDepth()) return out;
    const Vec3 d = normalize(load3(direction));
    if (!isFinite(d) || !(length(d) > 0.5f)) return out;
    Vec3 o = load3(origin);
    if (vertex_) o = offsetPoint(integrator_.tracer(), o, vertex_->geometricNormal, d);
    NestedStream nested(path_);
    integrator_.tracePath(o, d, integrator_.tracedRay(type_), path_).store(out);
    return out;
  }

  uint8_t isRayFlagSet(int32_t flag) override { return (type_.flags & flag) != 0 ? 1 : 0; }
  int32_t isRayKind(int32_t mask) override { return (type_.kindBits & mask) != 0 ? 1 : 0; }
  uint8_t acceptsGlossyBounce(float roughness) override {
    return type_.depth < integrator_.maxDepth() && roughness > kMirrorLikeRoughness ? 1 : 0;
  }
  uint8_t isDiffuseSampled() override {
    return type_.diffuseSampled && type_.depth < integrator_.maxDepth() ? 1 : 0;
  }
  int32_t getRayKind() override { return type_.pathKind; }
  float nextSample1D() override {
    TimeScope scope(TimeCategory::Host);
    return path_.stream.next1D();
  }
  const float* nextSample2D(float buffer[2]) override {
    TimeScope scope(TimeCategory::Host);
    path_.stream.next2D(buffer);
    return buffer;
  }
  float noise4D(const float p[4]) override {
    TimeScope scope(TimeCategory::Host);
    return gradientNoise4D(p);
  }
  float hashRandom(float key) override {
    uint32_t bits;
    std::memcpy(&bits, &key, sizeof bits);
    return float(hashInt(bits) >> 8) * (1.0f / 16777215.0f);
  }

 private:
  const Integrator& integrator_;
  PathState& path_;
  RayType type_;
  const Vertex* vertex_;
  bool unoccluded_;
  int level_;
};

// Calls a shader operation, counted and timed as shader work.
template <class Call>
void callShader(PathState& path, Call&& call) {
  ++path.stats->shaderCalls;
  TimeScope scope(TimeCategory::Shaders);
  call();
}

// What of a surface point a material's varyings need.
unsigned surfaceAttributes(const Material& material) {
  unsigned attributes = 0;
  if (material.uvOffset >= 0) attributes |= Tracer::kUv;
  if (material.colorOffset >= 0) attributes |= Tracer::kColor;
  if (material.tangentOffset >= 0 || material.bitangentOffset >= 0) attributes |= Tracer::kTangent;
  return attributes;
}

Vertex vertexOf(const ShadingState& s) {
  return Vertex{load3(s.position), load3(s.geometricNormal), load3(s.normal), &s};
}

// The hits a ray has already passed (cut away by their material or
// discarded), so that tracing the same ray again finds the next one. A hit is
// the same when its object, primitive and distance are: the same ray meets
// the same primitive at the same distance bit for bit.
class PassedHits final : public HitFilter {
 public:
  PassedHits() {}  // the list's storage is left uninitialised: it is only read up to count_
  // False when the list is full (the ray has passed too many hits).
  bool add(const HitRecord& hit) {
    if (count_ == kMaxPassThroughs) return false;
    passed_[count_++] = Passed{hit.object, hit.primitive, hit.t};
    return true;
  }
  bool empty() const { return count_ == 0; }
  void clear() { count_ = 0; }
  bool accept(const HitRecord& candidate) override {
    for (int i = 0; i < count_; ++i) {
      const Passed& h = passed_[i];
      if (h.object == candidate.object && h.primitive == candidate.primitive && h.t == candidate.t) return false;
    }
    return true;
  }

 private:
  struct Passed {
    int object;
    uint32_t primitive;
    float t;
  };
  union {
    Passed passed_[kMaxPassThroughs];
  };
  int count_ = 0;
};

// Shadow rays: each surface crossed multiplies the transmission by what its
// material lets through; cut-away hits and emitters let everything through.
class ShadowFilter final : public HitFilter {
 public:
  ShadowFilter(const Integrator& integrator, PathState& path, const RayType& type, Vec3 origin, Vec3 direction)
      : integrator_(integrator), path_(path), type_(type), origin_(origin), direction_(direction) {}

  Vec3 transmission{1.0f, 1.0f, 1.0f};

  bool accept(const HitRecord& candidate) override {
    const Scene& scene = integrator_.scene();
    const Object& object = scene.objects[size_t(candidate.object)];
    if (object.material < 0) return false;
    const Material& material = scene.materials[size_t(object.material)];
    const bool cuts = material.shader.takesPart(kOpTestCutout);
    const bool transmits = material.shader.takesPart(kOpShadowTransmission);
    if (!cuts && !transmits) return blocked();
    ShadingState state;
    const SurfacePoint sp = integrator_.tracer().surface(candidate, origin_, direction_, surfaceAttributes(material));
    integrator_.fillSurfaceState(state, sp, material, direction_, type_, path_);
    const Vertex vertex = vertexOf(state);
    ShadingContext context(integrator_, path_, type_, &vertex);
    MaterialShader* shader = material.shader.material();
    if (cuts) {
      callShader(path_, [&] { shader->testCutout(&context, &state); });
      if (state.cutAway) return false;
    }
    if (!transmits) return blocked();
    zero3(state.shadowTransmission);
    state.hitDiscarded = 0;
    callShader(path_, [&] { shader->shadowTransmission(&context, &state); });
    if (state.hitDiscarded) return false;
    transmission *= load3(state.shadowTransmission);
    if (!isFinite(transmission)) return true;  // kept as it is: the sample is counted as non-finite
    if (!(maxComponent(transmission) > 1e-6f)) return blocked();
    return false;
  }

 private:
  bool blocked() {
    transmission = {0.0f, 0.0f, 0.0f};
    return true;
  }

  const Integrator& integrator_;
  PathState& path_;
  const RayType& type_;
  Vec3 origin_, direction_;
};

}  // namespace

Integrator::Integrator(const Scene& scene, const Tracer& tracer) : scene_(scene), tracer_(tracer) {
  const Camera& c = scene.camera;
  cameraForward_ = normalize(c.lookAt - c.position);
  cameraRight_ = normalize(cross(cameraForward_, c.up));
  if (!(length(cameraRight_) > 0.5f)) {
    Vec3 b;
    orthonormalBasis(cameraForward_, cameraRight_, b);
  }
  cameraUp_ = cross(cameraRight_, cameraForward_);
  tanHalfFov_ = std::tan(0.5f * c.fovY * kPi / 180.0f);
  far_ = 4.0f * (tracer.boundsRadius() + length(tracer.boundsCentre())) + 100.0f;
  for (const Material& material : scene.materials) traits_.push_back(materialTraits(material));
}

MaterialTraits materialTraits(const Material& material) {
  MaterialTraits traits;
  // Shaders whose evaluateRadiance multiplies the gathered irradiance by the
  // diffuse albedo alone, without 1 / pi.
  static const char* const kMeanRadianceGatherers[] = {"velk_qora_Mtl_Metal"};
  for (const char* name : kMeanRadianceGatherers)
    if (material.shader.shader == name) traits.gatherScale = kInvPi;
  if (!material.shader.takesPart(kOpEvaluateBsdf)) return traits;
  // A light sample straight above a hit seen head on, every output field
  // holding a marker: a body that writes nothing leaves every byte as it was.
  ShadingState state;
  std::memset(&state, 0, sizeof state);
  const float up[3] = {0.0f, 0.0f, 1.0f}, frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  std::memcpy(state.normal, up, sizeof up);
  std::memcpy(state.geometricNormal, up, sizeof up);
  std::memcpy(state.sampledDirection, up, sizeof up);
  std::memcpy(state.tangentFrame, frame, sizeof frame);
  state.rayDirection[2] = -1.0f;
  state.frontFacing = 1;
  const float marker = 1234.5f;
  for (float* f : {state.bsdfWeight, state.radiance, state.surfaceResult, state.shadowTransmission}) f[0] = f[1] = f[2] = marker;
  state.pdf = state.pdfSecondary = marker;
  if (material.tangentOffset >= 0) std::memcpy(state.varyings + material.tangentOffset, frame, 3 * sizeof(float));
  if (material.bitangentOffset >= 0) std::memcpy(state.varyings + material.bitangentOffset, frame + 3, 3 * sizeof(float));
  ShadingState before = state;
  host::BaseContext context;
  material.shader.material()->evaluateBsdf(&context, &state);
  traits.answersLightSamples = std::memcmp(&state, &before, sizeof state) != 0;
  return traits;
}

// ---- ray types ------------------------------------------------------------

void Integrator::limitDepth(RayType& type) const {
  if (type.depth >= scene_.settings.maxDepth) type.pathKind = kPassThroughOnly;
}

RayType Integrator::scattered(const RayType& parent, int32_t lobeFlags) const {
  RayType next = parent;
  next.depth = parent.depth + 1;
  next.kindBits = (parent.kindBits & ~(kCameraRay | kTracedRay)) | kSecondaryRay;
  // Transmissions (8 refraction, 16 glossy, 32 diffuse) keep the ray's kind:
  // light samples are taken on the side a ray arrives from, so the light
  // beyond a transmitting surface reaches the path only through its
  // continuation.
  if (lobeFlags & (1 | 2)) {
    // After a diffuse or glossy event the lights have given the direct light
    // already: the continuation only carries illumination.
    next.kindBits |= kIlluminationRay;
    next.pathKind = kIlluminationPath;
    next.flags = kRandomLobeChoiceFlag;
    next.diffuseSampled = true;
    next.seesEmitters = false;
  }
  limitDepth(next);
  return next;
}

RayType Integrator::gatherRay(const RayType& parent) const {
  RayType next;
  next.depth = parent.depth + 1;
  next.kindBits = kSecondaryRay | kIlluminationRay;
  next.pathKind = kIlluminationPath;
  next.flags = kRandomLobeChoiceFlag;
  next.diffuseSampled = true;
  next.seesEmitters = false;
  limitDepth(next);
  return next;
}

RayType Integrator::tracedRay(const RayType& parent) const {
  RayType next = parent;
  next.depth = parent.depth + 1;
  next.kindBits = (parent.kindBits & ~kCameraRay) | kSecondaryRay | kTracedRay;
  limitDepth(next);
  return next;
}

RayType Integrator::shadowRay(const RayType& parent) const {
  RayType next = parent;
  next.kindBits = (parent.kindBits & ~kCameraRay) | kSecondaryRay | kShadowRay;
  next.pathKind = kPassThroughOnly;
  next.diffuseSampled = false;
  return next;
}

// ---- surfaces -----------------------------------------------------------

void Integrator::fillSurfaceState(ShadingState& s, const SurfacePoint& sp, const Material& material, Vec3 direction,
                                  const RayType& type, const PathState& path) const {
  std::memset(&s, 0, sizeof s);
  direction.store(s.rayDirection);
  sp.position.store(s.position);
  // Normals face the arriving ray; frontFacing tells which side was hit.
  const bool front = dot(sp.geometricNormal, direction) < 0.0f;
  const Vec3 ng = front ? sp.geometricNormal : -sp.geometricNormal;
  Vec3 n = front ? sp.shadingNormal : -sp.shadingNormal;
  if (dot(n, ng) < 0.0f) n = ng;
  ng.store(s.geometricNormal);
  n.store(s.normal);
  s.rasterPosition[0] = path.raster[0];
  s.rasterPosition[1] = path.raster[1];
  s.frameResolution[0] = scene_.settings.width;
  s.frameResolution[1] = scene_.settings.height;
  s.glossinessBias = scene_.settings.glossinessBias;
  s.frontFacing = front ? 1 : 0;
  s.reflectionAllowed = type.depth < scene_.settings.maxDepth ? 1 : 0;
  if (material.uvOffset >= 0) std::memcpy(s.varyings + material.uvOffset, sp.uv, sizeof sp.uv);
  if (material.colorOffset >= 0) std::memcpy(s.varyings + material.colorOffset, sp.color, sizeof sp.color);
  // The tangent frame is for materials that work in it, which ask for the
  // tangent or the bitangent; others get it zero.
  if (material.tangentOffset < 0 && material.bitangentOffset < 0) return;
  const Vec3 t = normalize(sp.tangent - n * dot(sp.tangent, n));
  const Vec3 b = cross(n, t);
  t.store(s.tangentFrame);
  b.store(s.tangentFrame + 3);
  n.store(s.tangentFrame + 6);
  if (material.tangentOffset >= 0) t.store(reinterpret_cast<float*>(s.varyings + material.tangentOffset));
  if (material.bitangentOffset >= 0) b.store(reinterpret_cast<float*>(s.varyings + material.bitangentOffset));
}

// ---- paths --------------------------------------------------------------

Vec3 Integrator::cameraSample(int x, int y, PathState& path, float& alpha) const {
  float jitter[2];
  path.stream.next2D(jitter);
  path.raster[0] = float(x) + jitter[0];
  path.raster[1] = float(y) + jitter[1];
  const float aspect = float(scene_.settings.width) / float(scene_.settings.height);
  const float sx = (2.0f * path.raster[0] / float(scene_.settings.width) - 1.0f) * tanHalfFov_ * aspect;
  const float sy = (1.0f - 2.0f * path.raster[1] / float(scene_.settings.height)) * tanHalfFov_;
  const Vec3 direction = normalize(cameraForward_ + cameraRight_ * sx + cameraUp_ * sy);
  alpha = 0.0f;
  RayType camera;
  limitDepth(camera);
  return tracePath(scene_.camera.position, direction, camera, path, &alpha);
}

Vec3 Integrator::tracePath(Vec3 origin, Vec3 direction, RayType type, PathState& path, float* alpha) const {
  Vec3 radiance{0, 0, 0}, throughput{1, 1, 1};
  int passes = 0;
  bool firstSegment = true;
  // Cut-away hits along the current ray. The closest hit is found without
  // asking the materials and tested afterwards: a ray whose closest hit is
  // cut away is traced again past it, so the materials are asked only about
  // hits the ray reaches, each once.
  PassedHits cutAway;
  for (;;) {
    HitRecord hit;
    bool found;
    {
      TimeScope scope(TimeCategory::Rays);
      found = tracer_.intersect(origin, direction, kNoHit, cutAway.empty() ? nullptr : &cutAway, hit);
    }
    if (cutAway.empty()) {
      if (type.kindBits & kCameraRay)
        ++path.stats->cameraRays;
      else
        ++path.stats->secondaryRays;
    }
    if (!found) {
      float a = 0.0f;
      radiance += throughput * environment(direction, type, path, &a);
      if (alpha && firstSegment) *alpha = a;
      break;
    }

    const Object& object = scene_.objects[size_t(hit.object)];
    const SurfacePoint sp = tracer_.surface(
        hit, origin, direction, object.material < 0 ? 0u : surfaceAttributes(scene_.materials[size_t(object.material)]));
    if (object.material < 0) {
      if (alpha && firstSegment) *alpha = 1.0f;
      if (type.seesEmitters) radiance += throughput * emitterRadiance(object.light, sp, direction, path);
      break;  // emitters absorb what reaches them
    }
    const Material& material = scene_.materials[size_t(object.material)];
    const MaterialTraits& traits = traits_[size_t(object.material)];
    MaterialShader* shader = material.shader.material();
    ShadingState state;
    fillSurfaceState(state, sp, material, direction, type, path);
    // How far the ray travelled to this hit: a dielectric absorbs along it
    // when the ray arrives from inside (see docs/host-services.md).
    state.lightDistance = length(sp.position - origin);
    Vertex vertex = vertexOf(state);
    vertex.gatherScale = traits.gatherScale;
    ShadingContext context(*this, path, type, &vertex);
    if (material.shader.takesPart(kOpTestCutout)) {
      callShader(path, [&] { shader->testCutout(&context, &state); });
      if (state.cutAway) {
        if (!cutAway.add(hit)) break;
        continue;
      }
    }
    cutAway.clear();
    if (alpha && firstSegment) {
      *alpha = 1.0f;
      path.cameraRayHit = true;
    }
    firstSegment = false;

    if (material.wholeHit) {
      callShader(path, [&] { shader->shadeSurface(&context, &state); });
      if (state.hitDiscarded) {
        if (++passes > kMaxPassThroughs) break;
        origin = offsetPoint(tracer_, sp.position, vertex.geometricNormal, direction);
        continue;
      }
      radiance += throughput * load3(state.surfaceResult);
      break;
    }
    if (material.shader.takesPart(kOpEvaluateRadiance)) {
      callShader(path, [&] { shader->evaluateRadiance(&context, &state); });
      if (state.radianceDone) radiance += throughput * load3(state.radiance);
    }
    if (material.shader.takesPart(kOpEvaluateBsdf) && traits.answersLightSamples)
      radiance += throughput * directLight(material, state, vertex, type, path);
    if (!material.shader.takesPart(kOpSampleBsdf)) break;

    state.lobeFlags = 0;
    zero3(state.bsdfWeight);
    state.pdf = 1.0f;
    state.pdfSecondary = 1.0f;
    callShader(path, [&] { shader->sampleBsdf(&context, &state); });
    const int32_t lobe = state.lobeFlags;
    if (lobe == 0) break;
    if (!(state.pdfSecondary > 0.0f)) break;  // no density to divide by: the event cannot be weighed
    // The event's weight: bsdfWeight x pdf / pdfSecondary (see docs/host-services.md).
    throughput *= load3(state.bsdfWeight) * (state.pdf / state.pdfSecondary);
    if (!isFinite(throughput)) {
      radiance += throughput;  // marks the sample as non-finite
      break;
    }
    if (isBlack(throughput)) break;
    if (lobe == 64) {
      // Straight on through the surface: the same ray continues.
      if (++passes > kMaxPassThroughs) break;
      origin = offsetPoint(tracer_, sp.position, vertex.geometricNormal, direction);
      continue;
    }
    bool unit;
    const Vec3 next = normalize(load3(state.sampledDirection), unit);
    if (type.depth >= scene_.settings.maxDepth || !(unit || (isFinite(next) && length(next) > 0.5f))) break;
    type = scattered(type, lobe);
    origin = offsetPoint(tracer_, sp.position, vertex.geometricNormal, next);
    direction = next;
    if (type.depth >= scene_.settings.russianRouletteDepth) {
      const float survive = std::min(0.95f, maxComponent(throughput));
      if (!(path.stream.next1D() < survive)) break;
      throughput = throughput / survive;
    }
  }
  return radiance;
}

Vec3 Integrator::directLight(const Material& material, ShadingState& state, const Vertex& vertex,
                             const RayType& type, PathState& path) const {
  const size_t count = scene_.lights.size();
  if (count == 0) return {};
  // Eye paths sample every light; illumination paths one, picked at random.
  size_t first = 0, last = count;
  float weight = 1.0f;
  if (type.pathKind != kEyePath && count > 1) {
    first = std::min(count - 1, size_t(path.stream.next1D() * float(count)));
    last = first + 1;
    weight = float(count);
  }
  MaterialShader* shader = material.shader.material();
  ShadingContext context(*this, path, type, &vertex);
  Vec3 total{0, 0, 0};
  for (size_t i = first; i < last; ++i) {
    LightContribution light;
    if (!sampleLight(i, vertex, type, path, light)) continue;
    light.direction.store(state.sampledDirection);
    zero3(state.bsdfWeight);
    state.pdf = 0.0f;
    state.pdfSecondary = 0.0f;
    callShader(path, [&] { shader->evaluateBsdf(&context, &state); });
    total += light.color * load3(state.bsdfWeight) * weight;
  }
  return total;
}

// ---- lights -------------------------------------------------------------

bool Integrator::sampleLight(size_t index, const Vertex& vertex, const RayType& type, PathState& path,
                             LightContribution& out) const {
  const Light& light = scene_.lights[index];
  const Vec3 x = vertex.position;
  Vec3 towards;               // unit, from the point towards the light
  Vec3 samplePosition;
  Vec3 axis = light.direction;
  float distance = far_;
  Vec3 scale{1, 1, 1};        // 1 / the sample's density, and what a dome adds
  switch (light.type) {
    case LightType::Point:
    case LightType::Spot:
    case LightType::Sphere: {
      const Vec3 d = light.position - x;
      distance = length(d);
      if (!(distance > 0.0f)) return false;
      towards = d / distance;
      samplePosition = light.position;
      break;
    }
    case LightType::Directional:
      towards = -light.direction;
      samplePosition = x + towards * far_;
      break;
    case LightType::Area: {
      if (!(light.area > 0.0f) || light.areaCdf.empty()) return false;
      const float pick = path.stream.next1D() * light.area;
      const size_t t = std::min(light.areaCdf.size() - 1,
                                size_t(std::upper_bound(light.areaCdf.begin(), light.areaCdf.end(), pick) -
                                       light.areaCdf.begin()));
      float u[2], b1, b2;
      path.stream.next2D(u);
      uniformTriangle(u[0], u[1], b1, b2);
      const Vec3* c = &light.corners[3 * t];
      const Vec3 y = c[0] * (1.0f - b1 - b2) + c[1] * b1 + c[2] * b2;
      axis = light.normals[t];
      const Vec3 d = y - x;
      distance = length(d);
      if (!(distance > 0.0f)) return false;
      towards = d / distance;
      samplePosition = offsetPoint(tracer_, y, axis, -towards);
      scale = Vec3{1, 1, 1} * light.area;
      break;
    }
    case LightType::Ambient:
    case LightType::Environment:
      // Light from the whole hemisphere, delivered along the normal: pi
      // times the light's colour is the irradiance of a uniform dome.
      towards = vertex.shadingNormal;
      samplePosition = x + towards * far_;
      axis = -towards;
      scale = Vec3{1, 1, 1} * kPi;
      break;
    case LightType::Sky: {
      float u[2];
      path.stream.next2D(u);
      const Vec3 local = cosineHemisphere(u[0], u[1]);
      Vec3 t, b;
      orthonormalBasis(vertex.shadingNormal, t, b);
      towards = normalize(t * local.x + b * local.y + vertex.shadingNormal * local.z);
      samplePosition = x + towards * far_;
      axis = -towards;
      // The sky as illumination (no sun glow), in the environment's twin that
      // shows it to illumination rays.
      RayType lookup;
      lookup.kindBits = kSecondaryRay | kIlluminationRay | kLightLookupRay;
      lookup.pathKind = kIlluminationPath;
      lookup.depth = type.depth;
      const Vec3 sky = scene_.environment ? environment(towards, lookup, path) : Vec3{1, 1, 1};
      scale = sky * (kPi / std::max(local.z, 1e-3f));
      break;
    }
  }
  // Below the surface (a light sampling itself is judged by the sample it picks).
  if (!(light.radius > 0.0f) && !(dot(towards, vertex.geometricNormal) > 0.0f)) return false;
  // The light is shaded in a copy of the surface's state (lights do not read
  // the material's varyings, which are left out).
  ShadingState state;
  std::memcpy(&state, vertex.state, offsetof(ShadingState, varyings));
  samplePosition.store(state.lightSamplePosition);
  axis.store(state.lightAxis);
  (-towards).store(state.lightDirection);
  state.lightDistance = distance;
  // Some lights leave colour or shadow untouched: nothing, fully unshadowed.
  zero3(state.lightColor);
  one3(state.lightShadow);
  ShadingContext context(*this, path, type, &vertex);
  callShader(path, [&] { light.shader.light()->shade(&context, &state); });
  if (!followMovedSample(state, samplePosition, vertex, towards)) return false;
  out.direction = towards;
  out.color = load3(state.lightColor) * load3(state.lightShadow) * scale;
  return true;
}

// A light that places its own samples (a sphere light, a spot light with a
// radius) moves lightSamplePosition onto itself and says where the light now
// comes from in lightDirection: the surface is evaluated towards that point.
// False when the moved sample lies below the surface.
bool Integrator::followMovedSample(const ShadingState& state, Vec3 given, const Vertex& vertex, Vec3& towards) const {
  const Vec3 now = load3(state.lightSamplePosition);
  if (now.x == given.x && now.y == given.y && now.z == given.z) return true;
  const Vec3 moved = normalize(-load3(state.lightDirection));
  if (!isFinite(moved) || !(length(moved) > 0.5f)) return false;
  towards = moved;
  return dot(towards, vertex.geometricNormal) > 0.0f;
}

Vec3 Integrator::emitterRadiance(int index, const SurfacePoint& sp, Vec3 direction, PathState& path) const {
  if (index < 0) return {};
  if (scene_.lights[size_t(index)].radius > 0.0f) return ownEmitterRadiance(scene_.lights[size_t(index)], sp, direction, path);
  // Emitters shine from their front side only, with the light's colour as
  // seen straight on from unit distance.
  if (!(dot(direction, sp.geometricNormal) < 0.0f)) return {};
  const Light& light = scene_.lights[size_t(index)];
  ShadingState state;
  std::memset(&state, 0, sizeof state);
  sp.position.store(state.position);
  sp.geometricNormal.store(state.normal);
  sp.geometricNormal.store(state.geometricNormal);
  direction.store(state.rayDirection);
  sp.position.store(state.lightSamplePosition);
  sp.geometricNormal.store(state.lightAxis);
  sp.geometricNormal.store(state.lightDirection);
  state.lightDistance = 1.0f;
  one3(state.lightShadow);
  state.rasterPosition[0] = path.raster[0];
  state.rasterPosition[1] = path.raster[1];
  state.frameResolution[0] = scene_.settings.width;
  state.frameResolution[1] = scene_.settings.height;
  ShadingContext context(*this, path, RayType{}, nullptr, /*unoccluded=*/true);
  callShader(path, [&] { light.shader.light()->shade(&context, &state); });
  return load3(state.lightColor) * load3(state.lightShadow);
}

// The radiance a ray sees on the ball of a sphere light or the disk of a spot
// light: the light shaded from a point back along the ray, its sample moved
// onto the light, divided by what turns radiance into the light it reports:
// the ball's solid angle from there, or the disk's area times its cosine over
// the squared distance.
Vec3 Integrator::ownEmitterRadiance(const Light& light, const SurfacePoint& sp, Vec3 direction, PathState& path) const {
  if (!(dot(direction, sp.geometricNormal) < 0.0f)) return {};
  const float r = light.radius;
  const Vec3 viewer = light.type == LightType::Sphere ? light.position + sp.geometricNormal * (2.0f * r)
                                                      : sp.position - direction * (1000.0f * r);
  ShadingState state;
  std::memset(&state, 0, sizeof state);
  viewer.store(state.position);
  light.position.store(state.lightSamplePosition);
  light.direction.store(state.lightAxis);
  const Vec3 d = viewer - light.position;
  state.lightDistance = length(d);
  normalize(d).store(state.lightDirection);
  one3(state.lightShadow);
  ShadingContext context(*this, path, RayType{}, nullptr, /*unoccluded=*/true);
  callShader(path, [&] { light.shader.light()->shade(&context, &state); });
  float perRadiance;
  if (light.type == LightType::Sphere) {
    perRadiance = 2.0f * kPi * (1.0f - std::sqrt(0.75f));  // the ball seen from twice its radius
  } else {
    const float distance = state.lightDistance;
    const float cosine = dot(load3(state.lightAxis), load3(state.lightDirection));
    if (!(cosine > 0.0f)) return {};
    perRadiance = kPi * r * r * cosine / (distance * distance);
  }
  return load3(state.lightColor) / perRadiance;
}

Vec3 Integrator::environment(Vec3 direction, const RayType& type, PathState& path, float* alpha) const {
  if (!scene_.environment) {
    if (alpha) *alpha = 0.0f;
    return {};
  }
  ShadingState state;
  std::memset(&state, 0, sizeof state);
  direction.store(state.rayDirection);
  scene_.camera.position.store(state.position);
  state.rasterPosition[0] = path.raster[0];
  state.rasterPosition[1] = path.raster[1];
  state.frameResolution[0] = scene_.settings.width;
  state.frameResolution[1] = scene_.settings.height;
  ShadingContext context(*this, path, type, nullptr);
  const Environment& e = *scene_.environment;
  EnvironmentShader* shader = (type.kindBits & kLightLookupRay) && e.forLights ? e.forLights->environment()
                                                                               : e.shader.environment();
  callShader(path, [&] { shader->shade(&context, &state); });
  if (alpha) *alpha = state.surfaceResult[3];
  return load3(state.surfaceResult);
}

// Inlined into its one caller, which loads the points from the shader's
// arrays: called, it took them through the stack in pieces that its reads
// then waited for.
[[gnu::always_inline]] inline Vec3 Integrator::shadowTransmission(Vec3 from, Vec3 to, const Vertex* vertex,
                                                                  PathState& path) const {
  Vec3 origin = from;
  if (vertex) origin = offsetPoint(tracer_, from, vertex->geometricNormal, to - from);
  const Vec3 d = to - origin;
  const float distance = length(d);
  if (!(distance > 0.0f) || !std::isfinite(distance)) return {1, 1, 1};
  const Vec3 direction = d / distance;
  const float reach = distance - tracer_.offsetAt(to);
  if (!(reach > 0.0f)) return {1, 1, 1};
  RayType type = shadowRay(RayType{});
  ShadowFilter filter(*this, path, type, origin, direction);
  bool blocked;
  {
    TimeScope scope(TimeCategory::Rays);
    blocked = tracer_.occluded(origin, direction, reach, &filter);
  }
  ++path.stats->shadowRays;
  if (blocked && isFinite(filter.transmission)) return {0, 0, 0};
  return filter.transmission;
}

Vec3 Integrator::gatherIrradiance(Vec3 position, Vec3 normal, const Vertex* vertex, const RayType& type,
                                  PathState& path) const {
  // Asked while shading an illumination ray, the gather answers nothing: that
  // ray's path carries its own diffuse bounces.
  const int samples = scene_.settings.gatherSamples;
  if ((type.kindBits & kIlluminationRay) || type.depth >= scene_.settings.maxDepth || samples <= 0) return {};
  bool unit;
  const Vec3 n = normalize(normal, unit);
  if (!(unit || (isFinite(n) && length(n) > 0.5f))) return {};
  const Vec3 ng = vertex ? vertex->geometricNormal : n;
  Vec3 t, b;
  orthonormalBasis(n, t, b);
  const RayType gather = gatherRay(type);
  Vec3 sum{0, 0, 0};
  for (int k = 0; k < samples; ++k) {
    float u[2];
    path.stream.next2D(u);
    const Vec3 local = cosineHemisphere(u[0], u[1]);
    const Vec3 direction = normalize(t * local.x + b * local.y + n * local.z);
    if (!(dot(direction, ng) > 0.0f)) continue;  // into the surface
    NestedStream nested(path);
    sum += tracePath(offsetPoint(tracer_, position, ng, direction), direction, gather, path);
  }
  // Cosine-weighted directions: irradiance = pi x the mean radiance.
  return sum * (kPi / float(samples));
}

}  // namespace kvi::render
