// The wall clock and its timer.
#include "link/clock.h"

#include <ctime>

namespace kx {

namespace {

std::uint32_t system_ms() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 1000LL + now.tv_nsec / 1000000);
}

struct {
    std::uint32_t (*source)() = system_ms;
} state;

} // namespace

std::uint32_t clock_wall_ms() {
    return state.source();
}

void clock_wall_set_source(std::uint32_t (*source)()) {
    state.source = source != nullptr ? source : system_ms;
}

void wall_timer_start(WallTimer& timer) {
    timer.start = timer.last = clock_wall_ms();
}

std::uint32_t wall_timer_elapsed(WallTimer& timer) {
    timer.last = clock_wall_ms();
    // The complement makes a time across the wrap a millisecond short, which is meant: programs on
    // the target were tuned against it.
    return timer.start <= timer.last ? timer.last - timer.start : timer.last + ~timer.start;
}

} // namespace kx
