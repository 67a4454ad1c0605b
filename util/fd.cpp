// Closing descriptors, writing to them until all is written, and filling the standard ones.
#include "util/fd.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace kx {

void Fd::reset(int fd) {
    if (fd_ >= 0 && fd_ != fd) {
        const int error = errno;
        ::close(fd_);
        errno = error;
    }
    fd_ = fd;
}

int Fd::close() {
    return ::close(release());
}

void fd_fill_standard() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) < 0) {
            (void)!open("/dev/null", O_PATH); // gets this number, the lowest that is free
        }
    }
}

int fd_write_all(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return -1;
        }
        if (written > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
    }
    return 0;
}

} // namespace kx
