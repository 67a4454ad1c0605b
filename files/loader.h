// Program files between the host and target memory, by file type. Raw and prg files are built; a
// name is used up to its first control character.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// Loads the file at `path` to `load_address`; a prg file goes to its own load address when that
/// is 0. `end`, when it is not 0, is the address to stop before: the file must reach it.
/// 1, or -1 with an error message.
int file_load(const std::string& path, std::uint32_t load_address, std::uint64_t end = 0);

/// Where the last file that was loaded went, and the address to execute it from.
struct LoadedFile {
    std::uint32_t start = 0;
    std::uint64_t end = 0; // behind the last byte
    std::uint32_t execute = 0;
};
const LoadedFile& file_loaded();

/// Writes the bytes from `start` to before `end` to the file, a prg file with `start` before them
/// as its load address. An old file is replaced when all bytes are there.
/// 1, or -1 with an error message.
int file_save(const std::string& path, std::uint32_t start, std::uint64_t end);

/// The address to execute the file from, as far as its type tells it; 0 when it does not.
std::uint32_t file_start_address(const std::string& path);

/// The same for a prg file: its load address, or for a BASIC program the first byte behind it;
/// where there is none, the interpreter's run entry. 0 with an error message when the file cannot
/// be opened.
std::uint32_t prg_exec_address(const std::string& path);

} // namespace kx
