// gridkit: command-line front end of the Gridkit mesh library.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.hpp"

namespace {

const char* usage_line = "gridkit [--help | --version] COMMAND [ARGS...]";

void print_help() {
  std::printf(
      "usage: %s\n\n"
      "commands:\n"
      "  info FILE [--json]   nodes, elements, bounding box, boundary faces and shape quality\n"
      "  convert IN OUT       converts between formats chosen by extension\n\n"
      "readable formats: .stl .obj .mesh .vtk\n"
      "writable formats: .mesh .vtk .case .geo .stl .obj\n"
      "'gridkit COMMAND --help' describes a command.\n",
      usage_line);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return cli::usage_error(usage_line, "missing command");
  const std::string first = argv[1];
  if (first == "--version") {
    std::printf("gridkit %s\n", kvo::gridkit::version());
    return 0;
  }
  if (first == "--help" || first == "-h" || first == "help") {
    print_help();
    return 0;
  }
  const std::vector<std::string> args(argv + 2, argv + argc);
  if (first == "info") return cli::cmd_info(args);
  if (first == "convert") return cli::cmd_convert(args);
  return cli::usage_error(usage_line, "unknown command " + first);
}
