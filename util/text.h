// Formatted texts of any length.
#pragma once

#include <cstdarg>
#include <string>

namespace kx {

/// What printf would print.
std::string text_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text_vprintf(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

} // namespace kx
