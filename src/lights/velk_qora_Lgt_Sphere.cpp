// velk_qora_Lgt_Sphere: a spherical area light, a ball of the given radius
// whose surface shines uniformly outwards.
//
// The host hands over the light's centre as the light sample. The shader
// picks a direction uniformly in the solid angle Omega of the sphere's
// visible cap, seen from the shaded point, moves the light sample to where
// that direction meets the sphere, asks the host for the shadow towards that
// point (soft shadows over many samples) and writes lightColor = L x Omega:
// the surface radiance L over the density 1 / Omega of the sample. With the
// surface's BSDF times its cosine that is an unbiased estimate of the
// light's reflected radiance; the irradiance of a facing point at distance d
// comes out as pi L (r / d)^2.
//
// "intensity" is the strength in the unit "units" names: the intensity seen
// from afar (W/sr, I = pi r^2 L), the emitted power (W, P = 4 pi^2 r^2 L) or
// the surface radiance L itself. With intensity or power, a radius of 0 is a
// point light of that intensity. A shaded point on or inside the sphere gets
// no light (the surface shines outwards only), and no shadow query.
#include <cmath>

#include "frame/parameters.h"
#include "frame/registry.h"
#include "lights/light_common.h"
#include "lights/light_sample.h"

namespace kvi {

#define KVI_LGT_SPHERE_PARAMETERS(PARAM, VARYING)                                                                   \
  PARAM(Color3, color, doc("colour of the light, multiplied by intensity", "0 or more per channel"),               \
        {1.0f, 1.0f, 1.0f})                                                                                         \
  PARAM(Float, intensity, doc("strength of the light, in the unit units names", "0 or more", "W/sr, W or W/(m² sr)"), \
        1.0f)                                                                                                       \
  PARAM(Int, units,                                                                                                 \
        doc("what intensity measures: 0 the intensity seen from afar (W/sr), 1 the emitted power (W), 2 the "      \
            "surface radiance (W/(m² sr)); other values count as 0",                                               \
            "0, 1 or 2"),                                                                                           \
        0)                                                                                                          \
  PARAM(Float, radius, doc("radius of the sphere", "0 or more; 0 is a point", "scene units"), 0.1f)                \
  PARAM(Bool, cast_shadows, doc("ask the host for the shadow towards the sampled point"), true)

class velk_qora_Lgt_Sphere final : public ShaderImpl<LightShader> {
  KVI_SHADER_PARAMETERS(velk_qora_Lgt_Sphere, kOpLightShade, KVI_LGT_SPHERE_PARAMETERS)

  void shade(IShadingContext* context, ShadingState* state) override {
    float towardsCentre[3];
    for (int i = 0; i < 3; ++i) towardsCentre[i] = state->lightSamplePosition[i] - state->position[i];
    const float d2 = dot3(towardsCentre, towardsCentre);
    const float r2 = radius * radius;
    if (!(d2 > r2)) {  // on or inside the sphere, or a NaN distance
      setAll3(state->lightColor, 0.0f);
      return;
    }
    const float d = std::sqrt(d2);
    for (float& c : towardsCentre) c = c / d;

    // The cap: sin^2 and 1 - cos of its half-angle, the latter in a form
    // that keeps its precision for small or far spheres.
    const float sin2Max = r2 / d2;
    const float cosMax = std::sqrt(1.0f - sin2Max);
    const float oneMinusCosMax = sin2Max / (1.0f + cosMax);

    float buffer[2];
    const float* xi = context->nextSample2D(buffer);
    const float oneMinusCos = xi[0] * oneMinusCosMax;
    const float cosTheta = 1.0f - oneMinusCos;
    const float sinTheta = std::sqrt(std::fmax(0.0f, oneMinusCos * (2.0f - oneMinusCos)));
    const float phi = kTwoPiF * xi[1];
    float t[3], b[3];
    completeFrame(towardsCentre, t, b);
    const float ct = std::cos(phi) * sinTheta, st = std::sin(phi) * sinTheta;
    float towardsLight[3];
    for (int i = 0; i < 3; ++i) towardsLight[i] = towardsCentre[i] * cosTheta + t[i] * ct + b[i] * st;

    // The nearer of the direction's two meetings with the sphere.
    const float distance = d * cosTheta - std::sqrt(std::fmax(0.0f, r2 - d2 * (sinTheta * sinTheta)));
    float point[3], fromLight[3];
    for (int i = 0; i < 3; ++i) {
      point[i] = state->position[i] + towardsLight[i] * distance;
      fromLight[i] = -towardsLight[i];
    }
    moveLightSample(state, point, fromLight, distance);

    // Omega = 2 pi (1 - cos) = pi r^2 g: the radius cancels against the units'.
    const float g = 2.0f / (d2 * (1.0f + cosMax));
    writeScaledColor(state, color, intensity * (unitScale_ * g));
    if (cast_shadows) queryShadow(context, state);
  }

  // The factor turning "intensity" into the surface radiance times pi r^2.
  void deriveCachedValues() {
    constexpr float kPi = 3.14159265f;
    unitScale_ = units == 1 ? 1.0f / (4.0f * kPi) : units == 2 ? kPi * (radius * radius) : 1.0f;
  }

 private:
  float unitScale_ = 1.0f;  // units 0 until the first update
};

KVI_SHADER_FACTORY(velk_qora_Lgt_Sphere)

}  // namespace kvi
