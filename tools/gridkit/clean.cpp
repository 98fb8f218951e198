// The clean command: merges coincident nodes, removes degenerate elements and unused nodes.
#include <cstdio>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {
const char* clean_usage = "gridkit clean IN OUT [--tolerance T] [--json] [--verbose]";
}

int cmd_clean(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {"--tolerance"}, clean_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Merges nodes closer than T (default 1e-6, absolute), removes the elements that repeat a\n"
        "node, then the nodes no element uses, and writes the result to OUT.\n",
        clean_usage);
    return 0;
  }
  if (cl.files.size() != 2) return usage_error(clean_usage, "clean takes an input and an output file");
  double tolerance = 1e-6;
  if (const std::string* t = cl.get("--tolerance"))
    if (!parse_double(*t, tolerance) || tolerance < 0.0)
      return usage_error(clean_usage, "--tolerance needs a number >= 0, not '" + *t + "'");
  const std::string &in = cl.files[0], &out = cl.files[1];
  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, &out, st, m); s >= 0) return s;
  const unsigned long long nodes_before = m.pos.cols, elements_before = m.elements();

  st.begin("merging nodes");
  unsigned long long merged = 0;
  if (!m.conn.empty()) {
    dense1D<unsigned, 16> new_IDs;
    const int s = gk::merge(m.pos, m.conn.data(), m.conn.data() + m.conn.size(), new_IDs, tolerance, 0);
    if (s != 0) return fail(in + ": " + status_text("merging nodes", s));
    for (unsigned j = 0; j < new_IDs.size; ++j) merged += new_IDs[j] != j;
  }

  st.begin("removing degenerates");
  unsigned long long degenerate = 0;
  for (auto& c : m.conn) {
    const int s = gk::remove_degenerated(c, false);
    if (s < 0) return fail(in + ": " + status_text("removing degenerate elements", s));
    degenerate += unsigned(s);
  }
  m.prune();

  st.begin("dropping unused nodes");
  // Merged nodes are no longer used either; count the others apart.
  const long long removed = drop_unused_nodes(m);
  if (removed < 0) return fail(in + ": out of memory while dropping unused nodes");
  const long long unused = removed - (long long)merged;

  if (int s = save_output(out, m, st); s >= 0) return s;

  if (cl.json) {
    json j;
    json_written(j, in, out, m);
    j.value("tolerance", tolerance);
    j.value("nodes_before", nodes_before).value("elements_before", elements_before);
    j.value("merged_nodes", merged).value("degenerate_elements", degenerate);
    j.value("unused_nodes", (unsigned long long)unused);
    json_elements(j, "elements", m);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
  } else {
    std::printf("merged nodes          %llu (tolerance %g)\n", merged, tolerance);
    std::printf("degenerate elements   %llu\n", degenerate);
    std::printf("unused nodes          %lld\n", unused);
    std::printf("written               %s: %u nodes, %llu elements (from %llu nodes, %llu elements)\n", out.c_str(),
                m.pos.cols, m.elements(), nodes_before, elements_before);
  }
  return 0;
}

}  // namespace cli
