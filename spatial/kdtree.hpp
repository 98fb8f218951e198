// Internal k-d tree of the node detector.
//
// The tree holds node indices only; coordinates are read from the caller's matrix at every
// query. Its shape is fixed by the insertion rule (axis = depth mod dim, ties go right) and by
// the insertion order (a shuffle driven by MT19937 seeded with 1).
//
// Layout. Tree nodes live in one array of 12 unsigned per node:
//   idx, left, right   the point index and the two children (positions in the array, or none);
//   span               the size of the subtree when it occupies exactly the positions
//                      [p, p + span) (the bulk builder lays new subtrees out in preorder), 0 once
//                      a later insertion has scattered it;
//   gpos[4], gidx[4]   positions and point indices of the four grandchildren (left-left,
//                      left-right, right-left, right-right); a missing one repeats the node itself.
//                      The top bit of a position marks a grandchild whose subtree is a short run
//                      (the fast search scans those whole).
// A second array gives the point index at every position, so that the points of a contiguous
// subtree are one run. The grandchildren fields only serve prefetching: walks are bound by memory
// latency, and knowing two levels ahead lets a walk ask for a node's data two steps before it
// needs it.
//
// Nearest-node search. The reference search is a descent keeping the first strictly closest node
// (squared distances), then a depth-first search from the root with the Euclidean radius of that
// node, right subtree before left, strict comparisons. It finds the closest node; which one of
// several at the same distance depends on its visiting order. A faster exact search (closer child
// first, subtrees pruned by the distance to their cell, small contiguous subtrees scanned as one
// run) answers instead when nothing can make the two differ: no other node within a few rounding
// errors of the winner's distance, no node outside the cell its ancestors give it (coordinates
// changed after insertion, NaN) among those it meets, a winner at a normal non-zero distance.
// Otherwise the reference search runs.
#ifndef GRIDKIT_SPATIAL_KDTREE_HPP
#define GRIDKIT_SPATIAL_KDTREE_HPP

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::spatial {

constexpr unsigned none = 0xFFFFFFFFu;
constexpr unsigned node_stride = 12;
constexpr unsigned f_idx = 0, f_left = 1, f_right = 2, f_span = 3, f_gpos = 4, f_gidx = 8;
constexpr unsigned max_nodes = 0x3FFFFFF0u;
constexpr unsigned run_flag = 0x80000000u, pos_mask = 0x7FFFFFFFu;
// Contiguous subtrees of at most this many nodes are scanned as one run by the fast search.
constexpr unsigned scan_max = 16;

// Shuffles v[0..n) in place: for k = 1..n-1, j is drawn uniform in [0, k] from MT19937 (seed 1)
// outputs masked to the smallest all-ones mask covering k, rejecting values above k.
inline void shuffle_indices(unsigned* v, unsigned n) {
  if (n < 2) return;
  std::mt19937 gen(1u);
  for (unsigned k = 1; k < n; ++k) {
    unsigned mask = k;
    mask |= mask >> 1;
    mask |= mask >> 2;
    mask |= mask >> 4;
    mask |= mask >> 8;
    mask |= mask >> 16;
    unsigned draw;
    do {
      draw = static_cast<unsigned>(gen()) & mask;
    } while (draw > k);
    const unsigned j = draw % (k + 1u);
    const unsigned t = v[k];
    v[k] = v[j];
    v[j] = t;
  }
}

// Read-only view of the coordinates: column j starts at base + j*ld.
struct coord_view {
  const double* base = nullptr;
  std::size_t ld = 0;
  unsigned cols = 0;  // usable columns
  const double* at(unsigned j) const noexcept { return base + std::size_t(j) * ld; }
};

// Number of columns of pos that its storage really holds (a corrupted view yields fewer).
inline unsigned usable_columns(const dense2D<double>& pos) noexcept {
  if (pos.rows == 0 || pos.cols == 0 || pos.ld < pos.rows || !pos.storage || !pos.storage->data) return 0;
  const std::uint64_t cap = pos.storage->capacity;
  if (cap < std::uint64_t(pos.offset) + pos.rows) return 0;
  const std::uint64_t fit = (cap - pos.offset - pos.rows) / pos.ld + 1;
  return fit < pos.cols ? static_cast<unsigned>(fit) : pos.cols;
}

// The axis after a (0 after the last), without a branch.
template <unsigned D>
inline unsigned next_axis(unsigned a) noexcept {
  return (a + 1) & (0u - unsigned(a + 1 != D));
}

// Blocks of a few megabytes and more are aligned to 2 MiB and marked for transparent huge pages:
// searches touch them in scattered order, and fewer pages mean fewer address-translation misses.
inline void* alloc_block(std::size_t bytes) noexcept {
  constexpr std::size_t huge = std::size_t(1) << 21;
  if (bytes < 2 * huge) return std::aligned_alloc(64, (bytes + 63) & ~std::size_t(63));
  bytes = (bytes + huge - 1) & ~(huge - 1);
  void* p = std::aligned_alloc(huge, bytes);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (p) madvise(p, bytes, MADV_HUGEPAGE);
#endif
  return p;
}

// Tree storage: the node records and the point index of every position.
class node_array {
 public:
  node_array() = default;
  node_array(const node_array&) = delete;
  node_array& operator=(const node_array&) = delete;
  ~node_array() { release(); }

  unsigned count = 0;

  unsigned* rec() noexcept { return rec_; }
  const unsigned* rec() const noexcept { return rec_; }
  const unsigned* pre() const noexcept { return pre_; }
  unsigned* node(unsigned p) noexcept { return rec_ + std::size_t(p) * node_stride; }
  const unsigned* node(unsigned p) const noexcept { return rec_ + std::size_t(p) * node_stride; }

  // Room for n nodes; false (storage unchanged) when the memory cannot be had.
  bool reserve(unsigned n) noexcept {
    if (n <= cap_) return true;
    if (n > max_nodes) return false;
    unsigned* r = static_cast<unsigned*>(alloc_block(std::size_t(n) * node_stride * sizeof(unsigned)));
    unsigned* q = static_cast<unsigned*>(alloc_block(std::size_t(n) * sizeof(unsigned)));
    if (!r || !q) {
      std::free(r);
      std::free(q);
      return false;
    }
    if (count) {
      std::memcpy(r, rec_, std::size_t(count) * node_stride * sizeof(unsigned));
      std::memcpy(q, pre_, std::size_t(count) * sizeof(unsigned));
    }
    std::free(rec_);
    std::free(pre_);
    rec_ = r;
    pre_ = q;
    cap_ = n;
    return true;
  }

  // Appends a leaf for point idx; returns its position, or none when no memory is left.
  unsigned append(unsigned idx) noexcept {
    if (count >= max_nodes) return none;
    if (count == cap_) {
      const std::uint64_t grown = std::uint64_t(cap_) + cap_ / 2 + 16;
      if (!reserve(static_cast<unsigned>(grown < max_nodes ? grown : max_nodes))) return none;
    }
    const unsigned p = count++;
    unsigned* n = node(p);
    n[f_idx] = idx;
    n[f_left] = none;
    n[f_right] = none;
    n[f_span] = 1;
    for (unsigned i = 0; i < 4; ++i) {
      n[f_gpos + i] = p;
      n[f_gidx + i] = idx;
    }
    pre_[p] = idx;
    return p;
  }

  // Deep copy of o; false (this left empty) when the memory cannot be had.
  bool assign(const node_array& o) noexcept {
    release();
    if (o.count == 0) return true;
    if (!reserve(o.count)) return false;
    std::memcpy(rec_, o.rec_, std::size_t(o.count) * node_stride * sizeof(unsigned));
    std::memcpy(pre_, o.pre_, std::size_t(o.count) * sizeof(unsigned));
    count = o.count;
    return true;
  }

 private:
  void release() noexcept {
    std::free(rec_);
    std::free(pre_);
    rec_ = pre_ = nullptr;
    cap_ = count = 0;
  }
  unsigned* rec_ = nullptr;
  unsigned* pre_ = nullptr;
  unsigned cap_ = 0;
};

// Recomputes the grandchildren fields of node p from its children's and grandchildren's records.
inline void refresh_grandchildren(unsigned* rec, unsigned p) noexcept {
  unsigned* pn = rec + std::size_t(p) * node_stride;
  for (unsigned s = 0; s < 2; ++s) {
    const unsigned c = pn[f_left + s];
    for (unsigned t = 0; t < 2; ++t) {
      const unsigned g = c == none ? none : rec[std::size_t(c) * node_stride + f_left + t];
      if (g == none) {
        pn[f_gpos + 2 * s + t] = p;
        pn[f_gidx + 2 * s + t] = pn[f_idx];
      } else {
        const unsigned* gn = rec + std::size_t(g) * node_stride;
        pn[f_gpos + 2 * s + t] = gn[f_span] - 1u < scan_max ? g | run_flag : g;
        pn[f_gidx + 2 * s + t] = gn[f_idx];
      }
    }
  }
}

// Literal insertion, one point at a time: walk from the root (right when p[a] <= q[a]) and hang
// the new node on the free child of the last node visited. Returns false when memory runs out.
template <unsigned D>
bool insert_walk(node_array& nodes, const coord_view& cv, unsigned idx) {
  const unsigned s = nodes.append(idx);
  if (s == none) return false;
  if (s == 0) return true;
  unsigned* rec = nodes.rec();
  const double* q = cv.at(idx);
  unsigned p = 0, a = 0, up = none, upup = none;
  for (;;) {
    unsigned* pn = rec + std::size_t(p) * node_stride;
    pn[f_span] = 0;  // s joins this subtree at the end of the array
    if (upup != none) refresh_grandchildren(rec, upup);
    const unsigned side = cv.at(pn[f_idx])[a] <= q[a] ? f_right : f_left;
    const unsigned c = pn[side];
    if (c == none || c >= s) {
      pn[side] = s;
      if (up != none) refresh_grandchildren(rec, up);
      return true;
    }
    upup = up;
    up = p;
    p = c;
    a = next_axis<D>(a);
  }
}

template <unsigned D>
struct build_item {
  double c[D];
  unsigned idx;
};

// Inserts the points order[0..m) (all valid columns), in that order, into the tree. The result
// is the tree that insert_walk would build, but it is made top-down: every group of points that
// reaches a tree node is split stably by that node, so memory is streamed instead of walked
// point by point, and new subtrees are laid out in preorder. Returns false (tree unchanged) when
// the working memory cannot be had; the caller then falls back to insert_walk.
template <unsigned D>
bool insert_bulk(node_array& nodes, const coord_view& cv, const unsigned* order, unsigned m) {
  if (m == 0) return true;
  if (std::uint64_t(nodes.count) + m >= max_nodes) return false;
  if (!nodes.reserve(nodes.count + m)) return false;
  using item = build_item<D>;
  item* items = static_cast<item*>(std::malloc(sizeof(item) * std::size_t(m)));
  item* tmp = static_cast<item*>(std::malloc(sizeof(item) * std::size_t(m)));
  if (!items || !tmp) {
    std::free(items);
    std::free(tmp);
    return false;
  }
  for (unsigned i = 0; i < m; ++i) {
    const double* x = cv.at(order[i]);
    for (unsigned k = 0; k < D; ++k) items[i].c[k] = x[k];
    items[i].idx = order[i];
  }
  const unsigned first_new = nodes.count;

  // A pending group: items [b, e) to place below `parent` on `side` (or at the root when parent
  // is none), at depth axis `axis`; `up` is the parent's parent.
  struct work {
    unsigned b, e, parent, up, side, axis;
  };
  std::vector<work> stack;
  std::vector<unsigned> touched;  // older nodes whose grandchildren may have changed
  stack.push_back({0, m, none, none, f_left, 0});
  while (!stack.empty()) {
    const work w = stack.back();
    stack.pop_back();
    unsigned* rec = nodes.rec();
    unsigned target;
    if (w.parent == none)
      target = nodes.count ? 0 : none;
    else
      target = rec[std::size_t(w.parent) * node_stride + w.side];
    unsigned b = w.b;
    double split;
    if (target == none) {
      // The first point of the group takes the free slot.
      target = nodes.append(items[b].idx);  // cannot fail: room was reserved above
      if (target == none) break;
      rec = nodes.rec();
      if (w.parent != none) {
        rec[std::size_t(w.parent) * node_stride + w.side] = target;
        if (w.parent < first_new) {
          touched.push_back(w.parent);
          if (w.up != none) touched.push_back(w.up);
        }
      }
      split = items[b].c[w.axis];
      ++b;
    } else {
      // An older node receives new points below it: its subtree is no longer one run.
      rec[std::size_t(target) * node_stride + f_span] = 0;
      if (w.up != none) touched.push_back(w.up);
      split = cv.at(rec[std::size_t(target) * node_stride + f_idx])[w.axis];
    }
    // Stable split: left items are compacted in place, right items go through tmp.
    const unsigned a = w.axis;
    unsigned l = b, r = 0;
    for (unsigned i = b; i < w.e; ++i) {
      if (split <= items[i].c[a])
        tmp[r++] = items[i];
      else
        items[l++] = items[i];
    }
    if (r) std::memcpy(static_cast<void*>(items + l), tmp, sizeof(item) * r);
    const unsigned next = next_axis<D>(a);
    if (l < w.e) stack.push_back({l, w.e, target, w.parent, f_right, next});
    if (b < l) stack.push_back({b, l, target, w.parent, f_left, next});
  }
  std::free(items);
  std::free(tmp);

  // Spans and grandchildren of the new nodes (children come after their parent), then the
  // grandchildren of the older nodes that new ones were hung below.
  unsigned* rec = nodes.rec();
  for (unsigned p = nodes.count; p-- > first_new;) {
    unsigned* pn = rec + std::size_t(p) * node_stride;
    const unsigned l = pn[f_left], r = pn[f_right];
    const std::uint64_t sl = l == none ? 0 : (l == p + 1 ? rec[std::size_t(l) * node_stride + f_span] : 0);
    const bool left_ok = l == none || sl != 0;
    const std::uint64_t sr =
        r == none ? 0 : (r == p + 1 + sl ? rec[std::size_t(r) * node_stride + f_span] : 0);
    const bool right_ok = r == none || sr != 0;
    pn[f_span] = left_ok && right_ok ? static_cast<unsigned>(1 + sl + sr) : 0;
    refresh_grandchildren(rec, p);
  }
  for (unsigned p : touched) refresh_grandchildren(rec, p);
  return true;
}

// Small stack with inline room, growing on the heap only for very deep trees.
template <class T, unsigned N = 128>
class small_stack {
 public:
  void push(const T& v) {
    if (n_ < N)
      inline_[n_] = v;
    else
      heap_.push_back(v);
    ++n_;
  }
  bool empty() const noexcept { return n_ == 0; }
  T pop() {
    --n_;
    if (n_ < N) return inline_[n_];
    T v = heap_.back();
    heap_.pop_back();
    return v;
  }

 private:
  T inline_[N];
  unsigned n_ = 0;
  std::vector<T> heap_;
};

// Asks for the records and coordinates of the four grandchildren of node pn (a missing one is the
// node itself, already at hand).
inline void prefetch_grandchildren(const unsigned* rec, const coord_view& cv, const unsigned* pn) noexcept {
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned g = pn[f_gpos + i] & pos_mask;
    __builtin_prefetch(rec + std::size_t(g) * node_stride);
    __builtin_prefetch(cv.at(pn[f_gidx + i]));
  }
}

// Whether lo[k] <= x[k] < hi[k] on every axis (false when a value is NaN).
template <unsigned D>
[[gnu::always_inline]] inline bool in_cell(const double* lo, const double* hi, const double* x) noexcept {
#if defined(__SSE2__)
  const __m128d x01 = _mm_loadu_pd(x);
  const int both = _mm_movemask_pd(_mm_and_pd(_mm_cmple_pd(_mm_loadu_pd(lo), x01), _mm_cmplt_pd(x01, _mm_loadu_pd(hi))));
  if constexpr (D == 2) return both == 3;
  return (both == 3) & (lo[2] <= x[2]) & (x[2] < hi[2]);
#else
  bool in = true;
  for (unsigned k = 0; k < D; ++k) in &= (lo[k] <= x[k]) & (x[k] < hi[k]);
  return in;
#endif
}


template <unsigned D>
inline double squared_distance(const double* x, const double* P) noexcept {
  double d2 = 0.0;
#pragma GCC unroll 3
  for (unsigned k = 0; k < D; ++k) {
    const double t = x[k] - P[k];
    d2 += t * t;
  }
  return d2;
}

// Reference nearest-node search, skipping tree nodes whose index is `skip`. First a descent by
// the tree order keeping the first strictly closest node (squared distances), then a depth-first
// search from the root with the Euclidean radius of that node, right subtree before left. A NaN
// distance counts as infinite. Returns none for an empty tree or when every node is skipped.
// `least`, when not negative, is the smallest squared distance of any node: once the radius is
// its square root nothing can replace the best node, and the search stops there.
template <unsigned D>
unsigned nearest_reference(const node_array& nodes, const coord_view& cv, const double* P, unsigned skip,
                           double least = -1.0) {
  if (nodes.count == 0) return none;
  const unsigned* rec = nodes.rec();
  constexpr double inf = std::numeric_limits<double>::infinity();
  unsigned best = none;
  double best_d2 = inf;
  {
    unsigned p = 0, a = 0;
    for (;;) {
      const unsigned* pn = rec + std::size_t(p) * node_stride;
      const unsigned idx = pn[f_idx];
      const double* x = cv.at(idx);
      prefetch_grandchildren(rec, cv, pn);
      if (idx != skip) {
        const double d2 = squared_distance<D>(x, P);
        if (d2 < best_d2 || best == none) {
          best = idx;
          best_d2 = d2 == d2 ? d2 : inf;
        }
      }
      const unsigned c = pn[x[a] <= P[a] ? f_right : f_left];
      if (c == none) break;
      p = c;
      a = next_axis<D>(a);
    }
  }
  double r = std::sqrt(best_d2);
  const double floor = least < 0.0 ? -1.0 : std::sqrt(least);
  if (r == 0.0 || r == floor) return best;
  double r_d2 = best_d2;  // the squared distance r was taken from (a cheap pre-filter)

  // Pending left subtrees: the child, the parent's split value and axis.
  struct pending {
    unsigned node, axis;
    double split;
  };
  small_stack<pending> stack;
  unsigned p = 0, a = 0;
  for (;;) {
    while (p != none) {
      const unsigned* pn = rec + std::size_t(p) * node_stride;
      const unsigned idx = pn[f_idx];
      const double* x = cv.at(idx);
      prefetch_grandchildren(rec, cv, pn);
      bool inside = true;
      for (unsigned k = 0; k < D; ++k) inside = inside && P[k] - r <= x[k] && P[k] + r >= x[k];
      if (inside && idx != skip) {
        const double d2 = squared_distance<D>(x, P);
        if (d2 < r_d2) {
          const double d = std::sqrt(d2);
          if (d < r) {
            r = d;
            r_d2 = d2;
            best = idx;
            if (r == floor) return best;
          }
        }
      }
      const double s = x[a];
      const unsigned next = next_axis<D>(a);
      if (pn[f_left] != none) stack.push({pn[f_left], a, s});
      p = P[a] + r > s ? pn[f_right] : none;
      a = next;
    }
    // Resume with the deepest pending left subtree that the current radius still reaches.
    for (;;) {
      if (stack.empty()) return best;
      const pending q = stack.pop();
      if (P[q.axis] - r < q.split) {
        p = q.node;
        a = (q.axis + 1 == D) ? 0 : q.axis + 1;
        break;
      }
    }
  }
}

// The fast search gives up (and the reference search runs) below this depth.
constexpr unsigned fast_depth_max = 160;

// Squared radius within which another node counts as a possible tie of a winner at squared
// distance d2, for a query point whose largest coordinate magnitude is m. It covers, with a wide
// margin, the distances whose square roots round alike and the rounding of the reference search's
// plane and box tests (relative to the radius and to the coordinates' magnitude).
inline double tie_radius2(double d2, double m) noexcept {
  const double d = std::sqrt(d2);
  const double r = d + 0x1p-44 * (d + m);
  return r * r * (1.0 + 0x1p-44);
}

// Asks for the record, the coordinates and, for the start of a short run, the run's point list of
// the two grandchildren whose fields start at g + f_gpos and g + f_gidx.
[[gnu::always_inline]] inline void ask_two_grandchildren(const unsigned* rec, const unsigned* pre, const coord_view& cv,
                                  const unsigned* g) noexcept {
  for (unsigned i = 0; i < 2; ++i) {
    const unsigned gp = g[f_gpos + i];
    __builtin_prefetch(rec + std::size_t(gp & pos_mask) * node_stride);
    __builtin_prefetch(cv.at(g[f_gidx + i]));
    __builtin_prefetch(gp & run_flag ? pre + (gp & pos_mask) : g);  // g: a line at hand
  }
}

// Exact nearest-node search that also proves its answer is the reference search's. Closer child
// first; a subtree is skipped when the distance from P to its cell (the box its ancestors' splits
// give it) exceeds the tie radius of the best node so far, and a contiguous subtree of at most
// scan_max nodes is scanned as one run. Returns false when the answer is not proven: a possible
// tie; a winner at zero, subnormal or huge distance; a winner, an internal node met or the root
// of a run met lying outside its cell (coordinates changed since insertion, or NaN); a winner
// inside a run that a walk by its coordinates does not reach; a very deep tree.
//
// Why a proven answer is the reference's: with the tree order intact, the reference search finds
// the node of smallest distance among those within rounding of it, and with no other node within
// the tie radius that node is the winner here; the reference search reaches it because every
// radius it uses until then belongs to a farther node, whose plane and box tests the winner
// passes, rounding included. A coordinate change that breaks the tree order only in subtrees this
// search skips goes unseen, and the two answers may then differ.
template <unsigned D>
bool nearest_fast(const node_array& nodes, const coord_view& cv, const double* query, unsigned skip, unsigned& out,
                  double& least) {
  constexpr double inf = std::numeric_limits<double>::infinity();
  least = -1.0;
  double P[D];  // a local copy: stores below cannot alias it
  double m = 0.0;
#pragma GCC unroll 3
  for (unsigned k = 0; k < D; ++k) {
    P[k] = query[k];
    const double v = std::fabs(P[k]);
    if (!(v <= std::numeric_limits<double>::max())) return false;
    m = v > m ? v : m;
  }
  const unsigned* rec = nodes.rec();
  const unsigned* pre = nodes.pre();

  // The cell of the current node: lo <= x < hi, with sq the squared distances from P to it along
  // each axis. Entering a child narrows one bound; the bound it replaced is kept per depth so
  // that returning to a pending far child undoes the narrowing below its parent.
  double bounds[2 * D], sq[D];  // lo[k] = bounds[k], hi[k] = bounds[D + k]
  const double* lo = bounds;
  const double* hi = bounds + D;
#pragma GCC unroll 3
  for (unsigned k = 0; k < D; ++k) {
    bounds[k] = -inf;
    bounds[D + k] = inf;
    sq[k] = 0.0;
  }
  double replaced[fast_depth_max];
  unsigned replaced_slot[fast_depth_max];
  // Pending far children, deepest last.
  struct pending {
    unsigned node, depth;
    double rd;     // squared distance from P to the child's cell
    double split;  // its parent's split value
    double sq[D];  // its squared distances along each axis
  };
  pending stack[fast_depth_max];
  unsigned sp = 0;

  unsigned best = none, best_pos = none, run_root = none, run_depth = 0;
  double best_d2 = inf, second_d2 = inf, tie2 = inf;
  // Subtrees whose cells lie farther than this are skipped: the tie radius while the best node
  // may still be proven; once a tie is certain, only a strictly closer node matters (the answer
  // will come from the reference search, which then only needs the smallest distance).
  double limit = inf;
  auto settle = [&] { limit = second_d2 <= tie2 ? (best_d2 > 0.0 ? std::nextafter(best_d2, 0.0) : -1.0) : tie2; };
  // Whether the nodes met (internal nodes and the roots of scanned runs) and the best node lie
  // in their cells: a node outside shows coordinates changed since insertion (or a NaN).
  bool in_cells = true, best_in_cell = false;
  // A new closest node x at position pos: in the current cell, or in the scanned run at `root`
  // (at `depth`) whose cell this is.
  auto improve = [&](unsigned idx, unsigned pos, const double* x, double d2, unsigned root, unsigned depth) {
    second_d2 = best_d2;
    best_d2 = d2;
    best = idx;
    best_pos = pos;
    run_root = root;
    run_depth = depth;
    tie2 = tie_radius2(d2, m);
    best_in_cell = in_cell<D>(lo, hi, x);
    settle();
  };

  unsigned p = 0, a = 0, depth = 0;
  for (;;) {
    for (;;) {
      const unsigned* pn = rec + std::size_t(p) * node_stride;
      const unsigned span = pn[f_span];
      if (span - 1u < scan_max) {
        const unsigned* run = pre + p;
        {
          const double* x = cv.at(run[0]);
          in_cells &= in_cell<D>(lo, hi, x);
        }
        for (unsigned i = 0; i < span; ++i) {
          const double* x = cv.at(run[i]);
          const double d2 = squared_distance<D>(x, P);
          if (d2 < second_d2 && run[i] != skip) [[unlikely]] {
            if (d2 < best_d2) {
              improve(run[i], p + i, x, d2, p, depth);
            } else {
              second_d2 = d2;
              settle();
            }
          }
        }
        break;
      }
      const unsigned idx = pn[f_idx];
      const double* x = cv.at(idx);
      in_cells &= in_cell<D>(lo, hi, x);
      const double d2 = squared_distance<D>(x, P);
      if (d2 < second_d2 && idx != skip) [[unlikely]] {
        if (d2 < best_d2) {
          improve(idx, p, x, d2, none, depth);
        } else {
          second_d2 = d2;
          settle();
        }
      }
      if (depth + 1 >= fast_depth_max) return false;
      const double split = x[a];
      // The grandchildren on the near side are asked for now, those on the far side when the far
      // child is kept for later. This stays a branch (the empty asm statements keep the compiler
      // from merging the arms into selects): while the split's coordinates are on their way, the
      // processor runs ahead down the predicted side and issues its loads and prefetches early.
      bool right;
      unsigned near, far;
      if (split <= P[a]) {
        asm volatile("" : : "i"(1));  // (empty; tells the arms apart)
        right = true;
        near = pn[f_right];
        far = pn[f_left];
        ask_two_grandchildren(rec, pre, cv, pn + 2);
      } else {
        asm volatile("" : : "i"(0));
        right = false;
        near = pn[f_left];
        far = pn[f_right];
        ask_two_grandchildren(rec, pre, cv, pn);
      }
      if (far != none) {
        const double diff = P[a] - split;
        double t[D];
#pragma GCC unroll 3
        for (unsigned k = 0; k < D; ++k) t[k] = sq[k];
        t[a] = diff * diff;
        double rd = 0.0;
#pragma GCC unroll 3
        for (unsigned k = 0; k < D; ++k) rd += t[k];
        if (rd <= limit) {
          pending& q = stack[sp++];
          q.node = far;
          q.depth = depth + 1;
          q.rd = rd;
          q.split = split;
#pragma GCC unroll 3
          for (unsigned k = 0; k < D; ++k) q.sq[k] = t[k];
          if (right)
            ask_two_grandchildren(rec, pre, cv, pn);
          else
            ask_two_grandchildren(rec, pre, cv, pn + 2);
        }
      }
      if (near == none) break;
      // Narrow the cell to the near child.
      const unsigned slot = right ? a : D + a;
      replaced_slot[depth] = slot;
      replaced[depth] = bounds[slot];
      bounds[slot] = split;
      p = near;
      a = next_axis<D>(a);
      ++depth;
    }
    // Resume with the deepest pending far child still within reach.
    for (;;) {
      if (sp == 0) {
        if (best == none || !in_cells || !best_in_cell) return false;
        // The tree order held wherever the search went: best_d2 is the smallest distance, which
        // lets the reference search stop as soon as it reaches it (ties, zero distance).
        least = best_d2;
        if (!(best_d2 >= 0x1p-960 && best_d2 <= 0x1p960) || second_d2 <= tie2) return false;
        if (run_root != none && run_root != best_pos) {
          // Found in a scanned run: a walk inside the run by the winner's coordinates must
          // reach it, through no NaN split.
          const double* w = cv.at(best);
          unsigned q = run_root, qa = run_depth % D;
          while (q != best_pos) {
            const unsigned* qn = rec + std::size_t(q) * node_stride;
            const double s = cv.at(qn[f_idx])[qa];
            if (s != s) return false;
            q = qn[f_left + (s <= w[qa])];
            if (q == none) return false;
            qa = next_axis<D>(qa);
          }
        }
        out = best;
        return true;
      }
      const pending& q = stack[--sp];
      if (q.rd <= limit) {
        // Undo the narrowing down to the far child's parent, then narrow to the far side.
        const unsigned parent = q.depth - 1, pa = parent % D;
        for (unsigned j = depth; j-- > parent;) bounds[replaced_slot[j]] = replaced[j];
        const unsigned slot = q.split <= P[pa] ? D + pa : pa;
        replaced_slot[parent] = slot;
        replaced[parent] = bounds[slot];
        bounds[slot] = q.split;
        p = q.node;
        depth = q.depth;
        a = next_axis<D>(pa);
#pragma GCC unroll 3
        for (unsigned k = 0; k < D; ++k) sq[k] = q.sq[k];
        break;
      }
    }
  }
}

// Nearest tree node to P, skipping tree nodes whose index is `skip`: the reference search's
// answer, by the fast search when it can prove it.
template <unsigned D>
unsigned nearest(const node_array& nodes, const coord_view& cv, const double* P, unsigned skip) {
  if (nodes.count == 0) return none;
  unsigned found;
  double least;
  if (nearest_fast<D>(nodes, cv, P, skip, found, least)) return found;
  return nearest_reference<D>(nodes, cv, P, skip, least);
}

// Appends to `found` the index of every tree node inside the closed box, in preorder (node, left
// subtree, right subtree). Stops quietly if `found` cannot grow.
template <unsigned D>
void in_box(const node_array& nodes, const coord_view& cv, const double* lo, const double* hi,
            dense1D<unsigned, 16>& found) {
  if (nodes.count == 0) return;
  const unsigned* rec = nodes.rec();
  struct pending {
    unsigned node, axis;
  };
  small_stack<pending> stack;
  stack.push({0, 0});
  while (!stack.empty()) {
    const pending w = stack.pop();
    const unsigned* pn = rec + std::size_t(w.node) * node_stride;
    const double* x = cv.at(pn[f_idx]);
    prefetch_grandchildren(rec, cv, pn);
    const unsigned a = w.axis;
    const bool go_left = lo[a] <= x[a];
    const bool go_right = hi[a] >= x[a];
    if (go_left && go_right) {
      bool inside = true;
      for (unsigned k = 0; k < D; ++k) inside = inside && lo[k] <= x[k] && x[k] <= hi[k];
      if (inside && !found.push_back(pn[f_idx])) return;
    }
    const unsigned next = next_axis<D>(a);
    if (go_right && pn[f_right] != none) stack.push({pn[f_right], next});
    if (go_left && pn[f_left] != none) stack.push({pn[f_left], next});
  }
}

}  // namespace kvo::gridkit::spatial

#endif  // GRIDKIT_SPATIAL_KDTREE_HPP
