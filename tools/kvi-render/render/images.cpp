#include "render/images.h"

#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace kvi::render {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSamplesName = "kvi:samples";
constexpr const char* kFirstSampleName = "kvi:firstSample";
constexpr const char* kSeedName = "kvi:seed";

std::string lowerExtension(const std::string& path) {
  std::string ext = fs::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

bool isFloatFormat(const std::string& path) {
  const std::string ext = lowerExtension(path);
  return ext == ".exr" || ext == ".hdr";
}

float srgbDecode(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

// The temporary name beside the final file: same folder, same extension (so
// that the writer picks the same format), hidden and unique to the process.
std::string temporaryPathFor(const std::string& path) {
  const fs::path p(path);
  std::string name = ".";
  name += p.stem().string();
  name += ".partial-";
  name += std::to_string(getpid());
  name += p.extension().string();
  return (p.parent_path() / name).string();
}

std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

// A writer's message with the temporary file's name replaced by the final one.
std::string namingTheFinalFile(std::string reason, const std::string& temporary, const std::string& path) {
  for (size_t at; (at = reason.find(temporary)) != std::string::npos;) reason.replace(at, temporary.size(), path);
  return oneLine(reason);
}

void writeThroughTemporary(const std::string& path, const OIIO::ImageSpec& format, OIIO::TypeDesc type,
                           const void* pixels, OIIO::stride_t pixelStride = OIIO::AutoStride) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) throw std::runtime_error("cannot write '" + path + "': " + OIIO::geterror());
  const std::string temporary = temporaryPathFor(path);
  bool ok = out->open(temporary, format) && out->write_image(type, pixels, pixelStride);
  ok = out->close() && ok;
  if (!ok) {
    const std::string reason = out->geterror();
    std::remove(temporary.c_str());
    throw std::runtime_error("cannot write '" + path + "': " + namingTheFinalFile(reason, temporary, path));
  }
  std::error_code error;
  fs::rename(temporary, path, error);
  if (error) {
    std::remove(temporary.c_str());
    throw std::runtime_error("cannot write '" + path + "': " + error.message());
  }
}

// While alive, the process's stderr goes nowhere: image libraries print
// their own lines there before they return an error, and the reader's
// error message already says what they said. Loading is single-threaded.
class SilencedStderr {
 public:
  SilencedStderr() {
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && null >= 0) dup2(null, STDERR_FILENO);
    if (null >= 0) close(null);
  }
  ~SilencedStderr() {
    std::fflush(stderr);
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  SilencedStderr(const SilencedStderr&) = delete;
  SilencedStderr& operator=(const SilencedStderr&) = delete;

 private:
  int saved_ = -1;
};

std::optional<SampleAttributes> sampleAttributes(const OIIO::ImageSpec& header) {
  const int count = header.get_int_attribute(kSamplesName, 0);
  if (count <= 0) return std::nullopt;
  SampleAttributes a;
  a.count = count;
  a.first = header.get_int_attribute(kFirstSampleName, 0);
  a.seed = uint32_t(std::strtoul(header.get_string_attribute(kSeedName, "0").c_str(), nullptr, 10));
  return a;
}

// Refuses a header that claims more pixels than the reader will allocate.
void checkSize(const std::string& path, const OIIO::ImageSpec& header) {
  if (header.width <= 0 || header.height <= 0 || header.nchannels <= 0)
    throw std::runtime_error("image '" + path + "' is empty");
  if (header.depth > 1) throw std::runtime_error("image '" + path + "' is a volume, not a picture");
  if (header.width > kMaxImageSide || header.height > kMaxImageSide ||
      (long long)header.width * header.height > kMaxImagePixels)
    throw std::runtime_error("image '" + path + "' claims " + std::to_string(header.width) + " x " +
                             std::to_string(header.height) + " pixels, more than the " +
                             std::to_string(kMaxImagePixels) + " (and " + std::to_string(kMaxImageSide) +
                             " per side) this renderer reads");
}

}  // namespace

FloatImage readImage(const std::string& path) {
  SilencedStderr silenced;
  std::error_code error;
  if (fs::is_directory(path, error)) throw std::runtime_error("cannot read image '" + path + "': it is a folder");
  auto in = OIIO::ImageInput::open(path);
  if (!in) throw std::runtime_error("cannot read image '" + path + "': " + oneLine(OIIO::geterror()));
  const OIIO::ImageSpec& header = in->spec();
  checkSize(path, header);
  // At most four channels are read: colour and alpha come first.
  const int channels = std::min(header.nchannels, 4);
  const size_t pixels = size_t(header.width) * size_t(header.height);
  FloatImage image;
  std::vector<float> raw;
  try {
    raw.resize(pixels * size_t(channels));
    image.rgba.resize(pixels * 4);
  } catch (const std::bad_alloc&) {
    throw std::runtime_error("not enough memory to read image '" + path + "' (" + std::to_string(header.width) +
                             " x " + std::to_string(header.height) + " pixels)");
  }
  if (!in->read_image(0, 0, 0, channels, OIIO::TypeDesc::FLOAT, raw.data()))
    throw std::runtime_error("cannot read image '" + path + "': " + oneLine(in->geterror()));
  // Integer formats hold display (sRGB) values unless they say otherwise;
  // float formats are linear.
  const std::string colorSpace = header.get_string_attribute("oiio:ColorSpace");
  const bool encoded = !header.format.is_floating_point() && colorSpace != "Linear" && colorSpace != "linear";
  int alphaChannel = header.alpha_channel >= 0 ? header.alpha_channel : (channels == 4 || channels == 2 ? channels - 1 : -1);
  if (alphaChannel >= channels) alphaChannel = -1;
  image.width = header.width;
  image.height = header.height;
  image.x0 = header.x;
  image.y0 = header.y;
  image.fullWidth = header.full_width;
  image.fullHeight = header.full_height;
  image.samples = sampleAttributes(header);
  const int colourChannels = alphaChannel >= 0 ? channels - 1 : channels;
  for (size_t i = 0; i < pixels; ++i) {
    const float* src = &raw[i * size_t(channels)];
    float* dst = &image.rgba[i * 4];
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
  const bool alpha = formatKeepsAlpha(path);
  OIIO::ImageSpec format(image.width, image.height, alpha ? 4 : 3, OIIO::TypeDesc::FLOAT);
  format.channelnames = {"R", "G", "B"};
  if (alpha) {
    format.channelnames.push_back("A");
    format.alpha_channel = 3;
  }
  format.x = image.x0;
  format.y = image.y0;
  format.full_x = 0;
  format.full_y = 0;
  format.full_width = image.fullWidth > 0 ? image.fullWidth : image.width;
  format.full_height = image.fullHeight > 0 ? image.fullHeight : image.height;
  format.attribute("oiio:ColorSpace", "Linear");
  if (image.samples) {
    format.attribute(kSamplesName, image.samples->count);
    format.attribute(kFirstSampleName, image.samples->first);
    format.attribute(kSeedName, std::to_string(image.samples->seed));
  }
  // Four floats a pixel in memory; the writer takes the first three when the
  // format has no alpha.
  writeThroughTemporary(path, format, OIIO::TypeDesc::FLOAT, image.rgba.data(), alpha ? OIIO::AutoStride : 4 * sizeof(float));
}

bool isDisplayFormat(const std::string& path) {
  const std::string ext = lowerExtension(path);
  return ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".tif" || ext == ".tiff" || ext == ".bmp";
}

bool formatKeepsAlpha(const std::string& path) {
  if (isDisplayFormat(path)) return false;
  auto out = OIIO::ImageOutput::create(path);
  return out && out->supports("alpha");
}

void checkPicturePath(const std::string& path) {
  const auto refuse = [&](const std::string& why) { throw std::runtime_error("cannot write '" + path + "': " + why); };
  if (path.empty()) throw std::runtime_error("no picture file named");
  std::error_code error;
  if (fs::is_directory(path, error)) refuse("it is a folder");
  if (!isDisplayFormat(path) && !isFloatFormat(path))
    refuse("unknown picture format '" + lowerExtension(path) +
           "' (.png, .jpg, .tif or .bmp for a tone-mapped picture, .exr or .hdr for linear colour)");
  if (!OIIO::ImageOutput::create(path)) refuse("OpenImageIO has no writer for " + lowerExtension(path) + " here");
  const fs::path folder = fs::path(path).parent_path().empty() ? fs::path(".") : fs::path(path).parent_path();
  if (!fs::is_directory(folder, error)) refuse("there is no folder '" + folder.string() + "'");
  // The folder must take the temporary file the picture is written to.
  const std::string probe = temporaryPathFor(path);
  const int fd = open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) refuse(std::strerror(errno));
  close(fd);
  std::remove(probe.c_str());
}

void checkPictureFolder(const std::string& folder) {
  std::error_code error;
  fs::path existing = folder.empty() ? fs::path(".") : fs::path(folder);
  while (!fs::exists(existing, error) && existing.has_parent_path() && existing != existing.parent_path())
    existing = existing.parent_path();
  if (!fs::exists(existing, error)) existing = ".";
  if (!fs::is_directory(existing, error))
    throw std::runtime_error("cannot write into '" + folder + "': '" + existing.string() + "' is not a folder");
  if (access(existing.c_str(), W_OK | X_OK) != 0)
    throw std::runtime_error("cannot write into '" + folder + "': " + std::strerror(errno));
}

float srgbEncode(float v) { return v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f; }

uint8_t toByte(float value) {
  if (!(value > 0.0f)) return 0;
  if (value >= 1.0f) return 255;
  return static_cast<uint8_t>(value * 255.0f + 0.5f);
}

}  // namespace kvi::render
