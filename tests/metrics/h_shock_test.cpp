#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include <kvo/gridkit.hpp>

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

namespace {
dense2D<unsigned> one_edge(unsigned a, unsigned b) {
  dense2D<unsigned> e(2, 1);
  e(0, 0) = a;
  e(1, 0) = b;
  return e;
}
dense2D<double> line(double len, unsigned nodes = 2) {
  dense2D<double> p(3, nodes, 0.0);
  p(0, 1) = len;
  return p;
}
}  // namespace

TEST(HShock, KernelValues) {
  dense1D<double> shock;
  EXPECT_EQ(H_shock(line(2), one_edge(0, 1), dense1D<double>(2, 1.0), shock), 0);
  EXPECT_EQ(shock[0], 0.0);
  EXPECT_EQ(shock[1], 0.0);
  dense1D<double> sizes(2);
  sizes[0] = 1;
  sizes[1] = 2;
  shock.clear_hard();
  EXPECT_EQ(H_shock(line(1), one_edge(0, 1), sizes, shock), 0);
  EXPECT_NEAR(shock[0], std::exp(1.0) - 1.0, 1e-12);
  EXPECT_EQ(shock[0], shock[1]);
  dense1D<double> reversed;
  H_shock(line(1), one_edge(1, 0), sizes, reversed);
  EXPECT_NEAR(reversed[0], shock[0], 1e-15);
  // Coincident nodes: the largest double unless the sizes agree.
  dense1D<double> s2;
  H_shock(line(0), one_edge(0, 1), sizes, s2);
  EXPECT_EQ(s2[0], DBL_MAX);
  EXPECT_EQ(s2[1], DBL_MAX);
  dense1D<double> s3;
  H_shock(line(0), one_edge(0, 1), dense1D<double>(2, 3.0), s3);
  EXPECT_EQ(s3[0], 0.0);
  // A non-positive size makes the length 0 too.
  sizes[1] = -1;
  dense1D<double> s4;
  H_shock(line(1), one_edge(0, 1), sizes, s4);
  EXPECT_EQ(s4[1], DBL_MAX);
}

TEST(HShock, EarlierEntriesJoinTheMaximaAndChecksComeInOrder) {
  dense1D<double> shock(5, 10.0);
  dense1D<double> sizes(3);
  sizes[0] = 1; sizes[1] = 2; sizes[2] = 1;
  dense2D<double> p = line(1, 3);
  p(0, 2) = 1e6;  // long edge 1-2: small shock
  dense2D<unsigned> edges(2, 2);
  edges(0, 0) = 0; edges(1, 0) = 1; edges(0, 1) = 1; edges(1, 1) = 2;
  EXPECT_EQ(H_shock(p, edges, sizes, shock), 0);
  EXPECT_EQ(shock.size, 3u);
  EXPECT_EQ(shock[0], 10.0);
  EXPECT_EQ(shock[2], 10.0);

  dense1D<double> untouched(2, 4.0);
  EXPECT_EQ(H_shock(p, dense2D<unsigned>(2, 0), sizes, untouched), 0);
  EXPECT_EQ(untouched.size, 2u);
  EXPECT_EQ(H_shock(dense2D<double>(4, 3, 0.0), edges, sizes, untouched), -1);
  EXPECT_EQ(H_shock(p, one_edge(0, 3), sizes, untouched), -2);
  EXPECT_EQ(H_shock(p, dense2D<unsigned>(3, 1, 0u), sizes, untouched), -2);
  EXPECT_EQ(untouched.size, 2u);
}

TEST(HShock, IsotropicMetricsMatchSizes) {
  dense2D<double> p(2, 3, 0.0);
  p(0, 1) = 0.7; p(1, 2) = 1.3; p(0, 2) = 0.2;
  const double h[3] = {0.5, 1.1, 0.8};
  dense1D<double> sizes(3);
  dense2D<double> metrics(3, 3, 0.0);
  for (unsigned k = 0; k < 3; ++k) {
    sizes[k] = h[k];
    metrics(0, k) = metrics(2, k) = 1.0 / (h[k] * h[k]);
  }
  dense2D<unsigned> edges(2, 3);
  const unsigned e[6] = {0, 1, 1, 2, 2, 0};
  for (unsigned k = 0; k < 6; ++k) edges(k % 2, k / 2) = e[k];
  dense1D<double> a, b;
  ASSERT_EQ(H_shock(p, edges, sizes, a), 0);
  ASSERT_EQ(H_shock(p, edges, metrics, b), 0);
  for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(a[k], b[k], 1e-12 * (1 + a[k]));
  // Equal tensors at coincident nodes: no shock; one differing component: the largest double.
  dense2D<double> same(2, 2, 0.0);
  dense2D<double> m2(3, 2, 1.0);
  dense1D<double> c;
  H_shock(same, one_edge(0, 1), m2, c);
  EXPECT_EQ(c[0], 0.0);
  m2(1, 1) = 0.5;
  dense1D<double> d;
  H_shock(same, one_edge(0, 1), m2, d);
  EXPECT_EQ(d[0], DBL_MAX);
}
