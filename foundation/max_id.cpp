#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {
// Largest e + 1 (wrapping), so NULL_INDEX counts as 0 and the loop has no branch.
inline unsigned max_plus_one(const unsigned* p, std::size_t n) {
  unsigned m = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v = p[i] + 1u;
    m = v > m ? v : m;
  }
  return m;
}
}  // namespace

unsigned max_ID(const dense1D<unsigned, 16>& IDs) {
  if (IDs.size == 0) return NULL_INDEX;
  const unsigned m = max_plus_one(IDs.storage->data + IDs.offset, IDs.size);
  return m ? m - 1u : 0u;
}

unsigned max_ID(const dense2D<unsigned>& connectM) {
  if (std::uint64_t(connectM.rows) * connectM.cols == 0) return NULL_INDEX;
  unsigned m = 0;
  detail::for_each_run(connectM, [&](const unsigned* p, std::size_t n) {
    const unsigned r = max_plus_one(p, n);
    m = r > m ? r : m;
  });
  return m ? m - 1u : 0u;
}

}  // namespace kvo::gridkit
