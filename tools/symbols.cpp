// Symbols for verbs.
#include "tools/symbols.h"

#include "core/file_type_ids.h"
#include "tools/host.h"
#include "tools/report.h"
#include "util/fd.h"

#include <algorithm>
#include <cerrno>
#include <sys/mman.h>
#include <sys/stat.h>
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
    struct stat info = {};
    const bool regular = stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    std::vector<std::uint8_t> head;
    if (const int status = host_read_part(path, 0, regular ? HEAD : HOST_FILE_MAX, head)) {
        return status;
    }
    const bool ini = host_ending(path) == "ini";
    if (!ini && !holds_labels(head)) {
        return report_fail(KxError::BadType,
                           path + ": no symbol file: neither .ini nor VICE labels");
    }
    Fd copy; // of what comes through a pipe, and only once
    std::string source = path;
    if (!regular) {
        copy.reset(memfd_create("symbols", MFD_CLOEXEC));
        source = "/proc/self/fd/" + std::to_string(copy.get());
        if (fd_write_all(copy.get(), head) != 0) {
            return host_fail(path, errno);
        }
    }
    return filehandler_readsymfile(table, source, ini ? FILETYPE_KXSYMS : FILETYPE_VICE) == 1
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
