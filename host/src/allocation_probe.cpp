#include "kvi/host/allocation_probe.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {
thread_local int fillByte = -1;  // -1: allocations are not filled
thread_local bool failing = false;
thread_local uint64_t allocationCount = 0;
}  // namespace

namespace kvi::host {

AllocationFill::AllocationFill(uint8_t byte) : previous_(fillByte) { fillByte = byte; }
AllocationFill::~AllocationFill() { fillByte = previous_; }
AllocationFailure::AllocationFailure() : previous_(failing) { failing = true; }
AllocationFailure::~AllocationFailure() { failing = previous_; }
uint64_t probedAllocationCount() { return allocationCount; }

}  // namespace kvi::host

// The thread sanitizer's runtime defines every operator new itself and cannot
// share it: under it the probe is absent and defaults cannot be told from
// unset fields.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KVI_NO_ALLOCATION_PROBE 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define KVI_NO_ALLOCATION_PROBE 1
#endif

namespace kvi::host {

#ifdef KVI_NO_ALLOCATION_PROBE
bool allocationProbeAvailable() { return false; }
#else
bool allocationProbeAvailable() { return true; }
#endif

}  // namespace kvi::host

#ifndef KVI_NO_ALLOCATION_PROBE
// The allocation behind every <Name>_create. Behaves as the standard one
// (the throwing operator new, its failure turned into null, so the standard
// operator delete matches it), and fills the memory while an AllocationFill
// is alive on this thread.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocationCount;
  if (failing) return nullptr;
  void* p = nullptr;
  try {
    p = ::operator new(size);
  } catch (...) {
    return nullptr;
  }
  if (fillByte >= 0) std::memset(p, fillByte, size);
  return p;
}
#endif
