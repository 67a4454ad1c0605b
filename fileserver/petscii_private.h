// PETSCII of the fileservers: mode 2 of the character sets when it is loaded, otherwise letters
// with their case swapped and all other codes as they are; to the host, the second code that
// PETSCII has for capitals (C1 to DA) counts as well.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kx {

/// Host text of PETSCII codes. Ends before a code that the tables give no character (zero), as
/// the C strings that names become would.
std::string petscii_to_host(std::string_view codes);

/// PETSCII codes of host text, one per byte; "?" for what the tables give no code (zero), which
/// would end a BASIC line early.
std::string petscii_from_host(std::string_view text);

} // namespace kx
