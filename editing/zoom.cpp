// zoom: scaling about a centre, p <- (p - c)*(f - 1) + p, on all nodes, a list or a connectivity.
#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

template <unsigned D>
struct scale_about {
  double c[D];
  double g;  // factor - 1
  void operator()(double* p) const {
    for (unsigned k = 0; k < D; ++k) p[k] = (p[k] - c[k]) * g + p[k];
  }
};

template <unsigned D>
scale_about<D> make_op(const vector_fixed<double, D>& c, double factor) {
  scale_about<D> op;
  for (unsigned k = 0; k < D; ++k) op.c[k] = c[k];
  op.g = factor - 1.0;
  return op;
}

template <unsigned D>
int zoom_all(dense2D<double>& pos, const vector_fixed<double, D>& c, double factor) {
  if (detail::is_empty(pos) || factor == 1.0) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  detail::for_each_column<D>(pos, make_op(c, factor));
  return static_cast<int>(pos.cols);
}

// The list form reports 0 whatever it did; indices past the last column are skipped.
template <unsigned D>
int zoom_list(dense2D<double>& pos, const vector_fixed<double, D>& c, double factor,
              const dense1D<unsigned, 16>& ids) {
  if (detail::is_empty(pos) || factor == 1.0 || ids.size == 0) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  detail::for_each_listed(pos, ids, make_op(c, factor));
  return 0;
}

template <unsigned D>
int zoom_conn(dense2D<double>& pos, const vector_fixed<double, D>& c, double factor,
              const dense2D<unsigned>& connectM) {
  if (detail::is_empty(pos) || factor == 1.0) return 0;
  dense1D<unsigned, 16> nodes;
  if (const int s = detail::connectivity_nodes(connectM, nodes); s != 0) return s;
  return zoom_list(pos, c, factor, nodes);
}

}  // namespace

int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor) {
  return zoom_all(pos, centre, factor);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor,
         const dense1D<unsigned, 16>& indices) {
  return zoom_list(pos, centre, factor, indices);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor,
         const dense2D<unsigned>& connectM) {
  return zoom_conn(pos, centre, factor, connectM);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor) {
  return zoom_all(pos, centre, factor);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor,
         const dense1D<unsigned, 16>& indices) {
  return zoom_list(pos, centre, factor, indices);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor,
         const dense2D<unsigned>& connectM) {
  return zoom_conn(pos, centre, factor, connectM);
}

}  // namespace kvo::gridkit
