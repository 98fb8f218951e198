#include <gtest/gtest.h>

#include <tuple>

#include "formats/file_util.hpp"

using namespace kvo;
using namespace kvo::gridkit;
namespace tf = testfiles;
using tf::mat;

namespace {

struct obj_data {
  dense2D<double> pos, normals, tex;
  dense2D<unsigned> trias, quads;
  int read(const std::string& text) {
    const std::string p = tf::path("in.obj");
    tf::write(p, text);
    return WavefrontOBJ_input(p.c_str(), pos, normals, tex, trias, quads);
  }
};

}  // namespace

TEST(ObjOutput, TwoDimensionalMeshWithNormalsTexturesAndBoth) {
  const dense2D<double> pos = mat<double>(2, {0.5, -2, 1e-300, 3});
  const dense2D<double> nrm = mat<double>(3, {0, 0, 1, 0, 1, 0});
  const dense2D<double> tex = mat<double>(2, {0.25, 0.75, 1, 0});
  const dense2D<unsigned> tri = mat<unsigned>(3, {0, 1, 1}), quad = mat<unsigned>(4, {1, 0, 0, 1}), none;
  const std::string v =
      " v 5.00000000e-01 -2.00000000e+00 0.00000000e+00 \n v 1.00000000e-300 3.00000000e+00 0.00000000e+00 \n";
  const std::string vt = " vt 2.50000000e-01 7.50000000e-01 \n vt 1.00000000e+00 0.00000000e+00 \n";
  const std::string vn = " vn 0.00000000e+00 0.00000000e+00 1.00000000e+00 \n"
                         " vn 0.00000000e+00 1.00000000e+00 0.00000000e+00 \n";
  const std::string path = tf::path("out.obj");
  ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, dense2D<double>(), dense2D<double>(), tri, quad), 0);
  EXPECT_EQ(tf::read(path), v + " f 1// 2// 2// \n f 2// 1// 1// 2// \n");
  ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, nrm, dense2D<double>(), tri, none), 0);
  EXPECT_EQ(tf::read(path), v + vn + " f 1//1 2//2 2//2 \n");
  ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, dense2D<double>(), tex, none, quad), 0);
  EXPECT_EQ(tf::read(path), v + vt + " f 2/2/ 1/1/ 1/1/ 2/2/ \n");
  ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, nrm, tex, tri, none), 0);
  EXPECT_EQ(tf::read(path), v + vt + vn + " f 1/1/1 2/2/2 2/2/2 \n");
  // Views whose leading dimension exceeds their rows.
  dense2D<double> wide(4, 2, 5.0);
  dense2D<unsigned> tall(6, 1, 9u);
  for (unsigned k = 0; k < 4; ++k) wide(k % 2, k / 2) = pos(k % 2, k / 2), tall(k + 2, 0) = quad(k, 0);
  ASSERT_EQ(WavefrontOBJ_output(path.c_str(), wide.sub_matrix(0, 0, 2, 2), dense2D<double>(), dense2D<double>(), none,
                                tall.sub_matrix(2, 0, 4, 1)), 0);
  EXPECT_EQ(tf::read(path), v + " f 2// 1// 1// 2// \n");
}

TEST(ObjOutput, ChecksInOrderAfterTheFileIsCreated) {
  const dense2D<double> pos(3, 2, 0.0), bad_pos(4, 2, 0.0), n(3, 2, 0.0), t(2, 2, 0.0), n1(3, 1, 0.0), t3(3, 2, 0.0), no;
  const dense2D<unsigned> tri(3, 1, 1u), quad(4, 1, 0u), tri2(2, 1, 0u), far = mat<unsigned>(3, {0, 1, 7}), none;
  const std::string path = tf::path("checks.obj");
  using args = std::tuple<const dense2D<double>*, const dense2D<double>*, const dense2D<double>*,
                          const dense2D<unsigned>*, const dense2D<unsigned>*, int>;
  for (auto [p, nn, tt, f3, f4, status] : std::initializer_list<args>{
           {&bad_pos, &n1, &t3, &tri2, &tri2, -2}, {&pos, &n1, &t3, &tri2, &tri2, -3}, {&pos, &n, &t3, &tri2, &tri2, -4},
           {&pos, &n, &t, &tri2, &tri2, -5},       {&pos, &n, &t, &quad, &quad, -5},  {&pos, &n, &t, &tri, &tri, -6},
           {&pos, &n, &t, &far, &quad, 0},  // node numbers are written, not checked against the nodes
           {&pos, &no, &no, &none, &none, 0}}) {
    tf::write(path, "old");
    EXPECT_EQ(WavefrontOBJ_output(path.c_str(), *p, *nn, *tt, *f3, *f4), status);
    EXPECT_EQ(tf::read(path).empty(), status != 0);
  }
  EXPECT_EQ(WavefrontOBJ_output(tf::in_missing_folder().c_str(), bad_pos, n, t, tri, quad), -1);
  EXPECT_EQ(WavefrontOBJ_output(nullptr, pos, tri, ET_TRIA3), -1);
  if (std::FILE* f = std::fopen("/dev/full", "w")) {  // every write fails there
    std::fclose(f);
    EXPECT_EQ(WavefrontOBJ_output("/dev/full", dense2D<double>(3, 20000, 1.0), none, ET_NONE), -1);
  }
}

TEST(ObjOutput, WrapperFormsRouteConnectivitiesByType) {
  const dense2D<double> pos = mat<double>(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0});
  const dense2D<unsigned> t1 = mat<unsigned>(3, {0, 1, 2}), t2 = mat<unsigned>(3, {1, 3, 2});
  const dense2D<unsigned> q = mat<unsigned>(4, {0, 1, 3, 2});
  const std::string path = tf::path("wrap.obj"), nodes = " v 0.00000000e+00 0.00000000e+00 0.00000000e+00 \n"
      " v 1.00000000e+00 0.00000000e+00 0.00000000e+00 \n v 0.00000000e+00 1.00000000e+00 0.00000000e+00 \n"
      " v 1.00000000e+00 1.00000000e+00 0.00000000e+00 \n";
  auto written = [&](int status, const std::string& faces) {
    ASSERT_EQ(status, 0);
    EXPECT_EQ(tf::read(path), nodes + faces);
  };
  written(WavefrontOBJ_output(path.c_str(), pos, t1, ET_TRIA3), " f 1// 2// 3// \n");
  written(WavefrontOBJ_output(path.c_str(), pos, q, ET_QUAD4), " f 1// 2// 4// 3// \n");
  written(WavefrontOBJ_output(path.c_str(), pos, q, ET_TETRA4), "");
  written(WavefrontOBJ_output(path.c_str(), pos, t1, t2, ET_TRIA3, ET_TRIA3), " f 1// 2// 3// \n f 2// 4// 3// \n");
  written(WavefrontOBJ_output(path.c_str(), pos, q, t2, ET_QUAD4, ET_TRIA3), " f 2// 4// 3// \n f 1// 2// 4// 3// \n");
  written(WavefrontOBJ_output(path.c_str(), pos, q, t2, ET_EDGE2, ET_TRIA3), " f 2// 4// 3// \n");
  EXPECT_EQ(WavefrontOBJ_output(path.c_str(), pos, t1, q, ET_TRIA3, ET_TRIA3), -5);
}

TEST(ObjInput, LinesKeywordsAndReferences) {
  obj_data d;
  ASSERT_EQ(d.read("# comment\r\nv 1 2 3\r\n  v 4 5 6 7\n\nvp 1\nvn 0 0 1\nvt 0.5 0.25\nvt 1 2 3\n"
                   "vt 0 1\ng group\nusemtl m\nf 1 2 3\nf 1/1 2/2/1 3//1 -1\nf 1 2 3 1 2\nf 0 1 2\n"
                   "f +2 1 2\nl 1 2\nvn 1 0 0"),
            0);
  EXPECT_TRUE(d.pos == mat<double>(3, {1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(d.normals == mat<double>(3, {0, 0, 1, 1, 0, 0}));
  EXPECT_TRUE(d.tex == mat<double>(2, {0.5, 0.25, 0, 1}));  // the 3-value line is dropped
  EXPECT_TRUE(d.trias == mat<unsigned>(3, {0, 1, 2, 2, 0, 1, 1, 0, 1}));
  EXPECT_TRUE(d.quads == mat<unsigned>(4, {0, 1, 2, 0xFFFFFFFEu}));
  ASSERT_EQ(d.read("v 0 0 0\nv 1 0 0\nv 0 1 0\n"), 0);
  EXPECT_TRUE(d.trias.is_empty() && d.quads.is_empty() && d.normals.is_empty() && d.tex.is_empty());
}

TEST(ObjInput, FailuresKeepWhatWasReadBefore) {
  const std::string head = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  const char* bad[] = {"v 1 2\n",       "v 1 2 x 4\n",  "vn 1 2\n",     "vn 1 2 3 4\n",  "vt\n",
                       "vt 1 2 3 4\n",  "f 1/1 2/1 3\n", "f 1//1 2 3\n", "f 1 2a 3\n",    "f 1 2/x 3\n",
                       "f 1 2//x 3\n",  "f 1/2/3/4 2 3\n", "f a 2 3\n",   "f 1 2 99999999999\n", "f 1 2 3 4 5 6/6\n"};
  obj_data d;
  for (const char* line : bad) {
    ASSERT_EQ(d.read(head + line + "v 9 9 9\nf 1 2 3\n"), -2) << line;
    EXPECT_EQ(d.pos.cols, 3u) << line;
    EXPECT_EQ(d.trias.cols, 1u) << line;
  }
  EXPECT_EQ(d.read("vt 0 0\nvn 0 0 1\nf 1/1/1 1/1/1 1/1/1\nv 5 5 5 trailing # words"), 0);
  EXPECT_EQ(d.trias(0, 0), 0u);
  EXPECT_EQ(d.pos(0, 0), 5.0);
  EXPECT_EQ(d.read("v 1 1 1\nv inf -nan 0x10\n"), 0);
  EXPECT_EQ(d.pos(2, 1), 16.0);
  d.pos = dense2D<double>(3, 3, 1.0);
  EXPECT_EQ(WavefrontOBJ_input(tf::path("missing.obj").c_str(), d.pos, d.normals, d.tex, d.trias, d.quads), -1);
  EXPECT_TRUE(d.pos.is_empty());
}
