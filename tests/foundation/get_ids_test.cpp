// get_IDs on ID lists and on connectivities: hand-made cases, then inputs on both sides of the
// size where one hash table gives way to blocks, against plain models of the definition.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <unordered_map>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/builders.hpp"

using namespace kvo::gridkit;
using U1 = kvo::dense1D<unsigned, 16>;
using U2 = kvo::dense2D<unsigned>;
constexpr unsigned N = NULL_INDEX;

namespace {

using testbuild::cols;
using testbuild::vec;

// The definition: last position of each ID in IDs1; each j of IDs2 looks it up in turn.
void model_ids(const U1& x, const U1& y, std::vector<unsigned>& m21, std::vector<unsigned>& m12) {
  std::unordered_map<unsigned, unsigned> last;
  for (unsigned i = 0; i < x.size; ++i)
    if (x[i] != N) last[x[i]] = i;
  m21.assign(y.size, N);
  m12.assign(x.size, N);
  for (unsigned j = 0; j < y.size; ++j) {
    auto it = last.find(y[j]);
    if (it == last.end()) continue;
    m21[j] = it->second;
    m12[it->second] = j;
  }
}

void expect_model_ids(const U1& x, const U1& y) {
  std::vector<unsigned> w21, w12;
  model_ids(x, y, w21, w12);
  U1 m21, m12;
  ASSERT_EQ(get_IDs(x, y, m21, m12), 0);
  ASSERT_EQ(m21.size, y.size);
  ASSERT_EQ(m12.size, x.size);
  for (unsigned j = 0; j < y.size; ++j) ASSERT_EQ(m21[j], w21[j]) << "j " << j;
  for (unsigned i = 0; i < x.size; ++i) ASSERT_EQ(m12[i], w12[i]) << "i " << i;
}

// IDs drawn from `range` values below `top` (so repeated on both sides), some of them null.
U1 random_ids(std::mt19937& rng, unsigned n, unsigned range, unsigned top, unsigned null_percent) {
  U1 v(n);
  for (unsigned i = 0; i < n; ++i) v[i] = rng() % 100 < null_percent ? N : top - 1 - rng() % range;
  return v;
}

// Rotation so that the first occurrence of the largest entry comes first.
std::vector<unsigned> rotated(const std::vector<unsigned>& c) {
  const auto best = std::max_element(c.begin(), c.end()) - c.begin();
  std::vector<unsigned> r(c.size());
  for (std::size_t i = 0; i < c.size(); ++i) r[i] = c[(best + i) % c.size()];
  return r;
}

std::vector<unsigned> column(const U2& m, unsigned j) { return {m.col_ptr(j), m.col_ptr(j) + m.rows}; }

// The definition of the column match, tried against every connect1 column with the same nodes,
// in ascending order (a column can match only those).
bool same_column(const std::vector<unsigned>& c2, const std::vector<unsigned>& c1, bool strict) {
  if (strict) return c1 == c2;
  const std::vector<unsigned> a = rotated(c2), b = rotated(c1);
  if (a == b) return true;
  return a == rotated(std::vector<unsigned>(b.rbegin(), b.rend()));
}

std::vector<unsigned> sorted(std::vector<unsigned> c) {
  std::sort(c.begin(), c.end());
  return c;
}

void expect_model_columns(const U2& c1, const U2& c2, bool strict) {
  std::map<std::vector<unsigned>, std::vector<unsigned>> by_nodes;
  for (unsigned k = 0; k < c1.cols; ++k) by_nodes[sorted(column(c1, k))].push_back(k);
  std::vector<unsigned> w21(c2.cols, N), w12(c1.cols, N);
  for (unsigned j = 0; j < c2.cols; ++j) {
    const std::vector<unsigned> cj = column(c2, j);
    for (unsigned k : by_nodes[sorted(cj)])
      if (same_column(cj, column(c1, k), strict)) {
        w21[j] = k;
        w12[k] = j;
        break;
      }
  }
  U1 m21, m12;
  ASSERT_EQ(get_IDs(c1, c2, m21, m12, strict), 0);
  ASSERT_EQ(m21.size, c2.cols);
  ASSERT_EQ(m12.size, c1.cols);
  for (unsigned j = 0; j < c2.cols; ++j) ASSERT_EQ(m21[j], w21[j]) << "column " << j << " of connect2";
  for (unsigned k = 0; k < c1.cols; ++k) ASSERT_EQ(m12[k], w12[k]) << "column " << k << " of connect1";
}

// n columns of `rows` nodes below `nodes`; connect2 takes connect1's columns (and a few others)
// shuffled, rotated and sometimes reversed.
void random_columns(std::mt19937& rng, unsigned rows, unsigned n, unsigned nodes, U2& c1, U2& c2) {
  c1.resize(rows, n);
  for (unsigned j = 0; j < n; ++j)
    for (unsigned i = 0; i < rows; ++i) c1(i, j) = rng() % nodes;
  c2.resize(rows, n + n / 8);
  for (unsigned j = 0; j < c2.cols; ++j) {
    std::vector<unsigned> c(rows);
    if (j < n) {
      c = column(c1, rng() % n);
      std::rotate(c.begin(), c.begin() + rng() % rows, c.end());
      if (rng() % 3 == 0) std::reverse(c.begin(), c.end());
    } else {
      for (auto& e : c) e = rng() % nodes;
    }
    for (unsigned i = 0; i < rows; ++i) c2(i, j) = c[i];
  }
}

}  // namespace

TEST(GetIDs, VectorsLastPositionWins) {
  U1 a, b;
  EXPECT_EQ(get_IDs(vec({7, 7}), vec({7}), a, b), 0);
  EXPECT_EQ(a, vec({1}));
  EXPECT_EQ(b, vec({N, 0}));
  EXPECT_EQ(get_IDs(vec({N, 3, 4}), vec({N, 4, 4, 9}), a, b), 0);
  EXPECT_EQ(a, vec({N, 2, 2, N}));
  EXPECT_EQ(b, vec({N, N, 2}));
  // Outputs are replaced whatever they held; an empty side leaves only nulls.
  a = vec({5, 5, 5});
  EXPECT_EQ(get_IDs(U1(), vec({1, 2}), a, b), 0);
  EXPECT_EQ(a, vec({N, N}));
  EXPECT_EQ(b.size, 0u);
}

// Small lists, and lists around and well above the size where the blocks take over (65536
// entries in IDs1): repeated IDs on both sides, nulls, IDs next to NULL_INDEX, one side much
// longer than the other.
TEST(GetIDs, VectorsMatchModelAcrossSizes) {
  std::mt19937 rng(7);
  for (int round = 0; round < 12; ++round) {
    const unsigned n1 = rng() % 300, n2 = rng() % 300;
    expect_model_ids(random_ids(rng, n1, 1 + rng() % 400, 400, 10), random_ids(rng, n2, 1 + rng() % 400, 400, 10));
  }
  struct sizes {
    unsigned n1, n2, range, top;
  };
  for (const sizes s : {sizes{65536, 70000, 50000, 0xFFFFFFFFu}, sizes{65537, 65537, 40000, 0xFFFFFFFFu},
                        sizes{200000, 150000, 300000, 1000000}, sizes{300000, 20, 100, 0xFFFFFFFFu},
                        sizes{70000, 400000, 1000, 0xFFFFFFF0u}, sizes{100000, 100000, 0xFFFFFFFFu, 0xFFFFFFFFu}})
    expect_model_ids(random_ids(rng, s.n1, s.range, s.top, 5), random_ids(rng, s.n2, s.range, s.top, 5));
  // Every ID of IDs1 the same, or null.
  U1 same(100000, 42u), nulls(100000, N);
  same[99999] = N;
  expect_model_ids(same, vec({1, 42, 42}));
  expect_model_ids(nulls, vec({N, 0}));
}

// An output that shares its storage with an input is cleared before the input is read, so the
// input is seen with nulls over the shared part; the same holds for both outputs in one vector.
TEST(GetIDs, OutputsSharingInputStorage) {
  for (unsigned n : {100u, 90000u}) {
    U1 x(n), y(n);
    for (unsigned i = 0; i < n; ++i) {
      x[i] = (i * 7u) % n;
      y[i] = (i * 3u) % n;
    }
    U1 x_after(n, N), m12;
    U1 m21 = x;  // shares x's storage
    ASSERT_EQ(get_IDs(x, y, m21, m12), 0);
    std::vector<unsigned> w21, w12;
    model_ids(x_after, y, w21, w12);  // x was all overwritten by the nulls of map2to1
    EXPECT_EQ(std::vector<unsigned>(m21.begin(), m21.end()), w21);
    EXPECT_EQ(std::vector<unsigned>(m12.begin(), m12.end()), w12);
    EXPECT_EQ(m21.storage, x.storage);

    // One vector for both outputs: the results land in it in the order they are found.
    U1 ids(n), both;
    for (unsigned i = 0; i < n; ++i) ids[i] = i;
    ASSERT_EQ(get_IDs(ids, ids, both, both), 0);
    for (unsigned i = 0; i < n; ++i) ASSERT_EQ(both[i], i);
  }
}

TEST(GetIDs, ConnectivitiesStrictAndCyclic) {
  U2 c1 = cols(3, {{3, 8, 5}});
  U2 c2 = cols(3, {{5, 3, 8}, {8, 3, 5}, {3, 5, 9}});
  U1 a, b;
  EXPECT_EQ(get_IDs(c1, c2, a, b, false), 0);
  EXPECT_EQ(a, vec({0, 0, N}));
  EXPECT_EQ(b, vec({1}));  // the last matching column stays
  EXPECT_EQ(get_IDs(c1, c2, a, b, true), 0);
  EXPECT_EQ(a, vec({N, N, N}));
  EXPECT_EQ(get_IDs(c1, cols(3, {{3, 8, 5}}), a, b, true), 0);
  EXPECT_EQ(a, vec({0}));

  // Quads: same node set but not the same cycle does not match.
  U2 q1 = cols(4, {{1, 2, 3, 4}, {1, 3, 2, 4}});
  U2 q2 = cols(4, {{2, 1, 4, 3}, {4, 2, 3, 1}});
  get_IDs(q1, q2, a, b, false);
  EXPECT_EQ(a, vec({0, 1}));  // both are their partner's cycle run the other way
  // Several candidates: the first in ascending column order wins.
  get_IDs(cols(2, {{1, 2}, {2, 1}, {1, 2}}), cols(2, {{2, 1}}), a, b, false);
  EXPECT_EQ(a, vec({0}));
  EXPECT_EQ(b, vec({0, N, N}));
  // A repeated largest node: columns are compared from its first occurrence, so (5, 2, 5, 1),
  // the cycle (5, 1, 5, 2) run the other way, is missed, while (2, 5, 1, 5) is found.
  get_IDs(cols(4, {{5, 1, 5, 2}}), cols(4, {{5, 2, 5, 1}, {2, 5, 1, 5}}), a, b, false);
  EXPECT_EQ(a, vec({N, 0}));
  // Columns without rows are all equal.
  get_IDs(U2(0, 3), U2(0, 2), a, b, true);
  EXPECT_EQ(a, vec({0, 0}));
  EXPECT_EQ(b, vec({1, N, N}));

  a = vec({9});
  b = vec({9});
  EXPECT_EQ(get_IDs(U2(3, 2), U2(4, 2), a, b, false), -2);
  EXPECT_EQ(a.size, 0u);
  EXPECT_EQ(b.size, 0u);
}

// Connectivities below and above the size where the blocks take over (32768 columns in
// connect1), with columns copied next to their keys (up to 8 rows) or read in place (more).
TEST(GetIDs, ConnectivitiesMatchModelAcrossSizes) {
  std::mt19937 rng(3);
  struct shape {
    unsigned rows, n, nodes;
  };
  for (const shape s : {shape{3, 500, 40}, shape{3, 40000, 60}, shape{2, 33000, 400}, shape{4, 36000, 30},
                        shape{1, 34000, 20000}, shape{9, 34000, 12}})
    for (bool strict : {false, true}) {
      U2 c1, c2;
      random_columns(rng, s.rows, s.n, s.nodes, c1, c2);
      SCOPED_TRACE(testing::Message() << s.rows << " rows, " << s.n << " columns, strict " << strict);
      expect_model_columns(c1, c2, strict);
    }

  // A column whose internal key is NULL_INDEX (one node, 0x331DA083, hashed to 0xFFFFFFFF) is
  // matched like any other.
  const unsigned e = 0x331DA083u;
  U2 c1(1, 40000), c2(1, 3);
  for (unsigned j = 0; j < c1.cols; ++j) c1(0, j) = j;
  c1(0, 39000) = e;
  c2(0, 0) = 5;
  c2(0, 1) = e;
  c2(0, 2) = e;
  U1 a, b;
  get_IDs(c1, c2, a, b, true);
  EXPECT_EQ(a, vec({5, 39000, 39000}));
  EXPECT_EQ(b[39000], 2u);
  EXPECT_EQ(b[5], 0u);
}

TEST(GetIDs, ConnectivityOutputSharingStorage) {
  // map2to1 over connect1's storage: connect1 reads as nulls where it was cleared.
  U2 c1 = cols(2, {{1, 2}, {3, 4}});
  U2 c2 = cols(2, {{N, N}, {2, 1}});
  U1 m21 = c1, m12;  // shares c1's four entries
  ASSERT_EQ(get_IDs(c1, c2, m21, m12, false), 0);
  // Cleared c1 = (N, N), (3, 4): column 0 of c2 matches c1's column 0, written into c1's first entry,
  // which turns c1's column 0 into (0, N) before column 1 of c2 is looked up.
  EXPECT_EQ(m21, vec({0, N}));
  EXPECT_EQ(m12, vec({0, N}));
}
