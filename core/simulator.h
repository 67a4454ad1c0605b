// Simulator cores: memory and registers of a machine that is not there. The C-64 has its own;
// every other machine shares the common one.
#pragma once

#include <cstdint>

namespace kx {

struct SimRegisters {
    std::uint32_t pc = 0;
    std::uint8_t a = 0;
    std::uint8_t x = 0;
    std::uint8_t y = 0;
    std::uint8_t sp = 0;
    std::uint8_t status = 0;
};

/// Initialises the core of the active machine, with its memory zero: 64 KiB for the C-64, the
/// whole address range of `addr_bits` for the others, of which only what is written takes room.
/// 1, or -1 when memory is out. An initialised core is shut down first.
int sim_init();

/// Releases the core; harmless when none is initialised.
void sim_shutdown();

bool sim_is_initialised();

/// Memory of the core; addresses wrap at its size. Without a core reads give 0, writes do nothing.
std::uint8_t sim_read8(std::uint32_t address);
void sim_write8(std::uint32_t address, std::uint8_t value);

/// The registers; without a core a record of zeros that is kept for nobody.
SimRegisters& sim_registers();

/// The active CPU's hooks: enter makes the core take the CPU family's reset state, the program
/// counter from its reset vector; leave drops it. Nothing goes over the wire, and CPUs other
/// than the 6502 family (identifiers 2, 5, 6, 11) have no hooks.
void cpu_enter();
void cpu_leave();

} // namespace kx
