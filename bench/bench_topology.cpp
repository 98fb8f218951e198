// Topology workloads: neighbours (and open boundaries) of a tetrahedral cube, a hexahedral cube
// and a closed triangulated torus; node graphs and subdomains of the tetrahedral cube.
// With VTK, vtkDataSetSurfaceFilter extracts the boundary of the same tetrahedral grid.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <malloc.h>
#include <memory>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

#ifdef GRIDKIT_HAVE_VTK
#include <vtkCellArray.h>
#include <vtkDataSetSurfaceFilter.h>
#include <vtkIdTypeArray.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>
#endif

namespace gk = kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

namespace {

enum mesh_kind { TETS, HEXES, TRIS };

struct mesh {
  dense2D<double> pos;
  dense2D<unsigned> conn;
  gk::element_type type;
};

// Meshes are built once per size and kept for the whole run.
const mesh& get_mesh(mesh_kind kind, unsigned n) {
  static std::map<std::pair<int, unsigned>, std::unique_ptr<mesh>> cache;
  auto& slot = cache[{kind, n}];
  if (!slot) {
    slot = std::make_unique<mesh>();
    switch (kind) {
      case TETS: meshgen::tet_cube(n, slot->pos, slot->conn); slot->type = gk::ET_TETRA4; break;
      case HEXES: meshgen::hex_cube(n, slot->pos, slot->conn); slot->type = gk::ET_HEXA8; break;
      case TRIS: meshgen::torus(4 * n, n, slot->pos, slot->conn); slot->type = gk::ET_TRIA3; break;
    }
  }
  return *slot;
}

// Resident-set peak since the last reset (Linux), in bytes; 0 when unavailable.
void reset_peak() {
  if (std::FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", f);
    std::fclose(f);
  }
}
double status_kb(const char* field) {
  double kb = 0;
  if (std::FILE* f = std::fopen("/proc/self/status", "r")) {
    char line[256];
    const std::size_t len = std::strlen(field);
    while (std::fgets(line, sizeof line, f))
      if (std::strncmp(line, field, len) == 0) kb = std::atof(line + len);
    std::fclose(f);
  }
  return kb;
}

// Size in bytes of a chained face map (one flat array of pairs for its prime bucket count and
// its faces), the reference for the peak memory of get_neighbors.
double chained_map_bytes(double faces) {
  static const double primes[] = {53, 97, 193, 389, 769, 1543, 3079, 6151, 12289, 24593, 49157, 98317, 196613,
                                  393241, 786433, 1572869, 3145739, 6291469, 12582917, 25165843, 50331653,
                                  100663319, 201326611, 402653189, 805306457, 1610612741, 3221225473.0,
                                  4294967291.0};
  const double want = double(static_cast<unsigned long long>(faces / 4));
  double b = primes[27];
  for (double p : primes)
    if (p >= want) {
      b = p;
      break;
    }
  return 2.0 * (b + faces) * sizeof(unsigned);
}

void neighbours(benchmark::State& state, mesh_kind kind) {
  const mesh& m = get_mesh(kind, unsigned(state.range(0)));
  dense2D<unsigned> nb;
  for (auto _ : state) {
    if (gk::get_neighbors(m.conn, m.type, false, nb) != 0) state.SkipWithError("get_neighbors failed");
    benchmark::DoNotOptimize(nb.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
  state.counters["elements"] = m.conn.cols;

  // Peak memory of one more call, beyond what is resident before it (output dropped first).
  nb.clear();
  nb.clear_hard();
  malloc_trim(0);  // freed heap memory must not serve the call unseen
  const double before = status_kb("VmRSS:");
  reset_peak();
  gk::get_neighbors(m.conn, m.type, false, nb);
  const double peak = status_kb("VmHWM:");
  const double faces = double(nb.rows) * nb.cols;
  state.counters["peak_extra_MB"] = (peak - before) / 1024.0;
  state.counters["chained_map+out_MB"] = (chained_map_bytes(faces) + faces * 4) / 1048576.0;
}

void BM_neighbors_tet_cube(benchmark::State& s) { neighbours(s, TETS); }
void BM_neighbors_hex_cube(benchmark::State& s) { neighbours(s, HEXES); }
void BM_neighbors_torus(benchmark::State& s) { neighbours(s, TRIS); }
// Quarter size and full size: 6*63^3 ~ 1.5M and 6*100^3 = 6M tetrahedra; 0.25M and 1M hexahedra
// (63^3 ~ 0.25M); torus of 0.5M and 2M triangles.
BENCHMARK(BM_neighbors_tet_cube)->Arg(63)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_neighbors_hex_cube)->Arg(63)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_neighbors_torus)->Arg(250)->Arg(500)->Unit(benchmark::kMillisecond)->UseRealTime();

// Boundary of the tetrahedral cube: neighbours, then the open faces.
void BM_tet_cube_boundary_gridkit(benchmark::State& state) {
  const mesh& m = get_mesh(TETS, unsigned(state.range(0)));
  for (auto _ : state) {
    dense2D<unsigned> nb, bnd;
    gk::get_neighbors(m.conn, m.type, false, nb);
    gk::get_mesh_boundaries(m.conn, nb, m.type, bnd);
    benchmark::DoNotOptimize(bnd.storage->data);
    state.counters["faces"] = bnd.cols;
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}
BENCHMARK(BM_tet_cube_boundary_gridkit)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef GRIDKIT_HAVE_VTK
void BM_tet_cube_boundary_vtk(benchmark::State& state) {
  const mesh& m = get_mesh(TETS, unsigned(state.range(0)));
  vtkNew<vtkPoints> points;
  points->SetNumberOfPoints(m.pos.cols);
  for (unsigned k = 0; k < m.pos.cols; ++k) points->SetPoint(k, m.pos(0, k), m.pos(1, k), m.pos(2, k));
  vtkNew<vtkIdTypeArray> offsets, ids;
  offsets->SetNumberOfValues(vtkIdType(m.conn.cols) + 1);
  ids->SetNumberOfValues(vtkIdType(m.conn.cols) * 4);
  for (unsigned e = 0; e <= m.conn.cols; ++e) offsets->SetValue(e, vtkIdType(e) * 4);
  for (unsigned e = 0; e < m.conn.cols; ++e)
    for (unsigned i = 0; i < 4; ++i) ids->SetValue(vtkIdType(e) * 4 + i, m.conn(i, e));
  vtkNew<vtkCellArray> cells;
  cells->SetData(offsets, ids);
  vtkNew<vtkUnstructuredGrid> grid;
  grid->SetPoints(points);
  grid->SetCells(VTK_TETRA, cells);
  for (auto _ : state) {
    vtkNew<vtkDataSetSurfaceFilter> filter;
    filter->SetInputData(grid);
    filter->Update();
    state.counters["faces"] = double(filter->GetOutput()->GetNumberOfCells());
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}
BENCHMARK(BM_tet_cube_boundary_vtk)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

void BM_node_graph_tet_cube(benchmark::State& state) {
  const mesh& m = get_mesh(TETS, unsigned(state.range(0)));
  dense1D<unsigned, 16> off, val;
  for (auto _ : state) {
    gk::get_node_graph(m.conn, off, val);
    benchmark::DoNotOptimize(val.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}
BENCHMARK(BM_node_graph_tet_cube)->Arg(63)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_connected_elements_tet_cube(benchmark::State& state) {
  const mesh& m = get_mesh(TETS, unsigned(state.range(0)));
  dense1D<unsigned, 16> off, val;
  for (auto _ : state) {
    gk::get_connected_elements(m.conn, off, val);
    benchmark::DoNotOptimize(val.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}
BENCHMARK(BM_connected_elements_tet_cube)->Arg(63)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_subdomains_tet_cube(benchmark::State& state) {
  const mesh& m = get_mesh(TETS, unsigned(state.range(0)));
  dense2D<unsigned> nb;
  gk::get_neighbors(m.conn, m.type, false, nb);
  dense1D<unsigned, 16> list, off;
  for (auto _ : state) {
    gk::get_subdomains(nb, list, off);
    benchmark::DoNotOptimize(list.storage->data);
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}
BENCHMARK(BM_subdomains_tet_cube)->Arg(63)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
