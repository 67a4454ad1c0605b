// NES cartridges in iNES files: a header, program banks of 16 KiB, character banks.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <string>

namespace kx {

/// Sends the first program bank to 0x8000 and the last to 0xC000, so that 32 KiB fill the
/// cartridge's window and 16 KiB stand there twice; warns when there are banks between them. Marks
/// the targets of the three vectors as code entries. 32768, or -1 with a message; a damaged file
/// transfers nothing.
long nes_send(const ProgramFile& input);

/// The reset vector's address; 0 for a damaged file, and with an error message when it cannot be
/// opened.
std::uint32_t nes_start_address(const ProgramFile& input);

} // namespace kx
