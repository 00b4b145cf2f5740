// Everything the physically based materials and the Ward family share: the
// texture channels, the tangent frames, the lobes and curves, and the common
// operation bodies.
#pragma once

#include "materials/physical/bodies.h"
#include "materials/physical/channels.h"
#include "materials/physical/frames.h"
#include "materials/physical/lobes.h"
