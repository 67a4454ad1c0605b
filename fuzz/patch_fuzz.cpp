// Smart patches: a search ends, and writes nothing but the record's bytes behind its matches.
#include "fuzz/fuzz.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/patch.h"
#include "link/target_memory.h"

#include <unistd.h>

namespace kx::fuzz {

void run(const std::uint8_t* data, std::size_t size) {
    static const bool no_keys = dup2(STDERR_FILENO, STDIN_FILENO) == STDIN_FILENO; // nobody types
    check(no_keys, "standard input is none");
    FuzzedDataProvider input(data, size);
    const auto start = input.ConsumeIntegral<std::uint32_t>();
    const auto range = input.ConsumeIntegralInRange<std::uint32_t>(0, 0x1000);
    const auto record = input.ConsumeBytes<std::uint8_t>(3 + 3 * 255);
    mem_mode = MEM_SIMULATOR;
    active_config.addr_bits = 32;
    memory_map_set_type(active_config.memory_map,
                        memory_map_add(active_config.memory_map, 0, 0, 0xFFFFFFFF), MEMORY_RAM_ROM);
    check(sim_init() == 1, "the simulator starts");
    const auto memory = input.ConsumeRemainingBytes<std::uint8_t>();
    for (std::size_t i = 0; i < memory.size(); i++) {
        sim_write8(start + static_cast<std::uint32_t>(i), memory[i]);
    }
    check(patch_search_apply("x", record, start, range) == 1, "a search without keys ends well");
    const std::uint32_t reach = range + 255 + 255; // poffs and plen beyond the last match
    for (std::size_t i = reach; i < memory.size(); i++) {
        check(sim_read8(start + static_cast<std::uint32_t>(i)) == memory[i],
              "nothing is written beyond the reach of a patch");
    }
    sim_shutdown();
}

} // namespace kx::fuzz
