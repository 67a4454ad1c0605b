// The transfer rate meter: a millisecond stopwatch with a report.
#pragma once

#include <cstdint>

namespace kx {

void rate_start();

/// Stops; returns the elapsed milliseconds.
std::uint32_t rate_stop();

/// Prints " (%ld bytes/sec, %ld baud, %ld%% of %ld baud)\n\r" for the time measured, to follow a
/// line already begun: only when verbose and not silent, and with a baud rate configured.
void rate_report(std::uint32_t bytes);

void rate_stop_report(std::uint32_t bytes);

/// Forgets what was measured.
void rate_reset();

} // namespace kx
