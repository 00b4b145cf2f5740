// The shader module as the renderer sees it: the shaders it offers, their
// parameter tables, and configured shader objects.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kvi/host/module.h"
#include "kvi/host/parameter_block.h"
#include "kvi/host/shader_info.h"

namespace kvi::render {

// The module plus each shader's parameter table, recorded once.
class ShaderLibrary {
 public:
  // Opens the module and checks that every shader it exports answers this
  // host's API version. Throws host::Error naming the module (and the shader
  // and both versions on a mismatch).
  explicit ShaderLibrary(const std::string& modulePath);

  const host::Module& module() const { return module_; }
  const std::vector<std::string>& shaderNames() const { return module_.shaderNames(); }
  bool has(const std::string& name) const { return module_.hasShader(name); }
  // The parameter table (throws host::Error when the shader is missing).
  std::shared_ptr<const host::ShaderInfo> info(const std::string& name) const;
  // The shaders of one kind (kMaterialKind, kLightKind, kEnvironmentKind), by name.
  std::vector<std::string> shadersOfKind(int32_t kind) const;

 private:
  host::Module module_;
  mutable std::mutex mutex_;
  mutable std::map<std::string, std::shared_ptr<const host::ShaderInfo>> infos_;
};

// One configured shader object: the object, its table and the block its
// parameters were set from.
struct ShaderInstance {
  std::string shader;
  std::shared_ptr<const host::ShaderInfo> info;
  host::ShaderPtr object;
  std::unique_ptr<host::ParameterBlock> block;

  uint32_t mask() const { return info->operationMask; }
  bool takesPart(uint32_t operationBit) const { return (info->operationMask & operationBit) != 0; }
  MaterialShader* material() const { return static_cast<MaterialShader*>(object.get()); }
  LightShader* light() const { return static_cast<LightShader*>(object.get()); }
  EnvironmentShader* environment() const { return static_cast<EnvironmentShader*>(object.get()); }
};

// A new object of the shader with a block of its constructor's defaults in
// which the fields the constructor leaves unset hold the renderer's defaults:
// identity for 3 x 3 and 4 x 4 matrices, no texture (null, slot -1) for
// texture references, zeros otherwise.
ShaderInstance createShader(const ShaderLibrary& library, const std::string& name);

}  // namespace kvi::render
