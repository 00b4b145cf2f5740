#include "scripted_context.h"

#include <numeric>

namespace kvi::test {
namespace {
std::array<float, 3> triple(const float* v) { return {v[0], v[1], v[2]}; }
}  // namespace

int ScriptedContext::totalCalls() const { return std::accumulate(counts_.begin(), counts_.end(), 0); }

const LightSample* ScriptedContext::collectLightSamples(int32_t which, const float position[3],
                                                        const float normal[3]) {
  ++counts_[kCollectLightSamples];
  lastLightsWhich = which;
  lastLightsPosition = triple(position);
  lastLightsNormal = triple(normal);
  return BaseContext::collectLightSamples(which, position, normal);
}

float* ScriptedContext::gatherIrradiance(float out[3], const float position[3], const float normal[3]) {
  ++counts_[kGatherIrradiance];
  lastIrradiancePosition = triple(position);
  lastIrradianceNormal = triple(normal);
  return BaseContext::gatherIrradiance(out, position, normal);
}

const float* ScriptedContext::traceShadow(float out[3], const float from[3], const float to[3]) {
  ++counts_[kTraceShadow];
  lastShadowFrom = triple(from);
  lastShadowTo = triple(to);
  return BaseContext::traceShadow(out, from, to);
}

const float* ScriptedContext::traceRay(float out[3], const float origin[3], const float direction[3], float weight) {
  ++counts_[kTraceRay];
  lastRayOrigin = triple(origin);
  lastRayDirection = triple(direction);
  lastRayWeight = weight;
  return BaseContext::traceRay(out, origin, direction, weight);
}

uint8_t ScriptedContext::isRayFlagSet(int32_t flag) {
  ++counts_[kIsRayFlagSet];
  rayFlagsAsked.push_back(flag);
  return BaseContext::isRayFlagSet(flag);
}

int32_t ScriptedContext::isRayKind(int32_t kindMask) {
  ++counts_[kIsRayKind];
  rayKindMasksAsked.push_back(kindMask);
  return BaseContext::isRayKind(kindMask);
}

uint8_t ScriptedContext::acceptsGlossyBounce(float roughness) {
  ++counts_[kAcceptsGlossyBounce];
  roughnessesAsked.push_back(roughness);
  return BaseContext::acceptsGlossyBounce(roughness);
}

uint8_t ScriptedContext::isDiffuseSampled() {
  ++counts_[kIsDiffuseSampled];
  return BaseContext::isDiffuseSampled();
}

int32_t ScriptedContext::getRayKind() {
  ++counts_[kGetRayKind];
  if (rayKinds.empty()) return BaseContext::getRayKind();
  const int32_t kind = rayKinds.front();
  rayKinds.pop_front();
  return kind;
}

float ScriptedContext::nextSample1D() {
  ++counts_[kNextSample1D];
  if (samples1D.empty()) return BaseContext::nextSample1D();
  const float x = samples1D.front();
  samples1D.pop_front();
  return x;
}

const float* ScriptedContext::nextSample2D(float buffer[2]) {
  ++counts_[kNextSample2D];
  if (samples2D.empty()) return BaseContext::nextSample2D(buffer);
  buffer[0] = samples2D.front()[0];
  buffer[1] = samples2D.front()[1];
  samples2D.pop_front();
  return buffer;
}

float ScriptedContext::noise4D(const float p[4]) {
  ++counts_[kNoise4D];
  return BaseContext::noise4D(p);
}

float ScriptedContext::hashRandom(float key) {
  ++counts_[kHashRandom];
  return BaseContext::hashRandom(key);
}

}  // namespace kvi::test
