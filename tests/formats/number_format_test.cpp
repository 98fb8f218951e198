#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "formats/text_output.hpp"

namespace tio = kvo::gridkit::textio;

namespace {

std::string libc(const char* fmt, double v) {
  char buf[512];
  const int n = std::snprintf(buf, sizeof buf, fmt, v);
  return std::string(buf, static_cast<std::size_t>(n));
}

enum class conv { e, E, f, g, G };

std::string ours(conv c, double v, int prec) {
  char buf[tio::number_room];
  char* end = buf;
  switch (c) {
    case conv::e: end = tio::put_e(buf, v, prec, false); break;
    case conv::E: end = tio::put_e(buf, v, prec, true); break;
    case conv::f: end = tio::put_f(buf, v, prec); break;
    case conv::g: end = tio::put_g(buf, v, prec, false); break;
    case conv::G: end = tio::put_g(buf, v, prec, true); break;
  }
  return std::string(buf, end);
}

std::string reference(conv c, double v, int prec) {
  const char letter = "eEfgG"[static_cast<int>(c)];
  const std::string fmt = "%." + std::to_string(prec) + letter;
  return libc(fmt.c_str(), v);
}

// Compares every conversion and precision the writers use, and a few more, on one value.
void expect_all_match(double v) {
  static const struct {
    conv c;
    int prec;
  } cases[] = {{conv::E, 6}, {conv::e, 6},  {conv::e, 5},  {conv::e, 8}, {conv::e, 0}, {conv::e, 1},
               {conv::e, 17}, {conv::E, 12}, {conv::e, 25}, {conv::f, 6}, {conv::f, 0}, {conv::f, 2},
               {conv::f, 17}, {conv::f, 20}, {conv::g, 6},  {conv::G, 6}, {conv::g, 0}, {conv::g, 17}};
  for (const auto& k : cases) {
    ASSERT_EQ(ours(k.c, v, k.prec), reference(k.c, v, k.prec))
        << "conversion " << "eEfgG"[static_cast<int>(k.c)] << " precision " << k.prec << " bits 0x" << std::hex
        << std::bit_cast<std::uint64_t>(v);
  }
}

}  // namespace

TEST(NumberFormat, SpecialValuesAndSignedZero) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double v : {0.0, -0.0, inf, -inf, nan, -nan, 1.5, -1.5}) expect_all_match(v);
  EXPECT_EQ(ours(conv::E, 1.5, 6), "1.500000E+00");
  EXPECT_EQ(ours(conv::f, -0.0, 6), "-0.000000");
  EXPECT_EQ(ours(conv::E, -inf, 6), "-INF");
}

TEST(NumberFormat, RoundingEdgesAndCarries) {
  // Values whose rounding carries into a new leading digit or sits on a decimal tie.
  const double edges[] = {9.9999995,  9.99999949999, 9.9999996, 0.99999995, 999999.95,  9999999.5,
                          99999995.0, 0.5,           1.5,       2.5,        0.125,      0.375,
                          1e-5,       1e-7,          1e7,       1e22,       1e23,       123456.5,
                          1234567.5,  0.0000005,     0.0000015, 5e-7,       2.5e-6,     1.0000005,
                          1.0000015,  1.0000025,     8.5,       9.5,        1e15 + 0.5, 4503599627370495.5,
                          9007199254740993.0,        1e-320,    5e-324,     2.2250738585072014e-308,
                          1.7976931348623157e308,    1e100,     1e-100,     12.3456785, 0.30000000000000004};
  for (double v : edges) {
    expect_all_match(v);
    expect_all_match(-v);
    expect_all_match(std::nextafter(v, 0.0));
    expect_all_match(std::nextafter(v, 1e300));
  }
  // Ties just at the printed precision: k + 0.5 units of the last place, exactly representable.
  for (int i = 0; i < 2000; ++i) {
    const double v = (i + 0.5) / 64.0;
    expect_all_match(v);
  }
}

TEST(NumberFormat, PowersOfTenAndTwoOverTheWholeRange) {
  for (int k = -320; k <= 308; ++k) {
    const double v = std::strtod(("1e" + std::to_string(k)).c_str(), nullptr);
    expect_all_match(v);
    expect_all_match(std::nextafter(v, 0.0));
    expect_all_match(std::nextafter(v, 1e308));
  }
  for (int b = -1074; b <= 1023; ++b) expect_all_match(std::ldexp(1.0, b));
}

TEST(NumberFormat, RandomValuesMatchPrintf) {
  std::mt19937_64 rng(20240611);
  // Uniform bit patterns cover every exponent, subnormals and NaN payloads.
  for (int i = 0; i < 20000; ++i) expect_all_match(std::bit_cast<double>(rng()));
  // Mesh-like magnitudes, where the fast paths are taken.
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-15, 12);
  for (int i = 0; i < 60000; ++i) expect_all_match(u(rng) * std::pow(10.0, ex(rng)));
  // Short decimals, which land close to ties once scaled.
  std::uniform_int_distribution<int> digits(0, 99999999);
  for (int i = 0; i < 30000; ++i) expect_all_match(digits(rng) * 1e-7);
}

TEST(NumberFormat, IntegersAndFieldWidths) {
  char buf[64];
  const std::int32_t ints[] = {0, 1, -1, 9, 10, 99, 100, 12345678, 123456789, -12345678,
                               2147483647, -2147483647 - 1, 1000000000, 999999999};
  for (std::int32_t v : ints) {
    char ref[64];
    std::snprintf(ref, sizeof ref, "%d", v);
    EXPECT_EQ(std::string(buf, tio::put_int(buf, v)), ref);
    std::snprintf(ref, sizeof ref, "%8d", v);
    char* end = tio::put_int(buf, v);
    EXPECT_EQ(std::string(buf, tio::pad_left(buf, end, 8)), ref);
  }
  for (std::uint32_t v : {0u, 7u, 4294967295u, 4000000000u, 100000u}) {
    char ref[64];
    std::snprintf(ref, sizeof ref, "%u", v);
    EXPECT_EQ(std::string(buf, tio::put_uint(buf, v)), ref);
  }
  for (std::uint64_t v : {0ull, 18446744073709551615ull, 10000000000000000000ull, 4294967296ull}) {
    char ref[64];
    std::snprintf(ref, sizeof ref, "%llu", static_cast<unsigned long long>(v));
    EXPECT_EQ(std::string(buf, tio::put_u64(buf, v)), ref);
  }
  for (double v : {1.5, -1.5, 0.0, -1e-300, 1e300}) {
    char* end = tio::put_e(buf, v, 5, false);
    EXPECT_EQ(std::string(buf, tio::pad_left(buf, end, 12)), libc("%12.5e", v));
  }
}

TEST(TextWriter, CollectsTextAcrossBufferRefillsAndLeavesStreamOpen) {
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
      if (i % 1000 == 0) {
        w.write("line\n");
        expected += "line\n";
      }
    }
    const std::string big(700000, 'x');  // longer than the buffer
    w.write(big.data(), big.size());
    expected += big;
    EXPECT_TRUE(w.flush());
    EXPECT_TRUE(w.ok());
    w.write("tail");  // flushed by the destructor
    expected += "tail";
  }
  ASSERT_EQ(std::fseek(f, 0, SEEK_SET), 0);  // still open after the writer is gone
  std::string got(expected.size() + 10, '\0');
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  EXPECT_TRUE(got == expected);
}

TEST(TextWriter, ReportsFailedWrites) {
  const char* dir = std::getenv("GRIDKIT_TEST_TMP");
  const std::string path = std::string(dir ? dir : ".") + "/writer_readonly.txt";
  std::FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  f = std::fopen(path.c_str(), "r");  // writes to a read-only stream fail
  ASSERT_NE(f, nullptr);
  {
    tio::text_writer w(f);
    w.write("abc");
    EXPECT_FALSE(w.flush());
    EXPECT_FALSE(w.ok());
    w.write("more");  // discarded, still failed
    EXPECT_FALSE(w.flush());
  }
  std::fclose(f);
  tio::text_writer none(nullptr);
  none.write("x");
  EXPECT_FALSE(none.flush());
}
