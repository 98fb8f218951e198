// Scratch files and small builders for the writer and reader tests.
#ifndef GRIDKIT_TESTS_FORMATS_FILE_UTIL_HPP
#define GRIDKIT_TESTS_FORMATS_FILE_UTIL_HPP

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

namespace testfiles {

inline std::string directory() {
  const char* dir = std::getenv("GRIDKIT_TEST_TMP");
  return dir && *dir ? dir : "/tmp";
}
// A path in the scratch directory; a file left there by an earlier run is removed.
inline std::string path(const std::string& name) {
  std::string p = directory() + "/" + name;
  std::remove(p.c_str());
  return p;
}
inline std::string in_missing_folder() { return directory() + "/no_such_folder/out.txt"; }
inline bool exists(const std::string& p) { return ::access(p.c_str(), F_OK) == 0; }

// Whole content of a file ("<missing>" when it can't be opened).
inline std::string read(const std::string& p) {
  std::ifstream in(p, std::ios::binary);
  return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<missing>";
}
inline void write(const std::string& p, const std::string& bytes) { std::ofstream(p, std::ios::binary) << bytes; }

// A matrix of `rows` rows from its entries in column order.
template <class T>
kvo::dense2D<T> mat(unsigned rows, std::vector<T> values) {
  kvo::dense2D<T> m(rows, static_cast<unsigned>(values.size() / rows));
  for (std::size_t k = 0; k < values.size(); ++k) m.storage->data[m.offset + k] = values[k];
  return m;
}

// n nodes in 3-D, (j / 2 - 1.25 i + shift) in row i of column j.
inline kvo::dense2D<double> nodes(unsigned n, double shift = 0) {
  kvo::dense2D<double> pos(3, n);
  for (unsigned j = 0; j < n; ++j)
    for (unsigned i = 0; i < 3; ++i) pos(i, j) = j * 0.5 - i * 1.25 + shift;
  return pos;
}

inline kvo::dense1D<int, 16> types(std::vector<int> t) {
  kvo::dense1D<int, 16> v(static_cast<unsigned>(t.size()));
  for (unsigned i = 0; i < t.size(); ++i) v[i] = t[i];
  return v;
}

// printf into a std::string.
template <class... A>
std::string fmt(const char* format, A... args) {
  char buf[1024];
  const int n = std::snprintf(buf, sizeof buf, format, args...);
  return std::string(buf, static_cast<std::size_t>(n));
}

}  // namespace testfiles

#endif
