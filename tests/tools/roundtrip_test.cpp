// Round trips of the samples through every format pair the program reads and writes: the file
// the program writes is read back with the library and compared with the source, node by node.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

#include "tools/program.hpp"

namespace {

using namespace program;
namespace gk = kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

struct loaded {
  dense2D<double> pos;
  std::vector<dense2D<unsigned>> conn;
  std::vector<int> types;
};

// Reads by extension with the library, keeping the non-empty connectivities.
bool load(const std::string& file, loaded& m) {
  const std::string ext = file.substr(file.rfind('.') + 1);
  std::vector<dense2D<unsigned>> c;
  int s;
  if (ext == "stl") {
    c.resize(1);
    s = gk::STL_input(file.c_str(), m.pos, c[0]);
    m.types = {gk::ET_TRIA3};
  } else if (ext == "obj") {
    dense2D<double> normals, tex;
    c.resize(2);
    s = gk::WavefrontOBJ_input(file.c_str(), m.pos, normals, tex, c[0], c[1]);
    m.types = {gk::ET_TRIA3, gk::ET_QUAD4};
  } else {
    c.resize(gk::MESH_FILE_TYPES);
    dense1D<int, 16> t;
    s = ext == "mesh" ? gk::medit_input(file.c_str(), m.pos, c.data(), c.data() + c.size(), t, nullptr)
                      : gk::vtk_input(file.c_str(), m.pos, c.data(), c.data() + c.size(), t, nullptr);
    m.types.assign(t.ptr(), t.ptr() + t.size);
  }
  if (s != 0) return false;
  std::vector<int> kept_types;
  for (std::size_t i = 0; i < m.types.size(); ++i)
    if (c[i].cols) {
      m.conn.push_back(c[i]);
      kept_types.push_back(m.types[i]);
    }
  m.types = kept_types;
  return true;
}

// Relative precision of the coordinates each writer keeps.
double precision(const std::string& ext) { return ext == "stl" ? 1e-6 : 1e-5; }

TEST(RoundTrip, EveryReadableWritablePairKeepsTheMesh) {
  struct source {
    const char* file;
    std::vector<std::string> outputs;  // formats that can hold its elements
  } sources[] = {{"part.stl", {"mesh", "vtk", "stl", "obj"}},
                 {"block.mesh", {"mesh", "vtk"}},
                 {"plate.obj", {"mesh", "vtk", "obj"}}};
  for (const auto& src : sources) {
    loaded a;
    ASSERT_TRUE(load(sample(src.file), a)) << src.file;
    for (const auto& ext : src.outputs) {
      const std::string out = tmp_dir() + "/rt_" + src.file + "." + ext;
      const auto r = run("convert " + sample(src.file) + " " + out);
      ASSERT_EQ(r.status, 0) << out << ": " << r.err;
      loaded b;
      ASSERT_TRUE(load(out, b)) << out;
      ASSERT_EQ(b.pos.cols, a.pos.cols) << out;
      ASSERT_EQ(b.types, a.types) << out;
      const double tol = precision(ext);
      for (unsigned j = 0; j < a.pos.cols; ++j)
        for (unsigned k = 0; k < a.pos.rows; ++k) {
          const double x = a.pos(k, j), y = k < b.pos.rows ? b.pos(k, j) : 0.0;
          ASSERT_NEAR(y, x, tol * std::max(1.0, std::fabs(x))) << out << " node " << j;
        }
      for (std::size_t i = 0; i < a.conn.size(); ++i) {
        ASSERT_EQ(b.conn[i].rows, a.conn[i].rows) << out;
        ASSERT_EQ(b.conn[i].cols, a.conn[i].cols) << out;
        for (unsigned j = 0; j < a.conn[i].cols; ++j)
          for (unsigned r2 = 0; r2 < a.conn[i].rows; ++r2)
            ASSERT_EQ(b.conn[i](r2, j), a.conn[i](r2, j)) << out << " element " << j;
      }
    }
    // EnSight is written only: a case file naming its geometry file.
    const std::string cs = tmp_dir() + "/rt_" + src.file + ".case";
    ASSERT_EQ(run("convert " + sample(src.file) + " " + cs).status, 0);
    const std::string geo = slurp(cs.substr(0, cs.size() - 4) + "geo");
    EXPECT_NE(geo.find("coordinates"), std::string::npos) << cs;
    EXPECT_NE(slurp(cs).find("model: rt_" + std::string(src.file) + ".geo"), std::string::npos);
  }
}

TEST(RoundTrip, FormatsThatCannotHoldTheElementsAreRefused) {
  const struct {
    const char* in;
    const char* out;
    const char* why;
  } refused[] = {{"block.mesh", "b.stl", "triangles only"},
                 {"block.mesh", "b.obj", "triangles and quadrangles only"},
                 {"plate.obj", "p.stl", "triangles only"}};
  for (const auto& c : refused) {
    const std::string out = tmp_dir() + "/" + c.out;
    std::remove(out.c_str());
    const auto r = run("convert " + sample(c.in) + " " + out);
    EXPECT_EQ(r.status, 1) << c.out;
    EXPECT_NE(r.err.find(c.why), std::string::npos) << r.err;
    EXPECT_TRUE(slurp(out).empty()) << c.out;
  }
}

}  // namespace
