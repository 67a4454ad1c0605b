// The program from end to end: its command line, its menu on a real terminal, the files it leaves.
#include "tests/support/base_dir.h"
#include "tests/support/terminal.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <termios.h>

namespace kx::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

const std::string up = "\x1bOA"; // as xterm sends it once curses has asked for keypad keys
const std::string down = "\x1bOB";
const std::string page_up = "\x1b[5~";
const std::string page_down = "\x1b[6~";
const std::string f1 = "\x1bOP";
const std::string escape = "\x1b";
const std::string menu = "[ESC]"; // the last entry is drawn

std::string times(int n, const std::string& keys) {
    return n == 0 ? "" : keys + times(n - 1, keys);
}

struct Setup : testing::Test {
    BaseDir base;
    TempDir cwd;
    RunOptions options{.env = {{"KXPATH", base.dir.path()}}, .cwd = cwd.path()};

    Outcome run(std::vector<std::string> args) {
        args.insert(args.begin(), KX_PROGRAM);
        return run_program(args, options);
    }

    struct Step {
        std::string keys;
        std::string shown; // by what they do
    };
    static void walk(Terminal& terminal, const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            terminal.type(step.keys);
            terminal.wait_for(step.shown);
        }
    }

    void start(Terminal& terminal, const std::string& shown = menu) {
        terminal.spawn({KX_PROGRAM, "-W"}, options);
        terminal.wait_for(shown);
    }

    static void leave(Terminal& terminal) {
        terminal.type(escape);
        EXPECT_EQ(terminal.wait_exit(), 0);
    }

    /// The names of a kind in the order of the directory, which is the order of the lists.
    std::vector<std::string> names(const std::string& type) {
        std::vector<std::string> result;
        for (const auto& entry : fs::directory_iterator(base.path + "config")) {
            if (entry.is_regular_file() &&
                read_file(entry.path()).find("type=" + type + "\n") != std::string::npos) {
                result.push_back(entry.path().stem());
            }
        }
        return result;
    }

    /// The default and the list of a section as they are to be written.
    std::string section(const std::string& value, const std::string& type) {
        std::string text = value + "\n";
        const std::vector<std::string> all = names(type);
        for (std::size_t i = 0; i < all.size(); i++) {
            text += "n" + std::to_string(i) + "=" + all[i] + "\n";
        }
        return text + "num=" + std::to_string(all.size()) + "\n";
    }

    void expect_main(const std::string& colors, const std::string& target,
                     const std::string& charset) {
        EXPECT_EQ(read_file(base.path + "kx.ini"),
                  main_text(section(colors, "colors"), section(target, "target"),
                            section(charset, "charset")));
    }

    /// The keys that choose `name` in a fresh list.
    std::string choose(const std::string& type, const std::string& name) {
        const std::vector<std::string> all = names(type);
        const auto position = std::find(all.begin(), all.end(), name) - all.begin();
        return times(static_cast<int>(position), down) + "\r";
    }
};

TEST_F(Setup, OptionsPrintAndEndTheProgram) {
    base.write_main();
    base.dir.write("config/a23456789012345.ini", target_text("cpu=6510", "cpu=none"));
    base.dir.write("config/refused.ini", target_text("machine=c64", "machine=c65"));
    base.dir.write("config/romless.ini", target_text("n0=roms/a.bin", "n0=roms/gone.bin"));
    const std::string usage = "usage: " KX_PROGRAM " [options] - setup program\n";
    const std::string unknown = "error: unknown option or file:";
    const struct {
        std::vector<std::string> args;
        int status;
        std::string err; // all of it where it ends in the clean-up's empty line, else a part
        std::string out;
    } rows[] = {
        {{"--help"}, 0, usage + data_text("usage.txt"), ""},
        {{"-h"}, 0, usage, ""},
        {{"-?"}, 0, usage, ""},
        {{"help"}, 0, usage, ""},
        {{"--version"}, 0, "KXSETUP v0.1 [built ", ""},
        {{"--show-supported"}, 0, data_text("supported.txt"), ""},
        {{"--show-config"}, 0, data_text("active.txt"), ""},
        {{"--show-targets"},
         0,
         "available target configurations:\nc64\t- Commodore\ngone\t- \n\n",
         "warning: couldn't find .ini file " + base.path + "config/gone.ini\n"},
        {{"--show-colors"}, 0, "available color configurations:\ncol_kx\t- all white\n\n", ""},
        {{"--show-charsets"}, 0, "available charset configurations:\nmap_ascii\t- plain\n\n", ""},
        {{"--exit", "--nonsense"}, 0, "\n", ""},
        {{"-s", "--exit"}, 0, "", ""},
        {{"-v", "--exit"}, 0, data_text("verbose.txt"), ""},
        {{"-s", "-v", "--exit"}, 0, "info: running in verbose mode \ninfo: arg no 3:[--exit]", ""},
        {{"--verbose=1"}, 1, unknown + "--verbose=1\n\n", ""},
        {{"-vW"}, 1, unknown + "-vW\n\n", ""},
        {{"no\x1b[2Jfile"}, 1, unknown + "no\\x1b[2Jfile\n\n", ""},
        {{base.path}, 1, unknown + base.path + "\n\n", ""},
        {{base.path + "kx.ini", "-f", "x", "-o", "--nonsense", "--extfs", "--remote", "--exit"},
         0,
         "\n",
         ""},
        {{"-o"}, 1, unknown + "-o\n\n", ""},
        {{"--cpu", "6502"}, 1, "error: unknown cpu '6502'.\n\r\n", ""},
        {{"--cpu", "65816", "--show-config"}, 0, "[       65816] WesternDigital 65816\n", ""},
        {{"-t", "a234567890123456", "--show-config"}, 0, "[        none] no cpu support\n", ""},
        {{"--target", "refused"}, 1, "refused.ini) unknown machine 'c65'. ", ""},
        {{"-t", "romless"}, 1, "error: couldn't load default roms.\n", ""},
    };
    for (const auto& row : rows) {
        const Outcome outcome = run(row.args);
        const std::string name = testing::PrintToString(row.args);
        EXPECT_EQ(outcome.status, row.status) << name;
        EXPECT_EQ(outcome.out, row.out) << name;
        if (row.err.ends_with("\n\n") || row.err.size() < 2) {
            EXPECT_EQ(outcome.err, row.err) << name;
        } else {
            EXPECT_THAT(outcome.err, HasSubstr(row.err)) << name;
        }
    }
    EXPECT_FALSE(fs::exists(cwd.file("kxtest.ini"))) << "nothing is written on these ways";
}

TEST_F(Setup, MissingSectionsEndTheProgram) {
    const struct {
        const char* file;
        std::string text;
        const char* section;
    } rows[] = {{"kx.ini", "[colors]\ndefault=col_kx\n", "targets"},
                {"config/broken.ini", "[conf]\ntype=target\n", "config"},
                {"config/c64.ini", target_text("[files]", "[fils]"), "files"},
                {"config/col_kx.ini", "[config]\ntype=colors\n", "colors"}};
    for (const auto& row : rows) {
        const BaseDir fresh;
        fresh.write_main();
        fresh.dir.write(row.file, row.text);
        options.env["KXPATH"] = fresh.dir.path();
        const Outcome outcome = run({});
        EXPECT_EQ(outcome.status, 255) << row.file;
        EXPECT_THAT(outcome.out, HasSubstr("error in ini file " + fresh.path + row.file +
                                           ": couldnt find section " + row.section + "\n"));
    }
}

TEST_F(Setup, FirstRunThroughEveryEntryWritesBothFiles) {
    base.dir.write("config/nes.ini", "[config]\ntype=target\ndesc=Famicom\n");
    base.dir.write("config/col_red.ini", scheme_text("red"));
    base.dir.write("config/map_two.ini", "[config]\ntype=charset\ndesc=second\n");
    Terminal terminal(80, 25);
    start(terminal);
    EXPECT_THAT(terminal.row(9).substr(21), StartsWith("      Select Target"));
    walk(terminal, {{f1, "how to use it"}, {"q", menu}});
    fs::remove(base.path + "docs/kxsetup.txt");
    walk(terminal, {{f1, "couldn't open file '"},
                    {" " + times(3, down) + "\r", "sorry, not yet implemented."},
                    {" " + times(2, down) + "\r", "by the kxsetup authors"}});
    terminal.resize(60, 20); // is no key to the box
    terminal.resize(80, 25);
    terminal.type(down); // had the box gone, this would move the menu
    walk(terminal, {{" " + times(5, up) + "\r", "Famicom"}});
    EXPECT_THAT(terminal.row(7).substr(16), StartsWith("["));
    walk(terminal, {{choose("target", "nes"), menu}, {down + "\r", "all red"}});
    terminal.type(choose("colors", "col_red"));
    terminal.wait_until([&] { return terminal.cell(28, 11).fg == 1; }, "the menu in red");
    walk(terminal, {{down + "\r", "second"}, // "Setup Target" chooses the charset
                    {choose("charset", "map_two"), menu},
                    {page_up + "\r", "Famicom"},
                    {page_down + escape, menu}}); // cancelled: nothing changes
    leave(terminal);
    expect_main("col_red", "nes", "map_two");
    EXPECT_THAT(read_file(cwd.file("kxtest.ini")),
                HasSubstr("\n[port]\n;# sio port device name\n"));
}

TEST_F(Setup, SecondRunLeavesBothFilesTheSame) {
    base.write_main();
    for (int i = 0; i < 2; i++) {
        Terminal terminal(80, 25);
        start(terminal);
        terminal.type(times(6, down) + "\r"); // "exit"
        EXPECT_EQ(terminal.wait_exit(), 0);
        expect_main("col_kx", "c64", "map_ascii");
        EXPECT_EQ(read_file(cwd.file("kxtest.ini")), data_text("kxtest.ini"));
    }
    EXPECT_EQ(read_file(base.path + "config/c64.ini"), target_text());
}

TEST_F(Setup, ScanTakesWhatIsAConfigurationAndHasRoom) {
    base.dir.write("config/x.INI", "[a]\n");
    base.dir.write("config/empty.ini", "");
    base.dir.write("config/d.ini/file", "");
    base.dir.write("config/other.ini", "[config]\ntype=charsets\n");
    base.dir.write("config/two\nlines.ini", "[config]\ntype=charset\n");
    base.dir.write("config/a=b;[c].ini", "[config]\ntype=colors\n");
    ASSERT_EQ(mkfifo(base.dir.file("config/pipe.ini").c_str(), 0600), 0);
    for (int i = 0; i < 70; i++) {
        base.dir.write("config/t" + std::to_string(i) + ".ini",
                       "[config]\ntype=target\ndesc=many\n");
    }
    Terminal terminal(80, 25);
    start(terminal);
    walk(terminal, {{"\r", "many"}, {times(8, page_down) + "\r", menu}}); // the last one
    leave(terminal);
    const std::string text = read_file(base.path + "kx.ini");
    const std::string last = names("target")[63];
    EXPECT_THAT(text, HasSubstr("[targets]\ndefault=" + last + "\nn0="));
    EXPECT_THAT(text, HasSubstr("\nn63=" + last + "\nnum=64\n"));
    EXPECT_THAT(text, HasSubstr("=a=b;[c]\n"));
    EXPECT_THAT(text, HasSubstr("[charsets]\ndefault=map_ascii\nn0=map_ascii\nnum=1\n"));
    EXPECT_THAT(terminal.output(), HasSubstr("left out: section targets holds 64 already."));
    EXPECT_THAT(terminal.output(), HasSubstr("'two\\x0alines' left out: only printable"));
}

TEST_F(Setup, ShippedFilesShowTheMenuInTheMiddleOfAnyScreen) {
    fs::copy(KX_SOURCE_DIR "/base", cwd.file("base"), fs::copy_options::recursive);
    options.env["KXPATH"] = cwd.file("base");
    for (const auto& [cols, rows] : {std::pair{40, 10}, {132, 40}, {20, 5}}) {
        Terminal terminal(cols, rows);
        start(terminal, "Select T");
        const auto x = static_cast<std::size_t>(std::max(cols / 2 - 20, 0) + 7);
        const int y = std::max(rows / 2 - 4, 0) + 1;
        EXPECT_EQ(terminal.row(y).find("Select T"), x) << terminal.screen();
        EXPECT_NE(terminal.cell(static_cast<int>(x), y).fg,
                  terminal.cell(static_cast<int>(x), y + 1).fg)
            << "the selection can be seen";
        leave(terminal);
        EXPECT_EQ(terminal.output().find("warning"), std::string::npos) << terminal.output();
    }
}

TEST_F(Setup, MenuSleepsUntilASignalEndsItAndLeavesAllAsItWas) {
    base.write_main();
    Terminal terminal(80, 25);
    termios found = {};
    termios left = {};
    tcgetattr(terminal.slave(), &found);
    start(terminal);
    using Clock = std::chrono::steady_clock;
    const long used = terminal.cpu_ms();
    const auto end = Clock::now() + std::chrono::milliseconds(400);
    terminal.wait_until([&] { return Clock::now() > end; }, "time to pass");
    EXPECT_LT(terminal.cpu_ms() - used, 200) << "a loop that polls without waiting takes 400";
    terminal.signal(SIGTERM);
    EXPECT_EQ(terminal.wait_exit(), 128 + SIGTERM);
    tcgetattr(terminal.slave(), &left);
    EXPECT_EQ(left.c_lflag, found.c_lflag);
    EXPECT_THAT(read_file(base.path + "kx.ini"), HasSubstr("n1=gone")) << "still the old file";
}

TEST_F(Setup, BrokenSchemeEndsTheMenuWithAReadableMessage) {
    base.dir.write("config/col_bad.ini", "[config]\ntype=colors\ndesc=bad\n");
    Terminal terminal(80, 25);
    start(terminal);
    walk(terminal, {{down + "\r", "bad"}, {choose("colors", "col_bad"), "couldnt find section"}});
    EXPECT_EQ(terminal.wait_exit(), 255);
    EXPECT_FALSE(fs::exists(base.path + "kx.ini"));
}

TEST_F(Setup, WithoutATerminalTheFilesAreWritten) {
    base.write_main();
    options.term = "no-such-terminal";
    const Outcome outcome = run({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "error: no usable terminal for the menu, nothing is chosen. \n");
    expect_main("col_kx", "c64", "map_ascii");
}

} // namespace
} // namespace kx::test
