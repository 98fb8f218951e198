// Grouping of mixed connectivities by node count.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;
namespace gk = kvo::gridkit;

TEST(SortElfes, TetHexTetExample) {
  U2 c = cols(8, {{0, 1, 2, 3, N_, N_, N_, N_}, {10, 11, 12, 13, 14, 15, 16, 17}, {4, 5, 6, 7, N_, N_, N_, N_}});
  U2 nb = cols(2, {{1, 2}, {0, N_}, {0, 7}});
  U1 counts, ends, pos;
  ASSERT_EQ(gk::sort_elfes(c, nb, counts, ends, pos), 0);
  EXPECT_EQ(entries(c), entries(cols(8, {{10, 11, 12, 13, 14, 15, 16, 17},
                                         {0, 1, 2, 3, N_, N_, N_, N_},
                                         {4, 5, 6, 7, N_, N_, N_, N_}})));
  EXPECT_EQ(vec(counts), (std::vector<unsigned>{8, 4}));
  EXPECT_EQ(vec(ends), (std::vector<unsigned>{1, 3}));
  EXPECT_EQ(vec(pos), (std::vector<unsigned>{1, 0, 2}));
  // Columns move with the elements and entries name new columns; 7 is outside and kept.
  EXPECT_EQ(entries(nb), (std::vector<unsigned>{1, N_, 0, 2, 1, 7}));
}

TEST(SortElfes, EmptyColumnsAreDroppedAndNoPairCase) {
  U2 c = cols(4, {{N_, 1, 2, 3}, {5, 6, 7, N_}, {N_, N_, N_, N_}, {8, 9, 10, 11}});
  U2 nb = cols(1, {{1}, {0}, {3}, {2}});
  U1 counts, ends, pos;
  ASSERT_EQ(gk::sort_elfes(c, nb, counts, ends, pos), 0);
  EXPECT_EQ(entries(c), (std::vector<unsigned>{8, 9, 10, 11, 5, 6, 7, N_}));
  EXPECT_EQ(vec(pos), (std::vector<unsigned>{N_, 1, N_, 0}));
  EXPECT_EQ(vec(counts), (std::vector<unsigned>{4, 3}));
  EXPECT_EQ(vec(ends), (std::vector<unsigned>{1, 2}));
  // Neighbours that were dropped become null.
  EXPECT_EQ(entries(nb), (std::vector<unsigned>{N_, N_}));

  U2 none = cols(3, {{N_, 1, 2}, {N_, N_, N_}});
  ASSERT_EQ(gk::sort_elfes(none, counts, ends, pos), 0);
  EXPECT_EQ(none.cols, 0u);
  EXPECT_EQ(vec(counts), (std::vector<unsigned>{N_}));
  EXPECT_EQ(vec(ends), (std::vector<unsigned>{0}));
  EXPECT_EQ(vec(pos), (std::vector<unsigned>{N_, N_}));

  U2 empty;
  ASSERT_EQ(gk::sort_elfes(empty, counts, ends, pos), 0);
  EXPECT_EQ(vec(counts), (std::vector<unsigned>{N_}));
  EXPECT_EQ(vec(ends), (std::vector<unsigned>{0}));
  EXPECT_TRUE(pos.empty());
}

TEST(SortElfes, NeighbourColumnMismatchChangesNothing) {
  U2 c = cols(4, {{0, 1, 2, N_}, {0, 1, 2, 3}});
  U2 nb = cols(4, {{1, N_, N_, N_}});
  U1 counts(2, 7u), ends, pos;
  const auto before = entries(c);
  EXPECT_EQ(gk::sort_elfes(c, nb, counts, ends, pos), -1);
  EXPECT_EQ(entries(c), before);
  EXPECT_EQ(vec(counts), (std::vector<unsigned>{7, 7}));
}

// Reference: stable sort by decreasing node count, then the renumbering.
TEST(SortElfes, MatchesStableSortOnRandomColumns) {
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    const unsigned r = 1 + rng() % 8, n = rng() % 60;
    U2 c(r, n), nb(3, n);
    for (unsigned e = 0; e < n; ++e) {
      const unsigned k = rng() % (r + 1);
      for (unsigned i = 0; i < r; ++i) c(i, e) = i < k ? rng() % 100 : (rng() % 4 == 0 ? 5u : N_);
      for (unsigned i = 0; i < 3; ++i) nb(i, e) = rng() % 3 == 0 ? N_ : rng() % (n + 2);
    }
    std::vector<std::pair<unsigned, unsigned>> pairs;
    for (unsigned e = 0; e < n; ++e) {
      unsigned k = 0;
      while (k < r && c(k, e) != N_) ++k;
      if (k) pairs.push_back({r - k, e});
    }
    std::sort(pairs.begin(), pairs.end());
    std::vector<unsigned> want_pos(n, N_), want_counts, want_ends, want_c, want_nb;
    for (unsigned p = 0; p < pairs.size(); ++p) {
      want_pos[pairs[p].second] = p;
      if (p > 0 && pairs[p].first != pairs[p - 1].first) {
        want_counts.push_back(r - pairs[p - 1].first);
        want_ends.push_back(p);
      }
    }
    want_counts.push_back(pairs.empty() ? N_ : r - pairs.back().first);
    want_ends.push_back(unsigned(pairs.size()));
    for (auto& pr : pairs) {
      auto col_c = column(c, pr.second);
      want_c.insert(want_c.end(), col_c.begin(), col_c.end());
      for (unsigned x : column(nb, pr.second)) want_nb.push_back(x < n ? want_pos[x] : x);
    }

    U2 cs = strided(c);  // the in-place moves must honour the leading dimension
    U1 counts, ends, pos;
    ASSERT_EQ(gk::sort_elfes(cs, nb, counts, ends, pos), 0);
    EXPECT_EQ(entries(cs), want_c) << "round " << round;
    EXPECT_EQ(entries(nb), want_nb) << "round " << round;
    EXPECT_EQ(vec(pos), want_pos);
    EXPECT_EQ(vec(counts), want_counts);
    EXPECT_EQ(vec(ends), want_ends);
  }
}
