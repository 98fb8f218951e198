// Helpers shared by the mesh readers: the whole file in memory, a token scanner that skips
// comments, and the per-type connectivities that the readers fill.
#ifndef GRIDKIT_FORMATS_MESH_READING_HPP
#define GRIDKIT_FORMATS_MESH_READING_HPP

#include <cstdio>
#include <vector>

#include <kvo/gridkit.hpp>

#include "formats/text_input.hpp"

namespace kvo::gridkit::meshin {

// Reads a whole file; false when it can't be opened or read.
inline bool read_file(const char* filename, std::vector<char>& bytes) {
  if (!filename) return false;
  std::FILE* f = std::fopen(filename, "rb");
  if (!f) return false;
  char buffer[1 << 16];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
  const bool ok = !std::ferror(f);
  std::fclose(f);
  return ok;
}

// White-space separated tokens; `comment` starts a comment that runs to the end of the line.
class tokens {
 public:
  tokens(const char* begin, const char* end, char comment) : p_(begin), end_(end), comment_(comment) {}

  // Next token as [b, e); false at the end of the data.
  bool next(const char*& b, const char*& e) {
    for (;;) {
      p_ = textin::skip_space(p_, end_);
      if (p_ != end_ && *p_ == comment_) {
        while (p_ != end_ && *p_ != '\n') ++p_;
        continue;
      }
      break;
    }
    if (p_ == end_) return false;
    b = p_;
    while (p_ != end_ && !textin::is_space(static_cast<unsigned char>(*p_))) ++p_;
    e = p_;
    return true;
  }
  bool word(const char* w) {
    const char *b, *e;
    if (!next(b, e)) return false;
    return std::size_t(e - b) == std::strlen(w) && std::memcmp(b, w, std::size_t(e - b)) == 0;
  }
  // A non-negative decimal integer below 2^32.
  bool number(unsigned& v) {
    const char *b, *e;
    if (!next(b, e) || b == e) return false;
    std::uint64_t x = 0;
    for (const char* q = b; q != e; ++q) {
      if (!textin::is_digit(static_cast<unsigned char>(*q))) return false;
      x = x * 10 + unsigned(*q - '0');
      if (x > 0xFFFFFFFFull) return false;
    }
    v = static_cast<unsigned>(x);
    return true;
  }
  // A signed decimal integer (references may be negative in some files).
  bool integer(long long& v) {
    const char *b, *e;
    if (!next(b, e)) return false;
    bool neg = false;
    if (*b == '-' || *b == '+') {
      neg = *b == '-';
      ++b;
    }
    if (b == e) return false;
    long long x = 0;
    for (const char* q = b; q != e; ++q) {
      if (!textin::is_digit(static_cast<unsigned char>(*q))) return false;
      x = x * 10 + (*q - '0');
      if (x > 0xFFFFFFFFll) return false;
    }
    v = neg ? -x : x;
    return true;
  }
  bool real(double& v) {
    const char *b, *e;
    if (!next(b, e)) return false;
    const char* q = textin::scan_double(b, e, v);
    return q == e;
  }
  // Bytes left: a count of records that cannot fit in them is a truncated or hostile file.
  std::size_t left() const { return std::size_t(end_ - p_); }
  bool can_hold(std::uint64_t records, unsigned numbers_per_record) const {
    return records * numbers_per_record * 2 <= std::uint64_t(left()) + 1;
  }

 private:
  const char* p_;
  const char* end_;
  char comment_;
};

// Connectivities being read, one per element type, with each element's reference.
struct sections {
  dense2D<unsigned> connect[MESH_FILE_TYPES];
  dense1D<unsigned, 16> refs[MESH_FILE_TYPES];

  // Appends one element of type t (columns grow amortised).
  bool add(element_type t, const unsigned* nodes, unsigned n, unsigned ref) {
    dense2D<unsigned>& c = connect[t];
    if (c.rows == 0) c.resize(n, 0);
    if (c.rows != n || !c.push_back_col(nodes)) return false;
    return refs[t].push_back(ref);
  }
  bool check(unsigned nodes) const {
    for (unsigned t = 0; t < MESH_FILE_TYPES; ++t)
      if (!check_IDs(connect[t], element_type(t), nodes == 0 ? 0 : nodes)) return false;
    return true;
  }
};

// Hands the sections found to the caller's range; the status of the reader.
inline int deliver(sections& s, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<int, 16>& FEtypes,
                   dense1D<unsigned, 16>* references) {
  const std::size_t room = std::size_t(last - first);
  std::size_t used = 0;
  for (unsigned t = 0; t < MESH_FILE_TYPES; ++t)
    if (s.connect[t].cols) ++used;
  if (used > room) return -3;
  FEtypes.size = 0;
  if (!FEtypes.resize(unsigned(used))) return ERR_ALLOCATION;
  std::size_t k = 0;
  for (unsigned t = 0; t < MESH_FILE_TYPES; ++t) {
    if (!s.connect[t].cols) continue;
    FEtypes[unsigned(k)] = int(t);
    first[k].shallow_copy(s.connect[t]);
    if (references) references[k].shallow_copy(s.refs[t]);
    ++k;
  }
  for (; k < room; ++k) {
    first[k].clear();
    if (references) references[k].clear_hard();
  }
  return 0;
}

// Empties every output after a failure.
inline void empty_outputs(dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
                          dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references) {
  pos.clear();
  FEtypes.clear_hard();
  if (first > last) return;
  for (std::size_t k = 0; k < std::size_t(last - first); ++k) {
    first[k].clear();
    if (references) references[k].clear_hard();
  }
}

// The whole reading of a mesh file: load it, parse it into sections, hand them over; every
// output is emptied on failure. `parse(bytes, pos, sections)` returns 0 or a status.
template <class Parse>
int read_mesh(const char* filename, dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
              dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references, Parse&& parse) {
  if (last < first) return -2;
  std::vector<char> bytes;
  int status = read_file(filename, bytes) ? 0 : -1;
  if (status == 0) {
    sections s;
    status = parse(bytes, pos, s);
    if (status == 0) status = deliver(s, first, last, FEtypes, references);
  }
  if (status != 0) empty_outputs(pos, first, last, FEtypes, references);
  return status;
}

}  // namespace kvo::gridkit::meshin

#endif
