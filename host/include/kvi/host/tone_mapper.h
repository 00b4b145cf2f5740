// The host's tone mapper: the forward operator applied to the rendered image,
// whose inverse the classic backgrounds apply to their colours so that a
// background pixel comes out of this operator as the colour the user picked.
//
// Type 1, in order, for a scene-linear colour c at pixel (px, py):
//   1. exposure, white balance and vignetting: x = c * E * w * v
//   2. burn highlights:  y = x (1 + x / B) / (1 + x)   (0 stays 0)
//   3. saturation:       y = S y + (1 - S) L(y), L the BT.709 luminance
//   4. crush blacks:     z such that y = a (z^0.2 - z^0.3) + 2z - ((1 - s) z^e + s z),
//                        a = 0.4 K, e = 2K + 1, s = sqrt(L(z)) (0 when L <= 0);
//                        z = y when L(y) >= 1
//   5. gamma:            out = z^(1 / G)
// Step 4 has no closed form forwards: it is solved numerically per channel,
// and the coupling through s by fixed-point iteration (see tone_mapper.cpp).
// The arithmetic is double precision; the result is rounded to float.
#pragma once

#include <cstdint>

namespace kvi::host {

class ParameterBlock;

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
// colour passes unchanged. out may alias in.
void toneMap(const ToneMapSettings& settings, float out[3], const float in[3], float px, float py, int32_t width,
             int32_t height);

// The darkening of vignetting at pixel (px, py): cos^V of the angle between
// the view axis and the pixel's direction on the image plane; 1 when V <= 0.
double vignettingFactor(const ToneMapSettings& settings, float px, float py, int32_t width, int32_t height);

// Writes the settings into a background's block: the twelve "u_tm_*" and
// "u_cam_*" parameters ("u_hasLightRepresentation" is left alone). Throws
// Error when the shader lacks one of them.
void setToneMapParameters(ParameterBlock& block, const ToneMapSettings& settings);

}  // namespace kvi::host
