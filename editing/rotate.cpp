// rotate: p <- c + R*(p - c) on all nodes, a node list or the nodes of a connectivity. In 2-D
// R turns by an angle (counter-clockwise); in 3-D R turns about a rotation vector by its length
// (right-handed), built from I + (sin t/t) K + ((1 - cos t)/t^2) K^2.
#include <cmath>

#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

// R*(p - c) is accumulated row by row into a zeroed vector, column 0 first, and the centre is
// added last; results depend on this order to the last bit.
template <unsigned D>
struct turn_about {
  double c[D];
  double R[D][D];
  void operator()(double* p) const {
    double x[D], y[D];
    for (unsigned k = 0; k < D; ++k) x[k] = p[k] - c[k];
    for (unsigned i = 0; i < D; ++i) {
      double s = 0.0;
      for (unsigned k = 0; k < D; ++k) s = s + R[i][k] * x[k];
      y[i] = s;
    }
    for (unsigned i = 0; i < D; ++i) p[i] = c[i] + y[i];
  }
};

turn_about<2> make_op(const vector_fixed<double, 2>& c, double angle) {
  turn_about<2> op;
  op.c[0] = c[0];
  op.c[1] = c[1];
  const double ca = std::cos(angle), sa = std::sin(angle);
  op.R[0][0] = ca;
  op.R[0][1] = -sa;
  op.R[1][0] = sa;
  op.R[1][1] = ca;
  return op;
}

turn_about<3> make_op(const vector_fixed<double, 3>& c, const vector_fixed<double, 3>& v) {
  turn_about<3> op;
  for (unsigned k = 0; k < 3; ++k) op.c[k] = c[k];
  const double t2 = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
  const double t = std::sqrt(t2);
  double a, b;  // sin(t)/t and (1 - cos(t))/t^2
  if (t > 0.1) {
    a = std::sin(t) / t;
    b = (1.0 - std::cos(t)) / t2;
  } else {
    // Series in t^2: no cancellation for small angles.
    const double s = t2;
    a = ((((2.7557319223985893e-6 - 2.505210838544172e-8 * s) * s - 0.0001984126984126984) * s +
          0.008333333333333333) * s - 0.16666666666666666) * s + 1.0;
    b = (((2.755731922398589e-7 * s - 2.48015873015873e-5) * s + 0.001388888888888889) * s -
         0.041666666666666664) * s + 0.5;
  }
  // Cross-product matrix: K*x = v x x.
  const double K[3][3] = {{0.0, -v[2], v[1]}, {v[2], 0.0, -v[0]}, {-v[1], v[0], 0.0}};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j) {
      double k2 = 0.0;
      for (unsigned k = 0; k < 3; ++k) k2 = k2 + K[i][k] * K[k][j];
      op.R[i][j] = ((i == j ? 1.0 : 0.0) + a * K[i][j]) + b * k2;
    }
  return op;
}

bool is_identity(double angle) { return angle == 0.0; }
bool is_identity(const vector_fixed<double, 3>& v) { return detail::all_zero(v); }

template <unsigned D, class Param>
int rotate_all(dense2D<double>& pos, const vector_fixed<double, D>& c, const Param& r) {
  if (detail::is_empty(pos) || is_identity(r)) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  detail::for_each_column<D>(pos, make_op(c, r));
  return static_cast<int>(pos.cols);
}

template <unsigned D, class Param>
int rotate_list(dense2D<double>& pos, const vector_fixed<double, D>& c, const Param& r,
                const dense1D<unsigned, 16>& ids) {
  if (detail::is_empty(pos) || is_identity(r) || ids.size == 0) return 0;
  if (!detail::promote_rows(pos, D)) return 0;
  return detail::for_each_listed(pos, ids, make_op(c, r));
}

template <unsigned D, class Param>
int rotate_conn(dense2D<double>& pos, const vector_fixed<double, D>& c, const Param& r,
                const dense2D<unsigned>& connectM) {
  if (detail::is_empty(pos) || is_identity(r)) return 0;
  dense1D<unsigned, 16> nodes;
  if (const int s = detail::connectivity_nodes(connectM, nodes); s != 0) return s;
  return rotate_list(pos, c, r, nodes);
}

}  // namespace

int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle) {
  return rotate_all(pos, centre, angle);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle,
           const dense1D<unsigned, 16>& indices) {
  return rotate_list(pos, centre, angle, indices);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle,
           const dense2D<unsigned>& connectM) {
  return rotate_conn(pos, centre, angle, connectM);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation) {
  return rotate_all(pos, centre, rotation);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
           const dense1D<unsigned, 16>& indices) {
  return rotate_list(pos, centre, rotation, indices);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
           const dense2D<unsigned>& connectM) {
  return rotate_conn(pos, centre, rotation, connectM);
}

}  // namespace kvo::gridkit
