// Kept for code written against the first form of the physically based
// family's shared module: the helpers it held live in frame/vector3.h.
#pragma once

#include "frame/vector3.h"
