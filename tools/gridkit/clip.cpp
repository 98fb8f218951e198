// The clip command: keeps the elements on the side of a plane its normal points to.
#include <cmath>
#include <cstdio>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {
const char* clip_usage = "gridkit clip IN OUT --origin X,Y,Z --normal X,Y,Z [--json] [--verbose]";
}

int cmd_clip(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {"--origin", "--normal"}, clip_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Keeps the elements whose nodes all lie strictly on the side of the plane through the\n"
        "origin that the normal points to, and drops the nodes no kept element uses.\n",
        clip_usage);
    return 0;
  }
  if (cl.files.size() != 2) return usage_error(clip_usage, "clip takes an input and an output file");
  const std::string *o = cl.get("--origin"), *n = cl.get("--normal");
  if (!o || !n) return usage_error(clip_usage, "clip needs --origin and --normal");
  double origin[3], normal[3];
  if (!parse_point(*o, origin)) return usage_error(clip_usage, "--origin needs X,Y,Z numbers, not '" + *o + "'");
  if (!parse_point(*n, normal)) return usage_error(clip_usage, "--normal needs X,Y,Z numbers, not '" + *n + "'");
  if (!(std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]) >= 1e-12))
    return usage_error(clip_usage, "--normal must not be the zero vector");
  const std::string &in = cl.files[0], &out = cl.files[1];
  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, &out, st, m); s >= 0) return s;
  const unsigned long long before = m.elements();

  st.begin("clipping");
  const kvo::vector_fixed<double, 3> org{origin[0], origin[1], origin[2]}, nrm{normal[0], normal[1], normal[2]};
  for (auto& c : m.conn) {
    dense2D<unsigned> kept;
    const int s = gk::clip(m.pos, c, org, nrm, kept);
    if (s != 0) return fail(in + ": " + status_text("clipping", s));
    c = kept;
  }
  m.prune();
  const long long dropped = drop_unused_nodes(m);
  if (dropped < 0) return fail("out of memory while dropping unused nodes");

  if (int s = save_output(out, m, st); s >= 0) return s;

  if (cl.json) {
    json j;
    json_written(j, in, out, m);
    j.value("kept_elements", m.elements()).value("removed_elements", before - m.elements());
    j.value("removed_nodes", (unsigned long long)dropped);
    json_elements(j, "elements", m);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
  } else {
    std::printf("kept %llu of %llu elements, %u nodes (%lld dropped); written to %s\n", m.elements(), before,
                m.pos.cols, dropped, out.c_str());
  }
  return 0;
}

}  // namespace cli
