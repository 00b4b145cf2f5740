// Physical invariants of the dielectric and the metallic paint, driven
// through the module as a host drives them: Fresnel reflectance head on and
// total internal reflection, Snell's law, reciprocity, white furnaces, a
// chi-square test of the sampled directions against the density evaluateBsdf
// reports, and finite answers for every extreme input. The surface is the
// plane z = 0 at the origin, its normal towards the viewer.
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "test_shader.h"

namespace kvi::test {
namespace {

using Vec = std::array<float, 3>;
using Settings = std::vector<std::pair<const char*, std::vector<float>>>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kPi = 3.14159265f;
const char* const kGlass = "velk_qora_Mtl_Dielectric";
const char* const kPaint = "velk_qora_Mtl_MetallicPaint";

Vec fromAngle(float degrees, float azimuth = 0.0f) {
  const float t = degrees * kPi / 180.0f;
  return {std::sin(t) * std::cos(azimuth), std::sin(t) * std::sin(azimuth), std::cos(t)};
}
Vec flipZ(Vec v) { return {v[0], v[1], -v[2]}; }
Vec load(const float* v) { return {v[0], v[1], v[2]}; }

// A host whose random numbers are random; every lobe is offered.
class RandomContext : public host::BaseContext {
 public:
  explicit RandomContext(uint32_t seed = 1) : rng_(seed) {}
  float nextSample1D() override { return uniform(); }
  const float* nextSample2D(float b[2]) override {
    b[0] = uniform();
    b[1] = uniform();
    return b;
  }
  float uniform() { return float(rng_() >> 8) * 0x1p-24f; }

 private:
  std::mt19937 rng_;
};

// A configured material and hits on it.
struct Material {
  TestShader shader;
  Material(const char* name, const Settings& settings) : shader(name) {
    for (const auto& [parameter, values] : settings) {
      if (shader.info->findParameter(parameter)->kind == host::ParamKind::Bool)
        shader.block.setBool(parameter, values[0] != 0.0f);
      else
        shader.block.setFloats(parameter, values.data(), values.size());
    }
    shader.apply();
  }
  // Seen from `towardsViewer` (z > 0), from outside (`front`) or inside the
  // medium, the arriving ray having travelled `travelled` (the paint's flakes
  // fade by it, the glass absorbs along it from inside).
  ShadingState hit(Vec towardsViewer, bool front = true, float travelled = 1.0f) const {
    ShadingState s = shader.state();
    for (int k = 0; k < 3; ++k) {
      s.rayDirection[k] = -towardsViewer[k];
      s.normal[k] = s.geometricNormal[k] = s.tangentFrame[6 + k] = k == 2 ? 1.0f : 0.0f;
      s.tangentFrame[k] = k == 0 ? 1.0f : 0.0f;
      s.tangentFrame[3 + k] = k == 1 ? 1.0f : 0.0f;
    }
    s.frontFacing = front ? 1 : 0;
    s.reflectionAllowed = 1;
    s.lightDistance = travelled;
    shader.setVarying(s, "tangent", {1, 0, 0});
    shader.setVarying(s, "bitangent", {0, 1, 0});
    shader.setVarying(s, "uv", {0.25f, 0.75f});
    return s;
  }
  ShadingState sample(IShadingContext& context, ShadingState s) const {
    shader.material()->sampleBsdf(&context, &s);
    return s;
  }
  // BSDF x |cos light| (the weight) and the density of the light direction.
  ShadingState evaluate(Vec view, Vec light, bool front = true) const {
    ShadingState s = hit(view, front);
    for (int k = 0; k < 3; ++k) s.sampledDirection[k] = light[k];
    host::BaseContext context;
    shader.material()->evaluateBsdf(&context, &s);
    return s;
  }
};

Settings smoothGlass(float ior) { return {{"u_ior", {ior}}}; }
Settings roughGlass(float roughness) { return {{"u_ior", {1.5f}}, {"u_roughValue", {roughness}}}; }

// The paint with one layer on (white where a colour could add energy), or
// several: "coats" both coats over a white diffuse base, "all" everything.
Settings paintLayer(const std::string& layer) {
  Settings s = {{"u_baseColor", {0, 0, 0}}, {"u_flakeDensity", {0}}, {"u_clearCoatAmount", {0}},
                {"u_glossCoatAmount", {0}}, {"u_flakeColor", {1, 1, 1}}, {"u_flakeRoughness", {0.5f}},
                {"u_baseRoughness", {0.5f}}};
  auto add = [&](Settings more) { s.insert(s.end(), more.begin(), more.end()); };
  const bool all = layer == "all", coats = all || layer == "coats";
  if (layer == "diffuse") add({{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {0}}});
  if (layer == "metallic") add({{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {1}}});
  if (layer == "flakes") add({{"u_flakeDensity", {1}}, {"u_flakeFadeDistance", {1e6f}}});
  if (layer == "sheen") add({{"u_flakeDensity", {0.5f}}, {"u_flakeFadeDistance", {1e-3f}}});
  if (layer == "pearl") add({{"u_baseColor", {0.9f, 0.3f, 0.2f}}, {"u_pearlHueShift", {0.3f}}});
  if (layer == "clear" || coats) add({{"u_clearCoatAmount", {1}}, {"u_clearCoatRoughness", {all ? 0.0f : 0.4f}}});
  if (layer == "gloss" || coats) add({{"u_glossCoatAmount", {1}}});
  // A white diffuse base under the coats returns all it gets: any light
  // the coats count twice shows as a gain.
  if (coats) add({{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {all ? 0.5f : 0.0f}}});
  if (all) add({{"u_flakeDensity", {0.6f}}, {"u_flakeFadeDistance", {2.0f}}, {"u_pearlHueShift", {0.3f}}});
  return s;
}
const char* const kPaintLayers[] = {"diffuse", "metallic", "flakes", "sheen", "pearl", "clear", "gloss", "coats", "all"};

TEST(Dielectric, FresnelHeadOnIsTheClosedFormAndBeyondTheCriticalAngleAllIsReflected) {
  struct Case { float ior; bool front; float viewDegrees; float reflectance; };
  auto headOn = [](float n) { return (n - 1.0f) * (n - 1.0f) / ((n + 1.0f) * (n + 1.0f)); };
  for (const Case& c : {Case{1.5f, true, 0, headOn(1.5f)}, Case{1.33f, true, 0, headOn(1.33f)},
                        Case{2.42f, true, 0, headOn(2.42f)}, Case{1.5f, false, 0, headOn(1.5f)},
                        Case{0.75f, true, 0, headOn(0.75f)}, Case{1.5f, false, 42.0f, 1.0f},
                        Case{1.5f, false, 80.0f, 1.0f}, Case{0.75f, true, 60.0f, 1.0f}}) {
    SCOPED_TRACE(testing::Message() << c.ior << (c.front ? " outside " : " inside ") << c.viewDegrees);
    const Material glass(kGlass, smoothGlass(c.ior));
    ScriptedContext context;
    context.samples1D = {0.0f, 0.99999f};  // below F: reflect; above: refract unless F is 1
    const ShadingState reflected = glass.sample(context, glass.hit(fromAngle(c.viewDegrees), c.front));
    EXPECT_EQ(reflected.lobeFlags, 4);
    EXPECT_NEAR(reflected.pdf, c.reflectance, 2e-6f);
    EXPECT_EQ(load(reflected.bsdfWeight), (Vec{1, 1, 1}));
    const ShadingState other = glass.sample(context, glass.hit(fromAngle(c.viewDegrees), c.front));
    EXPECT_EQ(other.lobeFlags, c.reflectance < 1.0f ? 8 : 4);
    EXPECT_NEAR(other.pdf, c.reflectance < 1.0f ? 1.0f - c.reflectance : 1.0f, 2e-6f);
  }
}

TEST(Dielectric, RefractionFollowsSnellsLawInThePlaneOfIncidence) {
  for (float ior : {1.33f, 1.5f, 2.42f, 0.8f})
    for (bool front : {true, false})
      for (float degrees : {0.0f, 20.0f, 35.0f, 52.0f, 70.0f}) {
        const Material glass(kGlass, smoothGlass(ior));
        ScriptedContext context;
        context.sample1D = 0.99999f;
        const Vec view = fromAngle(degrees, 0.7f);
        const ShadingState s = glass.sample(context, glass.hit(view, front));
        const float beyond = front ? ior : 1.0f / ior, sinView = std::sin(degrees * kPi / 180.0f);
        if (sinView >= beyond) continue;  // total internal reflection
        ASSERT_EQ(s.lobeFlags, 8) << ior << " " << degrees;
        const Vec t = load(s.sampledDirection);
        EXPECT_NEAR(std::hypot(t[0], t[1]) * beyond, sinView, 2e-6f);
        EXPECT_NEAR(t[0] * view[1] - t[1] * view[0], 0.0f, 1e-6f);  // in the plane of incidence
        EXPECT_LE(t[0] * view[0], 0.0f);                           // on the far side of the normal
        EXPECT_LT(t[2], 0.0f);
      }
}

TEST(Dielectric, MaterialsAreReciprocalWhereTheModelIs) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> angle(2.0f, 85.0f), azimuth(0.0f, 2.0f * kPi);
  struct Case { const char* shader; Settings settings; bool refraction; };
  const std::vector<Case> cases = {{kGlass, roughGlass(0.4f), false}, {kGlass, roughGlass(0.7f), true},
                                   {kPaint, paintLayer("clear"), false}, {kPaint, paintLayer("coats"), false},
                                   {kPaint, paintLayer("pearl"), false}, {kPaint, paintLayer("sheen"), false}};
  for (const Case& c : cases) {
    const Material m(c.shader, c.settings);
    const float eta2 = c.refraction ? 1.5f * 1.5f : 1.0f;
    for (int n = 0; n < 200; ++n) {
      const Vec o = fromAngle(angle(rng), azimuth(rng)), i = fromAngle(angle(rng), azimuth(rng));
      // Refraction: light from below, seen from above; swapped, seen from inside.
      const Vec light = c.refraction ? flipZ(i) : i;
      const float forward = m.evaluate(o, light).bsdfWeight[1] / i[2] / eta2;
      const float backward = m.evaluate(i, c.refraction ? flipZ(o) : o, !c.refraction).bsdfWeight[1] / o[2];
      EXPECT_NEAR(forward, backward, 2e-4f * (forward + backward) + 1e-6f) << c.shader << " case " << n;
    }
  }
}

// The mean weight of sampleBsdf from a view, in its largest channel: the
// share of energy the surface keeps.
float albedo(const Material& m, Vec view, bool front, int samples, RandomContext& context) {
  double sum[3] = {0.0, 0.0, 0.0};
  for (int n = 0; n < samples; ++n) {
    const ShadingState s = m.sample(context, m.hit(view, front));
    if (s.lobeFlags != 0)
      for (int k = 0; k < 3; ++k) sum[k] += s.bsdfWeight[k] * s.pdf / s.pdfSecondary;
  }
  return float(std::max(std::max(sum[0], sum[1]), sum[2]) / samples);
}

TEST(Dielectric, WhiteFurnaceGainsNothingAndSmoothGlassLosesNothing) {
  // The least a material keeps from outside up to 45 degrees: smooth glass
  // everything, rough glass what the microsurface does not mask.
  struct Case { std::string label; const char* shader; Settings settings; float lowest; };
  std::vector<Case> cases = {{"glass", kGlass, smoothGlass(1.5f), 1.0f}, {"water", kGlass, smoothGlass(1.33f), 1.0f},
                             {"glass 0.2", kGlass, roughGlass(0.2f), 0.99f},
                             {"glass 0.6", kGlass, roughGlass(0.6f), 0.95f},
                             {"glass 1", kGlass, roughGlass(1.0f), 0.79f}};
  for (const char* layer : kPaintLayers) cases.push_back({layer, kPaint, paintLayer(layer), 0.0f});
  RandomContext context;
  for (const Case& c : cases)
    for (bool front : {true, false})
      for (float degrees : {0.0f, 45.0f, 75.0f, 88.0f}) {
        const float a = albedo(Material(c.shader, c.settings), fromAngle(degrees), front, 20000, context);
        SCOPED_TRACE(testing::Message() << c.label << " at " << degrees << (front ? " outside" : " inside"));
        EXPECT_LE(a, c.lowest == 1.0f ? 1.000001f : 1.01f);
        if (c.lowest == 1.0f || (front && degrees <= 45.0f)) {
          EXPECT_GE(a, c.lowest * 0.999999f);
        }
      }
  // A mirror lacquer over a white diffuse base keeps F(mu) + (1 - F(mu)) T,
  // T the cosine-weighted mean of 1 - F: what the coat reflects, the base
  // does not get again.
  auto fresnel = [](double c) {
    const double t = std::sqrt(1.0 - (1.0 - c * c) / 2.25), s = (c - 1.5 * t) / (c + 1.5 * t), p = (1.5 * c - t) / (1.5 * c + t);
    return 0.5 * (s * s + p * p);
  };
  double mean = 0.0;
  for (int k = 0; k < 1000; ++k) mean += (1.0 - fresnel(std::sqrt((k + 0.5) / 1000.0))) / 1000.0;
  Settings lacquer = paintLayer("diffuse");
  lacquer.push_back({"u_clearCoatAmount", {1}});
  for (float degrees : {0.0f, 60.0f, 85.0f}) {
    const double f = fresnel(std::cos(degrees * kPi / 180.0f));
    EXPECT_NEAR(albedo(Material(kPaint, lacquer), fromAngle(degrees), true, 20000, context), f + (1.0 - f) * mean, 5e-3);
  }
}

// Pearson's statistic of the directions sampleBsdf draws against the counts
// the density of evaluateBsdf predicts on a grid of equal-area cells of the
// sphere (two more cells: the samples the surface absorbs, and the mirror
// coat's, whose probability sampleBsdf reports), as a normal
// deviate (Wilson-Hilferty).
float chiSquareDeviate(const Material& m, Vec view, bool front) {
  constexpr int kRings = 16, kSectors = 24, kSamples = 60000;
  std::vector<double> observed(kRings * kSectors + 2, 0.0), expected(kRings * kSectors + 2, 0.0);
  double mirrorProbability = 0.0;
  auto cellOf = [](Vec d) {
    const int ring = std::min(kRings - 1, int((1.0f - d[2]) * 0.5f * kRings));
    const float phi = std::atan2(d[1], d[0]) + kPi;
    return ring * kSectors + std::min(kSectors - 1, int(phi / (2.0f * kPi) * kSectors));
  };
  RandomContext context(11);
  for (int n = 0; n < kSamples; ++n) {
    const ShadingState s = m.sample(context, m.hit(view, front));
    if (s.lobeFlags == 0 || s.lobeFlags == 4) {  // absorbed, or the mirror coat's delta
      observed[s.lobeFlags == 0 ? kRings * kSectors : kRings * kSectors + 1] += 1.0;
      mirrorProbability = s.lobeFlags == 4 ? s.pdf : mirrorProbability;
      continue;
    }
    const Vec d = load(s.sampledDirection);
    observed[size_t(cellOf(d))] += 1.0;
    const ShadingState e = m.evaluate(view, d, front);  // the weight is the BSDF over the density
    EXPECT_NEAR(s.bsdfWeight[0], e.bsdfWeight[0] / e.pdf, 1e-3f * s.bsdfWeight[0] + 1e-5f);
  }
  // Steps even in the polar angle resolve lobes that peak at the poles.
  constexpr int kPolarSteps = 512, kAzimuthSteps = kSectors * 12;
  double total = 0.0;
  for (int a = 0; a < kPolarSteps; ++a)
    for (int b = 0; b < kAzimuthSteps; ++b) {
      const float theta = kPi * (a + 0.5f) / kPolarSteps, phi = 2.0f * kPi * (b + 0.5f) / kAzimuthSteps;
      const Vec d{-std::sin(theta) * std::cos(phi), -std::sin(theta) * std::sin(phi), std::cos(theta)};
      const double area = std::sin(theta) * (kPi / kPolarSteps) * (2.0 * kPi / kAzimuthSteps);
      const double p = m.evaluate(view, d, front).pdf * area * kSamples;
      expected[size_t(cellOf(d))] += p;
      total += p;
    }
  expected[kRings * kSectors + 1] = mirrorProbability * kSamples;
  expected[kRings * kSectors] = std::max(0.0, kSamples - total - expected[kRings * kSectors + 1]);
  double chi2 = 0.0, pooledObserved = 0.0, pooledExpected = 0.0;
  int cells = 0;
  for (size_t k = 0; k < observed.size(); ++k) {
    if (expected[k] < 5.0) {
      pooledObserved += observed[k];
      pooledExpected += expected[k];
    } else {
      chi2 += (observed[k] - expected[k]) * (observed[k] - expected[k]) / expected[k];
      ++cells;
    }
  }
  if (pooledExpected >= 5.0) chi2 += (pooledObserved - pooledExpected) * (pooledObserved - pooledExpected) / pooledExpected, ++cells;
  else EXPECT_LT(pooledObserved, 20.0) << "samples where the density predicts none";
  const double dof = cells - 1, scale = 2.0 / (9.0 * dof);
  return float((std::cbrt(chi2 / dof) - (1.0 - scale)) / std::sqrt(scale));
}

TEST(Dielectric, SampledDirectionsFollowTheReportedDensity) {
  struct Case { std::string label; const char* shader; Settings settings; };
  std::vector<Case> cases = {{"glass 0.5", kGlass, roughGlass(0.5f)}, {"glass 0.8", kGlass, roughGlass(0.8f)}};
  for (const char* layer : kPaintLayers) cases.push_back({layer, kPaint, paintLayer(layer)});
  for (const Case& c : cases)
    for (bool front : {true, false})
      for (float degrees : {10.0f, 65.0f}) {
        if (!front && c.shader == kPaint) continue;
        SCOPED_TRACE(testing::Message() << c.label << " at " << degrees << (front ? " outside" : " inside"));
        EXPECT_LT(chiSquareDeviate(Material(c.shader, c.settings), fromAngle(degrees, 0.3f), front), 4.5f);
      }
}

// Every operation, for every hit, answers finite weights, densities and
// colours, whatever the parameters.
void expectFiniteEverywhere(const char* shader, const Settings& settings, const std::string& label) {
  const Material m(shader, settings);
  RandomContext context(5);
  context.noise = 0.7f;
  for (float degrees : {0.0f, 40.0f, 89.9f})
    for (bool front : {true, false})
      for (float travelled : {0.0f, 1.0f, kInf}) {
        for (int n = 0; n < 20; ++n) {
          ShadingState s = m.hit(fromAngle(degrees, 1.0f), front, travelled);
          s.sampledDirection[0] = 0.6f, s.sampledDirection[2] = n % 2 ? 0.8f : -0.8f;
          MaterialShader* op = m.shader.material();
          op->evaluateBsdf(&context, &s);
          for (float v : {s.bsdfWeight[0], s.bsdfWeight[1], s.bsdfWeight[2], s.pdf}) EXPECT_TRUE(std::isfinite(v)) << label;
          op->sampleBsdf(&context, &s);
          for (float v : {s.bsdfWeight[0], s.bsdfWeight[1], s.bsdfWeight[2], s.pdf, s.pdfSecondary})
            EXPECT_TRUE(std::isfinite(v)) << label;
          op->shadowTransmission(&context, &s);
          op->evaluateRadiance(&context, &s);
          for (int k = 0; k < 3; ++k)
            EXPECT_TRUE(std::isfinite(s.shadowTransmission[k]) && std::isfinite(s.radiance[k])) << label;
        }
      }
}

TEST(Dielectric, ExtremeInputsGiveFiniteAnswersAndDocumentedEvents) {
  for (float ior : {1.0f, 0.5f, 0.0f, -1.0f, kNaN, kInf, 1e30f})
    for (float rough : {0.0f, 0.5f, -1.0f, 1e30f, kNaN})
      expectFiniteEverywhere(kGlass, {{"u_ior", {ior}}, {"u_roughValue", {rough}}, {"u_wavesEnable", {1}}},
                             "ior " + std::to_string(ior) + " rough " + std::to_string(rough));
  for (float distance : {0.0f, -1.0f, 1e-30f, kInf, kNaN})
    for (float scale : {0.0f, 1e-30f, kNaN})
      expectFiniteEverywhere(kGlass, {{"u_transmissionColor", {0, 0.5f, 1}}, {"u_transmissionDistance", {distance}},
                                      {"u_wavesEnable", {1}}, {"u_wavesScale", {scale}}, {"u_wavesHeight", {kInf}}},
                             "distance " + std::to_string(distance));
  for (float density : {0.0f, 1e30f, -1.0f, kNaN})
    for (float size : {0.0f, 1e-30f, -1.0f, kInf, kNaN})
      expectFiniteEverywhere(kPaint, {{"u_flakeDensity", {density}}, {"u_flakeSize", {size}},
                                      {"u_flakeFadeDistance", {size}}, {"u_pearlHueShift", {size}},
                                      {"u_clearCoatIor", {size}}, {"u_clearCoatRoughness", {density}},
                                      {"u_glossCoatRoughness", {size}}, {"u_baseColor", {kNaN, kInf, -1}}},
                             "flakes " + std::to_string(density) + " " + std::to_string(size));

  // An index of 1, or one that means nothing (0, negative, NaN), lets light
  // straight through; a black transmission colour absorbs inside and in shadows.
  ScriptedContext context;
  for (float ior : {1.0f, 0.0f, -2.0f, kNaN}) {
    const Material m(kGlass, {{"u_ior", {ior}}, {"u_roughValue", {0.5f}}});
    const ShadingState s = m.sample(context, m.hit(fromAngle(30.0f)));
    EXPECT_EQ(s.lobeFlags, 64) << ior;
    EXPECT_EQ(load(s.bsdfWeight), (Vec{1, 1, 1})) << ior;
  }
  const Material black(kGlass, {{"u_transmissionColor", {0, 0, 0}}});
  context.sample1D = 0.99f;
  EXPECT_EQ(load(black.sample(context, black.hit(fromAngle(10.0f), false, 0.01f)).bsdfWeight), (Vec{0, 0, 0}));
  ShadingState shadow = black.hit(fromAngle(10.0f));
  black.shader.material()->shadowTransmission(&context, &shadow);
  EXPECT_EQ(load(shadow.shadowTransmission), (Vec{0, 0, 0}));
}

}  // namespace
}  // namespace kvi::test
