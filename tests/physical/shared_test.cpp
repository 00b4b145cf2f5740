// The shared module of the physically based family, called directly: the
// exact arithmetic of its channels, frames, curves and lobes at their edge
// cases, and the physics of what it designs (the lobe sampler's density, the
// lobe's albedo, the hole patterns).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kvi/host/samplers.h"
#include "materials/physical/shared.h"
#include "scripted_context.h"
#include "statistics.h"
#include "test_shader.h"

namespace kvi::test {
namespace {

using namespace kvi::physical;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// A texture answering one texel everywhere and recording its coordinates.
struct FixedTexel : ITextureSampler {
  float texel[4];
  float coords[3] = {};
  int calls = 0;
  explicit FixedTexel(std::initializer_list<float> t) { std::copy(t.begin(), t.end(), texel); }
  void sample(float out[4], const float* c) override {
    ++calls;
    std::copy(c, c + 3, coords);
    std::copy(texel, texel + 3, out);  // leaves the fourth component as pre-set
  }
};

TEST(PhysicalChannels, TransformsByColumnsAndSamplesWithThePreset) {
  const float m[9] = {2, 3, 5, 7, 11, 13, 17, 19, 23}, uv[2] = {0.5f, 0.25f};
  float point[3];
  applyUvTransform(m, uv, point);
  EXPECT_BITEQ(point[0], 2 * 0.5f + 7 * 0.25f + 17);
  EXPECT_BITEQ(point[1], 3 * 0.5f + 11 * 0.25f + 19);
  EXPECT_BITEQ(point[2], 5 * 0.5f + 13 * 0.25f + 23);
  float rgba[4] = {9, 9, 9, 9};
  sampleTexture(TextureRef{nullptr, 4}, point, rgba);
  EXPECT_EQ((std::vector<float>(rgba, rgba + 4)), (std::vector<float>{0, 0, 0, 1}));
  FixedTexel texel{0.5f, 0.25f, 0.75f};
  sampleChannel(TextureRef{&texel, 0}, m, uv, rgba);
  EXPECT_EQ((std::vector<float>(texel.coords, texel.coords + 3)), (std::vector<float>(point, point + 3)));
  EXPECT_BITEQ(rgba[3], 1.0f);
  // Scalar and colour channels: the constant when off; red x value x amount,
  // red x amount, colour x amount when on; 0 with no sampler.
  const TextureRef map{&texel, 0}, none{nullptr, -1};
  EXPECT_BITEQ(scaledScalarChannel(false, map, m, 3.0f, 2.0f, uv), 3.0f);
  EXPECT_BITEQ(scaledScalarChannel(true, map, m, 3.0f, 2.0f, uv), 0.5f * 3.0f * 2.0f);
  EXPECT_BITEQ(scaledScalarChannel(true, none, m, 3.0f, 2.0f, uv), 0.0f);
  EXPECT_BITEQ(scalarChannel(0, map, m, 3.0f, 2.0f, uv), 3.0f);
  EXPECT_BITEQ(scalarChannel(0x40, map, m, 3.0f, 2.0f, uv), 1.0f);
  const float constant[3] = {0.1f, 0.2f, 0.3f};
  float color[3];
  colorChannel(1, map, m, constant, 2.0f, uv, color);
  EXPECT_BITEQ(color[2], 1.5f);
  colorChannel(0, map, m, constant, 2.0f, uv, color);
  EXPECT_BITEQ(color[1], 0.2f);
}

TEST(PhysicalChannels, CutoutDispatchPerObjectAlphaAndTint) {
  FixedTexel map{0.25f, 0.5f, 1.5f};
  const float uv[2] = {0.3f, 0.7f}, extra[4] = {0.1f, 0.2f, 0.3f, 0.5f};
  const TextureRef bound{&map, 0}, none{nullptr, -1};
  // (switcher, map, colorByObject, isSet) -> opacity; the pattern parameters make no holes here.
  struct Case { int32_t switcher; const TextureRef* map; uint8_t byObject, isSet; float opacity; };
  const Case cases[] = {
      {0, &bound, 0, 0, 1.0f},     {5, &bound, 0, 0, 1.0f},   {-3, &bound, 0, 0, 1.0f},
      {8, &bound, 0, 0, 1.0f},     {99, &bound, 0, 0, 1.0f},  {7, &bound, 0, 0, (0.25f + 0.5f + 1.5f) / 3.0f},
      {7, &none, 0, 0, 0.0f},      {0, &bound, 1, 1, 0.5f},   {0, &bound, 1, 0, 1.0f},
      {5, &bound, 0x80, 7, 0.5f},  {7, &bound, 1, 1, (0.25f + 0.5f + 1.5f) / 3.0f * 0.5f},
      {1, &bound, 0, 0, 1.0f},     // a pitch of 0: no holes
  };
  for (const Case& c : cases)
    EXPECT_BITEQ(cutoutOpacity(c.switcher, uv, 1.0f, *c.map, kIdentity, 0.0f, 0.0f, 0.5f, c.byObject, extra, c.isSet),
                 c.opacity)
        << "switcher " << c.switcher << " case " << &c - cases;
  EXPECT_BITEQ(objectAlpha(1, extra, 0), 1.0f);
  float weight[3] = {2, 4, 8};
  const float tint[4] = {0.5f, 0.25f, 2.0f, 0.0f};
  applyTint(0, tint, weight);
  EXPECT_BITEQ(weight[0], 2.0f);
  applyTint(3, tint, weight);
  EXPECT_EQ((std::vector<float>(weight, weight + 3)), (std::vector<float>{1, 1, 16}));
}

// Each pattern at pitch 1, size 0.5 (uv scale 4, shifted by the centre 0.25):
// solid far from a hole, open at its centre, a thin edge between, distinct shapes.
TEST(PhysicalChannels, ProceduralHolePatterns) {
  const TextureRef none{nullptr, -1};
  auto opacity = [&](int32_t pattern, float x, float y) {
    const float uv[2] = {(x + 0.25f) / 4.0f, (y + 0.25f) / 4.0f};  // pattern coordinates (x, y)
    return evaluateCutoutOpacity(pattern, uv, 4.0f, none, kIdentity, 0.25f, 1.0f, 0.5f);
  };
  for (int32_t pattern : {1, 2, 3, 4, 6}) {
    SCOPED_TRACE(pattern);
    const float cx = pattern == 3 ? 1.0f : 0.5f;  // slots have cells twice as long along u
    EXPECT_EQ(opacity(pattern, cx, 0.5f), 0.0f);   // a hole's centre
    EXPECT_EQ(opacity(pattern, 0.02f, 0.02f), 1.0f);  // a cell's corner
    const float edge = opacity(pattern, cx, 0.75f);  // on the rim
    EXPECT_GT(edge, 0.2f);
    EXPECT_LT(edge, 0.8f);
    for (float bad : {kNaN, std::numeric_limits<float>::infinity()}) {
      const float uv[2] = {bad, 0.5f};
      const float o = evaluateCutoutOpacity(pattern, uv, 4.0f, none, kIdentity, 0.0f, bad, bad);
      EXPECT_TRUE(o >= 0.0f && o <= 1.0f);
    }
  }
  EXPECT_EQ(opacity(1, 0.7f, 0.7f), 1.0f);  // round: outside the circle at this corner ...
  EXPECT_EQ(opacity(2, 0.7f, 0.7f), 0.0f);  // ... square: inside
  EXPECT_EQ(opacity(4, 0.7f, 0.6f), 1.0f);  // diamond: outside
  EXPECT_EQ(opacity(3, 1.2f, 0.5f), 0.0f);  // a slot is longer than a round hole
  EXPECT_EQ(opacity(1, 1.2f, 0.5f), 1.0f);
  EXPECT_EQ(opacity(6, 0.5f, 1.5f), 1.0f);  // staggered: odd rows shift by half a pitch
  EXPECT_EQ(opacity(6, 1.0f, 1.5f), 0.0f);
}

TEST(PhysicalChannels, NormalMapAndTileBumpSlopes) {
  FixedTexel normal{0.2f, -0.4f, 0.9f}, strength{0.5f, 9.0f, 9.0f};
  const float uv[2] = {0.25f, 0.75f};
  const TextureRef map{&normal, 0}, amountMap{&strength, 0}, none{nullptr, -1};
  float slope[3];
  normalMapSlope(0, map, kIdentity, 2.0f, 0, amountMap, kIdentity, uv, 1.0f, slope);
  EXPECT_EQ((std::vector<float>(slope, slope + 3)), (std::vector<float>{0, 0, 1}));
  normalMapSlope(1, none, kIdentity, 2.0f, 0, amountMap, kIdentity, uv, 1.0f, slope);
  EXPECT_EQ((std::vector<float>(slope, slope + 3)), (std::vector<float>{0, 0, 0}));
  normalMapSlope(1, map, kIdentity, 2.0f, 0, amountMap, kIdentity, uv, 1.0f, slope);
  EXPECT_BITEQ(slope[1], -0.4f * (2.0f * 3.3f * 1.0f));  // no remapping of the map's colours
  EXPECT_BITEQ(slope[2], 0.9f);
  normalMapSlope(1, map, kIdentity, 2.0f, 1, amountMap, kIdentity, uv, 1.0f, slope);
  EXPECT_BITEQ(slope[0], 0.2f * (0.5f * 3.3f * 1.0f));  // the amount map's red replaces the amount
  normalMapSlope(1, map, kIdentity, 2.0f, 1, none, kIdentity, uv, 1.0f, slope);
  EXPECT_BITEQ(slope[0], 0.0f);
  // Tile bump at scale 2 (cells of one uv unit): (u, v) -> slope.
  struct Case { float u, v, su, sv; };
  for (const Case& c : {Case{0.5f, 0.5f, 1, 0}, Case{0.2f, 0.5f, -1, 0}, Case{0.5f, 0.1f, 0, -1}, Case{0.5f, 0.9f, 0, 1},
                        Case{0.3f, 0.3f, -1, 0}, Case{3.75f, -0.1f, 0, 1}}) {
    const float at[2] = {c.u, c.v};
    float s[2];
    tileBumpSlope(at, 2.0f, s);
    EXPECT_EQ(s[0], c.su) << c.u << ", " << c.v;
    EXPECT_EQ(s[1], c.sv) << c.u << ", " << c.v;
  }
}

TEST(PhysicalFrames, OrthonormalizeRotateAndDegenerateInputs) {
  float frame[9] = {2, 0, 1, 9, 9, 9, 0, 0, 1};
  orthonormalizeFrame(frame);
  EXPECT_EQ((std::vector<float>(frame, frame + 9)), (std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  float zero[9] = {0, 0, 3, 1, 1, 1, 0, 0, 1};  // a tangent along the normal leaves zero vectors
  orthonormalizeFrame(zero);
  EXPECT_EQ((std::vector<float>(zero, zero + 6)), (std::vector<float>(6, 0.0f)));
  float turned[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  rotateFrame(turned, 0.0f);
  EXPECT_EQ((std::vector<float>(turned, turned + 9)), (std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  rotateFrame(turned, 0.5f);
  EXPECT_BITEQ(turned[1], std::sin(0.5f));
  EXPECT_BITEQ(turned[3], -std::sin(0.5f));
  // The starting frame falls back from the tangent varying to the bitangent,
  // the host's tangent and a completed frame; it is orthonormal every time.
  const float n[3] = {0, 0.6f, 0.8f}, along[3] = {0, 0.6f, 0.8f}, nothing[3] = {0, 0, 0}, x[3] = {1, 0, 0};
  const float host[9] = {0, 0.6f, 0.8f, 0, 0, 0, 0, 0, 0};
  for (const float* t : {x, along, nothing})
    for (const float* b : {x, nothing}) {
      float f[9];
      initialFrame(t == x ? kIdentity : host, t, b, n, f);
      EXPECT_NEAR(dot3(f, f), 1.0, 1e-6);
      EXPECT_NEAR(dot3(f + 3, f + 3), 1.0, 1e-6);
      EXPECT_NEAR(dot3(f, f + 6), 0.0, 1e-6);
    }
}

TEST(PhysicalFrames, BendFollowsTheBumpAndKeepsTheViewerInFront) {
  const float down[3] = {0, 0, -1};
  float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const float none[3] = {0, 0, 1};
  bendFrameTowardViewer(down, none, frame);
  EXPECT_EQ((std::vector<float>(frame, frame + 9)), (std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  const float tilt[3] = {0.5f, 0, 1};  // the normal leans toward the tangent; the tangent turns with it
  bendFrameTowardViewer(down, tilt, frame);
  const float k = 1.0f / std::sqrt(1.25f);
  const float expected[9] = {k, 0, -0.5f * k, 0, 1, 0, 0.5f * k, 0, k};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(frame[i], expected[i], 1e-6) << i;
  // A bump that turns the surface away from a slanted viewer: the normal
  // stands perpendicular to the view, tilted 0.01 toward the viewer.
  const float slanted[3] = {0.6f, 0, -0.8f}, away[3] = {3, 0, 1};
  float f[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  bendFrameTowardViewer(slanted, away, f);
  EXPECT_NEAR(dot3(slanted, f + 6), -0.01, 1e-6);
  EXPECT_NEAR(f[7], 0.0, 1e-7);  // in the plane of the view and the old normal
  EXPECT_NEAR(dot3(f, f + 6), 0.0, 1e-4);  // the tilted normal is 1.00005 long
}

TEST(PhysicalLobes, CurveLobeHemisphereAndHslEdgeCases) {
  EXPECT_BITEQ(reflectanceCurve(0.0f), 1.0f);
  EXPECT_NEAR(reflectanceCurve(1.0f), 0.0319, 1e-6);
  EXPECT_BITEQ(reflectanceCurve(-2.0f), 1.0f);
  EXPECT_BITEQ(reflectanceCurve(7.0f), reflectanceCurve(1.0f));
  EXPECT_BITEQ(reflectanceCurve(0.5f), 0.0463f * 0.0625f - 2.4278f * 0.125f + 5.3416f * 0.25f - 3.9282f * 0.5f + 1.0f);
  EXPECT_NEAR(samplingWidth(reflectanceCurve(1.0f)), 0.0, 1e-6);
  EXPECT_BITEQ(samplingWidth(0.1f), 0.1f);
  EXPECT_BITEQ(angularReflectivity(1.0f, 0.25f, 1.0f, 5.0f), 0.25f);  // head on: f0
  EXPECT_BITEQ(angularReflectivity(-3.0f, 0.25f, 1.0f, 5.0f), 1.0f);  // grazing (clamped): f90
  EXPECT_BITEQ(angularReflectivity(0.5f, 0.25f, 1.0f, 0.0f), 1.0f);   // power 0: f90 everywhere
  const float white[3] = {1, 1, 1};
  EXPECT_NEAR(luminance(white), 1.0, 1e-6);
  const float o[3] = {0, 0, 0}, flat[3] = {1, 0, 0}, up[3] = {0, 0, 2}, slope[3] = {0.3f, -0.2f, 1.0f};
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, flat, 0.3f, 0.3f), 0.0f);
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, slope, 0.0f, 0.3f), 1.0f);
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, up, 0.5f, 0.25f), 1.0f / (0.5f * 3.141593f * 0.25f) * 4.0f / 16.0f);
  EXPECT_NEAR(anisotropicHalfVectorLobe(o, slope, 0.5f, 0.25f),
              std::exp(-(0.09 / 0.25 + 0.04 / 0.0625)) / (0.5 * M_PI * 0.25) * 1.13, 1e-5);
  ScriptedContext context;
  context.samples2D = {{0.25f, 1.0f}, {0.0f, 0.0f}};
  float d[3];
  EXPECT_BITEQ(sampleCosineHemisphere(&context, d), 1.0f);
  EXPECT_BITEQ(d[2], 0.01745241f);  // floored, not renormalised
  EXPECT_NEAR(d[1], 1.0, 1e-6);
  sampleCosineHemisphere(&context, d);
  EXPECT_EQ((std::vector<float>(d, d + 3)), (std::vector<float>{0, 0, 1}));
  // HSL: (rgb) -> (h, s, l) and back.
  struct Case { float rgb[3], hsl[3]; };
  const Case cases[] = {{{0.2f, 0.2f, 0.2f}, {0, 0, 0.2f}},     {{0.8f, 0.2f, 0.2f}, {1, 0.6f, 0.5f}},
                        {{0.2f, 0.8f, 0.2f}, {1.0f / 3, 0.6f, 0.5f}}, {{0.2f, 0.2f, 0.8f}, {2.0f / 3, 0.6f, 0.5f}},
                        {{0.9f, 0.6f, 0.3f}, {1.0f / 12, 0.6f / 0.8f, 0.6f}}, {{-0.5f, 0.3f, 0.1f}, {0, 0, -0.5f}}};
  for (const Case& c : cases) {
    float hsl[3], rgb[3];
    rgbToHsl(c.rgb, hsl);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(hsl[i], c.hsl[i], 1e-6) << &c - cases << " " << i;
    hslToRgb(hsl, rgb);
    for (int i = 0; i < 3 && hsl[1] != 0.0f; ++i) EXPECT_NEAR(rgb[i], c.rgb[i], 1e-6) << &c - cases << " " << i;
  }
  for (float h : {0.0f, 0.4f, kNaN}) {
    const float hsl[3] = {h, 0.0f, 0.3f};
    float rgb[3];
    hslToRgb(hsl, rgb);
    EXPECT_EQ((std::vector<float>(rgb, rgb + 3)), (std::vector<float>(3, 0.3f)));
  }
}

struct LobeCase { float viewCosine, wx, wy; };
const LobeCase kLobeCases[] = {{1.0f, 0.3f, 0.3f}, {0.7f, 0.5f, 0.15f}, {0.3f, 0.25f, 0.6f}, {0.15f, 0.8f, 0.4f},
                               {0.9f, 0.12f, 0.08f}};

// The directions of sampleAnisotropicLobe follow the density it reports:
// the hemisphere in 16 x 24 bins of (cos theta, phi) plus one bin for the
// failed draws; expected counts integrate the reported pdf over each bin.
TEST(PhysicalLobes, AnisotropicSamplerFollowsItsDensity) {
  const float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (const LobeCase& c : kLobeCases) {
    SCOPED_TRACE(testing::Message() << "view cosine " << c.viewCosine << " widths " << c.wx << ", " << c.wy);
    const float s = std::sqrt(1.0f - c.viewCosine * c.viewCosine);
    const float view[3] = {-s * 0.6f, -s * 0.8f, -c.viewCosine};
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    auto draw = [&](float l[3]) {
      const float xi[2] = {unit(rng), unit(rng)};
      LobeSample sample;
      if (!sampleAnisotropicLobe(xi, view, c.wx, c.wy, frame, sample)) return false;
      std::copy(sample.local, sample.local + 3, l);
      return true;
    };
    auto density = [&](const float l[3]) {
      const float h[3] = {l[0] - view[0], l[1] - view[1], l[2] - view[2]}, o[3] = {0, 0, 0};
      return anisotropicHalfVectorLobe(o, h, c.wx, c.wy) * h[2] * 0.5;
    };
    constexpr int kSamples = 300000;
    const HemisphereChiSquare r = hemisphereChiSquare(draw, density, kSamples, 16, 24, 24);
    EXPECT_LE(r.expectedInside, kSamples * 1.001);  // the density integrates to at most 1
    if (r.pooledExpected < 5) {
      EXPECT_LT(r.pooledObserved, 20);
    }
    EXPECT_GT(r.pValue, 1e-3);
  }
}

// The lobe's albedo (the mean sampled weight, failed draws counting 0) never
// exceeds 1, and reaches nearly 1 for a narrow lobe seen head on.
TEST(PhysicalLobes, AnisotropicLobeHasBoundedAlbedo) {
  const float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (float vz : {1.0f, 0.5f, 0.2f, 0.05f, 0.01f})
    for (float w : {0.02f, 0.2f, 0.6f, 1.0f}) {
      const float view[3] = {-std::sqrt(1 - vz * vz), 0, -vz};
      double sum = 0;
      constexpr int kSamples = 40000;
      for (int i = 0; i < kSamples; ++i) {
        const float xi[2] = {unit(rng), unit(rng)};
        LobeSample sample;
        if (sampleAnisotropicLobe(xi, view, w, 0.5f * w, frame, sample)) sum += sample.weight;
      }
      EXPECT_LE(sum / kSamples, 1.0) << "view cosine " << vz << " width " << w;
      if (vz == 1.0f && w == 0.02f) {
        EXPECT_GT(sum / kSamples, 0.99);
      }
    }
}

}  // namespace
}  // namespace kvi::test
