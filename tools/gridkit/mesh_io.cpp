// Mesh reading and writing chosen by file extension.
#include <cctype>
#include <cstdio>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

unsigned long long mesh::elements() const {
  unsigned long long n = 0;
  for (const auto& c : conn) n += c.cols;
  return n;
}

dense1D<int, 16> mesh::type_list() const {
  dense1D<int, 16> t;
  for (auto e : types) t.push_back_n(int(e), 1);
  return t;
}

void mesh::prune() {
  std::size_t k = 0;
  for (std::size_t i = 0; i < conn.size(); ++i) {
    if (conn[i].cols == 0) continue;
    conn[k] = conn[i];
    types[k++] = types[i];
  }
  conn.resize(k);
  types.resize(k);
}

long long drop_unused_nodes(mesh& m) {
  if (m.pos.cols == 0) return 0;
  dense1D<unsigned, 16> new_IDs;
  const int s = m.conn.empty() ? 0 : gk::simplify(m.pos, m.conn.data(), m.conn.data() + m.conn.size(), new_IDs, 0);
  if (m.conn.empty()) {
    const long long n = m.pos.cols;
    m.pos.resize(m.pos.rows, 0);
    return n;
  }
  return s < 0 ? -1 : s;
}

std::string extension(const std::string& file) {
  const auto slash = file.find_last_of('/');
  const auto dot = file.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string e = file.substr(dot + 1);
  for (char& c : e) c = char(std::tolower(static_cast<unsigned char>(c)));
  return e;
}

namespace {

bool file_exists(const std::string& file) {
  std::FILE* f = std::fopen(file.c_str(), "rb");
  if (!f) return false;
  std::fclose(f);
  return true;
}

std::string open_failure(const std::string& file) {
  return file + ": " + (file_exists(file) ? "cannot read the file" : "no such file");
}

// Keeps the non-empty connectivities; the readers fill one per type already.
void add(mesh& m, const dense2D<unsigned>& c, element_type t) {
  if (c.cols == 0) return;
  m.conn.push_back(c);
  m.types.push_back(t);
}

bool read_range(const std::string& file, bool medit, mesh& m, std::string& error) {
  std::vector<dense2D<unsigned>> range(gk::MESH_FILE_TYPES);
  dense1D<int, 16> types;
  const int s = medit ? gk::medit_input(file.c_str(), m.pos, range.data(), range.data() + range.size(), types, nullptr)
                      : gk::vtk_input(file.c_str(), m.pos, range.data(), range.data() + range.size(), types, nullptr);
  if (s == -1) {
    error = open_failure(file);
  } else if (s == gk::ERR_ALLOCATION) {
    error = file + ": out of memory while reading";
  } else if (s != 0) {
    error = file + (medit ? ": not a valid MEDIT mesh file" : ": not a valid VTK unstructured grid file") +
            " (bad keyword, number, count, truncated data or node index out of range)";
  }
  if (s != 0) return false;
  for (unsigned i = 0; i < types.size; ++i) add(m, range[i], element_type(types.ptr()[i]));
  return true;
}

}  // namespace

bool readable(const std::string& file) {
  const std::string e = extension(file);
  return e == "stl" || e == "obj" || e == "mesh" || e == "vtk";
}

bool writable(const std::string& file) {
  const std::string e = extension(file);
  return e == "stl" || e == "obj" || e == "mesh" || e == "vtk" || e == "case" || e == "geo";
}

bool read_mesh(const std::string& file, mesh& m, std::string& error) {
  m = mesh();
  const std::string e = extension(file);
  if (e == "stl") {
    dense2D<unsigned> tri;
    const int s = gk::STL_input(file.c_str(), m.pos, tri);
    if (s == -1) {
      // Too short for a binary header after the ASCII reading failed, or not readable at all.
      error = !file_exists(file) ? file + ": no such file"
                                 : file + ": not a valid STL file (not complete ASCII STL, and too short for a "
                                          "binary STL header), or it cannot be read";
      return false;
    }
    if (s == gk::ERR_ALLOCATION) {
      error = file + ": out of memory while reading";
      return false;
    }
    if (s != 0) {
      error = file + ": not a valid STL file (malformed line or truncated data)";
      return false;
    }
    add(m, tri, gk::ET_TRIA3);
    return true;
  }
  if (e == "obj") {
    dense2D<double> normals, tex;
    dense2D<unsigned> trias, quads;
    const int s = gk::WavefrontOBJ_input(file.c_str(), m.pos, normals, tex, trias, quads);
    if (s == -1) {
      error = open_failure(file);
      return false;
    }
    if (s != 0) {
      error = file + ": not a valid Wavefront OBJ file (wrong number of values or bad face reference)";
      return false;
    }
    // Faces must refer to nodes that exist.
    for (const auto* c : {&trias, &quads})
      if (c->cols && !gk::check_IDs(*c, m.pos.cols)) {
        error = file + ": a face refers to a vertex that does not exist";
        return false;
      }
    add(m, trias, gk::ET_TRIA3);
    add(m, quads, gk::ET_QUAD4);
    return true;
  }
  if (e == "mesh") return read_range(file, true, m, error);
  if (e == "vtk") return read_range(file, false, m, error);
  error = file + ": unknown file extension (readable: .stl .obj .mesh .vtk)";
  return false;
}

bool write_mesh(const std::string& file, const mesh& m, std::string& error) {
  const std::string e = extension(file);
  const dense1D<int, 16> types = m.type_list();
  const dense2D<unsigned>* first = m.conn.data();
  const dense2D<unsigned>* last = first + m.conn.size();
  int s = 0;
  std::string target = file;
  if (e == "mesh") {
    s = gk::medit_output(file.c_str(), m.pos, first, last, types);
  } else if (e == "vtk") {
    s = gk::vtk_output(file.c_str(), m.pos, first, last, types);
  } else if (e == "stl") {
    dense2D<unsigned> tri;
    tri.resize(3, 0);
    for (std::size_t i = 0; i < m.conn.size(); ++i) {
      if (m.types[i] != gk::ET_TRIA3) {
        error = file + ": STL holds triangles only, the mesh has " + type_name(m.types[i]) + " elements";
        return false;
      }
      tri = m.conn[i];
    }
    s = gk::STL_output(file.c_str(), m.pos, tri, false);
  } else if (e == "obj") {
    dense2D<unsigned> trias, quads;
    trias.resize(3, 0);
    quads.resize(4, 0);
    for (std::size_t i = 0; i < m.conn.size(); ++i) {
      if (m.types[i] == gk::ET_TRIA3) {
        trias = m.conn[i];
      } else if (m.types[i] == gk::ET_QUAD4) {
        quads = m.conn[i];
      } else {
        error = file + ": OBJ holds triangles and quadrangles only, the mesh has " + type_name(m.types[i]) +
                " elements";
        return false;
      }
    }
    s = gk::WavefrontOBJ_output(file.c_str(), m.pos, trias, quads, gk::ET_TRIA3, gk::ET_QUAD4);
  } else if (e == "geo" || e == "case") {
    std::string geo = file;
    if (e == "case") geo = file.substr(0, file.size() - 4) + "geo";
    target = geo;
    s = gk::ensight_output(geo.c_str(), m.pos, first, last, types);
    if (s == 0 && e == "case") {
      std::FILE* f = std::fopen(file.c_str(), "w");
      if (!f) {
        error = file + ": cannot create the file";
        return false;
      }
      const auto slash = geo.find_last_of('/');
      const std::string name = slash == std::string::npos ? geo : geo.substr(slash + 1);
      std::fprintf(f, "FORMAT\ntype: ensight\n\nGEOMETRY\nmodel: %s\n", name.c_str());
      if (std::fclose(f) != 0) {
        error = file + ": write failed";
        return false;
      }
    }
  } else {
    error = file + ": unknown file extension (writable: .mesh .vtk .case .geo .stl .obj)";
    return false;
  }
  if (s == -1) {
    error = target + ": cannot create the file, or a write failed";
    return false;
  }
  if (s != 0) {
    error = target + ": the mesh cannot be written in this format (writer status " + std::to_string(s) + ")";
    return false;
  }
  return true;
}

int load_input(const std::string& in, const std::string* out, stages& st, mesh& m) {
  if (!readable(in)) return fail(in + ": unknown file extension (readable: .stl .obj .mesh .vtk)");
  if (out && !writable(*out))
    return fail(*out + ": unknown file extension (writable: .mesh .vtk .case .geo .stl .obj)");
  st.begin("reading");
  std::string error;
  if (!read_mesh(in, m, error)) return fail(error);
  return -1;
}

int save_output(const std::string& out, const mesh& m, stages& st) {
  st.begin("writing");
  std::string error;
  if (!write_mesh(out, m, error)) return fail(error);
  st.end();
  return -1;
}

const char* type_name(element_type t) {
  static const char* names[] = {"none",       "node",      "edge",      "edge",       "quadratic edge",
                                "face",       "triangle",  "quadrangle", "quadratic triangle",
                                "quadratic quadrangle (8)", "quadratic quadrangle (9)", "solid",
                                "tetrahedron", "quadratic tetrahedron", "pyramid", "quadratic pyramid",
                                "wedge",       "quadratic wedge",       "hexahedron", "quadratic hexahedron (20)",
                                "quadratic hexahedron (27)"};
  return unsigned(t) < 21 ? names[t] : "unknown";
}

}  // namespace cli
