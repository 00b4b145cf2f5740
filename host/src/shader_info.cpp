#include "kvi/host/shader_info.h"

#include <cstring>
#include <set>

#include "kvi/host/allocation_probe.h"
#include "kvi/host/error.h"

namespace kvi::host {

const char* kindName(ParamKind kind) {
  switch (kind) {
    case ParamKind::Bool: return "bool";
    case ParamKind::Int: return "int";
    case ParamKind::Float: return "float";
    case ParamKind::Float2: return "float2";
    case ParamKind::Color3: return "color3";
    case ParamKind::Color4: return "color4";
    case ParamKind::Matrix3: return "matrix3";
    case ParamKind::Matrix4: return "matrix4";
    case ParamKind::ClippingMap: return "clippingmap";
    case ParamKind::Texture: return "texture";
    case ParamKind::EnvironmentMap: return "environmentmap";
  }
  return "unknown";
}

uint32_t kindFloatCount(ParamKind kind) {
  switch (kind) {
    case ParamKind::Float: return 1;
    case ParamKind::Float2: return 2;
    case ParamKind::Color3: return 3;
    case ParamKind::Color4: return 4;
    case ParamKind::Matrix3: return 9;
    case ParamKind::Matrix4: return 16;
    default: return 0;
  }
}

uint32_t kindSize(ParamKind kind) {
  switch (kind) {
    case ParamKind::Bool: return 1;
    case ParamKind::Int: return 4;
    case ParamKind::ClippingMap:
    case ParamKind::Texture:
    case ParamKind::EnvironmentMap: return 16;
    default: return 4 * kindFloatCount(kind);
  }
}

uint32_t kindAlignment(ParamKind kind) {
  switch (kind) {
    case ParamKind::Bool: return 1;
    case ParamKind::ClippingMap:
    case ParamKind::Texture:
    case ParamKind::EnvironmentMap: return 8;
    default: return 4;
  }
}

const char* shaderKindName(int32_t kind) {
  switch (kind) {
    case kMaterialKind: return "material";
    case kLightKind: return "light";
    case kEnvironmentKind: return "environment";
    default: return "unknown";
  }
}

const char* varyingKindName(uint32_t kind) {
  switch (kind) {
    case kVaryingUv: return "uv";
    case kVaryingVector: return "vector";
    case kVaryingColor: return "color";
    default: return "unknown";
  }
}

const ParameterInfo* ShaderInfo::findParameter(std::string_view n) const {
  for (const auto& p : parameters)
    if (p.name == n) return &p;
  return nullptr;
}

const VaryingInfo* ShaderInfo::findVarying(std::string_view n) const {
  for (const auto& v : varyings)
    if (v.name == n) return &v;
  return nullptr;
}

namespace {

// Fields lie after the table of virtual operations and well inside any
// sensible object.
constexpr uint32_t kFirstFieldOffset = 8;
constexpr uint32_t kMaxObjectSize = 1u << 20;

class RecordingBinder final : public IParameterBinder {
 public:
  RecordingBinder(IShaderBase* shader, ShaderInfo& info) : shader_(shader), info_(info) {}

  void beginParameters(IShaderBase* shader, uint32_t mask) override {
    checkShader(shader, "beginParameters");
    if (begun_) fail("calls beginParameters twice");
    begun_ = true;
    info_.operationMask = mask;
  }
  void bindBool(IShaderBase* s, const char* n, uint8_t* f) override { add(s, n, f, ParamKind::Bool); }
  void bindInt(IShaderBase* s, const char* n, int32_t* f) override { add(s, n, f, ParamKind::Int); }
  void bindFloat(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Float); }
  void bindFloat2(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Float2); }
  void bindColor3(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Color3); }
  void bindColor4(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Color4); }
  void bindMatrix3(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Matrix3); }
  void bindMatrix4(IShaderBase* s, const char* n, float* f) override { add(s, n, f, ParamKind::Matrix4); }
  void bindClippingMap(IShaderBase* s, const char* n, ClippingMapRef* f) override {
    add(s, n, f, ParamKind::ClippingMap);
  }
  void bindTexture(IShaderBase* s, const char* n, TextureRef* f) override { add(s, n, f, ParamKind::Texture); }
  void bindEnvironmentMap(IShaderBase* s, const char* n, TextureRef* f) override {
    add(s, n, f, ParamKind::EnvironmentMap);
  }
  void requestVarying(IShaderBase* s, uint32_t kind, const char* n, uint32_t offset) override {
    checkShader(s, "requestVarying");
    if (!n) fail("requests a varying without a name");
    if (info_.findVarying(n)) fail(std::string("requests the varying '") + n + "' twice");
    info_.varyings.push_back(VaryingInfo{kind, n, offset});
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw Error("shader '" + info_.name + "' " + what);
  }
  void checkShader(IShaderBase* s, const char* call) const {
    if (s != shader_) fail(std::string("passes another object to ") + call);
    if (!begun_ && std::strcmp(call, "beginParameters") != 0)
      fail(std::string("calls ") + call + " before beginParameters");
  }
  void add(IShaderBase* s, const char* name, const void* field, ParamKind kind) {
    checkShader(s, "a bind operation");
    if (!name) fail("binds a parameter without a name");
    if (info_.findParameter(name)) fail(std::string("declares the parameter '") + name + "' twice");
    const auto diff = static_cast<const uint8_t*>(field) - reinterpret_cast<const uint8_t*>(shader_);
    if (diff < kFirstFieldOffset || diff > kMaxObjectSize || diff % kindAlignment(kind) != 0)
      fail(std::string("binds the parameter '") + name + "' to an address outside its object");
    ParameterInfo p;
    p.name = name;
    p.kind = kind;
    p.offset = static_cast<uint32_t>(diff);
    p.size = kindSize(kind);
    info_.blockSize = std::max(info_.blockSize, p.offset + p.size);
    info_.parameters.push_back(std::move(p));
  }

  IShaderBase* shader_;
  ShaderInfo& info_;
  bool begun_ = false;
};

void readDefaults(ShaderInfo& info, const IShaderBase* shader) {
  const auto* object = reinterpret_cast<const uint8_t*>(shader);
  for (auto& p : info.parameters) p.defaultValue.assign(object + p.offset, object + p.offset + p.size);
}

}  // namespace

ShaderInfo recordDeclaration(IShaderBase* shader, const std::string& name) {
  ShaderInfo info;
  info.name = name;
  RecordingBinder binder(shader, info);
  shader->declareParameters(&binder);
  info.kind = shader->getShaderKind();
  info.supported = shader->isSupported();
  return info;
}

ShaderInfo describeShader(const Module& module, const std::string& name) {
  const ShaderFactory factory = module.factory(name);
  ShaderPtr overZeros, overOnes;
  uint64_t before = probedAllocationCount();
  {
    AllocationFill fill(0x00);
    overZeros = module.create(factory);
  }
  {
    AllocationFill fill(0xFF);
    overOnes = module.create(factory);
  }
  const bool probed = probedAllocationCount() - before == 2;

  ShaderInfo info;
  try {
    info = recordDeclaration(overZeros.get(), name);
  } catch (const Error& e) {
    throw Error("module '" + module.path() + "': " + e.what());
  }
  readDefaults(info, overZeros.get());
  info.unsetDetected = probed;
  if (probed) {
    const auto* ones = reinterpret_cast<const uint8_t*>(overOnes.get());
    for (auto& p : info.parameters) {
      // A reference's last four bytes are padding no constructor writes.
      const bool reference = p.kind == ParamKind::Texture || p.kind == ParamKind::EnvironmentMap ||
                             p.kind == ParamKind::ClippingMap;
      const uint32_t significant = reference ? 12 : p.size;
      p.hasDefault = std::memcmp(p.defaultValue.data(), ones + p.offset, significant) == 0;
      if (!p.hasDefault) std::fill(p.defaultValue.begin(), p.defaultValue.end(), 0);
    }
  }
  return info;
}

}  // namespace kvi::host
