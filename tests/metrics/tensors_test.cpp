#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;
using S2 = symmetric_fixed<double, 2>;
using S3 = symmetric_fixed<double, 3>;
static const double NaN = std::numeric_limits<double>::quiet_NaN(), inf = HUGE_VAL;
static std::mt19937 rng(7);

// Packed R diag(l) R^T for a random rotation R (Gram-Schmidt on Gaussian columns).
template <unsigned N>
static symmetric_fixed<double, N> spd(const double* l) {
  std::normal_distribution<double> nd;
  double r[N][N];
  for (unsigned k = 0; k < N; ++k) {
    for (auto& x : r[k]) x = nd(rng);
    for (unsigned p = 0; p <= k; ++p) {
      double d = 0;
      for (unsigned i = 0; i < N; ++i) d += r[k][i] * r[p][i];
      for (unsigned i = 0; i < N; ++i) r[k][i] = p < k ? r[k][i] - d * r[p][i] : r[k][i] / std::sqrt(d);
    }
  }
  symmetric_fixed<double, N> m;
  for (unsigned j = 0; j < N; ++j)
    for (unsigned i = 0; i <= j; ++i) m(i, j) = l[0] * r[0][i] * r[0][j] + l[1] * r[1][i] * r[1][j] + (N == 3 ? l[2] * r[2][i] * r[2][j] : 0);
  return m;
}
// Eigenvalues log-uniform in [10^lo, 10^hi].
template <unsigned N>
static symmetric_fixed<double, N> random_spd(double lo = -6, double hi = 2) {
  std::uniform_real_distribution<double> u(lo, hi);
  const double l[3] = {std::pow(10.0, u(rng)), std::pow(10.0, u(rng)), std::pow(10.0, u(rng))};
  return spd<N>(l);
}
template <unsigned N>
static double quad(const symmetric_fixed<double, N>& m, const double* v) {
  double s = 0;
  for (unsigned i = 0; i < N * N; ++i) s += v[i % N] * m(i % N, i / N) * v[i / N];
  return s;
}

// B v_k = w_k A v_k (A = identity when null), unit vectors, ascending values, orthogonal for A = I.
template <unsigned N>
static void expect_pairs(const symmetric_fixed<double, N>* A, const symmetric_fixed<double, N>& B,
                         const vector_fixed<double, N>& w, const matrix_fixed<double, N, N>& v, double tol) {
  double scale = 0;
  for (unsigned i = 0; i < N; ++i) scale = std::max({scale, std::fabs(B(i, i)), A ? std::fabs(w[N - 1] * (*A)(i, i)) : 0.0});
  for (unsigned k = 0; k < N; ++k) {
    if (k) { EXPECT_LE(w[k - 1], w[k]); }
    for (unsigned p = 0; p < N; ++p) {
      double dot = 0, r = 0;
      for (unsigned i = 0; i < N; ++i) dot += v(i, k) * v(i, p);
      if (p == k || !A) { EXPECT_NEAR(dot, p == k ? 1.0 : 0.0, 1e-13); }
      for (unsigned j = 0; j < N; ++j) r += (B(p, j) - w[k] * (A ? (*A)(p, j) : double(p == j))) * v(j, k);
      EXPECT_NEAR(r, 0.0, tol * scale);
    }
  }
}

TEST(EigenPairs, ClosedForm2D) {
  vector_fixed<double, 2> w; matrix_fixed<double, 2, 2> v;
  ASSERT_TRUE(eigen_pairs(S2{{0.25, 0, 0.25}}, w, v));
  EXPECT_TRUE(w[0] == 0.25 && w[1] == 0.25 && v(0, 0) == 1 && v(1, 0) == 0 && v(0, 1) == 0 && v(1, 1) == 1);
  // (2, 1, 2): values 1 and 3; first vector built as (b, l1 - a), second its +90 degree turn
  ASSERT_TRUE(eigen_pairs(S2{{2, 1, 2}}, w, v));
  EXPECT_DOUBLE_EQ(w[0], 1.0); EXPECT_DOUBLE_EQ(w[1], 3.0);
  EXPECT_DOUBLE_EQ(v(0, 0), M_SQRT1_2); EXPECT_DOUBLE_EQ(v(1, 0), -M_SQRT1_2);
  EXPECT_DOUBLE_EQ(v(0, 1), M_SQRT1_2); EXPECT_DOUBLE_EQ(v(1, 1), M_SQRT1_2);
  // a value lost to cancellation is recovered from the determinant, on either side
  ASSERT_TRUE(eigen_pairs(S2{{1, 0, 1e-14}}, w, v)); EXPECT_NEAR(w[0], 1e-14, 1e-28);
  ASSERT_TRUE(eigen_pairs(S2{{-1, 0, 1e-14}}, w, v)); EXPECT_NEAR(w[1], 1e-14, 1e-28);
  EXPECT_FALSE(eigen_pairs(S2{{NaN, 0, 1}}, w, v) || eigen_pairs(S2{{1, inf, 1}}, w, v));
}

TEST(EigenPairs, RandomStandardAndGeneralized) {
  vector_fixed<double, 2> w2; matrix_fixed<double, 2, 2> v2;
  vector_fixed<double, 3> w3; matrix_fixed<double, 3, 3> v3;
  for (int t = 0; t < 300; ++t) {
    const S2 m2 = random_spd<2>(), a2 = random_spd<2>(-3, 1);
    const S3 m3 = random_spd<3>(), a3 = random_spd<3>(-3, 1);
    ASSERT_TRUE(eigen_pairs(m2, w2, v2)); expect_pairs<2>(nullptr, m2, w2, v2, 1e-12);
    ASSERT_TRUE(eigen_pairs(m3, w3, v3)); expect_pairs<3>(nullptr, m3, w3, v3, 1e-12);
    ASSERT_TRUE(eigen_pairs(a2, m2, w2, v2)); expect_pairs<2>(&a2, m2, w2, v2, 1e-9);
    ASSERT_TRUE(eigen_pairs(a3, m3, w3, v3)); expect_pairs<3>(&a3, m3, w3, v3, 1e-9);
  }
  // the last one is finite, but a value overflows
  for (const S3& m : {S3{{1, 0, 1, 0, NaN, 1}}, S3{{1, 0, inf, 0, 0, 1}}, S3{{1e308, 1e308, 1e308, 0, 0, 1}}})
    EXPECT_FALSE(eigen_pairs(m, w3, v3));
  // the generalized problem needs a positive definite A
  for (const S2& a : {S2{{1, 2, 1}}, S2{{0, 0, 0}}, S2{{-1, 0, 1}}, S2{{NaN, 0, 1}}})
    EXPECT_FALSE(eigen_pairs(a, S2{{1, 0, 1}}, w2, v2));
  for (const S3& a : {S3{{1, 0, 1, 0, 0, 0}}, S3{{1, 2, 1, 0, 0, 1}}, S3{{1, 0, 1, 0, 0, NaN}}})
    EXPECT_FALSE(eigen_pairs(a, S3{{1, 0, 1, 0, 0, 1}}, w3, v3));
}

TEST(MetricValidity, SignOfSmallestEigenvalue) {
  EXPECT_TRUE(is_valid_metric(S2{{1, 0, 1}}) && is_valid_metric(S3{{1, 0, 1, 0, 0, 1}}));
  for (const S2& m : {S2{{0, 0, 0}}, S2{{1, 2, 1}}, S2{{-1, 0, -1}}, S2{{NaN, 0, 1}}, S2{{inf, 0, 1}}})
    EXPECT_FALSE(is_valid_metric(m));
  for (const S3& m : {S3{{0, 0, 0, 0, 0, 0}}, S3{{1, 0, 1, 0, 0, -1}}, S3{{1, 0, 1, 0, 0, 0}}, S3{{1, 1, 1, 1, 1, 1}},
                      S3{{1, 0, 1, 0, 2, 1}}, S3{{1, 0, NaN, 0, 0, 1}}, S3{{1, 0, 1, -inf, 0, 1}}})
    EXPECT_FALSE(is_valid_metric(m));
  // Same answer as the decomposition, also for smallest eigenvalues barely off 0.
  const double small[] = {1e-3, 1e-9, 1e-12, 1e-14, 1e-16, 0.0, -1e-16, -1e-14, -1e-10, -1e-2};
  vector_fixed<double, 3> w; matrix_fixed<double, 3, 3> v;
  for (int t = 0; t < 400; ++t) {
    const double l[3] = {small[t % 10], 0.5 + t % 3, 1e4 * (1 + t % 7)};
    const S3 m = spd<3>(l);
    ASSERT_TRUE(eigen_pairs(m, w, v));
    EXPECT_EQ(is_valid_metric(m), w[0] > 0) << t;
  }
}

TEST(BoundMetric, ChecksAndSpecialCases) {
  S3 m{{NaN, 0, 1, 0, 0, 1}};
  // "no bound" is decided before the bounds are checked
  EXPECT_EQ((std::vector<int>{bound_metric(m, 0.0, DBL_MAX), bound_metric(m, -inf, DBL_MAX), bound_metric(m, NaN, inf), bound_metric(m, 1.0, inf)}),
            (std::vector<int>{0, 0, -2, -3}));
  EXPECT_TRUE(std::isnan(m[0]));
  EXPECT_EQ(bound_metric(m, 0.5, 2.0), 1);  // not decomposable: 1/hmin^2 I
  EXPECT_EQ(std::vector<double>(m.data, m.data + 6), (std::vector<double>{4, 0, 4, 0, 0, 4}));
  const double h = 0.3, l = 1 / (h * h);
  S2 m2{{5, 1, 2}};
  EXPECT_EQ(bound_metric(m2, h, h), 1);
  EXPECT_NEAR(m2[0], l, 1e-13 * l); EXPECT_NEAR(m2[1], 0, 1e-13 * l); EXPECT_NEAR(m2[2], l, 1e-13 * l);
  metric_iso_to_aniso(h, m);
  const S3 before = m;
  EXPECT_TRUE(bound_metric(m, h, h) == 0 && std::memcmp(&before, &m, sizeof m) == 0);
  S2 swapped{{1, 0, 100}};  // hmin > hmax: the lower limit is applied last and wins
  EXPECT_EQ(bound_metric(swapped, 1.0, 0.5), 1);
  EXPECT_DOUBLE_EQ(swapped[0], 4.0); EXPECT_DOUBLE_EQ(swapped[2], 4.0);
}

TEST(BoundMetric, SameAsClampingTheDecomposition) {
  const double hmin = 0.1, hmax = 2.0, lo = 1 / (hmax * hmax), hi = 1 / (hmin * hmin);
  const double near[] = {lo, lo * (1 - 1e-15), lo * (1 + 1e-14), hi, hi * (1 + 1e-15), hi * (1 - 1e-14), 1.0, 0.01};
  vector_fixed<double, 3> w; matrix_fixed<double, 3, 3> v;
  for (int t = 0; t < 400; ++t) {
    const double ev[3] = {near[t % 8], near[(t / 8) % 8], 3.0};
    S3 m = spd<3>(ev), ref = m;
    ASSERT_TRUE(eigen_pairs(ref, w, v));
    bool changed = false;
    for (unsigned k = 0; k < 3; ++k) {
      const double c = std::max(std::min(w[k], hi), lo);
      changed |= c != w[k], w[k] = c;
    }
    for (unsigned j = 0; j < 3 && changed; ++j)
      for (unsigned i = 0; i <= j; ++i) ref(i, j) = w[0] * v(i, 0) * v(j, 0) + w[1] * v(i, 1) * v(j, 1) + w[2] * v(i, 2) * v(j, 2);
    ASSERT_EQ(bound_metric(m, hmin, hmax), changed ? 1 : 0) << t;
    for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(m[k], ref[k], 1e-14 * hi);
  }
}

TEST(MinMaxMetric, IntersectionAndUnion) {
  S2 m2;
  S3 m3, a{{4, 0, 4, 0, 0, 4}};
  // an M1 that is not positive definite: false, and M1 is written
  const S2 bad{{1, 2, 1}};
  EXPECT_TRUE(!minimum_metric(bad, S2{{1, 0, 1}}, m2) && std::memcmp(&bad, &m2, sizeof m2) == 0);
  EXPECT_FALSE(maximum_metric(S3{{0, 0, 0, 0, 0, 0}}, a, m3));
  for (double x : m3.data) EXPECT_EQ(x, 0.0);

  std::normal_distribution<double> nd;
  for (int t = 0; t < 200; ++t) {
    const S3 A = random_spd<3>(-3, 1), B = random_spd<3>(-3, 1);
    const S2 A2 = random_spd<2>(-3, 1), B2 = random_spd<2>(-3, 1);
    S3 mn, mx = B;
    S2 mn2, mx2;
    ASSERT_TRUE(minimum_metric(A, B, mn) && minimum_metric(A2, B2, mn2) && maximum_metric(A2, B2, mx2));
    ASSERT_TRUE(maximum_metric(A, mx, mx));  // the output may be an input
    for (int r = 0; r < 20; ++r) {
      const double d[3] = {nd(rng), nd(rng), nd(rng)};
      const double qa = quad<3>(A, d), qb = quad<3>(B, d), qa2 = quad<2>(A2, d), qb2 = quad<2>(B2, d);
      EXPECT_GE(quad<3>(mn, d), std::max(qa, qb) * (1 - 1e-9));
      EXPECT_LE(quad<3>(mx, d), std::min(qa, qb) + 1e-9 * std::max(qa, qb));
      EXPECT_GE(quad<2>(mn2, d), std::max(qa2, qb2) * (1 - 1e-9));
      EXPECT_LE(quad<2>(mx2, d), std::min(qa2, qb2) + 1e-9 * std::max(qa2, qb2));
    }
  }
}
