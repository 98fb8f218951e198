// copy_mesh and copy_sym_mesh: duplicate the nodes used by a connectivity at the end of the
// coordinates and make a connectivity over the duplicates; optionally move or mirror them.
#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

// Plain copy. The k-th distinct source node (in order of first occurrence) is copied to column
// n0 + k; out becomes the source renumbered to the copies. `bad_source` is returned when the
// source names a node that does not exist.
int plain_copy(dense2D<double>& pos, dense2D<unsigned>& out, const dense2D<unsigned>& source, int bad_source) {
  if (!check_IDs(source, pos.cols)) return bad_source;
  dense1D<unsigned, 16> nodes;
  if (const int s = detail::connectivity_nodes(source, nodes); s != 0) return s;
  const unsigned n0 = pos.cols, k = nodes.size;
  if (std::uint64_t(n0) + k > 0xFFFFFFFFull) return ERR_ALLOCATION;
  if (k > 0) {
    if (!pos.resize(pos.rows, n0 + k)) return ERR_ALLOCATION;
    const std::size_t bytes = sizeof(double) * pos.rows;
    for (unsigned m = 0; m < k; ++m)
      if (bytes) std::memcpy(pos.col_ptr(n0 + m), pos.col_ptr(nodes[m]), bytes);
  }
  if (!out.copy(source)) return ERR_ALLOCATION;
  if (k > 0) {
    dense1D<unsigned, 16> map;
    if (!map.resize(n0)) return ERR_ALLOCATION;
    for (unsigned m = 0; m < k; ++m) map[nodes[m]] = n0 + m;
    change_indices(out, map);
  }
  return 0;
}

vector_fixed<double, 2> times(double m, const vector_fixed<double, 2>& v) { return {{m * v[0], m * v[1]}}; }
vector_fixed<double, 3> times(double m, const vector_fixed<double, 3>& v) {
  return {{m * v[0], m * v[1], m * v[2]}};
}
double times(double m, double a) { return m * a; }

// Copy i (from 0) is the source turned by (i+1) rotation steps about the centre, then shifted by
// (i+1) translation steps; the copies are appended to out.
template <unsigned D, class Turn>
int copy_series(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, D>& step,
                const vector_fixed<double, D>& centre, const Turn& turn, unsigned count,
                const dense2D<unsigned>& source) {
  if (detail::is_empty(pos) || count == 0) return 0;
  // out grows while the copies are made: keep the source apart when it lives in out's block.
  dense2D<unsigned> src(source);
  if (source.storage == out.storage && !src.copy(source)) return ERR_ALLOCATION;
  dense2D<unsigned> work;
  for (unsigned i = 0; i < count; ++i) {
    const double m = double(i + 1);
    if (const int s = plain_copy(pos, work, src, -7); s != 0) return s;
    rotate(pos, centre, times(m, turn), work);
    translate(pos, times(m, step), work);
    if (work.cols == 0) continue;
    unsigned first;
    if (!detail::grow_columns(out, work.rows, work.cols, &first)) return ERR_ALLOCATION;
    for (unsigned j = 0; j < work.cols; ++j) detail::put_column(out, first + j, work, j);
  }
  return 0;
}

// Mirror copy through the line (2-D) or plane (3-D) through `point` with normal `n`.
template <unsigned D>
int copy_mirror(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, D>& point,
                const vector_fixed<double, D>& n, const dense2D<unsigned>& source) {
  if (detail::is_empty(pos)) return 0;
  const double nn = D == 3 ? n[D - 1] * n[D - 1] + (n[0] * n[0] + n[1] * n[1]) : n[1] * n[1] + n[0] * n[0];
  if (nn == 0.0) return -4;
  const unsigned n0 = pos.cols;
  if (const int s = plain_copy(pos, out, source, -5); s < 0) return s;
  if (!detail::promote_rows(pos, D)) return ERR_ALLOCATION;
  const double f = -2.0 / nn;
  for (unsigned j = n0; j < pos.cols; ++j) {
    double* p = pos.col_ptr(j);
    double t = 0.0;
    for (unsigned k = 0; k < D; ++k) t = t + (p[k] - point[k]) * n[k];
    t = t * f;
    for (unsigned k = 0; k < D; ++k) p[k] = n[k] * t + p[k];
  }
  return 0;
}

}  // namespace

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const dense2D<unsigned>& source) {
  return plain_copy(pos, out, source, -3);
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 2>& step,
              const vector_fixed<double, 2>& centre, double angle, unsigned count, const dense2D<unsigned>& source) {
  return copy_series(pos, out, step, centre, angle, count, source);
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 3>& step,
              const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation, unsigned count,
              const dense2D<unsigned>& source) {
  return copy_series(pos, out, step, centre, rotation, count, source);
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 2>& point,
                  const vector_fixed<double, 2>& normal, const dense2D<unsigned>& source) {
  return copy_mirror(pos, out, point, normal, source);
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 3>& point,
                  const vector_fixed<double, 3>& normal, const dense2D<unsigned>& source) {
  return copy_mirror(pos, out, point, normal, source);
}

}  // namespace kvo::gridkit
