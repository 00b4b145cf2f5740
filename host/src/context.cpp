#include "kvi/host/context.h"

#include <cstring>

namespace kvi::host {

const LightSample* BaseContext::collectLightSamples(int32_t, const float*, const float*) { return lightSamples; }

float* BaseContext::gatherIrradiance(float out[3], const float*, const float*) {
  std::memcpy(out, irradiance, sizeof irradiance);
  return out;
}

const float* BaseContext::traceShadow(float out[3], const float*, const float*) {
  std::memcpy(out, shadow, sizeof shadow);
  return out;
}

const float* BaseContext::traceRay(float out[3], const float*, const float*, float) {
  std::memcpy(out, traced, sizeof traced);
  return out;
}

uint8_t BaseContext::isRayFlagSet(int32_t flag) { return (rayFlags & flag) != 0; }
int32_t BaseContext::isRayKind(int32_t kindMask) { return (rayKindBits & kindMask) != 0; }
uint8_t BaseContext::acceptsGlossyBounce(float) { return glossyAccepted; }
uint8_t BaseContext::isDiffuseSampled() { return diffuseSampled; }
int32_t BaseContext::getRayKind() { return rayKind; }
float BaseContext::nextSample1D() { return sample1D; }

const float* BaseContext::nextSample2D(float buffer[2]) {
  buffer[0] = sample2D[0];
  buffer[1] = sample2D[1];
  return buffer;
}

float BaseContext::noise4D(const float*) { return noise; }

float BaseContext::hashRandom(float key) {
  uint32_t h;
  std::memcpy(&h, &key, sizeof h);
  // A 32-bit integer finaliser: every key bit reaches every output bit.
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return static_cast<float>(h >> 8) * (1.0f / 16777215.0f);
}

}  // namespace kvi::host
