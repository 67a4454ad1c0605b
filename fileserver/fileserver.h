// The services with which a running target uses the host as its disc: dispatch among the three
// fileservers, and their log.
//
// The servers never read from the link on their own: whoever polls the port hands them the first
// byte of a request. They then read the rest of it, carry it out and answer before they return.
#pragma once

#include <cstdint>

namespace kx {

/// Hands `byte`, read from the port, to the fileserver of the active configuration. What its
/// request function returns; -1 without reading anything when there is none.
int fileserver_handle_byte(std::uint8_t byte);

/// Logs printf-style by `msg_print`, unless messages are silent. The text is formatted into 256
/// characters, its zero byte included, and cut there before the line end of its format. Texts from
/// the target or the disc must have been through `ascii_escape`.
void fileserver_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Forgets what the servers and the host's side of them keep between requests, and closes what
/// they hold open.
void fileserver_reset();

} // namespace kx
