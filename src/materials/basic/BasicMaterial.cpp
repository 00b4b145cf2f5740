// BasicMaterial: the general-purpose surface. A diffuse colour (parameter,
// vertex colour or per-object extra colour), optionally textured in decal or
// modulate mode, a Phong highlight, emission, opacity, a mirror share
// ("reflection_blend"), face culling, and two cutouts: the global clipping
// planes and a uv clip rectangle.
//
// Nothing is clamped on the way in; "reflection_blend" and the coverage are
// clamped to [0, 1] where they are used (NaN counts as 0 there).
#include <algorithm>
#include <cmath>
#include <cstring>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "frame/surface.h"
#include "materials/basic/basic_common.h"

namespace kvi {
namespace {

constexpr float kTwoPi = 6.283186f;
constexpr float kInvPi = 0.31830984f;  // 0x3EA2F982, the factor of the evaluated BSDF and the gathered light
// The diffuse pick of sampleBsdf stores 0.3183099 (0x3EA2F984), two units in
// the last place above kInvPi. Both are kept deliberately.
constexpr float kDiffuseDensity = 0.3183099f;
// The lowest cosine a sampled diffuse direction may have (sin of one degree).
constexpr float kMinDiffuseCosine = 0.01745241f;
// max(E) must exceed this for gathered light to count.
constexpr float kIrradianceFloor = 1e-5f;

}  // namespace

// "diffuse_map_transform", "diffuse_map_tint" and "uv_clip_transform" are left
// for the host's first setParameters. "ambient", "environment_map" and
// "use_environment_map" belong to the parameter interface only: declared and
// copied, read by nothing.
#define KVI_BASIC_MATERIAL_PARAMETERS(PARAM, VARYING)                                                               \
  PARAM(ClippingMap, u_globalClippingMap, doc("table of clipping planes"), unbound)                                 \
  PARAM(Bool, u_globalClippingMapEnable,                                                                            \
        doc("test the global clipping planes; hits on the cut side are removed"),                                   \
        false)                                                                                                      \
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

class BasicMaterial final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(BasicMaterial,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpShadowTransmission |
                            kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_BASIC_MATERIAL_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState*) override {}

  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    basic::setAll3(state->shadowTransmission, culled(state) ? 1.0f : transparencyOf(state));
  }

  void evaluateBsdf(IShadingContext*, ShadingState* state) override {
    if (culled(state)) {
      state->pdf = 1.0f;
      basic::setAll3(state->bsdfWeight, 0.0f);
      return;
    }
    const float rb = clampUnit(reflection_blend);
    float color[3];
    surfaceColor(state, color);
    const float* towardsLight = state->sampledDirection;
    const float highlight = basic::phongHighlight(state->normal, towardsLight, state->rayDirection, shininess);
    // N . L is deliberately not clamped: light from below makes the diffuse term negative.
    const float cosine = basic::dot3(state->normal, towardsLight);
    state->pdf = 1.0f;
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = specular[i] * highlight + color[i] * (1.0f - rb) * cosine;
    const float coverage = (1.0f - transparencyOf(state)) * kInvPi;
    for (int i = 0; i < 3; ++i) state->bsdfWeight[i] = state->bsdfWeight[i] * coverage;
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    const float rb = clampUnit(reflection_blend);
    const float tr = transparencyOf(state);
    float color[3];
    surfaceColor(state, color);

    // Weights of the three events and the probabilities of choosing them.
    const float mirrorWeight = (1.0f - tr) * rb;
    const float diffuseWeight = context->isDiffuseSampled() ? (1.0f - tr) * (1.0f - rb) * max3(color) : 0.0f;
    const float total = mirrorWeight + tr + diffuseWeight;
    float passProbability = clampUnit(tr / (total == 0.0f ? 1.0f : total));
    const float rest = 1.0f - passProbability;
    const float scattered = mirrorWeight + diffuseWeight;
    const float scatteredNonZero = scattered == 0.0f ? 1.0f : scattered;
    float mirrorProbability = rest * mirrorWeight / scatteredNonZero;
    const float diffuseProbability = rest * diffuseWeight / scatteredNonZero;

    const bool decided = overrideLobeChoice(context, mirrorWeight, mirrorProbability, tr, state->frontFacing);
    if (decided) passProbability = 1.0f - mirrorProbability;

    if (culled(state)) {
      basic::copy3(state->sampledDirection, state->rayDirection);
      state->pdf = 1.0f;
      state->pdfSecondary = 1.0f;
      const bool pathEnds = decided && mirrorProbability > 0.0f;
      basic::setAll3(state->bsdfWeight, pathEnds ? 0.0f : 1.0f);
      state->lobeFlags = pathEnds ? 0 : 64;
      return;
    }

    const float x = context->nextSample1D();
    if (passProbability > x) {
      state->lobeFlags = 64;
      basic::copy3(state->sampledDirection, state->rayDirection);
      state->pdf = 1.0f;
      state->pdfSecondary = 1.0f;
      basic::setAll3(state->bsdfWeight, tr / passProbability);
    } else if (passProbability + mirrorProbability > x) {
      state->lobeFlags = 4;
      state->pdf = 1.0f;
      state->pdfSecondary = 1.0f;
      basic::mirrorDirection(state->sampledDirection, state->rayDirection, state->normal);
      basic::setAll3(state->bsdfWeight, mirrorWeight / mirrorProbability);
    } else if (diffuseProbability == 0.0f) {
      state->lobeFlags = 0;
    } else {
      sampleDiffuse(context, state);
      for (int i = 0; i < 3; ++i)
        state->bsdfWeight[i] = color[i] * kDiffuseDensity * (1.0f - rb) * (1.0f - tr) / diffuseProbability;
    }
  }

  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    state->radianceDone = 1;
    if (culled(state)) {
      basic::setAll3(state->radiance, 0.0f);
      return;
    }
    const float tr = transparencyOf(state);
    for (int i = 0; i < 3; ++i) state->radiance[i] = (1.0f - tr) * emissive[i];
    if (context->isRayKind(8)) return;

    float buffer[3];
    const float* irradiance = context->gatherIrradiance(buffer, state->position, state->normal);
    if (!(max3(irradiance) > kIrradianceFloor)) return;
    const float rb = clampUnit(reflection_blend);
    float color[3];
    surfaceColor(state, color);
    for (int i = 0; i < 3; ++i) state->radiance[i] += (1.0f - tr) * (1.0f - rb) * irradiance[i] * color[i] * kInvPi;
  }

  void testCutout(IShadingContext*, ShadingState* state) override {
    if (u_globalClippingMapEnable && !clippingMapKeeps(u_globalClippingMap, state->position)) {
      state->cutAway = 1;
      return;
    }
    if (!use_uv_clip) {
      state->cutAway = 0;
      return;
    }
    float uvPair[2];
    std::memcpy(uvPair, state->varyings + kUvOffset, sizeof uvPair);
    state->cutAway = uvOutsideUnitSquare(uvPair[0], uvPair[1], uv_clip_transform) ? 1 : 0;
  }

 private:
  static constexpr int kUvOffset = 0;
  static constexpr int kVertexColorOffset = 8;

  // "cull_mode" 1 removes back faces, 2 front faces; any other value nothing.
  bool culled(const ShadingState* state) const {
    return (cull_mode == 2 && state->frontFacing) || (cull_mode == 1 && !state->frontFacing);
  }

  bool extraColorApplies() const { return use_extra_color_and_alpha && u_extra_color_and_alpha_is_set; }
  bool diffuseMapApplies() const { return use_diffuse_map && diffuse_map.sampler; }

  void vertexColor(const ShadingState* state, float rgba[4]) const {
    std::memcpy(rgba, state->varyings + kVertexColorOffset, 4 * sizeof(float));
  }

  // The diffuse texel at the transformed uv, (0, 0, 0, 1) when no texture is
  // bound. The row vector is (u, v, 1, 1) here, unlike the uv clip rectangle's
  // (u, v, 0, 1): both are deliberate.
  void diffuseTexel(const ShadingState* state, float texel[4]) const {
    texel[0] = texel[1] = texel[2] = 0.0f;
    texel[3] = 1.0f;
    if (!diffuse_map.sampler) return;
    float uvPair[2];
    std::memcpy(uvPair, state->varyings + kUvOffset, sizeof uvPair);
    const float* m = diffuse_map_transform;
    const float coords[2] = {uvPair[0] * m[0] + uvPair[1] * m[4] + m[8] + m[12],
                             uvPair[0] * m[1] + uvPair[1] * m[5] + m[9] + m[13]};
    diffuse_map.sampler->sample(texel, coords);
  }

  // 1 - coverage, the coverage being the opacity (or the vertex alpha), times
  // the texture's alpha and the extra alpha where they apply, clamped to [0, 1].
  float transparencyOf(const ShadingState* state) const {
    float coverage = opacity;
    if (use_diffuse_vertex_color) {
      float rgba[4];
      vertexColor(state, rgba);
      coverage = rgba[3];
    }
    if (diffuseMapApplies()) {
      float texel[4];
      diffuseTexel(state, texel);
      if (use_diffuse_map_alpha) coverage = coverage * texel[3];
    }
    if (extraColorApplies()) coverage = coverage * u_extra_color_and_alpha[3];
    return 1.0f - clampUnit(coverage);
  }

  void surfaceColor(const ShadingState* state, float color[3]) const {
    float base[3];
    if (extraColorApplies()) {
      basic::copy3(base, u_extra_color_and_alpha);
    } else if (use_diffuse_vertex_color) {
      float rgba[4];
      vertexColor(state, rgba);
      basic::copy3(base, rgba);
    } else {
      basic::copy3(base, diffuse);
    }
    if (!use_diffuse_map) {
      basic::copy3(color, base);
      return;
    }
    float texel[4];
    diffuseTexel(state, texel);
    const float alpha = texel[3];
    for (int i = 0; i < 3; ++i) {
      const float tinted = texel[i] * diffuse_map_tint[i];
      color[i] = use_decal_mode ? alpha * tinted + (1.0f - alpha) * base[i] : base[i] * tinted;
    }
  }

  // A cosine-distributed direction on the side of the normal the ray came
  // from, never closer to the surface than one degree.
  static void sampleDiffuse(IShadingContext* context, ShadingState* state) {
    float side[3];
    basic::copy3(side, state->normal);
    if (basic::dot3(state->normal, state->rayDirection) > 0.0f)
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
};

KVI_SHADER_FACTORY(BasicMaterial)

}  // namespace kvi
