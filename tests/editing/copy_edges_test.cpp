#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <set>
#include <utility>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using edge_set = std::set<std::pair<unsigned, unsigned>>;

dense2D<unsigned> mat(unsigned rows, std::initializer_list<unsigned> v) {
  dense2D<unsigned> m(rows, unsigned(v.size()) / rows);
  unsigned k = 0;
  for (unsigned x : v) m.storage->data[k++] = x;
  return m;
}

// Brute force: every listed local pair of every column, as (min, max), in a sorted set.
edge_set brute(const dense2D<unsigned>& c, std::initializer_list<std::pair<unsigned, unsigned>> local) {
  edge_set s;
  for (unsigned j = 0; j < c.cols; ++j)
    for (auto [a, b] : local) s.insert(std::minmax(c(a, j), c(b, j)));
  return s;
}

// The edge columns of `e` from column `from` on, checked to be strictly increasing.
edge_set columns(const dense2D<unsigned>& e, unsigned from = 0) {
  edge_set s;
  EXPECT_EQ(e.rows, 2u);
  for (unsigned j = from; j < e.cols; ++j) {
    EXPECT_LE(e(0, j), e(1, j));
    if (j > from) {
      EXPECT_LT(std::make_pair(e(0, j - 1), e(1, j - 1)), std::make_pair(e(0, j), e(1, j)));
    }
    s.insert({e(0, j), e(1, j)});
  }
  return s;
}

const std::initializer_list<std::pair<unsigned, unsigned>> TET = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
const std::initializer_list<std::pair<unsigned, unsigned>> HEX = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                                                   {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

}  // namespace

TEST(CopyEdges, TwoTrianglesGiveFiveSortedEdges) {
  dense2D<unsigned> e;
  EXPECT_EQ(copy_edges(mat(3, {0, 1, 2, 2, 1, 3}), ET_TRIA3, e), 0);
  EXPECT_EQ(e, mat(2, {0, 1, 0, 2, 1, 2, 1, 3, 2, 3}));
  // Appends after what the output holds, without merging with it.
  EXPECT_EQ(copy_edges(mat(4, {5, 6, 7, 8}), ET_QUAD4, e), 0);
  EXPECT_EQ(e, mat(2, {0, 1, 0, 2, 1, 2, 1, 3, 2, 3, 5, 6, 5, 8, 6, 7, 7, 8}));
  EXPECT_EQ(copy_edges(mat(2, {0, 1}), ET_EDGE2, e), 0);
  EXPECT_EQ(e.cols, 10u);
}

TEST(CopyEdges, MatchesBruteForceOnMeshes) {
  dense2D<double> pos;
  dense2D<unsigned> tets, hexes, tris, e;
  meshgen::tet_cube(5, pos, tets);
  ASSERT_EQ(copy_edges(tets, ET_TETRA4, e), 0);
  EXPECT_EQ(columns(e), brute(tets, TET));
  EXPECT_EQ(e.cols, brute(tets, TET).size());
  meshgen::hex_cube(4, pos, hexes);
  e.clear();
  ASSERT_EQ(copy_edges(hexes, ET_HEXA8, e), 0);
  EXPECT_EQ(columns(e), brute(hexes, HEX));
  meshgen::torus(7, 5, pos, tris);
  e.clear();
  ASSERT_EQ(copy_edges(tris, ET_TRIA3, e), 0);
  EXPECT_EQ(e.cols, 3u * 7 * 5);  // a closed torus: E = 3F/2

  // Sparse, huge node numbers take the sorting path; same result.
  dense2D<unsigned> sparse;
  sparse.copy(tets);
  for (unsigned j = 0; j < sparse.cols; ++j)
    for (unsigned i = 0; i < 4; ++i) sparse(i, j) = sparse(i, j) * 19000u + 7u;
  e.clear();
  ASSERT_EQ(copy_edges(sparse, ET_TETRA4, e), 0);
  EXPECT_EQ(columns(e), brute(sparse, TET));
}

TEST(CopyEdges, HigherOrderAndMixedTypesUseCorners) {
  dense2D<unsigned> e;
  // Quadratic tetrahedron: the mid-edge nodes 4..9 never appear.
  ASSERT_EQ(copy_edges(mat(10, {0, 1, 2, 3, 40, 41, 42, 43, 44, 45}), ET_TETRA10, e), 0);
  EXPECT_EQ(columns(e), brute(mat(4, {0, 1, 2, 3}), TET));

  // Mixed solids: tetrahedron, pyramid, wedge, hexahedron in one 8-row connectivity.
  const unsigned N = NULL_INDEX;
  const dense2D<unsigned> solids = mat(8, {0, 1, 2, 3, N, N, N, N, 10, 11, 12, 13, 14, N, N, N,
                                           20, 21, 22, 23, 24, 25, N, N, 30, 31, 32, 33, 34, 35, 36, 37});
  e.clear();
  ASSERT_EQ(copy_edges(solids, ET_SOLID_MIXED, e), 0);
  edge_set want = brute(mat(4, {0, 1, 2, 3}), TET);
  for (auto x : brute(mat(5, {10, 11, 12, 13, 14}), {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}}))
    want.insert(x);
  for (auto x : brute(mat(6, {20, 21, 22, 23, 24, 25}),
                      {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}}))
    want.insert(x);
  for (auto x : brute(mat(8, {30, 31, 32, 33, 34, 35, 36, 37}), HEX)) want.insert(x);
  EXPECT_EQ(columns(e), want);
  EXPECT_EQ(e.cols, 6u + 8 + 9 + 12);

  // Mixed faces: a triangle (null 4th node) and a quadrangle, no diagonals.
  e.clear();
  ASSERT_EQ(copy_edges(mat(4, {0, 1, 2, N, 1, 3, 4, 2}), ET_FACE_MIXED, e), 0);
  EXPECT_EQ(e, mat(2, {0, 1, 0, 2, 1, 2, 1, 3, 2, 4, 3, 4}));
}

TEST(CopyEdges, ChecksAndTypesWithoutEdges) {
  const unsigned N = NULL_INDEX;
  dense2D<unsigned> e = mat(2, {7, 8});
  EXPECT_EQ(copy_edges(dense2D<unsigned>(3, 0), ET_TRIA3, e), 0);
  EXPECT_EQ(copy_edges(mat(4, {0, N, 2, 3}), ET_FACE_MIXED, e), -1);
  EXPECT_EQ(copy_edges(mat(2, {0, 1}), ET_TRIA3, e), -1);  // too few rows for the corners
  EXPECT_EQ(copy_edges(mat(8, {0, 1, 2, 3, 4, 5, 6, N}), ET_SOLID_MIXED, e), -1);
  dense2D<unsigned> three = mat(3, {0, 1, 2});
  EXPECT_EQ(copy_edges(mat(3, {0, 1, 2}), ET_TRIA3, three), -3);
  EXPECT_EQ(copy_edges(mat(20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}), ET_HEXA20, e),
            0);
  EXPECT_EQ(copy_edges(mat(1, {3}), ET_NODE1, e), 0);
  EXPECT_EQ(e, mat(2, {7, 8}));
  // An edge to a null node is no edge.
  EXPECT_EQ(copy_edges(mat(3, {4, N, 5}), ET_TRIA3, e), 0);
  EXPECT_EQ(e, mat(2, {7, 8, 4, 5}));
  // An empty output of another height becomes a 2-row edge list.
  dense2D<unsigned> empty3(3, 0);
  EXPECT_EQ(copy_edges(mat(2, {1, 0}), ET_EDGE2, empty3), 0);
  EXPECT_EQ(empty3, mat(2, {0, 1}));
}

TEST(CopyEdges, RangeFormMergesAllConnectivities) {
  const dense2D<unsigned> conns[3] = {mat(3, {0, 1, 2}), dense2D<unsigned>(4, 0), mat(4, {1, 2, 3, 0})};
  dense1D<int, 16> types(3);
  types[0] = ET_TRIA3;
  types[1] = ET_QUAD4;
  types[2] = ET_QUAD4;
  dense2D<unsigned> e;
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e), 0);
  EXPECT_EQ(e, mat(2, {0, 1, 0, 2, 0, 3, 1, 2, 2, 3}));
  EXPECT_EQ(copy_edges(conns, conns, types, e), 0);
  EXPECT_EQ(copy_edges(conns + 2, conns, types, e), -2);
  dense1D<int, 16> short_types(2);
  EXPECT_EQ(copy_edges(conns, conns + 3, short_types, e), -3);
  types[2] = ET_TRIA3;  // 4 rows are more than a triangle needs: its first three are used
  dense2D<unsigned> e3 = mat(3, {0, 0, 0});
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e3), -4);
  types[0] = ET_FACE_MIXED;
  types[2] = ET_QUAD4;
  dense2D<unsigned> bad[1] = {mat(3, {0, NULL_INDEX, 1})};
  EXPECT_EQ(copy_edges(bad, bad + 1, types, e), -1);
  // Values outside the enumeration have no edges.
  types[0] = 99;
  types[2] = -4;
  EXPECT_EQ(copy_edges(conns, conns + 3, types, e), 0);
  EXPECT_EQ(e.cols, 5u);
}
