// Metric fields: bounding and validity of 1,000,000 tensors (2-D and 3-D), beside a plain
// implementation that decomposes every tensor with the eigen solver, the solver alone, and VTK's
// 3x3 symmetric eigen solvers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>

#include <kvo/gridkit.hpp>

#ifdef GRIDKIT_HAVE_VTK
#include <vtkMath.h>
#endif

namespace {

using namespace kvo;
using namespace kvo::gridkit;

constexpr unsigned n_tensors = 1000000;

// Random orientations, sizes log-uniform in [1e-3, 1] (eigenvalues 1 to 1e6).
dense2D<double> make_field(unsigned dim, unsigned n, std::uint32_t seed = 42) {
  std::mt19937 g(seed);
  std::normal_distribution<double> nd;
  std::uniform_real_distribution<double> lg(-3.0, 0.0);
  const unsigned rows = dim == 2 ? 3 : 6;
  dense2D<double> m(rows, n);
  for (unsigned j = 0; j < n; ++j) {
    double* c = m.col_ptr(j);
    double l[3];
    for (double& x : l) {
      const double h = std::pow(10.0, lg(g));
      x = 1.0 / (h * h);
    }
    if (dim == 2) {
      const double t = std::atan2(nd(g), nd(g)), cs = std::cos(t), sn = std::sin(t);
      c[0] = l[0] * cs * cs + l[1] * sn * sn;
      c[1] = (l[0] - l[1]) * cs * sn;
      c[2] = l[0] * sn * sn + l[1] * cs * cs;
      continue;
    }
    double q[4] = {nd(g), nd(g), nd(g), nd(g)};
    const double qn = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (double& x : q) x /= qn;
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    const double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    const auto e = [&](int a, int b) { return l[0] * R[a][0] * R[b][0] + l[1] * R[a][1] * R[b][1] + l[2] * R[a][2] * R[b][2]; };
    c[0] = e(0, 0);
    c[1] = e(0, 1);
    c[2] = e(1, 1);
    c[3] = e(0, 2);
    c[4] = e(1, 2);
    c[5] = e(2, 2);
  }
  return m;
}

const dense2D<double>& field(unsigned dim) {
  static const dense2D<double> f2 = make_field(2, n_tensors), f3 = make_field(3, n_tensors);
  return dim == 2 ? f2 : f3;
}

// Bounds: arg 0 keeps every eigenvalue inside (nothing changes), arg 1 changes about half the tensors.
void bounds(int which, double& hmin, double& hmax) {
  hmin = which == 0 ? 1e-4 : 2e-3;
  hmax = which == 0 ? 10.0 : 0.5;
}

void set_counters(benchmark::State& state, int changed) {
  state.SetItemsProcessed(state.iterations() * n_tensors);
  state.counters["changed"] = changed;
}

template <unsigned Dim>
void BM_bound_metrics(benchmark::State& state) {
  const dense2D<double>& src = field(Dim);
  double hmin, hmax;
  bounds(int(state.range(0)), hmin, hmax);
  dense2D<double> work;
  int changed = 0;
  for (auto _ : state) {
    state.PauseTiming();
    work.copy(src);
    state.ResumeTiming();
    changed = bound_metrics(work, hmin, hmax);
    benchmark::DoNotOptimize(work.storage->data);
  }
  set_counters(state, changed);
}
BENCHMARK(BM_bound_metrics<2>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_bound_metrics<3>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The same bounding, decomposing every tensor first (eigen_pairs, clamp, rebuild when changed).
template <unsigned Dim>
void BM_bound_metrics_decompose_all(benchmark::State& state) {
  const dense2D<double>& src = field(Dim);
  double hmin, hmax;
  bounds(int(state.range(0)), hmin, hmax);
  const double hi = 1.0 / (hmin * hmin), lo = 1.0 / (hmax * hmax);
  dense2D<double> work;
  int changed = 0;
  for (auto _ : state) {
    state.PauseTiming();
    work.copy(src);
    state.ResumeTiming();
    changed = 0;
    for (unsigned j = 0; j < work.cols; ++j) {
      double* c = work.col_ptr(j);
      symmetric_fixed<double, Dim> m;
      std::memcpy(m.data, c, sizeof m.data);
      vector_fixed<double, Dim> w;
      matrix_fixed<double, Dim, Dim> v;
      eigen_pairs(m, w, v);
      bool moved = false;
      for (unsigned k = 0; k < Dim; ++k) {
        const double b = std::max(std::min(w[k], hi), lo);
        moved |= b != w[k];
        w[k] = b;
      }
      if (!moved) continue;
      ++changed;
      for (unsigned b = 0; b < Dim; ++b)
        for (unsigned a = 0; a <= b; ++a) {
          double s = 0;
          for (unsigned k = 0; k < Dim; ++k) s += w[k] * v(a, k) * v(b, k);
          c[symmetric_fixed<double, Dim>::index(a, b)] = s;
        }
    }
    benchmark::DoNotOptimize(work.storage->data);
  }
  set_counters(state, changed);
}
BENCHMARK(BM_bound_metrics_decompose_all<2>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_bound_metrics_decompose_all<3>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

template <unsigned Dim>
void BM_are_valid_metrics(benchmark::State& state) {
  const dense2D<double>& src = field(Dim);
  for (auto _ : state) benchmark::DoNotOptimize(are_valid_metrics(src));
  state.SetItemsProcessed(state.iterations() * n_tensors);
}
BENCHMARK(BM_are_valid_metrics<2>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_are_valid_metrics<3>)->Unit(benchmark::kMillisecond);

// Validity from a full decomposition of every tensor.
template <unsigned Dim>
void BM_are_valid_metrics_decompose_all(benchmark::State& state) {
  const dense2D<double>& src = field(Dim);
  for (auto _ : state) {
    bool all = true;
    for (unsigned j = 0; j < src.cols && all; ++j) {
      symmetric_fixed<double, Dim> m;
      std::memcpy(m.data, src.col_ptr(j), sizeof m.data);
      vector_fixed<double, Dim> w;
      matrix_fixed<double, Dim, Dim> v;
      all = eigen_pairs(m, w, v) && w[0] > 0;
    }
    benchmark::DoNotOptimize(all);
  }
  state.SetItemsProcessed(state.iterations() * n_tensors);
}
BENCHMARK(BM_are_valid_metrics_decompose_all<2>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_are_valid_metrics_decompose_all<3>)->Unit(benchmark::kMillisecond);

// The decomposition alone (3-D: one dspev call per tensor).
template <unsigned Dim>
void BM_eigen_pairs(benchmark::State& state) {
  const dense2D<double>& src = field(Dim);
  for (auto _ : state) {
    double acc = 0;
    for (unsigned j = 0; j < src.cols; ++j) {
      symmetric_fixed<double, Dim> m;
      std::memcpy(m.data, src.col_ptr(j), sizeof m.data);
      vector_fixed<double, Dim> w;
      matrix_fixed<double, Dim, Dim> v;
      eigen_pairs(m, w, v);
      acc += w[0] + v(0, 0);
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * n_tensors);
}
BENCHMARK(BM_eigen_pairs<2>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_eigen_pairs<3>)->Unit(benchmark::kMillisecond);

void BM_bound_sizes(benchmark::State& state) {
  std::mt19937 g(1);
  std::uniform_real_distribution<double> lg(-3.0, 0.0);
  dense1D<double, 16> src(n_tensors), work;
  for (unsigned i = 0; i < n_tensors; ++i) src[i] = std::pow(10.0, lg(g));
  int changed = 0;
  for (auto _ : state) {
    state.PauseTiming();
    work.copy(src);
    state.ResumeTiming();
    changed = bound_metrics(work, 2e-3, 0.5);
    benchmark::DoNotOptimize(work.storage->data);
  }
  set_counters(state, changed);
}
BENCHMARK(BM_bound_sizes)->Unit(benchmark::kMillisecond);

#ifdef GRIDKIT_HAVE_VTK
// VTK's 3x3 symmetric eigen solvers on the same tensors (decomposition only).
void BM_vtk_jacobi(benchmark::State& state) {
  const dense2D<double>& src = field(3);
  for (auto _ : state) {
    double acc = 0;
    for (unsigned j = 0; j < src.cols; ++j) {
      const double* c = src.col_ptr(j);
      double a0[3] = {c[0], c[1], c[3]}, a1[3] = {c[1], c[2], c[4]}, a2[3] = {c[3], c[4], c[5]};
      double* a[3] = {a0, a1, a2};
      double w[3], v0[3], v1[3], v2[3];
      double* v[3] = {v0, v1, v2};
      vtkMath::Jacobi(a, w, v);
      acc += w[0] + v0[0];
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * n_tensors);
}
BENCHMARK(BM_vtk_jacobi)->Unit(benchmark::kMillisecond);

void BM_vtk_diagonalize3x3(benchmark::State& state) {
  const dense2D<double>& src = field(3);
  for (auto _ : state) {
    double acc = 0;
    for (unsigned j = 0; j < src.cols; ++j) {
      const double* c = src.col_ptr(j);
      const double a[3][3] = {{c[0], c[1], c[3]}, {c[1], c[2], c[4]}, {c[3], c[4], c[5]}};
      double w[3], v[3][3];
      vtkMath::Diagonalize3x3(a, w, v);
      acc += w[0] + v[0][0];
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * n_tensors);
}
BENCHMARK(BM_vtk_diagonalize3x3)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
