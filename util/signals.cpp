// Ignoring and holding back signals.
#include "util/signals.h"

#include <cerrno>

namespace kx {

void signals_ignore_failed_writes() {
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

SignalsHeld::SignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGINT);
    sigaddset(&held, SIGTERM);
    sigaddset(&held, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
}

SignalsHeld::~SignalsHeld() {
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
}

} // namespace kx
