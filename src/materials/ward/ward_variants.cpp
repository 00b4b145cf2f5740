// The generated Ward variants (velk_qora_Mtl_Ward_<suffix>): one class per
// line of variants.txt, stamped from the generated lists, and the whole-hit
// shading they share.
//
// shadeSurface of a variant, after the clipping test and its graphs:
//   direct light   every light sample of the host (collectLightSamples about
//                  the shading normal) through the anisotropic Ward lobe in
//                  the glossy frame, with the diffuse colour D (1 - Rf)(1 - T)
//                  and the specular colour Cs Rf, times the cosine;
//   diffuse light  the host's gathered irradiance (unless the ray is an
//                  illumination ray, kind 8) times D (1 - Rf)(1 - T) / pi;
//   emission       u_additionalColor (or its map), on the front side;
//   reflection     one ray traced in a direction drawn from the lobe's
//                  Gaussian at the evaluation widths, weighted by the Ward
//                  lobe's specular part x cosine / the direction's density
//                  (when the host allows a reflection from the hit);
//   transmission   for transparent surfaces, one ray along the refracted
//                  direction (blurred by the refraction glossiness), weighted
//                  by (1 - Rf) T (1 - s), and one cosine-distributed ray
//                  behind the surface weighted by (1 - Rf) T s D, with s the
//                  translucent share of sampleBsdf of the base material;
//   tint           over all of it;
//   cutout         with the cutout on, coverage c: c x the above + (1 - c) x
//                  a ray traced straight on; c not above 0 discards the hit.
// As with PhongReflective, a light's emitter that the traced reflection
// happens to hit is seen there as well as through the light loop.
#include "materials/ward/ward_variants.h"

#include "frame/registry.h"
#include "materials/ward/ward_parameters.h"
#include "materials/ward/ward_variant.h"

namespace kvi {
namespace ward {
namespace {

constexpr float kNoWeight = 0.001f;
constexpr int32_t kIlluminationRays = 8;

// out += traced radiance x weight, for a ray from the hit.
void addTraced(IShadingContext* context, const ShadingState* state, const float direction[3], const float weight[3],
               float out[3]) {
  if (!(max3(weight) > kNoWeight)) return;
  float buffer[3];
  const float* traced = context->traceRay(buffer, state->position, direction, 1.0f);
  for (int i = 0; i < 3; ++i) out[i] += traced[i] * weight[i];
}

void directLight(IShadingContext* context, const ShadingState* state, const WardHit& hit, const float cd[3],
                 const float cs[3], float out[3]) {
  for (const LightSample* light = context->collectLightSamples(0, state->position, hit.frames.shading + 6); light;
       light = light->next) {
    float o[3], f[3];
    physical::toLocal(hit.frames.glossy, light->direction, o);
    wardLobe(hit.frames.viewGlossy, o, cd, cs, hit.widthX, hit.widthY, f);
    for (int i = 0; i < 3; ++i) out[i] += light->color[i] * f[i] * o[2];
  }
}

void tracedReflection(IShadingContext* context, const ShadingState* state, const WardHit& hit, const float cs[3],
                      float out[3]) {
  if (!state->reflectionAllowed || !(max3(cs) > kNoWeight)) return;
  physical::LobeSample drawn;
  if (!physical::sampleAnisotropicLobe(context, hit.frames.viewGlossy, hit.widthX, hit.widthY, hit.frames.glossy,
                                       drawn) ||
      !(drawn.pdf > 0.0f))
    return;
  const float none[3] = {0.0f, 0.0f, 0.0f};
  float f[3];
  wardLobe(hit.frames.viewGlossy, drawn.local, none, cs, hit.widthX, hit.widthY, f);
  float weight[3];
  for (int i = 0; i < 3; ++i) weight[i] = f[i] * drawn.local[2] / drawn.pdf;
  addTraced(context, state, drawn.direction, weight, out);
}

void tracedTransmission(IShadingContext* context, const ShadingState* state, const WholeHitInputs& in,
                        const float* diffuse, float out[3]) {
  const WardHit& hit = *in.hit;
  const float share = (1.0f - hit.reflectance) * hit.transparency;
  const float mu = clampUnit(-hit.frames.viewShading[2]);
  const float translucent = in.translucency + (1.0f - in.translucency) * std::pow(1.0f - mu, 5.5f);
  const float* normal = hit.frames.glossy + 6;
  const float ior = in.ior > 0.0f ? in.ior : 1.0f;
  float direction[3], weight[3];
  if (!refractDirection(state->rayDirection, normal, state->frontFacing ? 1.0f / ior : ior, direction))
    mirrorDirection(direction, state->rayDirection, normal);
  setAll3(weight, share * (1.0f - translucent));
  if (in.refractionGlossiness < 1.0f && max3(weight) > kNoWeight) {
    // Blurred: drawn from the lobe about the refracted direction.
    float frame[9];
    copy3(frame + 6, direction);
    completeFrame(direction, frame, frame + 3);
    const float straight[3] = {0.0f, 0.0f, -1.0f};
    const float width = physical::reflectanceCurve(in.refractionGlossiness);
    physical::LobeSample drawn;
    if (!physical::sampleAnisotropicLobe(context, straight, width, width, frame, drawn)) return;
    copy3(direction, drawn.direction);
    for (auto& w : weight) w *= drawn.weight;
  }
  addTraced(context, state, direction, weight, out);
  float local[3];
  for (int i = 0; i < 3; ++i) weight[i] = share * translucent * diffuse[i];
  if (!(max3(weight) > kNoWeight)) return;
  physical::sampleCosineHemisphere(context, local);
  local[2] = -local[2];
  physical::toWorld(hit.frames.shading, local, direction);
  addTraced(context, state, direction, weight, out);
}

}  // namespace

void shadeWholeHit(IShadingContext* context, ShadingState* state, const WholeHitInputs& in) {
  const WardHit& hit = *in.hit;
  if (in.cutout && !(hit.coverage > 0.0f)) {
    state->hitDiscarded = 1;
    return;
  }
  float cd[3], cs[3], result[3] = {0.0f, 0.0f, 0.0f};
  for (int i = 0; i < 3; ++i) {
    cd[i] = hit.diffuse[i] * (1.0f - hit.reflectance) * (1.0f - hit.transparency);
    cs[i] = hit.specular[i] * hit.reflectance;
  }
  directLight(context, state, hit, cd, cs, result);
  if (!context->isRayKind(kIlluminationRays)) {
    float buffer[3];
    const float* irradiance = context->gatherIrradiance(buffer, state->position, hit.frames.shading + 6);
    for (int i = 0; i < 3; ++i) result[i] += irradiance[i] * cd[i] * physical::kInvPi;
  }
  if (state->frontFacing)
    for (int i = 0; i < 3; ++i) result[i] += in.additional[i];
  tracedReflection(context, state, hit, cs, result);
  if (in.transparent) tracedTransmission(context, state, in, hit.diffuse, result);
  if (in.tint)
    for (int i = 0; i < 3; ++i) result[i] *= in.tint[i];
  if (in.cutout && hit.coverage < 1.0f) {
    for (int i = 0; i < 3; ++i) result[i] *= hit.coverage;
    float behind[3];
    setAll3(behind, 1.0f - hit.coverage);
    addTraced(context, state, state->rayDirection, behind, result);
  }
  // Only r, g and b are written; the alpha of surfaceResult stays the host's.
  copy3(state->surfaceResult, result);
}

}  // namespace ward

#define KVI_WARD_VARIANT_(Name)                                                               \
  class Name final : public ward::WardVariant<Name, ward::graphs::Name> {                     \
    KVI_SHADER_PARAMETERS(Name, ward::kVariantOperations, KVI_WARD_VARIANT_PARAMETERS_##Name) \
  };                                                                                          \
  KVI_SHADER_FACTORY(Name)
KVI_WARD_VARIANT_SHADERS(KVI_WARD_VARIANT_)
#undef KVI_WARD_VARIANT_

}  // namespace kvi
