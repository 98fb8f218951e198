// Grouping of the columns of a mixed connectivity by node count, in place.
//
// A column's node count is the number of its entries before the first NULL_INDEX. Columns are
// ordered by decreasing node count, ties by ascending former column (a counting sort on the
// count), moved into place by swaps that keep the two position maps consistent, and columns
// without nodes are dropped at the end.
#include <cstdint>
#include <memory>
#include <new>

#include "topology/faces.hpp"

namespace kvo::gridkit {

namespace {

void swap_columns(dense2D<unsigned>& m, unsigned p, unsigned q) {
  unsigned* a = m.col_ptr(p);
  unsigned* b = m.col_ptr(q);
  for (unsigned i = 0; i < m.rows; ++i) {
    const unsigned t = a[i];
    a[i] = b[i];
    b[i] = t;
  }
}

}  // namespace

int sort_elfes(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors, dense1D<unsigned, 16>& node_counts,
               dense1D<unsigned, 16>& group_ends, dense1D<unsigned, 16>& new_positions) {
  const bool with_nb = !neighbors.is_empty();
  if (with_nb && neighbors.cols != connectM.cols) return -1;

  node_counts.clear_hard();
  group_ends.clear_hard();
  new_positions.clear_hard();
  const unsigned r = connectM.rows, n = connectM.cols;
  const bool has_entries = !connectM.is_empty();

  // Allocation failures are not reported: the operation then leaves the matrices as they are.
  if (!new_positions.resize(n)) return 0;
  std::unique_ptr<unsigned[]> held(new (std::nothrow) unsigned[n ? n : 1]);
  std::unique_ptr<unsigned[]> order(new (std::nothrow) unsigned[n ? n : 1]);
  const std::size_t nbucket = has_entries ? std::size_t(r) + 1 : 1;
  std::unique_ptr<unsigned[]> bucket(new (std::nothrow) unsigned[nbucket]);
  if (!held || !order || !bucket) {
    new_positions.clear_hard();
    return 0;
  }
  unsigned* pos = new_positions.ptr();
  for (unsigned e = 0; e < n; ++e) pos[e] = held[e] = e;

  // Node counts, then a stable counting sort on r - k (columns with k = 0 left out).
  for (std::size_t d = 0; d < nbucket; ++d) bucket[d] = 0;
  const unsigned* base = connectM.storage->data + connectM.offset;
  auto count_of = [&](unsigned e) {
    const unsigned* c = base + std::size_t(e) * connectM.ld;
    unsigned k = 0;
    while (k < r && c[k] != NULL_INDEX) ++k;
    return k;
  };
  if (has_entries) {
    for (unsigned e = 0; e < n; ++e) {
      const unsigned k = count_of(e);
      if (k) ++bucket[r - k + 1];
    }
  }
  for (std::size_t d = 1; d < nbucket; ++d) bucket[d] += bucket[d - 1];
  const unsigned P = bucket[nbucket - 1];
  if (has_entries) {
    for (unsigned e = 0; e < n; ++e) {
      const unsigned k = count_of(e);
      if (k) order[bucket[r - k]++] = e;
    }
  }

  // Moves each element to its place; groups close where the node count changes. After the
  // counting sort, bucket[d] is the end of the columns with r - k = d.
  unsigned d = 0, group = NULL_INDEX;
  for (unsigned p = 0; p < P; ++p) {
    while (bucket[d] <= p) ++d;
    const unsigned k = r - d;
    if (p == 0) {
      group = k;
    } else if (k != group) {
      node_counts.push_back(group);
      group_ends.push_back(p);
      group = k;
    }
    const unsigned e = order[p], q = pos[e];
    if (q != p) {
      swap_columns(connectM, p, q);
      if (with_nb) swap_columns(neighbors, p, q);
      const unsigned other = held[p];
      held[p] = e;
      held[q] = other;
      pos[e] = p;
      pos[other] = q;
    }
  }
  node_counts.push_back(group);
  group_ends.push_back(P);

  // Columns without nodes are dropped; neighbour entries are renumbered to the new columns.
  connectM.resize(r, P);
  if (with_nb) neighbors.resize(neighbors.rows, P);
  for (unsigned e = 0; e < n; ++e)
    if (pos[e] >= P) pos[e] = NULL_INDEX;
  if (with_nb) change_indices(neighbors, new_positions);
  return 0;
}

int sort_elfes(dense2D<unsigned>& connectM, dense1D<unsigned, 16>& node_counts, dense1D<unsigned, 16>& group_ends,
               dense1D<unsigned, 16>& new_positions) {
  dense2D<unsigned> none;
  return sort_elfes(connectM, none, node_counts, group_ends, new_positions);
}

}  // namespace kvo::gridkit
