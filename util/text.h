// Formatted texts of any length, and lists.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

/// What printf would print.
std::string text_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text_vprintf(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

/// "1 byte", "2 bytes"; "2 entries" with the plural of a noun that takes no s.
std::string text_count(std::uint64_t count, const char* noun, const char* plural = nullptr);

/// The parts between separators: one more than there are of these.
std::vector<std::string> text_split(std::string_view text, char separator);

/// "41 43 01".
std::string text_hex(std::span<const std::uint8_t> bytes);

} // namespace kx
