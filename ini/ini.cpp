// INI documents. The lists are searched through an index, so that reading grows with the file and
// not with its square; the order of the lists is what a file shows.
#include "ini/ini.h"

#include "ini/ascii.h"
#include "ini/file.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace kx {

namespace {

void report_to_stdout(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

struct Module {
    void (*report)(const char* text) = report_to_stdout;
} module;

/// Reports `before`, a name from outside with its control characters made harmless, and `after`.
void report(std::string_view before, std::string_view name, std::string_view after) {
    module.report((std::string(before) + ascii_escape(name) + std::string(after)).c_str());
}

[[noreturn]] void end_without_section(const IniDocument& doc, std::string_view section) {
    // "couldnt" stands without its apostrophe, unlike in the warning of `ini_read`: both are what
    // users and their scripts look for.
    report("error in ini file " + ascii_escape(doc.file_name) + ": couldnt find section ", section,
           "\n");
    std::exit(-1);
}

/// What is kept of a name or text: all up to its first NUL, at most `max` characters.
std::string_view kept(std::string_view text, std::size_t max = std::string_view::npos) {
    return text.substr(0, std::min(text.find('\0'), max));
}

/// Sets a key that is `kept`, and not empty, in a section.
IniItem* set_item(IniSection& section, std::string_view key, std::string_view value) {
    IniItem* item = ini_find_item(section, key);
    if (item == nullptr) {
        item = &section.items.emplace_back();
        item->name = key;
        section.by_name.emplace(item->name, item);
    }
    item->value = kept(value, INI_VALUE_MAX);
    return item;
}

// Reading ------------------------------------------------------------------------------------

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

/// Takes the item line at `at`; returns where its value ends. The key runs up to the next "="
/// wherever that is, line ends included; a value ends at the first character that is not printable.
std::size_t read_item(std::string_view text, std::size_t at, IniSection* section) {
    const std::size_t equals = std::min(text.find('=', at), text.size());
    const std::size_t value = std::min(equals + 1, text.size());
    std::size_t end = value;
    while (end < text.size() && ascii_is_print(text[end])) {
        end++;
    }
    const std::string_view key = kept(text.substr(at, equals - at), INI_KEY_MAX);
    if (section != nullptr && !key.empty()) {
        set_item(*section, key, text.substr(value, end - value));
    }
    return end;
}

void read_text(std::string_view text, IniDocument& doc) {
    IniSection* section = nullptr;
    std::size_t at = text.find('['); // whatever stands before the first section is ignored
    while (at < text.size()) {
        if (text[at] == '[') {
            const std::size_t end = std::min(text.find(']', at), text.size());
            // Null for "[]": the items under it are counted, but stored nowhere.
            section = ini_add_section(doc, text.substr(at + 1, end - at - 1));
            at = end;
        } else if (text[at] != ';') {
            at = read_item(text, at, section);
            doc.item_count++;
        }
        while (at < text.size() && !is_line_end(text[at])) {
            at++;
        }
        // Leading blanks are no part of a line; a tab is, and begins a key.
        while (at < text.size() && (is_line_end(text[at]) || text[at] == ' ')) {
            at++;
        }
    }
}

/// The file's bytes. False when it cannot be read; `text` is empty when there is nothing in it.
bool read_bytes(const std::string& file_name, std::string& text) {
    const FilePtr file = file_open(file_name, "rb");
    const long size = file != nullptr ? file_size(file.get()) : -1;
    if (size < 0) {
        return false;
    }
    text.resize(static_cast<std::size_t>(size));
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return std::ferror(file.get()) == 0;
}

// Looking up ---------------------------------------------------------------------------------

const IniSection& section_or_end(const IniDocument& doc, std::string_view name) {
    const IniSection* section = ini_find_section(doc, name);
    if (section == nullptr) {
        end_without_section(doc, name);
    }
    return *section;
}

const IniItem* find_or_end(const IniDocument& doc, std::string_view section, std::string_view key) {
    return ini_find_item(section_or_end(doc, section), key);
}

/// Calls `take(index, element)` for at most `max` elements of a list; returns their number.
template <typename Take>
int take_elements(std::string_view list, std::size_t max, const Take& take) {
    std::size_t taken = 0;
    std::size_t at = 0;
    while (at < list.size() && taken < max) {
        while (at < list.size() && !ascii_is_graph(list[at])) {
            at++;
        }
        const std::size_t comma = std::min(list.find(',', at), list.size());
        take(taken++, list.substr(at, comma - at));
        at = comma + 1; // so a comma at the very end begins no element
    }
    return static_cast<int>(taken);
}

// Writing ------------------------------------------------------------------------------------

std::string comment_line(const std::string& text) {
    if (text == "#") {
        return ";" + std::string(78, '#') + "\n";
    }
    if (text == "-") {
        return ";# " + std::string(76, '-') + "\n";
    }
    if (text.size() < 2) {
        return "";
    }
    return (text.starts_with(';') ? ";" : ";# ") + text + "\n";
}

std::string comment_lines(const IniComments& comments) {
    std::string lines;
    for (const std::string& text : comments) {
        lines += comment_line(text);
    }
    return lines;
}

} // namespace

void ini_set_reporter(void (*report)(const char* text)) {
    module.report = report != nullptr ? report : report_to_stdout;
}

void ini_create(IniDocument& doc, std::string_view file_name) {
    std::string name(kept(file_name, INI_FILE_NAME_MAX)); // may be the document's own
    ini_free(doc);
    doc.file_name = std::move(name);
}

void ini_free(IniDocument& doc) {
    doc.file_name.clear();
    doc.by_name.clear();
    doc.sections.clear();
    doc.comments.clear();
    doc.item_count = 0;
}

IniSection* ini_add_section(IniDocument& doc, std::string_view name) {
    name = kept(name, INI_SECTION_NAME_MAX);
    if (name.empty()) {
        return nullptr;
    }
    IniSection* section = ini_find_section(doc, name);
    if (section == nullptr) {
        section = &doc.sections.emplace_back();
        section->name = name;
        doc.by_name.emplace(section->name, section);
    }
    return section;
}

IniItem* ini_set_item(IniDocument& doc, std::string_view section, std::string_view key,
                      std::string_view value) {
    IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    key = kept(key, INI_KEY_MAX);
    return found != nullptr && !key.empty() ? set_item(*found, key, value) : nullptr;
}

int ini_add_comment(IniDocument& doc, std::string_view text) {
    doc.comments.emplace_back(kept(text));
    return 0;
}

int ini_add_section_comment(IniDocument& doc, std::string_view section, std::string_view text) {
    IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    if (found == nullptr) {
        return -1;
    }
    found->comments.emplace_back(kept(text));
    return 0;
}

int ini_add_item_comment(IniDocument& doc, std::string_view section, std::string_view key,
                         std::string_view text) {
    const IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    IniItem* item = found != nullptr ? ini_find_item(*found, kept(key, INI_KEY_MAX)) : nullptr;
    if (item == nullptr) {
        return -1;
    }
    item->comments.emplace_back(kept(text));
    return 0;
}

IniSection* ini_find_section(const IniDocument& doc, std::string_view name) {
    const auto found = doc.by_name.find(name);
    return found != doc.by_name.end() ? found->second : nullptr;
}

IniItem* ini_find_item(const IniSection& section, std::string_view key) {
    const auto found = section.by_name.find(key);
    return found != section.by_name.end() ? found->second : nullptr;
}

int ini_get_string(const IniDocument& doc, std::string& dest, std::string_view section,
                   std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    dest = item != nullptr ? item->value : "";
    return item != nullptr ? 0 : -1;
}

std::uint32_t ini_get_number(const IniDocument& doc, std::string_view section,
                             std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    return item != nullptr
               ? static_cast<std::uint32_t>(std::strtoull(item->value.c_str(), nullptr, 0))
               : 0;
}

int ini_get_string_list(const IniDocument& doc, std::span<std::string> dest,
                        std::string_view section, std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    if (item == nullptr) {
        return -1;
    }
    std::ranges::fill(dest, "");
    return take_elements(item->value, dest.size(),
                         [&](std::size_t i, std::string_view text) { dest[i] = text; });
}

int ini_get_number_list(const IniDocument& doc, std::span<std::int32_t> dest,
                        std::string_view section, std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    if (item == nullptr) {
        return 0;
    }
    return take_elements(item->value, dest.size(), [&](std::size_t i, std::string_view text) {
        dest[i] = ini_parse_number(text);
    });
}

int ini_get_byte_array(const IniDocument& doc, std::span<std::uint8_t> dest,
                       std::string_view section, std::string_view stem) {
    const IniSection& found = section_or_end(doc, section);
    std::size_t stored = 0;
    for (int n = 0; stored < dest.size(); n++) {
        const IniItem* item = ini_find_item(found, std::string(stem) + std::to_string(n));
        if (item == nullptr) {
            break; // or a file that holds too little would be searched for ever
        }
        const std::span<std::uint8_t> rest = dest.subspan(stored);
        stored += static_cast<std::size_t>(
            take_elements(item->value, rest.size(), [&](std::size_t i, std::string_view text) {
                rest[i] = static_cast<std::uint8_t>(ini_parse_number(text));
            }));
    }
    return static_cast<int>(stored);
}

std::int32_t ini_parse_number(std::string_view text) {
    return static_cast<std::int32_t>(std::strtoll(std::string(text).c_str(), nullptr, 0));
}

int ini_read(const std::string& file_name, IniDocument& doc) {
    const std::string name = file_name; // may be the document's own
    try {
        std::string text;
        if (!read_bytes(name, text)) {
            report("warning: couldn't find .ini file ", name, "\n");
            return -1;
        }
        if (text.empty()) {
            report("warning: .ini file ", name, " is 0 byte long\n");
            return -1;
        }
        ini_create(doc, name);
        read_text(text, doc);
        return 0;
    } catch (const std::exception&) { // no memory, or a length that no string can have
        module.report("error: couldn't allocate memory.\n");
        std::exit(-1);
    }
}

int ini_write(const std::string& file_name, const IniDocument& doc) {
    std::string text = comment_lines(doc.comments);
    for (const IniSection& section : doc.sections) {
        text += comment_lines(section.comments) + "[" + section.name + "]\n";
        for (const IniItem& item : section.items) {
            text += comment_lines(item.comments) + item.name + "=" + item.value + "\n";
        }
    }
    return file_replace(file_name, text);
}

int ini_write_comments(std::FILE* stream, const IniComments& comments) {
    std::fputs(comment_lines(comments).c_str(), stream);
    return 0;
}

} // namespace kx
