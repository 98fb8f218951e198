// Faces of elements and open faces of a mesh, written in the local face order of each type.
//
// Each operation counts what it will append, grows its output once and then fills it, so an
// output is reallocated at most once per call.
#include <cstdint>

#include "topology/faces.hpp"

namespace kvo::gridkit {

namespace {

using topo::traits;

// Neighbour matrix entries above 0xFFFFFFFE mean no element across the face.
inline bool open_face(unsigned n) { return n == NULL_INDEX; }

// Calls f(e, j, c, table) for every face that an element uses, in column then local order, while
// f returns true.
template <element_type T, class F>
void for_each_face(const dense2D<unsigned>& conn, F&& f) {
  const unsigned* base = conn.storage->data + conn.offset;
  for (unsigned e = 0; e < conn.cols; ++e) {
    const unsigned* c = base + std::size_t(e) * conn.ld;
    unsigned used;
    const topo::face_table& t = topo::column_faces<T>(c, used);
    for (unsigned j = 0; j < used; ++j)
      if (!f(e, j, c, t)) return;
  }
}

// Number of faces used by the elements, optionally only those whose neighbour entry is null.
template <element_type T>
std::uint64_t count_faces(const dense2D<unsigned>& conn, const dense2D<unsigned>* nb) {
  if (!nb && T != ET_FACE_MIXED && T != ET_SOLID_MIXED) {
    unsigned used;
    topo::column_faces<T>(conn.storage->data + conn.offset, used);
    return std::uint64_t(used) * conn.cols;
  }
  std::uint64_t n = 0;
  for_each_face<T>(conn, [&](unsigned e, unsigned j, const unsigned*, const topo::face_table&) {
    n += !nb || open_face((*nb)(j, e));
    return true;
  });
  return n;
}

// Grows a face matrix by `count` columns of `rows` rows; returns the first new column or
// NULL_INDEX on failure. An empty matrix, or one sharing its block with an input, gets storage
// of its own first.
unsigned grow_columns(dense2D<unsigned>& out, unsigned rows, std::uint64_t count, const dense2D<unsigned>& conn,
                      const dense2D<unsigned>* nb) {
  if (out.is_empty()) {
    out.clear();
    out.clear_hard();
  } else if (out.storage == conn.storage || (nb && out.storage == nb->storage)) {
    if (!out.copy(out)) return NULL_INDEX;
  }
  const unsigned first = out.is_empty() ? 0 : out.cols;
  if (first + count > 0xFFFFFFFFull) return NULL_INDEX;
  if (!out.resize(rows, unsigned(first + count))) return NULL_INDEX;
  return first;
}

// Appends the node lists of the used faces (only the open ones when nb is given).
template <element_type T>
int append_faces(const dense2D<unsigned>& conn, const dense2D<unsigned>* nb, dense2D<unsigned>& out) {
  constexpr unsigned S = traits<T>::slots;
  const std::uint64_t count = count_faces<T>(conn, nb);
  if (count == 0) return 0;
  const unsigned first = grow_columns(out, S, count, conn, nb);
  if (first == NULL_INDEX) return ERR_ALLOCATION;
  unsigned* p = out.storage->data + out.offset + std::size_t(first) * S;
  std::uint64_t left = count;
  for_each_face<T>(conn, [&](unsigned e, unsigned j, const unsigned* c, const topo::face_table& t) {
    if (nb && !open_face((*nb)(j, e))) return true;
    topo::face_nodes<S>(c, t, j, p);
    p += S;
    return --left != 0;
  });
  return 0;
}

template <element_type T>
int append_face_ids(const dense2D<unsigned>& conn, const dense2D<unsigned>& nb, dense1D<unsigned, 16>& out) {
  constexpr unsigned NF = traits<T>::nf;
  const std::uint64_t count = count_faces<T>(conn, &nb);
  if (count == 0) return 0;
  const std::uint64_t first = out.size;
  if (first + count > 0xFFFFFFFFull) return ERR_ALLOCATION;
  if (out.storage == conn.storage || out.storage == nb.storage) {
    if (!out.copy(out)) return ERR_ALLOCATION;
  }
  if (!out.resize(unsigned(first + count))) return ERR_ALLOCATION;
  unsigned* p = out.storage->data + out.offset + first;
  std::uint64_t left = count;
  for_each_face<T>(conn, [&](unsigned e, unsigned j, const unsigned*, const topo::face_table&) {
    if (!open_face(nb(j, e))) return true;
    *p++ = NF * e + j;
    return --left != 0;
  });
  return 0;
}

bool neighbour_shape_ok(const dense2D<unsigned>& conn, const dense2D<unsigned>& nb, const topo::type_shape& s) {
  return nb.rows == s.nf && nb.cols == conn.cols;
}

}  // namespace

int get_element_boundaries(const dense2D<unsigned>& connectM, element_type FE_type, dense2D<unsigned>& boundaries) {
  topo::type_shape s;
  const int st = topo::prologue(connectM, FE_type, s);
  if (st) return st > 0 ? 0 : st;
  if (!boundaries.is_empty() && boundaries.rows != s.face_rows) return -2;
  return topo::dispatch(FE_type,
                        [&](auto tag) { return append_faces<decltype(tag)::value>(connectM, nullptr, boundaries); });
}

int get_mesh_boundaries(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors, element_type FE_type,
                        dense2D<unsigned>& boundaries) {
  topo::type_shape s;
  const int st = topo::prologue(connectM, FE_type, s);
  if (st) return st > 0 ? 0 : st;
  if (!neighbour_shape_ok(connectM, neighbors, s)) return -2;
  if (!boundaries.is_empty() && boundaries.rows != s.face_rows) return -3;
  return topo::dispatch(FE_type,
                        [&](auto tag) { return append_faces<decltype(tag)::value>(connectM, &neighbors, boundaries); });
}

int get_mesh_bounding_elements(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors,
                               element_type FE_type, dense1D<unsigned, 16>& faces) {
  topo::type_shape s;
  const int st = topo::prologue(connectM, FE_type, s);
  if (st) return st > 0 ? 0 : st;
  if (!neighbour_shape_ok(connectM, neighbors, s)) return -2;
  return topo::dispatch(FE_type,
                        [&](auto tag) { return append_face_ids<decltype(tag)::value>(connectM, neighbors, faces); });
}

}  // namespace kvo::gridkit
