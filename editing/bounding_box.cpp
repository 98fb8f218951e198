// inc_bounding_box: widens a box the caller holds by all nodes, a node list or the nodes of a
// connectivity. The box is never reset; NaN coordinates never change it.
#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

template <unsigned D>
inline void widen(const double* p, double* lo, double* hi) {
  for (unsigned k = 0; k < D; ++k) {
    if (lo[k] > p[k]) lo[k] = p[k];
    if (hi[k] < p[k]) hi[k] = p[k];
  }
}

template <unsigned D>
int box_all(const dense2D<double>& pos, vector_fixed<double, D>& lo, vector_fixed<double, D>& hi) {
  if (pos.rows != D) return -1;
  if (pos.cols == 0) return 0;
  const double* base = pos.storage->data + pos.offset;
  const std::size_t ld = pos.ld;
  double l[D], h[D];
  for (unsigned k = 0; k < D; ++k) {
    l[k] = lo[k];
    h[k] = hi[k];
  }
  for (unsigned j = 0; j < pos.cols; ++j) widen<D>(base + j * ld, l, h);
  for (unsigned k = 0; k < D; ++k) {
    lo[k] = l[k];
    hi[k] = h[k];
  }
  return 0;
}

template <unsigned D>
int box_list(const dense2D<double>& pos, const dense1D<unsigned, 16>& ids, vector_fixed<double, D>& lo,
             vector_fixed<double, D>& hi) {
  if (ids.size == 0) return 0;
  if (pos.rows != D) return -1;
  if (!check_IDs(ids, pos.cols)) return -2;
  const double* base = pos.storage->data + pos.offset;
  const unsigned* id = ids.storage->data + ids.offset;
  const std::size_t ld = pos.ld;
  for (unsigned k = 0; k < ids.size; ++k) {
    const unsigned j = id[k];
    if (j >= pos.cols) continue;  // NULL_INDEX passes the check but is no node
    widen<D>(base + j * ld, lo.data, hi.data);
  }
  return 0;
}

template <unsigned D>
int box_conn(const dense2D<double>& pos, const dense2D<unsigned>& connectM, vector_fixed<double, D>& lo,
             vector_fixed<double, D>& hi) {
  dense1D<unsigned, 16> nodes;
  if (const int s = detail::connectivity_nodes(connectM, nodes); s != 0) return s;
  return box_list(pos, nodes, lo, hi);
}

}  // namespace

int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max) {
  return box_all(pos, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices,
                     vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max) {
  return box_list(pos, indices, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max) {
  return box_conn(pos, connectM, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max) {
  return box_all(pos, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices,
                     vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max) {
  return box_list(pos, indices, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max) {
  return box_conn(pos, connectM, box_min, box_max);
}

}  // namespace kvo::gridkit
