// Shared pieces of the gridkit program: the mesh held in memory, file I/O by extension, and
// output helpers for the terminal and JSON.
#ifndef GRIDKIT_TOOL_CLI_HPP
#define GRIDKIT_TOOL_CLI_HPP

#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

namespace cli {

using kvo::dense1D;
using kvo::dense2D;
using kvo::gridkit::element_type;

// Coordinates (3 rows) and one connectivity per element type.
struct mesh {
  dense2D<double> pos;
  std::vector<dense2D<unsigned>> conn;
  std::vector<element_type> types;
  unsigned elements() const;
};

// Reads FILE by its extension. On failure returns false with a one-line reason in `error`.
bool read_mesh(const std::string& file, mesh& m, std::string& error);
// Writes the mesh by the extension of FILE; false with a reason when the format can't hold it
// or the writer fails.
bool write_mesh(const std::string& file, const mesh& m, std::string& error);
// True when the extension names a format the program can write / read.
bool writable(const std::string& file);
bool readable(const std::string& file);

const char* type_name(element_type t);

// Minimal JSON text builder: keys and values are appended in order, commas handled here.
class json {
 public:
  json& begin_object(const char* key = nullptr);
  json& end_object();
  json& begin_array(const char* key = nullptr);
  json& end_array();
  json& value(const char* key, double v);
  json& value(const char* key, unsigned long long v);
  json& value(const char* key, const std::string& v);
  const std::string& str() const { return out_; }

 private:
  void prefix(const char* key);
  std::string out_;
  std::vector<bool> first_;
};
std::string json_escape(const std::string& s);

// Prints a histogram of counts as rows of bars, the labels given by the caller.
void print_bars(const std::vector<std::string>& labels, const std::vector<unsigned long long>& counts);

// Commands: argument vectors exclude the command name. Return the exit status.
int cmd_info(const std::vector<std::string>& args);
int cmd_convert(const std::vector<std::string>& args);

// Usage failure: prints the line to stderr and returns 2.
int usage_error(const char* usage, const std::string& what);
// Runtime failure: "gridkit: what" on stderr, returns 1.
int fail(const std::string& what);

}  // namespace cli

#endif
