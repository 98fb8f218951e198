// Removal of unused nodes from a coordinate matrix, with the renumbering of the connectivities.
#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include "editing/editing_internal.hpp"

namespace kvo::gridkit {

namespace {

// Renumbers every connectivity of the range once. A view repeated in the range (same block,
// place and shape) is renumbered only the first time: a second pass would map indices that
// are already new.
void renumber_once(dense2D<unsigned>* first, dense2D<unsigned>* last, const dense1D<unsigned, 16>& new_IDs) {
  using key = std::tuple<const void*, unsigned, unsigned, unsigned, unsigned>;
  std::vector<std::pair<key, dense2D<unsigned>*>> views;
  views.reserve(std::size_t(last - first));
  for (dense2D<unsigned>* c = first; c != last; ++c)
    views.push_back({key(c->storage.get(), c->offset, c->rows, c->cols, c->ld), c});
  std::sort(views.begin(), views.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 0; i < views.size(); ++i)
    if (i == 0 || views[i].first != views[i - 1].first) change_indices(*views[i].second, new_IDs);
}

}  // namespace

int simplify(dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<unsigned, 16>& new_IDs,
             unsigned N0) {
  new_IDs.size = 0;
  if (first == last) return 0;
  if (last < first) return -3;
  const unsigned n = pos.cols;
  for (const dense2D<unsigned>* c = first; c != last; ++c)
    if (!check_IDs(*c, n)) return -2;
  if (std::uint64_t(pos.rows) * n == 0) return 0;
  if (N0 >= n) return 0;

  compaction::buffer<std::uint64_t> used;
  if (!new_IDs.resize(n) || !used.allocate((std::size_t(n) + 63) / 64, true)) return ERR_ALLOCATION;
  std::uint64_t* bits = used.get();
  for (const dense2D<unsigned>* c = first; c != last; ++c)
    detail::for_each_run(*c, [bits](const unsigned* p, std::size_t m) {
      for (std::size_t i = 0; i < m; ++i) {
        const unsigned v = p[i];
        if (v != NULL_INDEX) bits[v >> 6] |= std::uint64_t(1) << (v & 63);
      }
    });

  unsigned* map = new_IDs.ptr();
  for (unsigned i = 0; i < N0; ++i) map[i] = i;
  const unsigned rows = pos.rows;
  const std::size_t ld = pos.ld;
  double* xyz = pos.storage->data + pos.offset;
  unsigned w = N0;
  for (unsigned i = N0; i < n; ++i) {
    if (bits[i >> 6] & (std::uint64_t(1) << (i & 63))) {
      if (i > w) std::memcpy(xyz + w * ld, xyz + i * ld, sizeof(double) * rows);
      map[i] = w++;
    } else {
      map[i] = NULL_INDEX;
    }
  }
  if (w == n) return 0;
  if (!pos.resize(rows, w)) return ERR_ALLOCATION;
  renumber_once(first, last, new_IDs);
  return int(n - w);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs, unsigned N0) {
  return simplify(pos, &connectM, &connectM + 1, new_IDs, N0);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, unsigned N0) {
  dense1D<unsigned, 16> new_IDs;
  return simplify(pos, &connectM, &connectM + 1, new_IDs, N0);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2, unsigned N0) {
  // Views sharing the callers' blocks: the renumbering is done in place and seen through both.
  dense2D<unsigned> pair[2] = {connectM1, connectM2};
  dense1D<unsigned, 16> new_IDs;
  return simplify(pos, pair, pair + 2, new_IDs, N0);
}

}  // namespace kvo::gridkit
