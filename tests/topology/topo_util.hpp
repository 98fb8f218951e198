// Helpers of the topology tests, with a brute-force face matcher written apart from the library.
#ifndef GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP
#define GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP

#include <algorithm>
#include <initializer_list>
#include <vector>

#include <kvo/gridkit.hpp>

namespace topo_test {

namespace gk = kvo::gridkit;
using U1 = kvo::dense1D<unsigned, 16>;
using U2 = kvo::dense2D<unsigned>;
using vu = std::vector<unsigned>;
constexpr unsigned N_ = gk::NULL_INDEX;

inline U2 cols(unsigned rows, std::initializer_list<std::initializer_list<unsigned>> columns) {
  U2 m(rows, unsigned(columns.size()));
  unsigned j = 0;
  for (auto& c : columns) std::copy(c.begin(), c.end(), m.col_ptr(j++));
  return m;
}
inline vu vec(const U1& v) { return vu(v.begin(), v.end()); }
inline vu column(const U2& m, unsigned j) { return vu(m.col_ptr(j), m.col_ptr(j) + m.rows); }
inline vu entries(const U2& m) {
  vu r;
  for (unsigned j = 0; j < m.cols; ++j) r.insert(r.end(), m.col_ptr(j), m.col_ptr(j) + m.rows);
  return r;
}
// The same matrix as a view with ld > rows and an offset inside a larger block.
inline U2 strided(const U2& m) {
  U2 big(m.rows + 3, m.cols + 1, 0xABCDEFu);
  for (unsigned j = 0; j < m.cols; ++j) std::copy(m.col_ptr(j), m.col_ptr(j) + m.rows, big.col_ptr(j + 1) + 1);
  return big.sub_matrix(1, 1, m.rows, m.cols);
}

struct ref_face {
  unsigned id, elem;
  vu nodes;  // slots of the type; N_ in an empty fourth slot
};

// Every used face, ascending identifiers (well-formed mixed columns).
inline std::vector<ref_face> ref_faces(const U2& c, gk::element_type t, unsigned* nf_out = nullptr) {
  using T = std::vector<std::vector<int>>;
  static const T edge{{1}, {0}}, tri{{1, 2}, {2, 0}, {0, 1}}, quad{{0, 1}, {1, 2}, {2, 3}, {3, 0}},
      tet{{1, 2, 3}, {2, 0, 3}, {1, 3, 0}, {2, 1, 0}}, pyr{{0, 4, 1}, {1, 4, 2}, {2, 4, 3}, {3, 4, 0}, {0, 1, 2, 3}},
      wedge{{0, 1, 2}, {3, 5, 4}, {2, 1, 4, 5}, {5, 3, 0, 2}, {0, 3, 4, 1}},
      hex{{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};
  const bool solid = t >= gk::ET_SOLID_MIXED;
  const unsigned nf = t == gk::ET_EDGE2 ? 2 : t == gk::ET_TRIA3 ? 3 : t == gk::ET_PYRAMID5 || t == gk::ET_WEDGE6 ? 5
                    : t == gk::ET_HEXA8 || t == gk::ET_SOLID_MIXED ? 6 : 4;
  const unsigned slots = t == gk::ET_EDGE2 ? 1 : !solid ? 2 : t == gk::ET_TETRA4 ? 3 : 4;
  if (nf_out) *nf_out = nf;
  std::vector<ref_face> out;
  for (unsigned e = 0; e < c.cols; ++e) {
    const T* tab = t == gk::ET_EDGE2 ? &edge : t == gk::ET_TRIA3 ? &tri : t == gk::ET_QUAD4 ? &quad
                 : t == gk::ET_FACE_MIXED ? (c(3, e) == N_ ? &tri : &quad) : t == gk::ET_TETRA4 ? &tet
                 : t == gk::ET_PYRAMID5 ? &pyr : t == gk::ET_WEDGE6 ? &wedge : t == gk::ET_HEXA8 ? &hex
                 : c(4, e) == N_ ? &tet : c(5, e) == N_ ? &pyr : c(6, e) == N_ ? &wedge : &hex;
    for (unsigned j = 0; j < tab->size(); ++j) {
      out.push_back({nf * e + j, e, vu(slots, N_)});
      for (unsigned k = 0; k < (*tab)[j].size(); ++k) out.back().nodes[k] = c((*tab)[j][k], e);
    }
  }
  return out;
}

// Up to three nodes: same multiset. Four: same smallest image under the 8 rotations and
// reflections. A null fourth slot makes a triangle, never equal to a four-node face.
inline bool ref_same(vu a, vu b) {
  if (a.size() == 4 && (a[3] == N_) != (b[3] == N_)) return false;
  if (a.size() == 4 && a[3] == N_) a.pop_back(), b.pop_back();
  auto canon = [](vu v) {
    if (v.size() < 4) return std::sort(v.begin(), v.end()), v;
    vu best;
    for (int r = 0; r < 8; ++r) {
      vu w(4);
      for (int k = 0; k < 4; ++k) w[k] = v[r < 4 ? (r + k) % 4 : (r - k + 4) % 4];
      if (best.empty() || w < best) best = w;
    }
    return best;
  };
  return canon(a) == canon(b);
}

// Neighbour matrix entries by comparing every pair of faces.
inline vu ref_neighbors(const U2& c, gk::element_type t, bool keep) {
  unsigned nf;
  const auto f = ref_faces(c, t, &nf);
  vu nb(std::size_t(nf) * c.cols, N_);
  std::vector<bool> done(f.size());
  for (std::size_t i = 0; i < f.size(); ++i) {
    if (done[i]) continue;
    std::vector<std::size_t> cls{i};
    for (std::size_t k = i + 1; k < f.size(); ++k)
      if (!done[k] && ref_same(f[i].nodes, f[k].nodes)) cls.push_back(k), done[k] = true;
    if (cls.size() == 2 || (cls.size() > 2 && keep)) {
      for (std::size_t k = 1; k < cls.size(); ++k) nb[f[cls[k]].id] = f[i].elem;
      nb[f[i].id] = f[cls.back()].elem;
    }
  }
  return nb;
}

// Connectivity of type t over few nodes (so that faces repeat), every shape for the mixed types.
template <class Rng>
inline U2 random_mesh(gk::element_type t, unsigned elements, unsigned nodes, Rng& rng, unsigned first = 0) {
  const unsigned rows = t == gk::ET_EDGE2 ? 2 : t == gk::ET_TRIA3 ? 3 : t == gk::ET_PYRAMID5 ? 5
                      : t == gk::ET_WEDGE6 ? 6 : t == gk::ET_HEXA8 || t == gk::ET_SOLID_MIXED ? 8 : 4;
  U2 c(rows, elements);
  for (unsigned e = 0; e < elements; ++e) {
    const unsigned used = t == gk::ET_FACE_MIXED ? 3 + rng() % 2 : t == gk::ET_SOLID_MIXED ? vu{4, 5, 6, 8}[rng() % 4] : rows;
    for (unsigned i = 0; i < rows; ++i) c(i, e) = i < used ? first + unsigned(rng() % nodes) : N_;
  }
  return c;
}

}  // namespace topo_test

#endif
