// Reference-counted, column-major numeric containers shared by every Gridkit operation.
//
// A dense1D is a view (size, offset) on a reference-counted storage block; a dense2D adds a
// column-major shape (rows, cols, ld). Views share blocks: copying a container shares, copy()
// duplicates. Every operation that may allocate reports failure with a bool and leaves the
// container unchanged. Element access is inline and unchecked.
#ifndef KVO_CONTAINERS_HPP
#define KVO_CONTAINERS_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kvo {

// Base of every shared storage block: a virtual destructor and an atomic 32-bit count.
class ref_counted {
 public:
  ref_counted() = default;
  ref_counted(const ref_counted&) : count(0) {}
  ref_counted& operator=(const ref_counted&) { return *this; }
  virtual ~ref_counted() = default;

  int count = 0;

  void __add_ref() noexcept { std::atomic_ref<int>(count).fetch_add(1, std::memory_order_relaxed); }
  // Drops one reference and destroys the block when none is left.
  void __release() noexcept {
    if (std::atomic_ref<int>(count).fetch_sub(1, std::memory_order_acq_rel) - 1 < 1) __destroy();
  }
  void __destroy() noexcept { delete this; }
};

// Intrusive smart pointer over a ref_counted block.
template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(T* p) noexcept : p_(p) {  // NOLINT: implicit by design, like a raw pointer
    if (p_) p_->__add_ref();
  }
  Ptr(const Ptr& o) noexcept : p_(o.p_) {
    if (p_) p_->__add_ref();
  }
  Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  ~Ptr() {
    if (p_) p_->__release();
  }
  // Takes a reference to the new block before dropping the old one (self-assignment safe).
  Ptr& operator=(T* p) noexcept {
    if (p) p->__add_ref();
    T* old = p_;
    p_ = p;
    if (old) old->__release();
    return *this;
  }
  Ptr& operator=(const Ptr& o) noexcept { return *this = o.p_; }
  Ptr& operator=(Ptr&& o) noexcept {
    if (this != &o) {
      T* old = p_;
      p_ = o.p_;
      o.p_ = nullptr;
      if (old) old->__release();
    }
    return *this;
  }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  T* get() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator==(const Ptr& o) const noexcept { return p_ == o.p_; }

 private:
  T* p_ = nullptr;
};

inline void* __vector_num_alloc(std::size_t bytes) noexcept { return std::malloc(bytes); }
inline void __vector_num_free(void* raw) noexcept { std::free(raw); }

// Storage block: `capacity` entries from `data`, aligned to Align bytes. `shift` is the distance
// from the raw allocation to `data`; 0xFFFF marks a buffer the block does not own.
template <class T, unsigned Align = 16>
class vector_num : public ref_counted {
 public:
  static constexpr unsigned short not_owned = 0xFFFF;

  T* data = nullptr;
  unsigned capacity = 0;
  unsigned short shift = 0;

  vector_num() = default;
  vector_num(const vector_num&) = delete;
  vector_num& operator=(const vector_num&) = delete;
  ~vector_num() override { release(); }

  // Room for n entries; the old buffer is released first. Requests whose byte count does not
  // fit 32 bits fail without allocating.
  bool allocate(unsigned n) noexcept {
    release();
    if (n == 0) return true;
    const std::uint64_t bytes = std::uint64_t(n) * sizeof(T) + (Align - 1);
    if (bytes > 0xFFFFFFFFull) return false;
    void* raw = __vector_num_alloc(std::size_t(bytes));
    if (!raw) return false;
    const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (a + (Align - 1)) & ~std::uintptr_t(Align - 1);
    shift = static_cast<unsigned short>(aligned - a);
    data = reinterpret_cast<T*>(aligned);
    capacity = static_cast<unsigned>((bytes - shift) / sizeof(T));
    return true;
  }
  // Wraps a caller's buffer; it is never freed by the block.
  void adopt(T* buffer, unsigned n) noexcept {
    release();
    data = buffer;
    capacity = n;
    shift = not_owned;
  }
  void release() noexcept {
    if (data && shift != not_owned) __vector_num_free(reinterpret_cast<char*>(data) - shift);
    data = nullptr;
    capacity = 0;
    shift = 0;
  }
};

namespace detail {
// Capacity to ask for when growing to `need` entries from `have`: amortised growth, but never
// past what the block can hold.
template <class T>
inline unsigned grown_capacity(unsigned have, unsigned need) noexcept {
  std::uint64_t want = std::uint64_t(have) + have / 2 + 8;
  if (want < need) want = need;
  const std::uint64_t limit = (0xFFFFFFFFull - 64) / sizeof(T);
  if (want > limit) want = need;
  return static_cast<unsigned>(want);
}
}  // namespace detail

template <class T, unsigned Align = 16>
class dense1D {
 public:
  using value_type = T;
  using block_type = vector_num<T, Align>;

  Ptr<block_type> storage;
  unsigned size = 0;
  unsigned offset = 0;

  dense1D() : storage(new block_type) {}
  explicit dense1D(unsigned n) : storage(new block_type) { resize(n); }
  dense1D(unsigned n, T v) : storage(new block_type) { resize(n, v); }
  dense1D(const dense1D& o) noexcept : storage(o.storage), size(o.size), offset(o.offset) {}
  // Assignment shares the other's block, like the copy constructor.
  dense1D& operator=(const dense1D& o) noexcept {
    storage = o.storage;
    size = o.size;
    offset = o.offset;
    return *this;
  }
  ~dense1D() = default;

  // Sets every entry of the view to v.
  T operator=(T v) noexcept {
    T* p = ptr();
    for (unsigned i = 0; i < size; ++i) p[i] = v;
    return v;
  }

  T& operator[](unsigned i) noexcept { return storage->data[offset + i]; }
  const T& operator[](unsigned i) const noexcept { return storage->data[offset + i]; }

  // Pointer to the first entry of the view (null for an empty block).
  T* ptr() const noexcept { return storage->data ? storage->data + offset : nullptr; }
  T* begin() const noexcept { return ptr(); }
  T* end() const noexcept { return ptr() + size; }
  bool empty() const noexcept { return size == 0; }

  // Capacity for n entries from offset on; size and contents unchanged.
  bool reserve(unsigned n, unsigned /*k*/ = 1) {
    const std::uint64_t need = std::uint64_t(offset) + n;
    if (need <= storage->capacity) return true;
    if (n <= size) return true;
    return regrow(n, n);
  }

  // Size becomes n; the first min(size, n) entries are kept, added entries are zero.
  bool resize(unsigned n) { return resize(n, T()); }

  // As resize(n), and entries added beyond the old size are set to v.
  bool resize(unsigned n, T v) {
    if (n > size && std::uint64_t(offset) + n > storage->capacity) {
      if (!regrow(n, detail::grown_capacity<T>(size, n))) return false;
    }
    T* p = storage->data + offset;
    for (unsigned i = size; i < n; ++i) p[i] = v;
    size = n;
    return true;
  }

  // Appends n copies of v.
  bool push_back_n(T v, unsigned n) {
    if (std::uint64_t(size) + n > 0xFFFFFFFFull) return false;
    return resize(size + n, v);
  }
  bool push_back(T v) { return push_back_n(v, 1); }

  dense1D sub_vector(unsigned start, unsigned n) {
    dense1D r(*this);
    r.offset = offset + start;
    r.size = n;
    return r;
  }
  dense1D sub_vector(unsigned start, unsigned n) const {
    dense1D r(*this);
    r.offset = offset + start;
    r.size = n;
    return r;
  }

  void shallow_copy(const dense1D& o) noexcept { *this = o; }

  // Deep copy: this gets its own block with entries equal to the other's.
  bool copy(const dense1D& o) {
    Ptr<block_type> b(new block_type);
    if (!b->allocate(o.size)) return false;
    if (o.size) std::memcpy(b->data, o.storage->data + o.offset, sizeof(T) * o.size);
    storage = b;
    size = o.size;
    offset = 0;
    return true;
  }

  // Size 0 and the block is given up.
  void clear_hard() {
    storage = new block_type;
    size = 0;
    offset = 0;
  }

  bool operator==(const dense1D& o) const noexcept {
    if (size != o.size) return false;
    const T* a = storage->data + offset;
    const T* b = o.storage->data + o.offset;
    for (unsigned i = 0; i < size; ++i)
      if (!(a[i] == b[i])) return false;
    return true;
  }

 protected:
  // Moves the view's entries to a new block of `cap` entries (at least n).
  bool regrow(unsigned n, unsigned cap) {
    Ptr<block_type> b(new (std::nothrow) block_type);
    if (!b) return false;
    if (!b->allocate(cap) && (cap == n || !b->allocate(n))) return false;
    const unsigned keep = size < n ? size : n;
    if (keep) std::memcpy(b->data, storage->data + offset, sizeof(T) * keep);
    storage = b;
    offset = 0;
    return true;
  }
};

// Column-major matrix view: entry (i, j) is storage->data[offset + i + j*ld].
template <class T>
class dense2D : public dense1D<T, 16> {
  using base = dense1D<T, 16>;

 public:
  unsigned rows = 0;
  unsigned cols = 0;
  unsigned ld = 0;

  dense2D() = default;
  dense2D(unsigned r, unsigned c) { resize(r, c); }
  dense2D(unsigned r, unsigned c, T v) { resize(r, c, v); }
  dense2D(const dense2D& o) noexcept = default;
  dense2D& operator=(const dense2D& o) noexcept = default;
  ~dense2D() = default;

  // Sets every entry of the view (not the gaps between its columns) to v.
  T operator=(T v) noexcept {
    for (unsigned j = 0; j < cols; ++j) {
      T* p = this->storage->data + this->offset + std::size_t(j) * ld;
      for (unsigned i = 0; i < rows; ++i) p[i] = v;
    }
    return v;
  }

  T& operator()(unsigned i, unsigned j) noexcept {
    return this->storage->data[this->offset + i + std::size_t(j) * ld];
  }
  const T& operator()(unsigned i, unsigned j) const noexcept {
    return this->storage->data[this->offset + i + std::size_t(j) * ld];
  }
  T* col_ptr(unsigned j) const noexcept { return this->storage->data + this->offset + std::size_t(j) * ld; }
  bool contiguous() const noexcept { return ld == rows; }
  bool is_empty() const noexcept { return std::uint64_t(rows) * cols == 0; }

  // Shape becomes r x c with ld = r. With the row count unchanged, the first min(old, new)
  // columns keep their entries; added entries are zero.
  bool resize(unsigned r, unsigned c) { return resize(r, c, T()); }

  // As resize(r, c); entries of added columns are set to v (all entries when r changes).
  bool resize(unsigned r, unsigned c, T v) {
    const std::uint64_t n64 = std::uint64_t(r) * c;
    if (n64 > 0xFFFFFFFFull) return false;
    const unsigned n = static_cast<unsigned>(n64);
    if (r == rows && ld != rows && cols > 0 && rows > 0) {
      // Strided view: repack the kept columns into a fresh contiguous block.
      Ptr<vector_num<T, 16>> b(new (std::nothrow) vector_num<T, 16>);
      if (!b || !b->allocate(n)) return false;
      const unsigned keep = c < cols ? c : cols;
      for (unsigned j = 0; j < keep; ++j) std::memcpy(b->data + std::size_t(j) * r, col_ptr(j), sizeof(T) * r);
      for (std::size_t k = std::size_t(keep) * r; k < n; ++k) b->data[k] = v;
      this->storage = b;
      this->offset = 0;
      this->size = n;
    } else if (r == rows) {
      if (this->size > std::uint64_t(rows) * cols) this->size = rows * cols;
      if (!base::resize(n, v)) return false;
    } else {
      const unsigned old = this->size;
      if (!base::resize(n, v)) return false;
      T* p = this->storage->data + this->offset;
      for (unsigned k = 0; k < old && k < n; ++k) p[k] = v;
    }
    rows = r;
    cols = c;
    ld = r;
    return true;
  }

  // Capacity for r x c entries; shape unchanged.
  bool reserve(unsigned r, unsigned c) {
    const std::uint64_t n = std::uint64_t(r) * c;
    if (n > 0xFFFFFFFFull) return false;
    return base::reserve(static_cast<unsigned>(n), 1);
  }

  // Appends one column (the matrix must be contiguous); amortised growth.
  bool push_back_col(const T* values) {
    if (ld != rows) return false;
    if (std::uint64_t(this->size) + rows > 0xFFFFFFFFull) return false;
    if (!base::resize(this->size + rows, T())) return false;
    std::memcpy(this->storage->data + this->offset + std::size_t(cols) * rows, values, sizeof(T) * rows);
    ++cols;
    return true;
  }

  base col(unsigned j) const {
    base r(*this);
    r.offset = this->offset + j * ld;
    r.size = rows;
    return r;
  }

  dense2D sub_matrix(unsigned i0, unsigned j0, unsigned r, unsigned c) { return make_sub(i0, j0, r, c); }
  dense2D sub_matrix(unsigned i0, unsigned j0, unsigned r, unsigned c) const { return make_sub(i0, j0, r, c); }

  base as_vector() const { return base(static_cast<const base&>(*this)); }

  void shallow_copy(const dense2D& o) noexcept { *this = o; }

  // Deep copy of entries and shape; the copy is contiguous.
  bool copy(const dense2D& o) {
    const std::uint64_t n64 = std::uint64_t(o.rows) * o.cols;
    if (n64 > 0xFFFFFFFFull) return false;
    const unsigned n = static_cast<unsigned>(n64);
    Ptr<vector_num<T, 16>> b(new (std::nothrow) vector_num<T, 16>);
    if (!b || !b->allocate(n)) return false;
    if (o.ld == o.rows) {
      if (n) std::memcpy(b->data, o.storage->data + o.offset, sizeof(T) * n);
    } else {
      for (unsigned j = 0; j < o.cols; ++j)
        std::memcpy(b->data + std::size_t(j) * o.rows, o.col_ptr(j), sizeof(T) * o.rows);
    }
    this->storage = b;
    this->offset = 0;
    this->size = n;
    rows = o.rows;
    cols = o.cols;
    ld = o.rows;
    return true;
  }

  void clear() noexcept {
    this->size = 0;
    rows = cols = ld = 0;
  }

  bool operator==(const dense2D& o) const noexcept {
    if (rows != o.rows || cols != o.cols) return false;
    for (unsigned j = 0; j < cols; ++j)
      for (unsigned i = 0; i < rows; ++i)
        if (!((*this)(i, j) == o(i, j))) return false;
    return true;
  }

 private:
  dense2D make_sub(unsigned i0, unsigned j0, unsigned r, unsigned c) const {
    dense2D m(*this);
    m.offset = this->offset + i0 + j0 * ld;
    m.rows = r;
    m.cols = c;
    m.size = (r && c) ? (c - 1) * ld + r : 0;
    return m;
  }
};

// N values stored inline.
template <class T, unsigned N>
struct vector_fixed {
  T data[N];

  T operator=(T v) noexcept {
    for (unsigned i = 0; i < N; ++i) data[i] = v;
    return v;
  }
  T& operator[](unsigned i) noexcept { return data[i]; }
  const T& operator[](unsigned i) const noexcept { return data[i]; }
  static constexpr unsigned size() noexcept { return N; }
};

// R x C matrix stored inline, column-major: entry (i, j) is data[i + j*R].
template <class T, unsigned R, unsigned C>
struct matrix_fixed {
  T data[R * C];

  T operator=(T v) noexcept {
    for (unsigned i = 0; i < R * C; ++i) data[i] = v;
    return v;
  }
  T& operator()(unsigned i, unsigned j) noexcept { return data[i + j * R]; }
  const T& operator()(unsigned i, unsigned j) const noexcept { return data[i + j * R]; }
};

// Symmetric N x N matrix stored as its packed upper triangle, column by column:
// (m11, m12, m22) in 2-D, (m11, m12, m22, m13, m23, m33) in 3-D.
template <class T, unsigned N>
struct symmetric_fixed {
  static constexpr unsigned packed = N * (N + 1) / 2;
  T data[packed];

  T operator=(T v) noexcept {
    for (unsigned i = 0; i < packed; ++i) data[i] = v;
    return v;
  }
  T& operator[](unsigned k) noexcept { return data[k]; }
  const T& operator[](unsigned k) const noexcept { return data[k]; }
  static constexpr unsigned index(unsigned i, unsigned j) noexcept {
    return i <= j ? j * (j + 1) / 2 + i : i * (i + 1) / 2 + j;
  }
  T& operator()(unsigned i, unsigned j) noexcept { return data[index(i, j)]; }
  const T& operator()(unsigned i, unsigned j) const noexcept { return data[index(i, j)]; }
};

}  // namespace kvo

#endif  // KVO_CONTAINERS_HPP
