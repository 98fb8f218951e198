// Element neighbours across faces.
//
// Faces are grouped into buckets by their smallest node (and a few bits of their key) with a
// counting sort into one flat array of 64-bit entries: key in the high half, face identifier in
// the low half. Equal faces share their smallest node and their order-independent key, so they
// meet in one short bucket, in ascending identifier order; only faces of equal keys are compared
// node by node. Classes of equal faces thus come out exactly as a chained hash scanned in
// insertion order would give them.
#include <algorithm>
#include <cstdint>
#include <new>

#include "topology/faces.hpp"
#include "topology/work_memory.hpp"

namespace kvo::gridkit {

namespace {

using topo::traits;

constexpr std::uint64_t CONSUMED = ~std::uint64_t(0);

// Bucket of a face. Direct mode: its smallest node (NULL_INDEX, an all-null face, after the
// largest node), split into 2^kbits sub-buckets by the top bits of the face key so that buckets
// stay short. Hashed mode, for node numbers far above the face count: a multiplicative hash of
// the smallest node.
struct bucket_map {
  unsigned max_node;
  unsigned kbits;
  unsigned shift;  // hashed mode when non-zero
  unsigned operator()(unsigned m, unsigned key) const noexcept {
    if (shift) return unsigned((m * 0x9E3779B1u) >> shift);
    const unsigned slot = m <= max_node ? m : max_node + 1;
    return kbits ? (slot << kbits) | (key >> (32 - kbits)) : slot;
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
    bucket_map bm{max_node, 0, 0};
    direct_ = max_node <= ids / 2;
    std::uint64_t nb;
    if (direct_) {
      // About four or more faces per bucket: the bucket array stays within one unsigned per face.
      while (bm.kbits < 4 && (std::uint64_t(max_node) + 1) << (bm.kbits + 3) <= ids) ++bm.kbits;
      nb = (std::uint64_t(max_node) + 2) << bm.kbits;
    } else {
      unsigned bits = 1;
      while (bits < 31 && (std::uint64_t(1) << bits) < ids / 4) ++bits;
      bm.shift = 32 - bits;
      nb = std::uint64_t(1) << bits;
    }

    // Every used face gets its entry written below; face rows that mixed columns leave unused
    // are set here.
    if constexpr (T == ET_FACE_MIXED || T == ET_SOLID_MIXED) std::fill(out_, out_ + ids, NULL_INDEX);

    topo::work_array<unsigned> off = topo::make_work_array<unsigned>(nb + 1);
    if (!off) return ERR_ALLOCATION;
    std::fill(off.get(), off.get() + nb + 1, 0u);

    // Counting pass.
    unsigned v[4];
    std::uint64_t total = 0;
    for (unsigned e = 0; e < cols_; ++e) {
      const unsigned* c = col(e);
      unsigned used;
      const topo::face_table& t = topo::column_faces<T>(c, used);
#pragma GCC unroll 6
      for (unsigned j = 0; j < used; ++j) {
        topo::face_nodes<S>(c, t, j, v);
        ++off[bm(topo::face_min<S>(v), topo::face_key<S>(v)) + 1];
      }
      total += used;
    }
    for (std::uint64_t b = 0; b < nb; ++b) off[b + 1] += off[b];

    topo::work_array<std::uint64_t> ent = topo::make_work_array<std::uint64_t>(total);
    if (!ent) return ERR_ALLOCATION;

    // Filling pass, in ascending face identifier; off[b] ends as the end of bucket b.
    for (unsigned e = 0; e < cols_; ++e) {
      const unsigned* c = col(e);
      unsigned used;
      const topo::face_table& t = topo::column_faces<T>(c, used);
      const unsigned id0 = NF * e;
#pragma GCC unroll 6
      for (unsigned j = 0; j < used; ++j) {
        topo::face_nodes<S>(c, t, j, v);
        const unsigned key = topo::face_key<S>(v), m = topo::face_min<S>(v);
        ent[off[bm(m, key)]++] = (std::uint64_t(stored_key(v, m, key)) << 32) | (id0 + j);
      }
    }

    // Matching pass, bucket by bucket.
    std::uint64_t lo = 0;
    for (std::uint64_t b = 0; b < nb; ++b) {
      const std::uint64_t hi = off[b];
      const std::size_t n = std::size_t(hi - lo);
      std::uint64_t* a = ent.get() + lo;
      if (n == 1) {
        out_[unsigned(a[0])] = NULL_INDEX;
      } else if (n == 2) {
        match_pair(a[0], a[1]);
      } else if (n > 2 && n <= 16) {
        match_run(a, n);  // short bucket, still in identifier order
      } else if (n > 16) {
        if (n <= 32)
          insertion_sort(a, n);
        else
          std::sort(a, a + n);
        std::size_t i = 0;
        while (i < n) {
          const std::uint64_t key = a[i] >> 32;
          std::size_t k = i + 1;
          while (k < n && (a[k] >> 32) == key) ++k;
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

  // Key stored with a face. When buckets hold a single smallest node, a key can identify the face
  // exactly: always for one node, for two nodes (the term of the other node is a bijection of it)
  // and, for three nodes, when the other two lie within 2^15 of the smallest: their offsets are
  // packed below a flag bit. Faces with exact keys are never compared node by node.
  unsigned stored_key(const unsigned* v, unsigned m, unsigned key) const {
    if constexpr (S == 3) {
      if (direct_) {
        unsigned lo = v[0] == m ? v[1] : v[0];
        unsigned hi = v[0] == m ? v[2] : (v[1] == m ? v[2] : v[1]);
        if (lo > hi) {
          const unsigned x = lo;
          lo = hi;
          hi = x;
        }
        if (hi - m < 0x8000u) return 0x80000000u | ((lo - m) << 15) | (hi - m);
      }
      return key & 0x7FFFFFFFu;
    } else {
      return key;
    }
  }

  bool exact(std::uint64_t entry) const {
    if constexpr (S == 1) return true;
    if constexpr (S == 2) return direct_;
    if constexpr (S == 3) return direct_ && (entry >> 63);
    return false;
  }

  // A bucket of two faces.
  void match_pair(std::uint64_t x, std::uint64_t y) {
    const unsigned f = unsigned(x), g = unsigned(y);
    bool same = (x >> 32) == (y >> 32);
    if (same && !exact(x)) {
      unsigned a[4], b[4];
      load(f, a);
      load(g, b);
      same = topo::same_face<S>(a, b);
    }
    out_[f] = same ? g / NF : NULL_INDEX;
    out_[g] = same ? f / NF : NULL_INDEX;
  }

  // Faces in ascending identifiers: each class of equal faces in turn, every entry written. Only
  // faces of equal keys are compared node by node.
  void match_run(std::uint64_t* a, std::size_t n) {
    unsigned vf[4], vg[4];
    for (std::size_t i = 0; i < n; ++i) {
      if (a[i] == CONSUMED) continue;
      const unsigned f = unsigned(a[i]);
      const std::uint64_t key = a[i] >> 32;
      const bool exact_key = exact(a[i]);
      bool loaded = false;
      unsigned count = 1, second = NULL_INDEX, last = f;
      for (std::size_t k = i + 1; k < n; ++k) {
        if (a[k] == CONSUMED || (a[k] >> 32) != key) continue;
        const unsigned g = unsigned(a[k]);
        if (!exact_key) {
          if (!loaded) {
            load(f, vf);
            loaded = true;
          }
          load(g, vg);
          if (!topo::same_face<S>(vf, vg)) continue;
        }
        a[k] = CONSUMED;
        ++count;
        last = g;
        if (keep_ || count == 2) {
          out_[g] = f / NF;
          second = g;
        } else {
          out_[second] = NULL_INDEX;  // non-manifold: the class keeps no neighbours
          out_[g] = NULL_INDEX;
        }
      }
      out_[f] = (count == 2 || (count > 2 && keep_)) ? last / NF : NULL_INDEX;
    }
  }

  const dense2D<unsigned>& conn_;
  const unsigned* base_;
  std::size_t ld_;
  unsigned cols_;
  bool keep_;
  bool direct_ = false;  // buckets hold faces of one smallest node
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
  if (!topo::allocate_unset(neighbors, s.nf, connectM.cols)) return ERR_ALLOCATION;
  unsigned* out = neighbors.storage->data + neighbors.offset;
  const int result = topo::dispatch(FE_type, [&](auto tag) {
    neighbour_builder<decltype(tag)::value> b(connectM, keep_non_manifold, out);
    return b.run();
  });
  if (result != 0) {
    neighbors.clear();
    neighbors.clear_hard();
  }
  return result;
}

}  // namespace kvo::gridkit
