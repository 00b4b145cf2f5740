// kvi-render's answer to bad input: one line naming the file, the JSON
// pointer and what was expected, exit code 2, and nothing written.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

namespace fs = std::filesystem;

class SceneErrorTest : public FolderTest {
 protected:
  void SetUp() override {
    KVI_REQUIRE_SHADERS("BasicMaterial");
    FolderTest::SetUp();
    fs::create_directories(dir_ / "folder.obj");
    fs::create_directories(dir_ / "folder.png");
    write("empty.obj", "");
    write("garbage.obj", std::string("\x7f\x45\x4c\x46\x02\x01\x01\0\0\0garbage\xff\xfe", 20));
    write("normal_index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 3//4\n");
    write("uv_index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/9\n");
    write("corrupt.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\x01\x02", 18) + std::string(64, '\x5a'));
    write("huge.ppm", "P6\n60000 60000\n255\nabc");  // the header alone claims 10 GB
  }

  std::string write(const std::string& name, const std::string& text) {
    const fs::path path = dir_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }
  // Renders a scene to name.png in the test folder.
  RunResult render(const std::string& name, const std::string& scene, const std::string& extra = "") {
    const std::string path = write(name + ".json", scene);
    return runRenderer(path + " --output " + at(name + ".png") + " " + extra);
  }
};

// A scene with one sphere whose material parameters are given.
std::string sphereWith(const std::string& material, const std::string& extra = "") {
  return R"({"render": {"width": 8, "height": 8, "spp": 1}, )" + extra + R"("objects": [{"shape": "sphere", "material": )" +
         material + "}]}";
}
std::string objScene(const std::string& file) {
  return R"({"objects": [{"shape": "obj", "file": ")" + file + R"(", "material": {"shader": "BasicMaterial"}}]})";
}
std::string textureScene(const std::string& file) {
  return sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse_map": "t"}})",
                    R"("textures": {"t": {"file": ")" + file + R"("}}, )");
}
std::string nested(int depth) { return std::string(size_t(depth), '[') + std::string(size_t(depth), ']'); }

struct BadScene {
  const char* name;
  std::string scene;
  const char* pointer;   // JSON pointer the message names ("" for none)
  const char* expected;  // what the message says was expected
};

TEST_F(SceneErrorTest, BadScenesAreRefusedWithOneLineNamingTheFileAndThePlace) {
  const BadScene cases[] = {
      // The document itself.
      {"not_json", R"({"objects": [})", "", "not valid JSON"},
      {"null", "null", "", "expected a scene (a JSON object), got null"},
      {"array", "[1, 2]", "", "got an array of 2 numbers"},
      {"beyond_double", R"({"camera": {"fov": 1e400}})", "/camera/fov", "number overflow parsing '1e400'"},
      {"beyond_double_in_array", R"({"camera": {"position": [0, 1e999, 0]}})", "/camera/position/1", "overflow"},
      {"deep_nesting", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": )" + nested(100000) + "}}"),
       "/objects/0/material/parameters/diffuse/0/0/0/...", "nested more than 64 levels deep"},
      {"unknown_key", R"({"camra": {}})", "/camra", "unknown key 'camra'"},
      // Geometry out of range, before the ray tracing kernel sees it.
      {"far_object", sphereWith(R"({"shader": "BasicMaterial"}, "transform": {"translate": [1e20, 0, 0]})"),
       "/objects/0", "reaches 1e+20 scene units"},
      {"far_camera", R"({"camera": {"position": [1e30, 0, 0]}})", "/camera/position", "within 1e+12 scene units"},
      {"colour_beyond_float", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": [1e39, 1, 1]}})"),
       "/objects/0/material/parameters/diffuse/0", "beyond the float range"},
      // Files.
      {"missing_obj", objScene("missing.obj"), "/objects/0/file", "cannot read"},
      {"empty_obj", objScene("empty.obj"), "/objects/0/file", "has no faces"},
      {"garbage_obj", objScene("garbage.obj"), "/objects/0/file", "has no faces"},
      {"folder_obj", objScene("folder.obj"), "/objects/0/file", "is a folder"},
      {"obj_normal_index", objScene("normal_index.obj"), "/objects/0/file", "out of bounds"},
      {"obj_uv_index", objScene("uv_index.obj"), "/objects/0/file", "texcoord indices out of bounds"},
      {"missing_texture", textureScene("wood.png"), "/textures/t/file", "cannot read"},
      {"corrupt_png", textureScene("corrupt.png"), "/textures/t/file", "cannot read image"},
      {"folder_texture", textureScene("folder.png"), "/textures/t/file", "is a folder"},
      {"huge_image_header", textureScene("huge.ppm"), "/textures/t/file", "claims 60000 x 60000 pixels"},
      // Shaders and their parameters.
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
      {"malformed_web",
       sphereWith(R"({"shader": "BasicMaterial"})",
                  R"("textures": {"web": {"ies_text": "IESNA:LM-63-2002\nTILT=NONE\n1 -1 1 2 1 1 2 0 0 0\n1 1 10\n0 90\n0\n5"}},
                     "lights": [{"shader": "velk_qora_Lgt_PhotometricWeb", "position": [0, 2, 0], "parameters": {"web": "web"}}], )"),
       "/textures/web/ies_text", "<ies_text>:7: the file ends where a candela value"},
  };
  for (const BadScene& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = write(std::string(c.name) + ".json", c.scene);
    try {
      loadSceneFile(path, testLibrary());
      ADD_FAILURE() << "accepted";
    } catch (const SceneError& e) {
      const std::string message = e.what();
      EXPECT_EQ(message.find('\n'), std::string::npos) << "one line: " << message;
      EXPECT_EQ(message.rfind(path + ": " + c.pointer, 0), 0u) << message;
      EXPECT_NE(message.find(c.expected), std::string::npos) << message;
    }
  }
}

TEST_F(SceneErrorTest, TheRendererSaysSoInOneLineWithExitCode2AndWritesNothing) {
  // One of each: the document, geometry, and a file whose reader would speak
  // for itself on stderr.
  const std::pair<const char*, std::string> cases[] = {
      {"not_json", R"({"objects": [})"},
      {"far_camera", R"({"camera": {"position": [1e30, 0, 0]}})"},
      {"corrupt_png", textureScene("corrupt.png")},
  };
  for (const auto& [name, scene] : cases) {
    SCOPED_TRACE(name);
    const RunResult run = render("out", scene);
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << "one line: " << run.output;
    EXPECT_EQ(run.output.rfind("kvi-render: " + (dir_ / "out.json").string() + ": ", 0), 0u) << run.output;
    EXPECT_FALSE(fs::exists(dir_ / "out.png"));
  }
}

TEST_F(SceneErrorTest, BadCommandLinesAndOutputsAreRefusedBeforeRendering) {
  // The scene would take hours: every refusal must come before rendering.
  const std::string scene = write("slow.json", R"({"render": {"width": 16384, "height": 16384, "spp": 1048576}})");
  const struct {
    std::string arguments;
    const char* expected;
  } cases[] = {
      {scene + " --spd 4", "unknown option '--spd' (did you mean --spp?)"},
      {scene + " --tile 5/4", "--tile expects K/N"},
      {scene + " --output " + (dir_ / "no_folder" / "x.png").string(), "there is no folder"},
      {scene + " --output " + (dir_ / "x.gif").string(), "unknown picture format '.gif'"},
      {scene + " --output " + dir_.string(), "it is a folder"},
      {"--merge " + (dir_ / "merged.exr").string() + " " + (dir_ / "missing.exr").string(), "cannot read image"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const RunResult run = runRenderer(c.arguments);
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find(c.expected), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find(".partial"), std::string::npos) << run.output;
    // Usage errors show how kvi-render is called; the others are one line.
    const bool usage = c.arguments.find("--spd") != std::string::npos || c.arguments.find("--tile") != std::string::npos;
    EXPECT_EQ(run.output.find("\nusage: kvi-render [options] [SCENE.json]\n") != std::string::npos, usage) << run.output;
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
  EXPECT_FALSE(fs::exists(dir_ / "missing_module.png"));
  EXPECT_FALSE(fs::exists(dir_ / "outdated_module.png"));
}

TEST_F(SceneErrorTest, AGoodSceneIsWrittenAndHdrKeepsItsColourWithoutAlpha) {
  const std::string scene = sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": [1, 0, 0]}})");
  const RunResult png = render("good", scene);
  EXPECT_EQ(png.exitCode, 0) << png.output;
  EXPECT_TRUE(fs::exists(dir_ / "good.png"));
  const RunResult hdr = runRenderer((dir_ / "good.json").string() + " -o " + (dir_ / "good.hdr").string());
  EXPECT_EQ(hdr.exitCode, 0) << hdr.output;
  EXPECT_TRUE(fs::exists(dir_ / "good.hdr"));
}

}  // namespace
}  // namespace kvi::render::test
