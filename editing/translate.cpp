// translate: p <- p + d on all nodes, a node list or the nodes of a connectivity.
#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

template <unsigned D>
struct shift_by {
  double d[D];
  void operator()(double* p) const {
    for (unsigned k = 0; k < D; ++k) p[k] = p[k] + d[k];
  }
};

template <unsigned D>
shift_by<D> make_op(const vector_fixed<double, D>& d) {
  shift_by<D> op;
  for (unsigned k = 0; k < D; ++k) op.d[k] = d[k];
  return op;
}

template <unsigned D>
int translate_all(dense2D<double>& pos, const vector_fixed<double, D>& d) {
  if (detail::is_empty(pos) || detail::all_zero(d)) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  detail::for_each_column<D>(pos, make_op(d));
  return static_cast<int>(pos.cols);
}

template <unsigned D>
int translate_list(dense2D<double>& pos, const vector_fixed<double, D>& d, const dense1D<unsigned, 16>& ids) {
  if (detail::is_empty(pos) || detail::all_zero(d) || ids.size == 0) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  return detail::for_each_listed(pos, ids, make_op(d));
}

template <unsigned D>
int translate_conn(dense2D<double>& pos, const vector_fixed<double, D>& d, const dense2D<unsigned>& connectM) {
  if (detail::is_empty(pos) || detail::all_zero(d)) return 0;
  dense1D<unsigned, 16> nodes;
  if (const int s = detail::connectivity_nodes(connectM, nodes); s != 0) return s;
  return translate_list(pos, d, nodes);
}

}  // namespace

int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement) {
  return translate_all(pos, displacement);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement,
              const dense1D<unsigned, 16>& indices) {
  return translate_list(pos, displacement, indices);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement, const dense2D<unsigned>& connectM) {
  return translate_conn(pos, displacement, connectM);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement) {
  return translate_all(pos, displacement);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement,
              const dense1D<unsigned, 16>& indices) {
  return translate_list(pos, displacement, indices);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement, const dense2D<unsigned>& connectM) {
  return translate_conn(pos, displacement, connectM);
}

}  // namespace kvo::gridkit
