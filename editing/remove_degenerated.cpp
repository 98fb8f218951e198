// Removal of elements that repeat a node.
#include <algorithm>
#include <vector>

#include "editing/editing_internal.hpp"

namespace kvo::gridkit {

namespace {

// Beyond this many rows a column is sorted instead of compared pairwise.
constexpr unsigned pairwise_rows = 16;

// True when the column repeats a node; repeated NULL_INDEX entries count only when strict.
// (A sorted copy would meet the smallest repeated value first, and NULL_INDEX is the largest
// value, so this is the same as looking at the first equal adjacent pair after sorting.)
inline bool repeats_pairwise(const unsigned* c, unsigned rows, bool strict) {
  for (unsigned a = 0; a + 1 < rows; ++a) {
    const unsigned v = c[a];
    if (v == NULL_INDEX && !strict) continue;
    for (unsigned b = a + 1; b < rows; ++b)
      if (c[b] == v) return true;
  }
  return false;
}

inline bool repeats_sorted(const unsigned* c, unsigned rows, bool strict, std::vector<unsigned>& tmp) {
  tmp.assign(c, c + rows);
  std::sort(tmp.begin(), tmp.end());
  const auto it = std::adjacent_find(tmp.begin(), tmp.end());
  if (it == tmp.end()) return false;
  return *it != NULL_INDEX || strict;
}

// The same test for a row count known at compile time, without branches.
template <unsigned R>
inline bool repeats_fixed(const unsigned* c, bool strict) {
  bool bad = false;
  for (unsigned a = 0; a + 1 < R; ++a) {
    bool hit = false;
    for (unsigned b = a + 1; b < R; ++b) hit |= c[b] == c[a];
    bad |= hit & (strict | (c[a] != NULL_INDEX));
  }
  return bad;
}

// Compacts the kept columns to the front; map (when given) receives each column's new
// position. Returns the number of columns kept.
// R: the row count when known at compile time (0 otherwise).
template <unsigned R, class Repeats>
unsigned compact_with(dense2D<unsigned>& m, unsigned* map, Repeats&& repeats) {
  const unsigned rows = R ? R : m.rows, cols = m.cols;
  const std::size_t ld = m.ld;
  unsigned* base = m.storage->data + m.offset;
  unsigned w = 0;
  for (unsigned j = 0; j < cols; ++j) {
    const unsigned* c = base + j * ld;
    if (repeats(c)) continue;
    if (w != j) {  // w < j: the columns do not overlap
      unsigned* d = base + w * ld;
      if constexpr (R != 0) {
        for (unsigned i = 0; i < R; ++i) d[i] = c[i];
      } else {
        std::memcpy(d, c, sizeof(unsigned) * rows);
      }
    }
    if (map) map[j] = w;
    ++w;
  }
  return w;
}

template <unsigned R>
unsigned compact_fixed(dense2D<unsigned>& m, bool strict, unsigned* map) {
  return compact_with<R>(m, map, [strict](const unsigned* c) { return repeats_fixed<R>(c, strict); });
}

unsigned compact(dense2D<unsigned>& m, bool strict, unsigned* map) {
  switch (m.rows) {  // the usual element sizes
    case 2: return compact_fixed<2>(m, strict, map);
    case 3: return compact_fixed<3>(m, strict, map);
    case 4: return compact_fixed<4>(m, strict, map);
    case 6: return compact_fixed<6>(m, strict, map);
    case 8: return compact_fixed<8>(m, strict, map);
    default: break;
  }
  const unsigned rows = m.rows;
  std::vector<unsigned> tmp;
  return compact_with<0>(m, map, [&](const unsigned* c) {
    return rows <= pairwise_rows ? repeats_pairwise(c, rows, strict) : repeats_sorted(c, rows, strict, tmp);
  });
}

int remove_impl(dense2D<unsigned>& connectM, unsigned* map, bool strict) {
  if (std::uint64_t(connectM.rows) * connectM.cols == 0) {
    // Columns without rows repeat nothing: all are kept.
    if (map)
      for (unsigned j = 0; j < connectM.cols; ++j) map[j] = j;
    return 0;
  }
  const unsigned cols = connectM.cols;
  const unsigned kept = compact(connectM, strict, map);
  if (kept != cols && !connectM.resize(connectM.rows, kept)) return ERR_ALLOCATION;
  return int(cols - kept);
}

}  // namespace

int remove_degenerated(dense2D<unsigned>& connectM, bool strict) { return remove_impl(connectM, nullptr, strict); }

int remove_degenerated(dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs, bool strict) {
  new_IDs.size = 0;
  if (!new_IDs.resize(connectM.cols, NULL_INDEX)) return ERR_ALLOCATION;
  return remove_impl(connectM, new_IDs.ptr(), strict);
}

}  // namespace kvo::gridkit
