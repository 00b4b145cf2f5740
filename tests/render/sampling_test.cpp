// The renderer's sample streams, noise basis and texture sampler.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <set>

#include "kvi/host/samplers.h"
#include "render/noise.h"
#include "render/sampling.h"

namespace kvi::render {
namespace {

// The samples of one pixel, each asking for the same sequence of numbers.
std::vector<SampleStream> pixelStreams(uint32_t seed, uint32_t pixel, int count) {
  std::vector<SampleStream> streams;
  for (int i = 0; i < count; ++i) streams.emplace_back(seed, pixel, uint32_t(i));
  return streams;
}

TEST(SamplingTest, EveryDimensionAndPairIsStratifiedOverAPixelsSamples) {
  for (uint32_t pixel : {0u, 7u, 123456u}) {
    auto streams = pixelStreams(42, pixel, 16);
    // Several requests in a row, as a path makes them: 2D, 1D, 2D, 1D...
    for (int request = 0; request < 6; ++request) {
      std::set<int> cells;
      for (auto& s : streams) {
        if (request % 2 == 0) {
          float u[2];
          s.next2D(u);
          ASSERT_TRUE(u[0] >= 0.0f && u[0] < 1.0f && u[1] >= 0.0f && u[1] < 1.0f);
          cells.insert(int(u[0] * 4.0f) * 4 + int(u[1] * 4.0f));
        } else {
          const float u = s.next1D();
          ASSERT_TRUE(u >= 0.0f && u < 1.0f);
          cells.insert(int(u * 16.0f));
        }
      }
      EXPECT_EQ(cells.size(), 16u) << "pixel " << pixel << ", request " << request;
    }
  }
}

TEST(SamplingTest, SplitStreamsAreStratifiedAndLeaveTheParentUnshifted) {
  auto parents = pixelStreams(3, 77, 16);
  std::set<int> cells;
  for (size_t i = 0; i < parents.size(); ++i) {
    SampleStream child = parents[i].split();
    float u[2];
    child.next2D(u);
    cells.insert(int(u[0] * 4.0f) * 4 + int(u[1] * 4.0f));
    // However much the nested path takes, the parent goes on the same.
    for (size_t k = 0; k < i; ++k) child.next1D();
  }
  auto unsplit = pixelStreams(3, 77, 16);
  for (size_t i = 0; i < parents.size(); ++i) {
    unsplit[i].next1D();  // the dimension the split used
    EXPECT_EQ(parents[i].next1D(), unsplit[i].next1D());
  }
  EXPECT_EQ(cells.size(), 16u);
}

TEST(SamplingTest, StreamsAreReproducibleFromTheSeedAndDifferBetweenPixelsAndSeeds) {
  SampleStream a(5, 10, 3), b(5, 10, 3), otherPixel(5, 11, 3), otherSeed(6, 10, 3);
  for (int i = 0; i < 8; ++i) {
    const float x = a.next1D();
    EXPECT_EQ(x, b.next1D());
    EXPECT_NE(x, otherPixel.next1D());
    EXPECT_NE(x, otherSeed.next1D());
  }
}

TEST(NoiseTest, GradientNoiseIsBoundedSmoothAndZeroOnTheLattice) {
  uint32_t state = 1;
  auto random = [&] { return float(hashInt(state++)) / 4294967296.0f * 20.0f - 10.0f; };
  float lowest = 1.0f, highest = -1.0f, sumSquares = 0.0f;
  for (int i = 0; i < 20000; ++i) {
    const float p[4] = {random(), random(), random(), random()};
    const float v = gradientNoise4D(p);
    ASSERT_TRUE(v >= -1.0f && v <= 1.0f);
    lowest = std::min(lowest, v);
    highest = std::max(highest, v);
    sumSquares += v * v;
    // Continuity: a tiny step makes a tiny change.
    const float q[4] = {p[0] + 1e-3f, p[1], p[2] - 1e-3f, p[3] + 1e-3f};
    ASSERT_NEAR(gradientNoise4D(q), v, 0.02f);
  }
  EXPECT_LT(lowest, -0.5f);
  EXPECT_GT(highest, 0.5f);
  EXPECT_GT(sumSquares / 20000.0f, 0.01f);
  const float lattice[4] = {3.0f, -2.0f, 7.0f, 0.0f};
  EXPECT_EQ(gradientNoise4D(lattice), 0.0f);
  const float nan[4] = {NAN, 0.0f, 0.0f, 0.0f};
  EXPECT_EQ(gradientNoise4D(nan), 0.0f);
}

// The noise is a fixed function of its input: a procedural texture looks the
// same in every render and every build, however its computation is arranged.
TEST(NoiseTest, GradientNoiseKeepsItsValues) {
  const struct {
    float p[4];
    float value;
  } pinned[] = {{{0.5f, 0.25f, 0.75f, 0.125f}, 0x1.55666ap-4f},
                {{-3.3f, 7.1f, 2.2f, -0.4f}, -0x1.e0732ep-4f},
                {{12.9f, -5.6f, 0.01f, 3.5f}, -0x1.b756aap-4f},
                {{1e9f, -2.5f, 4.75f, 0.0f}, -0x1.fep-4f},  // beyond the wrapping period
                {{100.3f, 200.7f, -300.1f, 41.9f}, -0x1.1b667ap-3f}};
  for (const auto& c : pinned) EXPECT_EQ(gradientNoise4D(c.p), c.value) << c.p[0] << " " << c.p[1];
}

}  // namespace
}  // namespace kvi::render
