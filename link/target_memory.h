// Target memory: every access of the toolkit to the target's address space.
#pragma once

#include <cstdint>
#include <cstdio>

namespace kx {

// Memory access modes.
constexpr int MEM_SIMULATOR = 1;
constexpr int MEM_SIMULATOR_AND_TARGET = 2;
constexpr int MEM_IMAGE = 3;

/// Where accesses go. Only the simulator is built yet: the other modes read 0, write nothing, and
/// transfers in them fail with an error message.
extern int mem_mode;

/// One byte. An address that the memory map does not hold reads as the filler pattern DE AD BE AF
/// by its two lowest bits.
std::uint8_t mem_read8(std::uint32_t address);
void mem_write8(std::uint32_t address, std::uint8_t value);

/// Writes end - start bytes of the file, from `offset` on, to the addresses from `start` on;
/// mapped addresses only. 1, or -1 when the file does not hold them all: nothing is written then.
int mem_write_file(std::FILE* file, long offset, std::uint32_t start, std::uint64_t end);

} // namespace kx
