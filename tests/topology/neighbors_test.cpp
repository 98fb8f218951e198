#include <gtest/gtest.h>

#include <random>

#include "common/meshgen.hpp"
#include "topology/topo_util.hpp"

using namespace topo_test;

const gk::element_type all_types[] = {gk::ET_EDGE2,    gk::ET_TRIA3,  gk::ET_QUAD4, gk::ET_FACE_MIXED, gk::ET_TETRA4,
                                      gk::ET_PYRAMID5, gk::ET_WEDGE6, gk::ET_HEXA8, gk::ET_SOLID_MIXED};

static vu neighbors(const U2& c, gk::element_type t, bool keep) {
  U2 nb(1, 1, 5u);
  EXPECT_EQ(gk::get_neighbors(c, t, keep, nb), 0);
  return entries(nb);
}

TEST(Neighbors, ThreeRowMixedFacesAreTriangles) {
  EXPECT_EQ(neighbors(cols(3, {{0, 1, 2}, {2, 1, 3}}), gk::ET_FACE_MIXED, false), (vu{1, N_, N_, N_, N_, 0}));
}

TEST(Neighbors, RandomMeshesOfEveryTypeAgainstBruteForce) {
  std::mt19937 rng(2024);
  for (gk::element_type t : all_types)
    for (int round = 0; round < 12; ++round) {
      // Few nodes: repeated, flipped, degenerate and non-manifold faces. Huge node names take
      // the hashed buckets; fixed types may even hold null nodes.
      const unsigned nodes = 4 + rng() % 5;
      U2 c = random_mesh(t, 1 + rng() % 40, nodes, rng, round % 3 == 2 ? 0xFFFFFF00u - nodes : 0);
      if (round % 4 == 1 && t != gk::ET_FACE_MIXED && t != gk::ET_SOLID_MIXED)
        for (unsigned e = 0; e < c.cols; ++e) c(rng() % c.rows, e) = N_;
      for (bool keep : {false, true}) EXPECT_EQ(neighbors(c, t, keep), ref_neighbors(c, t, keep)) << t;
      EXPECT_EQ(neighbors(strided(c), t, true), ref_neighbors(c, t, true));
    }
}

TEST(Neighbors, KeyCollisionsAreCheckedNodeByNode) {
  // (0, 32772, 32775) and (0, 32773, 32774) share their order-independent key, and their nodes
  // lie too far apart for an exact key; enough other elements keep one bucket per node.
  kvo::dense2D<double> pos;
  U2 cube, c;
  meshgen::tet_cube(17, pos, cube);
  c.resize(4, cube.cols + 3);
  std::copy(cube.col_ptr(0), cube.col_ptr(cube.cols), c.col_ptr(0));
  const unsigned e = cube.cols, extra[12] = {40000, 0, 32772, 32775, 40001, 0, 32773, 32774, 40002, 32775, 32772, 0};
  std::copy(extra, extra + 12, c.col_ptr(e));
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TETRA4, false, nb), 0);
  EXPECT_EQ(column(nb, e), (vu{e + 2, N_, N_, N_}));
  EXPECT_EQ(column(nb, e + 1), vu(4, N_));
  EXPECT_EQ(column(nb, e + 2), (vu{e, N_, N_, N_}));
}

TEST(Neighbors, StatusCodesClearTheOutput) {
  U2 nb(2, 2, 5u);
  EXPECT_EQ(gk::get_neighbors(U2(3, 0), gk::ET_TRIA3, false, nb), 0);
  EXPECT_TRUE(nb.is_empty());
  const U2 tri = cols(3, {{0, 1, 2}});
  for (gk::element_type t : {gk::ET_NONE, gk::ET_NODE1, gk::ET_TRIA6, gk::element_type(25)}) {
    nb.resize(2, 2, 5u);
    EXPECT_EQ(gk::get_neighbors(tri, t, false, nb), -2) << t;
    EXPECT_TRUE(nb.is_empty());
  }
  EXPECT_EQ(gk::get_neighbors(tri, gk::ET_QUAD4, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(4, {{N_, 1, 2, 3}}), gk::ET_FACE_MIXED, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(8, {{0, 1, 2, 3, N_, 5, N_, N_}}), gk::ET_SOLID_MIXED, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(5, {{0, 1, 2, 3, 4}}), gk::ET_SOLID_MIXED, false, nb), -1);  // not 8 rows
}
