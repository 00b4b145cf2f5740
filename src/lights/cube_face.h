// Looking a texture up by direction through a cube-face projection.
//
// Convention (the reference host's CubeFaceSampler follows the same one):
// the component of largest magnitude picks the face, numbered 0 to 5 for
// +X, -X, +Y, -Y, +Z, -Z (ties go to X before Y before Z, a -0 counts as
// positive). On each face the two other components give signed face
// coordinates (sc, tc), divided by the magnitude m of the major component:
//
//   face 0 +X: sc = -z, tc = -y     face 1 -X: sc = +z, tc = -y
//   face 2 +Y: sc = +x, tc = +z     face 3 -Y: sc = +x, tc = -z
//   face 4 +Z: sc = +x, tc = -y     face 5 -Z: sc = -x, tc = -y
//
// The projection map then reads (0.5 sc/m + 0.5, 0.5 tc/m + 0.5), the usual
// cube-map layout with t = 0 at the top row of each face; the shadow colour
// map reads the mirrored (-0.5 sc/m + 0.5, 1 - (0.5 tc/m + 0.5)). The face
// reaches the sampler as a third coordinate: (s, t, face) with the face as a
// float 0 to 5.
//
// A zero direction divides 0 by 0, and a NaN component fails the face
// comparisons: either way the sampler receives non-finite coordinates (the
// host's samplers answer those without failing).
#pragma once

#include <cmath>

#include "kvi/types.h"

namespace kvi {

// A direction's face and its signed coordinates on it, before the division.
struct CubeFaceCoordinates {
  float face;
  float sc;
  float tc;
  float major;  // magnitude of the component that picked the face
};

inline CubeFaceCoordinates cubeFaceOf(const float d[3]) {
  const float ax = std::fabs(d[0]), ay = std::fabs(d[1]), az = std::fabs(d[2]);
  if (ax >= ay && ax >= az) return d[0] < 0.0f ? CubeFaceCoordinates{1.0f, d[2], -d[1], ax}
                                               : CubeFaceCoordinates{0.0f, -d[2], -d[1], ax};
  if (ay >= az) return d[1] < 0.0f ? CubeFaceCoordinates{3.0f, d[0], -d[2], ay}
                                   : CubeFaceCoordinates{2.0f, d[0], d[2], ay};
  return d[2] < 0.0f ? CubeFaceCoordinates{5.0f, -d[0], -d[1], az} : CubeFaceCoordinates{4.0f, d[0], -d[1], az};
}

// The texel (r, g, b, a) of a cube map at a direction, with the face
// coordinates (s, t) computed from (sc/m, tc/m) by Coordinates. An unbound
// map leaves rgba at (0, 0, 0, 1) and costs no projection.
template <class Coordinates>
inline void sampleCube(const TextureRef& map, const float direction[3], float rgba[4], Coordinates coordinates) {
  rgba[0] = 0.0f;
  rgba[1] = 0.0f;
  rgba[2] = 0.0f;
  rgba[3] = 1.0f;
  if (!map.sampler) return;
  const CubeFaceCoordinates c = cubeFaceOf(direction);
  float coords[3];
  coordinates(c, coords);
  coords[2] = c.face;
  map.sampler->sample(rgba, coords);
}

// The projection map's look-up: (0.5 sc/m + 0.5, 0.5 tc/m + 0.5, face).
inline void sampleProjectionCube(const TextureRef& map, const float direction[3], float rgba[4]) {
  sampleCube(map, direction, rgba, [](const CubeFaceCoordinates& c, float st[2]) {
    st[0] = 0.5f * c.sc / c.major + 0.5f;
    st[1] = 0.5f * c.tc / c.major + 0.5f;
  });
}

// The shadow colour map's look-up, mirrored in both face coordinates:
// (-0.5 sc/m + 0.5, 1 - (0.5 tc/m + 0.5), face).
inline void sampleShadowCube(const TextureRef& map, const float direction[3], float rgba[4]) {
  sampleCube(map, direction, rgba, [](const CubeFaceCoordinates& c, float st[2]) {
    st[0] = -0.5f * c.sc / c.major + 0.5f;
    st[1] = 1.0f - (0.5f * c.tc / c.major + 0.5f);
  });
}

}  // namespace kvi
