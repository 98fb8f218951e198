// End-to-end runs of the gridkit program on the shipped samples.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tools/program.hpp"

namespace {

using namespace program;

TEST(Cli, VersionHelpAndUsage) {
  auto r = run("--version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "gridkit 4.4.1\n");
  r = run("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("convert IN OUT"), std::string::npos);
  EXPECT_EQ(run("").status, 2);
  EXPECT_EQ(run("frobnicate").status, 2);
  EXPECT_EQ(run("info").status, 2);
  EXPECT_EQ(run("convert " + sample("block.mesh")).status, 2);
}

TEST(Cli, InfoOnSurfaces) {
  auto r = run("info " + sample("part.stl") + " --json");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\"boundary_faces\": 0,"), std::string::npos) << r.out;  // closed surface
  EXPECT_NE(r.out.find("\"non_manifold_faces\": 0,"), std::string::npos) << r.out;

  r = run("info " + sample("plate.obj"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("864 quadrangle"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("boundary faces      120"), std::string::npos) << r.out;  // 2 * (36 + 24)
}

TEST(Cli, EveryCommandHasHelpAndRejectsBadValues) {
  for (const char* cmd : {"info", "convert", "clean", "quality", "boundary", "clip", "edges"}) {
    const auto r = run(std::string(cmd) + " --help");
    EXPECT_EQ(r.status, 0) << cmd;
    EXPECT_EQ(r.out.rfind(std::string("usage: gridkit ") + cmd, 0), 0u) << cmd << ": " << r.out;
  }
  const std::string m = sample("block.mesh"), o = tmp_dir() + "/bad_value_out.mesh";
  const char* bad[] = {"clean " /*m o*/ "--tolerance -1",
                       "clean --tolerance nan",
                       "clean --tolerance 1e999",
                       "clean --tolerance",
                       "quality --bins 0",
                       "quality --bins 12x",
                       "quality --worst -3",
                       "quality --sol out.txt",
                       "clip --origin 1,2,3,4 --normal 1,0,0",
                       "clip --origin 1,2,3 --normal 0,0,0",
                       "clip --origin 1,2,3",
                       "clip --origin 1,,3 --normal 1,0,0",
                       "edges --size 0",
                       "edges --size -2",
                       "edges --size 1 --sizes f.sol",
                       "edges --sizes f.txt",
                       "info --frobnicate"};
  std::remove(o.c_str());
  for (const char* b : bad) {
    std::string cmd = b;
    const auto sp = cmd.find(' ');
    const std::string name = cmd.substr(0, sp);
    const bool two = name == "clean" || name == "clip";
    cmd = name + " " + m + (two ? " " + o : "") + cmd.substr(sp);
    const auto r = run(cmd);
    EXPECT_EQ(r.status, 2) << cmd;
    EXPECT_EQ(count_lines(r.err), 2u) << cmd << ": " << r.err;  // the reason, then the usage line
    EXPECT_NE(r.err.find("usage: gridkit " + name), std::string::npos) << r.err;
  }
  EXPECT_TRUE(slurp(o).empty()) << "a usage error wrote the output";
}

TEST(Cli, FailedReadsAndWritesLeaveOutputsAlone) {
  const std::string t = tmp_dir();
  const std::string keep = t + "/keep.mesh";
  struct bad_input {
    const char* name;
    const char* text;
    const char* why;
  } inputs[] = {
      {"trunc.stl", "solid x\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n", "not a valid STL"},
      {"short.stl", "abc", "too short for a binary STL header"},
      {"bad.obj", "v 0 0 0\nv 1 0 0\nf 1 2 7\n", "does not exist"},
      {"bad.vtk", "# vtk DataFile Version 2.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 2 double\n0 0\n",
       "not a valid VTK"},
      {"bad.mesh", "MeshVersionFormatted 1\nDimension 3\nVertices\n1\n0 0 0 0\nTriangles\n1\n1 1 2 0\n",
       "not a valid MEDIT"},
  };
  for (const auto& in : inputs) {
    const std::string file = t + "/" + in.name;
    std::ofstream(file) << in.text;
    for (const char* cmd : {"convert", "clean", "boundary"}) {
      std::ofstream(keep) << "keep";
      const auto r = run(std::string(cmd) + " " + file + " " + keep);
      EXPECT_EQ(r.status, 1) << cmd << " " << in.name;
      EXPECT_EQ(count_lines(r.err), 1u) << r.err;
      EXPECT_NE(r.err.find(in.name), std::string::npos) << r.err;
      EXPECT_NE(r.err.find(in.why), std::string::npos) << r.err;
      EXPECT_EQ(slurp(keep), "keep") << cmd << " " << in.name;
    }
    const auto r = run("quality " + file);
    EXPECT_EQ(r.status, 1) << in.name;
  }
  auto r = run("convert " + t + "/missing.stl " + keep);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("missing.stl: no such file"), std::string::npos) << r.err;
  r = run("info " + t + "/x.unknown");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("unknown file extension"), std::string::npos);
  // A directory cannot be read; a missing folder cannot be written.
  const std::string dir = t + "/folder.mesh";
  std::system(("mkdir -p \"" + dir + "\"").c_str());
  EXPECT_EQ(run("info " + dir).status, 1);
  r = run("convert " + sample("block.mesh") + " " + t + "/no/such/dir/out.vtk");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot create the file"), std::string::npos) << r.err;
  r = run("edges " + sample("block.mesh") + " --sizes " + t + "/missing.sol");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("missing.sol"), std::string::npos) << r.err;
}

}  // namespace
