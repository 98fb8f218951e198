#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "common/meshgen.hpp"
#include "spatial/kdtree.hpp"

using kvo::dense2D;
using kvo::gridkit::node_detector;
using kvo::gridkit::NULL_INDEX;
using U1 = kvo::dense1D<unsigned, 16>;
using V2 = kvo::vector_fixed<double, 2>;
using V3 = kvo::vector_fixed<double, 3>;
namespace sp = kvo::gridkit::spatial;

namespace {

constexpr double inf = INFINITY;
const double all_lo[3] = {-inf, -inf, -inf}, all_hi[3] = {inf, inf, inf};

// Plain model of the detector: point-by-point insertion and recursive searches.
struct model {
  const dense2D<double>& pos;
  std::vector<std::array<unsigned, 3>> n;  // index, left, right
  double x(unsigned i, unsigned k) const { return pos(k, i); }
  double d2(unsigned i, const double* P) const {
    double s = 0;
    for (unsigned k = 0; k < pos.rows; ++k) s += (x(i, k) - P[k]) * (x(i, k) - P[k]);
    return s;
  }
  unsigned insert(std::vector<unsigned> list) {
    sp::shuffle_indices(list.data(), unsigned(list.size()));
    unsigned count = 0;
    for (unsigned i : list) {
      if (i >= pos.cols) continue;
      n.push_back({i, NULL_INDEX, NULL_INDEX});
      ++count;
      const unsigned s = unsigned(n.size() - 1);
      for (unsigned p = 0, a = 0; s; a = (a + 1) % pos.rows) {
        unsigned& c = n[p][x(n[p][0], a) <= x(i, a) ? 2 : 1];
        if (c == NULL_INDEX) { c = s; break; }
        p = c;
      }
    }
    return count;
  }
  void dfs(unsigned p, unsigned a, const double* P, unsigned skip, double& r, unsigned& best) const {
    if (p == NULL_INDEX) return;
    const unsigned i = n[p][0];
    bool in = true;
    for (unsigned k = 0; k < pos.rows; ++k) in = in && P[k] - r <= x(i, k) && P[k] + r >= x(i, k);
    if (in && i != skip && std::sqrt(d2(i, P)) < r) r = std::sqrt(d2(i, P)), best = i;
    if (P[a] + r > x(i, a)) dfs(n[p][2], (a + 1) % pos.rows, P, skip, r, best);
    if (P[a] - r < x(i, a)) dfs(n[p][1], (a + 1) % pos.rows, P, skip, r, best);
  }
  unsigned nearest(const double* P, unsigned skip = NULL_INDEX) const {
    unsigned best = NULL_INDEX;
    double bd2 = inf;
    for (unsigned p = n.empty() ? NULL_INDEX : 0, a = 0; p != NULL_INDEX; a = (a + 1) % pos.rows) {
      const unsigned i = n[p][0];
      if (i != skip && (best == NULL_INDEX || d2(i, P) < bd2)) best = i, bd2 = d2(i, P) == d2(i, P) ? d2(i, P) : inf;
      p = n[p][x(i, a) <= P[a] ? 2 : 1];
    }
    double r = std::sqrt(bd2);
    if (r > 0) dfs(0, 0, P, skip, r, best);
    return best;
  }
  void box(unsigned p, unsigned a, const double* lo, const double* hi, std::vector<unsigned>& out) const {
    if (p == NULL_INDEX) return;
    const unsigned i = n[p][0];
    bool in = lo[a] <= x(i, a) && hi[a] >= x(i, a);
    for (unsigned k = 0; k < pos.rows; ++k) in = in && lo[k] <= x(i, k) && x(i, k) <= hi[k];
    if (in) out.push_back(i);
    if (lo[a] <= x(i, a)) box(n[p][1], (a + 1) % pos.rows, lo, hi, out);
    if (hi[a] >= x(i, a)) box(n[p][2], (a + 1) % pos.rows, lo, hi, out);
  }
  std::vector<unsigned> box(const double* lo = all_lo, const double* hi = all_hi) const {
    std::vector<unsigned> out;
    box(n.empty() ? NULL_INDEX : 0, 0, lo, hi, out);
    return out;
  }
};

std::vector<unsigned> iota(unsigned n) {
  std::vector<unsigned> v(n);
  for (unsigned i = 0; i < n; ++i) v[i] = i;
  return v;
}
std::vector<unsigned> vec(const U1& v) { return std::vector<unsigned>(v.begin(), v.begin() + v.size); }
U1 u1(const std::vector<unsigned>& v) {
  U1 r(unsigned(v.size()));
  for (unsigned i = 0; i < v.size(); ++i) r[i] = v[i];
  return r;
}
std::vector<unsigned> box(const node_detector& d, unsigned dim, const double* lo = all_lo, const double* hi = all_hi) {
  U1 found;
  if (dim == 2) d.find_in_box(V2{{lo[0], lo[1]}}, V2{{hi[0], hi[1]}}, found);
  else d.find_in_box(V3{{lo[0], lo[1], lo[2]}}, V3{{hi[0], hi[1], hi[2]}}, found);
  return vec(found);
}

// The fields derived from the tree shape agree with it: a nonzero span is the size of a subtree
// filling [p, p + span); grandchildren fields (a missing one is the node itself) and run flags.
// Returns the number of zero spans.
unsigned check_layout(const sp::node_array& t) {
  std::vector<unsigned> size(t.count, 1), first(t.count), last(t.count);
  unsigned zero = 0;
  for (unsigned p = t.count; p-- > 0;) {  // children come after their parent
    first[p] = last[p] = p;
    for (unsigned c : {t.node(p)[1], t.node(p)[2]})
      if (c != NULL_INDEX) size[p] += size[c], first[p] = std::min(first[p], first[c]), last[p] = std::max(last[p], last[c]);
  }
  for (unsigned p = 0; p < t.count; ++p) {
    const unsigned* n = t.node(p);
    zero += n[sp::f_span] == 0;
    if (n[sp::f_span]) {
      EXPECT_TRUE(n[sp::f_span] == size[p] && first[p] == p && last[p] == p + size[p] - 1) << p;
    }
    EXPECT_EQ(t.pre()[p], n[0]);
    for (unsigned i = 0; i < 4; ++i) {
      const unsigned c = n[1 + i / 2], g = c == NULL_INDEX ? NULL_INDEX : t.node(c)[1 + i % 2];
      const bool run = g != NULL_INDEX && t.node(g)[sp::f_span] - 1u < sp::scan_max;
      EXPECT_EQ(n[sp::f_gpos + i], g == NULL_INDEX ? p : g | (run ? sp::run_flag : 0)) << p;
      EXPECT_EQ(n[sp::f_gidx + i], t.node(g == NULL_INDEX ? p : g)[0]) << p;
    }
  }
  return zero;
}

// Every query of the detector against the model; nearest distances against brute force.
void check_against_model(const dense2D<double>& pos, double lo, double hi, double step) {
  const unsigned dim = pos.rows;
  node_detector d(pos);
  model m{pos, {}};
  m.insert(iota(pos.cols));
  ASSERT_EQ(d.size(), pos.cols);
  ASSERT_EQ(box(d, dim), m.box());  // same tree: same preorder
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(lo, hi);
  for (int q = 0; q < 300; ++q) {
    double P[3], blo[3], bhi[3];
    for (unsigned k = 0; k < dim; ++k) P[k] = step > 0 ? std::round(u(rng) / step) * step : u(rng);
    const unsigned got = dim == 2 ? d.find_closest(V2{{P[0], P[1]}}) : d.find_closest(V3{{P[0], P[1], P[2]}});
    ASSERT_EQ(got, m.nearest(P)) << q;
    for (unsigned j = 0; j < pos.cols; ++j) ASSERT_LE(m.d2(got, P), m.d2(j, P));
    for (unsigned k = 0; k < dim; ++k) blo[k] = P[k] - 0.15 * (hi - lo), bhi[k] = P[k] + 0.1 * (hi - lo);
    ASSERT_EQ(box(d, dim, blo, bhi), m.box(blo, bhi));
  }
  for (unsigned j = 0; j < pos.cols; j += 3) ASSERT_EQ(d.find_closest(j), m.nearest(pos.col_ptr(j), j)) << j;
}

}  // namespace

TEST(NodeDetector, ShuffleUsesMaskedDrawsFromFixedSeed) {
  const std::vector<std::vector<unsigned>> want = {{0, 1}, {2, 1, 0}, {3, 4, 0, 2, 1}, {9, 4, 0, 5, 1, 6, 2, 7, 3, 8}};
  for (const auto& w : want) {
    std::vector<unsigned> v = iota(unsigned(w.size()));
    sp::shuffle_indices(v.data(), unsigned(v.size()));
    EXPECT_EQ(v, w);
  }
  std::vector<unsigned> v = iota(1000);
  sp::shuffle_indices(v.data(), 1000);
  EXPECT_EQ(std::vector<unsigned>(v.begin(), v.begin() + 5), (std::vector<unsigned>{650, 807, 877, 90, 495}));
  EXPECT_EQ(std::vector<unsigned>(v.end() - 3, v.end()), (std::vector<unsigned>{104, 299, 563}));
}

TEST(NodeDetector, MatchesModelOnRandomPointsAndGridsWithTies) {
  dense2D<double> pos, flat(2, 1600), twice;
  meshgen::random_points(3000, pos, 3);
  check_against_model(pos, -0.1, 1.1, 0);
  meshgen::random_points(3000, pos, 2, 99);
  check_against_model(pos, -0.1, 1.1, 0);
  // Queries on nodes, edge midpoints and cell centres: exact ties, broken by the search order.
  for (unsigned j = 0; j < 1600; ++j) flat(0, j) = j % 40, flat(1, j) = j / 40;
  check_against_model(flat, -1, 41, 0.5);
  meshgen::lattice_nodes(12, 0.5, pos);
  check_against_model(pos, -0.5, 6.5, 0.25);
  twice.resize(3, 2 * pos.cols);  // every node twice: its copy is the nearest other node
  for (unsigned j = 0; j < twice.cols; ++j)
    for (unsigned k = 0; k < 3; ++k) twice(k, j) = pos(k, j % pos.cols);
  check_against_model(twice, -0.5, 6.5, 0.5);
  node_detector d(twice);
  for (unsigned j = 0; j < twice.cols; ++j) ASSERT_EQ(d.find_closest(j), (j + pos.cols) % twice.cols);
}

TEST(NodeDetector, BoxBoundariesOrderAndAppending) {
  dense2D<double> pos(2, 4);
  const double xy[8] = {0, 0, 1, 0, 1, 1, 2, 2};
  for (unsigned j = 0; j < 8; ++j) pos(j % 2, j / 2) = xy[j];
  node_detector d(pos);
  U1 found(1, 77u), none;
  d.find_in_box(V2{{1, 0}}, V2{{1, 1}}, found);
  // Insertion order 3, 1, 0, 2 makes the chain 3 -left-> 1 -right-> 0 -right-> 2; node 0 is
  // below the box on x, yet its right subtree is walked.
  EXPECT_EQ(vec(found), (std::vector<unsigned>{77, 1, 2}));
  d.find_in_box(V2{{1.5, 0}}, V2{{0.5, 3}}, none);  // min above max
  d.find_in_box(V2{{NAN, 0}}, V2{{3, 3}}, none);
  d.find_in_box(V3{{-9, -9, -9}}, V3{{9, 9, 9}}, none);  // other dimension
  EXPECT_EQ(none.size, 0u);
  EXPECT_EQ(d.find_closest(V3{{0, 0, 0}}), NULL_INDEX);
}

TEST(NodeDetector, StatusCodesAndStates) {
  dense2D<double> pos, four(4, 10, 0.0);
  meshgen::random_points(50, pos, 3);
  dense2D<unsigned> bad(2, 1, 50u);
  node_detector d;
  EXPECT_EQ(d.find_closest(0u), NULL_INDEX);
  EXPECT_EQ(d.insert(u1({1, 2})), 0u);
  EXPECT_EQ(d.reinit(pos, u1({3, 50})), -2);
  EXPECT_EQ(d.size(), 0u);
  EXPECT_EQ(d.reinit(pos, u1({3, 4, 3})), 0);
  EXPECT_EQ(d.find_closest(3u), 4u);  // both copies of node 3 are skipped
  model m{pos, {}};  // a node the tree does not hold is searched from its coordinates
  EXPECT_EQ(d.find_closest(10u), m.d2(3, pos.col_ptr(10)) <= m.d2(4, pos.col_ptr(10)) ? 3u : 4u);
  EXPECT_EQ(d.reinit(pos, bad), -2);
  EXPECT_EQ(d.reinit(pos, nullptr, &bad), -2);
  EXPECT_EQ(d.reinit(four, u1({1})), -1);
  EXPECT_EQ(d.size(), 3u);  // failed checks keep the previous tree...
  EXPECT_EQ(d.reinit(four), -1);
  EXPECT_EQ(d.size(), 0u);  // ...except in the all-nodes form
  EXPECT_EQ(d.reinit(dense2D<double>(3, 0)), 0);
  EXPECT_EQ(d.find_closest(V3{{0, 0, 0}}), NULL_INDEX);
  EXPECT_EQ(d.insert(u1({0, 1})), 0u);
  d.reinit(pos, u1({8}));
  EXPECT_EQ(d.find_closest(8u), NULL_INDEX);  // no other node
  EXPECT_EQ(d.find_closest(50u), NULL_INDEX);
  EXPECT_EQ(d.insert(u1({NULL_INDEX, 50, 9, 1000, 9})), 2u);
  EXPECT_EQ(d.size(), 3u);
}

TEST(NodeDetector, ConnectivitiesAndIncrementalInsertBuildTheModelTree) {
  dense2D<double> pos;
  meshgen::random_points(400, pos, 2, 5);
  dense2D<unsigned> c3(3, 300), more(2, 3);
  std::mt19937 rng(3);
  for (unsigned j = 0; j < 300; ++j)
    for (unsigned k = 0; k < 3; ++k) c3(k, j) = rng() % 11 == 0 ? NULL_INDEX : 100 + rng() % 250;
  const dense2D<unsigned> c = c3.sub_matrix(0, 0, 2, 300), c2 = c3.sub_matrix(2, 100, 1, 50);  // ld > rows
  auto distinct = [](std::vector<const dense2D<unsigned>*> ms) {
    std::vector<unsigned> out, seen(1000, 0);
    for (const dense2D<unsigned>* m : ms)
      for (unsigned j = 0; j < m->cols; ++j)
        for (unsigned k = 0; k < m->rows; ++k)
          if (unsigned v = (*m)(k, j); v != NULL_INDEX && !seen[v]++) out.push_back(v);
    return out;
  };
  model ref{pos, {}};
  ref.insert(distinct({&c, &c2}));
  node_detector d(pos, &c, &c2), f(pos, c), g(pos, u1(distinct({&c})));
  EXPECT_EQ(box(d, 2), ref.box());
  EXPECT_EQ(box(f, 2), box(g, 2));
  // Out-of-range nodes take part in the shuffle, then are skipped.
  const unsigned mv[6] = {5, 900, 6, 5, 7, NULL_INDEX};
  for (unsigned i = 0; i < 6; ++i) more(i % 2, i / 2) = mv[i];
  EXPECT_EQ(d.insert(more), 3u);
  EXPECT_EQ(ref.insert({5, 900, 6, 7}), 3u);
  EXPECT_EQ(d.insert(u1({11, 500, 12, 13, 11})), 4u);
  EXPECT_EQ(ref.insert({11, 500, 12, 13, 11}), 4u);
  EXPECT_EQ(box(d, 2), ref.box());
  for (unsigned j = 0; j < 400; ++j) EXPECT_EQ(d.find_closest(j), ref.nearest(pos.col_ptr(j), j)) << j;
}

TEST(NodeDetector, WalkAndBulkInsertionAgreeWithTiesAndNaN) {
  dense2D<double> pos;
  meshgen::random_points(2000, pos, 3, 11);
  for (unsigned j = 0; j < 2000; j += 7) pos(1, j) = 0.5, pos(j % 3, j + 3) = NAN;
  sp::coord_view cv{pos.col_ptr(0), pos.ld, pos.cols};
  std::vector<unsigned> order = iota(2000);
  sp::shuffle_indices(order.data(), 2000);
  sp::node_array walk, bulk;
  for (unsigned i : order) ASSERT_TRUE(sp::insert_walk<3>(walk, cv, i));
  ASSERT_TRUE(sp::insert_bulk<3>(bulk, cv, order.data(), 1200));  // into an empty, then a filled tree
  ASSERT_TRUE(sp::insert_bulk<3>(bulk, cv, order.data() + 1200, 800));
  ASSERT_EQ(walk.count, bulk.count);
  auto shape = [](const sp::node_array& t) {  // child point indices of each point: same tree
    std::vector<std::array<unsigned, 2>> kids(2000, {NULL_INDEX, NULL_INDEX});
    for (unsigned p = 0; p < t.count; ++p)
      for (unsigned side = 1; side <= 2; ++side)
        if (const unsigned c = t.node(p)[side]; c != NULL_INDEX) kids[t.node(p)[0]][side - 1] = t.node(c)[0];
    return kids;
  };
  EXPECT_EQ(shape(walk), shape(bulk));
  EXPECT_EQ(walk.node(0)[0], bulk.node(0)[0]);
  // The walk leaves runs of one leaf only; the second bulk insertion breaks the runs it grows into.
  unsigned inner = 0;
  for (unsigned p = 0; p < walk.count; ++p) inner += walk.node(p)[1] != NULL_INDEX || walk.node(p)[2] != NULL_INDEX;
  EXPECT_EQ(check_layout(walk), inner);
  const unsigned broken = check_layout(bulk);
  EXPECT_GT(broken, 0u);
  EXPECT_LT(broken, 1000u);
  // Same tree, other layouts: the same answers, which are the reference search's.
  model m{pos, {}};
  m.insert(iota(2000));
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0, 1);
  for (int q = 0; q < 200; ++q) {
    const double P[3] = {u(rng), q % 2 ? 0.5 : u(rng), u(rng)};
    const unsigned want = m.nearest(P);
    EXPECT_EQ(sp::nearest<3>(walk, cv, P, NULL_INDEX), want) << q;
    EXPECT_EQ(sp::nearest<3>(bulk, cv, P, NULL_INDEX), want) << q;
    EXPECT_EQ(sp::nearest_reference<3>(bulk, cv, P, NULL_INDEX), want) << q;
  }
}

TEST(NodeDetector, NonFiniteCoordinatesAndQueries) {
  dense2D<double> pos, nan_all(2, 30, NAN);
  meshgen::random_points(500, pos, 3, 8);
  pos(0, 0) = NAN, pos(1, 10) = inf, pos(2, 20) = -inf;
  node_detector d(pos);
  EXPECT_LT(d.find_closest(V3{{NAN, 0.5, 0.5}}), 500u);
  EXPECT_LT(d.find_closest(V3{{inf, inf, inf}}), 500u);
  EXPECT_NE(d.find_closest(0u), NULL_INDEX);
  const unsigned b = d.find_closest(V3{{0.5, 0.5, 0.5}});
  EXPECT_TRUE(b != 0 && b != 10 && b != 20);  // a NaN distance never beats a real one
  nan_all(0, 29) = 1, nan_all(1, 29) = 1;
  node_detector e(nan_all);
  EXPECT_EQ(e.find_closest(V2{{0.9, 0.9}}), 29u);
  EXPECT_LT(e.find_closest(29u), 29u);  // only infinite distances left: the first other node met
  // NaN and infinite coordinates scattered through a larger cloud: the reference search never
  // enters the left subtree of a NaN split, and every answer must still be its answer.
  dense2D<double> holes;
  meshgen::random_points(3000, holes, 2, 31);
  for (unsigned j = 0; j < 3000; j += 23) holes(j % 2, j) = j % 3 ? NAN : inf;
  node_detector h(holes);
  model mh{holes, {}};
  mh.insert(iota(3000));
  std::mt19937 rng(4);
  std::uniform_real_distribution<double> u(0, 1);
  for (int q = 0; q < 300; ++q) {
    const double Q[2] = {u(rng), u(rng)};
    EXPECT_EQ(h.find_closest(V2{{Q[0], Q[1]}}), mh.nearest(Q)) << q;
  }
  for (unsigned j = 0; j < 3000; j += 5) EXPECT_EQ(h.find_closest(j), mh.nearest(holes.col_ptr(j), j)) << j;
  // Trees of 14 nodes (one run scanned whole) with NaN splits inside: a node below one is found
  // by the reference search only when the descent passes it.
  for (unsigned seed = 0; seed < 60; ++seed) {
    dense2D<double> small;
    meshgen::random_points(14, small, 2, seed);
    for (unsigned j = seed % 3; j < 14; j += 3) small((j + seed) % 2, j) = NAN;
    node_detector t(small);
    model ms{small, {}};
    ms.insert(iota(14));
    for (int q = 0; q < 30; ++q) {
      const double Q[2] = {u(rng), u(rng)};
      EXPECT_EQ(t.find_closest(V2{{Q[0], Q[1]}}), ms.nearest(Q)) << seed << " " << q;
    }
  }
  // 3000 coincident points make a 3000-deep chain (ties go right).
  dense2D<double> same(3, 3000, 0.25);
  same(0, 1234) = 0.5;
  node_detector f(same);
  model m{same, {}};
  m.insert(iota(3000));
  const double P[3] = {0.25, 0.25, 0.25};
  EXPECT_EQ(f.find_closest(V3{{0.4, 0.25, 0.25}}), 1234u);
  EXPECT_EQ(f.find_closest(7u), m.nearest(P, 7u));
  EXPECT_EQ(box(f, 3, P, P).size(), 2999u);
}

TEST(NodeDetector, DeepCopyAndCoordinatesReadAtQueryTime) {
  dense2D<double> pos;
  meshgen::random_points(200, pos, 3, 4);
  node_detector d(pos, u1({1, 2, 3, 4})), c(d), e;
  e = d;
  e = e;
  EXPECT_EQ(e.insert(u1({5, 6})), 2u);
  EXPECT_EQ(d.size(), 4u);
  EXPECT_EQ(e.size(), 6u);
  EXPECT_EQ(box(c, 3), box(d, 3));
  for (unsigned k = 0; k < 3; ++k) pos(k, 3) = 0.125 + k;
  EXPECT_EQ(c.find_closest(V3{{0.125, 1.125, 2.125}}), 3u);
}

TEST(NodeDetector, ChangedCoordinatesAreFollowedLikeTheModel) {
  dense2D<double> pos;
  meshgen::random_points(3000, pos, 3, 21);
  node_detector d(pos);
  model m{pos, {}};
  m.insert(iota(pos.cols));
  std::mt19937 rng(9);
  std::uniform_real_distribution<double> u(-0.4, 4.4), jitter(-0.4, 0.4);
  auto agree = [&] {  // at random points and at every 7th node
    for (int q = 0; q < 400; ++q) {
      const double P[3] = {u(rng), u(rng), u(rng)};
      EXPECT_EQ(d.find_closest(V3{{P[0], P[1], P[2]}}), m.nearest(P)) << q;
    }
    for (unsigned j = 0; j < pos.cols; j += 7) EXPECT_EQ(d.find_closest(j), m.nearest(pos.col_ptr(j), j)) << j;
  };
  // Scaling by 4 is exact and keeps the tree order.
  for (unsigned j = 0; j < 3 * pos.cols; ++j) pos(j % 3, j / 3) *= 4;
  agree();
  // Nodes moved far from where the tree holds them, each queried at its new place.
  for (unsigned j = 0; j < pos.cols; j += 97) {
    for (unsigned k = 0; k < 3; ++k) pos(k, j) = 4 * std::fmod(0.37 * (j + 1) * (k + 2), 1.0);
    const double P[3] = {pos(0, j) + 1e-3, pos(1, j), pos(2, j)};
    EXPECT_EQ(d.find_closest(V3{{P[0], P[1], P[2]}}), m.nearest(P)) << j;
  }
  agree();
  // Every node shifted by up to about its spacing: the tree order breaks all over the tree.
  for (unsigned j = 0; j < 3 * pos.cols; ++j) pos(j % 3, j / 3) += jitter(rng);
  agree();
}
