// Helpers shared by the mesh file writers: element-type validation, the element list with the
// mixed connectivities split into pure types, and opening output files.
#ifndef GRIDKIT_FORMATS_MESH_WRITING_HPP
#define GRIDKIT_FORMATS_MESH_WRITING_HPP

#include <cstdio>
#include <vector>

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::writing {

// One run of elements of a single pure type, with the reference number written for them.
struct element_block {
  dense2D<unsigned> connect;  // view on the caller's matrix or on a grouped copy
  element_type type;
  unsigned ref;
};

// True for the 21 values of element_type.
inline bool valid_type(int t) noexcept { return t >= ET_NONE && t <= ET_HEXA27; }

// check_IDs(m, t, bound) for a type given as a plain int: an empty matrix passes whatever the
// type, a non-empty one with a value outside element_type fails.
inline bool connectivity_fits(const dense2D<unsigned>& m, int t, unsigned bound) {
  if (m.is_empty()) return true;
  if (!valid_type(t)) return false;
  return check_IDs(m, static_cast<element_type>(t), bound);
}

// Appends the blocks of one matrix of type t to `list`: nothing for an empty matrix, the matrix
// itself for a pure type, and for ET_FACE_MIXED / ET_SOLID_MIXED one block per node-count group
// of a copy grouped by sort_elfes (groups whose node count has no pure type are dropped).
// The matrix must have passed connectivity_fits. Returns 0 or ERR_ALLOCATION.
int append_blocks(const dense2D<unsigned>& m, element_type t, unsigned ref, std::vector<element_block>& list);

// Opens a file for writing in text mode; null for a null name or when it can't be opened.
inline std::FILE* open_output(const char* filename) noexcept {
  return filename ? std::fopen(filename, "w") : nullptr;
}

// A writer of a range of matrices with one type (a plain int) each.
using range_writer = int (*)(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>* first,
                             const dense2D<unsigned>* last, const int* types, std::size_t ntypes);

// The one-matrix and two-matrix forms of a range writer.
inline int write_one(range_writer w, const char* filename, const dense2D<double>& pos,
                     const dense2D<unsigned>& connectM, element_type t) {
  const int type = t;
  return w(filename, pos, &connectM, &connectM + 1, &type, 1);
}
inline int write_two(range_writer w, const char* filename, const dense2D<double>& pos,
                     const dense2D<unsigned>& connectM1, const dense2D<unsigned>& connectM2, element_type t1,
                     element_type t2) {
  const dense2D<unsigned> pair[2] = {connectM1, connectM2};
  const int types[2] = {t1, t2};
  return w(filename, pos, pair, pair + 2, types, 2);
}

}  // namespace kvo::gridkit::writing

#endif  // GRIDKIT_FORMATS_MESH_WRITING_HPP
