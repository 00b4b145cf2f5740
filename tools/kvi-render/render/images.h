// Reading pictures and writing results with OpenImageIO.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvi::render {

// Which samples of each pixel a rendered picture's values are means over,
// kept in a float picture's attributes kvi:samples (the count),
// kvi:firstSample and kvi:seed so that parts of one frame can be merged.
struct SampleAttributes {
  int first = 0;
  int count = 0;
  uint32_t seed = 0;
};

// A float RGBA picture, row by row from the top row. It may be a window
// (the data window) of a larger picture: its top left pixel is pixel
// (x0, y0) of a picture fullWidth x fullHeight (0: the window's own size).
struct FloatImage {
  int width = 0;
  int height = 0;
  std::vector<float> rgba;
  int x0 = 0, y0 = 0;
  int fullWidth = 0, fullHeight = 0;
  std::optional<SampleAttributes> samples;

  FloatImage() = default;
  FloatImage(int w, int h, std::vector<float> pixels) : width(w), height(h), rgba(std::move(pixels)) {}

  float* pixel(int x, int y) { return &rgba[(size_t(y) * size_t(width) + size_t(x)) * 4]; }
  const float* pixel(int x, int y) const { return &rgba[(size_t(y) * size_t(width) + size_t(x)) * 4]; }
};

// An 8-bit RGB picture, row by row from the top row.
struct ByteImage {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;

  ByteImage() = default;
  ByteImage(int w, int h, uint8_t fill = 0) : width(w), height(h), rgb(size_t(w) * size_t(h) * 3, fill) {}
  uint8_t* pixel(int x, int y) { return &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3]; }
  const uint8_t* pixel(int x, int y) const { return &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3]; }
};

// Reads any format OpenImageIO knows (PNG, JPEG, EXR, HDR, ...) as linear
// float RGBA: 8- and 16-bit sRGB-encoded files are decoded to linear, a grey
// picture fills red, green and blue, a missing alpha is 1; the data window
// and the sample attributes come along. Throws std::runtime_error with a
// one-line reason when the file cannot be read, and before allocating when
// its header claims more than kMaxImagePixels pixels or kMaxImageSide on a
// side.
FloatImage readImage(const std::string& path);
constexpr int kMaxImageSide = 65536;
constexpr long long kMaxImagePixels = 1LL << 27;  // a 16384 x 8192 environment

// Writes through a temporary file in the same folder renamed into place, so
// that a failed write leaves no partial file. Display formats (PNG, JPEG, ...): 8-bit RGB. Throws
// std::runtime_error with the reason on failure.
void writeDisplayImage(const std::string& path, const ByteImage& image);
// EXR or HDR: 32-bit float RGBA (RGB where the format has no alpha, as
// HDR), with the data window and the sample attributes where the format
// keeps them.
void writeFloatImage(const std::string& path, const FloatImage& image);

// True when the path names a file format written as 8-bit display colours
// (.png, .jpg, .jpeg, .tif, .tiff, .bmp); false for float formats (.exr, .hdr).
bool isDisplayFormat(const std::string& path);

// Checks, before any work is done, that a picture can be written at the
// path: a format named by its extension and known to the writer, a folder
// that exists and takes new files. Throws std::runtime_error with a
// one-line reason naming the path.
void checkPicturePath(const std::string& path);
// The same for a folder that pictures will be written into; it may not
// exist yet, but then it must be possible to create it.
void checkPictureFolder(const std::string& folder);
// Whether the format of the path keeps an alpha channel (EXR does, HDR does not).
bool formatKeepsAlpha(const std::string& path);

float srgbEncode(float linear);
uint8_t toByte(float value);  // [0, 1] to 0..255, rounded; NaN gives 0

}  // namespace kvi::render
