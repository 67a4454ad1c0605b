// The loader: base directory, every field of a target file, what is reported and replaced.
#include "core/config/config.h"

#include "core/simulator.h"
#include "files/membank.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tests/support/base_dir.h"
#include "ui/col.h"
#include "ui/msg.h"

#include <gmock/gmock.h>

namespace kx {
namespace {

struct Config : testing::Test {
    test::BaseDir base;
    IniDocument main_doc;
    IniDocument doc;
    std::string errors;

    Config() {
        setenv("KXPATH", base.dir.path().c_str(), 1);
        active_config.base_dir = base.path;
    }

    /// Loads the target file of the tests with `from` replaced by `to`; the messages are kept.
    int load(const std::string& from = "", const std::string& to = "") {
        const std::string path = base.dir.write("t.ini", test::target_text(from, to));
        msg_reset();
        verbosity.warn = 1;
        testing::internal::CaptureStderr();
        const int result = config_load_target(doc, path);
        errors = testing::internal::GetCapturedStderr();
        for (std::size_t at; (at = errors.find(path)) != std::string::npos;) {
            errors.replace(at, path.size(), "T");
        }
        return result;
    }
};

TEST_F(Config, BaseDirectoryComesFromTheEnvironmentThenTheProgramPath) {
    setenv("KXPATH", "/opt/kx/", 1);
    EXPECT_EQ(config_find_base_dir("bin/kxsetup", "KXPATH"), "/opt/kx//");
    unsetenv("KXPATH");
    for (const auto& [program, directory] : {std::pair{"bin/kxsetup", "bin/"},
                                             {"C:\\kx\\kxsetup", "C:\\kx\\"},
                                             {"/kxsetup", "./"},
                                             {"", "./"}}) {
        EXPECT_EQ(config_find_base_dir(program, "KXPATH"), directory) << program;
    }
}

TEST_F(Config, UnknownComponentsAreReportedAndReplaced) {
    const struct {
        const char* from;
        const char* to;
        int result;
        std::string ids; // cpu, machine, port, dropper, stub, console, fileserver, file type
        std::string errors;
        std::string settings = " 38400 0 "; // of console and fileserver
        std::string numbers = "2 1 1";      // port address, endianness, autoload
    } rows[] = {
        {"cpu=6510", "cpu=Z80", 1, "1 2 1 2 1 1 3 8", "error: (T) unknown cpu 'Z80'. "},
        {"serial\n[stub]", "rope\n[stub]", 1, "2 2 5 2 1 1 3 8",
         "error: (T) unknown cable type 'rope'. "},
        {"=pc64rr", "=NONE", 1, "2 2 1 6 1 1 3 8", "error: (T) unknown stub dropper 'NONE'. "},
        {"name=c64rr\n", "", 1, "2 2 1 2 6 1 3 8", "error: (T) unknown stub ''. "},
        {"serial\n[target]", "udp\n[target]", 1, "2 2 1 2 1 0 3 8",
         "warning: (T) unknown console 'udp', console disabled. "},
        {"=cbm", "=n/a", 1, "2 2 1 2 1 1 0 8",
         "warning: (T) unknown fileserver 'n/a', fileserver disabled. "},
        // The second try is the CPU's tag: a real CPU in an unknown machine is refused.
        {"=c64\n", "=vic\n", -1, "2 2 1 2 1 1 3 8",
         "error: (T) unknown machine 'vic'. \nerror: (T) unknown machine 'vic'. "},
        {"=c64\naddrbits=16\nbankbits=0\ncpu=6510", "=vic\ncpu=none", 1, "1 1 1 2 1 1 3 8",
         "error: (T) unknown machine 'vic'. "},
        {"=prg", "=PRG", 1, "2 2 1 2 1 1 3 15", ""},
        {"=cbm\n[console]", "=cbm\nroot=/srv/c64\nreadonly=1\n[console]\nport=/dev/x\nbaud=9600", 1,
         "2 2 1 2 1 1 3 8", "", "/dev/x 9600 1 /srv/c64"},
        {"=cbm", "=none", 1, "2 2 1 2 1 1 4 8", ""},
        {"addr=65538", "addr=65535", 1, "2 2 1 2 1 1 3 8", "", " 38400 0 ", "65535 1 1"},
        {"endianess=1", "endianess=2", 1, "2 2 1 2 1 1 3 8", "", " 38400 0 ", "2 2 1"},
        {"autoload=1", "autoload=-5", 1, "2 2 1 2 1 1 3 8", "", " 38400 0 ", "2 1 -5"},
    };
    for (const auto& row : rows) {
        load(); // all of them are there before
        EXPECT_EQ(load(row.from, row.to), row.result) << row.to;
        const ActiveConfig& c = active_config;
        std::string ids;
        for (const int id : {int{c.cpu}, int{c.machine}, c.port_type, int{c.dropper}, int{c.stub},
                             int{c.console}, int{c.fileserver}, c.default_file_type}) {
            ids += std::to_string(id) + " ";
        }
        EXPECT_EQ(ids, row.ids + " ") << row.to;
        EXPECT_EQ(c.console_port + " " + std::to_string(c.console_baud) + " " +
                      std::to_string(c.fileserver_read_only) + " " + c.fileserver_root,
                  row.settings)
            << row.to;
        EXPECT_EQ(std::to_string(c.port_addr) + " " + std::to_string(c.stub_endianness) + " " +
                      std::to_string(c.patch_autoload),
                  row.numbers)
            << row.to;
        EXPECT_EQ(errors, row.errors) << row.to;
    }
    EXPECT_EQ(active_config.patch_file, base.path + "patches/c64.ini");
}

TEST_F(Config, MemoryItemsBecomeRegionsAndBankBlocks) {
    const struct {
        const char* item;
        int type;
        std::uint32_t size; // of the block announced, 0 for none
        const char* errors;
    } rows[] = {
        {"3,0xd000,0xdfff,0,io", 69, 0xFFF, ""},
        {"3,53248,0157777,0,rom", 68, 0xFFF, ""},
        {"3,0xd000,0xdfff,0,none", 4, 0, ""},
        {"3,0xd000,0xcfff,0,ram", 68, 0, ""},
        {"3,0xd000,0xdfff,0,RAM", 0, 0, "error: T: item n1 in section memory is malformed. "},
        {"3,0xd000,0xdfff,0,ram,x", 68, 0xFFF,
         "error: T: item n1 in section memory isnt of expected array length (5). "},
        {"3,0xd000,0xdfff,0", 0, 0,
         "error: T: item n1 in section memory isnt of expected array length (5). \n"
         "error: T: item n1 in section memory is malformed. "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(load("0, 0xd000, 0xdfff, 0, io", row.item), 1);
        ASSERT_EQ(active_config.memory_map.regions.size(), 2U) << row.item;
        const MemoryRegion& region = active_config.memory_map.regions[1];
        EXPECT_EQ(region.bank, 3U) << row.item;
        EXPECT_EQ(region.base, 0xD000U) << row.item;
        EXPECT_EQ(region.type, row.type) << row.item;
        EXPECT_EQ(errors, row.errors) << row.item;
        const MemBank* bank = membank_find(3);
        EXPECT_EQ(bank != nullptr ? bank->blocks.at(0)->size : 0, row.size) << row.item;
    }
}

TEST_F(Config, EndlessListsAreBoundedAndUnreadableFilesEmpty) {
    EXPECT_EQ(load("num=2\nn0=0", "num=0xffffffff\nn0=0"), 1);
    EXPECT_EQ(active_config.memory_map.regions.size(), 4096U);
    EXPECT_THAT(errors, testing::HasSubstr("error: T: num in section memory is 4294967295, only"));
    EXPECT_EQ(config_load_target(doc, base.path + "gone.ini"), 1);
    EXPECT_EQ(active_config.machine_tag, "none");
    EXPECT_EQ(active_config.cable_tag, "none");
    EXPECT_EQ(active_config.memory_map.regions.size(), 0U);
}

TEST_F(Config, RomsAndSymbolsAreLoaded) {
    ASSERT_EQ(load(), 1);
    ASSERT_EQ(sim_init(), 1);
    sym_table_new(&sym_store);
    mem_mode = MEM_IMAGE;
    verbosity.verbose = 1; // or the loader silences itself
    testing::internal::CaptureStderr();
    EXPECT_EQ(config_load_roms(base.path, doc), 0);
    EXPECT_EQ(config_load_symbols(base.path, doc), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::Not(testing::HasSubstr("error:")));
    // A prg file, by the default file type: its first two bytes are its own load address.
    EXPECT_EQ(sim_read8(0xC000), 0x11);
    EXPECT_EQ(sim_read8(0xC001), 0x22);
    EXPECT_NE(sym_find_name(sym_store, "start", 0), nullptr);
    ASSERT_EQ(load("roms/a.bin", "roms/gone.bin"), 1);
    EXPECT_EQ(config_load_roms(base.path, doc), -1);
    EXPECT_EQ(mem_mode, MEM_IMAGE) << "put back on every way";
    EXPECT_EQ(verbosity.silent, 0);
}

} // namespace
} // namespace kx
