// Everything a host includes to load and drive kvi shaders.
#pragma once

#include "kvi/binder.h"
#include "kvi/context.h"
#include "kvi/exports.h"
#include "kvi/shader.h"
#include "kvi/state.h"
#include "kvi/types.h"
