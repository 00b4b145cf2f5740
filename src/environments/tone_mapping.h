// Tone-mapping compensation of the classic backgrounds.
//
// The host tone-maps the finished image (exposure, white balance, vignetting,
// burn highlights, saturation, crush blacks, gamma). A classic background
// runs its colour through the inverse of that operator so that a pixel that
// sees only the background comes out of the tone mapper as the colour the
// user picked. The host describes its tone mapper and camera in thirteen
// parameters that every classic background declares first.
#pragma once

#include <cmath>
#include <cstdint>

#include "kvi/state.h"

// The shared parameter entries, to open a background's parameter list:
//
//   #define KVI_MY_BACKGROUND_PARAMETERS(PARAM, VARYING)  (backslash)
//     KVI_TONE_MAPPING_PARAMETERS(PARAM, VARYING)          (backslash)
//     PARAM(Color3, backgroundColor, doc("flat colour shown to rays that are not camera rays", "0 or more per channel", "radiance"), {0.7f, 0.7f, 0.7f})
//
// The host always supplies the first twelve before shading; they are zeroed
// here so that an object shaded too early reads zeros rather than stale
// memory. "u_hasLightRepresentation" defaults to false in every background.
#define KVI_TONE_MAPPING_PARAMETERS(PARAM, VARYING)                                                                    \
  PARAM(Bool, u_tm_enabled, doc("the host's tone mapper is active"), false)                                            \
  PARAM(Int, u_tm_type, doc("tone-mapper kind; only type 1 is undone", "0 or 1"), 0)                                   \
  PARAM(Float, u_tm_exposure, doc("exposure E", "any", "stops"), 0.0f)                                                 \
  PARAM(Color3, u_tm_whiteColor, doc("white balance (wr, wg, wb)", "0 or more per channel"), {0.0f, 0.0f, 0.0f})       \
  PARAM(Float, u_tm_vignetting, doc("vignetting exponent V; 0 or less: none", "0 or more"), 0.0f)                      \
  PARAM(Float, u_tm_crushBlacks, doc("crush-blacks amount K", "0 to 1"), 0.0f)                                         \
  PARAM(Float, u_tm_burnHighlightsInv, doc("burn-highlights parameter B", "0 or more"), 0.0f)                          \
  PARAM(Float, u_tm_saturation, doc("saturation S", "0 or more"), 0.0f)                                                \
  PARAM(Float, u_tm_gamma, doc("display gamma G", "more than 0"), 0.0f)                                                \
  PARAM(Float, u_cam_imagePlaneWidth,                                                                                  \
        doc("width of the camera's image plane, in scene units", "more than 0", "scene units"),                        \
        0.0f)                                                                                                          \
  PARAM(Float, u_cam_imagePlaneHeight, doc("height of the camera's image plane", "more than 0", "scene units"), 0.0f)  \
  PARAM(Float, u_cam_focalDistance,                                                                                    \
        doc("distance F from the eye to the image plane", "more than 0", "scene units"),                               \
        0.0f)                                                                                                          \
  PARAM(Bool, u_hasLightRepresentation, doc("a light stands for this background: illumination rays see black"), false)

namespace kvi::tone_mapping {

// Both luminance sums below use the BT.709 weights, each in its own order:
// single-precision sums depend on the order, so each is kept as it is.

inline void undoGamma(float c[3], float gamma) {
  for (int i = 0; i < 3; ++i) c[i] = std::pow(c[i], gamma);
}

// Closed form of the crush-blacks inverse. Colours whose luminance reaches 1
// are left alone.
inline void undoCrushBlacks(float c[3], float crush) {
  const float luminance = 0.7152f * c[1] + 0.2126f * c[0] + 0.0722f * c[2];
  float s = 0.0f;
  if (luminance > 0.0f) {
    s = std::sqrt(luminance);
    if (s >= 1.0f) return;
  }
  const float a = 0.4f * crush;
  const float e = 2.0f * crush + 1.0f;
  for (int i = 0; i < 3; ++i) {
    const float x = c[i];
    c[i] = a * (std::pow(x, 0.2f) - std::pow(x, 0.3f)) + 2.0f * x - ((1.0f - s) * std::pow(x, e) + s * x);
  }
}

inline void undoSaturation(float c[3], float saturation) {
  const float grey = (0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]) * (1.0f - saturation);
  const float scale = 1.0f / saturation;
  for (int i = 0; i < 3; ++i) c[i] = (c[i] - grey) * scale;
}

// The positive root x of y = x (1 + x / B) / (1 + x), in closed form. A
// channel that is exactly 0 stays 0.
inline void undoBurnHighlights(float c[3], float burn) {
  for (int i = 0; i < 3; ++i) {
    const float y = c[i];
    if (y == 0.0f) continue;
    const float q = y * burn;
    const float h = (1.0f / y - 1.0f) * 0.5f * q;
    c[i] = std::sqrt(h * h + q) - h;
  }
}

// cos^V of the angle between the view axis and the pixel's point on the
// camera's image plane; 1 without vignetting (V <= 0).
inline float vignettingFactor(float vignetting, float planeWidth, float planeHeight, float focalDistance, float px,
                              float py, int32_t width, int32_t height) {
  if (!(vignetting > 0.0f)) return 1.0f;
  const float u = (px / static_cast<float>(width) - 0.5f) * planeWidth;
  const float w = (py / static_cast<float>(height) - 0.5f) * planeHeight;
  const float d = std::sqrt(u * u + w * w + focalDistance * focalDistance);
  const float cosine = d > 0.0f ? focalDistance * (1.0f / d) : focalDistance;
  return std::pow(cosine, vignetting);
}

inline void undoExposure(float c[3], float exposure, const float white[3], float vignetting) {
  for (int i = 0; i < 3; ++i) c[i] = c[i] / (exposure * white[i] * vignetting);
}

}  // namespace kvi::tone_mapping

namespace kvi {

// The inverse of the host's tone mapper for the colour `in` of pixel (px, py)
// of a width x height image, written to `out` (which may be `in`). `p` is the
// background itself: any object with the KVI_TONE_MAPPING_PARAMETERS fields.
template <class ToneMappingParameters>
float* invertToneMapping(const ToneMappingParameters& p, float out[3], const float in[3], float px, float py,
                         int32_t width, int32_t height) {
  using namespace tone_mapping;
  float c[3] = {in[0], in[1], in[2]};
  undoGamma(c, p.u_tm_gamma);
  undoCrushBlacks(c, p.u_tm_crushBlacks);
  undoSaturation(c, p.u_tm_saturation);
  undoBurnHighlights(c, p.u_tm_burnHighlightsInv);
  const float v = vignettingFactor(p.u_tm_vignetting, p.u_cam_imagePlaneWidth, p.u_cam_imagePlaneHeight,
                                   p.u_cam_focalDistance, px, py, width, height);
  undoExposure(c, p.u_tm_exposure, p.u_tm_whiteColor, v);
  out[0] = c[0];
  out[1] = c[1];
  out[2] = c[2];
  return out;
}

// The rule every classic background follows once its colour is in
// surfaceResult: only an enabled tone mapper of type 1 is undone.
template <class ToneMappingParameters>
void compensateToneMapping(const ToneMappingParameters& p, ShadingState* state) {
  if (p.u_tm_enabled && p.u_tm_type == 1)
    invertToneMapping(p, state->surfaceResult, state->surfaceResult, state->rasterPosition[0],
                      state->rasterPosition[1], state->frameResolution[0], state->frameResolution[1]);
}

}  // namespace kvi
