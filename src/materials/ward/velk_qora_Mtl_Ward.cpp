// velk_qora_Mtl_Ward: the anisotropic Ward material. A diffuse layer (with
// image fade, metal darkening, transparency and translucency) under a
// Fresnel-weighted glossy layer whose highlight is an anisotropic Gaussian
// lobe in a frame bent by two normal maps and a procedural bump and turned by
// the anisotropy rotation; emission, a cutout, decals and global clipping.
// What the hit reads is computed in ward_surface.h, shared with the
// generated variants.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "frame/surface.h"
#include "materials/ward/ward_parameters.h"
#include "materials/ward/ward_sampling.h"
#include "materials/ward/ward_surface.h"

namespace kvi {

#define KVI_WARD_PARAMETERS(PARAM, VARYING)                                                                  \
  KVI_WARD_COSINE_USES_BUMP(PARAM)                                                                           \
  KVI_WARD_VARYINGS(VARYING)                                                                                 \
  PARAM(Bool, u_colorByObject,                                                                               \
        doc("take the diffuse colour and the opacity from u_extra_color_and_alpha when that is set"), false) \
  KVI_WARD_REFLECTION_HIGHLIGHT_ONLY(PARAM)                                                                  \
  KVI_WARD_TINT(PARAM)                                                                                       \
  KVI_WARD_DIFFUSE(PARAM, KVI_WARD_BLACK)                                                                    \
  KVI_WARD_IMAGE_FADE(PARAM)                                                                                 \
  KVI_WARD_TRANSPARENCY(PARAM)                                                                               \
  KVI_WARD_DECAL(PARAM)                                                                                      \
  KVI_WARD_TRANSLUCENCY(PARAM)                                                                               \
  KVI_WARD_SPECULAR(PARAM)                                                                                   \
  PARAM(Bool, u_glossinessMapEnable, doc("take the glossiness from its map"), false)                         \
  PARAM(Texture, u_glossinessMap, doc("glossiness map (red)"), unbound)                                      \
  PARAM(Float, u_glossinessValue,                                                                            \
        doc("glossiness; the highlight's width falls from 1 at 0 to a mirror at 1", "0 to 1"), 0.01f)        \
  PARAM(Matrix3, u_glossinessTransform, doc("uv transform of the glossiness map"), unset)                    \
  PARAM(Float, u_glossinessAmount, doc("scale of the glossiness map", "0 or more"), 1.0f)                    \
  KVI_WARD_REFLECTIVITY(PARAM)                                                                               \
  KVI_WARD_PROCEDURE(PARAM)                                                                                  \
  KVI_WARD_ANISOTROPY(PARAM)                                                                                 \
  KVI_WARD_ANISO_ROTATION(PARAM)                                                                             \
  KVI_WARD_BRDF(PARAM)                                                                                       \
  KVI_WARD_CUTOUT(PARAM, false)                                                                              \
  KVI_WARD_NORMAL0_ENABLE(PARAM, false)                                                                      \
  KVI_WARD_NORMAL0_MAP(PARAM)                                                                                \
  KVI_WARD_NORMAL0_TRANSFORM(PARAM)                                                                          \
  KVI_WARD_NORMAL0_AMOUNT(PARAM, 0.0f)                                                                       \
  PARAM(Float, u_normal0UVScale,                                                                             \
        doc("scale of the uv at which normal map 0 and its strength map are read", "above 0"), 1.0f)         \
  KVI_WARD_NORMAL0_AMOUNT_MAP_ENABLE(PARAM)                                                                  \
  KVI_WARD_NORMAL0_AMOUNT_MAP(PARAM)                                                                         \
  KVI_WARD_NORMAL0_AMOUNT_TRANSFORM(PARAM)                                                                   \
  KVI_WARD_NORMAL1_ENABLE(PARAM)                                                                             \
  KVI_WARD_NORMAL1_MAP(PARAM)                                                                                \
  KVI_WARD_NORMAL1_TRANSFORM(PARAM)                                                                          \
  KVI_WARD_NORMAL1_AMOUNT(PARAM)                                                                             \
  KVI_WARD_NORMAL1_AS_SHADING_NORMAL(PARAM)                                                                  \
  KVI_WARD_ADDITIONAL(PARAM)                                                                                 \
  PARAM(Bool, u_emissionIlluminates,                                                                         \
        doc("the emission also reaches illumination rays (kind 8): the surface lights others"), true)        \
  KVI_WARD_CLIPPING(PARAM)                                                                                   \
  PARAM(Color4, u_extra_color_and_alpha, doc("per-object colour and opacity", "0 to 1 per channel"),         \
        {0.0f, 0.0f, 0.0f, 1.0f})                                                                            \
  PARAM(Bool, u_extra_color_and_alpha_is_set, doc("the per-object colour is valid"), false)

using ward::WardEvent;
using ward::WardHit;

class velk_qora_Mtl_Ward final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_Ward,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpShadowTransmission |
                            kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_WARD_PARAMETERS)

  // What ward_surface.h asks of a Ward-like material besides the shared fields.
  float glossinessAt(const float uv[2]) const {
    return physical::scalarChannel(u_glossinessMapEnable, u_glossinessMap, u_glossinessTransform, u_glossinessValue,
                                   u_glossinessAmount, uv);
  }
  float normal0UvScale() const { return u_normal0UVScale; }

  // The same body as the dielectric material's: a fixed colour.
  void shadeSurface(IShadingContext*, ShadingState* state) override {
    const float fixed[4] = {1.0f, 0.1f, 1.0f, 1.0f};
    for (int i = 0; i < 4; ++i) state->surfaceResult[i] = fixed[i];
  }

  void shadowTransmission(IShadingContext* context, ShadingState* state) override {
    ward::shadowTransmissionOf(*this, context, state, sources(), state->shadowTransmission);
  }

  void evaluateBsdf(IShadingContext* context, ShadingState* state) override {
    WardHit hit;
    ward::evaluateHit(*this, context, state, sources(), hit);
    float towardsLight[3], inShading[3];
    physical::toLocal(hit.frames.glossy, state->sampledDirection, towardsLight);
    physical::toLocal(hit.frames.shading, state->sampledDirection, inShading);
    const float* v = hit.frames.viewGlossy;
    const float half[3] = {towardsLight[0] - v[0], towardsLight[1] - v[1], towardsLight[2] - v[2]};
    const float centre[3] = {0.0f, 0.0f, 0.0f};
    const float lobe = towardsLight[2] > 0.0f
                           ? physical::anisotropicHalfVectorLobe(centre, half, hit.widthX, hit.widthY) * towardsLight[2]
                           : 0.0f;
    const float cosine = std::fabs(inShading[2]);
    for (int i = 0; i < 3; ++i) {
      const float diffuse =
          hit.diffuse[i] * cosine * physical::kInvPi * (1.0f - hit.reflectance) * (1.0f - hit.transparency);
      state->bsdfWeight[i] = diffuse + hit.specular[i] * hit.reflectance * lobe;
    }
    if (u_cutoutMapEnable)
      for (int i = 0; i < 3; ++i) state->bsdfWeight[i] *= hit.coverage;
    physical::applyTint(u_commonTintEnable, u_commonTintColor, state->bsdfWeight);
    state->pdf = 1.0f;
    state->pdfSecondary = 1.0f;
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override;

  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    state->radianceDone = 1;
    float emitted[3] = {0.0f, 0.0f, 0.0f};
    float uv[2];
    physical::readVarying(state, physical::kUvOffset, uv);
    if (state->frontFacing && (u_emissionIlluminates || !context->isRayKind(kIlluminationRays)))
      physical::colorChannel(u_additionalMapEnable, u_additionalMap, u_additionalMapTransform, u_additionalColor,
                             u_additionalAmount, uv, emitted);
    if (!context->isRayKind(kIlluminationRays)) {
      float buffer[3];
      const float* irradiance = context->gatherIrradiance(buffer, state->position, state->normal);
      if (max3(irradiance) > 1e-5f) {
        WardHit hit;
        ward::evaluateHit(*this, context, state, sources(), hit, /*glossy=*/false);
        for (int i = 0; i < 3; ++i)
          emitted[i] +=
              irradiance[i] * (1.0f - hit.reflectance) * (1.0f - hit.transparency) * hit.diffuse[i] * physical::kInvPi;
      }
    }
    physical::applyTint(u_commonTintEnable, u_commonTintColor, emitted);
    if (u_cutoutMapEnable) {
      const float coverage = ward::coverageOf(*this, uv, sources());
      for (int i = 0; i < 3; ++i) emitted[i] *= coverage;
    }
    copy3(state->radiance, emitted);
  }

  void testCutout(IShadingContext*, ShadingState* state) override {
    if (u_isDecal) {
      float uv[2];
      physical::readVarying(state, physical::kUvOffset, uv);
      if (uvOutsideUnitSquare(uv[0], uv[1], u_decalTransform)) {
        state->cutAway = 1;
        return;
      }
    }
    state->cutAway = u_globalClippingMapEnable && !clippingMapKeeps(u_globalClippingMap, state->position) ? 1 : 0;
  }

 private:
  // Rays the host reports as kind 8 (illumination rays).
  static constexpr int32_t kIlluminationRays = 8;

  ward::WardSources sources() const {
    ward::WardSources s;
    s.byObject = physical::perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set);
    for (int i = 0; i < 4; ++i) s.object[i] = u_extra_color_and_alpha[i];
    return s;
  }

  // The events of a hit, in the order they are offered.
  enum Event { kPass, kReflect, kRefract, kTranslucent, kDiffuse, kEventCount };
  void offeredEvents(IShadingContext* context, const WardHit& hit, WardEvent (&events)[kEventCount]) const;
  void writeEvent(IShadingContext* context, ShadingState* state, const WardHit& hit, int event, float scale,
                  const WardEvent& chosen) const;
};

// ---- sampleBsdf -------------------------------------------------------------
//
// The events, offered in this order and chosen by chooseEvent (one binary
// choice after another, snapped and kept within the near-certain bands):
//   pass-through (64)     1 - coverage, with the cutout on
//   reflection (2 or 4)   Cs Rf: glossy, drawn from the anisotropic lobe at the
//                         sampling widths, when the host accepts a glossy
//                         bounce of roughness 1 - glossiness; else a mirror
//   refraction (8)        (1 - Rf) T (1 - s), by u_ior (transparent only)
//   translucency (32)     (1 - Rf) T s D, cosine-distributed behind the surface
//                         (transparent only), where s = translucency +
//                         (1 - translucency) (1 - mu)^5.5: light crossing at a
//                         grazing angle leaves more diffusely
//   diffuse (1)           (1 - Rf) (1 - T) D, when the host samples diffuse events
// every surface event times the coverage and the tint. The weight written is
// the event's colour / its probability (times the lobe sampler's weight for a
// glossy event). pdf and pdfSecondary are 1, except for a glossy event, which
// reports the density of its direction (floored at 0.001) in pdfSecondary and
// carries it in its weight, so that weight x pdf / pdfSecondary stays the
// estimate. No event offered, or a glossy draw that fails: lobeFlags 0.

void velk_qora_Mtl_Ward::offeredEvents(IShadingContext* context, const WardHit& hit,
                                       WardEvent (&events)[kEventCount]) const {
  const float rf = hit.reflectance, t = hit.transparency;
  const float surface = u_cutoutMapEnable ? hit.coverage : 1.0f;
  float tint[3] = {1.0f, 1.0f, 1.0f};
  physical::applyTint(u_commonTintEnable, u_commonTintColor, tint);
  for (auto& e : events) setAll3(e.weight, 0.0f);
  if (u_cutoutMapEnable) setAll3(events[kPass].weight, 1.0f - hit.coverage);
  float translucent = 0.0f;
  if (u_transparency) {
    const float tl = ward::translucencyOf(*this, hit.uv);
    const float mu = clampUnit(-hit.frames.viewShading[2]);
    translucent = tl + (1.0f - tl) * std::pow(1.0f - mu, 5.5f);
  }
  const bool diffuseSampled = context->isDiffuseSampled() != 0;
  for (int i = 0; i < 3; ++i) {
    const float layer = surface * tint[i];
    events[kReflect].weight[i] = hit.specular[i] * rf * layer;
    if (u_transparency) {
      events[kRefract].weight[i] = (1.0f - rf) * t * (1.0f - translucent) * layer;
      events[kTranslucent].weight[i] = (1.0f - rf) * t * translucent * hit.diffuse[i] * layer;
    }
    if (diffuseSampled) events[kDiffuse].weight[i] = (1.0f - rf) * (1.0f - t) * hit.diffuse[i] * layer;
  }
}

void velk_qora_Mtl_Ward::writeEvent(IShadingContext* context, ShadingState* state, const WardHit& hit, int event,
                                    float scale, const WardEvent& chosen) const {
  const float* glossyNormal = hit.frames.glossy + 6;
  float* out = state->sampledDirection;
  int32_t lobe = ward::kNoLobe;
  float factor = scale;
  switch (event) {
    case kPass:
      copy3(out, state->rayDirection);
      lobe = ward::kPassThrough;
      break;
    case kReflect: {
      const float wx = physical::samplingWidth(hit.widthX), wy = wx * hit.anisotropy;
      const bool glossy = wx > 0.0f && wy > 0.0f && std::isfinite(wx) && std::isfinite(wy) &&
                          context->acceptsGlossyBounce(1.0f - hit.glossiness);
      if (!glossy) {
        mirrorDirection(out, state->rayDirection, glossyNormal);
        lobe = ward::kMirrorReflection;
        break;
      }
      physical::LobeSample drawn;
      if (!physical::sampleAnisotropicLobe(context, hit.frames.viewGlossy, wx, wy, hit.frames.glossy, drawn)) {
        state->lobeFlags = ward::kNoLobe;
        setAll3(state->bsdfWeight, 0.0f);
        return;
      }
      copy3(out, drawn.direction);
      const float density = drawn.pdf > 0.001f ? drawn.pdf : 0.001f;
      factor = scale * drawn.weight * density;
      state->pdfSecondary = density;
      lobe = ward::kGlossyReflection;
      break;
    }
    case kRefract: {
      const float ior = u_ior > 0.0f ? u_ior : 1.0f;
      if (ward::refractDirection(state->rayDirection, glossyNormal, state->frontFacing ? 1.0f / ior : ior, out)) {
        lobe = ward::kSpecularTransmission;
      } else {
        mirrorDirection(out, state->rayDirection, glossyNormal);  // total internal reflection
        lobe = ward::kMirrorReflection;
      }
      break;
    }
    case kTranslucent:
    case kDiffuse: {
      float local[3];
      physical::sampleCosineHemisphere(context, local);
      if (event == kTranslucent) local[2] = -local[2];
      physical::toWorld(hit.frames.shading, local, out);
      lobe = event == kTranslucent ? ward::kDiffuseTransmission : ward::kDiffuseReflection;
      break;
    }
  }
  for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = chosen.weight[i] * factor;
  state->lobeFlags = lobe;
}

void velk_qora_Mtl_Ward::sampleBsdf(IShadingContext* context, ShadingState* state) {
  WardHit hit;
  ward::evaluateHit(*this, context, state, sources(), hit);
  WardEvent events[kEventCount];
  offeredEvents(context, hit, events);
  float scale;
  const int event = ward::chooseEvent(context, events, kEventCount, scale);
  state->pdf = 1.0f;
  state->pdfSecondary = 1.0f;
  if (event < 0) {
    state->lobeFlags = ward::kNoLobe;
    setAll3(state->bsdfWeight, 0.0f);
    return;
  }
  writeEvent(context, state, hit, event, scale, events[event]);
}

KVI_SHADER_FACTORY(velk_qora_Mtl_Ward)

}  // namespace kvi
