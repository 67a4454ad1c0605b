// Smart patches: what the search finds, what it writes, what it says, and how it ends.
#include "link/patch.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/target_memory.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/con.h"
#include "ui/msg.h"
#include "util/text.h"

#include <gtest/gtest.h>

namespace kx {

using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr std::uint32_t START = 0x1000;

struct Patch : testing::Test {
    Patch() {
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFFFFFF), MEMORY_RAM_ROM);
        EXPECT_EQ(sim_init(), 1);
        verbosity.verbose = 1;
        active_config.patch_file =
            dir.write("patches.ini", "[patches_auto]\nnum=2\nn0=first\nn1=second\n"
                                     "[first]\nname=First\nmlen=2\nplen=1\npoffs=2\n"
                                     "match0=0xa9,0\nmask0=255\nmask1=255\npatch0=0xea\n"
                                     // One byte is missing of `match`: the search takes match 20
                                     // 01, mask F0 FF and patch 55 00.
                                     "[second]\nname=Second\nmlen=2\nplen=2\n"
                                     "match0=0x20\nmask0=1,0xf0\npatch0=0xff,0x55\n");
        mem_write_block(START, Bytes{0xA9, 0, 0x8D, 0x2E, 1, 3});
    }

    static Bytes memory(std::size_t count) {
        Bytes bytes(count);
        mem_mode = MEM_SIMULATOR;
        mem_read_block(bytes, START);
        return bytes;
    }

    test::TempDir dir;
};

} // namespace

TEST_F(Patch, FindsWhatTheScanWithoutBacktrackingFinds) {
    const struct {
        const char* what;
        Bytes record, before, after;
    } rows[] = {
        {"two", {2, 1, 2, 1, 0, 255, 255, 9}, {1, 0, 5, 1, 0, 5}, {1, 0, 9, 1, 0, 9}},
        {"repeats itself", {2, 1, 0, 1, 2, 255, 255, 9}, {1, 1, 2, 1, 2}, {1, 1, 2, 9, 2}},
        {"at the end", {2, 2, 1, 5, 6, 255, 255, 8, 9}, {0, 0, 5, 6}, {0, 0, 5, 8, 9}},
        {"across the end", {2, 1, 0, 5, 0, 255, 255, 8}, {0, 0, 0, 5}, {0, 0, 0, 5, 0}},
        {"reads what it wrote", {1, 1, 1, 7, 255, 7}, {7, 0, 0}, {7, 7, 7, 7}},
        {"no pattern", {0, 1, 0, 9}, {1, 2}, {1, 2}},
        {"lengths beyond the record", {200, 255, 0}, Bytes(8), Bytes(8)},
        {"empty", {1, 1, 0, 0, 0, 9}, {}, {0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        mem_write_block(START, Bytes(16));
        mem_write_block(START, row.before);
        const auto size = static_cast<std::uint32_t>(row.before.size());
        EXPECT_EQ(patch_search_apply("p", row.record, START, size), 1);
        EXPECT_EQ(memory(row.after.size()), row.after);
    }
}

TEST_F(Patch, AppliesTheDefaultsInOrderButNotBehindTheRetroReplay) {
    active_config.stub = TARGET_C64RR;
    testing::internal::CaptureStderr();
    mem_mode = MEM_SIMULATOR_AND_TARGET;
    EXPECT_EQ(patch_apply_named("first", START, 6), 1);
    EXPECT_EQ(memory(6), (Bytes{0xA9, 0, 0x8D, 0x2E, 1, 3})); // in the simulator from here on
    EXPECT_EQ(patch_apply_defaults(START, 6), 1);
    EXPECT_EQ(memory(6), (Bytes{0xA9, 0, 0xEA, 0x55, 0, 3}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "info: applying default patches (00001000-00001006)... \n"
              "\ninfo: First patch applied 1 time(s). \ninfo: address = 00001000 "
              "\ninfo: Second patch applied 1 time(s). \ninfo: address = 00001003 ");
}

TEST_F(Patch, CountsAllMatchesAndNamesTheFirst64) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(patch_search_apply("p", Bytes{1, 0, 0, 0x55, 255}, START, 0x100), 1);
    mem_write_block(START, Bytes(70, 0x55));
    EXPECT_EQ(patch_search_apply("p", Bytes{1, 0, 0, 0x55, 255}, START, 0x100), 1);
    std::string text = "warning: p not patched \ninfo: p patch applied 70 time(s). ";
    for (int i = 0; i < 64; i++) {
        text += text_printf("\ninfo: address = %08x ", START + i);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text);
}

TEST_F(Patch, EndsAtAnEscapeThatNoKeyFollows) {
    const struct {
        std::string typed;
        int mode, status;
    } rows[] = {{"\x1b", MEM_SIMULATOR, 255},
                {"\x1b\x1b", MEM_SIMULATOR, 255},
                {test::UP, MEM_SIMULATOR, 1},
                {"x", MEM_SIMULATOR, 1},
                {"\x1b", MEM_SIMULATOR_AND_TARGET, 1}}; // where only success is told
    for (const auto& row : rows) {
        SCOPED_TRACE(test::hex(row.typed));
        test::Terminal terminal(80, 25);
        terminal.run([&] {
            con_rawmode();
            con_printf("ready");
            con_idle(60000);
            mem_mode = row.mode;
            return patch_apply_named("first", START, 6);
        });
        terminal.wait_for("ready");
        terminal.type(row.typed);
        EXPECT_EQ(terminal.wait_exit(), row.status);
    }
}

TEST_F(Patch, EndsTheProgramWithoutItsSection) {
    dir.write("patches.ini", "[patches_auto]\nnum=99999\nn0=gone\n");
    EXPECT_EXIT((dup2(2, 1), patch_apply_defaults(START, 6)), testing::ExitedWithCode(255),
                "only the first 4096 .*patches.ini: couldnt find section gone");
}

} // namespace kx
