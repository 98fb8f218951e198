// Internal k-d tree of the node detector.
//
// The tree holds node indices only; coordinates are read from the caller's matrix at every
// query. Its shape is fixed by the insertion rule (axis = depth mod dim, ties go right) and by
// the insertion order (a shuffle driven by MT19937 seeded with 1). Tree nodes live in one
// contiguous array of 4 unsigned per node: point index, left child, right child, and the point
// index of the right child (so that a walk can prefetch both children's coordinates at once).
#ifndef GRIDKIT_SPATIAL_KDTREE_HPP
#define GRIDKIT_SPATIAL_KDTREE_HPP

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <unordered_set>
#include <vector>

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::spatial {

constexpr unsigned none = 0xFFFFFFFFu;
constexpr unsigned node_stride = 4;  // point index, left, right, point index of right
constexpr unsigned f_idx = 0, f_left = 1, f_right = 2, f_right_idx = 3;

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

// Tree storage: a growable array of nodes (4 unsigned each) on a container block.
struct node_array {
  dense1D<unsigned, 16> buf;
  unsigned count = 0;

  unsigned* data() const noexcept { return buf.ptr(); }
  bool reserve(unsigned n) {
    const std::uint64_t want = std::uint64_t(n) * node_stride;
    if (want > 0xFFFFFFF0ull) return false;
    return buf.reserve(static_cast<unsigned>(want), 1);
  }
  // Appends node (idx, none, none); returns its column or `none` when no memory is left.
  unsigned append(unsigned idx) {
    if (count >= 0x3FFFFFF0u) return none;
    if (!buf.resize((count + 1) * node_stride)) return none;
    unsigned* p = buf.ptr() + std::size_t(count) * node_stride;
    p[f_idx] = idx;
    p[f_left] = none;
    p[f_right] = none;
    p[f_right_idx] = 0;
    return count++;
  }
};

// Literal insertion, one point at a time: walk from the root (right when p[a] <= q[a]) and hang
// the new node on the free child of the last node visited. Returns false when memory runs out.
template <unsigned D>
bool insert_walk(node_array& nodes, const coord_view& cv, unsigned idx) {
  const unsigned s = nodes.append(idx);
  if (s == none) return false;
  if (s == 0) return true;
  unsigned* nd = nodes.data();
  const double* q = cv.at(idx);
  unsigned p = 0, a = 0;
  for (;;) {
    unsigned* pn = nd + std::size_t(p) * node_stride;
    const unsigned side = cv.at(pn[f_idx])[a] <= q[a] ? f_right : f_left;
    const unsigned c = pn[side];
    if (c == none || c >= s) {
      pn[side] = s;
      if (side == f_right) pn[f_right_idx] = idx;
      return true;
    }
    p = c;
    a = (a + 1 == D) ? 0 : a + 1;
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
  if (std::uint64_t(nodes.count) + m >= 0x3FFFFFF0ull) return false;
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

  // A pending group: items [b, e) to place below `parent` on `side` (or at the root when parent
  // is none), at depth axis `axis`.
  struct work {
    unsigned b, e, parent, side, axis;
  };
  std::vector<work> stack;
  stack.push_back({0, m, none, f_left, 0});
  while (!stack.empty()) {
    const work w = stack.back();
    stack.pop_back();
    unsigned* nd = nodes.data();
    unsigned target;
    if (w.parent == none)
      target = nodes.count ? 0 : none;
    else
      target = nd[std::size_t(w.parent) * node_stride + w.side];
    unsigned b = w.b;
    double split;
    if (target == none) {
      // The first point of the group takes the free slot.
      target = nodes.append(items[b].idx);  // cannot fail: room was reserved above
      if (target == none) break;
      nd = nodes.data();
      if (w.parent != none) {
        nd[std::size_t(w.parent) * node_stride + w.side] = target;
        if (w.side == f_right) nd[std::size_t(w.parent) * node_stride + f_right_idx] = items[b].idx;
      }
      split = items[b].c[w.axis];
      ++b;
    } else {
      split = cv.at(nd[std::size_t(target) * node_stride + f_idx])[w.axis];
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
    const unsigned next = (a + 1 == D) ? 0 : a + 1;
    if (l < w.e) stack.push_back({l, w.e, target, f_right, next});
    if (b < l) stack.push_back({b, l, target, f_left, next});
  }
  std::free(items);
  std::free(tmp);
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

// Asks for the tree nodes and coordinates of both children of pn ahead of their use: the walks
// are bound by memory latency, not by arithmetic. Left children are usually the next column
// (subtrees are laid out in preorder), right children carry their point index in the parent.
inline void prefetch_children(const unsigned* nd, const coord_view& cv, const unsigned* pn) {
  if (pn[f_left] != none) __builtin_prefetch(cv.at(nd[std::size_t(pn[f_left]) * node_stride + f_idx]));
  if (pn[f_right] != none) {
    __builtin_prefetch(nd + std::size_t(pn[f_right]) * node_stride);
    __builtin_prefetch(cv.at(pn[f_right_idx]));
  }
}

// Nearest tree node to P, skipping tree nodes whose index is `skip`. First a descent by the tree
// order keeping the first strictly closest node (squared distances), then a depth-first search
// from the root with the Euclidean radius of that node, right subtree before left. A NaN
// distance counts as infinite. Returns none for an empty tree or when every node is skipped.
template <unsigned D>
unsigned nearest(const unsigned* nd, unsigned count, const coord_view& cv, const double* P, unsigned skip) {
  if (count == 0) return none;
  constexpr double inf = std::numeric_limits<double>::infinity();
  unsigned best = none;
  double best_d2 = inf;
  {
    unsigned p = 0, a = 0;
    for (;;) {
      const unsigned* pn = nd + std::size_t(p) * node_stride;
      const unsigned idx = pn[f_idx];
      const double* x = cv.at(idx);
      prefetch_children(nd, cv, pn);
      if (idx != skip) {
        double d2 = 0.0;
        for (unsigned k = 0; k < D; ++k) {
          const double t = x[k] - P[k];
          d2 += t * t;
        }
        if (d2 < best_d2 || best == none) {
          best = idx;
          best_d2 = d2 == d2 ? d2 : inf;
        }
      }
      const unsigned c = pn[x[a] <= P[a] ? f_right : f_left];
      if (c == none) break;
      p = c;
      a = (a + 1 == D) ? 0 : a + 1;
    }
  }
  double r = std::sqrt(best_d2);
  if (r == 0.0) return best;
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
      const unsigned* pn = nd + std::size_t(p) * node_stride;
      const unsigned idx = pn[f_idx];
      const double* x = cv.at(idx);
      prefetch_children(nd, cv, pn);
      bool inside = true;
      for (unsigned k = 0; k < D; ++k) inside = inside && P[k] - r <= x[k] && P[k] + r >= x[k];
      if (inside && idx != skip) {
        double d2 = 0.0;
        for (unsigned k = 0; k < D; ++k) {
          const double t = x[k] - P[k];
          d2 += t * t;
        }
        if (d2 < r_d2) {
          const double d = std::sqrt(d2);
          if (d < r) {
            r = d;
            r_d2 = d2;
            best = idx;
          }
        }
      }
      const double s = x[a];
      const unsigned next = (a + 1 == D) ? 0 : a + 1;
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

// Appends to `found` the index of every tree node inside the closed box, in preorder (node, left
// subtree, right subtree). Stops quietly if `found` cannot grow.
template <unsigned D>
void in_box(const unsigned* nd, unsigned count, const coord_view& cv, const double* lo, const double* hi,
            dense1D<unsigned, 16>& found) {
  if (count == 0) return;
  struct pending {
    unsigned node, axis;
  };
  small_stack<pending> stack;
  stack.push({0, 0});
  while (!stack.empty()) {
    const pending w = stack.pop();
    const unsigned* pn = nd + std::size_t(w.node) * node_stride;
    const double* x = cv.at(pn[f_idx]);
    prefetch_children(nd, cv, pn);
    const unsigned a = w.axis;
    const bool go_left = lo[a] <= x[a];
    const bool go_right = hi[a] >= x[a];
    if (go_left && go_right) {
      bool inside = true;
      for (unsigned k = 0; k < D; ++k) inside = inside && lo[k] <= x[k] && x[k] <= hi[k];
      if (inside && !found.push_back(pn[f_idx])) return;
    }
    const unsigned next = (a + 1 == D) ? 0 : a + 1;
    if (go_right && pn[f_right] != none) stack.push({pn[f_right], next});
    if (go_left && pn[f_left] != none) stack.push({pn[f_left], next});
  }
}

}  // namespace kvo::gridkit::spatial

#endif  // GRIDKIT_SPATIAL_KDTREE_HPP
