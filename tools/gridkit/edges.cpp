// The edges command: edge lengths measured in a size field, and the field's size shock.
#include <cmath>
#include <cstdio>
#include <fstream>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {

const char* edges_usage = "gridkit edges IN [--size H | --sizes FILE.sol] [--json] [--verbose]";

// A size field read from a solution file: one size per node (rows 1) or one packed metric
// tensor per node (3 rows in 2-D, 6 in 3-D).
struct field {
  dense1D<double, 16> sizes;
  dense2D<double> metrics;
  bool tensor = false;
};

// Reads the solution files this program writes: a header "dim k n 2" with k = 1 (sizes), 3 or 6
// (tensors), then n * k numbers. The field must have one entry per node of the mesh.
bool read_field(const std::string& file, unsigned nodes, unsigned dim, field& f, std::string& error) {
  std::ifstream in(file);
  if (!in) {
    error = file + ": no such file, or it cannot be read";
    return false;
  }
  long long hdim, k, n, kind;
  if (!(in >> hdim >> k >> n >> kind) || kind != 2 || (k != 1 && k != 3 && k != 6)) {
    error = file + ": not a solution file of values at vertices (header 'dim k n 2' expected)";
    return false;
  }
  if (n != (long long)nodes) {
    error = file + ": holds " + std::to_string(n) + " values for a mesh of " + std::to_string(nodes) + " nodes";
    return false;
  }
  if (k != 1 && k != (dim == 2 ? 3 : 6)) {
    error = file + ": holds " + std::to_string(k) + "-component tensors for a " + std::to_string(dim) + "-D mesh";
    return false;
  }
  f.tensor = k != 1;
  const bool ok = f.tensor ? f.metrics.resize(unsigned(k), nodes) : f.sizes.resize(nodes);
  if (!ok) {
    error = file + ": out of memory";
    return false;
  }
  double* v = f.tensor ? f.metrics.col_ptr(0) : f.sizes.ptr();
  for (long long i = 0; i < n * k; ++i)
    if (!(in >> v[i]) || !std::isfinite(v[i])) {
      error = file + ": value " + std::to_string(i + 1) + " is missing or not a finite number";
      return false;
    }
  return true;
}

double mean_edge_length(const dense2D<double>& pos, const dense2D<unsigned>& edges) {
  double sum = 0.0;
  for (unsigned e = 0; e < edges.cols; ++e) {
    const double *a = pos.col_ptr(edges(0, e)), *b = pos.col_ptr(edges(1, e));
    double d2 = 0.0;
    for (unsigned k = 0; k < pos.rows; ++k) d2 += (b[k] - a[k]) * (b[k] - a[k]);
    sum += std::sqrt(d2);
  }
  return edges.cols ? sum / edges.cols : 0.0;
}

}  // namespace

int cmd_edges(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {"--size", "--sizes"}, edges_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Measures every distinct edge in a size field (1 = the wanted length): a uniform size H,\n"
        "the sizes or metric tensors of a solution file (for IN.mesh, IN.sol when it exists),\n"
        "or else the mean edge length.\n"
        "Prints the histogram of these lengths and the size shock per node (0 = smooth field).\n",
        edges_usage);
    return 0;
  }
  if (cl.files.size() != 1) return usage_error(edges_usage, "edges takes one input file");
  const std::string *size_opt = cl.get("--size"), *sizes_opt = cl.get("--sizes");
  if (size_opt && sizes_opt) return usage_error(edges_usage, "give --size or --sizes, not both");
  double h = 0.0;
  if (size_opt && (!parse_double(*size_opt, h) || !(h > 0.0)))
    return usage_error(edges_usage, "--size needs a number > 0, not '" + *size_opt + "'");
  if (sizes_opt && extension(*sizes_opt) != "sol")
    return usage_error(edges_usage, "--sizes needs a file name ending in .sol");
  const std::string& in = cl.files[0];
  // MEDIT keeps a mesh's fields in a .sol file of the same name: used when no field is given.
  std::string beside;
  if (!size_opt && !sizes_opt && extension(in) == "mesh") {
    beside = in.substr(0, in.size() - 4) + "sol";
    if (std::ifstream(beside)) sizes_opt = &beside;
  }

  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, nullptr, st, m); s >= 0) return s;
  std::string error;
  if (m.pos.rows != 2 && m.pos.rows != 3) return fail(in + ": coordinates must have 2 or 3 components");
  field f;
  if (sizes_opt && !read_field(*sizes_opt, m.pos.cols, m.pos.rows, f, error)) return fail(error);

  const dense1D<int, 16> types = m.type_list();
  const dense2D<unsigned>* first = m.conn.data();
  const dense2D<unsigned>* last = first + m.conn.size();
  std::string field_name = sizes_opt ? *sizes_opt : "";
  if (!sizes_opt) {
    if (!size_opt) {
      st.begin("edge extraction");
      dense2D<unsigned> all;
      const int s = gk::copy_edges(first, last, types, all);
      if (s != 0) return fail(in + ": " + status_text("extracting the edges", s));
      h = mean_edge_length(m.pos, all);
      if (!(h > 0.0)) return fail(in + ": the mesh has no edge of positive length");
    }
    if (!f.sizes.resize(m.pos.cols, h)) return fail("out of memory for the size field");
    char buf[48];
    std::snprintf(buf, sizeof buf, "%g", h);
    field_name = std::string("uniform ") + buf + (size_opt ? "" : " (mean edge length)");
  }

  st.begin("edge qualities");
  kvo::misc::histogram hist(0.0, 2.0, 10);
  dense2D<unsigned> edges;
  int s = f.tensor ? gk::edge_qualities(m.pos, first, last, types, f.metrics, hist, edges)
                   : gk::edge_qualities(m.pos, first, last, types, f.sizes, hist, edges);
  if (s != 0 && s != -5) return fail(in + ": " + status_text("measuring the edges", s));
  const unsigned long long skipped = edges.cols - hist.count();

  st.begin("size shock");
  dense1D<double, 16> shock;
  s = f.tensor ? gk::H_shock(m.pos, edges, f.metrics, shock) : gk::H_shock(m.pos, edges, f.sizes, shock);
  if (s != 0) return fail(in + ": " + status_text("measuring the size shock", s));
  double smax = 0.0, ssum = 0.0;
  unsigned argmax = 0;
  for (unsigned i = 0; i < shock.size; ++i) {
    ssum += shock[i];
    if (shock[i] > smax) {
      smax = shock[i];
      argmax = i;
    }
  }
  const double smean = shock.size ? ssum / shock.size : 0.0;
  st.end();

  if (cl.json) {
    json j;
    j.begin_object().value("file", in).value("field", field_name).value("edges", (unsigned long long)edges.cols);
    j.value("skipped_edges", skipped);
    json_histogram(j, "quality", hist);
    j.begin_object("shock").value("max", smax).value("mean", smean);
    if (shock.size) j.value("max_node", (unsigned long long)argmax);
    j.end_object().end_object();
    std::printf("%s\n", j.str().c_str());
    return 0;
  }
  std::printf("file         %s\n", in.c_str());
  std::printf("size field   %s\n", field_name.c_str());
  std::printf("edges        %u", edges.cols);
  if (skipped) std::printf(" (%llu skipped: a size <= 0 at an end)", skipped);
  std::printf("\nedge length in the field  min %.4f  mean %.4f  max %.4f\n", hist.minimum(), hist.mean(),
              hist.maximum());
  std::vector<std::string> labels;
  std::vector<unsigned long long> counts;
  histogram_rows(hist, labels, counts);
  print_bars(labels, counts);
  if (smax > 0.0)
    std::printf("size shock   max %.4g at node %u, mean %.4g over %u nodes\n", smax, argmax, smean, shock.size);
  else
    std::printf("size shock   0 at every node (the field is smooth along every edge)\n");
  return 0;
}

}  // namespace cli
