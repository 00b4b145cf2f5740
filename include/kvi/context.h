// The host services a shader may ask for during a shading operation.
#pragma once

#include <cstdint>

#include "kvi/types.h"

namespace kvi {

// Booleans answered by the host are bytes, tested for non-zero. Slots the
// host interface does not use are reserved.
struct IShadingContext {
  virtual ~IShadingContext() = default;
  virtual void reserved1() {}
  // 2: the lights reaching the point (which = 0), or null when none does.
  virtual const LightSample* collectLightSamples(int32_t which, const float position[3],
                                                 const float normal[3]) = 0;
  // 3: irradiance over the normal's hemisphere, RGB, written to out; returns out.
  virtual float* gatherIrradiance(float out[3], const float position[3], const float normal[3]) = 0;
  // 4: RGB transmission between the two points, (1, 1, 1) when unoccluded.
  virtual const float* traceShadow(float out[3], const float from[3], const float to[3]) = 0;
  virtual void reserved5() {}
  // 6: RGB radiance brought back along the ray.
  virtual const float* traceRay(float out[3], const float origin[3], const float direction[3],
                                float weight) = 0;
  virtual void reserved7() {}
  virtual void reserved8() {}
  virtual void reserved9() {}
  virtual void reserved10() {}
  virtual void reserved11() {}
  virtual void reserved12() {}
  virtual void reserved13() {}
  virtual uint8_t isRayFlagSet(int32_t flag) = 0;          // 14
  virtual int32_t isRayKind(int32_t kindMask) = 0;         // 15: non-zero when the ray is of a kind in the mask
  virtual uint8_t acceptsGlossyBounce(float roughness) = 0;  // 16
  virtual uint8_t isDiffuseSampled() = 0;                  // 17
  virtual int32_t getRayKind() = 0;                        // 18: 1, 2 or 3
  virtual float nextSample1D() = 0;                        // 19: in [0, 1)
  virtual const float* nextSample2D(float buffer[2]) = 0;  // 20: two floats in [0, 1)
  virtual float noise4D(const float p[4]) = 0;             // 21: in [-1, 1]
  virtual void reserved22() {}
  virtual void reserved23() {}
  virtual float hashRandom(float key) = 0;                 // 24: in [0, 1]
};

}  // namespace kvi
