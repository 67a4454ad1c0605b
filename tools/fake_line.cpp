// The pseudo-terminal and its pace. A pseudo-terminal takes far more at once than a serial device;
// so that the host finds it as slow as one, its output is stopped, and let go for a moment whenever
// little is on its way.
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

// With fewer bytes on their way the host may write, once: with what it writes then they are as many
// as a device's buffer holds.
constexpr std::size_t LET_AT = 512;
constexpr auto LET_FOR = std::chrono::microseconds(300);
// On a busy machine the host gets some 13 KiB in at once, all that the system holds. It is not to
// think the line dead while they go at a slow pace, and may write what has become free.
constexpr auto SHUT_MAX = std::chrono::seconds(4);
constexpr int IDLE_LETS = 100; // in vain, and the next one has time
constexpr int IDLE_WAIT_MS = 5;

// A line that could not go on makes up for no more than this, or a byte.
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
    const nanoseconds credit = std::max<nanoseconds>(CREDIT, byte_time(line));
    pace.free = std::max<Clock::time_point>(pace.free, now - credit);
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

// The host is stopped again as soon as something has come: looked for without a pause, because it
// writes many kilobytes in the time that a sleeper takes to wake up.
void let_host_write(FakeLine& line) {
    const std::size_t before = bytes_waiting(line.master.get());
    if (before >= LET_AT && Clock::now() - line.let < SHUT_MAX) {
        return;
    }
    line.let = Clock::now();
    const auto end = line.let + LET_FOR;
    bool came = false;
    tcflow(line.slave.get(), TCOON);
    while (!came && Clock::now() < end) {
        came = bytes_waiting(line.master.get()) > before;
    }
    tcflow(line.slave.get(), TCOOFF);
    line.vain_lets = came || before > 0 ? 0 : line.vain_lets + 1;
}

} // namespace

int fake_line_open(FakeLine& line, long baud) {
    line = {};
    line.baud = baud;
    line.let = Clock::now();
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
    if (tcsetattr(line.slave.get(), TCSANOW, &settings) != 0) {
        return -1;
    }
    return baud != 0 ? tcflow(line.slave.get(), TCOOFF) : 0;
}

void fake_line_close(FakeLine& line) {
    line.master.reset();
    line.slave.reset();
}

void fake_line_wait(FakeLine& line, bool reads, bool writes, int milliseconds, int other_fd) {
    pollfd fds[] = {{-1, 0, 0}, {other_fd, POLLIN, 0}};
    if (line.baud != 0) {
        if (!line.stopped && line.master.is_open()) {
            let_host_write(line);
        }
        const bool idle = line.vain_lets > IDLE_LETS && !writes;
        milliseconds = std::min(milliseconds, idle ? IDLE_WAIT_MS : 1);
    } else if (reads || writes) {
        const int events = (reads ? POLLIN : 0) | (writes ? POLLOUT : 0);
        fds[0] = {line.master.get(), static_cast<short>(events), 0};
    }
    poll(fds, 2, milliseconds);
}

std::size_t fake_line_read(FakeLine& line, std::span<std::uint8_t> bytes) {
    const std::size_t waiting = bytes_waiting(line.master.get());
    const std::size_t room = std::min(pace_room(line, line.in, waiting), bytes.size());
    const ssize_t got = room > 0 ? read(line.master.get(), bytes.data(), room) : 0;
    const auto count = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    pace_took(line, line.in, count);
    return count;
}

std::size_t fake_line_write(FakeLine& line, std::span<const std::uint8_t> bytes) {
    const std::size_t room = pace_room(line, line.out, bytes.size());
    const ssize_t put = room > 0 ? write(line.master.get(), bytes.data(), room) : 0;
    const auto count = static_cast<std::size_t>(std::max<ssize_t>(put, 0));
    pace_took(line, line.out, count);
    return count;
}

void fake_line_stop(FakeLine& line) {
    line.stopped = true;
    tcflow(line.slave.get(), TCOOFF);
}

bool fake_line_has_host(const FakeLine& line) {
    termios settings = {};
    return tcgetattr(line.slave.get(), &settings) == 0 && (settings.c_cflag & CRTSCTS) != 0;
}

} // namespace kx
