// Labels drawn with a small built-in bitmap font (5 x 7 glyphs with
// descenders, in 6 x 9 cells), so that pictures can carry text without a font library.
#pragma once

#include <string>

#include "render/images.h"

namespace kvi::render {

constexpr int kGlyphWidth = 6;   // advance per character, pixels at scale 1
constexpr int kGlyphHeight = 9;  // line height, pixels at scale 1

int textWidth(const std::string& text, int scale = 1);
// Draws printable ASCII (other characters as '?') with its top-left corner
// at (x, y), clipped to the image.
void drawText(ByteImage& image, int x, int y, const std::string& text, const uint8_t rgb[3], int scale = 1);
// Cuts text to fit a width, marking the cut with "..".
std::string fitText(const std::string& text, int width, int scale = 1);

}  // namespace kvi::render
