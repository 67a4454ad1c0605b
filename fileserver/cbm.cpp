// The CBM fileserver: load, save and open, in a table of commands.
#include "fileserver/cbm_private.h"

#include "core/active_config.h"
#include "fileserver/basic_listing_private.h"
#include "fileserver/drive_private.h"
#include "fileserver/fileserver.h"
#include "fileserver/host_files_private.h"
#include "fileserver/line_private.h"
#include "fileserver/petscii_private.h"
#include "fileserver/request_private.h"
#include "ui/msg.h"
#include "util/ascii.h"

#include <algorithm>
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

struct State {
    std::uint8_t channels[256] = {}; // secondary addresses by logical file number
};
State state;

/// A command; its function receives the rest of the request. -1 is answered with 0xFF.
struct Command {
    std::uint8_t code;
    const char* name;
    int (*run)();
};

// Sending ------------------------------------------------------------------------------------

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
        // Meant: directories by their size too, and the low 16 bits, all that a line has.
        add(directory_blocks(entry), text);
    }
    add(0, std::string(LISTING_END));
    listing_add_end(program);
    return program;
}

int send_directory() {
    const std::string pattern(LISTING_PATTERN);
    const std::uint32_t header_line =
        static_cast<std::uint32_t>(listing_header(BANNER).size()) + 1 + LISTING_LINE_FRAME;
    std::vector<ListedEntry> entries =
        listing_collect(pattern, DirectoryStyle::Cbm, LOAD_ADDRESS + header_line);
    if (entries.empty()) {
        return -1;
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
    line_put(REPLY_SUCCESS);
    line_put16(static_cast<std::uint32_t>(program.size()));
    line_put16(LOAD_ADDRESS);
    line_put_text(program);
    drive_note_directory(program.size(), entries.size());
    if (!request_is_watched()) {
        std::fputs(shown.c_str(), stdout);
        std::fflush(stdout);
    }
    return 0;
}

/// Sends the file's bytes, a log line for each. They go out in pieces, and at once when nobody
/// sees the lines. Returns how many were the file's own.
std::uint32_t send_with_progress(int file, std::uint32_t left, const std::string& shown) {
    if (verbosity.silent != 0) {
        return line_send_file(file, left);
    }
    std::uint32_t sent = 0;
    while (left > 0 && !request_is_dropped()) {
        const std::uint32_t piece = std::min(left, PROGRESS_PIECE);
        for (std::uint32_t i = 0; i < piece; i++) {
            fileserver_log("KX> sending file '%s' (%04lx bytes left.)...\r", shown.c_str(),
                           static_cast<unsigned long>(left - i));
        }
        sent += line_send_file(file, piece);
        left -= piece;
    }
    return sent;
}

int send_file(const std::string& name) {
    std::uint32_t size = 0;
    const HostFd file = host_open_file(name, size);
    if (!file) {
        return -1;
    }
    const std::string shown = ascii_escape(name);
    // More than the length can tell would leave target and host out of step, and does not fit the
    // target's memory either.
    if (size < LOAD_ADDRESS_SIZE || size > FILE_MAX) {
        request_fail("a load takes 2 to 65537 bytes");
        fileserver_log("KX> file '%s' has %lu bytes, a load takes 2 to 65537.\r\n", shown.c_str(),
                       static_cast<unsigned long>(size));
        return -1;
    }
    line_put(REPLY_SUCCESS);
    line_put16(size - LOAD_ADDRESS_SIZE);
    request_event().expected = size;
    const std::uint32_t sent = send_with_progress(file.get(), size, shown);
    if (request_is_dropped()) {
        return 0;
    }
    if (sent < size) {
        request_fail("the file came short");
        fileserver_log("KX> sending file '%s' (came short: %lu bytes.)\r\n", shown.c_str(),
                       static_cast<unsigned long>(sent));
        return 0;
    }
    fileserver_log("KX> sending file '%s' (ok.)                  \r\n", shown.c_str());
    return 0;
}

// Load, save and open ------------------------------------------------------------------------

constexpr Drive drive = {.changed = REPLY_CHANGED,
                         .ready = REPLY_READY,
                         .uncounted = 0,
                         .tells_kind = false,
                         .meters = false,
                         .line_end = "\n",
                         .send_directory = send_directory,
                         .send_file = send_file};

int load() {
    const std::string name = petscii_to_host(drive_get_name(0));
    return request_is_dropped() ? -1 : drive_load(drive, name);
}

int save() {
    std::string name = drive_get_name(0);
    if (request_is_dropped()) {
        return -1;
    }
    // Meant: the name is used as it came, while that of a load is translated.
    name = active_config.fileserver_translate_save ? petscii_to_host(name)
                                                   : name.substr(0, name.find('\0'));
    return drive_save(drive, name);
}

int open_channel() {
    const int logical = line_get();
    const std::uint8_t address = line_get();
    const std::string name = drive_get_name(0);
    if (!request_is_dropped()) {
        state.channels[logical] = address;
        const int secondary = address & CHANNEL_MASK;
        // Meant: the 7, whatever the device's number is.
        fileserver_log("KX> opening %s (%d,7,%d,\"%s\")...\r\n",
                       secondary == COMMAND_CHANNEL ? "cmd-channel" : "file", logical, secondary,
                       ascii_escape(petscii_to_host(name)).c_str());
    }
    return 0;
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
    const RequestScope scope;
    const std::uint8_t code = line_get();
    if (request_is_dropped()) {
        request_event().request = UNKNOWN_REQUEST;
        return 0;
    }
    const Command* command = std::ranges::find(commands, code, &Command::code);
    if (command == std::end(commands)) {
        return -1;
    }
    request_event().request = command->name;
    if (command->run() != 0) {
        request_fail("not possible");
        line_put(REPLY_FAILURE);
    }
    return 0;
}

void cbm_reset() {
    state = {};
}

} // namespace kx
