// The directory search of all fileservers, and the texts of BASIC directories.
#include "fileserver/directory_search_private.h"

#include "fileserver/line_private.h"

#include <algorithm>
#include <ctime>
#include <limits>

namespace kx {

namespace {

constexpr std::uint32_t BLOCK_SIZE = 254; // of a 1541's block, without its link
constexpr std::uint32_t ANY = std::numeric_limits<std::uint32_t>::max();

/// How an entry of less than `below` blocks is shown: `blanks` before its name, and blanks behind
/// it up to `width` characters in all. A digit more in the line number before the text leaves one
/// less, so that names and types stand in columns.
struct EntryForm {
    std::uint32_t below;
    std::size_t blanks;
    std::size_t width;
};
constexpr EntryForm serialslave_forms[] = {
    {10, 3, 22}, {100, 2, 21}, {1000, 1, 20}, {10000, 0, 19}, {ANY, 0, 18}};
constexpr EntryForm cbm_forms[] = {{10, 3, 22}, {100, 2, 21}, {1000, 1, 20}, {ANY, 0, 19}};

/// How much of the pattern had its match when it or the name was used up; npos when they differ.
std::size_t pattern_used(std::string_view name, std::string_view pattern) {
    std::size_t at = 0;
    std::size_t i = 0;
    for (; i < pattern.size() && at < name.size(); i++) {
        if (pattern[i] == '*') {
            // To the next name character that equals the one after the "*", be that a wildcard.
            at = i + 1 < pattern.size() ? name.find(pattern[i + 1], at) : std::string_view::npos;
        } else if (pattern[i] == '?' || pattern[i] == name[at]) {
            at++;
        } else {
            return std::string_view::npos;
        }
    }
    return i;
}

/// `hidden` becomes the last match that the root keeps from the target.
int find_next(DirectorySearch& search, DirectoryEntry& entry, std::string& hidden) {
    std::string name;
    while (search.directory.read(name)) {
        if (!directory_matches(name, search.pattern)) {
            continue;
        }
        struct stat status = {};
        const HostStat result = search.directory.stat(name, status);
        if (result == HostStat::Hidden) {
            hidden = name;
            continue;
        }
        if (result == HostStat::Failed) { // Meant: a link that leads nowhere ends the search.
            break;
        }
        entry.name = name;
        entry.attribute = S_ISDIR(status.st_mode) ? DIRECTORY_ATTRIBUTE : std::uint8_t{0};
        entry.date = directory_date(status.st_mtim.tv_sec);
        entry.size = static_cast<std::uint32_t>(std::min<std::int64_t>(status.st_size, ANY));
        return 0;
    }
    search.directory.close();
    return -1;
}

} // namespace

int directory_find_first(DirectorySearch& search, const std::string& pattern,
                         DirectoryEntry& entry) {
    search.pattern = pattern.substr(0, LINE_NAME_MAX);
    std::string hidden;
    const int result = search.directory.open() ? find_next(search, entry, hidden) : -1;
    if (result == -1 && !hidden.empty()) { // a request for it, and not a listing that leaves it out
        host_log_hidden(hidden);
    }
    return result;
}

int directory_find_next(DirectorySearch& search, DirectoryEntry& entry) {
    std::string hidden;
    return find_next(search, entry, hidden);
}

int directory_find(const std::string& name, DirectoryEntry& entry) {
    DirectorySearch search;
    if (directory_find_first(search, name, entry) != 0) {
        return -1;
    }
    DirectoryEntry other = entry;
    while (other.name != name) {
        if (directory_find_next(search, other) != 0) {
            return 0;
        }
    }
    entry = other;
    return 0;
}

int directory_find_best(const std::string& pattern, DirectoryEntry& entry) {
    // In this order, and of equals the first.
    enum { Exact, Extended, File, Directory, None };
    DirectorySearch search;
    DirectoryEntry other;
    int best = None;
    for (int found = directory_find_first(search, pattern, other); found == 0;
         found = directory_find_next(search, other)) {
        const std::size_t used = pattern_used(other.name, pattern);
        int rank = File;
        if (other.name == pattern) {
            rank = Exact;
        } else if (other.name.starts_with('.') ||
                   pattern.find_first_not_of('*', used) != std::string::npos) {
            rank = None;
        } else if ((other.attribute & DIRECTORY_ATTRIBUTE) != 0) {
            rank = Directory;
        } else if (other.name.starts_with(pattern + '.')) {
            rank = Extended;
        }
        if (rank < best) {
            best = rank;
            entry = other;
        }
    }
    return best == None ? -1 : 0;
}

bool directory_matches(std::string_view name, std::string_view pattern) {
    return pattern_used(name, pattern) != std::string_view::npos;
}

std::uint32_t directory_date(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts = {};
    if (::gmtime_r(&time, &parts) == nullptr) { // a year beyond what an int counts
        return 0;
    }
    // Meant: six bits of the year and not the seven of MS-DOS: 2044 is 1980 again, as targets
    // expect.
    const std::uint32_t year = (static_cast<std::uint32_t>(parts.tm_year) - 80) & 0x3F;
    return year << 9 | static_cast<std::uint32_t>(parts.tm_mon + 1) << 5 |
           static_cast<std::uint32_t>(parts.tm_mday);
}

std::uint32_t directory_blocks(const DirectoryEntry& entry) {
    return entry.size / BLOCK_SIZE + (entry.size % BLOCK_SIZE != 0 ? 1 : 0);
}

std::string directory_entry_text(const DirectoryEntry& entry, DirectoryStyle style) {
    const bool is_directory = (entry.attribute & DIRECTORY_ATTRIBUTE) != 0;
    const bool cbm = style == DirectoryStyle::Cbm;
    // Directories of the serial-slave server have the line number 0, those of the CBM their size.
    const std::uint32_t blocks = is_directory && !cbm ? 0 : directory_blocks(entry);
    const EntryForm* form = cbm ? cbm_forms : serialslave_forms;
    while (blocks >= form->below) {
        form++;
    }
    std::string text = std::string(form->blanks, ' ') + '"' + entry.name + '"';
    text.resize(std::max(form->width, text.size() + 1), ' ');
    return text + (is_directory ? "dir " : "prg ");
}

} // namespace kx
