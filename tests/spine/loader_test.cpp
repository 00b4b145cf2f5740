// Loading modules: what a host is told when a module or a shader is missing,
// stale or broken.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "kvi/host/allocation_probe.h"
#include "kvi/host/error.h"
#include "kvi/host/module.h"
#include "kvi/host/shader_info.h"

namespace {

using kvi::host::Error;
using kvi::host::Module;

// Runs f and returns the message of the Error it throws ("" if none).
template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.what();
  }
  return "";
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(Loader, MissingModuleIsNamed) {
  const std::string message = errorOf([] { Module::open("/nonexistent/libnothing.so"); });
  EXPECT_TRUE(contains(message, "/nonexistent/libnothing.so")) << message;
}

TEST(Loader, FileThatIsNotAModuleIsRefused) {
  const std::string path = testing::TempDir() + "not_a_module.so";
  std::ofstream(path) << "plain text, not an ELF object\n";
  EXPECT_TRUE(contains(errorOf([&] { Module::open(path); }), path));
  EXPECT_TRUE(contains(errorOf([&] { kvi::host::exportedShaderNames(path); }), path));
}

TEST(Loader, ListsOnlyShadersWithBothExports) {
  const Module module = Module::open(KVI_FAKE_MODULE_PATH);
  EXPECT_EQ(module.shaderNames(), (std::vector<std::string>{"FakeLight", "Stale", "TwiceLight"}));
  EXPECT_FALSE(module.hasShader("Lonely"));
}

TEST(Loader, MissingShaderNamesModuleAndShader) {
  const Module module = Module::open(KVI_FAKE_MODULE_PATH);
  for (const char* shader : {"Nowhere", "Lonely"}) {
    const std::string message = errorOf([&] { module.factory(shader); });
    EXPECT_TRUE(contains(message, KVI_FAKE_MODULE_PATH)) << message;
    EXPECT_TRUE(contains(message, shader)) << message;
  }
}

TEST(Loader, OtherApiVersionIsRefusedWithBothVersions) {
  const Module module = Module::open(KVI_FAKE_MODULE_PATH);
  const std::string message = errorOf([&] { module.create("Stale"); });
  EXPECT_TRUE(contains(message, KVI_FAKE_MODULE_PATH)) << message;
  EXPECT_TRUE(contains(message, "'Stale'")) << message;
  EXPECT_TRUE(contains(message, "2723")) << message;
  EXPECT_TRUE(contains(message, "2724")) << message;
}

TEST(Loader, TablesWithDuplicateNamesAreRefused) {
  const Module module = Module::open(KVI_FAKE_MODULE_PATH);
  const std::string message = errorOf([&] { kvi::host::describeShader(module, "TwiceLight"); });
  EXPECT_TRUE(contains(message, "TwiceLight")) << message;
  EXPECT_TRUE(contains(message, "'a'")) << message;
}

TEST(Loader, DefaultsAreReadAndUnsetFieldsToldApart) {
  const Module module = Module::open(KVI_FAKE_MODULE_PATH);
  if (!kvi::host::allocationProbeAvailable()) GTEST_SKIP() << "no allocation probe in this build";
  const auto info = kvi::host::describeShader(module, "FakeLight");
  ASSERT_TRUE(info.unsetDetected) << "the allocation probe did not reach the module's allocations";
  ASSERT_EQ(info.parameters.size(), 4u);
  EXPECT_TRUE(info.parameters[0].hasDefault);
  float color[3];
  std::memcpy(color, info.parameters[0].defaultValue.data(), sizeof color);
  EXPECT_EQ(color[1], 0.5f);
  EXPECT_EQ(info.parameters[1].defaultValue[0], 7);  // a bool's byte as the constructor left it
  EXPECT_FALSE(info.parameters[2].hasDefault);        // the transform
  EXPECT_TRUE(info.parameters[3].hasDefault);         // the texture reference
  EXPECT_EQ(info.operationMask, 64u);
  EXPECT_EQ(info.kind, 1);
}

TEST(Loader, ShadersOutliveTheirModuleHandle) {
  kvi::host::ShaderPtr shader;
  {
    const Module module = Module::open(KVI_FAKE_MODULE_PATH);
    shader = module.create("FakeLight");
  }
  EXPECT_EQ(shader->isSupported(), 1);  // the module is still loaded
}

}  // namespace
