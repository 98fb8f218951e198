// Index utilities against plain loops and std::unordered_map on the same buffers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <unordered_map>
#include <vector>

#include <kvo/gridkit.hpp>

namespace gk = kvo::gridkit;
using U1 = kvo::dense1D<unsigned, 16>;
using U2 = kvo::dense2D<unsigned>;

namespace {

const U2& connectivity(bool strided) {
  static U2 plain, wide, view;
  if (plain.cols == 0) {
    std::mt19937 rng(3);
    plain.resize(4, 25000000);
    for (unsigned k = 0; k < plain.size; ++k) plain.storage->data[k] = rng() % 4000000;
    wide.resize(5, 25000000);
    for (unsigned k = 0; k < wide.size; ++k) wide.storage->data[k] = rng() % 4000000;
    view = wide.sub_matrix(0, 0, 4, 25000000);
  }
  return strided ? view : plain;
}

void BM_max_element_baseline(benchmark::State& state) {
  const U2& c = connectivity(false);
  for (auto _ : state) benchmark::DoNotOptimize(*std::max_element(c.storage->data, c.storage->data + c.size));
  state.SetBytesProcessed(state.iterations() * int64_t(c.size) * 4);
}
BENCHMARK(BM_max_element_baseline)->Unit(benchmark::kMillisecond);

void BM_max_ID(benchmark::State& state) {
  const U2& c = connectivity(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(gk::max_ID(c));
  state.SetBytesProcessed(state.iterations() * int64_t(c.rows) * c.cols * 4);
}
BENCHMARK(BM_max_ID)->Arg(0)->Arg(1)->ArgName("strided")->Unit(benchmark::kMillisecond);

void BM_check_IDs(benchmark::State& state) {
  const U2& c = connectivity(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(gk::check_IDs(c, gk::ET_TETRA4, 4000000));
  state.SetBytesProcessed(state.iterations() * int64_t(c.rows) * c.cols * 4);
}
BENCHMARK(BM_check_IDs)->Arg(0)->Arg(1)->ArgName("strided")->Unit(benchmark::kMillisecond);

void BM_shift_indices(benchmark::State& state) {
  U2 c;
  c.shallow_copy(connectivity(state.range(0)));
  for (auto _ : state) {
    gk::shift_indices(c, 1, gk::ET_TETRA4);
    gk::shift_indices(c, -1, gk::ET_TETRA4);
  }
  state.SetBytesProcessed(state.iterations() * int64_t(c.rows) * c.cols * 4 * 2);
}
BENCHMARK(BM_shift_indices)->Arg(0)->Arg(1)->ArgName("strided")->Unit(benchmark::kMillisecond);

void BM_read_write_baseline(benchmark::State& state) {
  const U2& c = connectivity(false);
  unsigned* p = c.storage->data;
  for (auto _ : state) {
    for (unsigned k = 0; k < c.size; ++k) p[k] += 1;
    for (unsigned k = 0; k < c.size; ++k) p[k] -= 1;
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t(c.size) * 4 * 2);
}
BENCHMARK(BM_read_write_baseline)->Unit(benchmark::kMillisecond);

// get_IDs on ID lists: a shuffled permutation of n IDs matched against itself shuffled again.
void make_ids(unsigned n, U1& a, U1& b) {
  std::mt19937 rng(11);
  a.resize(n);
  b.resize(n);
  for (unsigned i = 0; i < n; ++i) a[i] = b[i] = i * 7u + 3u;
  std::shuffle(a.begin(), a.end(), rng);
  std::shuffle(b.begin(), b.end(), rng);
}

void BM_get_IDs_lists(benchmark::State& state) {
  U1 a, b, m21, m12;
  make_ids(unsigned(state.range(0)), a, b);
  for (auto _ : state) gk::get_IDs(a, b, m21, m12);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_get_IDs_lists)->Arg(1000000)->Arg(4000000)->Arg(5000000)->Unit(benchmark::kMillisecond);

void BM_get_IDs_lists_unordered_map(benchmark::State& state) {
  U1 a, b;
  make_ids(unsigned(state.range(0)), a, b);
  for (auto _ : state) {
    U1 m21(b.size, gk::NULL_INDEX), m12(a.size, gk::NULL_INDEX);
    std::unordered_map<unsigned, unsigned> map;
    for (unsigned i = 0; i < a.size; ++i)
      if (a[i] != gk::NULL_INDEX) map[a[i]] = i;
    for (unsigned j = 0; j < b.size; ++j) {
      auto it = map.find(b[j]);
      if (it != map.end()) {
        m21[j] = it->second;
        m12[it->second] = j;
      }
    }
    benchmark::DoNotOptimize(m21.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_get_IDs_lists_unordered_map)->Arg(1000000)->Arg(4000000)->Arg(5000000)->Unit(benchmark::kMillisecond);

// What linear work costs on this machine at these sizes: plain streaming passes over a working
// set the size of get_IDs' (both lists, both maps and two scratch lists: 24 bytes per ID). Its
// 4M/1M ratio is the memory hierarchy's (the small set stays in the last-level cache, the large
// one does not), and the floor for any single-threaded linear pass.
void BM_get_IDs_lists_stream_baseline(benchmark::State& state) {
  const std::size_t n = std::size_t(state.range(0));
  std::vector<unsigned> a(n, 1), b(n, 2), s1(n), s2(n), m21(n), m12(n);
  for (auto _ : state) {
    for (std::size_t i = 0; i < n; ++i) s1[i] = a[i] * 3u + 1u;
    for (std::size_t i = 0; i < n; ++i) s2[i] = b[i] * 3u + 1u;
    for (std::size_t i = 0; i < n; ++i) m12[i] = s1[i] ^ a[i];
    for (std::size_t i = 0; i < n; ++i) m21[i] = s2[i] ^ b[i];
    benchmark::DoNotOptimize(m21.data());
    benchmark::DoNotOptimize(m12.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_get_IDs_lists_stream_baseline)->Arg(1000000)->Arg(4000000)->Unit(benchmark::kMillisecond);

// get_IDs on triangles: the same triangles, shuffled and rotated.
void make_triangles(unsigned n, U2& a, U2& b) {
  std::mt19937 rng(5);
  a.resize(3, n);
  for (unsigned j = 0; j < n; ++j)
    for (unsigned i = 0; i < 3; ++i) a(i, j) = rng() % (n / 2 + 3);
  std::vector<unsigned> order(n);
  std::iota(order.begin(), order.end(), 0u);
  std::shuffle(order.begin(), order.end(), rng);
  b.resize(3, n);
  for (unsigned j = 0; j < n; ++j) {
    const unsigned r = j % 3;
    for (unsigned i = 0; i < 3; ++i) b(i, j) = a((i + r) % 3, order[j]);
  }
}

void BM_get_IDs_triangles(benchmark::State& state) {
  U2 a, b;
  U1 m21, m12;
  make_triangles(unsigned(state.range(0)), a, b);
  for (auto _ : state) gk::get_IDs(a, b, m21, m12, false);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_get_IDs_triangles)->Arg(500000)->Arg(2000000)->Unit(benchmark::kMillisecond);

void BM_get_IDs_triangles_unordered_map(benchmark::State& state) {
  U2 a, b;
  make_triangles(unsigned(state.range(0)), a, b);
  auto key = [](const unsigned* c) {
    unsigned h = 0;
    for (int i = 0; i < 3; ++i) h += (c[i] ^ 0x811C9DC5u) * 16777619u;
    return h;
  };
  for (auto _ : state) {
    U1 m21(b.cols, gk::NULL_INDEX), m12(a.cols, gk::NULL_INDEX);
    std::unordered_multimap<unsigned, unsigned> map;
    map.reserve(a.cols);
    for (unsigned k = 0; k < a.cols; ++k) map.emplace(key(a.col_ptr(k)), k);
    for (unsigned j = 0; j < b.cols; ++j) {
      const unsigned* c = b.col_ptr(j);
      auto range = map.equal_range(key(c));
      for (auto it = range.first; it != range.second; ++it) {
        const unsigned* d = a.col_ptr(it->second);
        bool same = false;
        for (int r = 0; r < 3 && !same; ++r)
          same = d[r] == c[0] && d[(r + 1) % 3] == c[1] && d[(r + 2) % 3] == c[2];
        if (same) {
          m21[j] = it->second;
          m12[it->second] = j;
          break;
        }
      }
    }
    benchmark::DoNotOptimize(m21.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_get_IDs_triangles_unordered_map)->Arg(500000)->Arg(2000000)->Unit(benchmark::kMillisecond);

}  // namespace
