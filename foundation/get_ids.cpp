// Matching of equal IDs and of columns with the same nodes.
//
// Small inputs go through one hash table. For large ones, the random accesses of such a table
// would miss every cache, so they are matched in streaming steps instead:
//  1. both lists are split into blocks by the top bits of a hash of their keys: one stable
//     counting-sort pass of at most 2^MAX_BLOCK_BITS write streams, so that equal keys meet in
//     one block and every block keeps its entries in ascending position;
//  2. each block is matched with a table small enough to stay in cache, and each entry's result
//     is stored in the entry itself;
//  3. the results are read back in input order by replaying the split: walking the input again,
//     the entry of each position is the next one of its block.
// Blocks keep positions ascending, so the results are those of one table fed in input order: the
// last position of a repeated ID wins, and the first matching column in ascending order wins.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {

// Wanted first-list entries per block (IDs1 up to this size use one table), and the most blocks
// (write streams of the split).
constexpr unsigned ID_BLOCK_ENTRIES = 1u << 16;
constexpr unsigned COLUMN_BLOCK_ENTRIES = 1u << 15;
constexpr unsigned MAX_BLOCK_BITS = 8;
// How far ahead the streams of a split are prefetched, in bytes.
constexpr std::uintptr_t PREFETCH_AHEAD = 256;

// Prefetches the memory `PREFETCH_AHEAD` bytes after p (which may lie past the end of its array:
// prefetches never fault).
inline void prefetch_ahead(const void* p, bool for_write) {
  const void* q = reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(p) + PREFETCH_AHEAD);
  if (for_write)
    __builtin_prefetch(q, 1);
  else
    __builtin_prefetch(q, 0);
}

// 64-bit multiplicative hash of a key: its top bits pick the block, the next ones the bucket.
inline std::uint64_t mix(unsigned key) { return std::uint64_t(key) * 0x9E3779B97F4A7C15ull; }

inline unsigned ceil_log2(std::size_t n) {
  unsigned bits = 0;
  while ((std::size_t(1) << bits) < n) ++bits;
  return bits;
}

// Block bits for a first list of n entries, aiming at `per_block` entries per block.
inline unsigned block_bits(std::size_t n, unsigned per_block) {
  return n <= per_block ? 0u : std::min(MAX_BLOCK_BITS, ceil_log2(n / per_block + 1));
}

// Order-independent key of a column: the sum of a hash of each entry. Columns can match only
// when they hold the same entries, so any such key sorts the candidates of a column; this one
// rarely groups columns with different entries, even when their node numbers are small.
inline unsigned column_key(const unsigned* c, unsigned rows) {
  unsigned h = 0;
  for (unsigned i = 0; i < rows; ++i) {
    unsigned x = c[i];
    x ^= x >> 16;
    x *= 0x85EBCA6Bu;
    x ^= x >> 13;
    x *= 0xC2B2AE35u;
    h += x ^ (x >> 16);
  }
  return h;
}

// Copies a column so that the first occurrence of its largest entry comes first.
inline void rotated_copy(const unsigned* c, unsigned rows, unsigned* out) {
  unsigned best = 0;
  for (unsigned i = 1; i < rows; ++i)
    if (c[i] > c[best]) best = i;
  for (unsigned i = 0; i < rows; ++i) out[i] = c[(best + i) % rows];
}

inline bool same(const unsigned* a, const unsigned* b, unsigned rows) {
  for (unsigned i = 0; i < rows; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

struct free_deleter {
  void operator()(void* p) const noexcept { std::free(p); }
};
template <class T>
using work_array = std::unique_ptr<T[], free_deleter>;

// n entries, uninitialised. Arrays of several megabytes are written in scattered order: they
// are aligned to 2 MiB and, on Linux, marked for transparent huge pages, which saves most of
// the page faults and TLB misses of their use. Exhausted memory raises std::bad_alloc, as the
// standard allocator would.
template <class T>
work_array<T> uninitialised(std::size_t n) {
  constexpr std::size_t huge = std::size_t(1) << 21;
  static_assert(alignof(T) <= 32);
  if (n == 0) n = 1;
  if (n > (SIZE_MAX - huge) / sizeof(T)) throw std::bad_alloc();
  std::size_t bytes = n * sizeof(T);
  void* p;
  if (bytes < 2 * huge) {
    p = std::aligned_alloc(32, (bytes + 31) & ~std::size_t(31));
  } else {
    bytes = (bytes + huge - 1) & ~(huge - 1);
    p = std::aligned_alloc(huge, bytes);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (p) madvise(p, bytes, MADV_HUGEPAGE);
#endif
  }
  if (!p) throw std::bad_alloc();
  return work_array<T>(static_cast<T*>(p));
}

// ---------------------------------------------------------------------------- split

// Blocks are the top `bits` bits of mix(key). The entries of block b take places start[b] ..
// start[b + 1] - 1 of a split list, in input order.
struct block_layout {
  unsigned bits;
  std::vector<std::size_t> start;

  explicit block_layout(unsigned b) : bits(b), start((std::size_t(1) << b) + 1, 0) {}
  std::size_t blocks() const { return start.size() - 1; }
  std::size_t size(std::size_t b) const { return start[b + 1] - start[b]; }
  std::size_t largest() const {
    std::size_t m = 0;
    for (std::size_t b = 0; b < blocks(); ++b) m = std::max(m, size(b));
    return m;
  }
  unsigned block(unsigned key) const { return bits ? unsigned(mix(key) >> (64 - bits)) : 0u; }

  // Counts the entries of each block, the keys being key(t) for t = 0 .. n - 1, and sets the
  // starts. With NullFree false, a NULL_INDEX key makes no entry. Four interleaved tallies, so
  // that repeated blocks do not wait for each other's increments.
  template <bool NullFree, class Key>
  void count(std::size_t n, Key&& key) {
    const std::size_t nb = blocks();
    std::vector<std::size_t> tally(4 * nb, 0);
    std::size_t t = 0;
    for (; t + 4 <= n; t += 4)
      for (unsigned u = 0; u < 4; ++u) {
        const unsigned k = key(t + u);
        if (NullFree || k != NULL_INDEX) ++tally[u * nb + block(k)];
      }
    for (; t < n; ++t)
      if (NullFree || key(t) != NULL_INDEX) ++tally[block(key(t))];
    for (std::size_t b = 0; b < nb; ++b)
      start[b + 1] = start[b] + tally[b] + tally[nb + b] + tally[2 * nb + b] + tally[3 * nb + b];
  }

  // Calls place(t, k) for t = 0 .. n - 1 with the place k of the entry of key(t), as counted by
  // count<NullFree>; a NULL_INDEX key without entry gets k = SIZE_MAX. This makes the split when
  // place() stores the entry, and leads back to input order when it reads the entry's result.
  template <bool NullFree, class Key, class Place>
  void walk(std::size_t n, Key&& key, Place&& place) const {
    std::vector<std::size_t> next(start.begin(), start.end() - 1);
    for (std::size_t t = 0; t < n; ++t) {
      const unsigned k = key(t);
      place(t, NullFree || k != NULL_INDEX ? next[block(k)]++ : SIZE_MAX);
    }
  }
};

// ---------------------------------------------------------------------------- ID lists

// Open-addressing table from ID to a value, with buckets of four slots in one 32-byte block:
// one comparison of four keys decides most look-ups, so that they rarely mispredict a branch,
// and each look-up touches one cache line. NULL_INDEX marks a free slot (it is never stored);
// buckets fill from their first slot, and a bucket with a free slot ends every search that
// reaches it.
class id_table {
 public:
  // Room for n IDs at a load of at most one half.
  explicit id_table(std::size_t n) : buckets_(uninitialised<bucket>(std::size_t(1) << bucket_bits(n))) {}
  // Empties the table for n IDs whose hashes share their top `used` bits.
  void reset(std::size_t n, unsigned used) {
    const unsigned bits = bucket_bits(n);
    mask_ = (std::size_t(1) << bits) - 1;
    shift_ = 64 - used - bits;
    for (std::size_t b = 0; b <= mask_; ++b)
      for (unsigned i = 0; i < 4; ++i) buckets_[b].key[i] = NULL_INDEX;
  }
  // Value of id, inserted (value unset) when absent.
  unsigned& insert(unsigned id) {
    for (std::size_t b = index(id);; b = (b + 1) & mask_) {
      bucket& k = buckets_[b];
      const unsigned m = matches(k.key, id);
      if (m) return k.value[__builtin_ctz(m)];
      const unsigned e = matches(k.key, NULL_INDEX);
      if (e) {
        const unsigned i = unsigned(__builtin_ctz(e));
        k.key[i] = id;
        return k.value[i];
      }
    }
  }
  // Value of id, or null.
  const unsigned* find(unsigned id) const {
    for (std::size_t b = index(id);; b = (b + 1) & mask_) {
      const bucket& k = buckets_[b];
      const unsigned m = matches(k.key, id);
      if (m) return &k.value[__builtin_ctz(m)];
      if (matches(k.key, NULL_INDEX)) return nullptr;
    }
  }
  void prefetch(unsigned id) const { __builtin_prefetch(&buckets_[index(id)]); }

 private:
  struct alignas(32) bucket {
    unsigned key[4], value[4];
  };
  static unsigned bucket_bits(std::size_t n) {
    unsigned bits = 1;
    while ((std::size_t(4) << bits) < 2 * n) ++bits;
    return bits;
  }
  std::size_t index(unsigned id) const { return std::size_t(mix(id) >> shift_) & mask_; }
  // Bit i set when k[i] == id.
  static unsigned matches(const unsigned* k, unsigned id) {
#if defined(__SSE2__)
    const __m128i v = _mm_cmpeq_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(k)), _mm_set1_epi32(int(id)));
    return unsigned(_mm_movemask_ps(_mm_castsi128_ps(v)));
#else
    return unsigned(k[0] == id) | unsigned(k[1] == id) << 1 | unsigned(k[2] == id) << 2 | unsigned(k[3] == id) << 3;
#endif
  }

  work_array<bucket> buckets_;
  std::size_t mask_ = 0;
  unsigned shift_ = 0;
};

// One table over all of IDs1, and the results written in place.
void match_ids_single(const unsigned* a, unsigned n1, const unsigned* b, unsigned n2, unsigned* m21,
                      unsigned* m12) {
  id_table t(n1);
  t.reset(n1, 0);
  for (unsigned i = 0; i < n1; ++i)
    if (a[i] != NULL_INDEX) t.insert(a[i]) = i;
  constexpr unsigned ahead = 16;
  for (unsigned j = 0; j < n2; ++j) {
    if (j + ahead < n2) t.prefetch(b[j + ahead]);
    if (b[j] == NULL_INDEX) continue;
    if (const unsigned* v = t.find(b[j])) {
      m21[j] = *v;
      m12[*v] = j;
    }
  }
}

// The non-null IDs of a list split into blocks, as two arrays: key[k] the ID and pos[k] its
// position for the entry at place k.
struct split_ids {
  block_layout layout;
  work_array<unsigned> key_store;
  unsigned* key;
  unsigned* pos;

  // pos_room is free memory of n entries that holds the positions.
  split_ids(unsigned bits, const unsigned* a, unsigned n, unsigned* pos_room) : layout(bits) {
    auto id = [a](std::size_t i) { return a[i]; };
    layout.count<false>(n, id);
    key_store = uninitialised<unsigned>(layout.start.back());
    key = key_store.get();
    pos = pos_room;
    unsigned* k = key;
    unsigned* p = pos;
    layout.walk<false>(n, id, [a, k, p](std::size_t i, std::size_t t) {
      if (t == SIZE_MAX) return;
      // Too many streams for the hardware prefetcher: fetch each one's lines ahead of use.
      prefetch_ahead(k + t, true);
      prefetch_ahead(p + t, true);
      k[t] = a[i];
      p[t] = unsigned(i);
    });
  }
};

// Whether [p, p + n) and [q, q + m) share memory (compared as addresses: they may belong to
// unrelated blocks).
inline bool overlap(const unsigned* p, std::size_t n, const unsigned* q, std::size_t m) {
  const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(p), b = reinterpret_cast<std::uintptr_t>(q);
  return a < b + m * sizeof(unsigned) && b < a + n * sizeof(unsigned);
}

// IDs matched block by block. Entries' keys give way to results: for IDs1 the last matching
// position in IDs2, for IDs2 the matching (last) position in IDs1, NULL_INDEX when none. The
// outputs, which share no memory with the inputs, keep the positions until the results are
// written there.
void match_ids_blocked(const unsigned* a, unsigned n1, const unsigned* b, unsigned n2, unsigned* m21,
                       unsigned* m12) {
  const unsigned bits = block_bits(n1, ID_BLOCK_ENTRIES);
  split_ids s1(bits, a, n1, m12);
  split_ids s2(bits, b, n2, m21);
  id_table t(s1.layout.largest());

  for (std::size_t k = 0; k < s1.layout.blocks(); ++k) {
    const std::size_t lo1 = s1.layout.start[k], lo2 = s2.layout.start[k];
    unsigned* xk = s1.key + lo1;
    const unsigned* xp = s1.pos + lo1;
    unsigned* yk = s2.key + lo2;
    const unsigned* yp = s2.pos + lo2;
    const std::size_t nx = s1.layout.size(k), ny = s2.layout.size(k);
    // The table maps an ID to its last entry in x; x's IDs give way to results as they go in.
    t.reset(nx, bits);
    for (std::size_t i = 0; i < nx; ++i) {
      t.insert(xk[i]) = unsigned(i);
      xk[i] = NULL_INDEX;
    }
    for (std::size_t j = 0; j < ny; ++j) {
      const unsigned* v = nx ? t.find(yk[j]) : nullptr;
      if (v) {
        yk[j] = xp[*v];
        xk[*v] = yp[j];
      } else {
        yk[j] = NULL_INDEX;
      }
    }
  }
  // Every output entry is written, as the outputs held positions.
  const unsigned* r2 = s2.key;
  s2.layout.walk<false>(n2, [b](std::size_t j) { return b[j]; }, [r2, m21](std::size_t j, std::size_t t) {
    if (t == SIZE_MAX) {
      m21[j] = NULL_INDEX;
    } else {
      prefetch_ahead(r2 + t, false);
      m21[j] = r2[t];
    }
  });
  const unsigned* r1 = s1.key;
  s1.layout.walk<false>(n1, [a](std::size_t i) { return a[i]; }, [r1, m12](std::size_t i, std::size_t t) {
    if (t == SIZE_MAX) {
      m12[i] = NULL_INDEX;
    } else {
      prefetch_ahead(r1 + t, false);
      m12[i] = r1[t];
    }
  });
}

// ---------------------------------------------------------------------------- connectivities

// The columns of a connectivity split into blocks by their keys (every key makes an entry,
// NULL_INDEX too), as entries of W words: key, column and, when W > 2, a copy of the column's
// W - 2 rows, so that the columns of a block lie together. With W = 2 columns are read in place.
// keys keeps every column's key in input order, for the way back.
template <unsigned W>
struct split_columns {
  block_layout layout;
  work_array<unsigned> keys, entries;

  split_columns(unsigned bits, const dense2D<unsigned>& c) : layout(bits) {
    const unsigned n = c.cols, rows = c.rows;
    keys = uninitialised<unsigned>(n);
    unsigned* key = keys.get();
    for (unsigned k = 0; k < n; ++k) key[k] = column_key(c.col_ptr(k), rows);
    auto key_of = [key](std::size_t k) { return key[k]; };
    layout.count<true>(n, key_of);
    entries = uninitialised<unsigned>(std::size_t(n) * W);
    unsigned* out = entries.get();
    layout.walk<true>(n, key_of, [&c, key, out](std::size_t k, std::size_t t) {
      unsigned* e = out + t * W;
      prefetch_ahead(e, true);
      e[0] = key[k];
      e[1] = unsigned(k);
      if constexpr (W > 2) {
        const unsigned* col = c.col_ptr(unsigned(k));
        for (unsigned r = 0; r < W - 2; ++r) e[2 + r] = col[r];
      } else {
        (void)c;
      }
    });
  }
  // Writes out[k] = the result left in the key word of column k's entry.
  void results(std::size_t n, unsigned* out) const {
    const unsigned* key = keys.get();
    const unsigned* in = entries.get();
    layout.walk<true>(n, [key](std::size_t k) { return key[k]; }, [in, out](std::size_t k, std::size_t t) {
      prefetch_ahead(in + t * W, false);
      out[k] = in[t * W];
    });
  }
};

// Columns matched block by block through a chained table; each entry's key then gives way to
// its result: the first matching connect1 column for a connect2 entry, the last matching
// connect2 column for a connect1 entry, NULL_INDEX when none.
template <unsigned W>
void match_columns(const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2, bool strict, unsigned* m21,
                   unsigned* m12) {
  // Copied columns have W - 2 rows, known here.
  const unsigned rows = W > 2 ? W - 2 : connect1.rows, n1 = connect1.cols, n2 = connect2.cols;
  const unsigned bits = block_bits(n1, COLUMN_BLOCK_ENTRIES);
  split_columns<W> s1(bits, connect1), s2(bits, connect2);
  auto column = [](const unsigned* e, const dense2D<unsigned>& c) -> const unsigned* {
    if constexpr (W > 2) {
      (void)c;
      return e + 2;
    } else {
      return c.col_ptr(e[1]);
    }
  };

  const std::size_t largest = s1.layout.largest();
  const unsigned max_table_bits = ceil_log2(std::max<std::size_t>(2 * largest, 4));
  // Chains of a block's connect1 columns; last[i]: the last connect2 column matching entry i.
  std::vector<unsigned> head(std::size_t(1) << max_table_bits), next(largest), last(largest);
  std::vector<unsigned> cj(rows), ck(rows), tmp(rows);

  for (std::size_t k = 0; k < s1.layout.blocks(); ++k) {
    const std::size_t nx = s1.layout.size(k), ny = s2.layout.size(k);
    unsigned* x = s1.entries.get() + s1.layout.start[k] * W;
    unsigned* y = s2.entries.get() + s2.layout.start[k] * W;
    const unsigned tb = ceil_log2(std::max<std::size_t>(2 * nx, 4)), shift = 64 - bits - tb;
    const std::size_t mask = (std::size_t(1) << tb) - 1;
    auto slot = [shift, mask](unsigned key) { return std::size_t(mix(key) >> shift) & mask; };
    // Chains in ascending column order: inserted from the block's last column down.
    std::fill(head.begin(), head.begin() + mask + 1, NULL_INDEX);
    std::fill(last.begin(), last.begin() + nx, NULL_INDEX);
    for (std::size_t i = nx; i-- > 0;) {
      const std::size_t s = slot(x[i * W]);
      next[i] = head[s];
      head[s] = unsigned(i);
    }
    for (std::size_t j = 0; j < ny; ++j) {
      unsigned* e = y + j * W;
      const unsigned h = e[0];
      unsigned found = NULL_INDEX;
      bool prepared = false;
      for (unsigned i = head[slot(h)]; i != NULL_INDEX; i = next[i]) {
        if (x[i * W] != h) continue;
        if (!prepared) {
          const unsigned* col = column(e, connect2);
          if (strict)
            std::copy(col, col + rows, cj.begin());
          else
            rotated_copy(col, rows, cj.data());
          prepared = true;
        }
        const unsigned* cand = column(x + i * W, connect1);
        bool match;
        if (strict) {
          match = same(cand, cj.data(), rows);
        } else {
          rotated_copy(cand, rows, ck.data());
          match = same(ck.data(), cj.data(), rows);
          if (!match) {
            // The same cycle run the other way.
            std::reverse_copy(ck.begin(), ck.begin() + rows, tmp.begin());
            rotated_copy(tmp.data(), rows, ck.data());
            match = same(ck.data(), cj.data(), rows);
          }
        }
        if (match) {
          found = x[i * W + 1];
          last[i] = e[1];
          break;
        }
      }
      e[0] = found;
    }
    for (std::size_t i = 0; i < nx; ++i) x[i * W] = last[i];
  }
  s2.results(n2, m21);
  s1.results(n1, m12);
}

// Matches columns one by one through a chained table over connect1, writing each result as it is
// found: the way for outputs that share memory with the connectivities.
void match_columns_live(const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2, bool strict,
                        unsigned* m21, unsigned* m12) {
  const unsigned rows = connect1.rows, n1 = connect1.cols, n2 = connect2.cols;
  const unsigned bits = ceil_log2(std::max<std::size_t>(2 * std::size_t(n1), 4)), shift = 64 - bits;
  auto slot = [shift](unsigned key) { return std::size_t(mix(key) >> shift); };
  // Columns of no rows are never addressed (their matrix may have no storage).
  auto column = [rows](const dense2D<unsigned>& c, unsigned k) -> const unsigned* {
    return rows ? c.col_ptr(k) : nullptr;
  };
  std::vector<unsigned> head(std::size_t(1) << bits, NULL_INDEX), next(n1), key1(n1);
  for (unsigned k = n1; k-- > 0;) {
    key1[k] = column_key(column(connect1, k), rows);
    next[k] = head[slot(key1[k])];
    head[slot(key1[k])] = k;
  }
  std::vector<unsigned> cj(rows), ck(rows), tmp(rows);
  for (unsigned j = 0; j < n2; ++j) {
    const unsigned* col = column(connect2, j);
    if (strict)
      std::copy(col, col + rows, cj.begin());
    else
      rotated_copy(col, rows, cj.data());
    const unsigned h = column_key(col, rows);
    for (unsigned k = head[slot(h)]; k != NULL_INDEX; k = next[k]) {
      if (key1[k] != h) continue;
      std::copy(column(connect1, k), column(connect1, k) + rows, ck.begin());
      if (!strict) {
        rotated_copy(ck.data(), rows, tmp.data());
        ck.swap(tmp);
      }
      bool match = same(ck.data(), cj.data(), rows);
      if (!match && !strict) {
        std::reverse_copy(ck.begin(), ck.end(), tmp.begin());
        rotated_copy(tmp.data(), rows, ck.data());
        match = same(ck.data(), cj.data(), rows);
      }
      if (match) {
        m21[j] = k;
        m12[k] = j;
        break;
      }
    }
  }
}

// Gives an output n entries, left unset: the caller writes them all. On allocation failure it
// stays empty.
void size_output(dense1D<unsigned, 16>& m, unsigned n) {
  m.size = 0;
  if (m.reserve(n)) m.size = n;
}

void clear_output(dense1D<unsigned, 16>& m) { std::fill(m.begin(), m.end(), NULL_INDEX); }

}  // namespace

// The outputs are sized first and only then is the input read, as outputs may share an input's
// container; the matching paths write every output entry.
int get_IDs(const dense1D<unsigned, 16>& IDs1, const dense1D<unsigned, 16>& IDs2, dense1D<unsigned, 16>& map2to1,
            dense1D<unsigned, 16>& map1to2) {
  size_output(map2to1, IDs2.size);
  size_output(map1to2, IDs1.size);
  const unsigned n1 = IDs1.size, n2 = IDs2.size;
  if (n1 == 0 || n2 == 0 || map2to1.size != n2 || map1to2.size != n1) {
    clear_output(map2to1);
    clear_output(map1to2);
    return 0;
  }
  const unsigned* a = IDs1.storage->data + IDs1.offset;
  const unsigned* b = IDs2.storage->data + IDs2.offset;
  unsigned* m21 = map2to1.storage->data + map2to1.offset;
  unsigned* m12 = map1to2.storage->data + map1to2.offset;
  // Outputs that share memory with the inputs or with each other are cleared before anything is
  // read, and then written as they are found, with the inputs read as they are then, like
  // small inputs.
  const bool shared = overlap(m21, n2, m12, n1) || overlap(m21, n2, a, n1) || overlap(m21, n2, b, n2) ||
                      overlap(m12, n1, a, n1) || overlap(m12, n1, b, n2);
  if (shared || n1 <= ID_BLOCK_ENTRIES) {
    clear_output(map2to1);
    clear_output(map1to2);
    match_ids_single(a, n1, b, n2, m21, m12);
  } else {
    match_ids_blocked(a, n1, b, n2, m21, m12);
  }
  return 0;
}

int get_IDs(const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2, dense1D<unsigned, 16>& map2to1,
            dense1D<unsigned, 16>& map1to2, bool strict) {
  map2to1.size = 0;
  map1to2.size = 0;
  if (connect1.rows != connect2.rows) return -2;
  size_output(map2to1, connect2.cols);
  size_output(map1to2, connect1.cols);
  const unsigned n1 = connect1.cols, n2 = connect2.cols;
  if (n1 == 0 || n2 == 0 || map2to1.size != n2 || map1to2.size != n1) {
    clear_output(map2to1);
    clear_output(map1to2);
    return 0;
  }
  unsigned* m21 = map2to1.storage->data + map2to1.offset;
  unsigned* m12 = map1to2.storage->data + map1to2.offset;
  // Outputs that share memory with a connectivity or with each other are cleared before
  // anything is read, and then written as they are found, with the columns read as they are
  // then.
  bool shared = overlap(m21, n2, m12, n1);
  for (const dense2D<unsigned>* c : {&connect1, &connect2}) {
    const std::size_t span = std::size_t(c->cols - 1) * c->ld + c->rows;
    if (c->rows) shared = shared || overlap(m21, n2, c->col_ptr(0), span) || overlap(m12, n1, c->col_ptr(0), span);
  }
  if (shared) {
    clear_output(map2to1);
    clear_output(map1to2);
    match_columns_live(connect1, connect2, strict, m21, m12);
    return 0;
  }
  if (connect1.rows == 0) {
    // Empty columns are all equal: each one matches the first.
    std::fill(m21, m21 + n2, 0u);
    clear_output(map1to2);
    m12[0] = n2 - 1;
    return 0;
  }
  // Short columns of large inputs are copied next to their keys; others are read in place.
  const bool gather = n1 > COLUMN_BLOCK_ENTRIES;
  switch (gather ? connect1.rows : 0u) {
    case 1: match_columns<3>(connect1, connect2, strict, m21, m12); break;
    case 2: match_columns<4>(connect1, connect2, strict, m21, m12); break;
    case 3: match_columns<5>(connect1, connect2, strict, m21, m12); break;
    case 4: match_columns<6>(connect1, connect2, strict, m21, m12); break;
    case 5: match_columns<7>(connect1, connect2, strict, m21, m12); break;
    case 6: match_columns<8>(connect1, connect2, strict, m21, m12); break;
    case 7: match_columns<9>(connect1, connect2, strict, m21, m12); break;
    case 8: match_columns<10>(connect1, connect2, strict, m21, m12); break;
    default: match_columns<2>(connect1, connect2, strict, m21, m12); break;
  }
  return 0;
}

}  // namespace kvo::gridkit
