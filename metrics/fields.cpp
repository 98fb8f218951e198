// Metric fields: one isotropic size per node (dense1D) or one packed tensor per column (dense2D
// with 3 rows in 2-D, 6 in 3-D). Checks, repairs, bounds and conversions applied column by column.
#include "metrics/metrics_internal.hpp"

namespace kvo::gridkit {

using namespace metrics_detail;

namespace {

// Dimension of a metric field from its row count; 0 when it is not a metric field.
inline unsigned field_dim(const dense2D<double>& m) { return m.rows == 3 ? 2 : m.rows == 6 ? 3 : 0; }

inline bool valid_column(const double* c, unsigned dim) { return dim == 2 ? is_valid_2d(c) : is_valid_3d(c); }

// Entry pointer of a vector that may be empty (never dereferenced then).
inline double* entries(const dense1D<double, 16>& v) { return v.size ? v.storage->data + v.offset : nullptr; }
inline const unsigned* entries(const dense1D<unsigned, 16>& v) {
  return v.size ? v.storage->data + v.offset : nullptr;
}

// Counts one change; with a list, only a change whose index could be recorded is counted.
inline void record(unsigned index, dense1D<unsigned, 16>* list, int& count) {
  if (!list || list->push_back(index)) ++count;
}

int bound_sizes(dense1D<double, 16>& sizes, double hmin, double hmax, dense1D<unsigned, 16>* list) {
  if (list) list->size = 0;
  if (sizes.size == 0) return 0;
  const int status = bound_status(hmin, hmax);
  if (status <= 0) return status;
  double* h = entries(sizes);
  int count = 0;
  for (unsigned i = 0; i < sizes.size; ++i) {
    if (h[i] >= hmin) {
      if (!(h[i] > hmax)) continue;
      h[i] = hmax;
    } else {
      h[i] = hmin;  // below hmin, or not a number
    }
    record(i, list, count);
  }
  return count;
}

int bound_field(dense2D<double>& metrics, double hmin, double hmax, dense1D<unsigned, 16>* list) {
  if (list) list->size = 0;
  if (metrics.is_empty()) return 0;
  if (no_bound(hmin, hmax)) return 0;
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return -1;
  const int status = bound_status(hmin, hmax);
  if (status <= 0) return status;
  double lo, hi;
  eigenvalue_limits(hmin, hmax, lo, hi);
  int count = 0;
  for (unsigned j = 0; j < metrics.cols; ++j) {
    double* c = metrics.col_ptr(j);
    if (dim == 2 ? bound_tensor_2d(c, lo, hi) : bound_tensor_3d(c, lo, hi)) record(j, list, count);
  }
  return count;
}

}  // namespace

unsigned first_invalid_metric(const dense1D<double, 16>& sizes) {
  const double* h = entries(sizes);
  for (unsigned i = 0; i < sizes.size; ++i)
    if (!valid_size(h[i])) return i;
  return sizes.size;
}

unsigned first_invalid_metric(const dense1D<unsigned, 16>& indices, const dense1D<double, 16>& sizes) {
  const unsigned* id = entries(indices);
  const double* h = entries(sizes);
  for (unsigned k = 0; k < indices.size; ++k)
    if (id[k] >= sizes.size || !valid_size(h[id[k]])) return k;
  return indices.size;
}

unsigned first_invalid_metric(const dense2D<double>& metrics) {
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return 0;
  for (unsigned j = 0; j < metrics.cols; ++j)
    if (!valid_column(metrics.col_ptr(j), dim)) return j;
  return metrics.cols;
}

unsigned first_invalid_metric(const dense1D<unsigned, 16>& indices, const dense2D<double>& metrics) {
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return 0;
  const unsigned* id = entries(indices);
  for (unsigned k = 0; k < indices.size; ++k)
    if (id[k] >= metrics.cols || !valid_column(metrics.col_ptr(id[k]), dim)) return k;
  return indices.size;
}

bool are_valid_metrics(const dense1D<double, 16>& sizes) { return first_invalid_metric(sizes) == sizes.size; }
bool are_valid_metrics(const dense1D<unsigned, 16>& indices, const dense1D<double, 16>& sizes) {
  return first_invalid_metric(indices, sizes) == indices.size;
}
bool are_valid_metrics(const dense2D<double>& metrics) { return first_invalid_metric(metrics) == metrics.cols; }
bool are_valid_metrics(const dense1D<unsigned, 16>& indices, const dense2D<double>& metrics) {
  return first_invalid_metric(indices, metrics) == indices.size;
}

int valid_metrics(const dense2D<double>& metrics, dense1D<unsigned, 16>& indices) {
  if (metrics.is_empty()) return 0;
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return -1;
  int count = 0;
  for (unsigned j = 0; j < metrics.cols; ++j) {
    if (!valid_column(metrics.col_ptr(j), dim)) continue;
    if (!indices.push_back(j)) return ERR_ALLOCATION;
    ++count;
  }
  return count;
}

int bound_metrics(dense1D<double, 16>& sizes, double hmin, double hmax) {
  return bound_sizes(sizes, hmin, hmax, nullptr);
}
int bound_metrics(dense1D<double, 16>& sizes, double hmin, double hmax, dense1D<unsigned, 16>& indices) {
  return bound_sizes(sizes, hmin, hmax, &indices);
}
int bound_metrics(dense2D<double>& metrics, double hmin, double hmax) {
  return bound_field(metrics, hmin, hmax, nullptr);
}
int bound_metrics(dense2D<double>& metrics, double hmin, double hmax, dense1D<unsigned, 16>& indices) {
  return bound_field(metrics, hmin, hmax, &indices);
}

int overwrite_invalid_metrics(dense1D<double, 16>& sizes, const dense1D<double, 16>& default_sizes) {
  const unsigned n = sizes.size < default_sizes.size ? sizes.size : default_sizes.size;
  double* h = entries(sizes);
  const double* d = entries(default_sizes);
  int count = 0;
  for (unsigned i = 0; i < n; ++i) {
    if (h[i] <= 0.0 && d[i] > 0.0) {
      h[i] = d[i];
      ++count;
    }
  }
  return count;
}

int overwrite_invalid_metrics(dense2D<double>& metrics, const dense1D<double, 16>& default_sizes) {
  if (metrics.is_empty()) return 0;
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return -1;
  const unsigned n = metrics.cols < default_sizes.size ? metrics.cols : default_sizes.size;
  const double* d = entries(default_sizes);
  int count = 0;
  for (unsigned i = 0; i < n; ++i) {
    const double h = d[i];
    if (!(h > 0.0)) continue;
    double* c = metrics.col_ptr(i);
    if (valid_column(c, dim)) continue;
    if (dim == 2)
      iso_tensor_2d(h, c);
    else
      iso_tensor_3d(h, c);
    ++count;
  }
  return count;
}

int overwrite_invalid_metrics(dense2D<double>& metrics, const dense2D<double>& default_metrics) {
  if (metrics.is_empty()) return 0;
  const unsigned dim = field_dim(metrics);
  if (dim == 0) return -1;
  if (default_metrics.is_empty()) return 0;
  if (default_metrics.rows != metrics.rows) return -2;
  const unsigned n = metrics.cols < default_metrics.cols ? metrics.cols : default_metrics.cols;
  int count = 0;
  for (unsigned i = 0; i < n; ++i) {
    double* c = metrics.col_ptr(i);
    if (valid_column(c, dim)) continue;
    const double* d = default_metrics.col_ptr(i);
    if (!valid_column(d, dim)) continue;
    for (unsigned r = 0; r < metrics.rows; ++r) c[r] = d[r];
    ++count;
  }
  return count;
}

int metrics_iso_to_aniso2d(const dense1D<double, 16>& sizes, dense2D<double>& metrics) {
  if (sizes.size == 0 && metrics.is_empty()) return 0;
  if (metrics.rows != 3 || metrics.cols < sizes.size) return -2;
  const double* h = entries(sizes);
  for (unsigned i = 0; i < sizes.size; ++i) iso_tensor_2d(h[i], metrics.col_ptr(i));
  return 0;
}

int metrics_iso_to_aniso3d(const dense1D<double, 16>& sizes, dense2D<double>& metrics) {
  if (sizes.size == 0 && metrics.is_empty()) return 0;
  if (metrics.rows != 6 || metrics.cols < sizes.size) return -2;
  const double* h = entries(sizes);
  for (unsigned i = 0; i < sizes.size; ++i) iso_tensor_3d(h[i], metrics.col_ptr(i));
  return 0;
}

int metrics_iso_to_aniso2d(const dense1D<double, 16>& sizes, const dense2D<double>& bases,
                           dense2D<double>& metrics2d) {
  if (sizes.size == 0 && bases.is_empty() && metrics2d.is_empty()) return 0;
  if (bases.rows != 6 || bases.cols != sizes.size) return -2;
  if (metrics2d.rows != 3 || metrics2d.cols < sizes.size) return -3;
  const double* h = entries(sizes);
  for (unsigned i = 0; i < sizes.size; ++i) iso_to_plane(h[i], bases.col_ptr(i), metrics2d.col_ptr(i));
  return 0;
}

int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d, const dense2D<double>& bases,
                               dense2D<double>& metrics2d) {
  if (metrics3d.is_empty() && bases.is_empty() && metrics2d.is_empty()) return 0;
  if (metrics3d.rows != 6) return -1;
  if (bases.rows != 6 || bases.cols != metrics3d.cols) return -2;
  if (metrics2d.rows != 3 || metrics2d.cols < metrics3d.cols) return -3;
  for (unsigned i = 0; i < metrics3d.cols; ++i)
    aniso_to_plane(metrics3d.col_ptr(i), bases.col_ptr(i), metrics2d.col_ptr(i));
  return 0;
}

}  // namespace kvo::gridkit
