// Who the program is.
#pragma once

#include <string>

namespace kx {

/// "%s v%s [built %s, %s for %s] %s\n": name, version, build date and time, platform, authors.
std::string version_line();

} // namespace kx
