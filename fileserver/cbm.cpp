// The CBM fileserver: load, save and open, in a table of commands.
#include "fileserver/cbm.h"

#include "fileserver/basic_listing.h"
#include "fileserver/directory_search.h"
#include "fileserver/fileserver.h"
#include "fileserver/host_files.h"
#include "fileserver/line_private.h"
#include "fileserver/petscii.h"
#include "link/port.h"
#include "ui/msg.h"
#include "util/ascii.h"

#include <algorithm>
#include <climits>
#include <cstdio>

namespace kx {

namespace {

constexpr std::uint8_t REQUEST = 0x02;
constexpr std::uint8_t REPLY_SUCCESS = 0x00;
constexpr std::uint8_t REPLY_CHANGED = 0x01; // of directory
constexpr std::uint8_t REPLY_READY = '!';    // to receive
constexpr std::uint8_t REPLY_FAILURE = 0xFF;

constexpr std::string_view BANNER = "kx-cbmfileserver";
constexpr char REVERSE_ON = 0x12;
constexpr std::uint32_t LOAD_ADDRESS = 0x0801;

// The length that a load announces leaves out the load address that its file begins with.
constexpr std::uint32_t LOAD_ADDRESS_SIZE = 2;
constexpr std::uint32_t FILE_MAX = 0xFFFF + LOAD_ADDRESS_SIZE;

constexpr std::uint32_t PROGRESS_PIECE = 1024; // bytes that are logged and then sent at once

// Bits 5 and 6 of a secondary address only tell what the target does with the channel.
constexpr std::uint8_t CHANNEL_MASK = 0x9F;
constexpr int COMMAND_CHANNEL = 15;

struct {
    std::uint8_t channels[256] = {}; // secondary addresses by logical file number
} state;

/// A command; its function receives the rest of the request. False is answered with 0xFF.
struct Command {
    std::uint8_t code;
    const char* name;
    bool (*run)();
};

/// A name up to CR, as the target sent it. False when the line has gone: half a name must not be
/// acted on.
bool get_name(std::string& name) {
    name = line_get_name('\r');
    return port_state.read_error == 0;
}

bool is_directory_name(const std::string& name) {
    return name.starts_with('$');
}

// Load ---------------------------------------------------------------------------------------

/// The listing behind its load address. `shown` gets its lines for the terminal.
std::string directory_program(const std::vector<ListedEntry>& entries, std::string& shown) {
    std::string program;
    std::uint32_t link = LOAD_ADDRESS;
    const auto add = [&](std::uint32_t number, const std::string& text, bool reverse = false) {
        const std::string codes =
            (reverse ? std::string(1, REVERSE_ON) : "") + petscii_from_host(text);
        link += static_cast<std::uint32_t>(codes.size()) + LISTING_LINE_FRAME;
        listing_add_line(program, link, number, codes);
        shown += ">>KX " + ascii_escape(text) + "\n";
    };
    if (!entries.empty()) {
        add(0, listing_header(BANNER), true);
    }
    for (const auto& [entry, text] : entries) {
        add(directory_blocks(entry), text); // its low 16 bits, which is all that a line has: meant
    }
    add(0, std::string(LISTING_END));
    listing_add_end(program);
    return program;
}

bool send_directory() {
    const std::string pattern(LISTING_PATTERN);
    const std::uint32_t header_line =
        static_cast<std::uint32_t>(listing_header(BANNER).size()) + 1 + LISTING_LINE_FRAME;
    std::vector<ListedEntry> entries =
        listing_collect(pattern, DirectoryStyle::Cbm, LOAD_ADDRESS + header_line);
    if (entries.empty()) {
        return false;
    }
    // Should all be gone when looked for again, only the last line is left. What is announced are
    // the bytes that follow, whatever becomes of the directory.
    if (!listing_finds_any()) {
        entries.clear();
    }
    std::string shown;
    const std::string program = directory_program(entries, shown);
    fileserver_log("KX> sending directory \"%s\" (%d bytes)...\n", pattern.c_str(),
                   static_cast<int>(program.size()));
    port_putc(REPLY_SUCCESS);
    line_put16(static_cast<std::uint32_t>(program.size()));
    line_put16(LOAD_ADDRESS);
    line_put(program);
    std::fputs(shown.c_str(), stdout);
    std::fflush(stdout);
    return true;
}

bool change_directory(const std::string& name) {
    if (host_chdir(name) != 0) {
        return false;
    }
    port_putc(REPLY_CHANGED);
    std::string directory;
    host_getcwd(directory, PATH_MAX);
    fileserver_log("KX> chdir(\"%s\") to %s\n", ascii_escape(name).c_str(),
                   ascii_escape(directory).c_str());
    return true;
}

/// Sends the file's bytes, a log line for each. They go out in pieces, and at once when nobody
/// sees the lines.
bool send_with_progress(int file, std::uint32_t left, const std::string& shown) {
    if (verbosity.silent != 0) {
        return line_send_file(file, left);
    }
    while (left > 0) {
        const std::uint32_t piece = std::min(left, PROGRESS_PIECE);
        for (std::uint32_t i = 0; i < piece; i++) {
            fileserver_log("KX> sending file '%s' (%04lx bytes left.)...\r", shown.c_str(),
                           static_cast<unsigned long>(left - i));
        }
        if (!line_send_file(file, piece)) {
            return false;
        }
        left -= piece;
    }
    return true;
}

bool send_file(const std::string& name) {
    std::uint32_t size = 0;
    const HostFd file = host_open_file(name, size);
    if (!file) {
        return false;
    }
    const std::string shown = ascii_escape(name);
    // More than the length can tell would leave target and host out of step, and does not fit the
    // target's memory either.
    if (size < LOAD_ADDRESS_SIZE || size > FILE_MAX) {
        fileserver_log("KX> file '%s' has %lu bytes, a load takes 2 to 65537.\r\n", shown.c_str(),
                       static_cast<unsigned long>(size));
        return false;
    }
    port_putc(REPLY_SUCCESS);
    line_put16(size - LOAD_ADDRESS_SIZE);
    if (send_with_progress(file.get(), size, shown)) {
        fileserver_log("KX> sending file '%s' (ok.)                  \r\n", shown.c_str());
    }
    return true;
}

bool load() {
    std::string name;
    if (!get_name(name)) {
        return false;
    }
    name = petscii_to_host(name);
    if (is_directory_name(name)) {
        return send_directory();
    }
    if (name.starts_with('.')) {
        return change_directory(name);
    }
    DirectoryEntry entry;
    if (directory_find(name, entry) != 0) {
        return false;
    }
    return (entry.attribute & DIRECTORY_ATTRIBUTE) != 0 ? change_directory(name) : send_file(name);
}

// Save and open ------------------------------------------------------------------------------

bool save() {
    std::string name;
    if (!get_name(name)) {
        return false;
    }
    // Meant: the name is used as it came, while that of a load is translated.
    name = name.substr(0, name.find('\0'));
    const std::string shown = ascii_escape(name);
    fileserver_log("getting file \"%s\" ...\n", shown.c_str());
    if (is_directory_name(name)) {
        return false;
    }
    const HostFd file = host_create_file(name);
    if (!file) {
        return false;
    }
    port_putc(REPLY_READY);
    const std::uint32_t length = line_get16();
    fileserver_log("KX> getting file \"%s\" (%d bytes.)...\n", shown.c_str(),
                   static_cast<int>(length));
    bool written = false;
    if (port_state.read_error != 0 || // the length has not come
        line_receive_file(file.get(), length, written) != length || !written) {
        fileserver_log("KX> file \"%s\" is incomplete.\n", shown.c_str());
    }
    return true;
}

bool open_channel() {
    const int logical = port_getc();
    state.channels[logical] = port_getc();
    const int secondary = state.channels[logical] & CHANNEL_MASK;
    std::string name;
    if (get_name(name)) {
        // The 7 stands there whatever the device's number is.
        fileserver_log("KX> opening %s (%d,7,%d,\"%s\")...\r\n",
                       secondary == COMMAND_CHANNEL ? "cmd-channel" : "file", logical, secondary,
                       ascii_escape(petscii_to_host(name)).c_str());
    }
    return true;
}

constexpr Command commands[] = {
    {0x03, "load", load},
    {0x04, "save", save},
    {0x05, "open", open_channel},
};

} // namespace

int cbm_fileserver_request(std::uint8_t byte) {
    if (byte != REQUEST) {
        return -1;
    }
    const std::uint8_t code = port_getc();
    const Command* command = std::ranges::find(commands, code, &Command::code);
    if (command == std::end(commands)) {
        return -1;
    }
    if (!command->run()) {
        port_putc(REPLY_FAILURE);
    }
    return 0;
}

void cbm_reset() {
    state = {};
}

} // namespace kx
