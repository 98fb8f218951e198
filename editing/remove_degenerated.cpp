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

// Compacts the kept columns to the front; map (when given) receives each column's new
// position. Returns the number of columns kept.
unsigned compact(dense2D<unsigned>& m, bool strict, unsigned* map) {
  const unsigned rows = m.rows, cols = m.cols;
  const std::size_t ld = m.ld;
  unsigned* base = m.storage->data + m.offset;
  std::vector<unsigned> tmp;
  unsigned w = 0;
  for (unsigned j = 0; j < cols; ++j) {
    const unsigned* c = base + j * ld;
    const bool bad = rows <= pairwise_rows ? repeats_pairwise(c, rows, strict) : repeats_sorted(c, rows, strict, tmp);
    if (bad) continue;
    if (w != j) std::memcpy(base + w * ld, c, sizeof(unsigned) * rows);
    if (map) map[j] = w;
    ++w;
  }
  return w;
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
