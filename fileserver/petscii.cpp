// PETSCII of the fileservers, both ways.
#include "fileserver/petscii_private.h"

#include "charsets/charset.h"
#include "util/ascii.h"

#include <algorithm>
#include <vector>

namespace kx {

namespace {

char swap_case(char c) {
    const char lower = ascii_to_lower(c);
    if (lower != c) {
        return lower;
    }
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string swap_letters(std::string_view text) {
    std::string swapped(text);
    std::ranges::transform(swapped, swapped.begin(), swap_case);
    return swapped;
}

} // namespace

std::string petscii_to_host(std::string_view codes) {
    std::string text = swap_letters(codes);
    if (charset_is_loaded(CHARSET_LOASC)) {
        const std::vector<std::uint8_t> source(codes.begin(), codes.end());
        charset_to_ascii(text.data(), source.data(), source.size(), CHARSET_LOASC);
    }
    return text.substr(0, text.find('\0'));
}

std::string petscii_from_host(std::string_view text) {
    std::string codes = swap_letters(text);
    if (charset_is_loaded(CHARSET_LOASC)) {
        std::vector<std::uint8_t> out(text.size());
        charset_from_ascii(out.data(), text.data(), text.size(), text.size(), CHARSET_LOASC);
        codes.assign(out.begin(), out.end());
    }
    std::ranges::replace(codes, '\0', '?');
    return codes;
}

} // namespace kx
