// Running program files, saving and loading memory ranges, with real files and real programs.
#include "core/config_exec.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/target_memory.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/msg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

    static std::string memory(std::uint32_t from, std::size_t count) {
        std::string bytes;
        while (bytes.size() < count) {
            bytes += static_cast<char>(sim_read8(from++));
        }
        return bytes;
    }

    test::TempDir dir;
};

} // namespace

TEST_F(ConfigExec, LoadsAndStartsARealProgram) {
    if (access("/usr/bin/cl65", X_OK) != 0) {
        GTEST_SKIP() << "cc65 is not installed";
    }
    const std::string source = dir.write("demo.c", "int main(void) { return 42; }\n");
    const std::string path = dir.file("demo.prg");
    ASSERT_EQ(test::run_program({"/usr/bin/cl65", "-t", "c64", "-o", path, source}).status, 0);
    const std::string program = test::read_file(path).substr(2);
    verbosity.verbose = 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(core_execfile(path, 0, 0), 1);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(memory(0x801, program.size()), program);
    EXPECT_EQ(sim_registers().pc, 0x80DU); // behind cc65's BASIC line
    EXPECT_THAT(text, HasSubstr("info: core_execfile: " + path + " 00000000:0000080d "));
    EXPECT_THAT(text, HasSubstr("info: set PC=0x0000080d \ninfo: execute PC=0x0000080d "));
}

TEST_F(ConfigExec, TakesTheStartAddressFromTheFile) {
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
        {"b.prg", "\x01\x08\0\0\0"s, 0, 0, 0xA7AE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(core_execfile(dir.write(row.name, row.content), row.load, row.start), 1);
        EXPECT_EQ(sim_registers().pc, row.pc);
    }
}

TEST_F(ConfigExec, AppliesTheDefaultPatchesWhenAsked) {
    active_config.patch_file =
        dir.write("p.ini", "[patches_auto]\nnum=1\nn0=p\n"
                           "[p]\nname=P\nmlen=1\nplen=1\nmatch0=7\nmask0=255\npatch0=8\n");
    const std::string path = dir.write("a.prg", "\0\x20\x07\x07"s);
    sim_write8(0x2002, 7); // behind the program
    for (const auto& [autoload, result] : {std::pair{0, "\x07\x07\x07"}, {1, "\x08\x08\x07"}}) {
        active_config.patch_autoload = autoload;
        EXPECT_EQ(core_execfile(path, 0, 0), 1);
        EXPECT_EQ(memory(0x2000, 3), result);
    }
}

TEST_F(ConfigExec, SavesAndLoadsRanges) {
    const std::string raw = dir.file("range.bin");
    const std::string prg = dir.file("range.prg");
    sim_write8(0xFFFC, 'a');
    sim_write8(0xFFFD, 'b');
    EXPECT_EQ(core_save_range(raw, 0xFFFC, 0x10000), 1);
    EXPECT_EQ(test::read_file(raw), "ab\0\0"s);
    EXPECT_EQ(core_save_range(prg, 0xFFFC, 0xFFFE), 1);
    EXPECT_EQ(test::read_file(prg), "\xFC\xFF\x61\x62");
    EXPECT_EQ(core_load_range(prg, 0x4000, 0x4001), 1);
    EXPECT_EQ(core_load_range(raw, 0x3000, 0), 1);
    EXPECT_EQ(memory(0x4000, 2) + memory(0x3000, 2), "a\0ab"s);
    EXPECT_EQ(core_load_range(raw, 0x4000, 0x4005), -1); // the file is shorter
    EXPECT_EQ(core_load_range(raw, 5, 4), -1);
    EXPECT_EQ(memory(0x4001, 1), "\0"s);
    mem_mode = MEM_IMAGE; // no image is open: the transfer fails, and the old file stays
    EXPECT_EQ(core_save_range(raw, 0, 4), -1);
    EXPECT_EQ(test::read_file(raw), "ab\0\0"s);
}

TEST_F(ConfigExec, SaysWhatIsWrong) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(core_execfile("none", 0, 0), 0);
    EXPECT_EQ(core_execfile("/", 0, 0), -1);
    EXPECT_EQ(core_execfile(dir.write("short.prg", "\x01"), 0, 0), -1);
    EXPECT_EQ(core_save_range("no/dir.bin", 0, 4), -1);
    EXPECT_EQ(core_load_range("none", 0, 0), -1);
    EXPECT_EQ(core_save_range("range.bin", 5, 5), -1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::ContainsRegex(
                    "error: file 'none' doees not exist. \nerror: couldn't open file '/'. \n"
                    "error: '.*' is too short .* \nerror: couldn't get file 'no/dir.bin'. \n"
                    "error: couldn't open file 'none'. \nerror: 00000005-00000005 is no range"));
    EXPECT_EQ(sim_registers().pc, 0U);
}

} // namespace kx
