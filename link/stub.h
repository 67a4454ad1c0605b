// The debug stub's command set: memory, program counter, execution and disc image blocks, over
// the port. Every command is "A", a letter, and arguments of as many bytes as an address of the
// target needs, lowest byte first.
#pragma once

#include "link/image.h"
#include "util/failure.h"

#include <cstdint>
#include <cstdio>
#include <span>

namespace kx {

// All transfers: 1, or -1 after a time-out for one byte (about ten seconds, or as set), a read or
// write error, or a surplus byte; the input is drained then, so that the next command can work.
// What a failed read leaves in the buffer means nothing. No bytes of memory are no command: a start
// that is its own end would mean the whole address space. More bytes than that fail, and none is
// sent.

/// `B`: the bytes to the addresses from `start` on; `end` is the end address as it is sent, which
/// is not the same for every caller.
int stub_write_memory(std::uint32_t start, std::uint32_t end, std::span<const std::uint8_t> bytes);

/// `C`: fills `bytes` from `start` on.
int stub_read_memory(std::uint32_t start, std::span<std::uint8_t> bytes);

/// `D` and `K`.
void stub_set_pc(std::uint32_t address);
void stub_execute();

/// Why the last command that failed did. The step is "command" (it or its data could not be sent)
/// or "answer". Silent: the target took or sent no byte in time. Surplus: it sent more than was
/// asked for. Gone: it has hung up. System: with ENOTCONN the port is not open, with EINVAL the
/// command cannot tell so many bytes, with ECANCELED the waiting was given up.
const Failure& stub_last_error();

/// How long a byte of an answer is waited for, in polls of the input a millisecond apart; 0 or less
/// for the 10000 of the start.
constexpr int STUB_TIMEOUT_MS = 10000;
void stub_set_timeout(int milliseconds);

/// `stop` is asked at every poll while a byte of an answer has not come, with the milliseconds that
/// it has been waited for (the polls, from 1): when it says true the command fails. Null, at first:
/// nobody is asked.
void stub_set_stop(bool (*stop)(std::uint32_t waited_ms));

/// Forgets the last failure and all that was set.
void stub_reset();

/// `L` and `M`: a run of bytes of a disc image, from a place within one sector.
int stub_write_image(const ImagePlace& place, std::span<const std::uint8_t> bytes);
int stub_read_image(const ImagePlace& place, std::span<std::uint8_t> bytes);

} // namespace kx
