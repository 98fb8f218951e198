#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include <kvo/containers.hpp>
#include <kvo/histogram.hpp>

using kvo::dense1D;
using kvo::dense2D;

TEST(Dense1D, AllocationIsAligned) {
  for (unsigned n : {1u, 3u, 17u, 1000u}) {
    kvo::vector_num<unsigned, 16> b;
    ASSERT_TRUE(b.allocate(n));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(b.data) % 16, 0u);
    EXPECT_GE(b.capacity, n);
  }
}

TEST(Dense1D, SharingCopyAndReferenceCounts) {
  dense1D<unsigned> a(4, 7u);
  {
    dense1D<unsigned> b(a);
    EXPECT_EQ(a.storage->count, 2);
    b[2] = 9;
    EXPECT_EQ(a[2], 9u);  // a view writes through to the shared block
    dense1D<unsigned> c;
    ASSERT_TRUE(c.copy(a));
    c[0] = 1;
    EXPECT_EQ(a[0], 7u);  // a deep copy does not
    EXPECT_EQ(c.storage->count, 1);
    c = a;
    c.clear_hard();  // gives up the shared block
    EXPECT_TRUE(c.size == 0 && !(c.storage == a.storage) && a.storage->count == 2);
  }
  EXPECT_EQ(a.storage->count, 1);
  dense1D<unsigned> s = a.sub_vector(1, 2);
  EXPECT_EQ(s[1], 9u);
  EXPECT_EQ((s = 5u), 5u);
  const unsigned want[] = {7, 5, 5, 7};
  for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(a[i], want[i]);
}

TEST(Dense1D, ResizeKeepsEntriesAndFillsOnlyTheNewOnes) {
  dense1D<int> v(3, 1);
  ASSERT_TRUE(v.resize(6, 4));
  const int want[] = {1, 1, 1, 4, 4, 4};
  for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(v[i], want[i]);
  ASSERT_TRUE(v.resize(2) && v.size == 2);
  v.size = 0;
  ASSERT_TRUE(v.resize(3, 8));  // the library's idiom to fill a whole vector
  EXPECT_EQ(v, (dense1D<int>(3, 8)));
  ASSERT_TRUE(v.push_back_n(2, 2));
  EXPECT_TRUE(v.size == 5 && v[4] == 2);
  EXPECT_FALSE(v == dense1D<int>(5, 8));
}

TEST(Dense1D, ImpossibleAllocationsFailAndLeaveTheContainerUnchanged) {
  dense1D<unsigned> v(2, 3u);
  auto* block = v.storage.get();
  EXPECT_FALSE(v.resize(0x40000000u));  // byte count beyond 32 bits
  EXPECT_FALSE(v.reserve(0xFFFFFFFFu, 1));
  EXPECT_FALSE(v.push_back_n(1u, 0xFFFFFFFFu));
  EXPECT_TRUE(v.size == 2 && v.storage.get() == block && v[1] == 3);
  dense1D<double> d;
  EXPECT_FALSE(d.resize(0x20000000u));  // 8-byte entries: 4 GiB
  EXPECT_EQ(d.size, 0u);

  dense2D<unsigned> m(2, 2, 1u);
  EXPECT_FALSE(m.resize(4, 0xFFFFFFFFu));  // rows x cols overflows
  EXPECT_FALSE(m.resize(3, 0x60000000u));
  EXPECT_TRUE(m.rows == 2 && m.cols == 2 && m(1, 1) == 1);
}

TEST(Dense1D, UnownedBufferIsNeverFreed) {
  unsigned buffer[4] = {1, 2, 3, 4};
  {
    dense1D<unsigned> v;
    v.storage->adopt(buffer, 4);
    v.size = 4;
    v[0] = 10;
  }  // dropping the last view must not free the caller's array (ASan would report it)
  EXPECT_EQ(buffer[0], 10u);
}

TEST(Dense2D, ColumnMajorViewsWithLeadingDimension) {
  dense2D<unsigned> m(3, 4);
  for (unsigned j = 0; j < 4; ++j)
    for (unsigned i = 0; i < 3; ++i) m(i, j) = 10 * i + j;
  EXPECT_EQ(m.storage->data[m.offset + 2 + 3 * 3], 23u);
  EXPECT_EQ(m.col(3)[2], 23u);

  dense2D<unsigned> s = m.sub_matrix(1, 1, 2, 2);
  EXPECT_TRUE(s(0, 0) == 11 && s(1, 1) == 22);
  s = 0u;  // fills the view only, not the rows outside it
  EXPECT_TRUE(m(0, 1) == 1 && m(1, 1) == 0 && m(2, 2) == 0 && m(0, 3) == 3);

  dense2D<unsigned> d;
  ASSERT_TRUE(d.copy(s));  // deep copy of a strided view is packed
  EXPECT_TRUE(d.ld == 2 && d.size == 4 && d == s);
}

TEST(Dense2D, ResizeKeepsLeadingColumns) {
  dense2D<double> m(2, 3, 1.5);
  m(1, 2) = 7.0;
  ASSERT_TRUE(m.resize(2, 5, -1.0));
  EXPECT_TRUE(m(1, 2) == 7.0 && m(0, 4) == -1.0);
  ASSERT_TRUE(m.resize(2, 2));
  EXPECT_TRUE(m.cols == 2 && m(0, 1) == 1.5);
  // A view with ld > rows: shrinking its columns repacks the kept ones.
  dense2D<double> big(4, 3);
  for (unsigned j = 0; j < 3; ++j)
    for (unsigned i = 0; i < 4; ++i) big(i, j) = i + 10.0 * j;
  dense2D<double> v = big.sub_matrix(1, 0, 2, 3);
  ASSERT_TRUE(v.resize(2, 2));
  EXPECT_TRUE(v.ld == 2 && v(0, 1) == 11.0 && v(1, 1) == 12.0 && big(1, 1) == 11.0);
}

TEST(FixedTypes, BraceInitialisationInStorageOrder) {
  kvo::symmetric_fixed<double, 3> m{1, 2, 3, 4, 5, 6};  // m11 m12 m22 m13 m23 m33
  EXPECT_TRUE(m(0, 1) == 2 && m(1, 0) == 2 && m(2, 0) == 4 && m(1, 2) == 5 && m(2, 2) == 6);
  kvo::matrix_fixed<double, 3, 2> t{1, 2, 3, 4, 5, 6};  // column by column
  EXPECT_TRUE(t(2, 0) == 3 && t(0, 1) == 4);
}

TEST(Histogram, BinsOutliersAndSummaries) {
  kvo::misc::histogram h;
  EXPECT_TRUE(h.count() == 0 && std::isnan(h.mean()));
  dense1D<double> v(6);
  std::copy_n(std::initializer_list<double>{0.0, 0.05, 0.999, 1.0, -0.5, std::nan("")}.begin(), 6, v.begin());
  h.process(v), h.process(0.55);
  EXPECT_TRUE(h.count() == 7 && h.bin(0) == 2 && h.bin(5) == 1 && h.bin(9) == 1);
  EXPECT_TRUE(h.below() == 1 && h.above() == 2);  // 1.0 is outside [0, 1); NaN counts above
  EXPECT_TRUE(h.minimum() == -0.5 && h.maximum() == 1.0);
  EXPECT_NEAR(h.mean(), (0.0 + 0.05 + 0.999 + 1.0 - 0.5 + 0.55) / 6, 1e-15);
  kvo::misc::histogram g(-1.0, 1.0, 4);
  g.process(-0.75), g.process(0.25);
  EXPECT_TRUE(g.bin(0) == 1 && g.bin(2) == 1);
}
