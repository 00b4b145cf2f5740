// The parameters of the Ward family, each written once. The base material and
// the generated variants declare most of them in the same runs (a channel's
// flag, map, constant, transform and amount), which are the groups below;
// the few they order differently are single entries. Each material's list
// (velk_qora_Mtl_Ward.cpp, KVI_WARD_VARIANT_COMMON_PARAMETERS below) strings
// them together in its own declaration order.
//
// A texture transform is a 3 x 3 matrix applied to (u, v, 1); channel values
// read from a map are its red component (colours: its red, green and blue)
// times the channel's amount.
#pragma once

#include "frame/parameters.h"

// The varyings of the whole family.
#define KVI_WARD_VARYINGS(VARYING) VARYING(Vector, bitangent, 0) VARYING(Vector, tangent, 12) VARYING(Uv, uv, 24)

#define KVI_WARD_COSINE_USES_BUMP(PARAM) \
  PARAM(Bool, u_cosineUsesBump, doc("host flag, declared and copied; no operation reads it"), false)
#define KVI_WARD_REFLECTION_HIGHLIGHT_ONLY(PARAM) \
  PARAM(Bool, u_reflectionHighlightOnly, doc("host flag, declared and copied; no operation reads it"), false)

#define KVI_WARD_TINT(PARAM)                                                                        \
  PARAM(Bool, u_commonTintEnable, doc("multiply every result colour by the tint"), false)           \
  PARAM(Color4, u_commonTintColor, doc("tint; red, green and blue are used", "0 to 1 per channel"), \
        {1.0f, 1.0f, 1.0f, 1.0f})

#define KVI_WARD_DIFFUSE(PARAM, defaultColor)                                                                      \
  PARAM(Bool, u_diffuseMapEnable, doc("take the diffuse colour from the diffuse map"), false)                      \
  PARAM(Texture, u_diffuseMap, doc("diffuse colour map (red, green, blue; alpha for image-fade mode 1)"), unbound) \
  PARAM(Color3, u_diffuseColor, doc("diffuse colour (reflectance of the diffuse layer)", "0 to 1 per channel"),    \
        defaultColor)                                                                                              \
  PARAM(Matrix3, u_diffuseTransform, doc("uv transform of the diffuse map"), unset)                                \
  PARAM(Float, u_diffuseAmount, doc("scale of the diffuse map's colour", "0 or more"), 1.0f)

#define KVI_WARD_IMAGE_FADE(PARAM)                                                                                \
  PARAM(Int, u_imageFadeEnable,                                                                                   \
        doc("image fade: 0 off, 1 by the diffuse map's alpha, 2 fade colour from a map, 3 constant fade colour, " \
            "4 built-in noise fade colour",                                                                       \
            "0 to 4"),                                                                                            \
        unset)                                                                                                    \
  PARAM(Float, u_imageFade, doc("strength of the fade", "0 to 1"), 1.0f)                                          \
  PARAM(Texture, u_imageFadeMap, doc("fade colour map (mode 2)"), unbound)                                        \
  PARAM(Matrix3, u_imageFadeTransform, doc("uv transform of the fade map"), unset)                                \
  PARAM(Float, u_imageFadeAmount, doc("scale of the fade map's colour", "0 or more"), 1.0f)                       \
  PARAM(Color3, u_imageFadeColor, doc("fade colour (mode 3)", "0 to 1 per channel"), {0.0f, 0.0f, 0.0f})

#define KVI_WARD_TRANSPARENCY(PARAM)                                                                                   \
  PARAM(Bool, u_transparency, doc("the surface transmits light (transparency, translucency, refraction)"), false)      \
  PARAM(Bool, u_transparencyMapEnable, doc("blend the transparency map into the constant"), false)                     \
  PARAM(Texture, u_transparencyMap, doc("transparency map (red)"), unbound)                                            \
  PARAM(Float, u_transparencyValue, doc("transparency: share of the light not reflected that passes", "0 to 1"), 0.0f) \
  PARAM(Matrix3, u_transparencyTransform, doc("uv transform of the transparency map"), unset)                          \
  PARAM(Float, u_transparencyFade, doc("weight of the map against the constant", "0 to 1"), 0.0f)                      \
  PARAM(Float, u_ior, doc("index of refraction of the material behind the surface", "1 or more"), 1.33f)               \
  PARAM(Float, u_transparencyAmount, doc("scale of the transparency map", "0 or more"), 1.0f)

#define KVI_WARD_DECAL(PARAM)                                                                                      \
  PARAM(Bool, u_isDecal, doc("the material is a projected decal: hits outside its rectangle are cut away"), false) \
  PARAM(Matrix4, u_decalTransform, doc("maps (u, v, 0, 1) into the decal's unit square", "any 4 x 4 transform"), unset)

#define KVI_WARD_TRANSLUCENCY(PARAM)                                                                                   \
  PARAM(Bool, u_translucencyMapEnable, doc("take the translucency from its map"), false)                               \
  PARAM(Texture, u_translucencyMap, doc("translucency map (red)"), unbound)                                            \
  PARAM(                                                                                                               \
      Float, u_translucencyValue,                                                                                      \
      doc("translucency: share of the transmitted light that leaves diffusely (transparent surfaces only)", "0 to 1"), \
      0.0f)                                                                                                            \
  PARAM(Matrix3, u_translucencyTransform, doc("uv transform of the translucency map"), unset)                          \
  PARAM(Float, u_translucencyAmount, doc("scale of the translucency map", "0 or more"), 1.0f)

#define KVI_WARD_SPECULAR(PARAM)                                                                                   \
  PARAM(Bool, u_specularMapEnable, doc("take the specular colour from its map"), false)                            \
  PARAM(Texture, u_specularMap, doc("specular colour map"), unbound)                                               \
  PARAM(Color3, u_specularColor, doc("colour of the glossy reflection", "0 to 1 per channel"), {1.0f, 1.0f, 1.0f}) \
  PARAM(Matrix3, u_specularTransform, doc("uv transform of the specular map"), unset)                              \
  PARAM(Float, u_specularAmount, doc("scale of the specular map's colour", "0 or more"), 1.0f)

#define KVI_WARD_REFLECTIVITY(PARAM)                                                            \
  PARAM(Float, u_reflectivity, doc("overall scale of the Fresnel reflectance", "0 to 1"), 1.0f) \
  PARAM(Bool, u_isMetal, doc("metal: the diffuse layer is darkened by the specular reflectance's luminance"), false)

#define KVI_WARD_PROCEDURE(PARAM)                                                                      \
  PARAM(Int, u_procedureMapEnable,                                                                     \
        doc("built-in procedural bump: 0 none, 1 noise, 2 ripples with the smoke map, 3 broad waves, " \
            "5 regular, 6 fractal, 7 turbulent noise relief; 4 and others none",                       \
            "0 to 7"),                                                                                 \
        0)                                                                                             \
  PARAM(Color3, u_procedureMapTiling,                                                                  \
        doc("frequency of the procedural bump along world x, y and z", "above 0", "per world unit"),   \
        {1.0f, 1.0f, 1.0f})                                                                            \
  PARAM(Float, u_procedureMapAmount, doc("strength of the procedural bump", "0 or more"), 0.0f)        \
  PARAM(ClippingMap, u_smokeMap, doc("one-row table looked up by position for the ripple bump's smoke relief"), unbound)

#define KVI_WARD_ANISOTROPY(PARAM)                                                                     \
  PARAM(Bool, u_anisotropyMapEnable, doc("take the anisotropy from its map"), false)                   \
  PARAM(Texture, u_anisotropyMap, doc("anisotropy map (red)"), unbound)                                \
  PARAM(Float, u_anisotropyValue,                                                                      \
        doc("anisotropy: width of the highlight along the bitangent over its width along the tangent", \
            "above 0; 1 is isotropic"),                                                                \
        1.0f)                                                                                          \
  PARAM(Matrix3, u_anisotropyTransform, doc("uv transform of the anisotropy map"), unset)              \
  PARAM(Float, u_anisotropyAmount, doc("scale of the anisotropy map", "0 or more"), 1.0f)

#define KVI_WARD_ANISO_ROTATION(PARAM)                                                                             \
  PARAM(Bool, u_anisoRotationMapEnable, doc("take the anisotropy rotation from its map"), false)                   \
  PARAM(Texture, u_anisoRotationMap, doc("anisotropy rotation map (red)"), unbound)                                \
  PARAM(Float, u_anisoRotationValue, doc("turn of the highlight's axes about the normal", "any", "radians"), 0.0f) \
  PARAM(Matrix3, u_anisoRotationTransform, doc("uv transform of the rotation map"), unset)                         \
  PARAM(Float, u_anisoRotationAmount, doc("scale of the rotation map", "any", "radians per unit of red"), 1.0f)

#define KVI_WARD_BRDF(PARAM)                                                                                   \
  PARAM(Float, u_brdfCurvePower,                                                                               \
        doc("exponent of the Fresnel curve (1 - cos)^power from F0 to F90", "0 or more; 5 is typical"), unset) \
  PARAM(Bool, u_brdf00ReflectMapEnable, doc("take F0 from its map"), false)                                    \
  PARAM(Texture, u_brdf00ReflectMap, doc("F0 map (red)"), unbound)                                             \
  PARAM(Matrix3, u_brdf00ReflectTransform, doc("uv transform of the F0 map"), unset)                           \
  PARAM(Float, u_brdf00ReflectAmount, doc("scale of the F0 map", "0 or more"), 1.0f)                           \
  PARAM(Float, u_brdf00Reflectivity, doc("F0: reflectance at normal incidence", "0 to 1"), 0.1f)               \
  PARAM(Bool, u_brdf90ReflectMapEnable, doc("take F90 from its map"), false)                                   \
  PARAM(Texture, u_brdf90ReflectMap, doc("F90 map (red)"), unbound)                                            \
  PARAM(Matrix3, u_brdf90ReflectTransform, doc("uv transform of the F90 map"), unset)                          \
  PARAM(Float, u_brdf90Reflectivity, doc("F90: reflectance at grazing incidence", "0 to 1"), 1.0f)             \
  PARAM(Float, u_brdf90ReflectAmount, doc("scale of the F90 map", "0 or more"), 1.0f)

#define KVI_WARD_CUTOUT(PARAM, defaultEnable)                                                        \
  PARAM(Bool, u_cutoutMapEnable, doc("cut the surface by the cutout map's coverage"), defaultEnable) \
  PARAM(Texture, u_cutoutMap, doc("cutout map: red is the coverage, 1 solid, 0 cut away"), unbound)  \
  PARAM(Matrix3, u_cutoutTransform, doc("uv transform of the cutout map"), unset)                    \
  PARAM(Float, u_cutoutAmount, doc("scale of the cutout map", "0 or more"), 1.0f)

// Normal maps: single entries (the base and the variants order them differently).
#define KVI_WARD_NORMAL0_ENABLE(PARAM, defaultEnable) \
  PARAM(Bool, u_normal0MapEnable, doc("bend the normal by normal map 0"), defaultEnable)
#define KVI_WARD_NORMAL0_MAP(PARAM) \
  PARAM(Texture, u_normal0Map, doc("normal map 0: signed slopes along tangent and bitangent in red and green"), unbound)
#define KVI_WARD_NORMAL0_TRANSFORM(PARAM) PARAM(Matrix3, u_normal0Transform, doc("uv transform of normal map 0"), unset)
#define KVI_WARD_NORMAL0_AMOUNT(PARAM, defaultAmount) \
  PARAM(Float, u_normal0Amount, doc("strength of normal map 0 (slopes x 3.3 x amount)", "0 or more"), defaultAmount)
#define KVI_WARD_NORMAL0_AMOUNT_MAP_ENABLE(PARAM) \
  PARAM(Bool, u_normal0AmountMapEnable, doc("take the strength of normal map 0 from its map"), false)
#define KVI_WARD_NORMAL0_AMOUNT_MAP(PARAM) \
  PARAM(Texture, u_normal0AmountMap, doc("strength map of normal map 0 (red)"), unbound)
#define KVI_WARD_NORMAL0_AMOUNT_TRANSFORM(PARAM) \
  PARAM(Matrix3, u_normal0AmountTransform, doc("uv transform of the strength map"), unset)
#define KVI_WARD_NORMAL1_ENABLE(PARAM) PARAM(Bool, u_normal1MapEnable, doc("bend the normal by normal map 1"), false)
#define KVI_WARD_NORMAL1_MAP(PARAM) \
  PARAM(Texture, u_normal1Map, doc("normal map 1: signed slopes in red and green"), unbound)
#define KVI_WARD_NORMAL1_TRANSFORM(PARAM) PARAM(Matrix3, u_normal1Transform, doc("uv transform of normal map 1"), unset)
#define KVI_WARD_NORMAL1_AMOUNT(PARAM) \
  PARAM(Float, u_normal1Amount, doc("strength of normal map 1 (slopes x 3.3 x amount)", "0 or more"), 0.0f)
#define KVI_WARD_NORMAL1_AS_SHADING_NORMAL(PARAM) \
  PARAM(Bool, u_normal1AsShadingNormal,           \
        doc("normal map 1 and the procedural bump bend the diffuse layer too; off: only the glossy layer"), false)

#define KVI_WARD_ADDITIONAL(PARAM)                                                                                  \
  PARAM(Bool, u_additionalMapEnable, doc("take the emission from its map"), false)                                  \
  PARAM(Texture, u_additionalMap, doc("emission map"), unbound)                                                     \
  PARAM(Color3, u_additionalColor, doc("emitted radiance (front side only)", "0 or more per channel", "W/(m² sr)"), \
        unset)                                                                                                      \
  PARAM(Matrix3, u_additionalMapTransform, doc("uv transform of the emission map"), unset)                          \
  PARAM(Float, u_additionalAmount, doc("scale of the emission map's colour", "0 or more"), 1.0f)

#define KVI_WARD_CLIPPING(PARAM)                                                                                   \
  PARAM(ClippingMap, u_globalClippingMap, doc("table of clipping planes"), unbound)                                \
  PARAM(Bool, u_globalClippingMapEnable, doc("test the global clipping planes; hits on the cut side are removed"), \
        false)

// The variants' common parameters, before their node parameters. Defaults
// that follow from a variant's graphs come from its class (kNormal0Driven,
// kCutoutDriven): a driven normal map or cutout is on from the start, and a
// driven normal map bends the normal visibly.
#define KVI_WARD_VARIANT_COMMON_PARAMETERS(PARAM, VARYING)                                                        \
  KVI_WARD_VARYINGS(VARYING)                                                                                      \
  KVI_WARD_CLIPPING(PARAM)                                                                                        \
  KVI_WARD_PROCEDURE(PARAM)                                                                                       \
  KVI_WARD_NORMAL0_ENABLE(PARAM, kNormal0Driven)                                                                  \
  KVI_WARD_NORMAL0_MAP(PARAM)                                                                                     \
  KVI_WARD_NORMAL0_AMOUNT_MAP_ENABLE(PARAM)                                                                       \
  KVI_WARD_NORMAL0_AMOUNT_MAP(PARAM)                                                                              \
  KVI_WARD_NORMAL0_AMOUNT_TRANSFORM(PARAM)                                                                        \
  KVI_WARD_NORMAL0_AMOUNT(PARAM, kNormal0Driven ? 0.3f : 0.0f)                                                    \
  KVI_WARD_NORMAL0_TRANSFORM(PARAM)                                                                               \
  KVI_WARD_NORMAL1_ENABLE(PARAM)                                                                                  \
  KVI_WARD_NORMAL1_MAP(PARAM)                                                                                     \
  KVI_WARD_NORMAL1_AMOUNT(PARAM)                                                                                  \
  KVI_WARD_NORMAL1_TRANSFORM(PARAM)                                                                               \
  KVI_WARD_NORMAL1_AS_SHADING_NORMAL(PARAM)                                                                       \
  KVI_WARD_DIFFUSE(PARAM, KVI_WARD_GREY)                                                                          \
  KVI_WARD_IMAGE_FADE(PARAM)                                                                                      \
  KVI_WARD_SPECULAR(PARAM)                                                                                        \
  PARAM(Bool, u_roughMapEnable, doc("take the roughness from its map"), false)                                    \
  PARAM(Texture, u_roughMap, doc("roughness map (red)"), unbound)                                                 \
  PARAM(Float, u_roughValue,                                                                                      \
        doc("roughness of the glossy layer; the glossiness is u_reflectGlossyValue x (1 - roughness)", "0 to 1"), \
        unset)                                                                                                    \
  PARAM(Matrix3, u_roughTransform, doc("uv transform of the roughness map"), unset)                               \
  PARAM(Float, u_roughAmount, doc("scale of the roughness map", "0 or more"), 1.0f)                               \
  PARAM(Float, u_reflectGlossyValue, doc("scale of the glossiness, 1 - roughness", "0 to 1"), 1.0f)               \
  PARAM(Bool, u_refractGlossyMapEnable, doc("take the refraction glossiness from its map"), false)                \
  PARAM(Texture, u_refractGlossyMap, doc("refraction glossiness map (red)"), unbound)                             \
  PARAM(Matrix3, u_refractGlossyTransform, doc("uv transform of the refraction glossiness map"), unset)           \
  PARAM(Float, u_refractGlossyAmount, doc("scale of the refraction glossiness map", "0 or more"), 1.0f)           \
  PARAM(Float, u_refractGlossyValue,                                                                              \
        doc("glossiness of the traced transmission; 1 is clear, less blurs it", "0 to 1"), 1.0f)                  \
  KVI_WARD_ANISOTROPY(PARAM)                                                                                      \
  KVI_WARD_ANISO_ROTATION(PARAM)                                                                                  \
  KVI_WARD_BRDF(PARAM)                                                                                            \
  KVI_WARD_REFLECTIVITY(PARAM)                                                                                    \
  KVI_WARD_TRANSPARENCY(PARAM)                                                                                    \
  KVI_WARD_TRANSLUCENCY(PARAM)                                                                                    \
  KVI_WARD_CUTOUT(PARAM, kCutoutDriven)                                                                           \
  KVI_WARD_ADDITIONAL(PARAM)                                                                                      \
  KVI_WARD_COSINE_USES_BUMP(PARAM)                                                                                \
  KVI_WARD_REFLECTION_HIGHLIGHT_ONLY(PARAM)                                                                       \
  KVI_WARD_DECAL(PARAM)                                                                                           \
  KVI_WARD_TINT(PARAM)

#define KVI_WARD_BLACK \
  { 0.0f, 0.0f, 0.0f }
#define KVI_WARD_GREY \
  { 0.5f, 0.5f, 0.5f }
