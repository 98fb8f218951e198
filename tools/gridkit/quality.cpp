// Shape-quality measurement shared by info and quality, and the quality command.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

bool measure_quality(const mesh& m, unsigned nbins, quality_summary& q, std::vector<dense1D<double, 16>>* values) {
  q = quality_summary();
  q.bins.assign(nbins, 0);
  if (values) values->assign(m.conn.size(), dense1D<double, 16>());
  double sum = 0.0;
  for (std::size_t i = 0; i < m.conn.size(); ++i) {
    dense1D<double, 16> v;
    if (gk::shape_qualities(m.pos, m.conn[i], m.types[i], v) != 0) {
      q.unmeasured += m.conn[i].cols;
      continue;
    }
    for (unsigned e = 0; e < v.size; ++e) {
      const double x = v[e];
      ++q.count;
      if (!(x > 0.0)) {  // NaN too
        ++q.invalid;
      } else {
        const unsigned b = unsigned(std::ceil(x * nbins)) - 1;
        q.bins[b < nbins ? b : nbins - 1]++;
      }
      if (std::isnan(x)) continue;
      if (q.numbers == 0 || x < q.min) q.min = x;
      if (q.numbers == 0 || x > q.max) q.max = x;
      sum += x;
      ++q.numbers;
    }
    if (values) (*values)[i] = v;
  }
  if (q.numbers) q.mean = sum / double(q.numbers);
  return q.count > 0;
}

void print_quality(const quality_summary& q) {
  std::printf("shape quality  min %.4f  mean %.4f  max %.4f  (%llu elements, %llu invalid)\n", q.min, q.mean, q.max,
              q.count, q.invalid);
  std::vector<std::string> labels;
  std::vector<unsigned long long> counts;
  if (q.invalid) {
    labels.push_back("<= 0");
    counts.push_back(q.invalid);
  }
  const std::size_t n = q.bins.size();
  for (std::size_t b = 0; b < n; ++b) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "(%.3g, %.3g]", double(b) / n, double(b + 1) / n);
    labels.push_back(buf);
    counts.push_back(q.bins[b]);
  }
  print_bars(labels, counts);
}

void json_quality(json& j, const char* key, const quality_summary& q) {
  j.begin_object(key).value("count", q.count).value("min", q.min).value("mean", q.mean);
  j.value("max", q.max).value("invalid", q.invalid).begin_array("histogram");
  for (auto c : q.bins) j.value(nullptr, c);
  j.end_array().end_object();
}

namespace {

const char* quality_usage = "gridkit quality IN [--bins N] [--worst K] [--sol OUT.sol] [--json] [--verbose]";

struct ranked {
  double q;
  unsigned conn, column;
};

// NaN first, then ascending: the worst elements lead.
bool worse(const ranked& a, const ranked& b) {
  const bool an = std::isnan(a.q), bn = std::isnan(b.q);
  if (an != bn) return an;
  if (!an && a.q != b.q) return a.q < b.q;
  return a.conn != b.conn ? a.conn < b.conn : a.column < b.column;
}

}  // namespace

int cmd_quality(const std::vector<std::string>& args) {
  command_line cl;
  if (int s = parse_command_line(args, {"--bins", "--worst", "--sol"}, quality_usage, cl); s >= 0) return s;
  if (cl.help) {
    std::printf(
        "usage: %s\n"
        "Shape qualities (1 best, <= 0 degenerate or inverted) as a histogram of N bins over (0, 1]\n"
        "(default 10), the K worst elements with their nodes, indices from 0 (default 10), and with\n"
        "--sol the worst quality around each node as a MEDIT solution file (1 for unused nodes).\n",
        quality_usage);
    return 0;
  }
  if (cl.files.size() != 1) return usage_error(quality_usage, "quality takes one input file");
  unsigned bins = 10, worst = 10;
  if (const std::string* v = cl.get("--bins"))
    if (!parse_unsigned(*v, bins) || bins == 0 || bins > 1000)
      return usage_error(quality_usage, "--bins needs a whole number from 1 to 1000, not '" + *v + "'");
  if (const std::string* v = cl.get("--worst"))
    if (!parse_unsigned(*v, worst))
      return usage_error(quality_usage, "--worst needs a whole number >= 0, not '" + *v + "'");
  const std::string* sol = cl.get("--sol");
  if (sol && extension(*sol) != "sol") return usage_error(quality_usage, "--sol needs a file name ending in .sol");
  const std::string& in = cl.files[0];

  stages st(cl.verbose, in);
  mesh m;
  if (int s = load_input(in, nullptr, st, m); s >= 0) return s;

  st.begin("shape qualities");
  quality_summary q;
  std::vector<dense1D<double, 16>> values;
  measure_quality(m, bins, q, &values);

  st.begin("ranking");
  std::vector<ranked> all;
  all.reserve(q.count);
  for (unsigned i = 0; i < values.size(); ++i)
    for (unsigned e = 0; e < values[i].size; ++e) all.push_back({values[i][e], i, e});
  const std::size_t k = std::min<std::size_t>(worst, all.size());
  std::partial_sort(all.begin(), all.begin() + k, all.end(), worse);
  all.resize(k);

  if (sol) {
    st.begin("writing solution");
    dense1D<double, 16> node_q;
    if (!node_q.resize(m.pos.cols, 1.0)) return fail("out of memory for the per-node qualities");
    for (unsigned i = 0; i < values.size(); ++i) {
      const dense2D<unsigned>& c = m.conn[i];
      for (unsigned e = 0; e < values[i].size; ++e) {
        const double x = values[i][e];
        for (unsigned r = 0; r < c.rows; ++r) {
          const unsigned n = c(r, e);
          if (n < m.pos.cols && (x < node_q[n] || std::isnan(x))) node_q[n] = x;
        }
      }
    }
    if (gk::medit_scalar(sol->c_str(), m.pos.rows, node_q) != 0) return fail(*sol + ": cannot create the file");
  }
  st.end();

  if (cl.json) {
    json j;
    j.begin_object().value("file", in).value("elements", m.elements()).value("unmeasured", q.unmeasured);
    json_quality(j, "quality", q);
    j.begin_array("worst");
    for (const auto& w : all) {
      const dense2D<unsigned>& c = m.conn[w.conn];
      j.begin_object().value("quality", w.q).value("type", type_name(m.types[w.conn]));
      j.value("element", (unsigned long long)w.column).begin_array("nodes");
      for (unsigned r = 0; r < c.rows; ++r) j.value(nullptr, (unsigned long long)c(r, w.column));
      j.end_array().end_object();
    }
    j.end_array();
    if (sol) j.value("sol", *sol);
    j.end_object();
    std::printf("%s\n", j.str().c_str());
    return 0;
  }
  std::printf("file        %s\n", in.c_str());
  if (q.count)
    print_quality(q);
  else
    std::printf("shape quality  no element of a measurable type\n");
  if (q.unmeasured) std::printf("not measured  %llu elements of quadratic or unsupported types\n", q.unmeasured);
  if (!all.empty()) {
    std::printf("worst elements (indices from 0):\n");
    for (const auto& w : all) {
      const dense2D<unsigned>& c = m.conn[w.conn];
      std::printf("  %10.6f  %-12s %9u  nodes", w.q, type_name(m.types[w.conn]), w.column);
      for (unsigned r = 0; r < c.rows; ++r) std::printf(" %u", c(r, w.column));
      std::printf("\n");
    }
  }
  if (sol) std::printf("per-node worst quality written to %s\n", sol->c_str());
  return 0;
}

}  // namespace cli
