// Numbers in byte buffers, with their byte order in the name. Buffers must be long enough.
#pragma once

#include <cstdint>

namespace kx {

constexpr std::uint16_t get16le(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

constexpr std::uint16_t get16be(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

constexpr std::uint32_t get32be(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(get16be(p)) << 16 | get16be(p + 2);
}

constexpr void put16le(std::uint8_t* p, std::uint32_t value) {
    p[0] = static_cast<std::uint8_t>(value);
    p[1] = static_cast<std::uint8_t>(value >> 8);
}

constexpr void put32be(std::uint8_t* p, std::uint32_t value) {
    for (int i = 0; i < 4; i++) {
        p[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
}

} // namespace kx
