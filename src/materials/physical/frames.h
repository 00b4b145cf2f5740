// Tangent frames of the physically based materials and of the Ward family:
// nine floats, tangent T (x, y, z), bitangent B, normal N. Built from the
// hit's varyings and shading normal, bent by normal maps and bumps, turned by
// the anisotropy rotation, and used to carry directions between world space
// and the frame. Zero vectors are left unnormalised instead of becoming NaN.
#pragma once

#include "frame/vector3.h"

namespace kvi::physical {

// The starting frame of a hit: the normal is the shading normal; the tangent
// is the "tangent" varying, or, where that has no part perpendicular to the
// normal (zero, or along the normal), the "bitangent" varying turned into a
// tangent (B x N), then the host's frame tangent, and last a tangent completed
// from the normal alone; then orthonormalizeFrame makes it perpendicular and
// adds the bitangent N x T.
void initialFrame(const float hostFrame[9], const float tangent[3], const float bitangent[3], const float normal[3],
                  float frame[9]);
// The same choice of tangent, as it is (not yet perpendicular to the normal
// nor normalised), and no bitangent yet (zeros): for a caller that
// orthonormalises the frame itself later, once.
void startFrame(const float hostFrame[9], const float tangent[3], const float bitangent[3], const float normal[3],
                float frame[9]);

// T <- T - N (T . N), normalised when its length is positive; B <- N x T,
// likewise. N is not changed.
inline void orthonormalizeFrame(float frame[9]) {
  float* t = frame;
  float* b = frame + 3;
  const float* n = frame + 6;
  const float along = dot3(t, n);
  for (int i = 0; i < 3; ++i) t[i] = t[i] - n[i] * along;
  normalizeIfNonZero(t);
  cross3(n, t, b);
  normalizeIfNonZero(b);
}

// Turns T and B about N by the angle (radians): nothing when it is 0,
// otherwise T' = T cos a + B sin a, B' = -T sin a + B cos a.
void rotateFrame(float frame[9], float angle);
// The same with cos a and sin a given (a constant angle's, computed once).
void rotateFrameBy(float frame[9], float cosine, float sine);

// Bends the frame's normal by the perturbation q = (slope x, slope y, z) in
// the frame: the new normal is q.x T + q.y B + q.z N normalised, and the frame
// turns with it by the shortest rotation (so T follows the bump), then is
// re-orthonormalised. q with zero slopes and a positive z, or a zero new
// normal, leaves the frame as it is.
void bendFrame(const float q[3], float frame[9]);

// bendFrame, then: if the ray direction p meets the bent surface from behind
// (p . N' > 0), the normal becomes d - 0.01 p, with a = -p, s = a x N and
// d = a x s normalised (N the normal before the bend): perpendicular to the
// view, in the plane of the view and the old normal, tilted 0.01 toward the
// viewer; the frame is re-orthonormalised once more.
void bendFrameTowardViewer(const float p[3], const float q[3], float frame[9]);

// The slope vector of two perturbations applied one after the other: their
// slopes add, (a.x b.z + b.x a.z, a.y b.z + b.y a.z, a.z b.z).
inline void combineSlopes(const float a[3], const float b[3], float out[3]) {
  const float x = a[0] * b[2] + b[0] * a[2];
  const float y = a[1] * b[2] + b[1] * a[2];
  out[0] = x;
  out[1] = y;
  out[2] = a[2] * b[2];
}

// (T . w, B . w, N . w): a world direction in the frame.
inline void toLocal(const float frame[9], const float world[3], float local[3]) {
  const float x = dot3(frame, world), y = dot3(frame + 3, world), z = dot3(frame + 6, world);
  local[0] = x;
  local[1] = y;
  local[2] = z;
}

// T l.x + B l.y + N l.z: a direction of the frame in world space.
inline void toWorld(const float frame[9], const float local[3], float world[3]) {
  const float l0 = local[0], l1 = local[1], l2 = local[2];
  for (int i = 0; i < 3; ++i) world[i] = frame[i] * l0 + frame[3 + i] * l1 + frame[6 + i] * l2;
}

}  // namespace kvi::physical
