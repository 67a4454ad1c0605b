// Putting back what the program has changed outside of itself (a terminal, a line's settings) when
// a signal ends it. The other ways out, return and `exit`, are the business of exit handlers.
#pragma once

#include <csignal>

namespace kx {

/// What is to be put back, and how. It belongs to whoever adds it and keeps its address while it
/// is added. `restore` runs in a signal handler: only what is async-signal-safe, and nothing that
/// may wait for ever.
struct EndingRestorer {
    void (*restore)(void* context) = nullptr;
    void* context = nullptr;
    EndingRestorer* next = nullptr; // of those added; not for the caller
    bool added = false;             // likewise
};

/// From here on every signal that would end the program by default runs all restorers, the latest
/// first, and then ends it by that signal, as a shell or a parent would see it. A signal that is
/// ignored (nohup) or has a handler stays so: a program that catches SIGINT itself, before or
/// after, restores in its own way. Nothing when it is added already.
void ending_add(EndingRestorer& restorer);

/// Takes it away again, also from between others. With the last one the signals get their default
/// action back, where no one else has changed it. Nothing when it is not added.
void ending_remove(EndingRestorer& restorer);

/// Holds all signals back while it lives, for changing what a restorer reads.
class EndingHeldBack {
public:
    EndingHeldBack();
    ~EndingHeldBack();
    EndingHeldBack(const EndingHeldBack&) = delete;
    EndingHeldBack& operator=(const EndingHeldBack&) = delete;

private:
    sigset_t before_;
};

} // namespace kx
