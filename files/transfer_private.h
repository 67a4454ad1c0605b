// What the loaders and savers of program files share: opening, sending pieces of a file with
// progress and rate, fetching a range into a file, entry points, and the record of what was sent.
#pragma once

#include "files/loader.h"

#include <cstdint>
#include <span>
#include <string>

namespace kx {

/// A run of bytes of a file and the addresses it goes to.
struct TransferPiece {
    long offset;                   // of the first byte in the file
    std::uint32_t start;           // target address
    std::uint64_t end;             // the address behind the last byte
    const char* message = nullptr; // told before it is sent: a format of the file's name, the first
                                   // and the last address, and the length
};

/// The path up to its first control character: names that come from a line of text bring their
/// line end along. Other bytes stay, they may be UTF-8.
std::string transfer_trim(const std::string& path);

/// Whether the file is open; false with `message` as error message, a format of the name.
bool transfer_is_open(const ProgramFile& input, const char* message);

/// Fills `bytes` from the file's `offset` on. False when they are not all there.
bool transfer_read(const ProgramFile& input, long offset, std::span<std::uint8_t> bytes);

/// "'<name>' <problem>" as error message; returns -1.
long transfer_refuse(const std::string& name, const char* problem);

/// Whether there is a byte from `start` to before `end`; false with an error message.
bool transfer_is_range(std::uint32_t start, std::uint64_t end);

/// Warns when the address is above the target's highest one.
void transfer_warn_top(std::uint64_t address);

/// Sends the pieces, in order, under a progress display that the caller has begun; completes the
/// rate display, closes the progress with its status, and on success records where the program
/// went, `execute` with it. 1, or -1 when a piece failed (the ones before it have been sent).
int transfer_send(const ProgramFile& input, std::span<const TransferPiece> pieces,
                  std::uint32_t execute);

/// Whether a file can be written at `name`; false with `message` as error message, a format of the
/// name.
bool transfer_can_write(const std::string& name, const char* message);

/// Fetches the range under a progress display that the caller has begun, and replaces the file by
/// `header` and what was fetched once all of it is there; the simulator's memory goes to the file
/// a piece at a time. The number of bytes fetched, or -1.
long transfer_get(const std::string& name, std::span<const std::uint8_t> header,
                  std::uint32_t start, std::uint64_t end);

/// Marks the address as a code entry in the symbol store: the symbol that stands there, or else a
/// new one. Does nothing while there is no store.
void transfer_add_entry(std::uint32_t address);

} // namespace kx
