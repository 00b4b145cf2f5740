// Realistic configurations of the dielectric and the metallic paint.
#include "presets.h"

namespace {

// A view 35 degrees off the normal from 4 units away, a light 30 degrees
// off it on the other side, a lit scene to gather from, random lobe choice.
void obliqueView(kvi::test::PresetFixture& f) {
  f.state.rayDirection[0] = -0.5735764f;
  f.state.rayDirection[2] = -0.8191520f;
  f.state.sampledDirection[0] = 0.5f;
  f.state.sampledDirection[2] = 0.8660254f;
  f.state.lightDistance = 4.0f;
  f.context.irradiance[0] = f.context.irradiance[1] = f.context.irradiance[2] = 0.5f;
  f.context.rayKind = 2;
  f.context.rayFlags = 1;
  f.context.sample1D = 0.7f;
  f.context.noise = 0.3f;
}

void paint(kvi::test::PresetFixture& f) {
  obliqueView(f);
  f.block.setColor3("u_baseColor", {0.5f, 0.02f, 0.03f});
  f.block.setFloat("u_pearlHueShift", 0.08f);
}

}  // namespace

KVI_PRESET(velk_qora_Mtl_Dielectric, clear_glass) {
  obliqueView(f);
  f.block.setColor3("u_transmissionColor", {0.85f, 0.95f, 0.92f});
}

KVI_PRESET(velk_qora_Mtl_Dielectric, rough_glass) {
  obliqueView(f);
  f.block.setFloat("u_roughValue", 0.35f);
  f.state.frontFacing = 0;  // inside: absorbs along the 4 units travelled
  f.block.setColor3("u_transmissionColor", {0.85f, 0.95f, 0.92f});
}

KVI_PRESET(velk_qora_Mtl_Dielectric, water) {
  obliqueView(f);
  f.block.setFloat("u_ior", 1.33f);
  f.block.setColor3("u_transmissionColor", {0.6f, 0.85f, 0.9f});
  f.block.setFloat("u_transmissionDistance", 3.0f);
  f.block.setBool("u_wavesEnable", 1);
  f.block.setFloat("u_wavesScale", 2.0f);
  f.block.setFloat("u_wavesHeight", 0.05f);
}

KVI_PRESET(velk_qora_Mtl_MetallicPaint, plain) {
  paint(f);
  f.block.setFloat("u_flakeDensity", 0.0f);
}

KVI_PRESET(velk_qora_Mtl_MetallicPaint, flakes) {
  paint(f);
  f.block.setFloat("u_flakeDensity", 0.5f);
}
