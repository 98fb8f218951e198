#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {
template <class T>
int scatter(dense1D<T, 16>& V, const dense1D<unsigned, 16>& perm) {
  if (V.size == 0) return 0;
  const unsigned n = V.size < perm.size ? V.size : perm.size;
  dense1D<T, 16> W;
  if (!W.copy(V)) return ERR_ALLOCATION;
  const T* v = V.storage->data + V.offset;
  const unsigned* p = perm.storage->data + perm.offset;
  T* w = W.storage->data + W.offset;
  for (unsigned i = 0; i < n; ++i) {
    const unsigned j = p[i];
    if (j < V.size && j != i) w[j] = v[i];
  }
  V.shallow_copy(W);
  return 0;
}
}  // namespace

int permutation(dense1D<unsigned, 16>& V, const dense1D<unsigned, 16>& perm) { return scatter(V, perm); }
int permutation(dense1D<double, 16>& V, const dense1D<unsigned, 16>& perm) { return scatter(V, perm); }

}  // namespace kvo::gridkit
