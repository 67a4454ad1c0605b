// Symbols for verbs: files of either format, and names of addresses.
#pragma once

#include "symfiles/symfiles.h"

#include <string>

namespace kx {

/// A table that is freed with its owner.
struct SymbolSet {
    SymTable* table = sym_table_new(nullptr);

    SymbolSet() = default;
    ~SymbolSet() { sym_table_free(table); }
    SymbolSet(const SymbolSet&) = delete;
    SymbolSet& operator=(const SymbolSet&) = delete;
};

/// Adds a file's symbols: symbol .ini files by their ending, VICE labels by what they hold. 0, or
/// the exit status of the failure, which has been reported.
int symbols_read(SymTable* table, const std::string& path);

/// "CHROUT", or "SCREEN+17" for an address within a range or next behind a symbol that is less than
/// 256 bytes away; empty for none.
std::string symbols_name(const SymTable* table, std::uint32_t address);

} // namespace kx
