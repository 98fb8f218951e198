// Single metric tensors: eigen decompositions, validity, conversions, bounds, intersection and
// union. 2-D work is closed form; the 3-D decomposition goes through LAPACK's packed symmetric
// solver.
#include <cfloat>
#include <cmath>
#include <limits>

#include "metrics/metrics_internal.hpp"

extern "C" void dspev_(const char* jobz, const char* uplo, const int* n, double* ap, double* w, double* z,
                       const int* ldz, double* work, int* info, std::size_t, std::size_t);

namespace kvo::gridkit {

namespace metrics_detail {

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

// Largest |entry| of a packed 3-D tensor; false when an entry is NaN or infinite.
inline bool max_abs_3d(const double* s, double& n) {
  n = 0.0;
  for (int k = 0; k < 6; ++k) {
    const double a = std::fabs(s[k]);
    if (!(a <= DBL_MAX)) return false;
    if (a > n) n = a;
  }
  return true;
}

// Magnitudes for which the minors below neither overflow nor lose precision to underflow.
inline bool minor_range(double n) { return n >= 1e-90 && n <= 1e90; }

// True when the packed tensor s, taken exactly as stored, provably has every eigenvalue above
// `floor` > 0; n = max |s_ij| within minor_range. Positive leading minors (with margins far above
// their rounding errors) make s positive definite, and then
//   lambda_min >= det / (lambda_2 lambda_3) >= 4 det / trace^2.
// The 3.9 absorbs the (< 0.3 %) rounding of det. False means "not proven", nothing more.
inline bool certainly_above(const double* s, double n, double floor) {
  if (!(s[0] > 0.0)) return false;
  const double m2 = s[0] * s[2] - s[1] * s[1];
  if (!(m2 > 1e-12 * n * n)) return false;
  const double c0 = s[2] * s[5] - s[4] * s[4];
  const double c1 = s[1] * s[5] - s[4] * s[3];
  const double c2 = s[1] * s[4] - s[2] * s[3];
  const double det = s[0] * c0 - s[1] * c1 + s[3] * c2;
  if (!(det > 1e-12 * n * n * n)) return false;
  const double t = s[0] + s[2] + s[5];
  return 3.9 * det > floor * t * t;
}

// Margin, relative to the magnitude of the entries, that the proofs above must clear. The eigen
// solver is backward stable: its eigenvalues are off by at most a small multiple of 1e-16 times
// the norm, so anything proven beyond 1e-11 times the norm is what the solver reports too.
constexpr double solver_margin = 1e-11;

// Every eigenvalue the solver would report for m lies in [lo, hi] (so bounding changes nothing).
// n = max |m_ij|, finite.
bool certainly_within(const double* m, double n, double lo, double hi) {
  if (!minor_range(n)) return false;
  double s[6];
  // lower limit: m - lo I positive definite with margin
  if (lo == 0.0) {
    if (!certainly_above(m, n, solver_margin * n)) return false;
  } else {
    for (int k = 0; k < 6; ++k) s[k] = m[k];
    s[0] -= lo;
    s[2] -= lo;
    s[5] -= lo;
    double ns;
    max_abs_3d(s, ns);
    if (!minor_range(ns) || !certainly_above(s, ns, solver_margin * (n + ns))) return false;
  }
  // upper limit: |lambda| <= Frobenius norm <= 3n, so a limit beyond 4n cannot be reached
  if (hi > 4.0 * n) return true;
  for (int k = 0; k < 6; ++k) s[k] = -m[k];
  s[0] += hi;
  s[2] += hi;
  s[5] += hi;
  double ns;
  max_abs_3d(s, ns);
  return minor_range(ns) && certainly_above(s, ns, solver_margin * (n + ns));
}

// Solves L y = r in place for a lower-triangular L given by its six entries.
struct lower3 {
  double l11, l21, l31, l22, l32, l33;
  void solve(double* r) const {
    r[0] /= l11;
    r[1] = (r[1] - l21 * r[0]) / l22;
    r[2] = (r[2] - l31 * r[0] - l32 * r[1]) / l33;
  }
  void solve_transposed(double* r) const {
    r[2] /= l33;
    r[1] = (r[1] - l32 * r[2]) / l22;
    r[0] = (r[0] - l21 * r[1] - l31 * r[2]) / l11;
  }
};

inline void normalise_columns(double* v, unsigned n) {
  for (unsigned k = 0; k < n; ++k) {
    double* c = v + k * n;
    double s = 0.0;
    for (unsigned i = 0; i < n; ++i) s += c[i] * c[i];
    const double len = std::sqrt(s);
    if (len != 0.0)
      for (unsigned i = 0; i < n; ++i) c[i] /= len;
  }
}

// B v = lambda A v through the congruence that makes A a multiple of the identity (2-D).
bool generalized_2d(const double* A, const double* B, double* w, double* v) {
  const double a = A[0], b = A[1], c = A[2];
  const double d = B[0], e = B[1], f = B[2];
  if (!(a > 0.0)) return false;
  const double delta = a * c - b * b;
  if (!(delta > 0.0)) return false;
  const double sq = std::sqrt(delta);
  const double ea_db = e * a - d * b;
  const double r0 = delta * d;
  const double r1 = sq * ea_db;
  const double r2 = a * a * f - b * (e * a + ea_db);
  double l1, l2;
  if (!eigen_values_2d(r0, r1, r2, l1, l2)) return false;
  double u[4];
  eigen_vectors_2d(r0, r1, r2, l1, false, u);
  const double scale = 1.0 / (delta * a);
  w[0] = l1 * scale;
  w[1] = l2 * scale;
  for (int k = 0; k < 2; ++k) {
    const double u1 = u[2 * k], u2 = u[2 * k + 1];
    v[2 * k] = sq * u1 - b * u2;
    v[2 * k + 1] = a * u2;
  }
  normalise_columns(v, 2);
  return true;
}

// B v = lambda A v through the Cholesky factor A = L L^T: C = L^-1 B L^-T has the same
// eigenvalues, and v = L^-T z for each eigenvector z of C.
bool generalized_3d(const double* A, const double* B, double* w, double* v) {
  double n;
  if (!max_abs_3d(A, n)) return false;
  lower3 L{};
  if (!(A[0] > 0.0)) return false;
  L.l11 = std::sqrt(A[0]);
  L.l21 = A[1] / L.l11;
  L.l31 = A[3] / L.l11;
  double r = A[2] - L.l21 * L.l21;
  if (!(r > 0.0)) return false;
  L.l22 = std::sqrt(r);
  L.l32 = (A[4] - L.l31 * L.l21) / L.l22;
  r = A[5] - L.l31 * L.l31 - L.l32 * L.l32;
  if (!(r > 0.0)) return false;
  L.l33 = std::sqrt(r);

  // Y = L^-1 B column by column (B symmetric, so rows of Y^T are its columns), then C = L^-1 Y^T.
  double y[9];  // column-major
  for (int j = 0; j < 3; ++j) {
    double* col = y + 3 * j;
    col[0] = B[symmetric_fixed<double, 3>::index(0, j)];
    col[1] = B[symmetric_fixed<double, 3>::index(1, j)];
    col[2] = B[symmetric_fixed<double, 3>::index(2, j)];
    L.solve(col);
  }
  double cm[9];
  for (int j = 0; j < 3; ++j) {
    double* col = cm + 3 * j;
    col[0] = y[j];
    col[1] = y[j + 3];
    col[2] = y[j + 6];
    L.solve(col);
  }
  const double packed[6] = {cm[0], cm[3], cm[4], cm[6], cm[7], cm[8]};
  if (!eigen_3d(packed, w, v)) return false;
  for (int k = 0; k < 3; ++k) L.solve_transposed(v + 3 * k);
  normalise_columns(v, 3);
  return true;
}

// Inverse of a column-major n x n matrix (n = 2, 3); left at zero when the determinant is 0 or not
// a number.
void invert_2(const double* p, double* q) {
  q[0] = q[1] = q[2] = q[3] = 0.0;
  const double det = p[0] * p[3] - p[2] * p[1];
  if (det == 0.0 || std::isnan(det)) return;
  q[0] = p[3] / det;
  q[1] = -p[1] / det;
  q[2] = -p[2] / det;
  q[3] = p[0] / det;
}
void invert_3(const double* p, double* q) {
  for (int k = 0; k < 9; ++k) q[k] = 0.0;
  const auto P = [p](int i, int j) { return p[i + 3 * j]; };
  const double c00 = P(1, 1) * P(2, 2) - P(1, 2) * P(2, 1);
  const double c01 = P(1, 2) * P(2, 0) - P(1, 0) * P(2, 2);
  const double c02 = P(1, 0) * P(2, 1) - P(1, 1) * P(2, 0);
  const double det = P(0, 0) * c00 + P(0, 1) * c01 + P(0, 2) * c02;
  if (det == 0.0 || std::isnan(det)) return;
  // inverse(i, j) = cofactor(j, i) / det
  q[0 + 3 * 0] = c00 / det;
  q[1 + 3 * 0] = c01 / det;
  q[2 + 3 * 0] = c02 / det;
  q[0 + 3 * 1] = (P(0, 2) * P(2, 1) - P(0, 1) * P(2, 2)) / det;
  q[1 + 3 * 1] = (P(0, 0) * P(2, 2) - P(0, 2) * P(2, 0)) / det;
  q[2 + 3 * 1] = (P(0, 1) * P(2, 0) - P(0, 0) * P(2, 1)) / det;
  q[0 + 3 * 2] = (P(0, 1) * P(1, 2) - P(0, 2) * P(1, 1)) / det;
  q[1 + 3 * 2] = (P(0, 2) * P(1, 0) - P(0, 0) * P(1, 2)) / det;
  q[2 + 3 * 2] = (P(0, 0) * P(1, 1) - P(0, 1) * P(1, 0)) / det;
}

// Intersection (keep the larger eigenvalue, i.e. the smaller size, along each common direction)
// or union of two metrics. Writes M1 into the result when the combination is not acceptable.
template <unsigned N>
bool combine(const symmetric_fixed<double, N>& M1, const symmetric_fixed<double, N>& M2,
             symmetric_fixed<double, N>& M, bool intersection) {
  constexpr unsigned P = symmetric_fixed<double, N>::packed;
  double w[N], v[N * N];
  const bool ok = N == 2 ? generalized_2d(M1.data, M2.data, w, v) : generalized_3d(M1.data, M2.data, w, v);
  double mu[N];
  for (unsigned k = 0; k < N; ++k) {
    if (!ok) {
      mu[k] = 0.0;
      continue;
    }
    const double* c = v + k * N;
    const double mu1 = N == 2 ? quad_form_2d(M1.data, c[0], c[1]) : quad_form_3d(M1.data, c[0], c[1], c[2]);
    const double mu2 = w[k] * mu1;
    mu[k] = intersection ? (mu1 > mu2 ? mu1 : mu2) : (mu1 < mu2 ? mu1 : mu2);
  }
  double lo = mu[0], hi = mu[0];
  for (unsigned k = 1; k < N; ++k) {
    if (!(mu[k] >= lo)) lo = mu[k];
    if (!(mu[k] <= hi)) hi = mu[k];
  }
  const bool accepted = lo > 0.0 && hi < DBL_MAX && 1e-24 * hi < lo;
  if (!accepted) {
    M = M1;
    return false;
  }
  double q[N * N];
  if constexpr (N == 2)
    invert_2(v, q);
  else
    invert_3(v, q);
  // M = P^-T diag(mu) P^-1: entry (i, j) = sum_k mu_k Q(k, i) Q(k, j)
  double out[P];
  for (unsigned j = 0; j < N; ++j)
    for (unsigned i = 0; i <= j; ++i) {
      double s = 0.0;
      for (unsigned k = 0; k < N; ++k) s += mu[k] * q[k + N * i] * q[k + N * j];
      out[symmetric_fixed<double, N>::index(i, j)] = s;
    }
  for (unsigned k = 0; k < P; ++k) M.data[k] = out[k];
  return true;
}

}  // namespace

bool eigen_3d(const double* m, double* values, double* vectors) {
  double n;
  if (!max_abs_3d(m, n)) {
    for (int k = 0; k < 3; ++k) values[k] = nan_value;
    for (int k = 0; k < 9; ++k) vectors[k] = nan_value;
    return false;
  }
  double ap[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
  double work[9];
  const int order = 3, ldz = 3;
  int info = 0;
  dspev_("V", "U", &order, ap, values, vectors, &ldz, work, &info, 1, 1);
  // The solver may report success with values that overflowed; those are failures here as in 2-D.
  return info == 0 && std::isfinite(values[0]) && std::isfinite(values[1]) && std::isfinite(values[2]);
}

bool is_valid_3d(const double* m) {
  double n;
  if (!max_abs_3d(m, n)) return false;  // not decomposable
  if (n == 0.0) return false;           // zero tensor: all eigenvalues are 0
  if (minor_range(n) && certainly_above(m, n, solver_margin * n)) return true;
  // lambda_min <= every diagonal entry
  const double neg = -solver_margin * n;
  if (m[0] < neg || m[2] < neg || m[5] < neg) return false;
  double w[3], z[9];
  return eigen_3d(m, w, z) && w[0] > 0.0;
}

// Clamps n eigenvalues into [lo, hi] (the upper bound first, then the lower one); true when one
// changed.
static bool clamp_values(double* l, int n, double lo, double hi) {
  bool changed = false;
  for (int k = 0; k < n; ++k) {
    if (l[k] > hi) {
      l[k] = hi;
      changed = true;
    }
    if (l[k] < lo) {
      l[k] = lo;
      changed = true;
    }
  }
  return changed;
}

bool bound_tensor_2d(double* m, double lo, double hi) {
  const double a = m[0], b = m[1], c = m[2];
  double l[2];
  if (!eigen_values_2d(a, b, c, l[0], l[1])) {
    m[0] = hi;
    m[1] = 0.0;
    m[2] = hi;
    return true;
  }
  const double l1 = l[0];
  if (!clamp_values(l, 2, lo, hi)) return false;
  double v[4];
  eigen_vectors_2d(a, b, c, l1, true, v);
  rebuild_2d(v, l, m);
  return true;
}

bool bound_tensor_3d(double* m, double lo, double hi) {
  double n;
  if (max_abs_3d(m, n) && certainly_within(m, n, lo, hi)) return false;
  double l[3], v[9];
  if (!eigen_3d(m, l, v)) {
    m[0] = hi;
    m[1] = 0.0;
    m[2] = hi;
    m[3] = 0.0;
    m[4] = 0.0;
    m[5] = hi;
    return true;
  }
  if (!clamp_values(l, 3, lo, hi)) return false;
  rebuild_3d(v, l, m);
  return true;
}

}  // namespace metrics_detail

using namespace metrics_detail;

bool eigen_pairs(const symmetric_fixed<double, 2>& M, vector_fixed<double, 2>& eigen_values,
                 matrix_fixed<double, 2, 2>& eigen_vectors) {
  const double a = M.data[0], b = M.data[1], c = M.data[2];
  double l1, l2;
  const bool ok = eigen_values_2d(a, b, c, l1, l2);
  eigen_values.data[0] = l1;
  eigen_values.data[1] = l2;
  eigen_vectors_2d(a, b, c, l1, true, eigen_vectors.data);
  return ok;
}

bool eigen_pairs(const symmetric_fixed<double, 3>& M, vector_fixed<double, 3>& eigen_values,
                 matrix_fixed<double, 3, 3>& eigen_vectors) {
  return eigen_3d(M.data, eigen_values.data, eigen_vectors.data);
}

bool eigen_pairs(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B,
                 vector_fixed<double, 2>& eigen_values, matrix_fixed<double, 2, 2>& eigen_vectors) {
  double w[2], v[4];
  if (!generalized_2d(A.data, B.data, w, v)) return false;
  eigen_values.data[0] = w[0];
  eigen_values.data[1] = w[1];
  for (int k = 0; k < 4; ++k) eigen_vectors.data[k] = v[k];
  return true;
}

bool eigen_pairs(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B,
                 vector_fixed<double, 3>& eigen_values, matrix_fixed<double, 3, 3>& eigen_vectors) {
  double w[3], v[9];
  if (!generalized_3d(A.data, B.data, w, v)) return false;
  for (int k = 0; k < 3; ++k) eigen_values.data[k] = w[k];
  for (int k = 0; k < 9; ++k) eigen_vectors.data[k] = v[k];
  return true;
}

bool is_valid_metric(const symmetric_fixed<double, 2>& M) { return is_valid_2d(M.data); }
bool is_valid_metric(const symmetric_fixed<double, 3>& M) { return is_valid_3d(M.data); }

void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M) { iso_tensor_2d(h, M.data); }
void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M) { iso_tensor_3d(h, M.data); }

void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& T, symmetric_fixed<double, 2>& M2) {
  iso_to_plane(h, T.data, M2.data);
}

void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3, const matrix_fixed<double, 3, 2>& T,
                               symmetric_fixed<double, 2>& M2) {
  aniso_to_plane(M3.data, T.data, M2.data);
}

int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax) {
  const int status = bound_status(hmin, hmax);
  if (status <= 0) return status;
  double lo, hi;
  eigenvalue_limits(hmin, hmax, lo, hi);
  return bound_tensor_2d(M.data, lo, hi) ? 1 : 0;
}

int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax) {
  const int status = bound_status(hmin, hmax);
  if (status <= 0) return status;
  double lo, hi;
  eigenvalue_limits(hmin, hmax, lo, hi);
  return bound_tensor_3d(M.data, lo, hi) ? 1 : 0;
}

bool minimum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                    symmetric_fixed<double, 2>& M) {
  return combine<2>(M1, M2, M, true);
}
bool minimum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                    symmetric_fixed<double, 3>& M) {
  return combine<3>(M1, M2, M, true);
}
bool maximum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                    symmetric_fixed<double, 2>& M) {
  return combine<2>(M1, M2, M, false);
}
bool maximum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                    symmetric_fixed<double, 3>& M) {
  return combine<3>(M1, M2, M, false);
}

}  // namespace kvo::gridkit
