#include "kvi/host/environment_samplers.h"

#include <cmath>
#include <string>

#include "kvi/host/error.h"

namespace kvi::host {

namespace {

bool finite3(const float d[3]) { return std::isfinite(d[0]) && std::isfinite(d[1]) && std::isfinite(d[2]); }

int faceIndex(float face) {
  if (!(face >= 0.0f)) return 0;  // negative or NaN
  if (face >= 5.0f) return 5;
  return static_cast<int>(face + 0.5f);
}

constexpr float kPi = 3.14159265f;

}  // namespace

CubeFaceSampler::CubeFaceSampler(std::vector<ImageSampler> faces) : faces_(std::move(faces)) {
  if (faces_.size() != 6)
    throw Error("cube face sampler: needs 6 face images (+X, -X, +Y, -Y, +Z, -Z), given " +
                std::to_string(faces_.size()));
}

void CubeFaceSampler::lookup(float out[4], float s, float t, float face) const {
  faces_[faceIndex(face)].lookup(out, s, t);
}

void CubeFaceSampler::sample(float out[4], const float* coords) { lookup(out, coords[0], coords[1], coords[2]); }

CubeFaceSampler::FaceCoordinates CubeFaceSampler::project(const float d[3]) {
  const float ax = std::fabs(d[0]), ay = std::fabs(d[1]), az = std::fabs(d[2]);
  if (!finite3(d) || (ax == 0.0f && ay == 0.0f && az == 0.0f)) return {4, 0.5f, 0.5f};
  int face;
  float sc, tc, m;
  if (ax >= ay && ax >= az) {
    face = d[0] < 0.0f ? 1 : 0;
    sc = d[0] < 0.0f ? d[2] : -d[2];
    tc = -d[1];
    m = ax;
  } else if (ay >= az) {
    face = d[1] < 0.0f ? 3 : 2;
    sc = d[0];
    tc = d[1] < 0.0f ? -d[2] : d[2];
    m = ay;
  } else {
    face = d[2] < 0.0f ? 5 : 4;
    sc = d[2] < 0.0f ? -d[0] : d[0];
    tc = -d[1];
    m = az;
  }
  return {face, 0.5f * sc / m + 0.5f, 0.5f * tc / m + 0.5f};
}

void CubeFaceSampler::lookupDirection(float out[4], const float direction[3]) const {
  const FaceCoordinates c = project(direction);
  faces_[c.face].lookup(out, c.s, c.t);
}

LatLongSampler::LatLongSampler(int width, int height, std::vector<float> rgba, UpAxis up)
    : image_(width, height, std::move(rgba)), up_(up) {}

void LatLongSampler::project(const float direction[3], float& s, float& t) const {
  const float x = direction[0];
  const float y = up_ == UpAxis::Y ? direction[1] : direction[2];
  const float z = up_ == UpAxis::Y ? direction[2] : -direction[1];
  if (!finite3(direction) || (x == 0.0f && y == 0.0f && z == 0.0f)) {
    s = 0.5f;
    t = 0.5f;
    return;
  }
  // 0 - z rather than -z, so that straight up and down (x = z = 0) look at
  // the middle column instead of the seam.
  s = 0.5f + std::atan2(x, 0.0f - z) / (2.0f * kPi);
  t = 0.5f - std::atan2(y, std::hypot(x, z)) / kPi;
}

void LatLongSampler::lookupDirection(float out[4], const float direction[3]) const {
  float s, t;
  project(direction, s, t);
  image_.lookup(out, s, t);
}

void LatLongSampler::sample(float out[4], const float* coords) { lookupDirection(out, coords); }

}  // namespace kvi::host
