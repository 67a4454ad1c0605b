// The debug stub's command set: memory, program counter, execution and disc image blocks, over
// the port. Every command is "A", a letter, and arguments of as many bytes as an address of the
// target needs, lowest byte first.
#pragma once

#include "link/image.h"

#include <cstdint>
#include <cstdio>
#include <span>

namespace kx {

// All transfers: 1, or -1 after a time-out of about ten seconds for one byte, a read or write
// error, or a surplus byte; the input is drained then, so that the next command can work. What a
// failed read leaves in the buffer means nothing. No bytes of memory are no command: a start that
// is its own end would mean the whole address space. More bytes than that fail, and none is sent.

/// `B`: the bytes to the addresses from `start` on; `end` is the end address as it is sent, which
/// is not the same for every caller.
int stub_write_memory(std::uint32_t start, std::uint32_t end, std::span<const std::uint8_t> bytes);

/// `C`: fills `bytes` from `start` on.
int stub_read_memory(std::uint32_t start, std::span<std::uint8_t> bytes);

/// `D` and `K`.
void stub_set_pc(std::uint32_t address);
void stub_execute();

/// Replaces the millisecond's sleep between two polls of the input, of which there are 10000 for
/// a byte; null for the real one. Tests shorten it.
void stub_set_sleep(void (*sleep)());

/// `L` and `M`: a run of bytes of a disc image, from a place within one sector.
int stub_write_image(const ImagePlace& place, std::span<const std::uint8_t> bytes);
int stub_read_image(const ImagePlace& place, std::span<std::uint8_t> bytes);

} // namespace kx
