// copy_edges: the distinct edges (corner pairs) of one or several connectivities, appended to a
// 2-row output sorted by (smaller node, larger node).
//
// The pairs are grouped by their smaller node with a counting pass and a scatter pass, then each
// group is deduplicated with a per-node mark and sorted (groups are small), which gives the same
// order as sorting all pairs at linear cost. When node indices are sparse compared with the
// number of pairs, the per-node tables would be too large and the pairs are sorted as 64-bit keys.
#include <algorithm>

#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

constexpr unsigned char LINE[1][2] = {{0, 1}};
constexpr unsigned char TRIA[3][2] = {{0, 1}, {1, 2}, {2, 0}};
constexpr unsigned char QUAD[4][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}};
constexpr unsigned char TETRA[6][2] = {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}};
constexpr unsigned char PYRAMID[8][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}};
constexpr unsigned char WEDGE[9][2] = {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}};
constexpr unsigned char HEXA[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                       {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

struct part {
  const dense2D<unsigned>* c;
  int type;
};

// Most edges one element of the type has (0: the type has no edges), and how many leading rows
// they use.
unsigned max_edges(int type) {
  switch (type) {
    case ET_EDGE2: case ET_EDGE3: return 1;
    case ET_TRIA3: case ET_TRIA6: return 3;
    case ET_QUAD4: case ET_QUAD8: case ET_QUAD9: case ET_FACE_MIXED: return 4;
    case ET_TETRA4: case ET_TETRA10: return 6;
    case ET_PYRAMID5: case ET_PYRAMID14: return 8;
    case ET_WEDGE6: case ET_WEDGE18: return 9;
    case ET_HEXA8: case ET_HEXA27: case ET_SOLID_MIXED: return 12;
    default: return 0;  // ET_HEXA20 included
  }
}

unsigned corner_rows(int type) {
  switch (type) {
    case ET_EDGE2: case ET_EDGE3: return 2;
    case ET_TRIA3: case ET_TRIA6: return 3;
    case ET_QUAD4: case ET_QUAD8: case ET_QUAD9: return 4;
    case ET_TETRA4: case ET_TETRA10: return 4;
    case ET_PYRAMID5: case ET_PYRAMID14: return 5;
    case ET_WEDGE6: case ET_WEDGE18: return 6;
    case ET_HEXA8: case ET_HEXA27: return 8;
    default: return 0;  // mixed types: every row; no edges: none
  }
}

// A non-empty connectivity is usable when it passes check_IDs for its type with no bound and
// holds the corner rows its edges need.
bool usable(const dense2D<unsigned>& c, int type) {
  if (type < int(ET_NONE) || type > int(ET_HEXA27)) return true;  // no edges
  if (!check_IDs(c, element_type(type), NULL_INDEX)) return false;
  return max_edges(type) == 0 || c.rows >= corner_rows(type);
}

template <class F>
inline void emit(unsigned a, unsigned b, F& f) {
  if (a == NULL_INDEX || b == NULL_INDEX) return;
  if (a < b) f(a, b);
  else f(b, a);
}

template <unsigned NE, class F>
void visit_fixed(const dense2D<unsigned>& c, const unsigned char (&E)[NE][2], F& f) {
  const unsigned* base = c.storage->data + c.offset;
  const std::size_t ld = c.ld;
  for (unsigned j = 0; j < c.cols; ++j) {
    const unsigned* q = base + j * ld;
    for (unsigned e = 0; e < NE; ++e) emit(q[E[e][0]], q[E[e][1]], f);
  }
}

template <class F>
inline void visit_list(const unsigned* q, const unsigned char (*E)[2], unsigned n, F& f) {
  for (unsigned e = 0; e < n; ++e) emit(q[E[e][0]], q[E[e][1]], f);
}

// Triangles (3 rows, or a null 4th entry) and quadrangles.
template <class F>
void visit_face_mixed(const dense2D<unsigned>& c, F& f) {
  const unsigned* base = c.storage->data + c.offset;
  const std::size_t ld = c.ld;
  for (unsigned j = 0; j < c.cols; ++j) {
    const unsigned* q = base + j * ld;
    if (c.rows < 4 || q[3] == NULL_INDEX) visit_list(q, TRIA, 3, f);
    else visit_list(q, QUAD, 4, f);
  }
}

// Tetrahedra, pyramids, wedges and hexahedra told apart by their first null entry (rows past the
// last one count as null).
template <class F>
void visit_solid_mixed(const dense2D<unsigned>& c, F& f) {
  const unsigned* base = c.storage->data + c.offset;
  const std::size_t ld = c.ld;
  const unsigned rows = c.rows;
  for (unsigned j = 0; j < c.cols; ++j) {
    const unsigned* q = base + j * ld;
    if (rows <= 4 || q[4] == NULL_INDEX) visit_list(q, TETRA, 6, f);
    else if (rows <= 5 || q[5] == NULL_INDEX) visit_list(q, PYRAMID, 8, f);
    else if (rows <= 6 || q[6] == NULL_INDEX) visit_list(q, WEDGE, 9, f);
    else visit_list(q, HEXA, 12, f);
  }
}

// Calls f(lo, hi) with lo <= hi for every edge of every element (repeats included).
template <class F>
void visit_edges(const part& p, F&& f) {
  const dense2D<unsigned>& c = *p.c;
  switch (p.type) {
    case ET_EDGE2: case ET_EDGE3: visit_fixed(c, LINE, f); break;
    case ET_TRIA3: case ET_TRIA6: visit_fixed(c, TRIA, f); break;
    case ET_QUAD4: case ET_QUAD8: case ET_QUAD9: visit_fixed(c, QUAD, f); break;
    case ET_FACE_MIXED: visit_face_mixed(c, f); break;
    case ET_TETRA4: case ET_TETRA10: visit_fixed(c, TETRA, f); break;
    case ET_PYRAMID5: case ET_PYRAMID14: visit_fixed(c, PYRAMID, f); break;
    case ET_WEDGE6: case ET_WEDGE18: visit_fixed(c, WEDGE, f); break;
    case ET_HEXA8: case ET_HEXA27: visit_fixed(c, HEXA, f); break;
    case ET_SOLID_MIXED: visit_solid_mixed(c, f); break;
    default: break;
  }
}

// One more than the largest non-null node in the rows the edges read (0 when there is none).
unsigned node_top(const part& p) {
  if (max_edges(p.type) == 0) return 0;
  const dense2D<unsigned>& c = *p.c;
  const unsigned rows = corner_rows(p.type) ? corner_rows(p.type) : c.rows;
  const unsigned* base = c.storage->data + c.offset;
  const std::size_t ld = c.ld;
  unsigned top = 0;
  for (unsigned j = 0; j < c.cols; ++j) {
    const unsigned* q = base + j * ld;
    for (unsigned i = 0; i < rows; ++i) {
      const unsigned v = q[i] + 1u;  // NULL_INDEX wraps to 0
      top = v > top ? v : top;
    }
  }
  return top;
}

// Makes room for m more 2-row columns and returns a pointer to the first one (null on failure).
unsigned* open_columns(dense2D<unsigned>& edges, unsigned m) {
  if (detail::is_empty(edges) && !edges.resize(2, 0)) return nullptr;
  unsigned first;
  if (!detail::grow_columns(edges, 2, m, &first)) return nullptr;
  return edges.col_ptr(first);
}

template <class T>
void small_sort(T* a, unsigned n) {
  if (n > 24) {
    std::sort(a, a + n);
    return;
  }
  for (unsigned i = 1; i < n; ++i) {
    const T v = a[i];
    unsigned k = i;
    for (; k > 0 && a[k - 1] > v; --k) a[k] = a[k - 1];
    a[k] = v;
  }
}

int extract_grouped(const part* parts, unsigned np, unsigned top, dense2D<unsigned>& edges) {
  const std::size_t nn = top;  // nodes 0 .. top-1
  detail::scratch<unsigned> cnt;
  if (!cnt.allocate(nn, true)) return ERR_ALLOCATION;
  unsigned* count = cnt.get();
  for (unsigned i = 0; i < np; ++i) visit_edges(parts[i], [count](unsigned lo, unsigned) { ++count[lo]; });
  unsigned run = 0;
  for (std::size_t i = 0; i < nn; ++i) {
    const unsigned c = count[i];
    count[i] = run;
    run += c;
  }
  detail::scratch<unsigned> vals;
  if (!vals.allocate(run)) return ERR_ALLOCATION;
  unsigned* hi_of = vals.get();
  for (unsigned i = 0; i < np; ++i)
    visit_edges(parts[i], [count, hi_of](unsigned lo, unsigned hi) { hi_of[count[lo]++] = hi; });
  // count[lo] is now the end of lo's group. Deduplicate and sort each group in place.
  detail::scratch<unsigned> marks;
  if (!marks.allocate(nn)) return ERR_ALLOCATION;
  unsigned* mark = marks.get();
  std::memset(mark, 0xFF, nn * sizeof(unsigned));
  unsigned w = 0, begin = 0;
  for (std::size_t lo = 0; lo < nn; ++lo) {
    const unsigned end = count[lo], wb = w, key = static_cast<unsigned>(lo);
    for (unsigned r = begin; r < end; ++r) {
      const unsigned h = hi_of[r];
      if (mark[h] != key) {
        mark[h] = key;
        hi_of[w++] = h;
      }
    }
    small_sort(hi_of + wb, w - wb);
    count[lo] = w;
    begin = end;
  }
  if (w == 0) return 0;
  unsigned* out = open_columns(edges, w);
  if (!out) return ERR_ALLOCATION;
  begin = 0;
  for (std::size_t lo = 0; lo < nn; ++lo) {
    const unsigned end = count[lo];
    for (unsigned r = begin; r < end; ++r) {
      out[0] = static_cast<unsigned>(lo);
      out[1] = hi_of[r];
      out += 2;
    }
    begin = end;
  }
  return 0;
}

int extract_sorted(const part* parts, unsigned np, std::uint64_t upper, dense2D<unsigned>& edges) {
  detail::scratch<std::uint64_t> keys;
  if (!keys.allocate(upper)) return ERR_ALLOCATION;
  std::uint64_t* k = keys.get();
  std::size_t n = 0;
  for (unsigned i = 0; i < np; ++i)
    visit_edges(parts[i], [k, &n](unsigned lo, unsigned hi) { k[n++] = (std::uint64_t(lo) << 32) | hi; });
  std::sort(k, k + n);
  const std::size_t m = std::unique(k, k + n) - k;
  if (m == 0) return 0;
  unsigned* out = open_columns(edges, static_cast<unsigned>(m));
  if (!out) return ERR_ALLOCATION;
  for (std::size_t r = 0; r < m; ++r, out += 2) {
    out[0] = static_cast<unsigned>(k[r] >> 32);
    out[1] = static_cast<unsigned>(k[r]);
  }
  return 0;
}

int extract(const part* parts, unsigned np, dense2D<unsigned>& edges) {
  std::uint64_t upper = 0;
  unsigned top = 0;
  for (unsigned i = 0; i < np; ++i) {
    upper += std::uint64_t(parts[i].c->cols) * max_edges(parts[i].type);
    const unsigned t = node_top(parts[i]);
    top = t > top ? t : top;
  }
  if (upper == 0 || top == 0) return 0;
  if (upper > 0xFFFFFFFFull) return ERR_ALLOCATION;
  // Per-node tables stay within a small multiple of the pairs themselves.
  if (std::uint64_t(top) <= 2 * upper + 65536) return extract_grouped(parts, np, top, edges);
  return extract_sorted(parts, np, upper, edges);
}

}  // namespace

int copy_edges(const dense2D<unsigned>& connectM, element_type FE_type, dense2D<unsigned>& edges) {
  if (detail::is_empty(connectM)) return 0;
  if (!usable(connectM, int(FE_type))) return -1;
  if (!detail::is_empty(edges) && edges.rows != 2) return -3;
  const part p{&connectM, int(FE_type)};
  return extract(&p, 1, edges);
}

int copy_edges(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int, 16>& FE_types,
               dense2D<unsigned>& edges) {
  if (first == last) return 0;
  if (last < first) return -2;
  const std::size_t n = static_cast<std::size_t>(last - first);
  if (FE_types.size < n) return -3;
  detail::scratch<part> parts;
  if (!parts.allocate(n)) return ERR_ALLOCATION;
  unsigned np = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (detail::is_empty(first[i])) continue;
    const int type = FE_types[static_cast<unsigned>(i)];
    if (!usable(first[i], type)) return -1;
    parts[np++] = part{first + i, type};
  }
  if (np == 0) return 0;
  if (!detail::is_empty(edges) && edges.rows != 2) return -4;
  return extract(parts.get(), np, edges);
}

}  // namespace kvo::gridkit
