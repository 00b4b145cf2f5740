// velk_qora_Lgt_Direction: a distant light, "color" scaled by the scalar
// "intensity". Without "cast_shadows" it leaves lightShadow as the host put it
// (unlike DirectionalLight, which writes full transmission).
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

#define KVI_LGT_DIRECTION_PARAMETERS(PARAM, VARYING)                                                    \
  PARAM(Color3, color,                                                                                  \
        doc("light colour", "0 or more per channel", "irradiance at normal incidence, with intensity"), \
        {1.0f, 1.0f, 1.0f})                                                                             \
  PARAM(Float, intensity, doc("scalar multiplier of color", "0 or more"), 1.0f)                         \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow"), true)

class velk_qora_Lgt_Direction final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_Direction, kOpLightShade, KVI_LGT_DIRECTION_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    if (cast_shadows) queryShadow(context, state);
    state->lightColor[0] = intensity * color[0];
    state->lightColor[1] = intensity * color[1];
    state->lightColor[2] = intensity * color[2];
  }
};

KVI_SHADER_FACTORY(velk_qora_Lgt_Direction)

}  // namespace kvi
