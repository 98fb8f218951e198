// Node merging and index compaction.
//  W3d: 1,000,000 random points in the unit cube plus 100,000 copies of some of them moved by at
//       most 1e-9; merge with tolerance 1e-7 finds exactly the 100,000 copies. Peer: VTK's
//       vtkStaticPointLocator::MergePoints on the same points (locator built inside the loop).
//  Peak memory of that merge (resident set growth, reported as counters).
//  unique_indices / count_unique_indices / remove_degenerated / simplify on tet cubes of about
//  2M and 6M tetrahedra; baseline for unique_indices: an std::unordered_set of seen nodes.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <unordered_set>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

#ifdef GRIDKIT_HAVE_VTK
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStaticPointLocator.h>
#endif

using namespace kvo;
using namespace kvo::gridkit;

namespace {

constexpr unsigned w3_points = 1000000, w3_copies = 100000;
constexpr double w3_tolerance = 1e-7;

// W3 followed by copies of every 10th point, each moved by at most 1e-9 (per axis at most
// 1e-9 / sqrt(3)).
const dense2D<double>& w3d() {
  static dense2D<double> pos = [] {
    dense2D<double> w3, p;
    meshgen::random_points(w3_points, w3, 3, 20240601u);
    p.resize(3, w3_points + w3_copies);
    std::memcpy(p.col_ptr(0), w3.col_ptr(0), sizeof(double) * 3 * w3_points);
    std::mt19937_64 rng(99);
    std::uniform_real_distribution<double> shift(-0.577e-9, 0.577e-9);
    for (unsigned j = 0; j < w3_copies; ++j)
      for (unsigned a = 0; a < 3; ++a) p(a, w3_points + j) = w3(a, 10 * j) + shift(rng);
    return p;
  }();
  return pos;
}

void BM_merge_W3d(benchmark::State& state) {
  const dense2D<double>& src = w3d();
  dense1D<unsigned, 16> new_IDs;
  for (auto _ : state) {
    state.PauseTiming();
    dense2D<double> pos;
    pos.copy(src);
    state.ResumeTiming();
    const int merged = merge(pos, new_IDs, w3_tolerance);
    if (merged != int(w3_copies)) state.SkipWithError("wrong number of merges");
    benchmark::DoNotOptimize(new_IDs.ptr());
  }
  state.SetItemsProcessed(state.iterations() * src.cols);
}
BENCHMARK(BM_merge_W3d)->Unit(benchmark::kMillisecond)->UseRealTime();

// The point-list form with the list of all nodes (no coordinate overwrite).
void BM_merge_W3d_list(benchmark::State& state) {
  const dense2D<double>& src = w3d();
  dense1D<unsigned, 16> all(src.cols), new_IDs;
  for (unsigned j = 0; j < src.cols; ++j) all[j] = j;
  for (auto _ : state) {
    const int merged = merge(src, all, new_IDs, w3_tolerance);
    if (merged != int(w3_copies)) state.SkipWithError("wrong number of merges");
  }
  state.SetItemsProcessed(state.iterations() * src.cols);
}
BENCHMARK(BM_merge_W3d_list)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef GRIDKIT_HAVE_VTK
void BM_vtk_static_locator_merge_W3d(benchmark::State& state) {
  const dense2D<double>& src = w3d();
  vtkNew<vtkPoints> points;
  points->SetDataTypeToDouble();
  points->SetNumberOfPoints(src.cols);
  for (unsigned j = 0; j < src.cols; ++j) points->SetPoint(j, src(0, j), src(1, j), src(2, j));
  vtkNew<vtkPolyData> data;
  data->SetPoints(points);
  std::vector<vtkIdType> map(src.cols);
  unsigned merged = 0;
  for (auto _ : state) {
    vtkNew<vtkStaticPointLocator> locator;
    locator->SetDataSet(data);
    locator->BuildLocator();
    locator->MergePoints(w3_tolerance, map.data());
    merged = 0;
    for (unsigned j = 0; j < src.cols; ++j) merged += map[j] != vtkIdType(j);
  }
  // VTK follows its own merge rules: its count is reported, not checked.
  state.counters["merged"] = merged;
  state.SetItemsProcessed(state.iterations() * src.cols);
}
BENCHMARK(BM_vtk_static_locator_merge_W3d)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// Resident-set growth during one call, in MB: the peak is reset through /proc/self/clear_refs
// and large blocks are returned to the system on free so that earlier runs do not hide it.
long status_kb(const char* key) {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  long v = -1;
  const std::size_t n = std::strlen(key);
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, key, n) == 0) v = std::atol(line + n);
  std::fclose(f);
  return v;
}

template <class F>
double peak_growth_mb(F&& f) {
  malloc_trim(0);
  FILE* c = std::fopen("/proc/self/clear_refs", "w");
  if (!c) return -1;
  std::fputs("5", c);
  std::fclose(c);
  const long before = status_kb("VmRSS:");
  f();
  const long peak = status_kb("VmHWM:");
  return (peak - before) / 1024.0;
}

void BM_merge_W3d_peak_memory(benchmark::State& state) {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // big blocks come and go with mmap
  const dense2D<double>& src = w3d();
  const double coords_mb = sizeof(double) * 3.0 * src.cols / (1024.0 * 1024.0);
  double in_place = 0, shared = 0;
  for (auto _ : state) {
    dense2D<double> pos;
    pos.copy(src);
    dense1D<unsigned, 16> new_IDs;
    in_place = peak_growth_mb([&] { merge(pos, new_IDs, w3_tolerance); });
    dense2D<double> pos2, keep;
    pos2.copy(src);
    keep = pos2;  // a second view: the coordinates are rewritten into a copy
    dense1D<unsigned, 16> new_IDs2;
    shared = peak_growth_mb([&] { merge(pos2, new_IDs2, w3_tolerance); });
  }
  state.counters["coords_MB"] = coords_mb;
  state.counters["peak_MB"] = in_place;
  state.counters["peak_x_coords"] = in_place / coords_mb;
  state.counters["peak_shared_MB"] = shared;
  state.counters["peak_shared_x_coords"] = shared / coords_mb;
}
BENCHMARK(BM_merge_W3d_peak_memory)->Unit(benchmark::kMillisecond)->Iterations(1);

// ---- compaction on tet cubes: 69^3 * 6 = 1,971,054 and 100^3 * 6 = 6,000,000 tetrahedra

struct cube {
  dense2D<double> pos;
  dense2D<unsigned> tets;
};

const cube& tet_cube(unsigned n) {
  static cube c69, c100;
  cube& c = n == 69 ? c69 : c100;
  if (c.tets.cols == 0) meshgen::tet_cube(n, c.pos, c.tets);
  return c;
}

void BM_unique_indices_tets(benchmark::State& state) {
  const cube& c = tet_cube(unsigned(state.range(0)));
  for (auto _ : state) {
    dense1D<unsigned, 16> out;
    unique_indices(out, c.tets, dense1D<unsigned, 16>());
    if (out.size != c.pos.cols) state.SkipWithError("wrong node count");
    benchmark::DoNotOptimize(out.ptr());
  }
  state.SetItemsProcessed(state.iterations() * c.tets.cols);
}
BENCHMARK(BM_unique_indices_tets)->Arg(69)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

// Baseline: the same list through a standard hash set.
void BM_unique_indices_unordered_set_tets(benchmark::State& state) {
  const cube& c = tet_cube(unsigned(state.range(0)));
  for (auto _ : state) {
    std::unordered_set<unsigned> seen;
    std::vector<unsigned> out;
    const unsigned* p = c.tets.col_ptr(0);
    const std::size_t n = std::size_t(c.tets.rows) * c.tets.cols;
    for (std::size_t i = 0; i < n; ++i)
      if (p[i] != NULL_INDEX && seen.insert(p[i]).second) out.push_back(p[i]);
    if (out.size() != c.pos.cols) state.SkipWithError("wrong node count");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * c.tets.cols);
}
BENCHMARK(BM_unique_indices_unordered_set_tets)->Arg(69)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_count_unique_indices_tets(benchmark::State& state) {
  const cube& c = tet_cube(unsigned(state.range(0)));
  for (auto _ : state) {
    if (count_unique_indices(c.tets) != int(c.pos.cols)) state.SkipWithError("wrong node count");
  }
  state.SetItemsProcessed(state.iterations() * c.tets.cols);
}
BENCHMARK(BM_count_unique_indices_tets)->Arg(69)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every 100th tetrahedron collapsed (node 1 set to node 0).
void BM_remove_degenerated_tets(benchmark::State& state) {
  const cube& c = tet_cube(unsigned(state.range(0)));
  dense2D<unsigned> src;
  src.copy(c.tets);
  for (unsigned j = 0; j < src.cols; j += 100) src(1, j) = src(0, j);
  dense1D<unsigned, 16> new_IDs;
  for (auto _ : state) {
    state.PauseTiming();
    dense2D<unsigned> tets;
    tets.copy(src);
    state.ResumeTiming();
    const int removed = remove_degenerated(tets, new_IDs, true);
    if (removed != int((src.cols + 99) / 100)) state.SkipWithError("wrong removal count");
  }
  state.SetItemsProcessed(state.iterations() * c.tets.cols);
}
BENCHMARK(BM_remove_degenerated_tets)->Arg(69)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

// An unused node after every 10 used ones: simplify removes 10% of the nodes and renumbers.
void BM_simplify_tets(benchmark::State& state) {
  const cube& c = tet_cube(unsigned(state.range(0)));
  const unsigned n = c.pos.cols, spread = n + n / 10;
  dense2D<double> pos_src(3, spread, 0.0);
  dense2D<unsigned> tets_src;
  tets_src.copy(c.tets);
  for (unsigned i = 0; i < n; ++i)
    for (unsigned a = 0; a < 3; ++a) pos_src(a, i + i / 10) = c.pos(a, i);
  unsigned* t = tets_src.col_ptr(0);
  for (std::size_t k = 0; k < std::size_t(4) * tets_src.cols; ++k) t[k] += t[k] / 10;
  dense1D<unsigned, 16> new_IDs;
  for (auto _ : state) {
    state.PauseTiming();
    dense2D<double> pos;
    dense2D<unsigned> tets;
    pos.copy(pos_src);
    tets.copy(tets_src);
    state.ResumeTiming();
    const int removed = simplify(pos, tets, new_IDs, 0);
    if (removed != int(spread - n)) state.SkipWithError("wrong removal count");
  }
  state.SetItemsProcessed(state.iterations() * c.tets.cols);
}
BENCHMARK(BM_simplify_tets)->Arg(69)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
