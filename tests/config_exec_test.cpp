// Running program files, saving and loading memory ranges, with real files.
#include "core/config/config_exec.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/port.h"
#include "link/target_memory.h"
#include "tests/support/fake_thread.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/con.h"
#include "ui/msg.h"

#include <gmock/gmock.h>

namespace kx {

using testing::HasSubstr;
using namespace std::string_literals;

namespace {

struct ConfigExec : testing::Test {
    ConfigExec() {
        active_config.machine = MACHINE_C64;
        active_config.addr_bits = 16;
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFF), MEMORY_RAM_ROM);
        EXPECT_EQ(sim_init(), 1);
    }

    test::TempDir dir;
};

} // namespace

TEST_F(ConfigExec, LoadsAndStartsProgramsWhereTheFileSays) {
    const std::string basic = "\x01\x08\x0B\x08\x0A\0\x9E"
                              "2061\0"s; // 10 SYS 2061
    const struct {
        const char* name;
        std::string content;
        std::uint32_t load, start, pc;
    } rows[] = {
        {"a.prg", "\0\xC0\x60"s, 0x2000, 0, 0xC000}, // the file's, wherever it is loaded
        {"a.prg", "\0\xC0\x60"s, 0, 0x1234, 0x1234},
        {"a.bin", "\x60", 0x2000, 0, 0x2000},
        {"b.prg", basic + "\0\0\0\0\x60"s, 0, 0, 0x80F},
        {"b.prg", basic + "\x01\x08\x60", 0, 0, 0xA7AE}, // a second line follows
        {"b.prg", "\x01\x08\xFF\xFF\0"s, 0, 0, 0xA7AE},  // links that leave the file
    };
    verbosity.silent = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const std::string path = dir.write(row.name, row.content);
        testing::internal::CaptureStderr();
        EXPECT_EQ(core_execfile(path, row.load, row.start), 1);
        char pc[16];
        std::snprintf(pc, sizeof pc, "%08x", row.pc);
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("set PC=0x"s + pc + " \nexecute PC=0x" + pc + " "));
        EXPECT_EQ(sim_registers().pc, row.pc);
    }
}

TEST_F(ConfigExec, StartsTheTargetWithWhatItHasSent) {
    test::FakeThread target;
    active_config.port_type = PORT_SERIAL;
    active_config.stub = TARGET_C64RR;
    mem_mode = MEM_SIMULATOR_AND_TARGET;
    ASSERT_EQ(port_open(target.device(), 115200), 1);
    EXPECT_EQ(core_execfile(dir.write("a.prg", "\0\xC0\x60\x61"s), 0, 0xC001), 1);
    EXPECT_EQ(mem_read8(0xC000), 0x60); // answered when all before it has been done
    target.stop();
    EXPECT_EQ(target.target.memory[0xC001], 0x61);
    EXPECT_EQ(target.target.pc, 0xC001U);
    EXPECT_EQ(target.target.runs, 1U);
}

TEST_F(ConfigExec, AppliesTheDefaultPatchesUnlessEscapeEndsIt) {
    active_config.patch_file =
        dir.write("p.ini", "[patches_auto]\nnum=1\nn0=p\n[p]\nname=p\nmlen=1\nplen=1\npoffs=0\n"
                           "match0=0x60\nmask0=255\npatch0=0x61\n");
    const std::string path = dir.write("a.prg", "\0\xC0\x60"s);
    EXPECT_EQ(core_execfile(path, 0, 0), 1);
    EXPECT_EQ(sim_read8(0xC000), 0x60) << "not wanted";
    active_config.patch_autoload = 1;
    EXPECT_EQ(core_execfile(path, 0, 0), 1);
    EXPECT_EQ(sim_read8(0xC000), 0x61);

    test::Terminal terminal(80, 24);
    terminal.run([&path] {
        sim_registers().pc = 1;
        con_rawmode();
        std::puts("ready");
        std::fflush(stdout);
        while (con_kbhit() == 0) {
        }
        const bool failed = core_execfile(path, 0, 0) == -1;
        return failed ? static_cast<int>(sim_registers().pc) : 0;
    });
    terminal.wait_for("ready");
    terminal.type(test::ESCAPE);
    EXPECT_EQ(terminal.wait_exit(), 1);
}

TEST_F(ConfigExec, LoadsRangesAndSaysWhatIsWrong) {
    EXPECT_EQ(core_load_range(dir.write("range.prg", "\xFC\xFF\x61\x62"), 0x4000, 0x4001), 1);
    EXPECT_EQ(sim_read8(0x4000), 0x61);
    EXPECT_EQ(sim_read8(0x4001), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(core_execfile("none", 0, 0), 0);
    EXPECT_EQ(core_execfile("/", 0, 0), -1);
    EXPECT_EQ(core_save_range("no/dir.bin", 0, 4), -1);
    EXPECT_EQ(core_load_range("none", 0, 0), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error: file 'none' doees not exist. \nerror: couldn't open file '/'. \n"
              "error: couldn't get file 'no/dir.bin'. \nerror: couldn't open file 'none'. ");
    EXPECT_EQ(sim_registers().pc, 0U);
}

} // namespace kx
