// The shared module of the physically based family, called directly: the
// exact arithmetic of its channels, frames, curves and lobes at their edge
// cases, and what it designs (the hole patterns, the bump rotation, the lobe
// sampler, whose directions must follow the density it reports).
#include "materials/physical/shared.h"

#include <random>

#include "statistics.h"
#include "tables.h"

namespace kvi::test {
namespace {

using namespace kvi::physical;
using V = std::vector<float>;

const float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
const TextureRef kNone{nullptr, -1};

// One texel everywhere, leaving the fourth component as pre-set; keeps the coordinates.
struct FixedTexel : ITextureSampler {
  float texel[3], coords[3] = {};
  FixedTexel(float r, float g, float b) : texel{r, g, b} {}
  void sample(float out[4], const float* c) override {
    std::copy(c, c + 3, coords);
    std::copy(texel, texel + 3, out);
  }
};

TEST(PhysicalChannels, TransformsChannelsTintAndSlopes) {
  const float m[9] = {2, 3, 5, 7, 11, 13, 17, 19, 23}, uv[2] = {0.5f, 0.25f};
  FixedTexel texel(0.5f, 0.25f, 1.5f);
  const TextureRef map{&texel, 0};
  float rgba[4] = {9, 9, 9, 9};
  sampleChannel(kNone, m, uv, rgba);
  EXPECT_EQ(V(rgba, rgba + 4), (V{0, 0, 0, 1}));
  sampleChannel(map, m, uv, rgba);  // by columns: s = m0 u + m3 v + m6, ...
  EXPECT_EQ(V(texel.coords, texel.coords + 3),
            (V{2 * 0.5f + 7 * 0.25f + 17, 3 * 0.5f + 11 * 0.25f + 19, 5 * 0.5f + 13 * 0.25f + 23}));
  EXPECT_BITEQ(rgba[3], 1.0f);
  EXPECT_BITEQ(scaledScalarChannel(false, map, m, 3.0f, 2.0f, uv), 3.0f);
  EXPECT_BITEQ(scaledScalarChannel(true, map, m, 3.0f, 2.0f, uv), 0.5f * 3.0f * 2.0f);
  EXPECT_BITEQ(scaledScalarChannel(true, kNone, m, 3.0f, 2.0f, uv), 0.0f);
  EXPECT_BITEQ(scalarChannel(0x40, map, m, 3.0f, 2.0f, uv), 1.0f);
  float weight[3] = {2, 4, 8};
  const float tint[4] = {0.5f, 0.25f, 2.0f, 0.0f};
  applyTint(0, tint, weight);
  applyTint(3, tint, weight);
  EXPECT_EQ(V(weight, weight + 3), (V{1, 1, 16}));
  // Normal-map slopes: off, on without a texture, on (no remapping), with the amount map's red.
  FixedTexel normal(0.2f, -0.4f, 0.9f), strength(0.5f, 9.0f, 9.0f);
  const TextureRef normalMap{&normal, 0}, amountMap{&strength, 0};
  float slope[3];
  normalMapSlope(0, normalMap, m, 2.0f, 0, amountMap, m, uv, 1.0f, slope);
  EXPECT_EQ(V(slope, slope + 3), (V{0, 0, 1}));
  normalMapSlope(1, kNone, m, 2.0f, 0, amountMap, m, uv, 1.0f, slope);
  EXPECT_EQ(V(slope, slope + 3), (V{0, 0, 0}));
  normalMapSlope(1, normalMap, m, 2.0f, 0, amountMap, m, uv, 1.0f, slope);
  EXPECT_EQ(V(slope, slope + 3), (V{0.2f * (2.0f * 3.3f * 1.0f), -0.4f * (2.0f * 3.3f * 1.0f), 0.9f}));
  normalMapSlope(1, normalMap, m, 2.0f, 1, amountMap, m, uv, 1.0f, slope);
  EXPECT_BITEQ(slope[0], 0.2f * (0.5f * 3.3f * 1.0f));
  // Tile bump at scale 2 (cells of one uv unit): the centre and a tie go to +u, the steeper axis wins.
  struct Bump { float u, v, su, sv; };
  for (const Bump& b : {Bump{0.5f, 0.5f, 1, 0}, Bump{0.2f, 0.5f, -1, 0}, Bump{0.5f, 0.1f, 0, -1},
                        Bump{0.3f, 0.3f, -1, 0}, Bump{3.75f, -0.1f, 0, 1}}) {
    const float at[2] = {b.u, b.v};
    float s[2];
    tileBumpSlope(at, 2.0f, s);
    EXPECT_EQ(V(s, s + 2), (V{b.su, b.sv})) << b.u << ", " << b.v;
  }
}

// Each pattern at pitch 1, size 0.5 (uv scale 4, shifted by the centre 0.25):
// open at a hole's centre, solid at a cell's corner, a thin edge on the rim.
TEST(PhysicalChannels, ProceduralHolePatterns) {
  auto opacity = [](int32_t pattern, float x, float y) {
    const float uv[2] = {(x + 0.25f) / 4.0f, (y + 0.25f) / 4.0f};  // pattern coordinates (x, y)
    return evaluateCutoutOpacity(pattern, uv, 4.0f, kNone, kIdentity, 0.25f, 1.0f, 0.5f);
  };
  for (int32_t pattern : {1, 2, 3, 4, 6}) {
    const float cx = pattern == 3 ? 1.0f : 0.5f;  // slots have cells twice as long along u
    EXPECT_EQ(opacity(pattern, cx, 0.5f), 0.0f) << pattern;
    EXPECT_EQ(opacity(pattern, 0.02f, 0.02f), 1.0f) << pattern;
    EXPECT_NEAR(opacity(pattern, cx, 0.75f), 0.5f, 1e-4) << pattern;
    const float bad[2] = {kNaN, 0.5f};
    const float o = evaluateCutoutOpacity(pattern, bad, 4.0f, kNone, kIdentity, 0.0f, kNaN, kNaN);
    EXPECT_TRUE(o >= 0.0f && o <= 1.0f) << pattern;
  }
  // The shapes differ: (pattern, x, y) -> opacity. The edge runs 0.02 (4 % of
  // the pitch) to each side of the rim: 0.01 beyond it the opacity is 0.75.
  struct Point { int32_t pattern; float x, y, opacity; };
  for (const Point& p :
       {Point{1, 0.7f, 0.7f, 1}, Point{2, 0.7f, 0.7f, 0}, Point{4, 0.7f, 0.6f, 1}, Point{3, 1.2f, 0.5f, 0},
        Point{1, 1.2f, 0.5f, 1}, Point{6, 0.5f, 1.5f, 1}, Point{6, 1.0f, 1.5f, 0}, Point{1, 0.5f, 0.76f, 0.75f}})
    EXPECT_NEAR(opacity(p.pattern, p.x, p.y), p.opacity, 1e-4) << p.pattern << " at " << p.x << ", " << p.y;
  // The edge grows with the pitch: at a pitch of 2, 0.02 beyond the rim of a
  // hole of size 1 is a quarter of the way across it.
  const float nearRim[2] = {1.25f / 4.0f, 1.77f / 4.0f};
  EXPECT_NEAR(evaluateCutoutOpacity(1, nearRim, 4.0f, kNone, kIdentity, 0.25f, 2.0f, 1.0f), 0.75f, 1e-4);
}

TEST(PhysicalFrames, DegenerateInputsRotationAndTheBend) {
  float zero[9] = {0, 0, 3, 1, 1, 1, 0, 0, 1};  // a tangent along the normal leaves zero vectors
  orthonormalizeFrame(zero);
  EXPECT_EQ(V(zero, zero + 6), V(6, 0.0f));
  float turned[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  rotateFrame(turned, 0.5f);
  EXPECT_EQ(V(turned, turned + 6), (V{std::cos(0.5f), std::sin(0.5f), 0, -std::sin(0.5f), std::cos(0.5f), 0}));
  // The starting frame falls back from the tangent varying to the bitangent,
  // the host's tangent and a completed frame: orthonormal every time.
  const float n[3] = {0, 0.6f, 0.8f}, x[3] = {1, 0, 0}, nothing[3] = {0, 0, 0}, host[9] = {0, 0.6f, 0.8f};
  for (const float* t : {x, n, nothing})
    for (const float* b : {x, nothing}) {
      float f[9];
      initialFrame(t == x ? kIdentity : host, t, b, n, f);
      EXPECT_NEAR(dot3(f, f) + dot3(f + 3, f + 3) + std::fabs(dot3(f, f + 6)), 2.0, 1e-6);
    }
  // No perturbation leaves the frame; a tilt turns the tangent with the normal.
  const float down[3] = {0, 0, -1}, none[3] = {0, 0, 1}, tilt[3] = {0.5f, 0, 1};
  float frame[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  bendFrameTowardViewer(down, none, frame);
  EXPECT_EQ(V(frame, frame + 9), V(kIdentity, kIdentity + 9));
  bendFrameTowardViewer(down, tilt, frame);
  const float k = 1.0f / std::sqrt(1.25f), expected[9] = {k, 0, -0.5f * k, 0, 1, 0, 0.5f * k, 0, k};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(frame[i], expected[i], 1e-6) << i;
  // Bent away from a slanted viewer: the normal stands across the view, tilted 0.01 toward it.
  const float slanted[3] = {0.6f, 0, -0.8f}, away[3] = {3, 0, 1};
  float f[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  bendFrameTowardViewer(slanted, away, f);
  EXPECT_NEAR(dot3(slanted, f + 6), -0.01, 1e-6);
  EXPECT_NEAR(f[7], 0.0, 1e-7);  // in the plane of the view and the old normal
}

TEST(PhysicalLobes, CurvesLobeHemisphereAndHsl) {
  EXPECT_BITEQ(reflectanceCurve(0.0f), 1.0f);
  EXPECT_BITEQ(reflectanceCurve(-2.0f), 1.0f);
  EXPECT_BITEQ(reflectanceCurve(7.0f), reflectanceCurve(1.0f));
  EXPECT_BITEQ(reflectanceCurve(0.5f), 0.0463f * 0.0625f - 2.4278f * 0.125f + 5.3416f * 0.25f - 3.9282f * 0.5f + 1.0f);
  EXPECT_NEAR(samplingWidth(reflectanceCurve(1.0f)), 0.0, 1e-6);  // the floor 0.0319 maps to a mirror
  EXPECT_BITEQ(samplingWidth(0.05f), (0.05f - 0.0319f) * 1.468429f);  // the written remap, to the bit
  EXPECT_BITEQ(samplingWidth(0.1f), 0.1f);
  EXPECT_BITEQ(angularReflectivity(1.0f, 0.25f, 1.0f, 5.0f), 0.25f);
  EXPECT_BITEQ(angularReflectivity(-3.0f, 0.25f, 1.0f, 5.0f), 1.0f);
  const float o[3] = {0, 0, 0}, flat[3] = {1, 0, 0}, up[3] = {0, 0, 2}, slope[3] = {0.3f, -0.2f, 1.0f};
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, flat, 0.3f, 0.3f), 0.0f);
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, slope, 0.0f, 0.3f), 1.0f);
  EXPECT_BITEQ(anisotropicHalfVectorLobe(o, up, 0.5f, 0.25f), 1.0f / (0.5f * 3.141593f * 0.25f) * 4.0f / 16.0f);
  EXPECT_NEAR(anisotropicHalfVectorLobe(o, slope, 0.5f, 0.25f), std::exp(-1.0) / (0.5 * M_PI * 0.25) * 1.13, 1e-5);
  ScriptedContext context;
  context.samples2D = {{0.25f, 1.0f}};
  float d[3];
  EXPECT_BITEQ(sampleCosineHemisphere(&context, d), 1.0f);
  EXPECT_BITEQ(d[2], 0.01745241f);  // floored, not renormalised
  // HSL: rgb -> (h, s, l) -> rgb; greys give (0, 0, red) one way and the lightness the other.
  struct Case { float rgb[3], hsl[3]; };
  for (const Case& c :
       {Case{{0.2f, 0.2f, 0.2f}, {0, 0, 0.2f}}, Case{{0.8f, 0.2f, 0.2f}, {1, 0.6f, 0.5f}},
        Case{{0.2f, 0.8f, 0.2f}, {1.0f / 3, 0.6f, 0.5f}}, Case{{0.2f, 0.2f, 0.8f}, {2.0f / 3, 0.6f, 0.5f}},
        Case{{0.9f, 0.6f, 0.3f}, {1.0f / 12, 0.75f, 0.6f}}, Case{{-0.5f, 0.3f, 0.1f}, {0, 0, -0.5f}}}) {
    float hsl[3], rgb[3];
    rgbToHsl(c.rgb, hsl);
    hslToRgb(hsl, rgb);
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(hsl[i], c.hsl[i], 1e-6) << c.rgb[0] << " " << i;
      EXPECT_NEAR(hsl[1] != 0.0f ? rgb[i] : c.rgb[i], c.rgb[i], 1e-6) << c.rgb[0] << " " << i;
    }
  }
  const float grey[3] = {kNaN, 0.0f, 0.3f};
  float rgb[3];
  hslToRgb(grey, rgb);
  EXPECT_EQ(V(rgb, rgb + 3), V(3, 0.3f));
  // The falling ramp ends at 2/3 as stored (0.6666667f): one float below it,
  // its last step 6 x 2^-24 (full saturation, lightness 0.5: m1 = 0, m2 = 1).
  for (const auto& [hue, green] : {std::pair{std::nextafter(0.6666667f, 0.0f), 0x1.8p-22f}, {0.6666667f, 0.0f}}) {
    const float hsl[3] = {hue, 1.0f, 0.5f};
    hslToRgb(hsl, rgb);
    EXPECT_BITEQ(rgb[1], green) << hue;
  }
}

// The directions of sampleAnisotropicLobe follow the density it reports: the
// hemisphere in 16 x 24 bins of (cos theta, phi) plus one bin for failed
// draws, expected counts integrating the reported density over each bin, bins
// expected below 5 pooled. A width 3 % off fails this test.
TEST(PhysicalLobes, AnisotropicSamplerFollowsItsDensity) {
  constexpr int kSamples = 300000;
  struct LobeCase { float viewCosine, wx, wy; };
  for (const LobeCase& c : {LobeCase{1.0f, 0.3f, 0.3f}, LobeCase{0.7f, 0.5f, 0.15f}, LobeCase{0.3f, 0.25f, 0.6f},
                            LobeCase{0.15f, 0.8f, 0.4f}, LobeCase{0.9f, 0.12f, 0.08f}}) {
    SCOPED_TRACE(testing::Message() << "view cosine " << c.viewCosine << ", widths " << c.wx << ", " << c.wy);
    const float s = std::sqrt(1.0f - c.viewCosine * c.viewCosine);
    const float view[3] = {-s * 0.6f, -s * 0.8f, -c.viewCosine};
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    auto draw = [&](float l[3]) {
      const float xi[2] = {unit(rng), unit(rng)};
      LobeSample sample;
      if (!sampleAnisotropicLobe(xi, view, c.wx, c.wy, kIdentity, sample)) return false;
      std::copy(sample.local, sample.local + 3, l);
      return true;
    };
    auto density = [&](const float l[3]) {
      const float h[3] = {l[0] - view[0], l[1] - view[1], l[2] - view[2]}, o[3] = {0, 0, 0};
      return anisotropicHalfVectorLobe(o, h, c.wx, c.wy) * h[2] * 0.5;
    };
    const HemisphereChiSquare r = hemisphereChiSquare(draw, density, kSamples, 16, 24, 24);
    EXPECT_LE(r.expectedInside, kSamples * 1.001);  // the density integrates to at most 1
    EXPECT_GT(r.pValue, 1e-3);
  }
}

}  // namespace
}  // namespace kvi::test
