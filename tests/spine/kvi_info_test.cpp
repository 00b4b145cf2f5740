// kvi-info as a user runs it: its listing, its JSON and its errors.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "kvi/host/allocation_probe.h"
#include "test_shader.h"

namespace {

struct Outcome {
  int exitCode;
  std::string output;  // stdout and stderr
};

Outcome run(const std::string& arguments) {
  const std::string command = std::string(KVI_INFO_PATH) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  Outcome result{-1, ""};
  if (!pipe) return result;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, n);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

TEST(KviInfo, ListsEveryShaderOfTheModuleBuiltBesideIt) {
  const Outcome r = run("");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  for (const auto& name : kvi::test::testModule().shaderNames())
    EXPECT_NE(r.output.find("\n" + name + "  ("), std::string::npos) << name;
}

TEST(KviInfo, JsonCarriesTheParameterTables) {
  const Outcome r = run("--json --library " + kvi::test::testModule().path() + " DirectionalLight");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  const auto json = nlohmann::json::parse(r.output);
  EXPECT_EQ(json["apiVersion"], 2724);
  ASSERT_EQ(json["shaders"].size(), 1u);
  const auto& shader = json["shaders"][0];
  EXPECT_EQ(shader["name"], "DirectionalLight");
  EXPECT_EQ(shader["kind"], "light");
  EXPECT_EQ(shader["operationMask"], 64);
  EXPECT_EQ(shader["parameters"][0]["name"], "color");
  EXPECT_EQ(shader["parameters"][0]["kind"], "color3");
  EXPECT_EQ(shader["parameters"][0]["default"], nlohmann::json({0.5, 0.1f, 1.0}));
  EXPECT_EQ(shader["parameters"][1]["default"], true);
}

// Every parameter of the module carries a meaning from the metadata file
// beside it, and the checked-in parameter reference is the one kvi-info
// writes now (regenerate it with `build/bin/kvi-info --markdown > docs/parameters.md`).
TEST(KviInfo, EveryParameterIsDocumentedAndTheReferenceIsCurrent) {
  const Outcome r = run("--json");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  const auto listing = nlohmann::json::parse(r.output);  // kept: the loop walks into it
  for (const auto& shader : listing["shaders"])
    for (const auto& p : shader["parameters"])
      EXPECT_FALSE(p.value("meaning", "").empty()) << shader["name"] << " " << p["name"];
  if (!kvi::host::allocationProbeAvailable()) GTEST_SKIP() << "defaults cannot be read in this build";
  std::ifstream file(std::string(KVI_SOURCE_DIR) + "/docs/parameters.md");
  std::stringstream reference;
  reference << file.rdbuf();
  EXPECT_TRUE(reference.str() == run("--markdown").output)
      << "docs/parameters.md is stale: run build/bin/kvi-info --markdown > docs/parameters.md";
}

TEST(KviInfo, ShowsUnsetFields) {
  if (!kvi::host::allocationProbeAvailable()) GTEST_SKIP() << "no allocation probe in this build";
  const Outcome r = run("--library " + std::string(KVI_FAKE_MODULE_PATH) + " FakeLight");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_NE(r.output.find("transform  matrix4         unset"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("map        texture         none"), std::string::npos) << r.output;
}

TEST(KviInfo, ErrorsNameTheProblemAndExitNonZero) {
  namespace fs = std::filesystem;
  const std::string truncated = testing::TempDir() + "kvi_info_truncated.so";
  fs::copy_file(kvi::test::testModule().path(), truncated, fs::copy_options::overwrite_existing);
  fs::resize_file(truncated, fs::file_size(truncated) / 2);
  const struct {
    std::string arguments;
    int exitCode;
    const char* message;
  } cases[] = {
      {"--library /nonexistent/lib.so", 2, "/nonexistent/lib.so"},
      {"NoSuchShader", 2, "'NoSuchShader'"},
      {"--library " + std::string(KVI_FAKE_MODULE_PATH) + " Stale", 2, "2723"},
      {"--library " + truncated, 2, "is truncated"},
      {"--library " + std::string(KVI_INFO_PATH), 2, "is not a kvi module"},
      {"--no-such-option", 1, "--no-such-option"},
  };
  for (const auto& c : cases) {
    const Outcome r = run(c.arguments);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.arguments << "\n" << r.output;
    EXPECT_NE(r.output.find(c.message), std::string::npos) << c.arguments << "\n" << r.output;
  }
}

}  // namespace
