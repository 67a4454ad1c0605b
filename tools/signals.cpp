// The handler sets two flags.
#include "tools/signals.h"

#include <csignal>
#include <initializer_list>

namespace kx {

namespace {

struct State {
    volatile std::sig_atomic_t first = 0;
    volatile std::sig_atomic_t count = 0;
};
State state;

void note(int signal) {
    if (state.first == 0) {
        state.first = signal;
    }
    state.count = state.count + 1;
}

} // namespace

void signals_catch() {
    struct sigaction action = {};
    action.sa_handler = note;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old = {};
        // One that was ignored from the start, as by nohup, stays so.
        if (sigaction(signal, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

int signals_pending() {
    return state.first;
}

int signals_count() {
    return state.count;
}

int signals_take() {
    const int signal = state.first;
    state.first = 0;
    state.count = 0;
    return signal;
}

} // namespace kx
