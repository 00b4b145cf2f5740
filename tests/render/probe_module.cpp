// A module with one material that reports what the renderer's context
// answers, as radiance, so that tests can read the host services' answers
// for each kind of ray from the picture.
//
//   "mode" 0: radiance = (kind bits, getRayKind, flags) of the ray that hit it,
//     kind bits = sum of isRayKind(2^i) 2^i for i < 6, flags = isDiffuseSampled
//     + 2 isRayFlagSet(1) + 4 reflectionAllowed + 8 frontFacing;
//   "mode" 1: radiance = gatherIrradiance about the normal, divided by pi;
//   "mode" 2: radiance = traceRay along the normal.
#include <cstddef>
#include <cstring>
#include <new>

#include "kvi/exports.h"
#include "kvi/shader.h"

namespace {

class Probe final : public kvi::MaterialShader {
 public:
  int32_t mode = 0;

  void declareParameters(kvi::IParameterBinder* binder) override {
    binder->beginParameters(this, kvi::kOpEvaluateRadiance);
    binder->bindInt(this, "mode", &mode);
  }
  void setParameters(const kvi::ShaderParameterBlock* block) override {
    const auto offset = reinterpret_cast<const unsigned char*>(&mode) - reinterpret_cast<const unsigned char*>(this);
    std::memcpy(&mode, reinterpret_cast<const unsigned char*>(block) + offset, sizeof mode);
  }
  int32_t isSupported() override { return 1; }
  int32_t getShaderKind() override { return kvi::kMaterialKind; }
  void shadeSurface(kvi::IShadingContext*, kvi::ShadingState*) override {}
  void shadowTransmission(kvi::IShadingContext*, kvi::ShadingState*) override {}
  void evaluateBsdf(kvi::IShadingContext*, kvi::ShadingState*) override {}
  void sampleBsdf(kvi::IShadingContext*, kvi::ShadingState*) override {}
  void testCutout(kvi::IShadingContext*, kvi::ShadingState*) override {}

  void evaluateRadiance(kvi::IShadingContext* c, kvi::ShadingState* s) override {
    s->radianceDone = 1;
    if (mode == 1) {
      c->gatherIrradiance(s->radiance, s->position, s->normal);
      for (float& v : s->radiance) v /= 3.14159265f;
    } else if (mode == 2) {
      c->traceRay(s->radiance, s->position, s->normal, 1.0f);
    } else {
      int bits = 0;
      for (int i = 0; i < 6; ++i) bits |= c->isRayKind(1 << i) ? 1 << i : 0;
      s->radiance[0] = float(bits);
      s->radiance[1] = float(c->getRayKind());
      s->radiance[2] = float((c->isDiffuseSampled() ? 1 : 0) + (c->isRayFlagSet(1) ? 2 : 0) +
                             (s->reflectionAllowed ? 4 : 0) + (s->frontFacing ? 8 : 0));
    }
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) kvi::IShaderBase* Probe_create() { return new (std::nothrow) Probe; }
extern "C" __attribute__((visibility("default"))) int32_t Probe_getAPIVersion() { return kvi::kApiVersion; }
