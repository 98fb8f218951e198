#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "formats/file_util.hpp"
#include "formats/text_output.hpp"

namespace tio = kvo::gridkit::textio;
using testfiles::fmt;

namespace {

// Every conversion and precision the writers use, and a few more, against snprintf.
void expect_all_match(double v) {
  static const struct {
    char conv;
    int prec;
  } cases[] = {{'E', 6},  {'e', 6},  {'e', 5}, {'e', 8}, {'e', 0}, {'e', 17}, {'E', 12}, {'e', 25}, {'f', 6},
               {'f', 0},  {'f', 2},  {'f', 17}, {'f', 20}, {'g', 6}, {'G', 6},  {'g', 0},  {'g', 17}};
  for (const auto& c : cases) {
    char buf[tio::number_room];
    char* end = c.conv == 'f'   ? tio::put_f(buf, v, c.prec)
                : c.conv == 'e' ? tio::put_e(buf, v, c.prec, false)
                : c.conv == 'E' ? tio::put_e(buf, v, c.prec, true)
                                : tio::put_g(buf, v, c.prec, c.conv == 'G');
    const std::string format = "%." + std::to_string(c.prec) + c.conv;
    ASSERT_EQ(std::string(buf, end), fmt(format.c_str(), v))
        << format << " of bits 0x" << std::hex << std::bit_cast<std::uint64_t>(v);
  }
}

}  // namespace

TEST(NumberFormat, SpecialRoundingEdgePowerAndRandomValuesMatchPrintf) {
  const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
  for (double v : {0.0, -0.0, inf, -inf, nan, -nan}) expect_all_match(v);
  // Carries into a new leading digit, decimal ties, range ends, subnormals.
  for (double v : {9.9999995, 9.9999996, 0.99999995, 999999.95, 9999999.5, 99999995.0, 0.5, 2.5, 0.375, 1e-5, 1e7,
                   1e22, 1e23, 1234567.5, 5e-7, 2.5e-6, 1.0000005, 1.0000025, 4503599627370495.5, 9007199254740993.0,
                   1e-320, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308, 12.3456785}) {
    for (double w : {v, -v, std::nextafter(v, 0.0), std::nextafter(v, 1e300)}) expect_all_match(w);
  }
  for (int i = 0; i < 2000; ++i) expect_all_match((i + 0.5) / 64.0);  // exact ties at many positions
  for (int k = -320; k <= 308; ++k) {
    const double v = std::strtod(("1e" + std::to_string(k)).c_str(), nullptr);
    for (double w : {v, std::nextafter(v, 0.0), std::nextafter(v, 1e308)}) expect_all_match(w);
  }
  for (int b = -1074; b <= 1023; ++b) expect_all_match(std::ldexp(1.0, b));
  std::mt19937_64 rng(20240611);
  for (int i = 0; i < 20000; ++i) expect_all_match(std::bit_cast<double>(rng()));  // every exponent, NaN payloads
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-15, 12), digits(0, 99999999);
  for (int i = 0; i < 40000; ++i) expect_all_match(u(rng) * std::pow(10.0, ex(rng)));  // mesh-like magnitudes
  for (int i = 0; i < 20000; ++i) expect_all_match(digits(rng) * 1e-7);                // short decimals near ties
}

TEST(NumberFormat, IntegersAndFieldWidths) {
  char buf[64];
  for (std::int32_t v : {0, 9, 10, -12345678, 123456789, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(std::string(buf, tio::pad_left(buf, tio::put_int(buf, v), 8)), fmt("%8d", v));
    EXPECT_EQ(std::string(buf, tio::put_uint(buf, std::uint32_t(v))), fmt("%u", std::uint32_t(v)));
  }
}

TEST(TextWriter, BuffersAcrossRefillsAndReportsFailedWrites) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  std::string expected;
  {
    tio::text_writer w(f);
    for (int i = 0; i < 200000; ++i) {
      char* p = w.room(tio::text_writer::max_room);
      char* q = tio::put_E(p, i * 0.25);
      *q++ = ' ';
      expected.append(p, q);
      w.commit(q);
    }
    const std::string big(700000, 'x');  // longer than the buffer
    w.write(big.data(), big.size());
    EXPECT_TRUE(w.flush());
    w.write("tail");  // flushed by the destructor
    expected += big + "tail";
  }
  std::rewind(f);  // still open
  std::string got(expected.size() + 10, '\0');
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  EXPECT_TRUE(got == expected);

  const std::string p = testfiles::path("readonly.txt");
  testfiles::write(p, "");
  f = std::fopen(p.c_str(), "r");  // writes to a read-only stream fail, and keep failing
  {
    tio::text_writer w(f), none(nullptr);
    w.write("abc");
    EXPECT_FALSE(w.flush());
    w.write("more");
    none.write("x");
    EXPECT_FALSE(w.flush() || w.ok() || none.flush());
  }
  std::fclose(f);
}
