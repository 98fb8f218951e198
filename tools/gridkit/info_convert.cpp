// The info and convert commands.
#include <cstdio>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {

const char* info_usage = "gridkit info FILE [--json] [--verbose]";
const char* convert_usage = "gridkit convert IN OUT [--json] [--verbose]";

struct topology {
  unsigned long long boundary = 0, non_manifold = 0, subdomains = 0;
  bool known = false;
};

// Open, non-manifold faces and face-connected components of each connectivity.
bool measure_topology(const mesh& m, topology& t, std::string& error) {
  for (std::size_t i = 0; i < m.conn.size(); ++i) {
    dense2D<unsigned> plain, kept, faces;
    int s = open_faces(m, i, plain, faces);
    if (s == -2) continue;  // no faces defined for this type
    if (s == 0) s = gk::get_neighbors(m.conn[i], m.types[i], true, kept);
    dense1D<unsigned, 16> elements, offsets;
    if (s == 0) s = gk::get_subdomains(plain, elements, offsets);
    if (s != 0) {
      error = s == gk::ERR_ALLOCATION ? "out of memory while finding neighbours"
                                      : "the " + std::string(type_name(m.types[i])) + " connectivity is invalid";
      return false;
    }
    t.known = true;
    t.boundary += faces.cols;
    for (unsigned k = 0; k < plain.size; ++k)
      if (plain.ptr()[k] == gk::NULL_INDEX && kept.ptr()[k] != gk::NULL_INDEX) ++t.non_manifold;
    if (offsets.size > 1) t.subdomains += offsets.size - 1;
  }
  return true;
}

}  // namespace

int cmd_info(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {}, info_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Prints node and element counts, dimension, bounding box, boundary and non-manifold faces,\n"
        "face-connected subdomains and the shape-quality summary.\n",
        info_usage);
    return 0;
  }
  if (cl.files.size() != 1) return usage_error(info_usage, "info takes one file");
  const std::string& file = cl.files[0];
  stages st(cl.verbose, file);
  mesh m;
  if (int s = load_input(file, nullptr, st, m); s >= 0) return s;
  std::string error;

  st.begin("bounding box");
  const unsigned dim = m.pos.rows;
  double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  for (unsigned j = 0; j < m.pos.cols; ++j) {
    const double* p = m.pos.col_ptr(j);
    for (unsigned d = 0; d < dim && d < 3; ++d) {
      if (j == 0 || p[d] < lo[d]) lo[d] = p[d];
      if (j == 0 || p[d] > hi[d]) hi[d] = p[d];
    }
  }
  st.begin("topology");
  topology topo;
  if (!measure_topology(m, topo, error)) return fail(file + ": " + error);
  st.begin("shape qualities");
  quality_summary q;
  const bool have_quality = measure_quality(m, 10, q, nullptr);
  st.end();

  if (cl.json) {
    json j;
    j.begin_object().value("file", file).value("nodes", (unsigned long long)m.pos.cols);
    j.value("dimension", (unsigned long long)dim);
    json_elements(j, "elements", m);
    j.begin_object("bounding_box").begin_array("min");
    for (unsigned d = 0; d < dim && d < 3; ++d) j.value(nullptr, lo[d]);
    j.end_array().begin_array("max");
    for (unsigned d = 0; d < dim && d < 3; ++d) j.value(nullptr, hi[d]);
    j.end_array().end_object();
    if (topo.known) {
      j.value("boundary_faces", topo.boundary).value("non_manifold_faces", topo.non_manifold);
      j.value("subdomains", topo.subdomains);
    }
    if (have_quality) json_quality(j, "quality", q);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
    return 0;
  }

  std::printf("file        %s\n", file.c_str());
  std::printf("nodes       %u\n", m.pos.cols);
  std::printf("dimension   %u\n", dim);
  for (std::size_t i = 0; i < m.conn.size(); ++i)
    std::printf("elements    %u %s\n", m.conn[i].cols, type_name(m.types[i]));
  if (m.conn.empty()) std::printf("elements    0\n");
  if (dim) {
    std::printf("bounding box");
    for (unsigned d = 0; d < dim && d < 3; ++d) std::printf(" [%g, %g]", lo[d], hi[d]);
    std::printf("\n");
  }
  if (topo.known) {
    std::printf("boundary faces      %llu\n", topo.boundary);
    std::printf("non-manifold faces  %llu\n", topo.non_manifold);
    std::printf("subdomains          %llu\n", topo.subdomains);
  }
  if (have_quality) print_quality(q);
  return 0;
}

int cmd_convert(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {}, convert_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf("usage: %s\nReads .stl .obj .mesh .vtk; writes .mesh .vtk .case .geo .stl .obj.\n", convert_usage);
    return 0;
  }
  if (cl.files.size() != 2) return usage_error(convert_usage, "convert takes an input and an output file");
  const std::string &in = cl.files[0], &out = cl.files[1];
  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, &out, st, m); s >= 0) return s;
  if (int s = save_output(out, m, st); s >= 0) return s;
  if (cl.json) {
    json j;
    json_written(j, in, out, m);
    json_elements(j, "elements", m);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
  }
  return 0;
}

}  // namespace cli
