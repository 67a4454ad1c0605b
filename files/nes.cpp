// NES cartridges in iNES files: the header, and what is sent of the banks.
#include "files/nes_private.h"

#include "files/transfer_private.h"
#include "ui/msg.h"
#include "util/bytes.h"

#include <algorithm>

namespace kx {

namespace {

constexpr char CANNOT_OPEN[] = "Failed to open input nes file '%s'";

constexpr long HEADER = 16;
constexpr long TRAINER = 512;
constexpr long PROGRAM_BANK = 16384;
constexpr long CHARACTER_BANK = 8192;

constexpr long VECTORS = 3; // NMI, reset, IRQ: the last bytes of the last bank

struct Cartridge {
    int banks;        // of program
    long first, last; // offsets of the first and the last of them
    std::uint8_t vectors[2 * VECTORS];
};

std::uint32_t reset_address(const Cartridge& cartridge) {
    return get16le(cartridge.vectors + 2);
}

// Null, or what is wrong with the file.
const char* read_cartridge(const ProgramFile& input, Cartridge& cartridge) {
    constexpr std::uint8_t MAGIC[] = {'N', 'E', 'S', 0x1A};
    std::uint8_t header[HEADER];
    if (!transfer_read(input, 0, header) ||
        !std::equal(std::begin(MAGIC), std::end(MAGIC), header)) {
        return "is no iNES file: it has no header.";
    }
    const bool has_trainer = (header[6] & 0x04) != 0;
    const bool is_nes_2 = (header[7] & 0x0C) == 0x08;
    if (is_nes_2 && header[9] != 0) { // upper bits of the numbers of banks
        return "is too large a NES 2.0 file.";
    }
    cartridge.banks = header[4];
    cartridge.first = HEADER + (has_trainer ? TRAINER : 0);
    const long program_end = cartridge.first + cartridge.banks * PROGRAM_BANK;
    cartridge.last = program_end - PROGRAM_BANK;
    if (cartridge.banks == 0 || program_end + header[5] * CHARACTER_BANK > input.size ||
        !transfer_read(input, program_end - 2 * VECTORS, cartridge.vectors)) {
        return "is a damaged iNES file: its header does not fit it.";
    }
    return nullptr;
}

} // namespace

long nes_send(const ProgramFile& input) {
    Cartridge cartridge{};
    if (!transfer_is_open(input, CANNOT_OPEN)) {
        return -1;
    }
    if (const char* problem = read_cartridge(input, cartridge)) {
        return transfer_refuse(input.name, problem);
    }
    if (cartridge.banks > 2) {
        msg_warning("'%s' has %d program banks, only its first and its last are sent.",
                    input.name.c_str(), cartridge.banks);
    }
    const TransferPiece pieces[] = {
        {cartridge.first, 0x8000, 0xC000},
        {cartridge.last, 0xC000, 0x10000},
    };
    progress_begin("sending nes file '%s'...", input.name.c_str());
    if (transfer_send(input, pieces, reset_address(cartridge)) != 1) {
        msg_error("Failed to send nes file '%s'", input.name.c_str());
        return -1;
    }
    for (long i = 0; i < VECTORS; i++) {
        transfer_add_entry(get16le(cartridge.vectors + 2 * i));
    }
    return 2 * PROGRAM_BANK;
}

std::uint32_t nes_start_address(const ProgramFile& input) {
    Cartridge cartridge{};
    return transfer_is_open(input, CANNOT_OPEN) && read_cartridge(input, cartridge) == nullptr
               ? reset_address(cartridge)
               : 0;
}

} // namespace kx
