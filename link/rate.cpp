// The transfer rate meter.
#include "link/rate.h"

#include "core/active_config.h"
#include "ui/msg.h"
#include "util/clock.h"

namespace kx {

namespace {

// Meant: nine bits are counted for a byte, whatever the line's frame is.
constexpr std::int64_t BITS_PER_BYTE = 9;

struct State {
    std::uint32_t rate_mark = 0; // the start while running, the elapsed time after stopping
    // The last values computed.
    // Meant: single precision, which decides the last digits printed.
    float divisor = 1;
    float bytes_per_second = 0;
    float baud = 0;
};
State state;

float per_second(std::int64_t amount) {
    return static_cast<float>(static_cast<long double>(amount * 1000) / state.divisor);
}

} // namespace

void rate_start() {
    state.rate_mark = clock_wall_ms();
}

std::uint32_t rate_stop() {
    state.rate_mark = clock_wall_ms() - state.rate_mark;
    return state.rate_mark;
}

void rate_report(std::uint32_t bytes) {
    const auto elapsed = static_cast<std::int32_t>(state.rate_mark);
    state.divisor = static_cast<float>(elapsed > 0 ? elapsed : 1);
    state.bytes_per_second = per_second(bytes);
    state.baud = per_second(bytes * BITS_PER_BYTE);
    const long port_baud = active_config.port_baud;
    if (port_baud < 2 || verbosity.verbose == 0 || verbosity.silent != 0) {
        return;
    }
    const long double percent = static_cast<long double>(state.baud) * 100 / port_baud;
    // No message of its own, which would break the line that it continues.
    msg_print(" (%ld bytes/sec, %ld baud, %ld%% of %ld baud)\n\r",
              static_cast<long>(state.bytes_per_second), static_cast<long>(state.baud),
              static_cast<long>(percent), port_baud);
}

void rate_reset() {
    state = {};
}

void rate_stop_report(std::uint32_t bytes) {
    rate_stop();
    rate_report(bytes);
}

} // namespace kx
