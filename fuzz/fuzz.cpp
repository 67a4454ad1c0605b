// The frame around every fuzzer.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "link/port.h"
#include "ui/msg.h"
#include "util/fd.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct ProgramEnd {};

struct State {
    int depth = 0;      // of ends(), within which the program does not end
    fs::path directory; // the fuzzer's own, removed at its end
    kx::Fd far_end;     // of the line
};
State state;

void remove_directory() {
    std::error_code error;
    fs::current_path("/", error);
    fs::remove_all(state.directory, error);
}

void make_directory() {
    const char* place = std::getenv("TMPDIR");
    std::string path = std::string(place != nullptr ? place : "/tmp") + "/kxfuzz.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        std::abort();
    }
    state.directory = path;
    std::atexit(remove_directory);
}

} // namespace

extern "C" {

[[noreturn]] void __real_exit(int status); // NOLINT: the linker's names for what it wraps

[[noreturn]] void __wrap_exit(int status) { // NOLINT
    if (state.depth > 0) {
        throw ProgramEnd();
    }
    __real_exit(status);
}

// A socket is no terminal, and so that it can stand for one, it takes every setting.
int __wrap_tcgetattr(int, termios*) {
    return 0;
} // NOLINT
int __wrap_tcsetattr(int, int, const termios*) {
    return 0;
} // NOLINT
int __wrap_tcflush(int, int) {
    return 0;
} // NOLINT

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { // NOLINT
    if (state.directory.empty()) {
        make_directory();
    }
    for (const auto& entry : fs::directory_iterator(state.directory)) {
        fs::remove_all(entry);
    }
    fs::current_path(state.directory);
    kx::active_config_reset();
    kx::charset_reset();
    kx::msg_reset();
    kx::verbosity.silent = 1;
    kx::fuzz::run(data, size);
    return 0;
}
}

namespace kx::fuzz {

bool ends(const std::function<void()>& body) {
    state.depth++;
    bool ended = false;
    try {
        body();
    } catch (const ProgramEnd&) {
        ended = true;
    }
    state.depth--;
    return ended;
}

void check(bool holds, std::string_view what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %.*s\n", static_cast<int>(what.size()), what.data());
        std::abort();
    }
}

void put(const std::string& name, std::string_view content) {
    const fs::path path = state.directory / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string get(const std::string& name) {
    std::ifstream file(state.directory / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> texts(const std::uint8_t* data, std::size_t size, std::size_t count) {
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < size; i++) {
        if (data[i] == '\f' && parts.size() < count) {
            parts.emplace_back();
        } else {
            parts.back() += static_cast<char>(data[i]);
        }
    }
    parts.resize(count);
    return parts;
}

void line_open(std::string_view sent) {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a line");
    state.far_end.reset(ends[0]);
    active_config.port_type = PORT_SERIAL;
    serial_set_write_limit(1);
    check(port_adopt(Fd(ends[1]), "line", 38400) == 1, "the port opens");
    const int room = 4 << 20;
    setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    check(::send(ends[0], sent.data(), sent.size(), MSG_DONTWAIT) ==
              static_cast<ssize_t>(sent.size()),
          "all is sent");
}

std::string line_answer() {
    std::string answer(1 << 20, 0);
    const ssize_t got = recv(state.far_end.get(), answer.data(), answer.size(), MSG_DONTWAIT);
    answer.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    state.far_end.reset();
    port_reset();
    return answer;
}

std::string tree(const std::string& directory) {
    std::set<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(state.directory / directory)) {
        lines.insert(entry.path().string() +
                     (entry.is_regular_file() ? ":" + get(entry.path()) : "/") + "\n");
    }
    std::string all;
    for (const std::string& line : lines) {
        all += line;
    }
    return all;
}

} // namespace kx::fuzz
