// The hexadecimal dump of a file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace kx {

constexpr std::size_t HEXDUMP_BYTES = 16; // of a whole line

/// One line, without its end: `place` in eight digits or more, the bytes in hexadecimal, and
/// `text`, a character for each byte; left out, the bytes as they are where ASCII has them
/// printable.
std::string hexdump_line(std::uint64_t place, std::span<const std::uint8_t> bytes,
                         std::string_view text = {});

/// Writes lines of 16 bytes of `in` to `out`, from `offset` to the file's end, or from where it
/// stands when that is -1: the place plus `base` in eight digits, the bytes in hexadecimal, and as
/// they are where ASCII has them printable. A short last line is not padded.
/// 1; -1 when the offset cannot be reached, `in` cannot be read or `out` takes not all.
int hexdump(std::FILE* out, std::FILE* in, long offset, std::uint32_t base);

} // namespace kx
