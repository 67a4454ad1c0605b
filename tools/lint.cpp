// The rules for configuration files, a function each. The kinds of files are told apart by
// `[config] type`, kx.ini by its name, a patch file by its sections.
#include "tools/lint.h"

#include "core/memory_map.h"
#include "core/registry.h"
#include "files/filetype.h"
#include "ini/ini.h"
#include "tools/base.h"
#include "tools/host.h"
#include "tools/lint_scan.h"
#include "tools/nearest.h"
#include "tools/parse.h"
#include "ui/col.h"
#include "ui/msg_items.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <unistd.h>

namespace kx {

namespace {

struct Lint {
    const LintFile& file;
    Scan scan;
    std::string type; // "target", "colors", "charset", "main", or what else the file says
    std::vector<LintFinding>& findings;
};

using Severity = LintSeverity;

void add(Lint& lint, const char* rule, int line, Severity severity, const std::string& text) {
    lint.findings.push_back({lint.file.shown, line, severity, rule, text});
}

std::string place(const ScanItem& item) {
    return "[" + item.section + "] " + item.key;
}

std::string value_of(const Lint& lint, std::string_view section, std::string_view key) {
    const ScanItem* const item = scan_find(lint.scan, section, key);
    return item != nullptr ? item->value : "";
}

std::vector<std::string> elements(std::string_view value) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= value.size();) {
        const std::size_t end = std::min(value.find(',', at), value.size());
        std::string_view part = value.substr(at, end - at);
        part.remove_prefix(std::min(part.find_first_not_of(' '), part.size()));
        parts.emplace_back(part);
        at = end + 1;
    }
    return parts;
}

std::string did_you_mean(const std::string& word, const std::vector<std::string>& words) {
    const std::string nearest = nearest_word(word, words);
    return nearest.empty() ? "" : ", did you mean '" + nearest + "'?";
}

// The form of the file -----------------------------------------------------------------------

void check_runon(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        const std::size_t end = item.key.find_first_of("\r\n");
        if (!item.has_equals) {
            add(lint, "runon", item.line, Severity::Error,
                "no '=' in this line: '" + item.key.substr(0, end) + "' is no item");
        } else if (end != std::string::npos) {
            add(lint, "runon", item.line, Severity::Error,
                "no '=' in this line: what follows up to the next '=' belongs to the key '" +
                    item.key.substr(0, end) + "'");
        }
    }
}

void check_blank(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        if (item.key.find_first_of("\r\n") != std::string::npos || item.key.empty()) {
            continue; // told already
        }
        const std::size_t first = item.key.find_first_not_of(" \t");
        const std::size_t last = item.key.find_last_not_of(" \t");
        if (first != 0 || last + 1 != item.key.size()) {
            const std::string meant =
                first == std::string::npos ? "" : item.key.substr(first, last - first + 1);
            add(lint, "blank", item.line, Severity::Error,
                "blank before '=': the key is '" + item.key + "' and [" + item.section + "] " +
                    meant + " is empty");
        }
        const bool is_text = item.key == "desc";
        if (!is_text && (item.value.starts_with(' ') || item.value.ends_with(' '))) {
            add(lint, "blank", item.line, Severity::Warning,
                "the value '" + item.value + "' begins or ends with a blank");
        }
    }
}

void check_length(Lint& lint) {
    const auto tell = [&](int line, const char* what, std::size_t size, std::size_t most) {
        if (size > most) {
            add(lint, "length", line, Severity::Error,
                std::string(what) + " of " + std::to_string(size) + " characters is cut to " +
                    std::to_string(most));
        }
    };
    for (const ScanSection& section : lint.scan.sections) {
        tell(section.line, "section's name", section.name.size(), INI_SECTION_NAME_MAX);
    }
    for (const ScanItem& item : lint.scan.items) {
        if (item.key.find_first_of("\r\n") == std::string::npos) {
            tell(item.line, "key", item.key.size(), INI_KEY_MAX);
        }
        tell(item.line, "value", item.value.size(), INI_VALUE_MAX);
        if (item.ends_early) {
            add(lint, "length", item.line, Severity::Error,
                "the value ends at a character that is not printable ASCII");
        }
    }
}

void check_dup(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        const ScanItem* const last = scan_find(lint.scan, item.section, item.key);
        if (last != nullptr && last->line != item.line) {
            add(lint, "dup", item.line, Severity::Warning,
                place(item) + " comes again in line " + std::to_string(last->line) +
                    ", which counts");
        }
    }
    for (const ScanSection& section : lint.scan.sections) {
        const ScanSection* const first = scan_section(lint.scan, section.name);
        if (first->line != section.line) {
            add(lint, "dup", section.line, Severity::Warning,
                "[" + section.name + "] goes on from line " + std::to_string(first->line));
        }
    }
}

// What must be there -------------------------------------------------------------------------

constexpr const char* target_sections[] = {"port",    "cable",      "stub",    "dropper",
                                           "console", "fileserver", "target",  "memory",
                                           "roms",    "patches",    "symbols", "files"};
constexpr const char* scheme_sections[] = {"colors"};
constexpr const char* charset_sections[] = {"toasc", "fromasc"};
constexpr const char* main_sections[] = {"colors", "targets", "charsets"};

struct Kind {
    const char* type;
    std::span<const char* const> sections;
};
constexpr Kind kinds[] = {{"target", target_sections},
                          {"colors", scheme_sections},
                          {"charset", charset_sections},
                          {"main", main_sections}};

const Kind* kind_of(const Lint& lint) {
    const auto* const kind =
        std::ranges::find_if(kinds, [&](const Kind& each) { return lint.type == each.type; });
    return kind != std::end(kinds) ? kind : nullptr;
}

void check_section(Lint& lint) {
    if (lint.file.listed && scan_section(lint.scan, "config") == nullptr) {
        add(lint, "section", 0, Severity::Error,
            "no section [config]: kxsetup ends with this file in its directory");
    }
    const Kind* const kind = kind_of(lint);
    if (!lint.file.listed && kind == nullptr && lint.scan.sections.empty()) {
        add(lint, "section", 0, Severity::Error, "no section in it: no file of settings");
    }
    if (kind != nullptr) {
        for (const char* const section : kind->sections) {
            if (scan_section(lint.scan, section) == nullptr) {
                add(lint, "section", 0, Severity::Error,
                    std::string("no section [") + section +
                        "]: the program that looks for it ends");
            }
        }
    }
}

void check_type(Lint& lint) {
    const ScanSection* const config = scan_section(lint.scan, "config");
    if (config == nullptr || kind_of(lint) != nullptr) {
        return;
    }
    const ScanItem* const item = scan_find(lint.scan, "config", "type");
    add(lint, "type", item != nullptr ? item->line : config->line, Severity::Error,
        "[config] type is '" + value_of(lint, "config", "type") +
            "': nobody lists this file; target, colors and charset are listed" +
            did_you_mean(value_of(lint, "config", "type"), {"target", "colors", "charset"}));
}

void check_desc(Lint& lint) {
    const ScanSection* const config = scan_section(lint.scan, "config");
    if (config != nullptr && value_of(lint, "config", "desc").empty()) {
        add(lint, "desc", config->line, Severity::Warning,
            "no [config] desc: an empty line in the menu");
    }
}

void check_name(Lint& lint) {
    constexpr std::size_t NAME_MAX_T = 15; // what kxsetup --target takes
    const std::string name = host_name(lint.file.path);
    const std::size_t length = name.size() - std::min(name.size(), host_ending(name).size() + 1);
    if (lint.file.listed && lint.type == "target" && length > NAME_MAX_T) {
        add(lint, "name", 0, Severity::Warning,
            "a name of more than 15 characters: kxsetup -t cannot reach it");
    }
}

// Values -------------------------------------------------------------------------------------

std::vector<std::string> tags(const RegistryEntry* table) {
    std::vector<std::string> names;
    for (; table->id != 0; table++) {
        names.emplace_back(table->tag);
    }
    return names;
}

std::vector<std::string> endings() {
    std::vector<std::string> names = {""};
    for (const FileType* type = filetype_table; type->id != 0; type++) {
        names.emplace_back(type->extension);
    }
    return names;
}

void check_tag(Lint& lint) {
    struct Row {
        const char* section;
        const char* key;
        const char* what;
        std::vector<std::string> words;
    };
    const Row rows[] = {
        {"cable", "name", "cable", tags(port_table)},
        {"stub", "name", "stub", tags(target_table)},
        {"dropper", "name", "stub", tags(target_table)},
        {"console", "name", "console", tags(console_table)},
        {"fileserver", "name", "fileserver", tags(fileserver_table)},
        {"target", "machine", "machine", tags(machine_table)},
        {"target", "cpu", "processor", tags(cpu_table)},
        {"files", "defaulttype", "file type", endings()},
    };
    for (const Row& row : rows) {
        const ScanSection* const section = scan_section(lint.scan, row.section);
        if (lint.type != "target" || section == nullptr) {
            continue;
        }
        const ScanItem* const item = scan_find(lint.scan, row.section, row.key);
        const std::string value = item != nullptr ? item->value : "";
        if (std::ranges::count(row.words, value) == 0) {
            add(lint, "tag", item != nullptr ? item->line : section->line, Severity::Error,
                std::string("unknown ") + row.what + " '" + value + "'" +
                    did_you_mean(value, row.words));
        }
    }
}

void check_baud(Lint& lint) {
    for (const char* const name : {"port", "console"}) {
        const ScanSection* const section = scan_section(lint.scan, name);
        if (lint.type != "target" || section == nullptr) {
            continue;
        }
        const ScanItem* const item = scan_find(lint.scan, name, "baud");
        const std::string value = item != nullptr ? item->value : "";
        const long baud = std::strtol(value.c_str(), nullptr, 0);
        const bool usual = std::ranges::count(baud_rates, baud) > 0;
        if (!usual && !(baud == 0 && section->name == "console") &&
            value_of(lint, "cable", "name") != "none") {
            add(lint, "baud", item != nullptr ? item->line : section->line, Severity::Error,
                (value.empty() ? "no baud rate in [port]; " : value + " baud cannot be set; ") +
                    baud_rates_text());
        }
    }
}

/// A number as the reader takes it, and what is odd about it.
void check_one_number(Lint& lint, const ScanItem& item, const std::string& text, long long least,
                      long long most) {
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    const std::string rest(end);
    if (text.empty() || end == text.c_str()) {
        add(lint, "number", item.line, Severity::Error,
            place(item) + ": '" + text + "' is no number and counts as 0");
    } else if (rest.find_first_not_of(' ') != std::string::npos) {
        add(lint, "number", item.line, Severity::Error,
            place(item) + ": '" + text + "' counts as " + std::to_string(value) +
                ", what stands behind is ignored");
    } else if (text.size() > 1 && text[0] == '0' && ascii_is_digit(text[1])) {
        add(lint, "number", item.line, Severity::Warning,
            place(item) + ": '" + text + "' is octal, " + std::to_string(value));
    } else if (value < least || value > most) {
        add(lint, "number", item.line, Severity::Error,
            place(item) + ": " + text + " is out of range, " + std::to_string(least) + " to " +
                std::to_string(most));
    }
}

/// The widths that addresses are masked to.
void check_width(Lint& lint) {
    const ScanSection* const section = scan_section(lint.scan, "target");
    if (lint.type != "target" || section == nullptr) {
        return;
    }
    const ScanItem* const item = scan_find(lint.scan, "target", "addrbits");
    const std::string value = item != nullptr ? item->value : "";
    const long bits = std::strtol(value.c_str(), nullptr, 0);
    if (std::ranges::count(std::to_array<long>({8, 16, 24, 32}), bits) == 0) {
        add(lint, "number", item != nullptr ? item->line : section->line, Severity::Error,
            "[target] addrbits is '" + value + "', not 8, 16, 24 or 32: addresses are not masked");
    }
}

void check_number(Lint& lint) {
    struct Row {
        const char* section;
        const char* key;
        long long least;
        long long most;
    };
    constexpr Row rows[] = {
        {"port", "addr", 0, 0xFFFF},           {"port", "maxspeed", INT32_MIN, INT32_MAX},
        {"port", "sendblocklen", 1, 0xFFFFFF}, {"port", "recvblocklen", 1, 0xFFFFFF},
        {"stub", "endianess", 0, 255},         {"fileserver", "readonly", 0, 1},
        {"target", "cpuregs", 0, 255},         {"target", "addrbits", 0, INT32_MAX},
        {"target", "bankbits", 0, 255},        {"patches", "autoload", 0, 1},
        {"port", "baud", 0, INT32_MAX},        {"console", "baud", 0, INT32_MAX},
    };
    for (const ScanItem& item : lint.scan.items) {
        const auto* const row = std::ranges::find_if(rows, [&](const Row& each) {
            return item.section == each.section && item.key == each.key;
        });
        if (lint.type == "target" && row != std::end(rows)) {
            check_one_number(lint, item, item.value, row->least, row->most);
        } else if (item.key == "num" && item.section != "config") {
            check_one_number(lint, item, item.value, 0, MSG_ITEMS_MAX);
        } else if (lint.type == "charset" && item.key.starts_with('n')) {
            for (const std::string& text : elements(item.value)) {
                check_one_number(lint, item, text, 0, 255);
            }
        }
    }
}

/// The place of "n12" in a list; -1 for another key.
int list_index(const std::string& key) {
    const bool listed = key.size() > 1 && key.size() < 8 && key[0] == 'n' &&
                        std::all_of(key.begin() + 1, key.end(), ascii_is_digit);
    return listed ? std::atoi(key.c_str() + 1) : -1;
}

/// Without their number the items of a list are none; a charset's are no list.
void check_count_is_there(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        if (lint.type != "charset" && item.key == "n0" &&
            scan_find(lint.scan, item.section, "num") == nullptr) {
            add(lint, "count", item.line, Severity::Error,
                "[" + item.section + "] has no num: none of its items is used");
        }
    }
}

void check_count(Lint& lint) {
    for (const ScanItem& count : lint.scan.items) {
        if (count.key != "num" || scan_find(lint.scan, count.section, "num") != &count) {
            continue;
        }
        const long num = std::strtol(count.value.c_str(), nullptr, 0);
        for (int i = 0; i < std::min<long>(num, MSG_ITEMS_MAX); i++) {
            if (scan_find(lint.scan, count.section, "n" + std::to_string(i)) == nullptr) {
                add(lint, "count", count.line, Severity::Error,
                    "[" + count.section + "] num is " + count.value + ", and there is no n" +
                        std::to_string(i));
                break;
            }
        }
        for (const ScanItem& item : lint.scan.items) {
            if (item.section == count.section && list_index(item.key) >= num) {
                add(lint, "count", item.line, Severity::Warning,
                    place(item) + " is not used: num is " + count.value);
            }
        }
    }
}

/// A row that is short goes on with the codes of the one before, as one that is not there.
void check_charset_rows(Lint& lint) {
    constexpr std::size_t CODES = 16;
    for (const ScanItem& item : lint.scan.items) {
        const std::size_t there = elements(item.value).size();
        if (lint.type == "charset" && list_index(item.key) >= 0 && there != CODES) {
            add(lint, "count", item.line, Severity::Warning,
                place(item) + " has " + text_count(there, "code") + ", not " +
                    std::to_string(CODES) +
                    (there < CODES ? ": the row before has the rest"
                                   : ": what is more is ignored"));
        }
    }
}

/// What is listed there and not in the file ends a program that patches.
void check_patches_auto(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        if (item.section == "patches_auto" && list_index(item.key) >= 0 &&
            scan_section(lint.scan, item.value) == nullptr) {
            std::vector<std::string> names;
            for (const ScanSection& section : lint.scan.sections) {
                names.push_back(section.name);
            }
            add(lint, "section", item.line, Severity::Error,
                place(item) + ": there is no section [" + item.value + "]" +
                    did_you_mean(item.value, names));
        }
    }
}

/// A patch's arrays must be as long as it says: shorter ones shift what follows.
void check_patch_count(Lint& lint) {
    for (const ScanSection& section : lint.scan.sections) {
        if (scan_find(lint.scan, section.name, "mlen") == nullptr) {
            continue;
        }
        for (const auto& [stem, length] :
             {std::pair{"match", "mlen"}, {"mask", "mlen"}, {"patch", "plen"}}) {
            std::size_t there = 0;
            for (int i = 0;; i++) {
                const ScanItem* const item =
                    scan_find(lint.scan, section.name, stem + std::to_string(i));
                if (item == nullptr) {
                    break;
                }
                there += elements(item->value).size();
            }
            const long wanted =
                std::strtol(value_of(lint, section.name, length).c_str(), nullptr, 0);
            if (static_cast<long>(there) != wanted) {
                add(lint, "count", section.line, Severity::Error,
                    "[" + section.name + "] " + stem + " has " + text_count(there, "byte") + ", " +
                        length + " is " + std::to_string(wanted));
            }
        }
    }
}

// The memory map -----------------------------------------------------------------------------

struct Region {
    const ScanItem* item;
    std::uint32_t bank;
    std::uint64_t base;
    std::uint64_t last;
};

/// The region of an item; none when it is malformed, which is told.
bool read_region(Lint& lint, const ScanItem& item, std::vector<Region>& regions) {
    const std::vector<std::string> parts = elements(item.value);
    if (parts.size() != 5) {
        add(lint, "region", item.line, Severity::Error,
            place(item) + ": bank,base,last,mask,type are five, not " +
                std::to_string(parts.size()));
        return false;
    }
    for (const std::string& text : std::span(parts).first(4)) {
        check_one_number(lint, item, text, 0, UINT32_MAX);
    }
    if (std::ranges::count(std::to_array<std::string>({"ram", "rom", "io", "none"}), parts[4]) ==
        0) {
        add(lint, "region", item.line, Severity::Error,
            place(item) + ": unknown type '" + parts[4] + "'" +
                did_you_mean(parts[4], {"ram", "rom", "io", "none"}));
    }
    const auto number = [&](std::size_t i) {
        return static_cast<std::uint32_t>(ini_parse_number(parts[i]));
    };
    regions.push_back({&item, number(0), number(1), number(2)});
    return true;
}

long target_bits(const Lint& lint, const char* key) {
    return std::strtol(value_of(lint, "target", key).c_str(), nullptr, 0);
}

void check_regions(Lint& lint, const std::vector<Region>& regions, std::uint64_t top) {
    const long bank_bits = std::clamp(target_bits(lint, "bankbits"), 0L, 32L);
    for (const Region& region : regions) {
        const std::string where = place(*region.item);
        if (region.last < region.base) {
            add(lint, "region", region.item->line, Severity::Error,
                where + ": " + address_text(region.last) + " is before " +
                    address_text(region.base));
        }
        if (region.base > top || region.last > top) {
            add(lint, "region", region.item->line, Severity::Error,
                where + ": above " + address_text(top) + ", the last address of " +
                    std::to_string(target_bits(lint, "addrbits")) + " bits");
        }
        if (std::uint64_t{region.bank} >> bank_bits != 0) {
            add(lint, "region", region.item->line, Severity::Warning,
                where + ": bank " + std::to_string(region.bank) + ", and [target] bankbits is " +
                    std::to_string(bank_bits));
        }
        for (const Region& other : regions) {
            if (&other < &region && other.bank == region.bank && region.base <= other.last &&
                other.base <= region.last) {
                add(lint, "region", region.item->line, Severity::Error,
                    where + ": " + address_text(std::max(region.base, other.base)) + "-" +
                        address_text(std::min(region.last, other.last)) + " belongs to " +
                        other.item->key + ", which comes first");
            }
        }
    }
}

/// An address is looked for in all banks.
void check_gaps(Lint& lint, std::vector<Region> regions, std::uint64_t top) {
    std::ranges::sort(regions, {}, &Region::base);
    std::uint64_t next = 0;
    const auto tell = [&](const Region& region, std::uint64_t end) {
        if (next < end) {
            add(lint, "region", region.item->line, Severity::Note,
                address_text(next) + "-" + address_text(end - 1) +
                    " belongs to no region and is never accessed");
        }
    };
    for (const Region& region : regions) {
        tell(region, region.base);
        next = std::max(next, region.last + 1);
    }
    if (!regions.empty() && top < UINT32_MAX) {
        tell(regions.back(), top + 1);
    }
}

void check_region(Lint& lint) {
    std::vector<Region> regions;
    for (const ScanItem& item : lint.scan.items) {
        if (lint.type == "target" && item.section == "memory" && list_index(item.key) >= 0) {
            read_region(lint, item, regions);
        }
    }
    const long bits = target_bits(lint, "addrbits");
    const std::uint64_t top =
        bits == 8 || bits == 16 || bits == 24 ? (std::uint64_t{1} << bits) - 1 : UINT32_MAX;
    check_regions(lint, regions, top);
    check_gaps(lint, regions, top);
}

// Files that are named -----------------------------------------------------------------------

void check_path(Lint& lint, const ScanItem& item, const std::string& path, Severity severity) {
    if (!lint.file.base.empty() && access((lint.file.base + path).c_str(), R_OK) != 0) {
        add(lint, "file", item.line, severity, place(item) + ": there is no " + path);
    }
}

void check_file(Lint& lint) {
    for (const ScanItem& item : lint.scan.items) {
        const bool listed = list_index(item.key) >= 0;
        if (lint.type == "target" && listed &&
            (item.section == "roms" || item.section == "symbols")) {
            check_path(lint, item, elements(item.value)[0], Severity::Error);
        } else if (lint.type == "target" && item.section == "patches" && item.key == "data" &&
                   !item.value.empty()) {
            check_path(lint, item, item.value, Severity::Error);
        } else if (lint.type == "target" && item.section == "fileserver" && item.key == "root" &&
                   item.value.starts_with('/')) { // another one counts from where a program runs
            std::error_code unknown;
            if (!std::filesystem::is_directory(item.value, unknown)) {
                add(lint, "file", item.line, Severity::Warning,
                    place(item) + ": there is no directory " + item.value);
            }
        } else if (lint.type == "main" && item.key != "num") {
            check_path(lint, item, "config/" + item.value + ".ini",
                       listed ? Severity::Warning : Severity::Error);
        }
    }
    const ScanSection* const charsets = scan_section(lint.scan, "charsets");
    for (const char* const key : {"upasc", "loasc", "upscr", "loscr"}) {
        if (lint.type == "main" && charsets != nullptr &&
            scan_find(lint.scan, "charsets", key) == nullptr) {
            add(lint, "charsets", charsets->line, Severity::Note,
                std::string("[charsets] lacks ") + key + ": pet_" + key + " is used");
        }
    }
}

// Colours ------------------------------------------------------------------------------------

void check_element(Lint& lint, const char* text_key, const char* back_key,
                   const ScanSection& section) {
    const ScanItem* const text = scan_find(lint.scan, "colors", text_key);
    const ScanItem* const back = scan_find(lint.scan, "colors", back_key);
    for (const auto& [item, key] : {std::pair{text, text_key}, {back, back_key}}) {
        if (item == nullptr) {
            add(lint, "colour", section.line, Severity::Warning,
                std::string("no colours for ") + key);
            continue;
        }
        const std::vector<std::string> names = elements(item->value);
        for (const std::string& name :
             std::span(names).first(std::min<std::size_t>(2, names.size()))) {
            if (std::ranges::count(col_names(), name) == 0) {
                add(lint, "colour", item->line, Severity::Error,
                    "unknown colour '" + name + "'" + did_you_mean(name, col_names()));
            }
        }
        if (names.size() != 2) {
            add(lint, "colour", item->line, Severity::Error,
                place(*item) + ": two colours, background and text, are needed");
        }
    }
    if (text != nullptr && back != nullptr &&
        elements(text->value).back() == elements(back->value)[0]) {
        add(lint, "colour", text->line, Severity::Warning,
            std::string(text_key) + " has the colour of " + back_key + ": nothing is seen");
    }
}

void check_colour(Lint& lint) {
    const ScanSection* const section = scan_section(lint.scan, "colors");
    if (lint.type != "colors" || section == nullptr) {
        return;
    }
    std::vector<std::string> keys(std::begin(col_keys), std::end(col_keys));
    for (int i = 0; i < COL_KEYS; i += 2) {
        check_element(lint, col_keys[i], col_keys[i + 1], *section);
    }
    for (const ScanItem& item : lint.scan.items) {
        if (item.section == "colors" && std::ranges::count(keys, item.key) == 0) {
            add(lint, "colour", item.line, Severity::Warning,
                "unknown element '" + item.key + "'" + did_you_mean(item.key, keys));
        }
    }
}

constexpr const char* rule_names[] = {"section", "type",   "desc",  "blank", "tag",      "baud",
                                      "number",  "region", "count", "file",  "charsets", "name",
                                      "colour",  "length", "runon", "dup"};

} // namespace

std::span<const char* const> lint_rules() {
    return rule_names;
}

void lint_file(const LintFile& file, std::vector<LintFinding>& findings) {
    const std::size_t before = findings.size();
    Lint lint{file, lint_scan(file.text), "", findings};
    lint.type = host_name(file.path) == "kx.ini" ? "main" : value_of(lint, "config", "type");
    constexpr void (*checks[])(Lint&) = {
        check_section, check_type,         check_desc,         check_name,
        check_runon,   check_blank,        check_length,       check_dup,
        check_tag,     check_baud,         check_number,       check_count_is_there,
        check_count,   check_charset_rows, check_patches_auto, check_patch_count,
        check_width,   check_region,       check_file,         check_colour};
    for (const auto check : checks) {
        check(lint);
    }
    std::stable_sort(findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
}

} // namespace kx
