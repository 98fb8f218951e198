// gridkit-samplegen: writes the small sample meshes shipped in samples/.
//   part.stl   a closed triangulated plate with two square through-holes (binary STL)
//   block.mesh a tetrahedral block with slightly jittered interior nodes (MEDIT)
//   plate.obj  a gently curved quadrangle surface (Wavefront OBJ)
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;

namespace {

// Small deterministic generator so the samples are the same on every machine.
struct lcg {
  std::uint64_t s = 0x9E3779B97F4A7C15ull;
  double next() {
    s = s * 6364136223846793005ull + 1442695040888963407ull;
    return double(s >> 11) * (1.0 / 9007199254740992.0);
  }
};

bool push_tri(dense2D<unsigned>& c, unsigned a, unsigned b, unsigned d) {
  const unsigned v[3] = {a, b, d};
  return c.push_back_col(v);
}

// Plate of nx x ny unit cells, thickness 1, with two square holes; every face oriented outward.
int make_part(const std::string& file) {
  const unsigned nx = 48, ny = 24;
  auto kept = [&](int i, int j) {
    if (i < 0 || j < 0 || i >= int(nx) || j >= int(ny)) return false;
    const bool hole1 = i >= 8 && i < 16 && j >= 8 && j < 16;
    const bool hole2 = i >= 32 && i < 40 && j >= 8 && j < 16;
    return !(hole1 || hole2);
  };
  const unsigned layer = (nx + 1) * (ny + 1);
  auto node = [&](unsigned i, unsigned j, unsigned k) { return k * layer + j * (nx + 1) + i; };
  dense2D<double> pos;
  if (!pos.resize(3, 2 * layer)) return ERR_ALLOCATION;
  const double h = 0.5;
  for (unsigned k = 0; k < 2; ++k)
    for (unsigned j = 0; j <= ny; ++j)
      for (unsigned i = 0; i <= nx; ++i) {
        double* p = pos.col_ptr(node(i, j, k));
        p[0] = i * h;
        p[1] = j * h;
        p[2] = k * 2.0;
      }
  dense2D<unsigned> tri;
  tri.resize(3, 0);
  for (unsigned j = 0; j < ny; ++j)
    for (unsigned i = 0; i < nx; ++i) {
      if (!kept(int(i), int(j))) continue;
      // Top (k = 1) counter-clockwise seen from above, bottom the other way round.
      const unsigned t00 = node(i, j, 1), t10 = node(i + 1, j, 1), t11 = node(i + 1, j + 1, 1), t01 = node(i, j + 1, 1);
      const unsigned b00 = node(i, j, 0), b10 = node(i + 1, j, 0), b11 = node(i + 1, j + 1, 0), b01 = node(i, j + 1, 0);
      if (!push_tri(tri, t00, t10, t11) || !push_tri(tri, t00, t11, t01)) return ERR_ALLOCATION;
      if (!push_tri(tri, b00, b11, b10) || !push_tri(tri, b00, b01, b11)) return ERR_ALLOCATION;
      // Cell boundary walked counter-clockwise: a wall on every edge facing a missing cell.
      const unsigned ci[5] = {i, i + 1, i + 1, i, i};
      const unsigned cj[5] = {j, j, j + 1, j + 1, j};
      const int di[4] = {0, 1, 0, -1}, dj[4] = {-1, 0, 1, 0};
      for (unsigned e = 0; e < 4; ++e) {
        if (kept(int(i) + di[e], int(j) + dj[e])) continue;
        const unsigned bp = node(ci[e], cj[e], 0), bq = node(ci[e + 1], cj[e + 1], 0);
        const unsigned tp = node(ci[e], cj[e], 1), tq = node(ci[e + 1], cj[e + 1], 1);
        if (!push_tri(tri, bp, bq, tq) || !push_tri(tri, bp, tq, tp)) return ERR_ALLOCATION;
      }
    }
  return STL_output(file.c_str(), pos, tri, false);
}

// Block of nx x ny x nz cubes, six tetrahedra per cube (all sharing the cube's main diagonal, so
// neighbouring cubes match), interior nodes moved by up to 15 % of the spacing.
int make_block(const std::string& file) {
  const unsigned nx = 10, ny = 8, nz = 6;
  auto node = [&](unsigned i, unsigned j, unsigned k) { return (k * (ny + 1) + j) * (nx + 1) + i; };
  dense2D<double> pos;
  if (!pos.resize(3, (nx + 1) * (ny + 1) * (nz + 1))) return ERR_ALLOCATION;
  lcg rng;
  for (unsigned k = 0; k <= nz; ++k)
    for (unsigned j = 0; j <= ny; ++j)
      for (unsigned i = 0; i <= nx; ++i) {
        double* p = pos.col_ptr(node(i, j, k));
        const bool inner = i > 0 && j > 0 && k > 0 && i < nx && j < ny && k < nz;
        p[0] = i + (inner ? 0.3 * (rng.next() - 0.5) : 0.0);
        p[1] = j + (inner ? 0.3 * (rng.next() - 0.5) : 0.0);
        p[2] = k + (inner ? 0.3 * (rng.next() - 0.5) : 0.0);
      }
  static const unsigned perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  dense2D<unsigned> tets;
  tets.resize(4, 0);
  for (unsigned k = 0; k < nz; ++k)
    for (unsigned j = 0; j < ny; ++j)
      for (unsigned i = 0; i < nx; ++i)
        for (const auto& pr : perms) {
          unsigned off[3] = {0, 0, 0};
          unsigned v[4];
          v[0] = node(i, j, k);
          for (unsigned s = 0; s < 3; ++s) {
            off[pr[s]] = 1;
            v[s + 1] = node(i + off[0], j + off[1], k + off[2]);
          }
          // The library's valid orientation puts node 3 opposite to (P1-P0) x (P2-P0).
          const double* p0 = pos.col_ptr(v[0]);
          const double* p1 = pos.col_ptr(v[1]);
          const double* p2 = pos.col_ptr(v[2]);
          const double* p3 = pos.col_ptr(v[3]);
          double a[3], b[3], c[3];
          for (unsigned d = 0; d < 3; ++d) a[d] = p1[d] - p0[d], b[d] = p2[d] - p0[d], c[d] = p3[d] - p0[d];
          const double det = (a[1] * b[2] - a[2] * b[1]) * c[0] + (a[2] * b[0] - a[0] * b[2]) * c[1] +
                             (a[0] * b[1] - a[1] * b[0]) * c[2];
          if (det > 0) {
            const unsigned t = v[1];
            v[1] = v[2];
            v[2] = t;
          }
          if (!tets.push_back_col(v)) return ERR_ALLOCATION;
        }
  dense1D<double, 16> q;
  if (shape_qualities(pos, tets, ET_TETRA4, q) == 0) {
    double worst = 2.0;
    for (unsigned e = 0; e < q.size; ++e) worst = std::fmin(worst, q.ptr()[e]);
    if (!(worst > 0.0)) {
      std::fprintf(stderr, "gridkit-samplegen: block has an invalid tetrahedron\n");
      return -100;
    }
  }
  dense2D<unsigned> range[1] = {tets};
  dense1D<int, 16> types;
  types.resize(1, int(ET_TETRA4));
  return medit_output(file.c_str(), pos, range, range + 1, types);
}

// nx x ny quadrangles over [0,6] x [0,4], lifted by a slow wave.
int make_plate(const std::string& file) {
  const unsigned nx = 36, ny = 24;
  dense2D<double> pos;
  if (!pos.resize(3, (nx + 1) * (ny + 1))) return ERR_ALLOCATION;
  for (unsigned j = 0; j <= ny; ++j)
    for (unsigned i = 0; i <= nx; ++i) {
      double* p = pos.col_ptr(j * (nx + 1) + i);
      p[0] = 6.0 * i / nx;
      p[1] = 4.0 * j / ny;
      p[2] = 0.25 * std::sin(p[0]) * std::cos(p[1]);
    }
  dense2D<unsigned> quads;
  quads.resize(4, 0);
  for (unsigned j = 0; j < ny; ++j)
    for (unsigned i = 0; i < nx; ++i) {
      const unsigned a = j * (nx + 1) + i;
      const unsigned v[4] = {a, a + 1, a + nx + 2, a + nx + 1};
      if (!quads.push_back_col(v)) return ERR_ALLOCATION;
    }
  return WavefrontOBJ_output(file.c_str(), pos, quads, ET_QUAD4);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: gridkit-samplegen OUTPUT_DIR\n");
    return 2;
  }
  const std::string dir = std::string(argv[1]) + "/";
  struct job {
    const char* name;
    int (*make)(const std::string&);
  } jobs[] = {{"part.stl", make_part}, {"block.mesh", make_block}, {"plate.obj", make_plate}};
  for (const job& j : jobs) {
    const int status = j.make(dir + j.name);
    if (status != 0) {
      std::fprintf(stderr, "gridkit-samplegen: could not write %s%s (status %d)\n", dir.c_str(), j.name, status);
      return 1;
    }
    std::printf("wrote %s%s\n", dir.c_str(), j.name);
  }
  return 0;
}
