// Matching of equal IDs and of columns with the same nodes.
#include <algorithm>
#include <vector>

#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {

inline unsigned table_bits(std::size_t n) {
  unsigned bits = 4;
  while ((std::size_t(1) << bits) < 2 * n) ++bits;
  return bits;
}

inline unsigned hash_slot(unsigned key, unsigned bits) { return (key * 0x9E3779B1u) >> (32 - bits); }

// Order-independent key of a column: sum of the FNV-style mix of each entry.
inline unsigned column_key(const unsigned* c, unsigned rows) {
  unsigned h = 0;
  for (unsigned i = 0; i < rows; ++i) h += (c[i] ^ 0x811C9DC5u) * 16777619u;
  return h;
}

// Copies a column so that the first occurrence of its largest entry comes first.
inline void rotated_copy(const unsigned* c, unsigned rows, unsigned* out) {
  unsigned best = 0;
  for (unsigned i = 1; i < rows; ++i)
    if (c[i] > c[best]) best = i;
  for (unsigned i = 0; i < rows; ++i) out[i] = c[(best + i) % rows];
}

}  // namespace

int get_IDs(const dense1D<unsigned, 16>& IDs1, const dense1D<unsigned, 16>& IDs2, dense1D<unsigned, 16>& map2to1,
            dense1D<unsigned, 16>& map1to2) {
  map2to1.size = 0;
  map2to1.resize(IDs2.size, NULL_INDEX);
  map1to2.size = 0;
  map1to2.resize(IDs1.size, NULL_INDEX);
  if (IDs1.size == 0 || IDs2.size == 0) return 0;
  if (map2to1.size != IDs2.size || map1to2.size != IDs1.size) return 0;

  // Open addressing, ID -> last position; NULL_INDEX marks a free slot and is never stored.
  // Key and position share a slot (one cache line per probe), and slots are prefetched a few
  // IDs ahead so that large tables are not bound by memory latency.
  struct slot {
    unsigned key, pos;
  };
  const unsigned bits = table_bits(IDs1.size);
  const std::size_t mask = (std::size_t(1) << bits) - 1;
  std::vector<slot> table(mask + 1, slot{NULL_INDEX, 0});
  slot* t = table.data();
  constexpr unsigned ahead = 16;
  const unsigned* a = IDs1.storage->data + IDs1.offset;
  for (unsigned i = 0; i < IDs1.size; ++i) {
    if (i + ahead < IDs1.size) __builtin_prefetch(t + hash_slot(a[i + ahead], bits), 1);
    const unsigned id = a[i];
    if (id == NULL_INDEX) continue;
    std::size_t s = hash_slot(id, bits);
    while (t[s].key != NULL_INDEX && t[s].key != id) s = (s + 1) & mask;
    t[s].key = id;
    t[s].pos = i;
  }
  const unsigned* b = IDs2.storage->data + IDs2.offset;
  unsigned* m21 = map2to1.storage->data + map2to1.offset;
  unsigned* m12 = map1to2.storage->data + map1to2.offset;
  for (unsigned j = 0; j < IDs2.size; ++j) {
    if (j + ahead < IDs2.size) __builtin_prefetch(t + hash_slot(b[j + ahead], bits), 0);
    const unsigned id = b[j];
    if (id == NULL_INDEX) continue;
    std::size_t s = hash_slot(id, bits);
    while (t[s].key != NULL_INDEX) {
      if (t[s].key == id) {
        m21[j] = t[s].pos;
        m12[t[s].pos] = j;
        break;
      }
      s = (s + 1) & mask;
    }
  }
  return 0;
}

int get_IDs(const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2, dense1D<unsigned, 16>& map2to1,
            dense1D<unsigned, 16>& map1to2, bool strict) {
  map2to1.size = 0;
  map1to2.size = 0;
  if (connect1.rows != connect2.rows) return -2;
  map2to1.resize(connect2.cols, NULL_INDEX);
  map1to2.resize(connect1.cols, NULL_INDEX);
  if (map2to1.size != connect2.cols || map1to2.size != connect1.cols) return 0;
  const unsigned rows = connect1.rows, n1 = connect1.cols, n2 = connect2.cols;
  if (n1 == 0 || n2 == 0) return 0;

  // Chained hash multimap key -> columns of connect1, each chain in ascending column order.
  const unsigned bits = table_bits(n1);
  std::vector<unsigned> head(std::size_t(1) << bits, NULL_INDEX), next(n1), key1(n1);
  for (unsigned k = n1; k-- > 0;) {
    key1[k] = column_key(connect1.col_ptr(k), rows);
    const unsigned s = hash_slot(key1[k], bits);
    next[k] = head[s];
    head[s] = k;
  }

  std::vector<unsigned> cj(rows), ck(rows), tmp(rows);
  unsigned* m21 = map2to1.storage->data + map2to1.offset;
  unsigned* m12 = map1to2.storage->data + map1to2.offset;
  for (unsigned j = 0; j < n2; ++j) {
    const unsigned* col = connect2.col_ptr(j);
    if (strict)
      std::copy(col, col + rows, cj.begin());
    else
      rotated_copy(col, rows, cj.data());
    const unsigned h = column_key(col, rows);
    for (unsigned k = head[hash_slot(h, bits)]; k != NULL_INDEX; k = next[k]) {
      if (key1[k] != h) continue;
      const unsigned* cand = connect1.col_ptr(k);
      bool match;
      if (strict) {
        match = std::equal(cand, cand + rows, cj.begin());
      } else {
        rotated_copy(cand, rows, ck.data());
        match = std::equal(ck.begin(), ck.end(), cj.begin());
        if (!match) {
          std::reverse_copy(ck.begin(), ck.end(), tmp.begin());
          rotated_copy(tmp.data(), rows, ck.data());
          match = std::equal(ck.begin(), ck.end(), cj.begin());
        }
      }
      if (match) {
        m21[j] = k;
        m12[k] = j;
        break;
      }
    }
  }
  return 0;
}

}  // namespace kvo::gridkit
