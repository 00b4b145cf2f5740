// The shader object model: what a host calls on a shader it created.
#pragma once

#include <cstdint>

#include "kvi/binder.h"
#include "kvi/context.h"
#include "kvi/state.h"
#include "kvi/types.h"

namespace kvi {

// Answers of getShaderKind.
enum ShaderKind : int32_t {
  kMaterialKind = 0,
  kLightKind = 1,
  kEnvironmentKind = 2,
};

// Root of every shader object. The object starts with the table of virtual
// operations; the parameter fields follow at offset 8, in declaration order.
// The host ends an object with delete.
struct IShaderBase {
  virtual ~IShaderBase() = default;
  virtual void declareParameters(IParameterBinder* binder) = 0;        // 1
  virtual void setParameters(const ShaderParameterBlock* block) = 0;  // 2
  virtual int32_t isSupported() = 0;                                  // 3: always 1
  virtual int32_t getShaderKind() = 0;                                // 4: a ShaderKind
};

struct LightShader : IShaderBase {
  // 5: the light arriving at the point of a light sample.
  virtual void shade(IShadingContext* context, ShadingState* state) = 0;
};

struct EnvironmentShader : IShaderBase {
  // 5: what a ray leaving the scene sees, into surfaceResult.
  virtual void shade(IShadingContext* context, ShadingState* state) = 0;
};

struct MaterialShader : IShaderBase {
  virtual void shadeSurface(IShadingContext* context, ShadingState* state) = 0;        // 5
  virtual void shadowTransmission(IShadingContext* context, ShadingState* state) = 0;  // 6
  virtual void evaluateBsdf(IShadingContext* context, ShadingState* state) = 0;        // 7
  virtual void sampleBsdf(IShadingContext* context, ShadingState* state) = 0;          // 8
  virtual void evaluateRadiance(IShadingContext* context, ShadingState* state) = 0;    // 9
  virtual void testCutout(IShadingContext* context, ShadingState* state) = 0;          // 10
};

}  // namespace kvi
