#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/builders.hpp"
#include "common/meshgen.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;
using kvo::misc::histogram;

using testbuild::mat;

TEST(EdgeQuality, LengthFactorBranchesAndCodes) {
  const struct { double L, h1, h2, q, tol; } cases[] = {{1, 1, 1, 1.0, 0}, {3, 2, 2, 1.5, 0}, {1, 1, 2, std::log(2.0), 1e-15}, {1, 2, 1, std::log(2.0), 1e-15},
               {1, 1, 1.0005, std::log(1.0005) / 0.0005, 1e-12}};  // nearly equal sizes take the series
  for (const auto& c : cases) {
    double q = -1;
    EXPECT_EQ(edge_quality(c.L, c.h1, c.h2, q), 0);
    EXPECT_NEAR(q, c.q, c.tol) << c.h1 << " " << c.h2;
  }
  double q = 7;  // h1 is checked first; NaN passes the checks
  EXPECT_EQ((std::vector<int>{edge_quality(1, 0, 1, q), edge_quality(1, 1, -1, q), edge_quality(1, -1, -1, q)}), (std::vector<int>{-2, -3, -2}));
  EXPECT_EQ(q, 7.0);
  EXPECT_TRUE(edge_quality(1, std::nan(""), 1, q) == 0 && std::isnan(q));
}

TEST(EdgeQualities, SharedEdgesCountOnceAndBadSizesAreSkipped) {
  const dense2D<double> pos = mat<double>(2, {0, 0, 1, 0, 0, 1, 1, 1});
  const dense2D<unsigned> tri = mat<unsigned>(3, {0, 1, 3, 0, 3, 2});
  dense1D<double> sizes(4, 1.0);
  histogram h(0.0, 2.0, 4), g, s;
  dense2D<unsigned> edges, e2;
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, sizes, h, edges), 0);
  EXPECT_TRUE(h.count() == 5 && edges.rows == 2 && edges.cols == 5);
  EXPECT_NEAR(h.maximum(), std::sqrt(2.0), 1e-15);
  sizes[2] = 0.0;  // node 2's two edges are skipped, the others still counted; edges are appended
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, sizes, g, edges), -4);
  EXPECT_TRUE(g.count() == 3 && edges.cols == 10);
  EXPECT_EQ(edge_qualities(pos, tri, ET_TRIA3, dense1D<double>(3, 1.0), s, e2), -4);  // node 3 has no size
  EXPECT_EQ(s.count(), 2u);
}

TEST(EdgeQualities, OrderOfChecksAndStatusNumbering) {
  const dense2D<double> pos(3, 4, 0.0);
  const dense2D<unsigned> tet = mat<unsigned>(4, {0, 1, 2, 3}), far = mat<unsigned>(4, {0, 1, 2, 4});
  const dense1D<double> sizes(4, 1.0);
  histogram h;
  dense2D<unsigned> edges, bad_edges(3, 1, 0u);
  const dense1D<int, 16> types(1, int(ET_TETRA4)), two(2, int(ET_TETRA4));
  EXPECT_EQ(edge_qualities(pos, &tet, &tet, types, sizes, h, edges), 0);  // empty range
  EXPECT_EQ(edge_qualities(dense2D<double>(1, 4, 0.0), &tet, &tet + 1, two, sizes, h, edges), -1);
  EXPECT_EQ(edge_qualities(pos, &tet, &tet + 1, two, sizes, h, edges), -4);
  EXPECT_EQ(edge_qualities(pos, &far, &far + 1, types, sizes, h, bad_edges), -2);  // before edges
  EXPECT_EQ(edge_qualities(pos, &tet, &tet + 1, types, sizes, h, bad_edges), -7);
  EXPECT_EQ(edge_qualities(pos, tet, ET_TETRA4, sizes, h, bad_edges), -6);
  EXPECT_EQ(edge_qualities(pos, far, ET_TETRA4, sizes, h, edges), -2);
  EXPECT_EQ(h.count(), 0u);
}

TEST(EdgeQualities, MetricFieldsAgainstTheSizeFormula) {
  dense2D<double> pos;
  dense2D<unsigned> tets;
  meshgen::tet_cube(3, pos, tets, 0.37);
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0.05, 2.0);
  dense1D<double> sizes(pos.cols);
  dense2D<double> metrics(6, pos.cols, 0.0);
  for (unsigned k = 0; k < pos.cols; ++k) metrics(0, k) = metrics(2, k) = metrics(5, k) = 1.0 / std::pow(sizes[k] = u(rng), 2);
  histogram h1(0, 100, 1000), h2(0, 100, 1000);
  dense2D<unsigned> e1, e2;
  ASSERT_EQ(edge_qualities(pos, tets, ET_TETRA4, sizes, h1, e1), 0);
  ASSERT_EQ(edge_qualities(pos, tets, ET_TETRA4, metrics, h2, e2), 0);
  ASSERT_EQ(h1.count(), h2.count());
  EXPECT_NEAR(h1.mean(), h2.mean(), 1e-14 * h1.mean());
  for (unsigned k = 0; k < e1.cols; ++k) {
    const unsigned a = e1(0, k), b = e1(1, k);
    double q;
    edge_quality(std::hypot(pos(0, b) - pos(0, a), pos(1, b) - pos(1, a), pos(2, b) - pos(2, a)), sizes[a], sizes[b], q);
    histogram one(0, 100, 1);
    dense2D<unsigned> out;
    ASSERT_EQ(edge_qualities(pos, mat<unsigned>(2, {a, b}), ET_EDGE2, metrics, one, out), 0);
    EXPECT_NEAR(one.mean(), q, 1e-14 * q);
  }
  // Along a direction of eigenvalue 4 the length doubles.
  histogram one(0, 10, 1);
  dense2D<unsigned> out;
  ASSERT_EQ(edge_qualities(mat<double>(2, {0, 0, 1, 0}), mat<unsigned>(2, {0, 1}), ET_EDGE2, mat<double>(3, {4, 0, 1, 4, 0, 1}), one, out), 0);
  EXPECT_DOUBLE_EQ(one.mean(), 2.0);
}
