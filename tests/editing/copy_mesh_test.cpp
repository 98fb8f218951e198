#include <gtest/gtest.h>

#include <cmath>

#include "editing/edit_util.hpp"

using namespace edit_test;

static dense2D<double> square() { return pts(3, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}); }

TEST(CopyMesh, PlainCopyInFirstUseOrder) {
  dense2D<double> p = square();
  dense2D<unsigned> out = con(3, {9, 9, 9, 9, 9, 9});  // replaced, not appended to
  EXPECT_EQ(copy_mesh(p, out, con(3, {0, 1, 2})), 0);
  EXPECT_EQ(out, con(3, {4, 5, 6}));
  ASSERT_EQ(p.cols, 7u);
  EXPECT_EQ(p.sub_matrix(0, 4, 3, 3), p.sub_matrix(0, 0, 3, 3));
  // A repeated node is copied once, nulls stay, the output may be the source itself.
  dense2D<unsigned> self = con(3, {2, 0, 2, 3, N, 0});
  EXPECT_EQ(copy_mesh(p, self, self), 0);
  EXPECT_EQ(self, con(3, {7, 8, 7, 9, N, 8}));
  EXPECT_TRUE(p(0, 7) == 1.0 && p(1, 7) == 1.0 && p(0, 9) == 0.0 && p(1, 9) == 1.0);
}

TEST(CopyMesh, BadSourceChangesNothing) {
  dense2D<double> p = square();
  dense2D<unsigned> out;
  EXPECT_EQ(copy_mesh(p, out, con(2, {0, 4})), -3);
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 2, con(2, {0, 4})), -7);
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{1, 0, 0}}, con(2, {5, 0})), -5);
  EXPECT_EQ(copy_mesh(p, out, dense2D<unsigned>(3, 0)), 0);
  EXPECT_TRUE(p.cols == 4 && out.cols == 0);
}

TEST(CopyMesh, SeriesShiftsInStepsAndAppends) {
  dense2D<double> p = pts(2, {0, 0, 1, 0});
  dense2D<unsigned> out = con(2, {0, 1});
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 3, con(2, {0, 1})), 0);
  EXPECT_EQ(out, con(2, {0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(p, pts(2, {0, 0, 1, 0, 1, 0, 2, 0, 2, 0, 3, 0, 3, 0, 4, 0}));
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 0, con(2, {0, 1})), 0);
  EXPECT_TRUE(p.cols == 8 && out.cols == 4);
  // Copies appended to a taller output are padded with nulls.
  dense2D<double> q = pts(2, {0, 0});
  dense2D<unsigned> tall = con(3, {0, 0, 0});
  EXPECT_EQ(copy_mesh(q, tall, V2{{1, 0}}, V2{{0, 0}}, 0.0, 1, con(2, {0, 0})), 0);
  EXPECT_EQ(tall, con(3, {0, 0, 0, 1, 1, N}));
}

TEST(CopyMesh, SeriesRotatesAboutFixedCentreThenShifts) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = pts(2, {2, 1});
  dense2D<unsigned> out;
  EXPECT_EQ(copy_mesh(p, out, V2{{0, 0}}, V2{{1, 1}}, pi / 2, 2, con(1, {0})), 0);
  EXPECT_EQ(out, con(1, {1, 2}));
  // A quarter and a half turn about (1, 1).
  EXPECT_TRUE(std::hypot(p(0, 1) - 1, p(1, 1) - 2) < 1e-15 && std::hypot(p(0, 2), p(1, 2) - 1) < 1e-15);
  // 3-D: copy m is exactly rotate by m v, then translate by m step; the source stays.
  const V3 step{{0.5, 0.0, 2.0}}, c{{0.1, 0.2, 0.3}}, v{{0.3, -0.2, 0.7}};
  dense2D<double> q = square();
  dense2D<unsigned> o3;
  EXPECT_EQ(copy_mesh(q, o3, step, c, v, 2, con(4, {0, 1, 2, 3})), 0);
  EXPECT_EQ(o3, con(4, {4, 5, 6, 7, 8, 9, 10, 11}));
  for (unsigned m = 0; m <= 2; ++m) {
    dense2D<double> e = square();
    rotate(e, c, V3{{m * v[0], m * v[1], m * v[2]}});
    translate(e, V3{{m * step[0], m * step[1], m * step[2]}});
    EXPECT_EQ(q.sub_matrix(0, 4 * m, 3, 4), e) << m;
  }
}

TEST(CopySymMesh, MirrorsThroughPlaneAndLine) {
  dense2D<double> p = pts(3, {1, 2, 3, 0, 0, 1});
  dense2D<unsigned> out;
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{0, 0, 2}}, con(2, {1, 0})), 0);
  EXPECT_EQ(out, con(2, {2, 3}));  // node order kept: orientation reversed
  EXPECT_EQ(p, pts(3, {1, 2, 3, 0, 0, 1, 0, 0, -1, 1, 2, -3}));
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{0, 0, 0}}, con(2, {1, 0})), -4);
  EXPECT_EQ(p.cols, 4u);
  // 2-D: the line x + y = 1 maps the origin to (1, 1); 1-row coordinates are promoted.
  dense2D<double> q = pts(1, {0, 3});
  EXPECT_EQ(copy_sym_mesh(q, out, V2{{1, 0}}, V2{{1, 1}}, con(1, {0})), 0);
  EXPECT_EQ(q, pts(2, {0, 0, 3, 0, 1, 1}));
  dense2D<double> empty(3, 0);
  EXPECT_EQ(copy_sym_mesh(empty, out, V3{{0, 0, 0}}, V3{{0, 0, 0}}, con(1, {0})), 0);
}
