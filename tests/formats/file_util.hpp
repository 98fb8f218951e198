// Scratch files for the writer tests.
#ifndef GRIDKIT_TESTS_FORMATS_FILE_UTIL_HPP
#define GRIDKIT_TESTS_FORMATS_FILE_UTIL_HPP

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace testfiles {

// A path in the scratch directory; any file left there by an earlier run is removed.
inline std::string path(const std::string& name) {
  const char* dir = std::getenv("GRIDKIT_TEST_TMP");
  std::string p = std::string(dir && *dir ? dir : "/tmp") + "/" + name;
  std::remove(p.c_str());
  return p;
}

inline bool exists(const std::string& p) { return ::access(p.c_str(), F_OK) == 0; }

// Whole content of a file ("<missing>" when it can't be opened).
inline std::string read(const std::string& p) {
  std::FILE* f = std::fopen(p.c_str(), "rb");
  if (!f) return "<missing>";
  std::string s;
  char buf[65536];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  std::fclose(f);
  return s;
}

// Paths that can't be opened for writing: the scratch directory itself and a missing folder.
inline std::string directory() {
  const char* dir = std::getenv("GRIDKIT_TEST_TMP");
  return dir && *dir ? dir : "/tmp";
}
inline std::string in_missing_folder() { return directory() + "/no_such_folder/out.txt"; }

}  // namespace testfiles

#endif
