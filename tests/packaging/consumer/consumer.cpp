// A program built against the installed package only.
#include <cstdio>

#include <kvo/gridkit.hpp>

int main() {
  kvo::dense2D<unsigned> tri(3, 2);
  for (unsigned j = 0; j < 2; ++j)
    for (unsigned i = 0; i < 3; ++i) tri(i, j) = i + j;
  const bool ok = kvo::gridkit::max_ID(tri) == 3 && kvo::gridkit::check_IDs(tri, kvo::gridkit::ET_TRIA3, 4);
  std::printf("gridkit %s %s\n", kvo::gridkit::version(), ok ? "ok" : "wrong");
  return ok ? 0 : 1;
}
