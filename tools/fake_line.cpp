// The pseudo-terminal and its pace. A pseudo-terminal takes some 64 KiB at once; so that the host
// finds it as slow as a real line, its output is stopped while more than a little is on its way.
#include "tools/fake_line.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace kx {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr int BITS_PER_BYTE = 10; // start, eight, stop

// Bytes on their way at which the host is stopped, and lets go again: together with what it writes
// before it notices as much as the buffer of a real device.
constexpr std::size_t HOLD_AT = 1024;
constexpr std::size_t LET_AT = 512;

// A line that could not go on makes up for no more than this.
constexpr auto CREDIT = std::chrono::milliseconds(50);

nanoseconds byte_time(const FakeLine& line) {
    return nanoseconds(1000000000LL * BITS_PER_BYTE / line.baud);
}

// How many of the bytes that wait the line has room for by now. Time in which nothing waited is
// lost, as on a line.
std::size_t pace_room(const FakeLine& line, FakePace& pace, std::size_t waiting) {
    if (line.baud == 0 || waiting == 0) {
        pace.busy = false;
        return waiting;
    }
    const auto now = Clock::now();
    if (!pace.busy) {
        pace.free = now;
        pace.busy = true;
    }
    pace.free = std::max<Clock::time_point>(pace.free, now - CREDIT);
    const auto room = (now - pace.free) / byte_time(line);
    return std::min(waiting, static_cast<std::size_t>(std::max<std::int64_t>(room, 0)));
}

void pace_took(FakeLine& line, FakePace& pace, std::size_t bytes) {
    if (line.baud != 0) {
        pace.free += static_cast<std::int64_t>(bytes) * byte_time(line);
    }
    line.crossed += bytes;
}

std::size_t bytes_waiting(int fd) {
    int count = 0;
    return ioctl(fd, FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

} // namespace

int fake_line_open(FakeLine& line, long baud) {
    line = {};
    line.baud = baud;
    line.master.reset(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    char name[64];
    if (!line.master.is_open() || grantpt(line.master.get()) != 0 ||
        unlockpt(line.master.get()) != 0 || ptsname_r(line.master.get(), name, sizeof name) != 0) {
        return -1;
    }
    line.device = name;
    line.slave.reset(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings = {};
    if (!line.slave.is_open() || tcgetattr(line.slave.get(), &settings) != 0) {
        return -1;
    }
    cfmakeraw(&settings); // what is sent before a host has opened it is not to come back
    return tcsetattr(line.slave.get(), TCSANOW, &settings);
}

void fake_line_close(FakeLine& line) {
    line.master.reset();
    line.slave.reset();
}

void fake_line_wait(FakeLine& line, bool reads, bool writes, int milliseconds, int other_fd) {
    const bool paced = line.baud != 0 && (line.in.busy || writes);
    const bool looks_in = reads && !(line.baud != 0 && line.in.busy);
    const bool looks_out = writes && line.baud == 0;
    const auto events = static_cast<short>((looks_in ? POLLIN : 0) | (looks_out ? POLLOUT : 0));
    pollfd fds[] = {{events != 0 ? line.master.get() : -1, events, 0}, {other_fd, POLLIN, 0}};
    poll(fds, 2, paced ? std::min(milliseconds, 1) : milliseconds);
}

std::size_t fake_line_read(FakeLine& line, std::span<std::uint8_t> bytes) {
    const std::size_t waiting = bytes_waiting(line.master.get());
    const std::size_t room = std::min(pace_room(line, line.in, waiting), bytes.size());
    const ssize_t got = room > 0 ? read(line.master.get(), bytes.data(), room) : 0;
    const auto count = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    pace_took(line, line.in, count);
    if (line.baud != 0) {
        const std::size_t left = waiting - std::min(waiting, count);
        fake_line_hold(line, left >= HOLD_AT || (line.held && left > LET_AT));
    }
    return count;
}

std::size_t fake_line_write(FakeLine& line, std::span<const std::uint8_t> bytes) {
    const std::size_t room = pace_room(line, line.out, bytes.size());
    const ssize_t put = room > 0 ? write(line.master.get(), bytes.data(), room) : 0;
    const auto count = static_cast<std::size_t>(std::max<ssize_t>(put, 0));
    pace_took(line, line.out, count);
    return count;
}

void fake_line_hold(FakeLine& line, bool held) {
    if (held != line.held && tcflow(line.slave.get(), held ? TCOOFF : TCOON) == 0) {
        line.held = held;
    }
}

bool fake_line_has_host(const FakeLine& line) {
    termios settings = {};
    return tcgetattr(line.slave.get(), &settings) == 0 && (settings.c_cflag & CRTSCTS) != 0;
}

} // namespace kx
