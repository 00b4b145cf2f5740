// kvi-render's answer to bad input: one line naming the file, the JSON
// pointer and what was expected, exit code 2, and no output file.
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "render_support.h"

namespace kvi::render::test {
namespace {

namespace fs = std::filesystem;

struct RunResult {
  int exitCode = -1;
  std::string output;  // stderr (the closing line is silenced with -q)
};

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

class SceneErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KVI_REQUIRE_SHADERS("BasicMaterial");
    dir_ = fs::path(::testing::TempDir()) / ("kvi_render_errors_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string write(const std::string& name, const std::string& text) {
    const fs::path path = dir_ / name;
    std::ofstream(path) << text;
    return path.string();
  }
  // Renders a scene to name.png in the test folder.
  RunResult render(const std::string& name, const std::string& scene, const std::string& extra = "") {
    const std::string path = write(name + ".json", scene);
    return runRenderer("--scene " + path + " --output " + (dir_ / (name + ".png")).string() + " " + extra);
  }
  // Nothing was written: neither the picture nor a temporary file.
  void expectNoOutput() const {
    for (const auto& entry : fs::directory_iterator(dir_))
      EXPECT_EQ(entry.path().extension(), ".json") << "left behind: " << entry.path();
  }

  fs::path dir_;
};

// A scene with one sphere whose material parameters are given.
std::string sphereWith(const std::string& material, const std::string& extra = "") {
  return R"({"render": {"width": 8, "height": 8, "spp": 1}, )" + extra + R"("objects": [{"shape": "sphere", "material": )" +
         material + "}]}";
}

struct BadScene {
  const char* name;
  std::string scene;
  const char* pointer;   // JSON pointer the message names ("" for none)
  const char* expected;  // what the message says was expected
};

TEST_F(SceneErrorTest, BadScenesAreRefusedWithOneLineNamingTheFileAndThePlace) {
  const BadScene cases[] = {
      {"not_json", R"({"objects": [})", "", "not valid JSON"},
      {"unknown_key", R"({"camra": {}})", "/camra", "unknown key 'camra'"},
      {"missing_obj", R"({"objects": [{"shape": "obj", "file": "missing.obj", "material": "m"}]})", "/objects/0/file",
       "cannot read"},
      {"unknown_shader", sphereWith(R"({"shader": "NoSuchMaterial"})"), "/objects/0/material/shader",
       "no shader 'NoSuchMaterial'"},
      {"wrong_kind_of_shader", R"({"lights": [{"shader": "BasicMaterial", "type": "point", "position": [0, 1, 0]}]})",
       "/lights/0/shader", "is a material shader, expected a light shader"},
      {"unknown_parameter", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"difuse": [1, 1, 1]}})"),
       "/objects/0/material/parameters/difuse", "has no parameter 'difuse'"},
      {"wrong_kind", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": "red"}})"),
       "/objects/0/material/parameters/diffuse", "expected a color3 (an array of 3 numbers)"},
      {"wrong_shape", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": [1, 0]}})"),
       "/objects/0/material/parameters/diffuse", "got an array of 2 numbers"},
      {"wrong_element", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"shininess": true}})"),
       "/objects/0/material/parameters/shininess", "expected a float"},
      {"missing_texture",
       sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse_map": "wood"}})",
                  R"("textures": {"wood": {"file": "wood.png"}}, )"),
       "/textures/wood/file", "cannot read"},
      {"malformed_web",
       sphereWith(R"({"shader": "BasicMaterial"})",
                  R"("textures": {"web": {"ies_text": "IESNA:LM-63-2002\nTILT=NONE\n1 -1 1 2 1 1 2 0 0 0\n1 1 10\n0 90\n0\n5"}},
                     "lights": [{"shader": "velk_qora_Lgt_PhotometricWeb", "position": [0, 2, 0], "parameters": {"web": "web"}}], )"),
       "/textures/web/ies_text", "<ies_text>:7: the file ends where a candela value"},
  };
  for (const BadScene& c : cases) {
    SCOPED_TRACE(c.name);
    const RunResult run = render(c.name, c.scene);
    EXPECT_EQ(run.exitCode, 2) << run.output;
    ASSERT_FALSE(run.output.empty());
    EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << "one line: " << run.output;
    EXPECT_NE(run.output.find((dir_ / (std::string(c.name) + ".json")).string() + ": " + c.pointer), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find(c.expected), std::string::npos) << run.output;
    expectNoOutput();
  }
}

TEST_F(SceneErrorTest, MissingOrOutdatedModulesAreRefused) {
  const std::string scene = sphereWith(R"({"shader": "BasicMaterial"})");
  const RunResult missing = render("missing_module", scene, "--library " + (dir_ / "no_such_module.so").string());
  EXPECT_EQ(missing.exitCode, 2) << missing.output;
  EXPECT_NE(missing.output.find("no_such_module.so"), std::string::npos) << missing.output;
  const RunResult outdated = render("outdated_module", scene, std::string("--library ") + KVI_RENDER_OLD_MODULE_PATH);
  EXPECT_EQ(outdated.exitCode, 2) << outdated.output;
  EXPECT_NE(outdated.output.find("API version " + std::to_string(kApiVersion - 1)), std::string::npos)
      << outdated.output;
  expectNoOutput();
}

TEST_F(SceneErrorTest, AGoodSceneIsWritten) {
  const RunResult run = render("good", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": [1, 0, 0]}})"));
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_TRUE(fs::exists(dir_ / "good.png"));
}

}  // namespace
}  // namespace kvi::render::test
