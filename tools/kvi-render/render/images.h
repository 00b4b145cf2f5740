// Reading pictures and writing results with OpenImageIO.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvi::render {

// A float RGBA picture, row by row from the top row.
struct FloatImage {
  int width = 0;
  int height = 0;
  std::vector<float> rgba;

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
// picture fills red, green and blue, a missing alpha is 1. Throws
// std::runtime_error with the reason when the file cannot be read.
FloatImage readImage(const std::string& path);

// Writes through a temporary file in the same folder renamed into place, so
// that a failed write leaves no partial file. Display formats (PNG, JPEG, ...): 8-bit RGB. Throws
// std::runtime_error with the reason on failure.
void writeDisplayImage(const std::string& path, const ByteImage& image);
// EXR (or any float format by the extension): 32-bit float RGBA.
void writeFloatImage(const std::string& path, const FloatImage& image);

// True when the path names a file format written as 8-bit display colours
// (.png, .jpg, .jpeg, .tif, .bmp); false for float formats (.exr, .hdr).
bool isDisplayFormat(const std::string& path);

float srgbEncode(float linear);
uint8_t toByte(float value);  // [0, 1] to 0..255, rounded; NaN gives 0

}  // namespace kvi::render
