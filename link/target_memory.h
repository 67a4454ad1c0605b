// Target memory: every access of the toolkit to the target's address space, in the simulator, on
// the target behind the debug stub, or in a disc image file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

namespace kx {

// Memory access modes.
constexpr int MEM_SIMULATOR = 1;
constexpr int MEM_SIMULATOR_AND_TARGET = 2;
constexpr int MEM_IMAGE = 3;

/// Where accesses go. The target is reached only when the active stub is the Retro Replay stub;
/// for other stubs its side is skipped and reads give 0.
extern int mem_mode;

/// Whether accesses may leave the simulator: in every mode but the first.
bool mem_reaches_target();

/// A copy of a stretch of target memory on the host, which reads are answered from. It may wrap
/// around the end of the address space.
void mem_set_window(std::uint32_t start, std::span<const std::uint8_t> bytes);
void mem_clear_window();

/// Whether the address may be accessed: by the memory map, in mode 3 below 0x57057FFF.
bool mem_is_mapped(std::uint32_t address);

/// Forgets the window, and back to mode 1.
void mem_reset();

/// The highest address of the target.
std::uint32_t mem_top();

/// One byte. An address that is not mapped reads as the filler pattern DE AD BE AF by its two
/// lowest bits.
std::uint8_t mem_read8(std::uint32_t address);
void mem_write8(std::uint32_t address, std::uint8_t value);

/// Numbers in the stub's byte order; the target's side of a 32-bit write is always lowest first.
void mem_write16(std::uint32_t address, std::uint16_t value);
void mem_write32(std::uint32_t address, std::uint32_t value);

// Blocks: 1, or -1. In the simulator only mapped addresses are written, with progress.
int mem_write_block(std::uint32_t address, std::span<const std::uint8_t> bytes);
int mem_read_block(std::span<std::uint8_t> bytes, std::uint32_t address);

/// Writes end - start bytes of the file, from `offset` on, to the addresses from `start` on; in
/// mode 1 no more than the target has addresses are read of them, a piece at a time. 1, or -1; a
/// file that does not hold them all, or an end before the start, transfers nothing.
int mem_write_file(std::FILE* file, long offset, std::uint32_t start, std::uint64_t end);

/// Set the program counter and start execution there: on the target, in mode 1 in the simulator
/// (which executes nothing).
void target_set_pc(std::uint32_t address);
void target_execute();

} // namespace kx
