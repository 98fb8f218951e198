// Merging of nodes that lie within a distance tolerance of one another.
//
// The result is fixed by pairs: node j (a member of the first list) pairs with the query node
// i = U2[k] when k < rank(j) (j is not a member of the second list, or comes after position k
// in it), j lies in the closed box of half-width tolerance centred on i, and the Euclidean
// distance from i to j is at most the tolerance. Each paired j is merged into U2[k] for the
// smallest such k, and chains of merges are then followed to their end. Any search that finds
// every pair gives the same table; three are used, by how the nodes are spread:
//  - one list, evenly spread: a dense grid of about two cells per node, swept in cell order,
//    keeping for each node the smallest k that pairs with it;
//  - one list, unevenly spread (surfaces): the same over the runs of a Morton-sorted fine grid,
//    at the coarsest level that stays uncrowded;
//  - crowded nodes, or two lists: a balanced k-d tree queried in the order of k, from which a
//    node leaves once merged or once its own rank has passed, so a crowd of coincident nodes is
//    swept by its first query instead of being compared pair by pair.
#include <algorithm>
#include <cmath>
#include <limits>

#include "editing/editing_internal.hpp"

namespace kvo::gridkit {

namespace {

using compaction::buffer;

constexpr unsigned NONE = NULL_INDEX;
// Mode-1 tag of a node used by several connectivities of the range.
constexpr unsigned MULTI = NULL_INDEX - 1;

// What to merge: nodes of U1 (positions t) into nodes of U2 (positions k).
struct problem {
  const double* xyz = nullptr;  // entry (a, n) at xyz[a + n * ld]
  std::size_t ld = 0;
  const unsigned* U1 = nullptr;  // null: the identity list 0 .. n1-1
  std::size_t n1 = 0;
  const unsigned* U2 = nullptr;  // ignored when same
  std::size_t n2 = 0;
  bool same = false;             // U2 is U1 (then the rank of position t is t)
  const unsigned* rank = nullptr;  // per U1 position, when not same: position in U2 or NONE
  const unsigned* tag = nullptr;   // per U1 position, mode 1 only (same lists)
  double tol = 0;

  unsigned node1(std::size_t t) const { return U1 ? U1[t] : unsigned(t); }
  unsigned node2(std::size_t k) const { return same ? node1(k) : U2[k]; }
  unsigned rank_of(std::size_t t) const { return same ? unsigned(t) : rank[t]; }
};

// Two nodes tagged with the same single connectivity are not merged in mode 1.
inline bool eligible(unsigned tag_i, unsigned tag_j) { return tag_i != tag_j || tag_i == MULTI; }

template <unsigned D>
struct geometry;

template <>
struct geometry<3> {
  static constexpr unsigned bits = 21;  // per axis: keys of 63 bits
  static std::uint64_t spread(std::uint64_t x) {
    x &= 0x1fffff;
    x = (x | x << 32) & 0x1f00000000ffffull;
    x = (x | x << 16) & 0x1f0000ff0000ffull;
    x = (x | x << 8) & 0x100f00f00f00f00full;
    x = (x | x << 4) & 0x10c30c30c30c30c3ull;
    x = (x | x << 2) & 0x1249249249249249ull;
    return x;
  }
  static std::uint64_t morton(const unsigned* c) { return spread(c[0]) | spread(c[1]) << 1 | spread(c[2]) << 2; }
};

template <>
struct geometry<2> {
  static constexpr unsigned bits = 31;  // per axis: keys of 62 bits
  static std::uint64_t spread(std::uint64_t x) {
    x &= 0xffffffffull;
    x = (x | x << 16) & 0x0000ffff0000ffffull;
    x = (x | x << 8) & 0x00ff00ff00ff00ffull;
    x = (x | x << 4) & 0x0f0f0f0f0f0f0f0full;
    x = (x | x << 2) & 0x3333333333333333ull;
    x = (x | x << 1) & 0x5555555555555555ull;
    return x;
  }
  static std::uint64_t morton(const unsigned* c) { return spread(c[0]) | spread(c[1]) << 1; }
};

// A node held in the search structure: coordinates, U1 position, and the rank (two lists) or
// the mode-1 tag (one list).
template <unsigned D>
struct record {
  double x[D];
  unsigned t;
  unsigned aux;
  std::uint64_t key;  // Morton code of the node's cell at the finest level in use
};

// A node of the k-d tree over records: the bounds of its records, the records [begin, end),
// how many of them are still live, its parent, and its first child (the second follows it;
// NONE for a leaf). A leaf's live records are [begin, begin + live).
template <unsigned D>
struct kd_node {
  double lo[D], hi[D];
  unsigned begin, end, live, parent, left;
};

template <unsigned D>
class solver {
 public:
  using geo = geometry<D>;
  static constexpr unsigned B = geo::bits;
  static constexpr unsigned G = (1u << B) - 1;  // largest fine cell coordinate

  solver(const problem& pb, unsigned* best) : pb_(pb), best_(best) {}

  // Fills best[t] with the smallest k pairing with U1 position t (NONE when none).
  // false when memory ran out.
  bool run() {
    for (std::size_t t = 0; t < pb_.n1; ++t) best_[t] = NONE;
    const double tol = pb_.tol;
    if (std::isnan(tol) || pb_.n1 == 0 || pb_.n2 == 0) return true;  // nothing is within a NaN tolerance
    if (std::isinf(tol)) {
      infinite_tolerance();
      return true;
    }
    return finite_tolerance();
  }

 private:
  static constexpr std::size_t NONE_RUN = std::size_t(-1);

  const double* coords(unsigned node) const { return pb_.xyz + std::size_t(node) * pb_.ld; }
  static bool finite(const double* x) {
    for (unsigned a = 0; a < D; ++a)
      if (!std::isfinite(x[a])) return false;
    return true;
  }
  static bool has_nan(const double* x) {
    for (unsigned a = 0; a < D; ++a)
      if (std::isnan(x[a])) return true;
    return false;
  }

  // The closed box of half-width tol around q holds p, and p is within tol of q.
  bool pairs(const double* q, const double* p) const {
    const double tol = pb_.tol;
    for (unsigned a = 0; a < D; ++a)
      if (!(q[a] - tol <= p[a] && q[a] + tol >= p[a])) return false;
    double s = 0;
    for (unsigned a = 0; a < D; ++a) {
      const double d = q[a] - p[a];
      s += d * d;
    }
    return std::sqrt(s) <= tol;
  }

  // An infinite tolerance: a query node with finite coordinates reaches every node without a
  // NaN coordinate (its box is the whole space, distances are at most infinite), and one with
  // an infinite coordinate reaches none (its box has a NaN bound). So each node pairs first
  // with the first finite query, or, in mode 1 when that one shares its tag, with the first
  // finite query of another tag.
  void infinite_tolerance() {
    std::size_t f0 = NONE, f1 = NONE;
    for (std::size_t k = 0; k < pb_.n2 && f1 == NONE; ++k) {
      if (!finite(coords(pb_.node2(k)))) continue;
      if (f0 == NONE) {
        f0 = k;
        if (!pb_.tag) break;
      } else if (pb_.tag[k] != pb_.tag[f0]) {
        f1 = k;
      }
    }
    if (f0 == NONE) return;
    for (std::size_t t = 0; t < pb_.n1; ++t) {
      if (has_nan(coords(pb_.node1(t)))) continue;
      std::size_t k = f0;
      if (pb_.tag && !eligible(pb_.tag[f0], pb_.tag[t])) k = f1;
      if (k != NONE && k < pb_.rank_of(t)) best_[t] = unsigned(k);
    }
  }

  // Fine cell coordinate along axis a: monotone in x, so a box's cell range holds the cells of
  // every point in the box whatever the rounding.
  unsigned fine(double x, unsigned a) const {
    if (scale_ == 0) return 0;
    double u = (0.5 * x - half_min_[a]) * scale_;
    u = u > 0 ? u : 0.0;  // NaN too
    u = u < double(G) ? u : double(G);
    return unsigned(u);
  }
  std::uint64_t key_of(const double* x, unsigned m_min) const {
    unsigned c[D];
    for (unsigned a = 0; a < D; ++a) c[a] = fine(x[a], a) >> m_min;
    return geo::morton(c);
  }
  // Sum over the cells of a level (cell code key >> shift) of their squared node counts.
  std::uint64_t crowding(std::size_t m, unsigned shift) const {
    const record<D>* rec = rec_.get();
    std::uint64_t sum = 0, run = 1;
    for (std::size_t i = 1; i < m; ++i) {
      if ((rec[i].key ^ rec[i - 1].key) >> shift) {
        sum += run * run;
        run = 1;
      } else {
        ++run;
      }
    }
    return sum + run * run;
  }
  void fill(record<D>& r, unsigned t, const double* x) const {
    for (unsigned a = 0; a < D; ++a) r.x[a] = x[a];
    r.t = t;
    r.aux = pb_.same ? (pb_.tag ? pb_.tag[t] : 0u) : pb_.rank[t];
  }

  bool finite_tolerance();
  int dense_sweep(std::size_t m, unsigned m_min, const double* hi);
  int curve_sweep(std::size_t m, unsigned m_min);
  bool tree_sweep(std::size_t m);

  std::size_t find_run(std::uint64_t code) const {
    const std::uint64_t* c = codes_.get();
    const std::size_t r = std::size_t(std::lower_bound(c, c + runs_, code) - c);
    return r < runs_ && c[r] == code ? r : NONE_RUN;
  }

  // Curve sweep: calls f(run) for every occupied cell of the chosen level that the box around
  // q reaches. `own`: the run of q's own cell (the only one when the box stays inside it).
  template <class F>
  void for_each_cell(const double* q, std::size_t own, F&& f) const {
    unsigned lo[D], hi[D];
    bool single = true;
    for (unsigned a = 0; a < D; ++a) {
      lo[a] = fine(q[a] - pb_.tol, a) >> shift_;
      hi[a] = fine(q[a] + pb_.tol, a) >> shift_;
      single = single && lo[a] == hi[a];
    }
    if (single) {
      f(own);
      return;
    }
    unsigned c[D];
    for (unsigned a = 0; a < D; ++a) c[a] = lo[a];
    while (true) {
      const std::size_t r = find_run(geo::morton(c));
      if (r != NONE_RUN) f(r);
      unsigned a = 0;
      while (a < D && c[a] == hi[a]) c[a] = lo[a], ++a;
      if (a == D) break;
      ++c[a];
    }
  }

  const problem& pb_;
  unsigned* best_;
  double half_min_[D] = {};
  double scale_ = 0;
  buffer<record<D>> rec_;  // the finite nodes of U1 (curve order once the curve sweep sorted them)
  bool gathered_ = false;
  unsigned shift_ = 0;     // curve sweep: fine coordinate >> shift_ = cell coordinate
  std::size_t runs_ = 0;
  buffer<std::uint64_t> codes_;  // curve sweep: cell code of each run, ascending
  buffer<unsigned> begin_;       // curve sweep: first record of each run, and the end
};

template <unsigned D>
bool solver<D>::finite_tolerance() {
  const problem& pb = pb_;
  // Nodes with an infinite or NaN coordinate are never within a finite tolerance of anything.
  std::size_t m = 0;
  double lo[D], hi[D];
  for (unsigned a = 0; a < D; ++a) lo[a] = hi[a] = 0;
  for (std::size_t t = 0; t < pb.n1; ++t) {
    const double* x = coords(pb.node1(t));
    if (!finite(x)) continue;
    for (unsigned a = 0; a < D; ++a) {
      if (m == 0 || x[a] < lo[a]) lo[a] = x[a];
      if (m == 0 || x[a] > hi[a]) hi[a] = x[a];
    }
    ++m;
  }
  if (m == 0) return true;

  // Grid of 2^B fine cells along the widest extent of the bounding box; halves keep the extent
  // finite.
  double half_extent = 0;
  for (unsigned a = 0; a < D; ++a) {
    half_min_[a] = 0.5 * lo[a];
    half_extent = std::max(half_extent, 0.5 * hi[a] - 0.5 * lo[a]);
  }
  scale_ = half_extent > 0 ? double(G) / half_extent : 0.0;
  if (!std::isfinite(scale_)) scale_ = 0;
  // Finest usable level: cells at least as wide as the tolerance, so that a box reaches at
  // most about three cells per axis.
  const double reach = pb.tol * 0.5 * scale_;  // tolerance in fine cells
  unsigned m_min = 0;
  while (m_min < B && std::ldexp(1.0, int(m_min)) < reach) ++m_min;

  if (pb.same) {
    int done = dense_sweep(m, m_min, hi);
    if (done == 0) done = curve_sweep(m, m_min);
    if (done != 0) return done > 0;
  }
  return tree_sweep(m);
}

// One list over a dense grid of about two cells per node (cells no narrower than the
// tolerance): node positions are counting-sorted by cell and every node queries the cells its
// box reaches, in cell order, keeping for each node the smallest rank that pairs with it.
// Returns 1 when done, 0 when the grid does not suit the nodes (too crowded), -1 when memory
// ran out.
template <unsigned D>
int solver<D>::dense_sweep(std::size_t m, unsigned m_min, const double* hi) {
  const problem& pb = pb_;
  // The finest level (no finer than m_min) with at most about two cells per node. The largest
  // fine coordinate on an axis is that of the bounding box (the mapping is monotone).
  unsigned hi_fine[D];
  for (unsigned a = 0; a < D; ++a) hi_fine[a] = fine(hi[a], a);
  const std::uint64_t wanted = std::max<std::uint64_t>(2 * std::uint64_t(m), 64);
  unsigned g = m_min, top[D];  // level, largest cell coordinate per axis
  std::uint64_t cells, stride[D];
  while (true) {
    cells = 1;
    for (unsigned a = 0; a < D; ++a) {
      top[a] = hi_fine[a] >> g;
      stride[a] = cells;
      cells *= std::uint64_t(top[a]) + 1;
    }
    if (cells <= wanted || g == B) break;
    ++g;
  }
  if (cells >= 0xFFFFFFFFull) return 0;

  buffer<unsigned> cell_of, start, order;
  if (!cell_of.allocate(m) || !start.allocate(std::size_t(cells) + 1, true)) return -1;
  for (std::size_t t = 0, i = 0; t < pb.n1; ++t) {
    const double* x = coords(pb.node1(t));
    if (!finite(x)) continue;
    std::uint64_t c = 0;
    for (unsigned a = 0; a < D; ++a) c += (fine(x[a], a) >> g) * stride[a];
    cell_of[i++] = unsigned(c);
  }
  unsigned* count = start.get() + 1;
  for (std::size_t i = 0; i < m; ++i) ++count[cell_of[i]];
  std::uint64_t crowd = 0;
  for (std::size_t c = 0; c < cells; ++c) crowd += std::uint64_t(count[c]) * count[c];
  if (crowd > 8 * std::uint64_t(m) + 4096) return 0;
  for (std::size_t c = 0; c < cells; ++c) count[c] += start[c];  // start[c] = first of cell c
  if (!order.allocate(m)) return -1;
  // Scatter with a running cursor per cell: start[c] becomes the end of cell c, so shifting
  // back by one restores the starts.
  for (std::size_t t = 0, i = 0; t < pb.n1; ++t) {
    if (!finite(coords(pb.node1(t)))) continue;
    order[start[cell_of[i]]++] = unsigned(t);
    ++i;
  }
  for (std::size_t c = cells; c > 0; --c) start[c] = start[c - 1];
  start[0] = 0;
  cell_of.reset();

  const unsigned* first = start.get();
  const unsigned* ord = order.get();
  const bool tagged = pb.tag != nullptr;
  const double tol = pb.tol;
  constexpr std::size_t ahead = 48;
  for (std::size_t s = 0; s < m; ++s) {
#if defined(__GNUC__)
    if (s + ahead < m) {  // both cache lines a node's coordinates may straddle
      const double* f = coords(pb.node1(ord[s + ahead]));
      __builtin_prefetch(f);
      __builtin_prefetch(f + D - 1);
    }
#endif
    const unsigned k = ord[s];
    const double* q = coords(pb.node1(k));
    unsigned lo[D], hi_c[D];
    for (unsigned a = 0; a < D; ++a) {
      lo[a] = std::min(fine(q[a] - tol, a) >> g, top[a]);
      hi_c[a] = std::min(fine(q[a] + tol, a) >> g, top[a]);
    }
    const auto scan = [&](std::uint64_t c) {
      for (std::size_t u = first[c]; u < first[c + 1]; ++u) {
        const unsigned j = ord[u];
        if (j <= k) continue;
        if (!pairs(q, coords(pb.node1(j)))) continue;
        if (tagged && !eligible(pb.tag[k], pb.tag[j])) continue;
        if (k < best_[j]) best_[j] = k;
      }
    };
    unsigned c[D];
    for (unsigned a = 0; a < D; ++a) c[a] = lo[a];
    while (true) {
      std::uint64_t id = 0;
      for (unsigned a = 0; a < D; ++a) id += c[a] * stride[a];
      scan(id);
      unsigned a = 0;
      while (a < D && c[a] == hi_c[a]) c[a] = lo[a], ++a;
      if (a == D) break;
      ++c[a];
    }
  }
  return 1;
}

// One list sorted along a Morton curve of the fine grid, for nodes the dense grid finds too
// crowded (surfaces, uneven spreads). A counting sort on the top bits of the keys (about one
// bucket per node) moves whole records, and the buckets are sorted on their own; the cells of a
// chosen level are then runs of the sorted records, and every node queries the runs its box
// reaches in curve order. Returns 1 when done, 0 when even the finest cells are crowded (the
// records are then left gathered for the tree), -1 when memory ran out.
template <unsigned D>
int solver<D>::curve_sweep(std::size_t m, unsigned m_min) {
  const problem& pb = pb_;
  const unsigned levels = B - m_min;  // coarser levels above m_min
  unsigned top = 0;                   // levels covered by the buckets
  while (top < levels && (std::uint64_t(1) << (D * (top + 1))) <= 2 * std::uint64_t(m)) ++top;
  const unsigned bucket_shift = D * (levels - top);
  const std::size_t buckets = std::size_t(1) << (D * top);
  // Keys get a pass of their own so that the scattered accesses below overlap in tight loops.
  buffer<std::uint64_t> keys;
  buffer<unsigned> ends;  // counts, exclusive prefix sums, then the end of each bucket
  if (!keys.allocate(m) || !ends.allocate(buckets, true)) return -1;
  for (std::size_t t = 0, i = 0; t < pb.n1; ++t) {
    const double* x = coords(pb.node1(t));
    if (finite(x)) keys[i++] = key_of(x, m_min);
  }
  for (std::size_t i = 0; i < m; ++i) ++ends[std::size_t(keys[i] >> bucket_shift)];
  for (std::size_t b = 0, sum = 0; b < buckets; ++b) {
    const unsigned c = ends[b];
    ends[b] = unsigned(sum);
    sum += c;
  }
  if (!rec_.allocate(m)) return -1;
  for (std::size_t t = 0, i = 0; t < pb.n1; ++t) {
    const double* x = coords(pb.node1(t));
    if (!finite(x)) continue;
    const std::uint64_t key = keys[i++];
    record<D>& r = rec_[ends[std::size_t(key >> bucket_shift)]++];
    fill(r, unsigned(t), x);
    r.key = key;
  }
  gathered_ = true;
  keys.reset();
  record<D>* rec = rec_.get();
  const auto by_key = [](const record<D>& a, const record<D>& b) { return a.key < b.key; };
  for (std::size_t b = 0, s = 0; b < buckets; s = ends[b++]) {
    const std::size_t e = ends[b];
    if (e - s < 2) continue;
    if (e - s > 16) {
      std::sort(rec + s, rec + e, by_key);
      continue;
    }
    for (std::size_t i = s + 1; i < e; ++i) {
      const record<D> v = rec[i];
      std::size_t j = i;
      for (; j > s && v.key < rec[j - 1].key; --j) rec[j] = rec[j - 1];
      rec[j] = v;
    }
  }

  // Level choice: the coarsest level whose crowding stays close to that of the finest one.
  // Levels at or above the buckets' are measured on the bucket counts.
  const std::uint64_t base = crowding(m, 0);
  if (base > 16 * std::uint64_t(m) + 4096) return 0;
  const unsigned bucket_level = levels - top;
  auto crowding_at = [&](unsigned level) -> std::uint64_t {
    if (level < bucket_level) return crowding(m, D * level);
    const std::size_t group = std::size_t(1) << (D * (level - bucket_level));
    std::uint64_t sum = 0;
    for (std::size_t b = 0, s = 0; b < buckets; b += group) {
      const std::uint64_t e = ends[b + group - 1];
      sum += (e - s) * (e - s);
      s = std::size_t(e);
    }
    return sum;
  };
  const std::uint64_t limit = 2 * base + 2 * std::uint64_t(m);
  unsigned a = 0, b = levels;  // crowding_at(a) <= limit
  // Start at the buckets' level, the usual answer for evenly spread nodes.
  if (crowding_at(bucket_level) <= limit)
    a = bucket_level;
  else if (bucket_level > 0)
    b = bucket_level - 1;
  while (a < b) {
    const unsigned mid = (a + b + 1) / 2;
    if (crowding_at(mid) <= limit)
      a = mid;
    else
      b = mid - 1;
  }
  const unsigned level = a;
  ends.reset();
  shift_ = m_min + level;
  const unsigned code_shift = D * level;
  if (!codes_.allocate(m) || !begin_.allocate(m + 1)) return -1;
  runs_ = 0;
  for (std::size_t i = 0; i < m; ++i) {
    if (i == 0 || (rec[i].key ^ rec[i - 1].key) >> code_shift) {
      codes_[runs_] = rec[i].key >> code_shift;
      begin_[runs_] = unsigned(i);
      ++runs_;
    }
  }
  begin_[runs_] = unsigned(m);

  const bool tagged = pb.tag != nullptr;
  for (std::size_t r = 0; r < runs_; ++r) {
    for (std::size_t p = begin_[r]; p < begin_[r + 1]; ++p) {
      const record<D>& q = rec[p];
      const unsigned k = q.t;
      for_each_cell(q.x, r, [&](std::size_t cell) {
        for (std::size_t s = begin_[cell]; s < begin_[cell + 1]; ++s) {
          const record<D>& j = rec[s];
          if (j.t <= k || !pairs(q.x, j.x)) continue;
          if (tagged && !eligible(q.aux, j.aux)) continue;
          if (k < best_[j.t]) best_[j.t] = k;
        }
      });
    }
  }
  return 1;
}

// Crowded nodes, or two lists: a balanced k-d tree (median splits on the widest axis, exact
// node bounds) queried in the order of k. A node leaves the tree once merged or once its own
// rank has passed, since no later query can pair with it; live counts let queries skip emptied
// subtrees, so a crowd of coincident nodes is swept by its first query.
template <unsigned D>
bool solver<D>::tree_sweep(std::size_t m) {
  const problem& pb = pb_;
  if (!gathered_) {
    if (!rec_.allocate(m)) return false;
    for (std::size_t t = 0, i = 0; t < pb.n1; ++t) {
      const double* x = coords(pb.node1(t));
      if (finite(x)) fill(rec_[i++], unsigned(t), x);
    }
  }
  record<D>* rec = rec_.get();
  constexpr unsigned leaf_size = 8;
  // Leaves hold 4 to 8 records (or any number of coincident ones), so m / 2 + 3 nodes suffice.
  const std::size_t capacity = m / 2 + 3;
  buffer<kd_node<D>> tree;
  if (!tree.allocate(capacity)) return false;
  kd_node<D>* nodes = tree.get();
  std::size_t count = 1;
  nodes[0].begin = 0;
  nodes[0].end = nodes[0].live = unsigned(m);
  nodes[0].parent = NONE;
  constexpr unsigned max_depth = 96;
  unsigned stack[max_depth];
  unsigned sp = 0;
  stack[sp++] = 0;
  while (sp) {
    kd_node<D>& nd = nodes[stack[--sp]];
    nd.left = NONE;
    for (unsigned a = 0; a < D; ++a) nd.lo[a] = nd.hi[a] = rec[nd.begin].x[a];
    for (unsigned i = nd.begin + 1; i < nd.end; ++i)
      for (unsigned a = 0; a < D; ++a) {
        nd.lo[a] = std::min(nd.lo[a], rec[i].x[a]);
        nd.hi[a] = std::max(nd.hi[a], rec[i].x[a]);
      }
    unsigned axis = 0;
    for (unsigned a = 1; a < D; ++a)
      if (nd.hi[a] - nd.lo[a] > nd.hi[axis] - nd.lo[axis]) axis = a;
    if (nd.end - nd.begin <= leaf_size || !(nd.hi[axis] > nd.lo[axis]) || count + 2 > capacity ||
        sp + 2 > max_depth)
      continue;
    const unsigned mid = nd.begin + (nd.end - nd.begin) / 2;
    std::nth_element(rec + nd.begin, rec + mid, rec + nd.end,
                     [axis](const record<D>& x, const record<D>& y) { return x.x[axis] < y.x[axis]; });
    const unsigned l = unsigned(count);
    count += 2;
    const unsigned self = unsigned(&nd - nodes);
    nodes[l] = kd_node<D>{{}, {}, nd.begin, mid, mid - nd.begin, self, NONE};
    nodes[l + 1] = kd_node<D>{{}, {}, mid, nd.end, nd.end - mid, self, NONE};
    nd.left = l;
    stack[sp++] = l + 1;
    stack[sp++] = l;
  }

  const bool tagged = pb.tag != nullptr;
  const double tol = pb.tol;
  const double* last = nullptr;  // previous query that ran
  unsigned last_tag = 0;
  for (std::size_t k = 0; k < pb.n2; ++k) {
    const double* q = coords(pb.node2(k));
    if (!finite(q)) continue;
    const unsigned tag_q = tagged ? pb.tag[k] : 0u;
    // A query at the place (and with the tag) of the previous one finds nothing new: what
    // pairs with it paired with the previous query and has left.
    if (last && tag_q == last_tag) {
      bool same = true;
      for (unsigned a = 0; a < D; ++a) same = same && q[a] == last[a];
      if (same) continue;
    }
    last = q;
    last_tag = tag_q;
    double qlo[D], qhi[D];
    for (unsigned a = 0; a < D; ++a) qlo[a] = q[a] - tol, qhi[a] = q[a] + tol;
    sp = 0;
    stack[sp++] = 0;
    while (sp) {
      const unsigned i = stack[--sp];
      kd_node<D>& nd = nodes[i];
      if (nd.live == 0) continue;
      bool overlap = true;
      for (unsigned a = 0; a < D; ++a) overlap = overlap && qlo[a] <= nd.hi[a] && qhi[a] >= nd.lo[a];
      if (!overlap) continue;
      if (nd.left != NONE) {
        stack[sp++] = nd.left + 1;
        stack[sp++] = nd.left;
        continue;
      }
      unsigned s = nd.begin, e = nd.begin + nd.live;
      while (s < e) {
        record<D>& j = rec[s];
        const unsigned rank = pb.same ? j.t : j.aux;
        bool leave = rank <= k;
        if (!leave && pairs(q, j.x) && (!tagged || eligible(tag_q, j.aux))) {
          best_[j.t] = unsigned(k);
          leave = true;
        }
        if (!leave) {
          ++s;
          continue;
        }
        std::swap(j, rec[--e]);
        for (unsigned p = i; p != NONE; p = nodes[p].parent) --nodes[p].live;
      }
    }
  }
  return true;
}

// Turns the smallest pairing ranks into the renumbering table (one entry per coordinate
// column) and follows chains of merges to their end. Returns the number of merged nodes.
int finish(const problem& pb, const unsigned* best, unsigned cols, dense1D<unsigned, 16>& new_IDs) {
  new_IDs.size = 0;
  if (!new_IDs.resize(cols)) return ERR_ALLOCATION;
  unsigned* map = new_IDs.ptr();
  for (unsigned n = 0; n < cols; ++n) map[n] = n;
  int count = 0;
  for (std::size_t t = 0; t < pb.n1; ++t) {
    if (best[t] == NONE) continue;
    map[pb.node1(t)] = pb.node2(best[t]);
    ++count;
  }
  if (count == 0) return 0;
  // Each step of a chain goes to a node of smaller rank, so chains end; path compression
  // keeps long chains linear.
  for (std::size_t t = 0; t < pb.n1; ++t) {
    const unsigned e = pb.node1(t);
    unsigned root = e;
    while (map[root] != root) root = map[root];
    unsigned cur = e;
    while (map[cur] != root) {
      const unsigned next = map[cur];
      map[cur] = root;
      cur = next;
    }
  }
  return count;
}

// Solves the problem and writes the table; the count of merges or ERR_ALLOCATION.
int solve(const problem& pb, unsigned dim, unsigned cols, dense1D<unsigned, 16>& new_IDs) {
  buffer<unsigned> best;
  if (!best.allocate(pb.n1)) return ERR_ALLOCATION;
  const bool ok = dim == 2 ? solver<2>(pb, best.get()).run() : solver<3>(pb, best.get()).run();
  if (!ok) return ERR_ALLOCATION;
  return finish(pb, best.get(), cols, new_IDs);
}

// Distinct entries below `bound` of the runs that visit walks, in the order of their first
// occurrence. false when memory ran out.
template <class Visit>
bool distinct_nodes(Visit&& visit, unsigned bound, buffer<unsigned>& out, std::size_t& count) {
  std::uint64_t entries = 0;
  visit([&](const unsigned*, std::size_t n) { entries += n; });
  count = 0;
  compaction::index_set seen;
  if (!seen.prepare(bound, entries)) return false;
  if (!out.allocate(std::size_t(std::min<std::uint64_t>(entries, bound)))) return false;
  if (out.size() == 0) return true;
  count = compaction::append_new(seen, visit, out.get());
  return count != SIZE_MAX;
}

void setup_coords(problem& pb, const dense2D<double>& pos) {
  pb.xyz = pos.storage->data + pos.offset;
  pb.ld = pos.ld;
}

}  // namespace

// ---- point lists

int merge(const dense2D<double>& pos, const dense1D<unsigned, 16>& IDs1, const dense1D<unsigned, 16>& IDs2,
          dense1D<unsigned, 16>& new_IDs, double tolerance) {
  const dense1D<unsigned, 16> ids1(IDs1), ids2(IDs2);  // unaffected if new_IDs is one of them
  new_IDs.size = 0;
  const unsigned cols = pos.cols;
  if (cols == 0) return 0;
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (!check_IDs(ids1, cols)) return -2;
  if (!check_IDs(ids2, cols)) return -3;
  if (tolerance < 0) return -4;
  if (ids1.size == 0 || ids2.size == 0) return 0;

  const bool same = ids1 == ids2;
  auto list = [](const dense1D<unsigned, 16>& v) {
    return [&v](auto&& f) { f(static_cast<const unsigned*>(v.storage->data + v.offset), std::size_t(v.size)); };
  };
  buffer<unsigned> U1, U2, rank;
  std::size_t n1 = 0, n2 = 0;
  if (!distinct_nodes(list(ids1), cols, U1, n1)) return ERR_ALLOCATION;
  if (!same && !distinct_nodes(list(ids2), cols, U2, n2)) return ERR_ALLOCATION;

  problem pb;
  setup_coords(pb, pos);
  pb.U1 = U1.get();
  pb.n1 = n1;
  pb.same = same;
  pb.n2 = same ? n1 : n2;
  pb.U2 = same ? U1.get() : U2.get();
  pb.tol = tolerance;
  if (!same) {
    // Rank table over the nodes, then the rank of each node of U1.
    if (!new_IDs.resize(cols, NONE) || !rank.allocate(n1)) return ERR_ALLOCATION;
    unsigned* table = new_IDs.ptr();
    for (std::size_t k = 0; k < n2; ++k) table[U2[k]] = unsigned(k);
    for (std::size_t t = 0; t < n1; ++t) rank[t] = table[U1[t]];
    pb.rank = rank.get();
  }
  return solve(pb, pos.rows, cols, new_IDs);
}

int merge(const dense2D<double>& pos, const dense1D<unsigned, 16>& IDs, dense1D<unsigned, 16>& new_IDs,
          double tolerance) {
  return merge(pos, IDs, IDs, new_IDs, tolerance);
}

int merge(dense2D<double>& pos, dense1D<unsigned, 16>& new_IDs, double tolerance) {
  new_IDs.size = 0;
  const unsigned cols = pos.cols;
  if (cols == 0) return 0;
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (tolerance < 0) return -3;

  problem pb;
  setup_coords(pb, pos);
  pb.n1 = pb.n2 = cols;
  pb.same = true;
  pb.tol = tolerance;
  const int count = solve(pb, pos.rows, cols, new_IDs);
  if (count <= 0) return count;

  // Merged nodes take the coordinates of their target. Targets are never merged themselves,
  // so the columns read are never overwritten, and when no other view shares the block the
  // columns can be rewritten in place.
  dense2D<double> C;
  if (pos.storage->count == 1) {
    C.shallow_copy(pos);
  } else if (!C.copy(pos)) {
    return ERR_ALLOCATION;
  }
  const unsigned* map = new_IDs.ptr();
  const unsigned rows = pos.rows;
  for (unsigned i = 0; i < cols; ++i) {
    const unsigned t = map[i];
    if (t == i) continue;
    for (unsigned a = 0; a < rows; ++a) C(a, i) = pos(a, t);
  }
  pos.shallow_copy(C);
  return count;
}

int merge(dense2D<double>& pos, double tolerance) {
  dense1D<unsigned, 16> new_IDs;
  return merge(pos, new_IDs, tolerance);
}

// ---- connectivities

int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
          dense1D<unsigned, 16>& new_IDs, double tolerance, unsigned mode) {
  new_IDs.size = 0;
  const unsigned cols = pos.cols;
  if (cols == 0 || first == last) return 0;
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (last < first) return -3;
  if (tolerance < 0) return -5;
  if (mode > 2) return -6;

  auto visit = [first, last](auto&& f) {
    for (const dense2D<unsigned>* c = first; c != last; ++c) detail::for_each_run(*c, f);
  };
  buffer<unsigned> U, tags;
  std::size_t n = 0;
  if (!distinct_nodes(visit, cols, U, n)) return ERR_ALLOCATION;

  problem pb;
  setup_coords(pb, pos);
  pb.U1 = U.get();
  pb.n1 = pb.n2 = n;
  pb.same = true;
  pb.tol = tolerance;
  if (mode == 1) {
    // Tag each node with the one connectivity that uses it, or MULTI.
    if (!new_IDs.resize(cols, NONE) || !tags.allocate(n)) return ERR_ALLOCATION;
    unsigned* tag = new_IDs.ptr();
    unsigned ci = 0;
    for (const dense2D<unsigned>* c = first; c != last; ++c, ++ci) {
      detail::for_each_run(*c, [tag, ci, cols](const unsigned* p, std::size_t m) {
        for (std::size_t i = 0; i < m; ++i) {
          const unsigned v = p[i];
          if (v >= cols) continue;
          if (tag[v] == NONE)
            tag[v] = ci;
          else if (tag[v] != ci)
            tag[v] = MULTI;
        }
      });
    }
    for (std::size_t t = 0; t < n; ++t) tags[t] = tag[U[t]];
    pb.tag = tags.get();
  }
  const int count = solve(pb, pos.rows, cols, new_IDs);
  if (count < 0) return count;
  if (mode != 2 && count > 0)
    for (dense2D<unsigned>* c = first; c != last; ++c) change_indices(*c, new_IDs);
  return 0;
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs, double tolerance,
          unsigned mode) {
  return merge(pos, &connectM, &connectM + 1, new_IDs, tolerance, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
          dense1D<unsigned, 16>& new_IDs, double tolerance, unsigned mode) {
  dense2D<unsigned> pair[2] = {connectM1, connectM2};
  const int status = merge(pos, pair, pair + 2, new_IDs, tolerance, mode);
  if (status == 0) {
    connectM1.shallow_copy(pair[0]);
    connectM2.shallow_copy(pair[1]);
  }
  return status;
}

int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, double tolerance,
          unsigned mode) {
  dense1D<unsigned, 16> new_IDs;
  return merge(pos, first, last, new_IDs, tolerance, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, double tolerance, unsigned mode) {
  dense1D<unsigned, 16> new_IDs;
  return merge(pos, &connectM, &connectM + 1, new_IDs, tolerance, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2, double tolerance,
          unsigned mode) {
  dense1D<unsigned, 16> new_IDs;
  return merge(pos, connectM1, connectM2, new_IDs, tolerance, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM) { return merge(pos, connectM, 1e-6, 0u); }

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2) {
  return merge(pos, connectM1, connectM2, 1e-6, 0u);
}

}  // namespace kvo::gridkit
