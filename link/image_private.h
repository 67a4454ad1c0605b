// What tests set and put back of the image handles.
#pragma once

#include "link/image.h"

namespace kx {

/// Asks `fault` before each transfer from or to a host file; one that it says true to fails with
/// EIO. Null for none.
void image_set_fault(bool (*fault)(bool writing));

/// Nothing fails any more, and no image was opened last.
void image_reset();

} // namespace kx
