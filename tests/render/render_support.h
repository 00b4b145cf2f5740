// Rendering small scenes in-process, as kvi-render does, for the tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "render/renderer.h"
#include "render/scene.h"
#include "render/shader_library.h"

namespace kvi::render::test {

// The module built with the tests, opened once.
std::shared_ptr<const ShaderLibrary> testLibrary();
// Whether the module offers every shader named.
bool offers(std::initializer_list<const char*> shaders);

struct Rendered {
  std::unique_ptr<Scene> scene;
  RenderResult result;
  const float* pixel(int x, int y) const { return result.film.pixel(x, y); }
};
Rendered renderScene(const nlohmann::json& scene);
Rendered renderScene(const nlohmann::json& scene, std::shared_ptr<const ShaderLibrary> library);

// A scene of the given size and samples, linear output, no objects yet.
nlohmann::json emptyScene(int width, int height, int spp);
// A BasicMaterial of the given diffuse colour without highlight.
nlohmann::json matteMaterial(float r, float g, float b);

// kvi-render run with -q and the arguments: its exit code and what it said
// on stdout and stderr.
struct RunResult {
  int exitCode = -1;
  std::string output;
};
RunResult runRenderer(const std::string& arguments);

// A test with a folder of its own for the files it writes, removed after it.
class FolderTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string at(const std::string& name) const { return (dir_ / name).string(); }

  std::filesystem::path dir_;
};

}  // namespace kvi::render::test

// Skips the test when the module lacks one of the shaders it needs.
#define KVI_REQUIRE_SHADERS(...)                                                   \
  do {                                                                             \
    if (!::kvi::render::test::offers({__VA_ARGS__}))                               \
      GTEST_SKIP() << "the module does not offer every shader this test needs";    \
  } while (0)
