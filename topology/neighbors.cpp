// Element neighbours across faces.
//
// Faces are grouped by their smallest node with a counting sort (one flat array of 64-bit
// entries, key in the high half and face identifier in the low half). Equal faces share their
// smallest node and their order-independent key, so each node's short list is sorted by
// (key, identifier) and only runs of equal keys are compared node by node. Classes of equal
// faces therefore come out in ascending identifier order, which fixes the results.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "topology/faces.hpp"

namespace kvo::gridkit {

namespace {

using topo::traits;

constexpr std::uint64_t CONSUMED = ~std::uint64_t(0);

// Bucket of a face by its smallest node: the node itself when node numbers are small enough,
// otherwise a multiplicative hash of it.
struct bucket_map {
  unsigned max_node;  // direct mode: nodes 0 .. max_node, NULL_INDEX (all-null face) after them
  unsigned shift;     // hashed mode when non-zero
  unsigned operator()(unsigned m) const noexcept {
    if (shift) return unsigned((m * 0x9E3779B1u) >> shift);
    return m <= max_node ? m : max_node + 1;
  }
};

template <class V>
void insertion_sort(V* a, std::size_t n) {
  for (std::size_t i = 1; i < n; ++i) {
    const V x = a[i];
    std::size_t j = i;
    while (j > 0 && a[j - 1] > x) {
      a[j] = a[j - 1];
      --j;
    }
    a[j] = x;
  }
}

template <element_type T>
class neighbour_builder {
  static constexpr unsigned NF = traits<T>::nf;
  static constexpr unsigned S = traits<T>::slots;

 public:
  neighbour_builder(const dense2D<unsigned>& c, bool keep, unsigned* out)
      : conn_(c), base_(c.storage->data + c.offset), ld_(c.ld), cols_(c.cols), keep_(keep), out_(out) {}

  int run() {
    const std::uint64_t ids = std::uint64_t(NF) * cols_;
    const unsigned max_node = max_ID(conn_);
    bucket_map bm{max_node, 0};
    std::uint64_t nb;
    if (max_node <= ids / 2) {
      nb = std::uint64_t(max_node) + 2;
    } else {
      unsigned bits = 1;
      while (bits < 31 && (std::uint64_t(1) << bits) < ids / 4) ++bits;
      bm.shift = 32 - bits;
      nb = std::uint64_t(1) << bits;
    }

    std::unique_ptr<unsigned[]> off(new (std::nothrow) unsigned[nb + 1]);
    if (!off) return ERR_ALLOCATION;
    std::fill(off.get(), off.get() + nb + 1, 0u);

    // Counting pass.
    unsigned v[4];
    std::uint64_t total = 0;
    for (unsigned e = 0; e < cols_; ++e) {
      const unsigned* c = col(e);
      unsigned used;
      const topo::face_table& t = topo::column_faces<T>(c, used);
      for (unsigned j = 0; j < used; ++j) {
        topo::face_nodes<S>(c, t, j, v);
        ++off[bm(topo::face_min<S>(v)) + 1];
      }
      total += used;
    }
    for (std::uint64_t b = 0; b < nb; ++b) off[b + 1] += off[b];

    std::unique_ptr<std::uint64_t[]> ent(new (std::nothrow) std::uint64_t[total ? total : 1]);
    if (!ent) return ERR_ALLOCATION;

    // Filling pass, in ascending face identifier; off[b] ends as the end of bucket b.
    for (unsigned e = 0; e < cols_; ++e) {
      const unsigned* c = col(e);
      unsigned used;
      const topo::face_table& t = topo::column_faces<T>(c, used);
      const unsigned id0 = NF * e;
      for (unsigned j = 0; j < used; ++j) {
        topo::face_nodes<S>(c, t, j, v);
        const unsigned b = bm(topo::face_min<S>(v));
        ent[off[b]++] = (std::uint64_t(topo::face_key<S>(v)) << 32) | (id0 + j);
      }
    }

    // Matching pass, bucket by bucket.
    std::uint64_t lo = 0;
    for (std::uint64_t b = 0; b < nb; ++b) {
      const std::uint64_t hi = off[b];
      const std::size_t n = std::size_t(hi - lo);
      if (n >= 2) {
        std::uint64_t* a = ent.get() + lo;
        if (n <= 32)
          insertion_sort(a, n);
        else
          std::sort(a, a + n);
        std::size_t i = 0;
        while (i < n) {
          const unsigned key = unsigned(a[i] >> 32);
          std::size_t k = i + 1;
          while (k < n && unsigned(a[k] >> 32) == key) ++k;
          if (k - i == 2)
            match_pair(unsigned(a[i]), unsigned(a[i + 1]));
          else if (k - i > 2)
            match_run(a + i, k - i);
          i = k;
        }
      }
      lo = hi;
    }
    return 0;
  }

 private:
  const unsigned* col(unsigned e) const { return base_ + std::size_t(e) * ld_; }

  void load(unsigned id, unsigned* v) const {
    const unsigned e = id / NF, j = id % NF;
    const unsigned* c = col(e);
    unsigned used;
    const topo::face_table& t = topo::column_faces<T>(c, used);
    topo::face_nodes<S>(c, t, j, v);
  }

  void match_pair(unsigned f, unsigned g) {
    unsigned a[4], b[4];
    load(f, a);
    load(g, b);
    if (!topo::same_face<S>(a, b)) return;
    out_[f] = g / NF;
    out_[g] = f / NF;
  }

  // Faces of one key, ascending identifiers: each class of equal faces in turn.
  void match_run(std::uint64_t* a, std::size_t n) {
    unsigned vf[4], vg[4];
    for (std::size_t i = 0; i < n; ++i) {
      if (a[i] == CONSUMED) continue;
      const unsigned f = unsigned(a[i]);
      load(f, vf);
      unsigned count = 1, second = NULL_INDEX, last = f;
      for (std::size_t k = i + 1; k < n; ++k) {
        if (a[k] == CONSUMED) continue;
        const unsigned g = unsigned(a[k]);
        load(g, vg);
        if (!topo::same_face<S>(vf, vg)) continue;
        a[k] = CONSUMED;
        ++count;
        last = g;
        if (keep_) {
          out_[g] = f / NF;
        } else if (count == 2) {
          out_[g] = f / NF;
          second = g;
        } else if (count == 3) {
          out_[second] = NULL_INDEX;  // non-manifold: the class keeps no neighbours
        }
      }
      if (count == 2 || (count > 2 && keep_)) out_[f] = last / NF;
    }
  }

  const dense2D<unsigned>& conn_;
  const unsigned* base_;
  std::size_t ld_;
  unsigned cols_;
  bool keep_;
  unsigned* out_;
};

}  // namespace

int get_neighbors(const dense2D<unsigned>& connectM, element_type FE_type, bool keep_non_manifold,
                  dense2D<unsigned>& neighbors) {
  neighbors.clear();
  neighbors.clear_hard();  // fresh storage: the result never lands in a block shared with the input
  topo::type_shape s;
  const int st = topo::prologue(connectM, FE_type, s);
  if (st) return st > 0 ? 0 : st;
  if (!neighbors.resize(s.nf, connectM.cols, NULL_INDEX)) {
    neighbors.clear();
    return ERR_ALLOCATION;
  }
  unsigned* out = neighbors.storage->data + neighbors.offset;
  return topo::dispatch(FE_type, [&](auto tag) {
    neighbour_builder<decltype(tag)::value> b(connectM, keep_non_manifold, out);
    return b.run();
  });
}

}  // namespace kvo::gridkit
