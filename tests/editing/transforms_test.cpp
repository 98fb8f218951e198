#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "editing/edit_util.hpp"

using namespace edit_test;

namespace {

// Rotation of p about c by the vector v, written out independently in the documented order.
void rotate_ref(const double v[3], const double c[3], double p[3]) {
  const double s = v[0] * v[0] + v[1] * v[1] + v[2] * v[2], t = std::sqrt(s);
  double a = std::sin(t) / t, b = (1.0 - std::cos(t)) / s;
  if (!(t > 0.1)) {
    a = ((((2.7557319223985893e-6 - 2.505210838544172e-8 * s) * s - 0.0001984126984126984) * s +
          0.008333333333333333) * s - 0.16666666666666666) * s + 1.0;
    b = (((2.755731922398589e-7 * s - 2.48015873015873e-5) * s + 0.001388888888888889) * s -
         0.041666666666666664) * s + 0.5;
  }
  const double K[3][3] = {{0.0, -v[2], v[1]}, {v[2], 0.0, -v[0]}, {-v[1], v[0], 0.0}};
  const double x[3] = {p[0] - c[0], p[1] - c[1], p[2] - c[2]};
  for (int i = 0; i < 3; ++i) {
    double y = 0.0;
    for (int j = 0; j < 3; ++j) {
      const double k2 = ((0.0 + K[i][0] * K[0][j]) + K[i][1] * K[1][j]) + K[i][2] * K[2][j];
      y = y + (((i == j) + a * K[i][j]) + b * k2) * x[j];
    }
    p[i] = c[i] + y;
  }
}

}  // namespace

TEST(Translate, IdentityNaNPromotionRowsListsAndConnectivities) {
  dense2D<double> p = pts(2, {1, 2, 3, 4});
  EXPECT_EQ(translate(p, V2{{0.0, -0.0}}), 0);
  EXPECT_EQ(translate(p, V3{{0.0, 0.0, 0.0}}, ids({0})), 0);
  EXPECT_EQ(translate(p, V3{{1.0, 1.0, 1.0}}, dense1D<unsigned, 16>()), 0);
  EXPECT_EQ(p.rows, 2u);  // early exits come before promotion
  EXPECT_EQ(translate(p, V3{{0.5, -1.0, 2.0}}), 2);
  EXPECT_EQ(p, pts(3, {1.5, 1, 2, 3.5, 3, 2}));
  EXPECT_EQ(translate(p, V2{{NaN, 0.0}}), 2);  // NaN is applied, to the first 2 rows only
  EXPECT_TRUE(std::isnan(p(0, 1)) && p(1, 1) == 3.0 && p(2, 1) == 2.0);
  dense2D<double> big = pts(4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  dense2D<double> view = big.sub_matrix(0, 1, 2, 2);  // rows 0-1 of columns 1-2
  EXPECT_EQ(translate(view, V2{{10.0, 20.0}}), 2);
  EXPECT_EQ(translate(big, V3{{1.0, 1.0, 1.0}}, ids({2})), 1);
  EXPECT_EQ(big, pts(4, {1, 2, 3, 4, 15, 26, 7, 8, 20, 31, 12, 12}));
  p = pts(2, {0, 0, 1, 0, 2, 0});
  EXPECT_EQ(translate(p, V2{{1.0, 0.0}}, ids({0, 0, 7, N})), 2);  // duplicates again, 7 skipped
  EXPECT_EQ(p, pts(2, {2, 0, 1, 0, 2, 0}));
  // Node 1 is in both elements and moves once; nulls are no nodes.
  EXPECT_EQ(translate(p, V3{{0.0, 1.0, 3.0}}, con(3, {0, 1, 2, 1, 2, N})), 3);
  EXPECT_EQ(p, pts(3, {2, 1, 3, 1, 1, 3, 2, 1, 3}));
}

TEST(Zoom, FormulaReturnsAndPromotion) {
  dense2D<double> p = pts(2, {1, 2, 3, 5});
  EXPECT_EQ(zoom(p, V3{{0.0, 0.0, 0.0}}, 1.0), 0);
  EXPECT_EQ(p.rows, 2u);
  EXPECT_EQ(zoom(p, V3{{1.0, 1.0, 1.0}}, 2.0), 2);
  EXPECT_EQ(p, pts(3, {1, 3, -1, 5, 9, -1}));
  // (p - c)(f - 1) + p, not c + f(p - c): these values round differently in the two forms.
  const double x = 0.1, c = 0.7, f = 1.7, once = (x - c) * (f - 1) + x;
  ASSERT_FALSE(same_bits(once, c + f * (x - c)));
  dense2D<double> r = pts(2, {x, x, 1, 1});
  EXPECT_EQ(zoom(r, V2{{c, c}}, f, ids({0, 0, 5, N})), 0);  // the list form reports 0
  EXPECT_EQ(zoom(r, V2{{0.0, 0.0}}, f, con(1, {1, 1})), 0);   // node 1 moves once
  EXPECT_TRUE(same_bits(r(1, 0), (once - c) * (f - 1) + once) && same_bits(r(0, 1), (1 - 0.0) * (f - 1) + 1));
  EXPECT_EQ(zoom(r, V2{{0.0, 0.0}}, NaN), 2);
  EXPECT_TRUE(std::isnan(r(1, 1)));
}

TEST(Rotate, TwoDimensional) {
  const double pi = std::acos(-1.0), a = 0.3, ca = std::cos(a), sa = std::sin(a);
  dense2D<double> p = pts(3, {1, 0, 7, 2, 1, 9});
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, 0.0), 0);
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, pi / 2, ids({0, 5})), 1);
  EXPECT_NEAR(p(0, 0), 0.0, 1e-15);
  EXPECT_EQ(p(1, 0), 1.0);
  // About (1, 1), the product accumulated into 0.0, the centre added last.
  EXPECT_EQ(rotate(p, V2{{1.0, 1.0}}, a, con(2, {1, 1})), 1);
  EXPECT_TRUE(same_bits(p(0, 1), 1.0 + ((0.0 + ca * 1.0) + -sa * 0.0)));
  EXPECT_TRUE(same_bits(p(1, 1), 1.0 + ((0.0 + sa * 1.0) + ca * 0.0)));
  EXPECT_EQ(p(2, 1), 9.0);
  EXPECT_EQ(rotate(p, V2{{0.0, 0.0}}, NaN), 2);
  EXPECT_TRUE(std::isnan(p(0, 0)) && p(2, 0) == 7.0);
}

TEST(Rotate, ThreeDimensionalMatchesFormulaBitForBit) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = pts(2, {1, 0});
  EXPECT_EQ(rotate(p, V3{{0, 0, 0}}, V3{{0.0, 0.0, pi / 2}}), 1);
  ASSERT_EQ(p.rows, 3u);
  EXPECT_NEAR(p(0, 0), 0.0, 1e-15);
  EXPECT_NEAR(p(1, 0), 1.0, 1e-15);
  EXPECT_EQ(p(2, 0), 0.0);
  // Long vectors use sin and cos; lengths 0.05, exactly 0.1 and 1e-9 use the series.
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (double len : {1.3, 0.05, 0.1, 1e-9})
    for (int trial = 0; trial < 20; ++trial) {
      double v[3] = {u(rng), u(rng), u(rng)}, c[3] = {u(rng), u(rng), u(rng)}, x[3] = {u(rng), u(rng), u(rng)};
      const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
      for (double& w : v) w *= len / n;
      if (len == 0.1) v[0] = 0.1, v[1] = v[2] = 0.0;
      dense2D<double> q = pts(3, {x[0], x[1], x[2]});
      ASSERT_EQ(rotate(q, V3{{c[0], c[1], c[2]}}, V3{{v[0], v[1], v[2]}}, con(1, {0})), 1);
      rotate_ref(v, c, x);
      for (unsigned k = 0; k < 3; ++k) EXPECT_TRUE(same_bits(q(k, 0), x[k])) << len << " " << k;
    }
}

TEST(BoundingBox, ChecksAndWidening) {
  const dense2D<double> p = pts(3, {1, 5, 0, -2, 3, NaN, 4, 4, 4});
  V2 lo2{{0.5, 0.5}}, hi2{{0.5, 0.5}};
  V3 lo{{0.0, 0.0, 10.0}}, hi{{0.0, 0.0, -10.0}};  // a prior box is widened, never reset
  EXPECT_EQ(inc_bounding_box(p, lo2, hi2), -1);
  EXPECT_EQ(inc_bounding_box(p, ids({1}), lo, hi), 0);
  EXPECT_TRUE(lo2[0] == 0.5 && lo[0] == -2.0 && hi[1] == 3.0 && lo[2] == 10.0 && hi[2] == -10.0);  // NaN ignored
  EXPECT_EQ(inc_bounding_box(p, ids({1, 3}), lo, hi), -2);
  EXPECT_EQ(inc_bounding_box(p, con(2, {0, 3}), lo, hi), -2);
  EXPECT_EQ(inc_bounding_box(p, ids({N, 2}), lo, hi), 0);
  EXPECT_EQ(hi[2], 4.0);
  EXPECT_EQ(inc_bounding_box(p, lo, hi), 0);
  EXPECT_TRUE(lo[2] == 0.0 && hi[1] == 5.0 && hi[0] == 4.0);
  EXPECT_EQ(inc_bounding_box(pts(2, {1, 2}), dense1D<unsigned, 16>(), lo, hi), 0);  // empty list first
  EXPECT_EQ(inc_bounding_box(pts(2, {1, 2}), ids({0}), lo, hi), -1);
  EXPECT_EQ(inc_bounding_box(pts(2, {1, 2, 3, 4, 5, 6}), con(2, {2, 1}), lo2, hi2), 0);
  EXPECT_TRUE(lo2[0] == 0.5 && lo2[1] == 0.5 && hi2[0] == 5.0 && hi2[1] == 6.0);
}
