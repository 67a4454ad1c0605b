// The symbol table, its listings, and the symbol file formats.
#include "symfiles/symfiles.h"

#include "core/file_type_ids.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/con.h"
#include "ui/msg.h"
#include "util/file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace kx;
using namespace std::string_literals;
using testing::HasSubstr;

namespace {

struct Symbols : testing::Test {
    Symbols() { verbosity.warn = 1; }
    ~Symbols() override {
        sym_table_free(table);
        EXPECT_EQ(table, nullptr) << "the owner's handle";
    }

    std::string name_of(const SymEntry* symbol) { return symbol == nullptr ? "-" : symbol->name; }

    // The listing without its header, line ends as "\n".
    std::string listing() {
        sym_list(FilePtr(std::fopen(dir.file("out").c_str(), "w")).get(), table);
        std::string text = test::read_file(dir.file("out"));
        std::erase(text, '\r');
        return text.substr(text.find('\n', 1) + 1);
    }

    test::TempDir dir;
    SymTable* table = nullptr;
    SymTable* made = sym_table_new(&table);
};

TEST_F(Symbols, AreFoundByAddress) {
    sym_add(table, 0x3FC, 0x400, 0, "last bucket", "", SYM_RANGE);
    sym_add(table, 0x1000, 0x10FF, 2, "zone", "", SYM_RANGE);
    sym_add(table, 0x1000, 0, 1, "", "", 0);
    sym_add(table, 0x2000, 0, 1, "one", "", 0);
    sym_add(table, 0x2000, 0, 0, "zero", "", SYM_RANGE);
    sym_add(table, 0x3000, 0, 5, "bank 5", "", SYM_BANK);
    struct Row {
        std::uint32_t address, bank, flags;
        const char* found;  // "-": none
        const char* spoken; // the address's name; "-": none
    };
    for (const Row& row : {
             Row{0x3FC, 0, 0, "last bucket", "last bucket"},
             {0x3FD, 0, SYM_RANGE, "-", "-"}, // the last bucket is not searched
             {0x1000, 0, 0, "", ""},          // the younger one comes first
             {0x1000, 2, 0, "zone", "zone"},
             {0x1005, 2, 0, "-", "zone+$0005"},
             {0x10FF, 0, SYM_RANGE, "zone", "zone+$00ff"},
             {0x10FF, 1, SYM_RANGE, "-", "-"},
             {0x2000, 1, 0, "one", "one"},
             {0x2000, 0, SYM_RANGE, "one", "zero"}, // a range symbol that ends below its address
             {0x9999, 5, SYM_BANK | SYM_RANGE, "bank 5", "-"},
             {0x3000, 0, SYM_BANK, "-", "bank 5"}, // with SYM_BANK the banks must be the same
         }) {
        SCOPED_TRACE(testing::Message() << std::hex << row.address << " in " << row.bank);
        EXPECT_EQ(name_of(sym_find_addr(table, row.address, row.bank, row.flags)), row.found);
        std::string spoken = "old";
        const bool none = row.spoken == "-"s;
        EXPECT_EQ(sym_name_for_addr(table, row.address, row.bank, spoken), none ? -1 : 0);
        EXPECT_EQ(spoken, none ? "" : row.spoken);
    }
    EXPECT_EQ(name_of(sym_last_found), "bank 5");
}

TEST_F(Symbols, ANameStandsForOneSymbolThatKeepsItsBucket) {
    SymEntry* start = sym_add(table, 0x1000, 0x10FF, 1, "start", "old", SYM_READ);
    EXPECT_EQ(sym_add(table, 0x2004, 0, 3, "start", nullptr, SYM_CODE), start);
    EXPECT_EQ(start->comment, "");
    EXPECT_EQ(start->end, 0U);
    EXPECT_EQ(start->bank, 3U);
    EXPECT_EQ(start->flags, SYM_CODE);
    EXPECT_EQ(sym_find_addr(table, 0x2004, 0, 0), nullptr) << "not moved to its new bucket";
    EXPECT_EQ(sym_find_addr(table, 0x2004, 0, SYM_RANGE), start);
    sym_add(table, 1, 0, 0, "ab", "", 0);
    sym_add(table, 2, 0, 7, "a!", "", 0); // shares the name bucket
    sym_add(table, 3, 0, 0, "\xC4rger", "", 0);
    EXPECT_EQ(sym_find_name(table, "ab", 0)->address, 1U);
    EXPECT_EQ(sym_find_name(table, "a!", 7)->address, 2U);
    EXPECT_EQ(sym_find_name(table, "a!", 6), nullptr);
    EXPECT_EQ(sym_find_name(table, "\xC4rger", 0)->address, 3U);
    sym_set_name(start, "ab"); // of another bucket, where it stays
    EXPECT_EQ(sym_find_name(table, "start", 0), nullptr);
    EXPECT_EQ(sym_find_name(table, "ab", 0)->address, 1U);
    sym_set_name(sym_find_name(table, "a!", 7), "ab"); // the younger one comes first
    EXPECT_EQ(sym_find_name(table, "ab", 0)->address, 2U);
    sym_set_name(sym_find_name(table, "ab", 7), "a!");
    EXPECT_EQ(sym_find_name(table, "ab", 0)->address, 1U);
    const SymEntry* nameless = sym_add(table, 4, 0, 0, nullptr, "", 0);
    EXPECT_NE(sym_add(table, 4, 0, 0, "", "", 0), nameless);
    EXPECT_EQ(sym_find_name(table, "", 0), nullptr);
}

std::string item(const char* section, const std::string& value) {
    return "["s + section + "]\nnum=1\nn0=" + value + "\n";
}

TEST_F(Symbols, FilesAreReadItemByItem) {
    const std::string bad_ini = "item n0 in section labels is malformed.";
    const std::string bad_line = "line 2 is malformed.";
    struct Row {
        int type;
        std::string content;
        int result;
        std::string listed;
        std::string report; // a part of it
    };
    for (const Row& row : {
             Row{1, item("labels", " a , 1:0x8000 , b, c "), 1, "01:008000 ??. (0) a [b, c]\n",
                 "missing sections: registers datazones syscalls "},
             {1, item("registers", "a,0xffffffff,w,b"), 1, "00:ffffffff .w. (0) a [b]\n",
              "missing sections: datazones syscalls labels "},
             {1, item("registers", "a,1,rw") + item("syscalls", "b,2") + item("labels", "c,3"), 1,
              "00:000003 ??. (0) c\n00:000002 ??x (0) b\n00:000001 rw. (0) a\n",
              "missing sections: datazones "},
             {1, item("datazones", "a,2,1"), 1, "", "n0 in section datazones is malformed."},
             {1, item("labels", "a,0x100000000"), 1, "", bad_ini},
             {1, item("labels", "a,1:2:3"), 1, "", bad_ini},
             {1, "[labels]\nnum=3\nn0=a,010\nn2=c,3", 1, "00:000008 ??. (0) a\n", "n1 in"},
             {1, "[labels]\nnum=4097", 1, "",
              "num in section labels is 4097, only the first 4096 items are used."},
             {1, "[x]\na=1\n", -1, "", "sections: registers datazones syscalls labels "},
             {1, "", -1, "", "couldn't read symbol file "},
             {12, "\nal 00c000 .a\nal C:fff .b\r", 1, "00:00c000 ??. (0) a\n00:000fff ??. (0) b\n",
              ""},
             {12, " add_label\t$1 ..a rest", 1, "00:000001 ??. (0) .a\n", ""},
             {12, "break 1000\nal 8:c000 .drive\n; al 1 .a", 1, "", "holds no labels."},
             {12, "\nal 1 ." + std::string(9000, 'x') + "\nal 2 .b", 1, "00:000002 ??. (0) b\n",
              bad_line},
             {12, "\nal 1 .a\x1b[2J", 1, "", bad_line},
             {12, "\nal 1 .a\0b"s, 1, "", bad_line},
             {10, "a = 1\n", -1, "", "no symbol file (type 10)"},
         }) {
        SCOPED_TRACE(row.content.substr(0, 40));
        const std::string path = dir.write("syms", row.content);
        testing::internal::CaptureStderr();
        EXPECT_EQ(filehandler_readsymfile(table, path, row.type), row.result);
        const std::string report = testing::internal::GetCapturedStderr();
        EXPECT_EQ(listing(), row.listed);
        EXPECT_THAT(report, HasSubstr(row.report));
        EXPECT_EQ(report.empty(), row.report.empty()) << report;
        sym_table_free(table);
        sym_table_new(&table);
    }
    EXPECT_EQ(filehandler_readsymfile(table, dir.path(), FILETYPE_VICE), -1) << "a directory";
    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const FilePtr writer = file_open(pipe, "r+"); // who writes nothing
    EXPECT_EQ(filehandler_readsymfile(table, pipe, FILETYPE_VICE), -1);
}

TEST_F(Symbols, ZonesOfAFileAreRanges) {
    filehandler_readsymfile(table, dir.write("a.ini", item("datazones", "zone,0x10,0x1f")),
                            FILETYPE_KXSYMS);
    EXPECT_EQ(name_of(sym_find_addr(table, 0x1F, 0, SYM_RANGE)), "zone");
    EXPECT_EQ(name_of(sym_find_addr(table, 0x20, 0, SYM_RANGE)), "-");
}

TEST_F(Symbols, AreListedAndWrittenInBucketOrder) {
    sym_add(table, 0x3FC, 0x400, 1, "last bucket", "", SYM_READ);
    sym_add(table, 0x12345678, 0, 0, "first", "with a comment", SYM_CODE | SYM_WRITE);
    sym_add(table, 0x678, 0, 0, "younger", "", 0);
    sym_list(FilePtr(std::fopen(dir.file("list").c_str(), "w")).get(), table);
    EXPECT_EQ(test::read_file(dir.file("list")),
              "\n\rbank:address flags (size) symbol [comment]\n\r"
              "00:000678 ??. (0) younger\n\r"
              "00:12345678 .wx (0) first [with a comment]\n\r"
              "01:0003fc r.. (400) last bucket\n\r");
    EXPECT_EQ(sym_write_vice(table, file_open(dir.file("labels"), "w").get()), 1);
    EXPECT_EQ(test::read_file(dir.file("labels")),
              "al 000678 .younger\nal 12345678 .first\nal 0003fc .last bucket\n");
    test::Terminal terminal(80, 25);
    terminal.run([&] {
        con_rawmode();
        con_printf("ready");
        while (con_kbhit() == 0) {
            con_idle(100);
        }
        sym_list(stdout, table);
        return con_kbhit();
    });
    terminal.wait_for("ready");
    terminal.type("12345"); // each line takes two keys, once one is waiting
    terminal.wait_for("last bucket");
    terminal.type("6");
    EXPECT_EQ(terminal.wait_exit(), 0) << "keys are left";
    EXPECT_THAT(terminal.screen(),
                HasSubstr("\nbank:address-address flags (size) symbol [comment]\n"
                          "??. 00:000678                               younger\n"
                          ".wx 00:12345678                                 first [with a comment]\n"
                          "r.. 01:0003fc-0007fb (     400)         last bucket\n"));
}

} // namespace
