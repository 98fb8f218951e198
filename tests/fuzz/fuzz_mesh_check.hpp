// Shared by the fuzz targets: the input written to a scratch file and, for the mesh readers, the
// outputs of one read and the checks every status must pass (a failed check traps, which the
// fuzzer reports as a crash).
#ifndef GRIDKIT_FUZZ_MESH_CHECK_HPP
#define GRIDKIT_FUZZ_MESH_CHECK_HPP

#include <cstdint>
#include <cstdio>
#include <string>

#include <kvo/gridkit.hpp>

namespace fuzz {

using namespace kvo;
using namespace kvo::gridkit;

inline bool write_file(const std::string& path, const std::uint8_t* data, std::size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  return true;
}

struct mesh_read {
  dense2D<double> pos;
  dense2D<unsigned> conn[MESH_FILE_TYPES];
  dense1D<unsigned, 16> refs[MESH_FILE_TYPES];
  dense1D<int, 16> types;
  unsigned room;

  // Inputs of odd length get a range of two connectivities, so that -3 can happen.
  explicit mesh_read(std::size_t size) : room(size % 2 ? 2u : MESH_FILE_TYPES) {
    for (auto& c : conn) c.resize(2, 1, 7u);  // stale contents the reader must replace or empty
  }
  dense2D<unsigned>* first() { return conn; }
  dense2D<unsigned>* last() { return conn + room; }

  void check(int status, bool three_rows) const {
    if (status != 0 && status != -3 && status != -4 && status != ERR_ALLOCATION) __builtin_trap();
    if (status == -3 && room == MESH_FILE_TYPES) __builtin_trap();
    if (status != 0) {
      // Failures leave every output empty.
      if (!pos.is_empty() || types.size) __builtin_trap();
      for (unsigned k = 0; k < room; ++k)
        if (!conn[k].is_empty() || refs[k].size) __builtin_trap();
      return;
    }
    if (pos.cols && (three_rows ? pos.rows != 3 : pos.rows != 2 && pos.rows != 3)) __builtin_trap();
    if (types.size > room) __builtin_trap();
    for (unsigned k = 0; k < room; ++k) {
      if (k >= types.size) {
        if (!conn[k].is_empty()) __builtin_trap();
        continue;
      }
      const element_type t = element_type(types[k]);
      if (conn[k].cols == 0 || refs[k].size != conn[k].cols) __builtin_trap();
      if (k > 0 && types[k] <= types[k - 1]) __builtin_trap();  // ascending element types
      if (!check_IDs(conn[k], t, pos.cols)) __builtin_trap();
    }
  }
};

}  // namespace fuzz

#endif
