// Face-connected components of a mesh from its neighbour matrix.
//
// Components are numbered by their smallest element and filled breadth-first. An element is
// marked when it is first queued, so the element list itself serves as the queue; this lists
// the elements in the same order as marking them when they are taken from a queue that may
// hold repeats.
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "topology/faces.hpp"

namespace kvo::gridkit {

int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned, 16>& elements,
                   dense1D<unsigned, 16>& offsets) {
  const unsigned n = neighbors.cols, rows = neighbors.rows;
  elements.clear_hard();
  offsets.clear_hard();
  if (!elements.resize(n) || !offsets.push_back(0)) return ERR_ALLOCATION;
  if (n == 0) return 0;
  const std::size_t words = (std::size_t(n) + 63) / 64;
  std::unique_ptr<std::uint64_t[]> visited(new (std::nothrow) std::uint64_t[words]);
  if (!visited) return ERR_ALLOCATION;
  std::memset(visited.get(), 0, words * sizeof(std::uint64_t));
  auto test_and_mark = [&](unsigned e) {
    std::uint64_t& w = visited[e >> 6];
    const std::uint64_t bit = std::uint64_t(1) << (e & 63);
    const bool was = (w & bit) != 0;
    w |= bit;
    return was;
  };

  unsigned* list = elements.ptr();
  const unsigned* base = neighbors.storage->data + neighbors.offset;
  const std::size_t ld = neighbors.ld;
  unsigned filled = 0, head = 0;
  for (unsigned s = 0; s < n && filled < n; ++s) {
    if (test_and_mark(s)) continue;
    list[filled++] = s;
    while (head < filled) {
      // The queue is known ahead: fetch the columns a few places on while working on this one.
#if defined(__GNUC__)
      if (head + 8 < filled) __builtin_prefetch(base + std::size_t(list[head + 8]) * ld);
#endif
      const unsigned* c = base + std::size_t(list[head++]) * ld;
      for (unsigned r = 0; r < rows; ++r) {
        const unsigned m = c[r];
        // NULL_INDEX, and any entry that names no column, is no neighbour.
        if (m < n && !test_and_mark(m)) list[filled++] = m;
      }
    }
    if (!offsets.push_back(filled)) return ERR_ALLOCATION;
  }
  return 0;
}

int get_subdomains(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors, dense1D<unsigned, 16>& offsets) {
  if (connectM.cols != neighbors.cols) return -1;
  dense1D<unsigned, 16> list;
  const int st = get_subdomains(neighbors, list, offsets);
  if (st) return st;

  const unsigned n = neighbors.cols;
  const unsigned* order = list.ptr();
  dense2D<unsigned> conn2, nb2;
  dense1D<unsigned, 16> inverse;
  auto fail = [&]() {
    connectM.clear();
    connectM.clear_hard();
    neighbors.clear();
    neighbors.clear_hard();
    offsets.clear_hard();
    return ERR_ALLOCATION;
  };
  if (!conn2.resize(connectM.rows, n) || !nb2.resize(neighbors.rows, n) || !inverse.resize(n)) return fail();
  for (unsigned k = 0; k < n; ++k) {
    if (connectM.rows) std::memcpy(conn2.col_ptr(k), connectM.col_ptr(order[k]), sizeof(unsigned) * connectM.rows);
    if (neighbors.rows) std::memcpy(nb2.col_ptr(k), neighbors.col_ptr(order[k]), sizeof(unsigned) * neighbors.rows);
    inverse[order[k]] = k;
  }
  change_indices(nb2, inverse);
  connectM = conn2;
  neighbors = nb2;
  return 0;
}

}  // namespace kvo::gridkit
