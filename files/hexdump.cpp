// The hexadecimal dump of a file.
#include "files/hexdump.h"

#include "util/ascii.h"

#include <algorithm>

namespace kx {

int hexdump(std::FILE* out, std::FILE* in, long offset, std::uint32_t base) {
    if (offset != -1 && std::fseek(in, offset, SEEK_SET) != 0) {
        return -1;
    }
    long position = std::max(std::ftell(in), 0L); // a pipe is counted from where it stands
    std::uint8_t bytes[16];
    while (const std::size_t count = std::fread(bytes, 1, sizeof bytes, in)) {
        std::fprintf(out, "%08lx:  ", static_cast<unsigned long>(position) + base);
        for (std::size_t i = 0; i < count; i++) {
            std::fprintf(out, "%02x ", bytes[i]);
        }
        std::fputs(" ;", out);
        for (std::size_t i = 0; i < count; i++) {
            const char c = static_cast<char>(bytes[i]);
            std::fputc(ascii_is_print(c) ? c : '.', out);
        }
        std::fputc('\n', out);
        position += static_cast<long>(count);
    }
    return std::ferror(in) != 0 || std::fflush(out) != 0 || std::ferror(out) != 0 ? -1 : 1;
}

} // namespace kx
