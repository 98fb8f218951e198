// Size shock: how abruptly a size or metric field varies along the edges of a mesh.
#include <cfloat>
#include <cmath>

#include "metrics/metrics_internal.hpp"
#include "quality/length_factor.hpp"

namespace kvo::gridkit {

using quality_detail::length_factor;
using quality_detail::size_along;

namespace {

// Shock of one edge from its normalised length L and its end lengths la, lb; `same` tells whether
// the field is identical at both ends (used when L is 0).
inline double edge_shock(double L, double la, double lb, bool same) {
  if (L == 0.0) return same ? 0.0 : DBL_MAX;
  if (std::isnan(L) || L >= DBL_MAX) return 0.0;
  const double r = std::pow(la / lb, 1.0 / L);
  return r >= 1.0 ? r - 1.0 : 1.0 / r - 1.0;
}

inline void raise(double* shock, unsigned a, unsigned b, double s) {
  if (s > shock[a]) shock[a] = s;
  if (s > shock[b]) shock[b] = s;
}

// Checks and set-up common to both fields; 1 means "nothing to do, return 0".
int prepare(const dense2D<double>& pos, const dense2D<unsigned>& edges, dense1D<double, 16>& shock) {
  if (std::uint64_t(edges.rows) * edges.cols == 0) return 1;
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (!check_IDs(edges, ET_EDGE2, pos.cols)) return -2;
  shock.resize(pos.cols, 0.0);  // earlier entries keep their values and join the maxima
  return shock.size == pos.cols ? 0 : ERR_ALLOCATION;
}

template <unsigned D>
inline double edge_vector(const dense2D<double>& pos, unsigned a, unsigned b, double* d) {
  const double* pa = pos.col_ptr(a);
  const double* pb = pos.col_ptr(b);
  double dd = 0.0;
  for (unsigned i = 0; i < D; ++i) d[i] = pb[i] - pa[i];
  if (D == 2)
    dd = d[0] * d[0] + d[1] * d[1];
  else
    dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
  return std::sqrt(dd);
}

template <unsigned D>
void iso_kernel(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense1D<double, 16>& sizes,
                double* shock) {
  const double* h = sizes.ptr();
  for (unsigned k = 0; k < edges.cols; ++k) {
    const unsigned a = edges(0, k), b = edges(1, k);
    // A field shorter than the mesh leaves the edges it does not cover unmeasured.
    if (a >= sizes.size || b >= sizes.size) continue;
    double d[3];
    const double len = edge_vector<D>(pos, a, b, d);
    const double ha = h[a], hb = h[b];
    const double L = len * length_factor(ha, hb);
    raise(shock, a, b, edge_shock(L, len / ha, len / hb, ha == hb));
  }
}

template <unsigned D>
void metric_kernel(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics,
                   double* shock) {
  constexpr unsigned n = D == 2 ? 3 : 6;
  for (unsigned k = 0; k < edges.cols; ++k) {
    const unsigned a = edges(0, k), b = edges(1, k);
    if (a >= metrics.cols || b >= metrics.cols) continue;
    double d[3];
    const double len = edge_vector<D>(pos, a, b, d);
    const double* ma = metrics.col_ptr(a);
    const double* mb = metrics.col_ptr(b);
    double qa, qb;
    if (D == 2) {
      qa = metrics_detail::quad_form_2d(ma, d[0], d[1]);
      qb = metrics_detail::quad_form_2d(mb, d[0], d[1]);
    } else {
      qa = metrics_detail::quad_form_3d(ma, d[0], d[1], d[2]);
      qb = metrics_detail::quad_form_3d(mb, d[0], d[1], d[2]);
    }
    const double L = len * length_factor(size_along(len, qa), size_along(len, qb));
    bool same = true;
    for (unsigned i = 0; i < n; ++i) same = same && ma[i] == mb[i];
    raise(shock, a, b, edge_shock(L, std::sqrt(qa), std::sqrt(qb), same));
  }
}

}  // namespace

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense1D<double, 16>& sizes,
            dense1D<double, 16>& shock) {
  if (int s = prepare(pos, edges, shock)) return s > 0 ? 0 : s;
  if (pos.rows == 2)
    iso_kernel<2>(pos, edges, sizes, shock.ptr());
  else
    iso_kernel<3>(pos, edges, sizes, shock.ptr());
  return 0;
}

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics,
            dense1D<double, 16>& shock) {
  if (int s = prepare(pos, edges, shock)) return s > 0 ? 0 : s;
  // Tensors of the wrong size for the dimension cannot be read: no edge is measured.
  if (metrics.rows != (pos.rows == 2 ? 3u : 6u)) return 0;
  if (pos.rows == 2)
    metric_kernel<2>(pos, edges, metrics, shock.ptr());
  else
    metric_kernel<3>(pos, edges, metrics, shock.ptr());
  return 0;
}

}  // namespace kvo::gridkit
