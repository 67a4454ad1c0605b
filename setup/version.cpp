// The program's identity.
#include "setup/version.h"

namespace kx {

namespace {

// Meant: not the toolkit's version. Programs around the setup program know this one by its line.
constexpr char VERSION[] = "0.1";

} // namespace

std::string version_line() {
    return std::string("KXSETUP v") + VERSION + " [built " __DATE__ ", " __TIME__ +
           " for Linux] by the kxsetup authors\n";
}

} // namespace kx
