// kvi-info: lists the shaders a module offers, with their kinds, operation
// masks, parameters (declaration order, kind, default) and varyings.
//
//   kvi-info [--json] [--library PATH] [SHADER...]
//
// Exit codes: 0 success, 1 usage error, 2 a module or shader problem.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "format.h"
#include "kvi/host/error.h"
#include "kvi/host/module.h"
#include "kvi/host/shader_info.h"

namespace {

int kindOrder(int32_t kind) {
  switch (kind) {
    case kvi::kLightKind: return 0;
    case kvi::kEnvironmentKind: return 1;
    case kvi::kMaterialKind: return 2;
    default: return 3;
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"kvi-info: the shaders of a kvi module and their parameters"};
  bool json = false;
  std::string library;
  std::vector<std::string> shaders;
  app.add_flag("--json", json, "Print JSON instead of tables");
  app.add_option("--library", library, "The shader module (default: the one built beside kvi-info)");
  app.add_option("shaders", shaders, "Shaders to describe (default: every shader of the module)");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 1;
  }

  try {
    if (library.empty()) library = kvi::host::defaultModulePath();
    const kvi::host::Module module = kvi::host::Module::open(library);
    if (shaders.empty()) shaders = module.shaderNames();
    for (const auto& name : shaders)
      if (!module.hasShader(name)) throw kvi::host::Error("module '" + library + "' has no shader '" + name + "'");

    std::vector<kvi::host::ShaderInfo> infos;
    for (const auto& name : shaders) infos.push_back(kvi::host::describeShader(module, name));
    std::stable_sort(infos.begin(), infos.end(),
                     [](const auto& a, const auto& b) { return kindOrder(a.kind) < kindOrder(b.kind); });

    if (json) {
      nlohmann::json list = nlohmann::json::array();
      for (const auto& info : infos) list.push_back(kvi::info::toJson(info));
      std::cout << nlohmann::json{{"module", library}, {"apiVersion", kvi::kApiVersion}, {"shaders", list}}.dump(2)
                << "\n";
    } else {
      std::cout << "module " << library << ": " << infos.size() << " shader" << (infos.size() == 1 ? "" : "s")
                << ", API version " << kvi::kApiVersion << "\n";
      for (const auto& info : infos) std::cout << "\n" << kvi::info::formatTable(info);
    }
  } catch (const std::exception& e) {
    std::cerr << "kvi-info: " << e.what() << "\n";
    return 2;
  }
  return 0;
}
