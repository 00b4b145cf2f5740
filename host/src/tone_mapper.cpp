// The forward tone mapper of type 1, the operator whose inverse the classic
// backgrounds apply. Each step undoes one step of the backgrounds' inversion,
// in the reverse order; host code, so the arithmetic is double precision.
#include "kvi/host/tone_mapper.h"

#include <algorithm>
#include <cmath>

#include "kvi/host/parameter_block.h"

namespace kvi::host {
namespace {

// BT.709 luminance. Its weights add up to 1, which is what lets the
// saturation step be undone in closed form.
double luminance(const double c[3]) { return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2]; }

void applyExposure(double c[3], const ToneMapSettings& t, double vignetting) {
  for (int i = 0; i < 3; ++i) c[i] = c[i] * t.exposure * t.white[i] * vignetting;
}

// y = x (1 + x / B) / (1 + x). The inversion keeps a channel that is exactly
// 0 at 0 whatever B is, so this does too.
void burnHighlights(double c[3], double b) {
  for (int i = 0; i < 3; ++i)
    if (c[i] != 0.0) c[i] = c[i] * (1.0 + c[i] / b) / (1.0 + c[i]);
}

// y = S x + (1 - S) L(x). The inversion removes (1 - S) L(y) and divides by
// S; since L(y) = L(x), this is its exact counterpart.
void saturate(double c[3], double s) {
  const double l = luminance(c);
  for (int i = 0; i < 3; ++i) c[i] = s * c[i] + (1.0 - s) * l;
}

// Relative accuracy of the numerical steps: far below float's resolution.
constexpr double kTolerance = 1e-10;

// The crush-blacks curve of one channel for a given s = sqrt(L): the value
// the inversion produces from z, and its slope, which share their powers.
struct CrushCurve {
  double a;  // 0.4 K
  double e;  // 2K + 1
  double s;

  double value(double z) const {
    return a * (std::pow(z, 0.2) - std::pow(z, 0.3)) + 2.0 * z - ((1.0 - s) * std::pow(z, e) + s * z);
  }
  // True when curve(z) >= z is known without evaluating it: on [0, 1] both
  // a (z^0.2 - z^0.3) and (1 - s)(z - z^e) are >= 0 when a >= 0, e >= 1 and
  // s <= 1.
  bool aboveDiagonal(double z) const { return z <= 1.0 && a >= 0.0 && e >= 1.0 && s <= 1.0; }
  // The value at z > 0 and the slope times z.
  void evaluate(double z, double& value, double& slopeTimesZ) const {
    const double l = std::log(z);
    const double p2 = std::exp(0.2 * l);
    const double p3 = std::exp(0.3 * l);
    const double pe = std::exp(e * l);
    value = a * (p2 - p3) + 2.0 * z - ((1.0 - s) * pe + s * z);
    slopeTimesZ = a * (0.2 * p2 - 0.3 * p3) + 2.0 * z - ((1.0 - s) * e * pe + s * z);
  }
};

// The z >= 0 with curve(z) = y. Near 0 the curve behaves like a power of z,
// so Newton's method runs on ln curve(z) = ln y over ln z, where such a curve
// is nearly a straight line; each step is kept inside a bracket that
// bisection narrows when a step would leave it. The bracket starts at
// [0, y] (the curve lies above the diagonal on [0, 1] for K >= 0) and is
// widened by doubling otherwise. Where the curve is increasing the root is
// unique; where it is not (K above about 0.45 near z = 1) a root inside the
// first bracket is returned. 0 stays 0, negative values and NaN pass
// through, and a value the curve never reaches is left as it is.
double solveCrushChannel(const CrushCurve& curve, double y, double guess) {
  if (!(y > 0.0)) return y;
  double lo = 0.0;
  double hi = y;
  if (!curve.aboveDiagonal(y)) {
    for (int i = 0; i < 64 && !(curve.value(hi) >= y); ++i) {
      lo = hi;
      hi *= 2.0;
    }
    if (!(curve.value(hi) >= y)) return y;
  }

  double z = guess > lo && guess < hi ? guess : hi;
  for (int i = 0; i < 100; ++i) {
    double f, slopeTimesZ;
    curve.evaluate(z, f, slopeTimesZ);
    if (f == y) return z;
    if (f < y)
      lo = z;
    else
      hi = z;
    double next = -1.0;
    if (f > 0.0) next = z * std::exp(-std::log(f / y) * f / slopeTimesZ);
    if (!(next > lo && next < hi)) next = lo > 0.0 ? std::sqrt(lo * hi) : 0.5 * hi;
    if (std::fabs(next - z) <= kTolerance * z) return next;
    z = next;
  }
  return z;
}

double crushStrength(const double c[3]) {
  const double l = 0.7152 * c[1] + 0.2126 * c[0] + 0.0722 * c[2];
  return l > 0.0 ? std::sqrt(l) : 0.0;
}

// Finds z with inversion(z) = y for all three channels. The channels are
// coupled through s = sqrt(L(z)): s is the fixed point of "solve the
// channels for s, recompute s from them", a contraction because s moves z
// only through the small term (1 - s)(z^e - z). The iteration is sped up by
// secant steps on s - phi(s), falling back to the plain step whenever a
// secant step would leave [0, 1]. A colour whose luminance is already 1 or
// more passes, as the inversion leaves such colours alone.
void crushBlacks(double c[3], double k) {
  const double a = 0.4 * k;
  const double e = 2.0 * k + 1.0;
  if (a == 0.0 && e == 1.0) return;  // the curve is the identity
  double s = crushStrength(c);
  if (s >= 1.0) return;
  double z[3] = {c[0], c[1], c[2]};
  const auto phi = [&](double strength) {
    const CrushCurve curve{a, e, strength};
    for (int i = 0; i < 3; ++i) z[i] = solveCrushChannel(curve, c[i], z[i]);
    return std::min(crushStrength(z), 1.0);
  };
  double previous = s;
  double previousResidual = phi(s) - s;
  s = s + previousResidual;
  for (int round = 0; round < 50; ++round) {
    const double residual = phi(s) - s;
    if (std::fabs(residual) <= kTolerance || !(residual == residual)) break;
    double next = s + residual;
    const double denominator = residual - previousResidual;
    if (denominator != 0.0) {
      const double secant = s - residual * (s - previous) / denominator;
      if (secant >= 0.0 && secant <= 1.0) next = secant;
    }
    previous = s;
    previousResidual = residual;
    s = next;
  }
  for (int i = 0; i < 3; ++i) c[i] = z[i];
}

}  // namespace

double vignettingFactor(const ToneMapSettings& t, float px, float py, int32_t width, int32_t height) {
  if (!(t.vignetting > 0.0f)) return 1.0;
  const double u = (double(px) / double(width) - 0.5) * t.imagePlaneWidth;
  const double w = (double(py) / double(height) - 0.5) * t.imagePlaneHeight;
  const double f = t.focalDistance;
  const double d = std::sqrt(u * u + w * w + f * f);
  const double cosine = d > 0.0 ? f / d : f;
  return std::pow(cosine, double(t.vignetting));
}

void toneMap(const ToneMapSettings& t, float out[3], const float in[3], float px, float py, int32_t width,
             int32_t height) {
  double c[3] = {in[0], in[1], in[2]};
  if (t.enabled && t.type == 1) {
    applyExposure(c, t, vignettingFactor(t, px, py, width, height));
    burnHighlights(c, t.burnHighlightsInv);
    saturate(c, t.saturation);
    crushBlacks(c, t.crushBlacks);
    for (int i = 0; i < 3; ++i) c[i] = std::pow(c[i], 1.0 / t.gamma);
  }
  for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(c[i]);
}

void setToneMapParameters(ParameterBlock& block, const ToneMapSettings& t) {
  block.setBool("u_tm_enabled", t.enabled);
  block.setInt("u_tm_type", t.type);
  block.setFloat("u_tm_exposure", t.exposure);
  block.setColor3("u_tm_whiteColor", {t.white[0], t.white[1], t.white[2]});
  block.setFloat("u_tm_vignetting", t.vignetting);
  block.setFloat("u_tm_crushBlacks", t.crushBlacks);
  block.setFloat("u_tm_burnHighlightsInv", t.burnHighlightsInv);
  block.setFloat("u_tm_saturation", t.saturation);
  block.setFloat("u_tm_gamma", t.gamma);
  block.setFloat("u_cam_imagePlaneWidth", t.imagePlaneWidth);
  block.setFloat("u_cam_imagePlaneHeight", t.imagePlaneHeight);
  block.setFloat("u_cam_focalDistance", t.focalDistance);
}

}  // namespace kvi::host
