// The boundary command: the open faces of a mesh as a mesh of their own.
#include <cstdio>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {

const char* boundary_usage = "gridkit boundary IN OUT [--json] [--verbose]";

// Appends column j of `faces` (first `rows` rows) to `to`.
bool append_face(dense2D<unsigned>& to, const dense2D<unsigned>& faces, unsigned j, unsigned rows) {
  const unsigned c = to.cols;
  if (!to.resize(rows, c + 1)) return false;
  for (unsigned r = 0; r < rows; ++r) to(r, c) = faces(r, j);
  return true;
}

}  // namespace

int open_faces(const mesh& m, std::size_t i, dense2D<unsigned>& neighbors, dense2D<unsigned>& faces) {
  const int s = gk::get_neighbors(m.conn[i], m.types[i], false, neighbors);
  return s != 0 ? s : gk::get_mesh_boundaries(m.conn[i], neighbors, m.types[i], faces);
}

int cmd_boundary(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {}, boundary_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Writes the faces that belong to one element only: triangles and quadrangles of a volume\n"
        "mesh, edges of a surface mesh. Faces keep the node order of their element's local face;\n"
        "unused nodes are dropped.\n",
        boundary_usage);
    return 0;
  }
  if (cl.files.size() != 2) return usage_error(boundary_usage, "boundary takes an input and an output file");
  const std::string &in = cl.files[0], &out = cl.files[1];
  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, &out, st, m); s >= 0) return s;

  st.begin("finding the boundary");
  dense2D<unsigned> edges, trias, quads;
  edges.resize(2, 0);
  trias.resize(3, 0);
  quads.resize(4, 0);
  for (std::size_t i = 0; i < m.conn.size(); ++i) {
    dense2D<unsigned> nb, faces;
    const int s = open_faces(m, i, nb, faces);
    if (s == -2) continue;  // no faces defined for this type
    if (s != 0) return fail(in + ": " + status_text("finding the boundary", s));
    bool ok = true;
    if (faces.rows == 2 || faces.rows == 3) {
      dense2D<unsigned>& to = faces.rows == 2 ? edges : trias;
      if (to.cols == 0)
        to = faces;
      else
        for (unsigned j = 0; ok && j < faces.cols; ++j) ok = append_face(to, faces, j, faces.rows);
    } else if (faces.rows == 4) {
      for (unsigned j = 0; ok && j < faces.cols; ++j)
        ok = faces(3, j) == gk::NULL_INDEX ? append_face(trias, faces, j, 3) : append_face(quads, faces, j, 4);
    }
    if (!ok) return fail("out of memory while collecting the boundary");
  }
  mesh b;
  b.pos = m.pos;
  for (auto [c, t] : {std::pair{&edges, gk::ET_EDGE2}, {&trias, gk::ET_TRIA3}, {&quads, gk::ET_QUAD4}}) {
    if (c->cols == 0) continue;
    b.conn.push_back(*c);
    b.types.push_back(t);
  }
  if (drop_unused_nodes(b) < 0) return fail("out of memory while dropping unused nodes");

  if (int s = save_output(out, b, st); s >= 0) return s;

  if (cl.json) {
    json j;
    json_written(j, in, out, b);
    json_elements(j, "elements", b);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
  } else {
    std::printf("boundary of %s: %u nodes", in.c_str(), b.pos.cols);
    for (std::size_t i = 0; i < b.conn.size(); ++i)
      std::printf(", %u %s elements", b.conn[i].cols, type_name(b.types[i]));
    if (b.conn.empty()) std::printf(", no open face");
    std::printf("\nwritten to %s\n", out.c_str());
  }
  return 0;
}

}  // namespace cli
