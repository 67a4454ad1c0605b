// Symbols for verbs.
#include "tools/symbols.h"

#include "core/file_type_ids.h"
#include "tools/host.h"
#include "tools/report.h"

#include <algorithm>
#include <vector>

namespace kx {

namespace {

constexpr std::uint32_t NEAR = 256;

/// Whether a label line is among the first ones of the file.
bool holds_labels(const std::vector<std::uint8_t>& bytes) {
    const std::string text(bytes.begin(), bytes.end());
    return text.starts_with("al ") || text.find("\nal ") != std::string::npos;
}

} // namespace

int symbols_read(SymTable* table, const std::string& path) {
    constexpr std::uint64_t HEAD = 4096;
    std::vector<std::uint8_t> head;
    if (const int status = host_read_part(path, 0, HEAD, head)) {
        return status;
    }
    const bool ini = host_ending(path) == "ini";
    if (!ini && !holds_labels(head)) {
        return report_fail(KxError::BadType,
                           path + ": no symbol file: neither .ini nor VICE labels");
    }
    return filehandler_readsymfile(table, path, ini ? FILETYPE_KXSYMS : FILETYPE_VICE) == 1
               ? 0
               : report_fail_library(KxError::BadConfig, "", path + ": no symbols");
}

std::string symbols_name(const SymTable* table, std::uint32_t address) {
    const SymEntry* best = nullptr;
    for (const SymEntry& symbol : table->entries) {
        const bool covers = symbol.address == address || address - symbol.address < NEAR ||
                            ((symbol.flags & SYM_RANGE) != 0 && symbol.end >= address);
        if (!symbol.name.empty() && symbol.address <= address && covers &&
            (best == nullptr || symbol.address > best->address)) {
            best = &symbol;
        }
    }
    if (best == nullptr) {
        return "";
    }
    const std::uint32_t distance = address - best->address;
    return best->name + (distance == 0 ? "" : "+" + std::to_string(distance));
}

} // namespace kx
