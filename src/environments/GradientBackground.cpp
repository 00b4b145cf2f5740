// GradientBackground: a top-to-bottom gradient in screen space, of two
// colours or three (top, middle, bottom), optionally turned about the image
// centre. Rays of kind 2 see a flat colour instead, or black with full alpha
// when the background also stands for a light and the ray is of kind 8. The
// colour is finally compensated for the host's tone mapper.
#include <cmath>

#include "environments/background.h"
#include "frame/parameters.h"
#include "frame/registry.h"

namespace kvi {

#define KVI_GRADIENT_BACKGROUND_PARAMETERS(PARAM, VARYING)                                               \
  KVI_TONE_MAPPING_PARAMETERS(PARAM, VARYING)                                                            \
  PARAM(Bool, twoColorsOnly, doc("two colours (top, bottom); false: three (top, middle, bottom)"), true) \
  PARAM(Color3, backgroundTopColor,                                                                      \
        doc("colour at the top of the picture", "0 to 1 per channel", "display colour"),                 \
        {0.7f, 0.7f, 0.7f})                                                                              \
  PARAM(Color3, backgroundBottomColor,                                                                   \
        doc("colour at the bottom of the picture", "0 to 1 per channel", "display colour"),              \
        {0.7f, 0.7f, 0.7f})                                                                              \
  PARAM(Color3, backgroundMiddleColor,                                                                   \
        doc("colour in the middle (three colours)", "0 to 1 per channel", "display colour"),             \
        {0.7f, 0.7f, 0.7f})                                                                              \
  PARAM(Color3, backgroundColor,                                                                         \
        doc("flat colour shown to rays that are not camera rays", "0 or more per channel", "radiance"),  \
        {0.7f, 0.7f, 0.7f})                                                                              \
  PARAM(Float, rotationAngle, doc("turn of the gradient about the view axis", "any", "radians"), 0.0f)

class GradientBackground final : public ShaderImpl<EnvironmentShader> {
  KVI_SHADER_PARAMETERS(GradientBackground, kOpEnvironmentShade, KVI_GRADIENT_BACKGROUND_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    shadeScreenBackground(*this, context, state,
                          [this](const ShadingState* s, float rgb[3]) { gradientColor(rgb, gradientParameter(s)); });
  }

 private:
  // 0 at the top row and 1 at the bottom row of the image, measured along
  // the turned axis when "rotationAngle" is not 0. The turned form takes
  // |rho| in its extent term and rho itself in its projection, deliberately.
  float gradientParameter(const ShadingState* state) const {
    const float width = static_cast<float>(state->frameResolution[0]);
    const float height = static_cast<float>(state->frameResolution[1]);
    const float px = state->rasterPosition[0];
    const float py = state->rasterPosition[1];
    const float rho = rotationAngle;
    if (rho == 0.0f) return py / height;
    const float aspect = width / height;
    const float turn = std::fabs(rho);
    const float extent = 0.5f / (std::cos(turn) * 0.5f / aspect + std::sin(turn) * 0.5f);
    const float along = (std::cos(rho) * (0.5f - py / height) / aspect + std::sin(rho) * (px / width - 0.5f)) / aspect;
    return (0.5f / aspect - extent * along) * aspect;
  }

  // The colours at t, extrapolated outside [0, 1].
  void gradientColor(float out[3], float t) const {
    if (twoColorsOnly) {
      for (int i = 0; i < 3; ++i) out[i] = (1.0f - t) * backgroundTopColor[i] + t * backgroundBottomColor[i];
    } else if (0.5f > t) {
      const float u = 2.0f * t;
      for (int i = 0; i < 3; ++i) out[i] = (1.0f - u) * backgroundTopColor[i] + u * backgroundMiddleColor[i];
    } else {
      const float u = (t - 0.5f) * 2.0f;
      for (int i = 0; i < 3; ++i) out[i] = u * backgroundBottomColor[i] + (1.0f - u) * backgroundMiddleColor[i];
    }
  }
};

KVI_SHADER_FACTORY(GradientBackground)

}  // namespace kvi
