// The search for names in the current directory that all fileservers share, and how an entry is
// shown in a directory that is sent as a BASIC program.
#pragma once

#include "fileserver/host_files_private.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kx {

constexpr std::uint8_t DIRECTORY_ATTRIBUTE = 0x10;
constexpr std::uint8_t ROOT_ATTRIBUTE = 0x08; // never found by the search

struct DirectoryEntry {
    std::string name; // whole, as the host has it
    std::uint8_t attribute = 0;
    std::uint32_t date = 0; // of MS-DOS, see directory_date
    std::uint32_t size = 0; // in bytes; a larger file has 0xFFFFFFFF
};

/// A search under way.
struct DirectorySearch {
    HostDirectory directory;
    std::string pattern; // at most 255 characters
};

/// Starts a search in the current directory, ending one that was under way, and finds the first
/// match, in the host's order. 0, or -1 when there is none.
int directory_find_first(DirectorySearch& search, const std::string& pattern,
                         DirectoryEntry& entry);

/// The next match: 0, or -1 when there is none, an entry's status cannot be had, or no search
/// has been started.
int directory_find_next(DirectorySearch& search, DirectoryEntry& entry);

/// What a request for `name` means: the entry of exactly this name, otherwise the first match. A
/// directory "game" must not stand in for the file "game.prg" because the host keeps it before
/// that. 0 or -1.
int directory_find(const std::string& name, DirectoryEntry& entry);

/// What a user means by `pattern`: the entry of exactly this name, otherwise a file that has only
/// an extension more, otherwise the first file, otherwise the first directory. Names that begin
/// with a
/// "." are left out, and those that match only because they end before the pattern: "game2" is not
/// "game". 0 or -1.
int directory_find_best(const std::string& pattern, DirectoryEntry& entry);

/// Whether a name matches. "?" is any character. "*" leads to the next name character, the
/// current one included, that equals the pattern character after the "*", which is then compared
/// as usual; without one it uses the name up. All else must be equal, case included. A match as
/// soon as name or pattern is used up: each may be a prefix of the other.
bool directory_matches(std::string_view name, std::string_view pattern);

/// Date in MS-DOS form of seconds since 1970, in UTC: year - 1980 in bits 9 to 14, month in bits 5
/// to 8, day in bits 0 to 4.
std::uint32_t directory_date(std::int64_t seconds);

/// The size in blocks of a 1541: 254 bytes each.
std::uint32_t directory_blocks(const DirectoryEntry& entry);

enum class DirectoryStyle { SerialSlave, Cbm };

/// The text of an entry's BASIC line: blanks, the name in quotes, blanks up to a width that the
/// line number (its size in blocks) leaves, "prg " or "dir ".
std::string directory_entry_text(const DirectoryEntry& entry, DirectoryStyle style);

} // namespace kx
