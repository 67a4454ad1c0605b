// File types by name; program files of every type to and from target memory, with their entry
// points and messages; the hexadecimal dump.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/filetype.h"
#include "files/hexdump.h"
#include "files/transfer_private.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"
#include "util/file.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

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

struct Load : testing::Test {
    Load() {
        std::filesystem::current_path(dir.path());
        active_config.cpu = CPU_6510;
        active_config.machine = MACHINE_C64;
        active_config.addr_bits = 16;
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFF), MEMORY_RAM_ROM);
        EXPECT_EQ(sim_init(), 1);
        sym_table_new(&sym_store);
    }

    // What was loaded last ("start-end:execute"), the runs of bytes in memory that are not zero
    // ("address:bytes"), and on lines of their own the symbols as VICE labels.
    static std::string after() {
        std::ostringstream text;
        const LoadedFile& loaded = file_loaded();
        text << std::hex << loaded.start << '-' << loaded.end << ':' << loaded.execute;
        for (std::uint32_t i = 0, last = 0; i < 0x10000; i++) {
            const std::uint8_t c = sim_read8(i);
            if (c != 0 && last == 0) {
                text << ' ' << i << ':';
            }
            text << std::string(c != 0 ? 1 : 0, static_cast<char>(c));
            last = c;
        }
        sym_write_vice(sym_store, file_open("labels", "wb").get());
        return text.str() + "\n" + test::read_file("labels");
    }

    // What is said on standard error, blanks at the end aside.
    template <typename Action>
    static std::string said(int result, Action action) {
        msg_reset();
        verbosity.warn = 1;
        testing::internal::CaptureStderr();
        EXPECT_EQ(action(), result);
        const std::string text = testing::internal::GetCapturedStderr();
        return text.substr(0, text.find_last_not_of(" \n") + 1);
    }

    test::TempDir dir;
};

// A file of zeros with bytes at some places.
using Parts = std::vector<std::pair<std::size_t, std::string>>;
std::string image(std::size_t size, const Parts& parts) {
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

TEST_F(Load, EveryTypeGoesToItsPlaceOrNowhere) {
    const std::string vectors = "\1\xE1\2\xE2\3\xE3\4\xE4\5\xE5"; // PC-Engine
    const std::string nes_vectors = "\x11\x80\x22\x80\x22\x80";
    const char* const sid_labels = "\nal 001004 .entry_1004\nal 001008 .entry_1008\n";
    const char* const nes_labels = "\nal 008011 .entry_8011\nal 008022 .entry_8022\n";
    const char* const outside = "' is a damaged sid file: its data offset leaves the file.";
    const char* const unfit = "' is a damaged iNES file: its header does not fit it.";
    const struct {
        const char* name;
        std::string content;
        std::string said;
        std::string after = {}; // or the file is refused
        std::uint32_t start = 0;
        std::uint64_t end = 0;
    } rows[] = {
        {"a.rom", "abc", "", "1000-1002:1000 1000:ab\n", 0x1000, 0x1002},
        {"x.d64/e", "ab", "", "fffe-10000:fffe fffe:ab\n", 0xFFFE}, // the folder's dot
        {"c.rom", image(0x10001, {{7, "c"}}),
         "warning: end >0000ffff \nwarning: start:0x00000000, are you sure you want to do this?",
         "0-10001:0 7:c\n"},
        {"d.prg\r\n", "\x01\x10xy", "", "1001-1003:1001 1001:xy\n"},
        {"d.prg", "\x01\x10xy", "", "2000-2002:1001 2000:xy\n", 0x2000},
        {"d.prg", "\x01\x10xy", "", "2000-2001:1001 2000:x\n", 0x2000, 0x2001},
        {"d.prg", "\x01\x10xy", "", "1001-1003:1001 1001:xy\n", 0, 0x2001},
        {"d.prg", "\x01\x10", "", "1001-1001:1001\n"},
        // One earlier than raw files.
        {"e.prg", "\xFE\xFFxy", "warning: end >0000ffff", "fffe-10000:fffe fffe:xy\n"},
        {"f.sid", tune("\0\0"s, "\0\x10xy"s), "", "1000-1002:1004 1000:xy"s + sid_labels},
        {"f.sid", tune("\xFF\xFF", "x"),
         "warning: 'f.sid' goes to its own addresses. \nwarning: end >0xffff",
         "ffff-10000:1004 ffff:x"s + sid_labels, 5},
        {"g.pce", image(40961, {{0, "a"}, {8182, vectors}, {8192, "b"}, {40959, "cd"}}), "",
         "6000-10000:e505 6000:b dfff:ca fff6:" + vectors +
             "\nal 00e404 .entry_e404\nal 00e101 .entry_e101\nal 00e505 .entry_e505\n"
             "al 00e202 .entry_e202\nal 00e303 .entry_e303\n"},
        {"h.nes", image(16400, {{0, "NES\x1A\1"}, {16, "a"}, {16394, nes_vectors}}), "",
         "8000-10000:8022 8000:a bffa:" + nes_vectors + "a fffa:" + nes_vectors + nes_labels},
        {"i.nes", image(49168, {{0, "NES\x1A\3"}, {16, "a"}, {16400, "b"}, {49162, nes_vectors}}),
         "warning: 'i.nes' has 3 program banks, only its first and its last are sent.",
         "8000-10000:8022 8000:a fffa:" + nes_vectors + nes_labels},
        {"i.nes",
         image(74256, {{0, "NES\x1A\4\1\4"},
                       {16, "trainer"},
                       {528, "a"},
                       {49680, "d"},
                       {66058, nes_vectors}}),
         "warning: 'i.nes' has 4 program banks, only its first and its last are sent.",
         "8000-10000:8022 8000:a c000:d fffa:" + nes_vectors + nes_labels},
        {"a.prg", "\1", "' is too short for a prg file: it has no load address."},
        {"a.sid", image(13, {}), "' is too short for a sid file: its header is cut."},
        {"a.sid", tune("\x10\x01", ""), outside},
        {"a.sid", "PSID\0\2\0\x0D\x10\x01\x10\4\x10\x08xy"s, outside}, // within the header
        {"a.sid", tune("\0\0"s, "x"), "' is a damaged sid file: it has no load address."},
        {"a.pce", image(40959, {}), "' is too short for a pce file: it has less than 40 KiB."},
        {"a.nes", "NES\x1B\1" + image(16395, {}), "' is no iNES file: it has no header."},
        {"a.nes", image(16400, {{0, "NES\x1A\1\0\0\x08\0\1"s}}), "' is too large a NES 2.0 file."},
        {"a.nes", image(16400, {{0, "NES\x1A"}}), unfit},        // no banks
        {"a.nes", image(16911, {{0, "NES\x1A\1\0\4"s}}), unfit}, // the trainer
        {"a.nes", image(24591, {{0, "NES\x1A\1\1"}}), unfit},    // the characters
        {"a.txt", "x", "' is no program (plain ascii text)."},
        {"a.d64", "x", "' is no program (Commodore 1541 Disc Image)."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << row.name);
        sim_init();
        sym_table_free(sym_store);
        sym_table_new(&sym_store);
        dir.write(transfer_trim(row.name), row.content);
        const auto load = [&] { return file_load(row.name, row.start, row.end); };
        const bool refused = row.after.empty();
        const std::string before = after();
        mem_mode = MEM_IMAGE; // of which none is open: every transfer fails
        said(-1, load);
        EXPECT_EQ(after(), before);
        mem_mode = MEM_SIMULATOR;
        EXPECT_EQ(said(refused ? -1 : 1, load),
                  (row.said[0] == '\'' ? "error: '"s + row.name : "") + row.said);
        EXPECT_EQ(after(), refused ? before : row.after);
        const std::uint32_t told = &row < &rows[3] ? 0 : file_loaded().execute; // not by raw files
        if (!refused) {
            EXPECT_EQ(file_start_address(row.name), told);
        }
    }
}

TEST_F(Load, OnlyAnAddressSpaceOfAnEndlessFileIsRead) {
    std::filesystem::resize_file(dir.write("a.rom", "abc"), std::uintmax_t{6} << 30);
    EXPECT_EQ(file_load("a.rom", 0x1000), 1);
    EXPECT_EQ(after(), "1000-180001000:1000 1000:abc\n");
}

TEST_F(Load, EntriesAreMarkedWhereTheyHaveANameAndNamedElsewhere) {
    SymEntry* const init = sym_add(sym_store, 0x1004, 0, 0, "init", "mine", SYM_READ);
    dir.write("f.sid", tune("\0\x10"s, "xy"));
    EXPECT_EQ(file_load("f.sid", 0), 1);
    EXPECT_EQ(init->flags, SYM_READ | SYM_CODE);
    EXPECT_EQ(init->comment, "mine");
    EXPECT_EQ(sym_find_addr(sym_store, 0x1004, 0, 0), init);
    const SymEntry* const play = sym_find_name(sym_store, "entry_1008", 0);
    ASSERT_NE(play, nullptr);
    EXPECT_EQ(play->flags, SYM_CODE);
    EXPECT_EQ(play->comment, "entrypoint at $1008");
}

TEST_F(Load, PiecesAreToldAsTheyGo) {
    dir.write("a.pce", image(40960, {}));
    mem_mode = MEM_IMAGE; // of which none is open: the first piece fails
    verbosity.verbose = 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(file_load("a.pce", 0), -1);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_THAT(said, HasSubstr("sending pce file a.pce (e000-ffff:2000) ..."));
    EXPECT_THAT(said, testing::Not(HasSubstr("sending a.pce")));
}

TEST_F(Load, SavesWhatItCanSaveAndNothingElse) {
    sim_write8(0xFFFF, 'z');
    const std::tuple<const char*, std::uint32_t, std::uint64_t, const char*, std::string> rows[] = {
        {"a.prg", 0xFFFE, 0x10000, "warning: end >0000ffff", "\xFE\xFF\0z"s},
        {"a.rom", 0xFFFF, 0x10000, "", "z"},
        {"a.nes", 1, 4, "error: 'a.nes': memory cannot be saved as NES image (iNES Format).", ""},
        {"a.prg", 4, 4, "error: 00000004-00000004 is no range of addresses.", ""},
        {"no/a.prg", 1, 4, "error: Failed to open output prg file 'no/a.prg'", ""},
        {"a.prg", 0, 4, "", ""}, // the transfer fails
    };
    for (const auto& [name, start, end, text, content] : rows) {
        mem_mode = start == 0 ? MEM_IMAGE : MEM_SIMULATOR;
        const auto save = [name = name, start = start, end = end] {
            return file_save(name, start, end);
        };
        EXPECT_EQ(said(content.empty() ? -1 : 1, save), text);
        if (!content.empty()) {
            EXPECT_EQ(test::read_file(name), content) << name;
        }
        EXPECT_EQ(std::filesystem::remove(name), !content.empty()) << name; // nothing is left
    }
}

TEST_F(Load, ProgramsOfARealAssembler) {
    dir.write("a.s", ".export start, loop\n.segment \"CODE\"\nstart: lda #$42\nloop: jmp loop\n");
    ASSERT_EQ(std::system("cl65 -t c64 -C c64-asm.cfg -u __EXEHDR__ -Ln a.lbl -o a.prg a.s"), 0);
    EXPECT_EQ(file_load("a.prg", 0), 1);
    EXPECT_EQ(filehandler_readsymfile(sym_store, "a.lbl", FILETYPE_VICE), 1);
    EXPECT_THAT(after(), testing::StartsWith("801-812:80d 801:"));
    EXPECT_THAT(after(), HasSubstr("\xA9\x42\x4C\x0F\x08\n"));
    EXPECT_THAT(after(), HasSubstr("\nal 00080f .loop\n"));
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
