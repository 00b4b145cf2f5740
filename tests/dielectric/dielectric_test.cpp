// Physical invariants of the dielectric and the metallic paint, driven
// through the module as a host drives them: Fresnel reflectance head on and
// total internal reflection, Snell's law, reciprocity, white furnaces, a
// chi-square test of the sampled directions against the density evaluateBsdf
// reports, and finite answers for every extreme input. The surface is the
// plane z = 0 at the origin, its normal towards the viewer.
#include "kvi/host/samplers.h"
#include "statistics.h"
#include "tables.h"

namespace kvi::test {
namespace {

using Vec = std::array<float, 3>;
constexpr float kPi = 3.14159265f;
const char* const kGlass = "velk_qora_Mtl_Dielectric";
const char* const kPaint = "velk_qora_Mtl_MetallicPaint";

Vec fromAngle(float degrees, float azimuth = 0.0f) {
  const float t = degrees * kPi / 180.0f;
  return {std::sin(t) * std::cos(azimuth), std::sin(t) * std::sin(azimuth), std::cos(t)};
}
Vec flipZ(Vec v) { return {v[0], v[1], -v[2]}; }
Vec load(const float* v) { return {v[0], v[1], v[2]}; }

// A configured material and hits on it.
struct Material {
  TestShader shader;
  Material(const char* name, const Params& params) : shader(name) {
    setParams(shader.block, params);
    shader.apply();
  }
  // Seen from `towardsViewer` (z > 0), from outside (`front`) or inside the
  // medium, the arriving ray having travelled `travelled` (the paint's flakes
  // fade by it, the glass absorbs along it from inside).
  ShadingState hit(Vec towardsViewer, bool front = true, float travelled = 1.0f) const {
    ShadingState s = shader.state();
    for (int k = 0; k < 3; ++k) s.rayDirection[k] = -towardsViewer[k];
    s.normal[2] = s.geometricNormal[2] = 1.0f;
    s.frontFacing = front ? 1 : 0;
    s.lightDistance = travelled;
    shader.setVarying(s, "tangent", {1, 0, 0});
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

Params smoothGlass(float ior) { return {{"u_ior", {ior}}}; }
Params roughGlass(float roughness) { return {{"u_ior", {1.5f}}, {"u_roughValue", {roughness}}}; }

// The paint with one layer on (white where a colour could add energy), or
// several: "coats" both coats over a white diffuse base, "all" everything.
Params paintLayer(const std::string& layer) {
  Params s = {{"u_baseColor", {0, 0, 0}}, {"u_flakeDensity", {0}}, {"u_clearCoatAmount", {0}},
              {"u_glossCoatAmount", {0}}, {"u_flakeColor", {1, 1, 1}}, {"u_flakeRoughness", {0.5f}},
              {"u_baseRoughness", {0.5f}}};
  const bool all = layer == "all", coats = all || layer == "coats";
  if (layer == "diffuse") s = s + Params{{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {0}}};
  if (layer == "metallic") s = s + Params{{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {1}}};
  if (layer == "flakes") s = s + Params{{"u_flakeDensity", {1}}, {"u_flakeFadeDistance", {1e6f}}};
  if (layer == "sheen") s = s + Params{{"u_flakeDensity", {0.5f}}, {"u_flakeFadeDistance", {1e-3f}}};
  if (layer == "pearl") s = s + Params{{"u_baseColor", {0.9f, 0.3f, 0.2f}}, {"u_pearlHueShift", {0.3f}}};
  if (layer == "clear" || coats)
    s = s + Params{{"u_clearCoatAmount", {1}}, {"u_clearCoatRoughness", {all ? 0.0f : 0.4f}}};
  if (layer == "gloss" || coats) s = s + Params{{"u_glossCoatAmount", {1}}};
  // A white diffuse base under the coats returns all it gets: any light
  // the coats count twice shows as a gain.
  if (coats) s = s + Params{{"u_baseColor", {1, 1, 1}}, {"u_baseMetallic", {all ? 0.5f : 0.0f}}};
  if (all) s = s + Params{{"u_flakeDensity", {0.6f}}, {"u_flakeFadeDistance", {2.0f}}, {"u_pearlHueShift", {0.3f}}};
  return s;
}
const char* const kPaintLayers[] = {"diffuse", "metallic", "flakes", "sheen", "pearl",
                                    "clear",   "gloss",    "coats",  "all"};

// A smooth boundary reflects with the probability F that sampleBsdf reports:
// ((n - 1) / (n + 1))^2 head on, 1 beyond the critical angle; otherwise it
// refracts by Snell's law, in the plane of incidence, to the far side. An
// index below 0.01 or above 100 acts as that bound (the boundary is already
// nearly a mirror there).
TEST(Dielectric, FresnelHeadOnTotalInternalReflectionAndSnellsLaw) {
  const float indices[][2] = {{1.33f, 1.33f}, {1.5f, 1.5f}, {2.42f, 2.42f}, {0.75f, 0.75f}, {1e-4f, 0.01f},
                              {1e30f, 100.0f}};  // (u_ior, the index it acts as)
  for (const auto [given, ior] : indices)
    for (bool front : {true, false})
      for (float degrees : {0.0f, 20.0f, 42.0f, 60.0f, 80.0f}) {
        SCOPED_TRACE(testing::Message() << ior << (front ? " outside " : " inside ") << degrees);
        const Material glass(kGlass, smoothGlass(given));
        const float beyond = front ? ior : 1.0f / ior, sinView = std::sin(degrees * kPi / 180.0f);
        const bool total = sinView >= beyond;
        const Vec view = fromAngle(degrees, 0.7f);
        ScriptedContext context;
        context.samples1D = {0.0f, 0.99999f};  // below F: reflect; above: refract unless F is 1
        const ShadingState reflected = glass.sample(context, glass.hit(view, front));
        EXPECT_EQ(reflected.lobeFlags, 4);
        EXPECT_EQ(load(reflected.bsdfWeight), (Vec{1, 1, 1}));
        const float headOn = (ior - 1) * (ior - 1) / ((ior + 1) * (ior + 1));
        if (total || degrees == 0.0f) { EXPECT_NEAR(reflected.pdf, total ? 1.0f : headOn, 2e-6f); }
        const ShadingState s = glass.sample(context, glass.hit(view, front));
        ASSERT_EQ(s.lobeFlags, total ? 4 : 8);
        if (total) continue;
        EXPECT_NEAR(s.pdf, 1.0f - reflected.pdf, 2e-6f);
        const Vec t = load(s.sampledDirection);
        EXPECT_NEAR(std::hypot(t[0], t[1]) * beyond, sinView, 2e-6f);
        EXPECT_NEAR(t[0] * view[1] - t[1] * view[0], 0.0f, 1e-6f);
        EXPECT_LE(t[0] * view[0], 0.0f);
        EXPECT_LT(t[2], 0.0f);
      }
}

TEST(Dielectric, MaterialsAreReciprocalWhereTheModelIs) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> angle(2.0f, 85.0f), azimuth(0.0f, 2.0f * kPi);
  struct Case { const char* shader; Params params; bool refraction; };
  const std::vector<Case> cases = {{kGlass, roughGlass(0.4f), false}, {kGlass, roughGlass(0.7f), true},
                                   {kPaint, paintLayer("clear"), false}, {kPaint, paintLayer("coats"), false},
                                   {kPaint, paintLayer("pearl"), false}, {kPaint, paintLayer("sheen"), false}};
  for (const Case& c : cases) {
    const Material m(c.shader, c.params);
    const float eta2 = c.refraction ? 1.5f * 1.5f : 1.0f;
    for (int n = 0; n < 200; ++n) {
      const Vec o = fromAngle(angle(rng), azimuth(rng)), i = fromAngle(angle(rng), azimuth(rng));
      // Refraction: light from below, seen from above; swapped, seen from inside.
      const float forward = m.evaluate(o, c.refraction ? flipZ(i) : i).bsdfWeight[1] / i[2] / eta2;
      const float backward = m.evaluate(i, c.refraction ? flipZ(o) : o, !c.refraction).bsdfWeight[1] / o[2];
      EXPECT_NEAR(forward, backward, 2e-4f * (forward + backward) + 1e-6f) << c.shader << " case " << n;
    }
  }
}

// The mean weight of sampleBsdf from a view, in its largest channel: the
// share of energy the surface keeps.
float albedo(const Material& m, Vec view, bool front, RandomContext& context) {
  constexpr int kSamples = 20000;
  double sum[3] = {0.0, 0.0, 0.0};
  for (int n = 0; n < kSamples; ++n) {
    const ShadingState s = m.sample(context, m.hit(view, front));
    if (s.lobeFlags != 0)
      for (int k = 0; k < 3; ++k) sum[k] += s.bsdfWeight[k] * s.pdf / s.pdfSecondary;
  }
  return float(std::max(std::max(sum[0], sum[1]), sum[2]) / kSamples);
}

TEST(Dielectric, WhiteFurnaceGainsNothingAndSmoothGlassLosesNothing) {
  // The least a material keeps from outside up to 45 degrees: smooth glass
  // everything, rough glass what the microsurface does not mask.
  struct Case { std::string label; const char* shader; Params params; float lowest; };
  std::vector<Case> cases = {{"glass", kGlass, smoothGlass(1.5f), 1.0f}, {"water", kGlass, smoothGlass(1.33f), 1.0f},
                             {"glass 0.2", kGlass, roughGlass(0.2f), 0.99f},
                             {"glass 0.6", kGlass, roughGlass(0.6f), 0.95f},
                             {"glass 1", kGlass, roughGlass(1.0f), 0.79f}};
  for (const char* layer : kPaintLayers) cases.push_back({layer, kPaint, paintLayer(layer), 0.0f});
  RandomContext context;
  for (const Case& c : cases)
    for (bool front : {true, false})
      for (float degrees : {0.0f, 45.0f, 75.0f, 88.0f}) {
        const float a = albedo(Material(c.shader, c.params), fromAngle(degrees), front, context);
        SCOPED_TRACE(testing::Message() << c.label << " at " << degrees << (front ? " outside" : " inside"));
        EXPECT_LE(a, c.lowest == 1.0f ? 1.000001f : 1.01f);
        if (c.lowest == 1.0f || (front && degrees <= 45.0f)) { EXPECT_GE(a, c.lowest * 0.999999f); }
      }
  // A mirror lacquer over a white diffuse base keeps F(mu) + (1 - F(mu)) T,
  // T the cosine-weighted mean of 1 - F: what the coat reflects, the base
  // does not get again.
  auto fresnel = [](double c) {
    const double t = std::sqrt(1.0 - (1.0 - c * c) / 2.25);
    const double s = (c - 1.5 * t) / (c + 1.5 * t), p = (1.5 * c - t) / (1.5 * c + t);
    return 0.5 * (s * s + p * p);
  };
  double mean = 0.0;
  for (int k = 0; k < 1000; ++k) mean += (1.0 - fresnel(std::sqrt((k + 0.5) / 1000.0))) / 1000.0;
  const Material lacquer(kPaint, paintLayer("diffuse") + Params{{"u_clearCoatAmount", {1}}});
  for (float degrees : {0.0f, 60.0f, 85.0f}) {
    const double f = fresnel(std::cos(degrees * kPi / 180.0f));
    EXPECT_NEAR(albedo(lacquer, fromAngle(degrees), true, context), f + (1.0 - f) * mean, 5e-3);
  }
}

// The directions sampleBsdf draws on each side of the surface follow the
// density evaluateBsdf reports there (the draws that leave on the other
// side, are absorbed or take the mirror coat fill the bin of failed draws),
// and each weight is the BSDF over that density. The chi-square bins and
// integrates in z = 1 - 2 theta / pi, even in the polar angle theta, which
// resolves lobes that peak at the poles (the density gains the Jacobian
// sin theta pi / 2).
TEST(Dielectric, SampledDirectionsFollowTheReportedDensity) {
  struct Case { std::string label; const char* shader; Params params; };
  std::vector<Case> cases = {{"glass 0.5", kGlass, roughGlass(0.5f)}, {"glass 0.8", kGlass, roughGlass(0.8f)}};
  for (const char* layer : kPaintLayers) cases.push_back({layer, kPaint, paintLayer(layer)});
  for (const Case& c : cases)
    for (bool front : {true, false})
      for (float degrees : {10.0f, 65.0f})
        for (float side : {1.0f, -1.0f}) {
          if (c.shader == kPaint && !(front && side > 0)) continue;  // the paint reflects only, from outside
          SCOPED_TRACE(testing::Message() << c.label << " at " << degrees << (front ? " outside" : " inside")
                                          << (side > 0 ? ", reflected" : ", transmitted"));
          const Material m(c.shader, c.params);
          const Vec view = fromAngle(degrees, 0.3f);
          RandomContext context(11);
          auto draw = [&](float l[3]) {
            const ShadingState s = m.sample(context, m.hit(view, front));
            const Vec d = load(s.sampledDirection);
            if (s.lobeFlags == 0 || s.lobeFlags == 4 || !(d[2] * side > 0.0f)) return false;
            const ShadingState e = m.evaluate(view, d, front);
            EXPECT_NEAR(s.bsdfWeight[0], e.bsdfWeight[0] / e.pdf, 1e-3f * s.bsdfWeight[0] + 1e-5f);
            const double r = std::hypot(d[0], d[1]), z = 1.0 - std::acos(std::min(1.0, double(d[2] * side))) / (M_PI / 2);
            const double scale = r > 0.0 ? std::sqrt(1.0 - z * z) / r : 0.0;
            l[0] = float(d[0] * scale), l[1] = float(d[1] * scale), l[2] = float(z);
            return true;
          };
          auto density = [&](const float l[3]) {
            const double theta = (1.0 - l[2]) * M_PI / 2, r = std::hypot(l[0], l[1]);
            const double scale = r > 0.0 ? std::sin(theta) / r : 0.0;
            const Vec d{float(l[0] * scale), float(l[1] * scale), float(side * std::cos(theta))};
            return m.evaluate(view, d, front).pdf * std::sin(theta) * M_PI / 2;
          };
          const HemisphereChiSquare r = hemisphereChiSquare(draw, density, 60000, 12, 24, 12);
          EXPECT_GT(r.pValue, 1e-5);
          EXPECT_LT(r.pooledObserved, r.pooledExpected + 5.0 * std::sqrt(r.pooledExpected + 1.0))
              << "samples where the density predicts none";
        }
}

// Every operation, for every hit, answers finite weights, densities and
// colours, whatever the parameters.
void expectFiniteEverywhere(const char* shader, const Params& params) {
  const Material m(shader, params);
  RandomContext context(5);
  context.noise = 0.7f;
  MaterialShader* op = m.shader.material();
  for (float degrees : {0.0f, 40.0f, 89.9f})
    for (bool front : {true, false})
      for (float travelled : {0.0f, 1.0f, kInf})
        for (float lightZ : {0.8f, -0.8f}) {
          ShadingState s = m.hit(fromAngle(degrees, 1.0f), front, travelled);
          s.sampledDirection[0] = 0.6f, s.sampledDirection[2] = lightZ;
          op->evaluateBsdf(&context, &s);
          const float answers[] = {s.bsdfWeight[0], s.bsdfWeight[1], s.bsdfWeight[2], s.pdf};
          op->sampleBsdf(&context, &s);
          op->shadowTransmission(&context, &s);
          op->evaluateRadiance(&context, &s);
          for (float v : answers) EXPECT_TRUE(std::isfinite(v));
          for (int k = 0; k < 3; ++k)
            for (float v : {s.bsdfWeight[k], s.shadowTransmission[k], s.radiance[k], s.pdf})
              EXPECT_TRUE(std::isfinite(v));
        }
}

TEST(Dielectric, ExtremeInputsGiveFiniteAnswersAndDocumentedEvents) {
  for (float ior : {1.0f, 0.5f, 0.0f, -1.0f, kNaN, kInf})
    for (float rough : {0.0f, 0.5f, -1.0f, 1e30f, kNaN}) {
      SCOPED_TRACE(testing::Message() << "ior " << ior << " roughness " << rough);
      expectFiniteEverywhere(kGlass, {{"u_ior", {ior}}, {"u_roughValue", {rough}}, {"u_wavesEnable", {1}}});
    }
  for (float x : {0.0f, -1.0f, 1e-30f, kInf, kNaN}) {
    SCOPED_TRACE(testing::Message() << "distance and scale " << x);
    expectFiniteEverywhere(kGlass, {{"u_transmissionColor", {0, 0.5f, 1}}, {"u_transmissionDistance", {x}},
                                    {"u_wavesEnable", {1}}, {"u_wavesScale", {x}}, {"u_wavesHeight", {kInf}}});
    for (float density : {0.0f, 1e30f, kNaN}) {
      SCOPED_TRACE(testing::Message() << "flake density " << density);
      expectFiniteEverywhere(kPaint, {{"u_flakeDensity", {density}}, {"u_flakeSize", {x}}, {"u_flakeFadeDistance", {x}},
                                      {"u_pearlHueShift", {x}}, {"u_clearCoatIor", {x}}, {"u_glossCoatRoughness", {x}},
                                      {"u_clearCoatRoughness", {density}}, {"u_baseColor", {kNaN, kInf, -1}}});
    }
  }
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
  // A normal map tilts the surface 45 degrees towards a grazing viewer: a
  // reflection the microsurface sends below it, even where it stays above
  // the geometry, is absorbed, so under a black reflection colour no
  // reflection carries light.
  host::ConstantSampler tilt({1.0f / 3.3f, 0.0f, 1.0f, 1.0f});
  const Material bent(kGlass, roughGlass(1.0f) + Params{{"u_reflectColor", {0, 0, 0}}, {"u_normal0MapEnable", {1}},
                                                        {"u_normal0Map", {}, &tilt}, {"u_normal0Amount", {1}}});
  RandomContext random(9);
  int lit = 0;
  for (float degrees : {80.0f, 89.0f})
    for (int k = 0; k < 3000; ++k) {
      const ShadingState s = bent.sample(random, bent.hit(fromAngle(degrees)));
      lit += s.lobeFlags == 2 && s.bsdfWeight[0] > 0.0f;
    }
  // Light samples agree: a light above the geometry is answered only as a
  // reflection (black here), never as a refraction out through the bent surface.
  for (float degrees = 1.0f; degrees < 90.0f; degrees += 4.0f)
    for (float azimuth = 0.0f; azimuth < 6.28f; azimuth += 0.3f)
      lit += bent.evaluate(fromAngle(80.0f), fromAngle(degrees, azimuth)).bsdfWeight[0] > 0.0f;
  EXPECT_EQ(lit, 0);
}

}  // namespace
}  // namespace kvi::test
