// The owner of a file descriptor, writing all of something to one, and the standard ones.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

namespace kx {

/// Closes its descriptor when it goes. errno survives the closing.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& other) noexcept : fd_(other.release()) {}
    Fd& operator=(Fd&& other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return fd_; } // -1 for none
    bool is_open() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); } // the caller owns it now
    void reset(int fd = -1);
    /// Closes it now. 0, or -1 with errno: a file system over a network may tell of a failed write
    /// only here.
    int close();

private:
    int fd_ = -1;
};

/// For a program's start: puts /dev/null in the place of standard input, output and error where
/// they are closed, so that no file or line that is opened later becomes one of them. Reading and
/// writing fail as before (EBADF).
void fd_fill_standard();

/// Writes all of `bytes`, in as many calls as it takes; a signal in between is no failure.
/// 0, or -1 with errno.
int fd_write_all(int fd, std::span<const std::uint8_t> bytes);

} // namespace kx
