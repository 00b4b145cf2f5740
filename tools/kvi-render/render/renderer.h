// Rendering a scene into a film on all cores, and turning the film into
// pictures.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "render/images.h"
#include "render/scene.h"
#include "render/stats.h"

namespace kvi::render {

// A rectangle of pixels: columns x0 to x1 - 1, rows y0 to y1 - 1.
struct PixelRegion {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;

  int width() const { return x1 - x0; }
  int height() const { return y1 - y0; }
  bool empty() const { return x1 <= x0 || y1 <= y0; }
  bool operator==(const PixelRegion&) const = default;
};

// Samples first to first + count - 1 of every pixel. Sample i of a pixel is
// the same wherever and in whichever part it is rendered (its stream depends
// only on the seed, the pixel and i), so parts of a frame merge into the
// picture one render of all the samples makes.
struct SampleRange {
  int first = 0;
  int count = 0;
};

// The k-th of n bands of rows of a region (k from 1 to n), as even as whole
// rows allow; empty when n exceeds the region's height.
PixelRegion tileOf(const PixelRegion& region, int k, int n);
// The k-th of n shares of spp samples per pixel (k from 1 to n).
SampleRange shareOf(int samplesPerPixel, int k, int n);

// The mean radiance and alpha of each pixel of a region of the picture.
struct Film {
  int width = 0;             // of the region
  int height = 0;
  int x0 = 0, y0 = 0;        // where the region sits in the whole picture
  int fullWidth = 0, fullHeight = 0;
  SampleRange samples;       // the samples of each pixel the means are over
  uint32_t seed = 0;
  std::vector<float> rgba;   // means, row by row from the top

  // By the region's own coordinates.
  const float* pixel(int x, int y) const { return &rgba[(size_t(y) * size_t(width) + size_t(x)) * 4]; }
};

struct TracedRay;

struct RenderOptions {
  int threads = 0;       // 0: every core
  bool profile = false;  // sample how the time splits between shaders, rays and the rest
  PixelRegion region;    // empty: the whole picture
  SampleRange samples;   // count 0: every sample of the scene's spp
  // Set (from a signal handler, say) to stop: the render returns as soon as
  // the threads notice, with `interrupted` set and an incomplete film.
  const std::atomic<bool>* interrupt = nullptr;
  // Called now and then with the share of pixels done (0 to 1), from any
  // thread, never twice at once.
  std::function<void(double)> progress;
  // When set, every ray the render traces is appended here (benchmarks
  // replay them through Embree alone); needs threads = 1.
  std::vector<TracedRay>* rayLog = nullptr;
};

struct RenderResult {
  Film film;
  RenderStats stats;
  double seconds = 0.0;
  bool interrupted = false;
};

RenderResult render(const Scene& scene, const RenderOptions& options = {});

// The film through the scene's tone mapper: with tone mapping of type 1 its
// result is the display colour; otherwise the linear colour is encoded as
// sRGB.
ByteImage displayImage(const Film& film, const Scene& scene);
// The film's linear colour and alpha.
FloatImage linearImage(const Film& film);

// Writes the film to a file, display or float by the extension (through a
// temporary file, nothing left behind on failure). Float pictures keep the
// region's place in the whole picture (the data window) and carry the
// sample range and seed as attributes (kvi:samples, kvi:firstSample,
// kvi:seed), which a merge of parts needs.
void writeFilm(const std::string& path, const Film& film, const Scene& scene);

// The closing summary: what was rendered, time, samples per second, rays per
// second and, when profiled, the split of the time.
std::string summary(const RenderResult& result, const Scene& scene);
// Lines about samples that were not used as they came (NaN, infinite or
// negative), one per kind; empty when every sample was fine.
std::string sampleWarnings(const RenderStats& stats);

}  // namespace kvi::render
