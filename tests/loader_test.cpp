// File types by name; program files of every type to and from target memory, with their entry
// points and messages; the hexadecimal dump.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/filetype.h"
#include "files/hexdump.h"
#include "files/pce.h"
#include "files/prg.h"
#include "files/sid.h"
#include "ini/file.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/msg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace kx;
using testing::HasSubstr;
using namespace std::string_literals;

namespace {

TEST(FileType, NameMachineAndCpuDecide) {
    active_config.default_file_type = FILETYPE_D64;
    const std::tuple<const char*, std::uint8_t, std::uint8_t, int> rows[] = {
        {"demo.PRG", CPU_6510, MACHINE_C64, FILETYPE_PRG},
        {"song.sid", CPU_NONE, MACHINE_C64, FILETYPE_SID},
        {"song.sid", CPU_6280, 9, FILETYPE_SID},
        {"demo.prgs", CPU_NONE, MACHINE_NONE, FILETYPE_PRG}, // three characters count
        {"kernal", CPU_6510, MACHINE_C64, FILETYPE_D64},
        {"xprg", CPU_NONE, MACHINE_NONE, FILETYPE_PRG}, // no dot: from the second one on
        {"", CPU_NONE, MACHINE_NONE, FILETYPE_RAW},
        {"demo.", CPU_6510, MACHINE_NONE, FILETYPE_CC65}, // by its CPU, before raw
    };
    for (const auto& [name, cpu, machine, type] : rows) {
        active_config.cpu = cpu;
        active_config.machine = machine;
        EXPECT_EQ(filetype_from_name(name), type) << name << " cpu " << int{cpu};
    }
}

class Load : public testing::Test {
protected:
    Load() {
        EXPECT_EQ(chdir(dir.path().c_str()), 0);
        active_config.cpu = CPU_6510;
        active_config.machine = MACHINE_C64;
        active_config.addr_bits = 16;
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFF), MEMORY_RAM_ROM);
        EXPECT_EQ(sim_init(), 1);
        sym_table_new(&sym_store);
    }
    ~Load() override { sym_table_free(sym_store); }

    // The simulator's memory as its runs of bytes that are not zero: "1000:ab c000:c".
    static std::string runs() {
        std::string text;
        for (std::uint32_t i = 0; i < 0x10000; i++) {
            const auto c = static_cast<char>(sim_read8(i));
            if (c != 0 && (i == 0 || sim_read8(i - 1) == 0)) {
                char address[8];
                std::snprintf(address, sizeof address, "%s%04x:", text.empty() ? "" : " ", i);
                text += address;
            }
            text += c != 0 ? std::string(1, c) : "";
        }
        return text;
    }

    // What was loaded last, as "start-end:execute".
    static std::string loaded() {
        char text[32];
        std::snprintf(text, sizeof text, "%04x-%04lx:%04x", file_loaded().start,
                      static_cast<unsigned long>(file_loaded().end), file_loaded().execute);
        return text;
    }

    // What `action` says on standard error, blanks at the end aside.
    template <typename Action>
    static std::string said(Action action) {
        msg_reset();
        verbosity.warn = 1;
        testing::internal::CaptureStderr();
        action();
        const std::string text = testing::internal::GetCapturedStderr();
        return text.substr(0, text.find_last_not_of(" \n") + 1);
    }

    // The symbol store as VICE labels.
    static std::string entries() {
        sym_write_vice(sym_store, file_open("entries", "wb").get());
        return test::read_file("entries");
    }

    test::TempDir dir;
};

// A file of zeros with bytes at some places.
std::string image(std::size_t size, const std::vector<std::pair<std::size_t, std::string>>& parts) {
    std::string bytes(size, '\0');
    for (const auto& [offset, part] : parts) {
        bytes.replace(offset, part.size(), part);
    }
    return bytes;
}

// A tune whose program stands behind a header of 16 bytes.
std::string tune(const std::string& load, const std::string& program) {
    return "PSID\0\x02\0\x10"s + load + "\x10\x04\x10\x08.." + program;
}

// An iNES file: its numbers of banks and flags, `size` bytes behind the header, vectors at the end
// of the program.
const std::string NES_VECTORS = "\x11\x80\x22\x80\x22\x80";
std::string cartridge(const std::string& numbers, std::size_t size,
                      std::vector<std::pair<std::size_t, std::string>> parts) {
    const bool has_characters = numbers.size() > 1 && numbers[1] != 0;
    parts.emplace_back(size - (has_characters ? 8192 : 0) - NES_VECTORS.size(), NES_VECTORS);
    return image(16, {{0, "NES\x1A" + numbers}}) + image(size, parts);
}

TEST_F(Load, EveryTypeGoesToItsPlace) {
    const std::string vectors = "\1\xE1\2\xE2\3\xE3\4\xE4\5\xE5"; // PC-Engine
    const char* const sid_entries = "al 001004 .entry_1004\nal 001008 .entry_1008\n";
    const char* const nes_entries = "al 008011 .entry_8011\nal 008022 .entry_8022\n";
    const struct {
        const char* name;
        std::string content;
        std::uint32_t start;
        std::uint64_t end;
        std::string memory;
        const char* loaded;
        const char* said = "";
        const char* entries = "";
    } rows[] = {
        {"a.rom", "abc", 0x1000, 0x1002, "1000:ab", "1000-1002:1000"},
        {"x.d64/e", "ab", 0x1000, 0, "1000:ab", "1000-1002:1000"}, // the folder's dot
        {"b.rom", "ab", 0xFFFE, 0, "fffe:ab", "fffe-10000:fffe"},
        {"c.rom", image(0x10001, {{7, "c"}}), 0, 0, "0007:c", "0000-10001:0000",
         "warning: end >0000ffff \nwarning: start:0x00000000, are you sure you want to do this?"},
        {"d.prg\r\n", "\x01\x10xy", 0, 0, "1001:xy", "1001-1003:1001"},
        {"d.prg", "\x01\x10xy", 0x2000, 0, "2000:xy", "2000-2002:1001"},
        {"d.prg", "\x01\x10xy", 0x2000, 0x2001, "2000:x", "2000-2001:1001"},
        {"d.prg", "\x01\x10xy", 0, 0x2001, "1001:xy", "1001-1003:1001"},
        {"d.prg", "\x01\x10", 0, 0, "", "1001-1001:1001"},
        // One earlier than raw files.
        {"e.prg", "\xFE\xFFxy", 0, 0, "fffe:xy", "fffe-10000:fffe", "warning: end >0000ffff"},
        {"f.sid", tune("\0\0"s, "\0\x10xy"s), 0, 0, "1000:xy", "1000-1002:1004", "", sid_entries},
        {"f.sid", tune("\xFF\xFF", "x"), 5, 0, "ffff:x", "ffff-10000:1004",
         "warning: 'f.sid' goes to its own addresses. \nwarning: end >0xffff", sid_entries},
        {"g.pce", image(40961, {{0, "a"}, {8182, vectors}, {8192, "b"}, {40959, "cd"}}), 0, 0,
         "6000:b dfff:ca fff6:" + vectors, "6000-10000:e505", "",
         "al 00e404 .entry_e404\nal 00e101 .entry_e101\nal 00e505 .entry_e505\n"
         "al 00e202 .entry_e202\nal 00e303 .entry_e303\n"},
        {"h.nes", cartridge("\1", 16384, {{0, "a"}}), 0, 0,
         "8000:a bffa:" + NES_VECTORS + "a fffa:" + NES_VECTORS, "8000-10000:8022", "",
         nes_entries},
        {"i.nes", cartridge("\4\1\4", 512 + 73728, {{0, "trainer"}, {512, "a"}, {49664, "d"}}), 0,
         0, "8000:a c000:d fffa:" + NES_VECTORS, "8000-10000:8022",
         "warning: 'i.nes' has 4 program banks, only its first and its last are sent.",
         nes_entries},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << row.name);
        sim_init();
        sym_table_free(sym_store);
        sym_table_new(&sym_store);
        dir.write(transfer_trim(row.name), row.content);
        EXPECT_EQ(said([&] { EXPECT_EQ(file_load(row.name, row.start, row.end), 1); }), row.said);
        EXPECT_EQ(runs(), row.memory);
        EXPECT_EQ(loaded(), row.loaded);
        const bool is_raw = row.name[4] == 'm' || row.name[4] == '4'; // which do not tell
        EXPECT_EQ(file_start_address(row.name), is_raw ? 0 : file_loaded().execute);
        EXPECT_EQ(entries(), row.entries);
    }
}

TEST_F(Load, WhatIsDamagedOrNoProgramTransfersNothing) {
    const char* const outside = "' is a damaged sid file: its data offset leaves the file.";
    const char* const unfit = "' is a damaged iNES file: its header does not fit it.";
    const struct {
        const char* name;
        std::string content;
        const char* said;
    } rows[] = {
        {"a.prg", "\1", "' is too short for a prg file: it has no load address."},
        {"a.sid", "PSID\0\2\0\x10\0\0\0\0\0"s, "' is too short for a sid file: its header is cut."},
        {"a.sid", tune("\x10\x01", ""), outside},
        {"a.sid", "PSID\0\2\0\x0D\x10\x01\x10\4\x10\x08xy"s, outside}, // within the header
        {"a.sid", tune("\0\0"s, "x"), "' is a damaged sid file: it has no load address."},
        {"a.pce", std::string(40959, 'x'),
         "' is too short for a pce file: it has less than 40 KiB."},
        {"a.nes", "NES\x1B\1" + std::string(16395, 'x'), "' is no iNES file: it has no header."},
        {"a.nes", "NES\x1A\1", "' is no iNES file: it has no header."},
        {"a.nes", cartridge("\1\0\0\x08\0\1"s, 16384, {}), "' is too large a NES 2.0 file."},
        {"a.nes", cartridge("", 16384, {}), unfit},              // no banks
        {"a.nes", cartridge("\1\0\4"s, 16384 + 511, {}), unfit}, // the trainer
        {"a.nes", cartridge("\1\1", 16384 + 8191, {}), unfit},   // the characters
        {"a.txt", "x", "' is no program (plain ascii text)."},
        {"a.lbl", "x", "' is no program (VICE label file)."},
        {"a.d64", "x", "' is no program (Commodore 1541 Disc Image)."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << row.name);
        dir.write(row.name, row.content);
        EXPECT_EQ(said([&] { EXPECT_EQ(file_load(row.name, 0), -1); }),
                  "error: '"s + row.name + row.said);
        EXPECT_EQ(runs() + entries(), "");
    }
}

TEST_F(Load, ProgramsOfARealAssembler) {
    if (access("/usr/bin/cl65", X_OK) != 0) {
        GTEST_SKIP() << "cc65 is not installed";
    }
    dir.write("a.s", ".export start, loop\n.segment \"CODE\"\nstart: lda #$42\nloop: jmp loop\n");
    const test::Outcome built =
        test::run_program({"/usr/bin/cl65", "-t", "c64", "-C", "c64-asm.cfg", "-u", "__EXEHDR__",
                           "-Ln", "a.lbl", "-o", "a.prg", "a.s"});
    ASSERT_EQ(built.status, 0) << built.err;
    EXPECT_EQ(file_load("a.prg", 0), 1);
    EXPECT_EQ(said([&] { filehandler_readsymfile(sym_store, "a.lbl", SYMFILE_VICE); }), "");
    EXPECT_EQ(loaded(), "0801-0812:080d");
    EXPECT_THAT(entries(),
                testing::AllOf(HasSubstr("al 00080d .start\n"), HasSubstr("al 00080f .loop\n")));
    EXPECT_THAT(runs(), testing::EndsWith("\xA9\x42\x4C\x0F\x08"));
}

TEST(Hexdump, ShowsPlacesBytesAndCharacters) {
    const test::TempDir dir;
    const FilePtr in = file_open(dir.write("in", "0123456789abcdef~\x7F\xE4 \n"), "rb");
    const FilePtr out = file_open(dir.file("out"), "wb");
    EXPECT_EQ(hexdump(out.get(), in.get(), 14, 0xC000), 1);
    std::fseek(in.get(), 1, SEEK_SET);
    EXPECT_EQ(hexdump(out.get(), in.get(), -1, 0), 1);
    EXPECT_EQ(hexdump(out.get(), in.get(), -2, 0), -1);
    EXPECT_EQ(test::read_file(dir.file("out")),
              "0000c00e:  65 66 7e 7f e4 20 0a  ;ef~.. .\n"
              "00000001:  31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 7e  ;123456789abcdef~\n"
              "00000011:  7f e4 20 0a  ;.. .\n");
}

} // namespace
