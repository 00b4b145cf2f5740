// Surface routines that many materials share: the global clipping planes,
// the uv clip rectangle, the ray-kind override of a two-lobe choice and the
// glossy microfacet reflection lobe. Free functions without state; they read
// only their arguments and ask the host only through the context given.
#pragma once

#include <cstdint>

#include "kvi/context.h"
#include "kvi/types.h"

namespace kvi {

// True when `position` lies on the kept side of every plane of the clipping
// map. An unbound map, or a plane count below 1 (NaN included), keeps every
// point; a point exactly on a plane is cut away.
bool clippingMapKeeps(const ClippingMapRef& map, const float position[3]);

// True when (u, v, 0, 1) times the row-vector matrix falls outside the unit
// square [0, 1] x [0, 1] (bounds inside, NaN outside).
bool uvOutsideUnitSquare(float u, float v, const float matrix[16]);

// Lets the kind of the current ray force a material's choice between a
// reflected lobe of weight `a` and a transmitted lobe of weight `b`.
// `firstLobeProbability` is the chance of the reflected lobe; it may be set to
// 0 or 1. Returns true when the ray kind decided the choice outright.
bool overrideLobeChoice(IShadingContext* context, float a, float& firstLobeProbability, float b, uint8_t frontFacing);

// Microfacet reflection lobe with a smooth fade near the horizon. Directions
// are in the local shading frame (z along the normal): `incoming` is the ray
// direction pointing at the surface, `outgoing` the direction towards the
// light or the next bounce. Returns a value >= 0 (0 when the two directions
// lie on different sides of the surface).
float glossyReflectionLobe(const float incoming[3], const float outgoing[3], float roughness);

}  // namespace kvi
