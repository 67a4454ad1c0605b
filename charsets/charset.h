// Character sets: translation between the target machine's codes and the host's ASCII, by tables
// that are loaded from charset files.
#pragma once

#include "ini/ini.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kx {

using CharsetTable = std::array<std::uint8_t, 256>;

// Translation modes, bits 0 to 3 of the conversion flags. Any other number translates nothing.
constexpr unsigned CHARSET_UPASC = 1; // upper-case set, ASCII-like codes
constexpr unsigned CHARSET_LOASC = 2; // lower-case set, ASCII-like codes
constexpr unsigned CHARSET_UPSCR = 3; // upper-case set, screen codes
constexpr unsigned CHARSET_LOSCR = 4; // lower-case set, screen codes

// The output forms, bits 6 and 7. Only one of the two bits may be set; both together are plain.
constexpr unsigned CHARSET_ESCAPE = 0x40; // to ASCII: "%" and two digits; from ASCII: read those
constexpr unsigned CHARSET_DOT = 0x80;    // to ASCII: "." for what is not printable

/// One mode's tables; zero until loaded.
struct Charset {
    CharsetTable to_ascii;
    CharsetTable from_ascii;
};

/// The tables of a mode, 1 to 4; null for any other.
Charset* charset_of_mode(unsigned mode);

/// Whether a mode's tables have been loaded: any entry that is not zero.
bool charset_is_loaded(unsigned mode);

/// Loads a charset file into a pair of tables. A file that cannot be read leaves them as they
/// are; one without its sections ends the program. Always 1.
int charset_load(CharsetTable& to_table, CharsetTable& from_table, const std::string& path);

/// Loads all four modes from the files that the section `charsets` of the main configuration
/// names by the keys upasc, loasc, upscr and loscr. A key that is absent stands for the file
/// pet_upasc and so on, where that exists. Always 0.
int charset_load_defaults(const std::string& base_dir, const IniDocument& main_doc);

/// Why `charset_load_defaults` would end the program: a file of it that is there lacks a section.
/// Empty when it would not.
std::string charset_check_defaults(const std::string& base_dir, const IniDocument& main_doc);

/// Converts `length` target codes to host text. `destination` has room for one character per
/// code, three in the escape form; no zero byte is added. Returns the start of the destination in
/// the plain forms and the position after the last character in the escape and dot forms.
char* charset_to_ascii(char* destination, const std::uint8_t* source, std::size_t length,
                       unsigned flags);

/// Converts host text to target codes: `length` of them, fewer when escapes make the text end
/// early. `source_length` is what may be read. Returns the start of the destination without a
/// translation, otherwise the position after the last byte.
std::uint8_t* charset_from_ascii(std::uint8_t* destination, const char* source,
                                 std::size_t source_length, std::size_t length, unsigned flags);

/// Puts all tables back to zero.
void charset_reset();

} // namespace kx
