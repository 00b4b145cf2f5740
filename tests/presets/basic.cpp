// Realistic configurations of the basic materials.
#include <array>
#include <memory>
#include <vector>

#include "kvi/host/samplers.h"
#include "presets.h"

namespace {

// A warm grey lit surface: some light to gather, a camera-like ray kind whose
// flag leaves the material its own sampling odds.
void litScene(kvi::test::PresetFixture& f) {
  f.context.irradiance[0] = 0.6f;
  f.context.irradiance[1] = 0.55f;
  f.context.irradiance[2] = 0.5f;
  f.context.rayKind = 2;
  f.context.rayFlags = 1;
  if (f.block.info().findParameter("diffuse")) f.block.setColor3("diffuse", {0.7f, 0.6f, 0.5f});
  f.block.setColor3("diffuse_map_tint", {1.0f, 1.0f, 1.0f});
  // A light 30 degrees off the normal, for evaluateBsdf.
  f.state.sampledDirection[0] = 0.5f;
  f.state.sampledDirection[2] = 0.8660254f;
}

void clippingPlanes(kvi::test::PresetFixture& f, const char* map, const char* enable) {
  // Four walls of a box around the point, which stays inside all of them.
  auto* table = f.make<kvi::host::ClippingPlaneTable>(
      std::vector<std::array<float, 4>>{{1, 0, 0, 4}, {-1, 0, 0, 4}, {0, 1, 0, 4}, {0, -1, 0, 4}});
  f.block.setClippingMap(map, table, 0);
  f.block.setBool(enable, 1);
}

}  // namespace

KVI_PRESET(BasicMaterial, plain) { litScene(f); }

KVI_PRESET(BasicMaterial, textured_decal) {
  litScene(f);
  f.block.setTexture("diffuse_map", f.checker(), 0);
  f.block.setBool("use_diffuse_map", 1);
  f.block.setBool("use_diffuse_map_alpha", 1);
  f.block.setMatrix4("diffuse_map_transform", {4, 0, 0, 0, 0, 4, 0, 0, 0, 0, 1, 0, 0.1f, 0.2f, 0, 1});
  f.block.setColor3("emissive", {0.05f, 0.05f, 0.05f});
}

KVI_PRESET(BasicMaterial, modulate_vertex_color) {
  litScene(f);
  f.block.setTexture("diffuse_map", f.checker(), 0);
  f.block.setBool("use_diffuse_map", 1);
  f.block.setBool("use_decal_mode", 0);
  f.block.setBool("use_diffuse_vertex_color", 1);
  f.varying("vtxcolor", {0.8f, 0.6f, 0.4f, 0.9f});
}

KVI_PRESET(BasicMaterial, reflective) {
  litScene(f);
  f.block.setFloat("reflection_blend", 0.4f);
  f.block.setColor3("specular", {0.9f, 0.9f, 0.9f});
  f.block.setFloat("shininess", 64.0f);
  f.context.sample1D = 0.2f;  // picks the mirror
}

KVI_PRESET(BasicMaterial, transparent) {
  litScene(f);
  f.block.setFloat("opacity", 0.35f);
  f.block.setBool("use_extra_color_and_alpha", 1);
  f.block.setBool("u_extra_color_and_alpha_is_set", 1);
  f.block.setColor4("u_extra_color_and_alpha", {0.2f, 0.4f, 0.9f, 0.8f});
  f.context.rayKind = 3;
}

KVI_PRESET(BasicMaterial, culled_back_face) {
  litScene(f);
  f.block.setInt("cull_mode", 1);
  f.state.frontFacing = 0;
}

KVI_PRESET(BasicMaterial, clipping_planes) {
  litScene(f);
  clippingPlanes(f, "u_globalClippingMap", "u_globalClippingMapEnable");
  f.block.setBool("use_uv_clip", 1);
  f.block.setMatrix4("uv_clip_transform", {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, -0.25f, -0.5f, 0, 1});
}

KVI_PRESET(PhongReflective, three_lights) {
  f.threeLights();
  f.block.setColor3("diffuse", {0.6f, 0.5f, 0.4f});
  f.block.setColor3("reflection", {0.25f, 0.25f, 0.25f});
}

KVI_PRESET(PhongReflective, clipping_planes) { clippingPlanes(f, "u_globalClippingMap", "u_globalClippingMapEnable"); }

// A lit flat colour, a little transparent.
KVI_PRESET(SolidEffect, lit) {
  litScene(f);
  f.block.setFloat("opacity", 0.8f);
}

// An unlit textured decal, as for a label.
KVI_PRESET(SolidEffect, unlit_decal) {
  litScene(f);
  f.block.setBool("unlit", 1);
  f.block.setTexture("diffuse_map", f.checker(), 0);
  f.block.setBool("use_diffuse_map", 1);
}

// Vertex colours modulated by a texture, lit.
KVI_PRESET(VertexColorEffect, textured) {
  litScene(f);
  f.block.setTexture("diffuse_map", f.checker(), 0);
  f.block.setBool("use_diffuse_map", 1);
  f.varying("vtxcolor", {0.8f, 0.6f, 0.4f, 0.9f});
}
