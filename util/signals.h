// What signals may do to files that are being written.
#pragma once

#include <csignal>

namespace kx {

/// For a program's start, before it writes anything: ignores SIGXFSZ and SIGPIPE, so that a file
/// that grows too large (EFBIG) and a pipe that nobody reads any more (EPIPE) are failures of the
/// write like any other. Programs that it starts inherit this.
void signals_ignore_failed_writes();

/// Holds SIGINT, SIGTERM and SIGHUP back from this thread for as long as it lives; what came in
/// between is delivered when it goes. No disposition is changed.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

} // namespace kx
