// End-to-end runs of the editing and measuring commands, their JSON output parsed back and
// checked against counts known independently (Euler's formula, hand-made meshes).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

#include "tools/program.hpp"

namespace {

using namespace program;
namespace gk = kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

value json_of(const std::string& args) {
  const auto r = run(args + " --json");
  EXPECT_EQ(r.status, 0) << args << ": " << r.err;
  value v;
  EXPECT_TRUE(parse_json(r.out, v)) << args << ": " << r.out;
  return v;
}

double sum_of(const value& arr) {
  double s = 0.0;
  for (const auto& x : arr.items) s += x.num;
  return s;
}

TEST(Commands, InfoJsonDescribesTheBlock) {
  const value v = json_of("info " + sample("block.mesh"));
  EXPECT_EQ(v["nodes"].num, 693);
  EXPECT_EQ(v["dimension"].num, 3);
  EXPECT_EQ(v["elements"]["tetrahedron"].num, 2880);
  const double hi[3] = {10, 8, 6};
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(v["bounding_box"]["min"][k].num, 0.0);
    EXPECT_EQ(v["bounding_box"]["max"][k].num, hi[k]);
  }
  const value& q = v["quality"];
  EXPECT_EQ(q["count"].num, 2880);
  EXPECT_EQ(sum_of(q["histogram"]) + q["invalid"].num, 2880);
  EXPECT_LE(q["min"].num, q["mean"].num);
  EXPECT_LE(q["mean"].num, q["max"].num);
}

// A hand-made triangle mesh: nodes 0-3 a unit square cut in two, node 4 a near copy of node 2,
// node 5 unused; triangle (1, 2, 1) is degenerate, (2, 4, 3) becomes so once 4 merges into 2.
void write_dirty_mesh(const std::string& file) {
  std::ofstream f(file);
  f << "MeshVersionFormatted 2\nDimension 3\nVertices\n6\n"
       "0 0 0 0\n1 0 0 0\n1 1 0 0\n0 1 0 0\n1.0000000001 1 0 0\n5 5 5 0\n"
       "Triangles\n4\n1 2 3 0\n1 5 4 0\n2 3 2 0\n3 5 4 0\nEnd\n";
}

TEST(Commands, CleanReportsEachCountAndWritesTheCleanMesh) {
  const std::string in = tmp_dir() + "/dirty.mesh", out = tmp_dir() + "/clean.vtk";
  write_dirty_mesh(in);
  value v = json_of("clean " + in + " " + out);
  EXPECT_EQ(v["merged_nodes"].num, 1);
  EXPECT_EQ(v["degenerate_elements"].num, 2);
  EXPECT_EQ(v["unused_nodes"].num, 1);
  EXPECT_EQ(v["nodes"].num, 4);
  EXPECT_EQ(v["elements"]["triangle"].num, 2);
  v = json_of("info " + out);
  EXPECT_EQ(v["nodes"].num, 4);
  EXPECT_EQ(v["elements"]["triangle"].num, 2);
  EXPECT_EQ(v["boundary_faces"].num, 4);

  // A tolerance below the gap keeps the copy apart, and its triangle with it.
  v = json_of("clean " + in + " " + out + " --tolerance 1e-12");
  EXPECT_EQ(v["merged_nodes"].num, 0);
  EXPECT_EQ(v["degenerate_elements"].num, 1);
  EXPECT_EQ(v["nodes"].num, 5);
  EXPECT_EQ(v["elements"]["triangle"].num, 3);
}

TEST(Commands, QualityRanksTheWorstAndWritesPerNodeMinima) {
  const std::string sol = tmp_dir() + "/q.sol";
  const value v = json_of("quality " + sample("block.mesh") + " --bins 4 --worst 5 --sol " + sol);
  const value& q = v["quality"];
  ASSERT_EQ(q["histogram"].items.size(), 4u);
  EXPECT_EQ(sum_of(q["histogram"]), 2880);
  const value& w = v["worst"];
  ASSERT_EQ(w.items.size(), 5u);
  EXPECT_EQ(w[0]["quality"].num, q["min"].num);
  for (std::size_t i = 1; i < 5; ++i) EXPECT_LE(w[i - 1]["quality"].num, w[i]["quality"].num);
  EXPECT_EQ(w[0]["nodes"].items.size(), 4u);
  EXPECT_EQ(w[0]["type"].str, "tetrahedron");

  // Solution header "3 1 693 2", then one value per node: each at least the global minimum,
  // the minimum itself at the nodes of the worst element.
  std::istringstream in(slurp(sol));
  int dim, k, n, kind;
  ASSERT_TRUE(in >> dim >> k >> n >> kind);
  EXPECT_EQ(dim, 3);
  EXPECT_EQ(k, 1);
  ASSERT_EQ(n, 693);
  EXPECT_EQ(kind, 2);
  std::vector<double> per_node(n);
  for (auto& x : per_node) ASSERT_TRUE(in >> x);
  for (double x : per_node) EXPECT_GE(x, q["min"].num - 1e-6);
  for (const auto& node : w[0]["nodes"].items) EXPECT_NEAR(per_node[std::size_t(node.num)], q["min"].num, 1e-6);

  EXPECT_EQ(json_of("quality " + sample("block.mesh") + " --worst 0")["worst"].items.size(), 0u);
}

TEST(Commands, BoundaryOfAVolumeIsAClosedSurface) {
  const std::string out = tmp_dir() + "/skin.stl";
  value v = json_of("boundary " + sample("block.mesh") + " " + out);
  EXPECT_EQ(v["elements"]["triangle"].num, 752);
  // Surface nodes of an 11 x 9 x 7 grid of nodes.
  EXPECT_EQ(v["nodes"].num, 11 * 9 * 7 - 9 * 7 * 5);
  v = json_of("info " + out);
  EXPECT_EQ(v["boundary_faces"].num, 0);
  EXPECT_EQ(v["non_manifold_faces"].num, 0);
  EXPECT_EQ(v["subdomains"].num, 1);

  // The open border of the quad plate is a loop of edges.
  v = json_of("boundary " + sample("plate.obj") + " " + tmp_dir() + "/border.vtk");
  EXPECT_EQ(v["elements"]["edge"].num, 120);
  EXPECT_EQ(v["nodes"].num, 120);
}

TEST(Commands, ClipKeepsTheElementsBeyondThePlane) {
  const std::string out = tmp_dir() + "/half.mesh";
  value v = json_of("clip " + sample("block.mesh") + " " + out + " --origin 4.5,0,0 --normal=1,0,0");
  // Cells from x = 5 on: 5 of the 10 layers, 288 tetrahedra each.
  EXPECT_EQ(v["kept_elements"].num, 5 * 288);
  EXPECT_EQ(v["removed_elements"].num, 5 * 288);
  EXPECT_EQ(v["nodes"].num, 6 * 9 * 7);
  v = json_of("info " + out);
  EXPECT_GT(v["bounding_box"]["min"][0].num, 4.5);
  EXPECT_EQ(v["elements"]["tetrahedron"].num, 1440);
  // A plane that no element clears keeps nothing.
  v = json_of("clip " + sample("block.mesh") + " " + out + " --origin 0,0,100 --normal 0,0,1");
  EXPECT_EQ(v["kept_elements"].num, 0);
  EXPECT_EQ(v["nodes"].num, 0);
}

TEST(Commands, EdgesCountsByEulerAndMeasuresTheField) {
  // A tetrahedral ball: V - E + F - T = 1 with F = (4T + boundary) / 2.
  const double V = 693, T = 2880, B = 752, E = V + (4 * T + B) / 2 - T - 1;
  value v = json_of("edges " + sample("block.mesh"));
  EXPECT_EQ(v["edges"].num, E);
  EXPECT_EQ(v["quality"]["count"].num, E);
  EXPECT_NEAR(v["quality"]["mean"].num, 1.0, 1e-12);  // measured in the mean edge length
  EXPECT_EQ(v["shock"]["max"].num, 0.0);              // a uniform field has no shock

  // A uniform size only scales the lengths.
  const value half = json_of("edges " + sample("block.mesh") + " --size 0.5");
  EXPECT_NEAR(half["quality"]["min"].num / half["quality"]["max"].num,
              v["quality"]["min"].num / v["quality"]["max"].num, 1e-12);

  // The same size as metric tensors (1/h^2) I in a tensor solution file measures the same.
  const std::string tensors = tmp_dir() + "/tensors.sol";
  {
    std::ofstream f(tensors);
    f << "3 6 693 2\n";
    for (int j = 0; j < 693; ++j) f << "4 0 4 0 0 4\n";
  }
  const value metric = json_of("edges " + sample("block.mesh") + " --sizes " + tensors);
  for (const char* k : {"min", "max", "mean"})
    EXPECT_NEAR(metric["quality"][k].num, half["quality"][k].num, 1e-12) << k;

  // A varying field from a solution file, sizes 1 + x / 10, against every edge measured here.
  dense2D<double> pos;
  std::vector<dense2D<unsigned>> c(gk::MESH_FILE_TYPES);
  dense1D<int, 16> types;
  ASSERT_EQ(gk::medit_input(sample("block.mesh").c_str(), pos, c.data(), c.data() + c.size(), types, nullptr), 0);
  dense2D<unsigned> edges;
  ASSERT_EQ(gk::copy_edges(c[0], gk::element_type(types[0]), edges), 0);
  std::vector<double> h(pos.cols);
  const std::string sol = tmp_dir() + "/sizes.sol";
  {
    std::ofstream f(sol);
    f.precision(17);
    f << "3 1 " << pos.cols << " 2\n";
    for (unsigned j = 0; j < pos.cols; ++j) f << (h[j] = 1 + pos(0, j) / 10) << ' ';
  }
  double lo = 1e300, hi = 0, sum = 0;
  for (unsigned e = 0; e < edges.cols; ++e) {
    const unsigned a = edges(0, e), b = edges(1, e);
    double d2 = 0, q = 0;
    for (unsigned k = 0; k < 3; ++k) d2 += (pos(k, b) - pos(k, a)) * (pos(k, b) - pos(k, a));
    ASSERT_EQ(gk::edge_quality(std::sqrt(d2), h[a], h[b], q), 0);
    lo = std::min(lo, q);
    hi = std::max(hi, q);
    sum += q;
  }
  v = json_of("edges " + sample("block.mesh") + " --sizes " + sol);
  EXPECT_EQ(v["edges"].num, E);
  EXPECT_EQ(v["quality"]["min"].num, lo);
  EXPECT_EQ(v["quality"]["max"].num, hi);
  EXPECT_NEAR(v["quality"]["mean"].num, sum / E, 1e-12);
  EXPECT_GT(v["shock"]["max"].num, 0.0);

  // Without options the .sol beside a .mesh is the field.
  const std::string copy = tmp_dir() + "/sized.mesh";
  std::ofstream(copy) << slurp(sample("block.mesh"));
  std::ofstream(tmp_dir() + "/sized.sol") << slurp(sol);
  const value beside = json_of("edges " + copy);
  EXPECT_EQ(beside["field"].str, tmp_dir() + "/sized.sol");
  EXPECT_EQ(beside["quality"]["max"].num, hi);

  // Wrong node count and a non-number are refused.
  std::ofstream(sol) << "3 1 5 2\n1 1 1 1 1\n";
  auto r = run("edges " + sample("block.mesh") + " --sizes " + sol);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("693 nodes"), std::string::npos) << r.err;
  std::ofstream(sol) << "3 1 693 2\n1 x\n";
  EXPECT_EQ(run("edges " + sample("block.mesh") + " --sizes " + sol).status, 1);
}

TEST(Commands, VerboseTimesEveryStage) {
  const auto r = run("info " + sample("plate.obj") + " --verbose");
  EXPECT_EQ(r.status, 0);
  for (const char* stage : {"reading", "topology", "shape qualities"})
    EXPECT_NE(r.err.find(std::string("gridkit: ") + stage), std::string::npos) << r.err;
  EXPECT_EQ(run("info " + sample("plate.obj")).err, "");  // quiet by default
}

}  // namespace
