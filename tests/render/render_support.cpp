#include "render_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "render/scene_loader.h"

namespace kvi::render::test {

std::shared_ptr<const ShaderLibrary> testLibrary() {
  static const auto library = std::make_shared<const ShaderLibrary>(KVI_TEST_MODULE_PATH);
  return library;
}

bool offers(std::initializer_list<const char*> shaders) {
  for (const char* s : shaders)
    if (!testLibrary()->has(s)) return false;
  return true;
}

Rendered renderScene(const nlohmann::json& scene) { return renderScene(scene, testLibrary()); }

Rendered renderScene(const nlohmann::json& scene, std::shared_ptr<const ShaderLibrary> library) {
  Rendered r;
  r.scene = loadScene(scene, "<test scene>", ".", std::move(library));
  r.result = render(*r.scene);
  return r;
}

nlohmann::json emptyScene(int width, int height, int spp) {
  return {{"render", {{"width", width}, {"height", height}, {"spp", spp}}},
          {"tone_mapping", {{"enabled", false}}},
          {"objects", nlohmann::json::array()},
          {"lights", nlohmann::json::array()}};
}

nlohmann::json matteMaterial(float r, float g, float b) {
  return {{"shader", "BasicMaterial"}, {"parameters", {{"diffuse", {r, g, b}}, {"specular", {0, 0, 0}}}}};
}

RunResult runRenderer(const std::string& arguments) {
  const std::string command = std::string(KVI_RENDER_PATH) + " -q " + arguments + " 2>&1";
  RunResult run;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[512];
  while (size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) run.output.append(buffer, n);
  const int status = pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

void FolderTest::SetUp() {
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  dir_ = std::filesystem::path(::testing::TempDir()) /
         ("kvi_render_" + std::string(test->name()) + "_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir_);
}

void FolderTest::TearDown() { std::filesystem::remove_all(dir_); }

}  // namespace kvi::render::test
