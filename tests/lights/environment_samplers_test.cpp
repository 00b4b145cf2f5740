// The host's cube-face and lat-long samplers: conventions, wrapping and
// degenerate directions.
#include <cmath>

#include "kvi/host/error.h"
#include "light_testing.h"

namespace kvi::test {
namespace {

TEST(CubeFaceSampler, FacesAndOrientationFollowTheUsualCubeMapLayout) {
  const struct {
    std::array<float, 3> direction;
    int face;
    float s, t;
  } cases[] = {
      {{1, 0.5f, -0.5f}, 0, 0.75f, 0.25f}, {{-1, 0.5f, -0.5f}, 1, 0.25f, 0.25f}, {{0.5f, 1, -0.5f}, 2, 0.75f, 0.25f},
      {{0.5f, -1, -0.5f}, 3, 0.75f, 0.75f}, {{0.5f, 0.5f, 1}, 4, 0.75f, 0.25f}, {{0.5f, 0.5f, -1}, 5, 0.25f, 0.25f},
      {{2, -2, 1}, 0, 0.25f, 1.0f}, {{0, -3, 3}, 3, 0.5f, 0.0f},  // ties: X, then Y
      {{-0.0f, 0, 0}, 4, 0.5f, 0.5f}, {{kNaN, 1, 0}, 4, 0.5f, 0.5f}, {{0, -kInf, 0}, 4, 0.5f, 0.5f},
  };
  const host::CubeFaceSampler cube = taggedCube();
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.direction[0] << " " << c.direction[1] << " " << c.direction[2]);
    const auto p = host::CubeFaceSampler::project(c.direction.data());
    EXPECT_EQ(p.face, c.face);
    EXPECT_BITEQ(p.s, c.s);
    EXPECT_BITEQ(p.t, c.t);
    float texel[4];
    cube.lookupDirection(texel, c.direction.data());
    const auto centre = [](float x) { return x == 0.25f || x == 0.75f; };  // of a texel of a 2 x 2 face
    if (centre(c.s) && centre(c.t)) expectColor(texel, {c.s > 0.5f ? 1.0f : 0.0f, c.t > 0.5f ? 1.0f : 0.0f, float(c.face)});
  }
}

TEST(CubeFaceSampler, FaceCoordinateIsRoundedAndClampedAndBadCoordinatesGiveAFirstTexel) {
  host::CubeFaceSampler cube = taggedCube();
  for (const auto& [given, face] : {std::pair{-3.0f, 0}, std::pair{2.4f, 2}, std::pair{2.6f, 3}, std::pair{9.0f, 5},
                                    std::pair{kNaN, 0}, std::pair{kInf, 5}}) {
    float texel[4];
    const float coords[3] = {kNaN, kInf, given};
    cube.sample(texel, coords);
    expectColor(texel, {0, 0, float(face)});
  }
  EXPECT_THROW(host::CubeFaceSampler(std::vector<host::ImageSampler>(5, host::ImageSampler(1, 1, {0, 0, 0, 1}))),
               host::Error);
}

// A 4 x 2 image whose texel (x, y) is (x, y, 0, 1).
host::LatLongSampler taggedSky(host::LatLongSampler::UpAxis up = host::LatLongSampler::UpAxis::Y) {
  std::vector<float> rgba;
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) rgba.insert(rgba.end(), {float(x), float(y), 0.0f, 1.0f});
  return host::LatLongSampler(4, 2, std::move(rgba), up);
}

TEST(LatLongSampler, MinusZIsTheMiddleYIsUpAndSWrapsAtTheSeam) {
  const host::LatLongSampler sky = taggedSky(), zUp = taggedSky(host::LatLongSampler::UpAxis::Z);
  const struct {
    const host::LatLongSampler& sampler;
    std::array<float, 3> direction;
    float s, t;
  } cases[] = {
      {sky, {0, 0, -1}, 0.5f, 0.5f},  {sky, {0, 0, -7}, 0.5f, 0.5f}, {sky, {1, 0, 0}, 0.75f, 0.5f},
      {sky, {-1, 0, 0}, 0.25f, 0.5f}, {sky, {0, 1, 0}, 0.5f, 0.0f},  {sky, {0, -1, 0}, 0.5f, 1.0f},
      {sky, {1, 0, -1}, 0.625f, 0.5f}, {zUp, {0, 1, 0}, 0.5f, 0.5f}, {zUp, {0, 0, 1}, 0.5f, 0.0f},
      {sky, {0, 0, 0}, 0.5f, 0.5f},   {sky, {kNaN, 0, -1}, 0.5f, 0.5f}, {sky, {0, kInf, 0}, 0.5f, 0.5f},
  };
  for (const auto& c : cases) {
    float s, t;
    c.sampler.project(c.direction.data(), s, t);
    EXPECT_NEAR(s, c.s, 1e-6f) << c.direction[0] << " " << c.direction[1] << " " << c.direction[2];
    EXPECT_NEAR(t, c.t, 1e-6f) << c.direction[0] << " " << c.direction[1] << " " << c.direction[2];
  }
  float texel[4];  // +Z sits on the seam: half the last column, half the first
  const float back[3] = {0, 0, 1};
  sky.lookupDirection(texel, back);
  EXPECT_NEAR(texel[0], 1.5f, 1e-5f);
}

}  // namespace
}  // namespace kvi::test
