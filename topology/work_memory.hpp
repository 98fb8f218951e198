// Large temporary arrays of the topology operations.
//
// Arrays of several megabytes are first touched in scattered order; on Linux they are aligned to
// 2 MiB and marked for transparent huge pages, which cuts the page faults of their first use by
// a factor of 512. Elsewhere, or for small arrays, they are plain allocations.
#ifndef GRIDKIT_TOPOLOGY_WORK_MEMORY_HPP
#define GRIDKIT_TOPOLOGY_WORK_MEMORY_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include <kvo/containers.hpp>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace kvo {
namespace gridkit {
namespace topo {

constexpr std::size_t huge_page = std::size_t(1) << 21;

// Hints that [p, p + bytes) will be used whole: the 2 MiB pages inside it may be huge pages.
inline void advise_huge(void* p, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t first = (a + huge_page - 1) & ~std::uintptr_t(huge_page - 1);
  const std::uintptr_t last = (a + bytes) & ~std::uintptr_t(huge_page - 1);
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
  (void)p;
  (void)bytes;
#endif
}

struct free_deleter {
  void operator()(void* p) const noexcept { std::free(p); }
};

template <class T>
using work_array = std::unique_ptr<T[], free_deleter>;

// n entries, uninitialised; null when the memory cannot be obtained.
template <class T>
inline work_array<T> make_work_array(std::uint64_t n) noexcept {
  if (n == 0) n = 1;
  if (n > std::uint64_t(SIZE_MAX) / sizeof(T) - huge_page) return work_array<T>();
  std::size_t bytes = std::size_t(n) * sizeof(T);
  if (bytes < 2 * huge_page) return work_array<T>(static_cast<T*>(std::malloc(bytes)));
  bytes = (bytes + huge_page - 1) & ~(huge_page - 1);
  T* p = static_cast<T*>(std::aligned_alloc(huge_page, bytes));
  if (p) advise_huge(p, bytes);
  return work_array<T>(p);
}

// Gives a container a fresh block of at least `spare` entries beyond its n entries, which are
// left unset (huge-page hinted when large). False when the memory cannot be obtained; the
// container is then unchanged.
template <class T>
inline bool allocate_unset(dense1D<T, 16>& v, unsigned n, unsigned spare = 0) {
  const std::uint64_t cap = std::uint64_t(n) + spare;
  if (cap > 0xFFFFFFFFull) return false;
  Ptr<vector_num<T, 16>> b(new (std::nothrow) vector_num<T, 16>);
  if (!b || !b->allocate(unsigned(cap))) return false;
  if (b->data) advise_huge(b->data, std::size_t(cap) * sizeof(T));
  v.storage = b;
  v.offset = 0;
  v.size = n;
  return true;
}

// The same for an r x c matrix (contiguous).
template <class T>
inline bool allocate_unset(dense2D<T>& m, unsigned r, unsigned c) {
  const std::uint64_t n = std::uint64_t(r) * c;
  if (n > 0xFFFFFFFFull || !allocate_unset(static_cast<dense1D<T, 16>&>(m), unsigned(n))) return false;
  m.rows = r;
  m.cols = c;
  m.ld = r;
  return true;
}

}  // namespace topo
}  // namespace gridkit
}  // namespace kvo

#endif
