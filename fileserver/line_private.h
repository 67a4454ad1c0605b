// Names, numbers and file data between the servers and the port.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// 16-bit numbers, low byte first.
void line_put16(std::uint32_t value);
std::uint16_t line_get16();

/// Sends the bytes in one write.
void line_put(const std::string& bytes);

/// Reads up to and including the first byte `end`; at most 255 bytes are kept, the rest is read
/// and dropped. Ends when the line is gone. Returns the bytes without the end.
std::string line_get_name(char end);

/// Sends `length` bytes of the file from its position on. Where the file ends before, the last
/// byte read is repeated (0 when there was none), so that the target always gets what it was told.
/// Ends when the line is gone; true when all went out.
bool line_send_file(int fd, std::uint32_t length);

/// Receives `length` bytes and writes them to the descriptor (-1: nowhere). All are received even
/// when writing fails, so that the link stays in step; ends when the line is gone, with what came
/// in the file. Returns the number received; `written` tells whether all of those were written.
std::uint32_t line_receive_file(int fd, std::uint32_t length, bool& written);

} // namespace kx
