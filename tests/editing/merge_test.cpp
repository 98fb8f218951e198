#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <unordered_set>

#include "editing/edit_util.hpp"

using namespace edit_test;

static vu distinct(const vu& v) {
  std::unordered_set<unsigned> seen{N};
  vu r;
  for (unsigned e : v)
    if (seen.insert(e).second) r.push_back(e);
  return r;
}

// The merge rules written out literally. tag (per node, optional): two nodes with the same tag
// other than N - 1 never pair (used by connectivities in mode 1).
static vu reference(const D2& pos, const vu& ids1, const vu& ids2, double tol, int& count, const vu* tag = nullptr) {
  const vu u1 = distinct(ids1), u2 = ids1 == ids2 ? u1 : distinct(ids2);
  vu rank(pos.cols, N);
  std::vector<std::pair<unsigned, unsigned>> pairs;
  for (unsigned k = 0; k < u2.size(); ++k) {
    const unsigned i = u2[k];
    rank[i] = k;
    for (unsigned j : u1) {
      if (!(k < rank[j])) continue;
      bool in_box = !tag || (*tag)[i] != (*tag)[j] || (*tag)[i] == N - 1;
      double s = 0;
      for (unsigned a = 0; a < pos.rows; ++a) {
        in_box = in_box && pos(a, i) - tol <= pos(a, j) && pos(a, i) + tol >= pos(a, j);
        s += (pos(a, i) - pos(a, j)) * (pos(a, i) - pos(a, j));
      }
      if (in_box && std::sqrt(s) <= tol) pairs.push_back({k, j});
    }
  }
  std::sort(pairs.begin(), pairs.end());
  vu map(pos.cols);
  for (unsigned n = 0; n < pos.cols; ++n) map[n] = n;
  count = 0;
  for (auto [k, j] : pairs)
    if (map[j] == j) map[j] = u2[k], ++count;
  for (unsigned e : u1) {
    unsigned t = e;
    while (map[t] != t) t = map[t];
    map[e] = t;
  }
  return map;
}

// Random point sets: clusters and chains at the scale of tol, heaps of coincident points,
// a sparse background, optionally NaN and infinite coordinates.
static D2 scene(std::mt19937& rng, unsigned dim, unsigned n, double tol, bool heaps, bool nonfinite) {
  std::uniform_real_distribution<double> u(0, 1), jitter(-tol, tol);
  D2 p(dim, n);
  for (unsigned j = 0; j < n; ++j) {
    const unsigned kind = rng() % 10;
    if (j > 0 && kind < 4) {  // near an earlier node: clusters and chains
      const unsigned o = rng() % j;
      for (unsigned a = 0; a < dim; ++a) p(a, j) = p(a, o) + (kind == 0 ? 0.0 : jitter(rng));
    } else if (j > 0 && kind == 4) {  // exactly tol away along one axis
      const unsigned o = rng() % j;
      for (unsigned a = 0; a < dim; ++a) p(a, j) = p(a, o);
      p(rng() % dim, j) += tol;
    } else if (heaps && kind < 9) {  // two crowded spots
      for (unsigned a = 0; a < dim; ++a) p(a, j) = a == 0 ? 0.25 * (rng() % 2) : 0.5;
    } else {
      for (unsigned a = 0; a < dim; ++a) p(a, j) = u(rng);
    }
    if (nonfinite && rng() % 25 == 0) p(rng() % dim, j) = rng() % 3 == 0 ? NaN : (rng() % 2 ? inf : -inf);
  }
  if (n > 10 && rng() % 4 == 0)  // one far node: the rest crowds a few cells of a coarse grid
    for (unsigned a = 0; a < dim; ++a) p(a, n - 1) = 1e4;
  return p;
}

static void check(const D2& pos, const vu& l1, const vu& l2, double tol) {
  int count = 0;
  const vu expect = reference(pos, l1, l2, tol, count);
  U1 map;
  ASSERT_EQ(count, merge(pos, ids(l1), ids(l2), map, tol)) << tol;
  ASSERT_EQ(expect, values(map)) << tol;
}

TEST(MergePoints, SignedZeroAndNaN) {
  U1 map;
  // -0.0 and 0.0 coincide at tolerance 0; NaN never merges; a NaN tolerance merges nothing.
  D2 z(3, 3, 0.0);
  z(1, 1) = -0.0;
  z(2, 2) = NaN;
  EXPECT_EQ(1, merge(z, ids({0, 1, 2}), map, 0.0));
  EXPECT_EQ((vu{0, 0, 2}), values(map));
  EXPECT_EQ(0, merge(z, ids({0, 1, 2}), map, NaN));
  EXPECT_EQ((vu{0, 1, 2}), values(map));
}

TEST(MergePoints, StatusCodesAndEmptyLists) {
  D2 pos(3, 2, 0.0);
  U1 map = ids({9});
  EXPECT_EQ(0, merge(pos, U1(), ids({0}), map, 1.0));
  EXPECT_EQ(0u, map.size);  // empty list: no identity table
  EXPECT_EQ(-4, merge(pos, ids({0}), ids({1}), map, -1.0));
  EXPECT_EQ(-3, merge(pos, map, -1.0));
  EXPECT_EQ(-2, merge(pos, ids({2}), ids({5}), map, -1.0));
  EXPECT_EQ(-3, merge(pos, ids({1}), ids({2}), map, -1.0));
  D2 four(4, 2, 0.0), none(7, 0);
  EXPECT_EQ(-1, merge(four, ids({9}), ids({9}), map, -1.0));
  EXPECT_EQ(-1, merge(four, map, 1.0));
  EXPECT_EQ(0, merge(none, ids({9}), ids({9}), map, -1.0));
  EXPECT_EQ(0, merge(none, map, -1.0));
  // new_IDs may be one of the input lists.
  U1 same = ids({1, 0});
  EXPECT_EQ(1, merge(pos, same, same, same, 0.5));
  EXPECT_EQ((vu{1, 1}), values(same));
}

TEST(MergePoints, AgreesWithReferenceOnRandomAndExtremeScenes) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 160; ++round) {
    const unsigned dim = 2 + round % 2, n = 20 + rng() % (round % 5 == 0 ? 1500 : 300);
    const double tol = round % 17 == 0 ? 0.0 : round % 23 == 0 ? 2.0 : round % 13 == 0 ? inf
                     : std::ldexp(1.0, -int(2 + rng() % 30));
    const bool heaps = round % 5 == 0, nonfinite = round % 3 == 0;
    D2 pos = scene(rng, dim, n, tol == 0 || tol == inf ? 1e-3 : tol, heaps, nonfinite);
    if (round % 8 == 3) {  // the coordinates as rows of a taller block
      D2 block(dim + 2, n, 1e9);
      for (unsigned j = 0; j < n; ++j) std::copy(pos.col_ptr(j), pos.col_ptr(j) + dim, block.col_ptr(j) + 1);
      pos = block.sub_matrix(1, 0, dim, n);
    }
    vu ids1, ids2;
    if (round % 2) {  // all nodes in index order
      for (unsigned j = 0; j < n; ++j) ids1.push_back(j);
      ids2 = ids1;
    } else {  // shuffled lists with repeats and nulls; the second overlaps the first or equals it
      for (unsigned j = 0; j < n; ++j) ids1.push_back(rng() % 20 == 0 ? N : rng() % n);
      if (round % 4 == 0) ids2 = ids1;
      else for (unsigned j = 0; j < n / 2; ++j) ids2.push_back(rng() % 3 ? ids1[rng() % n] : rng() % n);
    }
    check(pos, ids1, ids2, tol);
  }
  // Overflowing extents and boxes, subnormal spacings, a far node squeezing the rest into one cell.
  const double big = std::numeric_limits<double>::max(), sub = std::numeric_limits<double>::denorm_min();
  const struct { double scale, offset, far, tol; } cases[] = {{big / 4, 0, 0, big / 8}, {big / 4, 0, 0, 1e300},     {1e-310, 0, 0, 3 * sub},
               {1.0, 0, -1e300, 0.05},   {1.0, 1e15, 1e300, 0.125}, {1.0, 0, 1e7, 0.0}};
  for (const auto& c : cases) {
    const unsigned n = 600;
    D2 pos(3, n);
    vu all(n);
    for (unsigned j = 0; j < n; ++j)
      for (unsigned a = 0; a < 3; ++a)
        pos(a, j) = j > 0 && rng() % 3 == 0 ? pos(a, rng() % j) : c.offset + c.scale * (double(rng() % 64) - 32);
    if (c.far != 0) pos(1, n - 1) = c.far;
    for (unsigned j = 0; j < n; ++j) all[j] = j;
    check(pos, all, all, c.tol);
  }
}

TEST(MergePoints, WholeMatrixOverwritesMergedCoordinates) {
  std::mt19937 rng(9);
  std::uniform_real_distribution<double> u(0, 1), tiny(-1e-10, 1e-10);
  const unsigned n = 2000, d = 200;
  D2 pos(3, n + d);
  for (unsigned j = 0; j < n + d; ++j)  // 200 copies moved by far less than the tolerance
    for (unsigned a = 0; a < 3; ++a) pos(a, j) = j < n ? u(rng) : pos(a, 7 * (j - n)) + tiny(rng);
  const D2 before = pos;  // shares the block: pos must be rebound to a copy
  D2 original;
  original.copy(pos);
  U1 map;
  ASSERT_EQ(int(d), merge(pos, map, 1e-7));
  EXPECT_EQ(n + d, pos.cols);
  for (unsigned j = 0; j < n + d; ++j) {
    const unsigned t = j < n ? j : 7 * (j - n);
    ASSERT_EQ(t, map[j]);
    for (unsigned a = 0; a < 3; ++a) {
      EXPECT_EQ(original(a, t), pos(a, j));
      EXPECT_EQ(original(a, j), before(a, j));
    }
  }
  D2 alone;  // unshared: rewritten in place
  alone.copy(original);
  EXPECT_EQ(int(d), merge(alone, 1e-7));
  EXPECT_TRUE(alone == pos);
}

TEST(MergeConnectivities, ModesAgainstReference) {
  std::mt19937 rng(77);
  for (int round = 0; round < 60; ++round) {
    const unsigned n = 30 + rng() % 400, parts = 1 + round % 3;
    const double tol = round % 11 == 0 ? inf : std::ldexp(1.0, -int(3 + rng() % 10));
    D2 pos = scene(rng, 2 + round % 2, n, tol == inf ? 0.01 : tol, round % 4 == 0, round % 6 == 0);
    std::vector<U2> conn;
    vu order, tag(n, N);
    for (unsigned c = 0; c < parts; ++c) {
      U2 m(3, 5 + rng() % 60);
      for (unsigned k = 0; k < 3 * m.cols; ++k) {
        const unsigned v = rng() % 30 == 0 ? N : rng() % 40 == 0 ? n + 5 : rng() % n;  // nulls, out of range
        m.storage->data[k] = v;
        if (v >= n) continue;
        order.push_back(v);
        tag[v] = tag[v] == N || tag[v] == c ? c : N - 1;
      }
      conn.push_back(m);
    }
    for (unsigned mode = 0; mode < 3; ++mode) {
      std::vector<U2> work(parts);
      for (unsigned p = 0; p < parts; ++p) work[p].copy(conn[p]);
      int c = 0;
      const auto expect = reference(pos, order, order, tol, c, mode == 1 ? &tag : nullptr);
      U1 map;
      ASSERT_EQ(0, merge(pos, work.data(), work.data() + parts, map, tol, mode));
      ASSERT_EQ(expect, values(map)) << round << " " << mode;
      for (unsigned p = 0; p < parts; ++p)
        for (unsigned k = 0; k < 3 * conn[p].cols; ++k) {
          const unsigned v = conn[p].storage->data[k];
          EXPECT_EQ(mode == 2 || v >= n ? v : expect[v], work[p].storage->data[k]);
        }
    }
  }
}

TEST(MergeConnectivities, OverloadsDefaultsAndStatus) {
  const D2 pos = pts(2, {0, 0, 1, 0, 0, 1, 1, 0, 2, 0, 0, 1, 2, 0, 3, 0, 2, 1, 0, 0});
  U1 map;
  // Pair overloads: 1~3 and 2~5 form a seam inside a, kept apart in mode 1; b's node 6 lies on 4.
  U2 a = con(3, {0, 1, 2, 3, 4, 5}), b = con(3, {6, 7, 8});
  EXPECT_EQ(0, merge(pos, a, b, map, 1e-9, 1));
  EXPECT_EQ((vu{0, 1, 2, 3, 4, 5, 4, 7, 8, 9}), values(map));
  EXPECT_EQ(0, merge(pos, a, b, 1e-9, 0u));
  EXPECT_EQ((vu{0, 1, 2, 1, 4, 2}), entries(a));
  // Defaults: tolerance 1e-6, mode 0; the survivor is the first node met in column order.
  U2 c = con(3, {5, 1, 2, 3, 0, 9});
  EXPECT_EQ(0, merge(pos, c));
  EXPECT_EQ((vu{5, 1, 5, 1, 0, 0}), entries(c));

  U2 r[2] = {con(3, {0, 1, 2}), con(3, {3, 4, 5})};
  map = ids({1});
  EXPECT_EQ(0, merge(pos, r, r, map, -1.0, 9));
  EXPECT_EQ(0u, map.size);
  D2 four(4, 3), empty(2, 0);
  EXPECT_EQ(0, merge(empty, r, r + 2, map, -1.0, 9));
  EXPECT_EQ(-1, merge(four, r, r + 2, map, -1.0, 9));
  EXPECT_EQ(-3, merge(pos, r + 2, r, map, -1.0, 9));
  EXPECT_EQ(-5, merge(pos, r, r + 2, map, -1.0, 9));
  EXPECT_EQ(-6, merge(pos, r, r + 2, map, 1.0, 3));
  EXPECT_EQ(-6, merge(pos, r, r + 2, 1.0, 3));
}
