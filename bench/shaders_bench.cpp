// One Google Benchmark case per shading operation of every shader in the
// module and every preset of it: "Shader/preset/operation", ns per call with a
// trivial context (BaseContext, fixed answers). New shaders are picked up
// from the module without code changes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <iostream>

#include "kvi/host/error.h"
#include "presets.h"
#include "test_shader.h"
#include "variations.h"

namespace {

using kvi::ShadingState;
using kvi::host::BaseContext;

// One configured shader: object, parameters, state and context of a preset.
struct Configured {
  kvi::test::TestShader shader;
  ShadingState state;
  BaseContext context;
  std::vector<std::shared_ptr<void>> owned;

  Configured(const std::string& name, const kvi::test::Preset& preset) : shader(name) {
    kvi::test::PresetFixture fixture{shader.block, state, context, owned};
    kvi::test::prepareFixture(fixture);
    preset.configure(fixture);
    shader.apply();
  }
};

void runOperation(benchmark::State& bench, std::shared_ptr<Configured> configured,
                  kvi::test::ShadingOperation op) {
  ShadingState state = configured->state;
  for (auto _ : bench) {
    // Each call starts from the preset's state, as a host's would.
    std::memcpy(&state, &configured->state, sizeof state);
    op.call(configured->shader.object.get(), &configured->context, &state);
    benchmark::DoNotOptimize(state);
    benchmark::ClobberMemory();
  }
}

// The floor every figure includes: copying the state in and out, no call.
void copyOnly(benchmark::State& bench) {
  const ShadingState source = kvi::host::zeroState();
  ShadingState state = source;
  for (auto _ : bench) {
    std::memcpy(&state, &source, sizeof state);
    benchmark::DoNotOptimize(state);
    benchmark::ClobberMemory();
  }
}

void registerAll() {
  benchmark::RegisterBenchmark("Baseline/state/copy", copyOnly);
  const auto& module = kvi::test::testModule();
  for (const auto& name : module.shaderNames()) {
    const auto info = kvi::test::testShaderInfo(name);
    for (const auto& preset : kvi::test::presetsOf(name)) {
      auto configured = std::make_shared<Configured>(name, preset);
      for (const auto& op : kvi::test::operationsOf(*info)) {
        if (!(info->operationMask & op.maskBits)) continue;  // an empty body: nothing to measure
        benchmark::RegisterBenchmark((name + "/" + preset.variant + "/" + op.name).c_str(), runOperation,
                                     configured, op);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    registerAll();
  } catch (const kvi::host::Error& e) {
    std::cerr << "kvi-bench: " << e.what() << "\n";
    return 2;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
