// Helpers of the program's end-to-end tests: running gridkit, reading files, parsing its JSON.
#ifndef GRIDKIT_TESTS_TOOLS_PROGRAM_HPP
#define GRIDKIT_TESTS_TOOLS_PROGRAM_HPP

#include <sys/wait.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace program {

struct run_result {
  int status = -1;
  std::string out, err;
};

inline std::string tmp_dir() {
  const char* t = std::getenv("GRIDKIT_TEST_TMP");
  return t ? t : "/tmp";
}

inline std::string slurp(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline std::string sample(const char* name) { return std::string(GRIDKIT_SOURCE_DIR) + "/samples/" + name; }

// Runs `gridkit ARGS` through the shell, capturing both output streams and the exit status.
inline run_result run(const std::string& args) {
  const std::string err_file = tmp_dir() + "/program_stderr.txt";
  const std::string cmd = std::string("\"") + GRIDKIT_PROGRAM + "\" " + args + " 2>\"" + err_file + "\"";
  run_result r;
  std::FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  const int w = pclose(p);
  r.status = WIFEXITED(w) ? WEXITSTATUS(w) : -1;
  r.err = slurp(err_file);
  return r;
}

inline unsigned count_lines(const std::string& s) {
  unsigned n = 0;
  for (char c : s) n += c == '\n';
  return n;
}

// A parsed JSON value (null, number, string, array or object). Missing keys and out-of-range
// items read as null.
struct value {
  double num = 0.0;
  std::string str;
  std::vector<value> items;
  std::vector<std::pair<std::string, value>> members;

  const value& operator[](const std::string& key) const {
    for (const auto& m : members)
      if (m.first == key) return m.second;
    return none();
  }
  const value& operator[](std::size_t i) const { return i < items.size() ? items[i] : none(); }
  static const value& none() {
    static const value v;
    return v;
  }
};

// Strict recursive-descent parser of what the program prints; false on a syntax error.
class parser {
 public:
  explicit parser(const std::string& s) : s_(s) {}
  bool parse(value& v) { return parse_value(v) && (skip(), i_ == s_.size()); }

 private:
  void skip() {
    while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
  }
  bool eat(char c) { return skip(), i_ < s_.size() && s_[i_] == c ? (++i_, true) : false; }
  bool parse_string(std::string& out) {
    if (!eat('"')) return false;
    for (; i_ < s_.size(); ++i_) {
      if (s_[i_] == '"') return ++i_, true;
      if (static_cast<unsigned char>(s_[i_]) < 0x20) return false;
      if (s_[i_] == '\\' && ++i_ == s_.size()) return false;
      out += s_[i_];
    }
    return false;
  }
  // The items of an array or the members of an object, up to the closing bracket.
  bool parse_list(value& v, bool object, char close) {
    if (eat(close)) return true;
    do {
      std::pair<std::string, value> m;
      if (object && !(parse_string(m.first) && eat(':'))) return false;
      if (!parse_value(m.second)) return false;
      if (object)
        v.members.push_back(std::move(m));
      else
        v.items.push_back(std::move(m.second));
    } while (eat(','));
    return eat(close);
  }
  bool parse_value(value& v) {
    if (eat('{')) return parse_list(v, true, '}');
    if (eat('[')) return parse_list(v, false, ']');
    if (i_ < s_.size() && s_[i_] == '"') return parse_string(v.str);
    if (s_.compare(i_, 4, "null") == 0) return i_ += 4, true;
    const char* b = s_.c_str() + i_;
    char* e = nullptr;
    v.num = std::strtod(b, &e);
    i_ += std::size_t(e - b);
    return e != b;
  }

  const std::string& s_;
  std::size_t i_ = 0;
};

inline bool parse_json(const std::string& text, value& v) { return parser(text).parse(v); }

}  // namespace program

#endif
