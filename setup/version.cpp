// The program's identity. KX_VERSION comes from the build files, for this file alone.
#include "setup/version.h"

namespace kx {

std::string version_line() {
    return "KXSETUP v" KX_VERSION " [built " __DATE__ ", " __TIME__
           " for Linux] by the kxsetup authors\n";
}

} // namespace kx
