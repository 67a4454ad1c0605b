// kx symbols: lists, finds and converts symbols.
#include "core/active_config.h"
#include "core/config/config.h"
#include "tools/base.h"
#include "tools/discs.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "tools/symbols.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <cstdlib>
#include <fnmatch.h>
#include <sstream>
#include <vector>

namespace kx {

namespace {

struct State {
    std::vector<std::string> files;
    std::string at;
    std::string find;
    std::string to;
};
State state;

constexpr Option options[] = {
    {"[FILE...]", &state.files, "", "symbol .ini files and VICE labels; the target's without one"},
    {"--at", &state.at, "ADDRESS", "what stands there"},
    {"--find", &state.find, "NAME", "symbols of that name; * and ? stand for others"},
    {"--to", &state.to, "vice", "write labels for VICE's monitor, cc65's -Ln"},
};

using Symbols = std::vector<const SymEntry*>;

int read_target(SymTable* table) {
    IniDocument document;
    if (const int status = target_load(document)) {
        return status;
    }
    if (ini_find_section(document, "symbols") == nullptr) {
        return report_fail(KxError::BadConfig, document.file_name + ": no section [symbols]");
    }
    sym_store = table;
    config_load_symbols(active_config.base_dir, document);
    sym_store = nullptr;
    return 0;
}

std::string access_text(const SymEntry& symbol) {
    struct Row {
        std::uint32_t flag;
        const char* text;
    };
    constexpr Row rows[] = {{SYM_READWRITE, "rw"},
                            {SYM_READ, "r"},
                            {SYM_WRITE, "w"},
                            {SYM_CODE, "code"},
                            {SYM_RANGE, "zone"}};
    const auto* row = std::ranges::find_if(
        rows, [&](const Row& each) { return (symbol.flags & each.flag) != 0; });
    return row != std::end(rows) ? row->text : "-";
}

Symbols sorted_symbols(const SymTable* table) {
    Symbols symbols;
    for (const SymEntry& symbol : table->entries) {
        if (state.find.empty() ||
            fnmatch(state.find.c_str(), symbol.name.c_str(), FNM_CASEFOLD) == 0) {
            symbols.push_back(&symbol);
        }
    }
    std::ranges::stable_sort(symbols, {}, [](const SymEntry* symbol) {
        return std::pair(symbol->bank, symbol->address);
    });
    return symbols;
}

std::string place_text(const SymEntry& symbol) {
    const bool zone = (symbol.flags & SYM_RANGE) != 0 && symbol.end > symbol.address;
    return (symbol.bank != 0 ? std::to_string(symbol.bank) + ":" : "") +
           address_text(symbol.address) + (zone ? "-" + address_text(symbol.end) : "");
}

Json symbol_json(const SymEntry& symbol) {
    Json json;
    json.set("name", symbol.name);
    json.set("address", symbol.address);
    json.set("end", std::max(symbol.end, symbol.address));
    json.set("bank", symbol.bank);
    json.set("kind", access_text(symbol));
    json.set("comment", symbol.comment);
    return json;
}

void list(const Symbols& symbols) {
    std::size_t width = 0;
    Json array = Json::array();
    for (const SymEntry* symbol : symbols) {
        width = std::max(width, std::min<std::size_t>(symbol->name.size(), 24));
        array.append(symbol_json(*symbol));
    }
    report_json().set("symbols", std::move(array));
    for (const SymEntry* symbol : symbols) {
        report_line(ascii_escape(discs_trimmed(text_printf(
            "%-11s  %-*s  %-4s  %s", place_text(*symbol).c_str(), static_cast<int>(width),
            symbol->name.c_str(), access_text(*symbol).c_str(), symbol->comment.c_str()))));
    }
}

/// The library's lines, in the order of their addresses.
int write_vice(const SymTable* table) {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* const stream = open_memstream(&text, &length);
    sym_write_vice(table, stream);
    std::fclose(stream);
    std::istringstream lines(text);
    std::free(text);
    std::vector<std::string> sorted;
    for (std::string line; std::getline(lines, line);) {
        sorted.push_back(line);
    }
    std::ranges::sort(sorted);
    for (const std::string& line : sorted) {
        report_line(ascii_escape(line));
    }
    return 0;
}

int tell_address(const SymTable* table) {
    std::uint32_t address = 0;
    std::string error;
    if (parse_address(state.at, table, address, error) != 0) {
        return report_fail(KxError::Usage, "--at: " + error);
    }
    const std::string name = symbols_name(table, address);
    if (name.empty()) {
        return report_fail(KxError::NotFound, address_text(address) + ": no symbol");
    }
    report_json().set("address", address);
    report_json().set("name", name);
    report_line(address_text(address) + " " + ascii_escape(name));
    return 0;
}

int run() {
    const std::string* const wishes[] = {&state.at, &state.find, &state.to};
    if (std::ranges::count_if(wishes, [](const std::string* wish) { return !wish->empty(); }) > 1) {
        return report_fail_usage("--at, --find and --to exclude each other");
    }
    const SymbolSet set;
    if (state.files.empty()) {
        if (const int status = read_target(set.table)) {
            return status;
        }
    }
    for (const std::string& file : state.files) {
        if (const int status = symbols_read(set.table, file)) {
            return status;
        }
    }
    if (!state.at.empty()) {
        return tell_address(set.table);
    }
    const Symbols symbols = sorted_symbols(set.table);
    if (symbols.empty()) {
        return report_fail(KxError::NotFound, state.find.empty()
                                                  ? "there are no symbols"
                                                  : "there is no symbol '" + state.find + "'");
    }
    if (!state.to.empty() && !globals.json) {
        return write_vice(set.table);
    }
    list(symbols);
    return 0;
}

} // namespace

extern const Verb verb_symbols = {
    .name = "symbols",
    .alias = nullptr,
    .synopsis = "[FILE...] [--at ADDRESS | --find NAME | --to vice]",
    .summary = "symbols of the target, or of files",
    .options = options,
    .run = run,
};

} // namespace kx
