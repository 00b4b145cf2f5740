// Parameter groups that the materials of the physically based family and the
// Ward family declare alike, always as a consecutive run in their lists. Each
// expands inside a shader's parameter X-macro:
//
//   #define KVI_MIRROR_PARAMETERS(PARAM, VARYING)  (backslash)
//     PARAM(Color3, u_tintColor, ...)                (backslash)
//     KVI_PHYSICAL_TINT_PARAMETERS(PARAM)            (backslash)
//     ...
//
// The normal-map group takes the wrapper of its documentation: KVI_PLAIN_DOC
// where the material reads the maps, KVI_INERT_DOC where it only declares and
// copies them (the glazing), and the documentation of "u_normal0UVScale",
// whose use differs between the families.
#pragma once

#include "frame/parameters.h"

#define KVI_PLAIN_DOC(...) ::kvi::doc(__VA_ARGS__)
#define KVI_INERT_DOC(...) \
  ::kvi::doc("declared and copied so that the material takes its siblings' parameters; read by nothing")

#define KVI_PHYSICAL_TINT_PARAMETERS(PARAM)                                                           \
  PARAM(Bool, u_commonTintEnable, doc("multiply the material's weights by u_commonTintColor"), false) \
  PARAM(Color4, u_commonTintColor, doc("common tint (alpha unused)", "0 to 1 per channel"),           \
        {1.0f, 1.0f, 1.0f, 1.0f})

#define KVI_PHYSICAL_CLIPPING_PARAMETERS(PARAM)                                                    \
  PARAM(ClippingMap, u_globalClippingMap, doc("table of global clipping planes"), unbound)         \
  PARAM(Bool, u_globalClippingMapEnable, doc("remove hits on the cut side of the global clipping planes"), false)

#define KVI_PHYSICAL_OBJECT_COLOR_PARAMETERS(PARAM)                                                      \
  PARAM(Color4, u_extra_color_and_alpha,                                                                 \
        doc("per-object colour and alpha, set by the host per object", "0 to 1 per channel"),            \
        {0.0f, 0.0f, 0.0f, 1.0f})                                                                        \
  PARAM(Bool, u_extra_color_and_alpha_is_set, doc("the per-object colour is valid (with u_colorByObject)"), false)

#define KVI_PHYSICAL_NORMAL_MAP_PARAMETERS(PARAM, DOC, UV_SCALE_DOC)                                                  \
  PARAM(Bool, u_normal0MapEnable, DOC("normal map 0 on"), false)                                                    \
  PARAM(Texture, u_normal0Map,                                                                                      \
        DOC("normal map 0: signed slopes along the tangent and the bitangent in red and green, height in blue"),    \
        unbound)                                                                                                    \
  PARAM(Matrix3, u_normal0Transform, DOC("uv transform of normal map 0 (3 x 3, stored by columns)"), unset)         \
  PARAM(Float, u_normal0Amount, DOC("strength of normal map 0 (times 3.3)", "0 to 1"), 0.0f)                        \
  PARAM(Float, u_normal0UVScale, UV_SCALE_DOC, 1.0f)                                                                \
  PARAM(Bool, u_normal0AmountMapEnable, DOC("the strength map replaces u_normal0Amount"), false)                    \
  PARAM(Texture, u_normal0AmountMap, DOC("strength map of normal map 0 (red)"), unbound)                            \
  PARAM(Matrix3, u_normal0AmountTransform, DOC("uv transform of the strength map"), unset)                          \
  PARAM(Bool, u_normal1MapEnable, DOC("normal map 1 on"), false)                                                    \
  PARAM(Texture, u_normal1Map, DOC("normal map 1: a second layer of slopes, added to those of normal map 0"),      \
        unbound)                                                                                                    \
  PARAM(Matrix3, u_normal1Transform, DOC("uv transform of normal map 1"), unset)                                    \
  PARAM(Float, u_normal1Amount, DOC("strength of normal map 1 (times 3.3)", "0 to 1"), 0.0f)                        \
  PARAM(Bool, u_normal1AsShadingNormal, DOC("normal map 1 bends the diffuse part too; off: only the reflection"), \
        false)
