// The verbs of kx that work over the line, as users run them, against the pretended target: what
// they say, their exit status, and what they leave behind.
#include "tests/support/kx_shell.h"
#include "tools/fake_target.h"
#include "tools/port_list.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace kx::test {
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

/// A directory with programs to send.
struct KxLine : KxShell {
    KxLine() {
        options.env["KXPATH"] = KX_SOURCE_DIR "/base";
        setenv("KXPATH", KX_SOURCE_DIR "/base", 1);
        fs::current_path(dir.path());
        dir.write("hello.prg", program(100));
        dir.write("game.prg", program(40550));
        dir.write("big.prg", program(70000));
        for (const char* name : {"disc.d64", "text.txt", "labels.lbl", "x.bin"}) {
            dir.write(name, "abc");
        }
    }
};

TEST_F(KxLine, EveryFailureHasItsTextCodeAndStatus) {
    struct Row {
        const char* command;
        int status;
        const char* code;
        const char* err; // of this on standard error
    };
    // Root may open anything: the row is played by nobody, with copies that nobody can reach.
    const std::string refused =
        std::string("cp $(command -v kx) .; cp -R $KXPATH b; chmod -R a+rX .; "
                    "kx fake -- sh -c 'chmod 0 $KX_PORT; ") +
        (geteuid() == 0 ? "setpriv --reuid 65534 --clear-groups" : "") +
        " ./kx --base b --json read 1'";
    const Row rows[] = {
        {"kx -p ./x --json read 1", 4, "port-missing", "./x: no such device (--port)\nhint: "},
        {refused.c_str(), 4, "port-permission", "kx: error: PORT: no permission ("},
        {"kx fake -- sh -c 'flock $KX_PORT kx --json read 1024'", 4, "port-busy",
         "kx: error: PORT: in use by flock (pid N)\nhint: --wait waits for it\n"},
        {"kx -p ./x.bin --json read 1", 4, "port-not-serial", "x.bin: not a serial line\n"},
        {"kx -t c64 -b 4800 --json read 1", 4, "port-baud", "9600, 19200, 38400, 57600 or"},
        {"kx fake --fail silent -- kx --timeout 0.3 --json read 1024", 5, "target-silent",
         "kx: error: no answer from the target on PORT within 0.3 s\nhint: is the stub running"},
        {"kx fake --fail surplus -- kx --json verify hello.prg", 5, "target-surplus",
         "the two are out of step, reset it\n"},
        {"kx fake --fail stuck -- kx --timeout 0.3 --json send hello.prg", 5, "target-stuck",
         "kx: error: the target on PORT has taken no byte within 0.3 s; 0 of 100 bytes sent\n"
         "hint: it waits for 106 bytes: reset it"},
        // Its device's name is the next one's by then.
        {"kx fake --link l --fail hangup:1500 --speed 1000000 -- sh -c "
         "'kx --json send game.prg; s=$?; [ ! -L l ] && exit $s'",
         5, "line-lost", "/l has gone; "},
        {"mkdir -p none/config; kx --base none --json send hello.prg", 3, "no-target",
         "no target is chosen\nhint: run kxsetup"},
        {"kx -t nes -p x --json send hello.prg", 3, "bad-config", "[stub] name must be c64rr"},
        {"sed s/ttyS1/no/ $KXPATH/config/c64rr_console.ini >c.ini; kx -t ./c.ini -p x --json run "
         "--console hello.prg",
         4, "port-missing", "/dev/no: no such device ([console] port in ./c.ini)\n"},
        {"kx fake --fail silent -- kx --timeout 0.1 --json ports --ping", 5, "target-silent",
         "at 9600, 19200, 38400, 57600 or 115200 baud\n"},
        {"kx --json send none.prg", 1, "not-found", "none.prg: No such file or directory\n"},
        {"kx -t c64 --json send big.prg", 1, "no-room",
         "70000 bytes from $0801 on do not fit, memory ends at $FFFF; nothing was sent\n"},
        {"printf '\\376\\377abc' >w.prg; kx -t c64 --json patch w.prg", 1, "no-room",
         "w.prg: 3 bytes from $FFFE on do not fit, memory ends at $FFFF; nothing was patched\n"},
        {"kx fake --fail hangup:100 --request 'load game' -- kx --json serve --once", 5,
         "line-lost", "PORT has gone\n"},
        {"kx --json send disc.d64", 2, "usage", "kx get takes programs out of it\n"},
        {"kx -t c64 --json send --patch=none hello.prg", 1, "not-found", "no patch 'none'\n"},
        {"kx -t c64 --json send x.bin --at 0xde00 --type raw", 1, "not-found",
         "of it is in the mem"},
        {"kx -t c64 --json run hello.prg --start 0x12345", 2, "usage", "memory ends at $FFFF"},
        {"kx -t c64 --json read 1 -o x.bin", 1, "exists", "x.bin exists\nhint: -f replaces it\n"},
        {"kx fake --fail rom -- kx --json send --verify hello.prg", 1, "differs",
         "hello.prg: 96 of 100 bytes differ after sending, the first at $0801: file 0B, target 00"},
        {"KXPATH=/none kx --json symbols", 3, "no-base", "/none: no base directory"},
        {"kx -t c64 -p /dev/nosuch --json read --wait 1 2>e & until grep -q waiting e; do "
         "sleep 0.1; done; kill $!; wait $!; s=$?; cat e >&2; exit $s",
         143, "interrupted", "kx: interrupted: nothing was done\n"},
        {"kx fake --log --fail stuck:3000 -- sh -c 'kx --json send game.prg & until grep -q more "
         "e; "
         "do sleep 0.1; done; kill $!; kill $!; wait $!' 2>e; s=$?; cat e >&2; exit $s",
         143, "interrupted", " bytes: reset it\n"},
        {"kx put -q --create --lock d.d64 x.bin; kx --json rm d.d64 X.BIN", 1, "locked",
         "hint: -f takes"},
        {"kx --json put disc.d64 x.bin", 1, "damaged", "the image is cut: it has 3 bytes of 17"},
        {"kx view game.prg >/dev/full", 1, "", "standard output: No space left on device\n"},
    };
    for (const Row& row : rows) {
        const Outcome outcome = shell(row.command);
        EXPECT_EQ(outcome.status, row.status) << row.command << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.err)) << row.command;
        const std::string code = R"("error":{"code":")" + std::string(row.code);
        EXPECT_THAT(outcome.out, HasSubstr(*row.code != '\0' ? code : "")) << row.command;
    }
}

TEST_F(KxLine, SendsReadsBackComparesAndStarts) {
    const Outcome outcome = shell("kx fake --log -- sh -c 'kx -vv run --verify game.prg && kx -q "
                                  "read 0x801:40550 -o back.prg && cmp game.prg back.prg && kx -q "
                                  "verify game.prg && kx verify hello.prg'");
    EXPECT_EQ(outcome.status, 0);
    for (const char* text :
         {"kx: B  41 42 01 0C 01 08\n", "40550 bytes sent and verified, $0801-$A666 in ",
          "pc     $080D                                 41 44 0D 08\n", "kx: D  41 44 0D 08\n",
          "kx: K  41 4B\n", "; started at $080D\n"}) {
        EXPECT_THAT(outcome.err, HasSubstr(text));
    }
    EXPECT_EQ(outcome.out, ""); // hello.prg is the beginning of game.prg
    EXPECT_EQ(shell("kx fake --load hello.prg -- kx verify game.prg").out.find("$0865: file"), 0U);
}

TEST_F(KxLine, DumpsWithSymbolsAndFillsWhatIsNotThere) {
    EXPECT_EQ(shell("echo al 00ffd3 .own >own.lbl; kx fake --load x.bin@65489 -- kx read 0xffd1:4 "
                    "--symbols own.lbl")
                  .out,
              "0000ffd1:  61  ;a\nCHROUT:\n0000ffd2:  62  ;b\nown:\n0000ffd3:  63 00  ;c.\n");
    const Outcome outcome = shell("kx fake --load x.bin@0xddfd -- kx read 0xddfd-0xde01 -o -");
    EXPECT_EQ(outcome.out, "abc\xDE\xAD");
    EXPECT_EQ(outcome.err, "kx: warning: $DE00-$DE01 is not read (not in the memory map)\n");
}

/// The exit status of kx, with the target played here, and SIGINT at a place of what crosses.
int play(FakeTarget& target, std::string words, std::uint64_t place = UINT64_MAX) {
    setenv("KX_PORT", target.line.device.c_str(), 1);
    words.insert(0, std::string("exec env -u KX_TARGET -u KX_BAUD ") + KX_COMMAND + " -q ");
    char shell[] = "sh", option[] = "-c";
    char* const arguments[] = {shell, option, words.data(), nullptr};
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments, environ), 0);
    const std::uint64_t start = target.line.crossed;
    int status = 0;
    for (bool done = false; waitpid(child, &status, WNOHANG) == 0;) {
        fake_step(target, 1);
        const std::uint64_t crossed = target.line.crossed - start;
        done = done || (crossed > 0 && crossed >= place && kill(child, SIGINT) == 0);
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
        SCOPED_TRACE(place);
        const int status = play(target, "send game.prg 2>err", place);
        interrupted += status == 130 ? 1 : 0;
        ASSERT_THAT(status, testing::AnyOf(0, 130));
        ASSERT_EQ(settings(target), before);
        ASSERT_EQ(play(target, "read 2049:4 -o - >back"), 0);
        ASSERT_EQ(read_file("back"), program(40550).substr(2, 4));
    }
    EXPECT_GT(interrupted, 50);
}

TEST_F(KxLine, TheProgressLineComesAndGoes) {
    struct Row {
        const char *fake, *timeout;
        std::string line; // while it works
        std::string left; // and behind it
        int status;
    };
    const Row rows[] = {
        {"--speed=9600", "--timeout=30", "send t.prg  #",
         "t.prg: 2048 bytes sent to $0801-$1000 in ", 0},
        {"--fail=silent", "--timeout=3", "send t.prg  waiting for the target (2 s l",
         "kx: error: no answer from the target on /dev/", 5},
    };
    dir.write("t.prg", program(2048));
    for (const Row& row : rows) {
        Terminal terminal(42, 8);
        terminal.spawn(
            {KX_COMMAND, "fake", row.fake, "--", KX_COMMAND, row.timeout, "send", "t.prg"},
            options);
        terminal.wait_until([&] { return terminal.output().find(row.line) != std::string::npos; },
                            row.line);
        EXPECT_EQ(terminal.wait_exit(), row.status);
        EXPECT_THAT(terminal.row(0), testing::StartsWith(row.left.substr(0, 42)));
    }
}

TEST_F(KxLine, TheConsoleIsOnTheTerminalUntilItsKeys) {
    const Pty line;
    std::string config = read_file(KX_SOURCE_DIR "/base/config/c64rr_console.ini");
    dir.write("con.ini", config.replace(config.find("/dev/ttyS1"), 10, line.device));
    Terminal terminal(80, 8);
    terminal.spawn({KX_COMMAND, "fake", "--", KX_COMMAND, "-t", "./con.ini", "serve", "--console"},
                   options);
    terminal.wait_for("serving ");
    line.send({'R', 'E', 'A', 'D', 'Y', '\r', 0x93, 0xC1});
    terminal.wait_for("READY");
    terminal.wait_for("\\x93\\xc1");
    terminal.type("a\n\x14\x14");
    EXPECT_EQ(line.take(3), "61 0D 14");
    terminal.type("\x14q");
    EXPECT_EQ(terminal.wait_exit(), 0);
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
        {"load ../hello", "", "refused: not in the served directory", "refused (FF)"},
        {"dir", "", "load  $                                   2 entries", "dir: "},
        {"save new 300", "", "save  NEW               new               300 bytes in",
         "300 bytes sent"},
        {"save new 300", "-r", "refused: read-only", "refused (FF)"},
        {"load hello.prg", "--protocol generic", "dbgLoad      hello.prg ", ": 102 bytes to $0801"},
    };
    fs::create_directory("in");
    fs::copy("hello.prg", "in/hello.prg");
    for (const Row& row : rows) {
        const std::string protocol = std::string(row.serve).starts_with("--p") ? row.serve : "";
        const Outcome outcome = shell("kx fake --log --speed 9600 " + protocol + " --request '" +
                                      row.fake + "' -- kx serve in --once " + row.serve);
        EXPECT_EQ(outcome.status, 0) << row.fake << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr(row.line)) << row.fake;
        EXPECT_THAT(outcome.err, HasSubstr(row.reply)) << row.fake;
        EXPECT_THAT(outcome.err, HasSubstr("served 1 request, ")) << row.fake;
    }
    EXPECT_EQ(fs::file_size("in/new"), 300U);
}

TEST_F(KxLine, ServesOnWhenTheLineComesBack) {
    shell(
        "kx fake --link line --fail replug:50 --request 'load hello' --request 'load x.bin' "
        "--request 'raw 37 38' -- sh -c 'kx serve >said 2>&1 & until grep -q no.cbm.request said; "
        "do sleep 0.1; done; kill $!; wait $!'");
    const std::string said = read_file("said");
    EXPECT_THAT(said, HasSubstr("HELLO             hello.prg         "));
    EXPECT_THAT(said, HasSubstr("X.BIN             x.bin             3 bytes in "));
    EXPECT_THAT(said, HasSubstr("the line is back\n"));
    EXPECT_THAT(said, HasSubstr("warning: 2 bytes of no cbm request (37 38)\n"));
    EXPECT_FALSE(fs::exists(fs::symlink_status("line")));
}

TEST(PortList, FindsAdaptersTheirNamesAndWhoHasThem) {
    const TempDir root;
    fs::current_path(root.path());
    ASSERT_EQ(std::system(R"(set -e; usb=sys/devices/usb1/1-1/1-1:1.0/ttyUSB0
        mkdir -p $usb sys/class/tty/ttyUSB0 dev/serial/by-id proc/7/fd
        echo FTDI cable >sys/devices/usb1/1-1/product
        ln -s "$PWD/$usb" sys/class/tty/ttyUSB0/device
        ln -s /bus/drivers/ftdi_sio $usb/driver
        touch dev/ttyUSB0
        ln -s ../../ttyUSB0 dev/serial/by-id/usb-FTDI-if00
        echo tio >proc/7/comm
        ln -s /dev/ttyUSB0 proc/7/fd/3)"),
              0);
    std::string text;
    for (const PortEntry& port : port_list(root.path(), false)) {
        text += port.device + "," + port.by_id + "," + port.what + "," + port.driver + "," +
                port.holder.name + "\n";
    }
    EXPECT_EQ(text, "/dev/ttyUSB0,usb-FTDI-if00,FTDI cable,ftdi_sio,tio\n");
}

} // namespace
} // namespace kx::test
