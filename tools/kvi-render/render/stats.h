// Counters of one render, kept per thread and summed at the end, and an
// optional sampling profile of where the time goes: shader calls, ray
// casting, or the renderer's own work.
#pragma once

#include <cstdint>

namespace kvi::render {

enum class TimeCategory : int { Host = 0, Shaders = 1, Rays = 2 };

struct RenderStats {
  uint64_t samples = 0;           // pixel samples
  uint64_t cameraRays = 0;
  uint64_t secondaryRays = 0;     // continuations, gathers and rays traced for materials
  uint64_t shadowRays = 0;
  uint64_t shaderCalls = 0;
  uint64_t nonFiniteSamples = 0;  // NaN or infinite samples, counted as black
  uint64_t negativeSamples = 0;   // samples of surfaces with a negative colour channel
  uint64_t profileSamples[3] = {0, 0, 0};  // by TimeCategory, when profiled

  uint64_t rays() const { return cameraRays + secondaryRays + shadowRays; }
  void add(const RenderStats& o) {
    samples += o.samples;
    cameraRays += o.cameraRays;
    secondaryRays += o.secondaryRays;
    shadowRays += o.shadowRays;
    shaderCalls += o.shaderCalls;
    nonFiniteSamples += o.nonFiniteSamples;
    negativeSamples += o.negativeSamples;
    for (int i = 0; i < 3; ++i) profileSamples[i] += o.profileSamples[i];
  }
};

// What each thread is doing, for the profile: a TimeCategory, or -1 when it
// is not rendering.
inline thread_local int tTimeCategory = -1;
inline int currentTimeCategory() { return tTimeCategory; }

// Sets the calling thread's category for the life of the scope (nesting
// restores the outer one). Costs a thread-local store, profiled or not.
class TimeScope {
 public:
  explicit TimeScope(TimeCategory category) : previous_(tTimeCategory) { tTimeCategory = int(category); }
  ~TimeScope() { tTimeCategory = previous_; }
  TimeScope(const TimeScope&) = delete;
  TimeScope& operator=(const TimeScope&) = delete;

 private:
  int previous_;
};

// While alive, samples every rendering thread's category a thousand times
// per second of CPU time (a profiling timer signal); one at a time.
class Profiler {
 public:
  Profiler();
  ~Profiler();
  Profiler(const Profiler&) = delete;
  Profiler& operator=(const Profiler&) = delete;
  // The samples taken so far, by TimeCategory.
  void read(uint64_t out[3]) const;
};

}  // namespace kvi::render
