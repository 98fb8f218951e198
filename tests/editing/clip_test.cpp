#include <gtest/gtest.h>

#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using V3 = vector_fixed<double, 3>;
constexpr unsigned N = NULL_INDEX;

template <class T>
dense2D<T> mat(unsigned rows, std::initializer_list<T> v) {
  dense2D<T> m(rows, unsigned(v.size()) / rows);
  unsigned k = 0;
  for (T x : v) m.storage->data[k++] = x;
  return m;
}

// The columns of c whose nodes (up to the first null) all have a positive signed distance.
std::vector<unsigned> brute(const dense2D<double>& p, const dense2D<unsigned>& c, const V3& o, const V3& n) {
  std::vector<unsigned> kept;
  for (unsigned j = 0; j < c.cols; ++j) {
    bool keep = true;
    for (unsigned i = 0; i < c.rows && c(i, j) != N && keep; ++i) {
      double s = 0.0;
      for (unsigned k = 0; k < p.rows && k < 3; ++k) s += (p(k, c(i, j)) - o[k]) * n[k];
      keep = s > 0.0;
    }
    if (keep) kept.push_back(j);
  }
  return kept;
}

void expect_columns(const dense2D<unsigned>& out, unsigned from, const dense2D<unsigned>& c,
                    const std::vector<unsigned>& kept) {
  ASSERT_EQ(out.cols, from + kept.size());
  for (unsigned k = 0; k < kept.size(); ++k)
    for (unsigned i = 0; i < c.rows; ++i) ASSERT_EQ(out(i, from + k), c(i, kept[k]));
}

// One tetrahedron at height z0 + (0, 0, 0, 1) above the plane z = 0.
dense2D<double> tet_at(double z0) { return mat<double>(3, {0, 0, z0, 1, 0, z0, 0, 1, z0, 0, 0, z0 + 1}); }

}  // namespace

TEST(Clip, SingleTetrahedronAndPlaneContact) {
  const dense2D<unsigned> t = mat<unsigned>(4, {0, 1, 2, 3});
  dense2D<unsigned> out;
  EXPECT_EQ(clip(tet_at(1.0), t, V3{{0, 0, 0}}, V3{{0, 0, 3}}, out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(clip(tet_at(0.0), t, V3{{0, 0, 0}}, V3{{0, 0, 3}}, out), 0);  // three nodes on the plane
  EXPECT_EQ(out.cols, 1u);
  EXPECT_EQ(clip(tet_at(0.0), t, V3{{0, 0, 0}}, V3{{0, 0, -1}}, out), 0);  // ... nor behind it
  EXPECT_EQ(out.cols, 1u);
}

TEST(Clip, OrderOfChecks) {
  const dense2D<double> p = tet_at(1.0);
  const dense2D<unsigned> t = mat<unsigned>(4, {0, 1, 2, 3});
  dense2D<unsigned> out = mat<unsigned>(3, {1, 2, 3});
  EXPECT_EQ(clip(p, dense2D<unsigned>(4, 0), V3{{0, 0, 0}}, V3{{0, 0, 0}}, out), 0);
  EXPECT_EQ(clip(p, mat<unsigned>(4, {0, 1, 2, 4}), V3{{0, 0, 0}}, V3{{0, 0, 0}}, out), -2);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-13}}, out), -4);
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{0, 0, 1e-12}}, out), -5);  // 1e-12 is long enough
  EXPECT_EQ(out, mat<unsigned>(3, {1, 2, 3}));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  dense2D<unsigned> o2;
  EXPECT_EQ(clip(p, t, V3{{0, 0, 0}}, V3{{nan, 0, 1}}, o2), 0);  // NaN length passes, keeps nothing
  EXPECT_EQ(o2.cols, 0u);
  EXPECT_EQ(o2.rows, 4u);
}

TEST(Clip, NullEntriesEndTheWalk) {
  const dense2D<double> p = mat<double>(3, {0, 0, 1, 0, 0, -1});
  // (0, N, 1): node 1 is behind but never looked at; (N, 1, 1) kept whole; (1, 0, N) dropped.
  const dense2D<unsigned> c = mat<unsigned>(3, {0, N, 1, N, 1, 1, 1, 0, N});
  dense2D<unsigned> out = mat<unsigned>(3, {5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9});
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, out), 0);
  EXPECT_EQ(out, mat<unsigned>(3, {5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 0, N, 1, N, 1, 1}));
  // An empty output taller than the connectivity pads the kept columns with nulls.
  dense2D<unsigned> tall(5, 0);
  EXPECT_EQ(clip(p, c, V3{{0, 0, 0}}, V3{{0, 0, 1}}, tall), 0);
  EXPECT_EQ(tall, mat<unsigned>(5, {0, N, 1, N, N, N, 1, 1, N, N}));
}

TEST(Clip, ComplementaryHalvesOfACube) {
  dense2D<double> pos;
  dense2D<unsigned> tets;
  meshgen::tet_cube(4, pos, tets);
  const V3 o{{2.0, 0.0, 0.0}}, n{{1.0, 0.0, 0.0}}, m{{-1.0, 0.0, 0.0}};
  dense2D<unsigned> a, b;
  ASSERT_EQ(clip(pos, tets, o, n, a), 0);
  ASSERT_EQ(clip(pos, tets, o, m, b), 0);
  expect_columns(a, 0, tets, brute(pos, tets, o, n));
  expect_columns(b, 0, tets, brute(pos, tets, o, m));
  // x = 2 is a lattice plane: the cells touching it are in neither half, one layer of cells
  // (16 cells of 6 tetrahedra) is on each side.
  EXPECT_EQ(a.cols, 96u);
  EXPECT_EQ(b.cols, 96u);

  // A slanted plane through nodes, and the output holding the connectivity itself.
  const V3 o2{{1.0, 2.0, 1.0}}, n2{{0.3, -1.0, 0.5}};
  const std::vector<unsigned> want = brute(pos, tets, o2, n2);
  dense2D<unsigned> self;
  self.copy(tets);
  ASSERT_EQ(clip(pos, self, o2, n2, self), 0);
  expect_columns(self, tets.cols, tets, want);
}

TEST(Clip, TwoDimensionalMeshes) {
  const dense2D<double> p = mat<double>(2, {1, 0, 2, 1, 1, 2, -1, 0});
  const dense2D<unsigned> tris = mat<unsigned>(3, {0, 1, 2, 0, 2, 3});
  dense2D<unsigned> out;
  EXPECT_EQ(clip(p, tris, V3{{5, 5, 5}}, V3{{0, 0, 1}}, out), 0);
  EXPECT_EQ(out.cols, 0u);
  EXPECT_EQ(clip(p, tris, V3{{0, 0, 7}}, V3{{1, 0, 9}}, out), 0);
  EXPECT_EQ(out, mat<unsigned>(3, {0, 1, 2}));
  // No coordinate rows: every node is on the plane.
  dense2D<double> flat(0, 4);
  dense2D<unsigned> o2;
  EXPECT_EQ(clip(flat, mat<unsigned>(2, {0, 1, N, 3}), V3{{0, 0, 0}}, V3{{1, 1, 1}}, o2), 0);
  EXPECT_EQ(o2, mat<unsigned>(2, {N, 3}));
}
