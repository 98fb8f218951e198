#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

TEST(EdgeQuality, LengthFactorBranchesAndCodes) {
  double q = -1;
  EXPECT_EQ(edge_quality(1, 1, 1, q), 0);
  EXPECT_EQ(q, 1.0);
  EXPECT_EQ(edge_quality(1, 1, 2, q), 0);
  EXPECT_NEAR(q, std::log(2.0), 1e-15);
  EXPECT_EQ(edge_quality(1, 2, 1, q), 0);  // symmetric in the two sizes
  EXPECT_NEAR(q, std::log(2.0), 1e-15);
  // Nearly equal sizes take the series; it agrees with the logarithm.
  EXPECT_EQ(edge_quality(1, 1, 1.0005, q), 0);
  EXPECT_NEAR(q, std::log(1.0005) / 0.0005, 1e-12);
  EXPECT_EQ(edge_quality(3, 2, 2, q), 0);
  EXPECT_EQ(q, 1.5);
  q = 7;
  EXPECT_EQ(edge_quality(1, 0, 1, q), -2);
  EXPECT_EQ(edge_quality(1, 1, -1, q), -3);
  EXPECT_EQ(edge_quality(1, -1, -1, q), -2);  // h1 is checked first
  EXPECT_EQ(q, 7.0);
  EXPECT_EQ(edge_quality(1, std::nan(""), 1, q), 0);  // NaN passes the checks
  EXPECT_TRUE(std::isnan(q));
}

TEST(EdgeQualities, SharedEdgesCountOnceAndBadSizesAreSkipped) {
  dense2D<double> pos(2, 4, 0.0);
  pos(0, 1) = 1; pos(1, 2) = 1; pos(0, 3) = 1; pos(1, 3) = 1;
  dense2D<unsigned> tri(3, 2);
  const unsigned t[6] = {0, 1, 3, 0, 3, 2};
  for (unsigned k = 0; k < 6; ++k) tri(k % 3, k / 3) = t[k];
  dense1D<double> sizes(4, 1.0);
  kvo::misc::histogram h(0.0, 2.0, 4);
  dense2D<unsigned> edges;
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, sizes, h, edges), 0);
  EXPECT_EQ(h.count(), 5u);
  EXPECT_EQ(edges.rows, 2u);
  EXPECT_EQ(edges.cols, 5u);
  EXPECT_NEAR(h.maximum(), std::sqrt(2.0), 1e-15);
  // Edges are appended: a second call extends the list.
  sizes[2] = 0.0;  // node 2's two edges are skipped, the others still counted
  kvo::misc::histogram g;
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, sizes, g, edges), -4);
  EXPECT_EQ(g.count(), 3u);
  EXPECT_EQ(edges.cols, 10u);
  dense1D<double> short_sizes(3, 1.0);
  kvo::misc::histogram s;
  dense2D<unsigned> e2;
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, short_sizes, s, e2), -4);
  EXPECT_EQ(s.count(), 2u);  // the three edges of node 3 cannot be measured
}

TEST(EdgeQualities, OrderOfChecksAndStatusNumbering) {
  dense2D<double> pos(3, 4, 0.0);
  dense2D<unsigned> tet(4, 1);
  for (unsigned i = 0; i < 4; ++i) tet(i, 0) = i;
  dense1D<double> sizes(4, 1.0);
  kvo::misc::histogram h;
  dense2D<unsigned> edges, bad_edges(3, 1, 0u);
  dense1D<int, 16> types(1, int(ET_TETRA4)), two(2, int(ET_TETRA4));
  EXPECT_EQ(edge_qualities(pos, &tet, &tet, types, sizes, h, edges), 0);  // empty range
  dense2D<double> pos1(1, 4, 0.0);
  EXPECT_EQ(edge_qualities(pos1, &tet, &tet + 1, two, sizes, h, edges), -1);  // dimension first
  EXPECT_EQ(edge_qualities(pos, &tet, &tet + 1, two, sizes, h, edges), -4);
  dense2D<unsigned> far(tet);
  far.copy(tet);
  far(3, 0) = 4;
  EXPECT_EQ(edge_qualities(pos, &far, &far + 1, types, sizes, h, bad_edges), -2);  // before edges
  EXPECT_EQ(edge_qualities(pos, &tet, &tet + 1, types, sizes, h, bad_edges), -7);
  EXPECT_EQ(edge_qualities(pos, tet, ET_TETRA4, sizes, h, bad_edges), -6);
  EXPECT_EQ(edge_qualities(pos, far, ET_TETRA4, sizes, h, edges), -2);
  EXPECT_EQ(h.count(), 0u);
}

TEST(EdgeQualities, IsotropicMetricsGiveTheSizeValues) {
  dense2D<double> pos;
  dense2D<unsigned> tets;
  meshgen::tet_cube(3, pos, tets, 0.37);
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0.05, 2.0);
  dense1D<double> sizes(pos.cols);
  dense2D<double> metrics(6, pos.cols, 0.0);
  for (unsigned k = 0; k < pos.cols; ++k) {
    sizes[k] = u(rng);
    const double m = 1.0 / (sizes[k] * sizes[k]);
    metrics(0, k) = metrics(2, k) = metrics(5, k) = m;
  }
  dense1D<double> q1, q2;
  kvo::misc::histogram h1(0, 100, 1000), h2(0, 100, 1000);
  dense2D<unsigned> e1, e2;
  ASSERT_EQ(edge_qualities(pos, tets, ET_TETRA4, sizes, h1, e1), 0);
  ASSERT_EQ(edge_qualities(pos, tets, ET_TETRA4, metrics, h2, e2), 0);
  ASSERT_EQ(h1.count(), h2.count());
  EXPECT_NEAR(h1.mean(), h2.mean(), 1e-14 * h1.mean());
  EXPECT_NEAR(h1.minimum(), h2.minimum(), 1e-14 * h1.minimum());
  EXPECT_NEAR(h1.maximum(), h2.maximum(), 1e-14 * h1.maximum());
  // Per edge, against the direct formula.
  for (unsigned k = 0; k < e1.cols; ++k) {
    const unsigned a = e1(0, k), b = e1(1, k);
    double d2 = 0;
    for (unsigned i = 0; i < 3; ++i) d2 += (pos(i, b) - pos(i, a)) * (pos(i, b) - pos(i, a));
    double q;
    edge_quality(std::sqrt(d2), sizes[a], sizes[b], q);
    kvo::misc::histogram one(0, 100, 1);
    dense2D<unsigned> edge(2, 1), out;
    edge(0, 0) = a;
    edge(1, 0) = b;
    ASSERT_EQ(edge_qualities(pos, edge, ET_EDGE2, metrics, one, out), 0);
    EXPECT_NEAR(one.mean(), q, 1e-14 * q);
  }
  // Anisotropic stretch: the length along a direction of eigenvalue 4 is twice as long.
  dense2D<double> p2(2, 2, 0.0);
  p2(0, 1) = 1.0;
  dense2D<double> m2(3, 2, 0.0);
  m2(0, 0) = m2(0, 1) = 4.0;
  m2(2, 0) = m2(2, 1) = 1.0;
  dense2D<unsigned> edge(2, 1), out;
  edge(0, 0) = 0;
  edge(1, 0) = 1;
  kvo::misc::histogram one(0, 10, 1);
  ASSERT_EQ(edge_qualities(p2, edge, ET_EDGE2, m2, one, out), 0);
  EXPECT_DOUBLE_EQ(one.mean(), 2.0);
}
