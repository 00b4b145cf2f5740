// Rendering a scene into a film on all cores, and turning the film into
// pictures.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "render/images.h"
#include "render/scene.h"
#include "render/stats.h"

namespace kvi::render {

// The mean radiance and alpha of each pixel.
struct Film {
  int width = 0;
  int height = 0;
  std::vector<float> rgba;  // means, row by row from the top

  const float* pixel(int x, int y) const { return &rgba[(size_t(y) * size_t(width) + size_t(x)) * 4]; }
};

struct RenderOptions {
  int threads = 0;       // 0: every core
  bool profile = false;  // sample how the time splits between shaders, rays and the rest
  // Called now and then with the share of pixels done (0 to 1), from any
  // thread, never twice at once.
  std::function<void(double)> progress;
};

struct RenderResult {
  Film film;
  RenderStats stats;
  double seconds = 0.0;
};

RenderResult render(const Scene& scene, const RenderOptions& options = {});

// The film through the scene's tone mapper: with tone mapping of type 1 its
// result is the display colour; otherwise the linear colour is encoded as
// sRGB.
ByteImage displayImage(const Film& film, const Scene& scene);
// The film's linear colour and alpha.
FloatImage linearImage(const Film& film);

// Writes the film to a file, display or float by the extension (through a
// temporary file, nothing left behind on failure).
void writeFilm(const std::string& path, const Film& film, const Scene& scene);

// The closing summary: time, samples per second, rays per second,
// non-finite samples and, when profiled, the split of the time.
std::string summary(const RenderResult& result, const Scene& scene);

}  // namespace kvi::render
