// Face-connected components.
#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "common/meshgen.hpp"
#include "topology/topo_util.hpp"

using namespace topo_test;
namespace gk = kvo::gridkit;

namespace {

// Breadth-first fill with a queue that may hold repeats, visited marks taken at the pop.
void reference(const U2& nb, std::vector<unsigned>& list, std::vector<unsigned>& offsets) {
  const unsigned n = nb.cols;
  std::vector<bool> visited(n, false);
  list.clear();
  offsets = {0};
  unsigned s = 0;
  while (list.size() < n) {
    while (visited[s]) ++s;
    std::deque<unsigned> q{s};
    while (!q.empty()) {
      const unsigned e = q.front();
      q.pop_front();
      if (visited[e]) continue;
      visited[e] = true;
      list.push_back(e);
      for (unsigned r = 0; r < nb.rows; ++r) {
        const unsigned m = nb(r, e);
        if (m < n && !visited[m]) q.push_back(m);
      }
    }
    offsets.push_back(unsigned(list.size()));
  }
}

}  // namespace

TEST(Subdomains, TwoLinkedOneAlone) {
  const U2 nb = cols(1, {{2}, {N_}, {0}});
  U1 list, off;
  ASSERT_EQ(gk::get_subdomains(nb, list, off), 0);
  EXPECT_EQ(vec(list), (std::vector<unsigned>{0, 2, 1}));
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, 2, 3}));

  const U2 none(3, 0);
  ASSERT_EQ(gk::get_subdomains(none, list, off), 0);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0}));
}

TEST(Subdomains, RandomMatricesAgainstQueueWithRepeats) {
  std::mt19937 rng(11);
  for (int round = 0; round < 50; ++round) {
    const unsigned n = rng() % 40, rows = 1 + rng() % 4;
    U2 nb(rows, n);
    for (unsigned e = 0; e < n; ++e)
      for (unsigned r = 0; r < rows; ++r) {
        const unsigned k = rng() % 10;
        // Nulls, out-of-range entries (n itself and beyond), self links and one-way links.
        nb(r, e) = k < 3 ? N_ : k == 3 ? n + rng() % 2 : k == 4 ? e : unsigned(rng() % (n ? n : 1));
      }
    std::vector<unsigned> want_list, want_off;
    reference(nb, want_list, want_off);
    U1 list, off;
    ASSERT_EQ(gk::get_subdomains(round % 2 ? strided(nb) : nb, list, off), 0);
    EXPECT_EQ(vec(list), want_list);
    EXPECT_EQ(vec(off), want_off);

    // The in-place form reorders both matrices and renames the neighbours.
    U2 c(2, n);
    for (unsigned e = 0; e < n; ++e) c(0, e) = e, c(1, e) = 1000 + e;
    U2 nb2 = nb;
    ASSERT_EQ(gk::get_subdomains(c, nb2, off), 0);
    EXPECT_EQ(vec(off), want_off);
    std::vector<unsigned> inverse(n);
    for (unsigned k = 0; k < n; ++k) inverse[want_list[k]] = k;
    for (unsigned k = 0; k < n; ++k) {
      EXPECT_EQ(c(0, k), want_list[k]);
      EXPECT_EQ(c(1, k), 1000 + want_list[k]);
      for (unsigned r = 0; r < rows; ++r) {
        const unsigned m = nb(r, want_list[k]);
        EXPECT_EQ(nb2(r, k), m < n ? inverse[m] : m);
      }
    }
  }
}

TEST(Subdomains, InPlaceOnTwoSeparateCubes) {
  kvo::dense2D<double> pos;
  U2 a, b;
  meshgen::tet_cube(2, pos, a);
  meshgen::tet_cube(1, pos, b);
  // Interleave the columns of the two cubes (the second's nodes shifted past the first's).
  U2 c(4, a.cols + b.cols);
  unsigned ia = 0, ib = 0;
  for (unsigned e = 0; e < c.cols; ++e) {
    const bool from_b = (e % 3 == 1 && ib < b.cols) || ia == a.cols;
    for (unsigned i = 0; i < 4; ++i) c(i, e) = from_b ? b(i, ib) + 1000 : a(i, ia);
    from_b ? ++ib : ++ia;
  }
  U2 nb;
  U1 off;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TETRA4, false, nb), 0);
  ASSERT_EQ(gk::get_subdomains(c, nb, off), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, a.cols, a.cols + b.cols}));
  for (unsigned e = 0; e < c.cols; ++e) EXPECT_EQ(c(0, e) >= 1000, e >= a.cols);
  // The renamed neighbour matrix is the one of the reordered mesh.
  U2 again;
  ASSERT_EQ(gk::get_neighbors(c, gk::ET_TETRA4, false, again), 0);
  EXPECT_EQ(entries(nb), entries(again));
}

TEST(Subdomains, ColumnCountMismatchIsRejected) {
  U2 c = cols(3, {{0, 1, 2}});
  U2 nb = cols(3, {{N_, N_, N_}, {N_, N_, N_}});
  U1 off(1, 5u);
  EXPECT_EQ(gk::get_subdomains(c, nb, off), -1);
  EXPECT_EQ(c.cols, 1u);
  EXPECT_EQ(nb.cols, 2u);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{5}));
}
