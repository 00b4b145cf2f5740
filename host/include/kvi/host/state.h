// Filling a ShadingState for a shader.
#pragma once

#include <initializer_list>
#include <string_view>

#include "kvi/host/shader_info.h"
#include "kvi/state.h"

namespace kvi::host {

// A state with every byte zero.
ShadingState zeroState();

// Places a varying's floats at the offset the shader requested. Throws Error
// when the shader did not request the varying or the value does not fit the
// state's varying area.
void setVarying(ShadingState& state, const ShaderInfo& info, std::string_view name,
                std::initializer_list<float> values);
void setVarying(ShadingState& state, const ShaderInfo& info, std::string_view name, const float* values,
                size_t count);
// As setVarying, but silently does nothing when the shader did not ask for it.
bool setVaryingIfRequested(ShadingState& state, const ShaderInfo& info, std::string_view name,
                           const float* values, size_t count);
// Reads count floats of a requested varying back.
void getVarying(const ShadingState& state, const ShaderInfo& info, std::string_view name, float* values,
                size_t count);

// Floats in a varying of each kind: uv 2, tangent and bitangent 3, vtxcolor 4.
size_t varyingFloatCount(uint32_t kind);

}  // namespace kvi::host
