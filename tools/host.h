// Files of the host as verbs read and write them, failures reported; "-" is standard input or
// output.
#pragma once

#include "util/file.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kx {

/// What kx reads into memory at most: more than any target addresses and any image holds.
constexpr std::uint64_t HOST_FILE_MAX = std::uint64_t{64} << 20;

// Each returns 0, or the exit status of the failure, which has been reported.

/// The whole file.
int host_read(const std::string& path, std::vector<std::uint8_t>& bytes);

/// At most `length` bytes from `offset` on: fewer when the file ends before.
int host_read_part(const std::string& path, std::uint64_t offset, std::uint64_t length,
                   std::vector<std::uint8_t>& bytes);

/// Opens the file to be read in any order; what comes through a pipe is read whole first.
int host_open(const std::string& path, FilePtr& file);

/// Copies the file to standard output as it comes, whatever its size.
int host_copy(const std::string& path);

/// Whether a file can be written at the path, to be known before slow work has run for nothing. One
/// that is there is a failure unless `replace`; a device or a pipe holds nothing that could be
/// lost.
int host_may_write(const std::string& path, bool replace);

/// Looks as above, then writes the file, whole or not at all; in a dry run it only looks.
int host_write(const std::string& path, std::span<const std::uint8_t> bytes, bool replace);

/// Reports why a file cannot be read or written: what errno, or its copy, tells. The exit status.
int host_fail(const std::string& path, int error);

/// "PATH: WHY", the text of that.
std::string host_why(const std::string& path, int error);

/// The file's name without its directory.
std::string host_name(const std::string& path);

/// Its ending in lower case, without the dot; empty for none.
std::string host_ending(const std::string& path);

} // namespace kx
