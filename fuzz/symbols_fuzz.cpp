// Symbol files: whatever they hold, every symbol is found, and the labels that are written are read
// again.
#include "fuzz/fuzz.h"

#include "symfiles/symfiles.h"
#include "symfiles/syms_ini.h"
#include "symfiles/syms_vice.h"

namespace kx::fuzz {

void run(const std::uint8_t* data, std::size_t size) {
    put("symbols", {reinterpret_cast<const char*>(data), size});
    SymTable* table = sym_table_new(nullptr);
    SymTable* again = sym_table_new(nullptr);
    if (!ends([&] {
            sym_ini_readfile(table, "symbols");
            sym_vice_readfile(table, "symbols");
        })) {
        for (const SymEntry& symbol : table->entries) {
            if (!symbol.name.empty()) {
                check(sym_find_name(table, symbol.name.c_str(), symbol.bank) == &symbol,
                      "a symbol is found by its name");
            }
        }
        std::FILE* file = std::fopen("labels", "w");
        check(sym_write_vice(table, file) == 1, "labels can be written");
        sym_list(file, table);
        std::fclose(file);
        sym_vice_readfile(again, "labels");
        check(again->entries.size() <= table->entries.size(), "no label is made up");
    }
    sym_table_free(table);
    sym_table_free(again);
}

} // namespace kx::fuzz
