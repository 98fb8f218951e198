// Distinct nodes of index lists and connectivities, in the order of their first occurrence.
#include <algorithm>
#include <bit>

#include "editing/editing_internal.hpp"

namespace kvo::gridkit {

namespace {

using compaction::index_set;

// Number of entries a visitor walks (their sizes only; nothing is read).
template <class Visit>
std::uint64_t entry_count(Visit&& visit) {
  std::uint64_t n = 0;
  visit([&](const unsigned*, std::size_t m) { n += m; });
  return n;
}

// Appends the distinct entries that `visit` walks to `out`, minus NULL_INDEX and `excluded`.
// `aliased`: out shares its block with a scanned matrix, so the results are gathered apart
// before they are appended (appending in place could overwrite entries still to be read).
template <class Visit>
int append_unique(dense1D<unsigned, 16>& out, Visit&& visit, const dense1D<unsigned, 16>& excluded, bool aliased) {
  const std::uint64_t entries = entry_count(visit);
  if (entries == 0) return 0;
  if (std::uint64_t(out.size) + entries > 0xFFFFFFFFull) return ERR_ALLOCATION;
  index_set seen;
  if (!seen.prepare_growing(entries + excluded.size, excluded.ptr(), excluded.size)) return ERR_ALLOCATION;

  if (aliased) {
    compaction::buffer<unsigned> tmp;
    if (!tmp.allocate(std::size_t(entries))) return ERR_ALLOCATION;
    const std::size_t k = compaction::append_new(seen, visit, tmp.get());
    if (k == SIZE_MAX) return ERR_ALLOCATION;
    if (k == 0) return 0;
    const unsigned old = out.size;
    if (!out.resize(old + unsigned(k))) return ERR_ALLOCATION;
    std::memcpy(out.storage->data + out.offset + old, tmp.get(), k * sizeof(unsigned));
    return 0;
  }
  if (!out.reserve(out.size + unsigned(entries), 1)) return ERR_ALLOCATION;
  const std::size_t k = compaction::append_new(seen, visit, out.storage->data + out.offset + out.size);
  if (k == SIZE_MAX) return ERR_ALLOCATION;
  out.size += unsigned(k);
  return 0;
}

template <class Visit>
int count_unique(Visit&& visit) {
  const std::uint64_t entries = entry_count(visit);
  index_set seen;
  if (!seen.prepare_growing(entries, nullptr, 0)) return ERR_ALLOCATION;
  bool failed = false;
  visit([&](const unsigned* p, std::size_t n) {
    for (std::size_t s = 0; s < n && !failed; s += compaction::scan_chunk) {
      const std::size_t e = std::min(n, s + compaction::scan_chunk);
      if (!seen.admit(compaction::max_plus_one(p + s, e - s))) {
        failed = true;
        return;
      }
      if (std::uint64_t* bits = seen.bits()) {
        // Set bits without testing them; they are counted at the end.
        for (std::size_t i = s; i < e; ++i) {
          const unsigned v = p[i];
          if (v != NULL_INDEX) bits[v >> 6] |= std::uint64_t(1) << (v & 63);
        }
      } else {
        for (std::size_t i = s; i < e; ++i)
          if (p[i] != NULL_INDEX) seen.insert_if_new(p[i]);
      }
    }
  });
  if (failed || seen.failed()) return ERR_ALLOCATION;
  if (const std::uint64_t* bits = seen.bits()) {
    std::uint64_t count = 0;
    for (std::size_t w = 0; w < seen.bit_words(); ++w) count += unsigned(std::popcount(bits[w]));
    return int(count);
  }
  return int(seen.count());
}

// Visitors over the scanned entries: a list front to back; a matrix column by column over its
// rows (the gap up to ld is skipped); a range connectivity by connectivity.
struct list_visitor {
  const dense1D<unsigned, 16>& v;
  template <class F>
  void operator()(F&& f) const {
    if (v.size) f(v.storage->data + v.offset, std::size_t(v.size));
  }
};

struct range_visitor {
  const dense2D<unsigned>* first;
  const dense2D<unsigned>* last;
  template <class F>
  void operator()(F&& f) const {
    for (const dense2D<unsigned>* c = first; c != last; ++c) detail::for_each_run(*c, f);
  }
};

bool shares_block(const dense1D<unsigned, 16>& out, const dense2D<unsigned>* first, const dense2D<unsigned>* last) {
  for (const dense2D<unsigned>* c = first; c != last; ++c)
    if (c->storage.get() == out.storage.get()) return true;
  return false;
}

}  // namespace

int unique_indices(dense1D<unsigned, 16>& out, const dense1D<unsigned, 16>& IDs, dense1D<unsigned, 16> excluded) {
  const dense1D<unsigned, 16> ids(IDs);  // stays valid if IDs is out itself
  return append_unique(out, list_visitor{ids}, excluded, ids.storage.get() == out.storage.get());
}

int unique_indices(dense1D<unsigned, 16>& out, const dense2D<unsigned>& connectM, dense1D<unsigned, 16> excluded) {
  const dense2D<unsigned> c(connectM);
  return unique_indices(out, &c, &c + 1, excluded);
}

int unique_indices(dense1D<unsigned, 16>& out, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                   dense1D<unsigned, 16> excluded) {
  if (first == last) return 0;
  if (last < first) return -3;
  return append_unique(out, range_visitor{first, last}, excluded, shares_block(out, first, last));
}

int count_unique_indices(const dense2D<unsigned>& connectM) { return count_unique_indices(&connectM, &connectM + 1); }

int count_unique_indices(const dense2D<unsigned>* first, const dense2D<unsigned>* last) {
  if (first == last) return 0;
  if (last < first) return -2;
  return count_unique(range_visitor{first, last});
}

}  // namespace kvo::gridkit
