// The loader of program files: by type, into target memory.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// Loads the file at `path` to `load_address`; a prg file goes to its own load address when that
/// is 0. 1, or -1 with an error message.
int file_load(const std::string& path, std::uint32_t load_address);

} // namespace kx
