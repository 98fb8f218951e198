// Internal helpers of index compaction, degenerate-element removal and node merging.
#ifndef GRIDKIT_EDITING_INTERNAL_HPP
#define GRIDKIT_EDITING_INTERNAL_HPP

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <kvo/gridkit.hpp>

#include "foundation/foundation_internal.hpp"

namespace kvo::gridkit::compaction {

// Heap array that reports allocation failure instead of throwing; contents uninitialised
// unless zeroed.
template <class T>
class buffer {
 public:
  buffer() = default;
  buffer(const buffer&) = delete;
  buffer& operator=(const buffer&) = delete;
  buffer(buffer&& o) noexcept : p_(o.p_), n_(o.n_) {
    o.p_ = nullptr;
    o.n_ = 0;
  }
  buffer& operator=(buffer&& o) noexcept {
    if (this != &o) {
      std::free(p_);
      p_ = o.p_;
      n_ = o.n_;
      o.p_ = nullptr;
      o.n_ = 0;
    }
    return *this;
  }
  ~buffer() { std::free(p_); }

  bool allocate(std::size_t n, bool zeroed = false) {
    reset();
    if (n == 0) return true;
    if (n > SIZE_MAX / sizeof(T)) return false;
    p_ = static_cast<T*>(zeroed ? std::calloc(n, sizeof(T)) : std::malloc(n * sizeof(T)));
    if (!p_) return false;
    n_ = n;
    return true;
  }
  void reset() noexcept {
    std::free(p_);
    p_ = nullptr;
    n_ = 0;
  }
  T* get() const noexcept { return p_; }
  T& operator[](std::size_t i) const noexcept { return p_[i]; }
  std::size_t size() const noexcept { return n_; }

 private:
  T* p_ = nullptr;
  std::size_t n_ = 0;
};

// Largest entry other than NULL_INDEX plus one (0 when there is none), over a run of entries.
// Adding one maps NULL_INDEX to 0, so a plain maximum skips it.
inline unsigned max_plus_one(const unsigned* p, std::size_t n) noexcept {
  unsigned m = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v = p[i] + 1u;
    m = v > m ? v : m;
  }
  return m;
}

// Set of unsigned values that never holds NULL_INDEX. Values below a known bound go to a flat
// bit array (one bit per possible value); when the bound is large compared with the number of
// values to expect, an open-addressing hash table takes over (NULL_INDEX marks a free slot).
class index_set {
 public:
  // `bound`: every value inserted or tested is NULL_INDEX or below it (values at or above it
  // are ignored by insert_if_new and reported absent); `expected`: about how many insertions.
  bool prepare(std::uint64_t bound, std::uint64_t expected) {
    bound_ = bound;
    used_ = 0;
    const std::uint64_t bit_budget = expected * 64 + (std::uint64_t(1) << 23);
    bits_mode_ = bound <= bit_budget;
    if (bits_mode_) return bits_.allocate(std::size_t((bound + 63) / 64), true);
    std::uint64_t cap = 16;
    const std::uint64_t want = expected < (std::uint64_t(1) << 20) ? expected : (std::uint64_t(1) << 20);
    while (cap < 2 * want) cap *= 2;
    return rehash(cap);
  }

  // Inserts v (not NULL_INDEX); true when it was not there. Values at or above the bound are
  // never stored.
  bool insert_if_new(unsigned v) {
    if (v >= bound_) return false;
    if (bits_mode_) {
      std::uint64_t& w = bits_[v >> 6];
      const std::uint64_t m = std::uint64_t(1) << (v & 63);
      if (w & m) return false;
      w |= m;
      ++used_;
      return true;
    }
    std::size_t s = slot(v);
    while (true) {
      const unsigned e = table_[s];
      if (e == v) return false;
      if (e == NULL_INDEX) break;
      s = (s + 1) & mask_;
    }
    table_[s] = v;
    if (++used_ * 2 > table_.size()) grow();
    return true;
  }

  std::uint64_t count() const noexcept { return used_; }

 private:
  std::size_t slot(unsigned v) const noexcept {
    std::uint64_t h = v;
    h ^= h >> 16;
    h *= 0x45d9f3b37197344dull;
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ull;
    h ^= h >> 32;
    return std::size_t(h) & mask_;
  }
  bool rehash(std::uint64_t cap) {
    buffer<unsigned> old(std::move(table_));
    if (!table_.allocate(std::size_t(cap))) {
      table_ = std::move(old);
      return false;
    }
    std::memset(table_.get(), 0xFF, sizeof(unsigned) * table_.size());
    mask_ = std::size_t(cap - 1);
    for (std::size_t i = 0; i < old.size(); ++i) {
      const unsigned v = old[i];
      if (v == NULL_INDEX) continue;
      std::size_t s = slot(v);
      while (table_[s] != NULL_INDEX) s = (s + 1) & mask_;
      table_[s] = v;
    }
    return true;
  }
  // The table never fills: it doubles at half load (2^33 slots hold every 32-bit value).
  // Exhausted memory raises the standard allocation failure, as for any internal hash table.
  void grow() {
    if (!rehash(std::uint64_t(table_.size()) * 2)) throw std::bad_alloc();
  }

  std::uint64_t bound_ = 0;
  std::uint64_t used_ = 0;
  bool bits_mode_ = true;
  buffer<std::uint64_t> bits_;
  buffer<unsigned> table_;
  std::size_t mask_ = 0;
};

// Appends to `out` (room for at least `room` entries is guaranteed by the caller) the distinct
// entries of the runs that `for_each_run` visits, in the order of their first occurrence,
// skipping NULL_INDEX and the values already in `seen`. Returns how many were written.
template <class ForEachRun>
inline std::size_t append_new(index_set& seen, ForEachRun&& for_each_run, unsigned* out) {
  std::size_t k = 0;
  for_each_run([&](const unsigned* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const unsigned v = p[i];
      if (v != NULL_INDEX && seen.insert_if_new(v)) out[k++] = v;
    }
  });
  return k;
}

}  // namespace kvo::gridkit::compaction

#endif
