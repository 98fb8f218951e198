// End-to-end runs of the gridkit program on the shipped samples.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

struct run_result {
  int status = -1;
  std::string out, err;
};

std::string tmp_dir() {
  const char* t = std::getenv("GRIDKIT_TEST_TMP");
  return t ? t : "/tmp";
}

std::string slurp(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

run_result run(const std::string& args) {
  const std::string err_file = tmp_dir() + "/cli_test_stderr.txt";
  const std::string cmd = std::string("\"") + GRIDKIT_PROGRAM + "\" " + args + " 2>\"" + err_file + "\"";
  run_result r;
  std::FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  const int w = pclose(p);
  r.status = WIFEXITED(w) ? WEXITSTATUS(w) : -1;
  r.err = slurp(err_file);
  return r;
}

std::string sample(const char* name) { return std::string(GRIDKIT_SOURCE_DIR) + "/samples/" + name; }

unsigned count_lines(const std::string& s) {
  unsigned n = 0;
  for (char c : s) n += c == '\n';
  return n;
}

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
  EXPECT_EQ(run("info " + sample("block.mesh") + " --bogus").status, 2);
  EXPECT_EQ(run("convert " + sample("block.mesh")).status, 2);
}

TEST(Cli, InfoOnSamples) {
  auto r = run("info " + sample("block.mesh") + " --json");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\"nodes\": 693,"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"elements\": {\"tetrahedron\": 2880}"), std::string::npos) << r.out;
  // 10x8x6 cubes: 2 triangles per boundary square.
  EXPECT_NE(r.out.find("\"boundary_faces\": 752,"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"subdomains\": 1"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"invalid\": 0"), std::string::npos) << r.out;

  r = run("info " + sample("part.stl") + " --json");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\"boundary_faces\": 0,"), std::string::npos) << r.out;  // closed surface
  EXPECT_NE(r.out.find("\"non_manifold_faces\": 0,"), std::string::npos) << r.out;

  r = run("info " + sample("plate.obj"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("864 quadrangle"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("boundary faces      120"), std::string::npos) << r.out;  // 2 * (36 + 24)
}

TEST(Cli, ConvertRoundTripsKeepCounts) {
  const std::string t = tmp_dir();
  struct trip {
    const char* in;
    const char* mid;
    const char* counts;
  } trips[] = {{"block.mesh", "block.vtk", "\"nodes\": 693"},
               {"part.stl", "part.mesh", "\"elements\": {\"triangle\": 4512}"},
               {"part.stl", "part.obj", "\"elements\": {\"triangle\": 4512}"},
               {"plate.obj", "plate.mesh", "\"elements\": {\"quadrangle\": 864}"},
               {"plate.obj", "plate.vtk", "\"nodes\": 925"}};
  for (const auto& tr : trips) {
    const std::string mid = t + "/rt_" + tr.mid;
    auto r = run("convert " + sample(tr.in) + " " + mid);
    ASSERT_EQ(r.status, 0) << tr.mid << ": " << r.err;
    r = run("info --json " + mid);
    ASSERT_EQ(r.status, 0) << tr.mid << ": " << r.err;
    EXPECT_NE(r.out.find(tr.counts), std::string::npos) << tr.mid << ": " << r.out;
  }
}

TEST(Cli, ErrorsAreOneLineAndWriteNothing) {
  const std::string t = tmp_dir();
  const std::string out = t + "/never_written.mesh";
  std::remove(out.c_str());
  auto r = run("convert " + t + "/missing.stl " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(count_lines(r.err), 1u) << r.err;
  EXPECT_NE(r.err.find("missing.stl: no such file"), std::string::npos) << r.err;
  EXPECT_TRUE(slurp(out).empty());

  const std::string bad = t + "/malformed.mesh";
  std::ofstream(bad) << "MeshVersionFormatted 1\nDimension 3\nVertices\n5\n1 2 3 0\n";
  r = run("convert " + bad + " " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(count_lines(r.err), 1u) << r.err;
  EXPECT_NE(r.err.find("malformed.mesh"), std::string::npos) << r.err;
  std::ifstream probe(out);
  EXPECT_FALSE(probe.good());

  r = run("info " + t + "/x.unknown");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("unknown file extension"), std::string::npos);
  r = run("convert " + sample("block.mesh") + " " + t + "/block.stl");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("triangles only"), std::string::npos) << r.err;
}

}  // namespace
