#include <gtest/gtest.h>

#include <random>

#include "topology/topo_util.hpp"

using namespace topo_test;

TEST(NodeGraph, RandomConnectivitiesAgainstBruteForce) {
  std::mt19937 rng(5);
  for (int round = 0; round < 60; ++round) {
    // Nulls, repeated nodes within a column and unused node numbers; every other one strided.
    const unsigned rows = 1 + rng() % 5, n = 1 + rng() % 30, nodes = 1 + rng() % 25;
    U2 c(rows, n);
    for (unsigned& v : c) v = rng() % 6 == 0 ? N_ : unsigned(rng() % nodes);
    if (round % 2) c = strided(c);
    unsigned N = 1;
    for (unsigned e = 0; e < n; ++e)
      for (unsigned v : column(c, e)) N = v != N_ && v >= N ? v + 1 : N;
    vu elem_off{0}, elems, graph_off{0}, graph, anc(N, N_);
    for (unsigned node = 0; node < N; ++node) {
      for (unsigned e = 0; e < n; ++e) {
        const vu ce = column(c, e);
        for (unsigned v : ce) {
          if (v == node) elems.push_back(e), anc[node] = e;
          const bool member = std::find(ce.begin(), ce.end(), node) != ce.end();
          if (member && v != N_ && v != node && std::find(graph.begin() + graph_off.back(), graph.end(), v) == graph.end())
            graph.push_back(v);
        }
      }
      elem_off.push_back(unsigned(elems.size()));
      graph_off.push_back(unsigned(graph.size()));
    }
    U1 off, val, ancestors;
    ASSERT_EQ(gk::get_connected_elements(c, off, val), 0);
    EXPECT_EQ(vec(off), elem_off);
    EXPECT_EQ(vec(val), elems);
    ASSERT_EQ(gk::get_node_graph(c, off, val), 0);
    EXPECT_EQ(vec(off), graph_off);
    EXPECT_EQ(vec(val), graph);
    ASSERT_EQ(gk::get_ancestors(c, ancestors), 0);
    EXPECT_EQ(vec(ancestors), anc);
  }
}

TEST(NodeGraph, NullOnlyEmptyAndOversizedInputs) {
  U1 off, val, anc;
  const U2 nulls = cols(2, {{N_, N_}, {N_, N_}});
  ASSERT_EQ(gk::get_connected_elements(nulls, off, val), 0);
  EXPECT_EQ(vec(off), (vu{0, 0}));
  ASSERT_EQ(gk::get_node_graph(nulls, off, val), 0);
  EXPECT_TRUE(vec(off) == (vu{0, 0}) && val.empty());
  ASSERT_EQ(gk::get_ancestors(nulls, anc), 0);
  EXPECT_EQ(vec(anc), (vu{N_}));

  U1 kept(4, 7u);
  ASSERT_EQ(gk::get_node_graph(U2(3, 0), off, val), 0);
  EXPECT_EQ(vec(off), (vu{0}));
  ASSERT_EQ(gk::get_ancestors(U2(3, 0), kept), 0);  // left untouched
  ASSERT_EQ(gk::get_ancestors(cols(2, {{0, 5}, {3, 1}, {9, 0}}), kept), 0);
  EXPECT_EQ(vec(kept), (vu{2, 1, 7, 1}));  // an existing list bounds the nodes written

  // Node numbers whose offsets cannot be held.
  const U2 huge = cols(2, {{0, 0xFFFFFFFEu}});
  EXPECT_EQ(gk::get_connected_elements(huge, off, val), gk::ERR_ALLOCATION);
  EXPECT_TRUE(off.empty());
  EXPECT_EQ(gk::get_node_graph(huge, off, val), gk::ERR_ALLOCATION);
  anc.clear_hard();
  EXPECT_EQ(gk::get_ancestors(huge, anc), gk::ERR_ALLOCATION);
}
