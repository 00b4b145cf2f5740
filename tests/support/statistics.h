// Statistics the physical tests share: the chi-square test of a direction
// sampler against the density it claims.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

namespace kvi::test {

// Upper tail of the chi-square distribution with `dof` degrees of freedom
// at x (the Wilson-Hilferty approximation).
inline double chiSquareTail(double x, int dof) {
  const double k = dof, z = (std::cbrt(x / k) - (1.0 - 2.0 / (9.0 * k))) / std::sqrt(2.0 / (9.0 * k));
  return 0.5 * std::erfc(z / std::sqrt(2.0));
}

struct HemisphereChiSquare {
  double pValue;                          // of the chi-square statistic over the unpooled bins and the pooled rest
  double expectedInside;                  // draws the density predicts above the surface (at most `samples`)
  double pooledObserved, pooledExpected;  // the bins expected below 5 together
};

// Draws `samples` directions (draw(l) fills the unit direction l in the frame
// of the density, or returns false for a draw that gives none) and compares
// their counts in zBins x phiBins bins of (cos theta, phi) over the upper
// hemisphere, plus one bin for the failed draws, with what density(l) (per
// unit solid angle) predicts, integrated over each bin at sub x sub
// midpoints. Bins expected below 5 are pooled.
template <class Draw, class Density>
HemisphereChiSquare hemisphereChiSquare(Draw&& draw, Density&& density, int samples, int zBins, int phiBins, int sub) {
  const int bins = zBins * phiBins;
  std::vector<double> observed(bins + 1, 0.0), expected(bins + 1, 0.0);
  for (int i = 0; i < samples; ++i) {
    float l[3];
    if (!draw(l)) {
      observed.back() += 1;
      continue;
    }
    double phi = std::atan2(l[1], l[0]);
    if (phi < 0) phi += 2 * M_PI;
    const int zi = std::min(zBins - 1, int(l[2] * zBins)), pi = std::min(phiBins - 1, int(phi / (2 * M_PI) * phiBins));
    observed[zi * phiBins + pi] += 1;
  }
  const double dz = 1.0 / (zBins * sub), dphi = 2 * M_PI / (phiBins * sub);
  HemisphereChiSquare result{0, 0, 0, 0};
  for (int b = 0; b < bins; ++b) {
    for (int i = 0; i < sub; ++i)
      for (int j = 0; j < sub; ++j) {
        const double z = ((b / phiBins) * sub + i + 0.5) * dz, phi = ((b % phiBins) * sub + j + 0.5) * dphi;
        const double r = std::sqrt(1 - z * z);
        const float l[3] = {float(r * std::cos(phi)), float(r * std::sin(phi)), float(z)};
        expected[b] += density(l) * dz * dphi * samples;
      }
    result.expectedInside += expected[b];
  }
  expected.back() = std::max(0.0, samples - result.expectedInside);
  double chi2 = 0;
  int dof = -1;
  for (size_t b = 0; b < expected.size(); ++b) {
    if (expected[b] < 5) {
      result.pooledObserved += observed[b];
      result.pooledExpected += expected[b];
      continue;
    }
    chi2 += (observed[b] - expected[b]) * (observed[b] - expected[b]) / expected[b];
    ++dof;
  }
  if (result.pooledExpected >= 5) {
    chi2 += (result.pooledObserved - result.pooledExpected) * (result.pooledObserved - result.pooledExpected) /
            result.pooledExpected;
    ++dof;
  }
  result.pValue = chiSquareTail(chi2, dof);
  return result;
}

}  // namespace kvi::test
