// The progress line.
#include "tools/bar.h"

#include "tools/global.h"
#include "tools/report.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::uint32_t FIRST_AFTER_MS = 500;
constexpr std::uint32_t DRAW_EVERY_MS = 250;

struct State {
    bool running = false;
    bool shown = false; // stands on the terminal
    std::size_t width = 0;
    std::string title;
    std::uint64_t total = 0;
    std::uint32_t started_ms = 0;
    std::optional<std::uint32_t> drawn_ms;
};
State state;

std::size_t columns() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const char* const variable = std::getenv("COLUMNS");
    const long width = variable != nullptr ? std::strtol(variable, nullptr, 10) : 0;
    return width > 0 && width < 10000 ? static_cast<std::size_t>(width) : 80;
}

/// "######........  12.3/39.6 KiB  31 %  3.74 KiB/s  0:07 left"
std::string numbers(std::uint64_t done, std::uint32_t elapsed_ms) {
    constexpr double KIB = 1024;
    constexpr std::size_t CELLS = 14;
    const double seconds = std::max(elapsed_ms, 1U) / 1000.0;
    const double rate = static_cast<double>(done) / seconds;
    const double kib = static_cast<double>(done) / KIB;
    if (state.total == 0) {
        return text_printf("%.1f KiB  %.2f KiB/s", kib, rate / KIB);
    }
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(state.total));
    const auto full = static_cast<std::size_t>(part * CELLS);
    std::string text = std::string(full, '#') + std::string(CELLS - full, '.');
    text += state.total < 1024
                ? text_printf("  %llu/%llu bytes", static_cast<unsigned long long>(done),
                              static_cast<unsigned long long>(state.total))
                : text_printf("  %.1f/%.1f KiB  %2d %%  %.2f KiB/s", kib,
                              static_cast<double>(state.total) / KIB, static_cast<int>(part * 100),
                              rate / KIB);
    if (done > 0 && done < state.total) {
        const long left = std::lround(static_cast<double>(state.total - done) / rate);
        text += text_printf("  %ld:%02ld left", left / 60, left % 60);
    }
    return text;
}

void report_progress(std::uint64_t done) {
    Json event;
    event.set("event", "progress");
    event.set("done", done);
    event.set("total", state.total);
    report_event(event);
}

} // namespace

void bar_begin(const std::string& title, std::uint64_t total) {
    bar_end();
    state = {};
    state.running = report_wants_progress();
    state.title = ascii_escape(title);
    state.total = total;
    state.started_ms = clock_ms();
}

void bar_update(std::uint64_t done, const std::string& note) {
    const std::uint32_t now = clock_ms();
    const std::uint32_t elapsed = now - state.started_ms;
    const bool at_once = globals.progress == "always";
    if (!state.running || (!at_once && elapsed < FIRST_AFTER_MS) ||
        (state.drawn_ms && now - *state.drawn_ms < DRAW_EVERY_MS)) {
        return;
    }
    state.drawn_ms = now;
    if (globals.json) {
        report_progress(done);
        return;
    }
    std::string line = state.title + "  " + (note.empty() ? numbers(done, elapsed) : note);
    const std::size_t room = columns() - 1; // a line that wraps cannot be taken away
    line.resize(std::min(line.size(), room));
    const std::size_t width = line.size();
    line.resize(std::clamp(state.width, width, room), ' '); // for terminals that know no codes
    std::fprintf(stderr, "\r%s", line.c_str());
    std::fflush(stderr);
    state.shown = true;
    state.width = width;
}

void bar_hide() {
    if (state.shown) {
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(std::min(state.width, columns() - 1)), "");
        state.shown = false;
        state.width = 0;
        state.drawn_ms.reset();
    }
}

void bar_end() {
    bar_hide();
    state.running = false;
}

} // namespace kx
