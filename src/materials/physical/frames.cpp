#include "materials/physical/frames.h"

#include <cmath>

namespace kvi::physical {
namespace {

// A candidate tangent counts when its part perpendicular to the normal is
// longer than this (squared, for unit-sized inputs).
constexpr float kMinTangentLengthSquared = 1e-12f;
// The shortest rotation between two normals is taken as a half turn about the
// tangent when they are this close to opposite.
constexpr float kOppositeCosine = -0.9999f;

// True when v has a part perpendicular to the unit n long enough to serve as
// a tangent: |v|^2 - (v . n)^2, both dot products side by side.
bool hasPerpendicularPart(const float v[3], const float n[3]) {
  const float along = dot3(v, n);
  return dot3(v, v) - along * along > kMinTangentLengthSquared;
}

// Turns t by the shortest rotation that takes the unit vector from to the
// unit vector to (Rodrigues' formula with k = from x to, c = from . to).
void rotateAlong(const float from[3], const float to[3], float t[3]) {
  const float c = dot3(from, to);
  if (!(c > kOppositeCosine)) return;  // a half turn about t leaves it as it is
  float k[3], kxt[3];
  cross3(from, to, k);
  cross3(k, t, kxt);
  const float share = dot3(k, t) / (1.0f + c);
  for (int i = 0; i < 3; ++i) t[i] = t[i] * c + kxt[i] + k[i] * share;
}

}  // namespace

void startFrame(const float hostFrame[9], const float tangent[3], const float bitangent[3], const float normal[3],
                float frame[9]) {
  float* t = frame;
  setAll3(frame + 3, 0.0f);
  copy3(frame + 6, normal);
  if (hasPerpendicularPart(tangent, normal)) {
    copy3(t, tangent);
    return;
  }
  cross3(bitangent, normal, t);
  if (hasPerpendicularPart(t, normal)) return;
  if (hasPerpendicularPart(hostFrame, normal)) {
    copy3(t, hostFrame);
    return;
  }
  completeFrame(normal, t, frame + 3);
}

void initialFrame(const float hostFrame[9], const float tangent[3], const float bitangent[3], const float normal[3],
                  float frame[9]) {
  startFrame(hostFrame, tangent, bitangent, normal, frame);
  orthonormalizeFrame(frame);
}

void rotateFrame(float frame[9], float angle) {
  if (angle == 0.0f) return;
  rotateFrameBy(frame, std::cos(angle), std::sin(angle));
}

void rotateFrameBy(float frame[9], float cosine, float sine) {
  for (int i = 0; i < 3; ++i) {
    const float t = frame[i], b = frame[3 + i];
    frame[i] = t * cosine + b * sine;
    frame[3 + i] = -t * sine + b * cosine;
  }
}

void bendFrame(const float q[3], float frame[9]) {
  if (q[0] == 0.0f && q[1] == 0.0f && q[2] > 0.0f) return;  // no perturbation
  float* n = frame + 6;
  float bent[3];
  for (int i = 0; i < 3; ++i) bent[i] = q[0] * frame[i] + q[1] * frame[3 + i] + q[2] * n[i];
  if (!(normalizeIfNonZero(bent) > 0.0f)) return;
  rotateAlong(n, bent, frame);
  copy3(n, bent);
  orthonormalizeFrame(frame);
}

void bendFrameTowardViewer(const float p[3], const float q[3], float frame[9]) {
  float* n = frame + 6;
  float oldNormal[3];
  copy3(oldNormal, n);
  bendFrame(q, frame);
  if (!(dot3(p, n) > 0.0f)) return;
  // The viewer would lie behind the bent surface: stand the normal
  // perpendicular to the view, tilted by 0.01 toward the viewer.
  const float a[3] = {-p[0], -p[1], -p[2]};
  float s[3], d[3];
  cross3(a, oldNormal, s);
  normalizeIfNonZero(s);
  cross3(a, s, d);
  normalizeIfNonZero(d);
  for (int i = 0; i < 3; ++i) n[i] = d[i] - 0.01f * p[i];
  orthonormalizeFrame(frame);
}

}  // namespace kvi::physical
