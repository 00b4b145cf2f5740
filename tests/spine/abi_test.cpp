// The ABI as a host that never saw our headers sees it: vtables called by
// slot index, host interfaces given as hand-written tables of functions, and
// the module's dynamic symbols.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kvi/host/allocation_probe.h"
#include "kvi/host/error.h"
#include "kvi/host/state.h"
#include "test_shader.h"

namespace {

using kvi::test::testModule;

// Every shader of the library and its kind (0 material, 1 light, 2 environment).
const std::map<std::string, int> kKnownShaders = {
    {"AmbientLight", 1}, {"SimplePointLight", 1}, {"DirectionalLight", 1}, {"PointLight", 1}, {"SpotLight", 1},
    {"DiffuseIBL", 1}, {"velk_qora_Lgt_Diffuse", 1}, {"velk_qora_Lgt_Direction", 1},
    {"velk_qora_Lgt_PhotometricWeb", 1}, {"velk_qora_Lgt_Sky", 1}, {"velk_qora_Lgt_Sphere", 1},
    {"velk_qora_Lgt_Spot", 1}, {"SimpleBackground", 2}, {"GradientBackground", 2}, {"ImageBackground", 2},
    {"velk_qora_Env_Sky", 2}, {"BasicMaterial", 0}, {"PhongReflective", 0}, {"SolidEffect", 0},
    {"VertexColorEffect", 0}, {"velk_qora_Mtl_Dielectric", 0}, {"velk_qora_Mtl_Glazing", 0},
    {"velk_qora_Mtl_Metal", 0}, {"velk_qora_Mtl_MetallicPaint", 0}, {"velk_qora_Mtl_Mirror", 0},
    {"velk_qora_Mtl_Ward", 0}, {"velk_qora_Mtl_Ward_120b7820", 0}, {"velk_qora_Mtl_Ward_33632204", 0},
    {"velk_qora_Mtl_Ward_5592d496", 0}, {"velk_qora_Mtl_Ward_5ba0bfff", 0}, {"velk_qora_Mtl_Ward_82261344", 0},
    {"velk_qora_Mtl_Ward_aa598cb4", 0}, {"velk_qora_Mtl_Ward_b9aac246", 0}, {"velk_qora_Mtl_Ward_ccb3a2e6", 0},
    {"velk_qora_Mtl_Ward_f05db29e", 0},
};

// Itanium C++ ABI: the object starts with a pointer to its table; entries 0
// and 1 are the two destructors, so slot k (k >= 1) is entry k + 1.
void* const* vtableOf(const void* object) { return *static_cast<void* const* const*>(object); }
template <class R, class... A>
R callSlot(void* object, int slot, A... args) {
  return reinterpret_cast<R (*)(void*, A...)>(vtableOf(object)[slot + 1])(object, args...);
}

// A binder made of plain functions in a table laid out by the contract.
struct BinderCall {
  int slot;
  std::string name;
  long offset;
  uint32_t value;  // the mask, or the varying kind
};
struct MirrorBinder {
  void* const* vptr;
  const void* shader;
  std::vector<BinderCall> calls;
};

void binderBegin(MirrorBinder* self, void*, uint32_t mask) { self->calls.push_back({1, "", 0, mask}); }
template <int Slot>
void binderBind(MirrorBinder* self, void*, const char* name, void* field) {
  self->calls.push_back({Slot, name, static_cast<char*>(field) - static_cast<const char*>(self->shader), 0});
}
void binderVarying(MirrorBinder* self, void*, uint32_t kind, const char* name, uint32_t offset) {
  self->calls.push_back({40, name, long(offset), kind});
}
template <int Slot>
void binderReserved(MirrorBinder* self) {
  self->calls.push_back({Slot, "reserved", 0, 0});
}
void noDestructor(void*) {}

template <int Slot>
constexpr void* binderEntry() {
  if constexpr (Slot == 1) return reinterpret_cast<void*>(&binderBegin);
  else if constexpr (Slot == 40) return reinterpret_cast<void*>(&binderVarying);
  else if constexpr (Slot == 2 || Slot == 6 || Slot == 10 || Slot == 11 || Slot == 12 || Slot == 13 || Slot == 15 ||
                     Slot == 16 || Slot == 17 || Slot == 18 || Slot == 20)
    return reinterpret_cast<void*>(&binderBind<Slot>);
  else return reinterpret_cast<void*>(&binderReserved<Slot>);
}
template <size_t... I>
std::array<void*, 42> makeBinderTable(std::index_sequence<I...>) {
  return {reinterpret_cast<void*>(&noDestructor), reinterpret_cast<void*>(&noDestructor), binderEntry<int(I) + 1>()...};
}
const std::array<void*, 42> kBinderTable = makeBinderTable(std::make_index_sequence<40>{});

// The bind slot of each parameter kind.
int slotOfKind(kvi::host::ParamKind kind) {
  using K = kvi::host::ParamKind;
  switch (kind) {
    case K::Bool: return 2;
    case K::Int: return 6;
    case K::Float: return 10;
    case K::Float2: return 11;
    case K::Color3: return 12;
    case K::Color4: return 13;
    case K::Matrix3: return 15;
    case K::Matrix4: return 16;
    case K::ClippingMap: return 17;
    case K::Texture: return 18;
    case K::EnvironmentMap: return 20;
  }
  return -1;
}

// Every shader answers its version, support and kind through the slots, and
// its declarations reach the binder slots of each parameter's kind in the
// order, with the field offsets and the mask, that the host's table records.
TEST(Abi, EveryShaderAnswersThroughItsSlotsAndDeclaresThroughTheBinderSlots) {
  ASSERT_FALSE(testModule().shaderNames().empty());
  for (const auto& name : testModule().shaderNames()) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(kKnownShaders.count(name)) << "the module exports a shader the library does not define";
    const auto factory = testModule().factory(name);
    EXPECT_EQ(factory.apiVersion(), 2724);
    auto shader = testModule().create(factory);
    EXPECT_EQ(callSlot<int32_t>(shader.get(), 3), 1);
    EXPECT_EQ(callSlot<int32_t>(shader.get(), 4), kKnownShaders.at(name));
    MirrorBinder binder{kBinderTable.data(), shader.get(), {}};
    callSlot<void>(shader.get(), 1, static_cast<void*>(&binder));
    const auto info = kvi::test::testShaderInfo(name);
    ASSERT_FALSE(binder.calls.empty());
    EXPECT_EQ(binder.calls[0].slot, 1);
    EXPECT_EQ(binder.calls[0].value, info->operationMask);
    size_t parameter = 0, varying = 0;
    for (size_t i = 1; i < binder.calls.size(); ++i) {
      const auto& call = binder.calls[i];
      if (call.slot == 40) {
        ASSERT_LT(varying, info->varyings.size());
        const auto& v = info->varyings[varying++];
        EXPECT_EQ(std::tie(call.name, call.value, call.offset), std::tie(v.name, v.kind, v.offset));
        continue;
      }
      ASSERT_LT(parameter, info->parameters.size()) << "unexpected call of slot " << call.slot;
      const auto& p = info->parameters[parameter++];
      EXPECT_EQ(call.slot, slotOfKind(p.kind)) << p.name;
      EXPECT_EQ(call.name, p.name);
      EXPECT_EQ(call.offset, long(p.offset));
    }
    EXPECT_EQ(parameter, info->parameters.size());
    EXPECT_EQ(varying, info->varyings.size());
  }
}

// A context made of plain functions: traceShadow (slot 4) answers a fixed
// colour, every other slot is counted.
struct MirrorContext {
  void* const* vptr;
  std::array<int, 25> calls{};
};
const float kShadow[3] = {0.25f, 0.5f, 0.75f};
template <int Slot>
uintptr_t contextCount(MirrorContext* self) {
  ++self->calls[Slot];
  return 0;
}
const float* contextShadow(MirrorContext* self, float out[3], const float*, const float*) {
  ++self->calls[4];
  std::memcpy(out, kShadow, sizeof kShadow);
  return out;
}
template <size_t... I>
std::array<void*, 26> makeContextTable(std::index_sequence<I...>) {
  std::array<void*, 26> table{reinterpret_cast<void*>(&noDestructor), reinterpret_cast<void*>(&noDestructor),
                              reinterpret_cast<void*>(&contextCount<int(I) + 1>)...};
  table[4 + 1] = reinterpret_cast<void*>(&contextShadow);
  return table;
}
const std::array<void*, 26> kContextTable = makeContextTable(std::make_index_sequence<24>{});

TEST(Abi, ShadeCallsTheContextSlotOfTheContract) {
  if (!testModule().hasShader("SimplePointLight")) GTEST_SKIP();
  auto light = testModule().create("SimplePointLight");
  MirrorContext context{kContextTable.data()};
  kvi::ShadingState state = kvi::host::zeroState();
  callSlot<void>(light.get(), 5, static_cast<void*>(&context), &state);
  EXPECT_EQ(context.calls[4], 1);
  int others = 0;
  for (int slot = 0; slot < 25; ++slot) others += slot == 4 ? 0 : context.calls[slot];
  EXPECT_EQ(others, 0);
  EXPECT_EQ(std::vector<float>(state.lightShadow, state.lightShadow + 3), std::vector<float>(kShadow, kShadow + 3));
  EXPECT_EQ(std::vector<float>(state.lightColor, state.lightColor + 3), std::vector<float>({1.0f, 1.0f, 1.0f}));
}

TEST(Abi, ModuleExportsNothingButShaderEntryPoints) {
  const std::string command = std::string(KVI_NM) + " -D --defined-only " + testModule().path();
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  const std::regex entry(R"((\w+)_(create|getAPIVersion))");
  std::map<std::string, std::set<std::string>> exports;
  char line[1024];
  int lines = 0;
  for (; std::fgets(line, sizeof line, pipe); ++lines) {
    std::istringstream fields(line);
    std::string symbol;
    while (fields >> symbol) continue;  // the last field
    std::smatch m;
    const bool matched = std::regex_match(symbol, m, entry) && kKnownShaders.count(m[1]);
    EXPECT_TRUE(matched) << "unexpected dynamic symbol: " << symbol;
    if (matched) exports[m[1]].insert(m[2]);
  }
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_GT(lines, 0);
  for (const auto& [shader, suffixes] : exports) EXPECT_EQ(suffixes.size(), 2u) << shader;
  EXPECT_EQ(exports.size(), testModule().shaderNames().size());
}

TEST(Abi, CreateGivesNullWhenAllocationFails) {
  if (!kvi::host::allocationProbeAvailable()) GTEST_SKIP() << "no allocation probe in this build";
  for (const auto& name : testModule().shaderNames()) {
    const auto factory = testModule().factory(name);
    kvi::host::AllocationFailure failing;
    EXPECT_EQ(factory.create(), nullptr) << name;
    EXPECT_THROW(testModule().create(factory), kvi::host::Error) << name;
  }
}

}  // namespace
