// kvi-plot-backgrounds: renders the pictures of docs/shaders/environments.md
// by loading the shader module as a host does.
//
//   kvi-plot-backgrounds [--library PATH] [OUTPUT_DIR]
//
// OUTPUT_DIR defaults to docs/images of the source tree. Writes:
//   sky_elevations.png    latitude-longitude panoramas of velk_qora_Env_Sky,
//                         one row per sun elevation, one column per haze
//   sky_controls.png      the sky at 20 degrees with saturation, red/blue
//                         shift, a raised horizon and a sharp horizon
//   gradient_rotation.png GradientBackground: two colours, two colours
//                         turned, three colours turned
//   gradient_tone_mapping.png  the compensated gradient as the shader writes
//                         it, then after the host's tone mapper
//   image_layouts.png     ImageBackground: a 64 x 40 picture on a 16:9 frame
//                         in each layout (fit, fill, stretch, tile, centre)
//
// Exit codes: 0 success, 1 usage error, 2 a module, shader or image problem.
#include <OpenImageIO/imageio.h>

#include <cmath>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "kvi/host/context.h"
#include "kvi/host/error.h"
#include "kvi/host/module.h"
#include "kvi/host/parameter_block.h"
#include "kvi/host/samplers.h"
#include "kvi/host/shader_info.h"
#include "kvi/host/state.h"
#include "kvi/host/tone_mapper.h"

namespace {

using kvi::host::ParameterBlock;
using kvi::host::ToneMapSettings;

constexpr double kPi = 3.14159265358979323846;

struct Image {
  int width = 0;
  int height = 0;
  std::vector<float> rgb;

  Image(int w, int h, float fill = 0.0f) : width(w), height(h), rgb(size_t(w) * size_t(h) * 3, fill) {}
  float* at(int x, int y) { return &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3]; }

  void paste(const Image& tile, int x0, int y0) {
    for (int y = 0; y < tile.height; ++y)
      std::memcpy(at(x0, y0 + y), &tile.rgb[size_t(y) * size_t(tile.width) * 3], size_t(tile.width) * 3 * 4);
  }
};

// Tiles in a grid with a gap between them, on a dark grey ground.
Image grid(const std::vector<Image>& tiles, int columns, int gap = 4) {
  const int rows = int((tiles.size() + size_t(columns) - 1) / size_t(columns));
  const int w = tiles.front().width;
  const int h = tiles.front().height;
  Image sheet(columns * w + (columns + 1) * gap, rows * h + (rows + 1) * gap, 0.15f);
  for (size_t i = 0; i < tiles.size(); ++i)
    sheet.paste(tiles[i], gap + int(i % size_t(columns)) * (w + gap), gap + int(i / size_t(columns)) * (h + gap));
  return sheet;
}

void writePng(const Image& image, const std::string& path) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) throw kvi::host::Error("cannot write '" + path + "': " + OIIO::geterror());
  const OIIO::ImageSpec format(image.width, image.height, 3, OIIO::TypeDesc::UINT8);
  if (!out->open(path, format) || !out->write_image(OIIO::TypeDesc::FLOAT, image.rgb.data()) || !out->close())
    throw kvi::host::Error("cannot write '" + path + "': " + out->geterror());
  std::cout << "wrote " << path << " (" << image.width << " x " << image.height << ")\n";
}

// One shader object with its parameter block.
struct Shader {
  kvi::host::ShaderInfo info;
  kvi::host::ShaderPtr object;
  ParameterBlock block;

  Shader(const kvi::host::Module& module, const std::string& name)
      : info(kvi::host::describeShader(module, name)), object(module.create(name)), block(info) {}

  // Sets the parameters and shades one ray.
  void shade(kvi::ShadingState& state, kvi::host::BaseContext& context) {
    static_cast<kvi::EnvironmentShader*>(object.get())->shade(&context, &state);
  }
  void apply() { block.applyTo(object.get()); }
};

// A background seen by camera rays over a width x height frame, one ray per
// pixel centre; `store` turns each result into the picture's pixel.
template <class Store>
Image screenImage(Shader& background, int width, int height, Store store) {
  kvi::host::BaseContext camera;
  Image image(width, height);
  kvi::ShadingState state = kvi::host::zeroState();
  state.frameResolution[0] = width;
  state.frameResolution[1] = height;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      state.rasterPosition[0] = x + 0.5f;
      state.rasterPosition[1] = y + 0.5f;
      background.shade(state, camera);
      store(state, image.at(x, y));
    }
  return image;
}

// --- the sky -------------------------------------------------------------

struct SkySettings {
  float elevationDegrees = 20.0f;
  float haze = 0.0f;
  float saturation = 1.0f;
  float redBlueShift = 0.0f;
  float horizonHeight = 0.0f;
  float horizonBlur = 0.1f;
};

// A display mapping for the sky's radiance, made with the host's own tone
// mapper: the sun glow is thousands of times the sky, so the highlights are
// burnt strongly.
ToneMapSettings skyDisplay() {
  ToneMapSettings t;
  t.enabled = 1;
  t.exposure = 0.06f;
  t.burnHighlightsInv = 50.0f;
  t.gamma = 2.2f;
  return t;
}

// A latitude-longitude panorama, z up, the sun at azimuth 0 in the middle.
Image skyPanorama(const kvi::host::Module& module, const SkySettings& s, int width, int height) {
  Shader sky(module, "velk_qora_Env_Sky");
  const double elevation = s.elevationDegrees * kPi / 180.0;
  sky.block.setBool("y_is_up", 0);
  sky.block.setFloat("haze", s.haze);
  sky.block.setFloat("saturation", s.saturation);
  sky.block.setFloat("redblueshift", s.redBlueShift);
  sky.block.setFloat("horizon_height", s.horizonHeight);
  sky.block.setFloat("horizon_blur", s.horizonBlur);
  sky.block.setColor3("adj_sun_direction",
                      {float(std::cos(elevation)), 0.0f, float(std::sin(elevation))});
  sky.apply();

  kvi::host::BaseContext camera;  // a camera ray: of no kind the sky asks about
  const ToneMapSettings display = skyDisplay();
  Image image(width, height);
  kvi::ShadingState state = kvi::host::zeroState();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double azimuth = ((x + 0.5) / width - 0.5) * 2.0 * kPi;
      const double altitude = (0.5 - (y + 0.5) / height) * kPi;
      state.rayDirection[0] = float(std::cos(altitude) * std::cos(azimuth));
      state.rayDirection[1] = float(std::cos(altitude) * std::sin(azimuth));
      state.rayDirection[2] = float(std::sin(altitude));
      sky.shade(state, camera);
      kvi::host::toneMap(display, image.at(x, y), state.surfaceResult, 0.0f, 0.0f, width, height);
    }
  return image;
}

void plotSky(const kvi::host::Module& module, const std::string& dir) {
  const float elevations[] = {70.0f, 35.0f, 15.0f, 4.0f};
  const float hazes[] = {0.0f, 4.0f, 12.0f};
  std::vector<Image> tiles;
  for (float e : elevations)
    for (float h : hazes) {
      SkySettings s;
      s.elevationDegrees = e;
      s.haze = h;
      tiles.push_back(skyPanorama(module, s, 256, 128));
    }
  writePng(grid(tiles, 3), dir + "/sky_elevations.png");

  std::vector<SkySettings> controls(4);
  controls[0].saturation = 0.3f;
  controls[1].redBlueShift = 0.3f;
  controls[2].horizonHeight = 1.5f;
  controls[3].horizonBlur = 0.0f;
  tiles.clear();
  for (const auto& s : controls) tiles.push_back(skyPanorama(module, s, 256, 128));
  writePng(grid(tiles, 2), dir + "/sky_controls.png");
}

// --- the gradient --------------------------------------------------------

struct GradientSettings {
  bool threeColors = false;
  float rotation = 0.0f;
};

void setGradient(ParameterBlock& block, const GradientSettings& g) {
  block.setBool("twoColorsOnly", g.threeColors ? 0 : 1);
  block.setColor3("backgroundTopColor", {0.10f, 0.25f, 0.65f});
  block.setColor3("backgroundMiddleColor", {0.95f, 0.85f, 0.55f});
  block.setColor3("backgroundBottomColor", {0.85f, 0.35f, 0.15f});
  block.setFloat("rotationAngle", g.rotation);
}

// The gradient over a width x height frame, as the shader writes it; with
// `afterToneMapper`, passed through the host's tone mapper as well.
Image gradientImage(const kvi::host::Module& module, const GradientSettings& g, const ToneMapSettings& tone,
                    bool afterToneMapper, int width, int height) {
  Shader background(module, "GradientBackground");
  setGradient(background.block, g);
  kvi::host::setToneMapParameters(background.block, tone);
  background.apply();
  return screenImage(background, width, height, [&](const kvi::ShadingState& state, float* pixel) {
    if (afterToneMapper)
      kvi::host::toneMap(tone, pixel, state.surfaceResult, state.rasterPosition[0], state.rasterPosition[1], width,
                         height);
    else
      std::memcpy(pixel, state.surfaceResult, 3 * sizeof(float));
  });
}

void plotGradient(const kvi::host::Module& module, const std::string& dir) {
  const ToneMapSettings off;
  std::vector<Image> tiles;
  tiles.push_back(gradientImage(module, {false, 0.0f}, off, false, 240, 135));
  tiles.push_back(gradientImage(module, {false, 0.5f}, off, false, 240, 135));
  tiles.push_back(gradientImage(module, {true, -0.8f}, off, false, 240, 135));
  writePng(grid(tiles, 3), dir + "/gradient_rotation.png");

  ToneMapSettings strong;
  strong.enabled = 1;
  strong.exposure = 2.0f;
  strong.white[0] = 1.2f;
  strong.white[2] = 0.8f;
  strong.vignetting = 2.0f;
  strong.imagePlaneWidth = 1.6f;
  strong.imagePlaneHeight = 0.9f;
  strong.focalDistance = 1.0f;
  strong.crushBlacks = 0.3f;
  strong.burnHighlightsInv = 4.0f;
  strong.saturation = 1.3f;
  strong.gamma = 2.2f;
  tiles.clear();
  tiles.push_back(gradientImage(module, {true, 0.3f}, off, false, 240, 135));
  tiles.push_back(gradientImage(module, {true, 0.3f}, strong, false, 240, 135));
  tiles.push_back(gradientImage(module, {true, 0.3f}, strong, true, 240, 135));
  writePng(grid(tiles, 3), dir + "/gradient_tone_mapping.png");
}

// --- the picture background ----------------------------------------------

// A 64 x 40 picture, bottom row first as the host stores 2D maps: a warm to
// cool gradient with a dark frame and a red square in its upper left corner,
// so its orientation and edges show.
kvi::host::ImageSampler layoutPicture() {
  const int w = 64, h = 40;
  std::vector<float> rgba;
  for (int row = 0; row < h; ++row)
    for (int x = 0; x < w; ++x) {
      const int y = h - 1 - row;  // from the top
      const float u = float(x) / float(w - 1), v = float(y) / float(h - 1);
      float c[3] = {0.9f - 0.6f * u, 0.55f + 0.2f * v, 0.3f + 0.6f * u};
      if (x < 2 || y < 2 || x >= w - 2 || y >= h - 2) c[0] = c[1] = c[2] = 0.08f;
      if (x >= 4 && x < 14 && y >= 4 && y < 14) c[0] = 0.9f, c[1] = 0.1f, c[2] = 0.1f;
      rgba.insert(rgba.end(), {c[0], c[1], c[2], 1.0f});
    }
  return kvi::host::ImageSampler(w, h, std::move(rgba));
}

void plotImageLayouts(const kvi::host::Module& module, const std::string& dir) {
  kvi::host::ImageSampler picture = layoutPicture();
  std::vector<Image> tiles;
  const int width = 192, height = 108;
  for (int layout = 0; layout < 5; ++layout) {
    Shader background(module, "ImageBackground");
    background.block.setTexture("image", &picture, 0);
    background.block.setInt("layoutType", layout);
    background.block.setColor3("imageResolution", {64.0f, 40.0f, 0.0f});
    background.block.setColor3("backgroundColor", {0.25f, 0.25f, 0.28f});
    background.apply();
    const Image image = screenImage(background, width, height, [](const kvi::ShadingState& state, float* pixel) {
      for (int c = 0; c < 3; ++c) pixel[c] = std::pow(state.surfaceResult[c], 1.0f / 2.2f);
    });
    tiles.push_back(image);
  }
  writePng(grid(tiles, 5), dir + "/image_layouts.png");
}

}  // namespace

int main(int argc, char** argv) {
  std::string library;
  std::string dir = KVI_DOC_IMAGE_DIR;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--library" && i + 1 < argc) {
      library = argv[++i];
    } else if (arg == "-h" || arg == "--help") {
      std::cout << "usage: kvi-plot-backgrounds [--library PATH] [OUTPUT_DIR]\n";
      return 0;
    } else if (!arg.empty() && arg[0] != '-') {
      dir = arg;
    } else {
      std::cerr << "kvi-plot-backgrounds: unknown argument '" << arg << "'\n";
      return 1;
    }
  }
  try {
    const auto module = kvi::host::Module::open(library.empty() ? kvi::host::defaultModulePath() : library);
    plotSky(module, dir);
    plotGradient(module, dir);
    plotImageLayouts(module, dir);
  } catch (const kvi::host::Error& e) {
    std::cerr << "kvi-plot-backgrounds: " << e.what() << "\n";
    return 2;
  }
  return 0;
}
