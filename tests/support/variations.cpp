#include "variations.h"

#include <cmath>
#include <limits>

#include "kvi/host/samplers.h"

namespace kvi::test {
namespace {

MaterialShader* material(IShaderBase* s) { return static_cast<MaterialShader*>(s); }

// A material operation through its slot, for the table of operations.
template <void (MaterialShader::*Operation)(IShadingContext*, ShadingState*)>
void callMaterial(IShaderBase* s, IShadingContext* c, ShadingState* st) {
  (material(s)->*Operation)(c, st);
}

float randomFloat(std::mt19937& rng) {
  std::uniform_int_distribution<int> pick(0, 19);
  switch (pick(rng)) {
    case 0: return 0.0f;
    case 1: return -0.0f;
    case 2: return std::numeric_limits<float>::quiet_NaN();
    case 3: return std::numeric_limits<float>::infinity();
    case 4: return -std::numeric_limits<float>::infinity();
    case 5: return 1e30f;
    case 6: return 1.0f;
    default: return std::uniform_real_distribution<float>(-2.0f, 4.0f)(rng);
  }
}

void unitVector(std::mt19937& rng, float out[3]) {
  std::normal_distribution<float> gauss;
  float length = 0.0f;
  do {
    for (int i = 0; i < 3; ++i) out[i] = gauss(rng);
    length = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
  } while (length < 1e-3f);
  for (int i = 0; i < 3; ++i) out[i] /= length;
}

void randomParameters(Variation& v, std::mt19937& rng) {
  auto& block = v.shader->block;
  std::uniform_int_distribution<int> coin(0, 1), byte(0, 255), smallInt(-2, 9);
  for (const auto& p : block.info().parameters) {
    switch (p.kind) {
      case host::ParamKind::Bool: block.setBool(p.name, coin(rng) ? uint8_t(byte(rng)) : uint8_t(coin(rng))); break;
      case host::ParamKind::Int: block.setInt(p.name, smallInt(rng)); break;
      case host::ParamKind::Texture:
      case host::ParamKind::EnvironmentMap: {
        ITextureSampler* sampler = nullptr;
        if (coin(rng)) {
          PresetFixture f{block, v.state, v.context, v.owned};
          sampler = f.checker();
        }
        if (p.kind == host::ParamKind::Texture)
          block.setTexture(p.name, sampler, sampler ? 0 : -1);
        else
          block.setEnvironmentMap(p.name, sampler, sampler ? 0 : -1);
        break;
      }
      case host::ParamKind::ClippingMap: {
        IClippingMapSampler* table = nullptr;
        if (coin(rng)) {
          std::vector<std::array<float, 4>> planes(size_t(byte(rng) % 4));
          for (auto& plane : planes)
            for (auto& x : plane) x = randomFloat(rng);
          auto owned = std::make_shared<host::ClippingPlaneTable>(std::move(planes));
          v.owned.push_back(owned);
          table = owned.get();
        }
        block.setClippingMap(p.name, table, table ? 0 : -1);
        break;
      }
      default: {
        std::vector<float> values(host::kindFloatCount(p.kind));
        for (auto& x : values) x = randomFloat(rng);
        block.setFloats(p.name, values.data(), values.size());
      }
    }
  }
}

void randomContext(host::BaseContext& c, std::mt19937& rng) {
  std::uniform_int_distribution<int> kind(1, 3), bits(0, 15), coin(0, 1);
  std::uniform_real_distribution<float> unit(0.0f, 0.99999f);
  c.rayKind = kind(rng);
  c.rayKindBits = bits(rng);
  c.rayFlags = coin(rng);
  c.diffuseSampled = uint8_t(coin(rng));
  c.glossyAccepted = uint8_t(coin(rng));
  c.sample1D = unit(rng);
  c.sample2D[0] = unit(rng);
  c.sample2D[1] = unit(rng);
  c.noise = std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng);
  for (int i = 0; i < 3; ++i) {
    c.irradiance[i] = randomFloat(rng);
    c.shadow[i] = unit(rng);
    c.traced[i] = unit(rng);
  }
}

}  // namespace

ShadingState randomState(std::mt19937& rng) {
  ShadingState s = host::zeroState();
  std::uniform_real_distribution<float> coordinate(-5.0f, 5.0f), unit(0.0f, 1.0f), distance(0.0f, 20.0f);
  std::uniform_int_distribution<int> byte(0, 255);
  unitVector(rng, s.rayDirection);
  unitVector(rng, s.normal);
  unitVector(rng, s.geometricNormal);
  unitVector(rng, s.sampledDirection);
  unitVector(rng, s.lightAxis);
  unitVector(rng, s.lightDirection);
  for (int i = 0; i < 3; ++i) {
    s.position[i] = coordinate(rng);
    s.lightSamplePosition[i] = coordinate(rng);
  }
  unitVector(rng, s.tangentFrame);
  unitVector(rng, s.tangentFrame + 3);
  for (int i = 0; i < 3; ++i) s.tangentFrame[6 + i] = s.normal[i];
  s.lightDistance = distance(rng);
  s.frameResolution[0] = 64;
  s.frameResolution[1] = 48;
  s.rasterPosition[0] = 64.0f * unit(rng);
  s.rasterPosition[1] = 48.0f * unit(rng);
  s.frontFacing = uint8_t(byte(rng) % 3 == 0 ? 0 : byte(rng));
  s.reflectionAllowed = uint8_t(byte(rng));
  s.glossinessBias = unit(rng) * 0.2f;
  for (size_t i = 0; i + 4 <= sizeof s.varyings; i += 4) {
    const float x = unit(rng);
    std::memcpy(s.varyings + i, &x, 4);
  }
  return s;
}

std::vector<std::unique_ptr<Variation>> variationsOf(const std::string& name, int randomCount, uint32_t seed) {
  std::vector<std::unique_ptr<Variation>> all;
  auto add = [&](std::string label) {
    all.push_back(std::make_unique<Variation>());
    all.back()->label = std::move(label);
    all.back()->shader = std::make_unique<TestShader>(name);
    return all.back().get();
  };
  for (const auto& preset : presetsOf(name)) {
    Variation* v = add("preset " + preset.variant);
    PresetFixture f{v->shader->block, v->state, v->context, v->owned};
    prepareFixture(f);
    preset.configure(f);
    v->shader->apply();
  }
  std::mt19937 rng(seed);
  for (int k = 0; k < randomCount; ++k) {
    Variation* v = add("random " + std::to_string(k));
    v->state = randomState(rng);
    randomParameters(*v, rng);
    randomContext(v->context, rng);
    v->shader->apply();
  }
  return all;
}

const std::vector<ShadingOperation>& shadingOperations() {
  static const std::vector<ShadingOperation> all = {
      {"shade", kOpLightShade,
       [](IShaderBase* s, IShadingContext* c, ShadingState* st) { static_cast<LightShader*>(s)->shade(c, st); }},
      {"shade", kOpEnvironmentShade,
       [](IShaderBase* s, IShadingContext* c, ShadingState* st) { static_cast<EnvironmentShader*>(s)->shade(c, st); }},
      {"testCutout", kOpTestCutout, callMaterial<&MaterialShader::testCutout>},
      {"evaluateRadiance", kOpEvaluateRadiance, callMaterial<&MaterialShader::evaluateRadiance>},
      {"shadeSurface", kOpShadeSurface, callMaterial<&MaterialShader::shadeSurface>},
      {"shadowTransmission", kOpShadowTransmission, callMaterial<&MaterialShader::shadowTransmission>},
      {"evaluateBsdf", kOpEvaluateBsdf, callMaterial<&MaterialShader::evaluateBsdf>},
      {"sampleBsdf", kOpSampleBsdf, callMaterial<&MaterialShader::sampleBsdf>},
  };
  return all;
}

std::vector<ShadingOperation> operationsOf(const host::ShaderInfo& info) {
  std::vector<ShadingOperation> ops;
  for (const auto& op : shadingOperations()) {
    const bool lightOrEnvironment = op.maskBits == kOpLightShade || op.maskBits == kOpEnvironmentShade;
    if (lightOrEnvironment ? (info.operationMask & op.maskBits) != 0 : info.kind == kMaterialKind)
      ops.push_back(op);
  }
  return ops;
}

}  // namespace kvi::test
