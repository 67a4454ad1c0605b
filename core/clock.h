// The millisecond clock of timers and stopwatches.
#pragma once

#include <cstdint>

namespace kx {

/// Milliseconds since some fixed point, never stepping back; wraps after 2^32 ms.
std::uint32_t clock_ms();

/// Replaces the clock by `source`, null for the real one: tests decide what time it is.
void clock_set_source(std::uint32_t (*source)());

} // namespace kx
