// Dispatch by the active configuration's fileserver, and the log.
#include "fileserver/fileserver.h"

#include "core/active_config.h"
#include "fileserver/cbm_private.h"
#include "fileserver/generic_private.h"
#include "fileserver/host_files_private.h"
#include "fileserver/request_private.h"
#include "fileserver/serialslave_private.h"
#include "ui/msg.h"
#include "util/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

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

int fileserver_start() {
    if (host_open_root() != 0) {
        msg_error("couldn't open fileserver root '%s': %s.", active_config.fileserver_root.c_str(),
                  std::strerror(errno));
        return -1;
    }
    return 0;
}

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
    va_list args;
    va_start(args, format);
    std::string text = text_vprintf(format, args);
    va_end(args);
    if (text.size() >= LOG_MAX) { // cut, but not its line end
        const std::string end = text.substr(text.find_last_not_of("\r\n") + 1);
        text.replace(LOG_MAX - 1 - end.size(), std::string::npos, end);
    }
    msg_print("%s", text.c_str());
}

void fileserver_reset() {
    for (const Server& server : servers) {
        server.reset();
    }
    host_files_reset();
    request_reset();
}

} // namespace kx
