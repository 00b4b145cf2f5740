// Parameter tables and blocks, checked generically over every shader the
// module offers: the layout a host derives, the copy setParameters makes, and
// the errors a host gets for wrong names and kinds.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

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
  const float two[2] = {1, 2};
  const std::pair<std::function<void()>, std::vector<std::string>> cases[] = {
      {[&] { light.block.setFloat("colour", 1.0f); }, {"DirectionalLight", "'colour'"}},
      {[&] { light.block.setFloat("color", 1.0f); }, {"'color'", "color3", "float"}},
      {[&] { light.block.setFloats("color", two, 2); }, {"3 floats"}},
      {[&] { light.block.setBool("color", 1); }, {"'color'"}},
      {[&] { light.block.setTexture("castShadows", nullptr, -1); }, {"'castShadows'"}},
  };
  for (const auto& [call, fragments] : cases) {
    std::string message;
    try {
      call();
    } catch (const kvi::host::Error& e) {
      message = e.what();
    }
    for (const auto& fragment : fragments) EXPECT_NE(message.find(fragment), std::string::npos) << message;
  }
}

}  // namespace
