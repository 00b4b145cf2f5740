// Varied configurations of a shader for the quality gates: its presets plus
// random parameter blocks (booleans of any byte, special floats, bound and
// unbound textures), random states and random host answers, reproducible
// from a seed.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kvi/host/context.h"
#include "presets.h"
#include "test_shader.h"

namespace kvi::test {

struct Variation {
  std::string label;                        // "preset <name>" or "random <k>"
  std::unique_ptr<TestShader> shader;       // configured (apply() done)
  ShadingState state;                       // the state every operation starts from
  host::BaseContext context;                // the host's answers
  std::vector<std::shared_ptr<void>> owned; // samplers the block points to
};

// The presets of the shader, then `randomCount` random configurations.
std::vector<std::unique_ptr<Variation>> variationsOf(const std::string& shader, int randomCount, uint32_t seed);

// A random state: unit directions, positions within a few units, random
// bytes for the flags, random varyings.
ShadingState randomState(std::mt19937& rng);

// One operation a shader takes part in (by its mask bit), callable by name.
struct ShadingOperation {
  const char* name;
  uint32_t maskBits;
  void (*call)(IShaderBase*, IShadingContext*, ShadingState*);
};
// Every shading operation, lights' and environments' shade included.
const std::vector<ShadingOperation>& shadingOperations();
// Those of one shader (its operation mask; a material's operations with a clear bit too, which must be inert).
std::vector<ShadingOperation> operationsOf(const host::ShaderInfo& info);

}  // namespace kvi::test
