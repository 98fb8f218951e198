// Node detector: build over a point set and nearest-node queries, beside the peers
// (nanoflann k-d tree with leaf size 10, VTK's static point locator) on the same points.
//   W3:   1,000,000 random points in the unit cube; 1,000,000 queries at other random points.
//   Grid: a 1000 x 1000 grid of unit spacing (many exact ties); 1,000,000 random queries in it.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

#ifdef GRIDKIT_HAVE_NANOFLANN
#include <nanoflann.hpp>
#endif
#ifdef GRIDKIT_HAVE_VTK
#include <vtkDoubleArray.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkSmartPointer.h>
#include <vtkStaticPointLocator.h>
#endif

namespace {

using kvo::dense2D;
using kvo::gridkit::node_detector;

constexpr unsigned n_points = 1000000;
constexpr unsigned n_queries = 1000000;

struct workload {
  dense2D<double> pos;      // dim x n
  dense2D<double> queries;  // dim x n_queries
  unsigned dim;
};

const workload& w3() {
  static const workload w = [] {
    workload r;
    r.dim = 3;
    meshgen::random_points(n_points, r.pos, 3, 2024);
    meshgen::random_points(n_queries, r.queries, 3, 777);
    return r;
  }();
  return w;
}

const workload& grid() {
  static const workload w = [] {
    workload r;
    r.dim = 2;
    r.pos.resize(2, 1000 * 1000);
    for (unsigned j = 0; j < 1000 * 1000; ++j) {
      r.pos(0, j) = j % 1000;
      r.pos(1, j) = j / 1000;
    }
    meshgen::random_points(n_queries, r.queries, 2, 778);
    for (unsigned j = 0; j < n_queries; ++j)
      for (unsigned k = 0; k < 2; ++k) r.queries(k, j) = r.queries(k, j) * 1000.0 - 0.5;
    return r;
  }();
  return w;
}

const workload& pick(int which) { return which == 0 ? w3() : grid(); }

void BM_detector_build(benchmark::State& state) {
  const workload& w = pick(int(state.range(0)));
  for (auto _ : state) {
    node_detector d(w.pos);
    benchmark::DoNotOptimize(d.size());
  }
  state.SetItemsProcessed(state.iterations() * w.pos.cols);
}

void BM_detector_query(benchmark::State& state) {
  const workload& w = pick(int(state.range(0)));
  node_detector d(w.pos);
  for (auto _ : state) {
    unsigned sum = 0;
    if (w.dim == 3) {
      for (unsigned j = 0; j < n_queries; ++j) {
        const double* q = w.queries.col_ptr(j);
        sum += d.find_closest(kvo::vector_fixed<double, 3>{{q[0], q[1], q[2]}});
      }
    } else {
      for (unsigned j = 0; j < n_queries; ++j) {
        const double* q = w.queries.col_ptr(j);
        sum += d.find_closest(kvo::vector_fixed<double, 2>{{q[0], q[1]}});
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n_queries);
}

BENCHMARK(BM_detector_build)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_detector_query)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

#ifdef GRIDKIT_HAVE_NANOFLANN
// Dataset adaptor over the columns of a coordinate matrix.
struct cloud {
  const dense2D<double>* pos;
  std::size_t kdtree_get_point_count() const { return pos->cols; }
  double kdtree_get_pt(std::size_t i, std::size_t k) const { return (*pos)(unsigned(k), unsigned(i)); }
  template <class B>
  bool kdtree_get_bbox(B&) const { return false; }
};
template <int D>
using kd_index = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, cloud>, cloud, D, unsigned>;

template <int D>
void nanoflann_build(benchmark::State& state, const workload& w) {
  cloud c{&w.pos};
  for (auto _ : state) {
    kd_index<D> index(D, c, nanoflann::KDTreeSingleIndexAdaptorParams(10));
    benchmark::DoNotOptimize(&index);
  }
  state.SetItemsProcessed(state.iterations() * w.pos.cols);
}
template <int D>
void nanoflann_query(benchmark::State& state, const workload& w) {
  cloud c{&w.pos};
  kd_index<D> index(D, c, nanoflann::KDTreeSingleIndexAdaptorParams(10));
  for (auto _ : state) {
    unsigned sum = 0;
    for (unsigned j = 0; j < n_queries; ++j) {
      unsigned idx = 0;
      double d2 = 0;
      index.knnSearch(w.queries.col_ptr(j), 1, &idx, &d2);
      sum += idx;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n_queries);
}
void BM_nanoflann_build(benchmark::State& state) {
  if (state.range(0) == 0) nanoflann_build<3>(state, w3());
  else nanoflann_build<2>(state, grid());
}
void BM_nanoflann_query(benchmark::State& state) {
  if (state.range(0) == 0) nanoflann_query<3>(state, w3());
  else nanoflann_query<2>(state, grid());
}
BENCHMARK(BM_nanoflann_build)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_nanoflann_query)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);
#endif

#ifdef GRIDKIT_HAVE_VTK
vtkSmartPointer<vtkPolyData> to_vtk(const workload& w) {
  vtkNew<vtkPoints> pts;
  pts->SetDataTypeToDouble();
  pts->SetNumberOfPoints(w.pos.cols);
  for (unsigned j = 0; j < w.pos.cols; ++j)
    pts->SetPoint(j, w.pos(0, j), w.pos(1, j), w.dim == 3 ? w.pos(2, j) : 0.0);
  auto pd = vtkSmartPointer<vtkPolyData>::New();
  pd->SetPoints(pts);
  return pd;
}
void BM_vtk_locator_build(benchmark::State& state) {
  const workload& w = pick(int(state.range(0)));
  auto pd = to_vtk(w);
  for (auto _ : state) {
    vtkNew<vtkStaticPointLocator> loc;
    loc->SetDataSet(pd);
    loc->BuildLocator();
    benchmark::DoNotOptimize(loc.GetPointer());
  }
  state.SetItemsProcessed(state.iterations() * w.pos.cols);
}
void BM_vtk_locator_query(benchmark::State& state) {
  const workload& w = pick(int(state.range(0)));
  auto pd = to_vtk(w);
  vtkNew<vtkStaticPointLocator> loc;
  loc->SetDataSet(pd);
  loc->BuildLocator();
  for (auto _ : state) {
    std::int64_t sum = 0;
    for (unsigned j = 0; j < n_queries; ++j) {
      const double* q = w.queries.col_ptr(j);
      const double x[3] = {q[0], q[1], w.dim == 3 ? q[2] : 0.0};
      sum += loc->FindClosestPoint(x);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n_queries);
}
BENCHMARK(BM_vtk_locator_build)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_vtk_locator_query)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);
#endif

}  // namespace
