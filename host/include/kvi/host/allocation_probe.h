// Telling the fields a constructor leaves unset from those it sets.
//
// The host cannot see a constructor's code, only the object it produces. The
// probe replaces the nothrow operator new that <Name>_create allocates with
// (an executable that links kvihost_probe and exports its symbols, see
// kvi_enable_allocation_probe in CMake) so that fresh objects can be filled
// with a chosen byte: a field whose bytes differ between an object made over
// 0x00 and one made over 0xFF was not written by the constructor.
#pragma once

#include <cstdint>

namespace kvi::host {

// While alive, nothrow allocations on this thread are filled with the byte.
class AllocationFill {
 public:
  explicit AllocationFill(uint8_t byte);
  ~AllocationFill();
  AllocationFill(const AllocationFill&) = delete;
  AllocationFill& operator=(const AllocationFill&) = delete;

 private:
  int previous_;
};

// While alive, nothrow allocations on this thread fail (return null), to see
// what a module and a host do when memory runs out.
class AllocationFailure {
 public:
  AllocationFailure();
  ~AllocationFailure();
  AllocationFailure(const AllocationFailure&) = delete;
  AllocationFailure& operator=(const AllocationFailure&) = delete;

 private:
  bool previous_;
};

// The number of nothrow allocations this thread made through the probe: a
// count that does not move over a _create call means the module's allocations
// do not reach the probe, and nothing can be told.
uint64_t probedAllocationCount();

// False in builds where the probe cannot replace the allocation (the thread
// sanitizer's runtime owns operator new there).
bool allocationProbeAvailable();

}  // namespace kvi::host
