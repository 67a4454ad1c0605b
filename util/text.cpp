// printf into a string, bytes in hexadecimal, lists taken apart.
#include "util/text.h"

#include <cstdio>

namespace kx {

std::string text_vprintf(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string text_printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = text_vprintf(format, args);
    va_end(args);
    return text;
}

std::string text_count(std::uint64_t count, const char* noun, const char* plural) {
    return std::to_string(count) + " " +
           (count == 1          ? std::string(noun)
            : plural != nullptr ? std::string(plural)
                                : std::string(noun) + "s");
}

std::vector<std::string> text_split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::string text_hex(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += {' ', digits[byte >> 4], digits[byte & 15]};
    }
    return text.substr(text.empty() ? 0 : 1);
}

} // namespace kx
