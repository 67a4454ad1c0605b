// Collects a directory's entries and puts BASIC lines together.
#include "fileserver/basic_listing_private.h"

#include "fileserver/fileserver.h"
#include "util/bytes.h"

namespace kx {

namespace {

constexpr std::string_view VERSION = "0.6"; // of the protocols
constexpr std::uint32_t LINK_MAX = 0xFFFF;

void add16(std::string& program, std::uint32_t value) {
    std::uint8_t bytes[2];
    put16le(bytes, value);
    program.append(std::begin(bytes), std::end(bytes));
}

} // namespace

std::string listing_header(std::string_view server) {
    return std::string("\"").append(server).append("\" v").append(VERSION).append(" ");
}

std::vector<ListedEntry> listing_collect(const std::string& pattern, DirectoryStyle style,
                                         std::uint32_t link) {
    std::vector<ListedEntry> entries;
    DirectorySearch search;
    DirectoryEntry entry;
    for (int found = directory_find_first(search, pattern, entry); found == 0;
         found = directory_find_next(search, entry)) {
        std::string text = directory_entry_text(entry, style);
        link += static_cast<std::uint32_t>(text.size()) + LISTING_LINE_FRAME;
        if (link + LISTING_END_LINE > LINK_MAX) {
            fileserver_log("KX> listing ends after %ld entries: no room for more.\n\r",
                           static_cast<long>(entries.size()));
            break;
        }
        entries.push_back({entry, std::move(text)});
    }
    return entries;
}

bool listing_finds_any() {
    DirectorySearch search;
    DirectoryEntry entry;
    return directory_find_first(search, std::string(LISTING_PATTERN), entry) == 0;
}

void listing_add_line(std::string& program, std::uint32_t link, std::uint32_t number,
                      std::string_view text) {
    add16(program, link);
    add16(program, number);
    program.append(text).push_back('\0');
}

void listing_add_end(std::string& program) {
    add16(program, 0);
}

} // namespace kx
