#include <gtest/gtest.h>

#include <random>
#include <unordered_set>

#include "editing/edit_util.hpp"

using namespace edit_test;

// Entries in order, first occurrences only, nulls and excluded values skipped.
static vu reference(const vu& entries, const vu& excluded) {
  std::unordered_set<unsigned> seen(excluded.begin(), excluded.end());
  seen.insert(N);
  vu r;
  for (unsigned e : entries)
    if (seen.insert(e).second) r.push_back(e);
  return r;
}

TEST(UniqueIndices, AppendingExclusionViewsRangesAndAliasing) {
  U1 out = ids({1});
  for (int twice = 0; twice < 2; ++twice) ASSERT_EQ(0, unique_indices(out, ids({3, 1, 3, N, 2}), ids({2})));
  EXPECT_EQ((vu{1, 3, 1, 3, 1}), values(out));  // the entries already in out are not in the set
  U1 none;

  // Rows 1..2 of a 4 x 3 matrix: the rows outside the view are never visited.
  const U2 big = con(4, {100, 1, 2, 101, 102, 2, 3, 103, 104, 4, 1, 105});
  const U2 view = big.sub_matrix(1, 0, 2, 3);
  ASSERT_EQ(0, unique_indices(none, view, ids({3})));
  EXPECT_EQ((vu{1, 2, 4}), values(none));
  EXPECT_EQ(4, count_unique_indices(view));

  U2 c[2] = {con(2, {4, 1, 1, 9}), con(1, {9, 0, 4})};
  out = ids({42});
  ASSERT_EQ(0, unique_indices(out, c, c + 2, U1()));
  EXPECT_EQ((vu{42, 4, 1, 9, 0}), values(out));
  EXPECT_EQ(4, count_unique_indices(c, c + 2));
  EXPECT_EQ(0, unique_indices(out, c + 1, c + 1, U1()));
  EXPECT_EQ(-3, unique_indices(out, c + 2, c, U1()));
  EXPECT_EQ(5u, out.size);
  EXPECT_EQ(-2, count_unique_indices(c + 1, c));
  EXPECT_EQ(0, count_unique_indices(U2(2, 1, N)));

  // out is the list itself, or a view on the front of the block whose tail is scanned.
  U1 v = ids({5, 3, 5, 8});
  ASSERT_EQ(0, unique_indices(v, v, U1()));
  EXPECT_EQ((vu{5, 3, 5, 8, 5, 3, 8}), values(v));
  U1 block = ids({0, 0, 6, 7, 6, 9});
  U1 front = block.sub_vector(0, 1);
  ASSERT_EQ(0, unique_indices(front, block.sub_vector(2, 4), U1()));
  EXPECT_EQ((vu{0, 6, 7, 9}), values(front));
}

TEST(UniqueIndices, AgreesWithHashSetOnRandomData) {
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    // Small ranges use the bit array, huge sparse values the hash table; the last kind grows
    // the bit array over a few thousand entries, then moves to the hash table.
    const unsigned range = round % 2 ? 50 + round * 37 : 0xFFFFFFF0u;
    const bool growing = round % 4 == 2;
    const unsigned n = growing ? 9000 : 1 + rng() % 3000;
    std::uniform_int_distribution<unsigned> val(0, range);
    vu entries(n), excluded(rng() % 20);
    for (unsigned i = 0; i < n; ++i) {
      const unsigned limit = i < 2500 ? 100 : i < 5000 ? 200000 : 0xFFFFFFF0u;
      entries[i] = rng() % 10 == 0 ? N : growing ? rng() % limit : val(rng);
    }
    for (unsigned& e : excluded) e = rng() % 2 ? entries[rng() % n] : rng() % 2 ? rng() % 100 : val(rng);
    U1 out;
    ASSERT_EQ(0, unique_indices(out, ids(entries), ids(excluded)));
    EXPECT_EQ(reference(entries, excluded), values(out));

    entries.resize(3 * (n / 3));
    EXPECT_EQ(int(reference(entries, {}).size()), count_unique_indices(con(3, entries)));
  }
}
