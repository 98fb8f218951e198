// Element faces, open faces and their identifiers.
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "common/meshgen.hpp"
#include "topology/topo_util.hpp"

using namespace topo_test;
namespace gk = kvo::gridkit;
using gk::element_type;

namespace {

const element_type all_types[] = {gk::ET_EDGE2,   gk::ET_TRIA3,     gk::ET_QUAD4,  gk::ET_FACE_MIXED, gk::ET_TETRA4,
                                  gk::ET_PYRAMID5, gk::ET_WEDGE6, gk::ET_HEXA8, gk::ET_SOLID_MIXED};

using vec3 = std::array<double, 3>;
vec3 at(const kvo::dense2D<double>& pos, unsigned n) { return {pos(0, n), pos(1, n), pos(2, n)}; }
vec3 sub(vec3 a, vec3 b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
vec3 cross(vec3 a, vec3 b) { return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}; }
double dot(vec3 a, vec3 b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Sign of the face normal (first three nodes) against the direction from the element centre.
int orientation(const kvo::dense2D<double>& pos, const std::vector<unsigned>& face, vec3 centre) {
  const vec3 n = cross(sub(at(pos, face[1]), at(pos, face[0])), sub(at(pos, face[2]), at(pos, face[0])));
  const double s = dot(n, sub(at(pos, face[0]), centre));
  return s > 1e-12 ? 1 : s < -1e-12 ? -1 : 0;
}

}  // namespace

TEST(Boundaries, SingleTetrahedron) {
  const U2 tet = cols(4, {{0, 1, 2, 3}});
  U2 nb, bnd;
  ASSERT_EQ(gk::get_neighbors(tet, gk::ET_TETRA4, false, nb), 0);
  ASSERT_EQ(gk::get_mesh_boundaries(tet, nb, gk::ET_TETRA4, bnd), 0);
  EXPECT_EQ(bnd.rows, 3u);
  EXPECT_EQ(entries(bnd), (std::vector<unsigned>{1, 2, 3, 2, 0, 3, 1, 3, 0, 2, 1, 0}));
  U1 ids;
  ASSERT_EQ(gk::get_mesh_bounding_elements(tet, nb, gk::ET_TETRA4, ids), 0);
  EXPECT_EQ(vec(ids), (std::vector<unsigned>{0, 1, 2, 3}));
  // The same tetrahedron as a mixed solid: 4-row faces with a null fourth row, stride 6.
  const U2 mixed = cols(8, {{0, 1, 2, 3, N_, N_, N_, N_}, {0, 1, 2, 3, N_, N_, N_, N_}});
  ASSERT_EQ(gk::get_neighbors(mixed, gk::ET_SOLID_MIXED, false, nb), 0);
  U2 faces;
  ASSERT_EQ(gk::get_element_boundaries(mixed, gk::ET_SOLID_MIXED, faces), 0);
  EXPECT_EQ(faces.rows, 4u);
  EXPECT_EQ(faces.cols, 8u);
  EXPECT_EQ(column(faces, 5), (std::vector<unsigned>{2, 0, 3, N_}));
  ids.resize(0);
  bnd.clear();
  ASSERT_EQ(gk::get_mesh_bounding_elements(mixed, nb, gk::ET_SOLID_MIXED, ids), 0);
  ASSERT_EQ(gk::get_mesh_boundaries(mixed, nb, gk::ET_SOLID_MIXED, bnd), 0);
  EXPECT_TRUE(ids.empty());  // the two copies close each other
  EXPECT_TRUE(bnd.is_empty());
}

TEST(Boundaries, RandomMeshesAgainstBruteForceWithAppending) {
  std::mt19937 rng(77);
  for (element_type t : all_types) {
    for (int round = 0; round < 8; ++round) {
      U2 c = random_mesh(t, 1 + rng() % 30, 4 + rng() % 6, rng);
      if (round % 2) c = strided(c);
      const ref_type rt = ref_type_of(t);
      const auto faces = ref_faces(c, t);
      const auto want_nb = ref_neighbors(c, t, round % 4 == 1);
      U2 nb;
      ASSERT_EQ(gk::get_neighbors(c, t, round % 4 == 1, nb), 0);

      // Outputs already holding a column / an entry keep them and grow after them.
      const std::vector<unsigned> first(rt.slots, 42u);
      U2 all(rt.slots, 1, 42u), open(rt.slots, 1, 42u);
      U1 ids(1, 42u);
      ASSERT_EQ(gk::get_element_boundaries(c, t, all), 0);
      ASSERT_EQ(gk::get_mesh_boundaries(c, nb, t, open), 0);
      ASSERT_EQ(gk::get_mesh_bounding_elements(c, nb, t, ids), 0);

      std::vector<unsigned> want_all = first, want_open = first, want_ids{42};
      for (const auto& f : faces) {
        want_all.insert(want_all.end(), f.nodes.begin(), f.nodes.end());
        if (want_nb[f.id] == N_) {
          want_open.insert(want_open.end(), f.nodes.begin(), f.nodes.end());
          want_ids.push_back(f.id);
        }
      }
      EXPECT_EQ(entries(all), want_all) << t;
      EXPECT_EQ(entries(open), want_open) << t;
      EXPECT_EQ(vec(ids), want_ids) << t;
    }
  }
}

TEST(Boundaries, CubeSurfacesAreCompleteAndConsistentlyOriented) {
  const unsigned n = 3;
  kvo::dense2D<double> pos;
  U2 tets, hexes;
  meshgen::tet_cube(n, pos, tets);
  meshgen::hex_cube(n, pos, hexes);
  struct mesh_case {
    const U2* c;
    element_type t;
    unsigned faces;
    int sign;  // tetrahedra list faces outward, the other solids inward
  } cases[] = {{&tets, gk::ET_TETRA4, 12 * n * n, 1}, {&hexes, gk::ET_HEXA8, 6 * n * n, -1}};
  for (const auto& mc : cases) {
    U2 nb, bnd;
    ASSERT_EQ(gk::get_neighbors(*mc.c, mc.t, false, nb), 0);
    ASSERT_EQ(gk::get_mesh_boundaries(*mc.c, nb, mc.t, bnd), 0);
    ASSERT_EQ(bnd.cols, mc.faces);
    const vec3 centre = {n / 2.0, n / 2.0, n / 2.0};
    for (unsigned f = 0; f < bnd.cols; ++f) {
      const auto face = column(bnd, f);
      // All nodes on one side of the cube.
      bool on_side = false;
      for (int d = 0; d < 3; ++d) {
        bool all_low = true, all_high = true;
        for (unsigned v : face) {
          all_low = all_low && pos(d, v) == 0.0;
          all_high = all_high && pos(d, v) == double(n);
        }
        on_side = on_side || all_low || all_high;
      }
      EXPECT_TRUE(on_side) << f;
      EXPECT_EQ(orientation(pos, face, centre), mc.sign) << f;
    }
  }
}

TEST(Boundaries, FaceTablesOfSolidsAreOrientedAlike) {
  kvo::dense2D<double> pos(3, 8);
  const double p[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
  for (unsigned k = 0; k < 8; ++k)
    for (unsigned d = 0; d < 3; ++d) pos(d, k) = p[k][d];
  struct solid {
    element_type t;
    U2 c;
    int sign;
  } solids[] = {{gk::ET_TETRA4, cols(4, {{0, 1, 3, 4}}), 1},
                {gk::ET_PYRAMID5, cols(5, {{0, 1, 2, 3, 6}}), -1},
                {gk::ET_WEDGE6, cols(6, {{0, 1, 3, 4, 5, 7}}), -1},
                {gk::ET_HEXA8, cols(8, {{0, 1, 2, 3, 4, 5, 6, 7}}), -1}};
  for (auto& s : solids) {
    U2 faces;
    ASSERT_EQ(gk::get_element_boundaries(s.c, s.t, faces), 0);
    vec3 centre{0, 0, 0};
    for (unsigned i = 0; i < s.c.rows; ++i)
      for (int d = 0; d < 3; ++d) centre[d] += pos(d, s.c(i, 0)) / s.c.rows;
    for (unsigned f = 0; f < faces.cols; ++f) EXPECT_EQ(orientation(pos, column(faces, f), centre), s.sign) << s.t;
  }
}

TEST(Boundaries, StatusCodesInOrderAndOutputsUntouched) {
  const U2 tri = cols(3, {{0, 1, 2}, {2, 1, 3}});
  U2 nb;
  ASSERT_EQ(gk::get_neighbors(tri, gk::ET_TRIA3, false, nb), 0);
  U2 out(2, 1, 9u), wrong_rows(3, 1, 9u);
  U1 ids(1, 9u);

  // Empty connectivity: nothing appended, nothing checked.
  U2 empty(0, 4);
  EXPECT_EQ(gk::get_element_boundaries(empty, gk::ET_TRIA3, wrong_rows), 0);
  EXPECT_EQ(gk::get_mesh_boundaries(empty, nb, element_type(25), wrong_rows), 0);
  EXPECT_EQ(gk::get_mesh_bounding_elements(empty, nb, gk::ET_TRIA3, ids), 0);

  // Connectivity before type, type before row count, row count before the other arguments.
  const U2 bad_mixed = cols(4, {{0, N_, 2, 3}});
  EXPECT_EQ(gk::get_element_boundaries(bad_mixed, gk::ET_FACE_MIXED, wrong_rows), -1);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_TRIA6, out), -2);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_QUAD4, wrong_rows), -1);
  EXPECT_EQ(gk::get_element_boundaries(tri, gk::ET_TRIA3, wrong_rows), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb, gk::ET_QUAD4, wrong_rows), -1);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb.sub_matrix(0, 0, 3, 1), gk::ET_TRIA3, wrong_rows), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb.sub_matrix(0, 0, 2, 2), gk::ET_TRIA3, out), -2);
  EXPECT_EQ(gk::get_mesh_boundaries(tri, nb, gk::ET_TRIA3, wrong_rows), -3);
  EXPECT_EQ(gk::get_mesh_bounding_elements(tri, nb.sub_matrix(0, 0, 3, 1), gk::ET_TRIA3, ids), -2);
  EXPECT_EQ(gk::get_mesh_bounding_elements(tri, nb, gk::ET_EDGE3, ids), -2);
  EXPECT_EQ(entries(out), (std::vector<unsigned>{9, 9}));
  EXPECT_EQ(entries(wrong_rows), (std::vector<unsigned>{9, 9, 9}));
  EXPECT_EQ(vec(ids), (std::vector<unsigned>{9}));

  // A 3-row mixed connectivity is read as triangles: stride 3 and 3 neighbour rows.
  ASSERT_EQ(gk::get_mesh_bounding_elements(tri, nb, gk::ET_FACE_MIXED, ids), 0);
  EXPECT_EQ(vec(ids), (std::vector<unsigned>{9, 1, 2, 3, 4}));
}
