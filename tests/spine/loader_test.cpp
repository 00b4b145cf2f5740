// Loading modules: what a host is told when a module or a shader is missing,
// stale or broken.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <filesystem>
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

// The path of a shared library that is not a kvi module: the maths library
// this test links with.
std::string plainLibraryPath() {
  void* handle = dlopen("libm.so.6", RTLD_NOW | RTLD_NOLOAD);
  link_map* map = nullptr;
  if (!handle || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || !map) return "";
  return map->l_name;
}

// A copy of the real module cut to `size` bytes (negative: that many bytes
// short of the whole).
std::string truncatedModule(const std::string& name, std::intmax_t size) {
  namespace fs = std::filesystem;
  const std::string path = testing::TempDir() + name;
  fs::copy_file(KVI_TEST_MODULE_PATH, path, fs::copy_options::overwrite_existing);
  fs::resize_file(path, size >= 0 ? size : fs::file_size(path) + size);
  return path;
}

// Every file that is not a loadable kvi module is refused before the dynamic
// loader sees it, with one line naming the file and the reason; none crashes.
TEST(Loader, BrokenAndForeignFilesAreRefusedWithTheirReason) {
  const std::string text = testing::TempDir() + "not_a_module.so";
  std::ofstream(text) << "plain text, not an ELF object\n";
  const struct {
    std::string path;
    const char* reason;
  } cases[] = {
      {"/nonexistent/libnothing.so", "No such file"},
      {text, "no ELF header"},
      {testing::TempDir(), "is a directory"},
      {truncatedModule("cut_header.so", 20), "ELF header ends"},
      {truncatedModule("cut_program_headers.so", 100), "program header table ends"},
      {truncatedModule("cut_segment.so", 4096), "segment 0 ends"},
      {truncatedModule("cut_sections.so", -1), "section header table ends"},
      {plainLibraryPath(), "is not a kvi module"},
  };
  for (const auto& c : cases) {
    const std::string message = errorOf([&] { Module::open(c.path); });
    EXPECT_TRUE(contains(message, c.path)) << message;
    EXPECT_TRUE(contains(message, c.reason)) << c.path << ": " << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  }
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
