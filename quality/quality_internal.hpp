// Internal helpers of the quality subsystem.
#ifndef GRIDKIT_QUALITY_INTERNAL_HPP
#define GRIDKIT_QUALITY_INTERNAL_HPP

#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kvo::gridkit::quality_detail {

// Two doubles computed side by side (one SSE2 register where available). Each lane sees the
// same IEEE operations as scalar code, so a formula written once for `double` and for `pair2`
// gives bit-identical results in both. Comparisons give lane masks; `sel` picks lane by lane.
#if defined(__SSE2__)
struct pair2 {
  __m128d v;
};
struct mask2 {
  __m128d v;
};
inline pair2 make2(double lane0, double lane1) { return pair2{_mm_set_pd(lane1, lane0)}; }
inline pair2 splat(pair2, double x) { return pair2{_mm_set1_pd(x)}; }
inline double lane(pair2 a, int i) {
  return i == 0 ? _mm_cvtsd_f64(a.v) : _mm_cvtsd_f64(_mm_unpackhi_pd(a.v, a.v));
}
inline pair2 operator+(pair2 a, pair2 b) { return pair2{_mm_add_pd(a.v, b.v)}; }
inline pair2 operator-(pair2 a, pair2 b) { return pair2{_mm_sub_pd(a.v, b.v)}; }
inline pair2 operator*(pair2 a, pair2 b) { return pair2{_mm_mul_pd(a.v, b.v)}; }
inline pair2 operator/(pair2 a, pair2 b) { return pair2{_mm_div_pd(a.v, b.v)}; }
inline pair2 vsqrt(pair2 a) { return pair2{_mm_sqrt_pd(a.v)}; }
inline mask2 lt(pair2 a, pair2 b) { return mask2{_mm_cmplt_pd(a.v, b.v)}; }
inline mask2 gt(pair2 a, pair2 b) { return mask2{_mm_cmpgt_pd(a.v, b.v)}; }
inline mask2 operator&(mask2 a, mask2 b) { return mask2{_mm_and_pd(a.v, b.v)}; }
inline mask2 operator|(mask2 a, mask2 b) { return mask2{_mm_or_pd(a.v, b.v)}; }
inline pair2 sel(mask2 m, pair2 a, pair2 b) { return pair2{_mm_or_pd(_mm_and_pd(m.v, a.v), _mm_andnot_pd(m.v, b.v))}; }
inline bool lane(mask2 m, int i) { return (_mm_movemask_pd(m.v) >> i) & 1; }
#else
struct pair2 {
  double a, b;
};
struct mask2 {
  bool a, b;
};
inline pair2 make2(double lane0, double lane1) { return pair2{lane0, lane1}; }
inline pair2 splat(pair2, double x) { return pair2{x, x}; }
inline double lane(pair2 p, int i) { return i == 0 ? p.a : p.b; }
inline pair2 operator+(pair2 x, pair2 y) { return pair2{x.a + y.a, x.b + y.b}; }
inline pair2 operator-(pair2 x, pair2 y) { return pair2{x.a - y.a, x.b - y.b}; }
inline pair2 operator*(pair2 x, pair2 y) { return pair2{x.a * y.a, x.b * y.b}; }
inline pair2 operator/(pair2 x, pair2 y) { return pair2{x.a / y.a, x.b / y.b}; }
inline pair2 vsqrt(pair2 x) { return pair2{std::sqrt(x.a), std::sqrt(x.b)}; }
inline mask2 lt(pair2 x, pair2 y) { return mask2{x.a < y.a, x.b < y.b}; }
inline mask2 gt(pair2 x, pair2 y) { return mask2{x.a > y.a, x.b > y.b}; }
inline mask2 operator&(mask2 x, mask2 y) { return mask2{x.a && y.a, x.b && y.b}; }
inline mask2 operator|(mask2 x, mask2 y) { return mask2{x.a || y.a, x.b || y.b}; }
inline pair2 sel(mask2 m, pair2 x, pair2 y) { return pair2{m.a ? x.a : y.a, m.b ? x.b : y.b}; }
inline bool lane(mask2 m, int i) { return i == 0 ? m.a : m.b; }
#endif

// The same vocabulary for plain doubles.
inline double splat(double, double x) { return x; }
inline double lane(double a, int) { return a; }
inline double vsqrt(double a) { return std::sqrt(a); }
inline bool lt(double a, double b) { return a < b; }
inline bool gt(double a, double b) { return a > b; }
inline double sel(bool m, double a, double b) { return m ? a : b; }
inline bool lane(bool m, int) { return m; }

// S^(-3/2), lane by lane.
inline double pow_m32(double s) { return std::pow(s, -1.5); }
inline pair2 pow_m32(pair2 s) { return make2(std::pow(lane(s, 0), -1.5), std::pow(lane(s, 1), -1.5)); }

}  // namespace kvo::gridkit::quality_detail

#endif
