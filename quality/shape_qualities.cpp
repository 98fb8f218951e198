// Shape qualities of linear elements: 1 for the equilateral element of each kind, towards 0 for
// flat or needle-like elements, 0 or negative for degenerate or inverted ones.
//
// Every kernel reads the corner nodes of one column and writes one double; nothing allocates
// per element. Expressions are written in the order in which they must be evaluated (the
// library is built without floating-point contraction, so results are reproducible bit for bit).
#include <cmath>
#include <cstddef>
#include <cstdint>

#include <kvo/gridkit.hpp>

#include "quality/quality_internal.hpp"

namespace kvo::gridkit {

namespace {

using namespace quality_detail;

// Closed-form constants as doubles.
constexpr double k2sqrt3 = 3.4641016151377544;   // 2*sqrt(3): triangle
constexpr double k4sqrt2 = 5.656854249492381;    // 4*sqrt(2): quadrangle
constexpr double k2sqrt6 = 4.898979485566356;    // 2*sqrt(6): tetrahedron
constexpr double k24sqrt6 = 58.78775382679627;   // 24*sqrt(6): pyramid
constexpr double k18sqrt3 = 31.17691453623979;   // 18*sqrt(3): wedge
constexpr double k24sqrt3 = 41.569219381653056;  // 24*sqrt(3): hexahedron

// Thresholds of the re-checks.
constexpr double kTiny = 1e-12;                      // at or below: degenerate, final
constexpr double kTetSure = 1e-10;                   // tetrahedron value trusted without re-evaluation
constexpr double kPyramidBand = 4.1569219381653057e-11;  // 24*sqrt(3)*1e-12: top of the pyramid band

inline double clamp(double v, double lo, double hi) { return v > hi ? hi : (v < lo ? lo : v); }

// A point or vector of one element (T = double) or of two elements side by side (T = pair2).
template <class T>
struct p3 {
  T x, y, z;
};
using pt = p3<double>;

template <class T>
inline p3<T> sub(const p3<T>& a, const p3<T>& b) {
  return p3<T>{a.x - b.x, a.y - b.y, a.z - b.z};
}
template <class T>
inline p3<T> cross(const p3<T>& a, const p3<T>& b) {
  return p3<T>{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
template <class T>
inline T dot(const p3<T>& a, const p3<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <class T>
inline T norm2(const p3<T>& a) {
  return a.x * a.x + a.y * a.y + a.z * a.z;
}

// Coordinate readers. Each yields a node as three components; components the matrix does not
// have (fewer than 3 rows) read as 0, so nothing past the matrix is ever touched.
struct xyz_reader {  // 3 or more rows: the first three are used
  const double* base;
  std::size_t ld;
  pt operator()(unsigned j) const {
    const double* c = base + std::size_t(j) * ld;
    return pt{c[0], c[1], c[2]};
  }
};
struct xy_reader {  // 2 rows: z = 0
  const double* base;
  std::size_t ld;
  pt operator()(unsigned j) const {
    const double* c = base + std::size_t(j) * ld;
    return pt{c[0], c[1], 0.0};
  }
};
struct short_reader {  // 0 or 1 row
  const double* base;
  std::size_t ld;
  unsigned rows;
  pt operator()(unsigned j) const {
    if (rows == 0) return pt{0.0, 0.0, 0.0};
    return pt{base[std::size_t(j) * ld], 0.0, 0.0};
  }
};

// ---------------------------------------------------------------------------------------------
// Faces

inline double triangle_2d(const pt& p0, const pt& p1, const pt& p2) {
  const double dx01 = p1.x - p0.x, dy01 = p1.y - p0.y;
  const double dx02 = p2.x - p0.x, dy02 = p2.y - p0.y;
  const double dx12 = p2.x - p1.x, dy12 = p2.y - p1.y;
  const double l01 = std::sqrt(dx01 * dx01 + dy01 * dy01);
  const double l02 = std::sqrt(dx02 * dx02 + dy02 * dy02);
  const double l12 = std::sqrt(dx12 * dx12 + dy12 * dy12);
  double hmax = l01;
  if (l02 > hmax) hmax = l02;
  if (l12 > hmax) hmax = l12;
  const double perimeter = l01 + l02 + l12;
  if (!(hmax > 0.0)) return 0.0;
  const double area2 = dx01 * dy02 - dy01 * dx02;
  return clamp(k2sqrt3 * area2 / (hmax * perimeter), -1.0, 1.0);
}

inline double triangle_3d(const pt& p0, const pt& p1, const pt& p2) {
  const pt e01 = sub(p1, p0), e02 = sub(p2, p0), e12 = sub(p2, p1);
  const double l01 = std::sqrt(norm2(e01));
  const double l02 = std::sqrt(norm2(e02));
  const double l12 = std::sqrt(norm2(e12));
  double hmax = l01;
  if (l02 > hmax) hmax = l02;
  if (l12 > hmax) hmax = l12;
  const double perimeter = l01 + l02 + l12;
  if (!(hmax > 0.0)) return 0.0;
  const double area2 = std::sqrt(norm2(cross(e01, e02)));
  const double q = k2sqrt3 * area2 / (hmax * perimeter);
  return q > 1.0 ? 1.0 : q;
}

// Longest of the four edges and two diagonals, the perimeter and the longer diagonal.
struct quad_lengths {
  double hmax, perimeter, diagonal;
};

inline quad_lengths quad_measure(const pt& p0, const pt& p1, const pt& p2, const pt& p3, const pt e[4]) {
  const double l0 = std::sqrt(norm2(e[0])), l1 = std::sqrt(norm2(e[1]));
  const double l2 = std::sqrt(norm2(e[2])), l3 = std::sqrt(norm2(e[3]));
  const double d0 = std::sqrt(norm2(sub(p2, p0))), d1 = std::sqrt(norm2(sub(p3, p1)));
  quad_lengths r;
  r.perimeter = l0 + l1 + l2 + l3;
  r.diagonal = d1 > d0 ? d1 : d0;
  double h = l0;
  if (l1 > h) h = l1;
  if (l2 > h) h = l2;
  if (l3 > h) h = l3;
  if (d0 > h) h = d0;
  if (d1 > h) h = d1;
  r.hmax = h;
  return r;
}

inline double quadrangle_2d(const pt& p0, const pt& p1, const pt& p2, const pt& p3) {
  const pt e[4] = {sub(p1, p0), sub(p2, p1), sub(p3, p2), sub(p0, p3)};
  const quad_lengths m = quad_measure(p0, p1, p2, p3, e);
  if (!(m.diagonal > 0.0)) return 0.0;
  // Corner i: z-component of e[i-1] x e[i].
  double cmin = e[3].x * e[0].y - e[3].y * e[0].x;
  for (int i = 1; i < 4; ++i) {
    const double c = e[i - 1].x * e[i].y - e[i - 1].y * e[i].x;
    if (c < cmin) cmin = c;
  }
  return clamp(k4sqrt2 * cmin / (m.hmax * m.perimeter), -1.0, 1.0);
}

// Of two cosines, the smaller; the first when they are equal or one is not a number.
inline double min_cos(double a, double b) { return b < a ? b : a; }

inline double quadrangle_3d(const pt& p0, const pt& p1, const pt& p2, const pt& p3) {
  const pt e[4] = {sub(p1, p0), sub(p2, p1), sub(p3, p2), sub(p0, p3)};
  const quad_lengths m = quad_measure(p0, p1, p2, p3, e);
  if (!(m.diagonal > 0.0)) return 0.0;
  const pt n1 = cross(e[0], e[1]), n2 = cross(e[1], e[2]), n3 = cross(e[2], e[3]), n0 = cross(e[3], e[0]);
  const double s0 = norm2(n0), s1 = norm2(n1), s2 = norm2(n2), s3 = norm2(n3);
  const double l0 = std::sqrt(s0), l1 = std::sqrt(s1), l2 = std::sqrt(s2), l3 = std::sqrt(s3);
  double nmin = l1;
  if (l2 < nmin) nmin = l2;
  if (l3 < nmin) nmin = l3;
  if (l0 < nmin) nmin = l0;
  const double q0 = k4sqrt2 * nmin / (m.hmax * m.perimeter);
  double f = 0.0;
  const double pa = s1 * s3, pb = s0 * s2;
  if (pa > 0.0 && pb > 0.0) {
    const double cos_a = dot(n1, n3) / std::sqrt(pa);
    const double cos_b = dot(n0, n2) / std::sqrt(pb);
    f = (1.0 + min_cos(cos_a, cos_b)) / 2.0;
  }
  return clamp(q0 * f, 0.0, 1.0);
}

// ---------------------------------------------------------------------------------------------
// Tetrahedron

// One evaluation with node 3 as base. `doubt` is raised when a squared face term came out
// negative through cancellation.
inline double tetra_once(const pt& p0, const pt& p1, const pt& p2, const pt& p3, bool& doubt) {
  const pt a = sub(p0, p3), b = sub(p1, p3), c = sub(p2, p3);
  const double d = dot(a, cross(b, c));
  const double aa = norm2(a), bb = norm2(b), cc = norm2(c);
  const double ab = dot(a, b), ac = dot(a, c), bc = dot(b, c);
  const pt u = sub(a, b), v = sub(a, c), w = sub(b, c);
  const double uu = norm2(u), vv = norm2(v), ww = norm2(w), uv = dot(u, v);
  double t0 = aa * bb - ab * ab;
  double t1 = aa * cc - ac * ac;
  double t2 = bb * cc - bc * bc;
  double t3 = uu * vv - uv * uv;
  if (t0 < 0.0 || t1 < 0.0 || t2 < 0.0 || t3 < 0.0) {
    doubt = true;
    if (t0 < 0.0) t0 = 0.0;
    if (t1 < 0.0) t1 = 0.0;
    if (t2 < 0.0) t2 = 0.0;
    if (t3 < 0.0) t3 = 0.0;
  }
  const double faces = std::sqrt(t0) + std::sqrt(t1) + std::sqrt(t2) + std::sqrt(t3);
  double m = aa;
  if (bb > m) m = bb;
  if (cc > m) m = cc;
  if (uu > m) m = uu;
  if (vv > m) m = vv;
  if (ww > m) m = ww;
  const double den = std::sqrt(m) * faces;
  if (!(den > 0.0)) return 0.0;
  return clamp(k2sqrt6 * d / den, -1.0, 1.0);
}

// The eleven orderings of four nodes, besides the identity, that keep the orientation.
constexpr unsigned char kEvenPermutations[11][4] = {
    {1, 2, 0, 3}, {2, 0, 1, 3},                //
    {0, 3, 1, 2}, {3, 1, 0, 2}, {1, 0, 3, 2},  //
    {0, 2, 3, 1}, {2, 3, 0, 1}, {3, 0, 2, 1},  //
    {1, 3, 2, 0}, {3, 2, 1, 0}, {2, 1, 3, 0}};

// Re-evaluates a doubtful or nearly flat tetrahedron from the other orientation-keeping
// orderings of its nodes and keeps the smallest value.
__attribute__((noinline)) double tetra_reevaluate(const pt p[4], double q) {
  for (const auto& s : kEvenPermutations) {
    bool doubt = false;
    const double v = tetra_once(p[s[0]], p[s[1]], p[s[2]], p[s[3]], doubt);
    if (v < q) q = v;
    if (q <= kTiny) break;
  }
  return q;
}

inline double tetrahedron(const pt& p0, const pt& p1, const pt& p2, const pt& p3) {
  bool doubt = false;
  const double q = tetra_once(p0, p1, p2, p3, doubt);
  if (!doubt && q >= kTetSure) return q;
  if (q <= kTiny) return q;
  const pt p[4] = {p0, p1, p2, p3};
  return tetra_reevaluate(p, q);
}

// ---------------------------------------------------------------------------------------------
// Quadrangular faces of solids, pyramids

// A 4-node face: its edges e[k] = P[k+1] - P[k] and corner normals n[k] = e[k-1] x e[k].
struct quad_face {
  pt p[4];
  pt e[4];
  pt n[4];
  double s[4];  // |n[k]|^2

  void set(const pt& a, const pt& b, const pt& c, const pt& d) {
    p[0] = a;
    p[1] = b;
    p[2] = c;
    p[3] = d;
    e[0] = sub(b, a);
    e[1] = sub(c, b);
    e[2] = sub(d, c);
    e[3] = sub(a, d);
    n[0] = cross(e[3], e[0]);
    n[1] = cross(e[0], e[1]);
    n[2] = cross(e[1], e[2]);
    n[3] = cross(e[2], e[3]);
    for (int k = 0; k < 4; ++k) s[k] = norm2(n[k]);
  }

  // 1 for a plane convex face, 0 for a face folded back on itself.
  double warp() const {
    const double pa = s[1] * s[3], pb = s[0] * s[2];
    const double cos_a = pa > 0.0 ? dot(n[1], n[3]) / std::sqrt(pa) : -1.0;
    const double cos_b = pb > 0.0 ? dot(n[0], n[2]) / std::sqrt(pb) : -1.0;
    return clamp((1.0 + min_cos(cos_a, cos_b)) / 2.0, 0.0, 1.0);
  }

  // Smallest triple product ((P[k+1]-P[k]) x (P[k-1]-P[k])) . (apex - P[k]), positive when the
  // face turns counter-clockwise seen from the apex.
  double min_corner(const pt& apex) const {
    double d = dot(n[0], sub(apex, p[0]));
    for (int k = 1; k < 4; ++k) {
      const double v = dot(n[k], sub(apex, p[k]));
      if (v < d) d = v;
    }
    return d;
  }

  // 2 * sum |apex - P[k]|^2 + sum |e[k]|^2.
  double pyramid_edges(const pt& apex) const {
    const double lateral =
        norm2(sub(apex, p[0])) + norm2(sub(apex, p[1])) + norm2(sub(apex, p[2])) + norm2(sub(apex, p[3]));
    const double base = norm2(e[0]) + norm2(e[1]) + norm2(e[2]) + norm2(e[3]);
    return 2.0 * lateral + base;
  }
};

// Pyramid value before its re-check; `warped` applies the face-warp factor of the base.
inline double pyramid_value(const quad_face& f, const pt& apex, bool warped) {
  const double s = f.pyramid_edges(apex);
  const double dmin = f.min_corner(apex);
  double q = 0.0;
  if (s > 0.0) q = k24sqrt6 * dmin * std::pow(s, -1.5);
  if (warped) q *= f.warp();
  return clamp(q, -1.0, 1.0);
}

// Smallest of 1 and the qualities of the four corner tetrahedra of a pyramid.
__attribute__((noinline)) double pyramid_corner_tetrahedra(const quad_face& f, const pt& apex) {
  double q = 1.0;
  for (int k = 0; k < 4; ++k) {
    const double t = tetrahedron(f.p[(k + 3) & 3], f.p[(k + 1) & 3], f.p[k], apex);
    if (t < q) q = t;
  }
  return q;
}

inline double pyramid(const quad_face& f, const pt& apex, bool warped) {
  const double q = pyramid_value(f, apex, warped);
  if (q > kTiny && q < kPyramidBand) {
    const double q2 = pyramid_corner_tetrahedra(f, apex);
    if (q2 < kTiny) return q2;
  }
  return q;
}

// A face joined to a point inside a solid, as used by the wedge and hexahedron re-checks.
__attribute__((noinline)) double sub_pyramid(const quad_face& f, const pt& apex, bool warped) {
  const double q = pyramid_value(f, apex, warped);
  if (q <= kTiny || q >= kPyramidBand) return q;
  const double q2 = pyramid_corner_tetrahedra(f, apex);
  return q2 < kTiny ? q2 : q;
}

// True when a pyramid with edge sum S, smallest corner value Dmin and base warp factor w
// certainly has a quality above the re-check band, so that it can neither fall below 1e-12 nor
// be re-checked. Decided without a power or root: (24 sqrt6 Dmin w)^2 > (1e-10)^2 S^3, with S
// kept in a range where nothing overflows or underflows; the margin over the band (1e-10 against
// 4.2e-11) dwarfs the rounding errors.
inline bool clearly_above_band(double s, double dmin, double w) {
  if (!(s > 1e-90 && s < 1e90)) return false;
  if (!(dmin > 0.0 && w > 0.0)) return false;
  const double t = k24sqrt6 * dmin * w;
  return t * t > 1e-20 * (s * s * s);
}

inline bool sub_pyramid_clearly_good(const quad_face& f, const pt& apex, double w) {
  return clearly_above_band(f.pyramid_edges(apex), f.min_corner(apex), w);
}

// ---------------------------------------------------------------------------------------------
// Wedge and hexahedron

constexpr unsigned char kWedgeEdges[9][2] = {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4}};
constexpr unsigned char kWedgeQuads[3][4] = {{2, 1, 4, 5}, {5, 3, 0, 2}, {0, 3, 4, 1}};
constexpr unsigned char kWedgeCorners[6][4] = {{0, 1, 2, 3}, {1, 2, 0, 4}, {2, 0, 1, 5},
                                               {3, 5, 4, 0}, {4, 3, 5, 1}, {5, 4, 3, 2}};
constexpr unsigned char kHexEdges[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                            {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
constexpr unsigned char kHexFaces[6][4] = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1},
                                           {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};
constexpr unsigned char kHexCorners[8][4] = {{0, 1, 3, 4}, {1, 2, 0, 5}, {2, 3, 1, 6}, {3, 0, 2, 7},
                                             {4, 7, 5, 0}, {5, 4, 6, 1}, {6, 5, 7, 2}, {7, 6, 4, 3}};

// Triple product ((Pa - Pi) x (Pb - Pi)) . (Pc - Pi) of corner (i; a, b, c).
inline double corner_value(const pt* p, const unsigned char* c) {
  const pt& o = p[c[0]];
  return dot(cross(sub(p[c[1]], o), sub(p[c[2]], o)), sub(p[c[3]], o));
}

inline double wedge(const pt p[6], bool warped) {
  double s = 0.0;
  for (const auto& e : kWedgeEdges) s += norm2(sub(p[e[1]], p[e[0]]));
  double dmin = corner_value(p, kWedgeCorners[0]);
  for (int i = 1; i < 6; ++i) {
    const double v = corner_value(p, kWedgeCorners[i]);
    if (v < dmin) dmin = v;
  }
  double q = 0.0;
  if (s > 0.0) q = k18sqrt3 * dmin * std::pow(s, -1.5);
  quad_face f[3];
  double w[3] = {1.0, 1.0, 1.0};
  for (int k = 0; k < 3; ++k) f[k].set(p[kWedgeQuads[k][0]], p[kWedgeQuads[k][1]], p[kWedgeQuads[k][2]], p[kWedgeQuads[k][3]]);
  if (warped) {
    double wmin = 1.0;
    for (int k = 0; k < 3; ++k) {
      w[k] = f[k].warp();
      if (w[k] < wmin) wmin = w[k];
    }
    q *= wmin;
  }
  q = clamp(q, -1.0, 1.0);
  if (!(q > kTiny)) return q;

  // Re-check from the centroid: the two triangles (as tetrahedra, negated for their orientation)
  // and the three quadrangles (as pyramids).
  pt c{0.0, 0.0, 0.0};
  for (int i = 0; i < 6; ++i) c = pt{c.x + p[i].x, c.y + p[i].y, c.z + p[i].z};
  c = pt{c.x / 6.0, c.y / 6.0, c.z / 6.0};
  double q2 = 1.0;
  const double t0 = -tetrahedron(p[0], p[1], p[2], c);
  if (t0 < q2) q2 = t0;
  const double t1 = -tetrahedron(p[3], p[5], p[4], c);
  if (t1 < q2) q2 = t1;
  for (int k = 0; k < 3; ++k) {
    if (sub_pyramid_clearly_good(f[k], c, w[k])) continue;
    const double v = sub_pyramid(f[k], c, warped);
    if (v < q2) q2 = v;
  }
  return q2 < kTiny ? q2 : q;
}

// Face and face corner whose normal is the cross product of hexahedron corner i: with the faces
// turning as they do, corner k of a face has normal (P[k+1] - P[k]) x (P[k-1] - P[k]), the very
// product that corner i takes (same operands, same rounding).
constexpr unsigned char kHexCornerFace[8][2] = {{4, 0}, {4, 1}, {4, 2}, {4, 3}, {5, 0}, {5, 3}, {5, 2}, {5, 1}};

// Hexahedron edge under each edge of each face.
struct hex_face_edges {
  unsigned char idx[6][4];
};
constexpr hex_face_edges make_hex_face_edges() {
  hex_face_edges t{};
  for (int f = 0; f < 6; ++f)
    for (int k = 0; k < 4; ++k) {
      const unsigned a = kHexFaces[f][k], b = kHexFaces[f][(k + 1) & 3];
      for (int e = 0; e < 12; ++e)
        if ((kHexEdges[e][0] == a && kHexEdges[e][1] == b) || (kHexEdges[e][0] == b && kHexEdges[e][1] == a))
          t.idx[f][k] = static_cast<unsigned char>(e);
    }
  return t;
}
constexpr hex_face_edges kHexFaceEdges = make_hex_face_edges();

// A hexahedron (T = double) or two side by side (T = pair2): its nodes and what its value and
// its re-check share.
template <class T>
struct hex_state {
  p3<T> p[8];
  T edge2[12];   // squared edge lengths
  p3<T> n[6][4]; // corner normals of the faces
  T w[6];        // face-warp factors (1 without them)
  T q;           // value before the re-check
};

template <class T>
inline T clamp_v(T v, double lo, double hi) {
  return sel(gt(v, splat(v, hi)), splat(v, hi), sel(lt(v, splat(v, lo)), splat(v, lo), v));
}

template <class T>
void hex_value(hex_state<T>& h, bool warped) {
  const T zero = splat(T{}, 0.0), one = splat(T{}, 1.0);
  T s = zero;
  for (int k = 0; k < 12; ++k) {
    h.edge2[k] = norm2(sub(h.p[kHexEdges[k][1]], h.p[kHexEdges[k][0]]));
    s = s + h.edge2[k];
  }
  T wmin = one;
  for (int f = 0; f < 6; ++f) {
    const unsigned char* v = kHexFaces[f];
    p3<T> e[4];
    for (int k = 0; k < 4; ++k) e[k] = sub(h.p[v[(k + 1) & 3]], h.p[v[k]]);
    for (int k = 0; k < 4; ++k) h.n[f][k] = cross(e[(k + 3) & 3], e[k]);
    h.w[f] = one;
    if (warped) {
      const T s0 = norm2(h.n[f][0]), s1 = norm2(h.n[f][1]), s2 = norm2(h.n[f][2]), s3 = norm2(h.n[f][3]);
      const T pa = s1 * s3, pb = s0 * s2;
      const T minus1 = splat(T{}, -1.0);
      const T cos_a = sel(gt(pa, zero), dot(h.n[f][1], h.n[f][3]) / vsqrt(pa), minus1);
      const T cos_b = sel(gt(pb, zero), dot(h.n[f][0], h.n[f][2]) / vsqrt(pb), minus1);
      const T m = sel(lt(cos_b, cos_a), cos_b, cos_a);
      h.w[f] = clamp_v((one + m) / splat(T{}, 2.0), 0.0, 1.0);
      wmin = sel(lt(h.w[f], wmin), h.w[f], wmin);
    }
  }
  T dmin = zero;
  for (int i = 0; i < 8; ++i) {
    const T v = dot(h.n[kHexCornerFace[i][0]][kHexCornerFace[i][1]], sub(h.p[kHexCorners[i][3]], h.p[i]));
    dmin = i == 0 ? v : sel(lt(v, dmin), v, dmin);
  }
  T q = sel(gt(s, zero), splat(T{}, k24sqrt3) * dmin * pow_m32(s), zero);
  if (warped) q = q * wmin;
  h.q = clamp_v(q, -1.0, 1.0);
}

// Final value of lane `i`: the re-check from the centroid, where the six faces as pyramids
// must not be degenerate. Most faces are plainly fine and are dismissed (clearly_above_band)
// from the edges and normals already at hand; only the others are evaluated in full.
template <class T>
void hex_recheck(const hex_state<T>& h, bool warped, double* out) {
  constexpr int lanes = sizeof(T) / sizeof(double);
  bool any = false;
  for (int i = 0; i < lanes; ++i) {
    out[i] = lane(h.q, i);
    if (out[i] > kTiny) any = true;
  }
  if (!any) return;
  p3<T> c{splat(T{}, 0.0), splat(T{}, 0.0), splat(T{}, 0.0)};
  for (int i = 0; i < 8; ++i) c = p3<T>{c.x + h.p[i].x, c.y + h.p[i].y, c.z + h.p[i].z};
  const T eight = splat(T{}, 8.0);
  c = p3<T>{c.x / eight, c.y / eight, c.z / eight};
  p3<T> d[8];
  T lateral2[8];
  for (int i = 0; i < 8; ++i) {
    d[i] = sub(c, h.p[i]);
    lateral2[i] = norm2(d[i]);
  }
  double q2[lanes];
  for (int i = 0; i < lanes; ++i) q2[i] = 1.0;
  for (int f = 0; f < 6; ++f) {
    const unsigned char* v = kHexFaces[f];
    const unsigned char* e = kHexFaceEdges.idx[f];
    const T sp = splat(T{}, 2.0) * (lateral2[v[0]] + lateral2[v[1]] + lateral2[v[2]] + lateral2[v[3]]) +
                 (h.edge2[e[0]] + h.edge2[e[1]] + h.edge2[e[2]] + h.edge2[e[3]]);
    T dp = dot(h.n[f][0], d[v[0]]);
    for (int j = 1; j < 4; ++j) {
      const T t = dot(h.n[f][j], d[v[j]]);
      dp = sel(lt(t, dp), t, dp);
    }
    for (int i = 0; i < lanes; ++i) {
      if (!(out[i] > kTiny) || clearly_above_band(lane(sp, i), lane(dp, i), lane(h.w[f], i))) continue;
      auto at = [&](int k) { return pt{lane(h.p[v[k]].x, i), lane(h.p[v[k]].y, i), lane(h.p[v[k]].z, i)}; };
      quad_face face;
      face.set(at(0), at(1), at(2), at(3));
      const double val = sub_pyramid(face, pt{lane(c.x, i), lane(c.y, i), lane(c.z, i)}, warped);
      if (val < q2[i]) q2[i] = val;
    }
  }
  for (int i = 0; i < lanes; ++i)
    if (out[i] > kTiny && q2[i] < kTiny) out[i] = q2[i];
}

// ---------------------------------------------------------------------------------------------
// Loops over the columns of a connectivity

struct columns {
  const unsigned* base;
  std::size_t ld;
  unsigned cols;
  const unsigned* operator[](unsigned j) const { return base + std::size_t(j) * ld; }
};

inline columns columns_of(const dense2D<unsigned>& m) {
  return columns{m.storage->data + m.offset, m.ld, m.cols};
}

template <class R>
void triangles_2d(const R& P, const columns& C, double* out) {
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    out[j] = triangle_2d(P(c[0]), P(c[1]), P(c[2]));
  }
}

template <class R>
void triangles_3d(const R& P, const columns& C, double* out) {
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    out[j] = triangle_3d(P(c[0]), P(c[1]), P(c[2]));
  }
}

template <class R>
void quadrangles(const R& P, const columns& C, bool planar, double* out) {
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    const pt p0 = P(c[0]), p1 = P(c[1]), p2 = P(c[2]), p3 = P(c[3]);
    out[j] = planar ? quadrangle_2d(p0, p1, p2, p3) : quadrangle_3d(p0, p1, p2, p3);
  }
}

template <class R>
void mixed_faces(const R& P, const columns& C, bool planar, double* out) {
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    const pt p0 = P(c[0]), p1 = P(c[1]), p2 = P(c[2]);
    if (c[3] == NULL_INDEX) {
      out[j] = planar ? triangle_2d(p0, p1, p2) : triangle_3d(p0, p1, p2);
    } else {
      const pt p3 = P(c[3]);
      out[j] = planar ? quadrangle_2d(p0, p1, p2, p3) : quadrangle_3d(p0, p1, p2, p3);
    }
  }
}

template <class R>
void tetrahedra(const R& P, const columns& C, double* out) {
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    out[j] = tetrahedron(P(c[0]), P(c[1]), P(c[2]), P(c[3]));
  }
}

template <class R>
void pyramids(const R& P, const columns& C, bool warped, double* out) {
  quad_face f;
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    f.set(P(c[0]), P(c[1]), P(c[2]), P(c[3]));
    out[j] = pyramid(f, P(c[4]), warped);
  }
}

template <class R>
void wedges(const R& P, const columns& C, bool warped, double* out) {
  pt p[6];
  for (unsigned j = 0; j < C.cols; ++j) {
    const unsigned* c = C[j];
    for (int i = 0; i < 6; ++i) p[i] = P(c[i]);
    out[j] = wedge(p, warped);
  }
}

// Hexahedra two at a time, the last one alone; both paths give the same bits.
template <class R>
void hexahedra(const R& P, const columns& C, bool warped, double* out) {
  hex_state<pair2> h2;
  unsigned j = 0;
  for (; j + 1 < C.cols; j += 2) {
    const unsigned* c0 = C[j];
    const unsigned* c1 = C[j + 1];
    for (int i = 0; i < 8; ++i) {
      const pt a = P(c0[i]), b = P(c1[i]);
      h2.p[i] = p3<pair2>{make2(a.x, b.x), make2(a.y, b.y), make2(a.z, b.z)};
    }
    hex_value(h2, warped);
    hex_recheck(h2, warped, out + j);
  }
  if (j < C.cols) {
    hex_state<double> h;
    for (int i = 0; i < 8; ++i) h.p[i] = P(C[j][i]);
    hex_value(h, warped);
    hex_recheck(h, warped, out + j);
  }
}

enum class measure { edge, triangle, quadrangle, mixed_faces, tetrahedron, pyramid, wedge, hexahedron, none };

// The measure of a type and the pure type its connectivity is validated as.
measure select_measure(element_type type, unsigned rows, element_type& checked_as) {
  checked_as = type;
  switch (type) {
    case ET_EDGE2: return measure::edge;
    case ET_TRIA3: return measure::triangle;
    case ET_QUAD4: return measure::quadrangle;
    case ET_FACE_MIXED:
      if (rows == 3) {
        checked_as = ET_TRIA3;
        return measure::triangle;
      }
      return measure::mixed_faces;
    case ET_TETRA4: return measure::tetrahedron;
    case ET_PYRAMID5: return measure::pyramid;
    case ET_WEDGE6: return measure::wedge;
    case ET_HEXA8: return measure::hexahedron;
    case ET_SOLID_MIXED:
      switch (rows) {
        case 4: checked_as = ET_TETRA4; return measure::tetrahedron;
        case 5: checked_as = ET_PYRAMID5; return measure::pyramid;
        case 6: checked_as = ET_WEDGE6; return measure::wedge;
        default: checked_as = ET_HEXA8; return measure::hexahedron;
      }
    default: return measure::none;
  }
}

// Rows a measure reads from every column.
unsigned rows_read(measure m) {
  switch (m) {
    case measure::triangle: return 3;
    case measure::quadrangle:
    case measure::mixed_faces:
    case measure::tetrahedron: return 4;
    case measure::pyramid: return 5;
    case measure::wedge: return 6;
    case measure::hexahedron: return 8;
    default: return 0;
  }
}

template <class R>
void run_measure(measure m, const R& P, const columns& C, bool three_d, double* out) {
  switch (m) {
    case measure::triangle:
      if (three_d)
        triangles_3d(P, C, out);
      else
        triangles_2d(P, C, out);
      break;
    case measure::quadrangle: quadrangles(P, C, !three_d, out); break;
    case measure::mixed_faces: mixed_faces(P, C, !three_d, out); break;
    case measure::tetrahedron: tetrahedra(P, C, out); break;
    case measure::pyramid: pyramids(P, C, three_d, out); break;
    case measure::wedge: wedges(P, C, three_d, out); break;
    case measure::hexahedron: hexahedra(P, C, three_d, out); break;
    default: break;
  }
}

// Fills out[0 .. connectM.cols) (already set to 0.0) for one connectivity. Returns 0, -2 or -3.
int measure_mesh(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type, double* out) {
  element_type checked_as;
  const measure m = select_measure(type, connectM.rows, checked_as);
  if (m == measure::none) return -3;
  // An empty connectivity (no rows or no columns) keeps its zeros.
  if (std::uint64_t(connectM.rows) * connectM.cols == 0) return 0;
  if (!check_IDs(connectM, checked_as, pos.cols)) return -2;
  if (m == measure::edge) {
    for (unsigned j = 0; j < connectM.cols; ++j) out[j] = 1.0;
    return 0;
  }
  // check_IDs waives the row count for a bound of NULL_INDEX; never read rows that are not there.
  if (connectM.rows < rows_read(m)) return -2;

  const columns C = columns_of(connectM);
  const double* base = pos.storage->data + pos.offset;
  const std::size_t ld = pos.ld;
  if (pos.rows >= 3)
    run_measure(m, xyz_reader{base, ld}, C, true, out);
  else if (pos.rows == 2)
    run_measure(m, xy_reader{base, ld}, C, false, out);
  else
    run_measure(m, short_reader{base, ld, pos.rows}, C, false, out);
  return 0;
}

}  // namespace

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                    dense1D<double, 16>& qualities) {
  qualities.size = 0;
  if (!qualities.resize(connectM.cols, 0.0)) return ERR_ALLOCATION;
  const int status = measure_mesh(pos, connectM, type, qualities.ptr());
  if (status != 0) qualities.size = 0;
  return status;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                    const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                    dense1D<double, 16>& qualities) {
  qualities.size = 0;
  const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(connect_begin);
  const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(connect_end);
  if (first > last) return -3;
  const std::size_t count = (last - first) / sizeof(dense2D<unsigned>);
  if (count != types.size) return -4;

  std::uint64_t total = 0;
  for (std::size_t i = 0; i < count; ++i) total += connect_begin[i].cols;
  if (total > 0xFFFFFFFFull) return ERR_ALLOCATION;
  if (!qualities.resize(static_cast<unsigned>(total), 0.0)) return ERR_ALLOCATION;

  double* out = qualities.ptr();
  std::size_t offset = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const dense2D<unsigned>& cm = connect_begin[i];
    // Connectivities without entries are skipped and do not advance the write position: their
    // slots stay at the end of the vector, at 0.
    if (std::uint64_t(cm.rows) * cm.cols == 0) continue;
    const int t = types[static_cast<unsigned>(i)];
    const int status = (t < 0 || t > int(ET_HEXA27)) ? -3 : measure_mesh(pos, cm, element_type(t), out + offset);
    if (status != 0) {
      qualities.size = 0;
      return status;
    }
    offset += cm.cols;
  }
  return 0;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                    const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types, histogram& hist) {
  dense1D<double, 16> values;
  const int status = shape_qualities(pos, connect_begin, connect_end, types, values);
  if (status == 0) hist.process(values);
  return status;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                    histogram& hist) {
  dense1D<int, 16> types;
  if (!types.resize(1, int(type))) return ERR_ALLOCATION;
  return shape_qualities(pos, &connectM, &connectM + 1, types, hist);
}

}  // namespace kvo::gridkit
