// The frame the dielectric and the metallic paint shade in: the shading
// normal turned to face the viewer (whichever side the host gave it on), the
// family's starting frame about it, bent by a slope (normal map, waves) with
// the family's viewer test, and the view direction in the result.
#pragma once

#include <cmath>

#include "kvi/state.h"
#include "materials/physical/channels.h"
#include "materials/physical/frames.h"
#include "materials/physical/microfacet.h"

namespace kvi::physical {

struct ViewFrame {
  float frame[9];            // tangent, bitangent, normal (world)
  float geometricNormal[3];  // faced towards the viewer
  microfacet::Vector view;   // towards the viewer, in the frame
};

inline microfacet::Vector localOf(const float frame[9], const float world[3]) {
  float local[3];
  toLocal(frame, world, local);
  return {local[0], local[1], local[2]};
}

inline void worldOf(const float frame[9], microfacet::Vector local, float world[3]) {
  const float l[3] = {local.x, local.y, local.z};
  toWorld(frame, l, world);
}

// The starting frame of a hit about its shading normal faced towards the
// viewer, from the "tangent" and "bitangent" varyings.
inline void startViewFrame(const ShadingState* state, ViewFrame& out) {
  const float* d = state->rayDirection;
  float normal[3], tangent[3], bitangent[3];
  copy3(normal, state->normal);
  copy3(out.geometricNormal, state->geometricNormal);
  for (float* n : {normal, out.geometricNormal})
    if (dot3(n, d) > 0.0f)
      for (int k = 0; k < 3; ++k) n[k] = -n[k];
  readVarying(state, kTangentOffset, tangent);
  readVarying(state, kBitangentOffset, bitangent);
  initialFrame(state->tangentFrame, tangent, bitangent, normal, out.frame);
}

// Bends the frame by the slope q (with the viewer test) and takes the view in it.
inline void finishViewFrame(const ShadingState* state, const float q[3], ViewFrame& out) {
  bendFrameTowardViewer(state->rayDirection, q, out.frame);
  const float towardsViewer[3] = {-state->rayDirection[0], -state->rayDirection[1], -state->rayDirection[2]};
  out.view = localOf(out.frame, towardsViewer);
}

inline bool finite3(const float v[3]) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

// evaluateBsdf's answer: the BSDF times the cosine (`value`, tint applied)
// and its density in both pdfs, or nothing at all where either is not finite.
inline void answerLightSample(ShadingState* state, const float value[3], float density) {
  const bool finite = finite3(value) && std::isfinite(density);
  for (int k = 0; k < 3; ++k) state->bsdfWeight[k] = finite ? value[k] : 0.0f;
  state->pdf = state->pdfSecondary = finite ? density : 0.0f;
}

// sampleBsdf's end of the path: no event, no weight.
inline void endPath(ShadingState* state) {
  state->lobeFlags = 0;
  setAll3(state->bsdfWeight, 0.0f);
}

// False when a world direction leaves on the wrong side of the geometric
// surface for its event (a bent normal can send a reflection into the
// surface or a refraction out of it).
inline bool leavesOnItsSide(const ViewFrame& f, const float direction[3], bool reflected) {
  const float side = dot3(direction, f.geometricNormal);
  return reflected ? !(side < 0.0f) : !(side > 0.0f);
}

}  // namespace kvi::physical
