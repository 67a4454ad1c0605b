// PC-Engine images, to the target.
#include "files/pce_private.h"

#include "files/transfer_private.h"
#include "ui/msg.h"
#include "util/bytes.h"

namespace kx {

namespace {

constexpr char CANNOT_OPEN[] = "Failed to open input pce file '%s'";

constexpr TransferPiece pieces[] = {
    {0, 0xE000, 0x10000, "sending pce file %s (%04lx-%04lx:%04lx) ..."},
    {8192, 0x6000, 0xE000, "sending %s (%04lx-%04lx:%04lx) ..."},
};
constexpr long LENGTH = 40960; // of both

constexpr long VECTORS = 5; // IRQ 2, IRQ 1, timer, NMI, reset: the last bytes of the first piece
constexpr long VECTORS_OFFSET = 8192 - 2 * VECTORS;
constexpr long RESET_OFFSET = 8190;

} // namespace

long pce_send(const ProgramFile& input) {
    if (!transfer_is_open(input, CANNOT_OPEN)) {
        return -1;
    }
    std::uint8_t vectors[2 * VECTORS];
    if (input.size < LENGTH || !transfer_read(input, VECTORS_OFFSET, vectors)) {
        return transfer_refuse(input.name, "is too short for a pce file: it has less than 40 KiB.");
    }
    progress_begin("sending pce file '%s'...", input.name.c_str());
    if (transfer_send(input, pieces, get16le(vectors + 2 * (VECTORS - 1))) != 1) {
        // Meant: it says "prg".
        std::fprintf(stderr, "Failed to send prg file '%s'\n\r", input.name.c_str());
        return -1;
    }
    for (long i = 0; i < VECTORS; i++) {
        transfer_add_entry(get16le(vectors + 2 * i));
    }
    return LENGTH;
}

long pce_send(const std::string& path) {
    return pce_send(program_open(path));
}

std::uint32_t pce_start_address(const ProgramFile& input) {
    std::uint8_t reset[2];
    return transfer_is_open(input, CANNOT_OPEN) && transfer_read(input, RESET_OFFSET, reset)
               ? get16le(reset)
               : 0;
}

int pce_get(const std::string& path) {
    const std::string name = transfer_trim(path);
    progress_begin("getting pce file '%s'...", name.c_str());
    const int result = file_replace(name, "") == 0 ? 1 : -1;
    progress_end(result);
    return result == 1 ? 1 : static_cast<int>(transfer_refuse(name, "could not be written."));
}

} // namespace kx
