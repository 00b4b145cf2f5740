// A shading context for tests: every host service answers what the test
// scripted and counts its calls, so a test can check which services a shader
// used, how often, with what arguments, and what it left alone.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "kvi/host/context.h"

namespace kvi::test {

// The host services by ABI slot, for call counting.
enum Service : int {
  kCollectLightSamples = 2,
  kGatherIrradiance = 3,
  kTraceShadow = 4,
  kTraceRay = 6,
  kIsRayFlagSet = 14,
  kIsRayKind = 15,
  kAcceptsGlossyBounce = 16,
  kIsDiffuseSampled = 17,
  kGetRayKind = 18,
  kNextSample1D = 19,
  kNextSample2D = 20,
  kNoise4D = 21,
  kHashRandom = 24,
};

class ScriptedContext : public host::BaseContext {
 public:
  // Answers beyond BaseContext's fixed ones. When a queue is not empty its
  // front answers the next call (and is consumed); otherwise the fixed field
  // of BaseContext answers.
  std::deque<float> samples1D;
  std::deque<std::array<float, 2>> samples2D;
  std::deque<int32_t> rayKinds;

  // Arguments of the last calls.
  std::array<float, 3> lastShadowFrom{}, lastShadowTo{};
  std::array<float, 3> lastIrradiancePosition{}, lastIrradianceNormal{};
  std::array<float, 3> lastRayOrigin{}, lastRayDirection{};
  float lastRayWeight = 0.0f;
  std::array<float, 3> lastLightsPosition{}, lastLightsNormal{};
  int32_t lastLightsWhich = -1;
  std::vector<int32_t> rayKindMasksAsked;
  std::vector<int32_t> rayFlagsAsked;
  std::vector<float> roughnessesAsked;

  int calls(Service service) const { return counts_[service]; }
  int totalCalls() const;
  void resetCounts() { counts_.fill(0); }

  const LightSample* collectLightSamples(int32_t which, const float position[3], const float normal[3]) override;
  float* gatherIrradiance(float out[3], const float position[3], const float normal[3]) override;
  const float* traceShadow(float out[3], const float from[3], const float to[3]) override;
  const float* traceRay(float out[3], const float origin[3], const float direction[3], float weight) override;
  uint8_t isRayFlagSet(int32_t flag) override;
  int32_t isRayKind(int32_t kindMask) override;
  uint8_t acceptsGlossyBounce(float roughness) override;
  uint8_t isDiffuseSampled() override;
  int32_t getRayKind() override;
  float nextSample1D() override;
  const float* nextSample2D(float buffer[2]) override;
  float noise4D(const float p[4]) override;
  float hashRandom(float key) override;

 private:
  std::array<int, 25> counts_{};
};

}  // namespace kvi::test
