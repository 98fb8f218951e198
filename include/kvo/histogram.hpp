// Value histogram filled by the quality operations.
#ifndef KVO_HISTOGRAM_HPP
#define KVO_HISTOGRAM_HPP

#include <cmath>
#include <limits>
#include <vector>

#include <kvo/containers.hpp>

namespace kvo {
namespace misc {

// `bins` equal bins on [lower, upper). Values below `lower` and values at or above `upper`
// (NaN included) are counted apart. minimum(), maximum() and mean() cover every value that is
// not NaN; they are NaN while there is none.
class histogram {
 public:
  histogram() : histogram(0.0, 1.0, 10u) {}
  histogram(double lower, double upper, unsigned bins)
      : lower_(lower), upper_(upper), counts_(bins ? bins : 1u, 0ull) {
    width_ = (upper_ - lower_) / double(counts_.size());
  }

  void process(double v) {
    ++count_;
    if (!std::isnan(v)) {
      if (numbers_ == 0 || v < min_) min_ = v;
      if (numbers_ == 0 || v > max_) max_ = v;
      sum_ += v;
      ++numbers_;
    }
    if (v < lower_) {
      ++below_;
    } else if (!(v < upper_)) {
      ++above_;
    } else {
      double k = std::floor((v - lower_) / width_);
      std::size_t b = k <= 0.0 ? 0 : static_cast<std::size_t>(k);
      if (b >= counts_.size()) b = counts_.size() - 1;
      ++counts_[b];
    }
  }
  void process(const dense1D<double, 16>& values) {
    const double* p = values.ptr();
    for (unsigned i = 0; i < values.size; ++i) process(p[i]);
  }

  unsigned long long count() const { return count_; }
  unsigned bins() const { return static_cast<unsigned>(counts_.size()); }
  unsigned long long bin(unsigned k) const { return k < counts_.size() ? counts_[k] : 0ull; }
  unsigned long long below() const { return below_; }
  unsigned long long above() const { return above_; }
  double lower() const { return lower_; }
  double upper() const { return upper_; }
  double minimum() const { return numbers_ ? min_ : std::numeric_limits<double>::quiet_NaN(); }
  double maximum() const { return numbers_ ? max_ : std::numeric_limits<double>::quiet_NaN(); }
  double mean() const { return numbers_ ? sum_ / double(numbers_) : std::numeric_limits<double>::quiet_NaN(); }

 private:
  double lower_, upper_, width_ = 0.0;
  std::vector<unsigned long long> counts_;
  unsigned long long count_ = 0, below_ = 0, above_ = 0, numbers_ = 0;
  double min_ = 0.0, max_ = 0.0, sum_ = 0.0;
};

}  // namespace misc
}  // namespace kvo

#endif  // KVO_HISTOGRAM_HPP
