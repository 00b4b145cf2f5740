#include "render/stats.h"

#include <signal.h>
#include <sys/time.h>

#include <atomic>

namespace kvi::render {
namespace {

std::atomic<uint64_t> gProfileSamples[3];
struct sigaction gPreviousAction;

// Runs in whichever thread the timer interrupted: reads that thread's
// category and counts it (lock-free atomics are safe in a signal handler).
void onProfileTick(int) {
  const int category = tTimeCategory;
  if (category >= 0 && category < 3) gProfileSamples[category].fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

Profiler::Profiler() {
  for (auto& s : gProfileSamples) s.store(0);
  struct sigaction action {};
  action.sa_handler = onProfileTick;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGPROF, &action, &gPreviousAction);
  const itimerval every{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_PROF, &every, nullptr);
}

Profiler::~Profiler() {
  const itimerval off{};
  setitimer(ITIMER_PROF, &off, nullptr);
  sigaction(SIGPROF, &gPreviousAction, nullptr);
}

void Profiler::read(uint64_t out[3]) const {
  for (int i = 0; i < 3; ++i) out[i] = gProfileSamples[i].load();
}

}  // namespace kvi::render
