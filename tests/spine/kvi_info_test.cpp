// kvi-info as a user runs it: its listing, its JSON and its errors.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
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
  for (const auto& shader : nlohmann::json::parse(r.output)["shaders"])
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
  const Outcome missing = run("--library /nonexistent/lib.so");
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_NE(missing.output.find("/nonexistent/lib.so"), std::string::npos) << missing.output;
  const Outcome unknown = run("NoSuchShader");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_NE(unknown.output.find("'NoSuchShader'"), std::string::npos) << unknown.output;
  const Outcome stale = run("--library " + std::string(KVI_FAKE_MODULE_PATH) + " Stale");
  EXPECT_EQ(stale.exitCode, 2);
  EXPECT_NE(stale.output.find("2723"), std::string::npos) << stale.output;
  EXPECT_EQ(run("--no-such-option").exitCode, 1);
}

}  // namespace
