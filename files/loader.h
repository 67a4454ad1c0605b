// Program files between the host and target memory: the one table that says, for each file type,
// how it is loaded and saved and where it starts. Names are used up to their first control
// character.
#pragma once

#include "util/file.h"

#include <cstdint>
#include <string>

namespace kx {

/// A program file, open for reading.
struct ProgramFile {
    std::string name; // its path, up to the first control character
    FilePtr file;     // null: it cannot be opened or not be sought in
    long size = 0;    // bytes
    int type = 0;     // file type identifier, by the name; may be set to another one
};

/// Opens the file, without a message when that fails: file_last_error() tells why.
ProgramFile program_open(const std::string& path);

/// Loads the program by its type: texts, symbol files and disc images are refused, what has no
/// loader of its own is raw. A raw file goes to `load_address`, and so does a prg file, unless that
/// is 0: then to its own. Others go where they want, with a warning when an address was given.
/// `end`, when it is not 0, is the address to stop before: the file must reach it.
/// 1, or -1 with a message, also when the file is not open; what was loaded is in file_loaded()
/// then.
int program_load(const ProgramFile& program, std::uint32_t load_address, std::uint64_t end = 0);

/// The address to execute the program from, as far as its type tells it; 0 when it does not, and
/// with a message when its type needs the file, and that is not open.
std::uint32_t program_start_address(const ProgramFile& program);

/// Where the last program that was loaded went, and the address to execute it from.
struct LoadedFile {
    std::uint32_t start = 0;
    std::uint64_t end = 0; // behind the last byte
    std::uint32_t execute = 0;
};
const LoadedFile& file_loaded();

/// Forgets it.
void file_loaded_reset();

/// Both, with a file of their own each.
int file_load(const std::string& path, std::uint32_t load_address, std::uint64_t end = 0);
std::uint32_t file_start_address(const std::string& path);

/// Writes the bytes from `start` to before `end` to the file, a prg file with `start` before them
/// as its load address. An old file is replaced when all bytes are there. 1; -1 with a message, for
/// types other than raw and prg as well.
int file_save(const std::string& path, std::uint32_t start, std::uint64_t end);

} // namespace kx
