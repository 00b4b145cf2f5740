// No shading operation of any shader allocates: the whole malloc family is
// replaced in this binary and counted around every operation of every
// shader, over its presets and many random configurations.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>

#include "variations.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {
// Plain thread-locals: no dynamic initialisation inside the allocator.
__thread int counting = 0;
__thread long allocations = 0;
inline void count() {
  if (counting) ++allocations;
}
}  // namespace

// operator new and friends all end in these.
extern "C" void* malloc(size_t n) {
  count();
  return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size) {
  count();
  return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n) {
  count();
  return __libc_realloc(p, n);
}
extern "C" void* memalign(size_t alignment, size_t n) {
  count();
  return __libc_memalign(alignment, n);
}
extern "C" void* aligned_alloc(size_t alignment, size_t n) {
  count();
  return __libc_memalign(alignment, n);
}
extern "C" int posix_memalign(void** out, size_t alignment, size_t n) {
  count();
  void* p = __libc_memalign(alignment, n);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
extern "C" void free(void* p) {
  count();
  __libc_free(p);
}

namespace {

long allocationsDuring(const kvi::test::ShadingOperation& op, kvi::test::Variation& v) {
  kvi::ShadingState state = v.state;
  allocations = 0;
  counting = 1;
  op.call(v.shader->object.get(), &v.context, &state);
  counting = 0;
  return allocations;
}

TEST(NoAllocation, TheCounterSeesAllocations) {
  counting = 1;
  allocations = 0;
  delete new int(1);
  void* p = std::malloc(8);
  std::free(p);
  counting = 0;
  EXPECT_EQ(allocations, 4);
}

TEST(NoAllocation, NoShadingOperationAllocates) {
  const auto& module = kvi::test::testModule();
  ASSERT_FALSE(module.shaderNames().empty());
  for (const auto& name : module.shaderNames()) {
    const auto info = kvi::test::testShaderInfo(name);
    for (auto& v : kvi::test::variationsOf(name, 40, 1234)) {
      for (const auto& op : kvi::test::operationsOf(*info))
        EXPECT_EQ(allocationsDuring(op, *v), 0) << name << " " << op.name << " (" << v->label << ")";
    }
  }
}

}  // namespace
