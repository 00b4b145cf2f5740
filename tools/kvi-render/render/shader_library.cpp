#include "render/shader_library.h"

#include "kvi/host/error.h"

namespace kvi::render {

ShaderLibrary::ShaderLibrary(const std::string& modulePath) : module_(host::Module::open(modulePath)) {
  for (const auto& name : module_.shaderNames()) module_.factory(name);  // throws on another API version
}

std::shared_ptr<const host::ShaderInfo> ShaderLibrary::info(const std::string& name) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& entry = infos_[name];
  if (!entry) entry = std::make_shared<host::ShaderInfo>(host::describeShader(module_, name));
  return entry;
}

std::vector<std::string> ShaderLibrary::shadersOfKind(int32_t kind) const {
  std::vector<std::string> names;
  for (const auto& name : shaderNames())
    if (info(name)->kind == kind) names.push_back(name);
  return names;
}

ShaderInstance createShader(const ShaderLibrary& library, const std::string& name) {
  ShaderInstance s;
  s.shader = name;
  s.info = library.info(name);
  s.object = library.module().create(name);
  s.block = std::make_unique<host::ParameterBlock>(s.info);
  for (const auto& p : s.info->parameters) {
    if (p.hasDefault) continue;
    if (p.kind == host::ParamKind::Matrix4)
      s.block->setMatrix4(p.name, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    else if (p.kind == host::ParamKind::Matrix3)
      s.block->setMatrix3(p.name, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    else if (p.kind == host::ParamKind::Texture)
      s.block->setTexture(p.name, nullptr, -1);
    else if (p.kind == host::ParamKind::EnvironmentMap)
      s.block->setEnvironmentMap(p.name, nullptr, -1);
    else if (p.kind == host::ParamKind::ClippingMap)
      s.block->setClippingMap(p.name, nullptr, -1);
  }
  return s;
}

}  // namespace kvi::render
