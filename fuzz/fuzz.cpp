// The frame around every fuzzer; the environment's KX_FUZZER says which one runs.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "link/port.h"
#include "ui/msg.h"
#include "util/clock.h"
#include "util/fd.h"
#include "util/signals.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct ProgramEnd {};

struct State {
    kx::fuzz::Fuzzer fuzzer = nullptr;
    int depth = 0;      // of ends(), within which the program does not end
    fs::path directory; // the fuzzer's own, removed at its end
    kx::Fd far_end;     // of the line
    std::uint32_t now_ms = 0;
};
State state;

void start() {
    kx::signals_ignore_failed_writes();
    kx::clock_set_source([] { return state.now_ms; });
    std::string path = fs::temp_directory_path() / "kxfuzz.XXXXXX";
    kx::fuzz::check(mkdtemp(path.data()) != nullptr, "a directory can be made");
    state.directory = path;
    std::atexit([] { fs::remove_all(state.directory); });
    const char* name = std::getenv("KX_FUZZER");
    state.fuzzer = kx::fuzz::fuzzers.at(name != nullptr ? name : "");
}

} // namespace

// What the linker puts in the place of the system's calls; CMakeLists.txt has the list.
// NOLINTBEGIN: the linker's names
extern "C" {

[[noreturn]] void __real_exit(int status);
int __real_poll(pollfd* lines, nfds_t count, int ms);
int __real_sigaction(int number, const struct sigaction* action, struct sigaction* old);

[[noreturn]] void __wrap_exit(int status) {
    if (state.depth > 0) {
        throw ProgramEnd();
    }
    __real_exit(status);
}

// Nothing comes later: who waits has waited at once.
int __wrap_poll(pollfd* lines, nfds_t count, int ms) {
    const int ready = __real_poll(lines, count, 0);
    state.now_ms += ready == 0 ? static_cast<std::uint32_t>(ms) : 0;
    return ready;
}

// For libFuzzer alone: a fuzzer's own ends by signals are set and put back thousands of times.
int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* old) {
    return state.fuzzer == nullptr ? __real_sigaction(number, action, old) : 0;
}

// For what a line in memory cannot do and a disc in memory need not, and for sleep.
int kx_fuzz_nothing() {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (state.fuzzer == nullptr) {
        start();
    }
    fs::current_path(state.directory);
    for (const auto& entry : fs::directory_iterator(".")) {
        fs::remove_all(entry);
    }
    kx::active_config_reset();
    kx::charset_reset();
    kx::msg_set_output(kx::MSG_QUIET);
    kx::verbosity.silent = 1;
    FuzzedDataProvider input(data, size);
    const int lowest = kx::Fd(dup(STDERR_FILENO)).get();
    state.fuzzer(input);
    kx::fuzz::check(kx::Fd(dup(STDERR_FILENO)).get() == lowest, "no descriptor stays open");
    return 0;
}
}
// NOLINTEND

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
    std::ostringstream content;
    content << std::ifstream(state.directory / name, std::ios::binary).rdbuf();
    return content.str();
}

void line_open(std::string_view sent, bool hang_up) {
    const int room = 4 << 20;
    int pair[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0, "a line can be had");
    state.far_end.reset(pair[0]);
    active_config.port_type = PORT_SERIAL;
    serial_set_write_limit(1);
    check(port_adopt(Fd(pair[1]), "line", 38400) == 1, "the port opens");
    setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const ssize_t gone = send(pair[0], sent.data(), sent.size(), MSG_DONTWAIT);
    check(gone == static_cast<ssize_t>(sent.size()), "all is sent");
    if (hang_up) {
        shutdown(pair[0], SHUT_RDWR);
    }
}

std::string line_answer() {
    std::string answer;
    char piece[4096];
    for (ssize_t got; (got = recv(state.far_end.get(), piece, sizeof piece, MSG_DONTWAIT)) > 0;) {
        answer.append(piece, static_cast<std::size_t>(got));
    }
    state.far_end.reset();
    port_reset();
    return answer;
}

} // namespace kx::fuzz
