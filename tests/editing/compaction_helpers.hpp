// Small builders and readers shared by the compaction and merging tests.
#ifndef GRIDKIT_TESTS_EDITING_COMPACTION_HELPERS_HPP
#define GRIDKIT_TESTS_EDITING_COMPACTION_HELPERS_HPP

#include <vector>

#include <kvo/gridkit.hpp>

namespace testutil {

using U1 = kvo::dense1D<unsigned, 16>;
using U2 = kvo::dense2D<unsigned>;
using D2 = kvo::dense2D<double>;
constexpr unsigned N = kvo::gridkit::NULL_INDEX;

inline U1 list(const std::vector<unsigned>& v) {
  U1 r(unsigned(v.size()));
  for (unsigned i = 0; i < r.size; ++i) r[i] = v[i];
  return r;
}

inline std::vector<unsigned> values(const U1& v) { return std::vector<unsigned>(v.begin(), v.begin() + v.size); }

// A contiguous matrix of `rows` rows filled column by column.
inline U2 matrix(unsigned rows, const std::vector<unsigned>& e) {
  U2 m(rows, unsigned(e.size() / rows));
  for (std::size_t k = 0; k < e.size(); ++k) m.storage->data[k] = e[k];
  return m;
}

// Entries column by column over the rows only.
inline std::vector<unsigned> entries(const U2& m) {
  std::vector<unsigned> r;
  for (unsigned j = 0; j < m.cols; ++j)
    for (unsigned i = 0; i < m.rows; ++i) r.push_back(m(i, j));
  return r;
}

}  // namespace testutil

#endif
