// The parameters the dielectric and the metallic paint end with, in this
// order: the common tint, normal map 0, the global clipping planes and the
// per-object colour (whose first flag, "u_colorByObject", each material
// declares first, saying what the colour replaces).
#pragma once

#define KVI_GLASS_PAINT_CLOSING_PARAMETERS(PARAM)                                                                     \
  PARAM(Bool, u_commonTintEnable, doc("multiply every weight by the tint"), false)                                    \
  PARAM(Color4, u_commonTintColor, doc("tint colour (alpha unused)", "0 to 1 per channel"),                           \
        {1.0f, 1.0f, 1.0f, 1.0f})                                                                                     \
  PARAM(Bool, u_normal0MapEnable, doc("normal map 0 bends the normal"), false)                                        \
  PARAM(Texture, u_normal0Map, doc("normal map 0 (colours used as they come)"), unbound)                              \
  PARAM(Matrix3, u_normal0Transform, doc("uv transform of normal map 0"), unset)                                      \
  PARAM(Float, u_normal0Amount, doc("strength of normal map 0", "0 or more"), 0.0f)                                   \
  PARAM(Bool, u_normal0AmountMapEnable, doc("the strength comes from the amount map's red"), false)                   \
  PARAM(Texture, u_normal0AmountMap, doc("strength map of normal map 0 (red channel)"), unbound)                      \
  PARAM(Matrix3, u_normal0AmountTransform, doc("uv transform of the strength map"), unset)                            \
  PARAM(ClippingMap, u_globalClippingMap, doc("table of clipping planes"), unbound)                                   \
  PARAM(Bool, u_globalClippingMapEnable, doc("hits on the cut side of the clipping planes are removed"), false)       \
  PARAM(Color4, u_extra_color_and_alpha, doc("per-object colour (set by the host per object; alpha unused)",          \
                                             "0 to 1 per channel"),                                                   \
        {0.0f, 0.0f, 0.0f, 1.0f})                                                                                     \
  PARAM(Bool, u_extra_color_and_alpha_is_set, doc("the per-object colour is valid (both flags are needed)"), false)
