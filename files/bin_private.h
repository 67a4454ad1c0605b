// Raw binaries: bytes without a word on where they go.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <string>

namespace kx {

/// Sends the file, from `flags` bytes behind its beginning on, to `start`: up to `end`, or when
/// that is 0 as many bytes as the file has (so that a skip needs an end to fit the file).
/// The number of bytes sent, or -1 with a message.
long bin_send(const ProgramFile& input, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags);
long bin_send(const std::string& path, std::uint32_t start, std::uint64_t end, std::uint32_t flags);

/// Fetches the range into the file. An old file is replaced when all bytes are there. The number of
/// bytes fetched, or -1.
long bin_get(const std::string& path, std::uint32_t start, std::uint64_t end);

} // namespace kx
