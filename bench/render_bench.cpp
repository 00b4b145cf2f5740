// The reference renderer's speed against Embree's own: incoherent rays traced
// by Embree alone in a scene, the render's own rays traced again by Embree
// alone, and the same scene path traced by kvi-render (rays per second per
// thread, counted as the renderer counts them). Their ratio says how much of
// the renderer's time the rest of its work takes.
//
//   build/bin/kvi-render-bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <memory>
#include <random>

#include "render/renderer.h"
#include "render/sampling.h"
#include "render/scene_loader.h"
#include "render/showcase.h"
#include "render/tracer.h"

namespace {

using namespace kvi::render;

std::shared_ptr<const ShaderLibrary> library() {
  static auto shared = std::make_shared<const ShaderLibrary>(KVI_BENCH_MODULE_PATH);
  return shared;
}

// A scene of scenes/, or the built-in showcase for "showcase".
std::unique_ptr<Scene> sceneFile(const char* name) {
  if (std::string(name) == "showcase") return loadScene(showcaseScene(*library()), "showcase", "", library());
  return loadSceneFile(std::string(KVI_SOURCE_DIR) + "/scenes/" + name, library());
}

// Rays from random points of the scene's bounding sphere in random
// directions, closest hits without any filtering.
void embreeAlone(benchmark::State& state, const char* file) {
  auto scene = sceneFile(file);
  Tracer tracer(*scene);
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  auto randomDirection = [&] {
    for (;;) {
      const Vec3 d{unit(rng), unit(rng), unit(rng)};
      const float l = length(d);
      if (l > 0.1f && l <= 1.0f) return d / l;
    }
  };
  std::vector<std::pair<Vec3, Vec3>> rays(1 << 16);
  for (auto& r : rays) r = {tracer.boundsCentre() + randomDirection() * (0.5f * tracer.boundsRadius()), randomDirection()};
  size_t i = 0, hits = 0;
  for (auto _ : state) {
    HitRecord hit;
    const auto& r = rays[i++ & (rays.size() - 1)];
    hits += tracer.intersect(r.first, r.second, 1e30f, nullptr, hit);
  }
  benchmark::DoNotOptimize(hits);
  state.counters["rays/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// The size the scenes are path traced at.
void benchmarkSize(Scene& scene) {
  scene.settings.width = 96;
  scene.settings.height = 96;
  scene.settings.samplesPerPixel = 8;
}

// The rays a path traced render hands to Embree (closest hits and shadow
// queries, in the renderer's order), traced again by Embree alone without
// the renderer's hit filters: what the render's rays cost Embree itself.
void embreeOnTheRendersRays(benchmark::State& state, const char* file) {
  auto scene = sceneFile(file);
  benchmarkSize(*scene);
  std::vector<TracedRay> rays;
  RenderOptions options;
  options.threads = 1;
  options.rayLog = &rays;
  render(*scene, options);
  if (rays.empty()) return state.SkipWithError("the render traced no rays");
  Tracer tracer(*scene);
  size_t i = 0, hits = 0;
  for (auto _ : state) {
    const TracedRay& r = rays[i++ % rays.size()];
    HitRecord hit;
    hits += r.shadow ? tracer.occluded(r.origin, r.direction, r.tfar, nullptr)
                     : tracer.intersect(r.origin, r.direction, r.tfar, nullptr, hit);
  }
  benchmark::DoNotOptimize(hits);
  state.counters["rays/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// The scene path traced on one thread at a small size.
void pathTraced(benchmark::State& state, const char* file) {
  auto scene = sceneFile(file);
  benchmarkSize(*scene);
  RenderOptions options;
  options.threads = 1;
  uint64_t rays = 0, samples = 0;
  for (auto _ : state) {
    const RenderResult result = render(*scene, options);
    rays += result.stats.rays();
    samples += result.stats.samples;
  }
  state.counters["rays/s"] = benchmark::Counter(double(rays), benchmark::Counter::kIsRate);
  state.counters["samples/s"] = benchmark::Counter(double(samples), benchmark::Counter::kIsRate);
}

// The cost of the sample streams, per number pair and per number.
void samples2D(benchmark::State& state) {
  uint32_t index = 0;
  float sink = 0.0f;
  for (auto _ : state) {
    SampleStream stream(1, 77, index++);
    float u[2];
    for (int k = 0; k < 16; ++k) {
      stream.next2D(u);
      sink += u[0] + u[1];
    }
  }
  benchmark::DoNotOptimize(sink);
  state.SetItemsProcessed(int64_t(state.iterations()) * 16);
}
void samples1D(benchmark::State& state) {
  uint32_t index = 0;
  float sink = 0.0f;
  for (auto _ : state) {
    SampleStream stream(1, 77, index++);
    for (int k = 0; k < 16; ++k) sink += stream.next1D();
  }
  benchmark::DoNotOptimize(sink);
  state.SetItemsProcessed(int64_t(state.iterations()) * 16);
}
BENCHMARK(samples2D);
BENCHMARK(samples1D);

BENCHMARK_CAPTURE(embreeAlone, cornell_box, "cornell_box.json");
BENCHMARK_CAPTURE(embreeOnTheRendersRays, cornell_box, "cornell_box.json");
BENCHMARK_CAPTURE(pathTraced, cornell_box, "cornell_box.json")->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(embreeAlone, showcase, "showcase");
BENCHMARK_CAPTURE(embreeOnTheRendersRays, showcase, "showcase");
BENCHMARK_CAPTURE(pathTraced, showcase, "showcase")->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(embreeAlone, basic, "basic.json");
BENCHMARK_CAPTURE(embreeOnTheRendersRays, basic, "basic.json");
BENCHMARK_CAPTURE(pathTraced, basic, "basic.json")->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
