// unique_indices and count_unique_indices: order of first occurrence, appending, exclusions,
// strided views, ranges, aliasing, and agreement with a hash-set computation.
#include <gtest/gtest.h>

#include <random>
#include <unordered_set>
#include <vector>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;

U1 list(std::initializer_list<unsigned> v) {
  U1 r(unsigned(v.size()));
  unsigned i = 0;
  for (unsigned x : v) r[i++] = x;
  return r;
}

std::vector<unsigned> values(const U1& v) { return std::vector<unsigned>(v.begin(), v.begin() + v.size); }

// Reference: entries in order, first occurrences only, nulls and excluded values skipped.
std::vector<unsigned> reference(const std::vector<unsigned>& entries, const std::vector<unsigned>& excluded) {
  std::unordered_set<unsigned> seen(excluded.begin(), excluded.end());
  seen.insert(NULL_INDEX);
  std::vector<unsigned> r;
  for (unsigned e : entries)
    if (seen.insert(e).second) r.push_back(e);
  return r;
}

}  // namespace

TEST(UniqueIndices, ListOrderExclusionAndAppending) {
  U1 out = list({1});
  ASSERT_EQ(0, unique_indices(out, list({3, 1, 3, NULL_INDEX, 2}), list({2})));
  // The entry already in out is not taken into the set: 1 is appended again.
  EXPECT_EQ((std::vector<unsigned>{1, 3, 1}), values(out));
  ASSERT_EQ(0, unique_indices(out, list({3, 1, 3, NULL_INDEX, 2}), list({2})));
  EXPECT_EQ((std::vector<unsigned>{1, 3, 1, 3, 1}), values(out));

  U1 none;
  EXPECT_EQ(0, unique_indices(none, list({NULL_INDEX, NULL_INDEX}), U1()));
  EXPECT_EQ(0, unique_indices(none, U1(), list({5})));
  EXPECT_EQ(0u, none.size);
  // Everything excluded: nothing appended.
  EXPECT_EQ(0, unique_indices(none, list({4, 5, 4}), list({5, 4, 9})));
  EXPECT_EQ(0u, none.size);
}

TEST(UniqueIndices, MatrixColumnByColumnAndStridedView) {
  U2 m(3, 2);
  const unsigned e[6] = {7, 2, 7, 5, NULL_INDEX, 2};
  for (unsigned k = 0; k < 6; ++k) m.storage->data[k] = e[k];
  U1 out;
  ASSERT_EQ(0, unique_indices(out, m, U1()));
  EXPECT_EQ((std::vector<unsigned>{7, 2, 5}), values(out));

  // A view of rows 1..2 of a 4 x 3 matrix: the rows outside the view are never visited.
  U2 big(4, 3);
  const unsigned b[12] = {100, 1, 2, 101, 102, 2, 3, 103, 104, 4, 1, 105};
  for (unsigned k = 0; k < 12; ++k) big.storage->data[k] = b[k];
  const U2 view = big.sub_matrix(1, 0, 2, 3);
  U1 got;
  ASSERT_EQ(0, unique_indices(got, view, list({3})));
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4}), values(got));
  EXPECT_EQ(4, count_unique_indices(view));
}

TEST(UniqueIndices, RangesAndTheirStatus) {
  U2 c[2] = {U2(2, 2), U2(1, 3)};
  const unsigned a[4] = {4, 1, 1, 9}, d[3] = {9, 0, 4};
  for (unsigned k = 0; k < 4; ++k) c[0].storage->data[k] = a[k];
  for (unsigned k = 0; k < 3; ++k) c[1].storage->data[k] = d[k];
  U1 out = list({42});
  ASSERT_EQ(0, unique_indices(out, c, c + 2, U1()));
  EXPECT_EQ((std::vector<unsigned>{42, 4, 1, 9, 0}), values(out));
  EXPECT_EQ(4, count_unique_indices(c, c + 2));

  EXPECT_EQ(0, unique_indices(out, c + 1, c + 1, U1()));
  EXPECT_EQ(-3, unique_indices(out, c + 2, c, U1()));
  EXPECT_EQ(5u, out.size);
  EXPECT_EQ(0, count_unique_indices(c, c));
  EXPECT_EQ(-2, count_unique_indices(c + 1, c));

  U2 empty(0, 5), nulls(2, 1, NULL_INDEX);
  EXPECT_EQ(0, count_unique_indices(empty));
  EXPECT_EQ(0, count_unique_indices(nulls));
}

TEST(UniqueIndices, OutputSharingTheInputBlock) {
  U1 v = list({5, 3, 5, 8});
  ASSERT_EQ(0, unique_indices(v, v, U1()));
  EXPECT_EQ((std::vector<unsigned>{5, 3, 5, 8, 5, 3, 8}), values(v));

  // out is a view on the front of a block whose tail is the list being scanned.
  U1 block = list({0, 0, 6, 7, 6, 9});
  U1 out = block.sub_vector(0, 1), ids = block.sub_vector(2, 4);
  ASSERT_EQ(0, unique_indices(out, ids, U1()));
  EXPECT_EQ((std::vector<unsigned>{0, 6, 7, 9}), values(out));
}

TEST(UniqueIndices, AgreesWithHashSetOnRandomData) {
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    // Small ranges use the bit array, huge sparse values the hash table.
    // Small ranges use the bit array, huge sparse values the hash table; the last kind grows
    // the bit array over a few thousand entries, then moves to the hash table.
    const unsigned range = round % 2 ? 50 + round * 37 : 0xFFFFFFF0u;
    const bool growing = round % 4 == 2;
    const unsigned n = growing ? 9000 : 1 + rng() % 3000;
    std::uniform_int_distribution<unsigned> val(0, range);
    std::vector<unsigned> entries(n), excluded(rng() % 20);
    for (unsigned i = 0; i < n; ++i) {
      const unsigned limit = i < 2500 ? 100 : i < 5000 ? 200000 : 0xFFFFFFF0u;
      entries[i] = rng() % 10 == 0 ? NULL_INDEX : growing ? rng() % limit : val(rng);
    }
    for (unsigned& e : excluded) e = rng() % 2 ? entries[rng() % n] : rng() % 2 ? rng() % 100 : val(rng);
    U1 ids(n), ex(unsigned(excluded.size()));
    for (unsigned i = 0; i < n; ++i) ids[i] = entries[i];
    for (unsigned i = 0; i < ex.size; ++i) ex[i] = excluded[i];
    U1 out;
    ASSERT_EQ(0, unique_indices(out, ids, ex));
    EXPECT_EQ(reference(entries, excluded), values(out));

    U2 m(3, n / 3);
    for (unsigned i = 0; i < 3 * (n / 3); ++i) m.storage->data[i] = entries[i];
    entries.resize(3 * (n / 3));
    EXPECT_EQ(int(reference(entries, {}).size()), count_unique_indices(m));
  }
}
