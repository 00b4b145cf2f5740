// Realistic configurations of the Ward family: the plain material, an
// anisotropic one with maps and a procedural bump, and every generated
// variant (picked up from the generated list) lit by three lights with a
// checker in every bitmap node.
#include <string>

#include "materials/ward/ward_variant_list.h"
#include "presets.h"

namespace {

bool endsWith(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A lit hit with a glossy white specular layer over a coloured diffuse one,
// a light 30 degrees off the normal for evaluateBsdf, and a camera-like ray
// kind whose glossy and diffuse events the host accepts.
void glossyFinish(kvi::test::PresetFixture& f) {
  f.context.irradiance[0] = 0.6f;
  f.context.irradiance[1] = 0.55f;
  f.context.irradiance[2] = 0.5f;
  f.context.rayKind = 2;
  f.context.rayFlags = 1;
  f.state.position[0] = 0.3f;
  f.state.position[1] = -1.2f;
  f.state.position[2] = 0.7f;
  f.state.sampledDirection[0] = 0.5f;
  f.state.sampledDirection[2] = 0.8660254f;
  f.state.rayDirection[0] = 0.6f;
  f.state.rayDirection[2] = -0.8f;
  f.block.setColor3("u_diffuseColor", {0.3f, 0.12f, 0.08f});
  f.block.setFloat("u_brdfCurvePower", 5.0f);
  f.block.setFloat("u_brdf00Reflectivity", 0.06f);
  f.block.setColor3("u_additionalColor", {0.0f, 0.0f, 0.0f});
  f.block.setInt("u_imageFadeEnable", 0);
}

void variantPattern(kvi::test::PresetFixture& f) {
  glossyFinish(f);
  f.threeLights();
  f.block.setFloat("u_roughValue", 0.4f);
  for (const auto& p : f.block.info().parameters)
    if (endsWith(p.name, "_UnifiedBitmap_texture")) f.block.setTexture(p.name, f.checker(), 0);
}

}  // namespace

KVI_PRESET(velk_qora_Mtl_Ward, plain) {
  glossyFinish(f);
  f.block.setFloat("u_glossinessValue", 0.6f);
}

KVI_PRESET(velk_qora_Mtl_Ward, anisotropic_with_maps) {
  glossyFinish(f);
  f.block.setFloat("u_glossinessValue", 0.7f);
  f.block.setFloat("u_anisotropyValue", 0.25f);
  f.block.setFloat("u_anisoRotationValue", 0.5f);
  f.block.setBool("u_specularMapEnable", 1);
  f.block.setTexture("u_specularMap", f.checker(), 0);
  f.block.setBool("u_normal0MapEnable", 1);
  f.block.setTexture("u_normal0Map", f.checker(), 1);
  f.block.setFloat("u_normal0Amount", 0.1f);
  f.block.setInt("u_procedureMapEnable", 6);
  f.block.setFloat("u_procedureMapAmount", 0.05f);
  f.block.setInt("u_imageFadeEnable", 4);
  f.block.setFloat("u_imageFade", 0.3f);
}

KVI_PRESET(velk_qora_Mtl_Ward, transparent_translucent) {
  glossyFinish(f);
  f.block.setBool("u_transparency", 1);
  f.block.setFloat("u_transparencyValue", 0.7f);
  f.block.setFloat("u_translucencyValue", 0.4f);
  f.block.setFloat("u_glossinessValue", 0.9f);
}

#define KVI_WARD_VARIANT_PRESET_(Name) \
  KVI_PRESET(Name, pattern) { variantPattern(f); }
KVI_WARD_VARIANT_SHADERS(KVI_WARD_VARIANT_PRESET_)
