// What the Ward material and its generated variants compute at a hit, once
// for both: the scalar channels, the transparency, the diffuse colour with
// its image fade, the Fresnel reflectance, the shading and glossy frames, the
// lobe widths and the cutout coverage. The functions are templates over the
// material class (the base and each variant name their shared parameters
// alike); what differs between them comes in as WardSources (the per-object
// colour of the base, the node graphs of a variant) and as the class's own
// glossinessAt(uv) and normal0UvScale().
#pragma once

#include <cmath>
#include <cstdint>

#include "frame/vector3.h"
#include "kvi/context.h"
#include "kvi/state.h"
#include "materials/physical/channels.h"
#include "materials/physical/frames.h"
#include "materials/physical/lobes.h"
#include "materials/ward/nodes.h"

namespace kvi::ward {

// 1 / pi of the Ward lobe (bits 0x3EA2F984) and 4 pi.
inline constexpr float kWardInvPi = 0.3183099f;
inline constexpr float kWardFourPi = 12.566372f;

// Inputs of a hit that are not plain parameters: the per-object colour of
// the base material, and the colours of a variant's node graphs, each
// replacing the texel (and, for the diffuse colour, the constant) of its
// channel.
struct WardSources {
  bool byObject = false;
  float object[4] = {0.0f, 0.0f, 0.0f, 1.0f};  // rgb and alpha of the per-object colour
  const NodeColor* diffuse = nullptr;
  const NodeColor* normal0 = nullptr;
  const NodeColor* cutout = nullptr;
};

// The two frames of a hit and the ray direction in each.
struct WardFrames {
  float shading[9];      // the diffuse layer's: normal map 0 only (or all bends with u_normal1AsShadingNormal)
  float glossy[9];       // the glossy layer's: every bend
  float viewShading[3];  // the ray direction (towards the surface) in the shading frame
  float viewGlossy[3];   // ... and in the glossy frame
};

// Everything the operations read of a hit.
struct WardHit {
  float uv[2];
  WardFrames frames;
  float diffuse[3];      // D, darkened for metals
  float specular[3];     // Cs
  float reflectance;     // Rf at the shading frame's view cosine
  float transparency;    // T
  float coverage;        // the cutout value, 1 without cutout
  float glossiness;      // after the host's bias, not below 0
  float anisotropy;      // the ratio of the lobe's widths across and along the tangent
  float widthX, widthY;  // lobe widths: reflectanceCurve(glossiness), times the anisotropy across
};

// ---- plain arithmetic (ward_surface.cpp) ----------------------------------

// The image fade's overlay then multiply blend of D towards G by t.
void fadeBlend(float d[3], const float g[3], float t);

// Mode 4's fade colour: the noise colour with the fixed settings at the hit
// point scaled by 0.2 (its footprint hides every octave: the average).
void builtInNoiseFade(IShadingContext* context, const float position[3], float g[3]);

// The anisotropic Ward lobe (BRDF value per channel) for the incoming i
// (towards the surface) and outgoing o, in the glossy frame.
void wardLobe(const float i[3], const float o[3], const float cd[3], const float cs[3], float ax, float ay,
              float out[3]);

// The built-in procedural bump of a mode at the hit, as a perturbation p in
// the frame's coordinates (x along the tangent, y the bitangent, z the
// normal); false when the mode adds nothing.
struct ProceduralBump {
  int32_t mode;
  const float* tiling;  // 3 floats
  float amount;
  const ClippingMapRef* smokeMap;
};
bool proceduralBump(IShadingContext* context, const ProceduralBump& bump, const float position[3], const float frame[9],
                    float p[3]);

// ---- channels of a hit ------------------------------------------------------

template <class M>
float transparencyOf(const M& m, const float uv[2], const WardSources& s) {
  const float objectAlpha = s.object[3];
  if (!m.u_transparency) return s.byObject ? 1.0f - objectAlpha : 0.0f;
  float t = m.u_transparencyValue;
  if (m.u_transparencyMapEnable && m.u_transparencyMap.sampler) {
    float texel[4];
    physical::sampleChannel(m.u_transparencyMap, m.u_transparencyTransform, uv, texel);
    t = (1.0f - m.u_transparencyFade) * m.u_transparencyValue +
        texel[0] * m.u_transparencyAmount * m.u_transparencyFade;
  }
  if (s.byObject) t = (1.0f - objectAlpha) * t;
  return t;
}

template <class M>
float translucencyOf(const M& m, const float uv[2]) {
  if (!m.u_transparency) return 0.0f;
  return physical::scalarChannel(m.u_translucencyMapEnable, m.u_translucencyMap, m.u_translucencyTransform,
                                 m.u_translucencyValue, m.u_translucencyAmount, uv);
}

// The cutout value: 1 without cutout; else the map's (or graph's) red x amount.
template <class M>
float coverageOf(const M& m, const float uv[2], const WardSources& s) {
  if (!m.u_cutoutMapEnable) return 1.0f;
  if (s.cutout) return s.cutout->c[0] * m.u_cutoutAmount;
  return physical::scalarChannel(1, m.u_cutoutMap, m.u_cutoutTransform, 0.0f, m.u_cutoutAmount, uv);
}

template <class M>
void specularOf(const M& m, const float uv[2], float cs[3]) {
  physical::colorChannel(m.u_specularMapEnable, m.u_specularMap, m.u_specularTransform, m.u_specularColor,
                         m.u_specularAmount, uv, cs);
}

// R(mu): the Fresnel curve between the F0 and F90 channels, times the reflectivity.
template <class M>
float reflectanceOf(const M& m, const float uv[2], float mu) {
  const float f0 = physical::scalarChannel(m.u_brdf00ReflectMapEnable, m.u_brdf00ReflectMap, m.u_brdf00ReflectTransform,
                                           m.u_brdf00Reflectivity, m.u_brdf00ReflectAmount, uv);
  const float f90 =
      physical::scalarChannel(m.u_brdf90ReflectMapEnable, m.u_brdf90ReflectMap, m.u_brdf90ReflectTransform,
                              m.u_brdf90Reflectivity, m.u_brdf90ReflectAmount, uv);
  return physical::angularReflectivity(mu, f0, f90, m.u_brdfCurvePower) * m.u_reflectivity;
}

// The diffuse colour D, before any metal darkening.
template <class M>
void diffuseOf(const M& m, IShadingContext* context, const ShadingState* state, const float uv[2], const WardSources& s,
               float d[3]) {
  float base[3];
  const float* from = s.byObject ? s.object : s.diffuse ? s.diffuse->c : m.u_diffuseColor;
  copy3(base, from);
  copy3(d, base);
  if (m.u_diffuseMapEnable) {
    float texel[4];
    if (s.diffuse)
      for (int i = 0; i < 4; ++i) texel[i] = s.diffuse->c[i];
    else
      physical::sampleChannel(m.u_diffuseMap, m.u_diffuseTransform, uv, texel);
    for (int i = 0; i < 3; ++i) d[i] = texel[i] * m.u_diffuseAmount;
    if (m.u_imageFadeEnable == 1) {
      const float a = texel[3] * m.u_imageFade;
      for (int i = 0; i < 3; ++i) d[i] = d[i] * a + (1.0f - a) * base[i];
    } else if (s.byObject) {
      copy3(d, s.object);  // the per-object colour wins over the map
    }
  }
  if (m.u_imageFadeEnable > 1) {
    float g[3];
    switch (m.u_imageFadeEnable) {
      case 2: {
        float texel[4];
        physical::sampleChannel(m.u_imageFadeMap, m.u_imageFadeTransform, uv, texel);
        for (int i = 0; i < 3; ++i) g[i] = texel[i] * m.u_imageFadeAmount;
        break;
      }
      case 3:
        copy3(g, m.u_imageFadeColor);
        break;
      case 4:
        builtInNoiseFade(context, state->position, g);
        break;
      default:
        copy3(g, d);
        break;
    }
    fadeBlend(d, g, m.u_imageFade);
  }
}

// D x (1 - luminance(Cs) x Rf) for metals.
inline void darkenForMetal(float d[3], const float cs[3], float rf) {
  const float luminance = physical::luminance(cs);
  for (int i = 0; i < 3; ++i) d[i] *= 1.0f - luminance * rf;
}

// ---- frames -------------------------------------------------------------------

// Without `glossy` (an operation that reads only the shading frame), the
// bends that only the glossy frame gets are skipped and it is left as the
// shading frame.
template <class M>
void framesOf(const M& m, IShadingContext* context, const ShadingState* state, const float uv[2], const WardSources& s,
              bool glossy, WardFrames& f) {
  float tangent[3], bitangent[3];
  physical::readVarying(state, physical::kTangentOffset, tangent);
  physical::readVarying(state, physical::kBitangentOffset, bitangent);
  float* frame = f.glossy;
  physical::initialFrame(state->tangentFrame, tangent, bitangent, state->normal, frame);
  if (m.u_normal0MapEnable) {
    float slope[3];
    if (s.normal0) {
      const float strength = physical::normalMapStrength(m.u_normal0Amount, m.u_normal0AmountMapEnable,
                                                         m.u_normal0AmountMap, m.u_normal0AmountTransform, uv);
      physical::normalTexelSlope(s.normal0->c, strength, 1.0f, slope);
    } else {
      const float scale = m.normal0UvScale();
      const float scaled[2] = {uv[0] * scale, uv[1] * scale};
      physical::normalMapSlope(1, m.u_normal0Map, m.u_normal0Transform, m.u_normal0Amount, m.u_normal0AmountMapEnable,
                               m.u_normal0AmountMap, m.u_normal0AmountTransform, scaled, 1.0f, slope);
    }
    physical::bendFrameTowardViewer(state->rayDirection, slope, frame);
  }
  float afterNormal0[9];
  for (int i = 0; i < 9; ++i) afterNormal0[i] = frame[i];
  const bool bendsGlossy = glossy || m.u_normal1AsShadingNormal;
  if (bendsGlossy && m.u_normal1MapEnable) {
    float slope[3];
    physical::normalMapSlope(1, m.u_normal1Map, m.u_normal1Transform, m.u_normal1Amount, 0, m.u_normal1Map,
                             m.u_normal1Transform, uv, 1.0f, slope);
    physical::bendFrameTowardViewer(state->rayDirection, slope, frame);
  }
  if (bendsGlossy && m.u_procedureMapEnable > 0) {
    float p[3];
    const ProceduralBump bump{m.u_procedureMapEnable, m.u_procedureMapTiling, m.u_procedureMapAmount, &m.u_smokeMap};
    if (proceduralBump(context, bump, state->position, frame, p)) {
      const float q[3] = {p[0], p[1], 1.0f + p[2]};
      physical::bendFrameTowardViewer(state->rayDirection, q, frame);
    }
  }
  const float angle =
      physical::scalarChannel(m.u_anisoRotationMapEnable, m.u_anisoRotationMap, m.u_anisoRotationTransform,
                              m.u_anisoRotationValue, m.u_anisoRotationAmount, uv);
  physical::rotateFrame(frame, angle);
  if (m.u_normal1AsShadingNormal) {
    for (int i = 0; i < 9; ++i) f.shading[i] = frame[i];
  } else {
    for (int i = 0; i < 9; ++i) f.shading[i] = afterNormal0[i];
    physical::rotateFrame(f.shading, angle);
  }
  physical::toLocal(f.shading, state->rayDirection, f.viewShading);
  physical::toLocal(f.glossy, state->rayDirection, f.viewGlossy);
}

// ---- the whole hit ----------------------------------------------------------

template <class M>
void evaluateHit(const M& m, IShadingContext* context, const ShadingState* state, const WardSources& s, WardHit& hit,
                 bool glossy = true) {
  physical::readVarying(state, physical::kUvOffset, hit.uv);
  const float* uv = hit.uv;
  framesOf(m, context, state, uv, s, glossy, hit.frames);
  diffuseOf(m, context, state, uv, s, hit.diffuse);
  specularOf(m, uv, hit.specular);
  hit.reflectance = reflectanceOf(m, uv, -hit.frames.viewShading[2]);
  if (m.u_isMetal) darkenForMetal(hit.diffuse, hit.specular, hit.reflectance);
  hit.transparency = transparencyOf(m, uv, s);
  hit.coverage = coverageOf(m, uv, s);
  const float g = m.glossinessAt(uv) - state->glossinessBias;
  hit.glossiness = g > 0.0f ? g : 0.0f;
  hit.anisotropy = physical::scalarChannel(m.u_anisotropyMapEnable, m.u_anisotropyMap, m.u_anisotropyTransform,
                                           m.u_anisotropyValue, m.u_anisotropyAmount, uv);
  hit.widthX = physical::reflectanceCurve(hit.glossiness);
  hit.widthY = hit.widthX * hit.anisotropy;
}

// The shadow transmission of a hit, per channel: the opaque share 1 - T,
// or for a transparent surface what is not let through, (1 - R(mu)) w of it
// passing with w = T (1 - translucency (1 - 1/pi)), white in the share w and
// diffuse-coloured in the rest (tinted); then scaled by the cutout value.
template <class M>
void shadowTransmissionOf(const M& m, IShadingContext* context, const ShadingState* state, const WardSources& s,
                          float out[3]) {
  float uv[2];
  physical::readVarying(state, physical::kUvOffset, uv);
  const float transparency = transparencyOf(m, uv, s);
  float opaque[3];
  setAll3(opaque, 1.0f - transparency);
  if (m.u_transparency) {
    const float mu = clampUnit(-dot3(state->rayDirection, state->normal));
    const float w = transparency * (1.0f - translucencyOf(m, uv) * 0.68169016f);  // 1 - 1/pi
    const float k = (1.0f - reflectanceOf(m, uv, mu)) * w;
    float d[3];
    diffuseOf(m, context, state, uv, s, d);
    float passed[3];
    for (int i = 0; i < 3; ++i) passed[i] = (w + d[i] * (1.0f - w)) * k;
    physical::applyTint(m.u_commonTintEnable, m.u_commonTintColor, passed);
    for (int i = 0; i < 3; ++i) opaque[i] = 1.0f - passed[i];
  }
  const float coverage = coverageOf(m, uv, s);
  for (int i = 0; i < 3; ++i) out[i] = 1.0f - coverage * opaque[i];
}

}  // namespace kvi::ward
