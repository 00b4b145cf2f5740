// VertexColorEffect: the interpolated vertex colour ("vtxcolor"), optionally
// multiplied by a tinted texture, on BasicMaterial's surface without its
// highlight and mirror. The vertex alpha is the coverage (times the texel's
// alpha and the per-object alpha where they apply). Lit, it is a Lambertian
// reflector of that colour; unlit, it shows the colour as it is.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/basic/basic_effect.h"

namespace kvi {

#define KVI_VERTEX_COLOR_EFFECT_PARAMETERS(PARAM, VARYING) \
  KVI_BASIC_CLIPPING_PARAMETERS(PARAM)              \
  KVI_BASIC_EFFECT_MAP_PARAMETERS(PARAM)                   \
  KVI_BASIC_EFFECT_COMMON_PARAMETERS(PARAM, VARYING)

class VertexColorEffect final : public basic::BasicEffect<VertexColorEffect> {
  KVI_SHADER_PARAMETERS(VertexColorEffect, basic::kSurfaceOperations, KVI_VERTEX_COLOR_EFFECT_PARAMETERS)

  // The colour and coverage always come from the vertices, and the texture
  // always multiplies them.
  static constexpr uint8_t use_diffuse_vertex_color = 1;
  static constexpr uint8_t use_decal_mode = 0;
};

KVI_SHADER_FACTORY(VertexColorEffect)

}  // namespace kvi
