// Samplers a host binds to environment maps and cube maps: both look their
// images up with ImageSampler's bilinear filter.
#pragma once

#include <vector>

#include "kvi/host/samplers.h"
#include "kvi/types.h"

namespace kvi::host {

// Six face images looked up at (s, t, face), the coordinates the shaders pass
// for a cube map. Faces are numbered 0 to 5 for +X, -X, +Y, -Y, +Z, -Z; the
// face coordinate is rounded to the nearest face and clamped to 0..5 (NaN
// gives face 0). Within a face, (s, t) is looked up bilinearly as ImageSampler
// does (t = 0 at the top row), wrapping around the face's own edges rather
// than reaching into the neighbouring face.
//
// Direction to face (the same convention as the shaders'): the component of
// largest magnitude m picks the face (ties: X before Y before Z; -0 counts as
// positive) and the two others give
//
//   +X: sc = -z, tc = -y     -X: sc = +z, tc = -y
//   +Y: sc = +x, tc = +z     -Y: sc = +x, tc = -z
//   +Z: sc = +x, tc = -y     -Z: sc = -x, tc = -y
//
// with s = 0.5 sc/m + 0.5 and t = 0.5 tc/m + 0.5.
class CubeFaceSampler : public ITextureSampler {
 public:
  struct FaceCoordinates {
    int face;
    float s;
    float t;
  };

  // Exactly six faces, in face order; throws Error otherwise.
  explicit CubeFaceSampler(std::vector<ImageSampler> faces);

  // coords = (s, t, face).
  void sample(float out[4], const float* coords) override;
  // The texel seen in a direction. A zero or non-finite direction looks at the
  // centre of face +Z.
  void lookupDirection(float out[4], const float direction[3]) const;
  void lookup(float out[4], float s, float t, float face) const;

  // The face of a direction and its (s, t) on that face. A zero or non-finite
  // direction gives the centre of face +Z.
  static FaceCoordinates project(const float direction[3]);

  const ImageSampler& face(int index) const { return faces_[index]; }

 private:
  std::vector<ImageSampler> faces_;
};

// An equirectangular (latitude-longitude) RGBA image looked up by a direction
// (x, y, z) = coords[0..2], which need not be unit length.
//
// With the default up axis Y the frame is right-handed: -Z looks at the
// middle of the image (s = 0.5), +X at s = 0.75, -X at s = 0.25, +Z at the
// seam s = 0 (= 1); +Y is the top row (t = 0), -Y the bottom (t = 1):
//
//   s = 0.5 + atan2(x, -z) / (2 pi),   t = 0.5 - atan2(y, sqrt(x^2 + z^2)) / pi
//
// With up axis Z the direction is first turned so that +Z is up and +Y looks
// at the middle: (x, y, z) is read as (x, z, -y) in the Y-up formulas.
// A zero or non-finite direction looks at the middle of the image (0.5, 0.5).
// Bilinear filtering as ImageSampler's, wrapping around in s (and in t).
class LatLongSampler : public ITextureSampler {
 public:
  enum class UpAxis { Y, Z };

  // rgba holds width * height * 4 floats, row by row (t = 0 the first row).
  LatLongSampler(int width, int height, std::vector<float> rgba, UpAxis up = UpAxis::Y);

  void sample(float out[4], const float* coords) override;
  void lookupDirection(float out[4], const float direction[3]) const;

  // The image coordinates (s, t) of a direction.
  void project(const float direction[3], float& s, float& t) const;

  const ImageSampler& image() const { return image_; }
  UpAxis upAxis() const { return up_; }

 private:
  ImageSampler image_;
  UpAxis up_;
};

}  // namespace kvi::host
