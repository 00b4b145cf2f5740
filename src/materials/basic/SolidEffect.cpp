// SolidEffect: a flat colour or texture on BasicMaterial's surface without
// its highlight and mirror. Lit, it is a Lambertian reflector of that colour;
// unlit, it shows the colour as it is. Coverage, cut-outs, culling, emission
// and the per-object colour work as in BasicMaterial.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "materials/basic/basic_effect.h"

namespace kvi {

#define KVI_SOLID_EFFECT_PARAMETERS(PARAM, VARYING)                                                      \
  KVI_BASIC_CLIPPING_PARAMETERS(PARAM)                                                            \
  PARAM(Color3, diffuse, doc("the colour: reflectance when lit, shown as it is when unlit", "0 to 1 per channel"), \
        {1.0f, 1.0f, 1.0f})                                                                              \
  KVI_BASIC_EFFECT_MAP_PARAMETERS(PARAM)                                                                 \
  PARAM(Bool, use_decal_mode, doc("texture blends over the colour by its alpha; false: it multiplies"), true) \
  PARAM(Float, opacity, doc("coverage; 1 is opaque, 0 fully transparent", "0 to 1 (clamped when used)"), 1.0f) \
  KVI_BASIC_EFFECT_COMMON_PARAMETERS(PARAM, VARYING)

class SolidEffect final : public basic::BasicEffect<SolidEffect> {
  KVI_SHADER_PARAMETERS(SolidEffect, basic::kSurfaceOperations, KVI_SOLID_EFFECT_PARAMETERS)

  // The colour never comes from the vertices.
  static constexpr uint8_t use_diffuse_vertex_color = 0;
};

KVI_SHADER_FACTORY(SolidEffect)

}  // namespace kvi
