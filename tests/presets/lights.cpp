// Realistic configurations of the light shaders.
#include <cmath>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/photometric_web.h"
#include "presets.h"

namespace {

// A 16 x 8 sky-like lat-long image: bright above the horizon, dark below.
kvi::host::LatLongSampler* skyImage(kvi::test::PresetFixture& f) {
  std::vector<float> rgba;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 16; ++x) {
      const float up = 1.0f - float(y) / 7.0f;
      rgba.insert(rgba.end(), {0.2f + 0.6f * up, 0.3f + 0.5f * up, 0.4f + 0.6f * up, 1.0f});
    }
  return f.make<kvi::host::LatLongSampler>(16, 8, std::move(rgba));
}

// Six 4 x 4 faces, each its own tint with a gradient across it.
kvi::host::CubeFaceSampler* tintedCube(kvi::test::PresetFixture& f) {
  std::vector<kvi::host::ImageSampler> faces;
  for (int face = 0; face < 6; ++face) {
    std::vector<float> rgba;
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 4; ++x)
        rgba.insert(rgba.end(), {0.5f + 0.1f * float(face % 3), 0.25f * float(x), 0.25f * float(y), 1.0f});
    faces.emplace_back(4, 4, std::move(rgba));
  }
  return f.make<kvi::host::CubeFaceSampler>(std::move(faces));
}

// A light direction off the axis (0, 0, -1) by the angle whose cosine is c.
void tiltLightDirection(kvi::test::PresetFixture& f, float c) {
  f.state.lightDirection[0] = std::sqrt(1.0f - c * c);
  f.state.lightDirection[1] = 0.0f;
  f.state.lightDirection[2] = -c;
}

}  // namespace

KVI_PRESET(DirectionalLight, unshadowed) { f.block.setBool("castShadows", 0); }
KVI_PRESET(velk_qora_Lgt_Direction, bright) { f.block.setFloat("intensity", 3.5f); }
KVI_PRESET(velk_qora_Lgt_Sky, unshadowed) { f.block.setBool("cast_shadows", 0); }

// A bulb in a room, in centimetres: inverse-square decay from 10 cm, both
// fades on, the point inside the near ramp.
KVI_PRESET(PointLight, inverse_square_faded) {
  f.block.setColor3("color", {40.0f, 36.0f, 30.0f});
  f.block.setColor3("attenuationFactors", {0.0f, 0.0f, 1.0f});
  f.block.setFloat("unitMultiplier", 100.0f);
  f.block.setFloat("decayStartDistance", 10.0f);
  f.block.setBool("nearAttenuationOn", 1);
  f.block.setFloat("nearAttenuationStart", 5.0f);
  f.block.setFloat("nearAttenuationEnd", 250.0f);
  f.block.setBool("farAttenuationOn", 1);
  f.block.setFloat("farAttenuationStart", 800.0f);
  f.block.setFloat("farAttenuationEnd", 1200.0f);
  f.context.shadow[0] = f.context.shadow[1] = f.context.shadow[2] = 0.75f;
}

// Inverse-linear decay, no fades, close enough for the soft cap's knee.
KVI_PRESET(PointLight, linear_capped) {
  f.block.setColor3("color", {30.0f, 30.0f, 30.0f});
  f.block.setColor3("attenuationFactors", {0.0f, 1.0f, 0.0f});
  f.block.setFloat("decayStartDistance", 4.0f);
  f.block.setBool("castShadows", 0);
  f.state.lightDistance = 6.0f;
}

// A stage spot seen from inside its penumbra, inverse-square decay, far fade on.
KVI_PRESET(SpotLight, penumbra) {
  f.block.setColor3("color", {8.0f, 7.5f, 6.0f});
  f.block.setColor3("attenuationFactors", {0.0f, 0.0f, 1.0f});
  f.block.setFloat("cosPenumbra", 0.88f);
  f.block.setFloat("cosUmbra", 0.96f);
  f.block.setBool("farAttenuationOn", 1);
  f.block.setFloat("farAttenuationStart", 20.0f);
  f.block.setFloat("farAttenuationEnd", 40.0f);
  tiltLightDirection(f, 0.92f);
}

// The same spot with the point outside its cone: shadow query, black colour.
KVI_PRESET(SpotLight, outside_cone) { tiltLightDirection(f, 0.5f); }

// A sky map turned 30 degrees about the vertical.
KVI_PRESET(DiffuseIBL, turned_sky) {
  const float c = std::cos(0.5235988f), s = std::sin(0.5235988f);
  f.block.setMatrix4("transform", {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0, 0, 1});
  f.block.setColor3("gain", {1.2f, 1.1f, 1.0f});
  f.block.setEnvironmentMap("diffuseMap", skyImage(f), 0);
}

// A shadowed area light with a projection map and a shadow colour map, the
// point half occluded.
KVI_PRESET(velk_qora_Lgt_Diffuse, shadowed_projected) {
  f.block.setBool("cast_shadows", 1);
  f.block.setColor3("color", {1.0f, 0.95f, 0.9f});
  f.block.setFloat("intensity", 25.0f);
  f.block.setFloat("shadowDensity", 0.8f);
  f.block.setBool("useShadowColMap", 1);
  f.block.setBool("lightAffectShadowCol", 1);
  f.block.setTexture("shadowColMap", tintedCube(f), 0);
  f.block.setBool("projMapOn", 1);
  f.block.setTexture("projMap", tintedCube(f), 1);
  f.context.shadow[0] = 0.5f;
  f.context.shadow[1] = 0.4f;
  f.context.shadow[2] = 0.6f;
  tiltLightDirection(f, 0.8f);
}

// Unshadowed, with the falloff clamped near the light.
KVI_PRESET(velk_qora_Lgt_Diffuse, clamped_unshadowed) {
  f.block.setColor3("integratedColor", {12.0f, 11.0f, 9.0f});
  f.block.setFloat("exponentLowerClamp", 0.5f);
  f.block.setFloat("exponentUpperClamp", 9.0f);
  f.state.lightDistance = 1.5f;
  tiltLightDirection(f, 0.7f);
}

// A 10 cm bulb of 60 W seen from 2 m, its point on the cap from the host's samples.
KVI_PRESET(velk_qora_Lgt_Sphere, bulb_power) {
  f.block.setInt("units", 1);
  f.block.setFloat("intensity", 60.0f);
  f.block.setColor3("color", {1.0f, 0.9f, 0.75f});
  f.context.sample2D[0] = 0.3f;
  f.context.sample2D[1] = 0.7f;
}

// A soft stage spot seen from inside its penumbra, the disk sampled.
KVI_PRESET(velk_qora_Lgt_Spot, soft_penumbra) {
  f.block.setFloat("intensity", 40.0f);
  f.block.setFloat("coneAngle", 20.0f);
  f.block.setFloat("penumbraAngle", 10.0f);
  f.block.setFloat("radius", 0.15f);
  tiltLightDirection(f, 0.92f);
}

// The same spot as a point, in power units.
KVI_PRESET(velk_qora_Lgt_Spot, point_power) {
  f.block.setInt("units", 1);
  f.block.setFloat("intensity", 100.0f);
  tiltLightDirection(f, 0.95f);
}

// A wall washer's web, turned, seen off its axis.
KVI_PRESET(velk_qora_Lgt_PhotometricWeb, turned_web) {
  kvi::host::PhotometricWeb web;
  web.verticalAngles = {0, 30, 60, 90, 120, 150, 180};
  web.horizontalAngles = {0, 45, 90, 135, 180};
  for (int h = 0; h < 5; ++h)
    for (int v = 0; v < 7; ++v) web.candela.push_back(900.0f / float(1 + v) + 150.0f * float(h));
  f.block.setTexture("web", f.make<kvi::host::PhotometricWebSampler>(std::move(web)), 0);
  const float c = std::cos(0.4f), s = std::sin(0.4f);
  f.block.setMatrix4("webRotationMatrix", {c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  f.block.setFloat("intensity", 0.01f);
  tiltLightDirection(f, 0.7f);
}
