// INI documents. Reading makes plain lists of views into the text; indexes beside the lists keep
// every search short, so that the time grows with the file and not with its square.
#include "ini/ini.h"

#include "util/ascii.h"
#include "util/file.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <exception>
#include <utility>

namespace kx {

namespace {

void report_to_stdout(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

struct State {
    void (*report)(const char* text) = report_to_stdout;
    Failure last; // of reading
};
State state;

/// Reports `before`, a name from outside with its control characters made harmless, and `after`.
void report(std::string_view before, std::string_view name, std::string_view after) {
    state.report((std::string(before) + ascii_escape(name) + std::string(after)).c_str());
}

[[noreturn]] void end_without_section(const IniDocument& doc, std::string_view section) {
    // Meant: "couldnt" without its apostrophe, unlike in the warning of `ini_read`. Users and their
    // scripts look for both.
    report("error in ini file " + ascii_escape(doc.file_name) + ": couldnt find section ", section,
           "\n");
    std::exit(-1);
}

[[noreturn]] void end_without_memory() {
    state.report("error: couldn't allocate memory.\n");
    std::exit(-1);
}

/// What is kept of a name or text: all up to its first NUL, at most `max` characters.
std::string_view kept(std::string_view text, std::size_t max = std::string_view::npos) {
    return text.substr(0, std::min(text.find('\0'), max));
}

// The pool ------------------------------------------------------------------------------------

/// Room for `count` objects in the document's pool.
template <typename Object>
Object* take_room(IniDocument& doc, std::size_t count) {
    try {
        if (doc.pool == nullptr) {
            doc.pool = std::make_unique<IniPool>();
        }
        return std::pmr::polymorphic_allocator<Object>(doc.pool.get()).allocate(count);
    } catch (const std::bad_alloc&) {
        end_without_memory();
    }
}

/// A record in the document's pool. It is never destroyed, so it must own nothing.
template <typename Record>
Record* new_record(IniDocument& doc) {
    static_assert(std::is_trivially_destructible_v<Record>);
    return std::construct_at(take_room<Record>(doc, 1));
}

/// A copy of `text` in the document's pool.
std::string_view stored(IniDocument& doc, std::string_view text) {
    char* copy = take_room<char>(doc, text.size());
    std::ranges::copy(text, copy);
    return {copy, text.size()};
}

void add_comment(IniDocument& doc, IniComments& comments, std::string_view text) {
    auto* comment = new_record<IniComment>(doc);
    comment->text = stored(doc, kept(text));
    comments.append(comment);
}

// Tables --------------------------------------------------------------------------------------

std::uint32_t hash_of(std::string_view name) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
}

/// The slot of the record of that name, or else the free one where it belongs.
template <typename Record>
Record*& find_slot(std::span<Record*> slots, std::uint32_t hash, std::string_view name) {
    for (std::size_t i = hash;; i++) {
        Record*& slot = slots[i & (slots.size() - 1)];
        if (slot == nullptr || (slot->hash == hash && slot->name == name)) {
            return slot;
        }
    }
}

template <typename Record>
Record* find_record(const IniTable<Record>& table, std::string_view name) {
    return table.empty() ? nullptr : find_slot(table.slots, hash_of(name), name);
}

/// A new record at the table's end, not yet in its index. The name must be the pool's.
template <typename Record>
Record* append_record(IniDocument& doc, IniTable<Record>& table, std::string_view name) {
    auto* record = new_record<Record>(doc);
    record->name = name;
    record->hash = hash_of(name);
    table.append(record);
    table.count++;
    return record;
}

// What a name that comes again adds to its first record: the last value wins, and a section goes
// on.
void merge(IniItem& first, const IniItem& again) {
    first.value = again.value;
}

void merge(IniSection& first, const IniSection& again) {
    first.items.append(again.items);
    first.items.count += again.items.count;
}

/// Makes the index of a table, with room to grow, and merges records of the same name. Reading
/// does this once for a whole list, which is much faster than a search for every line.
template <typename Record>
void index_table(IniDocument& doc, IniTable<Record>& table) {
    const std::size_t size = std::bit_ceil(table.count + table.count / 2 + 1);
    IniTable<Record> indexed;
    indexed.slots = {take_room<Record*>(doc, size), size};
    std::ranges::fill(indexed.slots, nullptr);
    Record* next = nullptr;
    for (Record* record = table.first; record != nullptr; record = next) {
        next = std::exchange(record->next, nullptr);
        Record*& slot = find_slot(indexed.slots, record->hash, record->name);
        if (slot != nullptr) {
            merge(*slot, *record);
        } else {
            slot = record;
            indexed.append(record);
            indexed.count++;
        }
    }
    table = indexed;
}

/// A new record of a name that the table does not hold.
template <typename Record>
Record* add_record(IniDocument& doc, IniTable<Record>& table, std::string_view name) {
    Record* record = append_record(doc, table, stored(doc, name));
    if (4 * table.count > 3 * table.slots.size()) {
        index_table(doc, table);
    } else {
        find_slot(table.slots, record->hash, name) = record;
    }
    return record;
}

// Reading ------------------------------------------------------------------------------------

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

/// Takes the item line at `at`; returns where its value ends.
/// Meant: the key runs up to the next "=" wherever that is, line ends included, and a value ends at
/// the first character that is not printable.
std::size_t read_item(IniDocument& doc, std::string_view text, std::size_t at,
                      IniSection* section) {
    const std::size_t equals = std::min(text.find('=', at), text.size());
    const std::size_t value = std::min(equals + 1, text.size());
    std::size_t end = value;
    while (end < text.size() && ascii_is_print(text[end])) {
        end++;
    }
    const std::string_view key = kept(text.substr(at, equals - at), INI_KEY_MAX);
    if (section != nullptr && !key.empty()) {
        append_record(doc, section->items, key)->value =
            kept(text.substr(value, end - value), INI_VALUE_MAX);
    }
    return end;
}

void parse(IniDocument& doc, std::string_view text) {
    IniSection* section = nullptr;
    // Meant: whatever stands before the first "[" is ignored, and that may stand in a comment.
    std::size_t at = text.find('[');
    while (at < text.size()) {
        if (text[at] == '[') {
            const std::size_t end = std::min(text.find(']', at), text.size());
            const std::string_view name =
                kept(text.substr(at + 1, end - at - 1), INI_SECTION_NAME_MAX);
            // "[]" is no section: the items under it are counted, but stored nowhere.
            section = name.empty() ? nullptr : append_record(doc, doc.sections, name);
            at = end;
        } else if (text[at] != ';') {
            at = read_item(doc, text, at, section);
            doc.item_count++;
        }
        while (at < text.size() && !is_line_end(text[at])) {
            at++;
        }
        // Meant: leading blanks are no part of a line; a tab is, and begins a key.
        while (at < text.size() && (is_line_end(text[at]) || text[at] == ' ')) {
            at++;
        }
    }
    index_table(doc, doc.sections);
    for (IniSection& listed : doc.sections) {
        index_table(doc, listed.items);
    }
}

int read_failed(const Failure& why, std::string_view before, std::string_view name,
                std::string_view after) {
    state.last = why;
    report(before, name, after);
    return -1;
}

/// Reads the file into a new pool, with room for what will be made of it. 0, or -1 with a report.
int read_text(const std::string& file_name, std::unique_ptr<IniPool>& pool,
              std::string_view& text) {
    constexpr std::size_t records_per_text = 4; // how much more than the text its records take
    const FilePtr file = file_open(file_name, "rb");
    const long size = file != nullptr ? file_size(file.get()) : -1;
    const Failure empty = {"read", FailureKind::Ended, 0};
    if (size == 0) {
        return read_failed(empty, "warning: .ini file ", file_name, " is 0 byte long\n");
    }
    long got = -1;
    if (size > 0) {
        const auto room = static_cast<std::size_t>(size);
        pool = std::make_unique<IniPool>(room * (1 + records_per_text));
        char* bytes = std::pmr::polymorphic_allocator<char>(pool.get()).allocate(room);
        got = file_read(file.get(), {reinterpret_cast<std::uint8_t*>(bytes), room});
        text = {bytes, static_cast<std::size_t>(std::max(got, 0L))};
    }
    if (got <= 0) { // of 0 it has become empty in between
        return read_failed(got < 0 ? file_last_error() : empty, "warning: couldn't find .ini file ",
                           file_name, "\n");
    }
    return 0;
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

std::string comment_line(std::string_view text) {
    if (text == "#") {
        return ";" + std::string(78, '#') + "\n";
    }
    if (text == "-") {
        return ";# " + std::string(76, '-') + "\n";
    }
    if (text.size() < 2) {
        return ""; // Meant: any other single character is no comment.
    }
    return (text.starts_with(';') ? ";" : ";# ") + std::string(text) + "\n";
}

std::string comment_lines(const IniComments& comments) {
    std::string lines;
    for (const IniComment& comment : comments) {
        lines += comment_line(comment.text);
    }
    return lines;
}

} // namespace

void ini_set_reporter(void (*report)(const char* text)) {
    state.report = report != nullptr ? report : report_to_stdout;
}

void ini_create(IniDocument& doc, std::string_view file_name) {
    std::string name(kept(file_name, INI_FILE_NAME_MAX)); // may be the document's own
    ini_free(doc);
    doc.file_name = std::move(name);
}

void ini_free(IniDocument& doc) {
    doc.file_name.clear();
    doc.sections = {};
    doc.comments = {};
    doc.pool.reset();
    doc.item_count = 0;
}

IniSection* ini_add_section(IniDocument& doc, std::string_view name) {
    name = kept(name, INI_SECTION_NAME_MAX);
    if (name.empty()) {
        return nullptr;
    }
    IniSection* found = ini_find_section(doc, name);
    return found != nullptr ? found : add_record(doc, doc.sections, name);
}

IniItem* ini_set_item(IniDocument& doc, std::string_view section, std::string_view key,
                      std::string_view value) {
    IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    key = kept(key, INI_KEY_MAX);
    if (found == nullptr || key.empty()) {
        return nullptr;
    }
    IniItem* item = ini_find_item(*found, key);
    if (item == nullptr) {
        item = add_record(doc, found->items, key);
    }
    item->value = stored(doc, kept(value, INI_VALUE_MAX));
    return item;
}

int ini_add_comment(IniDocument& doc, std::string_view text) {
    add_comment(doc, doc.comments, text);
    return 0;
}

int ini_add_section_comment(IniDocument& doc, std::string_view section, std::string_view text) {
    IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    if (found == nullptr) {
        return -1;
    }
    add_comment(doc, found->comments, text);
    return 0;
}

int ini_add_item_comment(IniDocument& doc, std::string_view section, std::string_view key,
                         std::string_view text) {
    const IniSection* found = ini_find_section(doc, kept(section, INI_SECTION_NAME_MAX));
    IniItem* item = found != nullptr ? ini_find_item(*found, kept(key, INI_KEY_MAX)) : nullptr;
    if (item == nullptr) {
        return -1;
    }
    add_comment(doc, item->comments, text);
    return 0;
}

IniSection* ini_find_section(const IniDocument& doc, std::string_view name) {
    return find_record(doc.sections, name);
}

IniItem* ini_find_item(const IniSection& section, std::string_view key) {
    return find_record(section.items, key);
}

int ini_get_string(const IniDocument& doc, std::string& dest, std::string_view section,
                   std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    dest = item != nullptr ? item->value : std::string_view();
    return item != nullptr ? 0 : -1;
}

std::uint32_t ini_get_number(const IniDocument& doc, std::string_view section,
                             std::string_view key) {
    const IniItem* item = find_or_end(doc, section, key);
    return item != nullptr ? static_cast<std::uint32_t>(
                                 std::strtoull(std::string(item->value).c_str(), nullptr, 0))
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
    try {
        std::unique_ptr<IniPool> pool;
        std::string_view text;
        if (read_text(file_name, pool, text) != 0) {
            return -1;
        }
        ini_create(doc, file_name);
        doc.pool = std::move(pool);
        parse(doc, text);
        return 0;
    } catch (const std::exception&) { // what the standard library throws without memory
        end_without_memory();
    }
}

const Failure& ini_last_error() {
    return state.last;
}

void ini_reset() {
    state = {};
}

int ini_write(const std::string& file_name, const IniDocument& doc) {
    try {
        std::string text = comment_lines(doc.comments);
        for (const IniSection& section : doc.sections) {
            text.append(comment_lines(section.comments));
            text.append("[").append(section.name).append("]\n");
            for (const IniItem& item : section.items) {
                text.append(comment_lines(item.comments)).append(item.name).append("=");
                text.append(item.value).append("\n");
            }
        }
        return file_replace(file_name, text);
    } catch (const std::bad_alloc&) {
        end_without_memory();
    }
}

int ini_write_comments(std::FILE* stream, const IniComments& comments) {
    std::fputs(comment_lines(comments).c_str(), stream);
    return 0;
}

} // namespace kx
