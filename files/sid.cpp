// PlaySID tunes: the header, and what is sent of the file.
#include "files/sid_private.h"

#include "files/transfer_private.h"
#include "ui/msg.h"
#include "util/bytes.h"

namespace kx {

namespace {

constexpr char CANNOT_OPEN[] = "Failed to open input sid file '%s'";

struct Tune {
    long offset; // of the program in the file
    long length; // of the program
    std::uint32_t load;
    std::uint32_t init;
    std::uint32_t play;
};

// Null, or what is wrong with the file.
const char* read_tune(const ProgramFile& input, Tune& tune) {
    constexpr long FIELDS_END = 14; // the last field read is the play address at 12
    std::uint8_t header[FIELDS_END];
    if (!transfer_read(input, 0, header)) {
        return "is too short for a sid file: its header is cut.";
    }
    tune = {.offset = get16be(header + 6),
            .length = 0,
            .load = get16be(header + 8),
            .init = get16be(header + 10),
            .play = get16be(header + 12)};
    std::uint8_t first[2];
    const bool inside = tune.offset >= FIELDS_END && transfer_read(input, tune.offset, {first, 1});
    if (!inside) {
        return "is a damaged sid file: its data offset leaves the file.";
    }
    if (tune.load == 0) { // the load address stands before the program, like a prg file's
        if (!transfer_read(input, tune.offset, first)) {
            return "is a damaged sid file: it has no load address.";
        }
        tune.load = get16le(first);
        tune.offset += 2;
    }
    tune.length = input.size - tune.offset;
    return nullptr;
}

} // namespace

long sid_send(const ProgramFile& input) {
    Tune tune{};
    if (!transfer_is_open(input, CANNOT_OPEN)) {
        return -1;
    }
    if (const char* problem = read_tune(input, tune)) {
        return transfer_refuse(input.name, problem);
    }
    const std::uint64_t end = tune.load + static_cast<std::uint64_t>(tune.length);
    if (end > 0xFFFF) { // Meant: also for a tune that ends exactly at the top.
        msg_warning("end >0xffff");
    }
    progress_begin("sending %s (%04lx:%04lx:%04lx-%04lx:%04lx) ...", input.name.c_str(),
                   static_cast<unsigned long>(tune.init), static_cast<unsigned long>(tune.play),
                   static_cast<unsigned long>(tune.load), static_cast<unsigned long>(end),
                   static_cast<unsigned long>(tune.length));
    const TransferPiece piece = {tune.offset, tune.load, end};
    if (transfer_send(input, {&piece, 1}, tune.init) != 1) {
        msg_error("Failed to send sid file '%s'", input.name.c_str());
        return -1;
    }
    transfer_add_entry(tune.init);
    transfer_add_entry(tune.play);
    return tune.length;
}

long sid_send(const std::string& path) {
    return sid_send(program_open(path));
}

std::uint32_t sid_start_address(const ProgramFile& input) {
    Tune tune{};
    return transfer_is_open(input, CANNOT_OPEN) && read_tune(input, tune) == nullptr ? tune.init
                                                                                     : 0;
}

int sid_list_base(std::FILE* out, const std::string& path) {
    const ProgramFile input = program_open(path);
    Tune tune{};
    if (!transfer_is_open(input, CANNOT_OPEN)) {
        return -1;
    }
    if (const char* problem = read_tune(input, tune)) {
        transfer_refuse(input.name, problem);
        return -1;
    }
    std::fprintf(out, "\n; Base Address: 0x%04lx\n", static_cast<unsigned long>(tune.load));
    return 1;
}

} // namespace kx
