// The host's side of parameter declaration: a shader announces each of its
// parameters (name, kind, destination field) and the varyings it needs.
#pragma once

#include <cstdint>

#include "kvi/types.h"

namespace kvi {

struct IShaderBase;

// Bits of the operation mask given to beginParameters: which shading
// operations a shader takes part in. A clear bit means an empty body.
enum OperationBits : uint32_t {
  kOpTestCutout = 1u,          // material slot 10
  kOpEvaluateRadiance = 2u,    // material slot 9
  kOpShadeSurface = 4u,        // material slot 5
  kOpShadowTransmission = 8u,  // material slot 6
  kOpEvaluateBsdf = 16u,       // material slot 7 (always with kOpSampleBsdf)
  kOpSampleBsdf = 32u,         // material slot 8
  kOpLightShade = 64u,         // light slot 5
  kOpEnvironmentShade = 128u,  // environment slot 5
};

// Kinds passed to requestVarying.
enum VaryingKind : uint32_t {
  kVaryingUv = 1,       // "uv": 2 floats
  kVaryingVector = 2,   // "tangent", "bitangent": 3 floats
  kVaryingColor = 3,    // "vtxcolor": 4 floats (r, g, b, a)
};

// Every bind call passes the shader and the address of the destination field
// inside it; the field's offset is that address minus the shader's address.
// Results are ignored. Slots the host interface does not use are reserved.
struct IParameterBinder {
  virtual ~IParameterBinder() = default;
  virtual void beginParameters(IShaderBase* shader, uint32_t operationMask) = 0;        // 1
  virtual void bindBool(IShaderBase* shader, const char* name, uint8_t* field) = 0;     // 2
  virtual void reserved3() {}
  virtual void reserved4() {}
  virtual void reserved5() {}
  virtual void bindInt(IShaderBase* shader, const char* name, int32_t* field) = 0;      // 6
  virtual void reserved7() {}
  virtual void reserved8() {}
  virtual void reserved9() {}
  virtual void bindFloat(IShaderBase* shader, const char* name, float* field) = 0;      // 10
  virtual void bindFloat2(IShaderBase* shader, const char* name, float* field) = 0;     // 11
  virtual void bindColor3(IShaderBase* shader, const char* name, float* field) = 0;     // 12
  virtual void bindColor4(IShaderBase* shader, const char* name, float* field) = 0;     // 13
  virtual void reserved14() {}
  virtual void bindMatrix3(IShaderBase* shader, const char* name, float* field) = 0;    // 15
  virtual void bindMatrix4(IShaderBase* shader, const char* name, float* field) = 0;    // 16
  virtual void bindClippingMap(IShaderBase* shader, const char* name, ClippingMapRef* field) = 0;  // 17
  virtual void bindTexture(IShaderBase* shader, const char* name, TextureRef* field) = 0;          // 18
  virtual void reserved19() {}
  virtual void bindEnvironmentMap(IShaderBase* shader, const char* name, TextureRef* field) = 0;   // 20
  virtual void reserved21() {}
  virtual void reserved22() {}
  virtual void reserved23() {}
  virtual void reserved24() {}
  virtual void reserved25() {}
  virtual void reserved26() {}
  virtual void reserved27() {}
  virtual void reserved28() {}
  virtual void reserved29() {}
  virtual void reserved30() {}
  virtual void reserved31() {}
  virtual void reserved32() {}
  virtual void reserved33() {}
  virtual void reserved34() {}
  virtual void reserved35() {}
  virtual void reserved36() {}
  virtual void reserved37() {}
  virtual void reserved38() {}
  virtual void reserved39() {}
  virtual void requestVarying(IShaderBase* shader, uint32_t kind, const char* name, uint32_t offset) = 0;  // 40
};

}  // namespace kvi
