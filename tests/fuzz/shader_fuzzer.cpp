// libFuzzer target: one input picks a shader, fills its parameter block
// (booleans any byte, floats any bits, texture references null or pointing at
// this program's own samplers, never at garbage), the state and the host's
// answers, then calls every shading operation. The module is loaded once, as
// a host loads it; the sanitizers watch every call.
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "kvi/host/context.h"
#include "kvi/host/module.h"
#include "kvi/host/parameter_block.h"
#include "kvi/host/samplers.h"
#include "kvi/host/shader_info.h"
#include "variations.h"

namespace {

// Reads the input front to back; past its end every read gives zeros.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  void read(void* out, size_t n) {
    auto* bytes = static_cast<uint8_t*>(out);
    for (size_t i = 0; i < n; ++i) bytes[i] = pos_ < size_ ? data_[pos_++] : 0;
  }
  template <class T>
  T get() {
    T value;
    read(&value, sizeof value);
    return value;
  }
  // A float in [0, 1), as the sample streams give.
  float unit() { return float(get<uint16_t>()) / 65536.0f; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

struct Loaded {
  kvi::host::ShaderInfo info;
  kvi::host::ShaderPtr object;
};

struct Samplers {
  kvi::host::ConstantSampler constant{{0.2f, 0.4f, 0.6f, 0.5f}};
  kvi::host::ImageSampler image{2, 2, {1, 0, 0, 1, 0, 1, 0, 0.5f, 0, 0, 1, 0, 1, 1, 1, 1}};
};

// Host answers drawn from the input, within each service's documented range.
class FuzzContext : public kvi::host::BaseContext {
 public:
  FuzzContext(Input& input) : input_(input) {
    for (auto& sample : lights_) {
      input_.read(&sample, offsetof(kvi::LightSample, next));
      sample.next = nullptr;
    }
    const uint8_t count = input_.get<uint8_t>() % (lights_.size() + 1);
    for (size_t i = 0; i + 1 < count; ++i) lights_[i].next = &lights_[i + 1];
    lightSamples = count ? &lights_[0] : nullptr;
    input_.read(irradiance, sizeof irradiance);
    input_.read(shadow, sizeof shadow);
    input_.read(traced, sizeof traced);
    rayKindBits = input_.get<int32_t>();
    rayFlags = input_.get<int32_t>();
  }
  int32_t getRayKind() override { return 1 + input_.get<uint8_t>() % 3; }
  uint8_t isDiffuseSampled() override { return input_.get<uint8_t>(); }
  uint8_t acceptsGlossyBounce(float) override { return input_.get<uint8_t>(); }
  float nextSample1D() override { return input_.unit(); }
  const float* nextSample2D(float buffer[2]) override {
    buffer[0] = input_.unit();
    buffer[1] = input_.unit();
    return buffer;
  }
  float noise4D(const float*) override { return 2.0f * input_.unit() - 1.0f; }
  float hashRandom(float) override { return input_.unit(); }

 private:
  Input& input_;
  std::array<kvi::LightSample, 3> lights_{};
};

std::vector<Loaded>& shaders() {
  static std::vector<Loaded> all = [] {
    std::vector<Loaded> loaded;
    const auto& module = kvi::test::testModule();
    for (const auto& name : module.shaderNames())
      loaded.push_back({kvi::host::describeShader(module, name), module.create(name)});
    return loaded;
  }();
  return all;
}

void fillBlock(kvi::host::ParameterBlock& block, Input& input, Samplers& samplers,
               std::vector<std::unique_ptr<kvi::host::ClippingPlaneTable>>& tables) {
  using kvi::host::ParamKind;
  for (const auto& p : block.info().parameters) {
    switch (p.kind) {
      case ParamKind::Bool: block.setBool(p.name, input.get<uint8_t>()); break;
      case ParamKind::Int: block.setInt(p.name, input.get<int32_t>()); break;
      case ParamKind::Texture:
      case ParamKind::EnvironmentMap: {
        const uint8_t pick = input.get<uint8_t>() % 3;
        kvi::ITextureSampler* sampler = pick == 1 ? static_cast<kvi::ITextureSampler*>(&samplers.constant)
                                        : pick == 2 ? &samplers.image
                                                    : nullptr;
        if (p.kind == ParamKind::Texture)
          block.setTexture(p.name, sampler, sampler ? 0 : -1);
        else
          block.setEnvironmentMap(p.name, sampler, sampler ? 0 : -1);
        break;
      }
      case ParamKind::ClippingMap: {
        const uint8_t count = input.get<uint8_t>();
        if (count < 128) {
          block.setClippingMap(p.name, nullptr, -1);
          break;
        }
        std::vector<std::array<float, 4>> planes(count % 5);
        for (auto& plane : planes) input.read(plane.data(), sizeof plane);
        tables.push_back(std::make_unique<kvi::host::ClippingPlaneTable>(std::move(planes)));
        block.setClippingMap(p.name, tables.back().get(), 0);
        break;
      }
      default: {
        float values[16];
        input.read(values, 4 * kvi::host::kindFloatCount(p.kind));
        block.setFloats(p.name, values, kvi::host::kindFloatCount(p.kind));
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto& all = shaders();
  if (all.empty()) return 0;
  Input input(data, size);
  Loaded& shader = all[input.get<uint8_t>() % all.size()];

  Samplers samplers;
  std::vector<std::unique_ptr<kvi::host::ClippingPlaneTable>> tables;
  kvi::host::ParameterBlock block(shader.info);
  fillBlock(block, input, samplers, tables);
  block.applyTo(shader.object.get());

  kvi::ShadingState state;
  input.read(&state, sizeof state);
  FuzzContext context(input);
  for (const auto& op : kvi::test::operationsOf(shader.info)) {
    kvi::ShadingState copy = state;
    op.call(shader.object.get(), &context, &copy);
  }
  return 0;
}
