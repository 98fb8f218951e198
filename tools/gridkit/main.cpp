// gridkit: command-line front end of the Gridkit mesh library.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.hpp"

namespace {

const char* usage_line = "gridkit [--help | --version] COMMAND [ARGS...] [--json] [--verbose]";

void print_help() {
  std::printf(
      "usage: %s\n\n"
      "commands:\n"
      "  info FILE                  nodes, elements, bounding box, boundary, subdomains, quality\n"
      "  convert IN OUT             converts between formats chosen by extension\n"
      "  clean IN OUT [--tolerance T]\n"
      "                             merges coincident nodes, removes degenerate elements and\n"
      "                             unused nodes\n"
      "  quality IN [--bins N] [--worst K] [--sol OUT.sol]\n"
      "                             shape-quality histogram and the worst elements\n"
      "  boundary IN OUT            the open faces as a surface (or edge) mesh\n"
      "  clip IN OUT --origin X,Y,Z --normal X,Y,Z\n"
      "                             keeps the elements on the normal's side of a plane\n"
      "  edges IN [--size H | --sizes FILE.sol]\n"
      "                             edge lengths in a size field and its size shock\n\n"
      "every command takes --json (machine-readable output) and --verbose (time of each stage)\n"
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
  if (first == "clean") return cli::cmd_clean(args);
  if (first == "quality") return cli::cmd_quality(args);
  if (first == "boundary") return cli::cmd_boundary(args);
  if (first == "clip") return cli::cmd_clip(args);
  if (first == "edges") return cli::cmd_edges(args);
  return cli::usage_error(usage_line, "unknown command " + first);
}
