// Registries, the active configuration, the memory map, simulator cores and the CPU hooks.
#include "core/active_config.h"
#include "core/simulator.h"

#include <gtest/gtest.h>

using namespace kx;

namespace {

struct Registry {
    const char* name;
    const RegistryEntry* table;
    std::uint8_t (*find_tag)(const char*);
    const char* (*get_tag)(std::int8_t);
    const char* (*get_desc)(std::int8_t);
    int none;
    int serial; // the same tag, with unrelated meanings
    const char* unknown_tag;
    const char* unknown_desc;
};

const char* const INVALID = "not available or invalid";
const Registry registries[] = {
    {"machine", machine_table, machine_find_tag, machine_get_tag, machine_get_desc, 1, 0, nullptr,
     nullptr},
    {"target", target_table, target_find_tag, target_get_tag, target_get_desc, 6, 0, nullptr,
     nullptr},
    {"port", port_table, port_find_tag, port_get_tag, port_get_desc, 5, 1, nullptr, nullptr},
    {"cpu", cpu_table, cpu_find_tag, cpu_get_tag, cpu_get_desc, 1, 0, nullptr, nullptr},
    {"fileserver", fileserver_table, fileserver_find_tag, fileserver_get_tag, fileserver_get_desc,
     4, 0, "n/a", INVALID},
    {"console", console_table, console_find_tag, console_get_tag, console_get_desc, 3, 1, "n/a",
     INVALID},
};

TEST(Registry, LooksUpTagsAndIdentifiers) {
    for (const Registry& registry : registries) {
        SCOPED_TRACE(registry.name);
        EXPECT_EQ(registry.find_tag("none"), registry.none);
        EXPECT_EQ(registry.find_tag("serial"), registry.serial);
        for (const char* tag :
             {"NONE", "non", "none ", "n/a", "", static_cast<const char*>(nullptr)}) {
            EXPECT_EQ(registry.find_tag(tag), 0) << (tag == nullptr ? "null" : tag);
        }
        for (const RegistryEntry* row = registry.table; row->id != 0; row++) {
            const auto id = static_cast<std::int8_t>(row->id);
            EXPECT_EQ(registry.find_tag(row->tag), row->id);
            EXPECT_STREQ(registry.get_tag(id), row->tag);
            EXPECT_STREQ(registry.get_desc(id), row->description);
        }
        for (const int id : {0, 7, -1, -128}) {
            EXPECT_STREQ(registry.get_tag(static_cast<std::int8_t>(id)), registry.unknown_tag)
                << id;
            EXPECT_STREQ(registry.get_desc(static_cast<std::int8_t>(id)), registry.unknown_desc)
                << id;
        }
    }
    EXPECT_EQ(fileserver_default_id(), 4);
    EXPECT_EQ(console_default_id(), 3);
}

TEST(Registry, SelectStoresOnlyWhatItFinds) {
    EXPECT_EQ(cpu_select("65816"), 1);
    EXPECT_EQ(machine_select("pce"), 1);
    EXPECT_EQ(cpu_select("65c02"), -1);
    EXPECT_EQ(machine_select("6510"), -1);
    EXPECT_EQ(active_config.cpu, 11);
    EXPECT_EQ(active_config.machine, 9);
    active_config_reset();
    EXPECT_STREQ(cpu_get_tag(static_cast<std::int8_t>(active_config.cpu)), "none");
    EXPECT_STREQ(machine_get_tag(static_cast<std::int8_t>(active_config.machine)), "none");
}

TEST(ActiveConfig, AddressWidthGivesMaskAndDigits) {
    constexpr int widest[] = {4, 8, 12, 16, 20, 24, 28, 255}; // for 1, 2, ... digits
    int digits = 1;
    for (int bits = 0; bits < 256; bits++) {
        active_config.addr_bits = static_cast<std::uint8_t>(bits);
        digits += bits > widest[digits - 1] ? 1 : 0;
        EXPECT_EQ(addr_digits(), digits) << bits;
        const bool real = bits == 8 || bits == 16 || bits == 24;
        EXPECT_EQ(addr_mask(), real ? (1U << bits) - 1 : 0xFFFFFFFF) << bits;
    }
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
    for (const std::uint32_t address : {0U, 0xCFFFU, 0xF000U, 0xFFFFFFFFU}) {
        EXPECT_TRUE(memory_map_is_mapped(map, address)) << address;
    }
    for (const std::uint32_t address : {0xD000U, 0xDFFFU, 0xE000U}) {
        EXPECT_FALSE(memory_map_is_mapped(map, address)) << address;
    }
    memory_map_clear(map);
    EXPECT_EQ(memory_map_find(map, 0), nullptr);
    EXPECT_FALSE(memory_map_is_mapped(map, 0));
}

TEST(Simulator, MemoryWrapsAtTheSizeOfItsCore) {
    struct Row {
        std::uint8_t machine, addr_bits;
        std::uint32_t written, same, other;
    };
    for (const Row& row : {Row{MACHINE_C64, 24, 0x1234, 0xFF1234, 0x1235},
                           {MACHINE_C64, 8, 0xFFFF, 0x1FFFF, 0xFF},
                           {8, 8, 0x10, 0x110, 0x0F},
                           {9, 24, 0x12ABCD, 0x3412ABCD, 0xABCD},
                           {9, 32, 0xFFFFFFFF, 0xFFFFFFFF, 0x00FFFFFF}}) {
        SCOPED_TRACE(testing::Message() << int{row.machine} << "/" << int{row.addr_bits});
        active_config.machine = row.machine;
        active_config.addr_bits = row.addr_bits;
        ASSERT_EQ(sim_init(), 1);
        sim_write8(row.written, 0xA5);
        EXPECT_EQ(sim_read8(row.same), 0xA5);
        EXPECT_EQ(sim_read8(row.other), 0);
        ASSERT_EQ(sim_init(), 1);
        EXPECT_EQ(sim_read8(row.written), 0) << "after a fresh start";
    }
    sim_shutdown();
    sim_shutdown();
    EXPECT_FALSE(sim_is_initialised());
    sim_write8(0, 1);
    sim_registers().a = 1;
    EXPECT_EQ(sim_read8(0), 0);
    EXPECT_EQ(sim_registers().a, 0);
}

TEST(CpuHooks, EnterTakesTheResetStateAndLeaveDropsIt) {
    active_config.machine = MACHINE_C64;
    for (const int cpu : {0, 1, 2, 3, 5, 6, 11}) {
        SCOPED_TRACE(cpu);
        const bool hooked = cpu == 2 || cpu >= 5;
        active_config.cpu = static_cast<std::uint8_t>(cpu);
        sim_shutdown();
        cpu_enter(); // nothing to act on
        EXPECT_EQ(sim_registers().sp, 0);
        ASSERT_EQ(sim_init(), 1);
        const std::uint8_t vectors[] = {0xE2, 0xFC, 0x23, 0xE1};
        for (std::uint32_t i = 0; i < 4; i++) {
            sim_write8(0xFFFC + i, vectors[i]);
        }
        sim_registers() = {.pc = 7, .a = 1, .x = 2, .y = 3, .sp = 4, .status = 5};
        cpu_enter();
        EXPECT_EQ(sim_registers().pc, !hooked ? 7U : cpu == 6 ? 0xE123U : 0xFCE2U);
        EXPECT_EQ(sim_registers().sp, hooked ? 0xFD : 4);
        EXPECT_EQ(sim_registers().status, !hooked ? 5 : cpu == 6 ? 0x14 : 0x34);
        EXPECT_EQ(sim_registers().a | sim_registers().x | sim_registers().y, hooked ? 0 : 3);
        cpu_leave();
        EXPECT_EQ(sim_registers().pc, hooked ? 0U : 7U);
        EXPECT_EQ(sim_registers().status, hooked ? 0 : 5);
    }
}

} // namespace
