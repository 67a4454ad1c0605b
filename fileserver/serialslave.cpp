// The serial-slave fileserver: a table of commands of one character, a second one of the block
// commands behind 'B'.
#include "fileserver/serialslave.h"

#include "fileserver/basic_listing.h"
#include "fileserver/directory_search.h"
#include "fileserver/fileserver.h"
#include "fileserver/host_files.h"
#include "fileserver/line_private.h"
#include "fileserver/petscii.h"
#include "link/port.h"
#include "link/rate.h"
#include "util/ascii.h"

#include <algorithm>
#include <climits>
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

constexpr std::size_t NAME_MAX_BYTES = 255; // what is kept of a name
constexpr std::uint32_t BLOCK = 256;

enum class BlockMode { None, Reading, Saving };

struct {
    BlockMode mode = BlockMode::None;
    HostFd file; // of mode Reading
} state;

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
    if (command.run() != 0) {
        port_putc(REPLY_ERROR);
    }
}

/// A name up to CR and the byte behind it, which is dropped. False when the line has gone: half a
/// name must not be acted on.
bool get_name(std::string& name) {
    name = petscii_to_host(line_get_name('\r'));
    if (port_state.read_error == 0) {
        port_getc();
    }
    return port_state.read_error == 0;
}

bool is_directory_name(const std::string& name) {
    return name.starts_with('$');
}

// Load and save ------------------------------------------------------------------------------

int change_directory(const std::string& name, const char* kind) {
    if (host_chdir(name) != 0) {
        return -1;
    }
    port_putc(REPLY_DONE);
    std::string directory;
    host_getcwd(directory, PATH_MAX);
    fileserver_log("KX> chdir(\"%s\") to %.255s%s\n\r", ascii_escape(name).c_str(),
                   ascii_escape(directory).c_str(), kind);
    return 0;
}

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
    port_putc(REPLY_DATA);
    line_put16(length);
    rate_start();
    if (line_send_file(file.get(), length)) {
        rate_stop_report(length);
    }
    return 0;
}

/// The links run five bytes short of the next line's address: meant. The target relinks the
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
    const std::string header = listing_header(BANNER); // untranslated, as is the last line
    // The entries sent are those of this search, so that the length announced holds whatever
    // becomes of the directory.
    const std::vector<ListedEntry> entries = listing_collect(
        "*", DirectoryStyle::SerialSlave, FIRST_LINK + static_cast<std::uint32_t>(header.size()));
    if (entries.empty()) {
        return -1;
    }
    fileserver_log("KX> sending directory \"%s\" ...\n\r", LISTING_PATTERN.data());
    if (!listing_finds_any()) {
        port_putc(REPLY_ERROR); // meant: the listing answers '?', and then the command as well
        return -1;
    }
    const std::string program = directory_program(entries, header);
    port_putc(REPLY_DATA);
    line_put16(static_cast<std::uint32_t>(program.size()));
    line_put(program);
    fileserver_log("ok.\n\r");
    return 0;
}

int load() {
    std::string name;
    if (!get_name(name)) {
        return -1;
    }
    if (is_directory_name(name)) {
        return send_directory();
    }
    if (name.starts_with('.')) {
        return change_directory(name, " (up)");
    }
    DirectoryEntry entry;
    if (directory_find(name, entry) != 0) {
        return -1;
    }
    if ((entry.attribute & DIRECTORY_ATTRIBUTE) != 0) {
        return change_directory(name, "");
    }
    if ((entry.attribute & ROOT_ATTRIBUTE) != 0) {
        return change_directory(name, " (root)");
    }
    return send_file(name); // a name with wildcards fails there
}

/// The name of a save: the two characters it ends in, CR and LF, are cut.
std::string get_save_name() {
    std::string name = line_get_name('\n');
    // Of a name that fills what is kept, the CR may have been dropped before.
    if (!name.empty() && (name.size() < NAME_MAX_BYTES || name.back() == '\r')) {
        name.pop_back();
    }
    return petscii_to_host(name);
}

int save() {
    const std::string name = get_save_name();
    if (port_state.read_error != 0 || is_directory_name(name)) {
        return -1;
    }
    const std::string shown = ascii_escape(name);
    fileserver_log("getting file \"%s\" ...\n\r", shown.c_str());
    const HostFd file = host_create_file(name);
    if (!file) {
        return -1;
    }
    port_putc(REPLY_DATA);
    // The load address is not counted. The log shows 16 bits of the sum, but all of it comes.
    const std::uint32_t length = line_get16() + 2U;
    fileserver_log("KX> getting file \"%s\" (%d bytes.)...\n\r", shown.c_str(),
                   static_cast<int>(length & 0xFFFF));
    bool written = false;
    rate_start();
    if (line_receive_file(file.get(), length, written) == length && written) {
        rate_stop_report(length);
    } else {
        fileserver_log("KX> file \"%s\" is incomplete.\n\r", shown.c_str());
    }
    return 0;
}

// Block commands -----------------------------------------------------------------------------

int block_load_open() {
    std::string name;
    if (!get_name(name) || is_directory_name(name)) {
        return -1;
    }
    if (state.mode != BlockMode::None) {
        return 0; // meant: while a buffer is open there is no answer at all
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
    port_putc(REPLY_DATA);
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
    const std::uint32_t count = port_getc();
    if (state.mode != BlockMode::Reading) {
        return -1;
    }
    std::string reply(1, static_cast<char>(REPLY_DATA));
    std::uint32_t sent = 0;
    while (sent < count && add_block(reply, first + sent)) {
        sent++;
    }
    line_put(reply);
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
        port_putc(REPLY_DONE);
        return 0;
    case BlockMode::Saving: // which nothing begins yet
        break;
    }
    // The misspelling is meant: who reads logs looks for this text.
    fileserver_log("KX> this is suppsed to be unimplemented. wtf?\n\r");
    return -1;
}

int refuse_block_save() {
    fileserver_log("KX> block save unimplemented\n\r");
    return -1;
}

int block_save_open() {
    std::string name;
    if (!get_name(name) || is_directory_name(name)) {
        return -1;
    }
    refuse_block_save();
    return 0; // meant: no answer
}

constexpr Command block_commands[] = {
    {'L', "block load open", block_load_open},
    {'R', "read blocks", read_blocks},
    {'C', "close", block_close},
    {'S', "block save open", block_save_open},
    {'W', "block write", refuse_block_save},
};

// All commands -------------------------------------------------------------------------------

int ignore() {
    return 0;
}

int ping() {
    fileserver_log("KX> ping\n\r");
    port_putc(REPLY_DATA);
    line_put16(BANNER.size());
    line_put(petscii_from_host(BANNER));
    return 0;
}

int block() {
    if (const Command* command = find_command(block_commands, port_getc())) {
        run(*command);
    } else {
        fileserver_log("KX> ?! B<%02x>\n\r", 'B'); // meant: the 'B' itself, not what follows it
    }
    return 0;
}

constexpr Command commands[] = {
    {'\n', "line end", ignore}, {'\r', "line end", ignore}, {'<', "load", load},
    {'>', "save", save},        {'?', "ping", ping},        {'B', "block command", block},
};

} // namespace

int serialslave_request(std::uint8_t byte) {
    if (const Command* command = find_command(commands, byte)) {
        run(*command);
    } else {
        const char character = static_cast<char>(byte);
        fileserver_log("KX> ?! <%02x> %s\n\r", byte, ascii_escape({&character, 1}).c_str());
    }
    return 0;
}

void serialslave_reset() {
    state = {};
}

} // namespace kx
