// The surface routines of the basic family: culling, coverage, the surface
// colour (parameter, vertex or per-object colour, optionally textured), the
// cut-outs, emission with the gathered light, and the cosine-distributed
// diffuse direction. BasicMaterial, SolidEffect and VertexColorEffect all
// shade through them.
//
// The routines read a shader's parameter fields by name, so every member of
// the family shares them whatever its field order. A shader that fixes one
// of the choices (VertexColorEffect always takes the vertex colour and always
// modulates) declares that choice as a constant of the parameter's name, and
// the routines read it as they read a field; a shader without a "diffuse" or
// an "opacity" (the vertex colour replaces both there) skips them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/constants.h"
#include "frame/surface.h"
#include "kvi/context.h"
#include "kvi/shader.h"
#include "kvi/state.h"
#include "materials/basic/basic_common.h"

// The parameters every member of the family opens with (the global clipping
// planes) and ends with (the per-object colour and culling, then the two
// varyings), in that order.
#define KVI_BASIC_CLIPPING_PARAMETERS(PARAM)                                        \
  PARAM(ClippingMap, u_globalClippingMap, doc("table of clipping planes"), unbound) \
  PARAM(Bool, u_globalClippingMapEnable,                                            \
        doc("test the global clipping planes; hits on the cut side are removed"),   \
        false)

#define KVI_BASIC_CLOSING_PARAMETERS(PARAM, VARYING)                                                                \
  PARAM(Bool, use_extra_color_and_alpha, doc("allow the per-object colour and alpha to override"), false)           \
  PARAM(Int, cull_mode,                                                                                             \
        doc("face culling: 1 removes back faces, 2 front faces, other values nothing", "0, 1 or 2"),                \
        0)                                                                                                          \
  PARAM(Color4, u_extra_color_and_alpha,                                                                            \
        doc("per-object colour and alpha (set by the host per object)", "0 to 1 per channel"),                      \
        {0.0f, 0.0f, 0.0f, 1.0f})                                                                                   \
  PARAM(Bool, u_extra_color_and_alpha_is_set, doc("the per-object colour is valid (both flags are needed)"), false) \
  VARYING(Uv, uv, 0)                                                                                                \
  VARYING(Color, vtxcolor, 8)

namespace kvi::basic {

// All six material operations: every member of the family but PhongReflective.
inline constexpr uint32_t kSurfaceOperations = kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface |
                                               kOpShadowTransmission | kOpEvaluateBsdf | kOpSampleBsdf;

using ::kvi::kInvPi;
using ::kvi::kMinDiffuseCosine;
using ::kvi::kTwoPi;
// The diffuse pick of sampleBsdf stores 0.3183099 (0x3EA2F984), two units in
// the last place above kInvPi. Both are kept deliberately.
inline constexpr float kDiffuseDensity = 0.3183099f;
// max(E) must exceed this for gathered light to count.
inline constexpr float kIrradianceFloor = 1e-5f;
// Where the family's two varyings sit in the state's varying area.
inline constexpr int kUvOffset = 0;
inline constexpr int kVertexColorOffset = 8;

using ::kvi::clampUnit;
using ::kvi::max3;

// "cull_mode" 1 removes back faces, 2 front faces; any other value nothing.
template <class Surface>
bool culled(const Surface& s, const ShadingState* state) {
  return (s.cull_mode == 2 && state->frontFacing) || (s.cull_mode == 1 && !state->frontFacing);
}

template <class Surface>
bool extraColorApplies(const Surface& s) {
  return s.use_extra_color_and_alpha && s.u_extra_color_and_alpha_is_set;
}

template <class Surface>
bool diffuseMapApplies(const Surface& s) {
  return s.use_diffuse_map && s.diffuse_map.sampler;
}

inline void vertexColor(const ShadingState* state, float rgba[4]) {
  std::memcpy(rgba, state->varyings + kVertexColorOffset, 4 * sizeof(float));
}

// The diffuse texel at the transformed uv, (0, 0, 0, 1) when no texture is
// bound. The row vector is (u, v, 1, 1) here, unlike the uv clip rectangle's
// (u, v, 0, 1): both are deliberate.
template <class Surface>
void diffuseTexel(const Surface& s, const ShadingState* state, float texel[4]) {
  texel[0] = texel[1] = texel[2] = 0.0f;
  texel[3] = 1.0f;
  if (!s.diffuse_map.sampler) return;
  float uvPair[2];
  std::memcpy(uvPair, state->varyings + kUvOffset, sizeof uvPair);
  const float* m = s.diffuse_map_transform;
  const float coords[2] = {uvPair[0] * m[0] + uvPair[1] * m[4] + m[8] + m[12],
                           uvPair[0] * m[1] + uvPair[1] * m[5] + m[9] + m[13]};
  s.diffuse_map.sampler->sample(texel, coords);
}

// 1 - coverage, the coverage being the opacity (or the vertex alpha), times
// the texture's alpha and the extra alpha where they apply, clamped to [0, 1].
template <class Surface>
float transparencyOf(const Surface& s, const ShadingState* state) {
  float coverage = 1.0f;
  if constexpr (requires { s.opacity; }) coverage = s.opacity;
  if (s.use_diffuse_vertex_color) {
    float rgba[4];
    vertexColor(state, rgba);
    coverage = rgba[3];
  }
  if (diffuseMapApplies(s)) {
    float texel[4];
    diffuseTexel(s, state, texel);
    if (s.use_diffuse_map_alpha) coverage = coverage * texel[3];
  }
  if (extraColorApplies(s)) coverage = coverage * s.u_extra_color_and_alpha[3];
  return 1.0f - clampUnit(coverage);
}

// The surface colour: the extra colour, else the vertex colour, else
// "diffuse"; with the map, the tinted texel blended over it by its alpha
// (decal) or multiplying it (modulate).
template <class Surface>
void surfaceColor(const Surface& s, const ShadingState* state, float color[3]) {
  float base[3] = {1.0f, 1.0f, 1.0f};
  if (extraColorApplies(s)) {
    copy3(base, s.u_extra_color_and_alpha);
  } else if (s.use_diffuse_vertex_color) {
    float rgba[4];
    vertexColor(state, rgba);
    copy3(base, rgba);
  } else if constexpr (requires { s.diffuse; }) {
    copy3(base, s.diffuse);
  }
  if (!s.use_diffuse_map) {
    copy3(color, base);
    return;
  }
  float texel[4];
  diffuseTexel(s, state, texel);
  const float alpha = texel[3];
  for (int i = 0; i < 3; ++i) {
    const float tinted = texel[i] * s.diffuse_map_tint[i];
    color[i] = s.use_decal_mode ? alpha * tinted + (1.0f - alpha) * base[i] : base[i] * tinted;
  }
}

// The global clipping planes first, then the uv clip rectangle.
template <class Surface>
void testCutout(const Surface& s, ShadingState* state) {
  if (s.u_globalClippingMapEnable && !clippingMapKeeps(s.u_globalClippingMap, state->position)) {
    state->cutAway = 1;
    return;
  }
  if (!s.use_uv_clip) {
    state->cutAway = 0;
    return;
  }
  float uvPair[2];
  std::memcpy(uvPair, state->varyings + kUvOffset, sizeof uvPair);
  state->cutAway = uvOutsideUnitSquare(uvPair[0], uvPair[1], s.uv_clip_transform) ? 1 : 0;
}

// Emission, then (unless the ray is an illumination ray) the gathered
// irradiance reflected by the diffuse share 1 - reflectionShare of the
// coverage. A culled hit gives nothing.
template <class Surface>
void emitAndGather(const Surface& s, IShadingContext* context, ShadingState* state, float reflectionShare) {
  state->radianceDone = 1;
  if (culled(s, state)) {
    setAll3(state->radiance, 0.0f);
    return;
  }
  const float tr = transparencyOf(s, state);
  for (int i = 0; i < 3; ++i) state->radiance[i] = (1.0f - tr) * s.emissive[i];
  if (context->isRayKind(8)) return;

  float buffer[3];
  const float* irradiance = context->gatherIrradiance(buffer, state->position, state->normal);
  if (!(max3(irradiance) > kIrradianceFloor)) return;
  float color[3];
  surfaceColor(s, state, color);
  for (int i = 0; i < 3; ++i)
    state->radiance[i] += (1.0f - tr) * (1.0f - reflectionShare) * irradiance[i] * color[i] * kInvPi;
}

// The culled hit's continuation: straight on through, unless the ray kind
// decided a reflection, which ends the path.
inline void passCulledHit(ShadingState* state, bool pathEnds) {
  copy3(state->sampledDirection, state->rayDirection);
  state->pdf = 1.0f;
  state->pdfSecondary = 1.0f;
  setAll3(state->bsdfWeight, pathEnds ? 0.0f : 1.0f);
  state->lobeFlags = pathEnds ? 0 : 64;
}

// The straight passage through a partly transparent surface, chosen with
// probability passProbability.
inline void passThrough(ShadingState* state, float transparency, float passProbability) {
  state->lobeFlags = 64;
  copy3(state->sampledDirection, state->rayDirection);
  state->pdf = 1.0f;
  state->pdfSecondary = 1.0f;
  setAll3(state->bsdfWeight, transparency / passProbability);
}

// A cosine-distributed direction on the side of the normal the ray came
// from, never closer to the surface than one degree. Sets the direction,
// pdf 1, the diffuse density as pdfSecondary and lobe flag 1; the caller sets
// the weight.
inline void sampleDiffuse(IShadingContext* context, ShadingState* state) {
  float side[3];
  copy3(side, state->normal);
  if (dot3(state->normal, state->rayDirection) > 0.0f)
    for (float& c : side) c = -c;
  float tangent[3], bitangent[3];
  completeFrame(side, tangent, bitangent);
  float buffer[2];
  const float* xi = context->nextSample2D(buffer);
  const float phi = kTwoPi * xi[0];
  const float r = std::sqrt(xi[1]);
  const float z = std::max(std::sqrt(1.0f - xi[1]), kMinDiffuseCosine);
  const float rc = r * std::cos(phi);
  const float rs = r * std::sin(phi);
  for (int i = 0; i < 3; ++i) state->sampledDirection[i] = tangent[i] * rc + bitangent[i] * rs + side[i] * z;
  state->pdf = 1.0f;
  state->pdfSecondary = kDiffuseDensity;
  state->lobeFlags = 1;
}

}  // namespace kvi::basic
