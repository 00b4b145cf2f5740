// velk_qora_Lgt_PhotometricWeb: a point light whose intensity follows a
// measured photometric web: a table of intensity by direction, turned into
// the scene by "webRotationMatrix", falling off with the inverse square of
// the distance.
//
// The module reads no files: the host hands the web over as a texture and
// answers look-ups with its own filtering (the reference host reads IES
// files into a sampler that interpolates the table bilinearly in its angles,
// symmetries unfolded). The web's frame is that of the measurement: the
// vertical angle V runs from 0 straight down the web's -Y axis to 180 up
// its +Y axis; the horizontal angle H from 0 along +X, counter-clockwise seen
// from above (+Y), so H = 90 lies along -Z. The web is sampled at
//   (s, t) = (H / 360, V / 180),  s in [0, 1), t in [0, 1],
// and its (r, g, b) scale the light per channel:
//   lightColor = color x intensity x web(s, t) / distance^2.
// Without a web bound the light is black. Where it is black no shadow is
// asked.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"
#include "lights/light_sample.h"

namespace kvi {

#define KVI_LGT_PHOTOMETRIC_WEB_PARAMETERS(PARAM, VARYING)                                                          \
  PARAM(Color3, color, doc("colour of the light, multiplied by intensity and the web", "0 or more per channel"),   \
        {1.0f, 1.0f, 1.0f})                                                                                         \
  PARAM(Float, intensity,                                                                                           \
        doc("multiplier of the web's values (1/683 turns candela into W/sr at 555 nm)", "0 or more",               \
            "W/sr per web unit"),                                                                                   \
        1.0f)                                                                                                       \
  PARAM(Texture, web,                                                                                               \
        doc("the photometric web: intensity by direction, looked up at (horizontal angle / 360, vertical angle / " \
            "180) in the web's frame"),                                                                             \
        unbound)                                                                                                    \
  PARAM(Matrix4, webRotationMatrix,                                                                                 \
        doc("turns the web into the scene: a direction of the web's frame, as a row vector times the upper-left "  \
            "3 x 3, gives the scene direction; the web's nadir is its -Y axis"),                                    \
        {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f})           \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow"), true)

class velk_qora_Lgt_PhotometricWeb final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_PhotometricWeb, kOpLightShade, KVI_LGT_PHOTOMETRIC_WEB_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float value[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    if (web.sampler) {
      float coords[2];
      webCoordinates(state->lightDirection, coords);
      web.sampler->sample(value, coords);
    }
    const float d = state->lightDistance;
    const float k = intensity / (d * d);
    for (int i = 0; i < 3; ++i) state->lightColor[i] = color[i] * (k * value[i]);
    const bool lit = state->lightColor[0] != 0.0f || state->lightColor[1] != 0.0f || state->lightColor[2] != 0.0f;
    if (cast_shadows && lit) queryShadow(context, state);
  }

 private:
  // The web's (s, t) of a scene direction leaving the light: the direction
  // turned back into the web's frame by the transpose of the rotation (its
  // inverse), then its horizontal and vertical angles.
  void webCoordinates(const float direction[3], float coords[2]) const {
    const float* m = webRotationMatrix;
    const float x = m[0] * direction[0] + m[1] * direction[1] + m[2] * direction[2];
    const float y = m[4] * direction[0] + m[5] * direction[1] + m[6] * direction[2];
    const float z = m[8] * direction[0] + m[9] * direction[1] + m[10] * direction[2];
    const float length = std::sqrt(x * x + y * y + z * z);
    const float cosVertical = std::fmin(1.0f, std::fmax(-1.0f, -y / length));
    float horizontal = std::atan2(-z, x) * (1.0f / kTwoPiF);
    if (horizontal < 0.0f) horizontal += 1.0f;
    coords[0] = horizontal;
    coords[1] = std::acos(cosVertical) * (2.0f / kTwoPiF);
  }
};

KVI_SHADER_FACTORY(velk_qora_Lgt_PhotometricWeb)

}  // namespace kvi
