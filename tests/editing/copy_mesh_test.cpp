#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;

template <class T>
dense2D<T> mat(unsigned rows, std::initializer_list<T> v) {
  dense2D<T> m(rows, unsigned(v.size()) / rows);
  unsigned k = 0;
  for (T x : v) m.storage->data[k++] = x;
  return m;
}

// Four nodes in the plane z = 0.
dense2D<double> square() { return mat<double>(3, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}); }

}  // namespace

TEST(CopyMesh, PlainCopyAppendsDistinctNodesInFirstUseOrder) {
  dense2D<double> p = square();
  dense2D<unsigned> out = mat<unsigned>(3, {9, 9, 9, 9, 9, 9});  // replaced, not appended to
  EXPECT_EQ(copy_mesh(p, out, mat<unsigned>(3, {0, 1, 2})), 0);
  EXPECT_EQ(out, mat<unsigned>(3, {4, 5, 6}));
  ASSERT_EQ(p.cols, 7u);
  for (unsigned j = 0; j < 3; ++j)
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(p(i, 4 + j), p(i, j));

  // First-occurrence order, a repeated node copied once, nulls kept.
  dense2D<double> q = square();
  const dense2D<unsigned> src = mat<unsigned>(3, {2, 0, 2, 3, NULL_INDEX, 0});
  EXPECT_EQ(copy_mesh(q, out, src), 0);
  EXPECT_EQ(out, mat<unsigned>(3, {4, 5, 4, 6, NULL_INDEX, 5}));
  ASSERT_EQ(q.cols, 7u);
  EXPECT_EQ(q(0, 4), 1.0);  // copy of node 2
  EXPECT_EQ(q(1, 6), 1.0);  // copy of node 3
  EXPECT_EQ(q(0, 6), 0.0);

  // The output may be the source itself.
  dense2D<unsigned> self = mat<unsigned>(2, {1, 3});
  EXPECT_EQ(copy_mesh(q, self, self), 0);
  EXPECT_EQ(self, mat<unsigned>(2, {7, 8}));
}

TEST(CopyMesh, BadSourceLeavesEverythingUnchanged) {
  dense2D<double> p = square();
  dense2D<unsigned> out;
  EXPECT_EQ(copy_mesh(p, out, mat<unsigned>(2, {0, 4})), -3);
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 2, mat<unsigned>(2, {0, 4})), -7);
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{1, 0, 0}}, mat<unsigned>(2, {5, 0})), -5);
  EXPECT_EQ(p.cols, 4u);
  EXPECT_EQ(out.cols, 0u);
  EXPECT_EQ(copy_mesh(p, out, dense2D<unsigned>(3, 0)), 0);  // an empty source copies nothing
  EXPECT_EQ(p.cols, 4u);
}

TEST(CopyMesh, SeriesTranslatesInStepsAndAppends) {
  dense2D<double> p = mat<double>(2, {0, 0, 1, 0});
  dense2D<unsigned> out = mat<unsigned>(2, {0, 1});
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 3, mat<unsigned>(2, {0, 1})), 0);
  EXPECT_EQ(out, mat<unsigned>(2, {0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(p, mat<double>(2, {0, 0, 1, 0, 1, 0, 2, 0, 2, 0, 3, 0, 3, 0, 4, 0}));
  EXPECT_EQ(copy_mesh(p, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 0, mat<unsigned>(2, {0, 1})), 0);
  dense2D<double> none;
  EXPECT_EQ(copy_mesh(none, out, V2{{1, 0}}, V2{{0, 0}}, 0.0, 2, mat<unsigned>(2, {0, 1})), 0);
  EXPECT_EQ(p.cols, 8u);
  EXPECT_EQ(out.cols, 4u);
}

TEST(CopyMesh, SeriesRotatesAboutFixedCentreThenShifts) {
  const double pi = std::acos(-1.0);
  dense2D<double> p = mat<double>(2, {2, 1});
  dense2D<unsigned> out;
  EXPECT_EQ(copy_mesh(p, out, V2{{0, 0}}, V2{{1, 1}}, pi / 2, 2, mat<unsigned>(1, {0})), 0);
  EXPECT_EQ(out, mat<unsigned>(1, {1, 2}));
  EXPECT_NEAR(p(0, 1), 1.0, 1e-15);  // a quarter turn about (1, 1)
  EXPECT_NEAR(p(1, 1), 2.0, 1e-15);
  EXPECT_NEAR(p(0, 2), 0.0, 1e-15);  // a half turn
  EXPECT_NEAR(p(1, 2), 1.0, 1e-15);

  // 3-D: copy i is exactly rotate by (i+1) v, then translate by (i+1) step.
  const V3 step{{0.5, 0.0, 2.0}}, c{{0.1, 0.2, 0.3}}, v{{0.3, -0.2, 0.7}};
  dense2D<double> q = square();
  dense2D<unsigned> o3;
  const dense2D<unsigned> quad = mat<unsigned>(4, {0, 1, 2, 3});
  EXPECT_EQ(copy_mesh(q, o3, step, c, v, 2, quad), 0);
  ASSERT_EQ(q.cols, 12u);
  EXPECT_EQ(o3, mat<unsigned>(4, {4, 5, 6, 7, 8, 9, 10, 11}));
  for (unsigned m = 1; m <= 2; ++m) {
    dense2D<double> e;
    e.copy(square());
    rotate(e, c, V3{{m * v[0], m * v[1], m * v[2]}});
    translate(e, V3{{m * step[0], m * step[1], m * step[2]}});
    for (unsigned j = 0; j < 4; ++j)
      for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(q(i, 4 * m + j), e(i, j));
  }
  for (unsigned j = 0; j < 4; ++j) EXPECT_EQ(q(2, j), 0.0);  // the source is not moved
}

TEST(CopySymMesh, MirrorsThroughPlaneAndLine) {
  dense2D<double> p = mat<double>(3, {1, 2, 3, 0, 0, 1});
  dense2D<unsigned> out;
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{0, 0, 2}}, mat<unsigned>(2, {1, 0})), 0);
  EXPECT_EQ(out, mat<unsigned>(2, {2, 3}));  // node order kept: orientation reversed
  EXPECT_EQ(p, mat<double>(3, {1, 2, 3, 0, 0, 1, 0, 0, -1, 1, 2, -3}));
  EXPECT_EQ(copy_sym_mesh(p, out, V3{{0, 0, 0}}, V3{{0, 0, 0}}, mat<unsigned>(2, {1, 0})), -4);
  EXPECT_EQ(p.cols, 4u);

  // 2-D: the line x + y = 1 maps the origin to (1, 1); 1-row coordinates are promoted.
  dense2D<double> q = mat<double>(1, {0, 3});
  EXPECT_EQ(copy_sym_mesh(q, out, V2{{1, 0}}, V2{{1, 1}}, mat<unsigned>(1, {0})), 0);
  ASSERT_EQ(q.rows, 2u);
  EXPECT_EQ(q, mat<double>(2, {0, 0, 3, 0, 1, 1}));
  dense2D<double> empty(3, 0);
  EXPECT_EQ(copy_sym_mesh(empty, out, V3{{0, 0, 0}}, V3{{0, 0, 0}}, mat<unsigned>(1, {0})), 0);
}
