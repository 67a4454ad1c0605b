// The time until the first screen of a 200 MB text stands on a pseudo-terminal: `kx view` beside
// `less`, each as a program started afresh.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <csignal>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t TEXT_BYTES = 200'000'000;
constexpr int ROWS = 24;
constexpr char NAME[] = "kx_view_bench.txt";

/// A program and what it shows last of its first screen.
struct Pager {
    std::string program;
    std::string option;
    int text_rows;
    std::string bar;
};

std::string text_line(std::size_t number) {
    char line[80];
    std::snprintf(line, sizeof line, "row %08zu: the quick brown fox jumps over the lazy dog\n",
                  number);
    return line;
}

/// Writes the text, which then lies in the page cache; its path.
std::string make_text() {
    const std::filesystem::path path = std::filesystem::temp_directory_path() / NAME;
    std::ofstream file(path, std::ios::binary);
    std::size_t bytes = 0;
    for (std::size_t number = 1; bytes < TEXT_BYTES; ++number) {
        const std::string line = text_line(number);
        file << line;
        bytes += line.size();
    }
    return path;
}

/// Seconds from the start of the program until the bar below the last row of text has arrived.
double first_screen(const Pager& pager, const std::string& path) {
    const winsize size{.ws_row = ROWS, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    const std::string last_row = text_line(static_cast<std::size_t>(pager.text_rows)).substr(0, 12);
    int master = -1;
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = forkpty(&master, nullptr, nullptr, &size);
    if (pid == 0) {
        setenv("TERM", "xterm", 1);
        setenv("LESS", "", 1);
        execlp(pager.program.c_str(), pager.program.c_str(), pager.option.c_str(), path.c_str(),
               nullptr);
        _exit(127);
    }
    std::string output;
    std::size_t row = std::string::npos;
    while (row == std::string::npos || output.find(pager.bar, row) == std::string::npos) {
        char piece[4096];
        const ssize_t count = read(master, piece, sizeof piece);
        if (count <= 0) {
            break;
        }
        output.append(piece, static_cast<std::size_t>(count));
        row = output.find(last_row);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(master);
    return row == std::string::npos ? -1 : taken.count();
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Both by turns, so that whatever else the machine does meets both.
void first_screen_of_200_mb(benchmark::State& state) {
    const Pager viewer{KX_COMMAND, "view", ROWS - 2, "Quit"};
    const Pager less{"less", "-f", ROWS - 1, NAME};
    const std::string path = make_text();
    std::vector<double> viewer_ms;
    std::vector<double> less_ms;
    while (state.KeepRunning()) {
        viewer_ms.push_back(first_screen(viewer, path) * 1e3);
        less_ms.push_back(first_screen(less, path) * 1e3);
        if (viewer_ms.back() < 0 || less_ms.back() < 0) {
            state.SkipWithError("a first screen never came");
            break;
        }
    }
    state.counters["viewer_ms"] = median(viewer_ms);
    state.counters["less_ms"] = median(less_ms);
    state.counters["ratio"] = median(viewer_ms) / median(less_ms);
    std::filesystem::remove(path);
}
BENCHMARK(first_screen_of_200_mb)->Iterations(201)->Unit(benchmark::kMillisecond);

} // namespace
