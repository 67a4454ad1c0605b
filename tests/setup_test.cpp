// The program from end to end: its command line, its menu on a real terminal, the files it leaves.
#include "setup/command_line.h"
#include "tests/support/base_dir.h"
#include "tests/support/terminal.h"
#include "util/fd.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const std::string menu = "[ESC]"; // the last entry is drawn

struct Setup : testing::Test {
    BaseDir base;
    TempDir cwd;
    RunOptions options{.env = {{"KXPATH", base.dir.path()}}, .cwd = cwd.path()};

    Outcome run(std::vector<std::string> args) {
        args.insert(args.begin(), KX_PROGRAM);
        return run_program(args, options);
    }

    using Steps = std::vector<std::pair<std::string, std::string>>; // keys, and what they show
    static void walk(Terminal& terminal, const Steps& steps) {
        for (const auto& [keys, shown] : steps) {
            terminal.type(keys);
            terminal.wait_for(shown);
        }
    }

    void start(Terminal& terminal, const std::string& shown = menu) {
        terminal.spawn({KX_PROGRAM, "-W"}, options);
        terminal.wait_for(shown);
    }

    static void leave(Terminal& terminal) {
        terminal.type(ESCAPE);
        EXPECT_EQ(terminal.wait_exit(), 0);
    }

    /// Opens a list of two with `keys` and chooses the one with that label, wherever it stands.
    static void pick(Terminal& terminal, const std::string& keys, const std::string& label) {
        walk(terminal, {{keys, label}});
        const bool first = terminal.row(7).find(label) != std::string::npos;
        walk(terminal, {{first ? "\r" : DOWN + "\r", menu}});
    }

    std::string main_file() { return read_file(base.path + "kx.ini"); }
};

TEST_F(Setup, OptionsPrintAndEndTheProgram) {
    const std::string main = base.path + "kx.ini";
    EXPECT_EQ(run({"--show-targets"}).out, "warning: couldn't find .ini file " + main +
                                               "\nerror in ini file " + main +
                                               ": couldnt find section targets\n");
    base.write_main();
    base.dir.write("config/a23456789012345.ini", target_text("cpu=6510", "cpu=none"));
    base.dir.write("config/refused.ini", target_text("machine=c64", "machine=c65"));
    base.dir.write("config/broken.ini", "[conf]\n");
    base.dir.write("config/romless.ini", target_text("n0=roms/a.bin", "n0=roms/gone.bin"));
    base.dir.write("config/symless.ini", target_text("n0=symbols/a.lbl", "n0=symbols/gone.lbl"));
    base.dir.write("config/mute.ini", target_text("name=serial\n[target]", "name=x\n[target]"));
    const std::string mute = "warning: (" + base.path + "config/mute.ini) unknown console 'x', ";
    const std::string usage = "usage: " KX_PROGRAM " [options] - setup program\n";
    const std::string unknown = "error: unknown option or file:";
    const std::string file = base.path + "kx.ini";
    const std::string targets = "available target configurations:\nc64\t- Commodore\ngone\t- \n\n";
    const std::string broken =
        "error in ini file " + base.path + "config/broken.ini: couldnt find section patches\n";
    const std::string gone = "warning: couldn't find .ini file " + base.path + "config/gone.ini\n";
    const struct {
        std::vector<std::string> args;
        int status;
        std::string err; // all of it where it ends in the clean-up's empty line, else a part
        std::string out;
    } rows[] = {
        {{"--help"}, 0, usage + data_text("usage.txt"), ""},
        {{"help"}, 0, usage, ""},
        {{"--show-supported"}, 0, data_text("supported.txt"), ""},
        {{"--show-config"}, 0, data_text("active.txt"), ""},
        {{"--show-targets"}, 0, targets, gone},
        {{"--show-colors"}, 0, "available color configurations:\ncol_kx\t- all white\n\n", ""},
        {{"--show-charsets"}, 0, "available charset configurations:\nmap_ascii\t- plain\n\n", ""},
        {{"-s", "--exit"}, 0, "", ""},
        {{"-v", "--exit"}, 0, data_text("verbose.txt"), ""},
        {{"--verbose", "--exit"}, 0, "info: arg no 1:[--verbose] \n", ""},
        {{"-s", "-v", "--exit"},
         0,
         "info: running in verbose mode \ninfo: arg no 3:[--exit] \ninfo: cleaning up \n"
         "info: cleanup done \n",
         ""},
        {{"-s", "-W", "-t", "mute", "--exit"}, 0, mute + "console disabled. \n\n", ""},
        {{"-v", "-s", "-W", "-t", "mute", "--exit"}, 0, "no 2:[-s] \n" + mute, ""},
        {{"-vW"}, 1, unknown + "-vW\n\n", ""},
        {{base.path + "config"}, 1, unknown + base.path + "config\n\n", ""},
        {{"no\x1b[2Jfile"}, 1, unknown + "no\\x1b[2Jfile\n\n", ""},
        {{file, "-f", "x", "-o", "--nonsense", "--extfs", "--remote", "--exit"}, 0, "\n", ""},
        {{"-o"}, 1, unknown + "-o\n\n", ""},
        {{"--cpu", "6502"}, 1, "error: unknown cpu '6502'.\n\r\n", ""},
        {{"--cpu", "65816", "--show-config"}, 0, "[       65816] WesternDigital 65816\n", ""},
        {{"-t", "a234567890123456", "--show-config"}, 0, "[        none] no cpu support\n", ""},
        {{"--target", "refused"}, 1, "refused.ini) unknown machine 'c65'. ", ""},
        {{"-t", "broken"}, 255, "\n", broken},
        {{"-t", "romless"}, 1, "error: couldn't load default roms.\n", ""},
        {{"-t", "symless", "--exit"}, 0, "couldn't read symbol file " + base.path, ""},
    };
    for (const auto& row : rows) {
        const Outcome outcome = run(row.args);
        const std::string name = testing::PrintToString(row.args);
        EXPECT_EQ(outcome.status, row.status) << name;
        EXPECT_EQ(outcome.out, row.out) << name;
        if (row.err.ends_with("\n\n") || row.err.ends_with("done \n") || row.err.size() < 2) {
            EXPECT_EQ(outcome.err, row.err) << name;
        } else {
            EXPECT_THAT(outcome.err, HasSubstr(row.err)) << name;
        }
    }
    EXPECT_FALSE(fs::exists(cwd.file("kxtest.ini"))) << "nothing is written on these ways";
    EXPECT_THAT(run({"-v", "-t", "c64", "--exit"}).err,
                HasSubstr("reading symbols from file " + base.path + "symbols/a.lbl"));
    EXPECT_THAT(run({"--version"}).err,
                testing::MatchesRegex("KXSETUP v0\\.1 \\[built [A-Z][a-z]+ [ 0-9]+, "
                                      "[0-9:]+ for Linux\\] by the kxsetup authors\n\n"));
}

TEST_F(Setup, OptionsForOtherProgramsAreKept) {
    const std::string file = base.path + "roms/a.bin";
    const auto parse = [](std::vector<std::string> args) {
        std::vector<char*> argv = {args[0].data()};
        for (std::string& arg : args) {
            argv.push_back(arg.data());
        }
        IniDocument doc;
        return command_line_parse(static_cast<int>(argv.size()), argv.data(), doc, doc);
    };
    EXPECT_EQ(parse({"-o", "out", "--file", "in", "--extfs", "--remote"}), "out");
    EXPECT_EQ(command_line.output_file, "out");
    EXPECT_EQ(command_line.input_file, "in");
    EXPECT_EQ(command_line.extfs, 1);
    EXPECT_EQ(command_line.remote, 1);
    parse({"-f", "in", file});
    EXPECT_EQ(command_line.input_file, file);
}

TEST_F(Setup, WhatTheMainFileNamesIsInForceAtTheStart) {
    base.dir.write("config/col_red.ini", scheme_text("red"));
    base.dir.write("config/refused.ini", target_text("machine=c64", "machine=c65"));
    base.dir.write("kx.ini", "[colors]\ndefault=col_red\n[targets]\ndefault=refused\n"
                             "[charsets]\ndefault=mine\n");
    Terminal terminal(80, 25);
    terminal.type(F1); // before there is a menu
    start(terminal);
    EXPECT_EQ(terminal.looks({{27, 11}}), "1/0");
    leave(terminal);
    for (const std::string kept : {"col_red", "refused", "mine"}) { // though it was not loaded
        EXPECT_THAT(main_file(), HasSubstr("default=" + kept + "\n"));
    }
}

TEST_F(Setup, FirstRunThroughEveryEntry) {
    base.dir.write("config/nes.ini", "[config]\ntype=target\ndesc=Famicom\n");
    base.dir.write("config/col_red.ini", scheme_text("red"));
    base.dir.write("config/map_two.ini", "[config]\ntype=charset\ndesc=second\n");
    Terminal terminal(80, 25);
    start(terminal);
    EXPECT_EQ(terminal.looks({{27, 11}}), "7/0+") << "col_kx";
    walk(terminal, {{F1, "how to use it"}, {"q", menu}});
    fs::remove(base.path + "docs/kxsetup.txt");
    walk(terminal, {{F1, "couldn't open file '"},
                    {" " + times(3, DOWN) + "\r", "sorry, not yet implemented."},
                    {" " + times(2, DOWN) + "\r", "by the kxsetup authors"}});
    terminal.resize(60, 20); // is no key to the box
    terminal.resize(80, 25);
    terminal.type(DOWN); // had the box gone, this would move the menu
    pick(terminal, " " + times(5, UP) + "\r", "Famicom");
    pick(terminal, DOWN + "\r", "all red");
    terminal.wait_looks({{27, 11}}, "1/0"); // applied at once
    fs::remove(base.path + "config/col_red.ini");
    pick(terminal, "\r", "all red"); // the list opens where it was left
    EXPECT_THAT(terminal.screen(), testing::Not(HasSubstr("warning:"))) << "nothing but the menu";
    pick(terminal, DOWN + "\r", "second"); // "Setup Target" chooses the charset
    walk(terminal, {{PAGE_UP + "\r", "Famicom"}, {UP + ESCAPE, menu}}); // cancelled
    leave(terminal);
    EXPECT_THAT(terminal.output(), HasSubstr("col_red.ini\r\n")) << "the warning";
    for (const std::string chosen : {"nes", "col_red", "map_two"}) {
        EXPECT_THAT(main_file(), HasSubstr("default=" + chosen + "\n"));
    }
    EXPECT_TRUE(fs::exists(cwd.file("kxtest.ini")));
}

TEST_F(Setup, RunsWithoutAndWithATerminalLeaveTheSameFiles) {
    base.write_main();
    const std::string short_main = // with the configurations that are there
        main_text("col_kx\nn0=col_kx\nnum=1\n", "c64\nn0=c64\nnum=1\n",
                  "map_ascii\nn0=map_ascii\nnum=1\n");
    options.env["TERM"] = "no-such-terminal";
    const Outcome outcome = run({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "error: no usable terminal for the menu (standard output is not a "
                           "terminal), nothing is chosen. \n");
    EXPECT_EQ(main_file(), short_main);
    for (const auto& [kind, why] :
         {std::pair{"no-such-terminal", "TERM is 'no-such-terminal'"}, {"", "TERM is not set"}}) {
        options.env["TERM"] = kind;
        Terminal plain(80, 25);
        start(plain, why);
        EXPECT_EQ(plain.wait_exit(), 0);
    }
    options.env.erase("TERM");
    Terminal terminal(80, 25);
    start(terminal);
    terminal.type(times(6, DOWN) + "\r"); // "exit"
    EXPECT_EQ(terminal.wait_exit(), 0);
    EXPECT_EQ(main_file(), short_main);
    EXPECT_EQ(read_file(cwd.file("kxtest.ini")), data_text("kxtest.ini"));
    EXPECT_EQ(read_file(base.path + "config/c64.ini"), target_text());
    base.dir.write("config/broken.ini", "[conf]\ntype=target\n");
    EXPECT_THAT(run({}).out, HasSubstr("config/broken.ini: couldnt find section config\n"));
}

TEST_F(Setup, AMainFileThatCouldNotBeReadIsLeftAlone) {
    const std::string pipe = base.path + "kx.ini";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Fd reader(open(pipe.c_str(), O_RDWR | O_NONBLOCK));
    const Outcome outcome = run({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "warning: couldn't find .ini file " + pipe + "\n");
    EXPECT_THAT(outcome.err,
                HasSubstr("'" + pipe + "' could not be read (Illegal seek): it stays"));
    char byte = 0;
    EXPECT_EQ(read(reader.get(), &byte, 1), -1) << "written to";
    EXPECT_TRUE(fs::exists(cwd.file("kxtest.ini")));
    fs::remove(pipe);
    base.dir.write("kx.ini", "");
    EXPECT_EQ(run({}).status, 0);
    EXPECT_THAT(main_file(), HasSubstr("[targets]\ndefault=none\nn0=c64\n")) << "nothing to lose";
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
    walk(terminal, {{"\r", "many"}, {times(8, PAGE_DOWN) + "\r", menu}}); // the last one
    walk(terminal, {{"\r", "many"}, {"\r", menu}});                       // where it was left
    leave(terminal);
    const std::string text = main_file();
    const std::size_t at = text.find("\nn63=");
    const std::string last = text.substr(at + 5, text.find("\nnum=64\n", at) - at - 5);
    EXPECT_THAT(text, HasSubstr("[targets]\ndefault=" + last + "\nn0="));
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
        const int x = std::max(cols / 2 - 20, 0) + 7, y = std::max(rows / 2 - 4, 0) + 1;
        EXPECT_EQ(static_cast<int>(terminal.row(y).find("Select T")), x) << terminal.screen();
        if (cols == 40) { // the menu alone
            const std::string readme = read_file(KX_SOURCE_DIR "/README.md");
            const std::regex line_begin("\n(?=[^\n])"); // the menu's first: row 0 is empty
            const auto is_shown = [&] {
                const auto picture = std::regex_replace(terminal.screen(), line_begin, "\n    ");
                return readme.find(picture) != std::string::npos;
            };
            terminal.wait_until(is_shown, "the picture in README.md");
        }
        leave(terminal);
        EXPECT_EQ(terminal.output().find("warning"), std::string::npos) << terminal.output();
    }
}

TEST_F(Setup, MenuSleepsUntilASignalEndsItAndLeavesItsFile) {
    base.write_main();
    Terminal terminal(80, 25);
    start(terminal);
    using Clock = std::chrono::steady_clock;
    const long used = terminal.cpu_ms();
    const auto end = Clock::now() + std::chrono::milliseconds(400);
    terminal.wait_until([&] { return Clock::now() > end; }, "time to pass");
    EXPECT_LT(terminal.cpu_ms() - used, 200) << "a loop that polls without waiting takes 400";
    terminal.signal(SIGTERM);
    EXPECT_EQ(terminal.wait_exit(), 128 + SIGTERM);
    EXPECT_THAT(main_file(), HasSubstr("n1=gone")) << "still the old file";
}

} // namespace
} // namespace kx::test
