// The generic fileserver: fifteen file commands with numbers of 32 bits, most significant byte
// first. See doc/fileserver-protocols.md.
#pragma once

#include <cstdint>

namespace kx {

/// Handles the request that begins with `byte`. 0 when it was one, also when it was dropped for
/// its wrong signature; -1 when `byte` begins no request (nothing more is read) and for an unknown
/// command.
int generic_fileserver_request(std::uint8_t byte);

/// Ends the directory search.
void generic_reset();

} // namespace kx
