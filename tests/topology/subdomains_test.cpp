#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;

TEST(Subdomains, RandomMatricesAgainstAQueueWithRepeats) {
  std::mt19937 rng(11);
  for (int round = 0; round < 50; ++round) {
    // Nulls, out-of-range entries (the column count and beyond), self and one-way links.
    const unsigned n = rng() % 40, rows = 1 + rng() % 4;
    U2 nb(rows, n);
    for (unsigned e = 0; e < n; ++e)
      for (unsigned r = 0; r < rows; ++r) {
        const unsigned k = rng() % 10;
        nb(r, e) = k < 3 ? N_ : k == 3 ? n + rng() % 2 : k == 4 ? e : unsigned(rng() % n);
      }
    // Breadth-first fill marking elements when they leave a queue that may repeat them.
    vu list, offsets{0};
    std::vector<bool> seen(n);
    for (unsigned s = 0; s < n; ++s) {
      if (seen[s]) continue;
      for (std::deque<unsigned> q{s}; !q.empty(); q.pop_front()) {
        if (seen[q.front()]) continue;
        seen[q.front()] = true;
        list.push_back(q.front());
        for (unsigned r = 0; r < rows; ++r)
          if (nb(r, q.front()) < n && !seen[nb(r, q.front())]) q.push_back(nb(r, q.front()));
      }
      offsets.push_back(unsigned(list.size()));
    }
    U1 got_list, got_off;
    ASSERT_EQ(gk::get_subdomains(round % 2 ? strided(nb) : nb, got_list, got_off), 0);
    EXPECT_EQ(vec(got_list), list);
    EXPECT_EQ(vec(got_off), offsets);

    // In place: both matrices reordered, neighbours renamed to the new columns.
    U2 c(1, n), nb2;
    for (unsigned e = 0; e < n; ++e) c(0, e) = 1000 + e;
    nb2.copy(nb);
    ASSERT_EQ(gk::get_subdomains(c, nb2, got_off), 0);
    EXPECT_EQ(vec(got_off), offsets);
    vu inverse(n);
    for (unsigned k = 0; k < n; ++k) inverse[list[k]] = k;
    for (unsigned k = 0; k < n; ++k) {
      EXPECT_EQ(c(0, k), 1000 + list[k]);
      for (unsigned r = 0; r < rows; ++r) EXPECT_EQ(nb2(r, k), nb(r, list[k]) < n ? inverse[nb(r, list[k])] : nb(r, list[k]));
    }
  }
}

TEST(Subdomains, EmptyAndBadShapes) {
  U1 off, list;
  ASSERT_EQ(gk::get_subdomains(U2(3, 0), list, off), 0);
  EXPECT_EQ(vec(off), (vu{0}));
  off = U1(1, 5u);
  U2 c(4, 54, 0u), three(4, 3, N_);
  EXPECT_EQ(gk::get_subdomains(c, three, off), -1);  // column counts differ
  EXPECT_EQ(vec(off), (vu{5}));
  EXPECT_EQ(c.cols, 54u);
}
