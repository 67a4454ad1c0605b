// Reading back, part by part.
#include "tools/compare.h"

#include "symfiles/symfiles.h"
#include "tools/bar.h"
#include "tools/line.h"
#include "util/text.h"

namespace kx {

namespace {

void note_differences(std::uint32_t address, std::span<const std::uint8_t> file,
                      std::span<const std::uint8_t> target, Comparison& comparison) {
    for (std::size_t i = 0; i < file.size(); i++) {
        if (file[i] == target[i]) {
            continue;
        }
        comparison.count++;
        if (comparison.first.size() < COMPARE_MAX) {
            comparison.first.push_back(
                {address + static_cast<std::uint32_t>(i), file[i], target[i]});
        }
    }
}

} // namespace

int compare_payload(Payload& payload, Comparison& comparison) {
    LineTransfer transfer;
    transfer.total = payload_size(payload);
    transfer.verb = "compared";
    comparison = {};
    bar_begin("compare " + payload.name, transfer.total);
    for (const AddressRange& part : payload.parts) {
        const auto file = payload_part(payload, part);
        std::vector<std::uint8_t> target(file.size());
        if (const int status = line_read(transfer, part.first, target)) {
            return status;
        }
        note_differences(part.first, file, target, comparison);
    }
    bar_end();
    return 0;
}

std::string compare_count_text(const Comparison& comparison, std::uint64_t size) {
    return std::to_string(comparison.count) + " of " + text_count(size, "byte") +
           (comparison.count == 1 ? " differs" : " differ");
}

std::string compare_text(const Difference& difference) {
    std::string text =
        text_printf("%s: file %02X, target %02X", line_address_text(difference.address).c_str(),
                    difference.file, difference.target);
    const SymEntry* symbol = sym_find_addr(sym_store, difference.address, 0, 0);
    return symbol != nullptr ? text + "  (" + symbol->name + ")" : text;
}

} // namespace kx
