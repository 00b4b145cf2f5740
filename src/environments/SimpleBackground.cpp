// SimpleBackground: what a ray leaving the scene sees, by its direction: a
// flat colour, a latitude-longitude image or a cube image, the images turned
// by "cubeMatrix". Illumination rays (kind 8) may see a separate
// illumination image instead (what the background gives to lighting), or
// black with full alpha when a light stands for the background. The colour
// is compensated for the host's tone mapper, as every classic background's.
#include "environments/background.h"
#include "frame/parameters.h"
#include "frame/registry.h"
#include "frame/vector3.h"
#include "lights/cube_face.h"

namespace kvi {

#define KVI_SIMPLE_BACKGROUND_PARAMETERS(PARAM, VARYING)                                                            \
  KVI_TONE_MAPPING_PARAMETERS(PARAM, VARYING)                                                                       \
  PARAM(Int, backgroundMode,                                                                                        \
        doc("what the rays see: 0 backgroundColor, 1 backgroundImage, 2 cubeImage; other values the colour",       \
            "0, 1 or 2"),                                                                                           \
        0)                                                                                                          \
  PARAM(Color3, backgroundColor, doc("the background's colour", "0 to 1 per channel", "display colour"),           \
        {0.7f, 0.7f, 0.7f})                                                                                         \
  PARAM(EnvironmentMap, backgroundImage,                                                                            \
        doc("latitude-longitude image, looked up by the ray direction turned by cubeMatrix"), unbound)              \
  PARAM(Texture, cubeImage,                                                                                         \
        doc("six-face cube image, looked up at (s, t, face) of the ray direction turned by cubeMatrix"), unbound)   \
  PARAM(Matrix3, cubeMatrix,                                                                                        \
        doc("turns the ray direction before an image is looked up: the direction as a row vector times the "       \
            "matrix"),                                                                                              \
        {1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f})                                                     \
  PARAM(Bool, useIlluminationImage, doc("illumination rays see illuminationImage instead"), false)                  \
  PARAM(EnvironmentMap, illuminationImage,                                                                          \
        doc("what the background gives to lighting: latitude-longitude image, looked up by the turned direction"), \
        unbound)

class SimpleBackground final : public ShaderImpl<EnvironmentShader> {
  KVI_SHADER_PARAMETERS(SimpleBackground, kOpEnvironmentShade, KVI_SIMPLE_BACKGROUND_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float* result = state->surfaceResult;
    if (!showsBlackToLighting(*this, context, result)) {
      float rgba[4] = {0.0f, 0.0f, 0.0f, 1.0f};
      float direction[3];
      turned(state->rayDirection, direction);
      if (useIlluminationImage && context->isRayKind(8) != 0) {
        lookUp(illuminationImage, direction, rgba);
      } else if (backgroundMode == 1) {
        lookUp(backgroundImage, direction, rgba);
      } else if (backgroundMode == 2) {
        sampleProjectionCube(cubeImage, direction, rgba);
      } else {
        copy3(rgba, backgroundColor);
      }
      writeBackground(result, rgba, 0.0f);
    }
    compensateToneMapping(*this, state);
  }

 private:
  // The ray direction as a row vector times "cubeMatrix".
  void turned(const float d[3], float out[3]) const {
    const float* m = cubeMatrix;
    for (int i = 0; i < 3; ++i) out[i] = d[0] * m[i] + d[1] * m[3 + i] + d[2] * m[6 + i];
  }

  // A direction-addressed image; an unbound one leaves rgba as it is.
  static void lookUp(const TextureRef& image, const float direction[3], float rgba[4]) {
    if (image.sampler) image.sampler->sample(rgba, direction);
  }
};

KVI_SHADER_FACTORY(SimpleBackground)

}  // namespace kvi
