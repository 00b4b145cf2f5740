#include "kvi/host/parameter_block.h"

#include <cstring>

#include "kvi/host/error.h"

namespace kvi::host {

ParameterBlock::ParameterBlock(const ShaderInfo& info) : ParameterBlock(std::make_shared<ShaderInfo>(info)) {}

ParameterBlock::ParameterBlock(std::shared_ptr<const ShaderInfo> info)
    : info_(std::move(info)), storage_((info_->blockSize + 7) / 8, 0) {
  for (const auto& p : info_->parameters)
    if (p.hasDefault && p.defaultValue.size() == p.size) std::memcpy(at(p), p.defaultValue.data(), p.size);
}

const ParameterInfo& ParameterBlock::field(std::string_view name, ParamKind kind) const {
  return field(name, {kind});
}

const ParameterInfo& ParameterBlock::field(std::string_view name, std::initializer_list<ParamKind> kinds) const {
  const ParameterInfo* p = info_->findParameter(name);
  if (!p) throw Error("shader '" + info_->name + "' has no parameter '" + std::string(name) + "'");
  for (ParamKind k : kinds)
    if (p->kind == k) return *p;
  std::string expected;
  for (ParamKind k : kinds) expected += (expected.empty() ? "" : " or ") + std::string(kindName(k));
  throw Error("shader '" + info_->name + "': parameter '" + p->name + "' is a " + kindName(p->kind) + ", not a " +
              expected);
}

uint8_t* ParameterBlock::at(const ParameterInfo& p) { return reinterpret_cast<uint8_t*>(storage_.data()) + p.offset; }
const uint8_t* ParameterBlock::at(const ParameterInfo& p) const {
  return reinterpret_cast<const uint8_t*>(storage_.data()) + p.offset;
}

void ParameterBlock::setBool(std::string_view n, uint8_t v) { *at(field(n, ParamKind::Bool)) = v; }
void ParameterBlock::setInt(std::string_view n, int32_t v) { std::memcpy(at(field(n, ParamKind::Int)), &v, 4); }
void ParameterBlock::setFloat(std::string_view n, float v) { std::memcpy(at(field(n, ParamKind::Float)), &v, 4); }
void ParameterBlock::setFloat2(std::string_view n, const std::array<float, 2>& v) {
  std::memcpy(at(field(n, ParamKind::Float2)), v.data(), sizeof v);
}
void ParameterBlock::setColor3(std::string_view n, const std::array<float, 3>& v) {
  std::memcpy(at(field(n, ParamKind::Color3)), v.data(), sizeof v);
}
void ParameterBlock::setColor4(std::string_view n, const std::array<float, 4>& v) {
  std::memcpy(at(field(n, ParamKind::Color4)), v.data(), sizeof v);
}
void ParameterBlock::setMatrix3(std::string_view n, const std::array<float, 9>& v) {
  std::memcpy(at(field(n, ParamKind::Matrix3)), v.data(), sizeof v);
}
void ParameterBlock::setMatrix4(std::string_view n, const std::array<float, 16>& v) {
  std::memcpy(at(field(n, ParamKind::Matrix4)), v.data(), sizeof v);
}
void ParameterBlock::setTexture(std::string_view n, ITextureSampler* sampler, int32_t slot) {
  const TextureRef ref{sampler, slot};
  std::memcpy(at(field(n, ParamKind::Texture)), &ref, sizeof ref);
}
void ParameterBlock::setEnvironmentMap(std::string_view n, ITextureSampler* sampler, int32_t slot) {
  const TextureRef ref{sampler, slot};
  std::memcpy(at(field(n, ParamKind::EnvironmentMap)), &ref, sizeof ref);
}
void ParameterBlock::setClippingMap(std::string_view n, IClippingMapSampler* sampler, int32_t slot) {
  const ClippingMapRef ref{sampler, slot};
  std::memcpy(at(field(n, ParamKind::ClippingMap)), &ref, sizeof ref);
}

void ParameterBlock::setFloats(std::string_view n, const float* values, size_t count) {
  const ParameterInfo& p = field(n, {ParamKind::Float, ParamKind::Float2, ParamKind::Color3, ParamKind::Color4,
                                     ParamKind::Matrix3, ParamKind::Matrix4});
  if (count != kindFloatCount(p.kind))
    throw Error("shader '" + info_->name + "': parameter '" + p.name + "' is a " + kindName(p.kind) + " of " +
                std::to_string(kindFloatCount(p.kind)) + " floats, given " + std::to_string(count));
  std::memcpy(at(p), values, count * sizeof(float));
}

uint8_t ParameterBlock::getBool(std::string_view n) const { return *at(field(n, ParamKind::Bool)); }
int32_t ParameterBlock::getInt(std::string_view n) const {
  int32_t v;
  std::memcpy(&v, at(field(n, ParamKind::Int)), 4);
  return v;
}
float ParameterBlock::getFloat(std::string_view n) const {
  float v;
  std::memcpy(&v, at(field(n, ParamKind::Float)), 4);
  return v;
}
std::vector<float> ParameterBlock::getFloats(std::string_view n) const {
  const ParameterInfo& p = field(n, {ParamKind::Float, ParamKind::Float2, ParamKind::Color3, ParamKind::Color4,
                                     ParamKind::Matrix3, ParamKind::Matrix4});
  std::vector<float> v(kindFloatCount(p.kind));
  std::memcpy(v.data(), at(p), v.size() * sizeof(float));
  return v;
}
TextureRef ParameterBlock::getTexture(std::string_view n) const {
  TextureRef ref;
  std::memcpy(&ref, at(field(n, {ParamKind::Texture, ParamKind::EnvironmentMap})), sizeof ref);
  return ref;
}
ClippingMapRef ParameterBlock::getClippingMap(std::string_view n) const {
  ClippingMapRef ref;
  std::memcpy(&ref, at(field(n, ParamKind::ClippingMap)), sizeof ref);
  return ref;
}

const ShaderParameterBlock* ParameterBlock::data() const {
  return reinterpret_cast<const ShaderParameterBlock*>(storage_.data());
}
const uint8_t* ParameterBlock::bytes() const { return reinterpret_cast<const uint8_t*>(storage_.data()); }

void ParameterBlock::applyTo(IShaderBase* shader) const { shader->setParameters(data()); }

}  // namespace kvi::host
