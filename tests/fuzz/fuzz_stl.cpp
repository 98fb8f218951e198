// libFuzzer target: STL_input on arbitrary bytes, then STL_output of whatever was read.
#include <unistd.h>

#include "fuzz_mesh_check.hpp"

using namespace kvo;
using namespace kvo::gridkit;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/gridkit_fuzz_stl_" + std::to_string(getpid()) + ".stl";
  if (!fuzz::write_file(path, data, size)) return 0;
  dense2D<double> pos;
  dense2D<unsigned> tri;
  const int status = STL_input(path.c_str(), pos, tri);
  if (status != 0 && !(pos.is_empty() && tri.is_empty())) __builtin_trap();  // failures leave nothing
  if (status == 0) {
    if (pos.rows != 3 || tri.rows != 3 || !check_IDs(tri, ET_TRIA3, pos.cols)) __builtin_trap();
    STL_output("/dev/null", pos, tri, size % 2 == 0);
  }
  return 0;
}
