// simplify: removal of unused nodes at or above N0, renumbering of one or several
// connectivities, status codes and their order, against a direct reference.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;

namespace {

using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;
using D2 = dense2D<double>;
const unsigned N = NULL_INDEX;

U2 matrix(unsigned rows, std::vector<unsigned> e) {
  U2 m(rows, unsigned(e.size() / rows));
  for (std::size_t k = 0; k < e.size(); ++k) m.storage->data[k] = e[k];
  return m;
}

// Node i sits at (i, 10 i) so that moved columns can be recognised.
D2 line(unsigned n) {
  D2 p(2, n);
  for (unsigned i = 0; i < n; ++i) {
    p(0, i) = i;
    p(1, i) = 10.0 * i;
  }
  return p;
}

std::vector<unsigned> entries(const U2& m) {
  std::vector<unsigned> r;
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) r.push_back(m(i, j));
  return r;
}

std::vector<double> xs(const D2& p) {
  std::vector<double> r;
  for (unsigned j = 0; j < p.cols; ++j) r.push_back(p(0, j));
  return r;
}

}  // namespace

TEST(Simplify, UnusedNodesBelowAndAboveN0) {
  D2 pos = line(5);
  U2 tri = matrix(3, {1, 3, 4, 4, 3, 1});
  U1 map;
  EXPECT_EQ(2, simplify(pos, tri, map, 0));  // nodes 0 and 2 unused
  EXPECT_EQ((std::vector<double>{1, 3, 4}), xs(pos));
  EXPECT_EQ(30.0, pos(1, 1));
  EXPECT_EQ((std::vector<unsigned>{0, 1, 2, 2, 1, 0}), entries(tri));
  EXPECT_EQ((std::vector<unsigned>{N, 0, N, 1, 2}), std::vector<unsigned>(map.begin(), map.end()));

  // With N0 = 1 node 0 stays; node 2 still goes.
  pos = line(5);
  tri = matrix(3, {1, 3, 4});
  EXPECT_EQ(1, simplify(pos, tri, map, 1));
  EXPECT_EQ((std::vector<double>{0, 1, 3, 4}), xs(pos));
  EXPECT_EQ((std::vector<unsigned>{1, 2, 3}), entries(tri));
  EXPECT_EQ((std::vector<unsigned>{0, 1, N, 2, 3}), std::vector<unsigned>(map.begin(), map.end()));

  // Nothing unused above N0: no change, an identity table.
  pos = line(3);
  tri = matrix(3, {0, 1, 2});
  EXPECT_EQ(0, simplify(pos, tri, map, 0));
  EXPECT_EQ(3u, pos.cols);
  EXPECT_EQ((std::vector<unsigned>{0, 1, 2}), std::vector<unsigned>(map.begin(), map.end()));

  // N0 at or above the node count: 0 and no table at all.
  map = U1(3, 7);
  EXPECT_EQ(0, simplify(pos, tri, map, 3));
  EXPECT_EQ(0u, map.size);
}

TEST(Simplify, NullEntriesAndSeveralConnectivities) {
  D2 pos = line(6);
  U2 quads = matrix(4, {5, 2, 3, N});
  U2 edges = matrix(2, {3, 5, 0, 3});
  EXPECT_EQ(2, simplify(pos, quads, edges, 0));  // nodes 1 and 4 unused
  EXPECT_EQ((std::vector<double>{0, 2, 3, 5}), xs(pos));
  EXPECT_EQ((std::vector<unsigned>{3, 1, 2, N}), entries(quads));
  EXPECT_EQ((std::vector<unsigned>{2, 3, 0, 2}), entries(edges));

  // The same connectivity passed twice is renumbered once.
  pos = line(4);
  U2 e = matrix(2, {1, 3});
  EXPECT_EQ(2, simplify(pos, e, e, 0));
  EXPECT_EQ((std::vector<unsigned>{0, 1}), entries(e));
}

TEST(Simplify, StatusCodesInOrder) {
  D2 pos = line(3);
  U2 c[2] = {matrix(2, {0, 1}), matrix(2, {2, 3})};
  U1 map = U1(2, 1);
  EXPECT_EQ(0, simplify(pos, c, c, map, 0));
  EXPECT_EQ(0u, map.size);
  EXPECT_EQ(-3, simplify(pos, c + 2, c, map, 0));
  EXPECT_EQ(-2, simplify(pos, c, c + 2, map, 0));  // node 3 is not below 3
  EXPECT_EQ(3u, pos.cols);
  // Bad indices are reported even when pos is empty; empty pos with good indices is a no-op.
  D2 empty(2, 0);
  EXPECT_EQ(-2, simplify(empty, c, c + 1, map, 0));
  U2 nulls = matrix(2, {N, N});
  EXPECT_EQ(0, simplify(empty, nulls, map, 0));
  EXPECT_EQ(0u, map.size);
  D2 no_rows(0, 4);
  EXPECT_EQ(0, simplify(no_rows, c[0], map, 0));
  EXPECT_EQ(4u, no_rows.cols);
}

TEST(Simplify, StridedCoordinatesAndRandomMeshes) {
  // Rows 0..1 of a 3-row block: columns are moved within the view, the result is contiguous.
  D2 block(3, 4);
  for (unsigned j = 0; j < 4; ++j)
    for (unsigned i = 0; i < 3; ++i) block(i, j) = 10.0 * j + i;
  D2 view = block.sub_matrix(0, 0, 2, 4);
  U2 e = matrix(2, {3, 1});
  EXPECT_EQ(2, simplify(view, e, 0));
  ASSERT_EQ(2u, view.cols);
  EXPECT_EQ(2u, view.ld);
  EXPECT_EQ(10.0, view(0, 0));
  EXPECT_EQ(31.0, view(1, 1));
  EXPECT_EQ((std::vector<unsigned>{1, 0}), entries(e));

  std::mt19937 rng(11);
  for (int round = 0; round < 30; ++round) {
    const unsigned n = 1 + rng() % 200, N0 = rng() % (n + 2);
    D2 pos = line(n);
    std::vector<unsigned> conn(3 * (rng() % 60));
    for (unsigned& v : conn) v = rng() % 9 == 0 ? N : rng() % n;
    U2 m = matrix(3, conn);
    U1 map;
    std::vector<bool> used(n, false);
    for (unsigned v : conn)
      if (v != N) used[v] = true;
    std::vector<unsigned> expect_map(n);
    std::vector<double> expect_x;
    unsigned w = 0;
    for (unsigned i = 0; i < n; ++i) {
      if (i < N0 || used[i]) {
        expect_map[i] = w++;
        expect_x.push_back(i);
      } else {
        expect_map[i] = N;
      }
    }
    const int removed = simplify(pos, m, map, N0);
    if (N0 >= n) {
      EXPECT_EQ(0, removed);
      EXPECT_EQ(0u, map.size);
      continue;
    }
    EXPECT_EQ(int(n - w), removed);
    EXPECT_EQ(expect_map, std::vector<unsigned>(map.begin(), map.end()));
    EXPECT_EQ(expect_x, xs(pos));
    for (std::size_t k = 0; k < conn.size(); ++k)
      EXPECT_EQ(conn[k] == N ? N : expect_map[conn[k]], m.storage->data[k]);
  }
}
