#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstring>
#include <cmath>
#include <limits>
#include <random>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;
using S2 = symmetric_fixed<double, 2>;
using S3 = symmetric_fixed<double, 3>;
using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;
using M22 = matrix_fixed<double, 2, 2>;
using M33 = matrix_fixed<double, 3, 3>;
static const double NaN = std::numeric_limits<double>::quiet_NaN();
static const double inf = std::numeric_limits<double>::infinity();

// Random rotation R (columns orthonormal) and packed R diag(l) R^T.
template <unsigned N>
static symmetric_fixed<double, N> spd(std::mt19937& g, const double* l) {
  std::normal_distribution<double> nd;
  double r[N][N];  // Gram-Schmidt on random columns r[k]
  for (unsigned k = 0; k < N; ++k) {
    for (unsigned i = 0; i < N; ++i) r[k][i] = nd(g);
    for (unsigned p = 0; p < k; ++p) {
      double d = 0;
      for (unsigned i = 0; i < N; ++i) d += r[k][i] * r[p][i];
      for (unsigned i = 0; i < N; ++i) r[k][i] -= d * r[p][i];
    }
    double n = 0;
    for (unsigned i = 0; i < N; ++i) n += r[k][i] * r[k][i];
    for (unsigned i = 0; i < N; ++i) r[k][i] /= std::sqrt(n);
  }
  symmetric_fixed<double, N> m;
  for (unsigned j = 0; j < N; ++j)
    for (unsigned i = 0; i <= j; ++i) {
      double s = 0;
      for (unsigned k = 0; k < N; ++k) s += l[k] * r[k][i] * r[k][j];
      m(i, j) = s;
    }
  return m;
}
template <unsigned N>
static double quad(const symmetric_fixed<double, N>& m, const double* v) {
  double s = 0;
  for (unsigned i = 0; i < N; ++i)
    for (unsigned j = 0; j < N; ++j) s += v[i] * m(i, j) * v[j];
  return s;
}

// Values ascending, vectors orthonormal, V diag(l) V^T == M.
template <unsigned N, class V, class M>
static void expect_decomposition(const symmetric_fixed<double, N>& m, const V& w, const M& v) {
  double norm = 0;
  for (double x : m.data) norm = std::max(norm, std::fabs(x));
  for (unsigned k = 1; k < N; ++k) EXPECT_LE(w[k - 1], w[k]);
  for (unsigned a = 0; a < N; ++a)
    for (unsigned b = 0; b < N; ++b) {
      double dot = 0, rec = 0;
      for (unsigned i = 0; i < N; ++i) dot += v(i, a) * v(i, b);
      for (unsigned k = 0; k < N; ++k) rec += w[k] * v(a, k) * v(b, k);
      EXPECT_NEAR(dot, a == b ? 1.0 : 0.0, 1e-13);
      EXPECT_NEAR(rec, m(a, b), 1e-12 * norm);
    }
}

TEST(EigenPairs, ClosedForm2D) {
  S2 iso{{0.25, 0, 0.25}};
  V2 w;
  M22 v;
  ASSERT_TRUE(eigen_pairs(iso, w, v));
  EXPECT_EQ(w[0], 0.25);
  EXPECT_EQ(w[1], 0.25);
  EXPECT_EQ(v(0, 0), 1.0); EXPECT_EQ(v(1, 0), 0.0); EXPECT_EQ(v(0, 1), -0.0); EXPECT_EQ(v(1, 1), 1.0);
  // (2, 1, 2): values 1 and 3; first vector built as (b, l1 - a), second its +90 degree turn
  ASSERT_TRUE(eigen_pairs(S2{{2, 1, 2}}, w, v));
  EXPECT_DOUBLE_EQ(w[0], 1.0); EXPECT_DOUBLE_EQ(w[1], 3.0);
  EXPECT_DOUBLE_EQ(v(0, 0), M_SQRT1_2); EXPECT_DOUBLE_EQ(v(1, 0), -M_SQRT1_2);
  EXPECT_DOUBLE_EQ(v(0, 1), M_SQRT1_2); EXPECT_DOUBLE_EQ(v(1, 1), M_SQRT1_2);
  // a value lost to cancellation is recovered from the determinant, on either side
  ASSERT_TRUE(eigen_pairs(S2{{1, 0, 1e-14}}, w, v));
  EXPECT_NEAR(w[0], 1e-14, 1e-28);
  ASSERT_TRUE(eigen_pairs(S2{{-1, 0, 1e-14}}, w, v));
  EXPECT_NEAR(w[1], 1e-14, 1e-28);
  const S2 rot{{0.5 + 0.5e-14, 0.5 - 0.5e-14, 0.5 + 0.5e-14}};  // values 1e-14 and 1, rotated 45 degrees
  ASSERT_TRUE(eigen_pairs(rot, w, v));
  const long double det = (long double)rot[0] * rot[2] - (long double)rot[1] * rot[1];
  EXPECT_NEAR(w[0], double(det / ((long double)rot[0] + rot[2])), 1e-6 * w[0]);
  for (const S2& bad : {S2{{NaN, 0, 1}}, S2{{1, inf, 1}}}) EXPECT_FALSE(eigen_pairs(bad, w, v));
}

TEST(EigenPairs, RandomTensorsReconstruct) {
  std::mt19937 g(7);
  std::uniform_real_distribution<double> u(-6, 2);
  for (int t = 0; t < 300; ++t) {
    double l[3] = {std::pow(10.0, u(g)), std::pow(10.0, u(g)), std::pow(10.0, u(g))};
    const S2 m2 = spd<2>(g, l);
    V2 w2;
    M22 v2;
    ASSERT_TRUE(eigen_pairs(m2, w2, v2));
    expect_decomposition<2>(m2, w2, v2);
    const S3 m3 = spd<3>(g, l);
    V3 w3;
    M33 v3;
    ASSERT_TRUE(eigen_pairs(m3, w3, v3));
    expect_decomposition<3>(m3, w3, v3);
  }
  V3 w;
  M33 v;
  EXPECT_FALSE(eigen_pairs(S3{{1, 0, 1, 0, NaN, 1}}, w, v));
  EXPECT_FALSE(eigen_pairs(S3{{1, 0, inf, 0, 0, 1}}, w, v));
}

TEST(EigenPairs, Generalized) {
  std::mt19937 g(11);
  std::uniform_real_distribution<double> u(-3, 1);
  for (int t = 0; t < 200; ++t) {
    double la[3] = {std::pow(10.0, u(g)), std::pow(10.0, u(g)), std::pow(10.0, u(g))};
    double lb[3] = {std::pow(10.0, u(g)), std::pow(10.0, u(g)), -std::pow(10.0, u(g))};
    const S2 a2 = spd<2>(g, la), b2 = spd<2>(g, lb);
    const S3 a3 = spd<3>(g, la), b3 = spd<3>(g, lb);
    V2 w2;
    M22 v2;
    V3 w3;
    M33 v3;
    ASSERT_TRUE(eigen_pairs(a2, b2, w2, v2));
    ASSERT_TRUE(eigen_pairs(a3, b3, w3, v3));
    // B v = lambda A v, unit vectors, ascending values
    const auto check = [](const auto& a, const auto& b, const auto& w, const auto& v, unsigned n) {
      for (unsigned k = 0; k < n; ++k) {
        double len = 0, scale = 0;
        for (unsigned i = 0; i < n; ++i) len += v(i, k) * v(i, k);
        EXPECT_NEAR(len, 1.0, 1e-12);
        if (k) {
          EXPECT_LE(w[k - 1], w[k]);
        }
        for (unsigned i = 0; i < n; ++i) scale = std::max({scale, std::fabs(a(i, i) * w[k]), std::fabs(b(i, i))});
        for (unsigned i = 0; i < n; ++i) {
          double r = 0;
          for (unsigned j = 0; j < n; ++j) r += (b(i, j) - w[k] * a(i, j)) * v(j, k);
          EXPECT_NEAR(r, 0.0, 1e-9 * scale);
        }
      }
    };
    check(a2, b2, w2, v2, 2);
    check(a3, b3, w3, v3, 3);
  }
  V2 w2;
  M22 v2;
  V3 w3;
  M33 v3;
  for (const S2& a : {S2{{1, 2, 1}}, S2{{0, 0, 0}}, S2{{-1, 0, 1}}, S2{{NaN, 0, 1}}})
    EXPECT_FALSE(eigen_pairs(a, S2{{1, 0, 1}}, w2, v2));
  for (const S3& a : {S3{{1, 0, 1, 0, 0, 0}}, S3{{1, 2, 1, 0, 0, 1}}, S3{{1, 0, 1, 0, 0, NaN}}})
    EXPECT_FALSE(eigen_pairs(a, S3{{1, 0, 1, 0, 0, 1}}, w3, v3));
}

TEST(MetricValidity, SignOfSmallestEigenvalue) {
  EXPECT_TRUE(is_valid_metric(S2{{1, 0, 1}}));
  for (const S2& m : {S2{{0, 0, 0}}, S2{{1, 2, 1}}, S2{{-1, 0, -1}}, S2{{NaN, 0, 1}}, S2{{inf, 0, 1}}})
    EXPECT_FALSE(is_valid_metric(m));
  EXPECT_TRUE(is_valid_metric(S3{{1, 0, 1, 0, 0, 1}}));
  for (const S3& m : {S3{{0, 0, 0, 0, 0, 0}}, S3{{1, 0, 1, 0, 0, -1}}, S3{{1, 0, 1, 0, 0, 0}}, S3{{1, 1, 1, 1, 1, 1}},
                      S3{{1, 0, 1, 0, 2, 1}}, S3{{1, 0, NaN, 0, 0, 1}}, S3{{1, 0, 1, -inf, 0, 1}}})
    EXPECT_FALSE(is_valid_metric(m));
  // Agreement with the decomposition itself, also for smallest eigenvalues barely off 0.
  std::mt19937 g(3);
  const double small[] = {1e-3, 1e-9, 1e-12, 1e-14, 1e-16, 0.0, -1e-16, -1e-14, -1e-10, -1e-2};
  for (int t = 0; t < 400; ++t) {
    double l[3] = {small[t % 10], 0.5 + t % 3, 1e4 * (1 + t % 7)};
    const S3 m = spd<3>(g, l);
    V3 w;
    M33 v;
    ASSERT_TRUE(eigen_pairs(m, w, v));
    EXPECT_EQ(is_valid_metric(m), w[0] > 0) << t;
  }
}

TEST(MetricConversion, IsotropicAndProjected) {
  S2 m2;
  S3 m3;
  metric_iso_to_aniso(2.0, m2);
  EXPECT_EQ(m2[0], 0.25); EXPECT_EQ(m2[1], 0.0); EXPECT_EQ(m2[2], 0.25);
  metric_iso_to_aniso(0.5, m3);
  for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(m3[k], (k == 0 || k == 2 || k == 5) ? 4.0 : 0.0);
  metric_iso_to_aniso(-1.0, m3);
  for (double x : m3.data) EXPECT_EQ(x, 0.0);
  const matrix_fixed<double, 3, 2> T{{1, 2, 2, 0, 3, 4}};
  metric_iso_to_aniso2d(2.0, T, m2);
  EXPECT_EQ(m2[0], 9 * 0.25); EXPECT_EQ(m2[1], 14 * 0.25); EXPECT_EQ(m2[2], 25 * 0.25);
  for (double h : {0.0, NaN}) {
    metric_iso_to_aniso2d(h, T, m2);
    for (double x : m2.data) EXPECT_EQ(x, 0.0);
  }
  const S3 a{{2, 1, 3, -1, 0.5, 4}};
  m2 = NaN;  // every entry is written
  metric_aniso3d_to_aniso2d(a, T, m2);
  const double t0[3] = {1, 2, 2}, t1[3] = {0, 3, 4}, t01[3] = {1, 5, 6};  // t01 = t0 + t1
  EXPECT_DOUBLE_EQ(m2[0], quad<3>(a, t0));
  EXPECT_DOUBLE_EQ(m2[2], quad<3>(a, t1));
  EXPECT_DOUBLE_EQ(m2[1], (quad<3>(a, t01) - m2[0] - m2[2]) / 2);
}

TEST(BoundMetric, ChecksInOrder) {
  S3 m{{NaN, 0, 1, 0, 0, 1}};
  EXPECT_EQ(bound_metric(m, 0.0, DBL_MAX), 0);
  EXPECT_EQ(bound_metric(m, -inf, DBL_MAX), 0);  // no bound is requested before anything is checked
  EXPECT_TRUE(std::isnan(m[0]));
  EXPECT_EQ(bound_metric(m, NaN, inf), -2);
  EXPECT_EQ(bound_metric(m, 1.0, inf), -3);
  S2 m2{{NaN, 0, 1}};
  EXPECT_EQ(bound_metric(m2, inf, 1.0), -2);
  EXPECT_TRUE(std::isnan(m2[0]));
  EXPECT_EQ(bound_metric(m2, 0.5, 2.0), 1);  // not decomposable: 1/hmin^2 I
  EXPECT_EQ(m2[0], 4.0); EXPECT_EQ(m2[1], 0.0); EXPECT_EQ(m2[2], 4.0);
  EXPECT_EQ(bound_metric(m, 0.5, 2.0), 1);
  for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(m[k], (k == 0 || k == 2 || k == 5) ? 4.0 : 0.0);
}

TEST(BoundMetric, ClipsEigenvalues) {
  const double h = 0.3;
  S2 m2{{5, 1, 2}};
  S3 m3{{5, 1, 2, 0.5, -1, 7}};
  EXPECT_EQ(bound_metric(m2, h, h), 1);
  EXPECT_EQ(bound_metric(m3, h, h), 1);
  const double l = 1 / (h * h);
  EXPECT_NEAR(m2[0], l, 1e-13 * l); EXPECT_NEAR(m2[1], 0, 1e-13 * l); EXPECT_NEAR(m2[2], l, 1e-13 * l);
  metric_iso_to_aniso(h, m2);
  metric_iso_to_aniso(h, m3);
  const S3 before = m3;
  EXPECT_EQ(bound_metric(m2, h, h), 0);
  EXPECT_EQ(bound_metric(m3, h, h), 0);
  EXPECT_EQ(std::memcmp(&before, &m3, sizeof m3), 0);
  S2 swapped{{1, 0, 100}};  // hmin > hmax: the lower limit wins
  EXPECT_EQ(bound_metric(swapped, 1.0, 0.5), 1);
  EXPECT_DOUBLE_EQ(swapped[0], 4.0); EXPECT_DOUBLE_EQ(swapped[2], 4.0);

  // Against a plain decomposition, with eigenvalues on and just around the limits.
  std::mt19937 g(5);
  const double hmin = 0.1, hmax = 2.0, lo = 1 / (hmax * hmax), hi = 1 / (hmin * hmin);
  const double near[] = {lo, lo * (1 - 1e-15), lo * (1 + 1e-14), hi, hi * (1 + 1e-15), hi * (1 - 1e-14), 1.0, 0.01};
  for (int t = 0; t < 400; ++t) {
    double ev[3] = {near[t % 8], near[(t / 8) % 8], 3.0};
    S3 m = spd<3>(g, ev), ref = m;
    V3 w;
    M33 v;
    ASSERT_TRUE(eigen_pairs(ref, w, v));
    bool changed = false;
    for (unsigned k = 0; k < 3; ++k) {
      const double c = std::max(std::min(w[k], hi), lo);
      changed |= c != w[k];
      w[k] = c;
    }
    if (changed)
      for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i <= j; ++i) ref(i, j) = w[0] * v(i, 0) * v(j, 0) + w[1] * v(i, 1) * v(j, 1) + w[2] * v(i, 2) * v(j, 2);
    ASSERT_EQ(bound_metric(m, hmin, hmax), changed ? 1 : 0) << t;
    for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(m[k], ref[k], 1e-14 * hi);
  }
}

TEST(MinMaxMetric, IntersectionAndUnion) {
  S2 m2;
  S3 m3;
  S3 a, b;
  metric_iso_to_aniso(0.5, a);
  metric_iso_to_aniso(2.0, b);
  ASSERT_TRUE(minimum_metric(a, b, m3));
  for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(m3[k], a[k], 1e-14);
  ASSERT_TRUE(maximum_metric(a, b, m3));
  for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(m3[k], b[k], 1e-14);
  // an M1 that is not positive definite: false, and M1 is written
  const S2 bad{{1, 2, 1}};
  EXPECT_FALSE(minimum_metric(bad, S2{{1, 0, 1}}, m2));
  EXPECT_EQ(std::memcmp(&bad, &m2, sizeof m2), 0);
  EXPECT_FALSE(maximum_metric(S3{{0, 0, 0, 0, 0, 0}}, a, m3));
  for (double x : m3.data) EXPECT_EQ(x, 0.0);

  std::mt19937 g(9);
  std::uniform_real_distribution<double> u(-3, 1);
  std::normal_distribution<double> nd;
  for (int t = 0; t < 200; ++t) {
    double la[3] = {std::pow(10.0, u(g)), std::pow(10.0, u(g)), std::pow(10.0, u(g))};
    double lb[3] = {std::pow(10.0, u(g)), std::pow(10.0, u(g)), std::pow(10.0, u(g))};
    const S3 A = spd<3>(g, la), B = spd<3>(g, lb);
    const S2 A2 = spd<2>(g, la), B2 = spd<2>(g, lb);
    S3 mn, mx = B;
    S2 mn2, mx2;
    ASSERT_TRUE(minimum_metric(A, B, mn));
    ASSERT_TRUE(maximum_metric(A, mx, mx));  // output may be an input
    ASSERT_TRUE(minimum_metric(A2, B2, mn2));
    ASSERT_TRUE(maximum_metric(A2, B2, mx2));
    for (int r = 0; r < 20; ++r) {
      const double d[3] = {nd(g), nd(g), nd(g)};
      const double qa = quad<3>(A, d), qb = quad<3>(B, d), eps = 1e-9 * std::max(qa, qb);
      EXPECT_GE(quad<3>(mn, d), std::max(qa, qb) - eps);
      EXPECT_LE(quad<3>(mx, d), std::min(qa, qb) + eps);
      const double qa2 = quad<2>(A2, d), qb2 = quad<2>(B2, d), eps2 = 1e-9 * std::max(qa2, qb2);
      EXPECT_GE(quad<2>(mn2, d), std::max(qa2, qb2) - eps2);
      EXPECT_LE(quad<2>(mx2, d), std::min(qa2, qb2) + eps2);
    }
  }
}
