// A pseudo-terminal pair: a serial device and its far end.
#pragma once

#include <cstdint>
#include <string>
#include <termios.h>
#include <vector>

namespace kx::test {

/// "41 43 01", of bytes in a vector or a string.
std::string hex(const auto& bytes) {
    const char* const digits = "0123456789ABCDEF";
    std::string text;
    for (const auto element : bytes) {
        const auto byte = static_cast<std::uint8_t>(element);
        text += {' ', digits[byte >> 4], digits[byte & 15]};
    }
    return text.substr(text.empty() ? 0 : 1);
}

struct Pty {
    std::string device; // for serial_open
    int master = -1;    // the far end; reads do not block
    int slave = -1;     // the device, open all the time

    Pty(); // aborts the test when there is none
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    void send(const std::vector<std::uint8_t>& bytes) const; // from the far end
    /// Waits until `count` bytes have come to the far end; a test failure after a minute.
    /// Returns all that have, as hex() writes them.
    std::string take(std::size_t count) const;
    void hang_up(); // closes the far end

    /// The device's input, output, control and local modes, then its control characters.
    std::vector<tcflag_t> settings() const;
};

} // namespace kx::test
