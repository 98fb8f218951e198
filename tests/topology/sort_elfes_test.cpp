#include <gtest/gtest.h>

#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;

TEST(SortElfes, NullColumnsAndMismatchedNeighbours) {
  U1 counts, ends, pos;
  U2 nulls = cols(3, {{N_, 1, 2}, {N_, N_, N_}});
  ASSERT_EQ(gk::sort_elfes(nulls, counts, ends, pos), 0);
  EXPECT_EQ(nulls.cols, 0u);
  EXPECT_EQ(vec(counts), (vu{N_}));
  EXPECT_EQ(vec(ends), (vu{0}));
  EXPECT_EQ(vec(pos), (vu{N_, N_}));

  U2 two = cols(4, {{0, 1, 2, N_}, {0, 1, 2, 3}}), nb = cols(2, {{1, 2}, {0, N_}, {0, 7}});
  EXPECT_EQ(gk::sort_elfes(two, nb, counts, ends, pos), -1);  // neighbour columns differ
  EXPECT_EQ(column(two, 0), (vu{0, 1, 2, N_}));
}

TEST(SortElfes, RandomColumnsAgainstAStableSort) {
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    // Leading nodes then nulls, sometimes a node after a null (ignored), empty columns dropped.
    const unsigned r = 1 + rng() % 8, n = rng() % 60;
    U2 c(r, n), nb(3, n);
    for (unsigned e = 0; e < n; ++e) {
      const unsigned k = rng() % (r + 1);
      for (unsigned i = 0; i < r; ++i) c(i, e) = i < k ? rng() % 100 : (rng() % 4 == 0 ? 5u : N_);
      for (unsigned i = 0; i < 3; ++i) nb(i, e) = rng() % 3 == 0 ? N_ : rng() % (n + 2);
    }
    std::vector<std::pair<unsigned, unsigned>> pairs;
    for (unsigned e = 0; e < n; ++e) {
      const vu ce = column(c, e);
      const unsigned k = unsigned(std::find(ce.begin(), ce.end(), N_) - ce.begin());
      if (k) pairs.push_back({r - k, e});
    }
    std::sort(pairs.begin(), pairs.end());
    vu want_pos(n, N_), want_counts, want_ends, want_c, want_nb;
    for (unsigned p = 0; p < pairs.size(); ++p) {
      want_pos[pairs[p].second] = p;
      if (p + 1 == pairs.size() || pairs[p + 1].first != pairs[p].first)
        want_counts.push_back(r - pairs[p].first), want_ends.push_back(p + 1);
    }
    if (pairs.empty()) want_counts = {N_}, want_ends = {0};
    for (auto& pr : pairs) {
      const vu ce = column(c, pr.second);
      want_c.insert(want_c.end(), ce.begin(), ce.end());
      for (unsigned x : column(nb, pr.second)) want_nb.push_back(x < n ? want_pos[x] : x);
    }
    U2 cs = strided(c);  // the moves must honour the leading dimension
    U1 counts, ends, pos;
    ASSERT_EQ(gk::sort_elfes(cs, nb, counts, ends, pos), 0);
    EXPECT_EQ(entries(cs), want_c);
    EXPECT_EQ(entries(nb), want_nb);
    EXPECT_EQ(vec(pos), want_pos);
    EXPECT_EQ(vec(counts), want_counts);
    EXPECT_EQ(vec(ends), want_ends);
  }
}
