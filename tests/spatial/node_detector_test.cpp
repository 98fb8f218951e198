#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "common/meshgen.hpp"
#include "spatial/kdtree.hpp"

using kvo::dense1D;
using kvo::dense2D;
using kvo::vector_fixed;
using kvo::gridkit::node_detector;
using kvo::gridkit::NULL_INDEX;
using U1 = dense1D<unsigned, 16>;
using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

// A plain model of the detector: point-by-point insertion and a recursive search, written from
// the rules alone (no layout tricks), to compare exact answers with.
struct model {
  const dense2D<double>& pos;
  unsigned dim;
  std::vector<std::array<unsigned, 3>> n;  // index, left, right

  model(const dense2D<double>& p) : pos(p), dim(p.rows) {}
  double x(unsigned i, unsigned k) const { return pos(k, i); }
  unsigned insert(std::vector<unsigned> list) {
    kvo::gridkit::spatial::shuffle_indices(list.data(), unsigned(list.size()));
    unsigned count = 0;
    for (unsigned i : list) {
      if (i >= pos.cols) continue;
      ++count;
      n.push_back({i, NULL_INDEX, NULL_INDEX});
      const unsigned s = unsigned(n.size() - 1);
      for (unsigned p = 0, a = 0; s != 0; a = (a + 1) % dim) {
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
    double d2 = 0;
    for (unsigned k = 0; k < dim; ++k) {
      in = in && P[k] - r <= x(i, k) && P[k] + r >= x(i, k);
      d2 += (x(i, k) - P[k]) * (x(i, k) - P[k]);
    }
    if (in && i != skip && std::sqrt(d2) < r) { r = std::sqrt(d2); best = i; }
    if (P[a] + r > x(i, a)) dfs(n[p][2], (a + 1) % dim, P, skip, r, best);
    if (P[a] - r < x(i, a)) dfs(n[p][1], (a + 1) % dim, P, skip, r, best);
  }
  unsigned nearest(const double* P, unsigned skip = NULL_INDEX) const {
    if (n.empty()) return NULL_INDEX;
    unsigned best = NULL_INDEX;
    double bd2 = inf;
    for (unsigned p = 0, a = 0; p != NULL_INDEX; a = (a + 1) % dim) {
      const unsigned i = n[p][0];
      double d2 = 0;
      for (unsigned k = 0; k < dim; ++k) d2 += (x(i, k) - P[k]) * (x(i, k) - P[k]);
      if (i != skip && (best == NULL_INDEX || d2 < bd2)) { best = i; bd2 = d2; }
      p = n[p][x(i, a) <= P[a] ? 2 : 1];
    }
    double r = std::sqrt(bd2);
    if (r == 0) return best;
    dfs(0, 0, P, skip, r, best);
    return best;
  }
  void box(unsigned p, unsigned a, const double* lo, const double* hi, std::vector<unsigned>& out) const {
    if (p == NULL_INDEX) return;
    const unsigned i = n[p][0];
    const bool L = lo[a] <= x(i, a), R = hi[a] >= x(i, a);
    bool in = L && R;
    for (unsigned k = 0; k < dim; ++k) in = in && lo[k] <= x(i, k) && x(i, k) <= hi[k];
    if (in) out.push_back(i);
    if (L) box(n[p][1], (a + 1) % dim, lo, hi, out);
    if (R) box(n[p][2], (a + 1) % dim, lo, hi, out);
  }
};

std::vector<unsigned> iota(unsigned n) {
  std::vector<unsigned> v(n);
  for (unsigned i = 0; i < n; ++i) v[i] = i;
  return v;
}
std::vector<unsigned> as_vec(const U1& v) { return std::vector<unsigned>(v.begin(), v.begin() + v.size); }
U1 to_U1(const std::vector<unsigned>& v) {
  U1 r(unsigned(v.size()));
  for (unsigned i = 0; i < v.size(); ++i) r[i] = v[i];
  return r;
}

std::vector<unsigned> box_of(const node_detector& d, unsigned dim, const double* lo, const double* hi) {
  U1 found;
  if (dim == 2) d.find_in_box(V2{{lo[0], lo[1]}}, V2{{hi[0], hi[1]}}, found);
  else d.find_in_box(V3{{lo[0], lo[1], lo[2]}}, V3{{hi[0], hi[1], hi[2]}}, found);
  return as_vec(found);
}
unsigned closest(const node_detector& d, unsigned dim, const double* P) {
  return dim == 2 ? d.find_closest(V2{{P[0], P[1]}}) : d.find_closest(V3{{P[0], P[1], P[2]}});
}
const double all_lo[3] = {-inf, -inf, -inf}, all_hi[3] = {inf, inf, inf};

// Compares every query of the detector with the model and the nearest distance with brute force.
void check_against_model(const dense2D<double>& pos, double qlo, double qhi, double step) {
  const unsigned dim = pos.rows;
  node_detector d(pos);
  model m(pos);
  m.insert(iota(pos.cols));
  ASSERT_EQ(d.size(), pos.cols);
  std::vector<unsigned> pre;
  m.box(0, 0, all_lo, all_hi, pre);
  ASSERT_EQ(box_of(d, dim, all_lo, all_hi), pre);  // same tree, same preorder

  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(qlo, qhi);
  for (int q = 0; q < 400; ++q) {
    double P[3];
    for (unsigned k = 0; k < dim; ++k) P[k] = step > 0 ? std::round(u(rng) / step) * step : u(rng);
    const unsigned got = closest(d, dim, P);
    ASSERT_EQ(got, m.nearest(P)) << "query " << q;
    double best = inf, dgot = 0;
    for (unsigned j = 0; j < pos.cols; ++j) {
      double d2 = 0;
      for (unsigned k = 0; k < dim; ++k) d2 += (pos(k, j) - P[k]) * (pos(k, j) - P[k]);
      best = std::min(best, d2);
      if (j == got) dgot = d2;
    }
    ASSERT_EQ(dgot, best);
    double lo[3], hi[3];
    for (unsigned k = 0; k < dim; ++k) lo[k] = P[k] - 0.15 * (qhi - qlo), hi[k] = P[k] + 0.1 * (qhi - qlo);
    std::vector<unsigned> want;
    m.box(0, 0, lo, hi, want);
    ASSERT_EQ(box_of(d, dim, lo, hi), want);
  }
  for (unsigned j = 0; j < pos.cols; j += 3) ASSERT_EQ(d.find_closest(j), m.nearest(pos.col_ptr(j), j)) << j;
}

}  // namespace

TEST(NodeDetectorShuffle, FixedGeneratorAndMaskedDraws) {
  const std::vector<std::vector<unsigned>> want = {{0, 1}, {2, 1, 0}, {3, 4, 0, 2, 1}, {9, 4, 0, 5, 1, 6, 2, 7, 3, 8}};
  for (const auto& w : want) {
    std::vector<unsigned> v = iota(unsigned(w.size()));
    kvo::gridkit::spatial::shuffle_indices(v.data(), unsigned(v.size()));
    EXPECT_EQ(v, w);
  }
  std::vector<unsigned> v = iota(1000);
  kvo::gridkit::spatial::shuffle_indices(v.data(), 1000);
  EXPECT_EQ(std::vector<unsigned>(v.begin(), v.begin() + 8), (std::vector<unsigned>{650, 807, 877, 90, 495, 920, 389, 956}));
  EXPECT_EQ(std::vector<unsigned>(v.end() - 4, v.end()), (std::vector<unsigned>{426, 104, 299, 563}));
}

TEST(NodeDetectorSearch, MatchesModelOnRandomPoints) {
  dense2D<double> pos;
  meshgen::random_points(3000, pos, 3);
  check_against_model(pos, -0.1, 1.1, 0);
  meshgen::random_points(3000, pos, 2, 99);
  check_against_model(pos, -0.1, 1.1, 0);
}

TEST(NodeDetectorSearch, MatchesModelOnGridsWithTies) {
  dense2D<double> pos;
  meshgen::lattice_nodes(12, 0.5, pos);
  check_against_model(pos, -0.5, 6.5, 0.25);  // queries on nodes, edge midpoints, cell centres
  dense2D<double> flat(2, 40 * 40);
  for (unsigned j = 0; j < 1600; ++j) flat(0, j) = j % 40, flat(1, j) = j / 40;
  check_against_model(flat, -1, 41, 0.5);
  // Every node twice: the duplicate is the nearest other node, at distance 0.
  dense2D<double> twice(3, 2 * pos.cols);
  for (unsigned j = 0; j < twice.cols; ++j)
    for (unsigned k = 0; k < 3; ++k) twice(k, j) = pos(k, j % pos.cols);
  check_against_model(twice, -0.5, 6.5, 0.5);
  node_detector d(twice);
  for (unsigned j = 0; j < twice.cols; ++j) ASSERT_EQ(d.find_closest(j), (j + pos.cols) % twice.cols);
}

TEST(NodeDetectorSearch, CoincidentPointsFormAChain) {
  dense2D<double> pos(3, 3000, 0.25);  // deeper than any inline search stack
  pos(0, 1234) = 0.5;
  node_detector d(pos);
  model m(pos);
  m.insert(iota(3000));
  const double P[3] = {0.25, 0.25, 0.25}, Q[3] = {0.4, 0.25, 0.25};
  EXPECT_EQ(d.find_closest(V3{{0.25, 0.25, 0.25}}), m.nearest(P));
  EXPECT_EQ(d.find_closest(V3{{0.4, 0.25, 0.25}}), 1234u);
  EXPECT_EQ(d.find_closest(1234u), m.nearest(Q, 1234u));
  EXPECT_EQ(d.find_closest(7u), m.nearest(P, 7u));
  EXPECT_EQ(box_of(d, 3, P, P).size(), 2999u);
}

TEST(NodeDetectorBox, BoundariesOrderAndAppending) {
  dense2D<double> pos(2, 4);
  const double xy[8] = {0, 0, 1, 0, 1, 1, 2, 2};
  for (unsigned j = 0; j < 8; ++j) pos(j % 2, j / 2) = xy[j];
  node_detector d(pos);
  U1 found(1, 77u);  // earlier entries are kept
  d.find_in_box(V2{{1, 0}}, V2{{1, 1}}, found);
  // Insertion order 3, 1, 0, 2 gives the chain 3 -left-> 1 -right-> 0 -right-> 2; node 0 is
  // not tested (its x is below the box) but its right subtree is walked.
  EXPECT_EQ(as_vec(found), (std::vector<unsigned>{77, 1, 2}));
  U1 none;
  d.find_in_box(V2{{1.5, 0}}, V2{{0.5, 3}}, none);  // min above max on x
  d.find_in_box(V2{{NAN, 0}}, V2{{3, 3}}, none);
  d.find_in_box(V3{{-9, -9, -9}}, V3{{9, 9, 9}}, none);  // wrong dimension
  EXPECT_EQ(none.size, 0u);
  EXPECT_EQ(d.find_closest(V3{{0, 0, 0}}), NULL_INDEX);
}

TEST(NodeDetectorBuild, StatusCodesAndStates) {
  dense2D<double> pos;
  meshgen::random_points(50, pos, 3);
  node_detector d;
  EXPECT_EQ(d.size(), 0u);
  EXPECT_EQ(d.find_closest(0u), NULL_INDEX);
  EXPECT_EQ(d.insert(to_U1({1, 2})), 0u);
  EXPECT_EQ(d.reinit(pos, to_U1({3, 50})), -2);
  EXPECT_EQ(d.reinit(pos, to_U1({3, 4, 3})), 0);
  EXPECT_EQ(d.size(), 3u);  // duplicates are kept
  EXPECT_EQ(d.find_closest(3u), 4u);  // both copies of 3 are skipped
  dense2D<unsigned> bad(2, 1, 50u);
  EXPECT_EQ(d.reinit(pos, to_U1({60})), -2);
  EXPECT_EQ(d.reinit(pos, bad), -2);
  EXPECT_EQ(d.reinit(pos, &bad, nullptr), -2);
  dense2D<double> four(4, 10, 0.0), none(3, 0);
  EXPECT_EQ(d.reinit(four, to_U1({1})), -1);
  EXPECT_EQ(d.size(), 3u);  // failed checks keep the previous tree
  EXPECT_EQ(d.reinit(four), -1);
  EXPECT_EQ(d.size(), 0u);  // ... except for the all-nodes form
  EXPECT_EQ(d.reinit(dense2D<double>(0, 5)), -1);
  EXPECT_EQ(d.reinit(none), 0);
  EXPECT_EQ(d.find_closest(V3{{0, 0, 0}}), NULL_INDEX);
  EXPECT_EQ(d.insert(to_U1({0, 1})), 0u);
  d.reinit(pos, to_U1({8}));
  EXPECT_EQ(d.find_closest(8u), NULL_INDEX);  // no other node
  EXPECT_EQ(d.find_closest(50u), NULL_INDEX);
  EXPECT_EQ(d.insert(to_U1({NULL_INDEX, 50, 9, 1000, 9})), 2u);
  EXPECT_EQ(d.size(), 3u);
  d.clear();
  EXPECT_EQ(d.size(), 0u);
}

TEST(NodeDetectorBuild, ConnectivityFormsAndIncrementalInsert) {
  dense2D<double> pos;
  meshgen::random_points(400, pos, 2, 5);
  // Two-row view (ld 3) of a 3-row connectivity, with nulls and repeats.
  dense2D<unsigned> c3(3, 300);
  std::mt19937 rng(3);
  for (unsigned j = 0; j < 300; ++j)
    for (unsigned k = 0; k < 3; ++k) c3(k, j) = rng() % 11 == 0 ? NULL_INDEX : 100 + rng() % 250;
  const dense2D<unsigned> c = c3.sub_matrix(0, 0, 2, 300), c2 = c3.sub_matrix(2, 100, 1, 50);
  auto distinct = [](std::vector<const dense2D<unsigned>*> ms) {
    std::vector<unsigned> out, seen(1000, 0);
    for (const dense2D<unsigned>* m : ms)
      for (unsigned j = 0; j < m->cols; ++j)
        for (unsigned k = 0; k < m->rows; ++k)
          if (unsigned v = (*m)(k, j); v != NULL_INDEX && !seen[v]++) out.push_back(v);
    return out;
  };
  const std::vector<unsigned> first_seen = distinct({&c, &c2});
  model ref(pos);
  ref.insert(first_seen);
  std::vector<unsigned> pre;
  ref.box(0, 0, all_lo, all_hi, pre);
  node_detector d(pos, &c, &c2), e(pos, nullptr, &c2);
  EXPECT_EQ(box_of(d, 2, all_lo, all_hi), pre);
  EXPECT_EQ(e.size(), distinct({&c2}).size());
  node_detector f(pos, c), g(pos, to_U1(distinct({&c})));
  EXPECT_EQ(box_of(f, 2, all_lo, all_hi), box_of(g, 2, all_lo, all_hi));
  // Incremental: a connectivity with out-of-range nodes shuffles with them, then skips them.
  dense2D<unsigned> more(2, 4);
  const unsigned mv[8] = {5, 900, 6, 5, 7, NULL_INDEX, 900, 8};
  for (unsigned i = 0; i < 8; ++i) more(i % 2, i / 2) = mv[i];
  EXPECT_EQ(d.insert(more), 4u);
  EXPECT_EQ(ref.insert({5, 900, 6, 7, 8}), 4u);
  EXPECT_EQ(d.insert(to_U1({11, 500, 12, 13, 11})), 4u);
  EXPECT_EQ(ref.insert({11, 500, 12, 13, 11}), 4u);
  pre.clear();
  ref.box(0, 0, all_lo, all_hi, pre);
  EXPECT_EQ(box_of(d, 2, all_lo, all_hi), pre);
  EXPECT_EQ(d.size(), unsigned(pre.size()));
}

TEST(NodeDetectorBuild, WalkAndBulkInsertionBuildTheSameTree) {
  namespace sp = kvo::gridkit::spatial;
  dense2D<double> pos;
  meshgen::random_points(2000, pos, 3, 11);
  for (unsigned j = 0; j < 2000; j += 7) pos(1, j) = 0.5;  // ties on y
  for (unsigned j = 3; j < 2000; j += 97) pos(j % 3, j) = NAN;
  sp::coord_view cv{pos.col_ptr(0), pos.ld, pos.cols};
  std::vector<unsigned> order = iota(2000);
  sp::shuffle_indices(order.data(), 2000);
  sp::node_array walk, bulk;
  for (unsigned i : order) ASSERT_TRUE(sp::insert_walk<3>(walk, cv, i));
  ASSERT_TRUE(sp::insert_bulk<3>(bulk, cv, order.data(), 1200));  // empty tree, then an existing one
  ASSERT_TRUE(sp::insert_bulk<3>(bulk, cv, order.data() + 1200, 800));
  U1 a, b;
  sp::in_box<3>(walk.data(), walk.count, cv, all_lo, all_hi, a);
  sp::in_box<3>(bulk.data(), bulk.count, cv, all_lo, all_hi, b);
  EXPECT_EQ(as_vec(a), as_vec(b));
  for (unsigned i : as_vec(a)) EXPECT_FALSE(std::isnan(pos(0, i) + pos(1, i) + pos(2, i)));
  for (unsigned j = 0; j < 2000; j += 37)
    EXPECT_EQ(sp::nearest<3>(walk.data(), walk.count, cv, pos.col_ptr(j), j),
              sp::nearest<3>(bulk.data(), bulk.count, cv, pos.col_ptr(j), j));
}

TEST(NodeDetectorBadInput, NonFiniteCoordinatesAndQueries) {
  dense2D<double> pos;
  meshgen::random_points(500, pos, 3, 8);
  pos(0, 0) = NAN;  // index 0 is usually not the root: check a NaN root as well below
  pos(1, 10) = inf;
  pos(2, 20) = -inf;
  node_detector d(pos);
  EXPECT_EQ(d.size(), 500u);
  const unsigned a = d.find_closest(V3{{NAN, 0.5, 0.5}});
  EXPECT_LT(a, 500u);
  EXPECT_LT(d.find_closest(V3{{inf, inf, inf}}), 500u);
  EXPECT_NE(d.find_closest(0u), NULL_INDEX);
  const unsigned b = d.find_closest(V3{{0.5, 0.5, 0.5}});
  EXPECT_TRUE(b != 0 && b != 10 && b != 20);  // a NaN distance never beats a real one
  dense2D<double> nan_all(2, 30, NAN);
  nan_all(0, 29) = 1, nan_all(1, 29) = 1;
  node_detector e(nan_all);
  EXPECT_EQ(e.find_closest(V2{{0.9, 0.9}}), 29u);
  EXPECT_LT(e.find_closest(29u), 29u);  // only infinite distances: the first other node met
  EXPECT_LT(e.find_closest(V2{{NAN, NAN}}), 30u);
}

TEST(NodeDetectorCopy, DeepCopyAndSharedCoordinates) {
  dense2D<double> pos;
  meshgen::random_points(200, pos, 3, 4);
  node_detector d(pos, to_U1({1, 2, 3, 4}));
  node_detector c(d), e;
  e = d;
  e = e;
  EXPECT_EQ(e.insert(to_U1({5, 6})), 2u);
  EXPECT_EQ(d.size(), 4u);
  EXPECT_EQ(c.size(), 4u);
  EXPECT_EQ(e.size(), 6u);
  EXPECT_EQ(box_of(c, 3, all_lo, all_hi), box_of(d, 3, all_lo, all_hi));
  e = node_detector();
  EXPECT_EQ(e.size(), 0u);
  // The detector reads the caller's values at query time.
  for (unsigned k = 0; k < 3; ++k) pos(k, 3) = 0.125 + k;
  EXPECT_EQ(c.find_closest(V3{{0.125, 1.125, 2.125}}), 3u);
}
