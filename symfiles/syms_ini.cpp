// The reader of symbol .ini files. One table says what each section's items look like.
#include "symfiles/syms_ini_private.h"

#include "ini/ini.h"
#include "ui/msg.h"
#include "ui/msg_items.h"

#include <cstdlib>
#include <optional>
#include <string_view>

namespace kx {

namespace {

// What stands between an item's address and its comment.
enum class Extra { none, access, last_address };

struct SectionKind {
    const char* name;
    Extra extra;
    std::uint32_t flags;
};

constexpr SectionKind section_kinds[] = {
    {.name = "registers", .extra = Extra::access, .flags = 0},
    {.name = "datazones", .extra = Extra::last_address, .flags = SYM_RANGE},
    {.name = "syscalls", .extra = Extra::none, .flags = SYM_CODE},
    {.name = "labels", .extra = Extra::none, .flags = 0},
};

struct Item {
    std::string name;
    std::uint32_t bank = 0;
    std::uint32_t address = 0;
    std::uint32_t end = 0;
    std::uint32_t flags = 0;
    std::string comment;
};

std::string_view without_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    const std::size_t last = text.find_last_not_of(" \t");
    return first == std::string_view::npos ? "" : text.substr(first, last - first + 1);
}

/// Cuts the text up to the next `separator` off `rest`: the next element, without its blanks.
std::string_view take(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view element = rest.substr(0, end);
    rest = end == std::string_view::npos ? "" : rest.substr(end + 1);
    return without_blanks(element);
}

/// A whole number of 32 bits with base detection. Stricter than the numbers of other .ini files: a
/// mistyped address would become a wrong name all over a listing.
std::optional<std::uint32_t> parse_number(std::string_view text) {
    const std::string number(text);
    if (number.empty() || number[0] < '0' || number[0] > '9') {
        return std::nullopt; // strtoull would take blanks and signs
    }
    char* end = nullptr;
    const unsigned long long value = std::strtoull(number.c_str(), &end, 0);
    if (*end != '\0' || value > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

/// "address" or "bank:address".
bool parse_address(std::string_view text, Item& item) {
    std::optional<std::uint32_t> bank = 0;
    if (text.find(':') != std::string_view::npos) {
        bank = parse_number(take(text, ':'));
    }
    const std::optional<std::uint32_t> address = parse_number(without_blanks(text));
    if (!bank || !address) {
        return false;
    }
    item.bank = *bank;
    item.address = *address;
    return true;
}

bool parse_access(std::string_view text, Item& item) {
    if (text != "r" && text != "w" && text != "rw") {
        return false;
    }
    item.flags |= text == "r" ? SYM_READ : text == "w" ? SYM_WRITE : SYM_READWRITE;
    return true;
}

bool parse_last_address(std::string_view text, Item& item) {
    const std::optional<std::uint32_t> last = parse_number(text);
    item.end = last.value_or(0);
    return last && *last >= item.address;
}

/// The comment is the rest of the value and may hold commas of its own.
bool parse_item(std::string_view value, const SectionKind& kind, Item& item) {
    item.flags = kind.flags;
    item.name = take(value, ',');
    if (item.name.empty() || !parse_address(take(value, ','), item)) {
        return false;
    }
    if (kind.extra == Extra::access && !parse_access(take(value, ','), item)) {
        return false;
    }
    if (kind.extra == Extra::last_address && !parse_last_address(take(value, ','), item)) {
        return false;
    }
    item.comment = without_blanks(value);
    return true;
}

void read_section(SymTable* table, const IniDocument& doc, const std::string& path,
                  const SectionKind& kind) {
    const int num = msg_items_count(doc, kind.name);
    for (int i = 0; i < num; i++) {
        const std::string key = "n" + std::to_string(i);
        std::string value;
        if (ini_get_string(doc, value, kind.name, key) != 0) {
            msg_error("%s: item %s in section %s is missing, the section's rest is left out.",
                      path.c_str(), key.c_str(), kind.name);
            return; // not an error line for each of a `num` that is far too high
        }
        Item item;
        if (!parse_item(value, kind, item)) {
            msg_error("%s: item %s in section %s is malformed.", path.c_str(), key.c_str(),
                      kind.name);
            continue;
        }
        sym_add(table, item.address, item.end, item.bank, item.name.c_str(), item.comment.c_str(),
                item.flags);
    }
}

} // namespace

int sym_ini_readfile(SymTable* table, const std::string& path) {
    IniDocument doc;
    if (ini_read(path, doc) != 0) {
        msg_error("couldn't read symbol file %s.", path.c_str());
        return -1;
    }
    std::string missing;
    std::size_t found = 0;
    for (const SectionKind& kind : section_kinds) {
        if (ini_find_section(doc, kind.name) == nullptr) {
            missing += (missing.empty() ? "" : " ") + std::string(kind.name);
            continue;
        }
        read_section(table, doc, path, kind);
        found++;
    }
    if (found == 0) {
        msg_error("%s is missing sections: %s", path.c_str(), missing.c_str());
        return -1;
    }
    if (!missing.empty()) {
        msg_warning("%s is missing sections: %s", path.c_str(), missing.c_str());
    }
    return 1;
}

} // namespace kx
