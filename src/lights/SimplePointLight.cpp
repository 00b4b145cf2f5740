// SimplePointLight: its colour, unattenuated, and always a shadow query (there
// is no switch), even where the colour is black.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

class SimplePointLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(SimplePointLight, kOpLightShade, KVI_COLOR_ONLY_LIGHT_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    queryShadow(context, state);
    copy3(state->lightColor, color);
  }
};

KVI_SHADER_FACTORY(SimplePointLight)

}  // namespace kvi
