// Programs and memory ranges between host files and the configured target: load and start, save
// and load.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// Loads a program file to `load_address` (0: where the file wants to go), applies the default
/// patches when the configuration asks for them, and starts it at `start_address`; 0 takes that
/// from the file, or else the load address. Program counter and start are told, also when silent.
/// 1; 0 with an error message when there is no such file; -1 with one when it cannot be opened or
/// loaded, and when the user ended the patching with ESC: nothing is started then.
int core_execfile(const std::string& path, std::uint32_t load_address, std::uint32_t start_address);

/// Saves the bytes from `start` to before `end` in the file, by its type (a prg file begins with
/// its load address). 1, or -1 with an error message; the old file is whole then.
int core_save_range(const std::string& path, std::uint32_t start, std::uint64_t end);

/// Loads the file, by its type, to the addresses from `start` on, up to `end` or, when that is 0,
/// to the file's end. 1, or -1 with an error message.
int core_load_range(const std::string& path, std::uint32_t start, std::uint64_t end);

} // namespace kx
