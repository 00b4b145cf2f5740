// AmbientLight: hands the host its colour, nothing else. It neither queries
// nor writes the shadow and uses no position or direction.
#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"

namespace kvi {

class AmbientLight final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(AmbientLight, kOpLightShade, KVI_COLOR_ONLY_LIGHT_PARAMETERS)

  void shade(IShadingContext*, ShadingState* state) override { copy3(state->lightColor, color); }
};

KVI_SHADER_FACTORY(AmbientLight)

}  // namespace kvi
