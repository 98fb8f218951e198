#include <gtest/gtest.h>

#include <random>

#include "editing/edit_util.hpp"

using namespace edit_test;

// Node i at (i, 10 i), as rows 0..1 of a 3-row block: moves must honour the leading dimension.
static D2 line(unsigned n) {
  D2 block(3, n, -1.0);
  for (unsigned i = 0; i < n; ++i) block(0, i) = i, block(1, i) = 10.0 * i;
  return block.sub_matrix(0, 0, 2, n);
}

// Row 0 of the coordinates; row 1 must have moved along.
static std::vector<double> xs(const D2& p) {
  std::vector<double> r;
  for (unsigned j = 0; j < p.cols; ++j) {
    r.push_back(p(0, j));
    EXPECT_EQ(p(1, j), 10.0 * p(0, j));
  }
  return r;
}

TEST(Simplify, SeveralConnectivitiesAndStatus) {
  // Nulls are kept; both connectivities are renumbered; one passed twice is renumbered once.
  D2 pos = line(6);
  U2 quads = con(4, {5, 2, 3, N}), edges = con(2, {3, 5, 0, 3});
  EXPECT_EQ(2, simplify(pos, quads, edges, 0));
  EXPECT_EQ((std::vector<double>{0, 2, 3, 5}), xs(pos));
  EXPECT_EQ((vu{3, 1, 2, N}), entries(quads));
  EXPECT_EQ((vu{2, 3, 0, 2}), entries(edges));
  pos = line(4);
  U2 e = con(2, {1, 3});
  EXPECT_EQ(2, simplify(pos, e, e, 0));
  EXPECT_EQ((vu{0, 1}), entries(e));

  // Order of the checks: range, indices (even with empty coordinates), then emptiness and N0.
  pos = line(3);
  U2 c[2] = {con(2, {0, 1}), con(2, {2, 3})};
  U1 map = U1(2, 1);
  EXPECT_EQ(0, simplify(pos, c, c, map, 0));
  EXPECT_EQ(0u, map.size);
  EXPECT_EQ(-3, simplify(pos, c + 2, c, map, 0));
  EXPECT_EQ(-2, simplify(pos, c, c + 2, map, 0));
  D2 empty(2, 0), no_rows(0, 4);
  EXPECT_EQ(-2, simplify(empty, c, c + 1, map, 0));
  EXPECT_EQ(0, simplify(no_rows, c[0], map, 0));
  EXPECT_EQ(4u, no_rows.cols);
  map = U1(3, 7);
  EXPECT_EQ(0, simplify(pos, c[0], map, 3));  // N0 >= node count: no table at all
  EXPECT_EQ(0u, map.size);
}

TEST(Simplify, RandomMeshes) {
  std::mt19937 rng(11);
  for (int round = 0; round < 30; ++round) {
    const unsigned n = 1 + rng() % 200, N0 = rng() % (n + 2);
    D2 pos = line(n);
    vu conn(3 * (rng() % 60));
    for (unsigned& v : conn) v = rng() % 9 == 0 ? N : rng() % n;
    U2 m = con(3, conn);
    U1 map;
    std::vector<bool> used(n, false);
    for (unsigned v : conn)
      if (v != N) used[v] = true;
    vu expect_map(n);
    std::vector<double> expect_x;
    unsigned w = 0;
    for (unsigned i = 0; i < n; ++i) {
      expect_map[i] = i < N0 || used[i] ? w++ : N;
      if (expect_map[i] != N) expect_x.push_back(i);
    }
    const int removed = simplify(pos, m, map, N0);
    if (N0 >= n) {
      EXPECT_EQ(0, removed);
      EXPECT_EQ(0u, map.size);
      continue;
    }
    EXPECT_EQ(int(n - w), removed);
    EXPECT_EQ(expect_map, values(map));
    EXPECT_EQ(expect_x, xs(pos));
    EXPECT_TRUE(removed == 0 || pos.ld == 2u);  // a compacted result is contiguous
    for (std::size_t k = 0; k < conn.size(); ++k)
      EXPECT_EQ(conn[k] == N ? N : expect_map[conn[k]], m.storage->data[k]);
  }
}
