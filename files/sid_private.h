// PlaySID tunes: a header with big-endian numbers, and a C-64 program.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace kx {

/// Sends the tune's program to its load address and marks its init and play address as code
/// entries. The number of bytes sent, or -1 with a message; a damaged file transfers nothing.
long sid_send(const ProgramFile& input);
long sid_send(const std::string& path);

/// The init address; 0 for a damaged file, and with an error message when it cannot be opened.
std::uint32_t sid_start_address(const ProgramFile& input);

/// Writes the line that heads a disassembly of the tune, with its load address, behind an empty
/// line. 1; -1 with an error message when the file cannot be opened or is damaged.
int sid_list_base(std::FILE* out, const std::string& path);

} // namespace kx
