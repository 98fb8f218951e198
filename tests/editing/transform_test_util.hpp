// Small builders shared by the transform, copy, edge and clipping tests.
#ifndef GRIDKIT_TESTS_EDITING_TRANSFORM_TEST_UTIL_HPP
#define GRIDKIT_TESTS_EDITING_TRANSFORM_TEST_UTIL_HPP

#include <cstring>
#include <initializer_list>
#include <limits>

#include <kvo/gridkit.hpp>

namespace tu {

using namespace kvo;
using namespace kvo::gridkit;
using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;
constexpr unsigned N = NULL_INDEX;
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// A matrix of `rows` rows from its entries listed column by column.
template <class T>
dense2D<T> mat(unsigned rows, std::initializer_list<T> v) {
  dense2D<T> m(rows, unsigned(v.size()) / rows);
  unsigned k = 0;
  for (T x : v) m.storage->data[k++] = x;
  return m;
}
inline dense2D<double> pts(unsigned rows, std::initializer_list<double> v) { return mat<double>(rows, v); }
inline dense2D<unsigned> con(unsigned rows, std::initializer_list<unsigned> v) { return mat<unsigned>(rows, v); }

inline dense1D<unsigned, 16> ids(std::initializer_list<unsigned> v) {
  dense1D<unsigned, 16> r(unsigned(v.size()));
  unsigned k = 0;
  for (unsigned x : v) r[k++] = x;
  return r;
}

inline bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace tu

#endif
