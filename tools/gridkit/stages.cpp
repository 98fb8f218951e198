// Stage timing and progress on standard error.
#include <unistd.h>

#include <cstdio>
#include <sys/stat.h>

#include "cli.hpp"

namespace cli {

namespace {
// Inputs from this size on take about a second to read and measure.
constexpr long long large_input_bytes = 32ll << 20;
}  // namespace

stages::stages(bool verbose, const std::string& input)
    : verbose_(verbose), tty_(isatty(2) == 1), large_(false), start_(clock::now()), stage_start_(start_) {
  struct stat st;
  if (!input.empty() && stat(input.c_str(), &st) == 0) large_ = st.st_size >= large_input_bytes;
}

void stages::begin(const char* name) {
  end();
  current_ = name;
  stage_start_ = clock::now();
  if (!large_ && stage_start_ - start_ >= std::chrono::seconds(1)) large_ = true;
  if (tty_ && large_ && !verbose_) {
    std::fprintf(stderr, "gridkit: %s...\n", name);
    std::fflush(stderr);
  }
}

void stages::end() {
  if (!current_) return;
  if (verbose_) {
    const double s = std::chrono::duration<double>(clock::now() - stage_start_).count();
    std::fprintf(stderr, "gridkit: %-22s %9.3f s\n", current_, s);
  }
  current_ = nullptr;
}

}  // namespace cli
