// The gallery: one labelled tile per shader the module offers and a contact
// sheet of them all.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "render/shader_library.h"

namespace kvi::render {

struct GalleryOptions {
  std::string directory;
  int tileSize = 160;        // pixels per side of a tile's picture
  int samplesPerPixel = 48;
  uint32_t seed = 1;
  int threads = 0;           // 0: every core
  std::function<void(double)> progress;
};

// Renders DIR/<shader>.png for every shader and DIR/gallery.png; returns a
// report: one line, plus a line for each shader that could not be rendered
// (its tile says why). Throws when the pictures cannot be written.
std::string renderGallery(std::shared_ptr<const ShaderLibrary> library, const GalleryOptions& options);

}  // namespace kvi::render
