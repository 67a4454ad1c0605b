// The CBM fileserver: load, save and open of the C-64's stub for a drive that is the host. See
// doc/fileserver-protocols.md.
#pragma once

#include <cstdint>

namespace kx {

/// Handles the request that begins with `byte`. 0 when handled, -1 when `byte` begins no request
/// (nothing more is read) and for an unknown command.
int cbm_fileserver_request(std::uint8_t byte);

/// Forgets the open channels.
void cbm_reset();

} // namespace kx
