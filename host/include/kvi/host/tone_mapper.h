// The host's tone mapper: the forward operator applied to the rendered image,
// whose inverse the classic backgrounds apply to their colours so that a
// background pixel comes out of this operator as the colour the user picked.
#pragma once

#include <cstdint>

namespace kvi::host {

// The values the host hands to the backgrounds as their "u_tm_*" and
// "u_cam_*" parameters.
struct ToneMapSettings {
  uint8_t enabled = 0;              // "u_tm_enabled"
  int32_t type = 1;                 // "u_tm_type": only type 1 is this operator
  float exposure = 1.0f;            // "u_tm_exposure"
  float white[3] = {1.0f, 1.0f, 1.0f};  // "u_tm_whiteColor"
  float vignetting = 0.0f;          // "u_tm_vignetting" (0 or less: none)
  float crushBlacks = 0.0f;         // "u_tm_crushBlacks"
  float burnHighlightsInv = 1.0f;   // "u_tm_burnHighlightsInv"
  float saturation = 1.0f;          // "u_tm_saturation"
  float gamma = 2.2f;               // "u_tm_gamma"
  float imagePlaneWidth = 1.0f;     // "u_cam_imagePlaneWidth"
  float imagePlaneHeight = 1.0f;    // "u_cam_imagePlaneHeight"
  float focalDistance = 1.0f;       // "u_cam_focalDistance"
};

// Maps a scene-linear colour at pixel (px, py) of a width x height image to
// the display colour. When the settings are not enabled or not of type 1, the
// colour passes unchanged.
void toneMap(const ToneMapSettings& settings, float out[3], const float in[3], float px, float py, int32_t width,
             int32_t height);

}  // namespace kvi::host
