#include <gtest/gtest.h>

#include <kvo/containers.hpp>
#include <kvo/histogram.hpp>

using kvo::dense1D;
using kvo::dense2D;

TEST(Dense1D, DefaultIsEmptyWithBlock) {
  dense1D<double> v;
  EXPECT_EQ(v.size, 0u);
  ASSERT_TRUE(v.storage);
  EXPECT_EQ(v.storage->data, nullptr);
  EXPECT_EQ(v.storage->capacity, 0u);
  EXPECT_EQ(v.storage->count, 1);
}
