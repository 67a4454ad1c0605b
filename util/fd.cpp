// Closing descriptors, and writing to them until all is written.
#include "util/fd.h"

#include <cerrno>
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
