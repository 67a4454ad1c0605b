// Pseudo-terminal pairs, and what a test says and hears at their far end.
#include "tests/support/pty.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace kx::test {

Pty::Pty() {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0) {
        device = ptsname(master);
        slave = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    if (slave < 0) {
        ADD_FAILURE() << "no pseudo-terminal";
        std::abort();
    }
}

Pty::~Pty() {
    hang_up();
    close(slave);
}

void Pty::hang_up() {
    if (master >= 0) {
        close(std::exchange(master, -1));
    }
}

void Pty::send(const std::vector<std::uint8_t>& bytes) const {
    EXPECT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string Pty::take(std::size_t count) const {
    std::vector<std::uint8_t> taken;
    for (pollfd line = {master, POLLIN, 0}; taken.size() < count && poll(&line, 1, 60000) > 0;) {
        std::uint8_t bytes[4096];
        const ssize_t got = read(master, bytes, sizeof bytes);
        taken.insert(taken.end(), bytes, bytes + std::max<ssize_t>(got, 0));
    }
    EXPECT_GE(taken.size(), count) << "only these bytes came: " << hex(taken);
    return hex(taken);
}

std::vector<tcflag_t> Pty::settings() const {
    termios now = {};
    EXPECT_EQ(tcgetattr(slave, &now), 0);
    std::vector<tcflag_t> all = {now.c_iflag, now.c_oflag, now.c_cflag, now.c_lflag};
    all.insert(all.end(), std::begin(now.c_cc), std::end(now.c_cc));
    return all;
}

} // namespace kx::test
