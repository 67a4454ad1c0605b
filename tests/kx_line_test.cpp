// The verbs of kx that work over the line, as users run them, against the pretended target: what
// they say, their exit status, and what they leave behind.
#include "tests/support/temp_dir.h"
#include "tools/fake_target.h"
#include "tools/port_list.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace kx {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

std::string program(std::size_t size) {
    std::string bytes("\x01\x08\x0B\x08\x0A\x00\x9E"
                      "2061\x00\x00\x00",
                      14); // 10 SYS 2061
    for (std::size_t i = bytes.size(); i < size + 2; i++) {
        bytes += static_cast<char>(i * 7 % 251);
    }
    return bytes;
}

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

/// A directory with programs to send, and kx in the search path.
struct KxLine : testing::Test {
    KxLine() {
        fs::current_path(dir.path());
        const std::string path = fs::path(KX_COMMAND).parent_path().string() + ":";
        setenv("PATH", (path + std::getenv("PATH")).c_str(), 1);
        setenv("KXPATH", KX_SOURCE_DIR "/base", 1);
        for (const char* variable : {"KX_PORT", "KX_TARGET", "KX_BAUD"}) {
            unsetenv(variable);
        }
        dir.write("hello.prg", program(100));
        dir.write("game.prg", program(40550));
        dir.write("big.prg", program(70000));
        for (const char* name : {"disc.d64", "text.txt", "labels.lbl", "x.bin"}) {
            dir.write(name, "abc");
        }
    }

    /// In a shell; device names become PORT, process numbers and times of day N.
    Outcome run(const std::string& command) const {
        const int status = std::system(("(" + command + ") >out 2>err </dev/null").c_str());
        const auto text = [&](const char* name) {
            std::string bytes = test::read_file(dir.file(name));
            bytes = std::regex_replace(bytes, std::regex("/dev/pts/[0-9]+"), "PORT");
            bytes = std::regex_replace(bytes, std::regex("\\(pid [0-9]+\\)"), "(pid N)");
            return std::regex_replace(bytes, std::regex("[0-9]{2}:[0-9]{2}:[0-9]{2} "), "N");
        };
        return {WEXITSTATUS(status), text("out"), text("err")};
    }

    test::TempDir dir;
};

TEST_F(KxLine, EveryFailureHasItsTextCodeAndStatus) {
    struct Row {
        const char* command;
        int status;
        const char* code;
        const char* err; // of this on standard error
    };
    const std::string busy = "kx fake -- sh -c 'flock $KX_PORT kx --json read 1024'";
    // Root may open anything: the row is played by nobody, with copies that nobody can reach.
    const std::string refused =
        std::string("chmod 755 .; touch line; chmod 600 line; cp $(command -v kx) .;"
                    "cp -R $KXPATH b; ") +
        (geteuid() == 0 ? "setpriv --reuid 65534 --clear-groups" : "chmod 0 line; env") +
        " ./kx --base b -p ./line --json read 1";
    const Row rows[] = {
        {"kx -p /dev/nosuch --json read 1024", 4, "port-missing",
         "kx: error: /dev/nosuch: no such device (--port)\nhint: "},
        {refused.c_str(), 4, "port-permission", "kx: error: ./line: no permission ("},
        {busy.c_str(), 4, "port-busy",
         "kx: error: PORT: in use by flock (pid N)\nhint: --wait waits for it\n"},
        {"kx -p /etc/passwd --json read 1024", 4, "port-not-serial",
         "kx: error: /etc/passwd: not a serial line\n"},
        {"kx -t c64 -b 4800 --json read 1024", 4, "port-baud", "9600, 19200, 38400, 57600 or"},
        {"kx fake --fail silent -- kx --timeout 0.3 --json read 1024", 5, "target-silent",
         "kx: error: no answer from the target on PORT within 0.3 s\nhint: is the stub running"},
        {"kx fake --fail surplus -- kx --json verify hello.prg", 5, "target-surplus",
         "the target sent more than was asked for; the two are out of step, reset it\n"},
        {"kx fake --fail stuck -- kx --timeout 0.3 --json send hello.prg", 5, "target-stuck",
         "kx: error: the target on PORT has taken no byte within 0.3 s; 0 of 100 bytes sent\n"
         "hint: it waits for 106 bytes: reset it"},
        {"kx fake --fail hangup:1500 --speed 1000000 -- kx --json send game.prg", 5, "line-lost",
         "kx: error: the line PORT has gone; "},
        {"kx fake --fail hangup:5 --request 'load hello' -- kx --json serve --once", 5, "line-lost",
         "kx: error: the line PORT has gone\n"},
        {"mkdir -p none/config; kx --base none --json send hello.prg", 3, "no-target",
         "no target is chosen\nhint: run kxsetup"},
        {"kx -t nes -p x --json send hello.prg", 3, "bad-config", "[stub] name must be c64rr"},
        {"kx fake --fail silent -- kx --timeout 0.1 --json ports --ping", 5, "target-silent",
         "at 9600, 19200, 38400, 57600 or 115200 baud\n"},
        {"kx --json send none.prg", 1, "host-file", "none.prg: No such file or directory\n"},
        {"kx -t c64 --json send big.prg", 1, "no-room",
         "70000 bytes from $0801 on do not fit, memory ends at $FFFF; nothing was sent\n"},
        {"kx --json send disc.d64", 2, "usage", "kx get takes programs out of it\n"},
        {"kx --json run text.txt", 2, "usage", "hint: kx view shows it\n"},
        {"kx --json verify labels.lbl", 2, "usage", "hint: kx symbols lists it\n"},
        {"kx --json serve disc.d64", 2, "usage",
         "disc.d64: a file, and it is directories that are served\nhint: kx get "},
        {"kx -t c64 --json send --patch=none hello.prg", 1, "not-found", "no patch 'none'\n"},
        {"kx -t c64 --json read 0xde00:2", 1, "not-found", "is not read (not in the memory map)"},
        {"kx fake -- ./nothing", 127, "", "./nothing: No such file or directory\n"},
    };
    for (const Row& row : rows) {
        const Outcome outcome = run(row.command);
        EXPECT_EQ(outcome.status, row.status) << row.command << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.err)) << row.command;
        const std::string code = R"("error":{"code":")" + std::string(row.code);
        EXPECT_THAT(outcome.out, HasSubstr(*row.code != '\0' ? code : "")) << row.command;
    }
}

TEST_F(KxLine, SendsReadsBackComparesAndStarts) {
    const Outcome outcome = run("kx fake --log -- sh -c 'kx run --verify game.prg && kx -q read "
                                "$((2049)):40550 -o back.prg && cmp game.prg back.prg && kx -q "
                                "verify game.prg && kx verify hello.prg'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, HasSubstr("40550 bytes sent and verified, $0801-$A666 in "));
    EXPECT_THAT(outcome.err, HasSubstr("; started at $080D\n"));
    EXPECT_THAT(outcome.err, HasSubstr("pc     $080D                                 41 44 0D 08"));
    EXPECT_THAT(outcome.err, HasSubstr("run    $080D                                 41 4B\n"));
    EXPECT_EQ(outcome.out, ""); // hello.prg is the beginning of game.prg
    EXPECT_EQ(run("kx fake --load hello.prg -- kx verify game.prg").out.find("$0865: file"), 0U);
}

TEST_F(KxLine, DumpsWithSymbolsAndFillsWhatIsNotThere) {
    EXPECT_EQ(run("kx fake --load x.bin@65489 -- kx read 0xffd1:4").out,
              "0000ffd1:  61  ;a\nCHROUT:\n0000ffd2:  62 63 00  ;bc.\n");
    const Outcome outcome = run("kx fake --load x.bin@0xddfd -- kx read 0xddfd-0xde01 -o -");
    EXPECT_EQ(outcome.out, "abc\xDE\xAD");
    EXPECT_EQ(outcome.err, "kx: warning: $DE00-$DE01 is not read (not in the memory map)\n");
}

/// kx as a child, with the target played here: `act` is called with its number at every step.
int play(FakeTarget& target, const std::vector<std::string>& words,
         const std::function<void(pid_t)>& act) {
    setenv("KX_PORT", target.line.device.c_str(), 1);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, KX_COMMAND, nullptr, nullptr, arguments.data(), environ), 0);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        fake_step(target, 1);
        act(child);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string settings(const FakeTarget& target) {
    termios now = {};
    EXPECT_EQ(tcgetattr(target.line.slave.get(), &now), 0);
    return {reinterpret_cast<const char*>(&now), offsetof(termios, c_cc) + sizeof now.c_cc};
}

TEST_F(KxLine, CtrlCAnywhereLeavesATargetThatAnswers) {
    FakeTarget target;
    FakeSettings paced;
    paced.baud = 8000000; // up to 13 KiB are on their way
    ASSERT_EQ(fake_open(target, paced), 0);
    const std::string before = settings(target);
    int interrupted = 0;
    for (std::uint64_t place = 0; place < 25000; place += 250) {
        const std::uint64_t end = target.line.crossed + place;
        bool done = false;
        const int status = play(target, {"kx", "-q", "send", "game.prg"}, [&](pid_t child) {
            if (!done && target.line.crossed >= end && target.line.crossed > end - place) {
                done = kill(child, SIGINT) == 0;
            }
        });
        interrupted += status == 130 ? 1 : 0;
        ASSERT_TRUE(status == 130 || status == 0) << place;
        ASSERT_EQ(settings(target), before) << place;
        ASSERT_EQ(play(target, {"kx", "-q", "read", "2049:4", "-o", "back"}, [](pid_t) {}), 0)
            << place;
        ASSERT_EQ(test::read_file("back"), program(40550).substr(2, 4)) << place;
    }
    EXPECT_GT(interrupted, 50);
}

TEST_F(KxLine, ASecondCtrlCEndsAtOnceAndTellsWhatTheTargetWaitsFor) {
    FakeTarget target;
    FakeSettings stuck;
    stuck.failure = FakeFailure::Stuck;
    stuck.failure_after = 3000;
    ASSERT_EQ(fake_open(target, stuck), 0);
    testing::internal::CaptureStderr();
    const int status = play(target, {"kx", "send", "game.prg"}, [&](pid_t child) {
        if (target.line.crossed >= 3000) {
            kill(child, SIGINT); // again and again
        }
    });
    EXPECT_EQ(status, 130);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::ContainsRegex("^kx: the target waits for [0-9]+ bytes: reset it\n$"));
}

TEST_F(KxLine, ServesADirectoryThatNoRequestLeaves) {
    struct Row {
        const char* fake;
        const char* serve;
        const char* line;  // of kx serve
        const char* reply; // that the program got
    };
    const Row rows[] = {
        {"load hello", "", "load  HELLO             hello.prg         102 bytes in ",
         ": 102 bytes"},
        {"load hello", "--exact", "No such file or directory", "refused"},
        {"load ../hello", "", "refused: not in the served directory", "refused (FF)"},
        {"dir", "", "load  $                                   2 entries", "dir: "},
        {"save new 300", "", "save  NEW               new               300 bytes in",
         "300 bytes sent"},
        {"save new 300", "-r", "refused: read-only", "refused (FF)"},
        {"load hello.prg", "--protocol generic", "dbgLoad      hello.prg ", ": 102 bytes to $0801"},
        {"load hello", "--protocol serialslave", "load  HELLO  ", ": 102 bytes to $0801"},
    };
    fs::create_directory("in");
    fs::copy("hello.prg", "in/hello.prg");
    for (const Row& row : rows) {
        const std::string protocol = std::string(row.serve).starts_with("--p") ? row.serve : "";
        const Outcome outcome = run("kx fake --log " + protocol + " --request '" + row.fake +
                                    "' -- kx serve in --once " + row.serve);
        EXPECT_EQ(outcome.status, 0) << row.fake << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr(row.line)) << row.fake;
        EXPECT_THAT(outcome.err, HasSubstr(row.reply)) << row.fake;
        EXPECT_THAT(outcome.err, HasSubstr("served 1 request, ")) << row.fake;
    }
    EXPECT_EQ(fs::file_size("in/new"), 300U);
}

TEST_F(KxLine, ServesOnWhenTheLineComesBack) {
    run("kx fake --link line --fail replug:50 --request 'load hello' --request 'load x.bin' "
        "--request 'raw 37 38' -- sh -c 'kx serve >said 2>&1 & until grep -q no.cbm.request said; "
        "do sleep 0.1; done; kill $!; wait $!'");
    const std::string said = test::read_file("said");
    EXPECT_THAT(said, HasSubstr("HELLO             hello.prg         "));
    EXPECT_THAT(said, HasSubstr("X.BIN             x.bin             3 bytes in "));
    EXPECT_THAT(said, HasSubstr("the line is back\n"));
    EXPECT_THAT(said, HasSubstr("warning: 2 bytes of no cbm request (37 38)\n"));
    EXPECT_THAT(said, HasSubstr("served 2 requests, "));
    EXPECT_FALSE(fs::exists(fs::symlink_status("line")));
}

TEST(PortList, FindsAdaptersTheirNamesAndWhoHasThem) {
    const test::TempDir root;
    fs::current_path(root.path());
    ASSERT_EQ(std::system(R"(set -e; usb=sys/devices/usb1/1-1/1-1:1.0/ttyUSB0
        mkdir -p $usb sys/class/tty/ttyUSB0 sys/class/tty/tty1 dev/serial/by-id proc/4711/fd
        echo FTDI cable >sys/devices/usb1/1-1/product
        ln -s "$PWD/$usb" sys/class/tty/ttyUSB0/device
        ln -s /bus/drivers/ftdi_sio $usb/driver
        for port in ttyS10=4 ttyS2=4 ttyS3=0; do
            mkdir -p sys/class/tty/${port%=*}/device
            echo ${port#*=} >sys/class/tty/${port%=*}/type
        done
        touch dev/ttyUSB0
        ln -s ../../ttyUSB0 dev/serial/by-id/usb-FTDI-if00
        echo tio >proc/4711/comm
        ln -s /dev/ttyUSB0 proc/4711/fd/3)"),
              0);
    std::string text;
    for (const PortEntry& port : port_list(root.path(), false)) {
        text += port.device + "," + port.by_id + "," + port.what + "," + port.driver + "," +
                port.holder.name + "\n";
    }
    EXPECT_EQ(text, "/dev/ttyS2,,16550A,,\n/dev/ttyS10,,16550A,,\n"
                    "/dev/ttyUSB0,usb-FTDI-if00,FTDI cable,ftdi_sio,tio\n");
    EXPECT_EQ(port_list(root.path(), true).size(), 4U);
}

} // namespace
} // namespace kx
