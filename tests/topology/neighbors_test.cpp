// Element neighbours across faces.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "common/meshgen.hpp"
#include "topology/topo_util.hpp"

using namespace topo_test;
namespace gk = kvo::gridkit;
using gk::element_type;

namespace {

const element_type all_types[] = {gk::ET_EDGE2,   gk::ET_TRIA3,     gk::ET_QUAD4,  gk::ET_FACE_MIXED, gk::ET_TETRA4,
                                  gk::ET_PYRAMID5, gk::ET_WEDGE6, gk::ET_HEXA8, gk::ET_SOLID_MIXED};

void expect_matches_reference(const U2& c, element_type t, bool keep, const char* what) {
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, t, keep, nb), 0) << what;
  const element_type rt = (t == gk::ET_FACE_MIXED && c.rows == 3) ? gk::ET_TRIA3 : t;
  EXPECT_EQ(nb.rows, ref_type_of(rt).nf) << what;
  EXPECT_EQ(nb.cols, c.cols) << what;
  EXPECT_EQ(entries(nb), ref_neighbors(c, rt, keep)) << what << " type " << t << " keep " << keep;
}

}  // namespace

TEST(Neighbors, SharedEdgeOfTwoTriangles) {
  U2 c = cols(3, {{0, 1, 2}, {2, 1, 3}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TRIA3, false, nb), 0);
  EXPECT_EQ(entries(nb), (std::vector<unsigned>{1, N_, N_, N_, N_, 0}));
  // A 3-row mixed face connectivity is read as triangles.
  U2 nb2;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_FACE_MIXED, false, nb2), 0);
  EXPECT_EQ(entries(nb2), entries(nb));
}

TEST(Neighbors, NonManifoldEdgeStrictAndFanOut) {
  U2 c = cols(3, {{0, 1, 2}, {1, 0, 3}, {4, 0, 1}, {2, 1, 5}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TRIA3, false, nb), 0);
  // Edge (0,1) is face 2 of element 0, face 2 of element 1 and face 0 of element 2: no neighbours.
  EXPECT_EQ(nb(2, 0), N_);
  EXPECT_EQ(nb(2, 1), N_);
  EXPECT_EQ(nb(0, 2), N_);
  EXPECT_EQ(nb(0, 0), 3u);  // edge (1,2) is still a manifold pair
  EXPECT_EQ(nb(2, 3), 0u);
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TRIA3, true, nb), 0);
  EXPECT_EQ(nb(2, 0), 2u);  // the first face points at the last one
  EXPECT_EQ(nb(2, 1), 0u);  // the others point at the first
  EXPECT_EQ(nb(0, 2), 0u);
}

TEST(Neighbors, SolidsMatchAcrossOrientationButNotAcrossFaceKinds) {
  // Two hexahedra sharing face (1,2,6,5), the second one listing it in reverse order.
  U2 hex = cols(8, {{0, 1, 2, 3, 4, 5, 6, 7}, {1, 5, 6, 2, 8, 9, 10, 11}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(hex, gk::ET_HEXA8, false, nb), 0);
  EXPECT_EQ(nb(1, 0), 1u);  // face 1 of the first: (1,5,6,2)
  EXPECT_EQ(nb(4, 1), 0u);  // face 4 of the second: (1,5,6,2) as (0,1,2,3)
  unsigned linked = 0;
  for (unsigned v : entries(nb)) linked += v != N_;
  EXPECT_EQ(linked, 2u);

  // A pyramid's base (0,1,2,3) and a wedge whose triangle (0,1,2) shares three of its nodes.
  U2 mix = cols(8, {{0, 1, 2, 3, 4, N_, N_, N_}, {0, 1, 2, 5, 6, 7, N_, N_}, {3, 2, 1, 0, 9, N_, N_, N_}});
  ASSERT_EQ(gk::get_neighbors(mix, gk::ET_SOLID_MIXED, false, nb), 0);
  EXPECT_EQ(nb(4, 0), 2u);  // the two pyramid bases match, the wedge triangle does not
  EXPECT_EQ(nb(4, 2), 0u);
  EXPECT_EQ(nb(0, 1), N_);
  EXPECT_EQ(nb(5, 0), N_);  // unused face rows stay null
  EXPECT_EQ(nb(5, 1), N_);
}

TEST(Neighbors, MixedFaceTriangleLeavesFourthRowNull) {
  U2 c = cols(4, {{0, 1, 2, N_}, {1, 0, 3, 4}, {5, 5, 5, 5}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_FACE_MIXED, false, nb), 0);
  EXPECT_EQ(nb(2, 0), 1u);
  EXPECT_EQ(nb(0, 1), 0u);
  EXPECT_EQ(nb(3, 0), N_);
  // A collapsed quadrangle: its four equal edges make a non-manifold class.
  for (unsigned j = 0; j < 4; ++j) EXPECT_EQ(nb(j, 2), N_);
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_FACE_MIXED, true, nb), 0);
  EXPECT_EQ(nb(0, 2), 2u);  // an element can be its own neighbour
}

TEST(Neighbors, RandomMeshesAgainstBruteForce) {
  std::mt19937 rng(2024);
  for (element_type t : all_types) {
    for (int round = 0; round < 12; ++round) {
      const unsigned nodes = 4 + rng() % 5, elements = 1 + rng() % 40;
      // Small node numbers use one bucket per node; large ones the hashed buckets.
      const unsigned offset = round % 3 == 2 ? 0xFFFFFF00u - nodes : 0;
      U2 c = random_mesh(t, elements, nodes, rng, offset);
      expect_matches_reference(c, t, false, "random");
      expect_matches_reference(c, t, true, "random");
      expect_matches_reference(strided(c), t, round % 2, "strided");
    }
  }
}

TEST(Neighbors, FansAroundOneNodeWithRepeatedTriangles) {
  // Many faces share the smallest node 0: long runs of faces to group, repeated and flipped.
  std::mt19937 rng(3);
  for (unsigned fan : {6u, 12u, 80u}) {
    U2 c(3, 2 * fan);
    for (unsigned i = 0; i < fan; ++i) {
      c(0, i) = 0, c(1, i) = 1 + i, c(2, i) = 1 + (i + 1) % fan;
      const unsigned k = rng() % fan;  // a copy of a random triangle, rotated or flipped
      const unsigned v[3] = {0, 1 + k, 1 + (k + 1) % fan};
      const unsigned r = rng() % 3;
      const bool flip = rng() % 2;
      for (unsigned j = 0; j < 3; ++j) c(j, fan + i) = v[flip ? (r + 3 - j) % 3 : (r + j) % 3];
    }
    expect_matches_reference(c, gk::ET_TRIA3, false, "fan");
    expect_matches_reference(c, gk::ET_TRIA3, true, "fan");
  }
}

TEST(Neighbors, NodeRenumberingKeepsTheNeighbours) {
  // Renaming nodes injectively changes no face equality. Sparse names keep one bucket per node
  // but spread a face's nodes far apart; huge names switch to hashed buckets.
  kvo::dense2D<double> pos;
  U2 tets, hexes, tris;
  meshgen::tet_cube(15, pos, tets);
  meshgen::hex_cube(12, pos, hexes);
  meshgen::torus(60, 40, pos, tris);
  std::mt19937 rng(8);
  for (auto [c, t] : {std::pair{&tets, gk::ET_TETRA4}, {&hexes, gk::ET_HEXA8}, {&tris, gk::ET_TRIA3}}) {
    U2 want;
    ASSERT_EQ(gk::get_neighbors(*c, t, false, want), 0);
    for (unsigned base : {0u, 0xF0000000u}) {
      // As many names as half the face identifiers: the most that keeps one bucket per node.
      std::vector<unsigned> names(want.rows * want.cols / 2);
      for (unsigned k = 0; k < names.size(); ++k) names[k] = base + k;
      std::shuffle(names.begin(), names.end(), rng);
      U2 renamed = *c;
      renamed.copy(*c);
      for (unsigned e = 0; e < renamed.cols; ++e)
        for (unsigned i = 0; i < renamed.rows; ++i) renamed(i, e) = names[renamed(i, e)];
      U2 got;
      ASSERT_EQ(gk::get_neighbors(renamed, t, false, got), 0);
      EXPECT_EQ(entries(got), entries(want)) << t << " base " << base;
    }
  }
}

TEST(Neighbors, KeyCollisionsAreCheckedNodeByNode) {
  // Faces (0, 32772, 32775) and (0, 32773, 32774) have the same order-independent key and nodes
  // too far apart to be told apart by it; enough other elements keep one bucket per node.
  kvo::dense2D<double> pos;
  U2 cube;
  meshgen::tet_cube(17, pos, cube);
  U2 c(4, cube.cols + 3);
  for (unsigned e = 0; e < cube.cols; ++e)
    for (unsigned i = 0; i < 4; ++i) c(i, e) = cube(i, e);
  const unsigned e1 = cube.cols, e2 = e1 + 1, e3 = e1 + 2;
  const unsigned extra[3][4] = {{40000, 0, 32772, 32775}, {40001, 0, 32773, 32774}, {40002, 32775, 32772, 0}};
  for (unsigned k = 0; k < 3; ++k)
    for (unsigned i = 0; i < 4; ++i) c(i, e1 + k) = extra[k][i];
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TETRA4, false, nb), 0);
  EXPECT_EQ(nb(0, e1), e3);
  EXPECT_EQ(nb(0, e3), e1);
  EXPECT_EQ(nb(0, e2), N_);
  for (unsigned j = 1; j < 4; ++j) EXPECT_EQ(nb(j, e2), N_);
}

TEST(Neighbors, NullNodesInFixedTypesAreOrdinaryValues) {
  // Fixed types are not bound-checked, so null entries reach the face matching.
  std::mt19937 rng(99);
  for (element_type t : {gk::ET_EDGE2, gk::ET_TRIA3, gk::ET_TETRA4, gk::ET_WEDGE6, gk::ET_HEXA8}) {
    U2 c = random_mesh(t, 30, 3, rng);
    for (unsigned e = 0; e < c.cols; ++e)
      for (unsigned i = 0; i < c.rows; ++i)
        if (rng() % 2) c(i, e) = N_;
    expect_matches_reference(c, t, true, "nulls");
    expect_matches_reference(c, t, false, "nulls");
  }
}

TEST(Neighbors, StructuredMeshes) {
  kvo::dense2D<double> pos;
  U2 tets, hexes, tris;
  meshgen::tet_cube(3, pos, tets);
  meshgen::hex_cube(4, pos, hexes);
  meshgen::torus(9, 5, pos, tris);
  expect_matches_reference(tets, gk::ET_TETRA4, false, "tet cube");
  expect_matches_reference(hexes, gk::ET_HEXA8, false, "hex cube");
  expect_matches_reference(tris, gk::ET_TRIA3, false, "torus");
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(tris, gk::ET_TRIA3, false, nb), 0);
  for (unsigned v : entries(nb)) EXPECT_NE(v, N_);  // a closed surface
}

TEST(Neighbors, StatusCodesAndClearedOutput) {
  U2 nb(2, 2, 5u);
  U2 empty(3, 0);
  EXPECT_EQ(gk::get_neighbors(empty, gk::ET_TRIA3, false, nb), 0);
  EXPECT_TRUE(nb.is_empty());

  const U2 tri = cols(3, {{0, 1, 2}});
  for (element_type t : {gk::ET_NONE, gk::ET_NODE1, gk::ET_EDGE3, gk::ET_TRIA6, gk::ET_HEXA27, element_type(25)}) {
    nb.resize(2, 2, 5u);
    EXPECT_EQ(gk::get_neighbors(tri, t, false, nb), -2) << t;
    EXPECT_TRUE(nb.is_empty());
  }
  EXPECT_EQ(gk::get_neighbors(tri, gk::ET_QUAD4, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(tri, gk::ET_EDGE2, false, nb), -1);
  // Null patterns the mixed types do not allow.
  EXPECT_EQ(gk::get_neighbors(cols(4, {{N_, 1, 2, 3}}), gk::ET_FACE_MIXED, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(5, {{0, 1, 2, 3, 4}}), gk::ET_FACE_MIXED, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(8, {{0, 1, 2, 3, N_, 5, N_, N_}}), gk::ET_SOLID_MIXED, false, nb), -1);
  EXPECT_EQ(gk::get_neighbors(cols(8, {{0, 1, 2, N_, N_, N_, N_, N_}}), gk::ET_SOLID_MIXED, false, nb), -1);
  // Accepted as a mixed solid by the bound check, but not 8 rows.
  EXPECT_EQ(gk::get_neighbors(cols(5, {{0, 1, 2, 3, 4}}), gk::ET_SOLID_MIXED, false, nb), -1);
  EXPECT_TRUE(nb.is_empty());
}

TEST(Neighbors, ResultDoesNotShareInputStorage) {
  U2 c = cols(3, {{0, 1, 2}, {2, 1, 3}});
  U2 alias = c;  // output initially viewing the connectivity's block
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TRIA3, false, alias), 0);
  EXPECT_EQ(entries(c), (std::vector<unsigned>{0, 1, 2, 2, 1, 3}));
  EXPECT_EQ(entries(alias), (std::vector<unsigned>{1, N_, N_, N_, N_, 0}));
}
