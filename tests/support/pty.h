// A pseudo-terminal pair: a serial device and its far end.
#pragma once

#include <string>

namespace kx::test {

struct Pty {
    std::string device; // for serial_open
    int master = -1;    // the far end; reads do not block
    int slave = -1;     // the device, open all the time

    Pty(); // aborts the test when there is none
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    void hang_up(); // closes the far end
};

} // namespace kx::test
