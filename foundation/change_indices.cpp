#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {
inline void remap(unsigned* p, std::size_t n, const unsigned* table, unsigned size) {
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned e = p[i];
    if (e < size) p[i] = table[e];
  }
}
}  // namespace

void change_indices(dense1D<unsigned, 16>& IDs, const dense1D<unsigned, 16>& new_IDs) {
  if (IDs.size == 0 || new_IDs.size == 0) return;
  remap(IDs.storage->data + IDs.offset, IDs.size, new_IDs.storage->data + new_IDs.offset, new_IDs.size);
}

void change_indices(dense2D<unsigned>& connectM, const dense1D<unsigned, 16>& new_IDs) {
  if (new_IDs.size == 0) return;
  const unsigned* table = new_IDs.storage->data + new_IDs.offset;
  detail::for_each_run(connectM, [&](unsigned* p, std::size_t n) { remap(p, n, table, new_IDs.size); });
}

}  // namespace kvo::gridkit
