// DirectionalLight: its colour, unattenuated; the shadow from the host when
// "castShadows" is set, full transmission written otherwise.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

// The violet default colour is the shader's own choice and is kept.
#define KVI_DIRECTIONAL_LIGHT_PARAMETERS(PARAM, VARYING)                                                      \
  PARAM(Color3, color,                                                                                        \
        doc("light colour: irradiance on a surface facing the light", "0 or more per channel", "irradiance"), \
        {0.5f, 0.1f, 1.0f})                                                                                   \
  PARAM(Bool, castShadows, doc("ask the host for the shadow"), true)

class DirectionalLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(DirectionalLight, kOpLightShade, KVI_DIRECTIONAL_LIGHT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    queryShadowOrUnshadowed(context, state, castShadows);
    copy3(state->lightColor, color);
  }
};

KVI_SHADER_FACTORY(DirectionalLight)

}  // namespace kvi
