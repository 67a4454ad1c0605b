// File types by name; program files of every type to and from target memory, with their entry
// points and messages; the hexadecimal dump.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/bin.h"
#include "files/filetype.h"
#include "files/hexdump.h"
#include "files/nes.h"
#include "files/pce.h"
#include "files/prg.h"
#include "files/sid.h"
#include "ini/file.h"
#include "link/port.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tests/support/scripted_target.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/msg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

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
             {"", CPU_NONE, MACHINE_NONE, FILETYPE_RAW},
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
    Load() {
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
        bool in_run = false;
        for (std::uint32_t i = 0; i < 0x10000; i++) {
            const char c = static_cast<char>(sim_read8(i));
            if (c != 0 && !in_run) {
                char address[8];
                std::snprintf(address, sizeof address, "%s%04x:", text.empty() ? "" : " ", i);
                text += address;
            }
            in_run = c != 0;
            text += in_run ? std::string(1, c) : "";
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

    // What `action` says on standard error, blanks at the end aside, the directory as "@".
    template <typename Action>
    std::string said(Action action) const {
        msg_reset();
        verbosity.warn = 1;
        testing::internal::CaptureStderr();
        action();
        std::string text = testing::internal::GetCapturedStderr();
        for (std::size_t at = 0; (at = text.find(dir.path())) != std::string::npos;) {
            text.replace(at, dir.path().size(), "@");
        }
        return text.substr(0, text.find_last_not_of(" \n") + 1);
    }

    // The symbol store as VICE labels.
    std::string entries() const {
        sym_write_vice(sym_store, file_open(dir.file("entries"), "wb").get());
        return test::read_file(dir.file("entries"));
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
    struct Row {
        const char* name;
        std::string content;
        std::uint32_t start;
        std::uint64_t end;
        std::string memory;
        const char* loaded;
        const char* said;
        const char* entries;
    };
    const Row rows[] = {
        {"a.rom", "abc", 0x1000, 0, "1000:abc", "1000-1003:1000", "", ""},
        {"a.rom", "abc", 0x1000, 0x1002, "1000:ab", "1000-1002:1000", "", ""},
        {"x.d64/e", "ab", 0x1000, 0, "1000:ab", "1000-1002:1000", "", ""}, // the folder's dot
        {"b.rom", "ab", 0xFFFE, 0, "fffe:ab", "fffe-10000:fffe", "", ""},
        {"b.rom", "abc", 0xFFFE, 0, "fffe:ab", "fffe-10001:fffe", "warning: end >0000ffff", ""},
        {"c.rom", image(0x10001, {{7, "c"}}), 0, 0, "0007:c", "0000-10001:0000",
         "warning: end >0000ffff \nwarning: start:0x00000000, are you sure you want to do this?",
         ""},
        {"d.prg\r\n", "\x01\x10xy", 0, 0, "1001:xy", "1001-1003:1001", "", ""},
        {"d.prg", "\x01\x10xy", 0x2000, 0, "2000:xy", "2000-2002:1001", "", ""},
        {"d.prg", "\x01\x10xy", 0x2000, 0x2001, "2000:x", "2000-2001:1001", "", ""},
        {"d.prg", "\x01\x10xy", 0, 0x2001, "1001:xy", "1001-1003:1001", "", ""},
        {"d.prg", "\x01\x10", 0, 0, "", "1001-1001:1001", "", ""},
        // One earlier than raw files.
        {"e.prg", "\xFE\xFFxy", 0, 0, "fffe:xy", "fffe-10000:fffe", "warning: end >0000ffff", ""},
        {"f.sid", tune("\x20\x02", "xy"), 0, 0, "2002:xy", "2002-2004:1004", "", sid_entries},
        {"f.sid", tune("\0\0"s, "\0\x10xy"s), 0, 0, "1000:xy", "1000-1002:1004", "", sid_entries},
        {"f.sid", tune("\xFF\xFF", "x"), 5, 0, "ffff:x", "ffff-10000:1004",
         "warning: '@/f.sid' goes to its own addresses. \nwarning: end >0xffff", sid_entries},
        {"g.pce", image(40961, {{0, "a"}, {8182, vectors}, {8192, "b"}, {40959, "cd"}}), 0, 0,
         "6000:b dfff:ca fff6:" + vectors, "6000-10000:e505", "",
         "al 00e404 .entry_e404\nal 00e101 .entry_e101\nal 00e505 .entry_e505\n"
         "al 00e202 .entry_e202\nal 00e303 .entry_e303\n"},
        {"h.nes", cartridge("\1", 16384, {{0, "a"}}), 0, 0,
         "8000:a bffa:" + NES_VECTORS + "a fffa:" + NES_VECTORS, "8000-10000:8022", "",
         nes_entries},
        {"i.nes", cartridge("\2\1\4", 512 + 40960, {{0, "trainer"}, {512, "a"}, {16896, "b"}}), 0,
         0, "8000:a c000:b fffa:" + NES_VECTORS, "8000-10000:8022", "", nes_entries},
        {"j.nes", cartridge("\4", 65536, {{0, "a"}, {16384, "b"}, {49152, "d"}}), 0, 0,
         "8000:a c000:d fffa:" + NES_VECTORS, "8000-10000:8022",
         "warning: '@/j.nes' has 4 program banks, only its first and its last are sent.",
         nes_entries},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << row.name);
        sim_init();
        sym_table_free(sym_store);
        sym_table_new(&sym_store);
        const std::string path = dir.file(row.name);
        dir.write(transfer_trim(row.name), row.content);
        EXPECT_EQ(said([&] { EXPECT_EQ(file_load(path, row.start, row.end), 1); }), row.said);
        EXPECT_EQ(runs(), row.memory);
        EXPECT_EQ(loaded(), row.loaded);
        const bool is_raw = row.name[4] == 'm' || row.name[4] == '4'; // which do not tell
        EXPECT_EQ(file_start_address(path), is_raw ? 0 : file_loaded().execute);
        EXPECT_EQ(entries(), row.entries);
    }
}

TEST_F(Load, WhatIsDamagedOrNoProgramTransfersNothing) {
    const char* const outside = "' is a damaged sid file: its data offset leaves the file.";
    const char* const unfit = "' is a damaged iNES file: its header does not fit it.";
    struct Row {
        const char* name;
        std::string content; // "-": there is no such file
        const char* said;
    };
    const Row rows[] = {
        {"none.rom", "-", "Failed to open input bin file '@/none.rom'"},
        {"none.prg", "-", "Failed to open input prg file '@/none.prg'"},
        {"none.sid", "-", "Failed to open input sid file '@/none.sid'"},
        {"none.pce", "-", "Failed to open input pce file '@/none.pce'"},
        {"none.nes", "-", "Failed to open input nes file '@/none.nes'"},
        {"", "-", "Failed to open input bin file '@/'"}, // a directory
        {"a.prg", "\1", "' is too short for a prg file: it has no load address."},
        {"a.sid", "PSID\0\2\0\x10\0\0\0\0\0"s, "' is too short for a sid file: its header is cut."},
        {"a.sid", tune("\x10\x01", ""), outside},
        {"a.sid", "PSID\0\2\0\x0D\x10\x01\x10\4\x10\x08xy"s, outside}, // within the header
        {"a.sid", tune("\0\0"s, "x"), "' is a damaged sid file: it has no load address."},
        {"a.pce", std::string(40959, 'x'),
         "' is too short for a pce file: it has less than 40 KiB."},
        {"a.nes", "NES\x1B\1" + std::string(16384 + 11, 'x'),
         "' is no iNES file: it has no header."},
        {"a.nes", "NES\x1A\1", "' is no iNES file: it has no header."},
        {"a.nes", cartridge("\1\0\0\x08\0\1"s, 16384, {}), "' is too large a NES 2.0 file."},
        {"a.nes", cartridge("", 16384, {}), unfit}, // no banks
        {"a.nes", cartridge("\1", 16383, {}), unfit},
        {"a.nes", cartridge("\1\0\4"s, 16384 + 511, {}), unfit}, // the trainer
        {"a.nes", cartridge("\1\1", 16384 + 8191, {}), unfit},   // the characters
        {"a.txt", "x", "' is no program (plain ascii text)."},
        {"a.lbl", "x", "' is no program (VICE label file)."},
        {"a.d64", "x", "' is no program (Commodore 1541 Disc Image)."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << row.name);
        if (row.content != "-") {
            dir.write(row.name, row.content);
        }
        const std::string path = dir.file(row.name);
        EXPECT_EQ(said([&] { EXPECT_EQ(file_load(path, 0), -1); }),
                  "error: "s + (row.said[0] == '\'' ? "'@/"s + row.name : "") + row.said);
        EXPECT_EQ(runs() + entries(), "");
    }
    EXPECT_EQ(said([&] { EXPECT_EQ(prg_send(dir.file("none.prg"), 0, 0, 0), -1); }), "");
    EXPECT_EQ(said([&] { prg_exec_address("no.prg\n"); }),
              "error: Failed to open input exec file 'no.prg'");
}

TEST_F(Load, FailedTransfersAreReportedAndNotRecorded) {
    mem_mode = MEM_IMAGE; // of which none is open
    struct Row {
        const char* name;
        std::string content;
        const char* said;
    };
    for (const Row& row : {
             Row{"a.rom", "x", "Failed to send raw file '@/a.rom'\n\r"},
             {"a.prg", "\1\1x", ""}, // its progress display alone tells
             {"a.sid", tune("\x10\x01", "x"), "error: Failed to send sid file '@/a.sid'"},
             {"a.pce", std::string(40960, 'x'), "Failed to send prg file '@/a.pce'\n\r"},
             {"a.nes", cartridge("\1", 16384, {}), "error: Failed to send nes file '@/a.nes'"},
         }) {
        const std::string path = dir.write(row.name, row.content);
        const std::uint32_t start = row.name[4] == 'm' ? 5 : 0; // the others have their own
        EXPECT_EQ(said([&] { EXPECT_EQ(file_load(path, start), -1); }), row.said);
        EXPECT_EQ(file_loaded().end + entries().size(), 0U) << row.name;
    }
    mem_mode = MEM_SIMULATOR;
    EXPECT_EQ(prg_send(dir.file("a.prg"), 0x1000, 0x1002, 0), -1) << "a byte too few";
    EXPECT_EQ(prg_send(dir.file("a.prg"), 0x1000, 0xFFF, 0), -1);
    EXPECT_EQ(runs(), "");
}

TEST_F(Load, SkipsBytesAndKeepsNamedEntries) {
    const std::string path = dir.write("a.prg", "\x01\x10hijk");
    EXPECT_EQ(prg_send(path, 0x1000, 0x1002, 1), 2);
    EXPECT_EQ(bin_send(path, 0x2000, 0x2003, 1), 3);
    EXPECT_EQ(runs(), "1000:ij 2000:\x10hi");
    sym_add(sym_store, 0x1004, 0, 0, "init", "", SYM_RANGE);
    const std::string sid = dir.write("a.sid", tune("\0\0"s, "\x00\x20x"s));
    EXPECT_EQ(sid_send(sid), 1);
    EXPECT_EQ(sym_find_name(sym_store, "init", 0)->flags, SYM_RANGE | SYM_CODE);
    const SymEntry* play = sym_find_addr(sym_store, 0x1008, 0, 0);
    ASSERT_NE(play, nullptr);
    EXPECT_EQ(play->comment, "entrypoint at $1008");
    EXPECT_EQ(play->flags, SYM_CODE);
    EXPECT_EQ(play->end + play->bank, 0U);
    EXPECT_EQ(sid_list_base(file_open(dir.file("list"), "wb").get(), sid), 1);
    EXPECT_EQ(test::read_file(dir.file("list")), "\n; Base Address: 0x2000\n");
    sym_table_free(sym_store);
    EXPECT_EQ(sid_send(sid), 1) << "without a symbol store";
    sym_table_new(&sym_store);
}

TEST_F(Load, SavesOnlyWhatItCanSave) {
    sim_write8(0xFFFF, 'z');
    const auto save = [&](const char* name, std::uint32_t start, std::uint64_t end) {
        return said([&] { file_save(dir.file(name), start, end); });
    };
    EXPECT_EQ(save("a.prg", 0xFFFE, 0x10000), "warning: end >0000ffff");
    EXPECT_EQ(test::read_file(dir.file("a.prg")), "\xFE\xFF\0z"s);
    EXPECT_EQ(save("a.nes", 0, 4),
              "error: '@/a.nes': memory cannot be saved as NES image (iNES Format).");
    EXPECT_EQ(save("a.txt", 0, 4), "error: '@/a.txt' is no program (plain ascii text).");
    EXPECT_EQ(save("no/a.prg", 0, 4), "error: Failed to open output prg file '@/no/a.prg'");
    EXPECT_EQ(save("no/a.rom", 0, 4), "error: Failed to open output bin file '@/no/a.rom'");
    EXPECT_EQ(save("a.prg", 4, 4), "error: 00000004-00000004 is no range of addresses.");
    mem_mode = MEM_IMAGE; // of which none is open
    EXPECT_EQ(save("a.prg", 0, 4), "");
    EXPECT_EQ(test::read_file(dir.file("a.prg")), "\xFE\xFF\0z"s) << "the old file";
    EXPECT_EQ(pce_get(dir.write("a.pce", "x")), 1);
    EXPECT_EQ(test::read_file(dir.file("a.pce")), "");
}

TEST_F(Load, ComesBackFromTheTargetAsItWasSent) {
    test::ScriptedTarget target;
    active_config.stub = TARGET_C64RR;
    active_config.port_type = PORT_SERIAL;
    mem_mode = MEM_SIMULATOR_AND_TARGET;
    ASSERT_EQ(target_connect(target.device(), 38400, 0), 1);
    std::string bytes;
    while (bytes.size() < 5000) { // no two pages are the same
        bytes += static_cast<char>(bytes.size() * bytes.size() / 7);
    }
    for (const auto& [name, content] :
         {std::pair{"a.rom", bytes}, {"a.prg", "\x00\xC0"s + bytes}}) {
        ASSERT_EQ(file_load(dir.write(name, content), name[2] == 'r' ? 0x1234 : 0), 1);
        sim_init(); // what comes back is the target's
        const LoadedFile at = file_loaded();
        ASSERT_EQ(file_save(dir.file("back"s + name), at.start, at.end), 1);
        EXPECT_EQ(test::read_file(dir.file("back"s + name)), content) << name;
    }
    EXPECT_EQ(target.commands,
              (std::vector<std::string>{"41 42 BC 25 34 12", "41 43 BC 25 34 12",
                                        "41 42 88 D3 00 C0", "41 43 88 D3 00 C0"}));
    port_close();
}

TEST_F(Load, ProgramsOfARealAssembler) {
    if (access("/usr/bin/cl65", X_OK) != 0) {
        GTEST_SKIP() << "cc65 is not installed";
    }
    const std::string source = dir.write("a.s", ".export start, loop\n.segment \"CODE\"\n"
                                                "start: lda #$42\nloop: jmp loop\n");
    const std::string path = dir.file("a.prg");
    const std::string labels = dir.file("a.lbl");
    const test::Outcome built =
        test::run_program({"/usr/bin/cl65", "-t", "c64", "-C", "c64-asm.cfg", "-u", "__EXEHDR__",
                           "-Ln", labels, "-o", path, source});
    ASSERT_EQ(built.status, 0) << built.err;
    EXPECT_EQ(file_load(path, 0), 1);
    EXPECT_EQ(said([&] { filehandler_readsymfile(sym_store, labels, SYMFILE_VICE); }), "");
    ASSERT_NE(sym_find_name(sym_store, "loop", 0), nullptr);
    const std::uint32_t start = sym_find_name(sym_store, "start", 0)->address;
    EXPECT_EQ(file_loaded().start, 0x801U);
    EXPECT_EQ(file_loaded().execute, start);
    EXPECT_EQ(sym_find_name(sym_store, "loop", 0)->address, start + 2);
    EXPECT_EQ(runs().substr(runs().size() - 5), "\xA9\x42\x4C\x0F\x08");
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
