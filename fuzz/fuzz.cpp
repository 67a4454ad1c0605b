// The frame around every fuzzer; the environment's KX_FUZZER says which one runs.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/simulator.h"
#include "link/port.h"
#include "link/target_memory.h"
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

namespace fs = std::filesystem;

namespace {

struct ProgramEnd {};

struct State {
    kx::fuzz::Fuzzer fuzzer = nullptr;
    int depth = 0;      // of ends(), within which the program does not end
    fs::path directory; // the fuzzer's own, removed at its end
    kx::Fd far_end;     // of the line
};
State state;

void start() {
    const char* name = std::getenv("KX_FUZZER");
    state.fuzzer = kx::fuzz::fuzzers.at(name != nullptr ? name : "");
    std::string path = fs::temp_directory_path() / "kxfuzz.XXXXXX";
    kx::fuzz::check(mkdtemp(path.data()) != nullptr, "a directory can be made");
    state.directory = path;
    std::atexit([] { fs::remove_all(state.directory); });
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

// A socket is no terminal; so that it can stand for one, it takes every setting.
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
    if (state.fuzzer == nullptr) {
        start();
    }
    fs::remove_all(state.directory);
    fs::create_directory(state.directory);
    fs::current_path(state.directory);
    kx::active_config_reset();
    kx::charset_reset();
    kx::msg_set_output(kx::MSG_QUIET);
    kx::verbosity.silent = 1;
    FuzzedDataProvider input(data, size);
    state.fuzzer(input);
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

std::set<std::string> tree(const std::string& name) {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(state.directory / name)) {
        files.insert(entry.path().string() + "\n" +
                     (entry.is_regular_file() ? get(entry.path()) : ""));
    }
    return files;
}

void line_open(std::string_view sent) {
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
}

std::string line_answer() {
    std::string answer(1 << 20, 0);
    const ssize_t got = recv(state.far_end.get(), answer.data(), answer.size(), MSG_DONTWAIT);
    answer.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    state.far_end.reset();
    port_reset();
    return answer;
}

void memory_open(std::uint8_t bits) {
    mem_mode = MEM_SIMULATOR;
    active_config.addr_bits = bits;
    MemoryMap& map = active_config.memory_map;
    memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFFFFFF), MEMORY_RAM_ROM);
    check(sim_init() == 1, "the simulator starts");
}

} // namespace kx::fuzz
