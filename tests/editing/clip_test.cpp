#include <gtest/gtest.h>

#include "common/meshgen.hpp"
#include "editing/edit_util.hpp"

using namespace edit_test;

// The columns of c whose nodes up to the first null all have a positive signed distance.
static U2 brute(const D2& p, const U2& c, const V3& o, const V3& n) {
  U2 kept(c.rows, 0);
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

TEST(Clip, OrderOfChecks) {
  const D2 p = pts(3, {0, 0, 1, 1, 0, 1, 0, 1, 1, 0, 0, 2});
  const U2 t = con(4, {0, 1, 2, 3});
  U2 three = con(3, {1, 2, 3}), o2;
  EXPECT_EQ(clip(p, U2(4, 0), V3{{0, 0, 0}}, V3{{0, 0, 0}}, three), 0);
  EXPECT_EQ(clip(p, con(4, {0, 1, 2, 4}), V3{{0, 0, 0}}, V3{{0, 0, 0}}, three), -2);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-13}}, three), -4);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-12}}, three), -5);  // 1e-12 is long enough
  EXPECT_EQ(three, con(3, {1, 2, 3}));
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{NaN, 0, 1}}, o2), 0);  // a NaN length passes, keeps nothing
  EXPECT_TRUE(o2.cols == 0 && o2.rows == 4);
}

TEST(Clip, NullEntriesEndTheWalkAndOutputIsAppended) {
  const D2 p = pts(3, {0, 0, 1, 0, 0, -1});
  // (0, N, 1): node 1 is behind but never looked at; (N, 1, 1) kept whole; (1, 0, N) dropped.
  const U2 c = con(3, {0, N, 1, N, 1, 1, 1, 0, N});
  U2 out = con(3, {5, 5, 5, 6, 6, 6, 7, 7, 7}), tall(5, 0);
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, out), 0);
  EXPECT_EQ(out, con(3, {5, 5, 5, 6, 6, 6, 7, 7, 7, 0, N, 1, N, 1, 1}));
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, tall), 0);  // a taller empty output pads
  EXPECT_EQ(tall, con(5, {0, N, 1, N, N, N, 1, 1, N, N}));
}

TEST(Clip, AgainstBruteForceIn3DAnd2D) {
  D2 pos;
  U2 tets, a, b;
  meshgen::tet_cube(4, pos, tets);
  const V3 o{{2.0, 0.0, 0.0}}, n{{1.0, 0.0, 0.0}}, m{{-1.0, 0.0, 0.0}};
  ASSERT_EQ(clip(pos, tets, o, n, a), 0);
  ASSERT_EQ(clip(pos, tets, o, m, b), 0);
  // x = 2 is a lattice plane: cells touching it are in neither half; 16 cells of 6 tets on each side.
  EXPECT_EQ(a, brute(pos, tets, o, n));
  EXPECT_EQ(b, brute(pos, tets, o, m));
  EXPECT_TRUE(a.cols == 96 && b.cols == 96);
  // A slanted plane through nodes, into the connectivity itself.
  const V3 o2{{1.0, 2.0, 1.0}}, n2{{0.3, -1.0, 0.5}};
  U2 self;
  self.copy(tets);
  ASSERT_EQ(clip(pos, self, o2, n2, self), 0);
  EXPECT_EQ(self.sub_matrix(0, tets.cols, 4, self.cols - tets.cols), brute(pos, tets, o2, n2));
  // 2-D coordinates, and no coordinate row at all (every node on the plane).
  U2 out, o3;
  EXPECT_EQ(clip(pts(2, {1, 0, 2, 1, 1, 2, -1, 0}), con(3, {0, 1, 2, 0, 2, 3}), V3{{0, 0, 7}}, V3{{1, 0, 9}}, out), 0);
  EXPECT_EQ(out, con(3, {0, 1, 2}));
  EXPECT_EQ(clip(D2(0, 4), con(2, {0, 1, N, 3}), V3{{0, 0, 0}}, V3{{1, 1, 1}}, o3), 0);
  EXPECT_EQ(o3, con(2, {N, 3}));
}
