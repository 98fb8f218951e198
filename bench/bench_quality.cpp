// Shape qualities on large meshes: 6,000,000 tetrahedra, 1,000,000 hexahedra and 2,000,000
// triangles, against VTK's vtkMeshQuality filter and its per-cell kernels on the same meshes.
#include <benchmark/benchmark.h>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

#ifdef GRIDKIT_HAVE_VTK
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkHexahedron.h>
#include <vtkMeshQuality.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkSmartPointer.h>
#include <vtkTetra.h>
#include <vtkTriangle.h>
#include <vtkUnstructuredGrid.h>
#endif

namespace {

using kvo::dense1D;
using kvo::dense2D;
namespace gk = kvo::gridkit;

struct mesh {
  dense2D<double> pos;
  dense2D<unsigned> conn;
  gk::element_type type;
};

// Meshes are built once per process and shared by the benchmarks that use them.
const mesh& tetrahedra() {
  static const mesh m = [] {
    mesh r;
    meshgen::tet_cube(100, r.pos, r.conn);
    r.type = gk::ET_TETRA4;
    return r;
  }();
  return m;
}

// The same tetrahedra with nodes 1 and 2 swapped: every value positive.
const mesh& tetrahedra_valid() {
  static const mesh m = [] {
    mesh r = tetrahedra();
    r.conn.copy(tetrahedra().conn);
    for (unsigned j = 0; j < r.conn.cols; ++j) std::swap(r.conn(1, j), r.conn(2, j));
    return r;
  }();
  return m;
}

const mesh& hexahedra() {
  static const mesh m = [] {
    mesh r;
    meshgen::hex_cube(100, r.pos, r.conn);
    r.type = gk::ET_HEXA8;
    return r;
  }();
  return m;
}

const mesh& triangles() {
  static const mesh m = [] {
    mesh r;
    meshgen::torus(2000, 500, r.pos, r.conn);
    r.type = gk::ET_TRIA3;
    return r;
  }();
  return m;
}

void run_gridkit(benchmark::State& state, const mesh& m) {
  dense1D<double, 16> q;
  for (auto _ : state) {
    if (gk::shape_qualities(m.pos, m.conn, m.type, q) != 0) state.SkipWithError("shape_qualities failed");
    benchmark::DoNotOptimize(q.ptr());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}

void BM_gridkit_shape_tetra(benchmark::State& s) { run_gridkit(s, tetrahedra()); }
void BM_gridkit_shape_tetra_valid(benchmark::State& s) { run_gridkit(s, tetrahedra_valid()); }
void BM_gridkit_shape_hexa(benchmark::State& s) { run_gridkit(s, hexahedra()); }
void BM_gridkit_shape_tria(benchmark::State& s) { run_gridkit(s, triangles()); }
BENCHMARK(BM_gridkit_shape_tetra)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_gridkit_shape_tetra_valid)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_gridkit_shape_hexa)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_gridkit_shape_tria)->Unit(benchmark::kMillisecond)->MinTime(1.0);

#ifdef GRIDKIT_HAVE_VTK

vtkSmartPointer<vtkUnstructuredGrid> to_vtk(const mesh& m, int cell_type) {
  vtkNew<vtkPoints> pts;
  pts->SetDataTypeToDouble();
  pts->SetNumberOfPoints(m.pos.cols);
  for (unsigned j = 0; j < m.pos.cols; ++j) pts->SetPoint(j, m.pos(0, j), m.pos(1, j), m.pos(2, j));
  vtkNew<vtkCellArray> cells;
  cells->AllocateExact(m.conn.cols, vtkIdType(m.conn.cols) * m.conn.rows);
  vtkIdType ids[8];
  for (unsigned j = 0; j < m.conn.cols; ++j) {
    for (unsigned i = 0; i < m.conn.rows; ++i) ids[i] = m.conn(i, j);
    cells->InsertNextCell(vtkIdType(m.conn.rows), ids);
  }
  auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
  grid->SetPoints(pts);
  grid->SetCells(cell_type, cells);
  return grid;
}

// The vtkMeshQuality filter over the whole grid.
template <class Configure>
void run_vtk_filter(benchmark::State& state, const mesh& m, int cell_type, Configure configure) {
  auto grid = to_vtk(m, cell_type);
  vtkNew<vtkMeshQuality> filter;
  filter->SetInputData(grid);
  configure(filter.Get());
  for (auto _ : state) {
    filter->Modified();
    filter->Update();
    benchmark::DoNotOptimize(filter->GetOutput()->GetCellData()->GetArray("Quality"));
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}

// The per-cell kernel in a loop, on one cell whose points are set from the mesh.
template <class Cell, class Kernel>
void run_vtk_kernel(benchmark::State& state, const mesh& m, Kernel kernel) {
  vtkNew<Cell> cell;
  vtkPoints* cp = cell->GetPoints();
  const unsigned n = m.conn.rows;
  for (auto _ : state) {
    double sum = 0.0;
    for (unsigned j = 0; j < m.conn.cols; ++j) {
      for (unsigned i = 0; i < n; ++i) {
        const unsigned v = m.conn(i, j);
        cp->SetPoint(i, m.pos(0, v), m.pos(1, v), m.pos(2, v));
      }
      sum += kernel(cell.Get());
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * m.conn.cols);
}

void BM_vtk_filter_tetra_aspect_ratio(benchmark::State& s) {
  run_vtk_filter(s, tetrahedra(), VTK_TETRA, [](vtkMeshQuality* f) { f->SetTetQualityMeasureToAspectRatio(); });
}
void BM_vtk_filter_hexa_scaled_jacobian(benchmark::State& s) {
  run_vtk_filter(s, hexahedra(), VTK_HEXAHEDRON, [](vtkMeshQuality* f) { f->SetHexQualityMeasureToScaledJacobian(); });
}
void BM_vtk_filter_tria_aspect_ratio(benchmark::State& s) {
  run_vtk_filter(s, triangles(), VTK_TRIANGLE, [](vtkMeshQuality* f) { f->SetTriangleQualityMeasureToAspectRatio(); });
}
void BM_vtk_kernel_tetra_aspect_ratio(benchmark::State& s) {
  run_vtk_kernel<vtkTetra>(s, tetrahedra(), [](vtkCell* c) { return vtkMeshQuality::TetAspectRatio(c); });
}
void BM_vtk_kernel_hexa_scaled_jacobian(benchmark::State& s) {
  run_vtk_kernel<vtkHexahedron>(s, hexahedra(), [](vtkCell* c) { return vtkMeshQuality::HexScaledJacobian(c); });
}
void BM_vtk_kernel_tria_aspect_ratio(benchmark::State& s) {
  run_vtk_kernel<vtkTriangle>(s, triangles(), [](vtkCell* c) { return vtkMeshQuality::TriangleAspectRatio(c); });
}
BENCHMARK(BM_vtk_filter_tetra_aspect_ratio)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_vtk_filter_hexa_scaled_jacobian)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_vtk_filter_tria_aspect_ratio)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_vtk_kernel_tetra_aspect_ratio)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_vtk_kernel_hexa_scaled_jacobian)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_vtk_kernel_tria_aspect_ratio)->Unit(benchmark::kMillisecond)->MinTime(1.0);

#endif  // GRIDKIT_HAVE_VTK

}  // namespace
