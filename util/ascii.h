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

constexpr char ascii_to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// How many bytes of a UTF-8 character follow its first one; 0 for any other byte.
constexpr int ascii_utf8_following(unsigned char byte) {
    return byte < 0xC0 ? 0 : byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : byte < 0xF8 ? 3 : 0;
}

/// `text` as it may be shown on a terminal: control characters as "\xNN", except those in `kept`.
/// U+0080 to U+009F are controls there too, and so are 0x80 to 0x9F by themselves on terminals that
/// do not speak UTF-8: every byte of them is shown so.
inline std::string ascii_escape(std::string_view text, std::string_view kept = "") {
    constexpr char digits[] = "0123456789abcdef";
    std::string shown;
    int following = 0; // bytes that belong to the character under way
    bool pair = false; // the byte before was the first of such a control
    for (std::size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        const bool second = pair;
        const bool follows = following > 0 && (byte & 0xC0) == 0x80;
        following = follows ? following - 1 : ascii_utf8_following(byte);
        pair = byte == 0xC2 && next >= 0x80 && next <= 0x9F;
        const bool control =
            ascii_is_control(text[i]) && kept.find(text[i]) == std::string_view::npos;
        if (control || pair || second || (!follows && byte >= 0x80 && byte <= 0x9F)) {
            shown += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            shown += text[i];
        }
    }
    return shown;
}

} // namespace kx
