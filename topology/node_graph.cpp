// Node-centred views of a connectivity: the last element of each node, the elements of each node
// and the node-to-node graph, the last two in compressed-row form (offsets, values). Both
// compressed-row builders make a counting pass and a filling pass and never sort.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "topology/faces.hpp"
#include "topology/work_memory.hpp"

namespace kvo::gridkit {

namespace {

bool is_empty(const dense2D<unsigned>& m) { return std::uint64_t(m.rows) * m.cols == 0; }

// Node -> elements of a non-empty connectivity into offsets (N + 1 entries) and elements.
// N is the largest non-null node plus one (1 when all entries are null).
int transpose(const dense2D<unsigned>& conn, dense1D<unsigned, 16>& offsets, dense1D<unsigned, 16>& elements) {
  offsets.clear_hard();
  elements.clear_hard();
  const std::uint64_t N = std::uint64_t(max_ID(conn)) + 1;
  if (N + 1 > 0xFFFFFFFFull || !topo::allocate_unset(offsets, unsigned(N + 1))) {
    offsets.clear_hard();
    return ERR_ALLOCATION;
  }
  unsigned* off = offsets.ptr();
  std::fill(off, off + N + 1, 0u);
  const unsigned* base = conn.storage->data + conn.offset;
  const unsigned rows = conn.rows, cols = conn.cols;
  const std::size_t ld = conn.ld;

  // off[n + 1] counts node n; after the running sum off[n] is the start of row n.
  for (unsigned e = 0; e < cols; ++e) {
    const unsigned* c = base + e * ld;
    for (unsigned i = 0; i < rows; ++i)
      if (c[i] != NULL_INDEX) ++off[c[i] + 1];
  }
  for (std::uint64_t n = 0; n < N; ++n) off[n + 1] += off[n];
  if (!topo::allocate_unset(elements, off[N])) {
    offsets.clear_hard();
    return ERR_ALLOCATION;
  }
  unsigned* val = elements.ptr();
  // Filling advances off[n] to the end of row n; shifting by one restores the starts.
  for (unsigned e = 0; e < cols; ++e) {
    const unsigned* c = base + e * ld;
    for (unsigned i = 0; i < rows; ++i)
      if (c[i] != NULL_INDEX) val[off[c[i]]++] = e;
  }
  std::memmove(off + 1, off, sizeof(unsigned) * std::size_t(N));
  off[0] = 0;
  return 0;
}

}  // namespace

int get_ancestors(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& ancestors) {
  if (is_empty(connectM)) return 0;
  if (ancestors.size == 0) {
    const std::uint64_t n = std::uint64_t(max_ID(connectM)) + 1;
    ancestors.clear_hard();
    if (n > 0xFFFFFFFFull || !ancestors.resize(unsigned(n), NULL_INDEX)) return ERR_ALLOCATION;
  }
  unsigned* a = ancestors.ptr();
  const unsigned bound = ancestors.size;
  const unsigned* base = connectM.storage->data + connectM.offset;
  for (unsigned e = 0; e < connectM.cols; ++e) {
    const unsigned* c = base + std::size_t(e) * connectM.ld;
    for (unsigned i = 0; i < connectM.rows; ++i)
      if (c[i] < bound) a[c[i]] = e;  // NULL_INDEX is never below the bound
  }
  return 0;
}

int get_connected_elements(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& offsets,
                           dense1D<unsigned, 16>& elements) {
  offsets.clear_hard();
  elements.clear_hard();
  if (is_empty(connectM)) return offsets.resize(1, 0u) ? 0 : ERR_ALLOCATION;
  return transpose(connectM, offsets, elements);
}

int get_node_graph(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& offsets,
                   dense1D<unsigned, 16>& neighbours) {
  dense1D<unsigned, 16> node_off, node_elems;
  if (!is_empty(connectM)) {
    const int st = transpose(connectM, node_off, node_elems);
    if (st) return st;
  }
  offsets.clear_hard();
  neighbours.clear_hard();
  if (is_empty(connectM)) return offsets.resize(1, 0u) ? 0 : ERR_ALLOCATION;

  const unsigned N = node_off.size - 1;
  // One marker per node and a last one standing for NULL_INDEX entries, which is kept equal to
  // the current node so that they are never counted.
  topo::work_array<unsigned> marker = topo::make_work_array<unsigned>(std::uint64_t(N) + 1);
  if (!marker || !topo::allocate_unset(offsets, N + 1)) {
    offsets.clear_hard();
    return ERR_ALLOCATION;
  }
  const unsigned* noff = node_off.ptr();
  const unsigned* nel = node_elems.ptr();
  const unsigned* base = connectM.storage->data + connectM.offset;
  const unsigned rows = connectM.rows;
  const std::size_t ld = connectM.ld;
  unsigned* off = offsets.ptr();
  unsigned* mk = marker.get();

  // Visits the entries of the elements of node n, by ascending element then local order, and
  // tells for each whether it is a distinct other node not met before in this walk. The marker
  // of a node holds the last node whose walk met it, so markers are never reset per node.
  auto walk = [&](unsigned n, auto&& visit) {
    mk[n] = n;
    mk[N] = n;
    for (unsigned k = noff[n]; k < noff[n + 1]; ++k) {
      const unsigned* c = base + std::size_t(nel[k]) * ld;
      for (unsigned i = 0; i < rows; ++i) {
        const unsigned m = c[i];
        const unsigned slot = m == NULL_INDEX ? N : m;
        const bool fresh = mk[slot] != n;
        mk[slot] = n;
        visit(m, fresh);
      }
    }
  };

  std::fill(mk, mk + N + 1, NULL_INDEX);
  off[0] = 0;
  std::uint64_t total = 0;
  for (unsigned n = 0; n < N; ++n) {
    unsigned count = 0;
    walk(n, [&](unsigned, bool fresh) { count += fresh; });
    total += count;
    if (total > 0xFFFFFFFEull) {
      offsets.clear_hard();
      return ERR_ALLOCATION;
    }
    off[n + 1] = unsigned(total);
  }
  // One spare entry takes the writes of repeated nodes after the last distinct one.
  if (!topo::allocate_unset(neighbours, unsigned(total), 1)) {
    offsets.clear_hard();
    return ERR_ALLOCATION;
  }
  unsigned* val = neighbours.ptr();
  std::fill(mk, mk + N + 1, NULL_INDEX);
  unsigned p = 0;
  for (unsigned n = 0; n < N; ++n)
    walk(n, [&](unsigned m, bool fresh) {
      val[p] = m;
      p += fresh;
    });
  return 0;
}

}  // namespace kvo::gridkit
