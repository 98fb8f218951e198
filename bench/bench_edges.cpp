// Edges per second on the 6,000,000-tetrahedron cube (about 7.1 million edges): edge extraction
// alone, edge qualities in an isotropic size field and in an anisotropic 3-D metric field (both
// extract the edges first), and the size shock of both fields over the extracted edges.
#include <benchmark/benchmark.h>

#include <cmath>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

namespace {

using kvo::dense1D;
using kvo::dense2D;
namespace gk = kvo::gridkit;

// The cube of 100^3 cells on [0, 1]^3, its edges, a size field growing from 0.005 to 0.02 along
// x and a metric field stretched differently along each axis and sheared in x-y.
struct edge_case {
  dense2D<double> pos;
  dense2D<unsigned> tets, edges;
  dense1D<double, 16> sizes;
  dense2D<double> metrics;
};

const edge_case& cube() {
  static const edge_case c = [] {
    edge_case r;
    meshgen::tet_cube(100, r.pos, r.tets, 0.01);
    gk::copy_edges(r.tets, gk::ET_TETRA4, r.edges);
    const unsigned n = r.pos.cols;
    r.sizes.resize(n);
    r.metrics.resize(6, n);
    for (unsigned k = 0; k < n; ++k) {
      const double x = r.pos(0, k), y = r.pos(1, k), z = r.pos(2, k);
      r.sizes[k] = 0.005 + 0.015 * x;
      const double hx = 0.005 + 0.015 * x, hy = 0.01 + 0.01 * y, hz = 0.02 - 0.01 * z;
      const double m11 = 1 / (hx * hx), m22 = 1 / (hy * hy), m33 = 1 / (hz * hz);
      r.metrics(0, k) = m11;
      r.metrics(1, k) = 0.3 * std::sqrt(m11 * m22);  // m12: positive definite shear
      r.metrics(2, k) = m22;
      r.metrics(3, k) = 0.0;
      r.metrics(4, k) = 0.0;
      r.metrics(5, k) = m33;
    }
    return r;
  }();
  return c;
}

void report(benchmark::State& state, unsigned edges) {
  state.SetItemsProcessed(state.iterations() * int64_t(edges));
  state.counters["edges"] = edges;
}

void BM_copy_edges_tet_cube(benchmark::State& state) {
  const edge_case& c = cube();
  for (auto _ : state) {
    dense2D<unsigned> edges;
    if (gk::copy_edges(c.tets, gk::ET_TETRA4, edges) != 0) state.SkipWithError("copy_edges failed");
    benchmark::DoNotOptimize(edges.storage->data);
  }
  report(state, c.edges.cols);
}
BENCHMARK(BM_copy_edges_tet_cube)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_edge_qualities_sizes(benchmark::State& state) {
  const edge_case& c = cube();
  for (auto _ : state) {
    kvo::misc::histogram hist(0.0, 3.0, 30);
    dense2D<unsigned> edges;
    if (gk::edge_qualities(c.pos, c.tets, gk::ET_TETRA4, c.sizes, hist, edges) != 0)
      state.SkipWithError("edge_qualities failed");
    benchmark::DoNotOptimize(edges.storage->data);
  }
  report(state, c.edges.cols);
}
BENCHMARK(BM_edge_qualities_sizes)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_edge_qualities_metrics(benchmark::State& state) {
  const edge_case& c = cube();
  for (auto _ : state) {
    kvo::misc::histogram hist(0.0, 3.0, 30);
    dense2D<unsigned> edges;
    if (gk::edge_qualities(c.pos, c.tets, gk::ET_TETRA4, c.metrics, hist, edges) != 0)
      state.SkipWithError("edge_qualities failed");
    benchmark::DoNotOptimize(edges.storage->data);
  }
  report(state, c.edges.cols);
}
BENCHMARK(BM_edge_qualities_metrics)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_H_shock_sizes(benchmark::State& state) {
  const edge_case& c = cube();
  dense1D<double, 16> shock;
  for (auto _ : state) {
    shock.size = 0;  // plain maxima: no earlier values take part
    if (gk::H_shock(c.pos, c.edges, c.sizes, shock) != 0) state.SkipWithError("H_shock failed");
    benchmark::DoNotOptimize(shock.storage->data);
  }
  report(state, c.edges.cols);
}
BENCHMARK(BM_H_shock_sizes)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_H_shock_metrics(benchmark::State& state) {
  const edge_case& c = cube();
  dense1D<double, 16> shock;
  for (auto _ : state) {
    shock.size = 0;
    if (gk::H_shock(c.pos, c.edges, c.metrics, shock) != 0) state.SkipWithError("H_shock failed");
    benchmark::DoNotOptimize(shock.storage->data);
  }
  report(state, c.edges.cols);
}
BENCHMARK(BM_H_shock_metrics)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
