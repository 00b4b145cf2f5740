// Building a ShaderParameterBlock by parameter name.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "kvi/host/shader_info.h"
#include "kvi/shader.h"

namespace kvi::host {

// Bytes laid out like the shader's parameter fields: the field at object
// offset k sits at byte k. Starts from the constructor's defaults (fields the
// constructor leaves unset start as zero bytes). Setters name the parameter
// and check its kind; an unknown name or a kind mismatch throws Error naming
// the shader and the parameter.
class ParameterBlock {
 public:
  explicit ParameterBlock(std::shared_ptr<const ShaderInfo> info);
  explicit ParameterBlock(const ShaderInfo& info);

  const ShaderInfo& info() const { return *info_; }

  void setBool(std::string_view name, uint8_t value);  // any byte: shaders test for non-zero
  void setInt(std::string_view name, int32_t value);
  void setFloat(std::string_view name, float value);
  void setFloat2(std::string_view name, const std::array<float, 2>& value);
  void setColor3(std::string_view name, const std::array<float, 3>& value);
  void setColor4(std::string_view name, const std::array<float, 4>& value);
  void setMatrix3(std::string_view name, const std::array<float, 9>& value);
  void setMatrix4(std::string_view name, const std::array<float, 16>& value);
  void setTexture(std::string_view name, ITextureSampler* sampler, int32_t slot);
  void setEnvironmentMap(std::string_view name, ITextureSampler* sampler, int32_t slot);
  void setClippingMap(std::string_view name, IClippingMapSampler* sampler, int32_t slot);
  // Any float-valued kind (float, float2, color3, color4, matrix3, matrix4),
  // checked against the parameter's float count.
  void setFloats(std::string_view name, const float* values, size_t count);

  uint8_t getBool(std::string_view name) const;
  int32_t getInt(std::string_view name) const;
  float getFloat(std::string_view name) const;
  std::vector<float> getFloats(std::string_view name) const;  // any float-valued kind
  TextureRef getTexture(std::string_view name) const;         // texture or environment map
  ClippingMapRef getClippingMap(std::string_view name) const;

  const ShaderParameterBlock* data() const;
  const uint8_t* bytes() const;
  size_t size() const { return info_->blockSize; }

  // shader->setParameters(data()).
  void applyTo(IShaderBase* shader) const;

 private:
  const ParameterInfo& field(std::string_view name, ParamKind kind) const;
  const ParameterInfo& field(std::string_view name, std::initializer_list<ParamKind> kinds) const;
  uint8_t* at(const ParameterInfo& p);
  const uint8_t* at(const ParameterInfo& p) const;

  std::shared_ptr<const ShaderInfo> info_;
  std::vector<uint64_t> storage_;  // 8-aligned for the sampler pointers
};

}  // namespace kvi::host
