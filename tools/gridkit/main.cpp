// gridkit: command-line front end of the Gridkit mesh library.
#include <cstdio>
#include <cstring>

#include <kvo/gridkit.hpp>

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("gridkit %s\n", kvo::gridkit::version());
    return 0;
  }
  std::fprintf(stderr, "usage: gridkit --version\n");
  return 2;
}
