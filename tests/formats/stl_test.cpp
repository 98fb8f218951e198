#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

#include "common/meshgen.hpp"
#include "formats/text_input.hpp"

using namespace kvo;
using namespace kvo::gridkit;

namespace {

std::string tmp(const std::string& name) {
  const char* d = std::getenv("GRIDKIT_TEST_TMP");
  return std::string(d ? d : "/tmp") + "/" + name;
}
void put_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
std::string get_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
std::string fmt(const char* f, double a, double b, double c) {
  char buf[256];
  std::snprintf(buf, sizeof buf, f, a, b, c);
  return buf;
}
std::string ascii_facet(const double (&v)[3][3], const char* num = "%.17g %.17g %.17g") {
  std::string s = "facet normal 0 0 1\nouter loop\n";
  for (auto& p : v) s += "vertex " + fmt(num, p[0], p[1], p[2]) + "\n";
  return s + "endloop\nendfacet\n";
}
std::string binary_stl(const std::vector<std::array<float, 9>>& facets, int count) {
  std::string s(80, '\0');
  s.append(reinterpret_cast<const char*>(&count), 4);
  for (auto& f : facets) {
    s.append(12, '\0');
    s.append(reinterpret_cast<const char*>(f.data()), 36);
    s.append(2, '\0');
  }
  return s;
}
int read(const std::string& path, dense2D<double>& pos, dense2D<unsigned>& tri) {
  return STL_input(path.c_str(), pos, tri);
}

}  // namespace

// ---- writers

TEST(StlOutput, AsciiBytesTwoDimensionalAndFlatNormal) {
  dense2D<double> pos(2, 3);
  pos(0, 0) = 0; pos(1, 0) = 0; pos(0, 1) = 2; pos(1, 1) = 0; pos(0, 2) = 0; pos(1, 2) = -1.25e-7;
  dense2D<unsigned> tri(3, 2);
  tri(0, 0) = 0; tri(1, 0) = 1; tri(2, 0) = 2;
  tri(0, 1) = 1; tri(1, 1) = 1; tri(2, 1) = 2;  // a collapsed facet: normal (0, 0, 0)
  const std::string path = tmp("a2d.stl");
  ASSERT_EQ(STL_output(path.c_str(), pos, tri, true), 0);
  std::string want = "solid KVO\n";
  const double n[2][3] = {{0, 0, -1}, {0, 0, 0}};
  for (int e = 0; e < 2; ++e) {
    want += "   facet normal " + fmt("%le %le %le", n[e][0], n[e][1], n[e][2]) + "\n      outer loop\n";
    for (int k = 0; k < 3; ++k) {
      const unsigned j = tri(k, e);
      want += "         vertex " + fmt("%le %le %le", pos(0, j), pos(1, j), 0.0) + "\n";
    }
    want += "      endloop\n   endfacet\n";
  }
  EXPECT_EQ(get_file(path), want + "endsolid KVO\n");
}

TEST(StlOutput, BinaryBytesAreLittleEndianFloats) {
  dense2D<double> pos(3, 3, -7.0);
  pos(0, 0) = pos(1, 0) = pos(1, 1) = pos(0, 2) = 0.0;
  pos(0, 1) = 1.0 / 3;
  pos(1, 2) = 2.5;
  dense2D<unsigned> tri(3, 1);
  tri(0, 0) = 0; tri(1, 0) = 1; tri(2, 0) = 2;
  const std::string path = tmp("b.stl");
  ASSERT_EQ(STL_output(path.c_str(), pos, tri, false), 0);
  const std::string s = get_file(path);
  ASSERT_EQ(s.size(), 84u + 50u);
  EXPECT_EQ(s.substr(0, 80), std::string("KVO STL Binary") + std::string(66, '\0'));
  EXPECT_EQ(s.substr(80, 4), std::string("\1\0\0\0", 4));
  // The normal (0, 0, 1), then the vertices rounded to float.
  const float want[12] = {0, 0, 1, 0, 0, -7, float(1.0 / 3), 0, -7, 0, 2.5f, -7};
  for (int k = 0; k < 12; ++k) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(s.data()) + 84 + 4 * k;
    const std::uint32_t u = b[0] | b[1] << 8 | b[2] << 16 | std::uint32_t(b[3]) << 24;
    EXPECT_EQ(u, std::bit_cast<std::uint32_t>(want[k])) << k;
  }
  EXPECT_EQ(s.substr(132, 2), std::string(2, '\0'));
}

TEST(StlOutput, ChecksComeAfterTheFileIsCreated) {
  dense2D<double> pos(3, 3, 0.0), bad(4, 3, 0.0);
  dense2D<unsigned> tri(3, 1, 0u), out_of_range(3, 1, 3u), quad(4, 1, 0u);
  const std::string path = tmp("checks.stl");
  for (bool ascii : {true, false}) {
    put_file(path, "old");
    EXPECT_EQ(STL_output(path.c_str(), bad, tri, ascii), -2);
    EXPECT_EQ(get_file(path), "");
    put_file(path, "old");
    EXPECT_EQ(STL_output(path.c_str(), pos, out_of_range, ascii), -3);
    EXPECT_EQ(get_file(path), "");
    EXPECT_EQ(STL_output(path.c_str(), pos, quad, ascii), -3);
    EXPECT_EQ(STL_output(path.c_str(), bad, out_of_range, ascii), -2);  // rows are checked first
    EXPECT_EQ(STL_output(tmp("no/such/dir.stl").c_str(), bad, tri, ascii), -1);
    EXPECT_EQ(STL_output(nullptr, pos, tri, ascii), -1);
  }
  std::FILE* full = std::fopen("/dev/full", "w");
  if (full) {
    std::fclose(full);
    dense2D<double> p;
    dense2D<unsigned> t;
    meshgen::torus(20, 20, p, t);
    EXPECT_EQ(STL_output("/dev/full", p, t, true), -1);
    EXPECT_EQ(STL_output("/dev/full", p, t, false), -1);
  }
}

// ---- reader

TEST(StlInput, SharedEdgeUpperCaseCrlfAndNoFinalNewline) {
  const std::string path = tmp("two.stl");
  put_file(path,
           "SOLID whatever\r\n  FACET NORMAL 0 0 1\r\n OUTER LOOP\r\n  VERTEX 0 0 0\r\n  VERTEX 1 0 0\r\n"
           "  Vertex 0 1 0\r\n ENDLOOP\r\n ENDFACET\r\nfacet normal 0 0 1\nouter loop\nvertex 1 0 0\n"
           "vertex 1 1 0\nvertex 0 1 0\nendloop\nendfacet\nENDSOLID whatever");
  dense2D<double> pos;
  dense2D<unsigned> tri;
  ASSERT_EQ(read(path, pos, tri), 0);
  ASSERT_EQ(pos.rows, 3u);
  ASSERT_EQ(pos.cols, 4u);
  ASSERT_EQ(tri.rows, 3u);
  ASSERT_EQ(tri.cols, 2u);
  const unsigned want[6] = {0, 1, 2, 1, 3, 2};
  for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(tri(k % 3, k / 3), want[k]);
  EXPECT_EQ(pos(0, 3), 1.0);
  EXPECT_EQ(pos(1, 3), 1.0);
}

TEST(StlInput, ToleranceIsFivePercentOfTheSmallestHeight) {
  // Smallest height exactly 1 (the flat isosceles facet at z = 5): tolerance 0.05.
  auto file = [](double d) {
    const double a[3][3] = {{0, 0, 0}, {4, 0, 0}, {0, 4, 0}};
    const double b[3][3] = {{4 + d, 0, 0}, {4, 4, 0}, {0, 4 + d, 0}};
    const double c[3][3] = {{0, 0, 5}, {10, 0, 5}, {5, 1, 5}};
    return "solid\n" + ascii_facet(a) + ascii_facet(b) + ascii_facet(c) + "endsolid\n";
  };
  dense2D<double> pos;
  dense2D<unsigned> tri;
  put_file(tmp("tol.stl"), file(0.049));
  ASSERT_EQ(read(tmp("tol.stl"), pos, tri), 0);
  EXPECT_EQ(pos.cols, 7u);
  EXPECT_EQ(pos(0, 1), 4.0);  // the first vertex of a cluster keeps its coordinates
  put_file(tmp("tol.stl"), file(0.051));
  ASSERT_EQ(read(tmp("tol.stl"), pos, tri), 0);
  EXPECT_EQ(pos.cols, 9u);
}

TEST(StlInput, FlatFacetsStayUnmergedAndCollapsedOnesAreRemoved) {
  const double flat[3][3] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
  const double same[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 0, 0}};
  dense2D<double> pos;
  dense2D<unsigned> tri;
  put_file(tmp("flat.stl"), "solid\n" + ascii_facet(flat) + ascii_facet(same) + "endsolid\n");
  ASSERT_EQ(read(tmp("flat.stl"), pos, tri), 0);
  ASSERT_EQ(pos.cols, 6u);
  ASSERT_EQ(tri.cols, 2u);
  for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(tri(k % 3, k / 3), k);
  EXPECT_EQ(pos(0, 4), 1.0);
  // With one proper facet the collapsed one is dropped, the flat one kept on shared nodes.
  const double ok[3][3] = {{0, 0, 0}, {0, 3, 0}, {0, 0, 3}};
  put_file(tmp("flat.stl"), "solid\n" + ascii_facet(flat) + ascii_facet(same) + ascii_facet(ok) + "endsolid\n");
  ASSERT_EQ(read(tmp("flat.stl"), pos, tri), 0);
  EXPECT_EQ(pos.cols, 5u);
  ASSERT_EQ(tri.cols, 2u);
  EXPECT_EQ(tri(0, 1), 0u);
}

// A soup of facets on lattice points, with exact copies, signed zeros, near copies, NaN and
// infinite vertices, compared with a direct all-pairs evaluation of the merging rules.
TEST(StlInput, MatchesAllPairsMergeOnAHostileSoup) {
  std::mt19937 rng(3);
  for (int round = 0; round < 12; ++round) {
    // Facets on three lattice sites at least 0.3 from each other's lines, each vertex exact,
    // with a signed zero, moved by 1e-4 (within the tolerance) or by 0.1 (beyond it); a few
    // facets exactly flat or collapsed; a few vertices NaN or infinite.
    std::vector<std::array<double, 3>> v;
    auto site = [&] { return std::array<double, 3>{double(rng() % 3), double(rng() % 3), double(rng() % 3)}; };
    auto base_h2 = [](const std::array<double, 3>* t) {
      double best = 1e300;
      for (int i = 0; i < 3; ++i) {
        auto &p = t[i], &a = t[(i + 1) % 3], &b = t[(i + 2) % 3];
        const double d[3] = {p[0] - a[0], p[1] - a[1], p[2] - a[2]}, q[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const double c[3] = {d[1] * q[2] - d[2] * q[1], d[2] * q[0] - d[0] * q[2], d[0] * q[1] - d[1] * q[0]};
        const double den = q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
        best = std::min(best, den == 0 ? 0.0 : (c[0] * c[0] + c[1] * c[1] + c[2] * c[2]) / den);
      }
      return best;
    };
    const int nf = 20 + int(rng() % 40);
    for (int e = 0; e < nf; ++e) {
      std::array<double, 3> t[3];
      const int kind = int(rng() % 10);  // 0: flat, 1: collapsed, else proper
      do {
        for (auto& p : t) p = site();
        if (kind == 1) t[2] = t[0];
      } while (kind == 0 ? base_h2(t) != 0 || t[0] == t[1] || t[1] == t[2] || t[0] == t[2]
                         : kind > 1 && base_h2(t) < 0.25);
      for (auto& p : t)
        for (auto& x : p) {
          const int pick = int(rng() % 8);
          if (x == 0 && pick == 0) x = -0.0;
          if (kind > 1 && pick == 1) x += 1e-4;
          if (kind > 1 && pick == 2) x += 0.1;
        }
      if (rng() % 30 == 0) t[rng() % 3][rng() % 3] = (rng() % 2) ? std::nan("") : std::numeric_limits<double>::infinity();
      for (auto& p : t) v.push_back(p);
    }
    std::string text = "solid x\n";
    for (int e = 0; e < nf; ++e) {
      double f[3][3];
      for (int k = 0; k < 3; ++k) std::copy(v[3 * e + k].begin(), v[3 * e + k].end(), f[k]);
      text += ascii_facet(f);
    }
    put_file(tmp("soup.stl"), text + "endsolid x\n");
    // All-pairs evaluation.
    double h2min = std::numeric_limits<double>::max();
    for (int e = 0; e < nf; ++e) {
      double best = 0;
      for (int i = 0; i < 3; ++i) {
        auto& p = v[3 * e + i];
        auto& a = v[3 * e + (i == 0 ? 1 : 0)];
        auto& b = v[3 * e + (i == 2 ? 1 : 2)];
        const double d[3] = {p[0] - a[0], p[1] - a[1], p[2] - a[2]}, q[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const double c[3] = {d[1] * q[2] - d[2] * q[1], d[2] * q[0] - d[0] * q[2], d[0] * q[1] - d[1] * q[0]};
        const double num = c[0] * c[0] + c[1] * c[1] + c[2] * c[2], den = q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
        const double h2 = den == 0 ? num : num / den;
        if (i == 0 || h2 < best) best = h2;
      }
      if (best > 0 && best < h2min) h2min = best;
    }
    ASSERT_TRUE(h2min > 0.01 && h2min < 100) << "the soup should have proper facets";
    const double tol = 0.05 * std::sqrt(h2min);
    std::vector<unsigned> to(v.size());
    for (unsigned j = 0; j < v.size(); ++j) {
      to[j] = j;
      for (unsigned i = 0; i < j; ++i) {
        const double dx = v[i][0] - v[j][0], dy = v[i][1] - v[j][1], dz = v[i][2] - v[j][2];
        if (std::sqrt(dx * dx + dy * dy + dz * dz) <= tol) {
          to[j] = to[i];
          break;
        }
      }
    }
    std::vector<unsigned> kept_facets, number(v.size(), NULL_INDEX), nodes;
    for (int e = 0; e < nf; ++e) {
      const unsigned a = to[3 * e], b = to[3 * e + 1], c = to[3 * e + 2];
      if (a != b && b != c && a != c) kept_facets.push_back(e);
    }
    for (unsigned j = 0; j < v.size(); ++j)
      for (unsigned e : kept_facets)
        if (to[3 * e] == j || to[3 * e + 1] == j || to[3 * e + 2] == j) {
          number[j] = unsigned(nodes.size());
          nodes.push_back(j);
          break;
        }
    dense2D<double> pos;
    dense2D<unsigned> tri;
    ASSERT_EQ(read(tmp("soup.stl"), pos, tri), 0);
    ASSERT_EQ(pos.cols, nodes.size()) << "round " << round;
    ASSERT_EQ(tri.cols, kept_facets.size());
    for (unsigned n = 0; n < nodes.size(); ++n)
      for (unsigned r = 0; r < 3; ++r)
        EXPECT_EQ(std::memcmp(&pos(r, n), &v[nodes[n]][r], sizeof(double)), 0) << n << ' ' << r;
    for (unsigned f = 0; f < kept_facets.size(); ++f)
      for (unsigned r = 0; r < 3; ++r) EXPECT_EQ(tri(r, f), number[to[3 * kept_facets[f] + r]]);
  }
}

TEST(StlInput, MalformedAsciiFailsWithEmptyOutputs) {
  const double a[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  const std::string good = "solid t\n" + ascii_facet(a) + "endsolid t\n";
  auto replace = [&](const std::string& from, const std::string& to) {
    std::string s = good;
    s.replace(s.find(from), from.size(), to);
    return s;
  };
  const std::string pad(250, ' ');
  // A text that fails is then read as binary: -1 under 80 bytes (short header), otherwise -3
  // (bytes 80-83 of the text make a count far beyond what the file holds).
  struct {
    std::string text;
    bool ok;
  } cases[] = {
      {good, true},
      {"", false},
      {"solid t\n", false},                                      // header only
      {replace("solid t", "sloid"), false},                       // no "solid"
      {replace("vertex 1 0 0", "vertex 1 0"), false},             // bad vertex lines
      {replace("vertex 1 0 0", "vertex 1 0 x"), false},
      {replace("vertex 1 0 0", std::string("vertex 1 0\0 0", 13)), false},  // NUL ends the line
      {replace("outer loop", "outerloop"), false},
      {replace("endloop", "end loop"), false},
      {replace("endfacet\n", "endfacet"), false},                 // "endsolid" is then no line
      {replace("vertex 1 0 0", "vertex" + pad + "1 0 0"), false},  // cut after 255 bytes
      {replace("vertex 1 0 0", "vertex" + pad.substr(0, 230) + "1 0 0"), true},
      {replace("vertex 1 0 0", "vertex 1 0 0 trailing words"), true},
      {replace("facet normal 0 0 1", "facetnormal 0 0 1e"), true},
      {replace("vertex 1 0 0", "vertex inf nan 0x1p-2"), true},
      {good.substr(0, 79), false},
  };
  for (auto& c : cases) {
    put_file(tmp("bad.stl"), c.text);
    dense2D<double> pos(3, 2, 1.0);
    dense2D<unsigned> tri(3, 1, 0u);
    const int want = c.ok ? 0 : c.text.size() < 80 ? -1 : -3;
    ASSERT_EQ(read(tmp("bad.stl"), pos, tri), want) << c.text;
    EXPECT_EQ(pos.is_empty() && tri.is_empty(), !c.ok) << c.text;
  }
  dense2D<double> pos;
  dense2D<unsigned> tri;
  EXPECT_EQ(read(tmp("missing.stl"), pos, tri), -1);
}

TEST(StlInput, BinaryCountsAndShortFiles) {
  const std::array<float, 9> f1{0, 0, 0, 1, 0, 0, 0, 1, 0}, f2{1, 0, 0, 1, 1, 0, 0, 1, 0};
  dense2D<double> pos;
  dense2D<unsigned> tri;
  put_file(tmp("b.stl"), "solid but binary" + binary_stl({f1, f2}, 2).substr(16));
  ASSERT_EQ(read(tmp("b.stl"), pos, tri), 0);
  EXPECT_EQ(pos.cols, 4u);
  EXPECT_EQ(tri.cols, 2u);
  for (int count : {3, 0x7FFFFFFF, 0x55555556}) {
    put_file(tmp("b.stl"), binary_stl({f1, f2}, count));
    EXPECT_EQ(read(tmp("b.stl"), pos, tri), -3) << count;
    EXPECT_TRUE(pos.is_empty() && tri.is_empty());
  }
  std::string s = binary_stl({f1, f2}, 2);
  put_file(tmp("b.stl"), s.substr(0, s.size() - 1));  // last attribute byte missing
  EXPECT_EQ(read(tmp("b.stl"), pos, tri), -3);
  put_file(tmp("b.stl"), s.substr(0, 82));  // count cut short
  EXPECT_EQ(read(tmp("b.stl"), pos, tri), -3);
  put_file(tmp("b.stl"), binary_stl({f1}, -5) + "garbage");  // negative count: no facet
  EXPECT_EQ(read(tmp("b.stl"), pos, tri), 0);
  EXPECT_TRUE(pos.is_empty() && tri.is_empty());
  put_file(tmp("b.stl"), binary_stl({f1, f2}, 1) + "trailing bytes are ignored");
  EXPECT_EQ(read(tmp("b.stl"), pos, tri), 0);
  EXPECT_EQ(tri.cols, 1u);
}

TEST(StlRoundTrip, TorusSurvivesBothForms) {
  dense2D<double> pos;
  dense2D<unsigned> tri;
  meshgen::torus(40, 12, pos, tri);
  for (bool ascii : {false, true}) {
    const std::string path = tmp(ascii ? "rt_a.stl" : "rt_b.stl");
    ASSERT_EQ(STL_output(path.c_str(), pos, tri, ascii), 0);
    dense2D<double> p2;
    dense2D<unsigned> t2;
    ASSERT_EQ(STL_input(path.c_str(), p2, t2), 0);
    ASSERT_EQ(p2.cols, pos.cols);
    ASSERT_EQ(t2.cols, tri.cols);
    // The nodes come back in the order of their first use, at the written precision.
    std::vector<unsigned> order, seen(pos.cols, 0);
    for (unsigned k = 0; k < 3 * tri.cols; ++k)
      if (!seen[tri(k % 3, k / 3)]++) order.push_back(tri(k % 3, k / 3));
    for (unsigned n = 0; n < pos.cols; ++n)
      for (unsigned r = 0; r < 3; ++r) {
        const double x = pos(r, order[n]);
        const double want = ascii ? std::strtod(fmt("%le", x, 0, 0).c_str(), nullptr) : double(float(x));
        ASSERT_EQ(p2(r, n), want);
      }
    for (unsigned k = 0; k < 3 * tri.cols; ++k) EXPECT_EQ(order[t2(k % 3, k / 3)], tri(k % 3, k / 3));
  }
}

// ---- the "%lg" scanner used by the text readers

TEST(TextInput, ScanDoubleAcceptsWhatScanfAccepts) {
  namespace ti = kvo::gridkit::textin;
  const char alphabet[] = "0123456789..eEpPxX+-+- \tinfINFtyaA()";
  std::mt19937 rng(11);
  for (int it = 0; it < 300000; ++it) {
    std::string s;
    const int len = 1 + int(rng() % 9);
    for (int i = 0; i < len; ++i) s += alphabet[rng() % (sizeof alphabet - 1)];
    if (it % 3 == 0) s = fmt("%.17g", std::bit_cast<double>(std::uint64_t(rng()) << 32 | rng()), 0, 0) + s;
    double want = 0, got = 0;
    int used = -1;
    const int r = std::sscanf(s.c_str(), "%lg%n", &want, &used);
    const char* q = ti::scan_double(s.data(), s.data() + s.size(), got);
    if (r != 1) {
      ASSERT_EQ(q, nullptr) << s;
      continue;
    }
    ASSERT_NE(q, nullptr) << s;
    ASSERT_EQ(q - s.data(), used) << s;
    if (std::isnan(want))
      ASSERT_TRUE(std::isnan(got) && std::signbit(got) == std::signbit(want)) << s;
    else
      ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(want)) << s;
  }
  const char* line = "  Facet\tNORMAL -1e400 2.5e-400 0x1.8p1 rest";
  double out[3];
  EXPECT_EQ(ti::scan_format(line, line + std::strlen(line), " facet normal % % %", out, true), 3);
  EXPECT_EQ(out[0], -std::numeric_limits<double>::infinity());
  EXPECT_EQ(out[1], 0.0);
  EXPECT_EQ(out[2], 3.0);
  EXPECT_EQ(ti::scan_format(line, line + std::strlen(line), " facet normal % % %", out, false), 0);
}
