// Merging the parts of one frame rendered apart (regions, tiles, sample
// shares) into the picture one render of all of them makes.
#pragma once

#include <string>
#include <vector>

#include "render/images.h"

namespace kvi::render {

// Reads the parts (float pictures written by kvi-render, which carry their
// place in the frame and their sample range), checks that they are parts of
// one frame that neither hold the same samples of a pixel twice nor leave a
// pixel of their bounding box out, and returns the merge: each pixel the
// mean of the parts that hold it, weighted by their sample counts. The
// result is a window of the frame (the parts' bounding box); it carries a
// sample count when every pixel has the same. Throws std::runtime_error with
// a one-line reason naming the part.
FloatImage mergeParts(const std::vector<std::string>& parts);

}  // namespace kvi::render
