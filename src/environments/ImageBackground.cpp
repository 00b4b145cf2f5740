// ImageBackground: a picture laid out on the screen behind the scene.
//
// Camera rays see the picture at their pixel; other rays see the flat
// "backgroundColor" (or black with full alpha when a light stands for the
// background and the ray is an illumination ray), as in GradientBackground.
// The layout works in the pixels of the render target ("renderTargetResolution",
// the frame's own size where 0), the frame's pixels scaled to it, with the
// picture "imageResolution" pixels large:
//   0 fit      as large as fits whole, centred (bars of backgroundColor)
//   1 fill     as small as covers the target, centred (cropped)
//   2 stretch  to the target's size, the aspect ratio not kept
//   3 tile     at its own size, repeated from the top left corner
//   4 centre   at its own size, once, centred
// (other values fit). Without "keepAspectRatio", fit and fill stretch as 2
// does. The picture's uv (u to the right, v upwards, (0, 0) its lower left)
// is then scaled by "uv_scale" and offset by "uv_offset"; outside [0, 1]^2
// (but when tiling) the background colour shows. The texel is laid over the
// background colour by its alpha, and the colour is compensated for the
// host's tone mapper.
#include <cmath>

#include "environments/background.h"
#include "frame/parameters.h"
#include "frame/registry.h"

namespace kvi {

#define KVI_IMAGE_BACKGROUND_PARAMETERS(PARAM, VARYING)                                                             \
  KVI_TONE_MAPPING_PARAMETERS(PARAM, VARYING)                                                                       \
  PARAM(Texture, image, doc("the picture, looked up at its (u, v); v = 0 is its bottom row"), unbound)              \
  PARAM(Color3, backgroundColor,                                                                                    \
        doc("colour around the picture and behind its transparent parts, and what rays other than camera rays "    \
            "see",                                                                                                  \
            "0 to 1 per channel", "display colour"),                                                                \
        {0.0f, 0.0f, 0.0f})                                                                                         \
  PARAM(Int, layoutType, doc("0 fit, 1 fill, 2 stretch, 3 tile, 4 centre; other values fit", "0 to 4"), 0)       \
  PARAM(Bool, keepAspectRatio, doc("fit and fill keep the picture's aspect ratio; off, they stretch it"), true)    \
  PARAM(Color3, imageResolution,                                                                                    \
        doc("the picture's width and height (the third value is ignored)", "more than 0", "pixels"),               \
        {1.0f, 1.0f, 0.0f})                                                                                         \
  PARAM(Color3, renderTargetResolution,                                                                             \
        doc("width and height of the picture the layout is made for (the third value is ignored); 0 takes the "    \
            "frame's",                                                                                              \
            "0 or more", "pixels"),                                                                                 \
        {0.0f, 0.0f, 0.0f})                                                                                         \
  PARAM(Float2, uv_scale, doc("scales the picture's uv after the layout", "any; 1 keeps it"), {1.0f, 1.0f})        \
  PARAM(Color3, uv_offset, doc("added to the scaled uv (the third value is ignored)", "any"), {0.0f, 0.0f, 0.0f})

class ImageBackground final : public ShaderImpl<EnvironmentShader> {
  KVI_SHADER_PARAMETERS(ImageBackground, kOpEnvironmentShade, KVI_IMAGE_BACKGROUND_PARAMETERS)

  enum Layout : int32_t { kFit = 0, kFill = 1, kStretch = 2, kTile = 3, kCentre = 4 };

  void shade(IShadingContext* context, ShadingState* state) override {
    shadeScreenBackground(*this, context, state, [this](const ShadingState* s, float rgb[3]) { pictureColor(s, rgb); });
  }

 private:
  void pictureColor(const ShadingState* state, float rgb[3]) const {
    float uv[2];
    const bool covered = pictureUv(state, uv);
    float texel[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    if (covered && image.sampler) image.sampler->sample(texel, uv);
    const float alpha = covered ? texel[3] : 0.0f;
    for (int i = 0; i < 3; ++i) rgb[i] = alpha * texel[i] + (1.0f - alpha) * backgroundColor[i];
  }

  // The picture's (u, v) at the state's pixel; false where the picture does
  // not cover it (never when tiling; a NaN uv never covers).
  bool pictureUv(const ShadingState* state, float uv[2]) const {
    const float frameWidth = static_cast<float>(state->frameResolution[0]);
    const float frameHeight = static_cast<float>(state->frameResolution[1]);
    const float targetWidth = renderTargetResolution[0] > 0.0f ? renderTargetResolution[0] : frameWidth;
    const float targetHeight = renderTargetResolution[1] > 0.0f ? renderTargetResolution[1] : frameHeight;
    const float x = state->rasterPosition[0] * (targetWidth / frameWidth);
    const float y = state->rasterPosition[1] * (targetHeight / frameHeight);

    const float stretchX = targetWidth / imageResolution[0], stretchY = targetHeight / imageResolution[1];
    float scaleX = 1.0f, scaleY = 1.0f;  // tile and centre: the picture's own size
    if (layoutType == kStretch || ((layoutType != kTile && layoutType != kCentre) && !keepAspectRatio)) {
      scaleX = stretchX, scaleY = stretchY;
    } else if (layoutType == kFill) {
      scaleX = scaleY = std::fmax(stretchX, stretchY);
    } else if (layoutType != kTile && layoutType != kCentre) {
      scaleX = scaleY = std::fmin(stretchX, stretchY);
    }
    const float width = imageResolution[0] * scaleX, height = imageResolution[1] * scaleY;
    const bool tiled = layoutType == kTile;
    const float left = tiled ? 0.0f : 0.5f * (targetWidth - width);
    const float top = tiled ? 0.0f : 0.5f * (targetHeight - height);
    uv[0] = (x - left) / width * uv_scale[0] + uv_offset[0];
    uv[1] = (1.0f - (y - top) / height) * uv_scale[1] + uv_offset[1];
    return tiled || (uv[0] >= 0.0f && uv[0] <= 1.0f && uv[1] >= 0.0f && uv[1] <= 1.0f);
  }
};

KVI_SHADER_FACTORY(ImageBackground)

}  // namespace kvi
