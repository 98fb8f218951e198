// Reader of legacy ASCII VTK unstructured grids.
#include <cstring>

#include "formats/mesh_reading.hpp"

namespace kvo::gridkit {

namespace {

// A VTK cell type, its linear node count, and the element types it becomes with k extra nodes
// taken from a following poly-vertex cell.
struct cell_kind {
  unsigned vtk;
  unsigned nodes;
  element_type linear;
  unsigned extra1;
  element_type higher1;
  unsigned extra2;
  element_type higher2;
};
constexpr cell_kind cell_kinds[] = {
    {3, 2, ET_EDGE2, 1, ET_EDGE3, 0, ET_NONE},        {5, 3, ET_TRIA3, 3, ET_TRIA6, 0, ET_NONE},
    {9, 4, ET_QUAD4, 4, ET_QUAD8, 5, ET_QUAD9},       {10, 4, ET_TETRA4, 6, ET_TETRA10, 0, ET_NONE},
    {14, 5, ET_PYRAMID5, 9, ET_PYRAMID14, 0, ET_NONE}, {13, 6, ET_WEDGE6, 12, ET_WEDGE18, 0, ET_NONE},
    {12, 8, ET_HEXA8, 12, ET_HEXA20, 19, ET_HEXA27}};
constexpr unsigned poly_vertex = 2;

bool same(const char* b, const char* e, const char* w) {
  return std::size_t(e - b) == std::strlen(w) && std::memcmp(b, w, std::size_t(e - b)) == 0;
}

int parse(const std::vector<char>& bytes, dense2D<double>& pos, meshin::sections& s) {
  const char* p = bytes.data();
  const char* end = p + bytes.size();
  static const char magic[] = "# vtk DataFile Version";
  if (bytes.size() < sizeof magic - 1 || std::memcmp(p, magic, sizeof magic - 1) != 0) return -4;
  for (int line = 0; line < 2; ++line) {  // the version line and the title
    p = static_cast<const char*>(std::memchr(p, '\n', std::size_t(end - p)));
    if (!p) return -4;
    ++p;
  }
  meshin::tokens in(p, end, '\0');
  if (!in.word("ASCII") || !in.word("DATASET") || !in.word("UNSTRUCTURED_GRID")) return -4;

  std::vector<unsigned> cells, types;
  bool have_points = false, have_cells = false, have_types = false;
  const char *b, *e;
  while (in.next(b, e)) {
    unsigned n = 0, size = 0;
    if (same(b, e, "POINTS")) {
      const char *tb, *te;
      if (have_points || !in.number(n) || !in.next(tb, te) || !(same(tb, te, "double") || same(tb, te, "float")))
        return -4;
      if (!in.can_hold(n, 3)) return -4;
      if (!pos.resize(3, n)) return ERR_ALLOCATION;
      for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < 3; ++i)
          if (!in.real(pos(i, j))) return -4;
      have_points = true;
    } else if (same(b, e, "CELLS")) {
      if (have_cells || !in.number(n) || !in.number(size) || !in.can_hold(size, 1) || size < n) return -4;
      cells.resize(size);
      for (unsigned k = 0; k < size; ++k)
        if (!in.number(cells[k])) return -4;
      // The list must describe exactly n cells.
      std::size_t at = 0;
      for (unsigned c = 0; c < n; ++c) {
        if (at >= cells.size() || cells[at] > cells.size() - at - 1) return -4;
        at += std::size_t(cells[at]) + 1;
      }
      if (at != cells.size()) return -4;
      have_cells = true;
    } else if (same(b, e, "CELL_TYPES")) {
      if (have_types || !in.number(n) || !in.can_hold(n, 1)) return -4;
      types.resize(n);
      for (unsigned k = 0; k < n; ++k)
        if (!in.number(types[k])) return -4;
      have_types = true;
    } else if (same(b, e, "POINT_DATA") || same(b, e, "CELL_DATA") || same(b, e, "FIELD")) {
      break;  // fields are not read
    } else {
      return -4;
    }
  }
  if (!have_points) return -4;
  if (have_cells != have_types) return -4;

  // Walk the cells; a poly-vertex right after an element with a matching count holds its
  // higher-order nodes. Poly-vertices that fit no element and other cell types are skipped.
  std::size_t at = 0;
  unsigned nodes[27];
  for (std::size_t c = 0; c < types.size(); ++c) {
    if (at >= cells.size()) return -4;  // fewer cells than cell types
    const unsigned count = cells[at];
    const unsigned* list = cells.data() + at + 1;
    at += std::size_t(count) + 1;
    const cell_kind* kind = nullptr;
    for (const auto& k : cell_kinds)
      if (k.vtk == types[c]) kind = &k;
    if (!kind) continue;
    if (count != kind->nodes) return -4;
    std::memcpy(nodes, list, sizeof(unsigned) * count);
    if (kind->vtk == 10) std::swap(nodes[2], nodes[3]);  // undo the tetrahedron swap
    element_type t = kind->linear;
    unsigned total = count;
    if (c + 1 < types.size() && types[c + 1] == poly_vertex && at < cells.size()) {
      const unsigned extra = cells[at];
      element_type h = extra == kind->extra1 ? kind->higher1 : extra == kind->extra2 ? kind->higher2 : ET_NONE;
      if (extra != 0 && h != ET_NONE) {
        std::memcpy(nodes + count, cells.data() + at + 1, sizeof(unsigned) * extra);
        at += std::size_t(extra) + 1;
        ++c;
        t = h;
        total += extra;
      }
    }
    if (!s.add(t, nodes, total, 0u)) return ERR_ALLOCATION;
  }
  return s.check(pos.cols) ? 0 : -4;
}

}  // namespace

int vtk_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
              dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references) {
  return meshin::read_mesh(filename, pos, first, last, FEtypes, references, parse);
}

}  // namespace kvo::gridkit
