#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"

using namespace kvo::gridkit;
using kvo::dense1D;
using kvo::dense2D;

namespace {
std::string tmp(const char* name) {
  const char* dir = std::getenv("GRIDKIT_TEST_TMP");
  return std::string(dir ? dir : "/tmp") + "/" + name;
}
void write(const std::string& path, const char* text) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fputs(text, f);
  std::fclose(f);
}
struct read_result {
  int status;
  dense2D<double> pos;
  dense2D<unsigned> connect[MESH_FILE_TYPES];
  dense1D<int, 16> types;
  dense1D<unsigned, 16> refs[MESH_FILE_TYPES];
};
void read(bool vtk, const std::string& path, read_result& r) {
  r.status = vtk ? vtk_input(path.c_str(), r.pos, r.connect, r.connect + MESH_FILE_TYPES, r.types, r.refs)
                 : medit_input(path.c_str(), r.pos, r.connect, r.connect + MESH_FILE_TYPES, r.types, r.refs);
}
}  // namespace

TEST(MeshReaders, MeditRoundTripKeepsTypesReferencesAndCoordinates) {
  dense2D<double> pos;
  dense2D<unsigned> tets;
  meshgen::tet_cube(2, pos, tets, 0.1);
  dense2D<unsigned> tris(3, 2);
  const unsigned t[6] = {0, 1, 2, 2, 1, 3};
  for (unsigned k = 0; k < 6; ++k) tris(k % 3, k / 3) = t[k];
  const std::string path = tmp("round.mesh");
  ASSERT_EQ(medit_output(path.c_str(), pos, tets, tris, ET_TETRA4, ET_TRIA3), 0);
  read_result r;
  read(false, path, r);
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.types.size, 2u);
  EXPECT_EQ(r.types[0], int(ET_TRIA3));
  EXPECT_EQ(r.types[1], int(ET_TETRA4));
  EXPECT_TRUE(r.connect[0] == tris);
  EXPECT_TRUE(r.connect[1] == tets);
  EXPECT_EQ(r.refs[0][1], 1u);
  EXPECT_EQ(r.refs[1][0], 0u);
  EXPECT_EQ(r.connect[2].cols, 0u);
  ASSERT_EQ(r.pos.cols, pos.cols);
  for (unsigned j = 0; j < pos.cols; ++j)
    for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(r.pos(i, j), pos(i, j), 1e-6 * (1 + pos(i, j)));
}

TEST(MeshReaders, MeditSectionsCommentsAndDegenerateHexahedra) {
  const std::string path = tmp("hand.mesh");
  write(path,
        "MeshVersionFormatted 2\r\n# comment line\nDimension\n2\nVertices 4\n0 0 1\n1 0 1\n1 1 1\n0 1 7\n"
        "Corners 1 1\nTriangles 1\n1 2 3 5\nTriangles\n1\n1 3 4 6  # trailing comment\n"
        "Hexahedra 1\n1 2 3 4 4 4 4 4 9\n");
  read_result r;
  read(false, path, r);
  ASSERT_EQ(r.status, 0);  // "End" is optional
  EXPECT_EQ(r.pos.rows, 2u);
  ASSERT_EQ(r.types.size, 2u);
  EXPECT_EQ(r.types[0], int(ET_TRIA3));
  EXPECT_EQ(r.connect[0].cols, 2u);  // repeated sections append
  EXPECT_EQ(r.connect[0](2, 1), 3u);
  EXPECT_EQ(r.refs[0][1], 6u);
  EXPECT_EQ(r.types[1], int(ET_HEXA8));  // degenerate hexahedra stay hexahedra
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
    const std::string path = tmp("bad.mesh");
    write(path, text);
    read_result r;
    r.pos.resize(3, 2);
    read(false, path, r);
    EXPECT_EQ(r.status, -4) << text;
    EXPECT_EQ(r.pos.cols, 0u);
    EXPECT_EQ(r.types.size, 0u);
  }
  read_result r;
  read(false, tmp("missing/none.mesh"), r);
  EXPECT_EQ(r.status, -1);
  dense2D<unsigned> one[1];
  EXPECT_EQ(medit_input(tmp("missing.mesh").c_str(), r.pos, one + 1, one, r.types, nullptr), -2);
  // Too few connectivities for the types in the file.
  const std::string path = tmp("two.mesh");
  write(path, "MeshVersionFormatted 1\nDimension 3\nVertices 3\n0 0 0 0\n1 0 0 0\n0 1 0 0\n"
              "Edges 1\n1 2 0\nTriangles 1\n1 2 3 0\nEnd\n");
  EXPECT_EQ(medit_input(path.c_str(), r.pos, one, one + 1, r.types, nullptr), -3);
}

TEST(MeshReaders, VtkRoundTripFoldsHigherOrderNodesAndUndoesTheSwap) {
  dense2D<double> pos(3, 14, 0.0);
  for (unsigned j = 0; j < 14; ++j) pos(0, j) = 0.25 * j;
  dense2D<unsigned> tet10(10, 1), quad9(9, 1), tet4(4, 2);
  for (unsigned i = 0; i < 10; ++i) tet10(i, 0) = i;
  for (unsigned i = 0; i < 9; ++i) quad9(i, 0) = 13 - i;
  for (unsigned k = 0; k < 8; ++k) tet4(k % 4, k / 4) = (k * 5) % 14;
  dense2D<unsigned> mats[3] = {tet10, quad9, tet4};
  dense1D<int, 16> types(3);
  types[0] = ET_TETRA10;
  types[1] = ET_QUAD9;
  types[2] = ET_TETRA4;
  const std::string path = tmp("round.vtk");
  ASSERT_EQ(vtk_output(path.c_str(), pos, mats, mats + 3, types), 0);
  read_result r;
  read(true, path, r);
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.types.size, 3u);
  EXPECT_EQ(r.types[0], int(ET_QUAD9));
  EXPECT_EQ(r.types[1], int(ET_TETRA4));
  EXPECT_EQ(r.types[2], int(ET_TETRA10));
  EXPECT_TRUE(r.connect[0] == quad9);
  EXPECT_TRUE(r.connect[1] == tet4);
  EXPECT_TRUE(r.connect[2] == tet10);
  EXPECT_EQ(r.pos(0, 13), 3.25);

  const char* bad[] = {
      "# vtk DataFile Version 2.0\nx\nBINARY\n",
      "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 4000000000 double\n0 0 0\n",
      "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 1 double\n0 0 0\n"
      "CELLS 1 3\n2 0 1\nCELL_TYPES 1\n3\n",  // node 1 does not exist
      "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 2 double\n0 0 0 1 1 1\n"
      "CELLS 1 3\n5 0 1\nCELL_TYPES 1\n3\n",  // count runs past the list
      "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 2 double\n0 0 0 1 1 1\n"
      "CELLS 1 3\n2 0 1\nCELL_TYPES 2\n3 3\n",  // more types than cells
  };
  for (const char* text : bad) {
    const std::string p = tmp("bad.vtk");
    write(p, text);
    read_result b;
    read(true, p, b);
    EXPECT_EQ(b.status, -4) << text;
    EXPECT_EQ(b.pos.cols, 0u);
  }
}
