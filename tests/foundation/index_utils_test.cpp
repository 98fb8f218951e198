#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/builders.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;
using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;
constexpr unsigned N = NULL_INDEX;

using testbuild::cols;
using testbuild::vec;

TEST(Foundation, VersionAndTables) {
  EXPECT_STREQ(version(), "4.4.1");
  EXPECT_EQ(nodes_per_element(ET_HEXA27), 27u);
  EXPECT_EQ(vertices_per_element(ET_HEXA27), 8u);
  EXPECT_EQ(nodes_per_element(ET_EDGE_ANY), 0u);
  EXPECT_EQ(vertices_per_element(ET_EDGE_ANY), 2u);
  EXPECT_EQ(nodes_per_element(ET_PYRAMID14), 14u);
  EXPECT_EQ(vertices_per_element(ET_WEDGE18), 6u);
}

TEST(MaxID, NullsEmptyAndStridedViews) {
  EXPECT_EQ(max_ID(U1()), N);
  EXPECT_EQ(max_ID(vec({N, N})), 0u);
  EXPECT_EQ(max_ID(vec({0})), 0u);
  EXPECT_EQ(max_ID(vec({3, N, 0xFFFFFFFEu, 1})), 0xFFFFFFFEu);
  EXPECT_EQ(max_ID(U2()), N);
  EXPECT_EQ(max_ID(U2(0, 5)), N);
  U2 m = cols(3, {{1, 2, 3}, {4, N, 6}, {90, 8, 9}});
  EXPECT_EQ(max_ID(m), 90u);
  // The view leaves out row 0, so 90 is not seen.
  EXPECT_EQ(max_ID(m.sub_matrix(1, 0, 2, 3)), 9u);
}

TEST(CheckIDs, PlainBounds) {
  EXPECT_TRUE(check_IDs(vec({5, N}), 6));
  EXPECT_FALSE(check_IDs(vec({6}), 6));
  EXPECT_TRUE(check_IDs(vec({N, 0xFFFFFFFEu}), N));
  EXPECT_TRUE(check_IDs(U1(), 0));
  EXPECT_FALSE(check_IDs(vec({0}), 0));
  EXPECT_TRUE(check_IDs(vec({N}), 0));
  U2 m = cols(2, {{0, 1}, {N, 2}});
  EXPECT_TRUE(check_IDs(m, 3));
  EXPECT_FALSE(check_IDs(m, 2));
  EXPECT_TRUE(check_IDs(m.sub_matrix(0, 0, 1, 2), 1));  // row 1 is outside the view
}

TEST(CheckIDs, TypedRules) {
  U2 quad_rows = cols(4, {{0, 1, 2, 3}});
  EXPECT_TRUE(check_IDs(quad_rows, ET_TRIA3, N));  // bound NULL_INDEX: any shape
  EXPECT_FALSE(check_IDs(quad_rows, ET_TRIA3, 100));
  EXPECT_TRUE(check_IDs(quad_rows, ET_QUAD4, 4));
  EXPECT_FALSE(check_IDs(quad_rows, ET_QUAD4, 3));
  EXPECT_FALSE(check_IDs(cols(4, {{0, 1, 2, N}}), ET_QUAD4, 100));  // nulls rejected
  EXPECT_FALSE(check_IDs(cols(1, {{0}}), ET_NONE, 5));
  EXPECT_FALSE(check_IDs(cols(2, {{0, 1}}), ET_EDGE_ANY, 5));
  EXPECT_TRUE(check_IDs(cols(2, {{0, 1}}), ET_EDGE_ANY, N));
  EXPECT_TRUE(check_IDs(U2(3, 0), ET_HEXA8, 0));

  // Mixed faces: a null 4th node makes a triangle; nulls nowhere else, not even with bound N.
  EXPECT_TRUE(check_IDs(cols(4, {{1, 2, 3, N}}), ET_FACE_MIXED, 4));
  EXPECT_FALSE(check_IDs(cols(4, {{1, N, 3, 4}}), ET_FACE_MIXED, 5));
  EXPECT_FALSE(check_IDs(cols(4, {{N, 1, 2, 3}}), ET_FACE_MIXED, N));
  EXPECT_FALSE(check_IDs(cols(4, {{1, 2, 3, 4}}), ET_FACE_MIXED, 4));
  EXPECT_TRUE(check_IDs(cols(3, {{1, 2, 3}}), ET_FACE_MIXED, 4));
  EXPECT_FALSE(check_IDs(cols(5, {{1, 2, 3, 4, 5}}), ET_FACE_MIXED, N));

  // Mixed solids: nulls may start at local index 4, 5 or 6 and must run to the end.
  EXPECT_TRUE(check_IDs(cols(8, {{0, 1, 2, 3, 4, N, N, N}}), ET_SOLID_MIXED, 5));
  EXPECT_TRUE(check_IDs(cols(8, {{0, 1, 2, 3, N, N, N, N}}), ET_SOLID_MIXED, 4));
  EXPECT_FALSE(check_IDs(cols(8, {{0, 1, 2, 3, 4, 5, 6, N}}), ET_SOLID_MIXED, 10));
  EXPECT_FALSE(check_IDs(cols(8, {{0, 1, 2, 3, N, 5, N, N}}), ET_SOLID_MIXED, 10));
  EXPECT_FALSE(check_IDs(cols(8, {{0, 1, 2, N, N, N, N, N}}), ET_SOLID_MIXED, 10));
  EXPECT_FALSE(check_IDs(cols(7, {{0, 1, 2, 3, 4, 5, 6}}), ET_SOLID_MIXED, 10));
  EXPECT_TRUE(check_IDs(cols(5, {{0, 1, 2, 3, N}, {0, 1, 2, 3, 4}}), ET_SOLID_MIXED, 5));
  EXPECT_FALSE(check_IDs(cols(5, {{0, 1, 2, 3, N}, {0, 1, 2, 3, 5}}), ET_SOLID_MIXED, 5));
}

TEST(ShiftIndices, VectorKeepsNullsMatrixOnlyForMixedTypes) {
  U1 v = vec({0, N, 5});
  EXPECT_EQ(shift_indices(v, 2), 0);
  EXPECT_EQ(v, vec({2, N, 7}));
  EXPECT_EQ(shift_indices(v, -3), 0);
  EXPECT_EQ(v, vec({N, N, 4}));  // 2 - 3 wraps onto NULL_INDEX itself

  U2 t = cols(3, {{0, N, 2}});
  shift_indices(t, 1, ET_TRIA3);
  EXPECT_EQ(t(1, 0), 0u);  // the null wraps to shift - 1
  EXPECT_EQ(t(2, 0), 3u);
  U2 f = cols(4, {{0, 1, 2, N}});
  shift_indices(f, 1, ET_FACE_MIXED);
  EXPECT_EQ(f(3, 0), N);
  EXPECT_EQ(f(0, 0), 1u);

  // Strided view: only the view's rows move, in the column-by-column path.
  U2 m = cols(3, {{1, 2, 3}, {4, 5, 6}});
  U2 view = m.sub_matrix(0, 0, 2, 2);
  shift_indices(view, 10, ET_EDGE2);
  EXPECT_EQ(m(0, 1), 14u);
  EXPECT_EQ(m(2, 0), 3u);
  EXPECT_EQ(m(2, 1), 6u);
}

TEST(ChangeIndices, OutOfRangeEntriesStay) {
  U1 table = vec({5, 6, N});
  U1 v = vec({0, 2, 3, N, 1});
  change_indices(v, table);
  EXPECT_EQ(v, vec({5, N, 3, N, 6}));
  U2 m = cols(2, {{1, 0}, {7, 2}});
  change_indices(m, table);
  EXPECT_EQ(m(0, 0), 6u);
  EXPECT_EQ(m(1, 0), 5u);
  EXPECT_EQ(m(0, 1), 7u);
  EXPECT_EQ(m(1, 1), N);
}

TEST(Permutation, ScatterRulesAndRebinding) {
  U1 v = vec({10, 11, 12, 13});
  U1 other(v);
  EXPECT_EQ(permutation(v, vec({0, 1, 2, 3})), 0);
  EXPECT_EQ(v, vec({10, 11, 12, 13}));
  EXPECT_EQ(permutation(v, vec({2, 0})), 0);  // shorter perm: only the first two move
  EXPECT_EQ(v, vec({11, 11, 10, 13}));
  EXPECT_EQ(other, vec({10, 11, 12, 13}));  // v was rebound; old views keep the old block
  U1 w = vec({1, 2, 3});
  permutation(w, vec({2, 2, 9, 0}));  // both 0 and 1 target 2: the later wins; 9 is ignored
  EXPECT_EQ(w, vec({1, 2, 2}));
  dense1D<double> d(3);
  d[0] = 0.5; d[1] = 1.5; d[2] = 2.5;
  permutation(d, vec({1, 2, 0}));
  EXPECT_EQ(d[0], 2.5);
  EXPECT_EQ(d[1], 0.5);
  U1 empty;
  EXPECT_EQ(permutation(empty, vec({0})), 0);
}
