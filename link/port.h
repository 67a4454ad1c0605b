// The port: the byte stream to the target, by the active configuration's port type. Only serial
// ports are built; on any other type opening fails and everything else does nothing and gives 0.
#pragma once

#include "link/serial.h"

#include <cstdint>
#include <span>
#include <string>

namespace kx {

/// The serial line of the link.
extern SerialLine port_line;

/// Whether the last read or write of a byte failed. Callers that send a run of bytes clear the
/// write error first and stop at the first byte that sets it.
inline bool& port_read_error = port_line.read_error;
inline bool& port_write_error = port_line.write_error;

/// Why the last operation of the port that failed did, the opening included: see link/serial.h for
/// the steps. A port type that is not built fails to open with ENODEV.
const Failure& port_last_error();

bool port_is_open();

/// Opens the serial line: 1 (also when it was open already), -1 after 16 attempts. 0 when the
/// line's settings failed: the port counts as open, and the first exchange fails.
int port_open(const std::string& device, long baud);

/// The same with a device that the caller has opened for reading and writing, checked and perhaps
/// locked: there is nothing to wait for, and one attempt. The port owns the descriptor from here
/// on. -1 with EBUSY, and the descriptor closed, when the port was open already.
int port_adopt(Fd fd, const std::string& device, long baud);

/// Drains the input, clears both error flags and closes.
void port_close();

/// 1 if a byte can be read without waiting.
int port_has_data();

/// Waits for a byte, at most that long. False when the line is closed or has hung up, so that
/// nothing will come any more.
bool port_wait_data(int milliseconds);

/// A byte, waited for; 0 and the read error when the line is closed or gone.
std::uint8_t port_getc();

/// A byte if one is waiting, otherwise 0 and the read error.
std::uint8_t port_getc_nowait();

/// Discards what is waiting (of a flood, the first mebibyte) and clears the read error. 1 if
/// anything was discarded.
int port_flush_input();

/// One byte, throttled by `max_speed` of the active configuration: at least 5000000 / max_speed
/// milliseconds after the last one that was waited for; 0 (or less) is no limit.
void port_putc(std::uint8_t byte);

/// Bytes in order, each throttled; stops at the first write error, and between throttled bytes when
/// the line's `serial_set_write_stop` says so. Without a throttle they go out in as few system
/// calls as the line takes.
void port_write_block(std::span<const std::uint8_t> bytes);

/// Fills the buffer, waiting for every byte; zeros from where the line has gone, and for another
/// port type.
void port_read_block(std::span<std::uint8_t> bytes);

/// What is waiting, at most the buffer's size, without waiting for more; the number read. The
/// read error is set when nothing was read.
std::size_t port_read_waiting(std::span<std::uint8_t> bytes);

/// 32-bit values, most significant byte first.
void port_put32(std::uint32_t value);
std::uint32_t port_get32();

/// The text and a zero byte.
void port_put_string(const std::string& text);

/// Reads up to and including the first zero byte; at most 255 characters are kept, the rest is
/// read and dropped. Ends when the line is gone. Returns the text without the zero.
std::string port_get_string();

/// Opens the link of the active configuration. 1; -1 with an error message when the port cannot
/// be opened. Nothing is done (and 1 returned) when memory access goes to the simulator only.
int target_connect(const std::string& port_name, long baud, unsigned port_addr);

/// Closes the port and forgets all state, the throttle's included.
void port_reset();

} // namespace kx
