// Internal helpers of index compaction, degenerate-element removal and node merging.
#ifndef GRIDKIT_EDITING_INTERNAL_HPP
#define GRIDKIT_EDITING_INTERNAL_HPP

#include <algorithm>
#include <bit>
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

// Set of unsigned values that never holds NULL_INDEX. Values below a bound go to a flat bit
// array (one bit per possible value); when the values are large compared with how many are
// expected, an open-addressing hash table takes over (NULL_INDEX marks a free slot).
class index_set {
 public:
  // Fixed bound: values at or above `bound` are never stored (insertions ignore them);
  // `expected`: about how many insertions.
  bool prepare(std::uint64_t bound, std::uint64_t expected) {
    growable_ = false;
    used_ = 0;
    budget_ = expected * 64 + (std::uint64_t(1) << 23);
    if (bound <= budget_) {
      bits_mode_ = true;
      bound_ = bound;
      return bits_.allocate(std::size_t((bound + 63) / 64), true);
    }
    bits_mode_ = false;
    bound_ = bound;
    return start_table(expected);
  }

  // Growing bound: every value may come; admit() makes room before values are inserted. The
  // bit array grows while it stays within about 64 bits per expected insertion, beyond which
  // the values move to the hash table. `excluded` values are members from the start.
  bool prepare_growing(std::uint64_t expected, const unsigned* excluded, std::size_t n_excluded) {
    growable_ = true;
    used_ = 0;
    budget_ = expected * 64 + (std::uint64_t(1) << 23);
    bits_mode_ = true;
    bound_ = 0;
    bits_.reset();
    if (!excluded_.allocate(n_excluded)) return false;
    if (n_excluded) std::memcpy(excluded_.get(), excluded, n_excluded * sizeof(unsigned));
    return true;
  }

  // Room for values below `need` (at most 0xFFFFFFFF, so NULL_INDEX never fits). false when
  // memory ran out.
  bool admit(std::uint64_t need) {
    if (!growable_ || !bits_mode_ || need <= bound_) return true;
    if (need <= budget_) {
      std::uint64_t nb = std::max(need, 2 * bound_);
      nb = std::min<std::uint64_t>(std::min(nb, budget_), 0xFFFFFFFFull);
      buffer<std::uint64_t> grown;
      if (!grown.allocate(std::size_t((nb + 63) / 64), true)) return false;
      if (bits_.size()) std::memcpy(grown.get(), bits_.get(), bits_.size() * sizeof(std::uint64_t));
      bits_ = std::move(grown);
      const std::uint64_t old = bound_;
      bound_ = nb;
      for (std::size_t i = 0; i < excluded_.size(); ++i) {
        const unsigned v = excluded_[i];
        if (v >= old && v < nb) bits_[v >> 6] |= std::uint64_t(1) << (v & 63);
      }
      return true;
    }
    // To the hash table: every value is allowed from now on.
    std::uint64_t members = 0;
    for (std::size_t w = 0; w < bits_.size(); ++w) members += unsigned(std::popcount(bits_[w]));
    if (!start_table(members + excluded_.size())) return false;
    bits_mode_ = false;
    bound_ = std::uint64_t(1) << 32;
    for (std::size_t w = 0; w < bits_.size(); ++w)
      for (std::uint64_t b = bits_[w]; b; b &= b - 1) insert_if_new(unsigned(w * 64 + unsigned(std::countr_zero(b))));
    bits_.reset();
    for (std::size_t i = 0; i < excluded_.size(); ++i)
      if (excluded_[i] != NULL_INDEX) insert_if_new(excluded_[i]);
    return true;
  }

  // Inserts v (not NULL_INDEX); true when it was not there. Values at or above the bound are
  // never stored.
  bool insert_if_new(unsigned v) {
    if (v >= bound_ || failed_) return false;
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
    if (used_ + 2 > table_.size()) {  // keep one slot free so that probing always ends
      failed_ = true;
      return false;
    }
    table_[s] = v;
    if (++used_ * 2 > table_.size()) grow();
    return true;
  }

  // A hash table could not grow and filled up: the results are incomplete.
  bool failed() const noexcept { return failed_; }

  // Hash mode: number of members. Bit mode: insertions made through insert_if_new only.
  std::uint64_t count() const noexcept { return used_; }
  // The bit array (one bit per value below the bound), or null in hash mode.
  std::uint64_t* bits() const noexcept { return bits_mode_ ? bits_.get() : nullptr; }
  std::size_t bit_words() const noexcept { return bits_mode_ ? bits_.size() : 0; }
  std::uint64_t bound() const noexcept { return bound_; }

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
  bool start_table(std::uint64_t expected) {
    used_ = 0;
    std::uint64_t cap = 16;
    const std::uint64_t want = std::min<std::uint64_t>(expected, std::uint64_t(1) << 20);
    while (cap < 2 * want) cap *= 2;
    table_.reset();
    return rehash(cap);
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
  // The table doubles at half load (2^33 slots hold every 32-bit value). When memory runs out
  // it goes on filling the current table, and failed() tells once it is full.
  void grow() { rehash(std::uint64_t(table_.size()) * 2); }

  std::uint64_t bound_ = 0;
  std::uint64_t budget_ = 0;
  std::uint64_t used_ = 0;
  bool bits_mode_ = true;
  bool growable_ = false;
  bool failed_ = false;
  buffer<std::uint64_t> bits_;
  buffer<unsigned> table_;
  buffer<unsigned> excluded_;
  std::size_t mask_ = 0;
};

// Entries are scanned in chunks small enough to stay in the first-level cache between the
// pass that finds their largest value and the pass that records them.
constexpr std::size_t scan_chunk = 2048;

// Appends to `out` (room for every scanned entry is guaranteed by the caller) the distinct
// entries of the runs that `for_each_run` visits, in the order of their first occurrence,
// skipping NULL_INDEX and the values already in `seen`. Returns how many were written, or
// SIZE_MAX when memory ran out.
template <class ForEachRun>
inline std::size_t append_new(index_set& seen, ForEachRun&& for_each_run, unsigned* out) {
  std::size_t k = 0;
  bool failed = false;
  for_each_run([&](const unsigned* p, std::size_t n) {
    for (std::size_t s = 0; s < n && !failed; s += scan_chunk) {
      const std::size_t e = std::min(n, s + scan_chunk);
      if (!seen.admit(max_plus_one(p + s, e - s))) {
        failed = true;
        return;
      }
      if (std::uint64_t* bits = seen.bits()) {
        // NULL_INDEX is never below the bound.
        const std::uint64_t bound = seen.bound();
        for (std::size_t i = s; i < e; ++i) {
          const unsigned v = p[i];
          if (v >= bound) continue;
          const std::uint64_t w = bits[v >> 6], m = std::uint64_t(1) << (v & 63);
          if (w & m) continue;
          bits[v >> 6] = w | m;
          out[k++] = v;
        }
      } else {
        for (std::size_t i = s; i < e; ++i) {
          const unsigned v = p[i];
          if (v != NULL_INDEX && seen.insert_if_new(v)) out[k++] = v;
        }
      }
    }
  });
  return failed || seen.failed() ? SIZE_MAX : k;
}

}  // namespace kvo::gridkit::compaction

#endif
