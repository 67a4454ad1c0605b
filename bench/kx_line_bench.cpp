// What kx moves over a pseudo-terminal, against cat's copy of as many bytes to one, and over
// a line of 115200 baud, whose counter is the part of the line that was used. The program itself
// runs; what is measured is the time from the first byte on the line to the last. Half a megabyte,
// to the accelerator's 24 bits of address: 64 KiB take a pseudo-terminal half a millisecond, as
// long as two programs take to wake each other up.
#include "tools/fake_target.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kx::bench {
namespace {

constexpr std::size_t SIZE = 0x7f000;
constexpr const char* RANGE = "0xf80000:0x7f000";
constexpr long BAUD = 115200;

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

/// A program of that many bytes in a file of its own, in a directory of its own.
std::string program_file(std::size_t size) {
    const auto directory = std::filesystem::temp_directory_path() / "kx_line_bench";
    std::filesystem::create_directory(directory);
    const auto path = directory / "program.prg";
    std::ofstream(path) << "\x01\x08" << std::string(size, 'x');
    return path.string();
}

using Clock = std::chrono::steady_clock;

pid_t start(const char* program, std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, program, nullptr, nullptr, arguments.data(), environ) != 0) {
        fail(program);
    }
    return child;
}

/// From the first byte over a line to the last, as seen at its far end.
struct Span {
    Clock::time_point first, last;
    std::uint64_t start, before;
    explicit Span(const FakeLine& line) : start(line.crossed), before(line.crossed) {}
    void look(const FakeLine& line) {
        if (line.crossed != before) {
            last = Clock::now();
            first = before == start ? last : first;
            before = line.crossed;
        }
    }
    double seconds() const { return std::chrono::duration<double>(last - first).count(); }
};

/// kx with the target played here until it ends. The seconds in which bytes crossed the line.
double play(FakeTarget& target, const char* name, const std::vector<std::string>& words) {
    setenv("KX_PORT", target.line.device.c_str(), 1);
    setenv("KX_BAUD", std::to_string(BAUD).c_str(), 1);
    setenv("KX_TARGET", name, 1);
    setenv("KXPATH", KX_SOURCE_DIR "/base", 1);
    const pid_t child = start(KX_COMMAND, words);
    int status = 0;
    Span span(target.line);
    // What the host has written last is on its way yet when it ends.
    for (bool ended = false; !ended || !fake_is_done(target);) {
        ended = ended || waitpid(child, &status, WNOHANG) == child;
        fake_step(target, 1);
        span.look(target.line);
    }
    if (status != 0) {
        fail("kx failed");
    }
    return span.seconds();
}

/// Shows the best of many as well: the others were held up by the scheduler. All move as many
/// bytes, so that the times compare.
void often(benchmark::internal::Benchmark* benchmark) {
    const auto best = [](const std::vector<double>& times) { return std::ranges::min(times); };
    benchmark->Iterations(1)->Repetitions(30)->ReportAggregatesOnly()->ComputeStatistics("best",
                                                                                         best);
}

/// What a user would take who has no kx.
void plain_copy(benchmark::State& state) {
    FakeLine line;
    if (fake_line_open(line, 0) != 0) {
        fail("no pseudo-terminal");
    }
    const std::string file = program_file(SIZE - 2);
    std::vector<std::uint8_t> taken(4096);
    for (auto _ : state) {
        Span span(line);
        const pid_t child = start("/bin/sh", {"sh", "-c", "exec cat " + file + " >" + line.device});
        for (std::size_t done = 0; done < SIZE;) {
            fake_line_wait(line, true, false, 100, -1);
            done += fake_line_read(line, taken);
            span.look(line);
        }
        waitpid(child, nullptr, 0);
        state.SetIterationTime(span.seconds());
    }
}
BENCHMARK(plain_copy)->UseManualTime()->Apply(often);

FakeSettings wide() {
    FakeSettings settings;
    settings.addr_bits = 24;
    return settings;
}

void send(benchmark::State& state) {
    FakeTarget target;
    fake_open(target, wide());
    const std::string file = program_file(SIZE - 2);
    for (auto _ : state) {
        state.SetIterationTime(
            play(target, "c64_scpu", {"kx", "-q", "send", file, "--type=raw", "--at=0xf80000"}));
    }
}
BENCHMARK(send)->UseManualTime()->Apply(often);

void read(benchmark::State& state) {
    FakeTarget target;
    fake_open(target, wide());
    for (auto _ : state) {
        state.SetIterationTime(
            play(target, "c64_scpu", {"kx", "-q", "read", RANGE, "-o", "/dev/null"}));
    }
}
BENCHMARK(read)->UseManualTime()->Apply(often);

/// The protocol whose files may be as large.
void serve(benchmark::State& state) {
    FakeSettings settings;
    settings.fileserver = FILESERVER_GENERIC;
    FakeRequest request;
    std::string problem;
    const std::string file = program_file(SIZE - 2);
    const std::filesystem::path path(file);
    fake_request_parse("load " + path.filename().string(), request, problem);
    settings.requests = {request};
    for (auto _ : state) {
        FakeTarget target;
        fake_open(target, settings);
        state.SetIterationTime(play(target, "c64rr_generic",
                                    {"kx", "-q", "--json", "serve", "--once", path.parent_path()}));
    }
}
BENCHMARK(serve)->UseManualTime()->Apply(often);

/// A program of 40550 bytes and the heads of its commands, over the line either way.
void at_115200(benchmark::State& state, const std::vector<std::string>& words) {
    FakeTarget target;
    FakeSettings settings;
    settings.baud = BAUD;
    fake_open(target, settings);
    double seconds = 0;
    for (auto _ : state) {
        seconds = play(target, "c64", words);
        state.SetIterationTime(seconds);
    }
    state.counters["line_percent"] =
        static_cast<double>(target.line.crossed) * 1000 / seconds / BAUD;
}

void send_at_115200(benchmark::State& state) {
    at_115200(state, {"kx", "-q", "send", program_file(40550)});
}
BENCHMARK(send_at_115200)->UseManualTime()->Iterations(1);

void read_at_115200(benchmark::State& state) {
    at_115200(state, {"kx", "-q", "read", "0x801:40550", "-o", "/dev/null"});
}
BENCHMARK(read_at_115200)->UseManualTime()->Iterations(1);

} // namespace
} // namespace kx::bench
