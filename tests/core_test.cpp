// Registries, the active configuration, the memory map, simulator cores and the CPU hooks.
#include "core/active_config.h"
#include "core/simulator.h"

#include <gtest/gtest.h>

using namespace kx;

namespace {

TEST(Registry, TellsWhatIsNotInATable) {
    EXPECT_EQ(fileserver_find_tag("none"), 4);
    EXPECT_EQ(fileserver_default_id(), 4);
    EXPECT_EQ(console_find_tag("none"), 3);
    EXPECT_EQ(console_default_id(), 3);
    EXPECT_EQ(fileserver_find_tag("n/a"), 0) << "the row that ends the table";
    EXPECT_EQ(cpu_find_tag("NONE"), 0);
    EXPECT_STREQ(fileserver_get_tag(7), "n/a");
    EXPECT_STREQ(console_get_desc(-1), "not available or invalid");
    EXPECT_STREQ(cpu_get_tag(7), nullptr);
    EXPECT_STREQ(target_get_desc(7), nullptr);
    EXPECT_EQ(cpu_select("65816"), 1);
    EXPECT_EQ(cpu_select("65c02"), -1);
    EXPECT_EQ(active_config.cpu, CPU_65816) << "as it was";
}

TEST(MemoryMap, FirstRegionThatHoldsTheAddressDecides) {
    MemoryMap map;
    const auto add = [&map](std::uint32_t bank, std::uint32_t base, std::uint32_t last, int type) {
        memory_map_set_type(map, memory_map_add(map, bank, base, last), type);
    };
    add(0, 0xD000, 0xDFFF, MEMORY_NONE);
    add(1, 0x0000, 0xD0FF, MEMORY_RAM_ROM);
    add(0, 0x9000, 0x8000, MEMORY_RAM_ROM); // holds nothing
    memory_map_add(map, 0, 0xE000, 0xEFFF); // no type
    add(0, 0xF000, 0xFFFFFFFF, MEMORY_IO);
    EXPECT_EQ(memory_map_find(map, 0xD0FF), &map.regions[0]);
    EXPECT_EQ(memory_map_find(map, 0x8800), &map.regions[1]);
    const std::pair<std::uint32_t, bool> rows[] = {
        {0, true}, {0xCFFF, true}, {0xD000, false}, {0xDFFF, false}, {0xE000, false}, {~0U, true}};
    for (const auto& [address, mapped] : rows) {
        EXPECT_EQ(memory_map_is_mapped(map, address), mapped) << address;
    }
    memory_map_clear(map);
    EXPECT_FALSE(memory_map_is_mapped(map, 0));
}

TEST(Simulator, MemoryWrapsAtTheSizeOfItsCore) {
    struct Row {
        std::uint8_t machine, addr_bits;
        std::uint32_t written, same, other;
    };
    for (const Row& row : {Row{MACHINE_C64, 24, 0x1234, 0xFF1234, 0x1235},
                           {MACHINE_C64, 8, 0xFFFF, 0x1FFFF, 0xFF},
                           {MACHINE_NES, 8, 0x10, 0x110, 0x0F},
                           {MACHINE_PCE, 24, 0x12ABCD, 0x3412ABCD, 0xABCD},
                           {MACHINE_PCE, 32, 0xFFFFFFFF, 0xFFFFFFFF, 0x00FFFFFF}}) {
        SCOPED_TRACE(testing::Message() << int{row.machine} << "/" << int{row.addr_bits});
        active_config.machine = row.machine;
        active_config.addr_bits = row.addr_bits;
        ASSERT_EQ(sim_init(), 1);
        sim_write8(row.written, 0xA5);
        EXPECT_EQ(sim_read8(row.same), 0xA5);
        EXPECT_EQ(sim_read8(row.other), 0);
    }
    ASSERT_EQ(sim_init(), 1);
    EXPECT_EQ(sim_read8(0xFFFFFFFF), 0) << "after a fresh start";
    sim_shutdown();
    sim_shutdown();
    sim_write8(0, 1);
    sim_registers().a = 1;
    EXPECT_EQ(sim_read8(0), 0);
    EXPECT_EQ(sim_registers().a, 0);
}

TEST(CpuHooks, EnterTakesTheResetStateAndLeaveDropsIt) {
    active_config.machine = MACHINE_C64;
    const struct {
        std::uint8_t cpu, status;
        std::uint32_t pc;
        bool hooked;
    } rows[] = {{1, 5, 7, false},        {3, 5, 7, false},        {2, 0x34, 0xFCE2, true},
                {5, 0x34, 0xFCE2, true}, {6, 0x14, 0xE123, true}, {11, 0x34, 0xFCE2, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.cpu});
        active_config.cpu = row.cpu;
        sim_shutdown();
        cpu_enter(); // nothing to act on
        ASSERT_EQ(sim_init(), 1);
        const std::uint8_t vectors[] = {0xE2, 0xFC, 0x23, 0xE1};
        for (std::uint32_t i = 0; i < 4; i++) {
            sim_write8(0xFFFC + i, vectors[i]);
        }
        SimRegisters& now = sim_registers();
        now = {.pc = 7, .a = 1, .x = 2, .y = 3, .sp = 4, .status = 5};
        cpu_enter();
        EXPECT_EQ(now.pc, row.pc);
        EXPECT_EQ(now.sp, row.hooked ? 0xFD : 4);
        EXPECT_EQ(now.status, row.status);
        EXPECT_EQ(now.a, row.hooked ? 0 : 1);
        EXPECT_EQ(now.x, row.hooked ? 0 : 2);
        EXPECT_EQ(now.y, row.hooked ? 0 : 3);
        cpu_leave();
        EXPECT_EQ(now.pc, row.hooked ? 0 : 7);
        EXPECT_EQ(now.status, row.hooked ? 0 : 5);
    }
}

} // namespace
