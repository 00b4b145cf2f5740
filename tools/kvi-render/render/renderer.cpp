#include "render/renderer.h"

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>

#include "kvi/host/tone_mapper.h"
#include "render/integrator.h"
#include "render/tracer.h"

namespace kvi::render {
namespace {

constexpr int kTileSize = 16;

struct ThreadData {
  RenderStats stats;
  std::vector<std::vector<LightSample>> lightLists;
};

}  // namespace

PixelRegion tileOf(const PixelRegion& region, int k, int n) {
  const auto row = [&](int i) { return region.y0 + int((long long)region.height() * i / n); };
  return {region.x0, row(k - 1), region.x1, row(k)};
}

SampleRange shareOf(int samplesPerPixel, int k, int n) {
  const auto start = [&](int i) { return int((long long)samplesPerPixel * i / n); };
  return {start(k - 1), start(k) - start(k - 1)};
}

namespace {

// Adds one sample to a pixel's sums. A NaN or infinite sample adds nothing
// (it counts as black), so that the pixel's mean stays over all of its
// samples and parts of a frame merge exactly by their sample counts. A
// negative sample is added as it is: clamping would brighten the mean, and
// backgrounds that compensate the tone mapper write negative radiance on
// purpose. Both are counted; negative ones only where the camera ray met a
// surface, since a background seen directly may be negative by design.
void accumulate(Vec3 c, float alpha, bool cameraRayHit, double sum[4], RenderStats& stats) {
  if (!isFinite(c) || !std::isfinite(alpha)) {
    ++stats.nonFiniteSamples;
    return;
  }
  if (cameraRayHit && (c.x < 0.0f || c.y < 0.0f || c.z < 0.0f)) ++stats.negativeSamples;
  sum[0] += c.x;
  sum[1] += c.y;
  sum[2] += c.z;
  sum[3] += alpha;
}

}  // namespace

RenderResult render(const Scene& scene, const RenderOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  const RenderSettings& settings = scene.settings;
  Tracer tracer(scene);
  if (options.rayLog && options.threads == 1) tracer.logRays(options.rayLog);
  Integrator integrator(scene, tracer);

  const PixelRegion region =
      options.region.empty() ? PixelRegion{0, 0, settings.width, settings.height} : options.region;
  const SampleRange samples = options.samples.count > 0 ? options.samples : SampleRange{0, settings.samplesPerPixel};
  RenderResult result;
  Film& film = result.film;
  film.width = region.width();
  film.height = region.height();
  film.x0 = region.x0;
  film.y0 = region.y0;
  film.fullWidth = settings.width;
  film.fullHeight = settings.height;
  film.samples = samples;
  film.seed = settings.seed;
  film.rgba.assign(size_t(film.width) * size_t(film.height) * 4, 0.0f);

  const int tilesX = (film.width + kTileSize - 1) / kTileSize;
  const int tilesY = (film.height + kTileSize - 1) / kTileSize;
  const int tiles = tilesX * tilesY;
  std::unique_ptr<tbb::global_control> limit;
  if (options.threads > 0)
    limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, size_t(options.threads));

  tbb::enumerable_thread_specific<ThreadData> threads;
  std::unique_ptr<Profiler> profiler;
  if (options.profile) profiler = std::make_unique<Profiler>();
  std::atomic<long long> pixelsDone{0};
  std::atomic<bool> stopped{false};
  std::mutex progressMutex;
  const long long pixelCount = (long long)film.width * film.height;
  auto interrupted = [&] {
    if (options.interrupt && options.interrupt->load(std::memory_order_relaxed)) stopped = true;
    return stopped.load(std::memory_order_relaxed);
  };

  tbb::parallel_for(tbb::blocked_range<int>(0, tiles, 1), [&](const tbb::blocked_range<int>& range) {
    ThreadData& data = threads.local();
    TimeScope rendering(TimeCategory::Host);  // outside a task a thread is idle
    for (int tile = range.begin(); tile != range.end(); ++tile) {
      // Film coordinates of the tile; the camera and the sample streams
      // take the pixel's place in the whole picture.
      const int fx0 = (tile % tilesX) * kTileSize, fy0 = (tile / tilesX) * kTileSize;
      const int fx1 = std::min(film.width, fx0 + kTileSize), fy1 = std::min(film.height, fy0 + kTileSize);
      for (int fy = fy0; fy < fy1; ++fy)
        for (int fx = fx0; fx < fx1; ++fx) {
          if (interrupted()) return;
          const int x = region.x0 + fx, y = region.y0 + fy;
          double sum[4] = {0, 0, 0, 0};
          const uint32_t pixel = uint32_t(y) * uint32_t(settings.width) + uint32_t(x);
          for (int s = samples.first; s < samples.first + samples.count; ++s) {
            PathState path;
            path.stream = SampleStream(settings.seed, pixel, uint32_t(s));
            path.stats = &data.stats;
            path.lightLists = &data.lightLists;
            float alpha = 0.0f;
            const Vec3 c = integrator.cameraSample(x, y, path, alpha);
            ++data.stats.samples;
            accumulate(c, alpha, path.cameraRayHit, sum, data.stats);
          }
          float* out = &film.rgba[(size_t(fy) * size_t(film.width) + size_t(fx)) * 4];
          for (int k = 0; k < 4; ++k) out[k] = float(sum[k] / samples.count);
        }
      const long long done = pixelsDone += (long long)(fx1 - fx0) * (fy1 - fy0);
      if (options.progress && progressMutex.try_lock()) {
        options.progress(double(done) / double(pixelCount));
        progressMutex.unlock();
      }
    }
  });
  for (ThreadData& data : threads) result.stats.add(data.stats);
  if (profiler) profiler->read(result.stats.profileSamples);
  result.interrupted = stopped;
  if (options.progress && !result.interrupted) options.progress(1.0);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

ByteImage displayImage(const Film& film, const Scene& scene) {
  const host::ToneMapSettings settings = cameraToneMapSettings(scene);
  const bool toneMapped = settings.enabled && settings.type == 1;
  ByteImage image(film.width, film.height);
  for (int y = 0; y < film.height; ++y)
    for (int x = 0; x < film.width; ++x) {
      // The tone mapper's vignetting sees the pixel's place in the whole picture.
      float c[3];
      host::toneMap(settings, c, film.pixel(x, y), float(film.x0 + x) + 0.5f, float(film.y0 + y) + 0.5f,
                    film.fullWidth, film.fullHeight);
      uint8_t* out = image.pixel(x, y);
      for (int k = 0; k < 3; ++k) out[k] = toByte(toneMapped ? c[k] : srgbEncode(c[k]));
    }
  return image;
}

FloatImage linearImage(const Film& film) {
  FloatImage image{film.width, film.height, film.rgba};
  image.x0 = film.x0;
  image.y0 = film.y0;
  image.fullWidth = film.fullWidth;
  image.fullHeight = film.fullHeight;
  image.samples = SampleAttributes{film.samples.first, film.samples.count, film.seed};
  return image;
}

void writeFilm(const std::string& path, const Film& film, const Scene& scene) {
  if (isDisplayFormat(path))
    writeDisplayImage(path, displayImage(film, scene));
  else
    writeFloatImage(path, linearImage(film));
}

std::string summary(const RenderResult& r, const Scene& scene) {
  const Film& f = r.film;
  char line[512];
  std::string what = std::to_string(f.fullWidth) + "x" + std::to_string(f.fullHeight);
  if (f.width != f.fullWidth || f.height != f.fullHeight)
    what = "pixels " + std::to_string(f.x0) + "," + std::to_string(f.y0) + " to " + std::to_string(f.x0 + f.width) +
           "," + std::to_string(f.y0 + f.height) + " of " + what;
  if (f.samples.count != scene.settings.samplesPerPixel)
    what += " at samples " + std::to_string(f.samples.first) + " to " +
            std::to_string(f.samples.first + f.samples.count - 1) + " of " +
            std::to_string(scene.settings.samplesPerPixel) + " spp";
  else
    what += " at " + std::to_string(f.samples.count) + " spp";
  const double s = std::max(r.seconds, 1e-9);
  std::snprintf(line, sizeof line, "rendered %s in %.2f s: %.3g samples/s, %.3g rays/s (%.1f rays per sample)",
                what.c_str(), r.seconds, double(r.stats.samples) / s, double(r.stats.rays()) / s,
                r.stats.samples ? double(r.stats.rays()) / double(r.stats.samples) : 0.0);
  std::string text = line;
  const uint64_t* p = r.stats.profileSamples;
  const uint64_t total = p[0] + p[1] + p[2];
  if (total > 0) {
    std::snprintf(line, sizeof line,
                  "; time in shader calls %.1f%%, ray casting %.1f%%, renderer %.1f%% (%llu profile samples, "
                  "%llu shader calls)",
                  100.0 * double(p[1]) / double(total), 100.0 * double(p[2]) / double(total),
                  100.0 * double(p[0]) / double(total), (unsigned long long)total,
                  (unsigned long long)r.stats.shaderCalls);
    text += line;
  }
  return text;
}

std::string sampleWarnings(const RenderStats& stats) {
  std::string text;
  const auto line = [&](uint64_t count, const char* what) {
    if (count == 0) return;
    if (!text.empty()) text += "\n";
    text += std::to_string(count) + " of " + std::to_string(stats.samples) + " samples " + what;
  };
  line(stats.nonFiniteSamples, "were NaN or infinite; they count as black");
  line(stats.negativeSamples, "of surfaces were negative (kept in the mean)");
  return text;
}

}  // namespace kvi::render
