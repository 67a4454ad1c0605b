// The symbol table: every symbol hangs in one bucket by address and in one by name.
#include "symfiles/symfiles.h"

#include "core/file_type_ids.h"
#include "symfiles/syms_ini_private.h"
#include "symfiles/syms_vice_private.h"
#include "ui/con.h"
#include "ui/msg.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace kx {

SymTable* sym_store = nullptr;
SymEntry* sym_last_found = nullptr;

namespace {

// Meant: searches of all buckets leave the last one out. What it holds is found by its exact
// address only.
constexpr int SEARCHED_BUCKETS = SYM_BUCKETS - 1;

std::size_t address_hash(std::uint32_t address) {
    return (address >> 2) & 255;
}

std::size_t name_hash(std::string_view name) {
    if (name.empty()) {
        return 0;
    }
    return (4 * std::size_t{static_cast<unsigned char>(name[0])} + name.size() - 1) & 255;
}

std::string_view text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

[[noreturn]] void out_of_memory() {
    con_after_screen("error: not enough memory for symbols\n\r");
    std::exit(1);
}

bool bank_matches(const SymEntry& symbol, std::uint32_t bank) {
    return bank == 0 || symbol.bank == bank;
}

bool range_holds(const SymEntry& symbol, std::uint32_t address) {
    return symbol.address <= address && address <= symbol.end;
}

bool matches(const SymEntry& symbol, std::uint32_t address, std::uint32_t bank,
             std::uint32_t query_flags) {
    const std::uint32_t both = query_flags & symbol.flags;
    if ((both & SYM_BANK) != 0) {
        return symbol.bank == bank; // exactly: here 0 is bank 0
    }
    const bool address_matches =
        (both & SYM_RANGE) != 0 ? range_holds(symbol, address) : symbol.address == address;
    return address_matches && bank_matches(symbol, bank);
}

/// The first symbol of the address buckets `first` to before `last` that the test accepts.
template <typename Test>
SymEntry* find_in_buckets(const SymTable* table, std::size_t first, std::size_t last, Test test) {
    for (std::size_t bucket = first; bucket < last; bucket++) {
        for (SymEntry* symbol = table->by_address[bucket]; symbol != nullptr;
             symbol = symbol->next_addr) {
            if (test(*symbol)) {
                return symbol;
            }
        }
    }
    return nullptr;
}

/// The first symbol of that name in the list from `symbol` on, in any bank for 0.
SymEntry* find_name_from(SymEntry* symbol, std::string_view name, std::uint32_t bank) {
    while (symbol != nullptr && !(symbol->name == name && bank_matches(*symbol, bank))) {
        symbol = symbol->next_name;
    }
    return symbol;
}

/// Puts the bucket's first symbol of that name, if any, into the index of names.
void index_name(SymTable& table, std::string_view name) {
    SymEntry* first = find_name_from(table.by_name[name_hash(name)], name, 0);
    if (first != nullptr && !name.empty()) {
        table.first_by_name[first->name] = first;
    }
}

/// Makes `symbol` the head of a bucket; `prev` and `next` are the links of that kind of bucket.
void push_head(SymEntry*& head, SymEntry& symbol, SymEntry* SymEntry::*prev,
               SymEntry* SymEntry::*next) {
    symbol.*next = head;
    if (head != nullptr) {
        head->*prev = &symbol;
    }
    head = &symbol;
}

SymEntry* new_symbol(SymTable* table, std::uint32_t address, const char* name) {
    try {
        SymEntry& symbol = table->entries.emplace_back();
        symbol.table = table;
        symbol.name = text_or_empty(name);
        push_head(table->by_address[address_hash(address)], symbol, &SymEntry::prev_addr,
                  &SymEntry::next_addr);
        push_head(table->by_name[name_hash(symbol.name)], symbol, &SymEntry::prev_name,
                  &SymEntry::next_name);
        if (!symbol.name.empty()) {
            table->first_by_name[symbol.name] = &symbol; // there was none of this name
        }
        return &symbol;
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

} // namespace

// Building -----------------------------------------------------------------------------------

SymTable* sym_table_new(SymTable** owner) {
    SymTable* table = nullptr;
    try {
        table = std::make_unique<SymTable>().release();
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
    table->owner = owner;
    if (owner != nullptr) {
        *owner = table;
    }
    return table;
}

void sym_table_free(SymTable* table) {
    const std::unique_ptr<SymTable> owned(table);
    if (!owned) {
        return;
    }
    if (owned->owner != nullptr && *owned->owner == table) {
        *owned->owner = nullptr;
    }
    sym_last_found = nullptr; // it may be one of this table's
}

SymEntry* sym_add(SymTable* table, std::uint32_t address, std::uint32_t end, std::uint32_t bank,
                  const char* name, const char* comment, std::uint32_t flags) {
    SymEntry* symbol = sym_find_name(table, name, 0);
    if (symbol == nullptr) {
        symbol = new_symbol(table, address, name);
    }
    // Meant: a symbol that gets another address stays in the bucket of its first one, and look-ups
    // by the new address inherit this.
    sym_set_comment(symbol, comment);
    symbol->address = address;
    symbol->end = end;
    symbol->bank = bank;
    symbol->flags = flags;
    return symbol;
}

void sym_set_name(SymEntry* symbol, const char* text) {
    try {
        std::string old(text_or_empty(text));
        SymTable* table = symbol->table;
        if (table != nullptr) {
            table->first_by_name.erase(symbol->name); // its text goes
        }
        symbol->name.swap(old);
        if (table != nullptr) {
            index_name(*table, old);
            index_name(*table, symbol->name);
        }
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

void sym_set_comment(SymEntry* symbol, const char* text) {
    try {
        symbol->comment = text_or_empty(text);
    } catch (const std::bad_alloc&) {
        std::exit(1); // Meant: without a message, unlike a name.
    }
}

// Looking up ---------------------------------------------------------------------------------

SymEntry* sym_find_addr(const SymTable* table, std::uint32_t address, std::uint32_t bank,
                        std::uint32_t query_flags) {
    const bool everywhere = (query_flags & SYM_RANGE) != 0;
    const std::size_t bucket = address_hash(address);
    return find_in_buckets(
        table, everywhere ? 0 : bucket, everywhere ? SEARCHED_BUCKETS : bucket + 1,
        [=](const SymEntry& symbol) { return matches(symbol, address, bank, query_flags); });
}

SymEntry* sym_find_name(const SymTable* table, const char* name, std::uint32_t bank) {
    const std::string_view wanted = text_or_empty(name);
    const auto found = table->first_by_name.find(wanted); // nameless symbols have no name
    return found == table->first_by_name.end() ? nullptr
                                               : find_name_from(found->second, wanted, bank);
}

int sym_name_for_addr(const SymTable* table, std::uint32_t address, std::uint32_t bank,
                      std::string& dest) {
    dest.clear();
    const auto is_there = [=](const SymEntry& symbol) {
        return symbol.address == address && bank_matches(symbol, bank);
    };
    const std::size_t bucket = address_hash(address);
    SymEntry* symbol = find_in_buckets(table, bucket, bucket + 1, is_there);
    if (symbol != nullptr) {
        dest = symbol->name;
        sym_last_found = symbol;
        return 0;
    }
    // A symbol of exactly this address can still turn up: an update left it in another bucket.
    symbol = find_in_buckets(table, 0, SEARCHED_BUCKETS, [=](const SymEntry& candidate) {
        return is_there(candidate) ||
               ((candidate.flags & SYM_RANGE) != 0 && range_holds(candidate, address) &&
                bank_matches(candidate, bank));
    });
    if (symbol == nullptr) {
        return -1;
    }
    char offset[24];
    std::snprintf(offset, sizeof offset, "+$%04lx",
                  static_cast<unsigned long>(address - symbol->address));
    dest = symbol->name + offset;
    sym_last_found = symbol;
    return 0;
}

// Listing and writing ------------------------------------------------------------------------

namespace {

const char* access_of(const SymEntry& symbol) {
    return (symbol.flags & SYM_READ) != 0        ? "r."
           : (symbol.flags & SYM_WRITE) != 0     ? ".w"
           : (symbol.flags & SYM_READWRITE) != 0 ? "rw"
                                                 : "??";
}

char code_mark(const SymEntry& symbol) {
    return (symbol.flags & SYM_CODE) != 0 ? 'x' : '.';
}

/// Chains all symbols, bucket by bucket, into the listing order.
void build_listing(SymTable* table) {
    SymEntry* last = nullptr;
    table->listed = nullptr;
    for (SymEntry* head : table->by_address) {
        for (SymEntry* symbol = head; symbol != nullptr; symbol = symbol->next_addr) {
            symbol->prev_listed = last;
            symbol->next_listed = nullptr;
            (last == nullptr ? table->listed : last->next_listed) = symbol;
            last = symbol;
        }
    }
}

void list_on_console(const SymEntry& symbol) {
    const unsigned long bank = symbol.bank;
    const unsigned long address = symbol.address;
    con_printf("%s%c", access_of(symbol), code_mark(symbol));
    if (symbol.end != 0) {
        // Meant: `end` counts as a size here and in the other listing, although look-ups take it
        // for the last address.
        const std::uint32_t last = symbol.address + symbol.end - 1;
        con_printf(" %02lx:%06lx-%06lx (%8lx)", bank, address, static_cast<unsigned long>(last),
                   static_cast<unsigned long>(symbol.end));
    } else {
        con_printf(" %02lx:%06lx%18s", bank, address, ""); // as wide as "-%06lx (%8lx)"
    }
    con_printf("%20s", symbol.name.c_str());
    if (!symbol.comment.empty()) {
        con_printf(" [%s]", symbol.comment.c_str());
    }
    con_printf("\n\r");
    if (con_kbhit() != 0) { // this key pauses the listing, the next one lets it go on
        con_getkey();
        con_getkey();
    }
}

void list_to_stream(std::FILE* stream, const SymEntry& symbol) {
    std::fprintf(stream, "%02lx:%06lx %s%c (%lx) %s", static_cast<unsigned long>(symbol.bank),
                 static_cast<unsigned long>(symbol.address), access_of(symbol), code_mark(symbol),
                 static_cast<unsigned long>(symbol.end), symbol.name.c_str());
    if (!symbol.comment.empty()) {
        std::fprintf(stream, " [%s]", symbol.comment.c_str());
    }
    std::fputs("\n\r", stream);
}

} // namespace

void sym_list(std::FILE* stream, SymTable* table) {
    build_listing(table);
    msg_message("sorting of symbols not implemented yet");
    const bool on_console = stream == stdout;
    if (on_console) {
        con_printf("\n\rbank:address-address flags (size) symbol [comment]\n\r");
    } else {
        std::fputs("\n\rbank:address flags (size) symbol [comment]\n\r", stream);
    }
    for (const SymEntry* symbol = table->listed; symbol != nullptr; symbol = symbol->next_listed) {
        if (on_console) {
            list_on_console(*symbol);
        } else {
            list_to_stream(stream, *symbol);
        }
    }
}

int sym_write_vice(const SymTable* table, std::FILE* stream) {
    for (const SymEntry* head : table->by_address) {
        for (const SymEntry* symbol = head; symbol != nullptr; symbol = symbol->next_addr) {
            std::fprintf(stream, "al %06lx .%s\n", static_cast<unsigned long>(symbol->address),
                         symbol->name.c_str());
        }
    }
    return std::fflush(stream) == 0 && std::ferror(stream) == 0 ? 1 : -1;
}

// Files --------------------------------------------------------------------------------------

namespace {

struct SymFormat {
    int type;
    int (*read)(SymTable* table, const std::string& path);
    int (*write)(const SymTable* table, std::FILE* stream); // null: cannot be written
};

constexpr SymFormat formats[] = {
    {.type = FILETYPE_KXSYMS, .read = sym_ini_readfile, .write = nullptr},
    {.type = FILETYPE_VICE, .read = sym_vice_readfile, .write = sym_write_vice},
};

const SymFormat* find_format(int type) {
    for (const SymFormat& format : formats) {
        if (format.type == type) {
            return &format;
        }
    }
    return nullptr;
}

} // namespace

int filehandler_readsymfile(SymTable* table, const std::string& path, int type) {
    msg_info("reading symbols from file %s (type %d)", path.c_str(), type);
    const SymFormat* format = find_format(type);
    if (format == nullptr) {
        msg_error("cannot read symbols from file %s: no symbol file (type %d).", path.c_str(),
                  type);
        return -1;
    }
    try {
        return format->read(table, path);
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

int filehandler_writesymfile(const SymTable* table, std::FILE* stream, int type) {
    msg_info("writing symbols (type %d)\n\r", type);
    const SymFormat* format = find_format(type);
    if (format == nullptr || format->write == nullptr) {
        msg_error("cannot write symbols as files of type %d.", type);
        return -1;
    }
    return format->write(table, stream);
}

} // namespace kx
