#include "formats/mesh_writing.hpp"

namespace kvo::gridkit::writing {

namespace {
// Pure type of a group of n nodes taken from a mixed connectivity; ET_NONE when there is none.
element_type pure_type(element_type mixed, unsigned n) noexcept {
  if (mixed == ET_FACE_MIXED) {
    if (n == 3) return ET_TRIA3;
    if (n == 4) return ET_QUAD4;
    return ET_NONE;
  }
  switch (n) {
    case 4: return ET_TETRA4;
    case 5: return ET_PYRAMID5;
    case 6: return ET_WEDGE6;
    case 8: return ET_HEXA8;
    default: return ET_NONE;
  }
}
}  // namespace

int append_blocks(const dense2D<unsigned>& m, element_type t, unsigned ref, std::vector<element_block>& list) {
  if (m.is_empty()) return 0;
  if (t != ET_FACE_MIXED && t != ET_SOLID_MIXED) {
    list.push_back({m, t, ref});
    return 0;
  }
  dense2D<unsigned> grouped;
  if (!grouped.copy(m)) return ERR_ALLOCATION;
  dense1D<unsigned, 16> counts, ends, positions;
  sort_elfes(grouped, counts, ends, positions);
  unsigned start = 0;
  for (unsigned g = 0; g < counts.size && g < ends.size; ++g) {
    const unsigned n = counts[g], end = ends[g];
    const element_type pure = pure_type(t, n);
    // Guard against group bounds outside the grouped matrix.
    if (pure != ET_NONE && end > start && end <= grouped.cols && n <= grouped.rows)
      list.push_back({grouped.sub_matrix(0, start, n, end - start), pure, ref});
    if (end > start) start = end;
  }
  return 0;
}

}  // namespace kvo::gridkit::writing
