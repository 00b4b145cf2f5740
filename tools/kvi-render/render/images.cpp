#include "render/images.h"

#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace kvi::render {
namespace {

std::string lowerExtension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

float srgbDecode(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

// The temporary name beside the final file: same folder, same extension (so
// that the writer picks the same format), hidden and unique to the process.
std::string temporaryPathFor(const std::string& path) {
  const std::filesystem::path p(path);
  std::string name = ".";
  name += p.stem().string();
  name += ".partial-";
  name += std::to_string(getpid());
  name += p.extension().string();
  return (p.parent_path() / name).string();
}

void writeThroughTemporary(const std::string& path, const OIIO::ImageSpec& format, OIIO::TypeDesc type,
                           const void* pixels) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) throw std::runtime_error("cannot write '" + path + "': " + OIIO::geterror());
  const std::string temporary = temporaryPathFor(path);
  bool ok = out->open(temporary, format) && out->write_image(type, pixels);
  ok = out->close() && ok;
  if (!ok) {
    const std::string reason = out->geterror();
    std::remove(temporary.c_str());
    throw std::runtime_error("cannot write '" + path + "': " + reason);
  }
  std::error_code error;
  std::filesystem::rename(temporary, path, error);
  if (error) {
    std::remove(temporary.c_str());
    throw std::runtime_error("cannot write '" + path + "': " + error.message());
  }
}

}  // namespace

FloatImage readImage(const std::string& path) {
  auto in = OIIO::ImageInput::open(path);
  if (!in) throw std::runtime_error("cannot read image '" + path + "': " + OIIO::geterror());
  const OIIO::ImageSpec& header = in->spec();
  const int channels = header.nchannels;
  if (header.width <= 0 || header.height <= 0 || channels <= 0)
    throw std::runtime_error("image '" + path + "' is empty");
  std::vector<float> raw(size_t(header.width) * size_t(header.height) * size_t(channels));
  if (!in->read_image(0, 0, 0, channels, OIIO::TypeDesc::FLOAT, raw.data()))
    throw std::runtime_error("cannot read image '" + path + "': " + in->geterror());
  // Integer formats hold display (sRGB) values unless they say otherwise;
  // float formats are linear.
  const std::string colorSpace = header.get_string_attribute("oiio:ColorSpace");
  const bool encoded = !header.format.is_floating_point() && colorSpace != "Linear" && colorSpace != "linear";
  const int alphaChannel = header.alpha_channel >= 0 ? header.alpha_channel : (channels == 4 || channels == 2 ? channels - 1 : -1);
  FloatImage image;
  image.width = header.width;
  image.height = header.height;
  image.rgba.resize(size_t(header.width) * size_t(header.height) * 4);
  for (size_t i = 0; i < size_t(header.width) * size_t(header.height); ++i) {
    const float* src = &raw[i * size_t(channels)];
    float* dst = &image.rgba[i * 4];
    const int colourChannels = alphaChannel >= 0 ? channels - 1 : channels;
    for (int c = 0; c < 3; ++c) {
      const float v = src[colourChannels >= 3 ? c : 0];
      dst[c] = encoded ? srgbDecode(v) : v;
    }
    dst[3] = alphaChannel >= 0 ? src[alphaChannel] : 1.0f;
  }
  return image;
}

void writeDisplayImage(const std::string& path, const ByteImage& image) {
  OIIO::ImageSpec format(image.width, image.height, 3, OIIO::TypeDesc::UINT8);
  format.attribute("oiio:ColorSpace", "sRGB");
  writeThroughTemporary(path, format, OIIO::TypeDesc::UINT8, image.rgb.data());
}

void writeFloatImage(const std::string& path, const FloatImage& image) {
  OIIO::ImageSpec format(image.width, image.height, 4, OIIO::TypeDesc::FLOAT);
  format.channelnames = {"R", "G", "B", "A"};
  format.alpha_channel = 3;
  format.attribute("oiio:ColorSpace", "Linear");
  writeThroughTemporary(path, format, OIIO::TypeDesc::FLOAT, image.rgba.data());
}

bool isDisplayFormat(const std::string& path) {
  const std::string ext = lowerExtension(path);
  return ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".tif" || ext == ".tiff" || ext == ".bmp";
}

float srgbEncode(float v) { return v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f; }

uint8_t toByte(float value) {
  if (!(value > 0.0f)) return 0;
  if (value >= 1.0f) return 255;
  return static_cast<uint8_t>(value * 255.0f + 0.5f);
}

}  // namespace kvi::render
