// The way back: the terminal as it was found, whether the program returns, exits or is ended by a
// signal, and the texts that had to wait for the screen to close.
#include "ui/con.h"
#include "ui/con_private.h"

#include "util/ending.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::size_t RESET_MAX = 512;
constexpr std::size_t PIECE_BYTES = 256; // a terminal that can take any takes so much at once
constexpr int STOPPED_MS = 500;          // for which a terminal that takes nothing is waited for

void restore_terminal(void*);

struct State {
    int holders = 0;
    TerminalSettings found; // at the first hold
    char reset[RESET_MAX] = {};
    std::size_t reset_size = 0;
    bool (*is_away)() = nullptr;
    std::string held;
    EndingRestorer restorer{.restore = restore_terminal};
    bool exit_registered = false;
};
State state;

// A user may have stopped the output with Ctrl-S: the end of the program does not wait for that.
void write_all(const char* bytes, std::size_t size) {
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    while (size > 0 && poll(&output, 1, STOPPED_MS) > 0) {
        const ssize_t n = write(STDOUT_FILENO, bytes, std::min(size, PIECE_BYTES));
        if (n <= 0) {
            return; // the terminal has gone
        }
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
}

// Whether the terminal is this program's and not that of the shell that stopped it.
bool in_foreground() {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

// Only what is safe in a signal handler. A screen that was left for a stopped program (Ctrl-Z) has
// put all back then, and the terminal is the shell's by now; but one that is on its way back has
// its settings already while it still counts as left.
void restore_terminal(void*) {
    const bool is_away = state.is_away != nullptr && state.is_away();
    if (!is_away) {
        write_all(state.reset, state.reset_size);
    }
    if (!is_away || in_foreground()) {
        con_settings_restore(state.found);
    }
    write_all(state.held.data(), state.held.size());
}

// One handler for both, so that the screen always goes before the raw mode that it came upon.
void leave_terminal() {
    con_close();
    con_leave_rawmode();
}

} // namespace

TerminalSettings con_settings_now() {
    TerminalSettings now;
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
        now.known[fd] = tcgetattr(fd, &now.settings[fd]) == 0;
    }
    return now;
}

void con_settings_restore(const TerminalSettings& saved) {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
        if (saved.known[fd]) {
            tcsetattr(fd, TCSANOW, &saved.settings[fd]);
        }
    }
}

void con_hold_terminal() {
    const EndingHeldBack held_back;
    if (!state.exit_registered) {
        state.exit_registered = true;
        std::atexit(leave_terminal);
    }
    if (state.holders++ == 0) {
        state.found = con_settings_now();
        ending_add(state.restorer);
    }
}

void con_release_terminal() {
    if (--state.holders == 0) {
        ending_remove(state.restorer);
    }
}

void con_set_reset(std::string_view bytes, bool (*is_away)()) {
    const EndingHeldBack held_back;
    state.reset_size = std::min(bytes.size(), RESET_MAX);
    bytes.copy(state.reset, state.reset_size);
    state.is_away = is_away;
}

void con_after_screen(const char* text) {
    if (con_screen_active()) {
        const EndingHeldBack held_back;
        state.held += text;
    } else {
        std::fputs(text, stdout);
        std::fflush(stdout);
    }
}

void con_write_held() {
    std::string text;
    {
        const EndingHeldBack held_back;
        text.swap(state.held);
    }
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

} // namespace kx
