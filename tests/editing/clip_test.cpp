#include <gtest/gtest.h>

#include <vector>

#include "common/meshgen.hpp"
#include "editing/transform_test_util.hpp"

using namespace tu;

namespace {

// The columns of c whose nodes up to the first null all have a positive signed distance.
dense2D<unsigned> brute(const dense2D<double>& p, const dense2D<unsigned>& c, const V3& o, const V3& n) {
  dense2D<unsigned> kept(c.rows, 0);
  for (unsigned j = 0; j < c.cols; ++j) {
    bool keep = true;
    for (unsigned i = 0; i < c.rows && c(i, j) != N && keep; ++i) {
      double s = 0.0;
      for (unsigned k = 0; k < p.rows && k < 3; ++k) s += (p(k, c(i, j)) - o[k]) * n[k];
      keep = s > 0.0;
    }
    if (keep) kept.push_back_col(c.col_ptr(j));
  }
  return kept;
}

// One tetrahedron with its base at height z0 and its apex one above.
dense2D<double> tet_at(double z0) { return pts(3, {0, 0, z0, 1, 0, z0, 0, 1, z0, 0, 0, z0 + 1}); }

}  // namespace

TEST(Clip, PlaneContactAndOrderOfChecks) {
  const dense2D<unsigned> t = con(4, {0, 1, 2, 3});
  dense2D<unsigned> out, three = con(3, {1, 2, 3}), o2;
  EXPECT_EQ(clip(tet_at(1.0), t, V3{{0, 0, 0}}, V3{{0, 0, 3}}, out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(clip(tet_at(0.0), t, V3{{0, 0, 0}}, V3{{0, 0, 3}}, out), 0);  // nodes on the plane
  EXPECT_EQ(clip(tet_at(0.0), t, V3{{0, 0, 0}}, V3{{0, 0, -1}}, out), 0);  // ... nor behind it
  EXPECT_EQ(out.cols, 1u);
  const dense2D<double> p = tet_at(1.0);
  EXPECT_EQ(clip(p, dense2D<unsigned>(4, 0), V3{{0, 0, 0}}, V3{{0, 0, 0}}, three), 0);
  EXPECT_EQ(clip(p, con(4, {0, 1, 2, 4}), V3{{0, 0, 0}}, V3{{0, 0, 0}}, three), -2);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-13}}, three), -4);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-12}}, three), -5);  // 1e-12 is long enough
  EXPECT_EQ(three, con(3, {1, 2, 3}));
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{NaN, 0, 1}}, o2), 0);  // a NaN length passes, keeps nothing
  EXPECT_TRUE(o2.cols == 0 && o2.rows == 4);
}

TEST(Clip, NullEntriesEndTheWalkAndOutputIsAppended) {
  const dense2D<double> p = pts(3, {0, 0, 1, 0, 0, -1});
  // (0, N, 1): node 1 is behind but never looked at; (N, 1, 1) kept whole; (1, 0, N) dropped.
  const dense2D<unsigned> c = con(3, {0, N, 1, N, 1, 1, 1, 0, N});
  dense2D<unsigned> out = con(3, {5, 5, 5, 6, 6, 6, 7, 7, 7}), tall(5, 0);
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, out), 0);
  EXPECT_EQ(out, con(3, {5, 5, 5, 6, 6, 6, 7, 7, 7, 0, N, 1, N, 1, 1}));
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, tall), 0);  // a taller empty output pads
  EXPECT_EQ(tall, con(5, {0, N, 1, N, N, N, 1, 1, N, N}));
}

TEST(Clip, CubeAgainstBruteForce) {
  dense2D<double> pos;
  dense2D<unsigned> tets, a, b;
  meshgen::tet_cube(4, pos, tets);
  const V3 o{{2.0, 0.0, 0.0}}, n{{1.0, 0.0, 0.0}}, m{{-1.0, 0.0, 0.0}};
  ASSERT_EQ(clip(pos, tets, o, n, a), 0);
  ASSERT_EQ(clip(pos, tets, o, m, b), 0);
  // x = 2 is a lattice plane: cells touching it are in neither half, one layer of 16 cells of 6
  // tetrahedra is on each side.
  EXPECT_EQ(a, brute(pos, tets, o, n));
  EXPECT_EQ(b, brute(pos, tets, o, m));
  EXPECT_TRUE(a.cols == 96 && b.cols == 96);
  // A slanted plane through nodes, into the connectivity itself.
  const V3 o2{{1.0, 2.0, 1.0}}, n2{{0.3, -1.0, 0.5}};
  dense2D<unsigned> self;
  self.copy(tets);
  ASSERT_EQ(clip(pos, self, o2, n2, self), 0);
  EXPECT_EQ(self.sub_matrix(0, tets.cols, 4, self.cols - tets.cols), brute(pos, tets, o2, n2));
}

TEST(Clip, TwoDimensionalMeshes) {
  const dense2D<double> p = pts(2, {1, 0, 2, 1, 1, 2, -1, 0});
  const dense2D<unsigned> tris = con(3, {0, 1, 2, 0, 2, 3});
  dense2D<unsigned> out, o2;
  EXPECT_EQ(clip(p, tris, V3{{5, 5, 5}}, V3{{0, 0, 1}}, out), 0);  // every s is 0
  EXPECT_EQ(out.cols, 0u);
  EXPECT_EQ(clip(p, tris, V3{{0, 0, 7}}, V3{{1, 0, 9}}, out), 0);
  EXPECT_EQ(out, con(3, {0, 1, 2}));
  // No coordinate row: every node is on the plane.
  EXPECT_EQ(clip(dense2D<double>(0, 4), con(2, {0, 1, N, 3}), V3{{0, 0, 0}}, V3{{1, 1, 1}}, o2), 0);
  EXPECT_EQ(o2, con(2, {N, 3}));
}
