// STL and Wavefront OBJ files: writers against the plain fprintf loop that writes the same bytes,
// readers against VTK's readers on the same files (when VTK is found).
//
// Meshes: closed torus surfaces, meshgen::torus(nu, 500) has nu * 1000 triangles (1000: one
// million, 2000: two million); the OBJ workload is torus(1000, 1000): 1M nodes, 2M triangles.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

#ifdef GRIDKIT_HAVE_VTK
#include <vtkNew.h>
#include <vtkOBJReader.h>
#include <vtkPolyData.h>
#include <vtkSTLReader.h>
#endif

using namespace kvo;
using namespace kvo::gridkit;

namespace {

struct mesh {
  dense2D<double> pos;
  dense2D<unsigned> tri;
};

const mesh& torus(unsigned nu, unsigned nv) {
  static std::map<std::pair<unsigned, unsigned>, mesh> cache;
  mesh& m = cache[{nu, nv}];
  if (m.tri.cols == 0) meshgen::torus(nu, nv, m.pos, m.tri);
  return m;
}

std::string scratch(const std::string& name) {
  static const std::string dir = [] {
    auto d = std::filesystem::temp_directory_path() / ("gridkit_bench_stlobj_" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return d.string();
  }();
  return dir + "/" + name;
}

// A file written once per process, by our writer.
const std::string& stl_file(unsigned nu, bool ascii) {
  static std::map<std::pair<unsigned, bool>, std::string> files;
  std::string& f = files[{nu, ascii}];
  if (f.empty()) {
    f = scratch("in_" + std::to_string(nu) + (ascii ? "_a.stl" : "_b.stl"));
    const mesh& m = torus(nu, 500);
    if (STL_output(f.c_str(), m.pos, m.tri, ascii) != 0) std::abort();
  }
  return f;
}

// The OBJ workload as our writer writes it (faces "i// j// k//"), or with plain "f i j k" faces,
// which every reader accepts (VTK's rejects the empty normal slot of "i//").
const std::string& obj_file(bool plain) {
  static std::string f[2];
  std::string& name = f[plain];
  if (name.empty()) {
    name = scratch(plain ? "in_plain.obj" : "in.obj");
    const mesh& m = torus(1000, 1000);
    if (!plain) {
      if (WavefrontOBJ_output(name.c_str(), m.pos, m.tri, ET_TRIA3) != 0) std::abort();
    } else {
      std::FILE* out = std::fopen(name.c_str(), "w");
      for (unsigned j = 0; j < m.pos.cols; ++j) std::fprintf(out, "v %.8e %.8e %.8e\n", m.pos(0, j), m.pos(1, j), m.pos(2, j));
      for (unsigned e = 0; e < m.tri.cols; ++e)
        std::fprintf(out, "f %u %u %u\n", m.tri(0, e) + 1, m.tri(1, e) + 1, m.tri(2, e) + 1);
      std::fclose(out);
    }
  }
  return name;
}

double file_size(const std::string& f) { return double(std::filesystem::file_size(f)); }

void facet_normal(const double* p0, const double* p1, const double* p2, double n[3]) {
  const double ax = p1[0] - p0[0], ay = p1[1] - p0[1], az = p1[2] - p0[2];
  const double bx = p2[0] - p0[0], by = p2[1] - p0[1], bz = p2[2] - p0[2];
  n[0] = ay * bz - az * by;
  n[1] = az * bx - ax * bz;
  n[2] = ax * by - ay * bx;
  const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
  for (int k = 0; k < 3; ++k) n[k] = len == 0 ? 0.0 : n[k] / len;
}

// ---- STL writers

void BM_STL_output_binary(benchmark::State& state) {
  const mesh& m = torus(unsigned(state.range(0)), 500);
  const std::string f = scratch("out_b.stl");
  for (auto _ : state)
    if (STL_output(f.c_str(), m.pos, m.tri, false) != 0) state.SkipWithError("write failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
  state.counters["facets"] = m.tri.cols;
}
BENCHMARK(BM_STL_output_binary)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_STL_output_ascii(benchmark::State& state) {
  const mesh& m = torus(unsigned(state.range(0)), 500);
  const std::string f = scratch("out_a.stl");
  for (auto _ : state)
    if (STL_output(f.c_str(), m.pos, m.tri, true) != 0) state.SkipWithError("write failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
}
BENCHMARK(BM_STL_output_ascii)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond)->UseRealTime();

// Baseline: the same bytes through one fprintf per line.
void BM_STL_output_ascii_fprintf(benchmark::State& state) {
  const mesh& m = torus(unsigned(state.range(0)), 500);
  const std::string f = scratch("out_a_fprintf.stl");
  for (auto _ : state) {
    std::FILE* out = std::fopen(f.c_str(), "w");
    std::fprintf(out, "solid KVO\n");
    for (unsigned e = 0; e < m.tri.cols; ++e) {
      const double* p[3] = {m.pos.col_ptr(m.tri(0, e)), m.pos.col_ptr(m.tri(1, e)), m.pos.col_ptr(m.tri(2, e))};
      double n[3];
      facet_normal(p[0], p[1], p[2], n);
      std::fprintf(out, "   facet normal %le %le %le\n", n[0], n[1], n[2]);
      std::fprintf(out, "      outer loop\n");
      for (int k = 0; k < 3; ++k) std::fprintf(out, "         vertex %le %le %le\n", p[k][0], p[k][1], p[k][2]);
      std::fprintf(out, "      endloop\n");
      std::fprintf(out, "   endfacet\n");
    }
    std::fprintf(out, "endsolid KVO\n");
    std::fclose(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
}
BENCHMARK(BM_STL_output_ascii_fprintf)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- STL readers

void BM_STL_input(benchmark::State& state) {
  const bool ascii = state.range(1) != 0;
  const std::string& f = stl_file(unsigned(state.range(0)), ascii);
  dense2D<double> pos;
  dense2D<unsigned> tri;
  for (auto _ : state)
    if (STL_input(f.c_str(), pos, tri) != 0) state.SkipWithError("read failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
  state.counters["nodes"] = pos.cols;
  state.counters["facets"] = tri.cols;
}
BENCHMARK(BM_STL_input)->ArgsProduct({{1000, 2000}, {0, 1}})->ArgNames({"nu", "ascii"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef GRIDKIT_PROGRAM
// The whole `gridkit info` run (read, topology, qualities, report) on the 2M-triangle binary
// file, to set beside BM_STL_input/nu:2000/ascii:0 of the same run.
void BM_gridkit_info(benchmark::State& state) {
  const std::string& f = stl_file(2000, false);
  const std::string cmd = std::string("\"") + GRIDKIT_PROGRAM + "\" info \"" + f + "\" > /dev/null";
  for (auto _ : state)
    if (std::system(cmd.c_str()) != 0) state.SkipWithError("gridkit info failed");
}
BENCHMARK(BM_gridkit_info)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// Peak memory of one binary read: the benchmark program runs itself again with
// GRIDKIT_BENCH_PEAK_STL naming the file; that fresh process reads it once and prints its peak
// resident size minus its resident size before the call. Compared with the size of the
// unwelded coordinates (9 doubles per facet).
long status_kb(const char* key) {
  std::FILE* s = std::fopen("/proc/self/status", "r");
  char line[256];
  long v = -1;
  while (s && std::fgets(line, sizeof line, s))
    if (std::strncmp(line, key, std::strlen(key)) == 0) v = std::atol(line + std::strlen(key));
  if (s) std::fclose(s);
  return v;
}
const bool peak_probe = [] {
  const char* f = std::getenv("GRIDKIT_BENCH_PEAK_STL");
  if (!f) return false;
  const long before = status_kb("VmRSS:");
  dense2D<double> pos;
  dense2D<unsigned> tri;
  const int status = STL_input(f, pos, tri);
  std::printf("%d %f\n", status, (status_kb("VmHWM:") - before) / 1024.0);
  std::fflush(stdout);
  _exit(0);
}();

void BM_STL_input_peak_memory(benchmark::State& state) {
  const std::string& f = stl_file(unsigned(state.range(0)), false);
  const double facets = (file_size(f) - 84) / 50;
  double peak = 0;
  for (auto _ : state) {
    const std::string cmd = "GRIDKIT_BENCH_PEAK_STL='" + f + "' /proc/" + std::to_string(getpid()) + "/exe";
    std::FILE* p = popen(cmd.c_str(), "r");
    int status = -1;
    if (!p || std::fscanf(p, "%d %lf", &status, &peak) != 2 || status != 0) state.SkipWithError("no measurement");
    if (p) pclose(p);
  }
  state.counters["peak_MB"] = peak;
  state.counters["x_unwelded"] = peak / (facets * 72 / 1048576.0);
}
BENCHMARK(BM_STL_input_peak_memory)->Arg(1000)->Arg(2000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef GRIDKIT_HAVE_VTK
// VTK's reader, which welds coincident points while reading.
// Reads file f with a VTK reader once per iteration, counting bytes, nodes and cells.
template <class Reader>
void read_with_vtk(benchmark::State& state, const std::string& f, const char* cells_name) {
  long long points = 0, cells = 0;
  for (auto _ : state) {
    vtkNew<Reader> reader;
    reader->SetFileName(f.c_str());
    reader->Update();
    points = reader->GetOutput()->GetNumberOfPoints();
    cells = reader->GetOutput()->GetNumberOfCells();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
  state.counters["nodes"] = double(points);
  state.counters[cells_name] = double(cells);
}

void BM_STL_input_vtk(benchmark::State& state) {
  read_with_vtk<vtkSTLReader>(state, stl_file(unsigned(state.range(0)), state.range(1) != 0), "facets");
}
BENCHMARK(BM_STL_input_vtk)->ArgsProduct({{1000, 2000}, {0, 1}})->ArgNames({"nu", "ascii"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// ---- OBJ

void BM_OBJ_output(benchmark::State& state) {
  const mesh& m = torus(1000, 1000);
  const std::string f = scratch("out.obj");
  for (auto _ : state)
    if (WavefrontOBJ_output(f.c_str(), m.pos, m.tri, ET_TRIA3) != 0) state.SkipWithError("write failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
}
BENCHMARK(BM_OBJ_output)->Unit(benchmark::kMillisecond)->UseRealTime();

// Baseline: the same bytes through fprintf.
void BM_OBJ_output_fprintf(benchmark::State& state) {
  const mesh& m = torus(1000, 1000);
  const std::string f = scratch("out_fprintf.obj");
  for (auto _ : state) {
    std::FILE* out = std::fopen(f.c_str(), "w");
    for (unsigned j = 0; j < m.pos.cols; ++j)
      std::fprintf(out, " v %.8e %.8e %.8e \n", m.pos(0, j), m.pos(1, j), m.pos(2, j));
    for (unsigned e = 0; e < m.tri.cols; ++e)
      std::fprintf(out, " f %u// %u// %u// \n", m.tri(0, e) + 1, m.tri(1, e) + 1, m.tri(2, e) + 1);
    std::fclose(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
}
BENCHMARK(BM_OBJ_output_fprintf)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OBJ_input(benchmark::State& state) {
  const std::string& f = obj_file(state.range(0) != 0);
  dense2D<double> pos, normals, tex;
  dense2D<unsigned> trias, quads;
  for (auto _ : state)
    if (WavefrontOBJ_input(f.c_str(), pos, normals, tex, trias, quads) != 0) state.SkipWithError("read failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file_size(f)));
  state.counters["nodes"] = pos.cols;
  state.counters["faces"] = trias.cols;
}
BENCHMARK(BM_OBJ_input)->ArgName("plain")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef GRIDKIT_HAVE_VTK
void BM_OBJ_input_vtk(benchmark::State& state) { read_with_vtk<vtkOBJReader>(state, obj_file(true), "faces"); }
BENCHMARK(BM_OBJ_input_vtk)->ArgName("plain")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// Removes the scratch files when the process ends.
struct cleanup {
  ~cleanup() {
    std::error_code ec;
    std::filesystem::remove_all(std::filesystem::path(scratch("x")).parent_path(), ec);
  }
} remove_scratch;

}  // namespace
