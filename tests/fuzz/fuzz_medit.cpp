// libFuzzer target: medit_input on arbitrary bytes, then medit_output of whatever was read.
#include <unistd.h>

#include "fuzz_mesh_check.hpp"

using namespace kvo;
using namespace kvo::gridkit;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/gridkit_fuzz_medit_" + std::to_string(getpid()) + ".mesh";
  if (!fuzz::write_file(path, data, size)) return 0;
  fuzz::mesh_read r(size);
  const int status = medit_input(path.c_str(), r.pos, r.first(), r.last(), r.types, r.refs);
  r.check(status, false);
  if (status == 0 && r.types.size) medit_output("/dev/null", r.pos, r.first(), r.first() + r.types.size, r.types);
  return 0;
}
