// What the classic backgrounds share besides the tone-mapping compensation:
// illumination rays see black where a light stands for the background, and
// the screen-space backgrounds show their picture to camera rays only.
#pragma once

#include "environments/tone_mapping.h"
#include "kvi/context.h"
#include "kvi/state.h"

namespace kvi {

inline void writeBackground(float result[4], const float rgb[3], float alpha) {
  result[0] = rgb[0];
  result[1] = rgb[1];
  result[2] = rgb[2];
  result[3] = alpha;
}

// When a light stands for the background ("u_hasLightRepresentation") an
// illumination ray (kind 8) sees black with full alpha: the light brings
// that light already. Writes it and answers true in that case only.
template <class Background>
bool showsBlackToLighting(const Background& b, IShadingContext* context, float result[4]) {
  if (!b.u_hasLightRepresentation || context->isRayKind(8) == 0) return false;
  const float black[3] = {0.0f, 0.0f, 0.0f};
  writeBackground(result, black, 1.0f);
  return true;
}

// A background laid out on the screen: camera rays (not of kind 2) see
// screenColor(state, rgb) at their pixel; other rays see the flat
// "backgroundColor", or black when a light stands for the background and the
// ray is an illumination ray. Alpha 0 but for that black. The colour is then
// compensated for the host's tone mapper.
template <class Background, class ScreenColor>
void shadeScreenBackground(const Background& b, IShadingContext* context, ShadingState* state,
                           ScreenColor screenColor) {
  float* result = state->surfaceResult;
  if (context->isRayKind(2) == 0) {
    screenColor(state, result);
    result[3] = 0.0f;
  } else if (!showsBlackToLighting(b, context, result)) {
    writeBackground(result, b.backgroundColor, 0.0f);
  }
  compensateToneMapping(b, state);
}

}  // namespace kvi
