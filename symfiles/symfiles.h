// The symbol table: names of target addresses, found by address, range, bank and name.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kx {

constexpr std::uint32_t SYM_RANGE = 4;      // covers the addresses from `address` to `end`
constexpr std::uint32_t SYM_READ = 16;      // register that may be read
constexpr std::uint32_t SYM_WRITE = 32;     // register that may be written
constexpr std::uint32_t SYM_READWRITE = 64; // register that may be both
constexpr std::uint32_t SYM_CODE = 128;     // code entry
constexpr std::uint32_t SYM_BANK = 0x10000; // matches by bank alone when the query asks for it too

constexpr int SYM_BUCKETS = 256;

struct SymTable;

struct SymEntry {
    SymTable* table = nullptr;
    SymEntry* prev_addr = nullptr; // in its address bucket
    SymEntry* next_addr = nullptr;
    SymEntry* prev_name = nullptr; // in its name bucket
    SymEntry* next_name = nullptr;
    SymEntry* prev_listed = nullptr; // in the listing order
    SymEntry* next_listed = nullptr;
    std::string name;    // empty: nameless
    std::string comment; // empty: none
    std::uint32_t address = 0;
    std::uint32_t bank = 0;
    std::uint32_t end = 0; // last address in look-ups of range symbols; listed as the size
    std::uint32_t flags = 0;
};

struct SymTable {
    SymTable** owner = nullptr; // the handle that is set to the table, may be null
    SymEntry* by_address[SYM_BUCKETS] = {};
    SymEntry* by_name[SYM_BUCKETS] = {};
    SymEntry* listed = nullptr;   // head of the listing order
    std::deque<SymEntry> entries; // the symbols themselves: they never move and none is taken out
    /// Of each name the first symbol in its bucket, whose text is the key.
    std::unordered_map<std::string_view, SymEntry*> first_by_name;
};

/// The program's symbol store: made at start, filled with the target's default symbol files.
extern SymTable* sym_store;

/// The symbol that `sym_name_for_addr` found last, null for none yet.
extern SymEntry* sym_last_found;

// Where memory is out, everything below that stores something says so on standard output and ends
// the program with status 1.

/// A new, empty table, also stored in `*owner` unless null. To be freed with sym_table_free.
SymTable* sym_table_new(SymTable** owner);

/// Frees the table and its symbols; null is harmless. The owner's handle is set to null, and so is
/// sym_last_found.
void sym_table_free(SymTable* table);

/// Adds a symbol, or updates the one of that name (of any bank), which keeps its place in the
/// bucket of its first address. The table owns what is returned.
SymEntry* sym_add(SymTable* table, std::uint32_t address, std::uint32_t end, std::uint32_t bank,
                  const char* name, const char* comment, std::uint32_t flags);

/// Replace the text; empty or null leaves the field empty. A name is found under the bucket it was
/// added with. Out of memory for a comment ends the program without a word.
void sym_set_name(SymEntry* symbol, const char* text);
void sym_set_comment(SymEntry* symbol, const char* text);

/// The first symbol at the address; bank 0 means any. With SYM_RANGE in the query range symbols
/// match by their range (but not those whose first address is in the last bucket), with SYM_BANK
/// bank symbols by their bank. Null for none.
SymEntry* sym_find_addr(const SymTable* table, std::uint32_t address, std::uint32_t bank,
                        std::uint32_t query_flags);

/// The first symbol of that name; bank 0 means any. Null for none; a nameless symbol is never
/// found by name.
SymEntry* sym_find_name(const SymTable* table, const char* name, std::uint32_t bank);

/// A printable name for the address: a label, or a label with "+$%04lx". 0, or -1 and an empty
/// `dest`.
int sym_name_for_addr(const SymTable* table, std::uint32_t address, std::uint32_t bank,
                      std::string& dest);

/// Lists the table in bucket order: to standard output through the console, where a key pauses
/// the listing until the next, or as lines to any other stream.
void sym_list(std::FILE* stream, SymTable* table);

/// Writes every symbol as a VICE label line. 1, or -1 when the stream took not all of it.
int sym_write_vice(const SymTable* table, std::FILE* stream);

// Files of symbols. Types are the identifiers of core/file_type_ids.h.

/// Reads a symbol file into the table. 1, or -1 for a file that cannot be read and for a type
/// that holds no symbols we can read (both with an error message).
int filehandler_readsymfile(SymTable* table, const std::string& path, int type);

/// Writes the table in the given type: VICE labels. 1, or -1 for any other type or a failed write.
int filehandler_writesymfile(const SymTable* table, std::FILE* stream, int type);

} // namespace kx
