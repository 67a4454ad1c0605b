// The scan of a smart patch over simulator memory: a patch is applied while its user waits.
#include "core/active_config.h"
#include "core/simulator.h"
#include "link/patch.h"
#include "link/target_memory.h"

#include <benchmark/benchmark.h>

namespace {

using namespace kx;

/// A 24-bit target with 1 MiB of RAM in its middle, filled with bytes that never match the
/// pattern for long.
void scan_simulator(benchmark::State& bench) {
    constexpr std::uint32_t START = 0x400000;
    constexpr std::uint32_t SIZE = 0x100000;
    active_config_reset();
    active_config.addr_bits = 24;
    MemoryMap& map = active_config.memory_map;
    for (const std::uint32_t base : {0x0U, 0x2000U, 0x8000U, START}) {
        const std::uint32_t last = base == START ? base + SIZE - 1 : base + 0xFFF;
        memory_map_set_type(map, memory_map_add(map, 0, base, last), MEMORY_RAM_ROM);
    }
    mem_mode = MEM_SIMULATOR;
    if (sim_init() != 1) {
        bench.SkipWithError("no simulator");
        return;
    }
    for (std::uint32_t i = 0; i < SIZE; i++) {
        sim_write8(START + i, static_cast<std::uint8_t>(i % 251));
    }
    const std::uint8_t record[] = {3, 1, 0, 7, 8, 0xEA, 0xFF, 0xFF, 0xFF, 0};
    for (auto _ : bench) {
        benchmark::DoNotOptimize(patch_search_apply("bench", record, START, SIZE));
    }
    bench.SetBytesProcessed(static_cast<std::int64_t>(bench.iterations()) * SIZE);
    sim_shutdown();
}
BENCHMARK(scan_simulator)->Unit(benchmark::kMillisecond);

} // namespace
