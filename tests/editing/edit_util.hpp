// Small builders and readers shared by the editing tests.
#ifndef GRIDKIT_TESTS_EDITING_EDIT_UTIL_HPP
#define GRIDKIT_TESTS_EDITING_EDIT_UTIL_HPP

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include <kvo/gridkit.hpp>

namespace edit_test {

using namespace kvo;
using namespace kvo::gridkit;
using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;
using D2 = dense2D<double>;
using V2 = vector_fixed<double, 2>;
using V3 = vector_fixed<double, 3>;
using vu = std::vector<unsigned>;
constexpr unsigned N = NULL_INDEX;
constexpr double NaN = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();

// A contiguous matrix of `rows` rows from its entries listed column by column.
template <class T>
dense2D<T> mat(unsigned rows, const std::vector<T>& v) {
  dense2D<T> m(rows, unsigned(v.size() / rows));
  std::copy(v.begin(), v.end(), m.storage->data);
  return m;
}
inline D2 pts(unsigned rows, const std::vector<double>& v) { return mat(rows, v); }
inline U2 con(unsigned rows, const vu& v) { return mat(rows, v); }
inline U1 ids(const vu& v) {
  U1 r(unsigned(v.size()));
  std::copy(v.begin(), v.end(), r.begin());
  return r;
}
inline vu values(const U1& v) { return vu(v.begin(), v.begin() + v.size); }
// Entries column by column over the rows only.
inline vu entries(const U2& m) {
  vu r;
  for (unsigned j = 0; j < m.cols; ++j) r.insert(r.end(), m.col_ptr(j), m.col_ptr(j) + m.rows);
  return r;
}
inline bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace edit_test

#endif
