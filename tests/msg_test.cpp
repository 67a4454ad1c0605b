// Messages and progress: whole texts on both streams, and what a user sees of them on a terminal.
#include "tests/support/pty.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/msg.h"
#include "util/clock.h"

#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace kx {
namespace {

using test::times;

std::uint32_t now_ms; // the time, as the tests have it

// What a function writes without a screen: standard output, "&", standard error.
std::string told(const std::function<void()>& body) {
    msg_reset();
    now_ms = UINT_MAX - 100; // the stopwatch runs over the clock's wrap-around
    clock_set_source([] { return now_ms; });
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    body();
    const std::string out = testing::internal::GetCapturedStdout();
    return out + "&" + testing::internal::GetCapturedStderr();
}

void one_of_each() {
    msg_info("i%d", 1);
    msg_warning("w%d", 2);
    msg_error("e%d", 3);
    msg_message("m%d", 4);
    msg_print("p%d\n", 5);
    msg_tick();
    progress_begin("b%d", 6);
    progress_update(3, 4);
    progress_end(0);
}

TEST(Msg, VerbosityAndModeDecideWhatIsTold) {
    const std::string shown = "*b6[-] 3/4 075%" + times(12, "\b") + "[ok]        \n\r&";
    const struct {
        int mode;
        Verbosity level;
        std::string text;
    } rows[] = {
        {1, {.warn = 1}, shown + "warning: w2 \nerror: e3 \nm4 p5\n\n"},
        {9, {.verbose = 1}, shown + "info: i1 \nwarning: w2 \nerror: e3 \nm4 p5\n\n"},
        {0, {1, 1, 1}, "*&error: e3 \nm4 \n"},
        {2, {0, 1, 1}, "&"},
        {4, {0, 1, 1}, "&"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.text, told([&] {
                      msg_set_output(row.mode);
                      verbosity = row.level;
                      one_of_each();
                  }));
    }
}

TEST(Msg, AProgramsOwnOutputGetsWhatItHasAnEntryForUntilAnotherComes) {
    const std::string text = told([] {
        MsgOutput own;
        own.warning = [](const std::string& warning) { std::printf("w(%s)", warning.c_str()); };
        own.progress_update = [](int cur, int total) { std::printf("p(%d/%d)", cur, total); };
        msg_set_table(own);
        own = {};
        msg_warning("a\x1b%d", 1);
        msg_error("no entry");
        progress_update(1, 0);
        progress_update(1, 0);
        progress_end(0);
        msg_set_output(MSG_CONSOLE);
        msg_error("e");
    });
    EXPECT_EQ(text, "w(a\\x1b1)p(1/0)p(1/0)&error: e ");
}

TEST(Msg, TextsOfAnyLengthButNoControlsReachTheTerminal) {
    const char* const hostile = "a\x1b[2J\x7f\x07 \xc3\xa4\xc2\x9b\xff\x9b\t\b\r\n";
    EXPECT_EQ(told([&] { msg_print("%s%c%s", hostile, 0, "end"); }),
              "&a\\x1b[2J\\x7f\\x07 \xc3\xa4\\xc2\\x9b\xff\\x9b\t\b\r\n\\x00end");
    const std::string big(100000, 'x');
    EXPECT_EQ(told([&] { msg_message("%s", big.c_str()); }), "&" + big + " ");
}

TEST(Progress, RedrawsInPlaceAtMostFourTimesASecond) {
    const std::string text = told([] {
        progress_begin("load");
        progress_update(0, 0); // only the spinner
        progress_update(42, 123456);
        now_ms += 249;
        progress_update(200, 123456);
        now_ms += 1;
        progress_update(42, 123456);
        now_ms += 250;
        progress_update(59, 123456); // the step is 30: nothing new to see
        progress_update(7, 9);
        now_ms += 1000;
        progress_update2(3, 10);
        progress_end(-1);
        progress_update(1, 2); // no display is left to redraw
    });
    EXPECT_EQ(text, "load[-]" + times(3, "\b") + "[/]     42/123456 000%" + times(22, "\b") +
                        std::string(22, ' ') + times(22, "\b") + "[|] 7/9 077%" + times(12, "\b") +
                        "[\\] 7/9 077% ( 3/10)" + times(20, "\b") + "[error]             \n\r&");
}

TEST(Progress, MessagesEraseItsRemainsFirst) {
    const std::string shown = "load[-] 1/2 050%" + times(12, "\b");
    const std::string erased = times(12, " ") + times(12, "\b");
    const struct {
        void (*tell)();
        std::string text;
    } rows[] = {
        {[] { msg_info("i"); }, shown + erased + "&\ninfo: i "},
        {[] { msg_warning("w"); }, shown + erased + "&\nwarning: w "},
        {[] { msg_print("p"); }, shown + erased + "&p"},
        {[] { msg_error("e"); }, shown + "&\nerror: e "}, // which does not
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.text, told([&] {
                      verbosity.verbose = 1;
                      progress_begin("load");
                      progress_update(1, 2);
                      row.tell();
                  }));
    }
}

TEST(Progress, CountsBeyond21Millions) {
    const std::string text = told([] {
        progress_begin("load");
        progress_update(30'000'000, 60'000'000);
    });
    EXPECT_EQ(text, "load[-] 30000000/60000000 050%" + times(26, "\b") + "&");
}

TEST(Progress, ReachesTheTerminalAtOnce) {
    void (*const steps[])() = {[] { progress_begin("a"); }, [] { progress_update(1, 2); },
                               [] { progress_end(0); }, msg_tick};
    test::Terminal terminal(40, 5);
    terminal.run([&] {
        con_rawmode();
        for (void (*step)() : steps) {
            step();
            char key = 0;
            (void)!read(STDIN_FILENO, &key, 1); // which brings nothing up to date
        }
        return 0;
    });
    for (const std::string shown : {"a", "a[-] 1/2 050%", "a[ok]", "*"}) {
        terminal.wait_for(shown);
        terminal.type("x");
    }
    EXPECT_EQ(terminal.wait_exit(), 0);
}

TEST(Progress, WindowWaitsForAKeyAfterAFailureOnly) {
    test::Terminal terminal(60, 10);
    terminal.run([] {
        key_textcolour[COL_WINDOW_PROGRESS_OK] = 2;
        con_open();
        msg_set_output(MSG_WINDOWED);
        for (const int result : {0, -1}) {
            progress_begin("copying");
            progress_update(1, 2);
            progress_end(result);
            result == 0 ? con_getkey() : 0;
        }
        return con_getkey();
    });
    terminal.wait_for("[ok]");
    EXPECT_EQ(terminal.looks({{static_cast<int>(terminal.row(5).find("ok")), 5}}), "2/0");
    terminal.type("x");
    terminal.wait_for("[error]");
    EXPECT_EQ(terminal.row(4).find("copying"), 10U) << terminal.screen();
    terminal.type("xy");
    EXPECT_EQ(terminal.wait_exit(), 'y');
}

TEST(Progress, HasItsColoursOnAScreen) {
    test::Terminal terminal(60, 12);
    terminal.run([] {
        for (int i = COL_CONSOLE_PROGRESS; i < COL_KEYS; i++) {
            key_backcolour[i] = static_cast<std::int8_t>((i / 2 + 1) % 8);
        }
        con_open();
        con_textbackground(2);
        for (const int result : {0, -1, 1}) {
            progress_begin("t");
            progress_update(1, 2);
            result < 1 ? progress_end(result) : msg_set_output(MSG_WINDOWED);
        }
        progress_begin("t");
        progress_end(-1);
        return 0;
    });
    terminal.wait_for("[error] |");
    terminal.wait_looks({{1, 0}, {2, 0}, {4, 0}, {2, 1}, {7, 1}, {1, 2}, {12, 2}, {13, 2}},
                        "7/2 0/1 7/2 0/5 7/2 0/6 0/6 7/0");
    terminal.wait_looks({{10, 6}, {42, 6}, {43, 6}, {47, 6}, {48, 6}, {49, 6}},
                        "0/4 0/4 0/7 0/7 7/0 0/4");
}

TEST(Progress, StaysBehindATitleOfWideCharactersThatLeavesRoom) {
    setenv("LC_ALL", "C.UTF-8", 1);
    const auto shown = [](const std::string& title) {
        return told([&] {
            progress_begin("%s", title.c_str());
            progress_update(1, 1);
        });
    };
    EXPECT_EQ(shown(times(67, "\u00e4")).find('\n'), std::string::npos);
    EXPECT_NE(shown(times(34, "\u6f22")).find("\n\r"), std::string::npos);
    const std::string title = times(68, "\u00e4");
    const std::string steps = told([&] {
        progress_begin("%s", title.c_str());
        progress_update(1, 2);
        now_ms += 250;
        progress_update(2, 2);
    });
    const std::string back = times(12, "\b");
    EXPECT_EQ(steps, title + "\n\r[-] 1/2 050%" + back + "[/] 2/2 100%" + back + "&");
}

TEST(Msg, MessagesNeitherSpoilTheScreenNorAreLostWithIt) {
    const test::TempDir dir;
    const test::Pty other; // a terminal as well
    const std::string file = dir.write("errors", "");
    for (const std::string& path : {std::string("/dev/tty"), file, other.device}) {
        const bool split = path != "/dev/tty";
        test::Terminal terminal(40, 5);
        terminal.run([&] {
            dup2(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY), 2);
            con_open();
            msg_error("first");
            msg_message("second");
            con_puts("shown");
            return con_getkey();
        });
        terminal.wait_for("shown");
        EXPECT_EQ(terminal.screen(), "shown\n\n\n\n\n");
        terminal.type("x");
        terminal.wait_exit();
        const bool held = terminal.screen().find("error: first\nsecond\n") != std::string::npos;
        EXPECT_NE(held, split) << path << terminal.screen();
    }
    EXPECT_EQ(test::read_file(file), "error: first second ");
    EXPECT_EQ(other.take(20), test::hex(std::string("error: first second ")));
}

} // namespace
} // namespace kx
