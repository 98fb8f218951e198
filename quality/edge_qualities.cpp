// Normalised edge lengths in a size or metric field.
#include <cmath>

#include "metrics/metrics_internal.hpp"
#include "quality/length_factor.hpp"

namespace kvo::gridkit {

using quality_detail::length_factor;
using quality_detail::size_along;

int edge_quality(double L, double h1, double h2, double& q) {
  if (h1 <= 0.0) return -2;
  if (h2 <= 0.0) return -3;
  q = L * length_factor(h1, h2);
  return 0;
}

namespace {

// Checks shared by both fields, then the distinct edges of all meshes, appended to `edges` and
// returned in `found`. Returns 0 or the status to hand back.
int collect_edges(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                  const dense1D<int, 16>& types, dense2D<unsigned>& edges, dense2D<unsigned>& found) {
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (std::size_t(last - first) != types.size) return -4;
  for (unsigned i = 0; i < types.size; ++i) {
    const int t = types[i];
    if (t < 0 || t > int(ET_HEXA27) || !check_IDs(first[i], element_type(t), pos.cols)) return -2;
  }
  if (!check_IDs(edges, ET_EDGE2, pos.cols)) return -7;
  const int status = copy_edges(first, last, types, found);
  if (status == ERR_ALLOCATION) return status;
  if (status != 0) return -2;
  if (found.cols == 0) return 0;
  if (edges.rows * edges.cols == 0) {
    edges.clear();
    edges.rows = edges.ld = 2;
  }
  if (edges.ld != 2 && !edges.resize(2, edges.cols)) return ERR_ALLOCATION;
  const unsigned old = edges.cols;
  if (!edges.resize(2, old + found.cols)) return ERR_ALLOCATION;
  for (unsigned k = 0; k < found.cols; ++k) {
    edges(0, old + k) = found(0, k);
    edges(1, old + k) = found(1, k);
  }
  return 0;
}

// Single-mesh forms: codes beyond -3 move down by one so that each still names its argument.
int single_mesh_status(int status) {
  if (status == -5) return -4;
  if (status == -7) return -6;
  return status;
}

}  // namespace

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                   const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                   const dense1D<double, 16>& sizes, histogram& hist, dense2D<unsigned>& edges) {
  if (connect_begin == connect_end) return 0;
  if (connect_end < connect_begin) return -3;
  dense2D<unsigned> found;
  if (int s = collect_edges(pos, connect_begin, connect_end, types, edges, found)) return s;
  bool remembered = sizes.size != pos.cols;
  const double* h = sizes.ptr();
  const unsigned dim = pos.rows;
  for (unsigned k = 0; k < found.cols; ++k) {
    const unsigned a = found(0, k), b = found(1, k);
    if (a >= sizes.size || b >= sizes.size || !(h[a] > 0.0) || !(h[b] > 0.0)) {
      remembered = true;
      continue;
    }
    const double* pa = pos.col_ptr(a);
    const double* pb = pos.col_ptr(b);
    const double dx = pb[0] - pa[0], dy = pb[1] - pa[1];
    double dd = dx * dx + dy * dy;
    if (dim == 3) {
      const double dz = pb[2] - pa[2];
      dd = dx * dx + dy * dy + dz * dz;
    }
    hist.process(std::sqrt(dd) * length_factor(h[a], h[b]));
  }
  return remembered ? -5 : 0;
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                   const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                   const dense2D<double>& metrics, histogram& hist, dense2D<unsigned>& edges) {
  if (connect_begin == connect_end) return 0;
  if (connect_end < connect_begin) return -3;
  dense2D<unsigned> found;
  if (int s = collect_edges(pos, connect_begin, connect_end, types, edges, found)) return s;
  const unsigned dim = pos.rows;
  // A field of the wrong shape measures nothing: every edge is skipped.
  const bool shaped = metrics.rows == (dim == 2 ? 3u : 6u);
  bool remembered = !shaped || metrics.cols != pos.cols;
  for (unsigned k = 0; k < found.cols; ++k) {
    const unsigned a = found(0, k), b = found(1, k);
    if (!shaped || a >= metrics.cols || b >= metrics.cols) {
      remembered = true;
      continue;
    }
    const double* pa = pos.col_ptr(a);
    const double* pb = pos.col_ptr(b);
    double len, qa, qb;
    if (dim == 2) {
      const double dx = pb[0] - pa[0], dy = pb[1] - pa[1];
      len = std::sqrt(dx * dx + dy * dy);
      qa = metrics_detail::quad_form_2d(metrics.col_ptr(a), dx, dy);
      qb = metrics_detail::quad_form_2d(metrics.col_ptr(b), dx, dy);
    } else {
      const double dx = pb[0] - pa[0], dy = pb[1] - pa[1], dz = pb[2] - pa[2];
      len = std::sqrt(dx * dx + dy * dy + dz * dz);
      qa = metrics_detail::quad_form_3d(metrics.col_ptr(a), dx, dy, dz);
      qb = metrics_detail::quad_form_3d(metrics.col_ptr(b), dx, dy, dz);
    }
    const double ha = size_along(len, qa), hb = size_along(len, qb);
    if (!(ha > 0.0) || !(hb > 0.0)) {
      remembered = true;
      continue;
    }
    hist.process(len * length_factor(ha, hb));
  }
  return remembered ? -5 : 0;
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                   const dense1D<double, 16>& sizes, histogram& hist, dense2D<unsigned>& edges) {
  dense1D<int, 16> types(1, int(type));
  return single_mesh_status(edge_qualities(pos, &connectM, &connectM + 1, types, sizes, hist, edges));
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                   const dense2D<double>& metrics, histogram& hist, dense2D<unsigned>& edges) {
  dense1D<int, 16> types(1, int(type));
  return single_mesh_status(edge_qualities(pos, &connectM, &connectM + 1, types, metrics, hist, edges));
}

}  // namespace kvo::gridkit
