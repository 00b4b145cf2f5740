// What the nine generated Ward variants share: everything but their
// parameter lists and graphs (generated into ward_variants.h from
// variants.txt). A variant is WardVariant<its class, its graphs>; its class
// declares the common parameters and its node parameters, in that order,
// directly after the table of virtual operations (this base holds no data).
//
// The variants shade whole hits (operation mask 60): shadeSurface does all
// of a hit's shading, as PhongReflective does, and evaluateBsdf and
// sampleBsdf are fixed bodies. A driven input's graph replaces its channel's
// texel (and, for the diffuse colour, the constant too).
#pragma once

#include "frame/vector3.h"
#include "frame/parameters.h"
#include "frame/surface.h"
#include "materials/ward/ward_sampling.h"
#include "materials/ward/ward_surface.h"

namespace kvi::ward {

inline constexpr uint32_t kVariantOperations =
    kOpShadeSurface | kOpShadowTransmission | kOpEvaluateBsdf | kOpSampleBsdf;

// The node graphs' colours at a hit, and the sources that point at them.
struct GraphColors {
  NodeColor diffuse, normal0, cutout;
  WardSources sources;
};

// shadeSurface of the variants, apart from the graphs (ward_variant.cpp):
// the light loop with the Ward lobe, the gathered diffuse light, the
// emission, one traced reflection, the traced transmission and the cutout.
struct WholeHitInputs {
  const WardHit* hit;
  const float* additional;     // the emission, rgb (front side only)
  float refractionGlossiness;  // of the traced transmission; 1 is clear
  float ior;
  const float* tint;  // rgb, or null
  bool transparent;
  float translucency;
  bool cutout;  // the cutout is on: blend in what lies behind by the coverage
};
void shadeWholeHit(IShadingContext* context, ShadingState* state, const WholeHitInputs& in);

template <class Self, class Graphs>
class WardVariant : public ShaderImpl<MaterialShader> {
 public:
  // Defaults that follow from the graphs (ward_parameters.h).
  static constexpr bool kNormal0Driven = Graphs::kDrivesNormal0;
  static constexpr bool kCutoutDriven = Graphs::kDrivesCutout;

  // What ward_surface.h asks of a Ward-like material besides the shared
  // fields: the glossiness is u_reflectGlossyValue x (1 - roughness).
  float glossinessAt(const float uv[2]) const {
    const Self& m = self();
    const float roughness = physical::scalarChannel(m.u_roughMapEnable, m.u_roughMap, m.u_roughTransform,
                                                    m.u_roughValue, m.u_roughAmount, uv);
    return m.u_reflectGlossyValue * (1.0f - roughness);
  }
  float normal0UvScale() const { return 1.0f; }

  void shadeSurface(IShadingContext* context, ShadingState* state) override {
    const Self& m = self();
    if (clippedAway(state)) {
      state->hitDiscarded = 1;
      return;
    }
    GraphColors graphs;
    evaluateGraphs(context, state, true, true, graphs);
    WardHit hit;
    evaluateHit(m, context, state, graphs.sources, hit);
    float additional[3];
    physical::colorChannel(m.u_additionalMapEnable, m.u_additionalMap, m.u_additionalMapTransform, m.u_additionalColor,
                           m.u_additionalAmount, hit.uv, additional);
    WholeHitInputs in{&hit,
                      additional,
                      1.0f,
                      m.u_ior,
                      m.u_commonTintEnable ? m.u_commonTintColor : nullptr,
                      m.u_transparency != 0,
                      0.0f,
                      m.u_cutoutMapEnable != 0};
    if (in.transparent) {
      in.translucency = translucencyOf(m, hit.uv);
      in.refractionGlossiness =
          physical::scalarChannel(m.u_refractGlossyMapEnable, m.u_refractGlossyMap, m.u_refractGlossyTransform,
                                  m.u_refractGlossyValue, m.u_refractGlossyAmount, hit.uv);
    }
    shadeWholeHit(context, state, in);
  }

  void shadowTransmission(IShadingContext* context, ShadingState* state) override {
    if (clippedAway(state)) {
      state->hitDiscarded = 1;
      return;
    }
    // Only a transparent surface's transmission depends on its diffuse
    // colour, and none on its normal.
    GraphColors graphs;
    evaluateGraphs(context, state, self().u_transparency != 0, false, graphs);
    shadowTransmissionOf(self(), context, state, graphs.sources, state->shadowTransmission);
  }

  // Fixed bodies: the variants are shaded whole.
  void evaluateBsdf(IShadingContext*, ShadingState* state) override {
    setAll3(state->bsdfWeight, 0.2f);
    state->pdf = 0.0f;
  }
  void sampleBsdf(IShadingContext*, ShadingState* state) override { state->lobeFlags = kNoLobe; }
  void evaluateRadiance(IShadingContext*, ShadingState*) override {}
  void testCutout(IShadingContext*, ShadingState*) override {}

 private:
  const Self& self() const { return static_cast<const Self&>(*this); }

  bool clippedAway(const ShadingState* state) const {
    const Self& m = self();
    return m.u_globalClippingMapEnable && !clippingMapKeeps(m.u_globalClippingMap, state->position);
  }

  // Evaluates the graphs whose inputs the operation reads: the diffuse colour
  // and the normal map when asked (the normal map only with its channel on),
  // the cutout when its channel is on.
  void evaluateGraphs(IShadingContext* context, const ShadingState* state, bool diffuse, bool normal,
                      GraphColors& g) const {
    const Self& m = self();
    NodeHit at{context, {}, {}, {}};
    copy3(at.position, state->position);
    copy3(at.normal, state->normal);
    physical::readVarying(state, physical::kUvOffset, at.uv);
    if constexpr (Graphs::kDrivesDiffuse) {
      if (diffuse) {
        g.diffuse = Graphs::diffuse_color(m, at);
        g.sources.diffuse = &g.diffuse;
      }
    }
    if constexpr (Graphs::kDrivesNormal0) {
      if (normal && m.u_normal0MapEnable) {
        g.normal0 = Graphs::normal0_map(m, at);
        g.sources.normal0 = &g.normal0;
      }
    }
    if constexpr (Graphs::kDrivesCutout) {
      if (m.u_cutoutMapEnable) {
        g.cutout = Graphs::cutout_map(m, at);
        g.sources.cutout = &g.cutout;
      }
    }
  }
};

}  // namespace kvi::ward
