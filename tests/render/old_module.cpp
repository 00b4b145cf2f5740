// A module built for an older host interface: the renderer must refuse it.
#include <cstdint>

#include "kvi/exports.h"

extern "C" __attribute__((visibility("default"))) kvi::IShaderBase* OldLight_create() { return nullptr; }
extern "C" __attribute__((visibility("default"))) int32_t OldLight_getAPIVersion() { return kvi::kApiVersion - 1; }
