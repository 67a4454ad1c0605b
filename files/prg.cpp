// Commodore programs: where they go, where they start, to and from the target.
#include "files/prg_private.h"

#include "files/transfer_private.h"
#include "ui/msg.h"
#include "util/bytes.h"

namespace kx {

namespace {

constexpr long HEADER = 2; // the load address
constexpr std::uint32_t BASIC_START = 0x0801;
constexpr std::uint32_t BASIC_RUN = 0xA7AE; // the interpreter's run entry

// The first byte behind a BASIC program of one line, which ends with a zero and a link of zero: an
// address. 0 when the program goes on, and when its link leaves the file.
std::uint32_t behind_basic_line(const ProgramFile& input) {
    // The line's last byte stands before the one that its link points to, and the file's two
    // address bytes before the program.
    constexpr std::uint32_t OFFSET_OF_LINE_END = BASIC_START + 1 - HEADER;
    std::uint8_t bytes[2];
    if (!transfer_read(input, HEADER, bytes)) {
        return 0;
    }
    const std::uint32_t link = get16le(bytes);
    std::uint8_t marker[3];
    if (link < OFFSET_OF_LINE_END ||
        !transfer_read(input, static_cast<long>(link - OFFSET_OF_LINE_END), marker) ||
        marker[0] != 0 || marker[1] != 0 || marker[2] != 0) {
        return 0;
    }
    std::uint32_t address = link + 2;
    while (std::fgetc(input.file.get()) == 0) {
        address++;
    }
    return address;
}

std::uint32_t exec_address(const ProgramFile& input) {
    std::uint8_t header[HEADER];
    if (!transfer_read(input, 0, header)) {
        return 0;
    }
    if (get16le(header) != BASIC_START) {
        return get16le(header);
    }
    const std::uint32_t address = behind_basic_line(input);
    return address != 0 ? address : BASIC_RUN;
}

} // namespace

std::uint32_t prg_exec_address(const ProgramFile& input) {
    return transfer_is_open(input, "Failed to open input exec file '%s'") ? exec_address(input) : 0;
}

long prg_send(const ProgramFile& input, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags) {
    if (input.file == nullptr) {
        return -1;
    }
    std::uint8_t header[HEADER];
    if (!transfer_read(input, 0, header)) {
        return transfer_refuse(input.name, "is too short for a prg file: it has no load address.");
    }
    if (start == 0) {
        start = get16le(header);
        end = 0; // an end without a start means nothing
    }
    if (end == 0) {
        end = start + static_cast<std::uint64_t>(input.size - HEADER);
    } else if (!transfer_is_range(start, end)) {
        return -1;
    }
    const auto length = static_cast<long>(end - start);
    // Meant: one stricter than for raw files, a program that ends exactly at the top is warned
    // about.
    transfer_warn_top(end);
    progress_begin("sending prg %s (%04lx-%04lx:%04lx) ...", input.name.c_str(),
                   static_cast<unsigned long>(start), static_cast<unsigned long>(end),
                   static_cast<unsigned long>(length));
    const TransferPiece piece = {static_cast<long>(flags) + HEADER, start, end};
    return transfer_send(input, {&piece, 1}, exec_address(input)) == 1 ? length : -1;
}

std::uint32_t prg_exec_address(const std::string& path) {
    return prg_exec_address(program_open(path));
}

long prg_send(const std::string& path, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags) {
    return prg_send(program_open(path), start, end, flags);
}

long prg_get(const std::string& path, std::uint32_t start, std::uint64_t end) {
    const std::string name = transfer_trim(path);
    if (!transfer_is_range(start, end) ||
        !transfer_can_write(name, "Failed to open output prg file '%s'")) {
        return -1;
    }
    transfer_warn_top(end);
    progress_begin("getting prg file '%s' (%08lx-%08lx:%04lx)...", name.c_str(),
                   static_cast<unsigned long>(start), static_cast<unsigned long>(end),
                   static_cast<unsigned long>(end - start));
    std::uint8_t header[HEADER];
    put16le(header, start);
    return transfer_get(name, header, start, end);
}

} // namespace kx
