#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit {

namespace {
// True when every entry is NULL_INDEX or below bound: e + 1 (wrapping) <= bound. Blocks keep
// the inner loop branch-free while still stopping soon after a failure.
inline bool run_below(const unsigned* p, std::size_t n, unsigned bound) {
  constexpr std::size_t block = 4096;
  for (std::size_t s = 0; s < n; s += block) {
    const std::size_t e = s + block < n ? s + block : n;
    unsigned m = 0;
    for (std::size_t i = s; i < e; ++i) {
      const unsigned v = p[i] + 1u;
      m = v > m ? v : m;
    }
    if (m > bound) return false;
  }
  return true;
}

// Every entry strictly below bound (nulls rejected unless bound is NULL_INDEX... which callers
// exclude).
inline bool run_strictly_below(const unsigned* p, std::size_t n, unsigned bound) {
  constexpr std::size_t block = 4096;
  for (std::size_t s = 0; s < n; s += block) {
    const std::size_t e = s + block < n ? s + block : n;
    unsigned m = 0;
    for (std::size_t i = s; i < e; ++i) m = p[i] > m ? p[i] : m;
    if (m >= bound) return false;
  }
  return true;
}
}  // namespace

bool check_IDs(const dense1D<unsigned, 16>& IDs, unsigned bound) {
  if (IDs.size == 0 || bound == NULL_INDEX) return true;
  return run_below(IDs.storage->data + IDs.offset, IDs.size, bound);
}

bool check_IDs(const dense2D<unsigned>& connectM, unsigned bound) {
  if (std::uint64_t(connectM.rows) * connectM.cols == 0 || bound == NULL_INDEX) return true;
  bool ok = true;
  detail::for_each_run(connectM, [&](const unsigned* p, std::size_t n) {
    if (ok) ok = run_below(p, n, bound);
  });
  return ok;
}

bool check_IDs(const dense2D<unsigned>& connectM, element_type FE_type, unsigned bound) {
  const unsigned rows = connectM.rows, cols = connectM.cols;
  if (std::uint64_t(rows) * cols == 0) return true;
  const unsigned* base = connectM.storage->data + connectM.offset;
  const std::size_t ld = connectM.ld;

  if (FE_type == ET_FACE_MIXED) {
    if (rows != 3 && rows != 4) return false;
    for (unsigned j = 0; j < cols; ++j) {
      const unsigned* c = base + j * ld;
      for (unsigned i = 0; i < rows; ++i) {
        if (i == 3 && c[i] == NULL_INDEX) break;  // a triangle
        if (c[i] >= bound) return false;
      }
    }
    return true;
  }

  if (FE_type == ET_SOLID_MIXED) {
    if (rows != 4 && rows != 5 && rows != 6 && rows != 8) return false;
    for (unsigned j = 0; j < cols; ++j) {
      const unsigned* c = base + j * ld;
      for (unsigned i = 0; i < rows; ++i) {
        if (c[i] == NULL_INDEX && i >= 4 && i <= 6) {
          for (unsigned k = i + 1; k < rows; ++k)
            if (c[k] != NULL_INDEX) return false;
          break;
        }
        if (c[i] >= bound) return false;
      }
    }
    return true;
  }

  if (bound == NULL_INDEX) return true;
  if (unsigned(FE_type) > unsigned(ET_HEXA27)) return false;
  if (rows != nodes_per_element(FE_type)) return false;
  if (ld == rows) return run_strictly_below(base, std::size_t(rows) * cols, bound);
  for (unsigned j = 0; j < cols; ++j)
    if (!run_strictly_below(base + j * ld, rows, bound)) return false;
  return true;
}

}  // namespace kvo::gridkit
