// Distinct nodes of index lists and connectivities, in the order of their first occurrence.
#include <algorithm>

#include "editing/editing_internal.hpp"

namespace kvo::gridkit {

namespace {

using compaction::index_set;

// Size of the entries a visitor walks and one past their largest non-null value.
struct scan_extent {
  std::uint64_t entries = 0;
  unsigned bound = 0;
};

template <class Visit>
scan_extent measure(Visit&& visit) {
  scan_extent e;
  visit([&](const unsigned* p, std::size_t n) {
    e.entries += n;
    e.bound = std::max(e.bound, compaction::max_plus_one(p, n));
  });
  return e;
}

// Appends the distinct entries that `visit` walks to `out`, minus NULL_INDEX and `excluded`.
// `aliased`: out shares its block with a scanned matrix, so the results are gathered apart
// before they are appended (appending in place could overwrite entries still to be read).
template <class Visit>
int append_unique(dense1D<unsigned, 16>& out, Visit&& visit, const dense1D<unsigned, 16>& excluded, bool aliased) {
  const scan_extent ext = measure(visit);
  if (ext.bound == 0) return 0;  // nothing but nulls
  index_set seen;
  if (!seen.prepare(ext.bound, ext.entries + excluded.size)) return ERR_ALLOCATION;
  for (unsigned i = 0; i < excluded.size; ++i) {
    const unsigned v = excluded[i];
    if (v != NULL_INDEX) seen.insert_if_new(v);
  }
  // At most min(entries, bound) distinct values can come.
  const std::uint64_t room = std::min<std::uint64_t>(ext.entries, ext.bound);
  if (std::uint64_t(out.size) + room > 0xFFFFFFFFull) return ERR_ALLOCATION;

  if (aliased) {
    compaction::buffer<unsigned> tmp;
    if (!tmp.allocate(std::size_t(room))) return ERR_ALLOCATION;
    const std::size_t k = compaction::append_new(seen, visit, tmp.get());
    if (k == 0) return 0;
    const unsigned old = out.size;
    if (!out.resize(old + unsigned(k))) return ERR_ALLOCATION;
    std::memcpy(out.storage->data + out.offset + old, tmp.get(), k * sizeof(unsigned));
    return 0;
  }
  if (!out.reserve(out.size + unsigned(room), 1)) return ERR_ALLOCATION;
  unsigned* dst = out.storage->data ? out.storage->data + out.offset + out.size : nullptr;
  if (!dst) return 0;  // room is 0
  const std::size_t k = compaction::append_new(seen, visit, dst);
  out.size += unsigned(k);
  return 0;
}

template <class Visit>
int count_unique(Visit&& visit) {
  const scan_extent ext = measure(visit);
  if (ext.bound == 0) return 0;
  index_set seen;
  if (!seen.prepare(ext.bound, ext.entries)) return ERR_ALLOCATION;
  visit([&](const unsigned* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
      if (p[i] != NULL_INDEX) seen.insert_if_new(p[i]);
  });
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
