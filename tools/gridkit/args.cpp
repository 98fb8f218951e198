// Command-line parsing shared by the commands.
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "cli.hpp"

namespace cli {

const std::string* command_line::get(const char* name) const {
  const std::string* found = nullptr;
  for (const auto& o : options)
    if (o.first == name) found = &o.second;  // the last occurrence wins
  return found;
}

int parse_command_line(const std::vector<std::string>& args, const std::vector<std::string>& valued,
                       const char* usage, command_line& out) {
  out = command_line();
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--json") {
      out.json = true;
    } else if (a == "--verbose" || a == "-v") {
      out.verbose = true;
    } else if (a == "--help" || a == "-h") {
      out.help = true;
    } else if (a.size() > 1 && a[0] == '-') {
      const auto eq = a.find('=');
      const std::string name = a.substr(0, eq);
      bool known = false;
      for (const auto& v : valued) known = known || v == name;
      if (!known) return usage_error(usage, "unknown option " + name);
      if (eq != std::string::npos) {
        out.options.emplace_back(name, a.substr(eq + 1));
      } else {
        if (i + 1 == args.size()) return usage_error(usage, "option " + name + " needs a value");
        out.options.emplace_back(name, args[++i]);
      }
    } else {
      out.files.push_back(a);
    }
  }
  return -1;
}

bool parse_double(const std::string& s, double& v) {
  if (s.empty()) return false;
  const char* b = s.c_str();
  char* e = nullptr;
  errno = 0;
  const double x = std::strtod(b, &e);
  if (e == b || *e != '\0' || errno == ERANGE || !std::isfinite(x)) return false;
  v = x;
  return true;
}

bool parse_unsigned(const std::string& s, unsigned& v) {
  if (s.empty() || s[0] < '0' || s[0] > '9') return false;
  const char* b = s.c_str();
  char* e = nullptr;
  errno = 0;
  const unsigned long x = std::strtoul(b, &e, 10);
  if (*e != '\0' || errno == ERANGE || x > 0xFFFFFFFEul) return false;
  v = unsigned(x);
  return true;
}

bool parse_point(const std::string& s, double p[3]) {
  std::vector<std::string> parts(1);
  for (char c : s) {
    if (c == ',')
      parts.emplace_back();
    else
      parts.back() += c;
  }
  if (parts.size() < 2 || parts.size() > 3) return false;
  p[2] = 0.0;
  for (std::size_t k = 0; k < parts.size(); ++k)
    if (!parse_double(parts[k], p[k])) return false;
  return true;
}

}  // namespace cli
