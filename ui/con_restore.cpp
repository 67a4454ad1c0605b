// The way back: the terminal as it was found, whether the program returns, exits or is ended by a
// signal, and the texts that had to wait for the screen to close.
#include "ui/con.h"
#include "ui/con_private.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace kx {

namespace {

// Those that end the program while a user sits at the terminal. cbreak leaves the quit key alive.
constexpr int ENDING_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT};
constexpr int ENDING_COUNT = sizeof ENDING_SIGNALS / sizeof ENDING_SIGNALS[0];
constexpr std::size_t RESET_MAX = 512;

struct RestoreState {
    int holders = 0;
    TerminalSettings found; // at the first hold
    char reset[RESET_MAX] = {};
    std::size_t reset_size = 0;
    std::string held;
    struct sigaction before[ENDING_COUNT] = {};
    bool exit_registered = false;
};
RestoreState state;

sigset_t ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : ENDING_SIGNALS) {
        sigaddset(&set, number);
    }
    return set;
}

// The handler reads the state: it must not find it half changed.
class SignalsBlocked {
public:
    SignalsBlocked() {
        const sigset_t set = ending_signals();
        sigprocmask(SIG_BLOCK, &set, &before_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

void write_all(const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t n = write(STDOUT_FILENO, bytes, size);
        if (n <= 0) {
            return; // the terminal has gone
        }
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
}

// Only what is safe in a signal handler. SA_RESETHAND has brought the default action back, and
// the signal is blocked until the handler returns: then it ends the program.
void end_by_signal(int number) {
    write_all(state.reset, state.reset_size);
    con_settings_restore(state.found);
    write_all(state.held.data(), state.held.size());
    raise(number);
}

void catch_signals() {
    struct sigaction action = {};
    action.sa_handler = end_by_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    action.sa_mask = ending_signals();
    sigaddset(&action.sa_mask, SIGTTOU); // a program in the background may restore as well
    for (int i = 0; i < ENDING_COUNT; ++i) {
        sigaction(ENDING_SIGNALS[i], nullptr, &state.before[i]);
        // Ignored signals (nohup) stay ignored; a program's own handler ends it in its own way.
        if (state.before[i].sa_handler == SIG_DFL) {
            sigaction(ENDING_SIGNALS[i], &action, nullptr);
        }
    }
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
    const SignalsBlocked blocked;
    if (!state.exit_registered) {
        state.exit_registered = true;
        std::atexit(leave_terminal);
    }
    if (state.holders++ == 0) {
        state.found = con_settings_now();
        catch_signals();
    }
}

void con_release_terminal() {
    const SignalsBlocked blocked;
    if (--state.holders == 0) {
        for (int i = 0; i < ENDING_COUNT; ++i) {
            sigaction(ENDING_SIGNALS[i], &state.before[i], nullptr);
        }
    }
}

void con_set_reset(std::string_view bytes) {
    const SignalsBlocked blocked;
    state.reset_size = std::min(bytes.size(), RESET_MAX);
    bytes.copy(state.reset, state.reset_size);
}

void con_after_screen(const char* text) {
    if (con_screen_active()) {
        const SignalsBlocked blocked;
        state.held += text;
    } else {
        std::fputs(text, stdout);
        std::fflush(stdout);
    }
}

void con_write_held() {
    std::string text;
    {
        const SignalsBlocked blocked;
        text.swap(state.held);
    }
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

} // namespace kx
