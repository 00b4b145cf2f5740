// kvi-render: renders scenes with the shaders of a kvi module.
//
//   kvi-render [SCENE.json]          a JSON scene (docs/scene-format.md); without one, the built-in showcase
//   kvi-render --gallery DIR         one labelled tile per shader and DIR/gallery.png
//   kvi-render --merge OUT PART...   merges parts of one frame rendered apart (--region, --tile, --sample-share)
//   kvi-render --print-scene         the showcase's JSON, a start for scenes of one's own
//
// Exit codes: 0 success, 2 a usage, scene, module or output problem, 130
// interrupted (Ctrl-C; nothing is written then).
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "kvi/host/module.h"
#include "render/gallery.h"
#include "render/merge.h"
#include "render/renderer.h"
#include "render/scene_loader.h"
#include "render/showcase.h"

namespace {

using kvi::render::PixelRegion;
using kvi::render::SampleRange;

constexpr int kInterruptedExit = 130;  // as a shell reports a process ended by Ctrl-C
constexpr const char* kUsage =
    "usage: kvi-render [options] [SCENE.json]\n"
    "       kvi-render --gallery DIR [options]\n"
    "       kvi-render --merge OUT.exr PART.exr...\n";

struct Options {
  std::string scene, sceneOption;
  std::string output = "render.png";
  std::string gallery;
  std::vector<std::string> merge;
  std::string library;
  std::string region, tile, sampleShare;
  int width = 0, height = 0, spp = 0, threads = 0;
  long long seed = -1;
  bool profile = false;
  bool quiet = false;
  bool printScene = false;
};

// A problem with the command line itself.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::atomic<bool> gInterrupted{false};

// Ctrl-C asks the render to stop; the handler is reset on delivery, so that a
// second Ctrl-C ends the process at once.
void onInterrupt(int) { gInterrupted.store(true); }

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

// ---- the command line ---------------------------------------------------------

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The option a user probably meant by an unknown one: the closest by edit
// distance (or the one it begins), when close enough to be a slip.
std::string closestOption(const CLI::App& app, const std::string& given) {
  std::string best;
  size_t bestDistance = std::max<size_t>(2, given.size() / 3) + 1;
  for (const CLI::Option* option : app.get_options()) {
    std::vector<std::string> names;
    for (const std::string& n : option->get_lnames()) names.push_back("--" + n);
    for (const std::string& n : option->get_snames()) names.push_back("-" + n);
    for (const std::string& name : names) {
      const size_t d = given.size() >= 4 && name.rfind(given, 0) == 0 ? 1 : editDistance(given, name);
      if (d < bestDistance) {
        bestDistance = d;
        best = name;
      }
    }
  }
  return best;
}

// Arguments CLI11 left over: unknown options and surplus scenes.
void refuseLeftovers(const CLI::App& app) {
  for (const std::string& argument : app.remaining()) {
    if (argument.size() > 1 && argument[0] == '-') {
      const std::string name = argument.substr(0, argument.find('='));
      const std::string meant = closestOption(app, name);
      throw UsageError("unknown option '" + name + "'" + (meant.empty() ? "" : " (did you mean " + meant + "?)"));
    }
    throw UsageError("one scene at a time: '" + argument + "' is one too many");
  }
}

// "K/N" with 1 <= K <= N.
std::pair<int, int> parseShare(const std::string& text, const char* option) {
  int k = 0, n = 0;
  char end = 0;
  if (std::sscanf(text.c_str(), "%d/%d%c", &k, &n, &end) != 2 || n < 1 || k < 1 || k > n)
    throw UsageError(std::string(option) + " expects K/N with 1 <= K <= N (part K of N), got '" + text + "'");
  return {k, n};
}

PixelRegion parseRegion(const std::string& text) {
  PixelRegion r;
  char end = 0;
  if (std::sscanf(text.c_str(), "%d,%d,%d,%d%c", &r.x0, &r.y0, &r.x1, &r.y1, &end) != 4 || r.x0 < 0 || r.y0 < 0 ||
      r.empty())
    throw UsageError("--region expects x0,y0,x1,y1 (columns x0 to x1 - 1, rows y0 to y1 - 1), got '" + text + "'");
  return r;
}

// The pixels and samples this run renders, from --region, --tile and
// --sample-share, checked against the scene's picture.
kvi::render::RenderOptions partOfFrame(const Options& o, const kvi::render::RenderSettings& settings) {
  kvi::render::RenderOptions options;
  const PixelRegion whole{0, 0, settings.width, settings.height};
  options.region = whole;
  if (!o.region.empty()) {
    options.region = parseRegion(o.region);
    const PixelRegion& r = options.region;
    if (r.x1 > whole.x1 || r.y1 > whole.y1)
      throw std::runtime_error("--region " + o.region + " reaches outside the " + std::to_string(settings.width) + "x" +
                               std::to_string(settings.height) + " picture");
  }
  if (!o.tile.empty()) {
    const auto [k, n] = parseShare(o.tile, "--tile");
    if (n > options.region.height())
      throw std::runtime_error("--tile " + o.tile + ": " + std::to_string(n) + " tiles of " +
                               std::to_string(options.region.height()) + " rows would leave some empty");
    options.region = kvi::render::tileOf(options.region, k, n);
  }
  options.samples = {0, settings.samplesPerPixel};
  if (!o.sampleShare.empty()) {
    const auto [k, n] = parseShare(o.sampleShare, "--sample-share");
    if (n > settings.samplesPerPixel)
      throw std::runtime_error("--sample-share " + o.sampleShare + ": " + std::to_string(n) + " shares of " +
                               std::to_string(settings.samplesPerPixel) + " samples per pixel would leave some empty");
    options.samples = kvi::render::shareOf(settings.samplesPerPixel, k, n);
  }
  return options;
}

// ---- progress -----------------------------------------------------------------

// A number with an SI prefix: 1.23 M.
std::string withPrefix(double v) {
  const char* prefixes[] = {"", " k", " M", " G", " T"};
  int i = 0;
  while (v >= 1000.0 && i < 4) {
    v /= 1000.0;
    ++i;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.3g%s", v, prefixes[i]);
  return text;
}

std::string duration(double seconds) {
  char text[32];
  if (seconds < 60.0)
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  else if (seconds < 3600.0)
    std::snprintf(text, sizeof text, "%d min %02d s", int(seconds) / 60, int(seconds) % 60);
  else
    std::snprintf(text, sizeof text, "%d h %02d min", int(seconds) / 3600, int(seconds) / 60 % 60);
  return text;
}

// A bar on stderr, redrawn in place while stderr is a terminal: the share
// done, the time taken, an estimate of the time left and the rate of work;
// nothing otherwise.
class ProgressBar {
 public:
  ProgressBar(std::string label, double totalWork, std::string unit, bool quiet)
      : label_(std::move(label)), total_(totalWork), unit_(std::move(unit)),
        enabled_(!quiet && isatty(STDERR_FILENO)), start_(std::chrono::steady_clock::now()) {}

  // For RenderOptions::progress; null when no bar is drawn.
  std::function<void(double)> callback() {
    if (!enabled_) return nullptr;
    return [this](double done) { draw(done); };
  }

  // Done: the bar goes. Interrupted: it stays, and its line is ended.
  void finish(bool interrupted) {
    if (!drawn_) return;
    if (interrupted)
      std::fputc('\n', stderr);
    else
      std::fprintf(stderr, "\r%*s\r", int(width_), "");
    std::fflush(stderr);
    drawn_ = false;
  }

 private:
  void draw(double done) {
    constexpr int kBar = 30;
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::string bar(size_t(done * kBar + 0.5), '#');
    bar.resize(kBar, '.');
    std::string line = label_ + " [" + bar + "] ";
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d%%", int(done * 100.0));
    line += percent;
    line += "  " + duration(elapsed);
    if (done > 0.0 && done < 1.0 && elapsed > 0.5) line += ", " + duration(elapsed * (1.0 - done) / done) + " left";
    if (elapsed > 0.0) line += ", " + withPrefix(done * total_ / elapsed) + " " + unit_ + "/s";
    width_ = std::max(width_, line.size());
    std::fprintf(stderr, "\r%-*s", int(width_), line.c_str());
    std::fflush(stderr);
    drawn_ = true;
  }

  std::string label_;
  double total_;
  std::string unit_;
  bool enabled_;
  std::chrono::steady_clock::time_point start_;
  bool drawn_ = false;
  size_t width_ = 0;
};

void warnAboutSamples(const kvi::render::RenderStats& stats) {
  const std::string warnings = kvi::render::sampleWarnings(stats);
  std::string line;
  for (std::istringstream in(warnings); std::getline(in, line);) std::cerr << "kvi-render: warning: " << line << "\n";
}

int interrupted(const std::string& what) {
  std::cerr << "kvi-render: interrupted while " << what << "; nothing written\n";
  return kInterruptedExit;
}

// ---- the three jobs ---------------------------------------------------------

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
    label = "the built-in showcase";
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
  kvi::render::checkPicturePath(o.output);
  auto scene = kvi::render::loadScene(document, o.scene.empty() ? "<built-in showcase>" : o.scene, base, library);
  kvi::render::RenderOptions options = partOfFrame(o, scene->settings);
  options.threads = o.threads;
  options.profile = o.profile;
  options.interrupt = &gInterrupted;
  ProgressBar bar("rendering", double(options.region.width()) * options.region.height() * options.samples.count,
                  "samples", o.quiet);
  options.progress = bar.callback();
  const auto result = kvi::render::render(*scene, options);
  bar.finish(result.interrupted);
  if (result.interrupted) return interrupted("rendering " + label);
  kvi::render::writeFilm(o.output, result.film, *scene);
  warnAboutSamples(result.stats);
  if (!o.quiet) std::cout << kvi::render::summary(result, *scene) << " -> " << o.output << "\n";
  return 0;
}

int renderGallery(const Options& o, std::shared_ptr<const kvi::render::ShaderLibrary> library) {
  kvi::render::checkPictureFolder(o.gallery);
  kvi::render::GalleryOptions g;
  g.directory = o.gallery;
  g.threads = o.threads;
  if (o.width > 0) g.tileSize = o.width;
  if (o.spp > 0) g.samplesPerPixel = o.spp;
  if (o.seed >= 0) g.seed = uint32_t(o.seed);
  g.interrupt = &gInterrupted;
  ProgressBar bar("gallery", double(library->shaderNames().size()) * g.tileSize * g.tileSize * g.samplesPerPixel,
                  "samples", o.quiet);
  g.progress = bar.callback();
  const auto report = kvi::render::renderGallery(library, g);
  bar.finish(report.interrupted);
  if (report.interrupted) return interrupted("rendering the gallery");
  warnAboutSamples(report.stats);
  if (!o.quiet) std::cout << report.text << "\n";
  return 0;
}

int mergeParts(const Options& o) {
  const std::string& output = o.merge.front();
  kvi::render::checkPicturePath(output);
  if (kvi::render::isDisplayFormat(output))
    throw std::runtime_error("cannot write '" + output + "': a merge keeps linear colour, name an .exr file");
  const std::vector<std::string> parts(o.merge.begin() + 1, o.merge.end());
  const kvi::render::FloatImage merged = kvi::render::mergeParts(parts);
  if (gInterrupted) return interrupted("merging");
  kvi::render::writeFloatImage(output, merged);
  if (!o.quiet) {
    std::cout << "merged " << parts.size() << (parts.size() == 1 ? " part" : " parts") << " into pixels " << merged.x0
              << "," << merged.y0 << " to " << merged.x0 + merged.width << "," << merged.y0 + merged.height << " of "
              << merged.fullWidth << "x" << merged.fullHeight;
    if (merged.samples) std::cout << " at " << merged.samples->count << " spp";
    std::cout << " -> " << output << "\n";
  }
  return 0;
}

// The jobs that cannot be combined.
void checkCombinations(Options& o) {
  if (!o.sceneOption.empty()) {
    if (!o.scene.empty()) throw UsageError("give the scene once, either as an argument or with --scene");
    o.scene = o.sceneOption;
  }
  const bool part = !o.region.empty() || !o.tile.empty() || !o.sampleShare.empty();
  if (!o.gallery.empty() && (!o.scene.empty() || part || o.printScene))
    throw UsageError("--gallery renders the shaders' own scenes: no scene, part or --print-scene with it");
  if (!o.merge.empty()) {
    if (o.merge.size() < 2) throw UsageError("--merge needs the output and at least one part");
    if (!o.scene.empty() || !o.gallery.empty() || part || o.printScene)
      throw UsageError("--merge only merges: no scene, gallery or part with it");
  }
  if (!o.region.empty()) parseRegion(o.region);
  if (!o.tile.empty()) parseShare(o.tile, "--tile");
  if (!o.sampleShare.empty()) parseShare(o.sampleShare, "--sample-share");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"kvi-render: renders scenes with the shaders of a kvi module"};
  Options o;
  app.add_option("scene", o.scene, "JSON scene to render (default: the built-in showcase)");
  app.add_option("--scene", o.sceneOption, "The same as the scene argument");
  app.add_option("--output,-o", o.output,
                 "Picture to write: .png, .jpg, .tif (tone mapped), .exr (linear RGBA, with the sample count) or "
                 ".hdr (linear RGB)");
  app.add_option("--gallery", o.gallery, "Render one labelled tile per shader into DIR, and DIR/gallery.png");
  app.add_option("--merge", o.merge, "OUT PART...: merge parts of a frame rendered apart into OUT (EXR)");
  app.add_option("--region", o.region, "Render only pixels x0,y0,x1,y1 (columns x0 to x1 - 1, rows y0 to y1 - 1)");
  app.add_option("--tile", o.tile, "Render only band K of N bands of rows (of the region)");
  app.add_option("--sample-share", o.sampleShare, "Render only share K of N of every pixel's samples");
  app.add_option("--width", o.width, "Image width in pixels")->check(CLI::Range(1, 16384));
  app.add_option("--height", o.height, "Image height in pixels")->check(CLI::Range(1, 16384));
  app.add_option("--spp", o.spp, "Samples per pixel")->check(CLI::Range(1, 1 << 20));
  app.add_option("--seed", o.seed, "Seed of the sample streams")->check(CLI::Range(0LL, 4294967295LL));
  app.add_option("--threads", o.threads, "Threads to render with (default: every core)")->check(CLI::Range(1, 4096));
  app.add_option("--library", o.library, "The shader module (default: the one installed beside kvi-render)");
  app.add_flag("--profile", o.profile, "Report the time spent in shader calls and in ray casting");
  app.add_flag("--quiet,-q", o.quiet, "No progress bar and no closing line (warnings and errors still show)");
  app.add_flag("--print-scene", o.printScene, "Print the scene's JSON (the built-in showcase's, by default) instead of rendering");
  app.get_formatter()->column_width(30);
  app.allow_extras();
  try {
    app.parse(argc, argv);
    refuseLeftovers(app);
    checkCombinations(o);
  } catch (const CLI::Success& e) {  // --help
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "kvi-render: " << e.what() << "\n" << kUsage << "Run 'kvi-render --help' for every option.\n";
    return 2;
  } catch (const UsageError& e) {
    std::cerr << "kvi-render: " << e.what() << "\n" << kUsage << "Run 'kvi-render --help' for every option.\n";
    return 2;
  }
  catchInterrupts();
  try {
    if (!o.merge.empty()) return mergeParts(o);
    const std::string path = o.library.empty() ? kvi::host::defaultModulePath() : o.library;
    auto library = std::make_shared<const kvi::render::ShaderLibrary>(path);
    return o.gallery.empty() ? renderScene(o, library) : renderGallery(o, library);
  } catch (const std::exception& e) {
    std::cerr << "kvi-render: " << e.what() << "\n";
    return 2;
  }
}
