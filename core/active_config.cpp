// The active configuration record and what follows from its address width.
#include "core/active_config.h"

namespace kx {

ActiveConfig active_config;

void active_config_reset() {
    active_config = ActiveConfig{};
}

std::uint32_t addr_mask() {
    switch (active_config.addr_bits) {
    case 8:
        return 0xFF;
    case 16:
        return 0xFFFF;
    case 24:
        return 0xFFFFFF;
    default:
        return 0xFFFFFFFF; // also a width that no target has, 0 included
    }
}

int addr_digits() {
    const int bits = active_config.addr_bits;
    if (bits < 5) {
        return 1;
    }
    return bits <= 8 ? 2 : bits > 28 ? 8 : (bits + 3) / 4;
}

} // namespace kx
