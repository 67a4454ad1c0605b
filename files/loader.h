// Program files between the host and target memory: the one table that says, for each file type,
// how it is loaded and saved and where it starts. Names are used up to their first control
// character.
#pragma once

#include "files/transfer.h"

#include <cstdint>
#include <string>

namespace kx {

/// Loads the file at `path` by its type: texts, symbol files and disc images are refused, what has
/// no loader of its own is raw. A raw file goes to `load_address`, and so does a prg file, unless
/// that is 0: then to its own. Others go where they want, with a warning when an address was given.
/// `end`, when it is not 0, is the address to stop before: the file must reach it.
/// 1, or -1 with a message; what was loaded is in file_loaded() then.
int file_load(const std::string& path, std::uint32_t load_address, std::uint64_t end = 0);

/// Writes the bytes from `start` to before `end` to the file, a prg file with `start` before them
/// as its load address. An old file is replaced when all bytes are there. 1; -1 with a message, for
/// types other than raw and prg as well.
int file_save(const std::string& path, std::uint32_t start, std::uint64_t end);

/// The address to execute the file from, as far as its type tells it; 0 when it does not.
std::uint32_t file_start_address(const std::string& path);

} // namespace kx
