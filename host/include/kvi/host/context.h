// A shading context whose host services answer with fixed, documented
// values. Tests and simple hosts derive from it and override what they need.
#pragma once

#include <cstdint>

#include "kvi/context.h"

namespace kvi::host {

class BaseContext : public IShadingContext {
 public:
  // The defaults, each a public field a caller may change:
  const LightSample* lightSamples = nullptr;  // collectLightSamples: no light reaches any point
  float irradiance[3] = {0.0f, 0.0f, 0.0f};   // gatherIrradiance: none gathered
  float shadow[3] = {1.0f, 1.0f, 1.0f};       // traceShadow: unoccluded
  float traced[3] = {0.0f, 0.0f, 0.0f};       // traceRay: black
  int32_t rayKind = 1;                        // getRayKind
  int32_t rayKindBits = 0;                    // isRayKind(mask) answers (rayKindBits & mask) != 0
  int32_t rayFlags = 0;                       // isRayFlagSet(f) answers (rayFlags & f) != 0
  uint8_t glossyAccepted = 1;                 // acceptsGlossyBounce, whatever the roughness
  uint8_t diffuseSampled = 1;                 // isDiffuseSampled
  float sample1D = 0.5f;                      // nextSample1D
  float sample2D[2] = {0.5f, 0.5f};           // nextSample2D
  float noise = 0.0f;                         // noise4D, wherever asked

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
  // A fixed hash of the key's bits into [0, 1].
  float hashRandom(float key) override;
};

}  // namespace kvi::host
