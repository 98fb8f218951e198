// Mesh generators shared by the tests and the benchmarks (public API only).
#ifndef GRIDKIT_TESTS_MESHGEN_HPP
#define GRIDKIT_TESTS_MESHGEN_HPP

#include <cmath>
#include <cstdint>
#include <random>

#include <kvo/gridkit.hpp>

namespace meshgen {

using kvo::dense1D;
using kvo::dense2D;

// Nodes of an (n+1)^3 lattice on [0, n]^3 scaled by h, x fastest.
inline void lattice_nodes(unsigned n, double h, dense2D<double>& pos) {
  const unsigned m = n + 1;
  pos.resize(3, m * m * m);
  unsigned k = 0;
  for (unsigned z = 0; z < m; ++z)
    for (unsigned y = 0; y < m; ++y)
      for (unsigned x = 0; x < m; ++x, ++k) {
        pos(0, k) = x * h;
        pos(1, k) = y * h;
        pos(2, k) = z * h;
      }
}

inline unsigned lattice_id(unsigned n, unsigned x, unsigned y, unsigned z) {
  const unsigned m = n + 1;
  return x + m * (y + m * z);
}

// Cube of n^3 cells, each split into 6 tetrahedra around its main diagonal (conforming,
// positively oriented).
inline void tet_cube(unsigned n, dense2D<double>& pos, dense2D<unsigned>& tets, double h = 1.0) {
  lattice_nodes(n, h, pos);
  tets.resize(4, 6 * n * n * n);
  // The six paths from corner 0 to corner 7 through the cube's corners (bit 0 = x, 1 = y, 2 = z).
  static const unsigned paths[6][2] = {{1, 3}, {2, 3}, {2, 6}, {4, 6}, {4, 5}, {1, 5}};
  unsigned e = 0;
  for (unsigned z = 0; z < n; ++z)
    for (unsigned y = 0; y < n; ++y)
      for (unsigned x = 0; x < n; ++x) {
        unsigned c[8];
        for (unsigned b = 0; b < 8; ++b) c[b] = lattice_id(n, x + (b & 1), y + ((b >> 1) & 1), z + ((b >> 2) & 1));
        for (unsigned t = 0; t < 6; ++t, ++e) {
          unsigned a = c[0], p = c[paths[t][0]], q = c[paths[t][1]], d = c[7];
          // Orient positively: paths alternate in handedness.
          if (t % 2 == 1) std::swap(p, q);
          tets(0, e) = a;
          tets(1, e) = p;
          tets(2, e) = q;
          tets(3, e) = d;
        }
      }
}

// Cube of n^3 hexahedra (nodes 0-3 bottom counter-clockwise, 4-7 top).
inline void hex_cube(unsigned n, dense2D<double>& pos, dense2D<unsigned>& hexes, double h = 1.0) {
  lattice_nodes(n, h, pos);
  hexes.resize(8, n * n * n);
  unsigned e = 0;
  for (unsigned z = 0; z < n; ++z)
    for (unsigned y = 0; y < n; ++y)
      for (unsigned x = 0; x < n; ++x, ++e) {
        hexes(0, e) = lattice_id(n, x, y, z);
        hexes(1, e) = lattice_id(n, x + 1, y, z);
        hexes(2, e) = lattice_id(n, x + 1, y + 1, z);
        hexes(3, e) = lattice_id(n, x, y + 1, z);
        hexes(4, e) = lattice_id(n, x, y, z + 1);
        hexes(5, e) = lattice_id(n, x + 1, y, z + 1);
        hexes(6, e) = lattice_id(n, x + 1, y + 1, z + 1);
        hexes(7, e) = lattice_id(n, x, y + 1, z + 1);
      }
}

// Closed torus surface of 2*nu*nv triangles, outward oriented (nu, nv >= 3).
inline void torus(unsigned nu, unsigned nv, dense2D<double>& pos, dense2D<unsigned>& tris, double R = 2.0,
                  double r = 0.7) {
  const double pi = 3.14159265358979323846;
  pos.resize(3, nu * nv);
  for (unsigned i = 0; i < nu; ++i)
    for (unsigned j = 0; j < nv; ++j) {
      const double u = 2 * pi * i / nu, v = 2 * pi * j / nv;
      const unsigned k = i * nv + j;
      pos(0, k) = (R + r * std::cos(v)) * std::cos(u);
      pos(1, k) = (R + r * std::cos(v)) * std::sin(u);
      pos(2, k) = r * std::sin(v);
    }
  tris.resize(3, 2 * nu * nv);
  unsigned e = 0;
  for (unsigned i = 0; i < nu; ++i)
    for (unsigned j = 0; j < nv; ++j) {
      const unsigned a = i * nv + j, b = ((i + 1) % nu) * nv + j, c = ((i + 1) % nu) * nv + (j + 1) % nv,
                     d = i * nv + (j + 1) % nv;
      tris(0, e) = a; tris(1, e) = b; tris(2, e) = c; ++e;
      tris(0, e) = a; tris(1, e) = c; tris(2, e) = d; ++e;
    }
}

// n points uniform in the unit cube (rows = dim), fixed seed.
inline void random_points(unsigned n, dense2D<double>& pos, unsigned dim = 3, std::uint32_t seed = 12345) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  pos.resize(dim, n);
  for (unsigned j = 0; j < n; ++j)
    for (unsigned i = 0; i < dim; ++i) pos(i, j) = u(rng);
}

}  // namespace meshgen

#endif
