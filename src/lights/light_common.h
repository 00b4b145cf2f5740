// Small routines the light shaders share.
#pragma once

#include "frame/vector3.h"
#include "kvi/context.h"
#include "kvi/state.h"

// AmbientLight and SimplePointLight have the same parameters: one white colour.
#define KVI_COLOR_ONLY_LIGHT_PARAMETERS(PARAM, VARYING)                                                  \
  PARAM(Color3, color,                                                                                   \
        doc("light colour without falloff: the ambient light's dome radiance, the simple point light's " \
            "light at every distance",                                                                   \
            "0 or more per channel"),                                                                    \
        {1.0f, 1.0f, 1.0f})

namespace kvi {

// Asks the host for the transmission between the shaded point and the light
// sample and stores it in lightShadow.
inline void queryShadow(IShadingContext* context, ShadingState* state) {
  float buffer[3];
  copy3(state->lightShadow, context->traceShadow(buffer, state->position, state->lightSamplePosition));
}

// The classic lights' switch: the host's shadow when casting shadows, full
// transmission (and no call into the context) otherwise.
inline void queryShadowOrUnshadowed(IShadingContext* context, ShadingState* state, uint8_t castShadows) {
  if (castShadows) {
    queryShadow(context, state);
  } else {
    state->lightShadow[0] = 1.0f;
    state->lightShadow[1] = 1.0f;
    state->lightShadow[2] = 1.0f;
  }
}

}  // namespace kvi
