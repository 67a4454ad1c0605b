// The generic fileserver from the far end of its line: requests, replies and log byte for byte.
#include "core/active_config.h"
#include "fileserver/fileserver.h"
#include "tests/support/far_end.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"
#include "util/clock.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

using namespace test;
using testing::EndsWith;

namespace {

struct Row {
    std::string request, reply, log; // without "KX> CMD: " before a command's name
    std::size_t unread = 0;          // bytes of the request
    int result = 0;
};

// Handles are numbered from 40 (64) on; 60 (96) is a pipe.
struct Generic : testing::Test {
    Generic() {
        active_config.fileserver = FILESERVER_GENERIC;
        active_config.port_baud = 38400;
        verbosity.verbose = 1;
        clock_wall_set_source([] { return 1000U; });
        dir.write("f", "hello");
        const timespec march_15_2009[2] = {{1237075200, 0}, {1237075200, 0}};
        utimensat(0, dir.write("dir/a-name-of-16-long", "0123456789").c_str(), march_15_2009, 0);
        EXPECT_EQ(dup2(open(dir.write("log", "").c_str(), O_WRONLY | O_APPEND), 2), 2);
        int ends[2] = {};
        EXPECT_EQ(chdir(dir.path().c_str()), 0);
        EXPECT_EQ(pipe(ends), 0);
        for (int fd = dup2(ends[0], 0x60); fd != 0x3F; fd = dup(0)) {
        }
    }
    ~Generic() override {
        dup2(error_output, 2);
        close_range(static_cast<unsigned>(error_output), ~0U, 0);
    }

    void expect(const Row& row, bool hang_up = false) {
        const std::string prefix =
            row.log[0] == 'd' && !row.log.starts_with("dbgSys") ? "KX> CMD: " : "";
        const std::string answer = far->ask(bytes(row.request), hang_up);
        EXPECT_EQ(hang_up ? "" : hex(answer), hex(bytes(row.reply))) << row.request;
        EXPECT_EQ(read_file(dir.file("log")), prefix + row.log) << row.request;
        EXPECT_EQ(far->unread, row.unread) << row.request;
        EXPECT_EQ(far->result, row.result) << row.request;
        std::filesystem::resize_file(dir.file("log"), 0);
    }

    TempDir dir;
    std::optional<FarEnd> far{std::in_place};
    const int error_output = dup(2); // as it was; all from it on is opened later
};

} // namespace

TEST_F(Generic, AnswersEveryCommand) {
    const char length = static_cast<char>(dir.path().size() + 4); // of dir/dir
    // clang-format off: a row is a line
    const Row rows[] = {
        {"02 AC", "", "", 1, -1},
        {"01 AB 09", "", "", 1},
        {"01AC 00 09", "", "KX> unknown CMD (0x00).\n", 1, -1},
        {"01AC 10 09", "", "KX> unknown CMD (0x10).\n", 1, -1},
        {"01AC 01 'f' 00", "00 00000005 'hello'",
         "dbgLoad(\"f\",?)\n\rKX> Filesize: 5 bytes\n\rKX> File transfer complete\n\r (5000 "
         "bytes/sec, 45000 baud, 117% of 38400 baud)\n\r"},
        {"01AC 01 'x' 0A 00", "AA", "dbgLoad(\"x\\x0a\",?)\n\rKX> File not found!\n\r"},
        {"01AC 02 's' 00 FFFFFFFE 4142", "00",
         "dbgSave(s,?,-2)\n\rKX> Filesize: -2 bytes\n\rKX> File transfer complete\n\r (0 "
         "bytes/sec, 0 baud, 0% of 38400 baud)\n\r",
         2},
        {"01AC 02 'no/s' 00 00000001 41", "AA",
         "dbgSave(no/s,?,1)\n\rKX> File couldn't be created!\n\r", 1},
        {"01AC 02 '/dev/full' 00 00000002 4142", "00",
         "dbgSave(/dev/full,?,2)\n\rKX> Filesize: 2 bytes\n\rKX> File couldn't be written!\n\r"},
        {"01AC 03 'rm f' 00", "FFFFFFFF",
         "dbgSystem()\n\rKX> CmdLine: rm f (currently disabled for safety!)\n\r"},
        {"01AC 04 01 80 2F2F '\\f' 00 00000000", "00000040",
         "dbgOpen(\"\\x01\\x80//\\f\",0000) (f in " + dir.path() + ")...ok. (fh=64)\n\r"},
        {"01AC 04 '/dir/..\\' 00 00000241", "00000041",
         "dbgOpen(\"/dir/..\\\",0241) (dir/..\\ in " + dir.path() + ")...ok. (fh=65)\n\r"},
        {"01AC 04 'dir/' 00 00000000", "00000042",
         "dbgOpen(\"dir/\",0000) (dir/ in " + dir.path() + ")...ok. (fh=66)\n\r"},
        {"01AC 04 '/' 00 00000000", "FFFFFFFF",
         "dbgOpen(\"/\",0000) ( in " + dir.path() + ")...not ok!\n\r"},
        {"01AC 07 00000041 00000000", "00000000", "dhWrite(65,?,0) ...ok.\n\r"},
        {"01AC 07 00000041 00000003 'xyz'", "00000001", "dhWrite(65,?,3) ...ok.\n\r"},
        {"01AC 07 00000041 FFFFFFFF 'xyz'", "00000000", "dhWrite(65,?,-1) ...ok.\n\r", 3},
        {"01AC 07 00000001 00000000", "00000000", "dhWrite(1,?,0) ...ok.\n\r"},
        {"01AC 07 FFFFFFFF 00000000", "FFFFFFFF", "dhWrite(-1,?,0) ...not ok.\n\r"},
        {"01AC 07 00000040 00000003 'xyz'", "FFFFFFFF", "dhWrite(64,?,3) ...not ok.\n\r"},
        {"01AC 07 FFFFFFFF 00000003 'xyz'", "FFFFFFFF", "dhWrite(-1,?,3) ...not ok.\n\r"},
        {"01AC 08 00000040 FFFFFFFC 00000002", "00000001", "dbgLseek(64,-4,2) ...ok.\n\r"},
        {"01AC 08 00000040 00000000 00000007", "FFFFFFFF", "dbgLseek(64,0,7) ...not ok.\n\r"},
        {"01AC 06 00000040 00000002", "00000002 'el'", "dbgRead(64,?,2) ...ok.\n\r"},
        {"01AC 06 00000040 80000000", "00000000", "dbgRead(64,?,-2147483648) ...ok.\n\r"},
        {"01AC 06 00000040 00000008", "00000002 'looooooo'", "dbgRead(64,?,8) ...ok.\n\r"},
        {"01AC 06 00000040 00000008", "00000000", "dbgRead(64,?,8) ...EOF.\n\r"},
        {"01AC 06 00000041 00000001", "00000000", "dbgRead(65,?,1) ...EOF.\n\r"},
        {"01AC 08 00000041 00000000 00000000", "00000000", "dbgLseek(65,0,0) ...ok.\n\r"},
        {"01AC 06 00000041 00000000", "00000000", "dbgRead(65,?,0) ...ok.\n\r"},
        {"01AC 06 00000041 00000001", "FFFFFFFF", "dbgRead(65,?,1) ...not ok.\n\r"},
        {"01AC 06 00000042 00000001", "FFFFFFFF", "dbgRead(66,?,1) ...not ok.\n\r"},
        {"01AC 06 00000060 00000001", "FFFFFFFF", "dbgRead(96,?,1) ...not ok.\n\r"},
        {"01AC 08 00000040 00000123 00000000", "00000123", "dbgLseek(64,291,0) ...ok.\n\r"},
        {"01AC 09 00000040", "00000123", "dbgTell(64) ...ok. (pos 00000123)\n\r"},
        {"01AC 09 00000060", "FFFFFFFF", "dbgTell(96) ...not ok.\n\r"},
        {"01AC 09 00000002", "FFFFFFFF", "dbgTell(2) ...not ok.\n\r"}, // a file, but the host's
        {"01AC 08 00000002 00000000 00000000", "FFFFFFFF", "dbgLseek(2,0,0) ...not ok.\n\r"},
        {"01AC 06 00000002 00000001", "FFFFFFFF", "dbgRead(2,?,1) ...not ok.\n\r"},
        {"01AC 05 00000040", "00000000", "dbgClose(64) ...ok.\n\r"},
        {"01AC 05 00000000", "FFFFFFFF", "dbgClose(0) ...not ok.\n\r"},
        {"01AC 0C 'd' 00", "00000000", "dbgMkdir(\"d\") ...ok.\n\r"},
        {"01AC 0C 'd' 00", "FFFFFFFF", "dbgMkdir(\"d\") ...not ok!\n\r"},
        {"01AC 0D 'd' 00", "00000000", "dbgRmdir(\"d\") ...ok.\n"},
        {"01AC 0D 'd' 00", "FFFFFFFF", "dbgRmdir(\"d\") ...not ok!\n"},
        {"01AC 0F", "FFFFFFFF", "dbgFindnext(?) ...not ok!\n\r"},
        {"01AC 0E 'q' 00 00000000", "FFFFFFFF", "dbgFindfirst(\"q\",?,00) ...not ok!\n\r"},
        {"01AC 0A 'dir' 00", "00000000", "dbgChdir(\"dir\") ...ok.\n\r"},
        {"01AC 0A 'dir' 00", "FFFFFFFF", "dbgChdir(\"dir\") ...not ok!\n\r"},
        {"01AC 0B 7FFFFFFF", "00 '" + dir.path() + "/dir' 00",
         "dbgGetcwd(?,2147483647) ...ok. (is " + dir.path() + "/dir)\n"},
        {"01AC 0B 00000001", "AA", "dbgGetcwd(?,1) ...not ok.\n"},
        {"01AC 0B 000000" + hex(std::string(1, length)), "AA",
         "dbgGetcwd(?," + std::to_string(length) + ") ...not ok.\n"}, // no room for its end
        {"01AC 0B FFFFFFFF", "AA", "dbgGetcwd(?,-1) ...not ok.\n"},
        {"01AC 0E 'a-' 00 00000110", "00000000 'a-name-of-16-' 00 00 00000000 00003A6F 0000000A",
         "dbgFindfirst(\"a-\",?,110) ...ok.\n\r"},
        {"01AC 0F", "FFFFFFFF", "dbgFindnext(?) ...not ok!\n\r"},
    };
    // clang-format on
    for (const Row& row : rows) {
        expect(row);
    }
    EXPECT_EQ(read_file("..\\"), "xyz");
    EXPECT_EQ(far->ask(bytes("01AC 0E '.' 00 00000000")).substr(17, 6), bytes("00 10 00000000"));
}

TEST_F(Generic, MovesFilesOfAnySize) {
    std::string data(300000, '\0'); // 0x493E0
    for (std::size_t i = 0; i < data.size(); i++) {
        data[i] = static_cast<char>(i * 7 / 5);
    }
    const std::string name(255, 'n');
    const std::string path = name + "is cut here" + '\0';
    EXPECT_EQ(far->ask(bytes("01AC 02") + path + bytes("000493E0") + data), bytes("00"));
    const std::string log = "KX> CMD: dbgSave(" + std::string(236, 'n') + "\n\r"; // 255 in all
    EXPECT_EQ(read_file(dir.file("log")).substr(0, log.size() + 4), log + "KX> ");
    EXPECT_EQ(far->ask(bytes("01AC 01") + path), bytes("00 000493E0") + data);
    EXPECT_EQ(open(name.c_str(), O_RDWR), 0x40);
    EXPECT_EQ(far->ask(bytes("01AC 06 00000040 000613A0")),
              bytes("000493E0") + data + std::string(0x18000 - 64, data.back()));
    EXPECT_EQ(far->ask(bytes("01AC 07 00000040 000493E0") + data), bytes("00000001"));
    EXPECT_EQ(read_file(name), data + data);
    active_config.fileserver_read_only = true;
    EXPECT_EQ(far->ask(bytes("01AC 07 00000040 000493E0") + data), bytes("FFFFFFFF"));
}

TEST_F(Generic, TellsOfFilesThatComeShortAndOfWritesThatFail) {
    const std::string data(100000, 'd'); // 0x186A0
    dir.write("big", data);
    fileserver_set_stop([] { // no stop, but asked with each piece
        // A first piece may be less than what the limit below lets through.
        if (fileserver_last_request().bytes > 2000) {
            EXPECT_EQ(truncate("big", 70000), 0);
            const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
            EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
        }
        return false;
    });
    EXPECT_EQ(far->ask(bytes("01AC 01 'big' 00")), bytes("00 000186A0") + data);
    EXPECT_THAT(read_file(dir.file("log")), EndsWith("KX> File came short! (70000 bytes)\n\r"));
    EXPECT_EQ(open("big", O_RDWR), 0x40);
    dir.write("big", data);
    EXPECT_EQ(far->ask(bytes("01AC 06 00000040 000186A0")), bytes("000186A0") + data);
    EXPECT_THAT(read_file(dir.file("log")), EndsWith("...came short.\n\r"));
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {2000, RLIM_INFINITY}; // until the first piece has failed
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(lseek(0x40, 0, SEEK_SET), 0);
    EXPECT_EQ(far->ask(bytes("01AC 07 00000040 000186A0") + data), bytes("FFFFFFFF"));
    EXPECT_EQ(lseek(0x40, 0, SEEK_CUR), 2000) << "nothing is written behind what failed";
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(far->ask(bytes("01AC 02 'f' 00 000186A0") + data), bytes("00"));
    EXPECT_THAT(read_file(dir.file("log")), EndsWith("KX> File couldn't be written!\n\r"));
    EXPECT_EQ(read_file("f"), "hello");
}

TEST_F(Generic, DoesNothingWithHalfARequestOrHalfAFile) {
    EXPECT_EQ(open("f", O_RDWR), 0x40);
    const Row rows[] = {
        {"01AC 02 'f'", "", ""}, // would empty it
        {"01AC 06 00000040 7FFFFFFF", "", "dbgRead(64,?,2147483647) ...broken off.\n\r"},
        {"01AC 02 's' 00 00000005 'half'", "",
         "dbgSave(s,?,5)\n\rKX> Filesize: 5 bytes\n\rKX> File transfer broken off!\n\r"},
        {"01AC 02 'f' 00 00000005 'half'", "",
         "dbgSave(f,?,5)\n\rKX> Filesize: 5 bytes\n\rKX> File transfer broken off!\n\r"},
    };
    for (const Row& row : rows) {
        expect(row, true);
        far.emplace();
    }
    EXPECT_FALSE(std::filesystem::exists("s"));
    EXPECT_EQ(read_file("f"), "hello");
    EXPECT_EQ(fcntl(0x41, F_GETFD), -1); // closed
}

} // namespace kx
