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

RenderResult render(const Scene& scene, const RenderOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  const RenderSettings& settings = scene.settings;
  Tracer tracer(scene);
  Integrator integrator(scene, tracer);

  RenderResult result;
  result.film.width = settings.width;
  result.film.height = settings.height;
  result.film.rgba.assign(size_t(settings.width) * size_t(settings.height) * 4, 0.0f);

  const int tilesX = (settings.width + kTileSize - 1) / kTileSize;
  const int tilesY = (settings.height + kTileSize - 1) / kTileSize;
  const int tiles = tilesX * tilesY;
  std::unique_ptr<tbb::global_control> limit;
  if (options.threads > 0)
    limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, size_t(options.threads));

  tbb::enumerable_thread_specific<ThreadData> threads;
  std::unique_ptr<Profiler> profiler;
  if (options.profile) profiler = std::make_unique<Profiler>();
  std::atomic<long long> pixelsDone{0};
  std::mutex progressMutex;
  const long long pixelCount = (long long)settings.width * settings.height;

  tbb::parallel_for(tbb::blocked_range<int>(0, tiles, 1), [&](const tbb::blocked_range<int>& range) {
    ThreadData& data = threads.local();
    TimeScope rendering(TimeCategory::Host);  // outside a task a thread is idle
    for (int tile = range.begin(); tile != range.end(); ++tile) {
      const int x0 = (tile % tilesX) * kTileSize, y0 = (tile / tilesX) * kTileSize;
      const int x1 = std::min(settings.width, x0 + kTileSize), y1 = std::min(settings.height, y0 + kTileSize);
      for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
          double sum[4] = {0, 0, 0, 0};
          int kept = 0;
          const uint32_t pixel = uint32_t(y) * uint32_t(settings.width) + uint32_t(x);
          for (int s = 0; s < settings.samplesPerPixel; ++s) {
            PathState path;
            path.stream = SampleStream(settings.seed, pixel, uint32_t(s));
            path.stats = &data.stats;
            path.lightLists = &data.lightLists;
            float alpha = 0.0f;
            const Vec3 c = integrator.cameraSample(x, y, path, alpha);
            ++data.stats.samples;
            if (!isFinite(c) || !std::isfinite(alpha)) {
              ++data.stats.nonFiniteSamples;
              continue;
            }
            sum[0] += c.x;
            sum[1] += c.y;
            sum[2] += c.z;
            sum[3] += alpha;
            ++kept;
          }
          float* out = &result.film.rgba[size_t(pixel) * 4];
          for (int k = 0; k < 4; ++k) out[k] = kept > 0 ? float(sum[k] / kept) : 0.0f;
        }
      const long long done = pixelsDone += (long long)(x1 - x0) * (y1 - y0);
      if (options.progress && progressMutex.try_lock()) {
        options.progress(double(done) / double(pixelCount));
        progressMutex.unlock();
      }
    }
  });
  for (ThreadData& data : threads) result.stats.add(data.stats);
  if (profiler) profiler->read(result.stats.profileSamples);
  if (options.progress) options.progress(1.0);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

ByteImage displayImage(const Film& film, const Scene& scene) {
  const host::ToneMapSettings settings = cameraToneMapSettings(scene);
  const bool toneMapped = settings.enabled && settings.type == 1;
  ByteImage image(film.width, film.height);
  for (int y = 0; y < film.height; ++y)
    for (int x = 0; x < film.width; ++x) {
      float c[3];
      host::toneMap(settings, c, film.pixel(x, y), float(x) + 0.5f, float(y) + 0.5f, film.width, film.height);
      uint8_t* out = image.pixel(x, y);
      for (int k = 0; k < 3; ++k) out[k] = toByte(toneMapped ? c[k] : srgbEncode(c[k]));
    }
  return image;
}

FloatImage linearImage(const Film& film) { return FloatImage{film.width, film.height, film.rgba}; }

void writeFilm(const std::string& path, const Film& film, const Scene& scene) {
  if (isDisplayFormat(path))
    writeDisplayImage(path, displayImage(film, scene));
  else
    writeFloatImage(path, linearImage(film));
}

std::string summary(const RenderResult& r, const Scene& scene) {
  char line[512];
  const double s = std::max(r.seconds, 1e-9);
  std::snprintf(line, sizeof line, "rendered %dx%d at %d spp in %.2f s: %.3g samples/s, %.3g rays/s (%.1f rays per sample)",
                scene.settings.width, scene.settings.height, scene.settings.samplesPerPixel, r.seconds,
                double(r.stats.samples) / s, double(r.stats.rays()) / s,
                r.stats.samples ? double(r.stats.rays()) / double(r.stats.samples) : 0.0);
  std::string text = line;
  if (r.stats.nonFiniteSamples > 0)
    text += "; " + std::to_string(r.stats.nonFiniteSamples) + " NaN or infinite samples left out";
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

}  // namespace kvi::render
