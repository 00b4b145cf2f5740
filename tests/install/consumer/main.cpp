// Loads the installed module with dlopen, checks a shader's version, creates,
// declares and destroys it, using nothing but the installed SDK headers.
#include <dlfcn.h>

#include <cstdio>
#include <kvi/kvi.h>

namespace {
struct CountingBinder : kvi::IParameterBinder {
  int binds = 0;
  void beginParameters(kvi::IShaderBase*, uint32_t) override {}
  void bindBool(kvi::IShaderBase*, const char*, uint8_t*) override { ++binds; }
  void bindInt(kvi::IShaderBase*, const char*, int32_t*) override { ++binds; }
  void bindFloat(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindFloat2(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindColor3(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindColor4(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindMatrix3(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindMatrix4(kvi::IShaderBase*, const char*, float*) override { ++binds; }
  void bindClippingMap(kvi::IShaderBase*, const char*, kvi::ClippingMapRef*) override { ++binds; }
  void bindTexture(kvi::IShaderBase*, const char*, kvi::TextureRef*) override { ++binds; }
  void bindEnvironmentMap(kvi::IShaderBase*, const char*, kvi::TextureRef*) override { ++binds; }
  void requestVarying(kvi::IShaderBase*, uint32_t, const char*, uint32_t) override {}
};
}  // namespace

int main() {
  static_assert(API_VERSION == kvi::kApiVersion, "the package and the headers disagree");
  void* module = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  if (!module) return std::fprintf(stderr, "cannot load %s: %s\n", MODULE_PATH, dlerror()), 1;
  auto version = reinterpret_cast<kvi::ApiVersionFunction>(dlsym(module, "DirectionalLight_getAPIVersion"));
  auto create = reinterpret_cast<kvi::CreateFunction>(dlsym(module, "DirectionalLight_create"));
  if (!version || !create || version() != kvi::kApiVersion) return std::fprintf(stderr, "bad exports\n"), 1;
  kvi::IShaderBase* shader = create();
  CountingBinder binder;
  shader->declareParameters(&binder);
  const int kind = shader->getShaderKind();
  delete shader;
  std::printf("DirectionalLight: kind %d, %d parameters\n", kind, binder.binds);
  return kind == kvi::kLightKind && binder.binds == 2 ? 0 : 1;
}
