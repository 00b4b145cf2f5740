#include "test_shader.h"

#include <map>
#include <mutex>

namespace kvi::test {

const host::Module& testModule() {
  static const host::Module module = host::Module::open(KVI_TEST_MODULE_PATH);
  return module;
}

std::shared_ptr<const host::ShaderInfo> testShaderInfo(const std::string& name) {
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<const host::ShaderInfo>> cache;
  std::lock_guard<std::mutex> lock(mutex);
  auto& entry = cache[name];
  if (!entry) entry = std::make_shared<host::ShaderInfo>(host::describeShader(testModule(), name));
  return entry;
}

TestShader::TestShader(const std::string& name)
    : info(testShaderInfo(name)), object(testModule().create(name)), block(info) {}

}  // namespace kvi::test
