// Realistic configurations of each shader, shared by the benchmarks and the
// quality gates (allocation counting, thread safety, fuzz seeds).
//
// A family registers its presets in tests/presets/<family>.cpp:
//
//   KVI_PRESET(PointLight, inverse_square) {
//     f.block.setColor3("attenuationFactors", {0, 0, 1});
//     f.state.lightDistance = 3.0f;
//   }
//
// The fixture starts with the shader's defaults in the block, a zeroed state
// with unit normal and ray direction, a BaseContext with its default answers,
// and a pool for samplers the preset binds. Every operation in the shader's
// mask is run against the configured fixture.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "kvi/host/context.h"
#include "kvi/host/parameter_block.h"
#include "kvi/host/samplers.h"
#include "kvi/state.h"

namespace kvi::test {

struct PresetFixture {
  host::ParameterBlock& block;
  ShadingState& state;
  host::BaseContext& context;
  std::vector<std::shared_ptr<void>>& owned;  // keeps samplers and light lists alive

  // A sampler owned by the fixture.
  template <class Sampler, class... Args>
  Sampler* make(Args&&... args) {
    auto sampler = std::make_shared<Sampler>(std::forward<Args>(args)...);
    owned.push_back(sampler);
    return sampler.get();
  }
  // A small colourful RGBA checker image (8 x 8) with varying alpha.
  host::ImageSampler* checker();
  // Three lights of different colours above the point, as collectLightSamples
  // lists them (diffuse factor = cosine), and a traced ray bringing back
  // (0.2, 0.3, 0.4): the light loop of the whole-hit materials.
  void threeLights();
  // Places a varying if the shader requested it.
  void varying(const std::string& name, std::initializer_list<float> values);
};

using PresetFunction = void (*)(PresetFixture&);

struct Preset {
  std::string shader;
  std::string variant;
  PresetFunction configure;
};

// Every registered preset, in registration order.
const std::vector<Preset>& presets();
// The presets of one shader; a shader without any gets one "default" preset
// that leaves the fixture as it starts.
std::vector<Preset> presetsOf(const std::string& shader);

// Prepares a fixture's state before the preset runs: unit normal (0, 0, 1),
// ray direction (0, 0, -1), front facing, reflection allowed, a light sample
// 2 units above the point, white vertex colour, uv (0.25, 0.75) where
// requested, unset parameters set to identity matrices.
void prepareFixture(PresetFixture& fixture);

struct PresetRegistrar {
  PresetRegistrar(const char* shader, const char* variant, PresetFunction configure);
};

}  // namespace kvi::test

#define KVI_PRESET(shader, variant)                                                          \
  static void kvi_preset_##shader##_##variant(::kvi::test::PresetFixture& f);              \
  static const ::kvi::test::PresetRegistrar kvi_preset_registrar_##shader##_##variant(     \
      #shader, #variant, &kvi_preset_##shader##_##variant);                               \
  static void kvi_preset_##shader##_##variant([[maybe_unused]] ::kvi::test::PresetFixture& f)
