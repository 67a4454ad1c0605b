// The far end of a serial line: a pseudo-terminal whose device a host opens as it opens a serial
// port, at the pace of a line if wanted.
#pragma once

#include "util/fd.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kx {

/// Until when the line is busy with the bytes of one direction.
struct FakePace {
    std::chrono::steady_clock::time_point free;
    bool busy = false; // more bytes wait than have gone
};

struct FakeLine {
    std::string device; // for the host to open
    Fd master;          // the far end; does not block
    Fd slave;           // the device, kept open: the line is there between two hosts
    long baud = 0;      // 0: as fast as it goes
    FakePace in;
    FakePace out;
    std::uint64_t crossed = 0;                 // bytes that have gone over the line, either way
    bool stopped = false;                      // takes nothing any more
    int vain_lets = 0;                         // how often the host could have written and did not
    std::chrono::steady_clock::time_point let; // the host could write last
};

/// Makes a new line, raw to begin with; what was open before is closed. 0, or -1 with errno.
int fake_line_open(FakeLine& line, long baud);

/// The host's end hangs up.
void fake_line_close(FakeLine& line);

/// Waits until bytes can go in the directions wanted, or `other_fd` (-1: none) can be read, at most
/// `milliseconds`. At a line's pace: until it is time for the next byte.
void fake_line_wait(FakeLine& line, bool reads, bool writes, int milliseconds, int other_fd);

/// Bytes that have come, or those of `bytes` that could go, by now; the number of them.
std::size_t fake_line_read(FakeLine& line, std::span<std::uint8_t> bytes);
std::size_t fake_line_write(FakeLine& line, std::span<const std::uint8_t> bytes);

/// Keeps the host from writing from here on, as a device does whose flow control is off.
void fake_line_stop(FakeLine& line);

/// Whether a host has the device open: as the toolkit sets it, with hardware flow control.
bool fake_line_has_host(const FakeLine& line);

} // namespace kx
