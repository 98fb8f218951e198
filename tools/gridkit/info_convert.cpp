// The info and convert commands.
#include <cmath>
#include <cstdio>
#include <limits>

#include "cli.hpp"

namespace gk = kvo::gridkit;

namespace cli {

namespace {

const char* info_usage = "gridkit info FILE [--json]";
const char* convert_usage = "gridkit convert IN OUT";

struct topology {
  unsigned long long boundary = 0, non_manifold = 0, subdomains = 0;
  bool known = false;
};

// Open, non-manifold faces and face-connected components of each connectivity.
bool measure_topology(const mesh& m, topology& t, std::string& error) {
  for (std::size_t i = 0; i < m.conn.size(); ++i) {
    dense2D<unsigned> plain, kept, faces;
    int s = gk::get_neighbors(m.conn[i], m.types[i], false, plain);
    if (s == -2) continue;  // no faces defined for this type
    if (s == 0) s = gk::get_neighbors(m.conn[i], m.types[i], true, kept);
    if (s == 0) s = gk::get_mesh_boundaries(m.conn[i], plain, m.types[i], faces);
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

struct quality_summary {
  unsigned long long count = 0, invalid = 0;
  double min = std::numeric_limits<double>::quiet_NaN(), max = min, mean = min;
  std::vector<unsigned long long> bins;
};

// Shape qualities of every supported connectivity: 10 bins over (0, 1], invalid ones (<= 0) apart.
bool measure_quality(const mesh& m, quality_summary& q, unsigned nbins) {
  q.bins.assign(nbins, 0);
  double sum = 0.0;
  for (std::size_t i = 0; i < m.conn.size(); ++i) {
    dense1D<double, 16> v;
    if (gk::shape_qualities(m.pos, m.conn[i], m.types[i], v) != 0) continue;
    for (unsigned e = 0; e < v.size; ++e) {
      const double x = v.ptr()[e];
      if (q.count == 0 || x < q.min) q.min = x;
      if (q.count == 0 || x > q.max) q.max = x;
      ++q.count;
      sum += x;
      if (!(x > 0.0)) {
        ++q.invalid;
        continue;
      }
      unsigned b = unsigned(std::ceil(x * nbins)) - 1;
      q.bins[b < nbins ? b : nbins - 1]++;
    }
  }
  if (q.count) q.mean = sum / double(q.count);
  return q.count > 0;
}

}  // namespace

int cmd_info(const std::vector<std::string>& args) {
  bool as_json = false;
  std::vector<std::string> files;
  for (const auto& a : args) {
    if (a == "--help") {
      std::printf("usage: %s\nPrints node and element counts, bounding box, boundary and quality summary.\n",
                  info_usage);
      return 0;
    }
    if (a == "--json") {
      as_json = true;
    } else if (!a.empty() && a[0] == '-') {
      return usage_error(info_usage, "unknown option " + a);
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 1) return usage_error(info_usage, "info takes one file");
  mesh m;
  std::string error;
  if (!read_mesh(files[0], m, error)) return fail(error);

  const unsigned dim = m.pos.rows;
  double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  for (unsigned j = 0; j < m.pos.cols; ++j) {
    const double* p = m.pos.col_ptr(j);
    for (unsigned d = 0; d < dim && d < 3; ++d) {
      if (j == 0 || p[d] < lo[d]) lo[d] = p[d];
      if (j == 0 || p[d] > hi[d]) hi[d] = p[d];
    }
  }
  topology topo;
  if (!measure_topology(m, topo, error)) return fail(files[0] + ": " + error);
  quality_summary q;
  const bool have_quality = measure_quality(m, q, 10);

  if (as_json) {
    json j;
    j.begin_object().value("file", files[0]).value("nodes", (unsigned long long)m.pos.cols);
    j.value("dimension", (unsigned long long)dim).begin_object("elements");
    for (std::size_t i = 0; i < m.conn.size(); ++i) j.value(type_name(m.types[i]), (unsigned long long)m.conn[i].cols);
    j.end_object().begin_object("bounding_box").begin_array("min");
    for (unsigned d = 0; d < dim && d < 3; ++d) j.value(nullptr, lo[d]);
    j.end_array().begin_array("max");
    for (unsigned d = 0; d < dim && d < 3; ++d) j.value(nullptr, hi[d]);
    j.end_array().end_object();
    if (topo.known) {
      j.value("boundary_faces", topo.boundary).value("non_manifold_faces", topo.non_manifold);
      j.value("subdomains", topo.subdomains);
    }
    if (have_quality) {
      j.begin_object("quality").value("count", q.count).value("min", q.min).value("mean", q.mean);
      j.value("max", q.max).value("invalid", q.invalid).begin_array("histogram");
      for (auto c : q.bins) j.value(nullptr, c);
      j.end_array().end_object();
    }
    j.end_object();
    std::printf("%s\n", j.str().c_str());
    return 0;
  }

  std::printf("file        %s\n", files[0].c_str());
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
  if (have_quality) {
    std::printf("shape quality  min %.4f  mean %.4f  max %.4f  (%llu elements, %llu invalid)\n", q.min, q.mean,
                q.max, q.count, q.invalid);
    std::vector<std::string> labels;
    std::vector<unsigned long long> counts;
    if (q.invalid) {
      labels.push_back("<= 0");
      counts.push_back(q.invalid);
    }
    for (std::size_t b = 0; b < q.bins.size(); ++b) {
      char buf[32];
      std::snprintf(buf, sizeof buf, "(%.1f, %.1f]", double(b) / q.bins.size(), double(b + 1) / q.bins.size());
      labels.push_back(buf);
      counts.push_back(q.bins[b]);
    }
    print_bars(labels, counts);
  }
  return 0;
}

int cmd_convert(const std::vector<std::string>& args) {
  std::vector<std::string> files;
  for (const auto& a : args) {
    if (a == "--help") {
      std::printf("usage: %s\nReads .stl .obj .mesh .vtk; writes .mesh .vtk .case .geo .stl .obj.\n", convert_usage);
      return 0;
    }
    if (a == "--json") continue;
    if (!a.empty() && a[0] == '-') return usage_error(convert_usage, "unknown option " + a);
    files.push_back(a);
  }
  if (files.size() != 2) return usage_error(convert_usage, "convert takes an input and an output file");
  if (!readable(files[0])) return fail(files[0] + ": unknown file extension (readable: .stl .obj .mesh .vtk)");
  if (!writable(files[1]))
    return fail(files[1] + ": unknown file extension (writable: .mesh .vtk .case .geo .stl .obj)");
  mesh m;
  std::string error;
  if (!read_mesh(files[0], m, error)) return fail(error);
  if (!write_mesh(files[1], m, error)) return fail(error);
  return 0;
}

}  // namespace cli
