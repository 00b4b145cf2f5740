// The light shaders through the module loader: one table of what each light
// writes for a configuration (colour to the bit, and what it does with the
// shadow), one of the point and spot lights' falloff, then the image-based
// light, the area light's cube maps against the host's convention, the
// physically based lights' closed forms, and the host's lat-long sampler and
// IES reader that the image lights rely on.
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <tuple>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/error.h"
#include "kvi/host/photometric_web.h"
#include "kvi/host/samplers.h"
#include "tables.h"

namespace kvi::test {
namespace {

constexpr double kPiD = 3.14159265358979;

void set(float (&field)[3], Color value) { std::memcpy(field, value.data(), sizeof field); }

// A pattern-filled state: the point at the origin, the light sample 2 units
// above it on the light's axis, the direction from the light to the point.
ShadingState lightSample(float distance = 2.0f, Color direction = {0, 0, -1}, Color axis = {0, 0, -1}) {
  ShadingState s = patternState();
  set(s.position, {0, 0, 0}), set(s.lightSamplePosition, {0, 0, 2});
  set(s.lightAxis, axis), set(s.lightDirection, direction);
  s.lightDistance = distance;
  return s;
}

ShadingState shade(const char* shader, const Params& params, ShadingState state, ScriptedContext& context) {
  configured(shader, params).light()->shade(&context, &state);
  return state;
}

// What a light does with the shadow: copies the host's answer, writes full
// transmission without asking, leaves the field alone, or asks and writes
// full transmission because the shadow is blended into the colour.
enum Shadow { kAsked, kFull, kUntouched, kBlended };

// Shades a light sample `distance` away along `direction` (the axis is
// (0, 0, -1)), the host answering `transmission` for the shadow, and checks
// the colour to the bit, the shadow and that nothing else was written.
void expectLight(const char* shader, const Params& params, Color color, Shadow shadow, float distance = 2,
                 Color transmission = {0.25f, 0.5f, 0.75f}, Color direction = {0, 0, -1}) {
  ScriptedContext context;
  std::copy(transmission.begin(), transmission.end(), context.shadow);
  const ShadingState before = lightSample(distance, direction), after = shade(shader, params, before, context);
  expectBits(after.lightColor, {color.begin(), color.end()});
  EXPECT_EQ(context.totalCalls(), shadow == kAsked || shadow == kBlended ? 1 : 0);
  EXPECT_EQ(context.lastShadowTo, (context.totalCalls() ? Color{0, 0, 2} : Color{}));  // from the point, at the origin
  const Color full{1, 1, 1}, &written = shadow == kAsked ? transmission : full;
  if (shadow != kUntouched) expectBits(after.lightShadow, {written.begin(), written.end()});
  EXPECT_TRUE(onlyWrote(before, after, &ShadingState::lightColor,
                        shadow == kUntouched ? &ShadingState::lightColor : &ShadingState::lightShadow));
}

// Every light at its defaults, its shadow switch off and holding 0x80, at
// distances that must not matter: the colour, and the shadow asked, written
// full or left alone.
TEST(Lights, ColourAndShadowFollowEachLightsSwitch) {
  const std::tuple<const char*, const char*, Shadow, Color> lights[] = {  // switch, what off means, default colour
      {"AmbientLight", "", kUntouched, {1, 1, 1}},
      {"SimplePointLight", "", kAsked, {1, 1, 1}},
      {"DirectionalLight", "castShadows", kFull, {0.5f, 0.1f, 1}},
      {"PointLight", "castShadows", kFull, {1, 0.5f, 0.1f}},
      {"SpotLight", "castShadows", kFull, {0.1f, 1, 0.5f}},
      {"velk_qora_Lgt_Direction", "cast_shadows", kUntouched, {1, 1, 1}},
      {"velk_qora_Lgt_Sky", "cast_shadows", kUntouched, {1, 1, 1}}};
  for (const auto& [shader, flag, off, color] : lights)
    for (float value : {-1.0f, 0.0f, 128.0f}) {  // -1: left at its default, on
      if (!*flag && value >= 0) continue;
      SCOPED_TRACE(::testing::Message() << shader << " " << flag << " " << value);
      expectLight(shader, value >= 0 ? Params{{flag, {value}}} : Params{}, color, value == 0 || !*flag ? off : kAsked,
                  value == 0 ? 0.0f : 1e6f);
    }
  expectLight("SimplePointLight", {{"color", {0, 0, 0}}}, {0, 0, 0}, kAsked);  // asked even when black
  expectLight("velk_qora_Lgt_Direction", {{"color", {0.5f, -0.25f, 3e38f}}, {"intensity", {-2}}}, {-1, 0.5f, -kInf},
              kAsked);  // unclamped
  expectLight("velk_qora_Lgt_Sky", {{"intensity", {0.5f, 2, -1}}}, {0.5f, 2, -1}, kAsked);  // a colour here
  expectLight("SpotLight", {}, {0, 0, 0}, kAsked, 2, {1, 1, 1}, {0.6f, 0, -0.8f});  // outside the cone: asked, black
}

// The area light: unshadowed, integratedColor x c / (d^exponent x units),
// clamped near the light; shadowed, the host's transmission T blended with
// the shadow colour by a = (1 - T) density in three regimes of
// m = (ag + ar + ab) 0.333, with or without the light colour (L).
TEST(AreaLight, FalloffAndShadowBlendToTheBit) {
  const char* area = "velk_qora_Lgt_Diffuse";
  expectLight(area, {{"integratedColor", {2, 3, 4}}, {"intensity", {5}}}, {0.25f, 0.375f, 0.5f}, kUntouched, 2, {},
              {0.8660254f, 0, -0.5f});  // c = 0.5 over 2^2, no intensity
  expectLight(area, {}, {0, 0, 0}, kUntouched, 2, {}, {0.8660254f, 0, 0.5f});  // behind its axis
  expectLight(area, {{"exponent", {3}}, {"exponentUnitsMultiplier", {0.5f}}}, {1 / 13.5f, 1 / 13.5f, 1 / 13.5f},
              kUntouched, 3);
  const Params clamp{{"exponentLowerClamp", {2}}, {"exponentUpperClamp", {8}}};
  expectLight(area, clamp, {0.2f, 0.2f, 0.2f}, kUntouched);  // 4 is half-way to the upper clamp: 1 + 4
  expectLight(area, clamp, {0.5f, 0.5f, 0.5f}, kUntouched, 0);  // the lower clamp
  // C = (0.5, 0.25, 2), S = (0.25, 0.5, 0.75), at distance 1 on the axis (k = 1).
  const Params shadowed{{"cast_shadows", {1}}, {"color", {0.5f, 0.25f, 2}}, {"shadowCol", {0.25f, 0.5f, 0.75f}}};
  const std::tuple<const char*, Color, float, Color, Color> rows[] = {  // T, density, blend, with L
      {"unoccluded: m = 0, C", {1, 1, 1}, 1, {0.5f, 0.25f, 2}, {0.5f, 0.25f, 2}},
      {"m = 0.999: S, or S C", {0, 0, 0}, 1, {0.25f, 0.5f, 0.75f}, {0.125f, 0.125f, 1.5f}},
      {"m > 1: a S, or a C S", {0.25f, 0.5f, 0}, 2, {0.375f, 0.5f, 1.5f}, {0.1875f, 0.125f, 3}},
      {"m < 0: a S + C, or (a S + 1) C", {0, 0, 0}, -1, {0.25f, -0.25f, 1.25f}, {0.375f, 0.125f, 0.5f}},
      {"m NaN: as below 0", {kNaN, 0, 0}, 1, {kNaN, 0.75f, 2.75f}, {kNaN, 0.375f, 3.5f}},
      // ag + ar rounds to 4 before ab = -4 is added: m = 0, not below it.
      {"summed g, r, b", {0x1.000002p0f, -3, 5}, 1, {0.5f, 1.25f, 7}, {0x1.000002p-1f, -0.25f, 4}},
      // 3.003 x 0.333 is still at most 1 (3.003 / 3 would not be): (1 - a) C + a S.
      {"the kept constant 0.333", {0, 0, 0}, 1.001f,
       {(1 - 1.001f) * 0.5f + 1.001f * 0.25f, (1 - 1.001f) * 0.25f + 1.001f * 0.5f, (1 - 1.001f) * 2 + 1.001f * 0.75f},
       {((1 - 1.001f) + 1.001f * 0.25f) * 0.5f, ((1 - 1.001f) + 1.001f * 0.5f) * 0.25f,
        ((1 - 1.001f) + 1.001f * 0.75f) * 2}},
  };
  for (const auto& [label, transmission, density, blend, lightAffected] : rows)
    for (float affects : {0.0f, 9.0f}) {
      SCOPED_TRACE(::testing::Message() << label << " L " << affects);
      const Params params = shadowed + Params{{"shadowDensity", {density}}, {"lightAffectShadowCol", {affects}}};
      expectLight(area, params, affects ? lightAffected : blend, kBlended, 1, transmission);
    }
  host::ConstantSampler projection({0.5f, 0.25f, 1.0f, 1.0f});  // the blend is scaled last by (k intensity) P
  expectLight(area, shadowed + Params{{"intensity", {2}}, {"projMapOn", {1}}, {"projMap", {}, &projection}},
              {0.125f, 0.03125f, 1}, kBlended, 2, {1, 1, 1});
}

// The point and spot lights' falloff, read back as the intensity s of a
// light of colour (0.5, 1, 2): fades, decay, soft cap and the spot's cone.
TEST(Lights, PointAndSpotFalloffFadesDecaysCapsAndConesToTheBit) {
  constexpr float kSilent = -1;  // nothing asked, nothing written
  const auto near = [](float start, float end) {
    return Params{{"nearAttenuationOn", {1}}, {"nearAttenuationStart", {start}}, {"nearAttenuationEnd", {end}}};
  };
  const auto far = [](float start, float end) {
    return Params{{"farAttenuationOn", {7}}, {"farAttenuationStart", {start}}, {"farAttenuationEnd", {end}}};
  };
  const auto decay = [](Color f, float start) {
    return Params{{"attenuationFactors", {f[0], f[1], f[2]}}, {"decayStartDistance", {start}}};
  };
  const auto cone = [](float penumbra, float umbra) {
    return Params{{"cosPenumbra", {penumbra}}, {"cosUmbra", {umbra}}};
  };
  const Params units10{{"unitMultiplier", {10}}};
  // Rows that turn the direction or set the cone are the spot light's alone.
  const Color down{0, 0, -1};
  struct Row {
    const char* label;
    Params params;
    float distance, intensity;
    Color direction{0, 0, -1}, axis{0, 0, -1};
    float tolerance = 0;  // 0: to the bit
  };
  const Row rows[] = {
      {"before the near start", near(2, 4), 1, kSilent},
      {"near ramp", near(2, 4), 2.5f, 0.15625f},
      {"near end", near(2, 4), 4, 1},
      {"equal near ends: a step", near(2, 2), 1.999f, kSilent},
      {"equal near ends: full from the start", near(2, 2), 2, 1},
      {"far ramp", far(10, 20), 17.5f, 0.15625f},
      {"beyond the far end", far(10, 20), 25, kSilent},
      {"both ramps multiply", near(2, 6) + far(3, 5), 4, 0.25f},
      {"the unit multiplier scales the distance", far(10, 20) + units10, 1.5f, 0.5f},
      {"equal far ends: full up to the end", far(20, 20) + units10, 2, 1},
      {"equal far ends: nothing beyond", far(20, 20) + units10, 2.05f, kSilent},
      {"inverse square", decay({0, 0, 1}, 2), 4, 0.25f},
      {"no decay inside the start", decay({0, 0, 1}, 2), 1, 1},
      {"inverse linear", decay({0, 1, 0}, 2), 4, 0.5f},
      {"a NaN fx counts as unequal to 1", decay({kNaN, 0, 1}, 2), 4, 0.25f},
      {"fx = 1: no decay", decay({1, 1, 1}, 2), 4, 1},
      {"d = 0: no decay, not -2 / 0", decay({0, 0, 1}, -2), 0, 1},
      // A negative decay start squared is the only road above an intensity of 1.
      {"the soft cap's knee", decay({0, 0, 1}, -8), 2, 16},
      {"the cap's limit", decay({0, 0, 1}, -kInf), 2, 1 / 0.0225f},
      {"a negative intensity bends too", decay({0, 1, 0}, -2), 2, -1 / 0.6175f, down, down, 1e-5f},
      // The spot's cone: the clamped cosine off the axis, a smooth step from penumbra to umbra.
      {"cone half-way between the defaults", {}, 2, 0.5f, {0, 0, -0.925f}, down, 1e-4f},
      {"cone a quarter in", cone(0.5f, 0.75f), 2, 0.15625f, {0, 0, -0.5625f}},
      {"inside the umbra", cone(0.5f, 0.75f), 2, 1, {0, 0, -0.8f}},
      {"cosine clamped to 1", cone(-1, 3), 2, 0.5f, {0, 0, -5.5f}},
      {"cosine clamped to 0", cone(-1, 3), 2, 0.15625f, {0, 0, 0.55f}},
      {"a NaN cosine counts as inside", cone(-1, 3), 2, 1, {0, 0, kNaN}},
      // Summed y, x, then z: 1 + -1 first, so the tiny z survives and t = 0.5.
      {"cone summed y, x, z", cone(0, 0x1p-29f), 2, 0.5f, {-1, 1, 0x1p-30f}, {1, 1, 1}},
      {"the cone scales the colour, decay the distance weight", cone(0.5f, 0.75f) + decay({0, 1, 0}, 1), 2, 0.25f,
       {0, 0, -0.625f}},
  };
  for (const char* shader : {"PointLight", "SpotLight"})
    for (const Row& row : rows) {
      const bool cone = !row.params.empty() && row.params[0].name == "cosPenumbra";
      const bool spotOnly = row.direction != down || row.axis != down || cone;
      if (spotOnly && std::string(shader) == "PointLight") continue;
      SCOPED_TRACE(::testing::Message() << shader << ": " << row.label);
      ScriptedContext context;
      ShadingState before = lightSample(row.distance, row.direction, row.axis);
      const ShadingState after = shade(shader, row.params + Params{{"color", {0.5f, 1, 2}}}, before, context);
      if (row.intensity == kSilent) {
        EXPECT_EQ(context.totalCalls(), 0);
        EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
        continue;
      }
      EXPECT_EQ(context.calls(kTraceShadow), 1);
      EXPECT_BITEQ(after.lightColor[0], 0.5f * after.lightColor[1]);
      EXPECT_BITEQ(after.lightColor[2], 2 * after.lightColor[1]);
      if (row.tolerance == 0) EXPECT_BITEQ(after.lightColor[1], row.intensity);
      else EXPECT_NEAR(after.lightColor[1], row.intensity, row.tolerance);
    }
}

// The normal turned by the transform's upper-left 3 x 3 (summed y, x, z; the
// translation only through its product with 0) is left in the state and
// looked up there; the texel times the gain is the colour; nothing is asked.
TEST(DiffuseIBL, TurnsTheNormalInTheStateAndLooksTheMapUpThere) {
  RecordingSampler map(3, {0.5f, 0.25f, 2.0f, 0.125f});
  size_t lookUps = 0;
  const float e = -0x1p-23f;
  const std::tuple<const char*, std::vector<float>, Color, bool, Color, Color> rows[] = {  // transform, normal, bound
      {"rows (0 2 0.5), (-1.5 0.25 3), (0.75 -1 1.25)",
       {0, 2, 0.5f, 9, -1.5f, 0.25f, 3, 9, 0.75f, -1, 1.25f, 9, 7, -8, 5, 1}, {0.5f, -0.25f, 1}, true,
       {1.125f, -0.0625f, 0.75f}, {1, -0.125f, 0.5f}},
      {"summed y, x, z: 4 + tiny rounds to 4 before -4", {e, e, e, 0, 4, 4, 4, 0, -4, -4, -4, 0, 0, 0, 0, 1}, {1, 1, 1},
       true, {0, 0, 0}, {1, -0.125f, 0.5f}},
      {"unbound: 0 x gain; inf x 0 reaches the normal", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, kInf, 0, -3, 1},
       {0.5f, -0.25f, 1}, false, {kNaN, -0.25f, 1}, {0, -0.0f, 0}},
  };
  for (const auto& [label, transform, normal, bound, turned, color] : rows) {
    SCOPED_TRACE(label);
    ScriptedContext context;
    ShadingState before = patternState();
    set(before.normal, normal);
    const Params params{{"transform", transform}, {"gain", {2, -0.5f, 0.25f}},
                        {"diffuseMap", {}, bound ? &map : nullptr}};
    const ShadingState after = shade("DiffuseIBL", params, before, context);
    expectBits(after.normal, {turned.begin(), turned.end()});
    expectBits(after.lightColor, {color.begin(), color.end()});
    EXPECT_EQ(map.coords.size(), bound ? ++lookUps : lookUps);
    if (bound) {
      EXPECT_EQ(map.coords.back(), (std::vector<float>{turned.begin(), turned.end()}));
    }
    EXPECT_EQ(context.totalCalls(), 0);
    EXPECT_TRUE(onlyWrote(before, after, &ShadingState::normal, &ShadingState::lightColor));
  }
}

// The host's cube-face convention worked out by hand, and both of the area
// light's cube look-ups against it: the projection map at (s, t), the shadow
// colour map mirrored at (1 - s, 1 - t).
TEST(CubeFaces, HostConventionAndTheAreaLightsProjections) {
  std::vector<host::ImageSampler> faces;  // 2 x 2 faces; texel (x, y) of face f is (x, y, f, 1)
  for (int f = 0; f < 6; ++f)
    faces.emplace_back(2, 2, std::vector<float>{0, 0, float(f), 1, 1, 0, float(f), 1,  //
                                                0, 1, float(f), 1, 1, 1, float(f), 1});
  host::CubeFaceSampler cube(std::move(faces));
  const std::tuple<Color, int, float, float> cases[] = {  // direction, face, s, t
      {{1, 0.5f, -0.5f}, 0, 0.75f, 0.25f}, {{-1, 0.5f, -0.5f}, 1, 0.25f, 0.25f}, {{0.5f, 1, -0.5f}, 2, 0.75f, 0.25f},
      {{0.5f, -1, -0.5f}, 3, 0.75f, 0.75f}, {{0.5f, 0.5f, 1}, 4, 0.75f, 0.25f}, {{0.5f, 0.5f, -1}, 5, 0.25f, 0.25f},
      {{2, -2, 1}, 0, 0.25f, 1.0f}, {{0, -3, 3}, 3, 0.5f, 0.0f},  // ties: X, then Y
      {{-0.0f, 0, 0}, 4, 0.5f, 0.5f}, {{kNaN, 1, 0}, 4, 0.5f, 0.5f},  // degenerate: the centre of +Z
  };
  for (const auto& [d, face, s, t] : cases) {
    SCOPED_TRACE(::testing::Message() << d[0] << " " << d[1] << " " << d[2]);
    const auto p = host::CubeFaceSampler::project(d.data());
    EXPECT_EQ(p.face, face);
    EXPECT_BITEQ(p.s, s);
    EXPECT_BITEQ(p.t, t);
    if (face == 4 && s == 0.5f) continue;  // the shaders send degenerate directions their own way
    float texel[4], mirrored[4];
    cube.lookup(texel, s, t, float(face));
    cube.lookup(mirrored, 1.0f - s, 1.0f - t, float(face));
    ScriptedContext context;
    context.shadow[0] = context.shadow[1] = context.shadow[2] = 0;  // fully occluded at density 1: S
    const Params projected{{"projMapOn", {1}}, {"projMap", {}, &cube}};
    expectBits(shade("velk_qora_Lgt_Diffuse", projected, lightSample(1, d, d), context).lightColor,
               {texel[0], texel[1], texel[2]});
    const Params shadowed{{"cast_shadows", {1}}, {"useShadowColMap", {1}}, {"shadowColMap", {}, &cube}};
    expectBits(shade("velk_qora_Lgt_Diffuse", shadowed, lightSample(1, d, d), context).lightColor,
               {mirrored[0], mirrored[1], mirrored[2]});
  }
  ScriptedContext context;  // switched on without a map: black
  expectBits(shade("velk_qora_Lgt_Diffuse", {{"projMapOn", {1}}}, lightSample(1), context).lightColor, {0, 0, 0});
}

TEST(LatLongSampler, MinusZIsTheMiddleYIsUpAndSWrapsAtTheSeam) {
  std::vector<float> rgba;  // 4 x 2, texel (x, y) is (x, y, 0, 1)
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) rgba.insert(rgba.end(), {float(x), float(y), 0.0f, 1.0f});
  const host::LatLongSampler yUp(4, 2, rgba), zUp(4, 2, rgba, host::LatLongSampler::UpAxis::Z);
  const std::tuple<bool, Color, float, float> cases[] = {  // z up, direction, s, t
      {0, {0, 0, -1}, 0.5f, 0.5f},  {0, {0, 0, -7}, 0.5f, 0.5f},  {0, {1, 0, 0}, 0.75f, 0.5f},
      {0, {-1, 0, 0}, 0.25f, 0.5f}, {0, {0, 1, 0}, 0.5f, 0.0f},   {0, {0, -1, 0}, 0.5f, 1.0f},
      {0, {1, 0, -1}, 0.625f, 0.5f}, {1, {0, 1, 0}, 0.5f, 0.5f},  {1, {0, 0, 1}, 0.5f, 0.0f},
      {0, {0, 0, 0}, 0.5f, 0.5f},   {0, {kNaN, 0, -1}, 0.5f, 0.5f},  // degenerate: the middle
  };
  for (const auto& [z, d, s, t] : cases) {
    float projected[2];
    (z ? zUp : yUp).project(d.data(), projected[0], projected[1]);
    EXPECT_NEAR(projected[0], s, 1e-6f) << d[0] << " " << d[1] << " " << d[2];
    EXPECT_NEAR(projected[1], t, 1e-6f) << d[0] << " " << d[1] << " " << d[2];
  }
  float texel[4];  // +Z sits on the seam: half the last column, half the first
  const float back[3] = {0, 0, 1};
  yUp.lookupDirection(texel, back);
  EXPECT_NEAR(texel[0], 1.5f, 1e-5f);
}

// The sphere light seen from a point whose normal is tilted by `tilt` off
// the centre: lightColor x cos (the point's cosine towards the sample) over
// random samples estimates the irradiance pi L (r / d)^2 cos(tilt) of a
// sphere wholly above the horizon; the sample lies on the sphere's visible
// cap and the shadow is asked towards it.
TEST(SphereLight, IrradianceConvergesToPiLTimesTheSquaredRadiusOverDistance) {
  struct Case { int units; float intensity, radius, distance, tilt; double radiance; };
  const Case cases[] = {
      {2, 3.0f, 0.5f, 2.0f, 0.5f, 3.0},                          // the radiance itself
      {0, 5.0f, 0.25f, 4.0f, 0.0f, 5.0 / (kPiD * 0.0625)},      // intensity I = pi r^2 L
      {1, 100.0f, 1.0f, 1.5f, 0.3f, 100.0 / (4 * kPiD * kPiD)},  // power P = 4 pi^2 r^2 L
      {7, 2.0f, 1e-3f, 50.0f, 1.0f, 2.0 / (kPiD * 1e-6)},       // unknown units count as intensity
  };
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "units " << c.units << " r " << c.radius << " d " << c.distance);
    TestShader light("velk_qora_Lgt_Sphere");
    setParams(light.block, {{"units", {float(c.units)}}, {"intensity", {c.intensity}}, {"radius", {c.radius}}});
    light.apply();
    const double r = c.radius, d = c.distance, cosMax = std::sqrt(1.0 - r * r / (d * d));
    const double solidAngle = 2 * kPiD * (1 - cosMax);
    const double expected = kPiD * c.radiance * r * r / (d * d) * std::cos(c.tilt);
    const float normal[3] = {std::sin(c.tilt), 0.0f, std::cos(c.tilt)};
    double sum = 0, sumSquares = 0;
    const int n = 20000;
    for (int k = 0; k < n; ++k) {
      ScriptedContext context;
      context.samples2D = {{uniform(rng), uniform(rng)}};
      ShadingState s = lightSample();
      s.lightSamplePosition[2] = c.distance;  // the centre
      light.light()->shade(&context, &s);
      const float* y = s.lightSamplePosition;
      ASSERT_NEAR(std::hypot(y[0], y[1], y[2] - c.distance), r, 1e-5 * d);
      ASSERT_LE(y[2], c.distance);  // on the cap facing the point
      ASSERT_EQ(context.lastShadowTo, (Color{y[0], y[1], y[2]}));
      for (int i = 0; i < 3; ++i) ASSERT_NEAR(-s.lightDirection[i] * s.lightDistance, y[i], 1e-5 * d);
      ASSERT_NEAR(s.lightColor[0], c.radiance * solidAngle, 1e-5 * c.radiance * solidAngle);
      const double e = s.lightColor[0] * -(normal[0] * s.lightDirection[0] + normal[2] * s.lightDirection[2]);
      sum += e, sumSquares += e * e;
    }
    const double mean = sum / n, deviation = std::sqrt(std::max(0.0, sumSquares / n - mean * mean) / n);
    EXPECT_NEAR(mean, expected, 4 * deviation + 1e-6 * expected);
    EXPECT_NEAR(mean, expected, 0.01 * expected);
  }
  // On the sphere: black, nothing asked; a radius of 0 is a point light.
  ScriptedContext context;
  expectBits(shade("velk_qora_Lgt_Sphere", {{"radius", {2}}}, lightSample(), context).lightColor, {0, 0, 0});
  EXPECT_EQ(context.totalCalls(), 0);
  const ShadingState point = shade("velk_qora_Lgt_Sphere", {{"radius", {0}}}, lightSample(), context);
  expectBits(point.lightColor, {0.25f, 0.25f, 0.25f});
}

// The spot's profile, read back as lightColor x d^2 / intensity at 0.05
// degree steps: 1 within the cone, 0 beyond cone + penumbra (and behind,
// without a shadow query), never rising in between. In power units the
// profile integrates over the sphere to the power.
TEST(PhysicalSpot, ProfileIsFullInTheConeFallsMonotonicallyAndIntegratesToThePower) {
  struct Case { float cone, penumbra, inner, outer; };
  const Case cases[] = {{30, 5, 30, 35}, {10, 40, 10, 50}, {0, 20, 0, 20}, {45, 0, 45, 45},
                        {60, -10, 60, 60}, {80, 30, 80, 90}, {-5, kNaN, 0, 0}};
  for (const Case& c : cases)
    for (int units : {0, 1}) {
      SCOPED_TRACE(::testing::Message() << c.cone << " + " << c.penumbra << " units " << units);
      TestShader light("velk_qora_Lgt_Spot");
      setParams(light.block, {{"coneAngle", {c.cone}}, {"penumbraAngle", {c.penumbra}}, {"units", {float(units)}},
                              {"intensity", {2}}});
      light.apply();
      float previous = kInf;
      double power = 0;
      for (double degrees = 0; degrees <= 180; degrees += 0.05) {
        const double a = degrees * kPiD / 180;
        ScriptedContext context;
        ShadingState s = lightSample(2.0f, {float(std::sin(a)), 0.0f, float(-std::cos(a))});
        light.light()->shade(&context, &s);
        const float profile = s.lightColor[1] * 4.0f / 2.0f;
        if (units == 0 && degrees < c.inner - 1e-3) {
          EXPECT_NEAR(profile, 1.0f, 1e-6f) << degrees;
        }
        if (degrees > c.outer + 1e-3) {
          EXPECT_EQ(profile, 0.0f) << degrees;
          EXPECT_EQ(context.totalCalls(), 0);
        }
        EXPECT_LE(profile, previous) << degrees;
        previous = profile;
        power += 2 * kPiD * profile * 2.0 * std::sin(a) * (0.05 * kPiD / 180);
      }
      if (units == 1 && c.outer > 0) {
        EXPECT_NEAR(power, 2.0, 0.02);
      }
      if (units == 0 && c.outer > c.inner) {  // a quarter of the way in, in the cosine: the smooth step's 0.15625
        const double in = std::cos(c.inner * kPiD / 180), out = std::cos(c.outer * kPiD / 180);
        const double q = out + (in - out) / 4;
        ScriptedContext context;
        ShadingState s = lightSample(2.0f, {float(std::sqrt(1 - q * q)), 0.0f, float(-q)});
        light.light()->shade(&context, &s);
        EXPECT_NEAR(s.lightColor[1] * 2.0f, 0.15625f, 2e-3f);
      }
    }
  // With a radius the sample moves onto the disk facing along the axis,
  // spread uniformly (the mean squared radius is R^2 / 2), and the falloff is
  // measured from there.
  double meanSquare = 0;
  for (int k = 0; k < 100; ++k) {
    ScriptedContext context;
    context.samples2D = {{(k + 0.5f) / 100, 0.25f}};
    const ShadingState s = shade("velk_qora_Lgt_Spot", {{"radius", {0.5f}}, {"coneAngle", {89}}}, lightSample(),
                                 context);
    const float* p = s.lightSamplePosition;
    const float r2 = p[0] * p[0] + p[1] * p[1];
    EXPECT_FLOAT_EQ(p[2], 2.0f);
    EXPECT_FLOAT_EQ(s.lightDistance, std::sqrt(4 + r2));
    EXPECT_NEAR(s.lightColor[0], 1 / (4 + r2), 1e-6f);
    EXPECT_EQ(context.lastShadowTo, (Color{p[0], p[1], p[2]}));
    meanSquare += r2 / 100.0;
  }
  EXPECT_NEAR(meanSquare, 0.125, 1e-4);
}

// IES text of type C photometry with the given angles and rows of candela.
std::string iesText(const std::vector<float>& vertical, const std::vector<float>& horizontal,
                    const std::vector<std::vector<float>>& rows, const char* multiplier = "1") {
  std::ostringstream t;
  t << "IESNA:LM-63-2002\n[TEST] kvi\nTILT=NONE\n1 -1 " << multiplier << " " << vertical.size() << " "
    << horizontal.size() << " 1 2 0 0 0\n1 1 10\n";
  for (float v : vertical) t << v << " ";
  t << "\n";
  for (float h : horizontal) t << h << " ";
  t << "\n";
  for (const auto& row : rows) {
    for (float c : row) t << c << " ";
    t << "\n";
  }
  return t.str();
}

// The photometric light turned by a rotation: its intensity in a direction
// given by the web's angles (H, V) is the table's, interpolated bilinearly
// between table angles, each symmetry unfolded, 0 beyond the vertical range.
TEST(PhotometricWeb, IntensityIsTheTablesAfterTheRotationInterpolatedAndUnfolded) {
  const std::vector<float> quadrantV{0, 90};
  const std::vector<std::vector<float>> threeRows{{10, 20}, {30, 40}, {50, 60}};
  const std::string webs[] = {
      iesText({0, 30, 90}, {0}, {{100, 60, 0}}, "2"),  // rotational, multiplier 2
      iesText(quadrantV, {0, 45, 90}, threeRows),       // each quadrant alike
      iesText(quadrantV, {0, 90, 180}, threeRows),      // mirrored about 0-180
      iesText(quadrantV, {90, 180, 270}, threeRows),    // mirrored about 90-270
      iesText(quadrantV, {0, 120, 240, 360}, {{10, 20}, {30, 40}, {50, 60}, {10, 20}}),
  };
  struct Case { int web; float h, v, candela; };
  const Case cases[] = {
      {0, 123, 0, 200}, {0, 200, 15, 160}, {0, 10, 60, 60}, {0, 0, 120, 0},  // beyond 90: nothing
      {1, 45, 90, 40},  {1, 22.5f, 90, 30}, {1, 135, 90, 40}, {1, 225, 90, 40}, {1, 315, 45, 35},
      {1, 100, 90, 40 + 20 * 35 / 45.0f},                                      // 100 folds to 80
      {2, 270, 90, 40}, {2, 300, 45, 15 + 20 * 60 / 90.0f}, {2, 180, 90, 60},  // 300 folds to 60
      {3, 0, 90, 40},   {3, 45, 90, 30},   {3, 300, 90, 40 + 20 * 60 / 90.0f}, {3, 135, 90, 30},  // 0 to 180, 300 to 240
      {4, 60, 90, 30},  {4, 300, 45, 35},  {4, 359, 90, 60 - 40 * 119 / 120.0f},
  };
  // Rows of the rotation: the web's -Y (its nadir) turns to -Z, its +X to +X.
  const std::vector<float> rotation{1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1};
  std::vector<std::unique_ptr<host::PhotometricWebSampler>> samplers;
  for (const auto& w : webs)
    samplers.push_back(std::make_unique<host::PhotometricWebSampler>(host::parseIes(w, "web.ies")));
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "web " << c.web << " H " << c.h << " V " << c.v);
    const double h = c.h * kPiD / 180, v = c.v * kPiD / 180;
    const float local[3] = {float(std::sin(v) * std::cos(h)), float(-std::cos(v)), float(-std::sin(v) * std::sin(h))};
    ShadingState s = lightSample(2.0f);
    for (int j = 0; j < 3; ++j)
      s.lightDirection[j] = local[0] * rotation[j] + local[1] * rotation[4 + j] + local[2] * rotation[8 + j];
    ScriptedContext context;
    const Params params{
        {"web", {}, samplers[size_t(c.web)].get()}, {"webRotationMatrix", rotation}, {"intensity", {4}}};
    EXPECT_NEAR(shade("velk_qora_Lgt_PhotometricWeb", params, s, context).lightColor[2], c.candela,
                1e-3f * c.candela + 1e-3f);
    EXPECT_EQ(context.totalCalls(), c.candela > 0 ? 1 : 0);
  }
  ScriptedContext context;  // no web: black, no shadow asked
  expectBits(shade("velk_qora_Lgt_PhotometricWeb", {}, lightSample(), context).lightColor, {0, 0, 0});
  EXPECT_EQ(context.totalCalls(), 0);
}

// The host's IES reader: the shipped files read, and each malformed file is
// refused with its name, the line and what was expected there.
TEST(IesReader, ReadsTheShippedFilesAndRefusesMalformedOnesNamingTheLine) {
  for (const char* name : {"downlight.ies", "wallwash.ies", "cross.ies"}) {
    const auto web = host::readIesFile(std::string(KVI_ASSETS_DIR) + "/" + name);
    EXPECT_EQ(web.candela.size(), web.verticalAngles.size() * web.horizontalAngles.size()) << name;
    EXPECT_GT(web.intensity(0, 0), 0.0f) << name;
  }
  const std::string good = iesText({0, 45, 90}, {0, 90}, {{3, 2, 1}, {4, 3, 2}});
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string t = good;
    return t.replace(t.find(from), from.size(), to);
  };
  const std::pair<std::string, std::string> cases[] = {
      {good.substr(0, good.size() - 6), "web.ies:9: the file ends where a candela value (2 of 6"},
      {good + "7\n", "web.ies:10: unexpected '7' after the candela table"},
      {replaced("4 3 2", "4 -3 2"), "web.ies:9: negative candela -3 at horizontal angle 90, vertical angle 45"},
      {replaced("0 45 90", "0 90 45"), "web.ies:6: vertical angles out of order: 45 after 90"},
      {replaced("\n0 90 \n", "\n90 0 \n"), "web.ies:7: horizontal angles out of order"},
      {replaced("0 90 \n", "0 120 \n"), "web.ies:7: type C horizontal angles must run from 0"},
      {replaced(" 1 2 0 0 0", " 5 2 0 0 0"), "web.ies:4: unknown photometric type '5'"},
      {replaced(" 1 2 0 0 0", " 2 2 0 0 0"), "web.ies:4: type B photometry is not supported"},
      {replaced("1 -1 1 3 2", "1 -1 1 0 2"), "web.ies:4: expected the number of vertical angles from 1"},
      {replaced("1 1 10", "1 x 10"), "web.ies:5: expected the ballast-lamp factor (future use) (a number), got 'x'"},
      {replaced("TILT=NONE", "TILT"), "web.ies:9: the file ends before its TILT= line"},
      {replaced("TILT=NONE", "TILT=lamp.tlt"), "web.ies:3: TILT=lamp.tlt: tilt data from a separate file"},
      {replaced("IESNA:LM-63-2002", "IES:LM-63-2019"), "web.ies:1: unknown format line"},
  };
  for (const auto& [text, message] : cases) {
    try {
      host::parseIes(text, "web.ies");
      ADD_FAILURE() << "accepted, expected: " << message;
    } catch (const host::Error& e) {
      EXPECT_EQ(std::string(e.what()).rfind(message, 0), 0u) << e.what();
    }
  }
}

}  // namespace
}  // namespace kvi::test
