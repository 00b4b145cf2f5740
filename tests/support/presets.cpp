#include "presets.h"

#include <array>
#include <memory>

#include "kvi/host/state.h"

namespace kvi::test {
namespace {
std::vector<Preset>& registry() {
  static std::vector<Preset> all;
  return all;
}
void leaveAsIs(PresetFixture&) {}
}  // namespace

PresetRegistrar::PresetRegistrar(const char* shader, const char* variant, PresetFunction configure) {
  registry().push_back(Preset{shader, variant, configure});
}

const std::vector<Preset>& presets() { return registry(); }

std::vector<Preset> presetsOf(const std::string& shader) {
  std::vector<Preset> found;
  for (const auto& p : registry())
    if (p.shader == shader) found.push_back(p);
  if (found.empty()) found.push_back(Preset{shader, "default", &leaveAsIs});
  return found;
}

host::ImageSampler* PresetFixture::checker() {
  std::vector<float> rgba;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool odd = (x + y) % 2 != 0;
      rgba.insert(rgba.end(), {odd ? 0.9f : 0.1f, float(x) / 7.0f, float(y) / 7.0f, odd ? 1.0f : 0.5f});
    }
  return make<host::ImageSampler>(8, 8, std::move(rgba));
}

void PresetFixture::threeLights() {
  auto lights = std::make_shared<std::array<LightSample, 3>>();
  const float directions[3][3] = {{0.0f, 0.0f, 1.0f}, {0.6f, 0.0f, 0.8f}, {-0.48f, 0.6f, 0.64f}};
  const float colors[3][3] = {{1.0f, 0.95f, 0.9f}, {0.3f, 0.3f, 0.4f}, {0.5f, 0.2f, 0.1f}};
  for (int i = 0; i < 3; ++i) {
    auto& light = (*lights)[i];
    for (int c = 0; c < 3; ++c) {
      light.direction[c] = directions[i][c];
      light.color[c] = colors[i][c];
    }
    light.diffuseFactor = directions[i][2];
    light.next = i < 2 ? &(*lights)[i + 1] : nullptr;
  }
  owned.push_back(lights);
  context.lightSamples = lights->data();
  context.traced[0] = 0.2f;
  context.traced[1] = 0.3f;
  context.traced[2] = 0.4f;
}

void PresetFixture::varying(const std::string& name, std::initializer_list<float> values) {
  host::setVaryingIfRequested(state, block.info(), name, values.begin(), values.size());
}

void prepareFixture(PresetFixture& f) {
  f.state = host::zeroState();
  const float up[3] = {0.0f, 0.0f, 1.0f};
  for (int i = 0; i < 3; ++i) {
    f.state.normal[i] = up[i];
    f.state.geometricNormal[i] = up[i];
    f.state.rayDirection[i] = -up[i];
    f.state.lightSamplePosition[i] = 2.0f * up[i];
    f.state.lightAxis[i] = -up[i];
    f.state.lightDirection[i] = -up[i];
    f.state.sampledDirection[i] = up[i];
  }
  f.state.lightDistance = 2.0f;
  f.state.frontFacing = 1;
  f.state.reflectionAllowed = 1;
  f.state.rasterPosition[0] = 320.0f;
  f.state.rasterPosition[1] = 120.0f;
  f.state.frameResolution[0] = 640;
  f.state.frameResolution[1] = 480;
  // The tangent frame: x, y, z.
  const float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (int i = 0; i < 9; ++i) f.state.tangentFrame[i] = frame[i];
  f.varying("uv", {0.25f, 0.75f});
  f.varying("vtxcolor", {1.0f, 1.0f, 1.0f, 1.0f});
  f.varying("tangent", {1.0f, 0.0f, 0.0f});
  f.varying("bitangent", {0.0f, 1.0f, 0.0f});
  // Fields the constructor leaves for the host: identity transforms, zeros otherwise.
  for (const auto& p : f.block.info().parameters) {
    if (p.hasDefault) continue;
    if (p.kind == host::ParamKind::Matrix4)
      f.block.setMatrix4(p.name, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    else if (p.kind == host::ParamKind::Matrix3)
      f.block.setMatrix3(p.name, {1, 0, 0, 0, 1, 0, 0, 0, 1});
  }
}

}  // namespace kvi::test
