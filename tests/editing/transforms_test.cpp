#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

dense2D<double> coords(unsigned rows, std::initializer_list<double> v) {
  dense2D<double> m(rows, unsigned(v.size()) / rows);
  unsigned k = 0;
  for (double x : v) m.storage->data[k++] = x;
  return m;
}

dense1D<unsigned, 16> ids(std::initializer_list<unsigned> v) {
  dense1D<unsigned, 16> r(unsigned(v.size()));
  unsigned k = 0;
  for (unsigned x : v) r[k++] = x;
  return r;
}

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Rotation of x about c by the vector v, written out independently in the documented order.
void rotate_ref(const double v[3], const double c[3], double p[3]) {
  const double t2 = v[0] * v[0] + v[1] * v[1] + v[2] * v[2], t = std::sqrt(t2);
  double a, b;
  if (t > 0.1) {
    a = std::sin(t) / t;
    b = (1.0 - std::cos(t)) / t2;
  } else {
    a = ((((2.7557319223985893e-6 - 2.505210838544172e-8 * t2) * t2 - 0.0001984126984126984) * t2 +
          0.008333333333333333) * t2 - 0.16666666666666666) * t2 + 1.0;
    b = (((2.755731922398589e-7 * t2 - 2.48015873015873e-5) * t2 + 0.001388888888888889) * t2 -
         0.041666666666666664) * t2 + 0.5;
  }
  const double K[9] = {0.0, -v[2], v[1], v[2], 0.0, -v[0], -v[1], v[0], 0.0};  // row-major
  double R[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double s = 0.0;
      for (int k = 0; k < 3; ++k) s = s + K[3 * i + k] * K[3 * k + j];
      R[3 * i + j] = ((i == j) + a * K[3 * i + j]) + b * s;
    }
  const double x[3] = {p[0] - c[0], p[1] - c[1], p[2] - c[2]};
  for (int i = 0; i < 3; ++i) p[i] = c[i] + (((0.0 + R[3 * i] * x[0]) + R[3 * i + 1] * x[1]) + R[3 * i + 2] * x[2]);
}

}  // namespace

TEST(Translate, AllNodesIdentityNaNAndPromotion) {
  dense2D<double> p = coords(2, {1, 2, 3, 4});
  EXPECT_EQ(translate(p, V2{{0.0, -0.0}}), 0);
  EXPECT_EQ(translate(p, V3{{0.0, 0.0, 0.0}}), 0);
  EXPECT_EQ(p.rows, 2u);  // identity: no promotion
  EXPECT_EQ(translate(p, V2{{0.5, -1.0}}), 2);
  EXPECT_EQ(p, coords(2, {1.5, 1, 3.5, 3}));
  EXPECT_EQ(translate(p, V3{{0.0, 0.0, 2.0}}), 2);
  EXPECT_EQ(p, coords(3, {1.5, 1, 2, 3.5, 3, 2}));
  EXPECT_EQ(translate(p, V2{{NaN, 0.0}}), 2);
  EXPECT_TRUE(std::isnan(p(0, 0)) && std::isnan(p(0, 1)));
  EXPECT_EQ(p(1, 1), 3.0);
  dense2D<double> e(3, 0);
  EXPECT_EQ(translate(e, V3{{1.0, 1.0, 1.0}}), 0);
  dense2D<double> one_row = coords(1, {5, 6});
  EXPECT_EQ(translate(one_row, V2{{1.0, 1.0}}), 2);
  EXPECT_EQ(one_row, coords(2, {6, 1, 7, 1}));
}

TEST(Translate, ExtraRowsAndStridedViewUntouched) {
  dense2D<double> p = coords(4, {1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_EQ(translate(p, V3{{1.0, 1.0, 1.0}}), 2);
  EXPECT_EQ(p, coords(4, {2, 3, 4, 4, 6, 7, 8, 8}));
  dense2D<double> big = coords(3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  dense2D<double> view = big.sub_matrix(0, 1, 2, 2);  // rows 0-1 of columns 1-2
  EXPECT_EQ(translate(view, V2{{10.0, 20.0}}), 2);
  EXPECT_EQ(big, coords(3, {1, 2, 3, 14, 25, 6, 17, 28, 9}));
}

TEST(Translate, ListAndConnectivityForms) {
  dense2D<double> p = coords(2, {0, 0, 1, 0, 2, 0});
  EXPECT_EQ(translate(p, V2{{1.0, 0.0}}, ids({0, 0, 7})), 2);
  EXPECT_EQ(p, coords(2, {2, 0, 1, 0, 2, 0}));
  EXPECT_EQ(translate(p, V3{{1.0, 1.0, 1.0}}, dense1D<unsigned, 16>()), 0);
  EXPECT_EQ(p.rows, 2u);  // empty list: no promotion
  EXPECT_EQ(translate(p, V2{{1.0, 0.0}}, ids({NULL_INDEX, 9})), 0);
  // Connectivity: node 1 is shared and moved once; nulls are not nodes.
  dense2D<unsigned> tri(3, 2);
  unsigned t[6] = {0, 1, 2, 1, 2, NULL_INDEX};
  std::copy(t, t + 6, tri.storage->data);
  EXPECT_EQ(translate(p, V3{{0.0, 1.0, 3.0}}, tri), 3);
  EXPECT_EQ(p, coords(3, {2, 1, 3, 1, 1, 3, 2, 1, 3}));
}

TEST(Zoom, FormulaReturnsAndPromotion) {
  dense2D<double> p = coords(2, {1, 2, 3, 5});
  EXPECT_EQ(zoom(p, V2{{0.0, 0.0}}, 1.0), 0);
  EXPECT_EQ(p.rows, 2u);
  EXPECT_EQ(zoom(p, V3{{1.0, 1.0, 1.0}}, 2.0), 2);
  EXPECT_EQ(p, coords(3, {1, 3, -1, 5, 9, -1}));
  // (p - c)(f - 1) + p, not c + f(p - c): pick values where the two round differently.
  const double x = 0.1, c = 0.7, f = 1.7;
  ASSERT_FALSE(same_bits((x - c) * (f - 1) + x, c + f * (x - c)));
  dense2D<double> q = coords(3, {x, x, x});
  EXPECT_EQ(zoom(q, V3{{c, c, c}}, f), 1);
  EXPECT_TRUE(same_bits(q(2, 0), (x - c) * (f - 1) + x));
  dense2D<double> r = coords(2, {x, x, 1, 1});
  EXPECT_EQ(zoom(r, V2{{c, c}}, f, ids({0, 0, 5, NULL_INDEX})), 0);  // list form reports 0
  const double once = (x - c) * (f - 1) + x;
  EXPECT_TRUE(same_bits(r(0, 0), (once - c) * (f - 1) + once));
  EXPECT_EQ(r(0, 1), 1.0);
  EXPECT_EQ(zoom(r, V2{{0.0, 0.0}}, NaN), 2);
  EXPECT_TRUE(std::isnan(r(1, 1)));
}

TEST(Rotate, TwoDimensional) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = coords(2, {1, 0, 2, 1});
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, 0.0), 0);
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, pi / 2, ids({0})), 1);
  EXPECT_NEAR(p(0, 0), 0.0, 1e-15);
  EXPECT_EQ(p(1, 0), 1.0);
  EXPECT_EQ(p(0, 1), 2.0);
  // About (1, 1): (2, 1) goes to (1, 2); bits follow c + ((0 + R00 x) + R01 y).
  dense2D<double> q = coords(3, {2, 1, 9});
  const double a = 0.3, ca = std::cos(a), sa = std::sin(a);
  EXPECT_EQ(rotate(q, V2{{1.0, 1.0}}, a), 1);
  EXPECT_TRUE(same_bits(q(0, 0), 1.0 + ((0.0 + ca * 1.0) + -sa * 0.0)));
  EXPECT_TRUE(same_bits(q(1, 0), 1.0 + ((0.0 + sa * 1.0) + ca * 0.0)));
  EXPECT_EQ(q(2, 0), 9.0);
  EXPECT_EQ(rotate(q, V2{{0.0, 0.0}}, NaN), 1);
  EXPECT_TRUE(std::isnan(q(0, 0)) && q(2, 0) == 9.0);
}

TEST(Rotate, ThreeDimensionalMatchesFormulaBitForBit) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = coords(2, {1, 0});
  EXPECT_EQ(rotate(p, V3{{0, 0, 0}}, V3{{0.0, 0.0, pi / 2}}), 1);
  ASSERT_EQ(p.rows, 3u);
  EXPECT_NEAR(p(0, 0), 0.0, 1e-15);
  EXPECT_NEAR(p(1, 0), 1.0, 1e-15);
  EXPECT_EQ(p(2, 0), 0.0);

  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  // Long vectors use sin/cos; lengths 0.05 and exactly 0.1 use the series.
  for (double len : {1.3, 0.05, 0.1, 1e-9}) {
    for (int trial = 0; trial < 20; ++trial) {
      double v[3] = {u(rng), u(rng), u(rng)}, c[3] = {u(rng), u(rng), u(rng)};
      const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
      for (double& x : v) x *= len / n;
      if (len == 0.1) v[1] = v[2] = 0.0, v[0] = 0.1;
      double x[3] = {u(rng), u(rng), u(rng)};
      dense2D<double> q = coords(3, {x[0], x[1], x[2]});
      ASSERT_EQ(rotate(q, V3{{c[0], c[1], c[2]}}, V3{{v[0], v[1], v[2]}}, ids({0})), 1);
      rotate_ref(v, c, x);
      for (unsigned k = 0; k < 3; ++k) EXPECT_TRUE(same_bits(q(k, 0), x[k])) << len << " " << k;
    }
  }
  // A rotation keeps distances to the centre and leaves the axis through it fixed.
  dense2D<double> r = coords(3, {2, 3, 4, 1, 1, 1});
  EXPECT_EQ(rotate(r, V3{{1, 1, 1}}, V3{{0.4, -0.2, 0.9}}), 2);
  EXPECT_NEAR(std::hypot(r(0, 0) - 1, r(1, 0) - 1, r(2, 0) - 1), std::sqrt(14.0), 1e-13);
  EXPECT_EQ(r(0, 1), 1.0);
}

TEST(Rotate, ConnectivityMovesEachNodeOnce) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = coords(2, {1, 0, 0, 1, 5, 5});
  dense2D<unsigned> e(2, 3);
  unsigned t[6] = {0, 1, 1, 0, 0, 1};
  std::copy(t, t + 6, e.storage->data);
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, pi, e), 2);
  EXPECT_NEAR(p(0, 0), -1.0, 1e-15);
  EXPECT_NEAR(p(1, 1), -1.0, 1e-15);
  EXPECT_EQ(p(0, 2), 5.0);
}

TEST(BoundingBox, ChecksAndWidening) {
  dense2D<double> p = coords(3, {1, 5, 0, -2, 3, NaN, 4, 4, 4});
  V2 lo2{{0.5, 0.5}}, hi2{{0.5, 0.5}};
  EXPECT_EQ(inc_bounding_box(p, lo2, hi2), -1);
  EXPECT_EQ(lo2[0], 0.5);
  V3 lo{{0.0, 0.0, 10.0}}, hi{{0.0, 0.0, -10.0}};  // a prior box is widened, never reset
  EXPECT_EQ(inc_bounding_box(p, ids({1}), lo, hi), 0);
  EXPECT_EQ(lo[0], -2.0);
  EXPECT_EQ(hi[1], 3.0);
  EXPECT_EQ(lo[2], 10.0);  // NaN never changes the box
  EXPECT_EQ(inc_bounding_box(p, ids({1, 7}), lo, hi), -2);
  EXPECT_EQ(inc_bounding_box(p, ids({NULL_INDEX, 2}), lo, hi), 0);
  EXPECT_EQ(hi[2], 4.0);
  EXPECT_EQ(inc_bounding_box(p, lo, hi), 0);
  EXPECT_EQ(lo[2], 0.0);
  EXPECT_EQ(hi[1], 5.0);
  EXPECT_EQ(inc_bounding_box(coords(2, {1, 2}), dense1D<unsigned, 16>(), lo, hi), 0);  // empty list first
  EXPECT_EQ(inc_bounding_box(coords(2, {1, 2}), ids({0}), lo, hi), -1);
  dense2D<unsigned> c(2, 1);
  c(0, 0) = 0;
  c(1, 0) = 3;
  EXPECT_EQ(inc_bounding_box(p, c, lo, hi), -2);
  c(1, 0) = 2;
  V3 l3{{1e9, 1e9, 1e9}}, h3{{-1e9, -1e9, -1e9}};
  EXPECT_EQ(inc_bounding_box(p, c, l3, h3), 0);
  EXPECT_EQ(l3[0], 1.0);
  EXPECT_EQ(h3[0], 4.0);
  EXPECT_EQ(h3[1], 5.0);
}
