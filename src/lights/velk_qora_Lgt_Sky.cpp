// velk_qora_Lgt_Sky: stands for the sky's illumination. "intensity" is a
// colour here (a scalar in velk_qora_Lgt_Direction). Without "cast_shadows"
// lightShadow keeps whatever the host put there.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

#define KVI_LGT_SKY_PARAMETERS(PARAM, VARYING)                                                                       \
  PARAM(Color3, intensity, doc("colour and strength of the sky light", "0 or more per channel"), {1.0f, 1.0f, 1.0f}) \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow"), true)

class velk_qora_Lgt_Sky final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_Sky, kOpLightShade, KVI_LGT_SKY_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    if (cast_shadows) queryShadow(context, state);
    copy3(state->lightColor, intensity);
  }
};

KVI_SHADER_FACTORY(velk_qora_Lgt_Sky)

}  // namespace kvi
