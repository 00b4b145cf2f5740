// The shaders this library implements. The exported entry points,
// <Name>_create and <Name>_getAPIVersion, are generated from this list, which
// joins the lists each family keeps beside its shaders (one line per shader).
// Adding a shader is its own file (ending in KVI_SHADER_FACTORY(Name)) plus
// one line in its family's list.
#pragma once

#include <iterator>
#include <new>

#include "frame/parameters.h"
#include "kvi/shader.h"
#include "lights/shaders.h"
#include "environments/shaders.h"
#include "materials/basic/shaders.h"
#include "materials/physical/shaders.h"
#include "materials/ward/shaders.h"

#define KVI_SHADERS(X)             \
  KVI_LIGHT_SHADERS(X)             \
  KVI_ENVIRONMENT_SHADERS(X)       \
  KVI_BASIC_MATERIAL_SHADERS(X)    \
  KVI_PHYSICAL_MATERIAL_SHADERS(X) \
  KVI_WARD_SHADERS(X)

// Defines, in namespace kvi, in the shader's own file, the factory behind
// Name_create (a new object with its defaults, or null, and no constructor
// run, when the allocation fails) and the accessor of its parameter
// documentation (read by the build's metadata generator, never by a host).
#define KVI_SHADER_FACTORY(Name)                                       \
  IShaderBase* create_##Name() { return new (std::nothrow) Name; }     \
  ParameterDocTable parameterDocs_##Name() {                           \
    return {Name::kParameterDocs, std::size(Name::kParameterDocs) - 1}; \
  }

namespace kvi {
#define KVI_DECLARE_SHADER_FACTORY_(Name) \
  IShaderBase* create_##Name();           \
  ParameterDocTable parameterDocs_##Name();
KVI_SHADERS(KVI_DECLARE_SHADER_FACTORY_)
#undef KVI_DECLARE_SHADER_FACTORY_
}  // namespace kvi
