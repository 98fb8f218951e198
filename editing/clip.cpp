// clip: appends to out the elements lying entirely on the positive side of a plane. Each node is
// classified once (cached per call); a node on the plane is not on the positive side.
#include <cmath>

#include "editing/transform_internal.hpp"

namespace kvo::gridkit {

namespace {

// Walks every column, stopping at the first null entry or the first node not on the positive
// side; stores the indices of the columns kept and returns how many. D coordinate rows are used.
template <unsigned D>
unsigned select(const dense2D<double>& pos, const dense2D<unsigned>& c, const double* o, const double* n,
                signed char* side, unsigned* kept) {
  const double* P = pos.storage->data + pos.offset;
  const std::size_t pld = pos.ld;
  const unsigned* C = c.storage->data + c.offset;
  const std::size_t cld = c.ld;
  const unsigned rows = c.rows, cols = c.cols;
  unsigned nk = 0;
  for (unsigned j = 0; j < cols; ++j) {
    const unsigned* q = C + j * cld;
    bool keep = true;
    for (unsigned i = 0; i < rows; ++i) {
      const unsigned v = q[i];
      if (v == NULL_INDEX) break;
      signed char s = side[v];
      if (s == 0) {
        const double* p = P + v * pld;
        double d = 0.0;
        for (unsigned k = 0; k < D; ++k) d = d + (p[k] - o[k]) * n[k];
        s = d > 0.0 ? 1 : -1;
        side[v] = s;
      }
      if (s != 1) {
        keep = false;
        break;
      }
    }
    kept[nk] = j;
    nk += keep;
  }
  return nk;
}

// With no coordinate row every node is on the plane: only columns starting with a null are kept.
unsigned select_none(const dense2D<unsigned>& c, unsigned* kept) {
  unsigned nk = 0;
  for (unsigned j = 0; j < c.cols; ++j)
    if (c.col_ptr(j)[0] == NULL_INDEX) kept[nk++] = j;
  return nk;
}

}  // namespace

int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectM, const vector_fixed<double, 3>& origin,
         const vector_fixed<double, 3>& normal, dense2D<unsigned>& out) {
  if (detail::is_empty(connectM)) return 0;
  if (!check_IDs(connectM, pos.cols)) return -2;
  const double len = std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
  if (len < 1e-12) return -4;
  if (!detail::is_empty(out) && out.rows != connectM.rows) return -5;

  const unsigned dim = pos.rows < 3 ? pos.rows : 3;
  detail::scratch<unsigned> kept;
  if (!kept.allocate(connectM.cols)) return ERR_ALLOCATION;
  unsigned nk;
  if (dim == 0) {
    nk = select_none(connectM, kept.get());
  } else {
    detail::scratch<signed char> side;
    if (!side.allocate(pos.cols, true)) return ERR_ALLOCATION;
    switch (dim) {
      case 1: nk = select<1>(pos, connectM, origin.data, normal.data, side.get(), kept.get()); break;
      case 2: nk = select<2>(pos, connectM, origin.data, normal.data, side.get(), kept.get()); break;
      default: nk = select<3>(pos, connectM, origin.data, normal.data, side.get(), kept.get()); break;
    }
  }

  // out may share connectM's block: keep a view of the source while out grows.
  const dense2D<unsigned> src(connectM);
  unsigned first;
  if (!detail::grow_columns(out, src.rows, nk, &first)) return ERR_ALLOCATION;
  for (unsigned k = 0; k < nk; ++k) detail::put_column(out, first + k, src, kept[k]);
  return 0;
}

}  // namespace kvo::gridkit
