// kvi-render as people and schedulers drive it: bad input refused with one
// line naming the file, the JSON pointer and what was expected, exit code 2
// and nothing written; parts of a frame rendered by separate processes merge
// into the picture one process makes; Ctrl-C stops a render without writing
// anything.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "render/images.h"
#include "render/scene_loader.h"
#include "render_support.h"

namespace kvi::render::test {
namespace {

namespace fs = std::filesystem;

const std::string kCorruptPng = std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\x01\x02", 18) + std::string(64, '\x5a');

class CommandLineTest : public FolderTest {
 protected:
  void SetUp() override {
    KVI_REQUIRE_SHADERS("BasicMaterial", "PointLight");
    FolderTest::SetUp();
  }
  std::string write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return at(name);
  }
  // A small lit scene with diffuse interreflection, so that every pixel
  // takes paths of several bounces.
  std::string writeScene(int width, int height, int spp) {
    nlohmann::json scene = emptyScene(width, height, spp);
    scene["camera"] = {{"position", {0, 1, 3}}, {"look_at", {0, 0.5, 0}}};
    scene["objects"] = {{{"shape", "plane"}, {"size", 4}, {"material", matteMaterial(0.7f, 0.6f, 0.5f)}},
                        {{"shape", "sphere"}, {"radius", 0.5}, {"transform", {{"translate", {0, 0.5, 0}}}},
                         {"material", matteMaterial(0.2f, 0.5f, 0.8f)}}};
    scene["lights"] = {{{"shader", "PointLight"}, {"position", {1, 2, 1}},
                        {"parameters", {{"color", {3, 3, 3}}, {"attenuationFactors", {0, 0, 1}}}}}};
    return write("scene.json", scene.dump());
  }
};

// A scene with one sphere whose material parameters are given.
std::string sphereWith(const std::string& material, const std::string& extra = "") {
  return R"({"render": {"width": 8, "height": 8, "spp": 1}, )" + extra +
         R"("objects": [{"shape": "sphere", "material": )" + material + "}]}";
}
std::string objScene(const std::string& file) {
  return R"({"objects": [{"shape": "obj", "file": ")" + file + R"(", "material": {"shader": "BasicMaterial"}}]})";
}
std::string textureScene(const std::string& file) {
  return sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse_map": "t"}})",
                    R"("textures": {"t": {"file": ")" + file + R"("}}, )");
}

TEST_F(CommandLineTest, BadScenesAreRefusedWithOneLineNamingTheFileAndThePlace) {
  fs::create_directories(dir_ / "folder.obj");
  fs::create_directories(dir_ / "folder.png");
  write("empty.obj", "");
  write("garbage.obj", std::string("\x7f\x45\x4c\x46\x02\x01\x01\0\0\0garbage\xff\xfe", 20));
  write("normal_index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 3//4\n");
  write("uv_index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/9\n");
  write("corrupt.png", kCorruptPng);
  write("huge.ppm", "P6\n60000 60000\n255\nabc");  // the header alone claims 10 GB
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  // (name, scene, the JSON pointer the message names, what it says was expected)
  const std::tuple<const char*, std::string, const char*, const char*> cases[] = {
      // The document itself.
      {"not_json", R"({"objects": [})", "", "not valid JSON"},
      {"null", "null", "", "expected a scene (a JSON object), got null"},
      {"array", "[1, 2]", "", "got an array of 2 numbers"},
      {"beyond_double", R"({"camera": {"fov": 1e400}})", "/camera/fov", "number overflow parsing '1e400'"},
      {"beyond_double_in_array", R"({"camera": {"position": [0, 1e999, 0]}})", "/camera/position/1", "overflow"},
      {"deep_nesting", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": )" + deep + "}}"),
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
  for (const auto& [name, scene, pointer, expected] : cases) {
    SCOPED_TRACE(name);
    const std::string path = write(std::string(name) + ".json", scene);
    try {
      loadSceneFile(path, testLibrary());
      ADD_FAILURE() << "accepted";
    } catch (const SceneError& e) {
      const std::string message = e.what();
      EXPECT_EQ(message.find('\n'), std::string::npos) << "one line: " << message;
      EXPECT_EQ(message.rfind(path + ": " + pointer, 0), 0u) << message;
      EXPECT_NE(message.find(expected), std::string::npos) << message;
    }
  }
}

// Every refusal comes before rendering (the slow scene would take hours):
// exit code 2 and one line saying why (usage errors show how kvi-render is
// called besides), nothing written; a good scene is written as a picture or
// as linear colour. The scene errors: one of the document, of geometry, and
// of a file whose reader would speak for itself on stderr.
TEST_F(CommandLineTest, BadInputExitsWith2AndWritesNothingAGoodSceneIsWritten) {
  const std::string slow = write("slow.json", R"({"render": {"width": 16384, "height": 16384, "spp": 1048576}})");
  write("corrupt.png", kCorruptPng);
  const std::string good =
      write("good.json", sphereWith(R"({"shader": "BasicMaterial", "parameters": {"diffuse": [1, 0, 0]}})"));
  // A scene file, to be rendered to out.png.
  auto scene = [&](const char* name, const std::string& text) { return write(name, text) + " -o " + at("out.png"); };
  auto says = [&](const char* name) { return "kvi-render: " + at(name) + ": "; };
  struct Row { std::string arguments; int exit; std::string says; std::string written; bool usage = false; };
  const Row rows[] = {
      {scene("not_json.json", R"({"objects": [})"), 2, says("not_json.json"), at("out.png")},
      {scene("far_camera.json", R"({"camera": {"position": [1e30, 0, 0]}})"), 2, says("far_camera.json"),
       at("out.png")},
      {scene("corrupt_png.json", textureScene("corrupt.png")), 2, says("corrupt_png.json"), at("out.png")},
      {slow + " --spd 4", 2, "unknown option '--spd' (did you mean --spp?)", "", true},
      {slow + " --tile 5/4", 2, "--tile expects K/N", "", true},
      {slow + " --output " + at("no_folder/x.png"), 2, "there is no folder", at("no_folder/x.png")},
      {slow + " --output " + at("x.gif"), 2, "unknown picture format '.gif'", at("x.gif")},
      {slow + " --output " + dir_.string(), 2, "it is a folder", ""},
      {"--merge " + at("merged.exr") + " " + at("missing.exr"), 2, "cannot read image", at("merged.exr")},
      {slow + " --library " + at("no_such_module.so"), 2, "no_such_module.so", ""},
      {good + " --library " + KVI_RENDER_OLD_MODULE_PATH + " -o " + at("old.png"), 2,
       "API version " + std::to_string(kApiVersion - 1), at("old.png")},
      {good + " -o " + at("good.png"), 0, "", at("good.png")},
      {good + " -o " + at("good.hdr"), 0, "", at("good.hdr")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.arguments);
    const RunResult run = runRenderer(row.arguments);
    EXPECT_EQ(run.exitCode, row.exit) << run.output;
    if (!row.written.empty()) { EXPECT_EQ(fs::exists(row.written), row.exit == 0); }
    if (row.exit == 0) continue;
    EXPECT_EQ(run.output.rfind("kvi-render: ", 0), 0u) << run.output;
    EXPECT_NE(run.output.find(row.says), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find(".partial"), std::string::npos) << run.output;
    const bool usage = run.output.find("\nusage: kvi-render [options] [SCENE.json]\n") != std::string::npos;
    EXPECT_EQ(usage, row.usage) << run.output;
    if (!row.usage) { EXPECT_EQ(run.output.find('\n'), run.output.size() - 1) << "one line: " << run.output; }
  }
}

// Merges the four parts of a kind that GNU parallel rendered.
FloatImage merged(const std::string& kind, const std::string& dir) {
  std::string parts;
  for (int k = 1; k <= 4; ++k) parts += " " + dir + "/" + kind + std::to_string(k) + ".exr";
  const RunResult merge = runRenderer("--merge " + dir + "/" + kind + ".exr" + parts);
  EXPECT_EQ(merge.exitCode, 0) << merge.output;
  return readImage(dir + "/" + kind + ".exr");
}

TEST_F(CommandLineTest, PartsRenderedByGnuParallelMergeIntoTheWholeRender) {
  ASSERT_EQ(std::system("parallel --version >/dev/null 2>&1"), 0) << "GNU parallel is missing (scripts/setup.sh)";
  const std::string scene = writeScene(24, 14, 8);
  ASSERT_EQ(runRenderer(scene + " -o " + at("whole.exr")).exitCode, 0);
  const FloatImage whole = readImage(at("whole.exr"));
  // Four tiles and four sample shares, two processes at a time.
  const std::string command = "parallel --will-cite -j 2 " + std::string(KVI_RENDER_PATH) + " -q " + scene +
                              " --{1} {2}/4 -o " + dir_.string() + "/{1}{2}.exr ::: tile sample-share ::: 1 2 3 4";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  // Tiles hold whole pixels: the merge is the whole render bit for bit.
  const FloatImage tiles = merged("tile", dir_.string());
  ASSERT_EQ(tiles.rgba.size(), whole.rgba.size());
  EXPECT_EQ(std::memcmp(tiles.rgba.data(), whole.rgba.data(), whole.rgba.size() * sizeof(float)), 0);
  // Sample shares hold two samples of every pixel: their means weighted by
  // the counts are the mean of all eight, up to float rounding.
  const FloatImage shares = merged("sample-share", dir_.string());
  ASSERT_EQ(shares.rgba.size(), whole.rgba.size());
  for (size_t i = 0; i < whole.rgba.size(); ++i)
    ASSERT_NEAR(shares.rgba[i], whole.rgba[i], 1e-6f * std::max(1.0f, std::fabs(whole.rgba[i]))) << "value " << i;
  ASSERT_TRUE(shares.samples.has_value());
  EXPECT_EQ(shares.samples->count, 8);
  // The same share twice would count its samples twice.
  const std::string share = " " + at("sample-share1.exr");
  const RunResult twice = runRenderer("--merge " + at("twice.exr") + share + share);
  EXPECT_EQ(twice.exitCode, 2);
  EXPECT_NE(twice.output.find("both hold samples 0 to 1"), std::string::npos) << twice.output;
}

// Starts kvi-render, interrupts it as Ctrl-C does once it is rendering, and
// returns its exit code and what it said.
RunResult interrupted(const std::vector<std::string>& arguments, const fs::path& log) {
  std::vector<std::string> args = {KVI_RENDER_PATH, "-q"};
  args.insert(args.end(), arguments.begin(), arguments.end());
  const pid_t pid = fork();
  if (pid == 0) {
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, STDERR_FILENO);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  // Wait until it catches SIGINT (its render is about to start), then a little.
  const auto caught = [&] {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.rfind("SigCgt:", 0) == 0) return (std::stoull(line.substr(7), nullptr, 16) >> (SIGINT - 1)) & 1;
    return 0ull;
  };
  for (int i = 0; i < 400 && !caught(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(25));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  RunResult run;
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  // Only the program's own lines: a sanitizer runtime may add lines of its
  // own to the stream (its symbolizer's complaints, for one).
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("kvi-render", 0) == 0) run.output += line + "\n";
  return run;
}

TEST_F(CommandLineTest, CtrlCStopsWithOneLineAndWritesNothing) {
  const std::string scene = writeScene(512, 512, 1 << 16);
  const struct {
    std::vector<std::string> arguments;
    std::string unwritten;
    const char* what;
  } cases[] = {
      {{scene, "-o", at("picture.png")}, at("picture.png"), scene.c_str()},
      {{"--gallery", at("gallery"), "--spp", "4096"}, at("gallery"), "the gallery"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const RunResult run = interrupted(c.arguments, dir_ / "log.txt");
    EXPECT_EQ(run.exitCode, 130);
    EXPECT_EQ(run.output, "kvi-render: interrupted while rendering " + std::string(c.what) + "; nothing written\n");
    EXPECT_FALSE(fs::exists(c.unwritten));
  }
}

}  // namespace
}  // namespace kvi::render::test
