// Small tensor helpers shared by the metric operations (single tensors, fields, edge lengths).
//
// Tensors are packed upper triangles, column by column: (m11, m12, m22) in 2-D and
// (m11, m12, m22, m13, m23, m33) in 3-D. The helpers work on raw pointers so that field code can
// hand them a column of a dense2D directly.
#ifndef GRIDKIT_METRICS_INTERNAL_HPP
#define GRIDKIT_METRICS_INTERNAL_HPP

#include <cfloat>
#include <cmath>

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::metrics_detail {

// d^T M d for a packed 2-D / 3-D tensor.
inline double quad_form_2d(const double* m, double x, double y) {
  return m[0] * x * x + 2.0 * m[1] * x * y + m[2] * y * y;
}
inline double quad_form_3d(const double* m, double x, double y, double z) {
  return m[0] * x * x + m[2] * y * y + m[5] * z * z + 2.0 * (m[1] * x * y + m[3] * x * z + m[4] * y * z);
}

// Eigenvalue of the isotropic tensor of size h: 1/h^2.
inline double size_to_eigenvalue(double h) { return 1.0 / (h * h); }

// An isotropic size is usable iff it is positive and finite (false for NaN).
inline bool valid_size(double h) { return h > 0.0 && h <= DBL_MAX; }

// Eigenvalues of the 2-D tensor (a, b, c), lambda1 <= lambda2, closed form. The smaller one is
// recomputed from the determinant when the subtraction has cancelled it (and the larger one when
// it is the negligible one). False when a value is not finite.
inline bool eigen_values_2d(double a, double b, double c, double& l1, double& l2) {
  const double det = a * c - b * b;
  const double d = std::sqrt((a - c) * (a - c) + 4.0 * b * b);
  l1 = (a + c - d) / 2.0;
  l2 = d + l1;
  if (std::fabs(l2) * 1e-12 > std::fabs(l1))
    l1 = det / l2;
  else if (std::fabs(l2) < 1e-12 * std::fabs(l1))
    l2 = det / l1;
  return std::isfinite(l1) && std::isfinite(l2);
}

// Eigenvectors of (a, b, c) for its smaller eigenvalue l1: column 0 of v (column-major 2x2) is the
// vector of l1, column 1 its rotation by +90 degrees. A (near) multiple of the identity gets the
// axes. Without `normalise` the first vector keeps the length it was built with.
inline void eigen_vectors_2d(double a, double b, double c, double l1, bool normalise, double* v) {
  double u1, u2;
  if ((l1 - a) * (l1 - a) < (l1 - c) * (l1 - c)) {
    u1 = l1 - c;
    u2 = b;
  } else {
    u1 = b;
    u2 = l1 - a;
  }
  const double s = u1 * u1 + u2 * u2;
  const double big = a * a > c * c ? a * a : c * c;
  if (s <= 1e-24 * big) {
    u1 = 1.0;
    u2 = 0.0;
  } else if (normalise) {
    const double r = std::sqrt(s);
    u1 /= r;
    u2 /= r;
  }
  v[0] = u1;
  v[1] = u2;
  v[2] = -u2;
  v[3] = u1;
}

// M = V diag(l) V^T, V column-major with unit eigenvectors as columns.
inline void rebuild_2d(const double* v, const double* l, double* m) {
  m[0] = l[0] * v[0] * v[0] + l[1] * v[2] * v[2];
  m[1] = l[0] * v[0] * v[1] + l[1] * v[2] * v[3];
  m[2] = l[0] * v[1] * v[1] + l[1] * v[3] * v[3];
}
inline void rebuild_3d(const double* v, const double* l, double* m) {
  // entry (i, j) = sum_k l_k V(i,k) V(j,k), V(i,k) = v[i + 3k]
  const auto e = [&](int i, int j) {
    return l[0] * v[i] * v[j] + l[1] * v[i + 3] * v[j + 3] + l[2] * v[i + 6] * v[j + 6];
  };
  m[0] = e(0, 0);
  m[1] = e(0, 1);
  m[2] = e(1, 1);
  m[3] = e(0, 2);
  m[4] = e(1, 2);
  m[5] = e(2, 2);
}

// Full eigen decomposition of a packed 3-D tensor through LAPACK (values ascending, orthonormal
// vectors as the columns of v). Non-finite entries fail without calling the solver (which would
// report success with NaN values); so do eigenvalues that overflow.
bool eigen_3d(const double* m, double* values, double* vectors);

// Validity (smallest eigenvalue > 0) of one packed tensor. The 3-D test answers clear cases from
// the leading minors and asks the eigen solver only when the smallest eigenvalue is too close to 0
// for the minors to decide.
inline bool is_valid_2d(const double* m) {
  double l1, l2;
  return eigen_values_2d(m[0], m[1], m[2], l1, l2) && l1 > 0.0;
}
bool is_valid_3d(const double* m);

// Eigenvalue limits of a bound: hi = 1/hmin^2 (largest double for hmin <= 0), lo = 1/hmax^2 (0 for
// hmax <= 0); both are kept finite. The bounds must be finite.
inline void eigenvalue_limits(double hmin, double hmax, double& lo, double& hi) {
  hi = hmin <= 0.0 ? DBL_MAX : size_to_eigenvalue(hmin);
  lo = hmax <= 0.0 ? 0.0 : size_to_eigenvalue(hmax);
  if (hi > DBL_MAX) hi = DBL_MAX;
  if (lo > DBL_MAX) lo = DBL_MAX;
}

// No bound requested at all: every tensor and size is left as it is.
inline bool no_bound(double hmin, double hmax) { return hmin <= 0.0 && hmax == DBL_MAX; }

// Checks of a pair of bounds, in order: 0 when nothing is to be bounded, -2 / -3 for a bound that
// is not finite, 1 when there is work to do.
inline int bound_status(double hmin, double hmax) {
  if (no_bound(hmin, hmax)) return 0;
  if (!std::isfinite(hmin)) return -2;
  if (!std::isfinite(hmax)) return -3;
  return 1;
}

// Bounds the eigenvalues of one packed tensor to [lo, hi] (upper limit first, lower last) and
// rebuilds it when an eigenvalue moved; a tensor that cannot be decomposed becomes hi*I. Returns
// whether m was written; an unchanged tensor is not touched.
bool bound_tensor_2d(double* m, double lo, double hi);
bool bound_tensor_3d(double* m, double lo, double hi);

// Tensor of the isotropic size h (zero tensor for h <= 0).
inline void iso_tensor_2d(double h, double* m) {
  const double l = h <= 0.0 ? 0.0 : size_to_eigenvalue(h);
  m[0] = l;
  m[1] = 0.0;
  m[2] = l;
}
inline void iso_tensor_3d(double h, double* m) {
  const double l = h <= 0.0 ? 0.0 : size_to_eigenvalue(h);
  m[0] = l;
  m[1] = 0.0;
  m[2] = l;
  m[3] = 0.0;
  m[4] = 0.0;
  m[5] = l;
}

// Restrictions to the plane of t (3x2 column-major: tangents t[0..2] and t[3..5]).
inline void iso_to_plane(double h, const double* t, double* m2) {
  double r0 = 0.0, r1 = 0.0, r2 = 0.0;
  if (h > 0.0) {
    const double l = size_to_eigenvalue(h);
    r0 = l * (t[0] * t[0] + t[1] * t[1] + t[2] * t[2]);
    r1 = l * (t[0] * t[3] + t[1] * t[4] + t[2] * t[5]);
    r2 = l * (t[3] * t[3] + t[4] * t[4] + t[5] * t[5]);
  }
  m2[0] = r0;
  m2[1] = r1;
  m2[2] = r2;
}
inline void aniso_to_plane(const double* m, const double* t, double* m2) {
  // M3 t_j, then t_i . (M3 t_j)
  const double p0 = m[0] * t[0] + m[1] * t[1] + m[3] * t[2];
  const double p1 = m[1] * t[0] + m[2] * t[1] + m[4] * t[2];
  const double p2 = m[3] * t[0] + m[4] * t[1] + m[5] * t[2];
  const double q0 = m[0] * t[3] + m[1] * t[4] + m[3] * t[5];
  const double q1 = m[1] * t[3] + m[2] * t[4] + m[4] * t[5];
  const double q2 = m[3] * t[3] + m[4] * t[4] + m[5] * t[5];
  const double r0 = t[0] * p0 + t[1] * p1 + t[2] * p2;
  const double r1 = t[0] * q0 + t[1] * q1 + t[2] * q2;
  const double r2 = t[3] * q0 + t[4] * q1 + t[5] * q2;
  m2[0] = r0;
  m2[1] = r1;
  m2[2] = r2;
}

}  // namespace kvo::gridkit::metrics_detail

#endif  // GRIDKIT_METRICS_INTERNAL_HPP
