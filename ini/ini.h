// INI documents: read from a file, looked up, built in memory, written back as text.
// Every configuration file of the toolkit has this form; what the keys mean is the users' business.
#pragma once

#include "util/failure.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <memory_resource>
#include <span>
#include <string>
#include <string_view>

namespace kx {

constexpr std::size_t INI_SECTION_NAME_MAX = 31; // characters kept of a section's name
constexpr std::size_t INI_KEY_MAX = 63;          // of a key
constexpr std::size_t INI_VALUE_MAX = 255;       // of a value
constexpr std::size_t INI_FILE_NAME_MAX = 259;   // of a document's file name

/// Records in order of creation, linked through their `next`. They lie in the document's pool.
template <typename Record>
struct IniList {
    Record* first = nullptr;
    Record* last = nullptr;

    struct Iterator {
        Record* record;
        Record& operator*() const { return *record; }
        Record* operator->() const { return record; }
        Iterator& operator++() {
            record = record->next;
            return *this;
        }
        bool operator==(const Iterator&) const = default;
    };
    Iterator begin() const { return {first}; }
    Iterator end() const { return {nullptr}; }
    bool empty() const { return first == nullptr; }
    void append(Record* record) {
        (empty() ? first : last->next) = record;
        last = record;
    }
    void append(const IniList& list) {
        if (!list.empty()) {
            append(list.first);
            last = list.last;
        }
    }
};

/// Such a list of records with names, and an index of the names.
template <typename Record>
struct IniTable : IniList<Record> {
    std::size_t count = 0;
    std::span<Record*> slots; // a hash table: a power of two of them, at least a quarter null
};

/// Lines written before what they belong to; see `ini_write_comments` for their forms.
struct IniComment {
    IniComment* next = nullptr;
    std::string_view text;
};
using IniComments = IniList<IniComment>;

struct IniItem {
    IniItem* next = nullptr;
    std::string_view name; // the key
    std::string_view value;
    IniComments comments;
    std::uint32_t hash = 0; // of the name
};

struct IniSection {
    IniSection* next = nullptr;
    std::string_view name;
    IniComments comments;
    IniTable<IniItem> items;
    std::uint32_t hash = 0; // of the name
};

/// Memory that is taken piece by piece and given back all at once.
using IniPool = std::pmr::monotonic_buffer_resource;

/// One file. Everything that hangs from it, texts included, lies in its pool: it never moves, and
/// pointers to it and views of it stay good until `ini_free`, `ini_create` or `ini_read`; a value
/// that is replaced leaves its room behind until then. Names are unique within their list.
struct IniDocument {
    std::string file_name; // where it was read from or will be written; named in messages
    IniTable<IniSection> sections;
    IniComments comments;          // before the first section
    std::int32_t item_count = 0;   // item lines taken by the last read
    std::unique_ptr<IniPool> pool; // made when it is first needed

    IniDocument() = default;
    IniDocument(const IniDocument&) = delete; // it would share the records
    IniDocument& operator=(const IniDocument&) = delete;
};

/// Where the module's own texts go (one whole message with its line end per call). The default,
/// also for null, writes to standard output. A screen that covers standard output installs
/// itself here, so that a message that ends the program is not lost with the screen.
void ini_set_reporter(void (*report)(const char* text));

// Where memory is out, whatever stores or reads something reports "error: couldn't allocate
// memory.\n" and ends the program with status -1.

// Building -----------------------------------------------------------------------------------

/// Empties the document and gives it its file name.
void ini_create(IniDocument& doc, std::string_view file_name);

/// Releases everything that hangs from the document and clears it; it may be used again at once.
void ini_free(IniDocument& doc);

/// The section of that name, made at the end of the list when there is none; null for an empty
/// name. Names are cut to INI_SECTION_NAME_MAX characters.
IniSection* ini_add_section(IniDocument& doc, std::string_view name);

/// Sets the value of `key`. An existing item keeps its place and its comments; a new one goes to
/// the section's end. Null, and nothing stored, for an empty key or section name, and when the
/// document has no such section. Keys and values are cut to INI_KEY_MAX and INI_VALUE_MAX.
IniItem* ini_set_item(IniDocument& doc, std::string_view section, std::string_view key,
                      std::string_view value);

/// Appends a comment line to the file, a section or an item. 0; -1 and nothing added when the
/// section or item does not exist.
int ini_add_comment(IniDocument& doc, std::string_view text);
int ini_add_section_comment(IniDocument& doc, std::string_view section, std::string_view text);
int ini_add_item_comment(IniDocument& doc, std::string_view section, std::string_view key,
                         std::string_view text);

// Looking up ---------------------------------------------------------------------------------

/// Exact, case-sensitive. Null when there is none.
IniSection* ini_find_section(const IniDocument& doc, std::string_view name);
IniItem* ini_find_item(const IniSection& section, std::string_view key);

// A section that is missing is a broken installation, not a default: the getters below then
// report "error in ini file %s: couldnt find section %s\n" and end the program with status -1.
// A missing key never does.

/// 0 and the value, or -1 and an empty `dest` when the key is absent.
int ini_get_string(const IniDocument& doc, std::string& dest, std::string_view section,
                   std::string_view key);

/// The value as a number with base detection (0x.., 0.., decimal), converted in 64 bits, the low
/// 32 kept; text behind the number is ignored. 0 when the key is absent or holds no number.
std::uint32_t ini_get_number(const IniDocument& doc, std::string_view section,
                             std::string_view key);

/// Splits the value at commas into `dest`, at most dest.size() elements; the rest of `dest` is
/// set to empty. The number of elements taken, or -1 (and `dest` untouched) when the key is
/// absent. Blanks before an element are dropped, those after it kept.
int ini_get_string_list(const IniDocument& doc, std::span<std::string> dest,
                        std::string_view section, std::string_view key);

/// The same with each element as a signed number. The number taken, 0 when the key is absent;
/// the rest of `dest` is untouched.
int ini_get_number_list(const IniDocument& doc, std::span<std::int32_t> dest,
                        std::string_view section, std::string_view key);

/// Collects the elements of the items `stem`0, `stem`1, ... as bytes (low 8 bits) until `dest` is
/// full or a numbered item is missing. The number of bytes stored.
int ini_get_byte_array(const IniDocument& doc, std::span<std::uint8_t> dest,
                       std::string_view section, std::string_view stem);

/// `text` as a signed number with base detection, the low 32 bits kept; 0 for no number.
std::int32_t ini_parse_number(std::string_view text);

// Files --------------------------------------------------------------------------------------

/// Reads a file into the document, which is emptied first. 0, or -1 when the file cannot be
/// opened or read ("warning: couldn't find .ini file %s\n") or is empty ("warning: .ini file %s
/// is 0 byte long\n"); the document is then left as it was.
int ini_read(const std::string& file_name, IniDocument& doc);

/// Why the last `ini_read` that failed did: the file's own failure (see util/file.h), or
/// FailureKind::Ended for an empty file.
const Failure& ini_last_error();

/// Forgets it; reports go to standard output again.
void ini_reset();

/// Writes the document; the old file survives whatever goes wrong. 0, or -1 when the file may not
/// be written or could not be written whole; prints nothing.
int ini_write(const std::string& file_name, const IniDocument& doc);

/// Writes one comment list: "#" and "-" become rule lines, other single characters nothing, text
/// beginning with ";" a commented-out example, any other text a comment. Always 0.
int ini_write_comments(std::FILE* stream, const IniComments& comments);

} // namespace kx
