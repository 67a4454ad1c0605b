// The line to the target, as the verbs open and use it: the port is looked at and locked before the
// library has it, transfers are cut into commands between which they can end, and failures are
// reported with what they leave behind.
#pragma once

#include "link/port.h"
#include "session/session.h"
#include "util/clock.h"
#include "util/fd.h"

#include <cstdint>
#include <span>
#include <string>

namespace kx {

// Each returns 0, or the exit status of the failure, which has been reported.

/// Loads the target and opens a session without its line: what needs no target goes first. Symbols
/// of `globals.symbols` come behind the target's.
int line_begin(Session& session);

/// Whether the target's files name a line that can be had; its device is not looked at.
int line_check(const Session& session);

/// Opens the session's line. `wait`: for a device that is in use, or not there, until it can be
/// had. Signals are noted from here on (tools/signals.h).
int line_connect(Session& session, bool wait);

/// An answer that the target does not take is given up only when all that the system holds must
/// have gone out before it. The other transfers know how much that is.
void line_begin_serving();

/// Closes the line that was served, which has gone, and waits until it is back. That a signal ended
/// the waiting is not told.
int line_reconnect(Session& session);

/// Whether the open line's device is there no more.
bool line_has_gone();

/// Whether the target's memory can be reached at all.
int line_needs_stub(const Session& session);

/// That, and what line_check looks at.
int line_check_stub(const Session& session);

/// Checks the debug console's line and opens `device` without changing anything of it. Programs
/// that lock keep out until `fd` is closed.
int line_lock_console(const Session& session, const std::string& device, Fd& fd);

/// Gives the line back as it was found. Harmless without one.
void line_disconnect();

/// The same, and ends the session.
void line_close(Session& session);

/// How far a transfer has come; `bar_begin` has been called for it.
struct LineTransfer {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    const char* verb = "sent";  // "12288 of 40550 bytes sent"
    std::uint32_t harmless = 0; // of `line_write`: an address that reading does nothing to
    std::uint32_t began_ms = clock_ms();
    std::uint64_t line_began = port_line.written; // bytes that had gone out by then
};

/// Moves the bytes in commands of 1 KiB, when reading of more while that takes half a second at
/// most (a KiB takes a second at 9600 baud), and adds them to `transfer.done`. A signal ends it
/// behind the command under way, a second one, or one to a target that has fallen silent, at once.
/// Behind a write that a signal has ended, a byte is read: the target is in step when it answers.
int line_write(LineTransfer& transfer, std::uint32_t start, std::span<const std::uint8_t> bytes);
int line_read(LineTransfer& transfer, std::uint32_t start, std::span<std::uint8_t> bytes);

/// Reads one byte of memory, to know that the target has taken all that was sent: the stub carries
/// out one command after the other.
int line_confirm(const LineTransfer& transfer);

/// The same, without a report: `stub_last_error` has why not.
bool line_answers(std::uint32_t address);

/// Reports that the target sends what nobody asked for. The exit status.
int line_fail_surplus();

/// Sets the program counter, and executes.
int line_start(const LineTransfer& transfer, std::uint32_t address);

/// Bytes that the line carries one way in that time, at its baud rate.
std::uint64_t line_carries(std::uint32_t milliseconds);

/// "4 ms", "10.6 s".
std::string line_time_text(std::uint32_t milliseconds);

/// "10.6 s (3.74 KiB/s, 99 % of the line)"; no rate for a moment.
std::string line_rate_text(std::uint64_t bytes, std::uint32_t milliseconds);

/// "$0801"; in as many digits as the target's addresses have.
std::string line_address_text(std::uint64_t address);

} // namespace kx
