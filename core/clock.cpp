// The millisecond clock: the system's monotonic clock, or whatever a test puts in its place.

#include "core/clock.h"

#include <chrono>

namespace kx {

namespace {

std::uint32_t monotonic_ms() {
    using namespace std::chrono;
    const auto now = steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(now).count());
}

struct ClockState {
    std::uint32_t (*source)() = monotonic_ms;
};
ClockState state;

} // namespace

std::uint32_t clock_ms() {
    return state.source();
}

void clock_set_source(std::uint32_t (*source)()) {
    state.source = source != nullptr ? source : monotonic_ms;
}

} // namespace kx
