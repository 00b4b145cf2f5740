// Declaring a shader's parameters once.
//
// A shader lists its parameters in a single X-macro, in declaration order:
//
//   #define KVI_DIRECTIONAL_LIGHT_PARAMETERS(PARAM, VARYING)                        (backslash)
//     PARAM(Color3, color, doc("irradiance", "0 or more per channel"), {0.5f, 0.1f, 1.0f}) (backslash)
//     PARAM(Bool, castShadows, doc("ask the host for the shadow"), true)
//
// and expands it inside its class with KVI_SHADER_PARAMETERS:
//
//   class DirectionalLight final : public ShaderImpl<LightShader> {
//     KVI_SHADER_PARAMETERS(DirectionalLight, kOpLightShade, KVI_DIRECTIONAL_LIGHT_PARAMETERS)
//     ...
//   };
//
// From that one list follow the parameter fields (public, in declaration
// order, directly after the table of virtual operations), the constructor
// that stores the defaults, declareParameters (beginParameters, one bind per
// parameter and the varying requests, in list order), setParameters (a
// whole copy of every parameter field from the same offset of the block, and
// nothing else, followed by the class's deriveCachedValues()) and the
// parameters' documentation (kParameterDocs, which the build turns into the
// metadata file installed beside the module and the parameter reference).
//
// PARAM(Kind, name, doc(meaning, range, unit), default): Kind is one of the
// ParameterKind names below; the field bears the host-visible parameter name.
// doc() says what the parameter means, the values it takes and their unit;
// range and unit may be left out where the kind says all (textures, flags).
// The default is a value or braced list of the field's type, `unset` for a
// field the constructor leaves alone, or `unbound` for texture references
// (null sampler, slot -1).
// VARYING(Kind, name, offset): a requestVarying call, Kind one of Uv, Vector,
// Color.
//
// Private cached values, if any, are declared after the expansion, and a
// class that keeps them defines `void deriveCachedValues()` to compute them
// from the freshly copied parameters (ShaderImpl's version does nothing).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "kvi/shader.h"

namespace kvi {

// What a parameter means, the values it takes and their unit, for hosts and
// their users. Compile-time text only: nothing of it is read while shading.
struct ParameterDoc {
  const char* meaning;
  const char* range;
  const char* unit;
};

constexpr ParameterDoc doc(const char* meaning, const char* range = "", const char* unit = "") {
  return ParameterDoc{meaning, range, unit};
}

// One entry of a shader's parameter documentation: the host-visible name, the
// parameter kind's name (a ParameterKind below) and its ParameterDoc.
struct ParameterDocEntry {
  const char* name;
  const char* kind;
  ParameterDoc doc;
};

// A shader's documentation table, in declaration order.
struct ParameterDocTable {
  const ParameterDocEntry* entries;
  size_t count;
};

// The field type of each parameter kind and the binder operation that
// announces it.
namespace parameter_kind {

struct Bool {
  using Field = uint8_t;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindBool(s, n, &f); }
};
struct Int {
  using Field = int32_t;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindInt(s, n, &f); }
};
struct Float {
  using Field = float;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindFloat(s, n, &f); }
};
struct Float2 {
  using Field = float[2];
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindFloat2(s, n, f); }
};
struct Color3 {
  using Field = float[3];
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindColor3(s, n, f); }
};
struct Color4 {
  using Field = float[4];
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindColor4(s, n, f); }
};
struct Matrix3 {
  using Field = float[9];
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindMatrix3(s, n, f); }
};
struct Matrix4 {
  using Field = float[16];
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindMatrix4(s, n, f); }
};
struct ClippingMap {
  using Field = ClippingMapRef;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindClippingMap(s, n, &f); }
};
struct Texture {
  using Field = TextureRef;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindTexture(s, n, &f); }
};
struct EnvironmentMap {
  using Field = TextureRef;
  static void bind(IParameterBinder* b, IShaderBase* s, const char* n, Field& f) { b->bindEnvironmentMap(s, n, &f); }
};

}  // namespace parameter_kind

namespace parameter_default {

// Marks a field the constructor leaves for the host's first setParameters.
struct Unset {};
inline constexpr Unset unset{};
// The default of every texture reference: no sampler, slot -1.
struct Unbound {};
inline constexpr Unbound unbound{};

inline void assign(uint8_t& field, bool value) { field = value ? 1 : 0; }
inline void assign(int32_t& field, int32_t value) { field = value; }
inline void assign(float& field, float value) { field = value; }
template <int N>
inline void assign(float (&field)[N], const float (&value)[N]) {
  for (int i = 0; i < N; ++i) field[i] = value[i];
}
inline void assign(TextureRef& field, Unbound) { field = TextureRef{nullptr, -1}; }
inline void assign(ClippingMapRef& field, Unbound) { field = ClippingMapRef{nullptr, -1}; }
template <class Field>
inline void assign(Field&, Unset) {}

}  // namespace parameter_default

// Copies one parameter field, whole, from the block byte at the field's own
// object offset.
template <class Field>
inline void copyParameterField(Field& field, const void* object, const ShaderParameterBlock* block) {
  const auto offset = reinterpret_cast<const unsigned char*>(&field) - static_cast<const unsigned char*>(object);
  std::memcpy(&field, reinterpret_cast<const unsigned char*>(block) + offset, sizeof(Field));
}

// Answers of getShaderKind, picked by the kind base a shader derives from.
inline constexpr int32_t shaderKindOf(const MaterialShader*) { return kMaterialKind; }
inline constexpr int32_t shaderKindOf(const LightShader*) { return kLightKind; }
inline constexpr int32_t shaderKindOf(const EnvironmentShader*) { return kEnvironmentKind; }

// What every shader shares besides its parameters: isSupported answers 1,
// getShaderKind the kind of its base, and there are no cached values to
// derive unless the shader says otherwise. Holds no data, so the parameter
// fields of the shader start right after the table of virtual operations.
template <class KindBase>
class ShaderImpl : public KindBase {
 public:
  int32_t isSupported() final { return 1; }
  int32_t getShaderKind() final { return shaderKindOf(static_cast<const KindBase*>(this)); }

 protected:
  void deriveCachedValues() {}
};

}  // namespace kvi

#define KVI_PARAMETER_FIELD_(Kind, name, doc, ...) ::kvi::parameter_kind::Kind::Field name;
#define KVI_PARAMETER_DEFAULT_(Kind, name, doc, ...)    \
  {                                                     \
    using namespace ::kvi::parameter_default;           \
    ::kvi::parameter_default::assign(name, __VA_ARGS__); \
  }
#define KVI_PARAMETER_BIND_(Kind, name, doc, ...) ::kvi::parameter_kind::Kind::bind(binder, this, #name, name);
#define KVI_PARAMETER_COPY_(Kind, name, doc, ...) ::kvi::copyParameterField(name, this, block);
#define KVI_PARAMETER_DOC_(Kind, name, documentation, ...) ::kvi::ParameterDocEntry{#name, #Kind, documentation},
#define KVI_VARYING_REQUEST_(Kind, name, offset) \
  binder->requestVarying(this, ::kvi::kVarying##Kind, #name, offset);
#define KVI_IGNORE_(...)

#define KVI_SHADER_PARAMETERS(Class, operationMask, LIST)                                  \
 public:                                                                                   \
  LIST(KVI_PARAMETER_FIELD_, KVI_IGNORE_)                                                  \
  Class() { LIST(KVI_PARAMETER_DEFAULT_, KVI_IGNORE_) }                                    \
  void declareParameters(::kvi::IParameterBinder* binder) override {                      \
    binder->beginParameters(this, operationMask);                                          \
    LIST(KVI_PARAMETER_BIND_, KVI_VARYING_REQUEST_)                                        \
  }                                                                                        \
  void setParameters(const ::kvi::ShaderParameterBlock* block) override {                 \
    LIST(KVI_PARAMETER_COPY_, KVI_IGNORE_)                                                 \
    deriveCachedValues();                                                                  \
  }                                                                                        \
  /* The documentation of the parameters, ended by an entry without a name. */            \
  static constexpr ::kvi::ParameterDocEntry kParameterDocs[] = {                           \
      LIST(KVI_PARAMETER_DOC_, KVI_IGNORE_){nullptr, nullptr, ::kvi::doc("")}};            \
                                                                                           \
 public:
