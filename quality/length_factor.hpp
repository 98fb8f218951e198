// Length of an edge measured in a size field that varies linearly along it; shared by the edge
// qualities and the size shock.
#ifndef GRIDKIT_QUALITY_LENGTH_FACTOR_HPP
#define GRIDKIT_QUALITY_LENGTH_FACTOR_HPP

#include <cmath>

namespace kvo::gridkit::quality_detail {

// Integral of 1/h along a unit edge whose size goes linearly from h1 to h2: ln(M/m)/(M - m),
// with a series in r - 1 where the logarithm would lose precision; 0 when a size is not positive.
inline double length_factor(double h1, double h2) {
  const double M = h1 > h2 ? h1 : h2;
  const double m = h1 > h2 ? h2 : h1;
  if (m <= 0.0) return 0.0;
  const double r = m / M;
  if (r < 0.999) return std::log(r) / ((r - 1.0) * M);
  const double x = r - 1.0;
  return (1.0 / M) * (1.0 + x * (-0.5 + x * (0.3333333333333333 + x * (-0.25 + x * 0.2))));
}

// Size along the edge vector d at a node of tensor M: |d| / sqrt(d^T M d), 0 when d^T M d is not
// positive or not finite. For M = (1/h^2) I this is h.
inline double size_along(double len, double dMd) {
  if (!(dMd > 0.0) || !std::isfinite(dMd)) return 0.0;
  return len / std::sqrt(dMd);
}

}  // namespace kvo::gridkit::quality_detail

#endif
