// What a user leaves running, ended from outside: by each signal that asks for it, after a stop and
// by a terminal that hangs up. The terminal and the line are then as they were found.
#include "tests/support/fake_thread.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <termios.h>

namespace kx {
namespace {

struct Row {
    const char* what;
    std::vector<std::string> argv; // "PORT" stands for the line
    std::string keys;              // typed when "Select Target" is there
    std::string ready;             // on the screen, then the signal comes
    bool screen;                   // whether there is one to be left
};

void PrintTo(const Row& row, std::ostream* out) { // NOLINT: a name of the test library
    *out << row.what;
}

const Row rows[] = {
    {"menu", {KX_PROGRAM}, "", "Select Target", true},
    {"list", {KX_PROGRAM}, "\r", "Retro Replay", true},
    {"help", {KX_PROGRAM}, test::F1, "kxsetup", true},
    {"view", {KX_COMMAND, "view", "text"}, "", "a line of text", true},
    {"send", {KX_COMMAND, "-p", "PORT", "--progress=always", "send", "game.prg"}, "", "KiB", false},
    {"serve", {KX_COMMAND, "-p", "PORT", "serve", "."}, "", "serving ", false},
};

std::string line_settings(const FakeTarget& target) {
    termios now = {};
    EXPECT_EQ(tcgetattr(target.line.slave.get(), &now), 0);
    return {reinterpret_cast<const char*>(&now), offsetof(termios, c_cc) + sizeof now.c_cc};
}

constexpr int HANG_UP = 0;

/// The exit statuses that are right. A terminal that has gone is seen by its signal or as the end
/// of the input, whichever comes first.
std::vector<int> wanted_statuses(const std::string& what, int number) {
    if (number == HANG_UP) {
        return {0, 128 + SIGHUP};
    }
    // Ctrl-C is how a server is ended.
    const bool ended_well = what == "serve" && number == SIGINT;
    return {ended_well ? 0 : 128 + (number == SIGCONT ? SIGTERM : number)};
}

class Signals : public testing::TestWithParam<Row> {};

TEST_P(Signals, EndItWithTerminalAndLineAsTheyWereFound) {
    const Row& row = GetParam();
    const test::TempDir dir;
    std::filesystem::copy(KX_SOURCE_DIR "/base", dir.file("base"),
                          std::filesystem::copy_options::recursive);
    dir.write("text", "a line of text\n");
    dir.write("game.prg", "\x01\x08" + std::string(60000, 'x'));
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCONT, HANG_UP}) {
        SCOPED_TRACE(testing::Message() << row.what << ", signal " << number);
        FakeSettings slow;
        slow.baud = 200000;
        test::FakeThread fake(slow);
        std::vector<std::string> argv = row.argv;
        std::ranges::replace(argv, std::string("PORT"), fake.device());
        test::Terminal terminal(80, 25);
        const auto before = terminal.pty.settings();
        const std::string line_before = line_settings(fake.target);
        terminal.spawn(argv, {.env = {{"KXPATH", "base"}}, .cwd = dir.path()});
        if (!row.keys.empty()) {
            terminal.wait_for("Select Target");
            terminal.type(row.keys);
        }
        terminal.wait_for(row.ready);
        if (number == HANG_UP) {
            terminal.hang_up();
        } else if (number == SIGCONT) { // stopped and continued, it can still be ended
            terminal.signal(SIGTSTP);
            terminal.signal(SIGCONT);
            terminal.signal(SIGTERM);
        } else {
            terminal.signal(number);
        }
        EXPECT_THAT(wanted_statuses(row.what, number), testing::Contains(terminal.wait_exit()));
        EXPECT_EQ(line_settings(fake.target), line_before);
        if (number != HANG_UP) {
            EXPECT_EQ(terminal.pty.settings(), before);
            const std::size_t switched = terminal.output().rfind("\x1b[?1049");
            EXPECT_EQ(row.screen, switched != std::string::npos);
            if (row.screen) {
                EXPECT_EQ(terminal.output().substr(switched).substr(7, 1), "l") << "not left";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, Signals, testing::ValuesIn(rows),
                         [](const auto& given) { return std::string(given.param.what); });

} // namespace
} // namespace kx
