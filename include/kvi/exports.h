// The two plain functions a module exports per shader, and how to name them.
#pragma once

#include <cstdint>

#include "kvi/shader.h"

namespace kvi {

// The revision of the host interface the shaders are built against. A host
// compares it with the answer of <Name>_getAPIVersion before creating anything.
constexpr int32_t kApiVersion = 2724;

// <Name>_create: a new object with every parameter at its default, or null
// when allocation failed. The host owns it and ends it with delete.
using CreateFunction = IShaderBase* (*)();
// <Name>_getAPIVersion: kApiVersion.
using ApiVersionFunction = int32_t (*)();

constexpr const char kCreateSuffix[] = "_create";
constexpr const char kApiVersionSuffix[] = "_getAPIVersion";

}  // namespace kvi
