// STL files: ASCII and binary writers, and a reader of both forms that rebuilds shared nodes.
//
// The reader joins exactly coincident vertices while it parses (a hash of the coordinate bits,
// the first occurrence surviving, non-finite vertices never joined), so only distinct vertices
// are stored. This gives the same nodes as joining coincident vertices after reading: the later
// merge within the tolerance sends every copy of a position where the first copy goes. When no
// merge is due (every facet flat) the per-facet vertices are expanded back.
#include <kvo/gridkit.hpp>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "formats/text_input.hpp"
#include "formats/text_output.hpp"

namespace kvo {
namespace gridkit {

namespace {

// Closes a C stream when it goes out of scope.
struct file_closer {
  std::FILE* f;
  ~file_closer() {
    if (f) std::fclose(f);
  }
};

// Smallest squared distance from a vertex of the triangle to the line through the other two,
// taken into h2min when it is positive and below it. A squared height that is provably no
// smaller than h2min (its numerator above h2min times its normal denominator, with a margin
// far beyond the rounding errors) can't change the outcome and is not divided out.
inline void take_smallest_squared_height(const double* v0, const double* v1, const double* v2,
                                         double& h2min) noexcept {
  const double* P[3] = {v0, v1, v2};
  static constexpr int others[3][2] = {{1, 2}, {0, 2}, {0, 1}};
  double best = 0.0;
  for (int i = 0; i < 3; ++i) {
    const double* p = P[i];
    const double* a = P[others[i][0]];
    const double* b = P[others[i][1]];
    const double dx = p[0] - a[0], dy = p[1] - a[1], dz = p[2] - a[2];
    const double ex = b[0] - a[0], ey = b[1] - a[1], ez = b[2] - a[2];
    const double cx = dy * ez - dz * ey, cy = dz * ex - dx * ez, cz = dx * ey - dy * ex;
    const double num = cx * cx + cy * cy + cz * cz;
    const double den = ex * ex + ey * ey + ez * ez;
    double h2;
    if (den == 0.0) {
      h2 = num;
    } else {
      const double bound = h2min * (den * (1.0 + 1e-12));
      h2 = den >= std::numeric_limits<double>::min() && bound >= std::numeric_limits<double>::min() && num > bound
               ? std::numeric_limits<double>::infinity()
               : num / den;
    }
    if (i == 0 || h2 < best) best = h2;
  }
  if (best > 0.0 && best < h2min) h2min = best;
}

// ---------------------------------------------------------------------------------------------
// Reading: distinct vertices, facets, smallest height

// Memory for a large hash table (released with free). Tables of several megabytes are probed at
// random: they are aligned to 2 MB and, where the system offers it, backed by huge pages, which
// spares most address translation misses.
void* allocate_table(std::size_t bytes) noexcept {
  constexpr std::size_t huge = std::size_t(2) << 20;
  if (bytes < 4 * huge) return std::malloc(bytes);
  const std::size_t rounded = (bytes + huge - 1) / huge * huge;
  void* p = std::aligned_alloc(huge, rounded);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (p) madvise(p, rounded, MADV_HUGEPAGE);
#endif
  return p;
}

// Collects the facets of a file: distinct vertices in `pos` (3 rows), three node indices per
// facet in `conn`, and the smallest positive squared facet height. Facets are queued and
// resolved in batches, so that the hash slots of a whole batch can be fetched ahead.
class facet_collector {
 public:
  facet_collector() {
    pos.rows = pos.ld = 3;
    conn.rows = conn.ld = 3;
  }
  facet_collector(const facet_collector&) = delete;
  facet_collector& operator=(const facet_collector&) = delete;
  ~facet_collector() { std::free(slots_); }

  dense2D<double> pos;
  dense2D<unsigned> conn;
  double h2min = std::numeric_limits<double>::max();

  // Room for about `facets` facets in advance. Only a hint, capped (the size of a sparse file
  // promises nothing) and allowed to fail: growth goes on as needed.
  void reserve(std::uint64_t facets) {
    const unsigned f = static_cast<unsigned>(facets < (1u << 22) ? facets : (1u << 22));
    // A closed surface has about half as many vertices as facets.
    if (conn.reserve(3, f) && pos.reserve(3, f / 2 + 4)) grow_table(f < (1u << 21) ? f / 2 + 16 : (1u << 20));
  }

  // Queues one facet of three vertices (x, y, z each). False when memory ran out.
  bool add_facet(const double* v0, const double* v1, const double* v2) {
    take_smallest_squared_height(v0, v1, v2, h2min);
    double* q = queue_[queued_];
    std::memcpy(q, v0, 3 * sizeof(double));
    std::memcpy(q + 3, v1, 3 * sizeof(double));
    std::memcpy(q + 6, v2, 3 * sizeof(double));
    return ++queued_ < batch || flush();
  }

  // Resolves the queued facets into nodes. False when memory ran out.
  bool flush() {
    const unsigned n = queued_;
    queued_ = 0;
    if (n == 0) return true;
    if (!slots_ && !grow_table(0)) return false;
    if (std::uint64_t(conn.cols) + n > 0x55555555u) return false;
    if (conn.storage->capacity - conn.offset < 3 * (conn.cols + n)) {
      const std::uint64_t want = std::uint64_t(conn.cols) * 2 > conn.cols + n ? std::uint64_t(conn.cols) * 2 : conn.cols + n;
      if (!conn.reserve(3, static_cast<unsigned>(want < 0x55555555u ? want : 0x55555555u))) return false;
    }
    const double* v = queue_[0];
    const unsigned nv = 3 * n;
    for (unsigned i = 0; i < nv; ++i) hash_[i] = finite(v + 3 * i) ? hash(v + 3 * i) : 0;
    constexpr unsigned ahead = 32;
    for (unsigned i = 0; i < ahead && i < nv; ++i) __builtin_prefetch(slots_ + (hash_[i] & mask_));
    unsigned* c = conn.storage->data + conn.offset + std::size_t(conn.cols) * 3;
    for (unsigned i = 0; i < nv; ++i) {
      if (i + ahead < nv) __builtin_prefetch(slots_ + (hash_[i + ahead] & mask_));
      const unsigned id = node_of(v + 3 * i, hash_[i]);
      if (id == NULL_INDEX) return false;
      c[i] = id;
    }
    conn.cols += n;
    conn.size += nv;
    return true;
  }

  // Expands the mesh back to three nodes of its own per facet (connectivity 0, 1, 2, ...).
  bool expand() {
    const std::uint64_t k = std::uint64_t(conn.cols) * 3;
    dense2D<double> full;
    dense2D<unsigned> ids;
    if (k > 0xFFFFFFFFu / 3 || !full.resize(3, static_cast<unsigned>(k)) || !ids.resize(3, conn.cols)) return false;
    const double* src = pos.storage->data + pos.offset;
    const unsigned* c = conn.storage->data + conn.offset;
    double* dst = full.storage->data + full.offset;
    unsigned* out = ids.storage->data + ids.offset;
    for (std::uint64_t e = 0; e < k; ++e) {
      std::memcpy(dst + 3 * e, src + std::size_t(c[e]) * 3, 3 * sizeof(double));
      out[e] = static_cast<unsigned>(e);
    }
    pos = full;
    conn = ids;
    return true;
  }

 private:
  static bool finite(const double* v) noexcept {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
  }
  // Hash of the coordinate bits (products folded to 64 bits mix every input bit into the low
  // bits, which matters for coordinates read from floats: their low mantissa bits are zero).
  static std::uint64_t fold(std::uint64_t a, std::uint64_t b) noexcept {
    const unsigned __int128 r = static_cast<unsigned __int128>(a) * b;
    return static_cast<std::uint64_t>(r) ^ static_cast<std::uint64_t>(r >> 64);
  }
  static std::uint64_t hash(const double* v) noexcept {
    std::uint64_t b[3];
    std::memcpy(b, v, sizeof b);
    const std::uint64_t h = fold(b[0] ^ 0xA0761D6478BD642Full, b[1] ^ 0xE7037ED1A0B428DBull) ^ b[2];
    return fold(h ^ 0x8EBC6AF09C88C6E3ull, 0x589965CC75374CC3ull);
  }

  // Index of the node at v (hash h), appended when new; NULL_INDEX when memory ran out.
  // Non-finite vertices are never joined: each becomes a node of its own.
  unsigned node_of(const double* v, std::uint64_t h) {
    const bool fin = finite(v);
    std::size_t i = 0;
    if (fin) {
      for (i = static_cast<std::size_t>(h) & mask_; slots_[i].node != NULL_INDEX; i = (i + 1) & mask_)
        if (std::memcmp(slots_[i].xyz, v, sizeof slots_[i].xyz) == 0) return slots_[i].node;
    }
    if (pos.cols == pos_cap_) {
      const unsigned want = pos.cols > 2 ? (pos.cols < 0x2AAAAAAAu ? 2 * pos.cols : 0x55555555u) : 4;
      if (want <= pos.cols || !pos.reserve(3, want)) return NULL_INDEX;
      pos_cap_ = (pos.storage->capacity - pos.offset) / 3;
    }
    const unsigned node = pos.cols;
    std::memcpy(pos.storage->data + pos.offset + std::size_t(node) * 3, v, 3 * sizeof(double));
    ++pos.cols;
    pos.size += 3;
    if (fin) {
      std::memcpy(slots_[i].xyz, v, sizeof slots_[i].xyz);
      slots_[i].node = node;
      if (++used_ * 2 > mask_ + 1 && !grow_table(used_)) return NULL_INDEX;
    }
    return node;
  }

  // Rehashes into a table of at least 2 * n slots (a power of two).
  bool grow_table(std::uint64_t n) {
    std::size_t cap = 1024;
    while (cap < 2 * n + 2) cap *= 2;
    if (slots_ && cap <= mask_ + 1) return true;
    slot* fresh = static_cast<slot*>(allocate_table(cap * sizeof(slot)));
    if (!fresh) return false;
    for (std::size_t i = 0; i < cap; ++i) fresh[i].node = NULL_INDEX;
    const std::size_t m = cap - 1;
    if (slots_) {
      for (std::size_t s = 0; s <= mask_; ++s) {
        if (slots_[s].node == NULL_INDEX) continue;
        std::size_t i = static_cast<std::size_t>(hash(slots_[s].xyz)) & m;
        while (fresh[i].node != NULL_INDEX) i = (i + 1) & m;
        fresh[i] = slots_[s];
      }
      std::free(slots_);
    }
    slots_ = fresh;
    mask_ = m;
    return true;
  }

  // A distinct vertex and its node: 32 bytes, two to a cache line.
  struct slot {
    double xyz[3];
    unsigned node;
    unsigned unused;
  };
  static constexpr unsigned batch = 1024;
  slot* slots_ = nullptr;
  std::size_t mask_ = 0;
  std::size_t used_ = 0;
  unsigned pos_cap_ = 0;
  unsigned queued_ = 0;
  double queue_[batch][9];
  std::uint64_t hash_[3 * batch];
};

// Joins the nodes closer than 5 % of the smallest facet height, drops the facets that collapsed
// and the nodes left unused; or, when every facet is flat, returns the unmerged mesh.
int finish_mesh(facet_collector& m) {
  if (!m.flush()) return ERR_ALLOCATION;
  if (!(m.h2min > 0.0 && m.h2min < std::numeric_limits<double>::max())) return m.expand() ? 0 : ERR_ALLOCATION;
  dense1D<unsigned, 16> new_IDs;
  int status = merge(m.pos, m.conn, new_IDs, 0.05 * std::sqrt(m.h2min), 0u);
  if (status < 0) return status;
  status = remove_degenerated(m.conn, new_IDs, true);
  if (status < 0) return status;
  status = simplify(m.pos, m.conn, new_IDs, 0u);
  return status < 0 ? status : 0;
}

// End of a line as the C string functions see it: its first NUL byte, if any.
inline const char* c_string_end(const char* first, const char* last) noexcept {
  const void* z = std::memchr(first, '\0', std::size_t(last - first));
  return z ? static_cast<const char*>(z) : last;
}

// Lines are read as fgets with a 256-byte buffer would read them.
constexpr std::size_t stl_line_max = 255;

int read_ascii(const char* filename, facet_collector& m) {
  std::FILE* f = std::fopen(filename, "r");
  if (!f) return -1;
  file_closer closer{f};
  long size = -1;
  if (std::fseek(f, 0, SEEK_END) == 0) {
    size = std::ftell(f);
    if (std::fseek(f, 0, SEEK_SET) != 0) return -1;
  }
  textin::line_reader lines(f);
  const char* a;
  const char* b;
  if (!lines.next(a, b, stl_line_max)) return lines.failed() ? ERR_ALLOCATION : -2;
  if (!textin::contains_nocase(a, c_string_end(a, b), "solid")) return -2;
  // Room for the facets that the file's size suggests (about 256 bytes each as written here).
  if (size > 0) m.reserve(std::uint64_t(size) / 256);
  // Lines of the facet after the "facet normal" one: what each must contain, or (empty)
  // a vertex line.
  static const char* const body[6] = {"outer loop", nullptr, nullptr, nullptr, "endloop", "endfacet"};
  double v[3][3];
  for (;;) {
    if (!lines.next(a, b, stl_line_max)) return lines.failed() ? ERR_ALLOCATION : -3;
    if (lines.may_hold_nul()) b = c_string_end(a, b);
    if (textin::contains_nocase(a, b, "endsolid")) break;
    double normal[3];
    if (textin::scan_format(a, b, " facet normal % % %", normal, true) != 3) return -3;
    for (int l = 0; l < 6; ++l) {
      if (!lines.next(a, b, stl_line_max)) return lines.failed() ? ERR_ALLOCATION : -3;
      if (lines.may_hold_nul()) b = c_string_end(a, b);
      if (body[l]) {
        if (!textin::contains_nocase(a, b, body[l])) return -3;
      } else if (textin::scan_format(a, b, " vertex % % %", v[l - 1], true) != 3) {
        return -3;
      }
      if (l == 3 && !m.add_facet(v[0], v[1], v[2])) return ERR_ALLOCATION;
    }
  }
  return finish_mesh(m);
}

inline float load_le_float(const unsigned char* p) noexcept {
  std::uint32_t u = std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
                    std::uint32_t(p[3]) << 24;
  return std::bit_cast<float>(u);
}

int read_binary(const char* filename, facet_collector& m) {
  std::FILE* f = std::fopen(filename, "rb");
  if (!f) return -1;
  file_closer closer{f};
  unsigned char head[84];
  if (std::fread(head, 1, 80, f) != 80) return -1;
  if (std::fread(head + 80, 1, 4, f) != 4) return -3;
  const std::int32_t count = static_cast<std::int32_t>(std::uint32_t(head[80]) | std::uint32_t(head[81]) << 8 |
                                                       std::uint32_t(head[82]) << 16 | std::uint32_t(head[83]) << 24);
  std::uint64_t todo = count > 0 ? std::uint64_t(count) : 0;
  // Reserve for the facets the file can actually hold, never more than the count.
  std::uint64_t hint = todo < 65536 ? todo : 65536;
  const long here = std::ftell(f);
  if (here >= 0 && std::fseek(f, 0, SEEK_END) == 0) {
    const long size = std::ftell(f);
    if (std::fseek(f, here, SEEK_SET) != 0) return -3;
    if (size >= here) {
      const std::uint64_t held = std::uint64_t(size - here) / 50;
      hint = todo < held ? todo : held;
    }
  }
  m.reserve(hint);
  constexpr std::size_t block = 4096;
  unsigned char* buf = static_cast<unsigned char*>(std::malloc(block * 50));
  if (!buf) return ERR_ALLOCATION;
  struct freer {
    unsigned char* p;
    ~freer() { std::free(p); }
  } free_buf{buf};
  while (todo) {
    const std::size_t n = todo < block ? static_cast<std::size_t>(todo) : block;
    if (std::fread(buf, 50, n, f) != n) return -3;
    for (std::size_t i = 0; i < n; ++i) {
      const unsigned char* r = buf + 50 * i + 12;
      double v[9];
      for (int k = 0; k < 9; ++k) v[k] = load_le_float(r + 4 * k);
      if (!m.add_facet(v, v + 3, v + 6)) return ERR_ALLOCATION;
    }
    todo -= n;
  }
  return finish_mesh(m);
}

// ---------------------------------------------------------------------------------------------
// Writing

// Coordinates of node j as three values; 2-D nodes get z = 0.
inline void node_xyz(const dense2D<double>& pos, unsigned j, double out[3]) noexcept {
  const double* p = pos.storage->data + pos.offset + std::size_t(j) * pos.ld;
  out[0] = p[0];
  out[1] = p[1];
  out[2] = pos.rows == 3 ? p[2] : 0.0;
}

// Unit normal of the facet, (0, 0, 0) when the cross product has length 0.
inline void facet_normal(const double* p0, const double* p1, const double* p2, double n[3]) noexcept {
  const double ax = p1[0] - p0[0], ay = p1[1] - p0[1], az = p1[2] - p0[2];
  const double bx = p2[0] - p0[0], by = p2[1] - p0[1], bz = p2[2] - p0[2];
  n[0] = ay * bz - az * by;
  n[1] = az * bx - ax * bz;
  n[2] = ax * by - ay * bx;
  const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
  if (len == 0.0) {
    n[0] = n[1] = n[2] = 0.0;
  } else {
    n[0] /= len;
    n[1] /= len;
    n[2] /= len;
  }
}

inline void facet_geometry(const dense2D<double>& pos, const dense2D<unsigned>& conn, unsigned e, double v[3][3],
                           double n[3]) noexcept {
  const unsigned* c = conn.storage->data + conn.offset + std::size_t(e) * conn.ld;
  node_xyz(pos, c[0], v[0]);
  node_xyz(pos, c[1], v[1]);
  node_xyz(pos, c[2], v[2]);
  facet_normal(v[0], v[1], v[2], n);
}

inline char* put_triple(char* p, const double* x) noexcept {
  p = textio::put_e(p, x[0], 6, false);
  *p++ = ' ';
  p = textio::put_e(p, x[1], 6, false);
  *p++ = ' ';
  p = textio::put_e(p, x[2], 6, false);
  *p++ = '\n';
  return p;
}

int write_ascii(std::FILE* f, const dense2D<double>& pos, const dense2D<unsigned>& conn) {
  textio::text_writer w(f);
  w.write("solid KVO\n");
  const unsigned nf = conn.is_empty() ? 0 : conn.cols;
  for (unsigned e = 0; e < nf && w.ok(); ++e) {
    double v[3][3], n[3];
    facet_geometry(pos, conn, e, v, n);
    char* p = w.room(textio::text_writer::max_room);
    p = textio::put_lit(p, "   facet normal ");
    p = put_triple(p, n);
    p = textio::put_lit(p, "      outer loop\n");
    for (int k = 0; k < 3; ++k) {
      p = textio::put_lit(p, "         vertex ");
      p = put_triple(p, v[k]);
    }
    p = textio::put_lit(p, "      endloop\n   endfacet\n");
    w.commit(p);
  }
  if (w.ok()) w.write("endsolid KVO\n");
  return w.flush() ? 0 : -1;
}

inline void store_le_float(unsigned char* p, double x) noexcept {
  const std::uint32_t u = std::bit_cast<std::uint32_t>(static_cast<float>(x));
  p[0] = static_cast<unsigned char>(u);
  p[1] = static_cast<unsigned char>(u >> 8);
  p[2] = static_cast<unsigned char>(u >> 16);
  p[3] = static_cast<unsigned char>(u >> 24);
}

int write_binary(std::FILE* f, const dense2D<double>& pos, const dense2D<unsigned>& conn) {
  const unsigned nf = conn.is_empty() ? 0 : conn.cols;
  unsigned char head[84] = {};
  std::memcpy(head, "KVO STL Binary", 14);
  head[80] = static_cast<unsigned char>(nf);
  head[81] = static_cast<unsigned char>(nf >> 8);
  head[82] = static_cast<unsigned char>(nf >> 16);
  head[83] = static_cast<unsigned char>(nf >> 24);
  if (std::fwrite(head, 1, 84, f) != 84) return -1;
  constexpr unsigned block = 4096;
  unsigned char* buf = static_cast<unsigned char*>(std::malloc(std::size_t(block) * 50));
  unsigned char small[50];
  const unsigned per = buf ? block : 1;  // without a block buffer, one facet at a time
  unsigned char* out = buf ? buf : small;
  int status = 0;
  for (unsigned e0 = 0; e0 < nf && status == 0; e0 += per) {
    const unsigned n = nf - e0 < per ? nf - e0 : per;
    for (unsigned i = 0; i < n; ++i) {
      double v[3][3], nrm[3];
      facet_geometry(pos, conn, e0 + i, v, nrm);
      unsigned char* r = out + 50 * std::size_t(i);
      for (int k = 0; k < 3; ++k) store_le_float(r + 4 * k, nrm[k]);
      for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k) store_le_float(r + 12 + 12 * j + 4 * k, v[j][k]);
      r[48] = r[49] = 0;
    }
    if (std::fwrite(out, 50, n, f) != n) status = -1;
  }
  std::free(buf);
  return status;
}

}  // namespace

int STL_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM, bool ascii) {
  if (!filename) return -1;
  std::FILE* f = std::fopen(filename, ascii ? "w" : "wb");
  if (!f) return -1;
  int status;
  if (pos.rows != 2 && pos.rows != 3)
    status = -2;
  else if (!check_IDs(connectM, ET_TRIA3, pos.cols))
    status = -3;
  else
    status = ascii ? write_ascii(f, pos, connectM) : write_binary(f, pos, connectM);
  // A failed close means buffered bytes were lost.
  if (std::fclose(f) != 0 && status == 0) status = -1;
  return status;
}

int STL_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM) {
  // Results are built in fresh containers and handed over at the end, so that other views of
  // the caller's old storage are never written to.
  pos = dense2D<double>();
  connectM = dense2D<unsigned>();
  pos.resize(3, 0);
  connectM.resize(3, 0);
  if (!filename) return -1;
  // A file that doesn't read as ASCII STL is read again as binary STL.
  for (int form = 0; form < 2; ++form) {
    std::unique_ptr<facet_collector> m(new (std::nothrow) facet_collector);
    if (!m) return ERR_ALLOCATION;
    const int status = form == 0 ? read_ascii(filename, *m) : read_binary(filename, *m);
    if (status >= 0) {
      pos = m->pos;
      connectM = m->conn;
      return 0;
    }
    if (form == 1 || status <= ERR_ALLOCATION) return status;
  }
  return -1;
}

}  // namespace gridkit
}  // namespace kvo
