// The generic fileserver: the table of its commands, and the host's file calls behind them.
#include "fileserver/generic_private.h"

#include "fileserver/directory_search_private.h"
#include "fileserver/fileserver.h"
#include "fileserver/host_files_private.h"
#include "fileserver/line_private.h"
#include "fileserver/request_private.h"
#include "link/rate.h"
#include "util/ascii.h"
#include "util/bytes.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::uint8_t MARKER = 0x01; // the first bytes of every request
constexpr std::uint8_t SIGNATURE = 0xAC;
constexpr std::uint8_t STATUS_OK = 0x00;
constexpr std::uint8_t STATUS_FAILED = 0xAA;

constexpr const char* BAD_HANDLE = "no such handle"; // the target gave no good one

constexpr std::size_t FIND_NAME = 13;   // octets of a name in a find record
constexpr std::size_t FIND_RECORD = 27; // name, its end, attribute, time, date and size
constexpr std::size_t CWD_NOTE = 256;
constexpr std::int32_t CWD_MAX = 65536; // octets of the largest directory asked for

struct State {
    DirectorySearch search; // from dbgFindfirst on
};
State state;

/// A request: its command's name and the arguments.
struct Request {
    const char* name;
    std::string text;
    std::int32_t numbers[3];
};

// Replies -------------------------------------------------------------------------------------

void reply(std::int32_t number) {
    line_put32(static_cast<std::uint32_t>(number));
}

// 0 or -1, as the host's call gave it.
// Meant: here and throughout this file, lines of some commands end in a way of their own.
void reply_result(int result, const char* failed, const char* ok) {
    reply(result);
    if (result == -1) {
        request_fail(BAD_HANDLE);
    }
    fileserver_log("%s", result == -1 ? failed : ok);
}

std::string shown(const std::string& text) {
    return ascii_escape(text);
}

// Whole files ---------------------------------------------------------------------------------

void log_transfer_end(std::uint32_t moved, std::uint32_t size) {
    if (request_is_dropped()) {
        fileserver_log("KX> File transfer broken off!\n\r");
        return;
    }
    if (moved < size) { // the rest was sent all the same
        request_fail("the file came short");
        fileserver_log("KX> File came short! (%ld bytes)\n\r", static_cast<long>(moved));
        return;
    }
    fileserver_log("KX> File transfer complete\n\r");
    rate_stop_report(size);
}

void load(const Request& request) {
    fileserver_log("KX> CMD: %s(\"%s\",?)\n\r", request.name, shown(request.text).c_str());
    std::uint32_t size = 0;
    const HostFd file = host_open_file(request.text, size);
    if (!file) {
        fileserver_log("KX> File not found!\n\r");
        request_fail("not found");
        line_put(STATUS_FAILED);
        return;
    }
    fileserver_log("KX> Filesize: %ld bytes\n\r", static_cast<long>(size));
    rate_start();
    std::uint8_t head[1 + 4] = {STATUS_OK};
    put32be(head + 1, size);
    line_put_bytes(head);
    request_event().expected = size;
    log_transfer_end(line_send_file(file.get(), size), size);
}

void save(const Request& request) {
    const std::int32_t announced = request.numbers[0];
    // Meant: without quotes, unlike the others.
    fileserver_log("KX> CMD: %s(%s,?,%ld)\n\r", request.name, shown(request.text).c_str(),
                   static_cast<long>(announced));
    HostSave file(request.text);
    if (!file) {
        fileserver_log("KX> File couldn't be created!\n\r");
        request_fail("couldn't be created");
        line_put(STATUS_FAILED);
        return;
    }
    line_put(STATUS_OK);
    fileserver_log("KX> Filesize: %ld bytes\n\r", static_cast<long>(announced));
    rate_start();
    const auto size = static_cast<std::uint32_t>(std::max(announced, 0));
    bool written = true;
    const std::uint32_t received = line_receive_file(file.fd(), size, written);
    if (!request_is_dropped() && (!written || file.replace() != 0)) {
        request_fail("couldn't be written"); // the protocol has no way to tell the target
        fileserver_log("KX> File couldn't be written!\n\r");
        return;
    }
    log_transfer_end(received, size);
}

// Meant: never executed, a shell for the target is switched off for safety.
void system_line(const Request& request) {
    fileserver_log("%s()\n\r", request.name);
    fileserver_log("KX> CmdLine: %s (currently disabled for safety!)\n\r",
                   shown(request.text).c_str());
    request_fail("switched off");
    reply(-1);
}

// Handles -------------------------------------------------------------------------------------

// Makes an absolute path one from the current directory. Backslashes further on and ".." stay: what
// the target may reach is no matter of spelling but of `fileserver_root`.
std::string clean_path(const std::string& path) {
    const auto first = std::ranges::find_if(path, ascii_is_print);
    const auto is_name = [](char c) { return c != '/' && c != '\\'; };
    return {std::find_if(first, path.end(), is_name), path.end()};
}

void open_handle(const Request& request) {
    const auto flags = static_cast<std::uint32_t>(request.numbers[0]);
    const std::string path = clean_path(request.text);
    std::string cwd;
    host_getcwd(cwd, CWD_MAX);
    fileserver_log("KX> CMD: %s(\"%s\",%04x) (%s in %s)...", request.name,
                   shown(request.text).c_str(), flags, shown(path).c_str(),
                   shown(cwd.substr(0, CWD_NOTE)).c_str());
    const int handle = host_open(path, flags);
    reply(handle);
    request_event().file = path;
    if (handle == -1) {
        request_fail("not opened");
        fileserver_log("not ok!\n\r");
    } else {
        fileserver_log("ok. (fh=%d)\n\r", handle);
    }
}

void close_handle(const Request& request) {
    const std::int32_t handle = request.numbers[0];
    fileserver_log("KX> CMD: %s(%d) ...", request.name, handle);
    reply_result(host_is_handle(handle) ? host_close(handle) : -1, "not ok.\n\r", "ok.\n\r");
}

off_t seek(std::int32_t handle, std::int32_t offset, int whence) {
    if (!host_is_handle(handle)) {
        request_note(BAD_HANDLE);
        return -1;
    }
    const off_t position = lseek(handle, offset, whence);
    if (position == -1) {
        request_note_errno();
    }
    return position;
}

// The bytes from the handle's position to the end of its file, 0 or less at the end. None when it
// has no position or, which the first of these bytes finds out when any is wanted, cannot be read.
std::optional<std::int64_t> bytes_left(std::int32_t handle, std::int32_t wanted) {
    const std::int64_t position = seek(handle, 0, SEEK_CUR);
    struct stat status = {};
    char first = 0;
    if (position < 0 || fstat(handle, &status) != 0 ||
        (wanted > 0 && position < status.st_size && ::pread(handle, &first, 1, position) == -1)) {
        request_note_errno();
        return std::nullopt;
    }
    return status.st_size - position;
}

void read_handle(const Request& request) {
    const std::int32_t handle = request.numbers[0];
    const std::int32_t count = std::max(request.numbers[1], 0);
    fileserver_log("KX> CMD: %s(%d,?,%ld) ...", request.name, handle,
                   static_cast<long>(request.numbers[1]));
    const std::optional<std::int64_t> left = bytes_left(handle, count);
    if (!left || *left <= 0) {
        reply_result(left ? 0 : -1, "not ok.\n\r", "EOF.\n\r");
        return;
    }
    const std::int64_t own = std::min<std::int64_t>(*left, count);
    reply(static_cast<std::int32_t>(own));
    request_event().expected = static_cast<std::uint64_t>(own);
    // Meant: all that was asked for is sent, past the end too, since targets read that many.
    const std::uint32_t sent = line_send_file(handle, static_cast<std::uint32_t>(count));
    if (sent < own) {
        request_fail("the file came short");
        fileserver_log(request_is_dropped() ? "broken off.\n\r" : "came short.\n\r");
        return;
    }
    fileserver_log("ok.\n\r");
}

void write_handle(const Request& request) {
    const std::int32_t handle = request.numbers[0];
    const auto count = static_cast<std::uint32_t>(std::max(request.numbers[1], 0));
    fileserver_log("KX> CMD: %s(%d,?,%ld) ...", request.name, handle,
                   static_cast<long>(request.numbers[1]));
    if (count == 0) { // Meant: whether the handle is one is not looked at.
        reply_result(handle < 0 ? -1 : 0, "not ok.\n\r", "ok.\n\r");
        return;
    }
    const bool allowed = host_is_handle(handle) && !host_refuses_write(request.name);
    if (!allowed) {
        request_note(BAD_HANDLE);
    }
    bool written = true;
    const std::uint32_t received = line_receive_file(allowed ? handle : -1, count, written);
    // Meant: not the count, but what writing the last byte alone would give.
    reply_result(allowed && written && received == count ? 1 : -1, "not ok.\n\r", "ok.\n\r");
}

void seek_handle(const Request& request) {
    const auto [handle, offset, whence] = request.numbers;
    fileserver_log("KX> CMD: %s(%d,%ld,%d) ...", request.name, handle, static_cast<long>(offset),
                   whence);
    const off_t position = seek(handle, offset, whence);
    line_put32(static_cast<std::uint32_t>(position)); // its low 32 bits
    if (position == -1) {
        request_fail(BAD_HANDLE);
    }
    fileserver_log("%s", position == -1 ? "not ok.\n\r" : "ok.\n\r");
}

void tell_handle(const Request& request) {
    const std::int32_t handle = request.numbers[0];
    fileserver_log("KX> CMD: %s(%d) ...", request.name, handle);
    const off_t position = seek(handle, 0, SEEK_CUR);
    const auto told = static_cast<std::uint32_t>(position);
    line_put32(told);
    if (position == -1) {
        request_fail(BAD_HANDLE);
        fileserver_log("not ok.\n\r");
    } else {
        fileserver_log("ok. (pos %08x)\n\r", told);
    }
}

// Directories ---------------------------------------------------------------------------------

void log_path(const Request& request) {
    fileserver_log("KX> CMD: %s(\"%s\") ...", request.name, shown(request.text).c_str());
}

void change_directory(const Request& request) {
    log_path(request);
    reply_result(host_chdir(request.text), "not ok!\n\r", "ok.\n\r");
}

void tell_directory(const Request& request) {
    const std::int32_t size = request.numbers[0];
    fileserver_log("KX> CMD: %s(?,%d) ...", request.name, size);
    std::string path;
    if (size < 1 || host_getcwd(path, static_cast<std::size_t>(std::min(size, CWD_MAX))) != 0) {
        line_put(STATUS_FAILED);
        request_fail("no room for it");
        fileserver_log("not ok.\n");
        return;
    }
    line_put_text(static_cast<char>(STATUS_OK) + path + '\0');
    fileserver_log("ok. (is %s)\n", shown(path).c_str());
}

void make_directory(const Request& request) {
    log_path(request);
    reply_result(host_mkdir(request.text), "not ok!\n\r", "ok.\n\r");
}

void remove_directory(const Request& request) {
    log_path(request);
    reply_result(host_rmdir(request.text), "not ok!\n", "ok.\n");
}

void reply_found(int result, const DirectoryEntry& entry) {
    if (result == -1) {
        request_note("no more matches");
        reply_result(-1, "not ok!\n\r", "");
        return;
    }
    request_event().file = entry.name;
    std::uint8_t bytes[4 + FIND_RECORD] = {}; // the result first, which is 0
    std::uint8_t* record = bytes + 4;
    // A name of 13 characters or more is cut, without notice; the zero after it is always there.
    entry.name.copy(reinterpret_cast<char*>(record), FIND_NAME);
    record[FIND_NAME + 1] = entry.attribute;
    put32be(record + 19, entry.date); // after a time of 0
    put32be(record + 23, entry.size);
    line_put_bytes(bytes);
    fileserver_log("ok.\n\r");
}

// Meant: the attributes asked for play no part in the search.
void find_first(const Request& request) {
    fileserver_log("KX> CMD: %s(\"%s\",?,%02x) ...", request.name, shown(request.text).c_str(),
                   static_cast<unsigned>(request.numbers[0]));
    DirectoryEntry entry;
    reply_found(directory_find_first(state.search, request.text, entry), entry);
}

void find_next(const Request& request) {
    fileserver_log("KX> CMD: %s(?) ...", request.name);
    DirectoryEntry entry;
    reply_found(directory_find_next(state.search, entry), entry);
}

// Commands ------------------------------------------------------------------------------------

struct Command {
    std::uint8_t code;
    const char* name;
    bool text;   // whether it has one, before its numbers
    int numbers; // how many
    void (*run)(const Request& request);
};
constexpr Command commands[] = {
    {.code = 0x01, .name = "dbgLoad", .text = true, .numbers = 0, .run = load},
    {.code = 0x02, .name = "dbgSave", .text = true, .numbers = 1, .run = save},
    {.code = 0x03, .name = "dbgSystem", .text = true, .numbers = 0, .run = system_line},
    {.code = 0x04, .name = "dbgOpen", .text = true, .numbers = 1, .run = open_handle},
    {.code = 0x05, .name = "dbgClose", .text = false, .numbers = 1, .run = close_handle},
    {.code = 0x06, .name = "dbgRead", .text = false, .numbers = 2, .run = read_handle},
    // Meant: without the "dbg" of all others.
    {.code = 0x07, .name = "dhWrite", .text = false, .numbers = 2, .run = write_handle},
    {.code = 0x08, .name = "dbgLseek", .text = false, .numbers = 3, .run = seek_handle},
    {.code = 0x09, .name = "dbgTell", .text = false, .numbers = 1, .run = tell_handle},
    {.code = 0x0A, .name = "dbgChdir", .text = true, .numbers = 0, .run = change_directory},
    {.code = 0x0B, .name = "dbgGetcwd", .text = false, .numbers = 1, .run = tell_directory},
    {.code = 0x0C, .name = "dbgMkdir", .text = true, .numbers = 0, .run = make_directory},
    {.code = 0x0D, .name = "dbgRmdir", .text = true, .numbers = 0, .run = remove_directory},
    {.code = 0x0E, .name = "dbgFindfirst", .text = true, .numbers = 1, .run = find_first},
    {.code = 0x0F, .name = "dbgFindnext", .text = false, .numbers = 0, .run = find_next},
};

} // namespace

int generic_fileserver_request(std::uint8_t byte) {
    if (byte != MARKER) {
        return -1;
    }
    const RequestScope scope;
    request_event().request = UNKNOWN_REQUEST;
    if (line_get() != SIGNATURE) {
        request_fail("no signature");
        return 0;
    }
    const std::uint8_t code = line_get();
    if (request_is_dropped()) {
        return 0;
    }
    const auto* command = std::ranges::find(commands, code, &Command::code);
    if (command == std::end(commands)) {
        request_event().request = ""; // the result tells
        fileserver_log("KX> unknown CMD (0x%02x).\n", code);
        return -1;
    }
    request_event().request = command->name;
    Request request = {.name = command->name, .text = {}, .numbers = {}};
    if (command->text) {
        request_event().name = line_get_name('\0');
        request.text = request_event().name;
    }
    for (int i = 0; i < command->numbers; i++) {
        request.numbers[i] = static_cast<std::int32_t>(line_get32());
    }
    // With half a request nothing is done: half a name may be another file's.
    if (!request_is_dropped()) {
        command->run(request);
    }
    return 0;
}

void generic_reset() {
    state.search.directory.close();
    state.search.pattern.clear();
}

} // namespace kx
