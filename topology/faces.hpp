// Local face tables of the element types handled by the topology operations, and the small
// helpers they share: per-type shape facts, the faces a column uses, face keys and face equality.
#ifndef GRIDKIT_TOPOLOGY_FACES_HPP
#define GRIDKIT_TOPOLOGY_FACES_HPP

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <kvo/gridkit.hpp>

namespace kvo {
namespace gridkit {
namespace topo {

// Marks a face slot that holds no node (the fourth slot of a triangle in a 4-slot family).
constexpr unsigned char NO_SLOT = 0xFF;

// Faces of one element shape: local node indices of each face, NO_SLOT for an unused slot.
struct face_table {
  unsigned char count;
  unsigned char node[6][4];
};

constexpr unsigned char X = NO_SLOT;

// Triangles and tetrahedra number a face after the node opposite it, quadrangles after the node
// it starts at. Boundary faces are written in exactly these orders.
inline constexpr face_table edge_faces = {2, {{1, X, X, X}, {0, X, X, X}}};
inline constexpr face_table tria_faces = {3, {{1, 2, X, X}, {2, 0, X, X}, {0, 1, X, X}}};
inline constexpr face_table quad_faces = {4, {{0, 1, X, X}, {1, 2, X, X}, {2, 3, X, X}, {3, 0, X, X}}};
inline constexpr face_table tetra_faces = {4, {{1, 2, 3, X}, {2, 0, 3, X}, {1, 3, 0, X}, {2, 1, 0, X}}};
inline constexpr face_table pyramid_faces = {
    5, {{0, 4, 1, X}, {1, 4, 2, X}, {2, 4, 3, X}, {3, 4, 0, X}, {0, 1, 2, 3}}};
inline constexpr face_table wedge_faces = {5, {{0, 1, 2, X}, {3, 5, 4, X}, {2, 1, 4, 5}, {5, 3, 0, 2}, {0, 3, 4, 1}}};
inline constexpr face_table hexa_faces = {
    6, {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}}};

// Shape facts of a supported type.
struct type_shape {
  unsigned rows;       // rows of its connectivity
  unsigned nf;         // faces per element: rows of the neighbour matrix, stride of face identifiers
  unsigned face_rows;  // rows of one face in boundary output (slots of a face)
};

// Facts of a supported type; false for every other type. ET_FACE_MIXED is its 4-row form (a
// 3-row one is handled as ET_TRIA3 by the callers beforehand).
inline bool shape_of(element_type t, type_shape& s) noexcept {
  switch (t) {
    case ET_EDGE2: s = {2, 2, 1}; return true;
    case ET_TRIA3: s = {3, 3, 2}; return true;
    case ET_QUAD4: s = {4, 4, 2}; return true;
    case ET_FACE_MIXED: s = {4, 4, 2}; return true;
    case ET_TETRA4: s = {4, 4, 3}; return true;
    case ET_PYRAMID5: s = {5, 5, 4}; return true;
    case ET_WEDGE6: s = {6, 5, 4}; return true;
    case ET_HEXA8: s = {8, 6, 4}; return true;
    case ET_SOLID_MIXED: s = {8, 6, 4}; return true;
    default: return false;
  }
}

// Faces used by a column of a mixed solid connectivity (8 rows): 4, 5 or 6 by its null pattern.
inline unsigned solid_mixed_count(const unsigned* c) noexcept {
  if (c[4] == NULL_INDEX) return 4;
  if (c[5] == NULL_INDEX || c[6] == NULL_INDEX) return 5;
  return 6;
}

// Face table of a mixed solid column. Columns that break the null rule get a fixed outcome.
inline const face_table& solid_mixed_table(const unsigned* c) noexcept {
  const bool n3 = c[3] == NULL_INDEX, n4 = c[4] == NULL_INDEX, n5 = c[5] == NULL_INDEX, n6 = c[6] == NULL_INDEX;
  if (n3 && n4) return (n5 || !n6) ? hexa_faces : wedge_faces;
  if (n4) return tetra_faces;
  if (n5) return pyramid_faces;
  if (n6) return wedge_faces;
  return hexa_faces;
}

// Table and number of used faces of a column of a supported type.
template <element_type T>
inline const face_table& column_faces(const unsigned* c, unsigned& used) noexcept {
  if constexpr (T == ET_EDGE2) {
    used = 2;
    return edge_faces;
  } else if constexpr (T == ET_TRIA3) {
    used = 3;
    return tria_faces;
  } else if constexpr (T == ET_QUAD4) {
    used = 4;
    return quad_faces;
  } else if constexpr (T == ET_FACE_MIXED) {
    if (c[3] == NULL_INDEX) {
      used = 3;
      return tria_faces;
    }
    used = 4;
    return quad_faces;
  } else if constexpr (T == ET_TETRA4) {
    used = 4;
    return tetra_faces;
  } else if constexpr (T == ET_PYRAMID5) {
    used = 5;
    return pyramid_faces;
  } else if constexpr (T == ET_WEDGE6) {
    used = 5;
    return wedge_faces;
  } else if constexpr (T == ET_HEXA8) {
    used = 6;
    return hexa_faces;
  } else {
    static_assert(T == ET_SOLID_MIXED, "unsupported element type");
    used = solid_mixed_count(c);
    return solid_mixed_table(c);
  }
}

// Compile-time facts of a supported type.
template <element_type T>
struct traits {
  static constexpr unsigned rows = T == ET_EDGE2 ? 2 : T == ET_TRIA3 ? 3 : T == ET_WEDGE6 ? 6
                                 : (T == ET_HEXA8 || T == ET_SOLID_MIXED) ? 8 : T == ET_PYRAMID5 ? 5 : 4;
  static constexpr unsigned nf = T == ET_EDGE2 ? 2 : T == ET_TRIA3 ? 3 : (T == ET_PYRAMID5 || T == ET_WEDGE6) ? 5
                               : (T == ET_HEXA8 || T == ET_SOLID_MIXED) ? 6 : 4;
  static constexpr unsigned slots = T == ET_EDGE2 ? 1 : (T == ET_TRIA3 || T == ET_QUAD4 || T == ET_FACE_MIXED) ? 2
                                  : T == ET_TETRA4 ? 3 : 4;
};

// Nodes of face j of column c into v[0 .. S-1]; an unused slot reads as NULL_INDEX.
template <unsigned S>
inline void face_nodes(const unsigned* c, const face_table& t, unsigned j, unsigned* v) noexcept {
#pragma GCC unroll 4
  for (unsigned k = 0; k < S; ++k) {
    const unsigned char l = t.node[j][k];
    v[k] = l == NO_SLOT ? NULL_INDEX : c[l];
  }
}

// Order-independent 32-bit key of a face: wrapping sum of one FNV-style term per slot.
template <unsigned S>
inline unsigned face_key(const unsigned* v) noexcept {
  unsigned h = 0;
  for (unsigned k = 0; k < S; ++k) h += (v[k] ^ 2166136261u) * 16777619u;
  return h;
}

// Smallest node of a face.
template <unsigned S>
inline unsigned face_min(const unsigned* v) noexcept {
  unsigned m = v[0];
  for (unsigned k = 1; k < S; ++k) m = v[k] < m ? v[k] : m;
  return m;
}

// b is a rotation of a, or of a reversed (N = 3 or 4 nodes): some b[r] holds a[0] and the other
// nodes follow from there in one direction or the other.
template <unsigned N>
inline bool same_cycle(const unsigned* a, const unsigned* b) noexcept {
  for (unsigned r = 0; r < N; ++r) {
    if (b[r] != a[0]) continue;
    const unsigned* f = b + (r + 1) % N;      // next after b[r]
    const unsigned* g = b + (r + N - 1) % N;  // previous before b[r]
    if constexpr (N == 3) {
      if ((*f == a[1] && *g == a[2]) || (*g == a[1] && *f == a[2])) return true;
    } else {
      if (b[(r + 2) % N] == a[2] && ((*f == a[1] && *g == a[3]) || (*g == a[1] && *f == a[3]))) return true;
    }
  }
  return false;
}

// Face equality for S slots: same node, same pair in either order, same cycle of three or four
// nodes in either direction. In 4-slot faces a null fourth slot marks a triangle, which never
// equals a four-node face.
template <unsigned S>
inline bool same_face(const unsigned* a, const unsigned* b) noexcept {
  if constexpr (S == 1) {
    return a[0] == b[0];
  } else if constexpr (S == 2) {
    return (a[0] == b[0] && a[1] == b[1]) || (a[0] == b[1] && a[1] == b[0]);
  } else if constexpr (S == 3) {
    return same_cycle<3>(a, b);
  } else {
    const bool ta = a[3] == NULL_INDEX, tb = b[3] == NULL_INDEX;
    if (ta != tb) return false;
    return ta ? same_cycle<3>(a, b) : same_cycle<4>(a, b);
  }
}

// Common start of the neighbour and boundary operations. Returns 1 for an empty connectivity
// (the caller then returns 0), a negative status, or 0 with the type (a 3-row ET_FACE_MIXED
// becomes ET_TRIA3) and its shape facts set.
inline int prologue(const dense2D<unsigned>& c, element_type& t, type_shape& s) {
  if (std::uint64_t(c.rows) * c.cols == 0) return 1;
  if (t == ET_FACE_MIXED && c.rows == 3) t = ET_TRIA3;
  if (!check_IDs(c, t, NULL_INDEX)) return -1;
  if (!shape_of(t, s)) return -2;
  if (c.rows != s.rows) return -1;
  return 0;
}

template <element_type T>
using type_tag = std::integral_constant<element_type, T>;

// Calls f(type_tag<T>{}) for a supported type T (checked beforehand by shape_of).
template <class F>
inline decltype(auto) dispatch(element_type t, F&& f) {
  switch (t) {
    case ET_EDGE2: return f(type_tag<ET_EDGE2>{});
    case ET_TRIA3: return f(type_tag<ET_TRIA3>{});
    case ET_QUAD4: return f(type_tag<ET_QUAD4>{});
    case ET_FACE_MIXED: return f(type_tag<ET_FACE_MIXED>{});
    case ET_TETRA4: return f(type_tag<ET_TETRA4>{});
    case ET_PYRAMID5: return f(type_tag<ET_PYRAMID5>{});
    case ET_WEDGE6: return f(type_tag<ET_WEDGE6>{});
    case ET_HEXA8: return f(type_tag<ET_HEXA8>{});
    default: return f(type_tag<ET_SOLID_MIXED>{});
  }
}

}  // namespace topo
}  // namespace gridkit
}  // namespace kvo

#endif
