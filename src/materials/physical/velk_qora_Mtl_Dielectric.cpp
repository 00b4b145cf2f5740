// velk_qora_Mtl_Dielectric: glass and water. A boundary between the outside
// (index 1) and a medium of index "u_ior" that reflects and refracts by the
// exact Fresnel equations, with total internal reflection; smooth, or rough
// with a GGX microfacet distribution whose visible normals are sampled; light
// inside the medium is absorbed by distance (Beer-Lambert); water waves bend
// the normal by the host's noise.
//
// Where the medium is: the side the surface's front faces is the outside.
// How far light travelled inside: the host puts the length of the ray
// segment that arrived at the hit into `lightDistance`; at a hit reached
// from inside (`frontFacing` 0) every event is weighted by the absorption
// over that distance. Shadow rays, which cross the medium without bending,
// take the square root of the transmission colour at each crossing, so that
// a closed object's shadow takes the colour once.
//
// Weights carry energy: a refraction weighs 1 - F, without the eta^2 change
// of radiance across the boundary (on a closed object it cancels between
// entry and exit). Glossy events report their density per solid angle in
// both pdf and pdfSecondary; delta events report the probability of the
// event chosen.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/physical/glass_paint_parameters.h"
#include "materials/physical/microfacet.h"
#include "materials/physical/shared.h"
#include "materials/physical/view_frame.h"

namespace kvi {
namespace {

using microfacet::Vector;
using physical::ViewFrame;
using physical::endPath;
using physical::finite3;

// Relative indices closer to 1 than this neither bend nor reflect: light
// passes straight on.
constexpr float kIndexMatched = 1e-4f;
// Noise-space step of the finite differences of the waves, and the octaves
// of the wave pattern: frequency and amplitude of each.
constexpr float kWaveStep = 0.01f;
constexpr float kWaveOctaves[2][2] = {{1.0f, 1.0f}, {2.7f, 0.35f}};

// What one hit needs for every event: the frame and view, the index beyond
// the boundary relative to the viewer's side, the GGX width and the
// absorption of the segment that arrived.
struct Boundary : ViewFrame {
  float eta = 1.0f;
  float alpha = 0.0f;
  float absorption[3] = {1.0f, 1.0f, 1.0f};
};

}  // namespace

#define KVI_DIELECTRIC_PARAMETERS(PARAM, VARYING)                                                                \
  VARYING(Vector, bitangent, 0)                                                                                   \
  VARYING(Vector, tangent, 12)                                                                                    \
  VARYING(Uv, uv, 24)                                                                                             \
  PARAM(Bool, u_colorByObject, doc("the per-object colour replaces the transmission colour"), false)             \
  PARAM(Float, u_ior,                                                                                             \
        doc("index of refraction of the medium relative to the outside (1.33 water, 1.5 glass, 2.42 diamond)",    \
            "above 0; 1 neither bends nor reflects; below 1 for a bubble"),                                       \
        1.5f)                                                                                                     \
  PARAM(Color3, u_reflectColor, doc("colour of the Fresnel reflection; white is physical", "0 to 1 per channel"), \
        {1.0f, 1.0f, 1.0f})                                                                                       \
  PARAM(Color3, u_transmissionColor,                                                                              \
        doc("colour white light takes on after travelling u_transmissionDistance inside the medium",             \
            "0 to 1 per channel; white is clear"),                                                                \
        {1.0f, 1.0f, 1.0f})                                                                                       \
  PARAM(Float, u_transmissionDistance, doc("distance at which light has the transmission colour", "above 0",      \
                                           "scene units"),                                                        \
        1.0f)                                                                                                     \
  PARAM(Float, u_roughValue, doc("roughness of the surface; 0 is polished", "0 to 1"), 0.0f)                      \
  PARAM(Bool, u_roughMapEnable, doc("the roughness comes from the map: its red x u_roughAmount"), false)         \
  PARAM(Texture, u_roughMap, doc("roughness map (red channel)"), unbound)                                         \
  PARAM(Matrix3, u_roughTransform, doc("uv transform of the roughness map"), unset)                               \
  PARAM(Float, u_roughAmount, doc("roughness where the map's red is 1", "0 to 1"), 1.0f)                         \
  PARAM(Bool, u_wavesEnable, doc("water waves bend the normal"), false)                                           \
  PARAM(Float, u_wavesScale, doc("size of the largest waves", "above 0", "scene units"), 1.0f)                    \
  PARAM(Float, u_wavesHeight, doc("height of the waves", "0 or more; a tenth of the scale is choppy",             \
                                  "scene units"),                                                                 \
        0.03f)                                                                                                    \
  PARAM(Float, u_wavesPhase, doc("phase of the wave pattern; animate it for moving water", "any", "noise units"), \
        0.0f)                                                                                                     \
  KVI_GLASS_PAINT_CLOSING_PARAMETERS(PARAM)

class velk_qora_Mtl_Dielectric final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_Dielectric,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpShadowTransmission |
                            kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_DIELECTRIC_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState* state) override { physical::shadeGlassSurface(state); }

  void evaluateRadiance(IShadingContext*, ShadingState* state) override { physical::markRadianceDone(state); }

  void testCutout(IShadingContext*, ShadingState* state) override {
    physical::testGlobalClipping(u_globalClippingMapEnable, u_globalClippingMap, state);
  }

  // A shadow ray crosses without bending: 1 - F at the angle it meets the
  // boundary from outside, times the square root of the transmission colour.
  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    const float cosine = dot3(state->rayDirection, state->normal);
    const float f = microfacet::dielectricFresnel(cosine, microfacet::relativeIndex(u_ior));
    const float* colour = transmissionColour();
    for (int k = 0; k < 3; ++k) state->shadowTransmission[k] = (1.0f - f) * std::sqrt(clampUnit(colour[k]));
    applyTint(state->shadowTransmission);
    if (!finite3(state->shadowTransmission)) setAll3(state->shadowTransmission, 0.0f);
  }

  void evaluateBsdf(IShadingContext* context, ShadingState* state) override {
    setAll3(state->bsdfWeight, 0.0f);
    state->pdf = 0.0f;
    state->pdfSecondary = 0.0f;
    Boundary b;
    describeBoundary(state, b);
    // A smooth or index-matched boundary answers no light sample: its events are deltas.
    if (b.alpha < microfacet::kSmoothAlpha || indexMatched(b)) return;
    buildFrame(context, state, b);
    const Vector towardsLight = physical::localOf(b.frame, state->sampledDirection);
    // Under a bent normal a light can lie on one side of the shading surface
    // and the other of the geometry; sampleBsdf ends such events, so a light
    // sample gets no answer there either.
    if (!physical::leavesOnItsSide(b, state->sampledDirection, towardsLight.z > 0.0f)) return;
    float value[3];
    const float density = roughResponse(b, towardsLight, value);
    applyTint(value);
    physical::answerLightSample(state, value, density);
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    // Rays that may only pass straight (past the depth limit) cross as
    // shadow rays do.
    if (context->getRayKind() == 3) {
      shadowTransmission(context, state);
      passStraight(state, state->shadowTransmission);
      return;
    }
    Boundary b;
    describeBoundary(state, b);
    if (indexMatched(b)) {
      passStraight(state, b.absorption);
    } else {
      buildFrame(context, state, b);
      if (b.alpha < microfacet::kSmoothAlpha)
        sampleSmooth(context, state, b);
      else
        sampleRough(context, state, b);
    }
    applyTint(state->bsdfWeight);
    if (!finite3(state->bsdfWeight) || !(state->pdf > 0.0f) || !std::isfinite(state->pdf)) endPath(state);
  }

 private:
  const float* transmissionColour() const {
    return physical::perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set) ? u_extra_color_and_alpha
                                                                                            : u_transmissionColor;
  }

  void applyTint(float weight[3]) const { physical::applyTint(u_commonTintEnable, u_commonTintColor, weight); }

  static void passStraight(ShadingState* state, const float weight[3]) {
    copy3(state->sampledDirection, state->rayDirection);
    for (int k = 0; k < 3; ++k) state->bsdfWeight[k] = weight[k];
    state->pdf = 1.0f;
    state->pdfSecondary = 1.0f;
    state->lobeFlags = 64;
  }

  // Beer-Lambert over `distance`: exp(-sigma distance) =
  // colour^(distance / reference distance), per channel. No distance (0,
  // negative or NaN) absorbs nothing.
  void absorptionOver(float distance, float out[3]) const {
    for (int k = 0; k < 3; ++k)
      out[k] = distance > 0.0f && absorption_[k] > 0.0f ? std::exp(-absorption_[k] * distance) : 1.0f;
  }

  // The slope of the waves in the frame: the gradient of the wave height,
  // height x the sum of the noise octaves, along the tangent and bitangent.
  void waveSlope(IShadingContext* context, const ShadingState* state, const float frame[9], float q[3]) const {
    q[0] = 0.0f;
    q[1] = 0.0f;
    q[2] = 1.0f;
    const float inverseScale = 1.0f / u_wavesScale;
    if (!u_wavesEnable || !(inverseScale > 0.0f) || !(inverseScale < INFINITY) || !std::isfinite(u_wavesHeight))
      return;
    float gradient[3] = {0.0f, 0.0f, 0.0f};
    for (const auto& octave : kWaveOctaves) {
      const float frequency = octave[0] * inverseScale;
      const float* x = state->position;
      const float p[4] = {x[0] * frequency, x[1] * frequency, x[2] * frequency, u_wavesPhase};
      const float centre = context->noise4D(p);
      for (int axis = 0; axis < 3; ++axis) {
        float step[4] = {p[0], p[1], p[2], p[3]};
        step[axis] += kWaveStep;
        gradient[axis] += (context->noise4D(step) - centre) * (octave[1] * frequency / kWaveStep);
      }
    }
    q[0] = -u_wavesHeight * dot3(gradient, frame);
    q[1] = -u_wavesHeight * dot3(gradient, frame + 3);
    if (!std::isfinite(q[0]) || !std::isfinite(q[1])) q[0] = q[1] = 0.0f;
  }

  // The index beyond the boundary, the width and the absorption: all an
  // event needs besides the frame.
  void describeBoundary(const ShadingState* state, Boundary& b) const {
    float uv[2];
    physical::readVarying(state, physical::kUvOffset, uv);
    const float eta = microfacet::relativeIndex(u_ior);
    b.eta = state->frontFacing ? eta : 1.0f / eta;
    const float roughness =
        physical::scalarChannel(u_roughMapEnable, u_roughMap, u_roughTransform, u_roughValue, u_roughAmount, uv);
    b.alpha = microfacet::alphaFromRoughness(roughness);
    if (!state->frontFacing) absorptionOver(state->lightDistance, b.absorption);
  }

  // The frame, bent by normal map 0 and the waves.
  void buildFrame(IShadingContext* context, const ShadingState* state, Boundary& b) const {
    float uv[2], bump[3], waves[3], slope[3];
    physical::readVarying(state, physical::kUvOffset, uv);
    physical::startViewFrame(state, b);
    physical::normalMapSlope(u_normal0MapEnable, u_normal0Map, u_normal0Transform, u_normal0Amount,
                             u_normal0AmountMapEnable, u_normal0AmountMap, u_normal0AmountTransform, uv, 1.0f, bump);
    waveSlope(context, state, b.frame, waves);
    physical::combineSlopes(bump, waves, slope);
    physical::finishViewFrame(state, slope, b);
  }

  static bool indexMatched(const Boundary& b) { return std::fabs(b.eta - 1.0f) < kIndexMatched; }

  // The BSDF times |cos| of the local direction i, per channel, and its
  // density under sampleRough; 0 where the lobe has none.
  float roughResponse(const Boundary& b, Vector i, float value[3]) const {
    setAll3(value, 0.0f);
    const bool reflected = i.z > 0.0f;
    const microfacet::LobeValue lobe = reflected ? microfacet::ggxReflection(b.view, i, b.alpha)
                                                 : microfacet::ggxTransmission(b.view, i, b.alpha, b.eta);
    if (!lobe.valid()) return 0.0f;
    const float f = microfacet::dielectricFresnel(dot(b.view, lobe.half), b.eta);
    const float share = reflected ? f : 1.0f - f;
    for (int k = 0; k < 3; ++k)
      value[k] = share * lobe.value * b.absorption[k] * (reflected ? clampUnit(u_reflectColor[k]) : 1.0f);
    return share * lobe.density;
  }

  // Reflects about the (micro)normal m with the probability F of its
  // Fresnel reflectance, else refracts through it (total internal reflection
  // makes F 1). Returns F.
  static float scatterAbout(IShadingContext* context, const Boundary& b, Vector m, bool& reflected,
                            Vector& direction) {
    const float f = microfacet::dielectricFresnel(dot(b.view, m), b.eta);
    reflected = context->nextSample1D() < f || !microfacet::refractDirection(b.view, m, b.eta, direction);
    if (reflected) direction = microfacet::reflectDirection(b.view, m);
    return f;
  }

  // A smooth boundary: mirror (4) or refraction (8), the weight the event's
  // colour, pdf the probability of the event.
  void sampleSmooth(IShadingContext* context, ShadingState* state, const Boundary& b) const {
    bool reflected;
    Vector direction;
    const float f = scatterAbout(context, b, Vector{0.0f, 0.0f, 1.0f}, reflected, direction);
    const float probability = reflected ? f : 1.0f - f;
    for (int k = 0; k < 3; ++k)
      state->bsdfWeight[k] = (reflected ? clampUnit(u_reflectColor[k]) : 1.0f) * b.absorption[k];
    finishEvent(state, b, direction, reflected, probability, reflected ? 4 : 8);
  }

  // A visible microfacet normal, then reflection by its Fresnel share or
  // refraction through it; the weight is the BSDF over the density.
  void sampleRough(IShadingContext* context, ShadingState* state, const Boundary& b) const {
    if (!(b.view.z > 0.0f)) return endPath(state);
    float buffer[2];
    const float* xi = context->nextSample2D(buffer);
    bool reflected;
    Vector direction;
    scatterAbout(context, b, microfacet::sampleGgxVisibleNormal(b.view, b.alpha, xi[0], xi[1]), reflected, direction);
    if (reflected != (direction.z > 0.0f)) return endPath(state);  // shadowed by the microsurface
    float value[3];
    const float density = roughResponse(b, direction, value);
    if (!(density > 0.0f)) return endPath(state);
    for (int k = 0; k < 3; ++k) state->bsdfWeight[k] = value[k] / density;
    finishEvent(state, b, direction, reflected, density, reflected ? 2 : 16);
  }

  static void finishEvent(ShadingState* state, const Boundary& b, Vector local, bool reflected, float pdf,
                          int32_t lobe) {
    physical::worldOf(b.frame, local, state->sampledDirection);
    if (!physical::leavesOnItsSide(b, state->sampledDirection, reflected)) return endPath(state);
    state->pdf = pdf;
    state->pdfSecondary = pdf;
    state->lobeFlags = lobe;
  }

  // The absorption coefficient sigma per channel (per scene unit):
  // -ln(colour) / reference distance. A reference distance of 0 absorbs a
  // colour below 1 at once; a negative or NaN one absorbs nothing.
  float absorption_[3] = {0.0f, 0.0f, 0.0f};

 public:
  void deriveCachedValues() {
    const float* colour = transmissionColour();
    const float reference = u_transmissionDistance;
    for (int k = 0; k < 3; ++k) {
      const float c = clampUnit(colour[k]);
      if (!(c < 1.0f) || !(reference >= 0.0f))
        absorption_[k] = 0.0f;
      else if (reference == 0.0f)
        absorption_[k] = INFINITY;
      else
        absorption_[k] = -std::log(c) / reference;
    }
  }
};

KVI_SHADER_FACTORY(velk_qora_Mtl_Dielectric)

}  // namespace kvi
