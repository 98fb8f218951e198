// merge: point lists and connectivities against a direct O(n^2) computation of the merge rules
// (pairs by rank, box and distance, first target wins, chains followed), on clustered, chained,
// sparse, crowded and non-finite inputs; status codes and their order; coordinate overwrite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <unordered_set>

#include "editing/compaction_helpers.hpp"

using namespace kvo::gridkit;
using namespace testutil;

namespace {

const double inf = std::numeric_limits<double>::infinity();
const double qnan = std::numeric_limits<double>::quiet_NaN();

std::vector<unsigned> distinct(const std::vector<unsigned>& v) {
  std::unordered_set<unsigned> seen{N};
  std::vector<unsigned> r;
  for (unsigned e : v)
    if (seen.insert(e).second) r.push_back(e);
  return r;
}

// The merge rules written out literally. tag (per node, optional): two nodes with the same tag
// other than N - 1 never pair (used by connectivities in mode 1).
std::vector<unsigned> reference(const D2& pos, const std::vector<unsigned>& ids1, const std::vector<unsigned>& ids2,
                                double tol, int& count, const std::vector<unsigned>* tag = nullptr) {
  const std::vector<unsigned> u1 = distinct(ids1), u2 = ids1 == ids2 ? u1 : distinct(ids2);
  std::vector<unsigned> rank(pos.cols, N);
  std::vector<std::pair<unsigned, unsigned>> pairs;
  for (unsigned k = 0; k < u2.size(); ++k) {
    const unsigned i = u2[k];
    rank[i] = k;
    for (unsigned j : u1) {
      if (!(k < rank[j])) continue;
      bool in_box = true;
      double s = 0;
      for (unsigned a = 0; a < pos.rows; ++a) {
        in_box = in_box && pos(a, i) - tol <= pos(a, j) && pos(a, i) + tol >= pos(a, j);
        const double d = pos(a, i) - pos(a, j);
        s += d * d;
      }
      if (tag && (*tag)[i] == (*tag)[j] && (*tag)[i] != N - 1) continue;
      if (in_box && std::sqrt(s) <= tol) pairs.push_back({k, j});
    }
  }
  std::sort(pairs.begin(), pairs.end());
  std::vector<unsigned> map(pos.cols);
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
D2 scene(std::mt19937& rng, unsigned dim, unsigned n, double tol, bool heaps, bool nonfinite) {
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
    if (nonfinite && rng() % 25 == 0) p(rng() % dim, j) = rng() % 3 == 0 ? qnan : (rng() % 2 ? inf : -inf);
  }
  if (n > 10 && rng() % 4 == 0)  // one far node: the rest crowds a few cells of a coarse grid
    for (unsigned a = 0; a < dim; ++a) p(a, n - 1) = 1e4;
  return p;
}

}  // namespace

TEST(MergePoints, RulesOnSmallCases) {
  D2 pos(2, 3);
  for (unsigned j = 0; j < 3; ++j) pos(0, j) = j, pos(1, j) = 0;
  U1 map;
  const U1 all = list({0, 1, 2});
  EXPECT_EQ(2, merge(pos, all, map, 1.0));  // (0,1) and (1,2) at exactly tol; 2 follows 1 to 0
  EXPECT_EQ((std::vector<unsigned>{0, 0, 0}), values(map));
  EXPECT_EQ(0, merge(pos, all, map, 0.0));
  EXPECT_EQ((std::vector<unsigned>{0, 1, 2}), values(map));
  // The survivor is the first node of the list, not the smallest index.
  EXPECT_EQ(2, merge(pos, list({2, N, 1, 0, 2}), map, 1.0));
  EXPECT_EQ((std::vector<unsigned>{2, 2, 2}), values(map));
  // Only nodes of the first list can go; they go to nodes of the second.
  EXPECT_EQ(1, merge(pos, list({1}), list({2, 0}), map, 1.0));
  EXPECT_EQ((std::vector<unsigned>{0, 2, 2}), values(map));

  // -0.0 and 0.0 coincide at tolerance 0; NaN never merges; a NaN tolerance merges nothing.
  D2 z(3, 3, 0.0);
  z(1, 1) = -0.0;
  z(2, 2) = qnan;
  EXPECT_EQ(1, merge(z, list({0, 1, 2}), map, 0.0));
  EXPECT_EQ((std::vector<unsigned>{0, 0, 2}), values(map));
  EXPECT_EQ(0, merge(z, list({0, 1, 2}), map, qnan));
  EXPECT_EQ((std::vector<unsigned>{0, 1, 2}), values(map));
}

TEST(MergePoints, StatusCodesAndEmptyLists) {
  D2 pos(3, 2, 0.0);
  U1 map = list({9});
  EXPECT_EQ(0, merge(pos, U1(), list({0}), map, 1.0));
  EXPECT_EQ(0u, map.size);  // empty list: no identity table
  EXPECT_EQ(-4, merge(pos, list({0}), list({1}), map, -1.0));
  EXPECT_EQ(-3, merge(pos, map, -1.0));
  EXPECT_EQ(-2, merge(pos, list({2}), list({5}), map, -1.0));
  EXPECT_EQ(-3, merge(pos, list({1}), list({2}), map, -1.0));
  D2 four(4, 2, 0.0), none(7, 0);
  EXPECT_EQ(-1, merge(four, list({9}), list({9}), map, -1.0));
  EXPECT_EQ(-1, merge(four, map, 1.0));
  EXPECT_EQ(0, merge(none, list({9}), list({9}), map, -1.0));
  EXPECT_EQ(0, merge(none, map, -1.0));
  // new_IDs may be one of the input lists.
  U1 ids = list({1, 0});
  EXPECT_EQ(1, merge(pos, ids, ids, ids, 0.5));
  EXPECT_EQ((std::vector<unsigned>{1, 1}), values(ids));
}

TEST(MergePoints, AgreesWithReferenceOnRandomScenes) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 160; ++round) {
    const unsigned dim = 2 + round % 2, n = 20 + rng() % (round % 5 == 0 ? 1500 : 300);
    const double tol = round % 17 == 0   ? 0.0
                       : round % 23 == 0 ? 2.0
                       : round % 13 == 0 ? inf
                                         : std::ldexp(1.0, -int(2 + rng() % 30));
    const bool heaps = round % 5 == 0, nonfinite = round % 3 == 0;
    D2 pos = scene(rng, dim, n, tol == 0 || tol == inf ? 1e-3 : tol, heaps, nonfinite);
    std::vector<unsigned> ids1, ids2;
    if (round % 2) {  // all nodes in index order
      for (unsigned j = 0; j < n; ++j) ids1.push_back(j);
      ids2 = ids1;
    } else {  // shuffled lists with repeats and nulls; the second overlaps the first or equals it
      for (unsigned j = 0; j < n; ++j) ids1.push_back(rng() % 20 == 0 ? N : rng() % n);
      if (round % 4 == 0) ids2 = ids1;
      else
        for (unsigned j = 0; j < n / 2; ++j) ids2.push_back(rng() % 3 ? ids1[rng() % n] : rng() % n);
    }
    int expect_count = 0;
    const std::vector<unsigned> expect = reference(pos, ids1, ids2, tol, expect_count);
    U1 map;
    ASSERT_EQ(expect_count, merge(pos, list(ids1), list(ids2), map, tol)) << "round " << round;
    ASSERT_EQ(expect, values(map)) << "round " << round;
  }
}

TEST(MergePoints, StridedCoordinates) {
  // Coordinates given as rows 1..3 of a 5-row block.
  D2 block(5, 300);
  for (unsigned j = 0; j < 300; ++j)
    for (unsigned a = 0; a < 5; ++a) block(a, j) = a == 0 || a == 4 ? 1e9 : double(j % 37 + (a == 2 ? j % 5 : 0));
  const D2 view = block.sub_matrix(1, 0, 3, 300);
  std::vector<unsigned> all(300);
  for (unsigned j = 0; j < 300; ++j) all[j] = j;
  int c = 0;
  const auto expect = reference(view, all, all, 1.0, c);
  U1 map;
  EXPECT_EQ(c, merge(view, list(all), map, 1.0));
  EXPECT_EQ(expect, values(map));
}

TEST(MergePoints, ExtremeMagnitudes) {
  // Overflowing extents and boxes, subnormal spacings, and a far node that squeezes the rest
  // into one cell of any grid over the bounding box.
  std::mt19937 rng(13);
  const double big = std::numeric_limits<double>::max(), sub = std::numeric_limits<double>::denorm_min();
  const struct {
    double scale, offset, far, tol;
  } cases[] = {{big / 4, 0, 0, big / 8}, {big / 4, 0, 0, 1e300},     {1e-310, 0, 0, 3 * sub},
               {1.0, 0, -1e300, 0.05},   {1.0, 1e15, 1e300, 0.125}, {1.0, 0, 1e7, 0.0}};
  for (const auto& c : cases) {
    const unsigned n = 600;
    D2 pos(3, n);
    for (unsigned j = 0; j < n; ++j)
      for (unsigned a = 0; a < 3; ++a)
        pos(a, j) = j > 0 && rng() % 3 == 0 ? pos(a, rng() % j) : c.offset + c.scale * (double(rng() % 64) - 32);
    if (c.far != 0) pos(1, n - 1) = c.far;
    std::vector<unsigned> all(n);
    for (unsigned j = 0; j < n; ++j) all[j] = j;
    int count = 0;
    const auto expect = reference(pos, all, all, c.tol, count);
    U1 map;
    EXPECT_EQ(count, merge(pos, list(all), map, c.tol)) << c.scale << " " << c.tol;
    EXPECT_EQ(expect, values(map)) << c.scale << " " << c.tol;
  }
}

TEST(MergePoints, WholeMatrixOverwritesMergedCoordinates) {
  // 2000 spread points and 200 copies moved by far less than the tolerance.
  std::mt19937 rng(9);
  std::uniform_real_distribution<double> u(0, 1), tiny(-1e-10, 1e-10);
  const unsigned n = 2000, d = 200;
  D2 pos(3, n + d);
  for (unsigned j = 0; j < n; ++j)
    for (unsigned a = 0; a < 3; ++a) pos(a, j) = u(rng);
  for (unsigned j = 0; j < d; ++j)
    for (unsigned a = 0; a < 3; ++a) pos(a, n + j) = pos(a, 7 * j) + tiny(rng);
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
  // Unshared coordinates are rewritten in place, with the same result.
  D2 alone;
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
    std::vector<unsigned> order, tag(n, N);
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
      std::vector<U2> work;
      for (const U2& m : conn) {
        U2 w;
        w.copy(m);
        work.push_back(w);
      }
      int c = 0;
      const auto expect = reference(pos, order, order, tol, c, mode == 1 ? &tag : nullptr);
      U1 map;
      ASSERT_EQ(0, merge(pos, work.data(), work.data() + parts, map, tol, mode)) << round;
      ASSERT_EQ(expect, values(map)) << "round " << round << " mode " << mode;
      for (unsigned p = 0; p < parts; ++p)
        for (unsigned k = 0; k < 3 * conn[p].cols; ++k) {
          const unsigned v = conn[p].storage->data[k];
          EXPECT_EQ(mode == 2 || v >= n ? v : expect[v], work[p].storage->data[k]);
        }
    }
  }
}

TEST(MergeConnectivities, SeamsInterfacesOverloadsAndStatus) {
  // Mesh A: triangles (0,1,2) and (3,4,5) with 1~3 and 2~5 coincident (a seam inside A).
  // Mesh B: triangle (6,7,8) with 6 on 4, and node 9 unused on top of node 0.
  D2 pos(2, 10);
  const double xy[10][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 0}, {2, 0}, {0, 1}, {2, 0}, {3, 0}, {2, 1}, {0, 0}};
  for (unsigned j = 0; j < 10; ++j) pos(0, j) = xy[j][0], pos(1, j) = xy[j][1];
  auto mesh = [](const std::vector<unsigned>& e) { return matrix(3, e); };
  U2 a = mesh({0, 1, 2, 3, 4, 5}), b = mesh({6, 7, 8});
  U1 map;
  EXPECT_EQ(0, merge(pos, a, b, map, 1e-9, 1));
  EXPECT_EQ((std::vector<unsigned>{0, 1, 2, 3, 4, 5, 4, 7, 8, 9}), values(map));
  EXPECT_EQ(4u, b(0, 0));
  EXPECT_EQ(0, merge(pos, a, b, 1e-9, 0u));
  EXPECT_EQ(1u, a(0, 1));
  EXPECT_EQ(2u, a(2, 1));

  // Defaults: tolerance 1e-6, mode 0; the survivor is the first node met in column order.
  U2 c = mesh({5, 1, 2, 3, 0, 9});
  EXPECT_EQ(0, merge(pos, c));
  EXPECT_EQ((std::vector<unsigned>{5, 1, 5, 1, 0, 0}), entries(c));

  U2 r[2] = {mesh({0, 1, 2}), mesh({3, 4, 5})};
  map = list({1});
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
