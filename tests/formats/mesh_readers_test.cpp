#include <gtest/gtest.h>

#include "common/meshgen.hpp"
#include "formats/file_util.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;
using testfiles::mat;
using testfiles::types;

namespace {
struct read_result {
  int status;
  dense2D<double> pos;
  dense2D<unsigned> connect[MESH_FILE_TYPES];
  dense1D<int, 16> types;
  dense1D<unsigned, 16> refs[MESH_FILE_TYPES];
  // Reads `text` (written to a scratch file first unless null) or the file at `path`; stale
  // nodes in `pos` must be replaced or emptied.
  read_result(bool vtk, const std::string& path, const char* text = nullptr) : pos(3, 2) {
    if (text) testfiles::write(path, text);
    status = vtk ? vtk_input(path.c_str(), pos, connect, connect + MESH_FILE_TYPES, types, refs)
                 : medit_input(path.c_str(), pos, connect, connect + MESH_FILE_TYPES, types, refs);
  }
};
}  // namespace

TEST(MeshReaders, MeditRoundTripKeepsTypesReferencesAndCoordinates) {
  dense2D<double> pos;
  dense2D<unsigned> tets;
  meshgen::tet_cube(2, pos, tets, 0.1);
  const dense2D<unsigned> tris = mat<unsigned>(3, {0, 1, 2, 2, 1, 3});
  const std::string path = testfiles::path("round.mesh");
  ASSERT_EQ(medit_output(path.c_str(), pos, tets, tris, ET_TETRA4, ET_TRIA3), 0);
  read_result r(false, path);
  ASSERT_EQ(r.status, 0);
  EXPECT_TRUE(r.types == types({ET_TRIA3, ET_TETRA4}));
  EXPECT_TRUE(r.connect[0] == tris && r.connect[1] == tets);
  EXPECT_EQ(r.refs[0][1], 1u);
  EXPECT_EQ(r.refs[1][0], 0u);
  EXPECT_EQ(r.connect[2].cols, 0u);
  ASSERT_EQ(r.pos.cols, pos.cols);
  for (unsigned j = 0; j < pos.cols; ++j)
    for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(r.pos(i, j), pos(i, j), 1e-6 * (1 + pos(i, j)));
}

TEST(MeshReaders, MeditSectionsCommentsAndDegenerateHexahedra) {
  read_result r(false, testfiles::path("hand.mesh"),
                "MeshVersionFormatted 2\r\n# comment line\nDimension\n2\nVertices 4\n0 0 1\n1 0 1\n1 1 1\n0 1 7\n"
                "Corners 1 1\nTriangles 1\n1 2 3 5\nTriangles\n1\n1 3 4 6  # trailing comment\n"
                "Hexahedra 1\n1 2 3 4 4 4 4 4 9\n");
  ASSERT_EQ(r.status, 0);  // "End" is optional
  EXPECT_EQ(r.pos.rows, 2u);
  EXPECT_TRUE(r.types == types({ET_TRIA3, ET_HEXA8}));  // degenerate hexahedra stay hexahedra
  EXPECT_EQ(r.connect[0].cols, 2u);                     // repeated sections append
  EXPECT_EQ(r.connect[0](2, 1), 3u);
  EXPECT_EQ(r.refs[0][1], 6u);
  EXPECT_EQ(r.refs[1][0], 9u);
}

TEST(MeshReaders, MalformedFilesFailWithEmptyOutputs) {
  const char* bad[] = {
      "",
      "MeshVersionFormatted 3\nDimension 3\n",
      "MeshVersionFormatted 1\nDimension 3\nVertices 2\n0 0 0 0\n",              // truncated
      "MeshVersionFormatted 1\nDimension 3\nVertices 2147483647\n0 0 0 0\n",     // count with no data
      "MeshVersionFormatted 1\nDimension 3\nVertices 1\n0 0 0 0\nEdges 1\n1 2 0\n",  // node beyond
      "MeshVersionFormatted 1\nDimension 3\nVertices 1\n0 0 0 0\nEdges 1\n0 1 0\n",  // node 0
      "MeshVersionFormatted 1\nDimension 3\nVertices 1\n0 0 x 0\n",
      "MeshVersionFormatted 1\nDimension 3\nBogus 1\n",
      "MeshVersionFormatted 1\nDimension 4\n",
      "MeshVersionFormatted 1\nVertices 1\n0 0 0 0\n",  // no dimension
  };
  for (const char* text : bad) {
    read_result r(false, testfiles::path("bad.mesh"), text);
    EXPECT_EQ(r.status, -4) << text;
    EXPECT_TRUE(r.pos.cols == 0 && r.types.size == 0);
  }
  read_result r(false, testfiles::directory() + "/missing/none.mesh");
  EXPECT_EQ(r.status, -1);
  dense2D<unsigned> one[1];
  EXPECT_EQ(medit_input(testfiles::path("missing.mesh").c_str(), r.pos, one + 1, one, r.types, nullptr), -2);
  // Too few connectivities for the types in the file.
  const std::string path = testfiles::path("two.mesh");
  testfiles::write(path, "MeshVersionFormatted 1\nDimension 3\nVertices 3\n0 0 0 0\n1 0 0 0\n0 1 0 0\n"
                         "Edges 1\n1 2 0\nTriangles 1\n1 2 3 0\nEnd\n");
  EXPECT_EQ(medit_input(path.c_str(), r.pos, one, one + 1, r.types, nullptr), -3);
}

TEST(MeshReaders, VtkRoundTripFoldsHigherOrderNodesAndUndoesTheSwap) {
  dense2D<double> pos(3, 14, 0.0);
  for (unsigned j = 0; j < 14; ++j) pos(0, j) = 0.25 * j;
  dense2D<unsigned> mats[3] = {dense2D<unsigned>(10, 1), dense2D<unsigned>(9, 1), dense2D<unsigned>(4, 2)};
  for (unsigned i = 0; i < 10; ++i) mats[0](i, 0) = i;
  for (unsigned i = 0; i < 9; ++i) mats[1](i, 0) = 13 - i;
  for (unsigned k = 0; k < 8; ++k) mats[2](k % 4, k / 4) = (k * 5) % 14;
  const std::string path = testfiles::path("round.vtk");
  ASSERT_EQ(vtk_output(path.c_str(), pos, mats, mats + 3, types({ET_TETRA10, ET_QUAD9, ET_TETRA4})), 0);
  read_result r(true, path);
  ASSERT_EQ(r.status, 0);
  EXPECT_TRUE(r.types == types({ET_QUAD9, ET_TETRA4, ET_TETRA10}));
  EXPECT_TRUE(r.connect[0] == mats[1] && r.connect[1] == mats[2] && r.connect[2] == mats[0]);
  EXPECT_EQ(r.pos(0, 13), 3.25);

  const std::string head = "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\n";
  const std::string bad[] = {
      "# vtk DataFile Version 2.0\nx\nBINARY\n",
      head + "POINTS 4000000000 double\n0 0 0\n",
      head + "POINTS 1 double\n0 0 0\nCELLS 1 3\n2 0 1\nCELL_TYPES 1\n3\n",            // node 1 does not exist
      head + "POINTS 2 double\n0 0 0 1 1 1\nCELLS 1 3\n5 0 1\nCELL_TYPES 1\n3\n",      // count runs past the list
      head + "POINTS 2 double\n0 0 0 1 1 1\nCELLS 1 3\n2 0 1\nCELL_TYPES 2\n3 3\n",    // more types than cells
  };
  for (const std::string& text : bad) {
    read_result b(true, testfiles::path("bad.vtk"), text.c_str());
    EXPECT_EQ(b.status, -4) << text;
    EXPECT_EQ(b.pos.cols, 0u);
  }
}
