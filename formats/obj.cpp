// Wavefront OBJ files: writers of triangles and quadrangles with optional per-node normals and
// texture coordinates, and a reader of the "v", "vn", "vt" and "f" lines.
#include <kvo/gridkit.hpp>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "formats/text_input.hpp"
#include "formats/text_output.hpp"

namespace kvo {
namespace gridkit {

namespace {

// ---------------------------------------------------------------------------------------------
// Writing

// Up to two connectivities written one after the other as one list of faces.
struct face_list {
  const dense2D<unsigned>* part[2] = {nullptr, nullptr};
  int count = 0;
  void add(const dense2D<unsigned>& c) { part[count++] = &c; }
};

// Every non-empty part has the type's row count (nodes are not bounded: they are only written).
bool faces_ok(const face_list& faces, element_type type) {
  for (int k = 0; k < faces.count; ++k) {
    const dense2D<unsigned>& c = *faces.part[k];
    if (!check_IDs(c, type, ~0u)) return false;
    if (!c.is_empty() && c.rows != nodes_per_element(type)) return false;
  }
  return true;
}

inline char* put_value(char* p, double v) noexcept {
  p = textio::put_e(p, v, 8, false);
  *p++ = ' ';
  return p;
}

// Writes each face as " f " and, per node, "i/[i]/[i] " (texture and normal references only
// when those lists are written).
void write_faces(textio::text_writer& w, const face_list& faces, unsigned nodes, bool tex, bool nrm) {
  for (int k = 0; k < faces.count; ++k) {
    const dense2D<unsigned>& c = *faces.part[k];
    if (c.is_empty()) continue;
    for (unsigned j = 0; j < c.cols && w.ok(); ++j) {
      const unsigned* col = c.col_ptr(j);
      char* p = w.room(textio::text_writer::max_room);
      p = textio::put_lit(p, " f ");
      for (unsigned i = 0; i < nodes; ++i) {
        const std::uint32_t id = col[i] + 1u;
        p = textio::put_uint(p, id);
        *p++ = '/';
        if (tex) p = textio::put_uint(p, id);
        *p++ = '/';
        if (nrm) p = textio::put_uint(p, id);
        *p++ = ' ';
      }
      *p++ = '\n';
      w.commit(p);
    }
  }
}

int write_obj(const char* filename, const dense2D<double>& pos, const dense2D<double>& normals,
              const dense2D<double>& texcoords, const face_list& trias, const face_list& quads) {
  if (!filename) return -1;
  std::FILE* f = std::fopen(filename, "w");
  if (!f) return -1;
  const bool nrm = !normals.is_empty();
  const bool tex = !texcoords.is_empty();
  int status = 0;
  if (pos.rows != 2 && pos.rows != 3)
    status = -2;
  else if (nrm && (normals.rows != 3 || normals.cols != pos.cols))
    status = -3;
  else if (tex && (texcoords.rows != 2 || texcoords.cols != pos.cols))
    status = -4;
  else if (!faces_ok(trias, ET_TRIA3))
    status = -5;
  else if (!faces_ok(quads, ET_QUAD4))
    status = -6;
  if (status == 0) {
    textio::text_writer w(f);
    const unsigned n = pos.cols;
    for (unsigned j = 0; j < n && w.ok(); ++j) {
      const double* x = pos.col_ptr(j);
      char* p = w.room(textio::text_writer::max_room);
      p = textio::put_lit(p, " v ");
      p = put_value(p, x[0]);
      p = put_value(p, x[1]);
      p = put_value(p, pos.rows == 3 ? x[2] : 0.0);
      *p++ = '\n';
      w.commit(p);
    }
    for (unsigned j = 0; tex && j < n && w.ok(); ++j) {
      const double* x = texcoords.col_ptr(j);
      char* p = w.room(textio::text_writer::max_room);
      p = textio::put_lit(p, " vt ");
      p = put_value(p, x[0]);
      p = put_value(p, x[1]);
      *p++ = '\n';
      w.commit(p);
    }
    for (unsigned j = 0; nrm && j < n && w.ok(); ++j) {
      const double* x = normals.col_ptr(j);
      char* p = w.room(textio::text_writer::max_room);
      p = textio::put_lit(p, " vn ");
      p = put_value(p, x[0]);
      p = put_value(p, x[1]);
      p = put_value(p, x[2]);
      *p++ = '\n';
      w.commit(p);
    }
    write_faces(w, trias, 3, tex, nrm);
    write_faces(w, quads, 4, tex, nrm);
    if (!w.flush()) status = -1;
  }
  if (std::fclose(f) != 0 && status == 0) status = -1;
  return status;
}

// ---------------------------------------------------------------------------------------------
// Reading

// Appends columns of `rows` values to a contiguous matrix with amortised growth.
template <class T>
class column_appender {
 public:
  column_appender(dense2D<T>& m, unsigned rows) : m_(m) {
    m_ = dense2D<T>();
    m_.rows = m_.ld = rows;
  }
  // Room for one more column; nullptr when memory ran out.
  T* next() {
    if (m_.cols == cap_) {
      const std::uint64_t want = m_.cols > 2 ? 2 * std::uint64_t(m_.cols) : 4;
      if (want * m_.rows > 0xFFFFFFFFu || !m_.reserve(m_.rows, static_cast<unsigned>(want))) return nullptr;
      cap_ = m_.rows ? (m_.storage->capacity - m_.offset) / m_.rows : 0xFFFFFFFFu;
    }
    T* p = m_.storage->data + m_.offset + std::size_t(m_.cols) * m_.rows;
    ++m_.cols;
    m_.size += m_.rows;
    return p;
  }
  void set_rows(unsigned rows) { m_.rows = m_.ld = rows; }

 private:
  dense2D<T>& m_;
  unsigned cap_ = 0;
};

// A node, texture or normal number of a face: optional sign and decimal digits that fit 32
// bits; a minus sign wraps (negative references are not supported and become large values).
inline const char* scan_index(const char* p, const char* end, std::uint32_t& value) noexcept {
  bool negative = false;
  if (p != end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  const char* d = p;
  std::uint64_t v = 0;
  for (; p != end && textin::is_digit(static_cast<unsigned char>(*p)); ++p) {
    v = v * 10 + unsigned(*p - '0');
    if (v > 0xFFFFFFFFull) return nullptr;
  }
  if (p == d) return nullptr;
  value = negative ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
  return p;
}

inline bool is_blank(char c) noexcept { return textin::is_space(static_cast<unsigned char>(c)); }

// Reads the numbers after a keyword until one doesn't parse; keeps the first `keep`.
inline int scan_numbers(const char* p, const char* end, double* out, int keep) noexcept {
  int n = 0;
  double v;
  while (const char* q = textin::scan_double(p, end, v)) {
    if (n < keep) out[n] = v;
    ++n;
    p = q;
  }
  return n;
}

int read_obj(std::FILE* f, column_appender<double>& pos, unsigned& nodes, column_appender<double>& normals,
             column_appender<double>& texcoords, column_appender<unsigned>& trias,
             column_appender<unsigned>& quads) {
  textin::line_reader lines(f);
  bool seen_vt = false, seen_vn = false;
  unsigned vt_rows = 0;
  const char* a;
  const char* b;
  while (lines.next(a, b, 0)) {
    const char* p = textin::skip_space(a, b);
    const char* k = p;
    while (p != b && !is_blank(*p)) ++p;
    const std::size_t klen = std::size_t(p - k);
    if (klen == 1 && k[0] == 'v') {
      double x[3];
      if (scan_numbers(p, b, x, 3) < 3) return -2;
      double* c = pos.next();
      if (!c) return ERR_ALLOCATION;
      c[0] = x[0];
      c[1] = x[1];
      c[2] = x[2];
      ++nodes;
    } else if (klen == 2 && k[0] == 'v' && k[1] == 'n') {
      double x[3];
      if (scan_numbers(p, b, x, 3) != 3) return -2;
      double* c = normals.next();
      if (!c) return ERR_ALLOCATION;
      c[0] = x[0];
      c[1] = x[1];
      c[2] = x[2];
      seen_vn = true;
    } else if (klen == 2 && k[0] == 'v' && k[1] == 't') {
      double x[3];
      const int n = scan_numbers(p, b, x, 3);
      if (n < 1 || n > 3) return -2;
      if (!seen_vt) {
        vt_rows = unsigned(n);
        texcoords.set_rows(vt_rows);
      }
      seen_vt = true;
      if (unsigned(n) == vt_rows) {
        double* c = texcoords.next();
        if (!c) return ERR_ALLOCATION;
        for (int i = 0; i < n; ++i) c[i] = x[i];
      }
    } else if (klen == 1 && k[0] == 'f') {
      unsigned ids[4];
      unsigned count = 0;
      bool tex_ref = false, nrm_ref = false;
      for (;;) {
        p = textin::skip_space(p, b);
        if (p == b) break;
        std::uint32_t r, t;
        p = scan_index(p, b, r);
        if (!p) return -2;
        if (p != b && *p == '/') {
          ++p;
          if (p != b && !is_blank(*p) && *p != '/') {
            p = scan_index(p, b, t);
            if (!p) return -2;
            tex_ref = true;
          }
          if (p != b && *p == '/') {
            ++p;
            if (p != b && !is_blank(*p)) {
              p = scan_index(p, b, t);
              if (!p) return -2;
              nrm_ref = true;
            }
          }
        }
        if (p != b && !is_blank(*p)) return -2;
        if (count < 4) ids[count] = r > 0 ? r - 1 : nodes;
        ++count;
      }
      if ((tex_ref && !seen_vt) || (nrm_ref && !seen_vn)) return -2;
      if (count == 3 || count == 4) {
        unsigned* c = count == 3 ? trias.next() : quads.next();
        if (!c) return ERR_ALLOCATION;
        for (unsigned i = 0; i < count; ++i) c[i] = ids[i];
      }
    }
  }
  return lines.failed() ? ERR_ALLOCATION : 0;
}

}  // namespace

int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<double>& normals,
                        const dense2D<double>& texcoords, const dense2D<unsigned>& trias,
                        const dense2D<unsigned>& quads) {
  face_list t, q;
  t.add(trias);
  q.add(quads);
  return write_obj(filename, pos, normals, texcoords, t, q);
}

int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                        element_type FE_type) {
  face_list t, q;
  if (FE_type == ET_TRIA3) t.add(connectM);
  if (FE_type == ET_QUAD4) q.add(connectM);
  const dense2D<double> none;
  return write_obj(filename, pos, none, none, t, q);
}

int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM1,
                        const dense2D<unsigned>& connectM2, element_type FE_type1, element_type FE_type2) {
  face_list t, q;
  if (FE_type1 == ET_TRIA3) t.add(connectM1);
  if (FE_type1 == ET_QUAD4) q.add(connectM1);
  if (FE_type2 == ET_TRIA3) t.add(connectM2);
  if (FE_type2 == ET_QUAD4) q.add(connectM2);
  const dense2D<double> none;
  return write_obj(filename, pos, none, none, t, q);
}

int WavefrontOBJ_input(const char* filename, dense2D<double>& pos, dense2D<double>& normals,
                       dense2D<double>& texcoords, dense2D<unsigned>& trias, dense2D<unsigned>& quads) {
  // Every output starts empty, on storage of its own (other views of the old storage are left
  // alone); what was read up to a failing line is kept.
  column_appender<double> P(pos, 3), N(normals, 3), T(texcoords, 0);
  column_appender<unsigned> F3(trias, 3), F4(quads, 4);
  if (!filename) return -1;
  std::FILE* f = std::fopen(filename, "r");
  if (!f) return -1;
  unsigned nodes = 0;
  const int status = read_obj(f, P, nodes, N, T, F3, F4);
  std::fclose(f);
  return status;
}

}  // namespace gridkit
}  // namespace kvo
