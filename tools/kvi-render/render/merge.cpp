#include "render/merge.h"

#include <algorithm>
#include <stdexcept>

#include "render/renderer.h"

namespace kvi::render {
namespace {

struct Part {
  std::string path;
  FloatImage image;
  PixelRegion window;
  SampleAttributes samples;
};

Part readPart(const std::string& path) {
  Part part{path, readImage(path), {}, {}};
  const FloatImage& image = part.image;
  if (!image.samples)
    throw std::runtime_error("'" + path + "' has no kvi:samples attribute: only EXR pictures written by kvi-render " +
                             "can be merged");
  part.samples = *image.samples;
  part.window = {image.x0, image.y0, image.x0 + image.width, image.y0 + image.height};
  if (part.window.x0 < 0 || part.window.y0 < 0 || part.window.x1 > image.fullWidth || part.window.y1 > image.fullHeight)
    throw std::runtime_error("'" + path + "' holds pixels outside its picture");
  return part;
}

bool overlap(const PixelRegion& a, const PixelRegion& b) {
  return std::max(a.x0, b.x0) < std::min(a.x1, b.x1) && std::max(a.y0, b.y0) < std::min(a.y1, b.y1);
}

// Two parts that hold the same samples (same seed, overlapping ranges) of
// the same pixels would count them twice.
void checkDisjoint(const Part& a, const Part& b) {
  const SampleAttributes &s = a.samples, &t = b.samples;
  if (s.seed != t.seed || !overlap(a.window, b.window)) return;
  const int first = std::max(s.first, t.first), last = std::min(s.first + s.count, t.first + t.count) - 1;
  if (first <= last)
    throw std::runtime_error("'" + a.path + "' and '" + b.path + "' both hold samples " + std::to_string(first) +
                             " to " + std::to_string(last) + " of the same pixels");
}

}  // namespace

FloatImage mergeParts(const std::vector<std::string>& paths) {
  std::vector<Part> parts;
  for (const std::string& path : paths) {
    parts.push_back(readPart(path));
    const Part &part = parts.back(), &first = parts.front();
    if (part.image.fullWidth != first.image.fullWidth || part.image.fullHeight != first.image.fullHeight)
      throw std::runtime_error("'" + part.path + "' is part of a " + std::to_string(part.image.fullWidth) + "x" +
                               std::to_string(part.image.fullHeight) + " picture, '" + first.path + "' of a " +
                               std::to_string(first.image.fullWidth) + "x" + std::to_string(first.image.fullHeight) +
                               " one");
    for (size_t i = 0; i + 1 < parts.size(); ++i) checkDisjoint(parts[i], part);
  }
  if (parts.empty()) throw std::runtime_error("no parts to merge");

  PixelRegion box = parts.front().window;
  for (const Part& p : parts)
    box = {std::min(box.x0, p.window.x0), std::min(box.y0, p.window.y0), std::max(box.x1, p.window.x1),
           std::max(box.y1, p.window.y1)};
  const size_t pixels = size_t(box.width()) * size_t(box.height());
  // Sums of sample-count-weighted means in double: a pixel that one part
  // alone holds comes back bit for bit, since w x mean is exact there.
  std::vector<double> sums(pixels * 4, 0.0);
  std::vector<long long> weights(pixels, 0);
  for (const Part& p : parts)
    for (int y = p.window.y0; y < p.window.y1; ++y)
      for (int x = p.window.x0; x < p.window.x1; ++x) {
        const size_t at = size_t(y - box.y0) * size_t(box.width()) + size_t(x - box.x0);
        const float* value = p.image.pixel(x - p.window.x0, y - p.window.y0);
        for (int c = 0; c < 4; ++c) sums[at * 4 + size_t(c)] += double(p.samples.count) * double(value[c]);
        weights[at] += p.samples.count;
      }

  FloatImage merged(box.width(), box.height(), std::vector<float>(pixels * 4));
  merged.x0 = box.x0;
  merged.y0 = box.y0;
  merged.fullWidth = parts.front().image.fullWidth;
  merged.fullHeight = parts.front().image.fullHeight;
  bool uniform = true;
  for (size_t i = 0; i < pixels; ++i) {
    if (weights[i] == 0)
      throw std::runtime_error("the parts leave pixel (" + std::to_string(box.x0 + int(i % size_t(box.width()))) +
                               ", " + std::to_string(box.y0 + int(i / size_t(box.width()))) + ") out");
    for (int c = 0; c < 4; ++c) merged.rgba[i * 4 + size_t(c)] = float(sums[i * 4 + size_t(c)] / double(weights[i]));
    uniform = uniform && weights[i] == weights[0];
  }
  if (uniform) {
    SampleAttributes total{parts.front().samples.first, int(weights[0]), parts.front().samples.seed};
    for (const Part& p : parts) total.first = std::min(total.first, p.samples.first);
    merged.samples = total;
  }
  return merged;
}

}  // namespace kvi::render
