// Names, numbers and file data between the servers and the port. The first read or write that
// fails, because the line has gone or the program that serves gives up, drops the request: from
// there on reads give zeros at once and writes do nothing.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kx {

constexpr std::size_t LINE_NAME_MAX = 255; // bytes of a name that are kept

std::uint8_t line_get();
void line_put(std::uint8_t byte);

/// Numbers, low byte first.
std::uint16_t line_get16();
void line_put16(std::uint32_t value);

/// Numbers, most significant byte first.
std::uint32_t line_get32();
void line_put32(std::uint32_t value);

/// Sends the bytes in one write.
void line_put_bytes(std::span<const std::uint8_t> bytes);
void line_put_text(std::string_view bytes);

/// Reads up to and including the first byte `end`; at most LINE_NAME_MAX bytes are kept, the rest
/// is read and dropped. Returns the bytes without the end.
std::string line_get_name(char end);

/// Sends `length` bytes of the file from its position on. Where the file ends before, or cannot be
/// read, the last byte read is repeated (0 when there was none), so that the target always gets
/// what it was told. Returns how many were the file's own; they count in the request's event.
std::uint32_t line_send_file(int fd, std::uint32_t length);

/// Receives `length` bytes and writes them to the descriptor (-1: nowhere). All are received even
/// when writing fails, so that the link stays in step. Returns the number received, which counts
/// in the request's event; `written` tells whether all of those were written.
std::uint32_t line_receive_file(int fd, std::uint32_t length, bool& written);

} // namespace kx
