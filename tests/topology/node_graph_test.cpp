// Ancestors, node-to-element lists and node graphs.
#include <gtest/gtest.h>

#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;
namespace gk = kvo::gridkit;

namespace {

// Random connectivity with nulls, repeated nodes and unused node numbers.
U2 random_connectivity(std::mt19937& rng) {
  const unsigned rows = 1 + rng() % 5, n = rng() % 30, nodes = 1 + rng() % 25;
  U2 c(rows, n);
  for (unsigned e = 0; e < n; ++e)
    for (unsigned i = 0; i < rows; ++i) c(i, e) = rng() % 6 == 0 ? N_ : unsigned(rng() % nodes);
  return c;
}

unsigned node_count(const U2& c) {
  unsigned m = 0;
  for (unsigned v : entries(c))
    if (v != N_ && v > m) m = v;
  return m + 1;
}

}  // namespace

TEST(NodeGraph, TwoTriangles) {
  const U2 c = cols(3, {{0, 1, 2}, {2, 1, 3}});
  U1 off, val, anc;
  ASSERT_EQ(gk::get_node_graph(c, off, val), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, 2, 5, 8, 10}));
  EXPECT_EQ(vec(val), (std::vector<unsigned>{1, 2, 0, 2, 3, 0, 1, 3, 2, 1}));
  ASSERT_EQ(gk::get_connected_elements(c, off, val), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, 1, 3, 5, 6}));
  EXPECT_EQ(vec(val), (std::vector<unsigned>{0, 0, 1, 0, 1, 1}));
  ASSERT_EQ(gk::get_ancestors(c, anc), 0);
  EXPECT_EQ(vec(anc), (std::vector<unsigned>{0, 1, 1, 1}));
}

TEST(NodeGraph, RandomConnectivitiesAgainstBruteForce) {
  std::mt19937 rng(5);
  for (int round = 0; round < 60; ++round) {
    U2 c = random_connectivity(rng);
    if (round % 2) c = strided(c);
    U1 off, val;
    ASSERT_EQ(gk::get_connected_elements(c, off, val), 0);
    if (c.is_empty()) {
      EXPECT_EQ(vec(off), (std::vector<unsigned>{0}));
      EXPECT_TRUE(val.empty());
      continue;
    }
    const unsigned N = node_count(c);
    // Node -> elements: one entry per occurrence, ascending elements.
    std::vector<unsigned> want_off{0}, want_val;
    for (unsigned n = 0; n < N; ++n) {
      for (unsigned e = 0; e < c.cols; ++e)
        for (unsigned i = 0; i < c.rows; ++i)
          if (c(i, e) == n) want_val.push_back(e);
      want_off.push_back(unsigned(want_val.size()));
    }
    EXPECT_EQ(vec(off), want_off);
    EXPECT_EQ(vec(val), want_val);

    // Node graph: distinct other nodes by first appearance (ascending element, local order).
    want_off = {0};
    want_val.clear();
    for (unsigned n = 0; n < N; ++n) {
      std::vector<unsigned> row;
      for (unsigned e = 0; e < c.cols; ++e) {
        const auto col_e = column(c, e);
        if (std::find(col_e.begin(), col_e.end(), n) == col_e.end()) continue;
        for (unsigned m : col_e)
          if (m != N_ && m != n && std::find(row.begin(), row.end(), m) == row.end()) row.push_back(m);
      }
      want_val.insert(want_val.end(), row.begin(), row.end());
      want_off.push_back(unsigned(want_val.size()));
    }
    ASSERT_EQ(gk::get_node_graph(c, off, val), 0);
    EXPECT_EQ(vec(off), want_off);
    EXPECT_EQ(vec(val), want_val);

    // Ancestors: the last element naming each node.
    std::vector<unsigned> want_anc(N, N_);
    for (unsigned e = 0; e < c.cols; ++e)
      for (unsigned i = 0; i < c.rows; ++i)
        if (c(i, e) != N_) want_anc[c(i, e)] = e;
    U1 anc;
    ASSERT_EQ(gk::get_ancestors(c, anc), 0);
    EXPECT_EQ(vec(anc), want_anc);
  }
}

TEST(NodeGraph, NullOnlyAndEmptyConnectivities) {
  const U2 nulls = cols(2, {{N_, N_}, {N_, N_}});
  U1 off, val, anc;
  ASSERT_EQ(gk::get_connected_elements(nulls, off, val), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, 0}));
  EXPECT_TRUE(val.empty());
  ASSERT_EQ(gk::get_node_graph(nulls, off, val), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0, 0}));
  ASSERT_EQ(gk::get_ancestors(nulls, anc), 0);
  EXPECT_EQ(vec(anc), (std::vector<unsigned>{N_}));

  const U2 empty(3, 0);
  U1 keep(2, 7u);
  val = keep;
  ASSERT_EQ(gk::get_node_graph(empty, off, val), 0);
  EXPECT_EQ(vec(off), (std::vector<unsigned>{0}));
  EXPECT_TRUE(val.empty());
  ASSERT_EQ(gk::get_ancestors(empty, keep), 0);
  EXPECT_EQ(vec(keep), (std::vector<unsigned>{7, 7}));
}

TEST(NodeGraph, AncestorsIntoAnExistingList) {
  const U2 c = cols(2, {{0, 5}, {3, 1}, {9, 0}});
  U1 anc(4, 77u);
  ASSERT_EQ(gk::get_ancestors(c, anc), 0);
  // Its size bounds the nodes written; unused nodes keep their values.
  EXPECT_EQ(vec(anc), (std::vector<unsigned>{2, 1, 77, 1}));
}

TEST(NodeGraph, NodeNumbersTooLargeForTheOffsets) {
  const U2 c = cols(2, {{0, 0xFFFFFFFEu}});
  U1 off(3, 1u), val(2, 1u), anc;
  EXPECT_EQ(gk::get_connected_elements(c, off, val), gk::ERR_ALLOCATION);
  EXPECT_TRUE(off.empty());
  EXPECT_EQ(gk::get_node_graph(c, off, val), gk::ERR_ALLOCATION);
  EXPECT_EQ(gk::get_ancestors(c, anc), gk::ERR_ALLOCATION);
  EXPECT_TRUE(anc.empty());
}
