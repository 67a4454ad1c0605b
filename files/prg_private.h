// Commodore programs: two bytes of load address, lowest first, and the bytes that go there.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <string>

namespace kx {

/// The address to execute the file from: its load address, or for a BASIC program the first byte
/// behind its first line when the program ends there; the interpreter's run entry where it goes
/// on. 0 with an error message when the file cannot be opened, 0 also when it has no load address.
std::uint32_t prg_exec_address(const ProgramFile& input);
std::uint32_t prg_exec_address(const std::string& path);

/// Sends the file, from `flags` bytes behind its load address on: to `start`, or to the file's own
/// address when that is 0; up to `end` when start and end are given, else as many bytes as stand
/// behind the load address (so that a skip needs an end to fit the file).
/// The number of bytes sent; -1, without a message when the file cannot be opened, with one when
/// it is damaged or the range is none, and with the progress status when the transfer fails.
long prg_send(const ProgramFile& input, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags);
long prg_send(const std::string& path, std::uint32_t start, std::uint64_t end, std::uint32_t flags);

/// Fetches the range into the file, `start` before it as load address. An old file is replaced when
/// all bytes are there. The number of bytes fetched, or -1.
long prg_get(const std::string& path, std::uint32_t start, std::uint64_t end);

} // namespace kx
