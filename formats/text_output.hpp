// Text output for the file writers: number formatting that produces exactly the characters the
// C library's printf produces for the same conversion, and a buffered writer over a C stream.
//
// Number formatters. Each one appends the text of one value at `dst` and returns the pointer
// one past the last character written (no terminating NUL). The caller guarantees room for
// `number_room` bytes at `dst` (text_writer::room(number_room) does that). Precisions are
// limited to 0 ... max_precision.
//
//   put_e(dst, v, prec, upper)   printf("%.<prec>e") / "%.<prec>E"   put_e(p, 1.5, 6, true) -> "1.500000E+00"
//   put_E(dst, v)                printf("%E")
//   put_f(dst, v, prec)          printf("%.<prec>f")                 put_f(p, -0.0, 6) -> "-0.000000"
//   put_g(dst, v, prec, upper)   printf("%.<prec>g") / "%.<prec>G"
//   put_int(dst, i)              printf("%d")
//   put_uint(dst, u)             printf("%u")
//   put_u64(dst, u)              printf("%llu")
//   pad_left(start, end, width)  right-justifies the field [start, end) in `width` columns with
//                                blanks, like a printf field width ("%8d", "%12.5e"); returns
//                                the new end. The caller guarantees room for `width` bytes.
//
// Infinities and NaNs are written as glibc writes them: "inf", "-inf", "nan", "-nan" (upper
// case for the upper-case conversions). The exponent has at least two digits, as glibc prints.
// Rounding is exact (round half to even on the exact binary value), as printf rounds.
//
// Buffered writer. text_writer collects text and hands it to a C stream with fwrite in large
// blocks; it never closes or fflushes the stream.
//
//   text_writer w(stream);
//   char* p = w.room(text_writer::max_room);   // at least that many bytes may be written at p
//   p = put_E(p, x); *p++ = ' ';
//   w.commit(p);                               // the bytes up to p are part of the output
//   w.write("End\n");                          // literal text
//   bool ok = w.flush();                       // false when some fwrite came up short
//
// Once a write has failed the writer discards further text; ok() reports the failure. The
// destructor flushes. The buffer is taken from malloc; when that fails a small inline buffer is
// used instead, so construction never fails.
//
// Everything here is inline: the library hides its internal symbols, and the tests call these
// directly.
#ifndef GRIDKIT_FORMATS_TEXT_OUTPUT_HPP
#define GRIDKIT_FORMATS_TEXT_OUTPUT_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <bit>
#include <charconv>
#include <cstring>
#include <cstdlib>

namespace kvo::gridkit::textio {

// Largest text a single number formatter may produce, for any precision up to max_precision.
inline constexpr std::size_t number_room = 400;
inline constexpr int max_precision = 40;
// Tighter bounds: put_e writes at most e_room(precision) bytes ("-d.ddddddE-ddd"), put_int and
// put_uint at most 11, put_u64 at most 20.
constexpr std::size_t e_room(int precision) noexcept { return static_cast<std::size_t>(precision) + 8; }

inline char* put_e(char* dst, double v, int precision, bool upper) noexcept;
inline char* put_f(char* dst, double v, int precision) noexcept;
inline char* put_g(char* dst, double v, int precision, bool upper) noexcept;
inline char* put_E(char* dst, double v) noexcept { return put_e(dst, v, 6, true); }

inline char* put_uint(char* dst, std::uint32_t v) noexcept;
inline char* put_u64(char* dst, std::uint64_t v) noexcept;
inline char* put_int(char* dst, std::int32_t v) noexcept {
  if (v < 0) {
    *dst++ = '-';
    return put_uint(dst, 0u - static_cast<std::uint32_t>(v));
  }
  return put_uint(dst, static_cast<std::uint32_t>(v));
}

inline char* pad_left(char* start, char* end, std::size_t width) noexcept {
  const std::size_t len = static_cast<std::size_t>(end - start);
  if (len >= width) return end;
  const std::size_t gap = width - len;
  std::memmove(start + gap, start, len);
  std::memset(start, ' ', gap);
  return start + width;
}

// Appends the characters of a string literal (without its NUL).
template <std::size_t N>
inline char* put_lit(char* dst, const char (&s)[N]) noexcept {
  std::memcpy(dst, s, N - 1);
  return dst + (N - 1);
}

class text_writer {
 public:
  // Bytes that room() can always offer in one piece.
  static constexpr std::size_t max_room = 4096;

  explicit text_writer(std::FILE* stream) noexcept;
  ~text_writer();
  text_writer(const text_writer&) = delete;
  text_writer& operator=(const text_writer&) = delete;

  // A place for at least n (<= max_room) bytes; commit() the end of what was written there.
  char* room(std::size_t n) noexcept {
    if (static_cast<std::size_t>(end_ - cur_) < n) drain();
    return cur_;
  }
  void commit(char* p) noexcept { cur_ = p; }

  void write(const char* s, std::size_t n) noexcept;
  void write(const char* s) noexcept { write(s, std::strlen(s)); }

  // Hands the buffered bytes to the stream (no fflush). False once any write came up short.
  bool flush() noexcept;
  bool ok() const noexcept { return ok_; }

 private:
  void drain() noexcept;

  std::FILE* stream_;
  char* buf_;
  char* cur_;
  char* end_;
  bool owned_;
  bool ok_ = true;
  char inline_buf_[max_room];
};

// ---- implementation


namespace detail {

using u128 = unsigned __int128;

constexpr std::uint64_t pow10_u64[20] = {1ull,
                                         10ull,
                                         100ull,
                                         1000ull,
                                         10000ull,
                                         100000ull,
                                         1000000ull,
                                         10000000ull,
                                         100000000ull,
                                         1000000000ull,
                                         10000000000ull,
                                         100000000000ull,
                                         1000000000000ull,
                                         10000000000000ull,
                                         100000000000000ull,
                                         1000000000000000ull,
                                         10000000000000000ull,
                                         100000000000000000ull,
                                         1000000000000000000ull,
                                         10000000000000000000ull};

// Largest precision handled by the exact integer path (the rounded digits must fit 64 bits).
constexpr int fast_precision = 17;

constexpr char digit_pairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes exactly n decimal digits of v (v < 10^n), with leading zeros.
inline void write_digits(char* p, std::uint64_t v, int n) noexcept {
  while (v >= (1ull << 32) && n >= 2) {
    const std::uint64_t r = v % 100;
    v /= 100;
    n -= 2;
    std::memcpy(p + n, digit_pairs + 2 * r, 2);
  }
  std::uint32_t w = static_cast<std::uint32_t>(v);
  while (n >= 2) {
    const std::uint32_t r = w % 100;
    w /= 100;
    n -= 2;
    std::memcpy(p + n, digit_pairs + 2 * r, 2);
  }
  if (n) p[0] = static_cast<char>('0' + w);
}

inline int digit_count(std::uint64_t v) noexcept {
  int n = 1;
  while (n < 20 && v >= pow10_u64[n]) ++n;
  return n;
}

// Rounds f * 2^e * 10^s to the nearest integer, ties to even, exactly. False when the operands
// or the result fall outside what 128-bit arithmetic covers here; the caller then takes the
// general path.
inline bool scaled_round(std::uint64_t f, int e, int s, std::uint64_t& q) noexcept {
  if (s >= 0) {
    if (s > 19) return false;
    const u128 a = static_cast<u128>(f) * pow10_u64[s];  // below 2^117
    if (e >= 0) {
      if (e >= 64 || (a >> (64 - e)) != 0) return false;
      q = static_cast<std::uint64_t>(a << e);
      return true;
    }
    const int sh = -e;
    if (sh >= 118) {  // a < 2^117 <= half a unit: rounds to 0
      q = 0;
      return true;
    }
    u128 qq = a >> sh;
    const u128 rem = a - (qq << sh);
    const u128 half = static_cast<u128>(1) << (sh - 1);
    if (rem > half || (rem == half && (qq & 1))) ++qq;
    if (qq >> 64) return false;
    q = static_cast<std::uint64_t>(qq);
    return true;
  }
  const int t = -s;
  if (t > 19) return false;
  u128 a, b;
  if (e >= 0) {
    if (e > 74) return false;
    a = static_cast<u128>(f) << e;
    b = pow10_u64[t];
  } else {
    if (-e > 63) return false;
    a = f;
    b = static_cast<u128>(pow10_u64[t]) << -e;
  }
  u128 qq = a / b;
  const u128 r2 = (a - qq * b) << 1;  // the remainder is below b < 2^127
  if (r2 > b || (r2 == b && (qq & 1))) ++qq;
  if (qq >> 64) return false;
  q = static_cast<std::uint64_t>(qq);
  return true;
}

// floor(b * log10(2)) for |b| <= 1100 (checked by the tests over the whole range).
inline int floor_log10_pow2(int b) noexcept { return (b * 78913) >> 18; }

// The fields of a double: sign, biased exponent and mantissa.
struct ieee_parts {
  bool neg;
  unsigned be;
  std::uint64_t man;
  explicit ieee_parts(double v) noexcept {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(v);
    neg = (bits >> 63) != 0;
    be = static_cast<unsigned>(bits >> 52) & 0x7FF;
    man = bits & ((1ull << 52) - 1);
  }
  bool special() const noexcept { return be == 0x7FF; }
};

// "inf" or "nan" with its sign, for a special() value.
inline char* put_special(char* p, const ieee_parts& d, bool upper) noexcept {
  if (d.neg) *p++ = '-';
  const char* s = d.man != 0 ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
  std::memcpy(p, s, 3);
  return p + 3;
}

inline int clamp_precision(int precision) noexcept {
  if (precision < 0) return 6;  // printf takes a negative precision as omitted
  return precision > max_precision ? max_precision : precision;
}

inline char* upper_exponent(char* first, char* last) noexcept {
  for (char* c = first; c != last; ++c)
    if (*c == 'e') *c = 'E';
  return last;
}

}  // namespace detail

inline char* put_uint(char* dst, std::uint32_t v) noexcept {
  const int n = detail::digit_count(v);
  detail::write_digits(dst, v, n);
  return dst + n;
}

inline char* put_u64(char* dst, std::uint64_t v) noexcept {
  const int n = detail::digit_count(v);
  detail::write_digits(dst, v, n);
  return dst + n;
}

inline char* put_e(char* dst, double v, int precision, bool upper) noexcept {
  const int prec = detail::clamp_precision(precision);
  const detail::ieee_parts d(v);
  if (d.special()) return detail::put_special(dst, d, upper);

  char* p = dst;
  if (d.be == 0 && d.man == 0) {
    if (d.neg) *p++ = '-';
    *p++ = '0';
    if (prec) {
      *p++ = '.';
      std::memset(p, '0', static_cast<std::size_t>(prec));
      p += prec;
    }
    *p++ = upper ? 'E' : 'e';
    *p++ = '+';
    *p++ = '0';
    *p++ = '0';
    return p;
  }

  if (d.be != 0 && prec <= detail::fast_precision) {
    const std::uint64_t f = d.man | (1ull << 52);
    const int e = static_cast<int>(d.be) - 1075;
    // Start at or below the decimal exponent and step up until prec + 1 digits remain; a
    // rounding that carries into a new digit is caught by the same test.
    int k = detail::floor_log10_pow2(static_cast<int>(d.be) - 1023);
    const std::uint64_t lim = detail::pow10_u64[prec + 1];
    std::uint64_t q = 0;
    bool found = false;
    for (int it = 0; it < 4; ++it) {
      if (!detail::scaled_round(f, e, prec - k, q)) break;
      if (q < lim) {
        found = q >= detail::pow10_u64[prec];
        break;
      }
      ++k;
    }
    if (found) {
      if (d.neg) *p++ = '-';
      char digits[20];
      detail::write_digits(digits, q, prec + 1);
      *p++ = digits[0];
      if (prec) {
        *p++ = '.';
        std::memcpy(p, digits + 1, static_cast<std::size_t>(prec));
        p += prec;
      }
      *p++ = upper ? 'E' : 'e';
      unsigned ak;
      if (k < 0) {
        *p++ = '-';
        ak = static_cast<unsigned>(-k);
      } else {
        *p++ = '+';
        ak = static_cast<unsigned>(k);
      }
      if (ak >= 100) {
        *p++ = static_cast<char>('0' + ak / 100);
        ak %= 100;
      }
      std::memcpy(p, detail::digit_pairs + 2 * ak, 2);
      return p + 2;
    }
  }

  const auto r = std::to_chars(dst, dst + number_room, v, std::chars_format::scientific, prec);
  return upper ? detail::upper_exponent(dst, r.ptr) : r.ptr;
}

inline char* put_f(char* dst, double v, int precision) noexcept {
  const int prec = detail::clamp_precision(precision);
  const detail::ieee_parts d(v);
  if (d.special()) return detail::put_special(dst, d, false);

  if (prec <= detail::fast_precision) {
    const std::uint64_t f = d.be ? (d.man | (1ull << 52)) : d.man;
    const int e = d.be ? static_cast<int>(d.be) - 1075 : -1074;
    std::uint64_t q;
    if (detail::scaled_round(f, e, prec, q)) {
      char* p = dst;
      if (d.neg) *p++ = '-';
      p = put_u64(p, q / detail::pow10_u64[prec]);
      if (prec) {
        *p++ = '.';
        detail::write_digits(p, q % detail::pow10_u64[prec], prec);
        p += prec;
      }
      return p;
    }
  }
  return std::to_chars(dst, dst + number_room, v, std::chars_format::fixed, prec).ptr;
}

inline char* put_g(char* dst, double v, int precision, bool upper) noexcept {
  const int prec = detail::clamp_precision(precision);
  const detail::ieee_parts d(v);
  if (d.special()) return detail::put_special(dst, d, upper);
  const auto r = std::to_chars(dst, dst + number_room, v, std::chars_format::general, prec);
  return upper ? detail::upper_exponent(dst, r.ptr) : r.ptr;
}

// ---- text_writer

inline text_writer::text_writer(std::FILE* stream) noexcept : stream_(stream) {
  constexpr std::size_t capacity = 256 * 1024;
  buf_ = static_cast<char*>(std::malloc(capacity));
  owned_ = buf_ != nullptr;
  if (owned_) {
    end_ = buf_ + capacity;
  } else {
    buf_ = inline_buf_;
    end_ = inline_buf_ + sizeof inline_buf_;
  }
  cur_ = buf_;
}

inline text_writer::~text_writer() {
  flush();
  if (owned_) std::free(buf_);
}

inline void text_writer::drain() noexcept { flush(); }

inline bool text_writer::flush() noexcept {
  const std::size_t n = static_cast<std::size_t>(cur_ - buf_);
  if (n && ok_ && (!stream_ || std::fwrite(buf_, 1, n, stream_) != n)) ok_ = false;
  cur_ = buf_;
  return ok_;
}

inline void text_writer::write(const char* s, std::size_t n) noexcept {
  while (n) {
    std::size_t space = static_cast<std::size_t>(end_ - cur_);
    if (space == 0) {
      drain();
      space = static_cast<std::size_t>(end_ - cur_);
    }
    const std::size_t k = n < space ? n : space;
    std::memcpy(cur_, s, k);
    cur_ += k;
    s += k;
    n -= k;
  }
}

}  // namespace kvo::gridkit::textio

#endif  // GRIDKIT_FORMATS_TEXT_OUTPUT_HPP
