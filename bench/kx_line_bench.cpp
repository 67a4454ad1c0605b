// What kx moves over a pseudo-terminal, against a plain copy of as many bytes through one, and over
// a line of 115200 baud, whose counter is the part of the line that was used. The program itself
// runs; what is measured is the time from the first byte on the line to the last.
#include "tools/fake_target.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kx::bench {
namespace {

constexpr std::size_t SIZE = 0x10000 - 0x801;
constexpr long BAUD = 115200;

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

/// A program of that many bytes in a file of its own.
std::string program_file(std::size_t size) {
    const auto path = std::filesystem::temp_directory_path() / "kx_line_bench.prg";
    std::ofstream(path) << "\x01\x08" << std::string(size, 'x');
    return path.string();
}

using Clock = std::chrono::steady_clock;

/// kx with the target played here until it ends. The seconds in which bytes crossed the line.
double play(FakeTarget& target, std::vector<std::string> words) {
    setenv("KX_PORT", target.line.device.c_str(), 1);
    setenv("KX_BAUD", std::to_string(BAUD).c_str(), 1);
    setenv("KX_TARGET", "c64", 1);
    setenv("KXPATH", KX_SOURCE_DIR "/base", 1);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, KX_COMMAND, nullptr, nullptr, arguments.data(), environ) != 0) {
        fail("kx");
    }
    int status = 0;
    Clock::time_point first, last;
    std::uint64_t before = target.line.crossed;
    const std::uint64_t start = before;
    while (waitpid(child, &status, WNOHANG) == 0) {
        fake_step(target, 1);
        if (target.line.crossed != before) {
            last = Clock::now();
            first = before == start ? last : first;
            before = target.line.crossed;
        }
    }
    if (status != 0) {
        fail("kx failed");
    }
    return std::chrono::duration<double>(last - first).count();
}

void set_rate(benchmark::State& state, std::size_t size) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

/// The same bytes from one end of a pseudo-terminal to the other.
void plain_copy(benchmark::State& state) {
    FakeLine line;
    if (fake_line_open(line, 0) != 0) {
        fail("no pseudo-terminal");
    }
    std::vector<std::uint8_t> bytes(SIZE);
    for (auto _ : state) {
        std::thread host([&] { fd_write_all(line.slave.get(), bytes); });
        std::vector<std::uint8_t> taken(4096);
        for (std::size_t done = 0; done < SIZE;) {
            fake_line_wait(line, true, false, 100, -1);
            done += fake_line_read(line, taken);
        }
        host.join();
    }
    set_rate(state, SIZE);
}
BENCHMARK(plain_copy)->UseRealTime();

void send(benchmark::State& state) {
    FakeTarget target;
    fake_open(target, {});
    const std::string file = program_file(SIZE - 0x200); // before the cartridge's registers
    for (auto _ : state) {
        state.SetIterationTime(play(target, {"kx", "-q", "send", file}));
    }
    set_rate(state, SIZE - 0x200);
}
BENCHMARK(send)->UseManualTime()->Iterations(20);

void read(benchmark::State& state) {
    FakeTarget target;
    fake_open(target, {});
    for (auto _ : state) {
        state.SetIterationTime(
            play(target, {"kx", "-q", "read", "0x801-0xddff", "-o", "/dev/null"}));
    }
    set_rate(state, 0xDE00 - 0x801);
}
BENCHMARK(read)->UseManualTime()->Iterations(20);

void serve(benchmark::State& state) {
    FakeSettings settings;
    FakeRequest request;
    std::string problem;
    fake_request_parse("load kx_line_bench", request, problem);
    settings.requests = {request};
    const std::string file = program_file(SIZE);
    for (auto _ : state) {
        FakeTarget target;
        fake_open(target, settings);
        const std::string folder = std::filesystem::path(file).parent_path();
        state.SetIterationTime(play(target, {"kx", "-q", "serve", "--once", folder}));
    }
    set_rate(state, SIZE);
}
BENCHMARK(serve)->UseManualTime()->Iterations(5);

/// The bytes of 40 commands and their heads, and of the read that confirms them.
void send_at_115200(benchmark::State& state) {
    FakeTarget target;
    FakeSettings settings;
    settings.baud = BAUD;
    fake_open(target, settings);
    const std::string file = program_file(40550);
    double seconds = 0;
    for (auto _ : state) {
        seconds = play(target, {"kx", "-q", "send", file});
        state.SetIterationTime(seconds);
    }
    state.counters["line_percent"] =
        static_cast<double>(target.line.crossed) * 1000 / seconds / BAUD;
}
BENCHMARK(send_at_115200)->UseManualTime()->Iterations(1);

} // namespace
} // namespace kx::bench
