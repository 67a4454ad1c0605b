// The hexadecimal dump of a file.
#include "files/hexdump.h"

#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>

namespace kx {

std::string hexdump_line(std::uint64_t place, std::span<const std::uint8_t> bytes,
                         std::string_view text) {
    std::string line = text_printf("%08llx:  ", static_cast<unsigned long long>(place));
    for (const std::uint8_t byte : bytes) {
        line += text_printf("%02x ", byte);
    }
    line += " ;";
    for (std::size_t i = 0; i < bytes.size(); i++) {
        const char c = i < text.size() ? text[i] : static_cast<char>(bytes[i]);
        line += ascii_is_print(c) ? c : '.';
    }
    return line;
}

int hexdump(std::FILE* out, std::FILE* in, long offset, std::uint32_t base) {
    if (offset != -1 && std::fseek(in, offset, SEEK_SET) != 0) {
        return -1;
    }
    // A pipe is counted from where it stands.
    std::uint64_t place = static_cast<std::uint64_t>(std::max(std::ftell(in), 0L)) + base;
    std::uint8_t bytes[HEXDUMP_BYTES];
    while (const std::size_t count = std::fread(bytes, 1, sizeof bytes, in)) {
        std::fprintf(out, "%s\n", hexdump_line(place, {bytes, count}).c_str());
        place += count;
    }
    return std::ferror(in) != 0 || std::fflush(out) != 0 || std::ferror(out) != 0 ? -1 : 1;
}

} // namespace kx
