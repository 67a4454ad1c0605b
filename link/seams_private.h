// Where tests take the system's place: the modem lines of a device, and the sleep between two
// polls.
#pragma once

namespace kx {

/// The modem-line calls: tests watch them, and a pseudo-terminal refuses them, which is no failure.
/// Each gets or sets the TIOCM_ bits; 0, or -1 and nothing stored.
struct SerialModem {
    int (*get)(int fd, int* bits);
    int (*set)(int fd, int bits);
};
void serial_set_modem(const SerialModem* modem); // null: the system's own

/// Replaces the millisecond's sleep between two polls of the input; null for the real one.
void stub_set_sleep(void (*sleep)());

} // namespace kx
