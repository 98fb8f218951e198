#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {
inline void shift_non_null(unsigned* p, std::size_t n, unsigned s) {
  for (std::size_t i = 0; i < n; ++i) p[i] = p[i] == NULL_INDEX ? p[i] : p[i] + s;
}
}  // namespace

int shift_indices(dense1D<unsigned, 16>& IDs, int shift) {
  if (shift == 0 || IDs.size == 0) return 0;
  shift_non_null(IDs.storage->data + IDs.offset, IDs.size, static_cast<unsigned>(shift));
  return 0;
}

int shift_indices(dense2D<unsigned>& connectM, int shift, element_type FE_type) {
  if (shift == 0) return 0;
  const unsigned s = static_cast<unsigned>(shift);
  if (FE_type == ET_FACE_MIXED || FE_type == ET_SOLID_MIXED) {
    detail::for_each_run(connectM, [&](unsigned* p, std::size_t n) { shift_non_null(p, n, s); });
  } else {
    // Every entry moves, NULL_INDEX included (it wraps to shift - 1).
    detail::for_each_run(connectM, [&](unsigned* p, std::size_t n) {
      for (std::size_t i = 0; i < n; ++i) p[i] += s;
    });
  }
  return 0;
}

}  // namespace kvo::gridkit
