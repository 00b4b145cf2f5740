// Parameter tables and blocks, checked generically over every shader the
// module offers: the layout a host derives, the copy setParameters makes, and
// the errors a host gets for wrong names and kinds.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kvi/host/allocation_probe.h"
#include "kvi/host/error.h"
#include "test_shader.h"

namespace {

using kvi::host::ParamKind;
using kvi::test::testModule;
using kvi::test::testShaderInfo;
using kvi::test::TestShader;

size_t alignUp(size_t n, size_t a) { return (n + a - 1) / a * a; }

TEST(ParameterTable, FieldsFollowTheTablePointerInDeclarationOrderNaturallyPacked) {
  for (const auto& name : testModule().shaderNames()) {
    SCOPED_TRACE(name);
    const auto info = testShaderInfo(name);
    size_t next = 8;  // right after the pointer to the table of virtual operations
    for (const auto& p : info->parameters) {
      EXPECT_EQ(p.offset, alignUp(next, kvi::host::kindAlignment(p.kind))) << p.name;
      EXPECT_EQ(p.size, kvi::host::kindSize(p.kind)) << p.name;
      next = p.offset + p.size;
    }
    EXPECT_EQ(info->blockSize, info->parameters.empty() ? 0 : next);
    for (const auto& v : info->varyings)
      EXPECT_LE(v.offset + 4 * kvi::host::varyingFloatCount(v.kind), sizeof(kvi::ShadingState::varyings)) << v.name;
  }
}

TEST(ParameterTable, EveryShaderDeclaresItsMaskAndUnsetFieldsAreDetected) {
  for (const auto& name : testModule().shaderNames()) {
    SCOPED_TRACE(name);
    const auto info = testShaderInfo(name);
    EXPECT_EQ(info->unsetDetected, kvi::host::allocationProbeAvailable());
    const uint32_t kindBits = info->kind == kvi::kLightKind         ? 64u
                              : info->kind == kvi::kEnvironmentKind ? 128u
                                                                    : 63u;
    EXPECT_EQ(info->operationMask & ~kindBits, 0u) << "mask bits of another kind of shader";
    EXPECT_NE(info->operationMask, 0u);
    for (const auto& p : info->parameters) {
      const bool reference = p.kind == ParamKind::Texture || p.kind == ParamKind::EnvironmentMap ||
                             p.kind == ParamKind::ClippingMap;
      if (!reference) continue;
      // Every texture reference starts with no sampler and slot -1.
      EXPECT_TRUE(p.hasDefault) << p.name;
      kvi::TextureRef ref;
      std::memcpy(&ref, p.defaultValue.data(), sizeof ref);
      EXPECT_EQ(ref.sampler, nullptr) << p.name;
      EXPECT_EQ(ref.slot, -1) << p.name;
    }
  }
}

// Fills every parameter field of a block with one byte pattern and the gaps
// between them with another, applies it, and reads the object: every field
// must hold the block's bytes (booleans of any value included) and no gap may
// have been copied.
TEST(ParameterBlock, SetParametersCopiesEveryFieldWholeAndNothingElse) {
  for (const auto& name : testModule().shaderNames()) {
    SCOPED_TRACE(name);
    TestShader shader(name);
    const auto& info = *shader.info;
    std::vector<uint8_t> block(info.blockSize + 8, 0xCC);
    std::vector<bool> isField(block.size(), false);
    for (const auto& p : info.parameters)
      for (uint32_t i = 0; i < p.size; ++i) {
        // Varied bytes, but no NaN-looking floats are needed: the copy is bytewise.
        block[p.offset + i] = uint8_t(0x11 + 7 * (p.offset + i));
        isField[p.offset + i] = true;
      }
    const auto* object = reinterpret_cast<const uint8_t*>(shader.object.get());
    std::vector<uint8_t> before(object, object + info.blockSize);
    shader.object->setParameters(reinterpret_cast<const kvi::ShaderParameterBlock*>(block.data()));
    for (size_t k = 8; k < info.blockSize; ++k) {
      if (isField[k])
        EXPECT_EQ(object[k], block[k]) << "field byte " << k << " not copied";
      else
        EXPECT_EQ(object[k], before[k]) << "padding byte " << k << " was copied";
    }
  }
}

TEST(ParameterBlock, UnknownNamesAndWrongKindsAreErrorsNamingShaderAndParameter) {
  TestShader light("DirectionalLight");
  auto message = [&](auto&& f) -> std::string {
    try {
      f();
    } catch (const kvi::host::Error& e) {
      return e.what();
    }
    return "";
  };
  const std::string unknown = message([&] { light.block.setFloat("colour", 1.0f); });
  EXPECT_NE(unknown.find("DirectionalLight"), std::string::npos) << unknown;
  EXPECT_NE(unknown.find("'colour'"), std::string::npos) << unknown;
  const std::string kind = message([&] { light.block.setFloat("color", 1.0f); });
  EXPECT_NE(kind.find("'color'"), std::string::npos) << kind;
  EXPECT_NE(kind.find("color3"), std::string::npos) << kind;
  EXPECT_NE(kind.find("float"), std::string::npos) << kind;
  const float two[2] = {1, 2};
  const std::string shape = message([&] { light.block.setFloats("color", two, 2); });
  EXPECT_NE(shape.find("3 floats"), std::string::npos) << shape;
  EXPECT_NE(message([&] { light.block.setBool("color", 1); }), "");
  EXPECT_NE(message([&] { light.block.setTexture("castShadows", nullptr, -1); }), "");
}

TEST(ParameterBlock, BooleansOfAnyByteValueReachTheShader) {
  // castShadows holding 2 or 255 still casts shadows: the shader tests for non-zero.
  for (uint8_t byte : {uint8_t(1), uint8_t(2), uint8_t(0x80), uint8_t(255)}) {
    TestShader light("DirectionalLight");
    light.block.setBool("castShadows", byte);
    light.apply();
    kvi::test::ScriptedContext context;
    context.shadow[0] = 0.5f;
    auto state = kvi::test::patternState();
    light.light()->shade(&context, &state);
    EXPECT_EQ(context.calls(kvi::test::kTraceShadow), 1) << int(byte);
    EXPECT_EQ(state.lightShadow[0], 0.5f);
  }
}

}  // namespace
