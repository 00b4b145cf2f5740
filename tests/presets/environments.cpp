// Realistic configurations of the environment shaders.
#include <cmath>
#include <vector>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/tone_mapper.h"
#include "presets.h"

namespace {

void pickGradientColors(kvi::test::PresetFixture& f) {
  f.block.setColor3("backgroundTopColor", {0.10f, 0.25f, 0.65f});
  f.block.setColor3("backgroundMiddleColor", {0.95f, 0.85f, 0.55f});
  f.block.setColor3("backgroundBottomColor", {0.85f, 0.35f, 0.15f});
}

// A host tone mapper far from the identity in every step.
kvi::host::ToneMapSettings hostToneMapper() {
  kvi::host::ToneMapSettings t;
  t.enabled = 1;
  t.exposure = 1.5f;
  t.white[0] = 1.1f;
  t.white[2] = 0.9f;
  t.vignetting = 1.0f;
  t.imagePlaneWidth = 1.6f;
  t.imagePlaneHeight = 0.9f;
  t.focalDistance = 1.0f;
  t.crushBlacks = 0.2f;
  t.burnHighlightsInv = 4.0f;
  t.saturation = 1.1f;
  t.gamma = 2.2f;
  return t;
}

// The sun 35 degrees up, in the sky's z-up frame.
void placeSun(kvi::test::PresetFixture& f) { f.block.setColor3("adj_sun_direction", {0.8191520f, 0.0f, 0.5735764f}); }

// A ray direction given in the z-up frame, written for the default y-up host.
void look(kvi::test::PresetFixture& f, float x, float y, float z) {
  const float length = std::sqrt(x * x + y * y + z * z);
  f.state.rayDirection[0] = x / length;
  f.state.rayDirection[1] = z / length;
  f.state.rayDirection[2] = y / length;
}

}  // namespace

KVI_PRESET(GradientBackground, two_colors) { pickGradientColors(f); }
KVI_PRESET(GradientBackground, two_colors_compensated) {
  pickGradientColors(f);
  kvi::host::setToneMapParameters(f.block, hostToneMapper());
}
KVI_PRESET(GradientBackground, rotated) {
  pickGradientColors(f);
  f.block.setFloat("rotationAngle", 0.6f);
}
KVI_PRESET(GradientBackground, three_colors_rotated_compensated) {
  pickGradientColors(f);
  f.block.setBool("twoColorsOnly", 0);
  f.block.setFloat("rotationAngle", -0.8f);
  kvi::host::setToneMapParameters(f.block, hostToneMapper());
}

KVI_PRESET(velk_qora_Env_Sky, zenith) {
  placeSun(f);
  look(f, 0.0f, 0.0f, 1.0f);
}
KVI_PRESET(velk_qora_Env_Sky, near_sun) {
  placeSun(f);
  look(f, 0.82f, 0.01f, 0.57f);
}
KVI_PRESET(velk_qora_Env_Sky, away_from_sun) {
  placeSun(f);
  look(f, -0.5f, 0.6f, 0.3f);
}
KVI_PRESET(velk_qora_Env_Sky, in_horizon_blur) {
  placeSun(f);
  look(f, 0.3f, 0.95f, -0.004f);
}
KVI_PRESET(velk_qora_Env_Sky, ground) {
  placeSun(f);
  look(f, 0.3f, 0.6f, -0.7f);
}
KVI_PRESET(velk_qora_Env_Sky, hazy_illumination) {
  placeSun(f);
  f.block.setFloat("haze", 6.0f);
  f.context.rayKindBits = 8;
  look(f, -0.5f, 0.6f, 0.3f);
}
KVI_PRESET(velk_qora_Env_Sky, sky_map) {
  placeSun(f);
  f.block.setBool("use_sky_map", 1);
  std::vector<float> rgba;
  for (int row = 0; row < 16; ++row)
    for (int column = 0; column < 32; ++column)
      rgba.insert(rgba.end(), {0.2f + row / 20.0f, 0.4f, 1.0f - row / 20.0f, 1.0f});
  f.block.setEnvironmentMap("sky_map", f.make<kvi::host::LatLongSampler>(32, 16, std::move(rgba)), 0);
  look(f, -0.5f, 0.6f, 0.3f);
}

// A lat-long image turned 30 degrees about the vertical, compensated.
KVI_PRESET(SimpleBackground, turned_image_compensated) {
  f.block.setInt("backgroundMode", 1);
  std::vector<float> rgba;
  for (int row = 0; row < 16; ++row)
    for (int column = 0; column < 32; ++column)
      rgba.insert(rgba.end(), {0.2f + row / 20.0f, 0.4f, 1.0f - row / 20.0f, 1.0f});
  f.block.setEnvironmentMap("backgroundImage", f.make<kvi::host::LatLongSampler>(32, 16, std::move(rgba)), 0);
  const float c = std::cos(0.5235988f), s = std::sin(0.5235988f);
  f.block.setMatrix3("cubeMatrix", {c, 0, -s, 0, 1, 0, s, 0, c});
  kvi::host::setToneMapParameters(f.block, hostToneMapper());
  look(f, -0.5f, 0.6f, 0.3f);
}

// Six tinted faces, no compensation.
KVI_PRESET(SimpleBackground, cube_image) {
  f.block.setInt("backgroundMode", 2);
  std::vector<kvi::host::ImageSampler> faces;
  for (int face = 0; face < 6; ++face) faces.emplace_back(2, 2, std::vector<float>(16, 0.1f * float(face + 1)));
  f.block.setTexture("cubeImage", f.make<kvi::host::CubeFaceSampler>(std::move(faces)), 0);
  look(f, 0.3f, -0.8f, 0.4f);
}

// A 4:3 picture filling a 16:10 frame, compensated.
KVI_PRESET(ImageBackground, fill_compensated) {
  f.block.setTexture("image", f.checker(), 0);
  f.block.setInt("layoutType", 1);
  f.block.setColor3("imageResolution", {800.0f, 600.0f, 0.0f});
  kvi::host::setToneMapParameters(f.block, hostToneMapper());
}

// The same picture tiled at its own size, zoomed by uv_scale.
KVI_PRESET(ImageBackground, tiled) {
  f.block.setTexture("image", f.checker(), 0);
  f.block.setInt("layoutType", 3);
  f.block.setColor3("imageResolution", {64.0f, 64.0f, 0.0f});
  f.block.setFloat2("uv_scale", {2.0f, 2.0f});
}
