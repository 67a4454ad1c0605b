// The two clocks, both in milliseconds: one that never steps back, for time-outs and stopwatches,
// and the wall's, for the write throttle and the transfer rate; and a timer on the latter.
#pragma once

#include <cstdint>

namespace kx {

/// Milliseconds since some fixed point, never stepping back; wraps after 2^32 ms.
std::uint32_t clock_ms();

/// Wall time in milliseconds, the low 32 bits. It may step back when the system's time is set.
std::uint32_t clock_wall_ms();

/// Replace a clock by `source`, null for the real one: tests decide what time it is.
void clock_set_source(std::uint32_t (*source)());
void clock_wall_set_source(std::uint32_t (*source)());

/// The real clocks again.
void clock_reset();

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
