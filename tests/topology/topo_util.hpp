// Small helpers shared by the topology tests.
#ifndef GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP
#define GRIDKIT_TESTS_TOPOLOGY_TOPO_UTIL_HPP

#include <initializer_list>
#include <vector>

#include <kvo/gridkit.hpp>

namespace topo_test {

using kvo::dense1D;
using kvo::dense2D;
using U1 = dense1D<unsigned, 16>;
using U2 = dense2D<unsigned>;
constexpr unsigned N_ = kvo::gridkit::NULL_INDEX;

// Matrix of `rows` rows from a list of columns.
inline U2 cols(unsigned rows, std::initializer_list<std::initializer_list<unsigned>> columns) {
  U2 m(rows, unsigned(columns.size()));
  unsigned j = 0;
  for (auto& c : columns) {
    unsigned i = 0;
    for (unsigned v : c) m(i++, j) = v;
    ++j;
  }
  return m;
}

inline std::vector<unsigned> vec(const U1& v) { return std::vector<unsigned>(v.begin(), v.end()); }

inline std::vector<unsigned> column(const U2& m, unsigned j) {
  std::vector<unsigned> c(m.rows);
  for (unsigned i = 0; i < m.rows; ++i) c[i] = m(i, j);
  return c;
}

// All entries, column by column.
inline std::vector<unsigned> entries(const U2& m) {
  std::vector<unsigned> r;
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) r.push_back(m(i, j));
  return r;
}

// A copy of m placed inside a larger block (extra rows above and below), so that the view has
// ld > rows and a non-zero offset.
inline U2 strided(const U2& m, unsigned fill = 0xABCDEF) {
  U2 big(m.rows + 3, m.cols + 1, fill);
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) big(i + 1, j + 1) = m(i, j);
  return big.sub_matrix(1, 1, m.rows, m.cols);
}

}  // namespace topo_test

#endif
