// Terminal and JSON output helpers.
#include <charconv>
#include <cmath>
#include <cstdio>

#include "cli.hpp"

namespace cli {

std::string json_escape(const std::string& s) {
  std::string r;
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      r += '\\';
      r += char(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      r += buf;
    } else {
      r += char(c);
    }
  }
  return r;
}

void json::prefix(const char* key) {
  if (!first_.empty()) {
    if (!first_.back()) out_ += ", ";
    first_.back() = false;
  }
  if (key) {
    out_ += '"';
    out_ += json_escape(key);
    out_ += "\": ";
  }
}

json& json::begin_object(const char* key) {
  prefix(key);
  out_ += '{';
  first_.push_back(true);
  return *this;
}
json& json::end_object() {
  out_ += '}';
  first_.pop_back();
  return *this;
}
json& json::begin_array(const char* key) {
  prefix(key);
  out_ += '[';
  first_.push_back(true);
  return *this;
}
json& json::end_array() {
  out_ += ']';
  first_.pop_back();
  return *this;
}
json& json::value(const char* key, double v) {
  prefix(key);
  if (std::isfinite(v)) {
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);  // shortest text that reads back exactly
    out_.append(buf, r.ptr);
  } else {
    out_ += "null";  // JSON has no NaN or infinity
  }
  return *this;
}
json& json::value(const char* key, unsigned long long v) {
  prefix(key);
  out_ += std::to_string(v);
  return *this;
}
json& json::value(const char* key, const std::string& v) {
  prefix(key);
  out_ += '"';
  out_ += json_escape(v);
  out_ += '"';
  return *this;
}

void print_bars(const std::vector<std::string>& labels, const std::vector<unsigned long long>& counts) {
  unsigned long long top = 0;
  for (auto c : counts) top = c > top ? c : top;
  const unsigned width = 40;
  for (std::size_t k = 0; k < counts.size(); ++k) {
    unsigned n = top ? unsigned((counts[k] * width + top - 1) / top) : 0;
    std::string bar(n, '#');
    std::printf("  %-12s %10llu %s\n", labels[k].c_str(), counts[k], bar.c_str());
  }
}

void histogram_rows(const kvo::misc::histogram& h, std::vector<std::string>& labels,
                    std::vector<unsigned long long>& counts) {
  char buf[64];
  if (h.below()) {
    std::snprintf(buf, sizeof buf, "< %g", h.lower());
    labels.push_back(buf);
    counts.push_back(h.below());
  }
  const double w = (h.upper() - h.lower()) / h.bins();
  for (unsigned k = 0; k < h.bins(); ++k) {
    std::snprintf(buf, sizeof buf, "[%.3g, %.3g)", h.lower() + k * w, h.lower() + (k + 1) * w);
    labels.push_back(buf);
    counts.push_back(h.bin(k));
  }
  if (h.above()) {
    std::snprintf(buf, sizeof buf, ">= %g", h.upper());
    labels.push_back(buf);
    counts.push_back(h.above());
  }
}

void json_histogram(json& j, const char* key, const kvo::misc::histogram& h) {
  j.begin_object(key).value("count", h.count()).value("min", h.minimum()).value("mean", h.mean());
  j.value("max", h.maximum()).value("lower", h.lower()).value("upper", h.upper());
  j.value("below", h.below()).value("above", h.above()).begin_array("bins");
  for (unsigned k = 0; k < h.bins(); ++k) j.value(nullptr, h.bin(k));
  j.end_array().end_object();
}

void json_elements(json& j, const char* key, const mesh& m) {
  j.begin_object(key);
  for (std::size_t i = 0; i < m.conn.size(); ++i) j.value(type_name(m.types[i]), (unsigned long long)m.conn[i].cols);
  j.end_object();
}

void json_written(json& j, const std::string& in, const std::string& out, const mesh& m) {
  j.begin_object().value("input", in).value("output", out).value("nodes", (unsigned long long)m.pos.cols);
}

std::string status_text(const char* operation, int status) {
  if (status == kvo::gridkit::ERR_ALLOCATION) return std::string("out of memory during ") + operation;
  return std::string(operation) + " failed (status " + std::to_string(status) + ")";
}

int usage_error(const char* usage, const std::string& what) {
  if (!what.empty()) std::fprintf(stderr, "gridkit: %s\n", what.c_str());
  std::fprintf(stderr, "usage: %s\n", usage);
  return 2;
}

int fail(const std::string& what) {
  std::fprintf(stderr, "gridkit: %s\n", what.c_str());
  return 1;
}

}  // namespace cli
