// File types by name, and program files into the simulator's memory.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/filetype.h"
#include "ini/file.h"
#include "link/target_memory.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kx;
using namespace std::string_literals;

namespace {

TEST(FileType, NameMachineAndCpuDecide) {
    struct Row {
        const char* name;
        std::uint8_t cpu;
        std::uint8_t machine;
        int type;
    };
    active_config.default_file_type = FILETYPE_D64;
    for (const Row& row : {
             Row{"demo.prg", CPU_6510, MACHINE_C64, FILETYPE_PRG},
             {"demo.PRG", CPU_NONE, MACHINE_NONE, FILETYPE_PRG},
             {"song.sid", CPU_NONE, MACHINE_C64, FILETYPE_SID},
             {"song.sid", CPU_6280, 9, FILETYPE_SID},
             {"a.b/c.txt", CPU_6510, MACHINE_C64, FILETYPE_TXT},
             {"demo.prgs", CPU_NONE, MACHINE_NONE, FILETYPE_PRG}, // three characters count
             {"kernal", CPU_6510, MACHINE_C64, FILETYPE_D64},
             {"xprg", CPU_NONE, MACHINE_NONE, FILETYPE_PRG}, // no dot: from the second one on
             {"demo.", CPU_NONE, MACHINE_NONE, FILETYPE_RAW},
             {"demo.", CPU_6510, MACHINE_NONE, FILETYPE_CC65}, // by its CPU, before raw
         }) {
        active_config.cpu = row.cpu;
        active_config.machine = row.machine;
        EXPECT_EQ(filetype_from_name(row.name), row.type) << row.name << " cpu " << int{row.cpu};
    }
    EXPECT_EQ(filetype_get_desc(2), nullptr);
    EXPECT_EQ(filetype_get_class(FILETYPE_D64), FILETYPE_BY_EXTENSION | FILETYPE_DISC);
}

class Load : public testing::Test {
protected:
    void SetUp() override {
        active_config_reset();
        msg_reset();
        active_config.machine = MACHINE_C64;
        active_config.addr_bits = 16;
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0x1000, 0x1003), MEMORY_RAM_ROM);
        memory_map_set_type(map, memory_map_add(map, 0, 0xFFF0, 0x1000F), MEMORY_RAM_ROM);
        verbosity.warn = 1;
        ASSERT_EQ(sim_init(), 1);
    }

    // What the simulator holds from `address` on, the memory map aside.
    static std::string memory(std::uint32_t address, std::size_t length) {
        std::string bytes;
        for (std::size_t i = 0; i < length; i++) {
            bytes += static_cast<char>(sim_read8(address + static_cast<std::uint32_t>(i)));
        }
        return bytes;
    }

    test::TempDir dir;
};

TEST_F(Load, BytesGoToMappedAddresses) {
    struct Row {
        const char* name;
        std::string content;
        std::uint32_t load_address;
        std::string memory; // from 0x0FFE on, 8 bytes
        const char* message;
    };
    for (const Row& row : {
             Row{"a.rom", "abcdef", 0x1000, "\0\0abcd\0\0"s, ""},
             {"b.rom", "abcdef", 0x0FFE, "\0\0cdef\0\0"s, ""},
             {"c.prg", "\x01\x10xy", 0, "\0\0\0xy\0\0\0"s, ""},
             {"d.prg", "\x01\x10xy", 0x1002, "\0\0\0\0xy\0\0"s, ""},
             {"f.prg\n", "\x00\x10z"s, 0, "\0\0z\0\0\0\0\0"s, ""},
             {"h.prg", "\xFF\xFFqq", 0, "\0\0\0\0\0\0\0\0"s, "end >0000ffff"},
             {"i.rom", "qq", 0xFFFE, "\0\0\0\0\0\0\0\0"s, ""},
             {"j.rom", "qqq", 0xFFFE, "\0\0\0\0\0\0\0\0"s, "end >0000ffff"},
             {"k.prg", "\xFE\xFFqq", 0, "\0\0\0\0\0\0\0\0"s, "end >0000ffff"},
             {"x.d64/kernal", "k", 0x1003, "\0\0\0\0\0k\0\0"s, ""}, // a folder's dot is no matter
         }) {
        SCOPED_TRACE(row.name);
        std::string name = row.name;
        sim_init();
        dir.write(name.substr(0, name.find('\n')), row.content);
        testing::internal::CaptureStderr();
        EXPECT_EQ(file_load(dir.file(name), row.load_address), 1);
        const std::string message = testing::internal::GetCapturedStderr();
        EXPECT_THAT(message, testing::HasSubstr(row.message));
        EXPECT_EQ(message.find("end >") == std::string::npos,
                  std::string(row.message).find("end >") == std::string::npos);
        EXPECT_EQ(memory(0x0FFE, 8), row.memory);
    }
}

TEST_F(Load, RefusesWhatItCannotLoad) {
    struct Row {
        const char* name;
        const char* content; // null: there is no such file
        const char* message;
    };
    for (const Row& row : {
             Row{"none.rom", nullptr, "Failed to open input bin file '"},
             {"one.prg", "\x01", "is too short for a prg file"},
             {"song.sid", "PSID", "files of this type (PlaySID cbm-binary+header)"},
             {"read.txt", "hello", "is not a program that can be loaded or saved (plain"},
         }) {
        if (row.content != nullptr) {
            dir.write(row.name, row.content);
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(file_load(dir.file(row.name), 0x1000), -1) << row.name;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(row.message));
        EXPECT_EQ(memory(0x1000, 4), "\0\0\0\0"s) << row.name;
    }
    EXPECT_EQ(file_load(dir.path(), 0x1000), -1) << "a directory";
}

} // namespace
