#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "common/meshgen.hpp"
#include "editing/edit_util.hpp"

using namespace edit_test;

using pairs = std::vector<std::pair<unsigned, unsigned>>;
const pairs TET = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
const pairs PYR = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}};
const pairs WEDGE = {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}};
const pairs HEX = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

// Brute force: the local pairs of every column, as a sorted, duplicate-free 2-row matrix.
static dense2D<unsigned> brute(const dense2D<unsigned>& c, const pairs& local) {
  std::set<std::pair<unsigned, unsigned>> s;
  for (unsigned j = 0; j < c.cols; ++j)
    for (auto [a, b] : local) s.insert(std::minmax(c(a, j), c(b, j)));
  dense2D<unsigned> m(2, unsigned(s.size()));
  unsigned k = 0;
  for (auto [a, b] : s) m(0, k) = a, m(1, k++) = b;
  return m;
}

TEST(CopyEdges, MatchesBruteForce) {
  dense2D<double> pos;
  dense2D<unsigned> tets, hexes, sparse;
  meshgen::tet_cube(5, pos, tets);
  meshgen::hex_cube(4, pos, hexes);
  sparse.copy(tets);
  for (unsigned& v : sparse) v = v * 19000u + 7u;  // huge, sparse node numbers take the sorting path
  for (auto [c, t, local] : {std::tuple{&tets, ET_TETRA4, &TET}, {&hexes, ET_HEXA8, &HEX}, {&sparse, ET_TETRA4, &TET}}) {
    dense2D<unsigned> e;
    ASSERT_EQ(copy_edges(*c, t, e), 0);
    EXPECT_EQ(e, brute(*c, *local));
  }
}

TEST(CopyEdges, HigherOrderAndMixedTypesUseCorners) {
  dense2D<unsigned> e;
  ASSERT_EQ(copy_edges(con(10, {0, 1, 2, 3, 40, 41, 42, 43, 44, 45}), ET_TETRA10, e), 0);
  EXPECT_EQ(e, brute(con(4, {0, 1, 2, 3}), TET));
  const dense2D<unsigned> solids = con(8, {0, 1, 2, 3, N, N, N, N, 10, 11, 12, 13, 14, N, N, N,  //
                                           20, 21, 22, 23, 24, 25, N, N, 30, 31, 32, 33, 34, 35, 36, 37});
  e.clear();
  ASSERT_EQ(copy_edges(solids, ET_SOLID_MIXED, e), 0);
  unsigned at = 0;  // the node numbers of the four shapes do not overlap: their edges come in blocks
  for (auto [j, rows, local] : {std::tuple{0u, 4u, &TET}, {1u, 5u, &PYR}, {2u, 6u, &WEDGE}, {3u, 8u, &HEX}}) {
    EXPECT_EQ(e.sub_matrix(0, at, 2, unsigned(local->size())), brute(solids.sub_matrix(0, j, rows, 1), *local));
    at += unsigned(local->size());
  }
  EXPECT_EQ(e.cols, at);
  e.clear();  // a triangle (null 4th node) and a quadrangle without diagonals
  ASSERT_EQ(copy_edges(con(4, {0, 1, 2, N, 1, 3, 4, 2}), ET_FACE_MIXED, e), 0);
  EXPECT_EQ(e, con(2, {0, 1, 0, 2, 1, 2, 1, 3, 2, 4, 3, 4}));
}

TEST(CopyEdges, ChecksAndTypesWithoutEdges) {
  dense2D<unsigned> e = con(2, {7, 8}), three = con(3, {0, 1, 2});
  EXPECT_EQ(copy_edges(dense2D<unsigned>(3, 0), ET_TRIA3, three), 0);
  EXPECT_EQ(copy_edges(con(4, {0, N, 2, 3}), ET_FACE_MIXED, e), -1);
  EXPECT_EQ(copy_edges(con(2, {0, 1}), ET_TRIA3, e), -1);  // too few rows for the corners
  EXPECT_EQ(copy_edges(con(8, {0, 1, 2, 3, 4, 5, 6, N}), ET_SOLID_MIXED, e), -1);
  EXPECT_EQ(copy_edges(con(3, {0, 1, 2}), ET_TRIA3, three), -3);
  EXPECT_EQ(copy_edges(dense2D<unsigned>(20, 1, 0), ET_HEXA20, e), 0);
  EXPECT_EQ(copy_edges(con(1, {3}), ET_NODE1, e), 0);
  EXPECT_EQ(copy_edges(con(3, {4, N, 5}), ET_TRIA3, e), 0);  // an edge to a null node is no edge
  EXPECT_EQ(e, con(2, {7, 8, 4, 5}));
  dense2D<unsigned> empty3(3, 0);  // an empty output of another height becomes an edge list
  EXPECT_EQ(copy_edges(con(2, {1, 0}), ET_EDGE2, empty3), 0);
  EXPECT_EQ(empty3, con(2, {0, 1}));
}

TEST(CopyEdges, RangeFormMergesAllConnectivities) {
  const dense2D<unsigned> conns[3] = {con(3, {0, 1, 2}), dense2D<unsigned>(4, 0), con(4, {1, 2, 3, 0})};
  dense1D<int, 16> types(3, ET_QUAD4), two(2, ET_QUAD4);
  types[0] = ET_TRIA3;
  dense2D<unsigned> e, e3 = con(3, {0, 0, 0});
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e), 0);
  EXPECT_EQ(e, con(2, {0, 1, 0, 2, 0, 3, 1, 2, 2, 3}));
  EXPECT_EQ(copy_edges(conns, conns, types, e3), 0);
  EXPECT_EQ(copy_edges(conns + 2, conns, types, e), -2);
  EXPECT_EQ(copy_edges(conns, conns + 3, two, e), -3);
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e3), -4);
  types[0] = ET_FACE_MIXED;
  const dense2D<unsigned> bad[1] = {con(3, {0, N, 1})};
  EXPECT_EQ(copy_edges(bad, bad + 1, types, e), -1);
  types[0] = 99;  // values outside the enumeration have no edges
  types[2] = -4;
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e), 0);
  EXPECT_EQ(e.cols, 5u);
}
