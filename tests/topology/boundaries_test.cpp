#include <gtest/gtest.h>

#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;

TEST(Boundaries, RandomMeshesAgainstBruteForceAppendingToOutputs) {
  std::mt19937 rng(77);
  for (gk::element_type t : {gk::ET_EDGE2, gk::ET_TRIA3, gk::ET_QUAD4, gk::ET_FACE_MIXED, gk::ET_TETRA4,
                             gk::ET_PYRAMID5, gk::ET_WEDGE6, gk::ET_HEXA8, gk::ET_SOLID_MIXED})
    for (int round = 0; round < 8; ++round) {
      U2 c = random_mesh(t, 1 + rng() % 30, 4 + rng() % 6, rng);
      if (round % 2) c = strided(c);
      const auto faces = ref_faces(c, t);
      const unsigned slots = unsigned(faces[0].nodes.size());
      const vu want_nb = ref_neighbors(c, t, round % 4 == 1);
      U2 nb, all(slots, 1, 42u), open(slots, 1, 42u);  // outputs holding one column already
      U1 ids(1, 42u);
      ASSERT_EQ(gk::get_neighbors(c, t, round % 4 == 1, nb), 0);
      ASSERT_EQ(gk::get_element_boundaries(c, t, all), 0);
      ASSERT_EQ(gk::get_mesh_boundaries(c, nb, t, open), 0);
      ASSERT_EQ(gk::get_mesh_bounding_elements(c, nb, t, ids), 0);
      vu want_all(slots, 42u), want_open(slots, 42u), want_ids{42};
      for (const auto& f : faces) {
        want_all.insert(want_all.end(), f.nodes.begin(), f.nodes.end());
        if (want_nb[f.id] != N_) continue;
        want_open.insert(want_open.end(), f.nodes.begin(), f.nodes.end());
        want_ids.push_back(f.id);
      }
      EXPECT_EQ(entries(all), want_all) << t;
      EXPECT_EQ(entries(open), want_open);
      EXPECT_EQ(vec(ids), want_ids);
    }
}

TEST(Boundaries, StatusCodesInOrderLeaveOutputsUntouched) {
  const U2 tri = cols(3, {{0, 1, 2}, {2, 1, 3}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(tri, gk::ET_TRIA3, false, nb), 0);
  U2 out(2, 1, 9u), rows3(3, 1, 9u);
  U1 ids(1, 9u);
  EXPECT_EQ(gk::get_element_boundaries(U2(0, 4), gk::ET_TRIA3, rows3), 0);  // empty: nothing checked
  EXPECT_EQ(gk::get_mesh_boundaries(U2(3, 0), nb, gk::element_type(25), rows3), 0);
  EXPECT_EQ(gk::get_element_boundaries(cols(4, {{0, N_, 2, 3}}), gk::ET_FACE_MIXED, rows3), -1);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_TRIA6, out), -2);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_QUAD4, rows3), -1);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_TRIA3, rows3), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb, gk::ET_QUAD4, rows3), -1);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb.sub_matrix(0, 0, 3, 1), gk::ET_TRIA3, rows3), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb.sub_matrix(0, 0, 2, 2), gk::ET_TRIA3, out), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb, gk::ET_TRIA3, rows3), -3);
  EXPECT_EQ(gk::get_mesh_bounding_elements(tri, nb.sub_matrix(0, 0, 3, 1), gk::ET_TRIA3, ids), -2);
  EXPECT_EQ(gk::get_mesh_bounding_elements(tri, nb, gk::ET_EDGE3, ids), -2);
  EXPECT_EQ(entries(out), (vu{9, 9}));
  EXPECT_EQ(entries(rows3), (vu{9, 9, 9}));
  // A 3-row mixed face connectivity is read as triangles: stride 3.
  ASSERT_EQ(gk::get_mesh_bounding_elements(tri, nb, gk::ET_FACE_MIXED, ids), 0);
  EXPECT_EQ(vec(ids), (vu{9, 1, 2, 3, 4}));
}
