// PC-Engine images: 8 KiB for the top of the address space, vectors at their end, and 32 KiB below.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <string>

namespace kx {

/// Sends the first 40 KiB of the image and marks the targets of its five vectors as code entries.
/// 40960, or -1 with a message; a shorter file transfers nothing.
long pce_send(const ProgramFile& input);
long pce_send(const std::string& path);

/// The reset vector's address; 0 for a damaged file, and with an error message when it cannot be
/// opened.
std::uint32_t pce_start_address(const ProgramFile& input);

/// Creates an empty file. It fetches nothing: an image's banks cannot be told from the target's
/// memory. 1, or -1 with an error message.
int pce_get(const std::string& path);

} // namespace kx
