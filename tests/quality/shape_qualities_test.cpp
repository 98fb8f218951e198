#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;
using P3 = std::array<double, 3>;

namespace {

const double s3 = std::sqrt(3.0);
// Regular elements, valid orientation (tetrahedra: node 3 opposite to (P1-P0) x (P2-P0)).
const std::vector<P3> kTri = {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}};
const std::vector<P3> kQuad = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
const std::vector<P3> kTet = {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0.5, s3 / 6, -std::sqrt(2.0 / 3.0)}};
const std::vector<P3> kPyr = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, std::sqrt(0.5)}};
const std::vector<P3> kWedge = {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0, 0, 1}, {1, 0, 1}, {0.5, s3 / 2, 1}};
const std::vector<P3> kHex = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};

dense2D<double> coords(const std::vector<P3>& pts, unsigned dim = 3) {
  dense2D<double> pos(dim, unsigned(pts.size()));
  for (unsigned j = 0; j < pts.size(); ++j)
    for (unsigned i = 0; i < dim; ++i) pos(i, j) = pts[j][i];
  return pos;
}

// Column by column; without ids, the nodes 0, 1, 2, ... in order.
dense2D<unsigned> conn(unsigned rows, std::vector<unsigned> ids = {}, unsigned cols = 1) {
  for (unsigned i = unsigned(ids.size()); i < rows * cols; ++i) ids.push_back(i);
  dense2D<unsigned> c(rows, unsigned(ids.size() / rows));
  for (unsigned k = 0; k < ids.size(); ++k) c(k % rows, k / rows) = ids[k];
  return c;
}

// Quality of one element made of all the given points, in order.
double q1(const std::vector<P3>& pts, element_type t, unsigned dim = 3) {
  dense1D<double, 16> q;
  EXPECT_EQ(shape_qualities(coords(pts, dim), conn(unsigned(pts.size())), t, q), 0);
  return q.size == 1 ? q[0] : std::numeric_limits<double>::quiet_NaN();
}

P3 sub(const P3& a, const P3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
P3 cross(const P3& a, const P3& b) { return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}; }
double dot(const P3& a, const P3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double dist(const P3& a, const P3& b) { return std::sqrt(dot(sub(a, b), sub(a, b))); }
double heron(const P3& a, const P3& b, const P3& c) {
  const double x = dist(a, b), y = dist(b, c), z = dist(c, a), s = (x + y + z) / 2;
  return std::sqrt(s * (s - x) * (s - y) * (s - z));
}

std::vector<P3> jitter(std::vector<P3> pts, std::mt19937& rng, double amp, bool planar = false) {
  std::uniform_real_distribution<double> u(-amp, amp);
  for (auto& p : pts)
    for (int i = 0; i < (planar ? 2 : 3); ++i) p[i] += u(rng);
  return pts;
}

}  // namespace

TEST(ShapeQualities, RegularElementsGiveOneThroughEveryType) {
  struct Case { const std::vector<P3>* pts; element_type type, mixed; unsigned dim; };
  const Case cases[] = {{&kTri, ET_TRIA3, ET_FACE_MIXED, 2}, {&kTri, ET_TRIA3, ET_FACE_MIXED, 3},
                        {&kQuad, ET_QUAD4, ET_FACE_MIXED, 2}, {&kQuad, ET_QUAD4, ET_FACE_MIXED, 3},
                        {&kTet, ET_TETRA4, ET_SOLID_MIXED, 3}, {&kPyr, ET_PYRAMID5, ET_SOLID_MIXED, 3},
                        {&kWedge, ET_WEDGE6, ET_SOLID_MIXED, 3}, {&kHex, ET_HEXA8, ET_SOLID_MIXED, 3}};
  for (const Case& c : cases) {
    EXPECT_NEAR(q1(*c.pts, c.type, c.dim), 1.0, 3e-16) << c.type << " dim " << c.dim;
    EXPECT_EQ(q1(*c.pts, c.mixed, c.dim), q1(*c.pts, c.type, c.dim)) << c.type;
  }
  // A 4-row mixed-face connectivity measures columns ending in NULL_INDEX as triangles.
  std::vector<P3> both = kQuad;
  both.push_back({0.5, -s3 / 2, 0});
  for (unsigned dim : {2u, 3u}) {
    dense1D<double, 16> q;
    ASSERT_EQ(shape_qualities(coords(both, dim), conn(4, {0, 1, 2, 3, 1, 0, 4, NULL_INDEX}), ET_FACE_MIXED, q), 0);
    EXPECT_TRUE(q.size == 2 && std::abs(q[0] - 1) < 3e-16 && std::abs(q[1] - 1) < 3e-16) << dim;
  }
  EXPECT_NEAR(q1({{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}}, ET_QUAD4, 2), 8 * std::sqrt(2.0) / (6 * std::sqrt(5.0)), 1e-15);
  std::vector<P3> box = kHex;
  for (auto& p : box) p[2] *= 2;
  EXPECT_NEAR(q1(box, ET_HEXA8), std::sqrt(0.5), 1e-15);
}

TEST(ShapeQualities, InvertedDegenerateAndWarpedElements) {
  const std::vector<P3> cw = {kTri[0], kTri[2], kTri[1]};
  EXPECT_NEAR(q1(cw, ET_TRIA3, 2), -1.0, 1e-14); EXPECT_NEAR(q1(cw, ET_TRIA3, 3), 1.0, 1e-14);
  const std::vector<P3> bowtie = {kQuad[0], kQuad[1], kQuad[3], kQuad[2]};
  EXPECT_TRUE(q1(bowtie, ET_QUAD4, 2) < 0 && q1(bowtie, ET_QUAD4, 3) >= 0);
  EXPECT_NEAR(q1({kTet[1], kTet[0], kTet[2], kTet[3]}, ET_TETRA4), -1.0, 1e-14);
  auto mirrored = [](std::vector<P3> v) { for (auto& p : v) p[2] = -p[2]; return v; };
  EXPECT_NEAR(q1(mirrored(kPyr), ET_PYRAMID5), -1.0, 1e-14);
  EXPECT_TRUE(q1(mirrored(kWedge), ET_WEDGE6) < 0 && q1(mirrored(kHex), ET_HEXA8) < 0);
  // Node 1 or node 2 lifted: congruent quadrangles bending different pairs of corner normals.
  std::vector<P3> warped1 = kQuad, warped2 = kQuad;
  warped1[1][2] = warped2[2][2] = 0.4;
  const double w = q1(warped2, ET_QUAD4, 3);
  EXPECT_TRUE(w > 0 && w < q1(kQuad, ET_QUAD4, 3));
  EXPECT_NEAR(q1(warped1, ET_QUAD4, 3), w, 1e-15);
  for (unsigned dim : {2u, 3u}) EXPECT_EQ(q1({kQuad[0], kQuad[0], kQuad[2], kQuad[3]}, ET_QUAD4, dim), 0.0);
  for (element_type t : {ET_TRIA3, ET_QUAD4, ET_TETRA4, ET_PYRAMID5, ET_WEDGE6, ET_HEXA8})
    EXPECT_EQ(q1(std::vector<P3>(nodes_per_element(t), P3{1, 2, 3}), t), 0.0) << t;  // all nodes in one point
  EXPECT_EQ(q1({kTet[0], kTet[1], kTet[1], kTet[3]}, ET_TETRA4), 0.0);
}

TEST(ShapeQualities, TrianglesAndTetrahedraMatchInradiusOverLongestEdge) {
  // Inradius over the longest edge, normalised to 1 for the regular element.
  auto triangle = [](const P3& a, const P3& b, const P3& c) {
    const double h = std::max({dist(a, b), dist(b, c), dist(c, a)});
    return 2 * s3 * heron(a, b, c) / ((dist(a, b) + dist(b, c) + dist(c, a)) / 2) / h;
  };
  std::mt19937 rng(3);
  for (int it = 0; it < 200; ++it) {
    const auto t = jitter(kTri, rng, 0.3);
    const double expect = triangle(t[0], t[1], t[2]);
    EXPECT_NEAR(q1(t, ET_TRIA3), expect, 1e-12 * expect);
    const auto f = jitter(kTri, rng, 0.6, true);  // in the plane, sometimes clockwise
    const double sign = cross(sub(f[1], f[0]), sub(f[2], f[0]))[2] > 0 ? 1 : -1;
    EXPECT_NEAR(q1(f, ET_TRIA3, 2), sign * triangle(f[0], f[1], f[2]), 1e-12);

    const auto p = jitter(kTet, rng, 0.3);
    const double vol6 = dot(cross(sub(p[1], p[0]), sub(p[2], p[0])), sub(p[3], p[0]));  // < 0 when valid
    const double area = heron(p[0], p[1], p[2]) + heron(p[0], p[1], p[3]) + heron(p[0], p[2], p[3]) + heron(p[1], p[2], p[3]);
    const double hmax = std::max({dist(p[0], p[1]), dist(p[0], p[2]), dist(p[0], p[3]), dist(p[1], p[2]), dist(p[1], p[3]), dist(p[2], p[3])});
    const double q = 2 * std::sqrt(6.0) * (-vol6 / 2 / area) / hmax;
    EXPECT_NEAR(q1(p, ET_TETRA4), q, 1e-12 * std::abs(q));
  }
}

TEST(ShapeQualities, NearlyFlatTetrahedronIsReevaluatedOverAllEvenOrderings) {
  // Node 3 at 3e-11 from the plane of the others: every even ordering gives the same bits.
  const P3 a = {0.1, 0.2, 0.3}, b = {1.3, 0.1, 0.7}, c = {0.4, 1.1, 0.2};
  const P3 n = cross(sub(b, a), sub(c, a));
  std::vector<P3> p = {a, b, c, {}};
  for (int i = 0; i < 3; ++i) p[3][i] = (a[i] + b[i] + c[i]) / 3 - 3e-11 / std::sqrt(dot(n, n)) * n[i];
  const unsigned even[12][4] = {{0, 1, 2, 3}, {1, 2, 0, 3}, {2, 0, 1, 3}, {0, 3, 1, 2}, {3, 1, 0, 2}, {1, 0, 3, 2},
                                {0, 2, 3, 1}, {2, 3, 0, 1}, {3, 0, 2, 1}, {1, 3, 2, 0}, {3, 2, 1, 0}, {2, 1, 3, 0}};
  const double first = q1(p, ET_TETRA4);
  EXPECT_TRUE(first > 1e-12 && first < 1e-10);
  for (const auto& s : even) EXPECT_EQ(q1({p[s[0]], p[s[1]], p[s[2]], p[s[3]]}, ET_TETRA4), first);
}

// Smallest of 1 and the qualities of the faces joined to the centroid (triangles turn the other way).
double worst_from_centroid(std::vector<P3> pts, const std::vector<std::vector<unsigned>>& faces) {
  P3 c = {0, 0, 0};
  for (const P3& p : pts) c = {c[0] + p[0], c[1] + p[1], c[2] + p[2]};
  pts.push_back({c[0] / pts.size(), c[1] / pts.size(), c[2] / pts.size()});
  const unsigned apex = unsigned(pts.size() - 1);
  double m = 1.0;
  for (const auto& f : faces) {
    std::vector<unsigned> ids = f;
    dense1D<double, 16> q;
    ids.push_back(apex);
    EXPECT_EQ(shape_qualities(coords(pts), conn(unsigned(ids.size()), ids), f.size() == 4 ? ET_PYRAMID5 : ET_TETRA4, q), 0);
    m = std::min(m, f.size() == 4 ? q[0] : -q[0]);
  }
  return m;
}

TEST(ShapeQualities, HexahedraAndWedgesAreRecheckedFromTheirCentroid) {
  const std::vector<std::vector<unsigned>> hex_faces = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};
  const std::vector<std::vector<unsigned>> wedge_faces = {{0, 1, 2}, {3, 5, 4}, {2, 1, 4, 5}, {5, 3, 0, 2}, {0, 3, 4, 1}};
  // All corner values positive, yet the centroid falls outside a face pyramid.
  const std::vector<P3> hex = {{-0.375, 0, 0.375}, {1.125, 0.25, 0.25}, {1.125, 1.25, 0.25}, {0.375, 0.75, -0.125},
                               {-0.125, 0.25, 1.375}, {1.25, -0.25, 0.75}, {1.125, 0.875, 1.25}, {0, 1, 0.75}};
  const std::vector<P3> wedge = {{0.375, -0.25, -0.25}, {0.75, 0, -0.125}, {0.375, 1.125, 0}, {0, 0.375, 1.25}, {0.875, -0.125, 1}, {0.625, 1, 0.875}};
  struct Case { const std::vector<P3>* reg; const std::vector<P3>* bad; element_type type; const std::vector<std::vector<unsigned>>* faces; };
  for (const Case& k : {Case{&kHex, &hex, ET_HEXA8, &hex_faces}, Case{&kWedge, &wedge, ET_WEDGE6, &wedge_faces}}) {
    const double q = q1(*k.bad, k.type);
    EXPECT_TRUE(q < 0 && q == worst_from_centroid(*k.bad, *k.faces));
    // Bisect towards a blend whose worst centroid part is barely positive.
    auto blend = [&](double t) {
      std::vector<P3> h(k.reg->size());
      for (unsigned i = 0; i < 3 * h.size(); ++i) h[i / 3][i % 3] = (1 - t) * (*k.reg)[i / 3][i % 3] + t * (*k.bad)[i / 3][i % 3];
      return h;
    };
    double lo = 0, hi = 1, t = 0, m = 1;
    for (int i = 0; i < 100 && !(m >= 1e-13 && m <= 5e-13); ++i) {
      t = (lo + hi) / 2;
      m = worst_from_centroid(blend(t), *k.faces);
      (m > 5e-13 ? lo : hi) = t;
    }
    ASSERT_TRUE(m >= 1e-13 && m <= 5e-13) << k.type;
    EXPECT_EQ(q1(blend(t), k.type), m) << k.type;
  }
  // Many hexahedra in one call (measured two at a time) give the bits of each alone; whenever
  // a centroid pyramid is degenerate, the hexahedron is too.
  std::mt19937 rng(5);
  const unsigned n = 2001;
  std::vector<P3> all;
  for (unsigned it = 0; it < n; ++it) {
    const auto p = jitter(kHex, rng, 0.4);
    all.insert(all.end(), p.begin(), p.end());
  }
  dense1D<double, 16> q;
  ASSERT_EQ(shape_qualities(coords(all), conn(8, {}, n), ET_HEXA8, q), 0);
  for (unsigned it = 0; it < n; ++it) {
    const std::vector<P3> p(all.begin() + 8 * it, all.begin() + 8 * it + 8);
    EXPECT_EQ(q[it], q1(p, ET_HEXA8)) << it;
    if (worst_from_centroid(p, hex_faces) < 1e-12) {
      EXPECT_LE(q[it], 1e-12) << it;
    }
  }
}

// The only random check of the quadrangle, pyramid, wedge and hexahedron formulas.
TEST(ShapeQualities, InvariantUnderRotationTranslationAndScaling) {
  std::mt19937 rng(11);
  std::normal_distribution<double> g;
  std::uniform_real_distribution<double> u(-3, 3);
  struct Case { const std::vector<P3>* pts; element_type type; };
  const Case cases[] = {{&kTri, ET_TRIA3}, {&kQuad, ET_QUAD4}, {&kTet, ET_TETRA4}, {&kPyr, ET_PYRAMID5}, {&kWedge, ET_WEDGE6}, {&kHex, ET_HEXA8}};
  for (int it = 0; it < 40; ++it) {
    double a = g(rng), b = g(rng), c = g(rng), d = g(rng);
    const double n = std::sqrt(a * a + b * b + c * c + d * d);
    a /= n, b /= n, c /= n, d /= n;
    const double R[3][3] = {{a * a + b * b - c * c - d * d, 2 * (b * c - a * d), 2 * (b * d + a * c)},
                            {2 * (b * c + a * d), a * a - b * b + c * c - d * d, 2 * (c * d - a * b)},
                            {2 * (b * d - a * c), 2 * (c * d + a * b), a * a - b * b - c * c + d * d}};
    const double scale = std::pow(10.0, u(rng));
    const P3 shift = {scale * u(rng), scale * u(rng), scale * u(rng)};
    for (const Case& k : cases) {
      const auto pts = jitter(*k.pts, rng, 0.25);
      std::vector<P3> moved;
      for (const P3& p : pts) {
        P3 m;
        for (int i = 0; i < 3; ++i) m[i] = scale * (R[i][0] * p[0] + R[i][1] * p[1] + R[i][2] * p[2]) + shift[i];
        moved.push_back(m);
      }
      const double q = q1(pts, k.type);
      EXPECT_NEAR(q1(moved, k.type), q, 1e-12 * std::max(std::abs(q), 1e-3)) << k.type;
    }
  }
}

TEST(ShapeQualities, StatusCodesAndResults) {
  const dense2D<double> pos = coords(kHex);
  dense1D<double, 16> q;
  std::vector<std::pair<element_type, dense2D<unsigned>>> bad = {  // unsupported types (quadratic too) give -3
      {ET_TRIA3, conn(3, {0, 1, 8})},       {ET_TRIA3, conn(4, {0, 1, 2, 3})},  {ET_EDGE2, conn(2, {0, 9})},
      {ET_FACE_MIXED, conn(5)},    {ET_SOLID_MIXED, conn(8, {0, 1, 2, 3, 4, NULL_INDEX, NULL_INDEX, NULL_INDEX})},
      {ET_SOLID_MIXED, conn(7)},   {ET_FACE_MIXED, conn(4, {0, NULL_INDEX, 2, 3})}};
  for (int t : {0, 1, 2, 4, 8, 9, 10, 13, 15, 17, 19, 20, 21}) {
    const unsigned rows = t <= 20 ? std::max(nodes_per_element(element_type(t)), 1u) : 1;
    bad.push_back({element_type(t), conn(rows, std::vector<unsigned>(rows, 0))});
  }
  for (unsigned k = 0; k < bad.size(); ++k) {
    q.resize(3, 7.0);
    EXPECT_EQ(shape_qualities(pos, bad[k].second, bad[k].first, q), k < 7 ? -2 : -3) << bad[k].first << " rows " << bad[k].second.rows;
    EXPECT_EQ(q.size, 0u);
  }
  ASSERT_EQ(shape_qualities(pos, conn(2, {0, 1, 1, 7, 7, 7}), ET_EDGE2, q), 0);
  EXPECT_TRUE(q.size == 3 && q[0] == 1.0 && q[1] == 1.0 && q[2] == 1.0);
  ASSERT_TRUE(shape_qualities(pos, dense2D<unsigned>(4, 0), ET_TETRA4, q) == 0 && q.size == 0);
  ASSERT_EQ(shape_qualities(pos, dense2D<unsigned>(0, 2), ET_HEXA8, q), 0);  // columns without rows
  EXPECT_TRUE(q.size == 2 && q[0] == 0.0 && q[1] == 0.0);
  dense2D<double> big(4, 8, std::numeric_limits<double>::quiet_NaN());
  dense2D<unsigned> cbig(9, 2, NULL_INDEX);
  for (unsigned j = 0; j < 8; ++j) {
    cbig(j, 1) = j;
    for (unsigned i = 0; i < 3; ++i) big(i, j) = kHex[j][i];
  }
  ASSERT_EQ(shape_qualities(big.sub_matrix(0, 0, 3, 8), cbig.sub_matrix(0, 1, 8, 1), ET_HEXA8, q), 0);
  EXPECT_EQ(q[0], 1.0);
}

TEST(ShapeQualities, SeveralMeshesAndHistograms) {
  std::vector<P3> pts = kQuad;
  pts.push_back({0.5, -s3 / 2, 0});
  const dense2D<double> pos = coords(pts, 2);
  const dense2D<unsigned> meshes[4] = {conn(3, {1, 0, 4, 0, 1, 4}), dense2D<unsigned>(0, 3), conn(4, {0, 1, 2, 3}), conn(3, {0, 1, 9})};
  dense1D<int, 16> types(4, ET_TRIA3);
  types[1] = 77, types[2] = ET_QUAD4;  // 77 is never looked at: that connectivity has no entries
  dense1D<double, 16> q(2, 5.0);
  ASSERT_EQ(shape_qualities(pos, meshes, meshes + 3, types.sub_vector(0, 3), q), 0);
  ASSERT_EQ(q.size, 6u);  // the empty connectivity's three slots stay at the end
  const double expect[6] = {1, -1, 1, 0, 0, 0};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(q[i], expect[i], 1e-14) << i;

  const std::pair<int, int> calls[] = {{1, 0}, {0, 3}, {0, 0}, {0, 4}};  // node 9 in the last mesh
  const int want[] = {-3, -4, 0, -2};
  for (int k = 0; k < 4; ++k) {
    q.resize(2, 5.0);
    EXPECT_EQ(shape_qualities(pos, meshes + calls[k].first, meshes + calls[k].second, k == 2 ? dense1D<int, 16>() : types, q), want[k]);
    EXPECT_EQ(q.size, 0u);
  }
  types[0] = ET_TRIA6;
  EXPECT_EQ(shape_qualities(pos, meshes, meshes + 3, types.sub_vector(0, 3), q), -3);

  misc::histogram h(-1.0, 1.01, 4);
  EXPECT_TRUE(shape_qualities(pos, meshes, meshes + 3, types.sub_vector(0, 3), h) == -3 && h.count() == 0);
  types[0] = ET_TRIA3;
  EXPECT_EQ(shape_qualities(pos, meshes, meshes + 3, types.sub_vector(0, 3), h), 0);
  EXPECT_TRUE(h.count() == 6 && h.bin(0) == 1);
  EXPECT_EQ(shape_qualities(pos, meshes[3], ET_TRIA3, h), -2);
  EXPECT_TRUE(shape_qualities(pos, meshes[0], ET_TRIA3, h) == 0 && h.count() == 8);
}

TEST(ShapeQualities, HostileCoordinatesNeverCrash) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  for (double bad : {nan, inf, -inf, 1e300, 1e-300}) {
    std::vector<P3> p = kHex;
    p[0] = {bad, 0, bad};
    if (std::isnan(bad)) {  // a length that is not a number makes the value 0
      EXPECT_TRUE(q1({p[0], p[1], p[2]}, ET_TRIA3) == 0 && q1({p[0], p[1], p[2], p[4]}, ET_TETRA4) == 0);
    }
    for (element_type t : {ET_TRIA3, ET_QUAD4, ET_TETRA4, ET_PYRAMID5, ET_WEDGE6, ET_HEXA8})
      for (unsigned dim : {2u, 3u}) {
        const double q = q1(std::vector<P3>(p.begin(), p.begin() + nodes_per_element(t)), t, dim);
        EXPECT_TRUE(std::isnan(q) || std::abs(q) <= 1) << t << " " << bad;
      }
  }
  // Solids over 2-row coordinates are flat; the buffer is exactly as long as the matrix.
  std::vector<double> buf(16);
  for (unsigned j = 0; j < 8; ++j) buf[2 * j] = kHex[j][0], buf[2 * j + 1] = kHex[j][1];
  dense2D<double> flat;
  flat.storage->adopt(buf.data(), 16), flat.size = 16, flat.rows = 2, flat.cols = 8, flat.ld = 2;
  dense1D<double, 16> q;
  for (element_type t : {ET_TETRA4, ET_PYRAMID5, ET_WEDGE6, ET_HEXA8}) {
    ASSERT_EQ(shape_qualities(flat, conn(nodes_per_element(t)), t, q), 0);
    EXPECT_EQ(q[0], 0.0) << t;
  }
  EXPECT_EQ(shape_qualities(flat.sub_matrix(0, 0, 1, 8), conn(4), ET_QUAD4, q), 0);
  EXPECT_EQ(q[0], 0.0);
}
