// Reader of formatted MEDIT meshes.
#include <cstring>

#include "formats/mesh_reading.hpp"

namespace kvo::gridkit {

namespace {

struct element_section {
  const char* keyword;
  element_type type;
  unsigned nodes;
};
constexpr element_section element_sections[] = {
    {"Edges", ET_EDGE2, 2},    {"Triangles", ET_TRIA3, 3}, {"Quadrilaterals", ET_QUAD4, 4},
    {"Tetrahedra", ET_TETRA4, 4}, {"Pyramids", ET_PYRAMID5, 5}, {"Prisms", ET_WEDGE6, 6},
    {"Hexahedra", ET_HEXA8, 8}};

// Sections of other kinds that are skipped: integers per record, or reals per coordinate.
struct skipped_section {
  const char* keyword;
  unsigned integers;
  bool per_dimension;
};
constexpr skipped_section skipped_sections[] = {
    {"Corners", 1, false},          {"RequiredVertices", 1, false},
    {"Ridges", 1, false},           {"RequiredEdges", 1, false},
    {"RequiredTriangles", 1, false}, {"RequiredQuadrilaterals", 1, false},
    {"NormalAtVertices", 2, false}, {"TangentAtVertices", 2, false},
    {"TangentAtEdges", 3, false},   {"NormalAtTriangleVertices", 3, false},
    {"NormalAtQuadrilateralVertices", 3, false}, {"Normals", 0, true},
    {"Tangents", 0, true}};

bool same(const char* b, const char* e, const char* w) {
  return std::size_t(e - b) == std::strlen(w) && std::memcmp(b, w, std::size_t(e - b)) == 0;
}

int parse(const std::vector<char>& bytes, dense2D<double>& pos, meshin::sections& s) {
  meshin::tokens in(bytes.data(), bytes.data() + bytes.size(), '#');
  unsigned version = 0, dim = 0;
  if (!in.word("MeshVersionFormatted") || !in.number(version) || version < 1 || version > 2) return -4;
  bool have_vertices = false;
  const char *b, *e;
  while (in.next(b, e)) {
    if (same(b, e, "End")) break;
    if (same(b, e, "Dimension")) {
      if (!in.number(dim) || (dim != 2 && dim != 3) || have_vertices) return -4;
      continue;
    }
    unsigned n = 0;
    if (same(b, e, "Vertices")) {
      if (dim == 0 || have_vertices || !in.number(n) || !in.can_hold(n, dim + 1)) return -4;
      if (!pos.resize(dim, n)) return ERR_ALLOCATION;
      for (unsigned j = 0; j < n; ++j) {
        long long ref;
        for (unsigned i = 0; i < dim; ++i)
          if (!in.real(pos(i, j))) return -4;
        if (!in.integer(ref)) return -4;
      }
      have_vertices = true;
      continue;
    }
    const element_section* es = nullptr;
    for (const auto& k : element_sections)
      if (same(b, e, k.keyword)) es = &k;
    if (es) {
      if (!in.number(n) || !in.can_hold(n, es->nodes + 1)) return -4;
      if (!s.connect[es->type].reserve(es->nodes, s.connect[es->type].cols + n)) return ERR_ALLOCATION;
      unsigned nodes[8];
      for (unsigned j = 0; j < n; ++j) {
        for (unsigned i = 0; i < es->nodes; ++i) {
          if (!in.number(nodes[i]) || nodes[i] == 0) return -4;
          nodes[i] -= 1;  // the file counts from 1
        }
        long long ref;
        if (!in.integer(ref)) return -4;
        if (!s.add(es->type, nodes, es->nodes, static_cast<unsigned>(ref))) return ERR_ALLOCATION;
      }
      continue;
    }
    const skipped_section* ss = nullptr;
    for (const auto& k : skipped_sections)
      if (same(b, e, k.keyword)) ss = &k;
    if (!ss || dim == 0) return -4;
    const unsigned per = ss->per_dimension ? dim : ss->integers;
    if (!in.number(n) || !in.can_hold(n, per)) return -4;
    for (std::uint64_t k = 0; k < std::uint64_t(n) * per; ++k) {
      double v;
      if (!in.real(v)) return -4;
    }
  }
  if (!have_vertices) {
    if (dim == 0) return -4;
    pos.resize(dim, 0);
  }
  return s.check(pos.cols) ? 0 : -4;
}

}  // namespace

int medit_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
                dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references) {
  return meshin::read_mesh(filename, pos, first, last, FEtypes, references, parse);
}

}  // namespace kvo::gridkit
