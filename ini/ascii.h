// Character classes of plain ASCII. File formats must not change with the locale, so nothing here
// asks the C library.
#pragma once

#include <string>
#include <string_view>

namespace kx {

/// 0x20 to 0x7E: what an INI value may hold.
constexpr bool ascii_is_print(char c) {
    return c >= 0x20 && c < 0x7F;
}

/// 0x21 to 0x7E: printable and not a blank.
constexpr bool ascii_is_graph(char c) {
    return c > 0x20 && c < 0x7F;
}

constexpr bool ascii_is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// Anything below 0x20, and DEL. Bytes from 0x80 on are none: they may be UTF-8.
constexpr bool ascii_is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

constexpr char ascii_to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// `text` as it may be shown on a terminal: each control character as "\xNN".
inline std::string ascii_escape(std::string_view text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string shown;
    for (const char c : text) {
        if (ascii_is_control(c)) {
            shown += {'\\', 'x', digits[c >> 4], digits[c & 15]};
        } else {
            shown += c;
        }
    }
    return shown;
}

} // namespace kx
