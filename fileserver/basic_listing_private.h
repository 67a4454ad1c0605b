// A directory as a BASIC program, as the drives of Commodore send it: the load address, then lines
// of link, number, text and a zero byte, then a zero link. Numbers have their low byte first.
#pragma once

#include "fileserver/directory_search_private.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

constexpr std::uint32_t LISTING_LINE_FRAME = 2 + 2 + 1; // bytes of a line beside its text
constexpr std::string_view LISTING_END = "blocks free.             ";
constexpr std::uint32_t LISTING_END_LINE = LISTING_END.size() + LISTING_LINE_FRAME;
constexpr std::string_view LISTING_PATTERN = "*.*"; // finds all names

struct ListedEntry {
    DirectoryEntry entry;
    std::string text; // of its line
};

/// The name of a server with its version, as its listings begin.
std::string listing_header(std::string_view server);

/// The entries of the current directory that `pattern` finds; `link` is the link before the first
/// one. They end where the links would pass 0xFFFF, which also keeps the program's length within
/// 16 bits; a log line says so.
std::vector<ListedEntry> listing_collect(const std::string& pattern, DirectoryStyle style,
                                         std::uint32_t link);

/// Whether a search with LISTING_PATTERN finds anything.
bool listing_finds_any();

/// Appends a line, whose text is in the target's codes.
void listing_add_line(std::string& program, std::uint32_t link, std::uint32_t number,
                      std::string_view text);

/// Appends the zero link.
void listing_add_end(std::string& program);

} // namespace kx
