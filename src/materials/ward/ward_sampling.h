// Choosing the event of a Ward sampleBsdf among those a hit offers, and the
// directions of the events that are not drawn from a lobe.
#pragma once

#include <cstdint>

#include "kvi/context.h"

namespace kvi::ward {

// Lobe flags of the family.
enum WardLobe : int32_t {
  kNoLobe = 0,
  kDiffuseReflection = 1,
  kGlossyReflection = 2,
  kMirrorReflection = 4,
  kSpecularTransmission = 8,
  kGlossyTransmission = 16,
  kDiffuseTransmission = 32,
  kPassThrough = 64,
};

// One event a hit offers: the colour it carries (its share of the
// estimate before the direction's own weight).
struct WardEvent {
  float weight[3];
};

// Picks one of `count` events (in list order), each offered with the
// largest component of its weight when that is finite and above 0.001, by
// one binary choice after another: the event against all offered after it,
// with the probability p = its weight / theirs together, where p below 1/256
// counts as 0 and above 255/256 as 1 (no random number is drawn then), and
// otherwise is kept within [0.08, 0.92] so that a rare event is still drawn
// often enough and no weight grows past 12.5 times its share. Returns the
// index (or -1 when no event is offered) and, in `scale`, 1 / the chosen
// event's probability (the snapped slivers are dropped, not reweighted).
int chooseEvent(IShadingContext* context, const WardEvent* events, int count, float& scale);

// The probability of an event as chooseEvent uses it.
float bandedProbability(float p);

// The refracted direction of `direction` through a surface with the normal
// `normal` (facing the incoming ray) and the ratio eta of the indices
// (outside / inside); false on total internal reflection.
bool refractDirection(const float direction[3], const float normal[3], float eta, float out[3]);

}  // namespace kvi::ward
