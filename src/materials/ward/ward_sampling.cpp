#include "materials/ward/ward_sampling.h"

#include <cmath>

#include "frame/vector3.h"

namespace kvi::ward {
namespace {

constexpr float kCertainlyNot = 0.00390625f;  // 1/256
constexpr float kCertainly = 0.99609375f;     // 255/256
constexpr float kNearlyNot = 0.08f, kNearly = 0.92f;
constexpr float kNoLobeWeight = 0.001f;
constexpr int kMaxEvents = 8;

float offeredWeight(const WardEvent& e) {
  const float w = max3(e.weight);
  return std::isfinite(w) && w > kNoLobeWeight ? w : 0.0f;
}

}  // namespace

float bandedProbability(float p) {
  if (p < kCertainlyNot) return 0.0f;
  if (p > kCertainly) return 1.0f;
  return p < kNearlyNot ? kNearlyNot : p > kNearly ? kNearly : p;
}

int chooseEvent(IShadingContext* context, const WardEvent* events, int count, float& scale) {
  scale = 1.0f;
  if (count > kMaxEvents) count = kMaxEvents;
  float after[kMaxEvents + 1];  // the offered weight of the events from k on
  after[count] = 0.0f;
  for (int k = count - 1; k >= 0; --k) after[k] = after[k + 1] + offeredWeight(events[k]);
  for (int k = 0; k < count; ++k) {
    const float w = offeredWeight(events[k]);
    if (w == 0.0f) continue;
    const float p = after[k + 1] > 0.0f ? bandedProbability(w / after[k]) : 1.0f;
    if (p == 0.0f) continue;
    if (p == 1.0f) return k;
    if (context->nextSample1D() < p) {
      scale = scale / p;
      return k;
    }
    scale = scale / (1.0f - p);
  }
  return -1;
}

bool refractDirection(const float direction[3], const float normal[3], float eta, float out[3]) {
  const float cosIn = -dot3(direction, normal);
  const float k = 1.0f - eta * eta * (1.0f - cosIn * cosIn);
  if (!(k >= 0.0f)) return false;
  const float along = eta * cosIn - std::sqrt(k);
  for (int i = 0; i < 3; ++i) out[i] = eta * direction[i] + along * normal[i];
  return true;
}

}  // namespace kvi::ward
