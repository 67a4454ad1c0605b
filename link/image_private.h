// A seam of the image handles for tests.
#pragma once

#include "link/image.h"

namespace kx {

/// Asks `fault` before each transfer from or to a host file; one that it says true to fails with
/// EIO. Null for none.
void image_set_fault(bool (*fault)(bool writing));

} // namespace kx
