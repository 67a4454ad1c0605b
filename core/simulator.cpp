// The simulator cores, one record of functions per core, and the reset state of the CPU family.
#include "core/simulator.h"

#include "core/active_config.h"
#include "core/registry.h"
#include "util/bytes.h"
#include "util/paged_bytes.h"

#include <memory>
#include <new>

namespace kx {

namespace {

constexpr std::uint32_t C64_SIZE = 0x10000;

struct SimCore {
    int machine; // 0: every machine without a core of its own
    void (*init)();
    void (*shutdown)();
    std::uint8_t (*read8)(std::uint32_t address);
    void (*write8)(std::uint32_t address, std::uint8_t value);
};

struct State {
    const SimCore* core = nullptr; // null: not initialised
    SimRegisters registers;
    std::unique_ptr<std::uint8_t[]> c64_memory; // C64_SIZE bytes
    PagedBytes common_memory;
    std::uint32_t common_mask = 0; // all addresses, as of initialisation
};

State state;

void c64_init() {
    state.c64_memory = std::make_unique<std::uint8_t[]>(C64_SIZE);
}

void c64_shutdown() {
    state.c64_memory.reset();
}

std::uint8_t c64_read8(std::uint32_t address) {
    return state.c64_memory[address % C64_SIZE];
}

void c64_write8(std::uint32_t address, std::uint8_t value) {
    state.c64_memory[address % C64_SIZE] = value;
}

void common_init() {
    state.common_mask = addr_mask();
}

void common_shutdown() {
    state.common_memory.pages.clear();
}

std::uint8_t common_read8(std::uint32_t address) {
    return paged_read(state.common_memory, address & state.common_mask);
}

void common_write8(std::uint32_t address, std::uint8_t value) {
    paged_write(state.common_memory, address & state.common_mask, value);
}

// The last row takes what is left.
constexpr SimCore cores[] = {
    {.machine = MACHINE_C64,
     .init = c64_init,
     .shutdown = c64_shutdown,
     .read8 = c64_read8,
     .write8 = c64_write8},
    {.machine = 0,
     .init = common_init,
     .shutdown = common_shutdown,
     .read8 = common_read8,
     .write8 = common_write8},
};

const SimCore& core_of(int machine) {
    const SimCore* core = cores;
    while (core->machine != 0 && core->machine != machine) {
        core++;
    }
    return *core;
}

// The three dummy pushes of the reset sequence leave the stack pointer here, counted from 0.
constexpr std::uint8_t RESET_SP = 0xFD;

struct CpuHooks {
    int cpu;
    std::uint32_t reset_vector;
    std::uint8_t reset_status;
};

// The data sheets' status after reset: interrupts disabled, decimal mode off. Bits 4 and 5 read as
// ones on the 6510 and 65C02 and are the 65816's width flags, set in emulation mode: 0x34. The
// HuC 6280 has its memory operation flag in bit 5, which reset clears: 0x14.
constexpr CpuHooks cpu_hooks[] = {
    {.cpu = CPU_6510, .reset_vector = 0xFFFC, .reset_status = 0x34},
    {.cpu = CPU_65C02, .reset_vector = 0xFFFC, .reset_status = 0x34},
    {.cpu = CPU_6280, .reset_vector = 0xFFFE, .reset_status = 0x14},
    {.cpu = CPU_65816, .reset_vector = 0xFFFC, .reset_status = 0x34},
};

// Null for a CPU without hooks, and while no core is there to act on.
const CpuHooks* active_hooks() {
    if (state.core == nullptr) {
        return nullptr;
    }
    for (const CpuHooks& hooks : cpu_hooks) {
        if (hooks.cpu == active_config.cpu) {
            return &hooks;
        }
    }
    return nullptr;
}

} // namespace

int sim_init() {
    sim_shutdown();
    const SimCore& core = core_of(active_config.machine);
    try {
        core.init();
    } catch (const std::bad_alloc&) {
        return -1;
    }
    state.core = &core;
    return 1;
}

void sim_shutdown() {
    if (state.core != nullptr) {
        state.core->shutdown();
        state.core = nullptr;
        state.registers = SimRegisters{};
    }
}

bool sim_is_initialised() {
    return state.core != nullptr;
}

std::uint8_t sim_read8(std::uint32_t address) {
    return state.core == nullptr ? 0 : state.core->read8(address);
}

void sim_write8(std::uint32_t address, std::uint8_t value) {
    if (state.core != nullptr) {
        state.core->write8(address, value);
    }
}

SimRegisters& sim_registers() {
    static SimRegisters nobodys;
    if (state.core == nullptr) {
        nobodys = SimRegisters{};
        return nobodys;
    }
    return state.registers;
}

void cpu_enter() {
    const CpuHooks* hooks = active_hooks();
    if (hooks != nullptr) {
        const std::uint8_t vector[] = {sim_read8(hooks->reset_vector),
                                       sim_read8(hooks->reset_vector + 1)};
        state.registers = SimRegisters{};
        state.registers.pc = get16le(vector);
        state.registers.sp = RESET_SP;
        state.registers.status = hooks->reset_status;
    }
}

void cpu_leave() {
    if (active_hooks() != nullptr) {
        state.registers = SimRegisters{};
    }
}

} // namespace kx
