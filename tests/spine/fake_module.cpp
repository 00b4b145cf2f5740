// A small module written by hand against the SDK headers, to test what the
// host does with modules other than the real one: a shader with a field its
// constructor leaves unset, a shader built for another API version, and a
// create export without its version export.
#include <new>

#include "kvi/exports.h"
#include "kvi/shader.h"

namespace {

class FakeLight final : public kvi::LightShader {
 public:
  float color[3] = {0.25f, 0.5f, 0.75f};
  uint8_t flag = 7;
  float transform[16];  // left for the host
  kvi::TextureRef map{nullptr, -1};

  void declareParameters(kvi::IParameterBinder* b) override {
    b->beginParameters(this, kvi::kOpLightShade);
    b->bindColor3(this, "color", color);
    b->bindBool(this, "flag", &flag);
    b->bindMatrix4(this, "transform", transform);
    b->bindTexture(this, "map", &map);
  }
  void setParameters(const kvi::ShaderParameterBlock*) override {}
  int32_t isSupported() override { return 1; }
  int32_t getShaderKind() override { return kvi::kLightKind; }
  void shade(kvi::IShadingContext*, kvi::ShadingState* s) override { s->lightColor[0] = color[0]; }
};

// Declares a parameter twice: a host must refuse the table.
class TwiceLight final : public kvi::LightShader {
 public:
  float a = 1.0f;
  float b = 2.0f;
  void declareParameters(kvi::IParameterBinder* binder) override {
    binder->beginParameters(this, kvi::kOpLightShade);
    binder->bindFloat(this, "a", &a);
    binder->bindFloat(this, "a", &b);
  }
  void setParameters(const kvi::ShaderParameterBlock*) override {}
  int32_t isSupported() override { return 1; }
  int32_t getShaderKind() override { return kvi::kLightKind; }
  void shade(kvi::IShadingContext*, kvi::ShadingState*) override {}
};

}  // namespace

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT kvi::IShaderBase* FakeLight_create() { return new (std::nothrow) FakeLight; }
FAKE_EXPORT int32_t FakeLight_getAPIVersion() { return kvi::kApiVersion; }
FAKE_EXPORT kvi::IShaderBase* TwiceLight_create() { return new (std::nothrow) TwiceLight; }
FAKE_EXPORT int32_t TwiceLight_getAPIVersion() { return kvi::kApiVersion; }
FAKE_EXPORT kvi::IShaderBase* Stale_create() { return new (std::nothrow) FakeLight; }
FAKE_EXPORT int32_t Stale_getAPIVersion() { return 2723; }
FAKE_EXPORT kvi::IShaderBase* Lonely_create() { return new (std::nothrow) FakeLight; }
