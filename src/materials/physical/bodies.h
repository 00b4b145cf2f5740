// Operation bodies several materials of the physically based family share,
// so that each lives once.
#pragma once

#include <cstdint>

#include "frame/surface.h"
#include "kvi/state.h"
#include "kvi/types.h"

namespace kvi::physical {

// The fixed colours the family's shadeSurface bodies write.
inline void writeSurfaceResult(ShadingState* state, float r, float g, float b, float a) {
  state->surfaceResult[0] = r;
  state->surfaceResult[1] = g;
  state->surfaceResult[2] = b;
  state->surfaceResult[3] = a;
}

// shadeSurface of the glazing, the dielectric and the metallic paint:
// surfaceResult = (1, 0.1, 1, 1), whatever the parameters.
inline void shadeGlassSurface(ShadingState* state) { writeSurfaceResult(state, 1.0f, 0.1f, 1.0f, 1.0f); }

// evaluateRadiance of a material without a diffuse part (the glazing, the
// dielectric): marks the radiance as done and adds nothing.
inline void markRadianceDone(ShadingState* state) { state->radianceDone = 1; }

// testCutout of the family: cut away exactly when the global clipping map is
// enabled and the hit position lies on the cut side of one of its planes.
inline void testGlobalClipping(uint8_t enabled, const ClippingMapRef& map, ShadingState* state) {
  state->cutAway = !enabled || clippingMapKeeps(map, state->position) ? 0 : 1;
}

}  // namespace kvi::physical
