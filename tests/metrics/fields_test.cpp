#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include <kvo/gridkit.hpp>

using namespace kvo;
using namespace kvo::gridkit;
using D1 = dense1D<double, 16>;
using U1 = dense1D<unsigned, 16>;
static const double NaN = std::numeric_limits<double>::quiet_NaN();
static const double inf = std::numeric_limits<double>::infinity();

template <class V, class T>
static V make(std::initializer_list<T> v) {
  V r(unsigned(v.size()));
  std::copy(v.begin(), v.end(), r.begin());
  return r;
}
static D1 vec(std::initializer_list<double> v) { return make<D1>(v); }
static U1 ids(std::initializer_list<unsigned> v) { return make<U1>(v); }
template <class V>
static auto all(const V& v) { return std::vector<std::remove_cv_t<std::remove_pointer_t<decltype(v.begin())>>>(v.begin(), v.end()); }
static dense2D<double> field(unsigned rows, std::initializer_list<std::initializer_list<double>> cols) {
  dense2D<double> m(rows, unsigned(cols.size()));
  unsigned j = 0;
  for (auto& c : cols) std::copy(c.begin(), c.end(), m.col_ptr(j++));
  return m;
}

TEST(MetricFields, FirstInvalid) {
  EXPECT_EQ((std::vector<unsigned>{first_invalid_metric(vec({1, 2, 0, 3})), first_invalid_metric(vec({1, NaN})), first_invalid_metric(vec({1, inf})),
                                    first_invalid_metric(D1()), first_invalid_metric(ids({1, 0, 4, 2}), vec({1, 2, -1}))}),  // 4 is beyond the sizes
            (std::vector<unsigned>{2, 1, 1, 0, 2}));
  EXPECT_TRUE(are_valid_metrics(vec({1, 2})) && are_valid_metrics(ids({1, 0, 1}), vec({1, 2, -1})));

  const auto m2 = field(3, {{1, 0, 1}, {2, 0, 3}, {1, 2, 1}, {NaN, 0, 1}});
  const auto m3 = field(6, {{1, 0, 1, 0, 0, 1}, {1, 0, 1, 0, 0, 0}});
  // a view of rows 1..3 of a 4-row block reads only the view's rows; a 4-row field gives 0
  const auto wide = field(4, {{-5, 1, 0, 1}, {-5, 1, 0, -1}});
  EXPECT_EQ((std::vector<unsigned>{first_invalid_metric(m2), first_invalid_metric(ids({0, 1, 3}), m2), first_invalid_metric(ids({0, 4}), m2),
                                    first_invalid_metric(m3), first_invalid_metric(wide.sub_matrix(1, 0, 3, 2)), first_invalid_metric(wide),
                                    first_invalid_metric(ids({0}), wide)}),
            (std::vector<unsigned>{2, 2, 1, 1, 1, 0, 0}));
  EXPECT_TRUE(are_valid_metrics(ids({1, 0}), m2) && !are_valid_metrics(m2) && !are_valid_metrics(wide));
  EXPECT_TRUE(are_valid_metrics(dense2D<double>(4, 0)) && are_valid_metrics(U1(), wide));  // nothing to test
}

TEST(MetricFields, ValidListAppends) {
  U1 list = ids({7});
  EXPECT_EQ(valid_metrics(field(3, {{1, 0, 1}, {0, 0, 0}, {2, 1, 2}}), list), 2);
  EXPECT_EQ(all(list), (std::vector<unsigned>{7, 0, 2}));
  EXPECT_EQ(valid_metrics(field(4, {{1, 0, 1, 1}}), list), -1);
  EXPECT_TRUE(valid_metrics(dense2D<double>(4, 0), list) == 0 && list.size == 3);
}

TEST(MetricFields, BoundSizes) {
  D1 h = vec({0.5, 5, NaN, 1, 4});
  U1 list = ids({9, 9});
  EXPECT_EQ(bound_metrics(h, 1, 4, list), 3);
  EXPECT_EQ(all(h), (std::vector<double>{1, 4, 1, 1, 4}));
  EXPECT_EQ(all(list), (std::vector<unsigned>{0, 1, 2}));
  h = vec({-3, 2});
  EXPECT_EQ(bound_metrics(h, 0, 1), 2);  // raised to hmin even when it is 0
  EXPECT_EQ(all(h), (std::vector<double>{0, 1}));
  h = vec({-3, NaN});
  EXPECT_EQ(bound_metrics(h, -1, DBL_MAX, list), 0);
  EXPECT_TRUE(list.size == 0 && h[0] == -3);
  D1 none;
  EXPECT_EQ((std::vector<int>{bound_metrics(h, NaN, inf), bound_metrics(h, 1, inf), bound_metrics(none, NaN, NaN)}), (std::vector<int>{-2, -3, 0}));
  EXPECT_EQ(h[0], -3);
}

TEST(MetricFields, BoundTensors) {
  auto m = field(3, {{1, 0, 1}, {100, 0, 1}, {0.5, 0, 1}});
  auto cols = m.sub_matrix(0, 1, 3, 2);  // only the last two columns
  U1 list;
  EXPECT_EQ(bound_metrics(cols, 0.5, 1.5, list), 1);
  EXPECT_TRUE(list.size == 1 && list[0] == 0 && m(0, 0) == 1.0 && m(0, 2) == 0.5);
  EXPECT_DOUBLE_EQ(m(0, 1), 4.0);
  auto m3 = field(6, {{1, 0, 1, 0, 0, 1}, {1, 0, 1, 0, 0, NaN}, {9, 0, 1, 0, 0, 1e-6}});
  EXPECT_EQ(bound_metrics(m3, 0.5, 2.0), 2);
  EXPECT_EQ(all(m3.col(1)), (std::vector<double>{4, 0, 4, 0, 0, 4}));
  EXPECT_DOUBLE_EQ(m3(0, 2), 4.0); EXPECT_DOUBLE_EQ(m3(5, 2), 0.25); EXPECT_DOUBLE_EQ(m3(2, 2), 1.0);
  // checks in order: empty, no bound, row count, bounds
  auto bad = field(4, {{1, 0, 1, 0}});
  dense2D<double> empty(4, 0);
  EXPECT_EQ((std::vector<int>{bound_metrics(bad, 0, DBL_MAX), bound_metrics(bad, NaN, 1), bound_metrics(m3, NaN, 1), bound_metrics(m3, 1, NaN),
                              bound_metrics(empty, NaN, 1)}),
            (std::vector<int>{0, -1, -2, -3, 0}));
}

TEST(MetricFields, Overwrite) {
  D1 h = vec({-1, 2, NaN, 0, 0});
  EXPECT_EQ(overwrite_invalid_metrics(h, vec({3, 3, 3, -1})), 1);
  EXPECT_TRUE(h[0] == 3 && h[1] == 2 && std::isnan(h[2]) && h[3] == 0 && h[4] == 0);

  auto m = field(3, {{1, 0, 1}, {0, 0, 0}, {-1, 0, 1}, {0, 0, 0}});
  EXPECT_EQ(overwrite_invalid_metrics(m, vec({5, 2, 0})), 1);  // column 3 has no default
  EXPECT_EQ(m, field(3, {{1, 0, 1}, {0.25, 0, 0.25}, {-1, 0, 1}, {0, 0, 0}}));
  auto defaults = field(3, {{9, 0, 9}, {9, 0, 9}, {-9, 0, 9}, {4, 0, 4}});
  EXPECT_EQ(overwrite_invalid_metrics(m, defaults), 1);  // the default of column 2 is invalid too
  EXPECT_EQ(m, field(3, {{1, 0, 1}, {0.25, 0, 0.25}, {-1, 0, 1}, {4, 0, 4}}));
  auto bad = field(4, {{1, 0, 1, 0}});
  EXPECT_EQ((std::vector<int>{overwrite_invalid_metrics(bad, vec({1})), overwrite_invalid_metrics(bad, defaults),
                              overwrite_invalid_metrics(m, field(6, {{1, 0, 1, 0, 0, 1}}))}),
            (std::vector<int>{-1, -1, -2}));
}

TEST(MetricFields, Conversions) {
  const D1 h = vec({2, -1});
  dense2D<double> m(3, 3, 7.0);
  EXPECT_EQ(metrics_iso_to_aniso2d(h, m), 0);
  EXPECT_EQ(m, field(3, {{0.25, 0, 0.25}, {0, 0, 0}, {7, 7, 7}}));  // beyond the sizes: untouched
  dense2D<double> few(3, 1), m3(6, 2, 7.0), none;
  const auto bases = field(6, {{1, 0, 0, 0, 1, 0}, {0, 0, 2, 1, 0, 0}});
  EXPECT_EQ((std::vector<int>{metrics_iso_to_aniso2d(h, few), metrics_iso_to_aniso3d(h, m), metrics_iso_to_aniso3d(h, m3), metrics_iso_to_aniso2d(D1(), none),
                              metrics_iso_to_aniso2d(h, bases, few), metrics_iso_to_aniso2d(vec({1}), bases, m), metrics_iso_to_aniso2d(h, bases, m)}),
            (std::vector<int>{-2, -2, 0, 0, -3, -2, 0}));
  EXPECT_EQ(m3, field(6, {{0.25, 0, 0.25, 0, 0, 0.25}, {0, 0, 0, 0, 0, 0}}));
  EXPECT_EQ(m, field(3, {{0.25, 0, 0.25}, {0, 0, 0}, {7, 7, 7}}));

  const auto a = field(6, {{1, 2, 3, 4, 5, 6}, {2, 0, 3, 0, 0, 4}});
  EXPECT_EQ((std::vector<int>{metrics_aniso3d_to_aniso2d(few, bases, m), metrics_aniso3d_to_aniso2d(a, a.sub_matrix(0, 0, 6, 1), m),
                              metrics_aniso3d_to_aniso2d(a, bases, few), metrics_aniso3d_to_aniso2d(a, bases, m)}),
            (std::vector<int>{-1, -2, -3, 0}));
  // tangents x and y give the upper-left block; 2z and x give (4 * 4, 2 * m13, m11)
  EXPECT_EQ(m, field(3, {{1, 2, 3}, {16, 0, 2}, {7, 7, 7}}));
}

// Bounding hostile entries with finite limits leaves every tensor valid, eigenvalues inside the limits.
TEST(MetricFields, BoundingRepairsAnything) {
  std::mt19937 g(17);
  const double pool[] = {NaN, inf, -inf, 1e308, -1e300, 1e160, 1e-300, 0, -1, 1, 0.5, 3, 1e4, 1e-7};
  for (unsigned rows : {3u, 6u}) {
    dense2D<double> m(rows, 5000);
    for (unsigned j = 0; j < m.cols; ++j)
      for (unsigned i = 0; i < rows; ++i) m(i, j) = pool[g() % 14] * (g() % 2 ? 1.0 : 0.7);
    const int changed = bound_metrics(m, 0.01, 100);
    EXPECT_TRUE(changed > 0 && changed <= int(m.cols));
    ASSERT_TRUE(are_valid_metrics(m));
    for (unsigned j = 0; j < m.cols; ++j) {
      vector_fixed<double, 3> w;
      matrix_fixed<double, 3, 3> v;
      if (rows == 3) {  // the 2x2 tensor completed by a unit eigenvalue within the limits
        ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 3>{{m(0, j), m(1, j), m(2, j), 0, 0, 1}}, w, v));
      } else {
        ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 3>{{m(0, j), m(1, j), m(2, j), m(3, j), m(4, j), m(5, j)}}, w, v));
      }
      EXPECT_GE(w[0], 1e-4 - 1e-10) << j;  // rebuilding costs rounding of the order of 1e-16 * lmax
      EXPECT_LE(w[2], 1e4 * (1 + 1e-12)) << j;
    }
  }
}
