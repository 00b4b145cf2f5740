// Loading a shader module with dlopen and creating its shaders.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kvi/exports.h"
#include "kvi/shader.h"

namespace kvi::host {

// Ends a shader object through its virtual destructor and keeps the module
// loaded for as long as the object lives.
struct ShaderDeleter {
  std::shared_ptr<void> module;
  void operator()(IShaderBase* shader) const { delete shader; }
};
using ShaderPtr = std::unique_ptr<IShaderBase, ShaderDeleter>;

// The two exports of one shader, checked against this host's API version.
struct ShaderFactory {
  std::string name;
  CreateFunction create = nullptr;
  ApiVersionFunction apiVersion = nullptr;
};

class Module {
 public:
  // Loads the module at path (RTLD_NOW | RTLD_LOCAL). The file is checked
  // first (exportedShaderNames), so a truncated or foreign file is refused
  // with a message rather than crashing the process. Throws Error naming the
  // path and the reason when the file cannot be read, is broken, exports no
  // shader ("not a kvi module") or cannot be loaded.
  static Module open(const std::string& path);

  const std::string& path() const { return path_; }

  // Every shader the module exports (both <Name>_create and
  // <Name>_getAPIVersion defined), sorted by name, read from the module's
  // dynamic symbol table.
  const std::vector<std::string>& shaderNames() const { return names_; }
  bool hasShader(const std::string& name) const;

  // Resolves a shader's exports. Throws Error when the shader is missing or
  // answers another API version than kApiVersion (naming the module, the
  // shader and both versions).
  ShaderFactory factory(const std::string& name) const;

  // A new object of the shader with its defaults. Throws Error as factory()
  // does, and when the module's allocation fails.
  ShaderPtr create(const std::string& name) const;
  ShaderPtr create(const ShaderFactory& factory) const;

 private:
  Module(std::string path, std::shared_ptr<void> handle, std::vector<std::string> names);
  std::string path_;
  std::shared_ptr<void> handle_;
  std::vector<std::string> names_;
};

// The shader names exported by the ELF shared object at path (empty for a
// library that is not a kvi module). Throws Error when the file cannot be
// read, is not a shared library for this machine, or is truncated or damaged:
// its header, program and section headers, segments and sections must all lie
// within the file.
std::vector<std::string> exportedShaderNames(const std::string& path);

// The module to open when the user names none: the KVI_MODULE environment
// variable, else the module beside the running program (../lib, as in the
// build tree and an installation), else where this project installs it.
std::string defaultModulePath();

}  // namespace kvi::host
