// One handler for every signal that ends a program, in force while there is something to restore.
#include "util/ending.h"

#include <algorithm>
#include <iterator>
#include <unistd.h>

namespace kx {

namespace {

// Those whose default action does not end the program, or that nobody can catch.
constexpr int harmless[] = {SIGCHLD, SIGCONT, SIGTSTP,  SIGTTIN, SIGTTOU,
                            SIGURG,  SIGKILL, SIGWINCH, SIGSTOP};

// For the handler, should the program's own stack be used up. More than any processor's registers
// need.
constexpr std::size_t STACK_BYTES = 0x10000;

struct State {
    EndingRestorer* latest = nullptr;
    bool has_stack = false;
    alignas(16) char stack[STACK_BYTES] = {};
};
State state;

// SA_RESETHAND has brought the default action back, and the signal is held back until the handler
// returns: then it ends the program.
void end_by_signal(int number) {
    for (const EndingRestorer* one = state.latest; one != nullptr; one = one->next) {
        one->restore(one->context);
    }
    raise(number);
}

// Changes the action of every ending signal from `from` to `to`; what stands otherwise stays.
void exchange(void (*from)(int), void (*to)(int)) {
    struct sigaction action = {};
    action.sa_handler = to;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_ONSTACK;
    sigfillset(&action.sa_mask); // SIGTTOU too: a program in the background may restore as well
    for (int number = 1; number <= SIGRTMAX; ++number) {
        struct sigaction before = {};
        const bool ends =
            std::find(std::begin(harmless), std::end(harmless), number) == std::end(harmless);
        // With one call where there is something to change. All signals are held back meanwhile.
        if (ends && sigaction(number, &action, &before) == 0 && before.sa_handler != from) {
            sigaction(number, &before, nullptr);
        }
    }
}

void provide_stack() {
    stack_t now = {};
    if (!state.has_stack && sigaltstack(nullptr, &now) == 0 && (now.ss_flags & SS_DISABLE) != 0) {
        stack_t ours = {};
        ours.ss_sp = state.stack;
        ours.ss_size = sizeof state.stack;
        sigaltstack(&ours, nullptr);
    }
    state.has_stack = true;
}

} // namespace

EndingHeldBack::EndingHeldBack() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before_);
}

EndingHeldBack::~EndingHeldBack() {
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

void ending_add(EndingRestorer& restorer) {
    const EndingHeldBack held_back;
    if (restorer.added) {
        return;
    }
    if (state.latest == nullptr) {
        provide_stack();
        exchange(SIG_DFL, end_by_signal);
    }
    restorer.added = true;
    restorer.next = state.latest;
    state.latest = &restorer;
}

void ending_remove(EndingRestorer& restorer) {
    const EndingHeldBack held_back;
    if (!restorer.added) {
        return;
    }
    EndingRestorer** link = &state.latest;
    while (*link != &restorer) {
        link = &(*link)->next;
    }
    *link = restorer.next;
    restorer.next = nullptr;
    restorer.added = false;
    if (state.latest == nullptr) {
        exchange(end_by_signal, SIG_DFL);
    }
}

} // namespace kx
