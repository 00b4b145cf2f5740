// The module's only visible symbols: two plain functions per shader.
#include "frame/registry.h"
#include "kvi/exports.h"

#define KVI_EXPORT_ extern "C" __attribute__((visibility("default")))

#define KVI_DEFINE_EXPORTS_(Name)                                                  \
  KVI_EXPORT_ kvi::IShaderBase* Name##_create() { return kvi::create_##Name(); }    \
  KVI_EXPORT_ int32_t Name##_getAPIVersion() { return kvi::apiVersion(); }

namespace kvi {
namespace {
// One body answers for every shader.
__attribute__((noinline)) int32_t apiVersion() { return kApiVersion; }
}  // namespace
}  // namespace kvi

KVI_SHADERS(KVI_DEFINE_EXPORTS_)
