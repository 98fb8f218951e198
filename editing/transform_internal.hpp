// Internal helpers shared by the transforms, copies, edge extraction and clipping.
#ifndef GRIDKIT_EDITING_TRANSFORM_INTERNAL_HPP
#define GRIDKIT_EDITING_TRANSFORM_INTERNAL_HPP

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <kvo/gridkit.hpp>

namespace kvo::gridkit::detail {

// Uninitialised scratch array from malloc: no exception, no zero-fill. ok() is false when the
// memory could not be obtained.
template <class T>
class scratch {
 public:
  scratch() = default;
  explicit scratch(std::size_t n, bool zeroed = false) { allocate(n, zeroed); }
  scratch(const scratch&) = delete;
  scratch& operator=(const scratch&) = delete;
  ~scratch() { std::free(p_); }

  bool allocate(std::size_t n, bool zeroed = false) {
    std::free(p_);
    p_ = nullptr;
    n_ = 0;
    if (n == 0) return true;
    if (n > SIZE_MAX / sizeof(T)) return false;
    p_ = static_cast<T*>(zeroed ? std::calloc(n, sizeof(T)) : std::malloc(n * sizeof(T)));
    if (p_) n_ = n;
    return p_ != nullptr;
  }
  T* get() const noexcept { return p_; }
  T& operator[](std::size_t i) const noexcept { return p_[i]; }
  std::size_t size() const noexcept { return n_; }

 private:
  T* p_ = nullptr;
  std::size_t n_ = 0;
};

// True when every component is exactly 0.0 (a NaN component is not zero).
template <unsigned D>
inline bool all_zero(const vector_fixed<double, D>& v) {
  for (unsigned k = 0; k < D; ++k)
    if (!(v[k] == 0.0)) return false;
  return true;
}

inline bool is_empty(const dense2D<double>& m) { return std::uint64_t(m.rows) * m.cols == 0; }
inline bool is_empty(const dense2D<unsigned>& m) { return std::uint64_t(m.rows) * m.cols == 0; }

// Gives the coordinates at least `dim` rows, the added rows set to 0.0 (the matrix is rebound to
// a new contiguous block). False when the memory could not be obtained; pos is then unchanged.
inline bool promote_rows(dense2D<double>& pos, unsigned dim) {
  if (pos.rows >= dim) return true;
  dense2D<double> t;
  if (!t.resize(dim, pos.cols, 0.0)) return false;
  for (unsigned j = 0; j < pos.cols; ++j) {
    const double* s = pos.col_ptr(j);
    double* d = t.col_ptr(j);
    for (unsigned i = 0; i < pos.rows; ++i) d[i] = s[i];
  }
  pos = t;
  return true;
}

// The distinct nodes of a connectivity, in order of first occurrence, without nulls.
inline int connectivity_nodes(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& nodes) {
  return unique_indices(nodes, connectM, dense1D<unsigned, 16>());
}

// Grows `out` by `add` columns of max(out.rows, src_rows) rows without touching its existing
// entries. When the row count grows, earlier columns get NULL_INDEX in their new rows; an empty
// out (rows x cols = 0) keeps its column count and those columns become all NULL_INDEX. On
// success *first is the index of the first added column; the added columns are left for the
// caller to fill. False on allocation failure, with out unchanged.
inline bool grow_columns(dense2D<unsigned>& out, unsigned src_rows, unsigned add, unsigned* first) {
  const unsigned R = out.rows > src_rows ? out.rows : src_rows;
  const std::uint64_t C64 = std::uint64_t(out.cols) + add;
  if (C64 > 0xFFFFFFFFull || std::uint64_t(R) * C64 > 0xFFFFFFFFull) return false;
  const unsigned C0 = out.cols, C = static_cast<unsigned>(C64);
  *first = C0;
  // No columns yet: take the new shape at once (never allocates).
  if (C0 == 0 && (out.rows != R || out.ld != out.rows) && !out.resize(R, 0)) return false;
  if (R == out.rows && out.ld == out.rows) {
    // Packed columns of the right height: make room after them, growing by half at least so
    // that repeated appends stay linear.
    const std::uint64_t need = std::uint64_t(R) * C;
    if (std::uint64_t(out.offset) + need > out.storage->capacity) {
      std::uint64_t want = std::uint64_t(R) * (std::uint64_t(C0) + C0 / 2 + 8);
      if (want < need) want = need;
      if (want > 0xFFFFFFFFull) want = need;
      if (!out.dense1D<unsigned, 16>::reserve(static_cast<unsigned>(want), 1) &&
          (want == need || !out.dense1D<unsigned, 16>::reserve(static_cast<unsigned>(need), 1)))
        return false;
    }
    out.size = static_cast<unsigned>(need);
    out.cols = C;
    return true;
  }
  if (R == out.rows) return out.resize(R, C);  // a strided view: repacked, columns kept
  // The row count grows: copy what there is into a fresh block, padding with nulls.
  dense2D<unsigned> t;
  if (!t.resize(R, C, NULL_INDEX)) return false;
  if (!is_empty(out))
    for (unsigned j = 0; j < C0; ++j) std::memcpy(t.col_ptr(j), out.col_ptr(j), sizeof(unsigned) * out.rows);
  out = t;
  return true;
}

// Appends column j of src to out at column k (out has at least src.rows rows); extra rows of out
// are set to NULL_INDEX.
inline void put_column(dense2D<unsigned>& out, unsigned k, const dense2D<unsigned>& src, unsigned j) {
  unsigned* d = out.col_ptr(k);
  const unsigned* s = src.col_ptr(j);
  for (unsigned i = 0; i < src.rows; ++i) d[i] = s[i];
  for (unsigned i = src.rows; i < out.rows; ++i) d[i] = NULL_INDEX;
}

// Calls op(p) with a pointer to the first coordinate of every column.
template <unsigned D, class Op>
inline void for_each_column(dense2D<double>& pos, Op op) {
  double* base = pos.storage->data + pos.offset;
  const unsigned n = pos.cols;
  const std::size_t ld = pos.ld;
  if (ld == D) {
    for (unsigned j = 0; j < n; ++j) op(base + std::size_t(j) * D);
  } else {
    for (unsigned j = 0; j < n; ++j) op(base + std::size_t(j) * ld);
  }
}

// Calls op(p) for every listed column below pos.cols (duplicates again); returns how many.
template <class Op>
inline int for_each_listed(dense2D<double>& pos, const dense1D<unsigned, 16>& list, Op op) {
  double* base = pos.storage->data + pos.offset;
  const unsigned* ids = list.storage->data + list.offset;
  const unsigned n = list.size, cols = pos.cols;
  const std::size_t ld = pos.ld;
  int applied = 0;
  for (unsigned k = 0; k < n; ++k) {
    const unsigned j = ids[k];
    if (j >= cols) continue;
    op(base + std::size_t(j) * ld);
    ++applied;
  }
  return applied;
}

}  // namespace kvo::gridkit::detail

#endif
