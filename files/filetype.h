// The file types the toolkit knows, and the rule that gives a file name its type.
#pragma once

#include "core/file_type_ids.h"

#include <cstdint>
#include <string_view>

namespace kx {

// Class bits of a type.
constexpr std::uint8_t FILETYPE_LOADABLE = 0x80; // into target memory
constexpr std::uint8_t FILETYPE_TEXT = 0x40;
constexpr std::uint8_t FILETYPE_SYMBOLS = 0x20;
constexpr std::uint8_t FILETYPE_BY_EXTENSION = 0x10; // recognised by its extension alone
constexpr std::uint8_t FILETYPE_CPU = 0x08;          // belongs to a CPU
constexpr std::uint8_t FILETYPE_MACHINE = 0x04;      // belongs to a machine
constexpr std::uint8_t FILETYPE_DISC = 0x02;         // disc image

struct FileType {
    std::int32_t id;       // 0 ends the table
    const char* extension; // lower case, without the dot
    const char* description;
    std::uint32_t flags; // the class bits in the top byte
    std::uint8_t cpu;
    std::uint8_t machine;
};

extern const FileType filetype_table[];

/// The first row with that extension (lower case): its identifier, 0 for none.
int filetype_find_extension(std::string_view extension);

/// Extension and description of an identifier; null for an unknown one.
const char* filetype_get_extension(int id);
const char* filetype_get_desc(int id);

/// The class bits of an identifier, as the constants above; 0 for an unknown one.
std::uint8_t filetype_get_class(int id);

/// The type of a file name: by its extension and the active machine, then the active CPU, then
/// the extension alone; else the active configuration's default file type. The extension is the
/// three characters at most behind the last dot; a name without a dot, or with none but in first
/// place, has its characters from the second on for one. Give it no path.
int filetype_from_name(std::string_view name);

} // namespace kx
