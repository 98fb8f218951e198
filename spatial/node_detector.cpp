// node_detector: nearest-node and box queries over the columns of a coordinate matrix.
#include <cstdint>
#include <new>
#include <unordered_set>
#include <vector>

#include <kvo/gridkit.hpp>

#include "spatial/kdtree.hpp"

namespace kvo::gridkit {

namespace sp = spatial;

struct node_detector::impl {
  unsigned dim = 0;         // 2 or 3
  dense2D<double> coords;   // a view of the caller's coordinates (shares, never copies, values)
  sp::coord_view view;      // raw access to the usable columns of coords
  sp::node_array nodes;

  impl(unsigned d, const dense2D<double>& pos) : dim(d), coords(pos) {
    view.cols = sp::usable_columns(pos);
    view.base = view.cols ? pos.storage->data + pos.offset : nullptr;
    view.ld = pos.ld;
  }
};

namespace {

// Distinct non-null entries of the connectivities, in the order of their first occurrence
// (column by column, each column row by row, c1 before c2). Entries below `bound` are tracked in
// a bit set; the rare others in a hash set, so they keep their place in the list too.
void distinct_nodes(const dense2D<unsigned>* c1, const dense2D<unsigned>* c2, unsigned bound,
                    std::vector<unsigned>& out) {
  std::vector<std::uint64_t> seen((std::size_t(bound) + 63) / 64, 0);
  std::unordered_set<unsigned> seen_high;
  for (const dense2D<unsigned>* c : {c1, c2}) {
    if (!c || c->is_empty()) continue;
    for (unsigned j = 0; j < c->cols; ++j) {
      const unsigned* col = c->col_ptr(j);
      for (unsigned i = 0; i < c->rows; ++i) {
        const unsigned v = col[i];
        if (v == NULL_INDEX) continue;
        if (v < bound) {
          std::uint64_t& word = seen[v >> 6];
          const std::uint64_t bit = std::uint64_t(1) << (v & 63);
          if (word & bit) continue;
          word |= bit;
        } else if (!seen_high.insert(v).second) {
          continue;
        }
        out.push_back(v);
      }
    }
  }
}

// Shuffles the list, then inserts its entries that are columns of the coordinates, in the
// shuffled order; returns how many went in.
unsigned insert_list(unsigned dim, const sp::coord_view& cv, sp::node_array& nodes, std::vector<unsigned>& list) {
  const unsigned n = static_cast<unsigned>(list.size());
  sp::shuffle_indices(list.data(), n);
  unsigned m = 0;
  for (unsigned i = 0; i < n; ++i)
    if (list[i] < cv.cols) list[m++] = list[i];
  const bool bulk = dim == 2 ? sp::insert_bulk<2>(nodes, cv, list.data(), m)
                             : sp::insert_bulk<3>(nodes, cv, list.data(), m);
  if (bulk) return m;
  // Not enough working memory for the bulk build: insert point by point.
  for (unsigned i = 0; i < m; ++i) {
    const bool ok = dim == 2 ? sp::insert_walk<2>(nodes, cv, list[i]) : sp::insert_walk<3>(nodes, cv, list[i]);
    if (!ok) return i;
  }
  return m;
}

std::vector<unsigned> to_list(const dense1D<unsigned, 16>& indices) {
  const unsigned* p = indices.ptr();
  return p ? std::vector<unsigned>(p, p + indices.size) : std::vector<unsigned>();
}

}  // namespace

node_detector::node_detector() : impl_(nullptr) {}

node_detector::node_detector(const dense2D<double>& pos) : impl_(nullptr) { reinit(pos); }

node_detector::node_detector(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices) : impl_(nullptr) {
  reinit(pos, indices);
}

node_detector::node_detector(const dense2D<double>& pos, const dense2D<unsigned>& connectM) : impl_(nullptr) {
  reinit(pos, connectM);
}

node_detector::node_detector(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
                             const dense2D<unsigned>* connectM2)
    : impl_(nullptr) {
  reinit(pos, connectM1, connectM2);
}

node_detector::node_detector(const node_detector& other) : impl_(nullptr) { *this = other; }

node_detector& node_detector::operator=(const node_detector& other) {
  if (impl_ == other.impl_) return *this;
  clear();
  if (!other.impl_) return *this;
  impl* t = new (std::nothrow) impl(other.impl_->dim, other.impl_->coords);
  if (!t) return *this;
  // The copy reads the same coordinates as the original.
  t->view = other.impl_->view;
  if (!t->nodes.assign(other.impl_->nodes)) {
    delete t;
    return *this;
  }
  impl_ = t;
  return *this;
}

node_detector::~node_detector() { delete impl_; }

void node_detector::clear() {
  delete impl_;
  impl_ = nullptr;
}

int node_detector::reinit(const dense2D<double>& pos) {
  clear();
  if (pos.rows != 2 && pos.rows != 3) return -1;
  impl_ = new (std::nothrow) impl(pos.rows, pos);
  if (!impl_) return ERR_ALLOCATION;
  const unsigned n = impl_->view.cols;  // pos.cols unless its storage is short of columns
  impl_->nodes.reserve(n);
  std::vector<unsigned> list(n);
  for (unsigned i = 0; i < n; ++i) list[i] = i;
  insert_list(impl_->dim, impl_->view, impl_->nodes, list);
  return 0;
}

int node_detector::reinit(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices) {
  if (pos.rows != 2 && pos.rows != 3) return -1;
  if (!check_IDs(indices, pos.cols)) return -2;
  std::vector<unsigned> list = to_list(indices);
  clear();
  impl_ = new (std::nothrow) impl(pos.rows, pos);
  if (!impl_) return ERR_ALLOCATION;
  impl_->nodes.reserve(indices.size);
  insert_list(impl_->dim, impl_->view, impl_->nodes, list);
  return 0;
}

int node_detector::reinit(const dense2D<double>& pos, const dense2D<unsigned>& connectM) {
  return reinit(pos, &connectM, nullptr);
}

int node_detector::reinit(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
                          const dense2D<unsigned>* connectM2) {
  if (pos.rows != 2 && pos.rows != 3) return -1;
  // The distinct-node list holds an index out of range exactly when a connectivity does.
  if ((connectM1 && !check_IDs(*connectM1, pos.cols)) || (connectM2 && !check_IDs(*connectM2, pos.cols)))
    return -2;
  std::vector<unsigned> list;
  distinct_nodes(connectM1, connectM2, sp::usable_columns(pos), list);
  clear();
  impl_ = new (std::nothrow) impl(pos.rows, pos);
  if (!impl_) return ERR_ALLOCATION;
  impl_->nodes.reserve(static_cast<unsigned>(list.size()));
  insert_list(impl_->dim, impl_->view, impl_->nodes, list);
  return 0;
}

unsigned node_detector::insert(const dense1D<unsigned, 16>& indices) {
  if (!impl_) return 0;
  std::vector<unsigned> list = to_list(indices);
  return insert_list(impl_->dim, impl_->view, impl_->nodes, list);
}

unsigned node_detector::insert(const dense2D<unsigned>& connectM) {
  if (!impl_) return 0;
  std::vector<unsigned> list;
  distinct_nodes(&connectM, nullptr, impl_->view.cols, list);
  return insert_list(impl_->dim, impl_->view, impl_->nodes, list);
}

unsigned node_detector::find_closest(const vector_fixed<double, 2>& P) const {
  if (!impl_ || impl_->dim != 2) return NULL_INDEX;
  return sp::nearest<2>(impl_->nodes, impl_->view, P.data, NULL_INDEX);
}

unsigned node_detector::find_closest(const vector_fixed<double, 3>& P) const {
  if (!impl_ || impl_->dim != 3) return NULL_INDEX;
  return sp::nearest<3>(impl_->nodes, impl_->view, P.data, NULL_INDEX);
}

unsigned node_detector::find_closest(unsigned node) const {
  if (!impl_ || node >= impl_->view.cols) return NULL_INDEX;
  double P[3];
  const double* x = impl_->view.at(node);
  for (unsigned k = 0; k < impl_->dim; ++k) P[k] = x[k];
  return impl_->dim == 2 ? sp::nearest<2>(impl_->nodes, impl_->view, P, node)
                         : sp::nearest<3>(impl_->nodes, impl_->view, P, node);
}

void node_detector::find_in_box(const vector_fixed<double, 2>& box_min, const vector_fixed<double, 2>& box_max,
                                dense1D<unsigned, 16>& found) const {
  if (!impl_ || impl_->dim != 2) return;
  sp::in_box<2>(impl_->nodes, impl_->view, box_min.data, box_max.data, found);
}

void node_detector::find_in_box(const vector_fixed<double, 3>& box_min, const vector_fixed<double, 3>& box_max,
                                dense1D<unsigned, 16>& found) const {
  if (!impl_ || impl_->dim != 3) return;
  sp::in_box<3>(impl_->nodes, impl_->view, box_min.data, box_max.data, found);
}

unsigned node_detector::size() const { return impl_ ? impl_->nodes.count : 0; }

}  // namespace kvo::gridkit
