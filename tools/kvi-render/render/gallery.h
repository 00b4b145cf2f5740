// The gallery: one labelled tile per shader the module offers and a contact
// sheet of them all.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "render/shader_library.h"
#include "render/stats.h"

namespace kvi::render {

struct GalleryOptions {
  std::string directory;
  int tileSize = 160;        // pixels per side of a tile's picture
  int samplesPerPixel = 48;
  uint32_t seed = 1;
  int threads = 0;           // 0: every core
  const std::atomic<bool>* interrupt = nullptr;  // set to stop (see RenderOptions)
  std::function<void(double)> progress;
};

struct GalleryReport {
  // One line, plus a line for each shader that could not be rendered (its
  // tile says why).
  std::string text;
  RenderStats stats;
  bool interrupted = false;  // then nothing was written
};

// Renders every tile, then writes DIR/<shader>.png for every shader and
// DIR/gallery.png, creating DIR. Throws when the pictures cannot be written.
GalleryReport renderGallery(std::shared_ptr<const ShaderLibrary> library, const GalleryOptions& options);

}  // namespace kvi::render
