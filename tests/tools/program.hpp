// Helpers of the program's end-to-end tests: running gridkit, reading files, parsing its JSON.
#ifndef GRIDKIT_TESTS_TOOLS_PROGRAM_HPP
#define GRIDKIT_TESTS_TOOLS_PROGRAM_HPP

#include <sys/wait.h>

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

// A parsed JSON value. Missing keys and out-of-range items read as a null value.
struct value {
  enum kind_t { null, boolean, number, string, array, object } kind = null;
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
  bool has(const std::string& key) const {
    for (const auto& m : members)
      if (m.first == key) return true;
    return false;
  }
  static const value& none() {
    static const value v;
    return v;
  }
};

// Strict recursive-descent parser; false on any syntax error or trailing text.
class parser {
 public:
  explicit parser(const std::string& s) : s_(s) {}
  bool parse(value& v) {
    if (!parse_value(v)) return false;
    skip();
    return i_ == s_.size();
  }

 private:
  void skip() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n' || s_[i_] == '\t' || s_[i_] == '\r')) ++i_;
  }
  bool literal(const char* w) {
    const std::string t(w);
    if (s_.compare(i_, t.size(), t) != 0) return false;
    i_ += t.size();
    return true;
  }
  bool parse_string(std::string& out) {
    if (i_ >= s_.size() || s_[i_] != '"') return false;
    for (++i_; i_ < s_.size(); ++i_) {
      const char c = s_[i_];
      if (c == '"') {
        ++i_;
        return true;
      }
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c == '\\') {
        if (++i_ >= s_.size()) return false;
        const char e = s_[i_];
        if (e == 'u') {
          if (i_ + 4 >= s_.size()) return false;
          out += char(std::strtol(s_.substr(i_ + 1, 4).c_str(), nullptr, 16));
          i_ += 4;
        } else {
          out += e == 'n' ? '\n' : e == 't' ? '\t' : e;
        }
      } else {
        out += c;
      }
    }
    return false;
  }
  bool parse_value(value& v) {
    skip();
    if (i_ >= s_.size()) return false;
    const char c = s_[i_];
    if (c == '{') {
      v.kind = value::object;
      ++i_;
      skip();
      if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
      for (;;) {
        skip();
        std::pair<std::string, value> m;
        if (!parse_string(m.first)) return false;
        skip();
        if (i_ >= s_.size() || s_[i_++] != ':') return false;
        if (!parse_value(m.second)) return false;
        v.members.push_back(std::move(m));
        skip();
        if (i_ >= s_.size()) return false;
        if (s_[i_] == '}') return ++i_, true;
        if (s_[i_++] != ',') return false;
      }
    }
    if (c == '[') {
      v.kind = value::array;
      ++i_;
      skip();
      if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
      for (;;) {
        v.items.emplace_back();
        if (!parse_value(v.items.back())) return false;
        skip();
        if (i_ >= s_.size()) return false;
        if (s_[i_] == ']') return ++i_, true;
        if (s_[i_++] != ',') return false;
      }
    }
    if (c == '"') {
      v.kind = value::string;
      return parse_string(v.str);
    }
    if (literal("null")) return true;
    if (literal("true") || literal("false")) {
      v.kind = value::boolean;
      v.num = s_[i_ - 1] == 'e' && s_[i_ - 2] == 'u';
      return true;
    }
    const char* b = s_.c_str() + i_;
    char* e = nullptr;
    v.num = std::strtod(b, &e);
    if (e == b) return false;
    v.kind = value::number;
    i_ += std::size_t(e - b);
    return true;
  }

  const std::string& s_;
  std::size_t i_ = 0;
};

inline bool parse_json(const std::string& text, value& v) { return parser(text).parse(v); }

}  // namespace program

#endif
