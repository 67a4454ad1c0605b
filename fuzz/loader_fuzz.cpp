// Program files of every type: what was loaded can be saved, and loads again to the same memory.
#include "fuzz/fuzz.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/loader.h"
#include "files/membank.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"

namespace kx::fuzz {

namespace {

std::vector<std::uint8_t> memory(std::uint32_t start, std::uint32_t count) {
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t i = 0; i < count; i++) {
        bytes.push_back(sim_read8(start + i));
    }
    return bytes;
}

} // namespace

void run(const std::uint8_t* data, std::size_t size) {
    const char* const endings[] = {"prg", "raw", "sid", "nes", "pce", "bin", "txt", "d64"};
    FuzzedDataProvider input(data, size);
    const std::string name = std::string("f.") + input.PickValueInArray(endings);
    const std::uint32_t address = input.ConsumeIntegral<std::uint16_t>();
    put(name, input.ConsumeRemainingBytesAsString());
    mem_mode = MEM_SIMULATOR;
    active_config.addr_bits = 16;
    memory_map_set_type(active_config.memory_map,
                        memory_map_add(active_config.memory_map, 0, 0, 0xFFFF), MEMORY_RAM_ROM);
    check(sim_init() == 1, "the simulator starts");
    sym_table_new(&sym_store);
    const std::string before = get(name);
    (void)file_start_address(name);
    if (file_load(name, address) == 1 && address != 0) {
        const auto count = std::min<std::uint32_t>(0x10000 - address, 0x400);
        const auto loaded = memory(address, count);
        check(file_save("g.prg", address, address + count) == 1, "memory can be saved");
        check(get("g.prg").size() == count + 2, "a prg file holds all of it");
        check(sim_init() == 1 && file_load("g.prg", 0) == 1, "what was saved loads");
        check(memory(address, count) == loaded, "to the same bytes");
    }
    check(get(name) == before, "loading changes no file");
    sym_table_free(sym_store);
    sim_shutdown();
}

} // namespace kx::fuzz
