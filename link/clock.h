// Wall time in milliseconds, the clock of the write throttle and of the transfer rate, and a timer
// on it.
#pragma once

#include <cstdint>

namespace kx {

/// Wall time in milliseconds, the low 32 bits. It may step back when the system's time is set.
std::uint32_t clock_wall_ms();

/// Replaces the clock by `source`, null for the real one: tests decide what time it is.
void clock_wall_set_source(std::uint32_t (*source)());

struct WallTimer {
    std::uint32_t start = 0;
    std::uint32_t last = 0; // the last time read
};

/// Starts the timer now.
void wall_timer_start(WallTimer& timer);

/// Milliseconds since the start. With a start that lies after now, as after a wrap of the clock or
/// a step back of the system's time, one less than the difference modulo 2^32.
std::uint32_t wall_timer_elapsed(WallTimer& timer);

} // namespace kx
