// The serial-slave fileserver: commands of one character, names in PETSCII. See
// doc/fileserver-protocols.md.
#pragma once

#include <cstdint>

namespace kx {

/// Handles the request that begins with `byte`. Always 0.
int serialslave_request(std::uint8_t byte);

/// Closes the block buffer.
void serialslave_reset();

} // namespace kx
