// Internal helpers of the foundation subsystem.
#ifndef GRIDKIT_FOUNDATION_INTERNAL_HPP
#define GRIDKIT_FOUNDATION_INTERNAL_HPP

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::detail {

// Calls f(first, count) for every contiguous run of a matrix's entries: one run of rows*cols
// entries when the columns are packed, one run per column otherwise.
template <class T, class F>
inline void for_each_run(const dense2D<T>& m, F&& f) {
  if (std::uint64_t(m.rows) * m.cols == 0) return;
  T* base = m.storage->data + m.offset;
  if (m.ld == m.rows) {
    f(base, std::size_t(m.rows) * m.cols);
  } else {
    for (unsigned j = 0; j < m.cols; ++j) f(base + std::size_t(j) * m.ld, std::size_t(m.rows));
  }
}

}  // namespace kvo::gridkit::detail

#endif
