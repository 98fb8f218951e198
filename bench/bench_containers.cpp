// Container growth: appending entries one by one after reserve is linear.
#include <benchmark/benchmark.h>

#include <kvo/containers.hpp>

static void BM_push_back_reserved(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    kvo::dense1D<unsigned, 16> v;
    v.reserve(n, 1);
    for (unsigned i = 0; i < n; ++i) v.push_back_n(i, 1);
    benchmark::DoNotOptimize(v.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_push_back_reserved)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);

static void BM_push_back_growing(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    kvo::dense1D<unsigned, 16> v;
    for (unsigned i = 0; i < n; ++i) v.resize(v.size + 1, i);
    benchmark::DoNotOptimize(v.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_push_back_growing)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);
