// velk_qora_Mtl_Metal: the physically based metal. A diffuse base under a
// glossy, optionally anisotropic reflection lobe, with patina, brushed, broken
// and anodised finishes, a relief colour map, a procedural tile bump, two
// normal maps, procedural and mapped cutouts, the common tint and the global
// clipping planes.
//
// Every operation that shades runs two stages on the hit:
//   - the frame stage: the tangent frame of the hit, bent by normal map 0 (or
//     the tile bump) and normal map 1 and kept facing the viewer, then turned
//     by the anisotropy rotation; two frames when normal map 1 bends only the
//     reflection ("u_normal1AsShadingNormal" off): the shading frame (diffuse)
//     and the glossy frame (reflection);
//   - the layer stage: the diffuse colour D, the reflection colour S, the
//     specular fraction F (the angular reflectivity times the share of the
//     surface that stays specular), the anisotropy A and the lobe centre.
// The operations then combine them as the fixed steps below say; the layer
// stage itself is documented in docs/shaders/physical.md.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/physical/parameters.h"
#include "materials/physical/shared.h"

namespace kvi {
namespace {

using namespace physical;

// max(E) must exceed this for gathered light to count.
constexpr float kIrradianceFloor = 1e-5f;
// A glossiness this close to 1 (on either axis) reflects as a mirror.
constexpr float kMirrorRoughness = 0.001f;
// The floor of the glossy event's reported density.
constexpr float kMinGlossyDensity = 0.001f;
// How far the anodised finish turns the hue of the reflection colour, as a
// share of the colour circle, at the noise's extremes.
constexpr float kAnodisedHueSwing = 0.15f;

// The patina mask has no transform of its own: it is read at (u, v, 1).
constexpr float kIdentityTransform[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

enum Finish : int32_t { kPolished = 0, kBrushed = 1, kBroken = 2, kAnodised = 3 };
// Sources of the anisotropy and of its rotation.
enum MapSource : int32_t { kOwnMap = 1, kBrushMap = 2, kBreakMap = 3 };

float nonNegative(float x) { return x > 0.0f ? x : 0.0f; }

// The frames of one hit and the ray direction in the glossy frame.
struct HitFrames {
  float shading[9];
  float glossyStorage[9];
  const float* glossy;  // shading, or glossyStorage when normal map 1 bends the reflection alone
  float view[3];        // incoming ray direction in the glossy frame (pointing at the surface)
};

// What the finish parameters make of one hit.
struct Layer {
  float diffuse[3];   // D
  float specular[3];  // S
  float fraction;     // F
  float anisotropy;   // A
  float centre[3];    // of the anisotropic lobe
};

}  // namespace

// "unset" fields are left for the host's first setParameters.
#define KVI_METAL_PARAMETERS(PARAM, VARYING)                                                                         \
  VARYING(Vector, bitangent, physical::kBitangentOffset)                                                             \
  VARYING(Vector, tangent, physical::kTangentOffset)                                                                 \
  VARYING(Uv, uv, physical::kUvOffset)                                                                               \
  PARAM(Bool, u_colorByObject, doc("the reflection colour and the alpha come from the per-object colour"), false)   \
  PARAM(Color3, u_diffuseColor, doc("colour of the diffuse base under the metal", "0 to 1 per channel"),             \
        {0.0f, 0.0f, 0.0f})                                                                                          \
  PARAM(Float, u_diffuseWeight, doc("weight of the diffuse base (multiplies its colour)", "0 to 1"), 0.5f)           \
  PARAM(Color3, u_specularColor, doc("colour of the metal's reflection", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f})  \
  PARAM(Float, u_glossiness, doc("glossiness; 1 is a mirror, 0 a very broad lobe", "0 to 1"), unset)                 \
  PARAM(Float, u_reflectivity, doc("scale of the angular reflectivity curve", "0 to 1"), unset)                      \
  PARAM(Float, u_brdfCurvePower, doc("exponent of the curve from head-on to grazing reflectivity", "1 to 10; 5 is "  \
                                     "Fresnel-like"),                                                                \
        unset)                                                                                                       \
  PARAM(Float, u_brdf00Reflectivity, doc("reflectivity head on (at normal incidence)", "0 to 1"), unset)             \
  PARAM(Float, u_brdf90Reflectivity, doc("reflectivity at grazing incidence", "0 to 1"), unset)                      \
  PARAM(Int, u_cutoutsSwitcher,                                                                                      \
        doc("cutout: 1 round holes, 2 square holes, 3 slots, 4 diamonds, 6 staggered round holes, 7 the cutout map; " \
            "0, 5 and other values none",                                                                            \
            "0 to 7"),                                                                                               \
        unset)                                                                                                       \
  PARAM(Texture, u_cutoutMap, doc("cutout map (cutout 7): the opacity is the mean of red, green and blue"), unbound) \
  PARAM(Float, u_cutoutAmount, doc("declared and copied, read by nothing"), 1.0f)                                    \
  PARAM(Matrix3, u_cutoutTransform, doc("uv transform of the cutout map (3 x 3, stored by columns)"), unset)         \
  PARAM(Float, u_cutoutsCenter, doc("offset of the hole pattern on both axes", "any", "pattern units"), unset)       \
  PARAM(Float, u_cutoutsSize, doc("diameter (slots: width) of a hole", "0 to u_cutoutsSpace", "pattern units"),      \
        unset)                                                                                                       \
  PARAM(Float, u_cutoutsSpace, doc("pitch of the holes (slots: twice this along u); 0 or less: no holes",           \
                                   "above 0", "pattern units"),                                                      \
        unset)                                                                                                       \
  PARAM(Float, u_uvScale, doc("frequency of the procedural tile bump: tiles per 2 uv units", "above 0"), 1.0f)       \
  PARAM(Float, u_otherScale, doc("frequency of the anodised noise", "above 0", "1 / scene unit"), unset)             \
  PARAM(Float, u_uvDefScale, doc("scale of the procedural cutouts", "above 0", "pattern units per uv unit"), unset)  \
  PARAM(Int, u_bumpSwitcher, doc("1: the procedural tile bump replaces normal map 0", "0 or 1"), unset)              \
  PARAM(Int, u_reflectSwitcher,                                                                                      \
        doc("finish: 1 brushed (brush map streaks), 2 broken (break map dulls), 3 anodised (noise turns the hue); "   \
            "0 and other values polished",                                                                           \
            "0 to 3"),                                                                                               \
        unset)                                                                                                       \
  PARAM(Int, u_anisoSwitcher,                                                                                        \
        doc("source of the anisotropy: 1 the anisotropy map (when on), 2 the brush map, 3 the break map; "           \
            "other values u_anisotropyValue",                                                                        \
            "0 to 3"),                                                                                               \
        unset)                                                                                                       \
  PARAM(Int, u_anisoRotSwitcher,                                                                                     \
        doc("source of the rotation: 1 the rotation map (when on), 2 the brush map, 3 the break map; other values "  \
            "u_anisoRotationValue",                                                                                  \
            "0 to 3"),                                                                                               \
        unset)                                                                                                       \
  PARAM(Bool, u_brushMapEnable, doc("brush map on for the brushed finish"), false)                                   \
  PARAM(Texture, u_brushMap, doc("brush map: streak brightness in red"), unbound)                                    \
  PARAM(Matrix3, u_brushTransform, doc("uv transform of the brush map"), unset)                                      \
  PARAM(Bool, u_breakMapEnable, doc("break map on for the broken finish"), false)                                    \
  PARAM(Texture, u_breakMap, doc("break map: share of dulled, diffusely scattering metal in red"), unbound)          \
  PARAM(Matrix3, u_breakTransform, doc("uv transform of the break map"), unset)                                      \
  PARAM(Bool, u_bumpMapColorEnable, doc("relief colour map on"), false)                                              \
  PARAM(Texture, u_bumpMapColor, doc("relief colour map: its colour darkens and tints diffuse and reflection"),      \
        unbound)                                                                                                     \
  PARAM(Matrix3, u_bumpMapColorTransform, doc("uv transform of the relief colour map"), unset)                       \
  PARAM(Color3, u_noiseanodized_tiling, doc("tiling of the anodised noise along x, y and z", "above 0"),             \
        {1.0f, 1.0f, 1.0f})                                                                                          \
  PARAM(Float, u_bumpMapAmount, doc("strength of the relief colour map", "0 to 1"), 1.0f)                            \
  PARAM(Bool, u_patinaEnable, doc("patina layer on"), false)                                                         \
  PARAM(Texture, u_patinaMap, doc("patina mask in red; unbound: patina everywhere"), unbound)                        \
  PARAM(Color3, u_patinaColor, doc("diffuse colour of the patina", "0 to 1 per channel"), unset)                     \
  PARAM(Float, u_patinaGlossy, doc("glossiness of the patina: the share of its reflection that stays specular",      \
                                   "0 to 1"),                                                                        \
        unset)                                                                                                       \
  PARAM(Float, u_patinaBrdf00Reflectivity, doc("head-on reflectivity of the patina", "0 to 1"), 1.0f)                \
  PARAM(Float, n_patinaPercent, doc("share of the surface the patina covers, times its mask", "0 to 1"), unset)      \
  KVI_PHYSICAL_TINT_PARAMETERS(PARAM)                                                                                \
  KVI_PHYSICAL_NORMAL_MAP_PARAMETERS(PARAM, KVI_PLAIN_DOC,                                                           \
                                     doc("declared and copied; u_normal0Transform scales normal map 0"))             \
  KVI_PHYSICAL_CLIPPING_PARAMETERS(PARAM)                                                                            \
  PARAM(Bool, u_anisotropyMapEnable, doc("anisotropy map on (with u_anisoSwitcher 1)"), false)                       \
  PARAM(Texture, u_anisotropyMap, doc("anisotropy map (red, times value and amount)"), unbound)                      \
  PARAM(Float, u_anisotropyValue,                                                                                    \
        doc("anisotropy: glossiness factor along the bitangent; 1 isotropic, below 1 rougher across the brushing",   \
            "0 to 1"),                                                                                               \
        1.0f)                                                                                                        \
  PARAM(Matrix3, u_anisotropyTransform, doc("uv transform of the anisotropy map"), unset)                            \
  PARAM(Float, u_anisotropyAmount, doc("strength of the anisotropy map", "0 to 1"), 1.0f)                            \
  PARAM(Bool, u_anisoRotationMapEnable, doc("rotation map on (with u_anisoRotSwitcher 1)"), false)                   \
  PARAM(Texture, u_anisoRotationMap, doc("rotation map (red, times value and amount)"), unbound)                     \
  PARAM(Float, u_anisoRotationValue, doc("rotation of the tangent frame about the normal", "any", "radians"), 0.0f)  \
  PARAM(Matrix3, u_anisoRotationTransform, doc("uv transform of the rotation map"), unset)                           \
  PARAM(Float, u_anisoRotationAmount, doc("strength of the rotation map", "any"), 1.0f)                              \
  KVI_PHYSICAL_OBJECT_COLOR_PARAMETERS(PARAM)

class velk_qora_Mtl_Metal final : public ShaderImpl<MaterialShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Mtl_Metal,
                        kOpTestCutout | kOpEvaluateRadiance | kOpShadeSurface | kOpShadowTransmission |
                            kOpEvaluateBsdf | kOpSampleBsdf,
                        KVI_METAL_PARAMETERS)

  void shadeSurface(IShadingContext*, ShadingState* state) override { writeSurfaceResult(state, 1, 0, 0, 1); }

  void shadowTransmission(IShadingContext*, ShadingState* state) override {
    setAll3(state->shadowTransmission, 0.0f);
    const float opacity = opacityAt(state);
    if (opacity == 1.0f) return;
    setAll3(state->shadowTransmission, 1.0f - opacity);
  }

  void evaluateBsdf(IShadingContext* context, ShadingState* state) override {
    const float g = u_glossiness;
    HitFrames frames;
    Layer layer;
    frameStage(state, frames);
    layerStage(context, state, frames, layer);
    const float bias = state->glossinessBias;
    const float w0 = reflectanceCurve(nonNegative(g - bias));
    const float secondGlossiness = layer.anisotropy * g;
    const float w1 = secondGlossiness == g ? w0 : reflectanceCurve(nonNegative(secondGlossiness - bias));
    float diffuseLight[3], glossyLight[3];
    toLocal(frames.glossy, state->sampledDirection, glossyLight);
    if (frames.glossy == frames.shading)
      copy3(diffuseLight, glossyLight);
    else
      toLocal(frames.shading, state->sampledDirection, diffuseLight);
    float* weight = state->bsdfWeight;
    for (int i = 0; i < 3; ++i) weight[i] = layer.diffuse[i] * (1.0f - layer.fraction) * kInvPi * diffuseLight[2];
    const float half[3] = {glossyLight[0] - frames.view[0], glossyLight[1] - frames.view[1],
                           glossyLight[2] - frames.view[2]};
    const float lobe = anisotropicHalfVectorLobe(layer.centre, half, w0, w1);
    for (int i = 0; i < 3; ++i) weight[i] += layer.specular[i] * layer.fraction * lobe * glossyLight[2];
    applyTint(u_commonTintEnable, u_commonTintColor, weight);
    const float opacity = opacityAt(state);
    for (int i = 0; i < 3; ++i) weight[i] = weight[i] * opacity;
    state->pdf = 1.0f;
  }

  void sampleBsdf(IShadingContext* context, ShadingState* state) override {
    const float opacity = opacityAt(state);
    if (context->nextSample1D() > opacity) {
      copy3(state->sampledDirection, state->rayDirection);
      setAll3(state->bsdfWeight, 1.0f);
      state->pdf = 1.0f;
      state->pdfSecondary = 1.0f;
      state->lobeFlags = 64;
      return;
    }
    const float g = u_glossiness;
    HitFrames frames;
    Layer layer;
    frameStage(state, frames);
    layerStage(context, state, frames, layer);
    const float w = samplingWidth(reflectanceCurve(nonNegative(g - state->glossinessBias)));
    const float wSecond = w * layer.anisotropy;

    state->pdfSecondary = 1.0f;
    const float choice = context->nextSample1D();
    const bool diffuseSampled = context->isDiffuseSampled() != 0;
    float* weight = state->bsdfWeight;
    if (choice >= layer.fraction && diffuseSampled) {
      float local[3];
      state->pdf = sampleCosineHemisphere(context, local);
      toWorld(frames.shading, local, state->sampledDirection);
      state->lobeFlags = 1;
      copy3(weight, layer.diffuse);
      applyTint(u_commonTintEnable, u_commonTintColor, weight);
      return;
    }
    const float roughness = 1.0f - g;
    const float secondRoughness = 1.0f - layer.anisotropy * g;
    const bool rough = roughness > kMirrorRoughness || secondRoughness > kMirrorRoughness;
    if (rough && context->acceptsGlossyBounce(roughness > kMirrorRoughness ? roughness : secondRoughness)) {
      LobeSample sample;
      const bool sampled = sampleAnisotropicLobe(context, frames.view, w, wSecond, frames.glossy, sample);
      state->pdf = 1.0f;
      if (!sampled) {
        state->lobeFlags = 0;  // below the surface: absorbed
        return;
      }
      state->lobeFlags = 2;
      copy3(state->sampledDirection, sample.direction);
      for (int i = 0; i < 3; ++i) weight[i] = layer.specular[i] * sample.weight;
      if (w != 0.0f && wSecond != 0.0f) {
        const float* h = sample.halfVector;
        const float* o = layer.centre;
        // About the centre 0 this is the sampler's own density, to the bit.
        const bool centred = o[0] == 0.0f && o[1] == 0.0f && o[2] == 0.0f;
        const float density =
            centred ? sample.pdf : anisotropicHalfVectorLobe(o, h, w, wSecond) * h[2] / (2.0f / (1.0f - o[2] / h[2]));
        state->pdfSecondary = density > kMinGlossyDensity ? density : kMinGlossyDensity;
        for (int i = 0; i < 3; ++i) weight[i] = weight[i] * state->pdfSecondary;
      }
    } else {
      const float mirrored[3] = {frames.view[0], frames.view[1], -frames.view[2]};
      toWorld(frames.glossy, mirrored, state->sampledDirection);
      state->lobeFlags = 4;
      copy3(weight, layer.specular);
    }
    // Without a random choice of the lobe, the reflection carries its share F.
    if (!diffuseSampled)
      for (int i = 0; i < 3; ++i) weight[i] = weight[i] * layer.fraction;
    applyTint(u_commonTintEnable, u_commonTintColor, weight);
  }

  void evaluateRadiance(IShadingContext* context, ShadingState* state) override {
    state->radianceDone = 1;
    setAll3(state->radiance, 0.0f);
    float buffer[3];
    const float* irradiance = context->gatherIrradiance(buffer, state->position, state->normal);
    if (!(max3(irradiance) > kIrradianceFloor)) return;
    HitFrames frames;
    Layer layer;
    frameStage(state, frames);
    layerStage(context, state, frames, layer);
    float gathered[3];
    for (int i = 0; i < 3; ++i) gathered[i] = layer.diffuse[i] * (1.0f - layer.fraction) * irradiance[i];
    applyTint(u_commonTintEnable, u_commonTintColor, gathered);
    const float opacity = opacityAt(state);
    for (int i = 0; i < 3; ++i) state->radiance[i] += gathered[i] * opacity;
  }

  void testCutout(IShadingContext*, ShadingState* state) override {
    testGlobalClipping(u_globalClippingMapEnable, u_globalClippingMap, state);
  }

  void deriveCachedValues() {
    rotationCosine_ = std::cos(u_anisoRotationValue);
    rotationSine_ = std::sin(u_anisoRotationValue);
  }

 private:
  static void uvOf(const ShadingState* state, float uv[2]) {
    float pair[2];
    readVarying(state, kUvOffset, pair);
    uv[0] = pair[0];
    uv[1] = pair[1];
  }

  float opacityAt(const ShadingState* state) const {
    float uv[2];
    uvOf(state, uv);
    return cutoutOpacity(u_cutoutsSwitcher, uv, u_uvDefScale, u_cutoutMap, u_cutoutTransform, u_cutoutsCenter,
                         u_cutoutsSpace, u_cutoutsSize, u_colorByObject, u_extra_color_and_alpha,
                         u_extra_color_and_alpha_is_set);
  }

  // ---- frame stage

  // Normal map 0, or the tile bump when "u_bumpSwitcher" is 1.
  void firstPerturbation(const float uv[2], float q[3]) const {
    if (u_bumpSwitcher != 1) {
      normalMapSlope(u_normal0MapEnable, u_normal0Map, u_normal0Transform, u_normal0Amount,
                     u_normal0AmountMapEnable, u_normal0AmountMap, u_normal0AmountTransform, uv, 1.0f, q);
      return;
    }
    float slope[2];
    tileBumpSlope(uv, u_uvScale, slope);
    const float strength = u_normal0Amount * 3.3f;
    q[0] = slope[0] * strength;
    q[1] = slope[1] * strength;
    q[2] = 1.0f;
  }

  void turnByRotation(const float uv[2], float frame[9]) const {
    const TextureRef* map = nullptr;
    const float* transform = nullptr;
    switch (u_anisoRotSwitcher) {
      case kOwnMap:
        if (u_anisoRotationMapEnable) map = &u_anisoRotationMap, transform = u_anisoRotationTransform;
        break;
      case kBrushMap: map = &u_brushMap, transform = u_brushTransform; break;
      case kBreakMap: map = &u_breakMap, transform = u_breakTransform; break;
      default: break;
    }
    if (map) {
      rotateFrame(frame, scaledScalarChannel(true, *map, transform, u_anisoRotationValue, u_anisoRotationAmount, uv));
    } else if (u_anisoRotationValue != 0.0f) {
      rotateFrameBy(frame, rotationCosine_, rotationSine_);
    }
  }

  void frameStage(const ShadingState* state, HitFrames& frames) const {
    float uv[2], tangent[3], bitangent[3];
    uvOf(state, uv);
    readVarying(state, kTangentOffset, tangent);
    readVarying(state, kBitangentOffset, bitangent);
    startFrame(state->tangentFrame, tangent, bitangent, state->normal, frames.shading);
    float q[3];
    firstPerturbation(uv, q);
    frames.glossy = frames.shading;
    // The perturbation needs the whole frame; without one, the
    // orthonormalisation after the viewer test is the only one needed.
    if (u_normal1MapEnable || !(q[0] == 0.0f && q[1] == 0.0f && q[2] > 0.0f)) orthonormalizeFrame(frames.shading);
    if (u_normal1MapEnable) {
      const TextureRef noAmountMap{nullptr, -1};
      float second[3], both[3];
      normalMapSlope(1, u_normal1Map, u_normal1Transform, u_normal1Amount, 0, noAmountMap, u_normal1Transform, uv,
                     1.0f, second);
      combineSlopes(q, second, both);
      if (!u_normal1AsShadingNormal) {
        // Normal map 1 bends the reflection alone: a glossy frame of its own.
        for (int i = 0; i < 9; ++i) frames.glossyStorage[i] = frames.shading[i];
        frames.glossy = frames.glossyStorage;
        finishFrame(state, uv, both, frames.glossyStorage);
      } else {
        copy3(q, both);
      }
    }
    finishFrame(state, uv, q, frames.shading);
    toLocal(frames.glossy, state->rayDirection, frames.view);
  }

  void finishFrame(const ShadingState* state, const float uv[2], const float q[3], float frame[9]) const {
    bendFrameTowardViewer(state->rayDirection, q, frame);
    orthonormalizeFrame(frame);
    turnByRotation(uv, frame);
  }

  // ---- layer stage

  // Red of a map at its transform, for the finishes and map sources.
  static float redOf(const TextureRef& map, const float transform[9], const float uv[2]) {
    float texel[4];
    sampleChannel(map, transform, uv, texel);
    return texel[0];
  }

  // The anodised finish: the hue of the reflection colour wanders with a
  // solid noise of the hit position.
  void anodise(IShadingContext* context, const ShadingState* state, float color[3]) const {
    const float p[4] = {state->position[0] * u_noiseanodized_tiling[0] * u_otherScale,
                        state->position[1] * u_noiseanodized_tiling[1] * u_otherScale,
                        state->position[2] * u_noiseanodized_tiling[2] * u_otherScale, 0.0f};
    const float noise = context->noise4D(p);
    float hsl[3];
    rgbToHsl(color, hsl);
    const float hue = hsl[0] + kAnodisedHueSwing * noise;
    hsl[0] = hue - std::floor(hue);
    hslToRgb(hsl, color);
  }

  float anisotropyAt(const float uv[2]) const {
    switch (u_anisoSwitcher) {
      case kOwnMap:
        return scaledScalarChannel(u_anisotropyMapEnable, u_anisotropyMap, u_anisotropyTransform, u_anisotropyValue,
                                   u_anisotropyAmount, uv);
      case kBrushMap:
        return scaledScalarChannel(true, u_brushMap, u_brushTransform, u_anisotropyValue, u_anisotropyAmount, uv);
      case kBreakMap:
        return scaledScalarChannel(true, u_breakMap, u_breakTransform, u_anisotropyValue, u_anisotropyAmount, uv);
      default: return u_anisotropyValue;
    }
  }

  void layerStage(IShadingContext* context, const ShadingState* state, const HitFrames& frames, Layer& layer) const {
    float uv[2];
    uvOf(state, uv);
    float* d = layer.diffuse;
    float* s = layer.specular;
    for (int i = 0; i < 3; ++i) d[i] = u_diffuseColor[i] * u_diffuseWeight;
    copy3(s, perObjectColorApplies(u_colorByObject, u_extra_color_and_alpha_is_set) ? u_extra_color_and_alpha
                                                                                       : u_specularColor);
    // The share of the surface whose reflection stays specular.
    float specularShare = 1.0f;
    float f0 = u_brdf00Reflectivity;
    if (u_reflectSwitcher == kBrushed && u_brushMapEnable) {
      const float streak = redOf(u_brushMap, u_brushTransform, uv);
      for (int i = 0; i < 3; ++i) s[i] = s[i] * streak;
    } else if (u_reflectSwitcher == kBroken && u_breakMapEnable) {
      // Broken metal scatters diffusely, in the metal's own colour.
      const float broken = clampUnit(redOf(u_breakMap, u_breakTransform, uv));
      for (int i = 0; i < 3; ++i) d[i] = d[i] + (s[i] - d[i]) * broken;
      specularShare = 1.0f - broken;
    } else if (u_reflectSwitcher == kAnodised) {
      anodise(context, state, s);
    }
    if (u_bumpMapColorEnable) {
      float relief[4];
      sampleChannel(u_bumpMapColor, u_bumpMapColorTransform, uv, relief);
      const float strength = clampUnit(u_bumpMapAmount);
      for (int i = 0; i < 3; ++i) {
        const float factor = 1.0f + (relief[i] - 1.0f) * strength;
        d[i] = d[i] * factor;
        s[i] = s[i] * factor;
      }
    }
    if (u_patinaEnable) {
      const float mask = u_patinaMap.sampler ? redOf(u_patinaMap, kIdentityTransform, uv) : 1.0f;
      const float cover = clampUnit(n_patinaPercent * mask);
      for (int i = 0; i < 3; ++i) {
        d[i] = d[i] + (u_patinaColor[i] - d[i]) * cover;
        s[i] = s[i] + (1.0f - s[i]) * cover;  // the patina's reflection is uncoloured
      }
      f0 = f0 + (u_patinaBrdf00Reflectivity - f0) * cover;
      specularShare = specularShare * (1.0f - cover * (1.0f - clampUnit(u_patinaGlossy)));
    }
    const float reflectivity = angularReflectivity(-frames.view[2], f0, u_brdf90Reflectivity, u_brdfCurvePower);
    layer.fraction = clampUnit(u_reflectivity * reflectivity) * specularShare;
    layer.anisotropy = anisotropyAt(uv);
    setAll3(layer.centre, 0.0f);
  }

  // The constant anisotropy rotation, turned once per setParameters.
  float rotationCosine_ = 1.0f;
  float rotationSine_ = 0.0f;
};

KVI_SHADER_FACTORY(velk_qora_Mtl_Metal)

}  // namespace kvi
