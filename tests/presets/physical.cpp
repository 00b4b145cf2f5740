// Realistic configurations of the physically based materials.
#include "presets.h"

namespace {

// A camera-like ray 40 degrees off the normal, a light 30 degrees off it on
// the other side, some light to gather, and an illumination path that picks
// its lobes at random.
void litSlantedHit(kvi::test::PresetFixture& f) {
  f.state.rayDirection[0] = 0.6427876f;
  f.state.rayDirection[2] = -0.7660444f;
  f.state.sampledDirection[0] = -0.5f;
  f.state.sampledDirection[2] = 0.8660254f;
  f.context.irradiance[0] = 0.6f;
  f.context.irradiance[1] = 0.55f;
  f.context.irradiance[2] = 0.5f;
  f.context.rayKind = 2;
  f.context.rayFlags = 1;
  f.context.sample1D = 0.7f;  // past F: the metals sample their reflection
  f.context.sample2D[0] = 0.3f;
  f.context.sample2D[1] = 0.6f;
}

// A polished copper-coloured metal with a Fresnel-like curve.
void plainMetal(kvi::test::PresetFixture& f) {
  litSlantedHit(f);
  f.block.setColor3("u_specularColor", {0.95f, 0.64f, 0.54f});
  f.block.setFloat("u_glossiness", 0.8f);
  f.block.setFloat("u_reflectivity", 1.0f);
  f.block.setFloat("u_brdfCurvePower", 5.0f);
  f.block.setFloat("u_brdf00Reflectivity", 0.9f);
  f.block.setFloat("u_brdf90Reflectivity", 1.0f);
  f.block.setFloat("u_uvDefScale", 1.0f);
  f.block.setFloat("u_otherScale", 1.0f);
}

}  // namespace

KVI_PRESET(velk_qora_Mtl_Metal, plain) { plainMetal(f); }

KVI_PRESET(velk_qora_Mtl_Metal, brushed_anisotropic) {
  plainMetal(f);
  f.block.setColor3("u_specularColor", {0.91f, 0.92f, 0.92f});
  f.block.setFloat("u_glossiness", 0.7f);
  f.block.setInt("u_reflectSwitcher", 1);
  f.block.setBool("u_brushMapEnable", 1);
  f.block.setTexture("u_brushMap", f.checker(), 0);
  f.block.setMatrix3("u_brushTransform", {8, 0, 0, 0, 1, 0, 0, 0, 1});
  f.block.setFloat("u_anisotropyValue", 0.4f);
  f.block.setFloat("u_anisoRotationValue", 0.6f);
}

KVI_PRESET(velk_qora_Mtl_Metal, patina_with_maps) {
  plainMetal(f);
  f.block.setColor3("u_diffuseColor", {0.3f, 0.2f, 0.1f});
  f.block.setBool("u_patinaEnable", 1);
  f.block.setTexture("u_patinaMap", f.checker(), 0);
  f.block.setColor3("u_patinaColor", {0.25f, 0.55f, 0.45f});
  f.block.setFloat("u_patinaGlossy", 0.2f);
  f.block.setFloat("u_patinaBrdf00Reflectivity", 0.05f);
  f.block.setFloat("n_patinaPercent", 0.8f);
  f.block.setBool("u_normal0MapEnable", 1);
  f.block.setTexture("u_normal0Map", f.checker(), 0);
  f.block.setFloat("u_normal0Amount", 0.1f);
  f.block.setInt("u_cutoutsSwitcher", 6);
  f.block.setFloat("u_uvDefScale", 10.0f);
  f.block.setFloat("u_cutoutsSpace", 1.0f);
  f.block.setFloat("u_cutoutsSize", 0.5f);
  f.block.setBool("u_commonTintEnable", 1);
  f.block.setColor4("u_commonTintColor", {1.0f, 0.95f, 0.9f, 1.0f});
}

KVI_PRESET(velk_qora_Mtl_Glazing, tinted_pane) {
  litSlantedHit(f);
  f.block.setFloat("u_rough", 0.05f);
  f.block.setFloat("u_level", 2.0f);
  f.block.setBool("u_transmittanceMapEnable", 1);
  f.block.setTexture("u_transmittanceMap", f.checker(), 0);
}

KVI_PRESET(velk_qora_Mtl_Mirror, silvered) {
  litSlantedHit(f);
  f.block.setColor3("u_tintColor", {0.9f, 0.9f, 0.92f});
}
