// One serial line: a terminal device set to raw 8N1 with hardware flow control.
#pragma once

#include "util/ending.h"
#include "util/failure.h"
#include "util/fd.h"
#include "util/file.h"

#include <cstdint>
#include <string>
#include <termios.h>

namespace kx {

/// All state of one line. The link to the stub is one, the debug console another. A line that is
/// destroyed is closed.
struct SerialLine {
    std::string device = "/dev/ttyS1"; // the last device opened
    int fd = -1;
    FilePtr stream;             // on the same descriptor, which it owns
    termios saved = {};         // as found before opening, put back on close
    termios settings = {};      // as set
    bool has_saved = false;     // whether `saved` was read
    SerialLine* next = nullptr; // of the lines that hold a device, which the exit hook closes
    bool is_open = false;
    bool read_error = true; // whether the last read of one byte gave none
    bool write_error = true;
    std::uint8_t last_byte = 0;
    std::uint64_t written = 0; // bytes, since the program began
    EndingRestorer ending;     // for as long as there are settings to put back
    Failure failure;           // of the last operation on the line that failed, see below

    SerialLine() = default;
    ~SerialLine();
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;
};

// The steps of a line's failure are "open", "settings", "baud", "read" and "write". A device that
// has hung up is Gone, one that takes no byte for ten seconds Silent; a line that is not open fails
// with ENOTCONN, an unsupported baud rate with EINVAL, a write that was stopped with ECANCELED.
// That nothing is waiting is no failure.

/// How long a write, and closing, wait for a device that lets no bytes out.
constexpr int SERIAL_WRITE_LIMIT_MS = 10000;
void serial_set_write_limit(int milliseconds);

/// `stop` is asked ten times a second while a write waits, with the milliseconds of this wait: when
/// it says true the write fails. Null, at first: nobody is asked. Returns what was set before.
using SerialStop = bool (*)(std::uint32_t waited_ms);
SerialStop serial_set_write_stop(SerialStop stop);

/// Asks `stop`, for who waits between writes. When it says true that is a write error.
bool serial_stops_write(SerialLine& line, std::uint32_t waited_ms);

/// Opens `device` (empty: the line's own, the last one opened) at `baud`: 9600, 19200, 38400,
/// 57600 or 115200. A device that is busy is waited for, a try per second, without limit; a plain
/// message says so once.
/// 1; 0 when the terminal settings cannot be read, set or flushed, or the baud rate is not
/// supported ("error: %ldbaud not supported.\n" on standard output; the device stays open); -1
/// when the device cannot be opened. The line is closed when the program exits; a signal that ends
/// the program drops DTR and puts the saved settings back.
int serial_open(SerialLine& line, const std::string& device, long baud);

/// The same with a device that the caller has opened for reading and writing, checked and perhaps
/// locked; `device` is its name. The line owns the descriptor from here on, also when this fails.
int serial_adopt(SerialLine& line, Fd fd, const std::string& device, long baud);

/// Drops DTR, puts the saved settings back and closes, after waiting for what was written last to
/// leave the device, at most ten seconds. Nothing when the line is not open, but a
/// device that an opening with result 0 has left open is let go.
void serial_close(SerialLine& line);

/// Writes a byte: 0, or 1 when it was not written (also kept in `write_error`).
int serial_putc(SerialLine& line, std::uint8_t byte);

/// Writes a run of bytes in as few system calls as it can. The number written; `write_error` is
/// set when it is less than `length`. A device that takes no byte for ten seconds is an error.
std::size_t serial_write(SerialLine& line, const std::uint8_t* bytes, std::size_t length);

/// Reads a byte, waiting for it. 0 with `read_error` set when the line is closed or gone.
std::uint8_t serial_getc(SerialLine& line);

/// Reads a byte when one is waiting, otherwise 0 with `read_error` set.
std::uint8_t serial_getc_nowait(SerialLine& line);

/// Reads what is waiting, at most `length` bytes, without waiting for more. The number read.
std::size_t serial_read_waiting(SerialLine& line, std::uint8_t* bytes, std::size_t length);

/// 1 if a byte can be read without waiting.
int serial_has_data(SerialLine& line);

/// Waits for a byte, at most that long. False when the line is closed or the device has hung up.
bool serial_wait_data(SerialLine& line, int milliseconds);

/// Whether a line, any of them, holds this descriptor.
bool serial_holds(int fd);

void serial_set_dtr(SerialLine& line);
void serial_clear_dtr(SerialLine& line);

/// Closes every line and puts back what was set above.
void serial_reset();

} // namespace kx
