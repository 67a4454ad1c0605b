// PETSCII of the fileservers, both ways.
#include "fileserver/petscii_private.h"

#include "charsets/charset.h"
#include "util/ascii.h"

#include <algorithm>
#include <vector>

namespace kx {

namespace {

constexpr char CAPITAL_A =
    '\xC1'; // the second code of capitals, and the one that is sent by tables
constexpr char CAPITAL_Z = '\xDA';

char swap_case(char c) {
    const char lower = ascii_to_lower(c);
    if (lower != c) {
        return lower;
    }
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

char to_host(char c) {
    return c >= CAPITAL_A && c <= CAPITAL_Z ? static_cast<char>(c - CAPITAL_A + 'A') : swap_case(c);
}

} // namespace

std::string petscii_to_host(std::string_view codes) {
    std::string text(codes);
    std::ranges::transform(text, text.begin(), to_host);
    if (charset_is_loaded(CHARSET_LOASC)) {
        const std::vector<std::uint8_t> source(codes.begin(), codes.end());
        charset_to_ascii(text.data(), source.data(), source.size(), CHARSET_LOASC);
    }
    return text.substr(0, text.find('\0'));
}

std::string petscii_from_host(std::string_view text) {
    std::string codes(text);
    std::ranges::transform(codes, codes.begin(), swap_case);
    if (charset_is_loaded(CHARSET_LOASC)) {
        std::vector<std::uint8_t> out(text.size());
        charset_from_ascii(out.data(), text.data(), text.size(), text.size(), CHARSET_LOASC);
        codes.assign(out.begin(), out.end());
    }
    std::ranges::replace(codes, '\0', '?');
    return codes;
}

} // namespace kx
