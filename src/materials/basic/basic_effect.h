// The operations of the basic family's two effects, SolidEffect and
// VertexColorEffect: BasicMaterial's surface without its highlight and
// mirror. A lit effect is a Lambertian reflector of its surface colour that
// lets the rest of its coverage through; an unlit one shows its colour as it
// is, to every ray, and reflects nothing.
//
// Each effect is a final class deriving from BasicEffect<itself>; its
// parameter list supplies the fields the surface routines read (see
// basic_surface.h) plus "unlit". BasicEffect holds no data, so the fields
// still follow the table of virtual operations directly.
#pragma once

#include "frame/parameters.h"
#include "materials/basic/basic_surface.h"

namespace kvi::basic {

// The parameters both effects declare around their own colour parameters:
// the texture first, then emission, the uv clip and unlit before the
// family's closing parameters.
#define KVI_BASIC_EFFECT_MAP_PARAMETERS(PARAM)                                                               \
  PARAM(Texture, diffuse_map, doc("colour texture"), unbound)                                                \
  PARAM(Matrix4, diffuse_map_transform, doc("uv to texture coordinates, row vector (u, v, 1, 1)"),           \
        {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f})    \
  PARAM(Bool, use_diffuse_map, doc("use diffuse_map"), false)                                                \
  PARAM(Bool, use_diffuse_map_alpha, doc("the texel's alpha multiplies the coverage"), false)                \
  PARAM(Color3, diffuse_map_tint, doc("multiplies the texel colour", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})

#define KVI_BASIC_EFFECT_COMMON_PARAMETERS(PARAM, VARYING)                                                     \
  PARAM(Color3, emissive, doc("emitted radiance", "0 or more per channel", "radiance"), {0.0f, 0.0f, 0.0f})    \
  PARAM(Bool, use_uv_clip, doc("cut away hits outside the uv clip rectangle"), false)                          \
  PARAM(Matrix4, uv_clip_transform,                                                                            \
        doc("maps uv into the clip rectangle's unit square, row vector (u, v, 0, 1)"),                         \
        {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f})      \
  PARAM(Bool, unlit,                                                                                           \
        doc("show the colour as it is, to every ray, instead of reflecting light; an unlit surface reflects " \
            "nothing"),                                                                                        \
        false)                                                                                                 \
  KVI_BASIC_CLOSING_PARAMETERS(PARAM, VARYING)

template <class Effect>
class BasicEffect : public ShaderImpl<MaterialShader> {
 public:
  void shadeSurface(IShadingContext*, ShadingState*) override {}

  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    setAll3(state->shadowTransmission, culled(self(), state) ? 1.0f : transparencyOf(self(), state));
  }

  // Lambert's law on the covered share: colour x max(0, N . L) x (1 - tr) / pi,
  // with pdf 1 as in BasicMaterial. Nothing when culled or unlit.
  void evaluateBsdf(IShadingContext*, ShadingState* state) override {
    state->pdf = 1.0f;
    if (culled(self(), state) || self().unlit) {
      setAll3(state->bsdfWeight, 0.0f);
      return;
    }
    float color[3];
    surfaceColor(self(), state, color);
    const float cosine = std::max(0.0f, dot3(state->normal, state->sampledDirection));
    const float coverage = (1.0f - transparencyOf(self(), state)) * kInvPi;
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = color[i] * cosine * coverage;
  }

  // Straight passage with the probability of the transparency's share of the
  // two events' weights, else (when the host samples diffuse events and the
  // effect is lit) a cosine-distributed bounce; otherwise the path ends. Each
  // event's weight is its value over its probability, so the path's
  // throughput is unbiased.
  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    if (culled(self(), state)) {
      passCulledHit(state, false);
      return;
    }
    const float tr = transparencyOf(self(), state);
    float color[3];
    surfaceColor(self(), state, color);
    const float diffuseWeight =
        !self().unlit && context->isDiffuseSampled() ? (1.0f - tr) * max3(color) : 0.0f;
    const float total = tr + diffuseWeight;
    const float passProbability = clampUnit(tr / (total == 0.0f ? 1.0f : total));
    const float x = context->nextSample1D();
    if (passProbability > x) {
      passThrough(state, tr, passProbability);
    } else if (diffuseWeight > 0.0f) {
      sampleDiffuse(context, state);
      const float diffuseProbability = 1.0f - passProbability;
      for (int i = 0; i < 3; ++i)
        state->bsdfWeight[i] = color[i] * kDiffuseDensity * (1.0f - tr) / diffuseProbability;
    } else {
      state->lobeFlags = 0;
    }
  }

  // Emission plus, lit, the gathered light; unlit, the colour itself as
  // radiance of the covered share.
  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    if (!self().unlit) {
      emitAndGather(self(), context, state, 0.0f);
      return;
    }
    state->radianceDone = 1;
    if (culled(self(), state)) {
      setAll3(state->radiance, 0.0f);
      return;
    }
    const float coverage = 1.0f - transparencyOf(self(), state);
    float color[3];
    surfaceColor(self(), state, color);
    for (int i = 0; i < 3; ++i) state->radiance[i] = coverage * (self().emissive[i] + color[i]);
  }

  void testCutout(IShadingContext*, ShadingState* state) override { basic::testCutout(self(), state); }

 private:
  const Effect& self() const { return static_cast<const Effect&>(*this); }
};

}  // namespace kvi::basic
