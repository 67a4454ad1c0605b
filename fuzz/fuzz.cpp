// The frame around every fuzzer.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "ui/msg.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct ProgramEnd {};

struct State {
    int depth = 0;      // of ends(), within which the program does not end
    fs::path directory; // the fuzzer's own, removed at its end
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
    const fs::path path(name);
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path());
    }
    std::ofstream(path, std::ios::binary) << content;
}

std::string get(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
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

std::string tree(const std::string& directory) {
    std::set<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
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
