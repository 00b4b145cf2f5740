// kvi-render as schedulers and people drive it: parts of a frame rendered by
// separate processes merge into the picture one process makes, and Ctrl-C
// stops a render without writing anything.
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
#include "render_support.h"

namespace kvi::render::test {
namespace {

namespace fs = std::filesystem;

class CommandLineTest : public FolderTest {
 protected:
  void SetUp() override {
    KVI_REQUIRE_SHADERS("BasicMaterial", "PointLight");
    FolderTest::SetUp();
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
    const fs::path path = dir_ / "scene.json";
    std::ofstream(path) << scene.dump();
    return path.string();
  }
};

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
  const RunResult twice = runRenderer("--merge " + at("twice.exr") + " " + at("sample-share1.exr") + " " +
                                      at("sample-share1.exr"));
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
