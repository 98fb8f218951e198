// Transforms, edge extraction and clipping on large meshes, each beside a plain baseline doing
// the same work:
// - translate / rotate / zoom on 10,000,000 nodes vs a raw loop with the same arithmetic;
// - copy_edges on meshgen::tet_cube(100) (6,000,000 tetrahedra) vs collecting the pairs in a
//   std::vector and std::sort + std::unique;
// - clip of the same cube vs a naive clip (no side cache, columns pushed into a std::vector) and
//   vs a plain copy of the whole connectivity (the memory-speed floor).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

namespace {

using namespace kvo;
using namespace kvo::gridkit;

constexpr unsigned kNodes = 10000000;

dense2D<double>& nodes_gridkit() {
  static dense2D<double> pos = [] {
    dense2D<double> p;
    meshgen::random_points(kNodes, p);
    return p;
  }();
  return pos;
}

std::vector<double>& nodes_plain() {
  static std::vector<double> v = [] {
    const dense2D<double>& p = nodes_gridkit();
    return std::vector<double>(p.storage->data + p.offset, p.storage->data + p.offset + 3 * std::size_t(kNodes));
  }();
  return v;
}

struct tet_mesh {
  dense2D<double> pos;
  dense2D<unsigned> tets;
};

const tet_mesh& cube100() {
  static tet_mesh m = [] {
    tet_mesh t;
    meshgen::tet_cube(100, t.pos, t.tets);
    return t;
  }();
  return m;
}

// ---- transforms

void Editing_translate(benchmark::State& state) {
  dense2D<double>& pos = nodes_gridkit();
  const vector_fixed<double, 3> d{{1e-9, -2e-9, 3e-9}};
  for (auto _ : state) benchmark::DoNotOptimize(translate(pos, d));
  state.SetItemsProcessed(state.iterations() * kNodes);
}

void Editing_translate_plain_loop(benchmark::State& state) {
  std::vector<double>& v = nodes_plain();
  const double d0 = 1e-9, d1 = -2e-9, d2 = 3e-9;
  for (auto _ : state) {
    double* p = v.data();
    for (unsigned j = 0; j < kNodes; ++j, p += 3) {
      p[0] = p[0] + d0;
      p[1] = p[1] + d1;
      p[2] = p[2] + d2;
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}

void Editing_zoom(benchmark::State& state) {
  dense2D<double>& pos = nodes_gridkit();
  const vector_fixed<double, 3> c{{0.5, 0.5, 0.5}};
  for (auto _ : state) benchmark::DoNotOptimize(zoom(pos, c, 1.0000001));
  state.SetItemsProcessed(state.iterations() * kNodes);
}

void Editing_zoom_plain_loop(benchmark::State& state) {
  std::vector<double>& v = nodes_plain();
  const double c0 = 0.5, c1 = 0.5, c2 = 0.5, g = 1.0000001 - 1.0;
  for (auto _ : state) {
    double* p = v.data();
    for (unsigned j = 0; j < kNodes; ++j, p += 3) {
      p[0] = (p[0] - c0) * g + p[0];
      p[1] = (p[1] - c1) * g + p[1];
      p[2] = (p[2] - c2) * g + p[2];
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}

void Editing_rotate(benchmark::State& state) {
  dense2D<double>& pos = nodes_gridkit();
  const vector_fixed<double, 3> c{{0.5, 0.5, 0.5}}, r{{0.3, -0.2, 0.7}};
  for (auto _ : state) benchmark::DoNotOptimize(rotate(pos, c, r));
  state.SetItemsProcessed(state.iterations() * kNodes);
}

void Editing_rotate_plain_loop(benchmark::State& state) {
  std::vector<double>& v = nodes_plain();
  const double c[3] = {0.5, 0.5, 0.5};
  const double a = std::cos(0.7), b = std::sin(0.7);
  const double R[3][3] = {{a, -b, 0.0}, {b, a, 0.0}, {0.0, 0.0, 1.0}};
  for (auto _ : state) {
    double* p = v.data();
    for (unsigned j = 0; j < kNodes; ++j, p += 3) {
      const double x0 = p[0] - c[0], x1 = p[1] - c[1], x2 = p[2] - c[2];
      const double y0 = ((0.0 + R[0][0] * x0) + R[0][1] * x1) + R[0][2] * x2;
      const double y1 = ((0.0 + R[1][0] * x0) + R[1][1] * x1) + R[1][2] * x2;
      const double y2 = ((0.0 + R[2][0] * x0) + R[2][1] * x1) + R[2][2] * x2;
      p[0] = c[0] + y0;
      p[1] = c[1] + y1;
      p[2] = c[2] + y2;
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}

BENCHMARK(Editing_translate)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_translate_plain_loop)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_rotate)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_rotate_plain_loop)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_zoom)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_zoom_plain_loop)->Unit(benchmark::kMillisecond);

// ---- edge extraction

void Editing_copy_edges(benchmark::State& state) {
  const tet_mesh& m = cube100();
  unsigned n = 0;
  for (auto _ : state) {
    dense2D<unsigned> edges;
    benchmark::DoNotOptimize(copy_edges(m.tets, ET_TETRA4, edges));
    n = edges.cols;
  }
  state.counters["edges"] = n;
  state.SetItemsProcessed(state.iterations() * m.tets.cols);
}

void Editing_copy_edges_vector_sort(benchmark::State& state) {
  const tet_mesh& m = cube100();
  static const unsigned char E[6][2] = {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}};
  std::size_t n = 0;
  for (auto _ : state) {
    std::vector<std::pair<unsigned, unsigned>> pairs;
    pairs.reserve(std::size_t(6) * m.tets.cols);
    for (unsigned j = 0; j < m.tets.cols; ++j) {
      const unsigned* q = m.tets.col_ptr(j);
      for (const auto& e : E) pairs.push_back(std::minmax(q[e[0]], q[e[1]]));
    }
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    n = pairs.size();
    benchmark::DoNotOptimize(pairs.data());
  }
  state.counters["edges"] = double(n);
  state.SetItemsProcessed(state.iterations() * m.tets.cols);
}

BENCHMARK(Editing_copy_edges)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_copy_edges_vector_sort)->Unit(benchmark::kMillisecond);

// ---- clipping (the plane x = 50.5 keeps about half of the cube)

const vector_fixed<double, 3> kOrigin{{50.5, 0.0, 0.0}}, kNormal{{1.0, 0.2, 0.1}};

void Editing_clip(benchmark::State& state) {
  const tet_mesh& m = cube100();
  unsigned n = 0;
  for (auto _ : state) {
    dense2D<unsigned> out;
    benchmark::DoNotOptimize(clip(m.pos, m.tets, kOrigin, kNormal, out));
    n = out.cols;
  }
  state.counters["kept"] = n;
  state.SetItemsProcessed(state.iterations() * m.tets.cols);
}

void Editing_clip_naive(benchmark::State& state) {
  const tet_mesh& m = cube100();
  std::size_t n = 0;
  for (auto _ : state) {
    std::vector<unsigned> out;
    for (unsigned j = 0; j < m.tets.cols; ++j) {
      const unsigned* q = m.tets.col_ptr(j);
      bool keep = true;
      for (unsigned i = 0; i < 4 && keep; ++i) {
        const double* p = m.pos.col_ptr(q[i]);
        double s = 0.0;
        for (unsigned k = 0; k < 3; ++k) s = s + (p[k] - kOrigin[k]) * kNormal[k];
        keep = s > 0.0;
      }
      if (keep) out.insert(out.end(), q, q + 4);
    }
    n = out.size() / 4;
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["kept"] = double(n);
  state.SetItemsProcessed(state.iterations() * m.tets.cols);
}

void Editing_clip_copy_floor(benchmark::State& state) {
  const tet_mesh& m = cube100();
  for (auto _ : state) {
    dense2D<unsigned> out;
    out.copy(m.tets);
    benchmark::DoNotOptimize(out.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * m.tets.cols);
}

BENCHMARK(Editing_clip)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_clip_naive)->Unit(benchmark::kMillisecond);
BENCHMARK(Editing_clip_copy_floor)->Unit(benchmark::kMillisecond);

}  // namespace
