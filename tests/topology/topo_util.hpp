// Small helpers shared by the topology tests.
#ifndef GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP
#define GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP

#include <algorithm>
#include <initializer_list>
#include <vector>

#include <kvo/gridkit.hpp>

namespace topo_test {

using kvo::dense1D;
using kvo::dense2D;
using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;
constexpr unsigned N_ = kvo::gridkit::NULL_INDEX;

// Matrix of `rows` rows from a list of columns.
inline U2 cols(unsigned rows, std::initializer_list<std::initializer_list<unsigned>> columns) {
  U2 m(rows, unsigned(columns.size()));
  unsigned j = 0;
  for (auto& c : columns) {
    unsigned i = 0;
    for (unsigned v : c) m(i++, j) = v;
    ++j;
  }
  return m;
}

inline std::vector<unsigned> vec(const U1& v) { return std::vector<unsigned>(v.begin(), v.end()); }

inline std::vector<unsigned> column(const U2& m, unsigned j) {
  std::vector<unsigned> c(m.rows);
  for (unsigned i = 0; i < m.rows; ++i) c[i] = m(i, j);
  return c;
}

// All entries, column by column.
inline std::vector<unsigned> entries(const U2& m) {
  std::vector<unsigned> r;
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) r.push_back(m(i, j));
  return r;
}

// A copy of m placed inside a larger block (extra rows above and below), so that the view has
// ld > rows and a non-zero offset.
inline U2 strided(const U2& m, unsigned fill = 0xABCDEF) {
  U2 big(m.rows + 3, m.cols + 1, fill);
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) big(i + 1, j + 1) = m(i, j);
  return big.sub_matrix(1, 1, m.rows, m.cols);
}

// ---- Reference face lists, written independently of the library for brute-force checks.

struct ref_type {
  unsigned rows, nf, slots;
};

inline ref_type ref_type_of(kvo::gridkit::element_type t) {
  using namespace kvo::gridkit;
  switch (t) {
    case ET_EDGE2: return {2, 2, 1};
    case ET_TRIA3: return {3, 3, 2};
    case ET_QUAD4: case ET_FACE_MIXED: return {4, 4, 2};
    case ET_TETRA4: return {4, 4, 3};
    case ET_PYRAMID5: return {5, 5, 4};
    case ET_WEDGE6: return {6, 5, 4};
    default: return {8, 6, 4};  // hexahedra, mixed solids
  }
}

// Local faces by shape; -1 marks an empty slot.
inline const std::vector<std::vector<int>>& ref_table(const char* shape) {
  static const std::vector<std::vector<int>> edge = {{1}, {0}};
  static const std::vector<std::vector<int>> tri = {{1, 2}, {2, 0}, {0, 1}};
  static const std::vector<std::vector<int>> quad = {{0, 1}, {1, 2}, {2, 3}, {3, 0}};
  static const std::vector<std::vector<int>> tet = {{1, 2, 3}, {2, 0, 3}, {1, 3, 0}, {2, 1, 0}};
  static const std::vector<std::vector<int>> pyr = {{0, 4, 1}, {1, 4, 2}, {2, 4, 3}, {3, 4, 0}, {0, 1, 2, 3}};
  static const std::vector<std::vector<int>> wedge = {{0, 1, 2}, {3, 5, 4}, {2, 1, 4, 5}, {5, 3, 0, 2}, {0, 3, 4, 1}};
  static const std::vector<std::vector<int>> hex = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1},
                                                    {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};
  switch (shape[0]) {
    case 'e': return edge;
    case 't': return shape[1] == 'r' ? tri : tet;
    case 'q': return quad;
    case 'p': return pyr;
    case 'w': return wedge;
    default: return hex;
  }
}

// Shape of column e (well-formed mixed columns).
inline const char* ref_shape(const U2& c, unsigned e, kvo::gridkit::element_type t) {
  using namespace kvo::gridkit;
  switch (t) {
    case ET_EDGE2: return "edge";
    case ET_TRIA3: return "tri";
    case ET_QUAD4: return "quad";
    case ET_FACE_MIXED: return c(3, e) == N_ ? "tri" : "quad";
    case ET_TETRA4: return "tet";
    case ET_PYRAMID5: return "pyr";
    case ET_WEDGE6: return "wedge";
    case ET_HEXA8: return "hex";
    default:
      return c(4, e) == N_ ? "tet" : c(5, e) == N_ ? "pyr" : c(6, e) == N_ ? "wedge" : "hex";
  }
}

struct ref_face {
  unsigned id, elem;
  std::vector<unsigned> nodes;  // `slots` entries, N_ in an empty fourth slot
};

// Every used face in ascending identifier order.
inline std::vector<ref_face> ref_faces(const U2& c, kvo::gridkit::element_type t) {
  const ref_type rt = ref_type_of(t);
  std::vector<ref_face> out;
  for (unsigned e = 0; e < c.cols; ++e) {
    const auto& tab = ref_table(ref_shape(c, e, t));
    for (unsigned j = 0; j < tab.size(); ++j) {
      ref_face f{rt.nf * e + j, e, std::vector<unsigned>(rt.slots, N_)};
      for (unsigned k = 0; k < tab[j].size(); ++k) f.nodes[k] = c(tab[j][k], e);
      out.push_back(f);
    }
  }
  return out;
}

// Same face: same node multiset for up to three nodes; for four nodes the same cycle in either
// direction (smallest image under the eight rotations and reflections); a triangle (null fourth
// slot) never equals a four-node face.
inline bool ref_same(std::vector<unsigned> a, std::vector<unsigned> b) {
  if (a.size() == 4) {
    if ((a[3] == N_) != (b[3] == N_)) return false;
    if (a[3] == N_) {
      a.pop_back();
      b.pop_back();
    }
  }
  if (a.size() <= 3) {
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    return a == b;
  }
  auto canon = [](const std::vector<unsigned>& v) {
    std::vector<unsigned> best;
    for (int dir = 0; dir < 2; ++dir)
      for (int r = 0; r < 4; ++r) {
        std::vector<unsigned> w(4);
        for (int k = 0; k < 4; ++k) w[k] = v[dir ? (r - k + 4) % 4 : (r + k) % 4];
        if (best.empty() || w < best) best = w;
      }
    return best;
  };
  return canon(a) == canon(b);
}

// Neighbour matrix by brute force over all pairs of faces.
inline std::vector<unsigned> ref_neighbors(const U2& c, kvo::gridkit::element_type t, bool keep) {
  const ref_type rt = ref_type_of(t);
  const auto faces = ref_faces(c, t);
  std::vector<unsigned> nb(std::size_t(rt.nf) * c.cols, N_);
  std::vector<bool> done(faces.size(), false);
  for (std::size_t i = 0; i < faces.size(); ++i) {
    if (done[i]) continue;
    std::vector<std::size_t> cls{i};
    for (std::size_t k = i + 1; k < faces.size(); ++k)
      if (!done[k] && ref_same(faces[i].nodes, faces[k].nodes)) {
        cls.push_back(k);
        done[k] = true;
      }
    if (cls.size() == 2) {
      nb[faces[cls[0]].id] = faces[cls[1]].elem;
      nb[faces[cls[1]].id] = faces[cls[0]].elem;
    } else if (cls.size() > 2 && keep) {
      for (std::size_t k = 1; k < cls.size(); ++k) nb[faces[cls[k]].id] = faces[i].elem;
      nb[faces[i].id] = faces[cls.back()].elem;
    }
  }
  return nb;
}

// Random connectivity of type t over few nodes, so that faces repeat (also three or more times).
// Mixed types get every shape; `offset` is added to the node numbers.
template <class Rng>
inline U2 random_mesh(kvo::gridkit::element_type t, unsigned elements, unsigned nodes, Rng& rng,
                      unsigned offset = 0) {
  using namespace kvo::gridkit;
  const ref_type rt = ref_type_of(t);
  U2 c(rt.rows, elements);
  for (unsigned e = 0; e < elements; ++e) {
    unsigned used = rt.rows;
    if (t == ET_FACE_MIXED) used = rng() % 2 ? 3 : 4;
    if (t == ET_SOLID_MIXED) used = std::vector<unsigned>{4, 5, 6, 8}[rng() % 4];
    for (unsigned i = 0; i < rt.rows; ++i) c(i, e) = i < used ? offset + unsigned(rng() % nodes) : N_;
  }
  return c;
}

}  // namespace topo_test

#endif
