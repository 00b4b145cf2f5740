// Helpers of the light tests: a light sample state, shading like a host, and
// checking which state bytes a call changed.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "kvi/host/environment_samplers.h"
#include "test_shader.h"

namespace kvi::test {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// A pattern-filled state with the point at the origin and the light sample 2
// units above it, looking down its axis.
inline ShadingState lightSampleState(float distance = 2.0f) {
  ShadingState s = patternState();
  for (int i = 0; i < 3; ++i) {
    s.position[i] = 0.0f;
    s.lightSamplePosition[i] = i == 2 ? 2.0f : 0.0f;
    s.lightAxis[i] = s.lightDirection[i] = i == 2 ? -1.0f : 0.0f;
  }
  s.lightDistance = distance;
  return s;
}

inline ShadingState shaded(TestShader& light, ScriptedContext& context, ShadingState state) {
  light.light()->shade(&context, &state);
  return state;
}

#define KVI_STATE_FIELD(name) std::pair<size_t, size_t>(offsetof(ShadingState, name), sizeof(ShadingState::name))

// Every byte outside the listed fields is as it was.
inline void expectOnlyChanged(const ShadingState& before, const ShadingState& after,
                              std::initializer_list<std::pair<size_t, size_t>> fields) {
  const auto *a = reinterpret_cast<const unsigned char*>(&before), *b = reinterpret_cast<const unsigned char*>(&after);
  for (size_t i = 0; i < sizeof(ShadingState); ++i) {
    bool listed = false;
    for (const auto& f : fields) listed = listed || (i >= f.first && i < f.first + f.second);
    if (!listed && a[i] != b[i]) ADD_FAILURE() << "state byte " << i << " changed";
  }
}

inline void expectColor(const float actual[3], std::array<float, 3> expected) {
  for (int i = 0; i < 3; ++i) EXPECT_BITEQ(actual[i], expected[i]) << "channel " << i;
}

// Six 2 x 2 faces; texel (x, y) of face f is (x, y, f, 1).
inline host::CubeFaceSampler taggedCube() {
  std::vector<host::ImageSampler> faces;
  for (int f = 0; f < 6; ++f)
    faces.emplace_back(2, 2, std::vector<float>{0, 0, float(f), 1, 1, 0, float(f), 1, 0, 1, float(f), 1, 1, 1, float(f), 1});
  return host::CubeFaceSampler(std::move(faces));
}

}  // namespace kvi::test
