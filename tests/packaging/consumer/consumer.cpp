// quality_report: reads an STL surface and prints its size, its open edges and the spread of its
// triangle shapes. A complete program built against the installed Gridkit package only.
#include <cstdio>

#include <kvo/gridkit.hpp>

int main(int argc, char** argv) {
  namespace gk = kvo::gridkit;
  if (argc != 2) {
    std::fprintf(stderr, "usage: quality_report FILE.stl\n");
    return 2;
  }
  kvo::dense2D<double> pos;   // one column of 3 coordinates per node
  kvo::dense2D<unsigned> tri;  // one column of 3 node indices per triangle
  if (const int s = gk::STL_input(argv[1], pos, tri); s != 0) {
    std::fprintf(stderr, "%s: cannot be read (status %d)\n", argv[1], s);
    return 1;
  }
  kvo::dense2D<unsigned> neighbors, open_edges;
  if (gk::get_neighbors(tri, gk::ET_TRIA3, false, neighbors) != 0 ||
      gk::get_mesh_boundaries(tri, neighbors, gk::ET_TRIA3, open_edges) != 0) {
    std::fprintf(stderr, "%s: out of memory\n", argv[1]);
    return 1;
  }
  kvo::misc::histogram hist(0.0, 1.0, 4);  // quality 1 is the equilateral triangle
  gk::shape_qualities(pos, tri, gk::ET_TRIA3, hist);

  std::printf("gridkit %s: %u nodes, %u triangles, %u open edges\n", gk::version(), pos.cols, tri.cols,
              open_edges.cols);
  std::printf("shape quality: min %.3f, mean %.3f, max %.3f\n", hist.minimum(), hist.mean(), hist.maximum());
  for (unsigned k = 0; k < hist.bins(); ++k)
    std::printf("  [%.2f, %.2f)  %llu\n", 0.25 * k, 0.25 * (k + 1), hist.bin(k));
  std::printf("  1.00          %llu\n", hist.above());
  return 0;
}
