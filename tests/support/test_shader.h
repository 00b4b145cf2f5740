// Shaders loaded the way a host loads them: through the module built with the
// tests, described through the binder, configured through a parameter block.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "kvi/host/module.h"
#include "kvi/host/parameter_block.h"
#include "kvi/host/shader_info.h"
#include "kvi/host/state.h"
#include "scripted_context.h"

namespace kvi::test {

// The module under test, opened once per process.
const host::Module& testModule();
// Its parameter table, recorded once per shader and process.
std::shared_ptr<const host::ShaderInfo> testShaderInfo(const std::string& name);

// One object of a shader plus a parameter block holding its defaults. Set
// values in `block`, then apply() before shading.
struct TestShader {
  explicit TestShader(const std::string& name);

  std::shared_ptr<const host::ShaderInfo> info;
  host::ShaderPtr object;
  host::ParameterBlock block;

  void apply() { block.applyTo(object.get()); }
  LightShader* light() const { return static_cast<LightShader*>(object.get()); }
  EnvironmentShader* environment() const { return static_cast<EnvironmentShader*>(object.get()); }
  MaterialShader* material() const { return static_cast<MaterialShader*>(object.get()); }
  // A zeroed state with this shader's varyings placed by name.
  ShadingState state() const { return host::zeroState(); }
  void setVarying(ShadingState& s, const std::string& name, std::initializer_list<float> values) const {
    host::setVarying(s, *info, name, values);
  }
};

inline uint32_t bitsOf(float f) { return std::bit_cast<uint32_t>(f); }

// Equal to the bit, so -0 differs from +0 and a NaN payload counts.
#define EXPECT_BITEQ(actual, expected)                                                            \
  EXPECT_EQ(::kvi::test::bitsOf(actual), ::kvi::test::bitsOf(expected))                          \
      << "  actual   " << (actual) << "\n  expected " << (expected)

// A state filled with a byte pattern, to see which fields an operation leaves alone.
inline ShadingState patternState(uint8_t byte = 0xA5) {
  ShadingState s;
  std::memset(&s, byte, sizeof s);
  return s;
}

}  // namespace kvi::test
