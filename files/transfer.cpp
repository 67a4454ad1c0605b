// Transfers of program files, the parts that all formats have in common.
#include "files/transfer_private.h"

#include "core/active_config.h"
#include "link/rate.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "ui/msg.h"
#include "util/ascii.h"

#include <algorithm>
#include <exception>
#include <vector>

namespace kx {

namespace {

struct State {
    LoadedFile loaded;
};
State state;

void record(std::span<const TransferPiece> pieces, std::uint32_t execute) {
    LoadedFile loaded = {pieces[0].start, pieces[0].end, execute};
    for (const TransferPiece& piece : pieces) {
        loaded.start = std::min(loaded.start, piece.start);
        loaded.end = std::max(loaded.end, piece.end);
    }
    state.loaded = loaded;
}

// Before the file is touched: the line is slow, and signals wait while a file is replaced.
int fetch(std::uint32_t start, std::uint64_t length, std::vector<std::uint8_t>& bytes) {
    try {
        bytes.resize(length);
    } catch (const std::exception&) { // out of memory, or more than a vector can ever hold
        msg_error("not enough memory for %llu bytes.", static_cast<unsigned long long>(length));
        return -1;
    }
    constexpr std::size_t PIECE = 0x10000; // so that a 16-bit target's memory is one command
    for (std::size_t at = 0; at < bytes.size(); at += PIECE) {
        const auto piece = std::span(bytes).subspan(at, std::min(PIECE, bytes.size() - at));
        if (mem_read_block(piece, start + static_cast<std::uint32_t>(at)) != 1) {
            return -1;
        }
    }
    return 1;
}

} // namespace

const LoadedFile& file_loaded() {
    return state.loaded;
}

void file_loaded_reset() {
    state = {};
}

std::string transfer_trim(const std::string& path) {
    const auto end = std::find_if(path.begin(), path.end(), ascii_is_control);
    return {path.begin(), end};
}

bool transfer_is_open(const ProgramFile& input, const char* message) {
    if (input.file == nullptr) {
        msg_error(message, input.name.c_str());
    }
    return input.file != nullptr;
}

bool transfer_read(const ProgramFile& input, long offset, std::span<std::uint8_t> bytes) {
    return std::fseek(input.file.get(), offset, SEEK_SET) == 0 &&
           std::fread(bytes.data(), 1, bytes.size(), input.file.get()) == bytes.size();
}

long transfer_refuse(const std::string& name, const char* problem) {
    msg_error("'%s' %s", name.c_str(), problem);
    return -1;
}

bool transfer_is_range(std::uint32_t start, std::uint64_t end) {
    if (start < end && end <= ADDRESS_SPACE) {
        return true;
    }
    msg_error("%08lx-%08lx is no range of addresses.", static_cast<unsigned long>(start),
              static_cast<unsigned long>(end));
    return false;
}

void transfer_warn_top(std::uint64_t address) {
    if (address > mem_top()) {
        msg_warning("end >%08x", mem_top());
    }
}

int transfer_send(const ProgramFile& input, std::span<const TransferPiece> pieces,
                  std::uint32_t execute) {
    std::uint64_t sent = 0;
    int result = 1;
    rate_start();
    for (const TransferPiece& piece : pieces) {
        if (piece.message != nullptr) {
            msg_info(piece.message, input.name.c_str(), static_cast<unsigned long>(piece.start),
                     static_cast<unsigned long>(piece.end - 1),
                     static_cast<unsigned long>(piece.end - piece.start));
        }
        result = mem_write_file(input.file.get(), piece.offset, piece.start, piece.end);
        if (result != 1) {
            break;
        }
        sent += piece.end - piece.start;
    }
    if (result == 1) {
        record(pieces, execute);
        rate_stop_report(static_cast<std::uint32_t>(sent));
    }
    progress_end(result);
    return result;
}

bool transfer_can_write(const std::string& name, const char* message) {
    if (file_can_write(name)) {
        return true;
    }
    msg_error(message, name.c_str());
    return false;
}

long transfer_get(const std::string& name, std::span<const std::uint8_t> header,
                  std::uint32_t start, std::uint64_t end) {
    const std::uint64_t length = end - start;
    std::vector<std::uint8_t> fetched; // nothing of the simulator's memory, which is at hand
    rate_start();
    if (mem_mode != MEM_SIMULATOR && fetch(start, length, fetched) != 1) {
        progress_end(-1);
        return -1;
    }
    rate_stop_report(static_cast<std::uint32_t>(length));
    const auto content = [&](std::uint64_t offset, std::span<std::uint8_t> bytes) {
        const std::size_t in_header = std::min<std::uint64_t>(offset, header.size());
        const auto head =
            header.subspan(in_header, std::min(header.size() - in_header, bytes.size()));
        std::ranges::copy(head, bytes.begin());
        const auto rest = bytes.subspan(head.size());
        const std::uint64_t at = offset + head.size() - header.size();
        if (mem_mode == MEM_SIMULATOR) {
            return mem_read_block(rest, static_cast<std::uint32_t>(start + at)) == 1;
        }
        std::ranges::copy(std::span(fetched).subspan(at, rest.size()), rest.begin());
        return true;
    };
    const bool written = file_replace(name, header.size() + length, content) == 0;
    progress_end(written ? 1 : -1);
    if (!written) {
        return transfer_refuse(name, "could not be written.");
    }
    return static_cast<long>(length);
}

void transfer_add_entry(std::uint32_t address) {
    if (sym_store == nullptr) {
        return;
    }
    if (SymEntry* symbol = sym_find_addr(sym_store, address, 0, 0)) {
        symbol->flags |= SYM_CODE;
        return;
    }
    char name[32];
    char comment[32];
    std::snprintf(name, sizeof name, "entry_%lx", static_cast<unsigned long>(address));
    std::snprintf(comment, sizeof comment, "entrypoint at $%lx",
                  static_cast<unsigned long>(address));
    sym_add(sym_store, address, 0, 0, name, comment, SYM_CODE);
}

} // namespace kx
