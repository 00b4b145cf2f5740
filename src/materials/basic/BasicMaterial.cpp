// BasicMaterial: the general-purpose surface. A diffuse colour (parameter,
// vertex colour or per-object extra colour), optionally textured in decal or
// modulate mode, a Phong highlight, emission, opacity, a mirror share
// ("reflection_blend"), face culling, and two cutouts: the global clipping
// planes and a uv clip rectangle.
//
// Nothing is clamped on the way in; "reflection_blend" and the coverage are
// clamped to [0, 1] where they are used (NaN counts as 0 there).
#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/basic/basic_surface.h"

namespace kvi {

// "diffuse_map_transform", "diffuse_map_tint" and "uv_clip_transform" are left
// for the host's first setParameters. "ambient", "environment_map" and
// "use_environment_map" belong to the parameter interface only: declared and
// copied, read by nothing.
#define KVI_BASIC_MATERIAL_PARAMETERS(PARAM, VARYING)                                                               \
  KVI_BASIC_CLIPPING_PARAMETERS(PARAM)                                                                              \
  PARAM(Color3, diffuse, doc("diffuse colour (reflectance)", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})             \
  PARAM(Texture, diffuse_map, doc("diffuse texture"), unbound)                                                      \
  PARAM(Matrix4, diffuse_map_transform, doc("uv to texture coordinates, row vector (u, v, 1, 1)"), unset)           \
  PARAM(Bool, use_decal_mode, doc("texture blends over the colour by its alpha; false: it multiplies"), true)       \
  PARAM(Bool, use_diffuse_map, doc("use diffuse_map"), false)                                                       \
  PARAM(Bool, use_diffuse_map_alpha, doc("the texel's alpha multiplies the coverage"), false)                       \
  PARAM(Color3, diffuse_map_tint, doc("multiplies the texel colour", "0 to 1 per channel"), unset)                  \
  PARAM(Color3, specular, doc("Phong highlight colour", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})                  \
  PARAM(Float, shininess, doc("Phong exponent of the highlight", "0 or more; typically 1 to 1000"), 32.0f)          \
  PARAM(Color3, emissive, doc("emitted radiance", "0 or more per channel", "radiance"), {0.0f, 0.0f, 0.0f})         \
  PARAM(Color3, ambient, doc("declared and copied, read by nothing"), {1.0f, 1.0f, 1.0f})                           \
  PARAM(Float, opacity, doc("coverage; 1 is opaque, 0 fully transparent", "0 to 1 (clamped when used)"), 1.0f)      \
  PARAM(EnvironmentMap, environment_map, doc("declared and copied, read by nothing"), unbound)                      \
  PARAM(Bool, use_environment_map, doc("declared and copied, read by nothing"), false)                              \
  PARAM(Float, reflection_blend,                                                                                    \
        doc("share of mirror reflection; the rest is diffuse", "0 to 1 (clamped when used; NaN counts as 0)"),      \
        0.0f)                                                                                                       \
  PARAM(Bool, use_uv_clip, doc("cut away hits outside the uv clip rectangle"), false)                               \
  PARAM(Matrix4, uv_clip_transform,                                                                                 \
        doc("maps uv into the clip rectangle's unit square, row vector (u, v, 0, 1)"),                              \
        unset)                                                                                                      \
  PARAM(Bool, use_diffuse_vertex_color, doc("colour and coverage come from the vtxcolor varying"), false)           \
  KVI_BASIC_CLOSING_PARAMETERS(PARAM, VARYING)

class BasicMaterial final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(BasicMaterial, basic::kSurfaceOperations, KVI_BASIC_MATERIAL_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState*) override {}

  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    basic::setAll3(state->shadowTransmission, basic::culled(*this, state) ? 1.0f : basic::transparencyOf(*this, state));
  }

  void evaluateBsdf(IShadingContext*, ShadingState* state) override {
    if (basic::culled(*this, state)) {
      state->pdf = 1.0f;
      basic::setAll3(state->bsdfWeight, 0.0f);
      return;
    }
    const float rb = basic::clampUnit(reflection_blend);
    float color[3];
    basic::surfaceColor(*this, state, color);
    const float* towardsLight = state->sampledDirection;
    const float highlight = basic::phongHighlight(state->normal, towardsLight, state->rayDirection, shininess);
    // N . L is deliberately not clamped: light from below makes the diffuse term negative.
    const float cosine = basic::dot3(state->normal, towardsLight);
    state->pdf = 1.0f;
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = specular[i] * highlight + color[i] * (1.0f - rb) * cosine;
    const float coverage = (1.0f - basic::transparencyOf(*this, state)) * basic::kInvPi;
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = state->bsdfWeight[i] * coverage;
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    const float rb = basic::clampUnit(reflection_blend);
    const float tr = basic::transparencyOf(*this, state);
    float color[3];
    basic::surfaceColor(*this, state, color);

    // Weights of the three events and the probabilities of choosing them.
    const float mirrorWeight = (1.0f - tr) * rb;
    const float diffuseWeight =
        context->isDiffuseSampled() ? (1.0f - tr) * (1.0f - rb) * basic::max3(color) : 0.0f;
    const float total = mirrorWeight + tr + diffuseWeight;
    float passProbability = basic::clampUnit(tr / (total == 0.0f ? 1.0f : total));
    const float rest = 1.0f - passProbability;
    const float scattered = mirrorWeight + diffuseWeight;
    const float scatteredNonZero = scattered == 0.0f ? 1.0f : scattered;
    float mirrorProbability = rest * mirrorWeight / scatteredNonZero;
    const float diffuseProbability = rest * diffuseWeight / scatteredNonZero;

    const bool decided = overrideLobeChoice(context, mirrorWeight, mirrorProbability, tr, state->frontFacing);
    if (decided) passProbability = 1.0f - mirrorProbability;

    if (basic::culled(*this, state)) {
      basic::passCulledHit(state, decided && mirrorProbability > 0.0f);
      return;
    }

    const float x = context->nextSample1D();
    if (passProbability > x) {
      basic::passThrough(state, tr, passProbability);
    } else if (passProbability + mirrorProbability > x) {
      state->lobeFlags = 4;
      state->pdf = 1.0f;
      state->pdfSecondary = 1.0f;
      basic::mirrorDirection(state->sampledDirection, state->rayDirection, state->normal);
      basic::setAll3(state->bsdfWeight, mirrorWeight / mirrorProbability);
    } else if (diffuseProbability == 0.0f) {
      state->lobeFlags = 0;
    } else {
      basic::sampleDiffuse(context, state);
      for (int i = 0; i < 3; ++i)
        state->bsdfWeight[i] = color[i] * basic::kDiffuseDensity * (1.0f - rb) * (1.0f - tr) / diffuseProbability;
    }
  }

  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    basic::emitAndGather(*this, context, state, basic::clampUnit(reflection_blend));
  }

  void testCutout(IShadingContext*, ShadingState* state) override { basic::testCutout(*this, state); }
};

KVI_SHADER_FACTORY(BasicMaterial)

}  // namespace kvi
