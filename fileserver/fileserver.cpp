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

} // namespace

int fileserver_handle_byte(std::uint8_t byte) {
    for (const Server& server : servers) {
        if (server.id == active_config.fileserver)
            return server.request(byte);
    }
    return -1;
}

void fileserver_log(const char* format, ...) {
    if (verbosity.silent != 0)
        return;
    char text[LOG_MAX];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    msg_print("%s", text);
}

void fileserver_reset() {
    for (const Server& server : servers)
        server.reset();
    host_files_reset();
}

} // namespace kx
