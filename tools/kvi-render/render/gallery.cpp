#include "render/gallery.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "kvi/shader.h"
#include "kvi/host/shader_info.h"
#include "render/font.h"
#include "render/renderer.h"
#include "render/scene_loader.h"
#include "render/showcase.h"

namespace kvi::render {
namespace {

constexpr int kLabelHeight = 2 * kGlyphHeight + 4;  // name and kind lines
constexpr int kMargin = 6;
constexpr uint8_t kPaper[3] = {30, 30, 32};
constexpr uint8_t kInk[3] = {235, 235, 235};
constexpr uint8_t kFaintInk[3] = {150, 150, 155};

int kindOrder(int32_t kind) { return kind == kMaterialKind ? 0 : kind == kLightKind ? 1 : 2; }

// The tile's picture with the shader's name and kind under it.
ByteImage labelled(const ByteImage& picture, const std::string& name, const std::string& kind) {
  ByteImage tile(picture.width, picture.height + kLabelHeight);
  std::fill(tile.rgb.begin(), tile.rgb.end(), kPaper[0]);
  for (int y = 0; y < picture.height; ++y)
    std::copy(picture.pixel(0, y), picture.pixel(0, y) + size_t(picture.width) * 3, tile.pixel(0, y));
  // A name too long for the tile breaks after an underscore; its end goes on
  // the second line, before the kind.
  std::string first = name, second;
  const int width = picture.width - 4;
  if (textWidth(name) > width) {
    const size_t fits = size_t(std::max(0, width / kGlyphWidth));
    const size_t cut = name.rfind('_', fits > 0 ? fits - 1 : 0);
    if (cut != std::string::npos && cut > 0) {
      first = name.substr(0, cut + 1);
      second = name.substr(cut + 1) + " ";
    }
  }
  drawText(tile, 2, picture.height + 2, fitText(first, width), kInk);
  drawText(tile, 2, picture.height + 2 + kGlyphHeight, fitText(second, width), kInk);
  drawText(tile, 2 + textWidth(second), picture.height + 2 + kGlyphHeight, kind, kFaintInk);
  return tile;
}

void paste(ByteImage& sheet, const ByteImage& tile, int left, int top) {
  for (int y = 0; y < tile.height && top + y < sheet.height; ++y)
    std::copy(tile.pixel(0, y), tile.pixel(0, y) + size_t(std::min(tile.width, sheet.width - left)) * 3,
              sheet.pixel(left, top + y));
}

}  // namespace

GalleryReport renderGallery(std::shared_ptr<const ShaderLibrary> library, const GalleryOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::string> shaders = library->shaderNames();
  std::stable_sort(shaders.begin(), shaders.end(), [&](const std::string& a, const std::string& b) {
    return kindOrder(library->info(a)->kind) < kindOrder(library->info(b)->kind);
  });

  GalleryReport report;
  std::vector<ByteImage> tiles;
  std::vector<std::string> failed;
  for (size_t i = 0; i < shaders.size(); ++i) {
    const std::string& shader = shaders[i];
    const std::string kind = host::shaderKindName(library->info(shader)->kind);
    ByteImage picture;
    try {
      const auto scene = loadScene(galleryScene(*library, shader, options.tileSize, options.samplesPerPixel, options.seed),
                                   "<gallery tile " + shader + ">", ".", library);
      RenderOptions render;
      render.threads = options.threads;
      render.interrupt = options.interrupt;
      if (options.progress)
        render.progress = [&, i](double done) { options.progress((double(i) + done) / double(shaders.size())); };
      const RenderResult result = kvi::render::render(*scene, render);
      report.stats.add(result.stats);
      if (result.interrupted) {
        report.interrupted = true;
        return report;
      }
      picture = displayImage(result.film, *scene);
    } catch (const std::exception& e) {
      // One shader that cannot be shown does not stop the others.
      failed.push_back(shader + ": " + e.what());
      picture = ByteImage(options.tileSize, options.tileSize, kPaper[0]);
      drawText(picture, 4, options.tileSize / 2 - kGlyphHeight, "not rendered:", kInk);
      drawText(picture, 4, options.tileSize / 2, fitText(e.what(), options.tileSize - 8), kFaintInk);
    }
    tiles.push_back(labelled(picture, shader, kind));
  }

  const int columns = std::max(1, std::min(int(tiles.size()), 6));
  const int rows = (int(tiles.size()) + columns - 1) / columns;
  const int cellWidth = options.tileSize + kMargin, cellHeight = options.tileSize + kLabelHeight + kMargin;
  const int titleHeight = 2 * kGlyphHeight * 2 + 8;
  ByteImage sheet(columns * cellWidth + kMargin, titleHeight + rows * cellHeight + kMargin, kPaper[0]);
  drawText(sheet, kMargin, 4, "kvi shader gallery", kInk, 2);
  const std::string module = std::filesystem::path(library->module().path()).filename().string();
  drawText(sheet, kMargin, 4 + 2 * kGlyphHeight,
           fitText(std::to_string(tiles.size()) + " shaders of " + module, sheet.width - 2 * kMargin), kFaintInk);
  for (size_t i = 0; i < tiles.size(); ++i)
    paste(sheet, tiles[i], kMargin + int(i % size_t(columns)) * cellWidth,
          titleHeight + int(i / size_t(columns)) * cellHeight);

  std::filesystem::create_directories(options.directory);
  for (size_t i = 0; i < tiles.size(); ++i)
    writeDisplayImage((std::filesystem::path(options.directory) / (shaders[i] + ".png")).string(), tiles[i]);
  const std::string sheetPath = (std::filesystem::path(options.directory) / "gallery.png").string();
  writeDisplayImage(sheetPath, sheet);

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  char line[256];
  std::snprintf(line, sizeof line, "gallery of %zu shaders in %.1f s (%.3g samples/s, %.3g rays/s) -> %s",
                tiles.size(), seconds, double(report.stats.samples) / seconds, double(report.stats.rays()) / seconds,
                sheetPath.c_str());
  report.text = line;
  for (const std::string& f : failed) report.text += "\n  not rendered: " + f;
  return report;
}

}  // namespace kvi::render
