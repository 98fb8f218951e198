#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/builders.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

namespace {
using testbuild::mat;
dense1D<double> vec(const std::vector<double>& v) { return mat(1, v).as_vector(); }
// Nodes on the x axis at the given abscissae.
dense2D<double> line(const std::vector<double>& x) {
  dense2D<double> p(3, unsigned(x.size()), 0.0);
  for (unsigned j = 0; j < x.size(); ++j) p(0, j) = x[j];
  return p;
}
// Shock of the one edge (a, b) with the given sizes; both ends get the same value.
double one(double len, unsigned a, unsigned b, const std::vector<double>& h) {
  dense1D<double> shock;
  EXPECT_EQ(H_shock(line({0, len}), mat<unsigned>(2, {a, b}), vec(h), shock), 0);
  EXPECT_EQ(shock.size, 2u);
  EXPECT_TRUE(shock[0] == shock[1] || (std::isnan(shock[0]) && std::isnan(shock[1])));
  return shock[0];
}
}  // namespace

TEST(HShock, KernelValues) {
  EXPECT_NEAR(one(1, 0, 1, {1, 2}), std::exp(1.0) - 1.0, 1e-12);
  EXPECT_NEAR(one(1, 1, 0, {1, 2}), one(1, 0, 1, {1, 2}), 1e-15);  // either direction
  // Coincident nodes: the largest double unless the sizes agree; a non-positive size acts as length 0.
  EXPECT_TRUE(one(2, 0, 1, {1, 1}) == 0 && one(0, 0, 1, {3, 3}) == 0);
  EXPECT_TRUE(one(0, 0, 1, {1, 2}) == DBL_MAX && one(1, 0, 1, {1, -1}) == DBL_MAX);
}

TEST(HShock, EarlierEntriesJoinTheMaximaAndChecksComeInOrder) {
  dense1D<double> shock(5, 10.0);
  const dense1D<double> sizes = vec({1, 2, 1});
  const dense2D<double> p = line({0, 0.1, 1e6});  // short edge 0-1: shock e^10 - 1; long edge 1-2: small
  const dense2D<unsigned> edges = mat<unsigned>(2, {0, 1, 1, 2});
  EXPECT_EQ(H_shock(p, edges, sizes, shock), 0);
  EXPECT_NEAR(shock[0], std::expm1(10.0), 1e-9 * std::exp(10.0));
  EXPECT_TRUE(shock.size == 3 && shock[1] == shock[0] && shock[2] == 10.0);

  dense1D<double> untouched(2, 4.0);
  EXPECT_EQ((std::vector<int>{H_shock(p, dense2D<unsigned>(2, 0), sizes, untouched), H_shock(dense2D<double>(4, 3, 0.0), edges, sizes, untouched),
                              H_shock(p, mat<unsigned>(2, {0, 3}), sizes, untouched), H_shock(p, dense2D<unsigned>(3, 1, 0u), sizes, untouched)}),
            (std::vector<int>{0, -1, -2, -2}));
  EXPECT_EQ(untouched.size, 2u);
}

TEST(HShock, IsotropicMetricsMatchSizes) {
  const dense2D<double> p = mat<double>(2, {0, 0, 0.7, 0, 0.2, 1.3});
  const dense1D<double> sizes = vec({0.5, 1.1, 0.8});
  dense2D<double> metrics(3, 3, 0.0);
  for (unsigned k = 0; k < 3; ++k) metrics(0, k) = metrics(2, k) = 1.0 / (sizes[k] * sizes[k]);
  const dense2D<unsigned> edges = mat<unsigned>(2, {0, 1, 1, 2, 2, 0});
  dense1D<double> a, b;
  ASSERT_EQ(H_shock(p, edges, sizes, a), 0);
  ASSERT_EQ(H_shock(p, edges, metrics, b), 0);
  for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(a[k], b[k], 1e-12 * (1 + a[k]));
  // Equal tensors at coincident nodes: no shock; one differing component: the largest double.
  dense2D<double> m2(3, 2, 1.0);
  for (double x : {1.0, 0.5}) {
    dense1D<double> c;
    m2(1, 1) = x;
    ASSERT_EQ(H_shock(dense2D<double>(2, 2, 0.0), edges.sub_matrix(0, 0, 2, 1), m2, c), 0);
    EXPECT_TRUE(c[0] == (x == 1 ? 0.0 : DBL_MAX) && c[1] == c[0]);
  }
}
