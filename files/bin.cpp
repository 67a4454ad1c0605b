// Raw binaries, to and from the target.
#include "files/bin_private.h"

#include "files/transfer_private.h"
#include "ui/msg.h"

namespace kx {

long bin_send(const ProgramFile& input, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags) {
    if (!transfer_is_open(input, "Failed to open input bin file '%s'")) {
        return -1;
    }
    if (end == 0) {
        end = start + static_cast<std::uint64_t>(input.size);
    } else if (!transfer_is_range(start, end)) {
        return -1;
    }
    const auto length = static_cast<long>(end - start);
    if (end != 0) {
        transfer_warn_top(end - 1);
    }
    if (start == 0) {
        msg_warning("start:0x00000000, are you sure you want to do this?");
    }
    progress_begin("sending binary '%s' (%08lx-%08lx:%04lx) ... ", input.name.c_str(),
                   static_cast<unsigned long>(start), static_cast<unsigned long>(end),
                   static_cast<unsigned long>(length));
    const TransferPiece piece = {static_cast<long>(flags), start, end};
    if (transfer_send(input, {&piece, 1}, start) != 1) {
        std::fprintf(stderr, "Failed to send raw file '%s'\n\r", input.name.c_str());
        return -1;
    }
    return length;
}

long bin_send(const std::string& path, std::uint32_t start, std::uint64_t end,
              std::uint32_t flags) {
    return bin_send(program_open(path), start, end, flags);
}

long bin_get(const std::string& path, std::uint32_t start, std::uint64_t end) {
    const std::string name = transfer_trim(path);
    if (!transfer_is_range(start, end) ||
        !transfer_can_write(name, "Failed to open output bin file '%s'")) {
        return -1;
    }
    progress_begin("getting binary file (%08lx-%08lx:%04lx)...", static_cast<unsigned long>(start),
                   static_cast<unsigned long>(end), static_cast<unsigned long>(end - start));
    return transfer_get(name, {}, start, end);
}

} // namespace kx
