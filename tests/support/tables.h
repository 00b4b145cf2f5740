// What the table-driven shader suites share: a row's parameters named with
// their values, shaders configured from them, a sampler that records where
// it is read, a context whose isRayKind answers with the matching bits, and
// floats compared to the bit.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "presets.h"
#include "test_shader.h"

namespace kvi::test {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
using Color = std::array<float, 3>;

// One parameter of a table row: floats for any value kind (a bool or an int
// takes the first), or for a texture, environment map or clipping map the
// sampler bound at slot 0 (none given: unbound, slot -1).
struct Param {
  std::string name;
  std::vector<float> values;
  ITextureSampler* texture = nullptr;
  IClippingMapSampler* clipping = nullptr;
};
using Params = std::vector<Param>;

inline Params operator+(Params a, const Params& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline void setParams(host::ParameterBlock& block, const Params& params) {
  for (const Param& p : params) {
    const host::ParameterInfo* info = block.info().findParameter(p.name);
    switch (info ? info->kind : host::ParamKind::Float) {  // an unknown name: setFloats reports it
      case host::ParamKind::Bool: block.setBool(p.name, uint8_t(p.values.at(0))); break;
      case host::ParamKind::Int: block.setInt(p.name, int32_t(p.values.at(0))); break;
      case host::ParamKind::Texture: block.setTexture(p.name, p.texture, p.texture ? 0 : -1); break;
      case host::ParamKind::EnvironmentMap: block.setEnvironmentMap(p.name, p.texture, p.texture ? 0 : -1); break;
      case host::ParamKind::ClippingMap: block.setClippingMap(p.name, p.clipping, p.clipping ? 0 : -1); break;
      default: block.setFloats(p.name, p.values.data(), p.values.size());
    }
  }
}

// One object per shader for the whole run, its block reset to the defaults
// and given `params` at each call: a configuration reaches an object that
// earlier ones configured, so whatever a shader derives in setParameters
// must follow every update.
inline TestShader& configured(const std::string& name, const Params& params) {
  static const host::Module& module = testModule();  // outlives the objects below
  static std::map<std::string, std::unique_ptr<TestShader>> shaders;
  (void)module;
  auto& shader = shaders[name];
  if (!shader) shader = std::make_unique<TestShader>(name);
  shader->block = host::ParameterBlock(shader->info);
  setParams(shader->block, params);
  shader->apply();
  return *shader;
}

// A material as a host hands it its first hit: `state` gets prepareFixture's
// head-on hit (identity frame, uv (0.25, 0.75)), the shader identity
// transforms where it leaves them unset, then `params`.
inline MaterialShader* prepared(const std::string& name, const Params& params, ShadingState& state) {
  TestShader& shader = configured(name, {});
  host::BaseContext unused;
  std::vector<std::shared_ptr<void>> owned;
  PresetFixture fixture{shader.block, state, unused, owned};
  prepareFixture(fixture);
  setParams(shader.block, params);
  shader.apply();
  return shader.material();
}

// Answers a fixed texel and records the first `dimensions` coordinates of every look-up.
struct RecordingSampler : ITextureSampler {
  RecordingSampler(int d, std::array<float, 4> t) : dimensions(d), texel(t) {}
  int dimensions;
  std::array<float, 4> texel;
  std::vector<std::vector<float>> coords;
  void sample(float out[4], const float* c) override {
    coords.emplace_back(c, c + dimensions);
    std::copy(texel.begin(), texel.end(), out);
  }
};

// A host whose samples are random, from a seed; its other answers are BaseContext's.
struct RandomContext : host::BaseContext {
  explicit RandomContext(uint32_t seed = 1) : rng(seed) {}
  float nextSample1D() override { return float(rng() >> 8) * 0x1p-24f; }
  const float* nextSample2D(float b[2]) override { return b[0] = nextSample1D(), b[1] = nextSample1D(), b; }
  std::mt19937 rng;
};

// isRayKind answers the matching bits themselves: a host may answer any
// non-zero value for yes, so a shader must not test for 1.
struct KindBitsContext : ScriptedContext {
  int32_t isRayKind(int32_t mask) override { return ScriptedContext::isRayKind(mask) ? rayKindBits & mask : 0; }
};

// True when `after` differs from `before` in the listed fields at most.
template <class... Fields>
bool onlyWrote(ShadingState before, const ShadingState& after, Fields... fields) {
  (std::memcpy(&(before.*fields), &(after.*fields), sizeof(before.*fields)), ...);
  return std::memcmp(&before, &after, sizeof before) == 0;
}

// Every value equal to the bit to the expected one (an expected NaN: any NaN).
inline void expectBits(const float* actual, const std::vector<float>& expected) {
  for (size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) EXPECT_TRUE(std::isnan(actual[i])) << "value " << i << ": " << actual[i];
    else EXPECT_BITEQ(actual[i], expected[i]) << "value " << i;
  }
}

}  // namespace kvi::test
