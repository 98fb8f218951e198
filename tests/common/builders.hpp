// Containers built from literal lists, shared by the tests.
#ifndef GRIDKIT_TESTS_COMMON_BUILDERS_HPP
#define GRIDKIT_TESTS_COMMON_BUILDERS_HPP

#include <initializer_list>
#include <vector>

#include <kvo/containers.hpp>

namespace testbuild {

// A list of indices.
inline kvo::dense1D<unsigned, 16> vec(std::initializer_list<unsigned> v) {
  kvo::dense1D<unsigned, 16> r(static_cast<unsigned>(v.size()));
  unsigned i = 0;
  for (unsigned x : v) r[i++] = x;
  return r;
}

// A connectivity from its columns (short columns leave their last rows at 0).
inline kvo::dense2D<unsigned> cols(unsigned rows, std::initializer_list<std::initializer_list<unsigned>> c) {
  kvo::dense2D<unsigned> m(rows, static_cast<unsigned>(c.size()));
  unsigned j = 0;
  for (auto& col : c) {
    unsigned i = 0;
    for (unsigned x : col) m(i++, j) = x;
    ++j;
  }
  return m;
}

// A matrix of `rows` rows from its entries in column order.
template <class T>
kvo::dense2D<T> mat(unsigned rows, const std::vector<T>& v) {
  kvo::dense2D<T> m(rows, unsigned(v.size() / rows));
  for (unsigned k = 0; k < v.size(); ++k) m(k % rows, k / rows) = v[k];
  return m;
}

}  // namespace testbuild

#endif
