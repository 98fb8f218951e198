// Text input helpers shared by the file readers: a number scanner that accepts exactly what the
// C runtime's "%lg" conversion accepts, a small sscanf-like matcher built on it, and a block
// reader that splits a FILE* into lines without one library call per line.
#ifndef GRIDKIT_FORMATS_TEXT_INPUT_HPP
#define GRIDKIT_FORMATS_TEXT_INPUT_HPP

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <system_error>

namespace kvo {
namespace gridkit {
namespace textin {

// White space as isspace() in the "C" locale.
inline bool is_space(unsigned char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool is_digit(unsigned char c) noexcept { return unsigned(c - '0') < 10u; }
inline bool is_xdigit(unsigned char c) noexcept { return is_digit(c) || unsigned((c | 0x20) - 'a') < 6u; }
// ASCII lower case (the "C" locale's tolower).
inline unsigned char lower(unsigned char c) noexcept { return unsigned(c - 'A') < 26u ? c | 0x20 : c; }

inline const char* skip_space(const char* p, const char* end) noexcept {
  while (p != end && is_space(static_cast<unsigned char>(*p))) ++p;
  return p;
}

// True when [p, end) starts with the lower-case word w, compared case-insensitively.
inline bool starts_with_nocase(const char* p, const char* end, const char* w, std::size_t n) noexcept {
  if (std::size_t(end - p) < n) return false;
  for (std::size_t i = 0; i < n; ++i)
    if (lower(static_cast<unsigned char>(p[i])) != static_cast<unsigned char>(w[i])) return false;
  return true;
}

// True when [p, end) contains the lower-case word w, compared case-insensitively. Looks first
// right after the leading blanks (where keywords usually are), then at every occurrence of the
// word's last letter, found with memchr.
inline bool contains_nocase(const char* p, const char* end, const char* w) noexcept {
  const std::size_t n = std::strlen(w);
  if (n == 0) return true;
  if (starts_with_nocase(skip_space(p, end), end, w, n)) return true;
  if (std::size_t(end - p) < n) return false;
  const unsigned char last = static_cast<unsigned char>(w[n - 1]);
  const unsigned char variants[2] = {last, unsigned(last - 'a') < 26u ? static_cast<unsigned char>(last - 32) : last};
  for (int k = 0; k < (variants[1] != last ? 2 : 1); ++k) {
    for (const char* s = p + n - 1; s < end; ++s) {
      s = static_cast<const char*>(std::memchr(s, variants[k], std::size_t(end - s)));
      if (!s) break;
      if (starts_with_nocase(s - (n - 1), end, w, n)) return true;
    }
  }
  return false;
}

namespace detail {

// Exponent digits as a saturated integer (enough to tell overflow from underflow).
inline long long saturated_exponent(const char* p, const char* e, bool negative) noexcept {
  long long v = 0;
  for (; p != e; ++p) {
    v = v * 10 + (*p - '0');
    if (v > 1000000000LL) v = 1000000000LL;
  }
  return negative ? -v : v;
}

// An optional exponent at q: `letter` (either case), an optional sign, digits. When digits
// follow, sets conv_end past them and exp to their saturated value. Returns the position after
// what was read (after a lone letter and sign, which the number does not include).
inline const char* read_exponent(const char* q, const char* end, char letter, const char*& conv_end,
                                 long long& exp) noexcept {
  if (q == end || lower(static_cast<unsigned char>(*q)) != static_cast<unsigned char>(letter)) return q;
  const char* r = q + 1;
  bool eneg = false;
  if (r != end && (*r == '+' || *r == '-')) eneg = *r++ == '-';
  const char* ed = r;
  while (r != end && is_digit(static_cast<unsigned char>(*r))) ++r;
  if (r != ed) {
    conv_end = r;
    exp = saturated_exponent(ed, r, eneg);
  }
  return r;
}

// Value of a number whose conversion is out of the double range: +inf when its magnitude is
// above 1, +0 when below (the caller applies the sign).
inline double out_of_range_value(long long magnitude_exponent) noexcept {
  return magnitude_exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

inline constexpr double exact_powers_of_ten[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

}  // namespace detail

// Scans one number the way "%lg" does: skips white space, then reads the longest prefix that
// the conversion consumes (decimal, hexadecimal "0x..." with an optional binary exponent,
// "inf", "infinity", "nan"; an exponent marker or sign without digits is consumed and ignored).
// Returns the position after the number, or nullptr when "%lg" would fail. The value is
// correctly rounded; overflow gives an infinity, underflow zero.
inline const char* scan_double(const char* p, const char* end, double& value) noexcept {
  p = skip_space(p, end);
  if (p == end) return nullptr;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    if (++p == end) return nullptr;
  }
  const unsigned char c0 = lower(static_cast<unsigned char>(*p));
  if (c0 == 'i') {
    if (!starts_with_nocase(p, end, "inf", 3)) return nullptr;
    p += 3;
    if (p != end && lower(static_cast<unsigned char>(*p)) == 'i') {
      // Once "infi" is read, the conversion needs the whole word "infinity".
      if (!starts_with_nocase(p, end, "inity", 5)) return nullptr;
      p += 5;
    }
    value = negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    return p;
  }
  if (c0 == 'n') {
    if (!starts_with_nocase(p, end, "nan", 3)) return nullptr;
    value = std::copysign(std::numeric_limits<double>::quiet_NaN(), negative ? -1.0 : 1.0);
    return p + 3;
  }

  if (c0 == '0' && end - p >= 2 && lower(static_cast<unsigned char>(p[1])) == 'x') {
    // Hexadecimal: 0x, hex digits, optional point and hex digits, optional p exponent.
    const char* m = p + 2;
    const char* q = m;
    while (q != end && is_xdigit(static_cast<unsigned char>(*q))) ++q;
    const long long int_digits = q - m;
    bool point = false;
    if (q != end && *q == '.') {
      point = true;
      ++q;
    }
    const char* frac = q;
    while (q != end && is_xdigit(static_cast<unsigned char>(*q))) ++q;
    const long long frac_digits = q - frac;
    if (int_digits == 0 && !point) return nullptr;
    if (int_digits + frac_digits == 0) {  // "0x." reads as zero
      value = negative ? -0.0 : 0.0;
      return q;
    }
    const char* conv_end = q;
    long long bexp = 0;
    q = detail::read_exponent(q, end, 'p', conv_end, bexp);
    double v = 0.0;
    const auto res = std::from_chars(m, conv_end, v, std::chars_format::hex);
    if (res.ec == std::errc::result_out_of_range) {
      // Binary magnitude of the leading non-zero digit.
      long long lead = 0;
      const char* s = m;
      long long pos = int_digits;
      for (; s != conv_end; ++s) {
        if (*s == '.') continue;
        if (*s != '0') break;
        --pos;
      }
      lead = 4 * pos + bexp;
      v = detail::out_of_range_value(lead);
    } else if (res.ec != std::errc()) {
      v = 0.0;
    }
    value = negative ? -v : v;
    return q;
  }

  // Decimal: digits, optional point and digits (at least one digit in all), optional exponent.
  const char* m = p;
  const char* q = p;
  std::uint64_t w = 0;  // all the digits, exact while there are at most 19 of them
  while (q != end && is_digit(static_cast<unsigned char>(*q))) w = w * 10 + unsigned(*q++ - '0');
  const long long int_digits = q - m;
  const char* frac = q;
  if (q != end && *q == '.') {
    frac = ++q;
    while (q != end && is_digit(static_cast<unsigned char>(*q))) w = w * 10 + unsigned(*q++ - '0');
  }
  const long long frac_digits = q - frac;
  if (int_digits + frac_digits == 0) return nullptr;
  const char* conv_end = q;
  long long e10 = 0;
  q = detail::read_exponent(q, end, 'e', conv_end, e10);
  double v;
  const long long scale = e10 - frac_digits;  // value = w * 10^scale
  if (int_digits + frac_digits <= 19 && w <= (std::uint64_t(1) << 53) && scale >= -22 && scale <= 22) {
    // Both operands are exact doubles: one correctly rounded operation.
    v = scale >= 0 ? double(w) * detail::exact_powers_of_ten[scale] : double(w) / detail::exact_powers_of_ten[-scale];
  } else if (int_digits + frac_digits <= 19 && w == 0) {
    v = 0.0;
  } else {
    const auto res = std::from_chars(m, conv_end, v, std::chars_format::general);
    if (res.ec == std::errc::result_out_of_range) {
      // Decimal magnitude of the leading non-zero digit.
      long long pos = int_digits;
      for (const char* s = m; s != conv_end; ++s) {
        if (*s == '.') continue;
        if (*s != '0') break;
        --pos;
      }
      v = detail::out_of_range_value(pos + e10);
    } else if (res.ec != std::errc()) {
      v = 0.0;
    }
  }
  value = negative ? -v : v;
  return q;
}

// A small sscanf: in fmt, ' ' skips any white space, '%' is one "%lg" conversion stored in
// out[k], any other character must match literally (letters case-insensitively when nocase).
// Returns the number of conversions made before the first mismatch, like sscanf.
inline int scan_format(const char* p, const char* end, const char* fmt, double* out, bool nocase) noexcept {
  int n = 0;
  for (; *fmt; ++fmt) {
    const char f = *fmt;
    if (f == ' ') {
      p = skip_space(p, end);
    } else if (f == '%') {
      const char* q = scan_double(p, end, out[n]);
      if (!q) return n;
      p = q;
      ++n;
    } else {
      if (p == end) return n;
      const unsigned char c = static_cast<unsigned char>(*p);
      if (!(c == static_cast<unsigned char>(f) || (nocase && lower(c) == static_cast<unsigned char>(f)))) return n;
      ++p;
    }
  }
  return n;
}

// Reads a FILE* in large blocks and hands out lines. A line is either capped at max_len bytes
// (the behaviour of fgets with a buffer of max_len + 1: the rest of a longer line comes as the
// next line) or unbounded (max_len = 0). The returned range includes the '\n' when there is one.
class line_reader {
 public:
  explicit line_reader(std::FILE* f, std::size_t block = std::size_t(1) << 20) noexcept : file_(f), block_(block) {}
  line_reader(const line_reader&) = delete;
  line_reader& operator=(const line_reader&) = delete;
  ~line_reader() { std::free(buf_); }

  // False at the end of the file (no byte left) or when the buffer can't grow (then failed()).
  bool next(const char*& first, const char*& last, std::size_t max_len) noexcept {
    for (;;) {
      const std::size_t avail = end_ - pos_;
      const std::size_t scan = (max_len && max_len < avail) ? max_len : avail;
      const char* nl = scan ? static_cast<const char*>(std::memchr(buf_ + pos_, '\n', scan)) : nullptr;
      if (nl || (max_len && avail >= max_len) || (eof_ && avail)) {
        first = buf_ + pos_;
        const std::size_t len = nl ? std::size_t(nl - first) + 1 : scan;
        last = first + len;
        pos_ += len;
        return true;
      }
      if (eof_) return false;
      if (!refill()) return false;
    }
  }
  bool failed() const noexcept { return failed_; }
  // False when no NUL byte was read since the last block boundary: lines then need no NUL scan.
  bool may_hold_nul() const noexcept { return nul_; }

 private:
  // Keeps the unread bytes, makes room (growing for long lines) and reads one more block.
  bool refill() noexcept {
    const std::size_t keep = end_ - pos_;
    if (pos_ && keep) std::memmove(buf_, buf_ + pos_, keep);
    pos_ = 0;
    end_ = keep;
    if (cap_ - end_ < block_ / 2 || !buf_) {
      std::size_t want = cap_ ? cap_ * 2 : block_;
      if (want < end_ + block_) want = end_ + block_;
      char* nb = static_cast<char*>(std::realloc(buf_, want));
      if (!nb) {
        failed_ = true;
        eof_ = true;
        return false;
      }
      buf_ = nb;
      cap_ = want;
    }
    const std::size_t got = std::fread(buf_ + end_, 1, cap_ - end_, file_);
    nul_ = std::memchr(buf_, '\0', end_ + got) != nullptr;
    end_ += got;
    if (got == 0) eof_ = true;
    return true;
  }

  std::FILE* file_;
  std::size_t block_;
  char* buf_ = nullptr;
  std::size_t cap_ = 0, pos_ = 0, end_ = 0;
  bool eof_ = false, failed_ = false, nul_ = false;
};

}  // namespace textin
}  // namespace gridkit
}  // namespace kvo

#endif  // GRIDKIT_FORMATS_TEXT_INPUT_HPP
