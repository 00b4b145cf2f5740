// velk_qora_Mtl_MetallicPaint: layered car paint. From the top down:
//   1. a clear coat: a dielectric boundary reflecting its Fresnel share,
//      sharp (a perfect mirror at roughness 0) or a GGX lobe;
//   2. a gloss coat: a second, broader GGX lobe with its own Fresnel share;
//   3. the base, lit by what both coats let through on the way in and on the
//      way out: flakes (small mirror-like GGX facets, one per cell of a 3D
//      grid that holds one, tilted at random, merging into an even sheen with
//      distance) over a base coat that is part diffuse, part metallic (a GGX
//      lobe of the base colour).
// A pearl effect turns the hue of the base and flake colours with the
// viewing angle. A coat lets 1 - amount x F(cos) through in each direction,
// so what it reflects the layers below do not get again and no direction
// reflects more than arrives. Every lobe but the flakes' is reciprocal.
//
// sampleBsdf picks one lobe by its share of the light at this view, draws a
// direction from it and weighs it by the sum of all lobes over the density
// of the mixture (reported in pdf and pdfSecondary); the mirror coat's event
// reports the probability of choosing it. On rays whose diffuse light the
// host gathers (isDiffuseSampled 0) the diffuse lobe is left to
// evaluateRadiance, which adds it for the gathered irradiance.
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
using physical::kInvPi;
using physical::ViewFrame;
using physical::endPath;
using physical::finite3;

// Layer shares below this take no part in sampling.
constexpr float kNegligibleShare = 1e-6f;
// Mean cosine of a cosine-weighted hemisphere, for the pearl hue of gathered light.
constexpr float kMeanCosine = 2.0f / 3.0f;
// Steps of the quadrature of the coats' mean transmission over the hemisphere.
constexpr int kMeanTransmissionSteps = 64;
// Keys of the cell's tilt numbers, after the cell's own hash.
constexpr float kTiltKey1 = 2.0f;
constexpr float kTiltKey2 = 3.0f;

enum Lobe { kClearCoat, kGlossCoat, kFlake, kMergedFlakes, kMetallicBase, kDiffuseBase, kLobeCount };

// The GGX width of a lobe that has no delta branch: at least the sharpest
// width the family samples.
float lobeAlpha(float roughness) {
  return std::fmax(microfacet::alphaFromRoughness(roughness), microfacet::kSmoothAlpha);
}

// One coat: the share of light it reflects at a cosine is amount x F.
struct Coat {
  float amount = 0.0f;
  float eta = 1.0f;
  float alpha = 0.0f;
  float reflected(float cosine) const { return amount * microfacet::dielectricFresnel(cosine, eta); }
  float transmitted(float cosine) const { return 1.0f - reflected(cosine); }
};

// The paint at one hit: the frame, the layers, and the flake of the cell.
struct Paint : ViewFrame {
  Coat clear, gloss;
  float base[3], flakeColour[3];
  float baseHsl[3], flakeHsl[3];
  float pearl = 0.0f;       // hue turns at grazing incidence; 0 leaves the colours alone
  float share[kLobeCount];  // coverage of each base lobe (coats: 1)
  float alpha[kLobeCount];
  float flakeFrame[9];      // the cell's flake: tangent, bitangent, normal in the local frame
};

}  // namespace

#define KVI_METALLIC_PAINT_PARAMETERS(PARAM, VARYING)                                                             \
  VARYING(Vector, bitangent, 0)                                                                                   \
  VARYING(Vector, tangent, 12)                                                                                    \
  VARYING(Uv, uv, 24)                                                                                             \
  PARAM(Bool, u_colorByObject, doc("the per-object colour replaces the base colour"), false)                     \
  PARAM(Color3, u_baseColor, doc("colour of the base coat", "0 to 1 per channel"), {0.5f, 0.03f, 0.03f})         \
  PARAM(Bool, u_baseColorMapEnable, doc("the base colour comes from the map: its colour x u_baseColorAmount"),    \
        false)                                                                                                    \
  PARAM(Texture, u_baseColorMap, doc("base colour map"), unbound)                                                 \
  PARAM(Matrix3, u_baseColorTransform, doc("uv transform of the base colour map"), unset)                         \
  PARAM(Float, u_baseColorAmount, doc("multiplier of the base colour map's colour", "0 to 1"), 1.0f)              \
  PARAM(Float, u_baseMetallic,                                                                                    \
        doc("share of the base coat that reflects like a metal (a glossy lobe of the base colour); the rest is "  \
            "diffuse",                                                                                            \
            "0 to 1"),                                                                                            \
        0.5f)                                                                                                     \
  PARAM(Float, u_baseRoughness, doc("roughness of the base coat's metallic lobe", "0 to 1"), 0.45f)               \
  PARAM(Float, u_flakeDensity, doc("share of the cells that hold a flake; 0 has no flakes", "0 to 1"), 0.25f)     \
  PARAM(Float, u_flakeSize, doc("edge of the cells of the flakes", "above 0", "scene units"), 0.003f)             \
  PARAM(Color3, u_flakeColor, doc("colour of the flakes' reflection", "0 to 1 per channel"),                      \
        {0.9f, 0.9f, 0.9f})                                                                                       \
  PARAM(Float, u_flakeSpread, doc("spread of the flakes' tilt (GGX width of their normals)", "0 to 1"), 0.35f)    \
  PARAM(Float, u_flakeRoughness, doc("roughness of each flake's reflection", "0 to 1"), 0.25f)                    \
  PARAM(Float, u_flakeFadeDistance,                                                                               \
        doc("viewing distance at which single flakes have merged into an even sheen; 0 never merges", "0 or more", \
            "scene units"),                                                                                       \
        40.0f)                                                                                                    \
  PARAM(Float, u_pearlHueShift,                                                                                   \
        doc("hue turn of the base and flake colours at grazing view (pearl); 0 is none", "-1 to 1", "turns"),     \
        0.0f)                                                                                                     \
  PARAM(Float, u_clearCoatAmount, doc("strength of the clear coat; 0 removes it", "0 to 1"), 1.0f)                \
  PARAM(Float, u_clearCoatIor, doc("index of refraction of the clear coat", "1 or more"), 1.5f)                   \
  PARAM(Float, u_clearCoatRoughness, doc("roughness of the clear coat; 0 is a perfect mirror", "0 to 1"), 0.0f)   \
  PARAM(Float, u_glossCoatAmount, doc("strength of the broad gloss coat; 0 removes it", "0 to 1"), 1.0f)          \
  PARAM(Float, u_glossCoatIor, doc("index of refraction of the gloss coat", "1 or more"), 1.5f)                   \
  PARAM(Float, u_glossCoatRoughness, doc("roughness of the gloss coat", "0 to 1"), 0.35f)                         \
  KVI_GLASS_PAINT_CLOSING_PARAMETERS(PARAM)

class velk_qora_Mtl_MetallicPaint final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_MetallicPaint,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_METALLIC_PAINT_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState* state) override { physical::shadeGlassSurface(state); }

  void shadowTransmission(IShadingContext*, ShadingState*) override {}

  void testCutout(IShadingContext*, ShadingState* state) override {
    physical::testGlobalClipping(u_globalClippingMapEnable, u_globalClippingMap, state);
  }

  // The diffuse base's answer to the gathered irradiance: the diffuse lobe
  // integrated against light even over the hemisphere.
  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    state->radianceDone = 1;
    setAll3(state->radiance, 0.0f);
    if (context->isRayKind(8)) return;
    float buffer[3];
    const float* irradiance = context->gatherIrradiance(buffer, state->position, state->normal);
    if (!(max3(irradiance) > 1e-5f)) return;
    Paint p;
    prepare(context, state, p);
    const float mu = p.view.z;
    if (!(mu > 0.0f)) return;
    float colour[3];
    pearlColour(p, p.base, p.baseHsl, 0.5f * (mu + kMeanCosine), colour);
    const float layers = p.share[kDiffuseBase] * coatsTransmitted(p, mu) * meanCoatTransmission_ * kInvPi;
    for (int k = 0; k < 3; ++k) state->radiance[k] = irradiance[k] * colour[k] * layers;
    applyTint(state->radiance);
    if (!finite3(state->radiance)) setAll3(state->radiance, 0.0f);
  }

  void evaluateBsdf(IShadingContext* context, ShadingState* state) override {
    Paint p;
    prepare(context, state, p);
    float probability[kLobeCount];
    lobeProbabilities(p, nullptr, probability);
    const Vector towardsLight = physical::localOf(p.frame, state->sampledDirection);
    float value[3];
    const float density = response(p, towardsLight, probability, false, value);
    applyTint(value);
    physical::answerLightSample(state, value, density);
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    Paint p;
    prepare(context, state, p);
    float probability[kLobeCount];
    if (!(p.view.z > 0.0f) || !lobeProbabilities(p, context, probability)) return endPath(state);
    const Lobe lobe = pickLobe(probability, context->nextSample1D());
    if (lobe == kClearCoat && p.clear.alpha < microfacet::kSmoothAlpha) {
      sampleMirrorCoat(state, p, probability[kClearCoat]);
    } else {
      Vector direction;
      if (!sampleLobe(context, p, lobe, direction)) return endPath(state);
      float value[3];
      const float density = response(p, direction, probability, true, value);
      if (!(density > 0.0f)) return endPath(state);
      for (int k = 0; k < 3; ++k) state->bsdfWeight[k] = value[k] / density;
      physical::worldOf(p.frame, direction, state->sampledDirection);
      state->pdf = density;
      state->pdfSecondary = density;
      state->lobeFlags = lobe == kDiffuseBase ? 1 : 2;
    }
    applyTint(state->bsdfWeight);
    if (!physical::leavesOnItsSide(p, state->sampledDirection, true) || !finite3(state->bsdfWeight) ||
        !(state->pdf > 0.0f) || !std::isfinite(state->pdf))
      endPath(state);
  }

 private:
  // Cosine-weighted mean over the hemisphere of what both coats let through.
  float meanCoatTransmission_ = 1.0f;

 public:
  void deriveCachedValues() {
    Paint p;
    coats(p);
    float sum = 0.0f;
    for (int step = 0; step < kMeanTransmissionSteps; ++step) {
      // Even steps in cos^2 are even steps of the cosine-weighted measure.
      const float mu = std::sqrt((float(step) + 0.5f) / float(kMeanTransmissionSteps));
      sum += coatsTransmitted(p, mu);
    }
    meanCoatTransmission_ = sum / float(kMeanTransmissionSteps);
  }

 private:
  void applyTint(float weight[3]) const { physical::applyTint(u_commonTintEnable, u_commonTintColor, weight); }

  void coats(Paint& p) const {
    p.clear = Coat{clampUnit(u_clearCoatAmount), microfacet::relativeIndex(u_clearCoatIor),
                   microfacet::alphaFromRoughness(u_clearCoatRoughness)};
    p.gloss = Coat{clampUnit(u_glossCoatAmount), microfacet::relativeIndex(u_glossCoatIor),
                   lobeAlpha(u_glossCoatRoughness)};
  }

  static float coatsTransmitted(const Paint& p, float cosine) {
    return p.clear.transmitted(cosine) * p.gloss.transmitted(cosine);
  }

  void baseColour(const float uv[2], float out[3]) const {
    const float* colour = physical::perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set)
                              ? u_extra_color_and_alpha
                              : u_baseColor;
    physical::colorChannel(u_baseColorMapEnable, u_baseColorMap, u_baseColorTransform, colour, u_baseColorAmount, uv,
                           out);
    for (int k = 0; k < 3; ++k) out[k] = clampUnit(out[k]);
  }

  // Whether the cell around `position` holds a flake, and the flake's
  // normal drawn from a GGX distribution of width "u_flakeSpread" about the
  // shading normal (local frame), from the host's hash of the cell.
  bool flakeOfCell(IShadingContext* context, const float position[3], float normal[3]) const {
    const float inverseSize = 1.0f / u_flakeSize;
    if (!(inverseSize > 0.0f) || !(inverseSize < INFINITY)) return false;
    float key = 0.0f;
    for (int k = 0; k < 3; ++k) {
      const float cell = std::floor(position[k] * inverseSize);
      if (!std::isfinite(cell)) return false;
      key = clampUnit(context->hashRandom(cell + key));
    }
    if (!(key < clampUnit(u_flakeDensity))) return false;
    const float u1 = std::fmin(clampUnit(context->hashRandom(key + kTiltKey1)), 0.999999f);
    const float u2 = clampUnit(context->hashRandom(key + kTiltKey2));
    const float spread = clampUnit(u_flakeSpread);
    const float tan2 = spread * spread * u1 / (1.0f - u1);
    const float cosTheta = 1.0f / std::sqrt(1.0f + tan2);
    const float sinTheta = std::sqrt(std::fmax(0.0f, 1.0f - cosTheta * cosTheta));
    const float phi = physical::kTwoPi * u2;
    normal[0] = sinTheta * std::cos(phi);
    normal[1] = sinTheta * std::sin(phi);
    normal[2] = cosTheta;
    return true;
  }

  void prepare(IShadingContext* context, const ShadingState* state, Paint& p) const {
    float uv[2], slope[3];
    physical::readVarying(state, physical::kUvOffset, uv);
    physical::startViewFrame(state, p);
    physical::normalMapSlope(u_normal0MapEnable, u_normal0Map, u_normal0Transform, u_normal0Amount,
                             u_normal0AmountMapEnable, u_normal0AmountMap, u_normal0AmountTransform, uv, 1.0f, slope);
    physical::finishViewFrame(state, slope, p);
    coats(p);

    baseColour(uv, p.base);
    for (int k = 0; k < 3; ++k) p.flakeColour[k] = clampUnit(u_flakeColor[k]);
    p.pearl = std::isfinite(u_pearlHueShift) ? u_pearlHueShift : 0.0f;
    if (p.pearl != 0.0f) {
      physical::rgbToHsl(p.base, p.baseHsl);
      physical::rgbToHsl(p.flakeColour, p.flakeHsl);
    }

    // Flakes: the cell's own flake up close, an even sheen of all flakes
    // from afar, mixed by the distance the viewing ray travelled.
    const float density = clampUnit(u_flakeDensity);
    const float fade =
        density > 0.0f && u_flakeFadeDistance > 0.0f ? clampUnit(state->lightDistance / u_flakeFadeDistance) : 0.0f;
    float near = 0.0f;
    if (density > 0.0f && fade < 1.0f && flakeOfCell(context, state->position, p.flakeFrame + 6)) {
      near = 1.0f - fade;
      completeFrame(p.flakeFrame + 6, p.flakeFrame, p.flakeFrame + 3);
    }
    const float flakes = near + fade * density;
    const float metallic = clampUnit(u_baseMetallic);
    p.share[kClearCoat] = 1.0f;
    p.share[kGlossCoat] = 1.0f;
    p.share[kFlake] = near;
    p.share[kMergedFlakes] = fade * density;
    p.share[kMetallicBase] = (1.0f - flakes) * metallic;
    p.share[kDiffuseBase] = (1.0f - flakes) * (1.0f - metallic);

    const float flakeAlpha = lobeAlpha(u_flakeRoughness);
    const float spread = clampUnit(u_flakeSpread);
    p.alpha[kClearCoat] = p.clear.alpha;
    p.alpha[kGlossCoat] = p.gloss.alpha;
    p.alpha[kFlake] = flakeAlpha;
    p.alpha[kMergedFlakes] = std::fmin(1.0f, std::sqrt(flakeAlpha * flakeAlpha + spread * spread));
    p.alpha[kMetallicBase] = lobeAlpha(u_baseRoughness);
    p.alpha[kDiffuseBase] = 1.0f;
  }

  // The colour turned by the pearl hue shift at the mean cosine c of the
  // two directions (the same both ways, so the lobe stays reciprocal).
  static void pearlColour(const Paint& p, const float rgb[3], const float hsl[3], float c, float out[3]) {
    if (p.pearl == 0.0f) {
      copy3(out, rgb);
      return;
    }
    const float turned = hsl[0] + p.pearl * (1.0f - clampUnit(c));
    const float shifted[3] = {turned - std::floor(turned), hsl[1], hsl[2]};
    physical::hslToRgb(shifted, out);
  }

  // A direction of the local frame in the flake's frame.
  static Vector inFlakeFrame(const Paint& p, Vector v) {
    const float local[3] = {v.x, v.y, v.z};
    return physical::localOf(p.flakeFrame, local);
  }

  // The share of the light at this view each lobe would reflect, as sampling
  // probabilities. With a context, lobes the host does not offer (diffuse
  // when it gathers, glossy ones it refuses) get none; without, all are
  // offered. False when no lobe has any share.
  bool lobeProbabilities(const Paint& p, IShadingContext* context, float probability[kLobeCount]) const {
    const float mu = p.view.z;
    const float throughClear = p.clear.transmitted(mu);
    const float under = throughClear * p.gloss.transmitted(mu);
    float weight[kLobeCount];
    weight[kClearCoat] = p.clear.reflected(mu);
    weight[kGlossCoat] = throughClear * p.gloss.reflected(mu);
    const float facing = p.share[kFlake] > 0.0f && inFlakeFrame(p, p.view).z > 0.0f ? 1.0f : 0.0f;
    weight[kFlake] = under * p.share[kFlake] * facing * max3(p.flakeColour);
    weight[kMergedFlakes] = under * p.share[kMergedFlakes] * max3(p.flakeColour);
    weight[kMetallicBase] = under * p.share[kMetallicBase] * max3(p.base);
    weight[kDiffuseBase] = under * p.share[kDiffuseBase] * max3(p.base);
    float total = 0.0f;
    for (int lobe = 0; lobe < kLobeCount; ++lobe) {
      if (!(weight[lobe] > kNegligibleShare) || (context && !offered(context, p, Lobe(lobe)))) weight[lobe] = 0.0f;
      total += weight[lobe];
    }
    for (int lobe = 0; lobe < kLobeCount; ++lobe) probability[lobe] = total > 0.0f ? weight[lobe] / total : 0.0f;
    return total > 0.0f;
  }

  static bool offered(IShadingContext* context, const Paint& p, Lobe lobe) {
    if (lobe == kDiffuseBase) return context->isDiffuseSampled() != 0;
    if (lobe == kClearCoat && p.clear.alpha < microfacet::kSmoothAlpha) return true;
    return context->acceptsGlossyBounce(std::sqrt(p.alpha[lobe])) != 0;
  }

  static Lobe pickLobe(const float probability[kLobeCount], float xi) {
    float sum = 0.0f;
    int last = kClearCoat;
    for (int lobe = 0; lobe < kLobeCount; ++lobe) {
      if (!(probability[lobe] > 0.0f)) continue;
      sum += probability[lobe];
      last = lobe;
      if (xi < sum) return Lobe(lobe);
    }
    return Lobe(last);
  }

  static void sampleMirrorCoat(ShadingState* state, const Paint& p, float probability) {
    const Vector mirrored{-p.view.x, -p.view.y, p.view.z};
    physical::worldOf(p.frame, mirrored, state->sampledDirection);
    setAll3(state->bsdfWeight, p.clear.reflected(p.view.z) / probability);
    state->pdf = probability;
    state->pdfSecondary = probability;
    state->lobeFlags = 4;
  }

  // A local direction drawn from one lobe; false when it leaves below the surface.
  static bool sampleLobe(IShadingContext* context, const Paint& p, Lobe lobe, Vector& direction) {
    if (lobe == kDiffuseBase) {
      float local[3];
      physical::sampleCosineHemisphere(context, local);
      direction = microfacet::normalized({local[0], local[1], local[2]});
      return direction.z > 0.0f;
    }
    float buffer[2];
    const float* xi = context->nextSample2D(buffer);
    if (lobe == kFlake) {
      const Vector view = inFlakeFrame(p, p.view);
      if (!(view.z > 0.0f)) return false;
      const Vector m = microfacet::sampleGgxVisibleNormal(view, p.alpha[kFlake], xi[0], xi[1]);
      const Vector local = microfacet::reflectDirection(view, m);
      float inFrame[3];
      physical::worldOf(p.flakeFrame, local, inFrame);
      direction = {inFrame[0], inFrame[1], inFrame[2]};
      return direction.z > 0.0f && local.z > 0.0f;
    }
    const Vector m = microfacet::sampleGgxVisibleNormal(p.view, p.alpha[lobe], xi[0], xi[1]);
    direction = microfacet::reflectDirection(p.view, m);
    return direction.z > 0.0f;
  }

  // The paint's BSDF times cos i, per channel, summed over its lobes (only
  // those with a probability when `sampledOnly`: the host carries the others
  // itself or not at all), and the density with which sampleBsdf draws i
  // under the given probabilities. The mirror coat, a delta, adds to neither.
  float response(const Paint& p, Vector i, const float probability[kLobeCount], bool sampledOnly,
                 float value[3]) const {
    setAll3(value, 0.0f);
    float on[kLobeCount];
    for (int lobe = 0; lobe < kLobeCount; ++lobe) on[lobe] = !sampledOnly || probability[lobe] > 0.0f ? 1.0f : 0.0f;
    const Vector o = p.view;
    if (!(o.z > 0.0f) || !(i.z > 0.0f)) return 0.0f;
    float density = 0.0f;
    float white = 0.0f;  // the coats' colourless part
    if (!(p.clear.alpha < microfacet::kSmoothAlpha)) {
      const microfacet::LobeValue lobe = microfacet::ggxReflection(o, i, p.clear.alpha);
      white += on[kClearCoat] * p.clear.reflected(dot(o, lobe.half)) * lobe.value;
      density += probability[kClearCoat] * lobe.density;
    }
    const float throughClear = p.clear.transmitted(o.z) * p.clear.transmitted(i.z);
    const microfacet::LobeValue glossy = microfacet::ggxReflection(o, i, p.gloss.alpha);
    white += on[kGlossCoat] * throughClear * p.gloss.reflected(dot(o, glossy.half)) * glossy.value;
    density += probability[kGlossCoat] * glossy.density;

    const float under = throughClear * p.gloss.transmitted(o.z) * p.gloss.transmitted(i.z);
    const float meanCosine = 0.5f * (o.z + i.z);
    float flake = 0.0f, base = 0.0f;
    if (p.share[kFlake] > 0.0f) {
      const microfacet::LobeValue lobe =
          microfacet::ggxReflection(inFlakeFrame(p, o), inFlakeFrame(p, i), p.alpha[kFlake]);
      flake += on[kFlake] * p.share[kFlake] * lobe.value;
      density += probability[kFlake] * lobe.density;
    }
    if (p.share[kMergedFlakes] > 0.0f) {
      const microfacet::LobeValue lobe = microfacet::ggxReflection(o, i, p.alpha[kMergedFlakes]);
      flake += on[kMergedFlakes] * p.share[kMergedFlakes] * lobe.value;
      density += probability[kMergedFlakes] * lobe.density;
    }
    const microfacet::LobeValue metallic = microfacet::ggxReflection(o, i, p.alpha[kMetallicBase]);
    base += on[kMetallicBase] * p.share[kMetallicBase] * metallic.value;
    density += probability[kMetallicBase] * metallic.density;
    base += on[kDiffuseBase] * p.share[kDiffuseBase] * i.z * kInvPi;
    density += probability[kDiffuseBase] * i.z * kInvPi;

    float flakeColour[3], baseColour[3];
    pearlColour(p, p.flakeColour, p.flakeHsl, meanCosine, flakeColour);
    pearlColour(p, p.base, p.baseHsl, meanCosine, baseColour);
    for (int k = 0; k < 3; ++k) value[k] = white + under * (flake * flakeColour[k] + base * baseColour[k]);
    return density;
  }
};

KVI_SHADER_FACTORY(velk_qora_Mtl_MetallicPaint)

}  // namespace kvi
