// The renderer's procedural noise basis, behind IShadingContext::noise4D.
#pragma once

namespace kvi::render {

// Smooth 4D gradient noise: continuous with continuous first and second
// derivatives, 0 at every integer lattice point, values in [-1, 1]. The
// fourth coordinate is the phase that animates a pattern. A fixed function of
// its input (no seed), so textures look the same in every render; non-finite
// input gives 0.
float gradientNoise4D(const float p[4]);

}  // namespace kvi::render
