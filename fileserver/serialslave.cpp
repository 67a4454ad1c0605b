// The serial-slave fileserver: a table of commands of one character, a second one of the block
// commands behind 'B'.
#include "fileserver/serialslave_private.h"

#include "fileserver/basic_listing_private.h"
#include "fileserver/drive_private.h"
#include "fileserver/fileserver.h"
#include "fileserver/host_files_private.h"
#include "fileserver/line_private.h"
#include "fileserver/petscii_private.h"
#include "fileserver/request_private.h"
#include "link/rate.h"
#include "util/ascii.h"

#include <algorithm>
#include <numeric>
#include <span>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::uint8_t REPLY_DATA = '!';
constexpr std::uint8_t REPLY_DONE = '.';
constexpr std::uint8_t REPLY_ERROR = '?';

constexpr std::string_view BANNER = "kx serslave mode";
constexpr char REVERSE_ON = 0x12;
constexpr std::string_view LOAD_ADDRESS = "\x01\x04"; // 0x0401
constexpr std::uint32_t FIRST_LINK = 0x0401 + 1; // of a header without text, see send_directory
constexpr std::uint32_t END_NUMBER = 0xFFFF;     // line number of the last line
constexpr std::uint32_t NUMBER_MAX = 0xFFFF;

constexpr std::uint32_t BLOCK = 256;

enum class BlockMode { None, Reading, Saving };

struct State {
    BlockMode mode = BlockMode::None;
    HostFd file; // of mode Reading
};
State state;

/// A command; its function receives the rest of the request. A result of -1 is answered with '?'.
struct Command {
    char code;
    const char* name;
    int (*run)();
};

const Command* find_command(std::span<const Command> commands, std::uint8_t byte) {
    const auto at = std::ranges::find(commands, static_cast<char>(byte), &Command::code);
    return at == commands.end() ? nullptr : &*at;
}

void run(const Command& command) {
    request_event().request = command.name;
    if (command.run() != 0) {
        request_fail("not possible");
        line_put(REPLY_ERROR);
    }
}

/// A name up to CR and the byte behind it, which is dropped. False when it asks for the directory,
/// and when the request was dropped: half a name must not be acted on.
bool get_file_name(std::string& name) {
    name = petscii_to_host(drive_get_name(1));
    return !request_is_dropped() && !drive_is_directory_name(name);
}

// Load and save ------------------------------------------------------------------------------

int send_file(const std::string& name) {
    std::uint32_t size = 0;
    const HostFd file = host_open_file(name, size);
    if (!file) {
        return -1;
    }
    // Meant: the protocol's numbers have 16 bits, and of a longer file only the remainder is sent.
    const std::uint32_t length = size & 0xFFFF;
    fileserver_log("KX> sending file \"%s\" (%d bytes.)...\n\r", ascii_escape(name).c_str(),
                   static_cast<int>(length));
    line_put(REPLY_DATA);
    line_put16(length);
    rate_start();
    request_event().expected = length;
    const std::uint32_t sent = line_send_file(file.get(), length);
    if (request_is_dropped()) {
        return 0;
    }
    if (sent < length) {
        request_fail("the file came short");
        fileserver_log("KX> file \"%s\" came short (%d bytes.)\n\r", ascii_escape(name).c_str(),
                       static_cast<int>(sent));
        return 0;
    }
    rate_stop_report(length);
    return 0;
}

/// Meant: the links run five bytes short of the next line's address. The target relinks the
/// program after loading and only needs links that are not zero.
std::string directory_program(const std::vector<ListedEntry>& entries, const std::string& header) {
    std::string program(LOAD_ADDRESS);
    auto link = FIRST_LINK + static_cast<std::uint32_t>(header.size());
    listing_add_line(program, link, 0, REVERSE_ON + header);
    for (const auto& [entry, text] : entries) {
        link += static_cast<std::uint32_t>(text.size()) + LISTING_LINE_FRAME;
        const bool is_directory = (entry.attribute & DIRECTORY_ATTRIBUTE) != 0;
        const std::uint32_t number =
            is_directory ? 0 : std::min(directory_blocks(entry), NUMBER_MAX);
        listing_add_line(program, link, number, petscii_from_host(text));
        fileserver_log("KX> %d %s\n\r", static_cast<int>(number), ascii_escape(text).c_str());
    }
    listing_add_line(program, link + LISTING_END_LINE, END_NUMBER, LISTING_END);
    listing_add_end(program);
    return program;
}

int send_directory() {
    const std::string header = listing_header(BANNER); // Meant: untranslated, as is the last line.
    // The entries sent are those of this search, so that the length announced holds whatever
    // becomes of the directory.
    const std::vector<ListedEntry> entries = listing_collect(
        "*", DirectoryStyle::SerialSlave, FIRST_LINK + static_cast<std::uint32_t>(header.size()));
    if (entries.empty()) {
        return -1;
    }
    fileserver_log("KX> sending directory \"%s\" ...\n\r", LISTING_PATTERN.data());
    if (!listing_finds_any()) {
        line_put(REPLY_ERROR); // Meant: the listing answers '?', and then the command as well
        return -1;
    }
    const std::string program = directory_program(entries, header);
    line_put(REPLY_DATA);
    line_put16(static_cast<std::uint32_t>(program.size()));
    line_put_text(program);
    drive_note_directory(program.size(), entries.size());
    fileserver_log("ok.\n\r");
    return 0;
}

constexpr Drive drive = {.changed = REPLY_DONE,
                         .ready = REPLY_DATA,
                         .uncounted = 2, // the load address
                         .tells_kind = true,
                         .meters = true,
                         .line_end = "\n\r",
                         .send_directory = send_directory,
                         .send_file = send_file};

int load() {
    const std::string name = petscii_to_host(drive_get_name(1));
    return request_is_dropped() ? -1 : drive_load(drive, name);
}

/// The name of a save: the two characters it ends in, CR and LF, are cut.
std::string get_save_name() {
    std::string name = line_get_name('\n');
    // Of a name that fills what is kept, the CR may have been dropped before.
    if (!name.empty() && (name.size() < LINE_NAME_MAX || name.back() == '\r')) {
        name.pop_back();
    }
    request_event().name = name;
    return petscii_to_host(name);
}

int save() {
    const std::string name = get_save_name();
    if (request_is_dropped() || drive_is_directory_name(name)) {
        return -1;
    }
    return drive_save(drive, name);
}

// Block commands -----------------------------------------------------------------------------

int block_load_open() {
    std::string name;
    if (!get_file_name(name)) {
        return -1;
    }
    if (state.mode != BlockMode::None) {
        return 0; // Meant: while a buffer is open there is no answer at all
    }
    std::uint32_t size = 0;
    HostFd file = host_open_file(name, size);
    if (!file) {
        return -1;
    }
    state.file = std::move(file);
    state.mode = BlockMode::Reading;
    const std::uint32_t blocks = size / BLOCK + (size % BLOCK != 0 ? 1 : 0);
    fileserver_log("KX> block-sending file \"%s\" (%ld bytes/%dblocks)...\n\r",
                   ascii_escape(name).c_str(), static_cast<long>(size), static_cast<int>(blocks));
    line_put(REPLY_DATA);
    line_put16(blocks);
    return 0;
}

/// Appends a block's length less 1, its bytes and their sum. False when the file ends before it.
bool add_block(std::string& reply, std::uint32_t number) {
    std::uint8_t bytes[BLOCK];
    const std::uint32_t offset = number * BLOCK;
    const ssize_t length = pread(state.file.get(), bytes, sizeof bytes, offset);
    if (length <= 0) {
        return false;
    }
    const int sum = std::accumulate(bytes, bytes + length, 0) & 0xFF;
    fileserver_log("KX> sending block %ld (offs:%ld,len:%ld,chksum:%d)\n\r",
                   static_cast<long>(number), static_cast<long>(offset), static_cast<long>(length),
                   sum);
    reply += static_cast<char>(length - 1);
    reply.append(bytes, bytes + length);
    reply += static_cast<char>(sum);
    return true;
}

int read_blocks() {
    const std::uint32_t first = line_get16();
    const std::uint32_t count = line_get();
    if (request_is_dropped() || state.mode != BlockMode::Reading) {
        return -1;
    }
    std::string reply(1, static_cast<char>(REPLY_DATA));
    std::uint32_t sent = 0;
    while (sent < count && add_block(reply, first + sent)) {
        sent++;
    }
    line_put_text(reply);
    request_event().bytes = reply.size() - 1;
    return 0;
}

int block_close() {
    switch (state.mode) {
    case BlockMode::None:
        fileserver_log("KX> block-close called without buffered data!\n\r");
        return -1;
    case BlockMode::Reading:
        state = {};
        fileserver_log("KX> closed block buffer\n\r");
        line_put(REPLY_DONE);
        return 0;
    case BlockMode::Saving: // which nothing begins yet
        break;
    }
    // Meant: the misspelling, who reads logs looks for this text.
    fileserver_log("KX> this is suppsed to be unimplemented. wtf?\n\r");
    return -1;
}

int refuse_block_save() {
    fileserver_log("KX> block save unimplemented\n\r");
    return -1;
}

int block_save_open() {
    std::string name;
    if (!get_file_name(name)) {
        return -1;
    }
    refuse_block_save();
    return 0; // Meant: no answer
}

constexpr Command block_commands[] = {
    {'L', "block load open", block_load_open},
    {'R', "read blocks", read_blocks},
    {'C', "close", block_close},
    {'S', "block save open", block_save_open},
    {'W', "block write", refuse_block_save},
};

// All commands -------------------------------------------------------------------------------

int ping() {
    fileserver_log("KX> ping\n\r");
    line_put(REPLY_DATA);
    line_put16(BANNER.size());
    line_put_text(petscii_from_host(BANNER));
    return 0;
}

int block() {
    const std::uint8_t code = line_get();
    request_event().request = UNKNOWN_REQUEST;
    if (const Command* command = find_command(block_commands, code)) {
        run(*command);
    } else if (!request_is_dropped()) {
        request_fail("no such command");
        fileserver_log("KX> ?! B<%02x>\n\r", 'B'); // Meant: the 'B' itself, not what follows it
    }
    return 0;
}

constexpr Command commands[] = {
    {'<', "load", load},
    {'>', "save", save},
    {'?', "ping", ping},
    {'B', "block command", block},
};

} // namespace

int serialslave_request(std::uint8_t byte) {
    if (byte == '\n' || byte == '\r') { // the end of a line
        return 0;
    }
    const RequestScope scope;
    if (const Command* command = find_command(commands, byte)) {
        run(*command);
    } else {
        const char character = static_cast<char>(byte);
        request_event().request = UNKNOWN_REQUEST;
        request_event().name = character;
        request_fail("no such command");
        fileserver_log("KX> ?! <%02x> %s\n\r", byte, ascii_escape({&character, 1}).c_str());
    }
    return 0;
}

void serialslave_reset() {
    state = {};
}

} // namespace kx
