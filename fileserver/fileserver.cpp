// Dispatch by the active configuration's fileserver, and the log.
#include "fileserver/fileserver.h"

#include "core/active_config.h"
#include "fileserver/cbm.h"
#include "fileserver/generic.h"
#include "fileserver/host_files.h"
#include "fileserver/serialslave.h"
#include "ui/msg.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace kx {

namespace {

constexpr std::size_t LOG_MAX = 256; // characters of a line, with its zero byte

struct Server {
    int id; // of the registry; `none` has no row
    int (*request)(std::uint8_t byte);
    void (*reset)();
};
constexpr Server servers[] = {
    {.id = FILESERVER_GENERIC, .request = generic_fileserver_request, .reset = generic_reset},
    {.id = FILESERVER_SERIALSLAVE, .request = serialslave_request, .reset = serialslave_reset},
    {.id = FILESERVER_CBM, .request = cbm_fileserver_request, .reset = cbm_reset},
};

/// What a format ends its line with: they differ.
std::string_view line_end(std::string_view format) {
    return format.substr(format.find_last_not_of("\r\n") + 1);
}

} // namespace

int fileserver_handle_byte(std::uint8_t byte) {
    for (const Server& server : servers) {
        if (server.id == active_config.fileserver) {
            return server.request(byte);
        }
    }
    return -1;
}

void fileserver_log(const char* format, ...) {
    if (verbosity.silent != 0) {
        return;
    }
    char text[LOG_MAX];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length >= static_cast<int>(sizeof text)) { // cut, but not its line end
        const std::string_view end = line_end(format);
        end.copy(text + sizeof text - 1 - end.size(), end.size());
    }
    msg_print("%s", text);
}

void fileserver_reset() {
    for (const Server& server : servers) {
        server.reset();
    }
    host_files_reset();
}

} // namespace kx
