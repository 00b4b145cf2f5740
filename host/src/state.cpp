#include "kvi/host/state.h"

#include <cstring>

#include "kvi/host/error.h"

namespace kvi::host {

ShadingState zeroState() {
  ShadingState state;
  std::memset(&state, 0, sizeof state);
  return state;
}

size_t varyingFloatCount(uint32_t kind) {
  switch (kind) {
    case kVaryingUv: return 2;
    case kVaryingVector: return 3;
    case kVaryingColor: return 4;
    default: return 0;
  }
}

namespace {
const VaryingInfo& requested(const ShaderInfo& info, std::string_view name, size_t count) {
  const VaryingInfo* v = info.findVarying(name);
  if (!v) throw Error("shader '" + info.name + "' did not request the varying '" + std::string(name) + "'");
  if (v->offset > sizeof(ShadingState::varyings) || count * sizeof(float) > sizeof(ShadingState::varyings) - v->offset)
    throw Error("shader '" + info.name + "': varying '" + v->name + "' at offset " + std::to_string(v->offset) +
                " does not fit the state's varying area");
  return *v;
}
}  // namespace

void setVarying(ShadingState& state, const ShaderInfo& info, std::string_view name, const float* values,
                size_t count) {
  const VaryingInfo& v = requested(info, name, count);
  std::memcpy(state.varyings + v.offset, values, count * sizeof(float));
}

void setVarying(ShadingState& state, const ShaderInfo& info, std::string_view name,
                std::initializer_list<float> values) {
  setVarying(state, info, name, values.begin(), values.size());
}

bool setVaryingIfRequested(ShadingState& state, const ShaderInfo& info, std::string_view name, const float* values,
                           size_t count) {
  if (!info.findVarying(name)) return false;
  setVarying(state, info, name, values, count);
  return true;
}

void getVarying(const ShadingState& state, const ShaderInfo& info, std::string_view name, float* values,
                size_t count) {
  const VaryingInfo& v = requested(info, name, count);
  std::memcpy(values, state.varyings + v.offset, count * sizeof(float));
}

}  // namespace kvi::host
