#include <kvo/gridkit.hpp>

namespace kvo::gridkit {

const char* version() { return "4.4.1"; }

}  // namespace kvo::gridkit
