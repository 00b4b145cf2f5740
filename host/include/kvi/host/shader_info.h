// A shader's parameter table, as the shader declares it through the binder.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kvi/host/module.h"
#include "kvi/shader.h"

namespace kvi::host {

// The parameter kinds of the binder, one per bind operation.
enum class ParamKind { Bool, Int, Float, Float2, Color3, Color4, Matrix3, Matrix4, ClippingMap, Texture, EnvironmentMap };

const char* kindName(ParamKind kind);       // "bool", "int", "float", "float2", "color3", ...
uint32_t kindSize(ParamKind kind);          // bytes of the value at the field
uint32_t kindAlignment(ParamKind kind);     // natural alignment of the field
uint32_t kindFloatCount(ParamKind kind);    // floats in the value (0 for bool, int and textures)
const char* shaderKindName(int32_t kind);   // "material", "light", "environment" or "unknown"
const char* varyingKindName(uint32_t kind); // "uv", "vector", "color" or "unknown"

struct ParameterInfo {
  std::string name;
  ParamKind kind;
  uint32_t offset = 0;  // from the object's start; the block byte of the field
  uint32_t size = 0;
  // The constructor's value, read from a new object. hasDefault is false when
  // the constructor leaves the field for the host's first setParameters.
  std::vector<uint8_t> defaultValue;
  bool hasDefault = true;
};

struct VaryingInfo {
  uint32_t kind = 0;
  std::string name;
  uint32_t offset = 0;  // inside ShadingState::varyings
};

struct ShaderInfo {
  std::string name;
  int32_t kind = -1;             // getShaderKind
  int32_t supported = 0;         // isSupported
  uint32_t operationMask = 0;    // given to beginParameters
  std::vector<ParameterInfo> parameters;  // in declaration order
  std::vector<VaryingInfo> varyings;      // in request order
  uint32_t blockSize = 0;        // bytes a ShaderParameterBlock needs (end of the last field)
  // True when unset fields could be told apart from set ones (see
  // allocation_probe.h); otherwise every field counts as set.
  bool unsetDetected = false;

  const ParameterInfo* findParameter(std::string_view name) const;
  const VaryingInfo* findVarying(std::string_view name) const;
};

// Creates the shader, records its declaration through a binder and reads its
// defaults. Throws Error naming the module and shader when the shader cannot
// be created or declares something a host cannot accept (a parameter outside
// the object, two parameters of one name, a call before beginParameters).
ShaderInfo describeShader(const Module& module, const std::string& name);

// Records the declaration of an existing object (no defaults are read).
ShaderInfo recordDeclaration(IShaderBase* shader, const std::string& name);

}  // namespace kvi::host
