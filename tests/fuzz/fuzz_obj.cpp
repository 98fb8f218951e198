// libFuzzer target: WavefrontOBJ_input on arbitrary bytes, then the writer on what was read.
#include <unistd.h>

#include "fuzz_mesh_check.hpp"

using namespace kvo;
using namespace kvo::gridkit;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/gridkit_fuzz_obj_" + std::to_string(getpid()) + ".obj";
  if (!fuzz::write_file(path, data, size)) return 0;
  dense2D<double> pos, normals, tex;
  dense2D<unsigned> trias, quads;
  const int status = WavefrontOBJ_input(path.c_str(), pos, normals, tex, trias, quads);
  if (status != 0 && status != -2) __builtin_trap();
  if (pos.cols && pos.rows != 3) __builtin_trap();
  WavefrontOBJ_output("/dev/null", pos, normals, tex, trias, quads);
  return 0;
}
