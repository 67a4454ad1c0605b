// The debug console: a character channel between a program on the target and the host, on a serial
// line of its own.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

// The front end, by the console of the active configuration. Only the serial console is built; any
// other does nothing and has nothing to read.

/// Opens the console; ends the program with status 1 when it cannot.
void target_console_init();

/// Drops a pending byte. The line stays open.
void target_console_deinit();

void target_console_flush(); // nothing, on any console

/// The next pending byte, or 0 when none is waiting; never blocks. A waiting 0 looks the same.
int target_console_poll();
std::uint8_t target_console_poll_byte();

void target_console_putc(std::uint8_t byte);

int target_console_getc(); // -1, on any console
int target_console_getw();

// The serial console itself. Receives on a line that is not open yield 0, sends do nothing.

void serial_console_init();
void serial_console_deinit();
int serial_console_poll();
std::uint8_t serial_console_getc(); // waits for a byte
void serial_console_putc(std::uint8_t byte);

/// 16-bit words, low byte first.
void serial_console_putw(std::uint16_t word);
std::uint16_t serial_console_getw();

/// Sends the text in PETSCII, without an end, and prints it as ">>KX %s\n" on standard output.
void serial_console_puts(const std::string& text);

/// Closes the line.
void debug_console_reset();

} // namespace kx
