// The lights without falloff, the declared tables of the others, and bad input
// for all nine.
#include <sstream>

#include "kvi/host/allocation_probe.h"
#include "light_testing.h"

namespace kvi::test {
namespace {

// Per light: its shadow switch (none for SimplePointLight), what it writes
// with the switch off, and its default colour.
TEST(UnattenuatedLights, ShadowQueryAndUntouchedFieldsFollowEachLightsSwitch) {
  struct Case {
    const char* shader;
    const char* flag;
    bool fullWhenOff;
    std::array<float, 3> color;
  };
  for (const Case& c : {Case{"SimplePointLight", "", false, {1, 1, 1}}, Case{"DirectionalLight", "castShadows", true, {0.5f, 0.1f, 1}},
                        Case{"velk_qora_Lgt_Direction", "cast_shadows", false, {1, 1, 1}},
                        Case{"velk_qora_Lgt_Sky", "cast_shadows", false, {1, 1, 1}}}) {
    for (uint8_t flag : {0, 0x80}) {
      SCOPED_TRACE(::testing::Message() << c.shader << " flag " << int(flag));
      TestShader light(c.shader);
      if (*c.flag) light.block.setBool(c.flag, flag);
      light.apply();
      ScriptedContext context;
      context.shadow[0] = 0.25f, context.shadow[1] = 0.5f, context.shadow[2] = 0.75f;
      const ShadingState before = lightSampleState();
      const ShadingState after = shaded(light, context, before);
      expectColor(after.lightColor, c.color);
      const bool queried = flag || !*c.flag;
      EXPECT_EQ(context.totalCalls(), queried ? 1 : 0);
      if (queried) {
        EXPECT_EQ(context.lastShadowTo, (std::array<float, 3>{0, 0, 2}));
        expectColor(after.lightShadow, {0.25f, 0.5f, 0.75f});
      }
      if (!queried && c.fullWhenOff) expectColor(after.lightShadow, {1, 1, 1});
      expectOnlyChanged(before, after, {KVI_STATE_FIELD(lightColor), KVI_STATE_FIELD(lightShadow)});
      if (!queried && !c.fullWhenOff) expectOnlyChanged(before, after, {KVI_STATE_FIELD(lightColor)});
    }
  }
}

TEST(UnattenuatedLights, AmbientWritesOnlyItsColourAndColoursPassUnclamped) {
  TestShader ambient("AmbientLight");
  ambient.block.setColor3("color", {-2.0f, kInf, 0.5f});
  ambient.apply();
  ScriptedContext context;
  const ShadingState before = patternState();
  const ShadingState after = shaded(ambient, context, before);
  expectColor(after.lightColor, {-2.0f, kInf, 0.5f});
  expectOnlyChanged(before, after, {KVI_STATE_FIELD(lightColor)});

  TestShader direction("velk_qora_Lgt_Direction");  // intensity 0 still queries the shadow
  direction.block.setColor3("color", {2.0f, -1.0f, 3e38f});
  direction.block.setFloat("intensity", 0.0f);
  direction.apply();
  expectColor(shaded(direction, context, lightSampleState()).lightColor, {0.0f, -0.0f, 0.0f});
  direction.block.setFloat("intensity", 10.0f);
  direction.apply();
  expectColor(shaded(direction, context, lightSampleState()).lightColor, {20.0f, -10.0f, kInf});
  EXPECT_EQ(context.calls(kTraceShadow), 2);
}

// "name:kind=default" per parameter in declaration order ("unset" where the
// constructor leaves the field, nothing for texture references).
std::string table(const std::string& shader) {
  std::ostringstream out;
  for (const auto& p : testShaderInfo(shader)->parameters) {
    out << p.name << ":" << host::kindName(p.kind) << "=";
    if (!p.hasDefault) out << "unset";
    if (p.kind == host::ParamKind::Bool) out << int(p.defaultValue[0]);
    for (uint32_t i = 0; p.hasDefault && i < host::kindFloatCount(p.kind); ++i) {
      float f;
      std::memcpy(&f, p.defaultValue.data() + 4 * i, 4);
      out << (i ? "," : "") << f;
    }
    out << " ";
  }
  return out.str();
}

TEST(LightTables, DeclareTheirParametersInOrderWithTheirDefaults) {
  if (!host::allocationProbeAvailable()) GTEST_SKIP() << "unset fields cannot be told apart in this build";
  const std::string fades =
      "nearAttenuationOn:bool=0 nearAttenuationStart:float=1 nearAttenuationEnd:float=1 farAttenuationOn:bool=0 "
      "farAttenuationStart:float=1 unitMultiplier:float=1 ";
  EXPECT_EQ(table("PointLight"),
            "color:color3=1,0.5,0.1 attenuationFactors:color3=1,0,0 castShadows:bool=1 farAttenuationEnd:float=10000 "
            "decayStartDistance:float=1 " + fades);
  EXPECT_EQ(table("SpotLight"),
            "color:color3=0.1,1,0.5 farAttenuationEnd:float=10000 attenuationFactors:color3=1,0,0 castShadows:bool=1 "
            "cosPenumbra:float=0.9 cosUmbra:float=0.95 decayStartDistance:float=1 " + fades);
  EXPECT_EQ(table("DiffuseIBL"), "gain:color3=1,1,1 transform:matrix4=unset diffuseMap:environmentmap= ");
  EXPECT_EQ(table("velk_qora_Lgt_Diffuse"),
            "color:color3=1,1,1 integratedColor:color3=1,1,1 cast_shadows:bool=0 shadowCol:color3=0,0,0 "
            "intensity:float=1 shadowDensity:float=1 useShadowColMap:bool=0 lightAffectShadowCol:bool=0 "
            "shadowColMap:texture= projMapOn:bool=0 projMap:texture= exponentUnitsMultiplier:float=1 "
            "exponent:float=2 exponentLowerClamp:float=unset exponentUpperClamp:float=0 ");
  for (const char* s : {"PointLight", "SpotLight", "DiffuseIBL", "velk_qora_Lgt_Diffuse"})
    EXPECT_EQ(testShaderInfo(s)->operationMask, 64u) << s;
}

// NaN, infinities, zero, negative, huge and tiny values in every parameter
// and every input, maps bound or not: no light may crash or call twice.
TEST(BadInput, NoLightCrashesOnAnyValue) {
  host::CubeFaceSampler cube = taggedCube();
  host::LatLongSampler sky(4, 2, std::vector<float>(32, 0.5f));
  for (const auto& name : testModule().shaderNames()) {
    if (testShaderInfo(name)->kind != kLightKind) continue;
    for (float v : {kNaN, kInf, -kInf, 0.0f, -0.0f, -1.5f, 3e38f, 1e-40f}) {
      for (bool bind : {false, true}) {
        TestShader light(name);
        for (const auto& p : light.info->parameters) {
          using K = host::ParamKind;
          if (p.kind == K::Bool) light.block.setBool(p.name, 0x41);
          else if (p.kind == K::Texture) light.block.setTexture(p.name, bind ? &cube : nullptr, 0);
          else if (p.kind == K::EnvironmentMap) light.block.setEnvironmentMap(p.name, bind ? &sky : nullptr, 0);
          else light.block.setFloats(p.name, std::vector<float>(p.size / 4, v).data(), p.size / 4);
        }
        light.apply();
        ShadingState state = patternState();
        for (float* f : {state.position, state.normal, state.lightSamplePosition, state.lightAxis, state.lightDirection})
          f[0] = f[1] = f[2] = v;
        state.lightDistance = v;
        ScriptedContext context;
        context.shadow[0] = context.shadow[1] = context.shadow[2] = v;
        light.light()->shade(&context, &state);
        EXPECT_LE(context.totalCalls(), 1) << name;
      }
    }
  }
}

}  // namespace
}  // namespace kvi::test
