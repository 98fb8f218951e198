#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "editing/edit_util.hpp"

using namespace edit_test;

// The rule written out: sort a copy, the first equal adjacent pair decides.
static bool degenerate(vu c, bool strict) {
  std::sort(c.begin(), c.end());
  auto it = std::adjacent_find(c.begin(), c.end());
  return it != c.end() && (*it != N || strict);
}

TEST(RemoveDegenerated, EmptyShapesAndViews) {
  U2 no_rows(0, 3), none;
  U1 map = U1(7, 9);
  EXPECT_EQ(0, remove_degenerated(no_rows, map, true));
  EXPECT_EQ((vu{0, 1, 2}), values(map));
  EXPECT_EQ(0, remove_degenerated(none, map, false));
  EXPECT_EQ(0u, map.size);

  // Rows 0..1 of a 3-row matrix: only those rows are compared and kept.
  U2 big = con(3, {1, 2, 1, 3, 3, 0, 5, 6, 5});
  U2 view = big.sub_matrix(0, 0, 2, 3);
  EXPECT_EQ(1, remove_degenerated(view, false));
  EXPECT_EQ((vu{1, 2, 5, 6}), entries(view));
  EXPECT_EQ(2u, view.ld);
}

TEST(RemoveDegenerated, AgreesWithSortedRuleOnRandomColumns) {
  std::mt19937 rng(3);
  // Row counts with a fixed-size test, the pairwise one, and the sorted one.
  for (unsigned rows : {1u, 2u, 3u, 4u, 5u, 6u, 8u, 16u, 17u, 27u, 40u}) {
    for (bool strict : {false, true}) {
      const unsigned cols = 300;
      vu e(rows * cols);
      for (unsigned& v : e) v = rng() % 100 < 8 ? N : rng() % (rows * 6);
      U2 m = con(rows, e);
      U1 map;
      vu kept, expect_map(cols, N);
      unsigned w = 0;
      for (unsigned j = 0; j < cols; ++j) {
        vu c(e.begin() + j * rows, e.begin() + (j + 1) * rows);
        if (degenerate(c, strict)) continue;
        kept.insert(kept.end(), c.begin(), c.end());
        expect_map[j] = w++;
      }
      EXPECT_EQ(int(cols - w), remove_degenerated(m, map, strict)) << rows << " " << strict;
      EXPECT_EQ(kept, entries(m));
      EXPECT_EQ(expect_map, values(map));
    }
  }
}
