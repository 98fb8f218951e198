// Shared pieces of the gridkit program: the mesh held in memory, file I/O by extension, argument
// parsing, stage timing, and output helpers for the terminal and JSON.
#ifndef GRIDKIT_TOOL_CLI_HPP
#define GRIDKIT_TOOL_CLI_HPP

#include <chrono>
#include <limits>
#include <string>
#include <vector>

#include <kvo/gridkit.hpp>

namespace cli {

using kvo::dense1D;
using kvo::dense2D;
using kvo::gridkit::element_type;

// Coordinates (2 or 3 rows) and one connectivity per element type.
struct mesh {
  dense2D<double> pos;
  std::vector<dense2D<unsigned>> conn;
  std::vector<element_type> types;
  unsigned long long elements() const;
  dense1D<int, 16> type_list() const;
  // Drops the empty connectivities.
  void prune();
};

// Reads FILE by its extension. On failure returns false with a one-line reason in `error`.
bool read_mesh(const std::string& file, mesh& m, std::string& error);
// Writes the mesh by the extension of FILE; false with a reason when the format can't hold it
// or the writer fails.
bool write_mesh(const std::string& file, const mesh& m, std::string& error);
// True when the extension names a format the program can write / read.
bool writable(const std::string& file);
bool readable(const std::string& file);
std::string extension(const std::string& file);

// Removes the nodes no element uses and renumbers the connectivities. Returns the number of
// nodes removed, or -1 when memory runs out.
long long drop_unused_nodes(mesh& m);

const char* type_name(element_type t);

// Parsed command line of one command: positional files and option values.
struct command_line {
  std::vector<std::string> files;
  std::vector<std::pair<std::string, std::string>> options;  // options that take a value
  bool json = false, verbose = false, help = false;
  const std::string* get(const char* name) const;
};
// Splits args into files and options. `valued` lists the options that take a value (given as
// "--name V" or "--name=V"); --json, --verbose and --help are always known. Returns -1 when the
// line is well formed, else the exit status of the usage error already printed.
int parse_command_line(const std::vector<std::string>& args, const std::vector<std::string>& valued,
                       const char* usage, command_line& out);
// Strict number parsing: the whole text must be the number.
bool parse_double(const std::string& s, double& v);
bool parse_unsigned(const std::string& s, unsigned& v);
// "X,Y,Z" (or "X,Y" for a plane point, Z then 0).
bool parse_point(const std::string& s, double p[3]);

// Times the stages of a command. With --verbose each stage's time goes to standard error; when
// standard error is a terminal and the work is large (a big input file or a second gone by),
// each stage is announced as it starts.
class stages {
 public:
  stages(bool verbose, const std::string& input);
  void begin(const char* name);
  void end();
  ~stages() { end(); }

 private:
  using clock = std::chrono::steady_clock;
  bool verbose_, tty_, large_;
  clock::time_point start_, stage_start_;
  const char* current_ = nullptr;
};

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
  json& value(const char* key, const char* v) { return value(key, std::string(v)); }
  const std::string& str() const { return out_; }

 private:
  void prefix(const char* key);
  std::string out_;
  std::vector<bool> first_;
};
std::string json_escape(const std::string& s);
// Writes the element counts of the mesh as an object under `key`.
void json_elements(json& j, const char* key, const mesh& m);

// Prints a histogram of counts as rows of bars, the labels given by the caller.
void print_bars(const std::vector<std::string>& labels, const std::vector<unsigned long long>& counts);
// Labels and counts of a histogram: "< lower", the bins "[a, b)", ">= upper" (outer rows only
// when not empty).
void histogram_rows(const kvo::misc::histogram& h, std::vector<std::string>& labels, std::vector<unsigned long long>& counts);
// The histogram as a JSON object under `key`.
void json_histogram(json& j, const char* key, const kvo::misc::histogram& h);

// Shape qualities of every measurable connectivity: counts in `bins` equal bins over (0, 1], the
// invalid ones (<= 0 or NaN) apart; min, mean and max over the numbers. `values` (optional) gets
// the qualities of each connectivity (empty for the unmeasured ones). False when nothing measured.
struct quality_summary {
  unsigned long long count = 0, invalid = 0, numbers = 0, unmeasured = 0;
  double min = std::numeric_limits<double>::quiet_NaN(), max = min, mean = min;
  std::vector<unsigned long long> bins;
};
bool measure_quality(const mesh& m, unsigned bins, quality_summary& q, std::vector<dense1D<double, 16>>* values);
void print_quality(const quality_summary& q);
void json_quality(json& j, const char* key, const quality_summary& q);

// The start of every command that reads a mesh: checks the extension of IN and, when given, of
// OUT, then reads IN as the first stage. Returns -1 when the mesh is loaded, else the exit status
// of the failure already reported.
int load_input(const std::string& in, const std::string* out, stages& st, mesh& m);
// The last stage of the commands that write a mesh: -1 when written, else the exit status.
int save_output(const std::string& out, const mesh& m, stages& st);
// Opens the JSON report of a command that wrote a mesh: input, output, nodes (object left open).
void json_written(json& j, const std::string& in, const std::string& out, const mesh& m);
// Neighbours (without non-manifold links) and open faces of connectivity i; the library's status,
// -2 when its type has no faces.
int open_faces(const mesh& m, std::size_t i, dense2D<unsigned>& neighbors, dense2D<unsigned>& faces);

// Commands: argument vectors exclude the command name. Return the exit status.
int cmd_info(const std::vector<std::string>& args);
int cmd_convert(const std::vector<std::string>& args);
int cmd_clean(const std::vector<std::string>& args);
int cmd_quality(const std::vector<std::string>& args);
int cmd_boundary(const std::vector<std::string>& args);
int cmd_clip(const std::vector<std::string>& args);
int cmd_edges(const std::vector<std::string>& args);

// Usage failure: prints the reason and the usage line to stderr and returns 2.
int usage_error(const char* usage, const std::string& what);
// Runtime failure: "gridkit: what" on stderr, returns 1.
int fail(const std::string& what);
// Describes a library status code of an operation in words.
std::string status_text(const char* operation, int status);

}  // namespace cli

#endif
