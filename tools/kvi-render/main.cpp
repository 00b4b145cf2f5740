// kvi-render: renders scenes with the shaders of a kvi module.
//
//   kvi-render                      the built-in showcase to render.png
//   kvi-render --scene FILE         a JSON scene (docs/scene-format.md)
//   kvi-render --gallery DIR        one labelled tile per shader and DIR/gallery.png
//   kvi-render --print-scene        the showcase's JSON, a start for scenes of one's own
//
// Exit codes: 0 success, 1 usage error, 2 a scene, module or output problem.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "kvi/host/module.h"
#include "render/gallery.h"
#include "render/renderer.h"
#include "render/scene_loader.h"
#include "render/showcase.h"

namespace {

using kvi::render::RenderOptions;

struct Options {
  std::string scene;
  std::string output = "render.png";
  std::string gallery;
  std::string library;
  int width = 0, height = 0, spp = 0, threads = 0;
  long long seed = -1;
  bool profile = false;
  bool quiet = false;
  bool printScene = false;
};

// A bar on stderr redrawn in place when stderr is a terminal; nothing
// otherwise (the closing line still reports).
std::function<void(double)> progressBar(const std::string& label, bool quiet) {
  if (quiet || !isatty(STDERR_FILENO)) return nullptr;
  auto start = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
  return [label, start](double done) {
    constexpr int kWidth = 40;
    const int filled = int(done * kWidth + 0.5);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - *start).count();
    std::string bar(size_t(filled), '#');
    bar.resize(kWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%% %6.1f s", label.c_str(), bar.c_str(), int(done * 100.0 + 0.5), elapsed);
    if (done >= 1.0) std::fprintf(stderr, "\r%*s\r", int(label.size()) + kWidth + 20, "");
    std::fflush(stderr);
  };
}

// The CLI's overrides of the scene's render settings.
void applyOverrides(nlohmann::json& scene, const Options& o) {
  nlohmann::json& render = scene["render"];
  if (!render.is_object()) render = nlohmann::json::object();
  if (o.width > 0) render["width"] = o.width;
  if (o.height > 0) render["height"] = o.height;
  if (o.spp > 0) render["spp"] = o.spp;
  if (o.seed >= 0) render["seed"] = o.seed;
}

int renderScene(const Options& o, std::shared_ptr<const kvi::render::ShaderLibrary> library) {
  nlohmann::json document;
  std::string label, base = ".";
  if (o.scene.empty()) {
    document = kvi::render::showcaseScene(*library);
    label = "<built-in showcase>";
  } else {
    document = kvi::render::readSceneDocument(o.scene);
    label = o.scene;
    const std::string parent = std::filesystem::path(o.scene).parent_path().string();
    if (!parent.empty()) base = parent;
  }
  applyOverrides(document, o);
  if (o.printScene) {
    std::cout << document.dump(2) << "\n";
    return 0;
  }
  auto scene = kvi::render::loadScene(document, label, base, library);
  RenderOptions options;
  options.threads = o.threads;
  options.profile = o.profile;
  options.progress = progressBar("rendering", o.quiet);
  const auto result = kvi::render::render(*scene, options);
  kvi::render::writeFilm(o.output, result.film, *scene);
  if (!o.quiet) std::cout << kvi::render::summary(result, *scene) << " -> " << o.output << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"kvi-render: renders scenes with the shaders of a kvi module"};
  Options o;
  app.add_option("--scene", o.scene, "JSON scene to render (default: the built-in showcase)");
  app.add_option("--output,-o", o.output, "Picture to write: .png (tone mapped) or .exr (linear, with alpha)");
  app.add_option("--gallery", o.gallery, "Render one labelled tile per shader into DIR, and DIR/gallery.png");
  app.add_option("--width", o.width, "Image width in pixels")->check(CLI::Range(1, 16384));
  app.add_option("--height", o.height, "Image height in pixels")->check(CLI::Range(1, 16384));
  app.add_option("--spp", o.spp, "Samples per pixel")->check(CLI::Range(1, 1 << 20));
  app.add_option("--seed", o.seed, "Seed of the sample streams")->check(CLI::Range(0LL, 4294967295LL));
  app.add_option("--threads", o.threads, "Threads to render with (default: every core)")->check(CLI::Range(1, 4096));
  app.add_option("--library", o.library, "The shader module (default: the one installed beside kvi-render)");
  app.add_flag("--profile", o.profile, "Report the time spent in shader calls and in ray casting");
  app.add_flag("--quiet,-q", o.quiet, "No progress bar and no closing line");
  app.add_flag("--print-scene", o.printScene, "Print the scene's JSON (the built-in showcase's, by default) instead of rendering");
  app.get_formatter()->column_width(30);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 1;
  }
  if (!o.gallery.empty() && !o.scene.empty()) {
    std::cerr << "kvi-render: --gallery and --scene cannot be used together\n";
    return 1;
  }
  try {
    const std::string path = o.library.empty() ? kvi::host::defaultModulePath() : o.library;
    auto library = std::make_shared<const kvi::render::ShaderLibrary>(path);
    if (!o.gallery.empty()) {
      kvi::render::GalleryOptions g;
      g.directory = o.gallery;
      g.threads = o.threads;
      if (o.width > 0) g.tileSize = o.width;
      if (o.spp > 0) g.samplesPerPixel = o.spp;
      if (o.seed >= 0) g.seed = uint32_t(o.seed);
      g.progress = progressBar("gallery", o.quiet);
      const std::string report = kvi::render::renderGallery(library, g);
      if (!o.quiet) std::cout << report << "\n";
      return 0;
    }
    return renderScene(o, library);
  } catch (const std::exception& e) {
    std::cerr << "kvi-render: " << e.what() << "\n";
    return 2;
  }
}
