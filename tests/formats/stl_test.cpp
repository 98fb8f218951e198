#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>

#include "common/meshgen.hpp"
#include "formats/file_util.hpp"
#include "formats/text_input.hpp"

using namespace kvo;
using namespace kvo::gridkit;
using namespace std::string_literals;
namespace tf = testfiles;
using tf::fmt;

namespace {

using point = std::array<double, 3>;

std::string facet(const point& a, const point& b, const point& c) {
  std::string s = "facet normal 0 0 1\nouter loop\n";
  for (const point* p : {&a, &b, &c}) s += fmt("vertex %.17g %.17g %.17g\n", (*p)[0], (*p)[1], (*p)[2]);
  return s + "endloop\nendfacet\n";
}
// Binary file of a header of NULs, the count, then per facet its normal, vertices, zero attribute.
std::string binary_stl(const std::vector<std::array<float, 12>>& facets, int count) {
  std::string s(80, '\0');
  s.append(reinterpret_cast<const char*>(&count), 4);
  for (auto& f : facets) s += std::string(reinterpret_cast<const char*>(f.data()), 48) + "\0\0"s;
  return s;
}
struct stl {
  dense2D<double> pos;
  dense2D<unsigned> tri;
  int read(const std::string& bytes) {
    const std::string p = tf::path("in.stl");
    tf::write(p, bytes);
    return STL_input(p.c_str(), pos, tri);
  }
  bool empty() const { return pos.is_empty() && tri.is_empty(); }
};
// Smallest squared distance from a vertex to the line through the other two.
double min_h2(const point& p0, const point& p1, const point& p2) {
  const point* P[3] = {&p0, &p1, &p2};
  double best = 0;
  for (int i = 0; i < 3; ++i) {
    const point &p = *P[i], &a = *P[i == 0 ? 1 : 0], &b = *P[i == 2 ? 1 : 2];
    const double d[3] = {p[0] - a[0], p[1] - a[1], p[2] - a[2]}, q[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    const double c[3] = {d[1] * q[2] - d[2] * q[1], d[2] * q[0] - d[0] * q[2], d[0] * q[1] - d[1] * q[0]};
    const double num = c[0] * c[0] + c[1] * c[1] + c[2] * c[2], den = q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
    const double h2 = den == 0 ? num : num / den;
    if (i == 0 || h2 < best) best = h2;
  }
  return best;
}

}  // namespace

TEST(StlOutput, AsciiAndBinaryBytes) {
  // 2-D nodes (z = 0), one proper facet (normal (0, 0, -1)) and one of zero area (normal 0).
  const dense2D<double> pos = tf::mat<double>(2, {0, 0, 2, 0, 0, -1.25e-7});
  const dense2D<unsigned> tri = tf::mat<unsigned>(3, {0, 1, 2, 1, 1, 2});
  std::string ascii = "solid KVO\n";
  std::vector<std::array<float, 12>> facets;
  for (unsigned e = 0; e < 2; ++e) {
    const double nz = e == 0 ? -1 : 0;
    ascii += "   facet normal " + fmt("%le %le %le", 0.0, 0.0, nz) + "\n      outer loop\n";
    facets.push_back({0, 0, float(nz)});
    for (unsigned k = 0; k < 3; ++k) {
      const double x = pos(0, tri(k, e)), y = pos(1, tri(k, e));
      ascii += "         vertex " + fmt("%le %le %le", x, y, 0.0) + "\n";
      facets.back()[3 + 3 * k] = float(x), facets.back()[4 + 3 * k] = float(y);
    }
    ascii += "      endloop\n   endfacet\n";
  }
  ascii += "endsolid KVO\n";
  const std::string binary = "KVO STL Binary" + binary_stl(facets, 2).substr(14);  // little-endian host
  // Views with a leading dimension above their row count write the same bytes.
  dense2D<double> wide(4, 3, 9.0);
  dense2D<unsigned> tall(5, 2, 7u);
  for (unsigned k = 0; k < 6; ++k) wide(k % 2, k / 2) = pos(k % 2, k / 2), tall(k % 3 + 1, k / 3) = tri(k % 3, k / 3);
  const std::string p = tf::path("out.stl");
  for (bool a : {true, false}) {
    ASSERT_EQ(STL_output(p.c_str(), pos, tri, a), 0);
    EXPECT_EQ(tf::read(p), a ? ascii : binary);
    ASSERT_EQ(STL_output(p.c_str(), wide.sub_matrix(0, 0, 2, 3), tall.sub_matrix(1, 0, 3, 2), a), 0);
    EXPECT_EQ(tf::read(p), a ? ascii : binary);
  }
}

TEST(StlOutput, ChecksComeAfterTheFileIsCreated) {
  dense2D<double> pos(3, 3, 0.0), bad(4, 3, 0.0), big;
  dense2D<unsigned> tri(3, 1, 0u), out_of_range(3, 1, 3u), quad(4, 1, 0u), torus;
  meshgen::torus(20, 20, big, torus);
  const std::string c = tf::path("c.stl");
  for (bool ascii : {true, false}) {
    using check = std::tuple<dense2D<double>*, dense2D<unsigned>*, int>;
    for (auto [p, t, status] : std::initializer_list<check>{{&bad, &out_of_range, -2}, {&pos, &out_of_range, -3}, {&pos, &quad, -3}}) {
      tf::write(c, "old");
      EXPECT_EQ(STL_output(c.c_str(), *p, *t, ascii), status);
      EXPECT_EQ(tf::read(c), "");
    }
    EXPECT_EQ(STL_output(tf::in_missing_folder().c_str(), bad, tri, ascii), -1);
    EXPECT_EQ(STL_output(nullptr, pos, tri, ascii), -1);
    if (std::FILE* full = std::fopen("/dev/full", "w")) {  // every write fails there
      std::fclose(full);
      EXPECT_EQ(STL_output("/dev/full", big, torus, ascii), -1);
    }
  }
}

TEST(StlInput, SharedNodesCaseCrlfAndTolerance) {
  stl m;
  ASSERT_EQ(m.read("SOLID x\r\n  FACET NORMAL 0 0 1\r\n OUTER LOOP\r\n  VERTEX 0 0 0\r\n  VERTEX 1 0 0\r\n  Vertex 0 1 0\r\n"
                   " ENDLOOP\r\n ENDFACET\r\n" + facet({1, 0, 0}, {1, 1, 0}, {0, 1, 0}) + "ENDSOLID x"),
            0);
  EXPECT_TRUE(m.pos == tf::mat<double>(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}));
  EXPECT_TRUE(m.tri == tf::mat<unsigned>(3, {0, 1, 2, 1, 3, 2}));
  // Smallest height exactly 1 (the flat-lying facet at z = 5): nodes closer than 0.05 are joined.
  for (double d : {0.049, 0.051}) {
    ASSERT_EQ(m.read("solid\n" + facet({0, 0, 0}, {4, 0, 0}, {0, 4, 0}) + facet({4 + d, 0, 0}, {4, 4, 0}, {0, 4 + d, 0}) +
                     facet({0, 0, 5}, {10, 0, 5}, {5, 1, 5}) + "endsolid\n"),
              0);
    EXPECT_EQ(m.pos.cols, d < 0.05 ? 7u : 9u);
    EXPECT_EQ(m.pos(0, 1), 4.0);  // the first vertex of a cluster keeps its coordinates
  }
  // Only flat facets: no merging at all, three nodes per facet.
  ASSERT_EQ(m.read("solid\n" + facet({0, 0, 0}, {1, 0, 0}, {2, 0, 0}) + facet({0, 0, 0}, {1, 0, 0}, {0, 0, 0}) + "endsolid"), 0);
  EXPECT_TRUE(m.tri == tf::mat<unsigned>(3, {0, 1, 2, 3, 4, 5}));
  EXPECT_TRUE(m.pos == tf::mat<double>(3, {0, 0, 0, 1, 0, 0, 2, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
}

// Facets on lattice sites, with exact copies, signed zeros, near copies (within and beyond the
// tolerance), flat and collapsed facets, NaN and infinite vertices; compared with an all-pairs
// evaluation of the merging rules (each vertex joins the first earlier one within the tolerance).
TEST(StlInput, MatchesAllPairsMergeOnAHostileSoup) {
  std::mt19937 rng(3);
  for (int round = 0; round < 12; ++round) {
    std::vector<point> v;
    const int nf = 20 + int(rng() % 40);
    std::string text = "solid x\n";
    for (int e = 0; e < nf; ++e) {
      point t[3];
      const int kind = int(rng() % 10);  // 0: flat, 1: collapsed, else proper (heights >= 0.5)
      do {
        for (auto& p : t) p = {double(rng() % 3), double(rng() % 3), double(rng() % 3)};
        if (kind == 1) t[2] = t[0];
      } while (kind == 0 ? min_h2(t[0], t[1], t[2]) != 0 || t[0] == t[1] || t[1] == t[2] || t[0] == t[2]
                         : kind > 1 && min_h2(t[0], t[1], t[2]) < 0.25);
      for (auto& p : t)
        for (auto& x : p) {
          const int pick = int(rng() % 8);
          if (x == 0 && pick == 0) x = -0.0;
          if (kind > 1) x += pick == 1 ? 1e-4 : pick == 2 ? 0.1 : 0.0;
        }
      if (rng() % 30 == 0) t[rng() % 3][rng() % 3] = rng() % 2 ? std::nan("") : HUGE_VAL;
      text += facet(t[0], t[1], t[2]);
      v.insert(v.end(), t, t + 3);
    }
    double h2min = std::numeric_limits<double>::max();
    for (int e = 0; e < nf; ++e) {
      const double h2 = min_h2(v[3 * e], v[3 * e + 1], v[3 * e + 2]);
      if (h2 > 0 && h2 < h2min) h2min = h2;
    }
    ASSERT_TRUE(h2min > 0.01 && h2min < 100);
    std::vector<unsigned> to(v.size()), kept, number(v.size(), NULL_INDEX), nodes;
    for (unsigned j = 0; j < v.size(); ++j) {
      to[j] = j;
      for (unsigned i = 0; i < j; ++i)
        if (std::hypot(v[i][0] - v[j][0], v[i][1] - v[j][1], v[i][2] - v[j][2]) <= 0.05 * std::sqrt(h2min)) {
          to[j] = to[i];
          break;
        }
    }
    for (int e = 0; e < nf; ++e)
      if (to[3 * e] != to[3 * e + 1] && to[3 * e + 1] != to[3 * e + 2] && to[3 * e] != to[3 * e + 2]) kept.push_back(e);
    for (unsigned j = 0; j < v.size(); ++j)
      for (unsigned e : kept)
        if (to[3 * e] == j || to[3 * e + 1] == j || to[3 * e + 2] == j) {
          number[j] = unsigned(nodes.size());
          nodes.push_back(j);
          break;
        }
    stl m;
    ASSERT_EQ(m.read(text + "endsolid x\n"), 0);
    ASSERT_EQ(m.pos.cols, nodes.size()) << "round " << round;
    ASSERT_EQ(m.tri.cols, kept.size());
    for (unsigned n = 0; n < nodes.size(); ++n)
      for (unsigned r = 0; r < 3; ++r) EXPECT_EQ(std::memcmp(&m.pos(r, n), &v[nodes[n]][r], sizeof(double)), 0);
    for (unsigned f = 0; f < kept.size(); ++f)
      for (unsigned r = 0; r < 3; ++r) EXPECT_EQ(m.tri(r, f), number[to[3 * kept[f] + r]]);
  }
}

TEST(StlInput, MalformedFilesFailWithEmptyOutputs) {
  const std::string good = "solid t\n" + facet({0, 0, 0}, {1, 0, 0}, {0, 1, 0}) + "endsolid t\n";
  auto edit = [&](const std::string& from, const std::string& to) {
    std::string s = good;
    return s.replace(s.find(from), from.size(), to);
  };
  const std::string pad(250, ' ');
  // A text that fails is read again as binary: -1 under 80 bytes (short header), otherwise -3
  // (bytes 80-83 of the text make a count far beyond what the file holds).
  const std::pair<std::string, bool> cases[] = {
      {good, true},
      {"", false},
      {"solid t\n", false},
      {edit("solid t", "sloid"), false},
      {edit("vertex 1 0 0", "vertex 1 0"), false},
      {edit("vertex 1 0 0", "vertex 1 0 x"), false},
      {edit("vertex 1 0 0", "vertex 1 0\0 0"s), false},  // a NUL ends the line
      {edit("outer loop", "outerloop"), false},
      {edit("endloop", "end loop"), false},
      {edit("endfacet\n", "endfacet"), false},  // "endsolid" is then no line of its own
      {edit("vertex 1 0 0", "vertex" + pad + "1 0 0"), false},  // lines are cut after 255 bytes
      {edit("vertex 1 0 0", "vertex" + pad.substr(0, 230) + "1 0 0"), true},
      {edit("vertex 1 0 0", "vertex 1 0 0 trailing words"), true},
      {edit("facet normal 0 0 1", "facetnormal 0 0 1e"), true},
      {edit("vertex 1 0 0", "vertex inf nan 0x1p-2"), true},
      {good.substr(0, 79), false},
  };
  for (auto& [text, ok] : cases) {
    stl m;
    m.pos.resize(3, 2, 1.0);
    ASSERT_EQ(m.read(text), ok ? 0 : text.size() < 80 ? -1 : -3) << text;
    EXPECT_EQ(m.empty(), !ok) << text;
  }
  stl m;
  EXPECT_EQ(STL_input(tf::path("missing.stl").c_str(), m.pos, m.tri), -1);

  const std::array<float, 12> f1{0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0}, f2{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
  const std::string two = binary_stl({f1, f2}, 2);
  ASSERT_EQ(m.read("solid, yet binary" + two.substr(17)), 0);  // nodes in the order of first use
  EXPECT_TRUE(m.pos == tf::mat<double>(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}));
  EXPECT_TRUE(m.tri == tf::mat<unsigned>(3, {0, 1, 2, 1, 3, 2}));
  for (int count : {3, 0x7FFFFFFF, 0x55555556}) {  // more facets promised than held
    EXPECT_EQ(m.read(binary_stl({f1, f2}, count)), -3) << count;
    EXPECT_TRUE(m.empty());
  }
  EXPECT_EQ(m.read(two.substr(0, two.size() - 1)), -3);  // last attribute byte missing
  EXPECT_EQ(m.read(two.substr(0, 82)), -3);              // count cut short
  EXPECT_EQ(m.read(binary_stl({f1}, -5) + "garbage"), 0);  // a negative count reads no facet
  EXPECT_TRUE(m.empty());
  EXPECT_EQ(m.read(binary_stl({f1, f2}, 1)), 0);  // bytes after the last facet are ignored
  EXPECT_EQ(m.tri.cols, 1u);
}

// The number scanner of the text readers against the C library's "%lg" on random strings.
TEST(TextInput, ScanDoubleAcceptsWhatScanfAccepts) {
  namespace ti = kvo::gridkit::textin;
  const char alphabet[] = "0123456789..eEpPxX+-+- \tinfINFtyaA()";
  std::mt19937 rng(11);
  for (int it = 0; it < 300000; ++it) {
    std::string s;
    for (int i = 1 + int(rng() % 9); i > 0; --i) s += alphabet[rng() % (sizeof alphabet - 1)];
    if (it % 3 == 0) s = fmt("%.17g", std::bit_cast<double>(std::uint64_t(rng()) << 32 | rng())) + s;
    double want = 0, got = 0;
    int used = -1;
    const char* q = ti::scan_double(s.data(), s.data() + s.size(), got);
    if (std::sscanf(s.c_str(), "%lg%n", &want, &used) != 1) {
      ASSERT_EQ(q, nullptr) << s;
      continue;
    }
    ASSERT_TRUE(q && q - s.data() == used) << s;
    ASSERT_TRUE(std::isnan(want) ? std::isnan(got) && std::signbit(got) == std::signbit(want)
                                 : std::bit_cast<std::uint64_t>(got) == std::bit_cast<std::uint64_t>(want))
        << s;
  }
}
