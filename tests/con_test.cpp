// The console in a real pseudo-terminal: keys as terminals send them, the screen as users see it,
// and the terminal's state after every way out.
#include "tests/support/terminal.h"
#include "ui/con.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

using namespace kx;
using kx::test::Cell;
using kx::test::RunOptions;
using kx::test::Terminal;

namespace {

termios settings_of(int fd) {
    termios settings = {};
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    return settings;
}

bool same_settings(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_lflag == b.c_lflag &&
           a.c_cflag == b.c_cflag && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

struct KeyCase {
    const char* typed;
    const char* keys; // what con_getkey gives, one after the other
};

// Reads keys to the end of the test and shows each as "number:key;".
int show_keys() {
    con_puts("ready\r\n");
    con_refresh();
    for (int i = 0;; ++i) {
        const int key = con_getkey();
        con_printf("%d:%d;\r\n", i, key);
        con_refresh();
    }
}

template <std::size_t N>
void expect_keys(Terminal& terminal, const KeyCase (&cases)[N], int number = 0) {
    terminal.wait_for("ready");
    for (const KeyCase& row : cases) {
        terminal.type(row.typed);
        const std::string keys = row.keys;
        for (std::size_t at = 0; at < keys.size();) {
            const std::size_t end = keys.find(' ', at);
            const std::string shown =
                std::to_string(number++) + ":" + keys.substr(at, end - at) + ";";
            SCOPED_TRACE(testing::PrintToString(row.typed));
            ASSERT_NO_THROW(terminal.wait_for(shown)) << terminal.screen();
            at = end == std::string::npos ? keys.size() : end + 1;
        }
    }
}

// A screen on which `draw` has drawn, and which is then open until the test's end.
class Drawn : public Terminal {
public:
    Drawn(int cols, int rows, const std::function<void()>& draw, const RunOptions& options = {})
        : Terminal(cols, rows) {
        run(
            [&] {
                con_open();
                con_showcursor(0);
                draw();
                con_refresh();
                (void)!write(1, DONE, sizeof DONE - 1);
                return con_getkey();
            },
            options);
        wait_until([&] { return output().find(DONE) != std::string::npos; }, "a drawn screen");
    }

private:
    static constexpr char DONE[] = "\033]0;drawn\a"; // a title, which nobody sees
};

} // namespace

TEST(Con, WithoutScreenSizesAreFixedAndOutputIsPlain) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(con_open(), -1); // standard output is a file here
    con_gotoxy(7, 7);
    EXPECT_EQ(con_cols() * 1000 + con_rows(), 80025);
    EXPECT_EQ(con_wherex() * 10 + con_wherey(), 11);
    const ConTextInfo info = con_textinfo();
    EXPECT_EQ(info.window_right + info.window_bottom + info.screen_width + info.screen_height,
              4 * 255);
    EXPECT_EQ(info.cursor_x + info.cursor_y, 2);
    con_spaces(0);
    con_hline(-3);
    con_frame(5, 5, 4, 3);
    con_left();
    con_newline();
    con_printf("%s", std::string(100000, 'x').c_str());
    con_after_screen("now");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\xb7--\xb7\xb7--\xb7||\b\r\n" + std::string(100000, 'x') + "now");
    EXPECT_EQ(con_textcolor(3), 7);
    EXPECT_EQ(con_textcolor(7), 3);
    EXPECT_EQ(con_showcursor(0), 1);
}

TEST(Con, NoUsableTerminalIsToldByTheResultAlone) {
    for (const char* term : {"dumb", "no-such-terminal", ""}) {
        Terminal terminal(40, 10);
        terminal.run([] { return con_open() == -1 && !con_screen_active() ? 0 : 1; },
                     {.env = {{"TERM", term}}});
        EXPECT_EQ(terminal.wait_exit(), 0) << term;
        EXPECT_EQ(terminal.output(), "") << term;
    }
}

TEST(Con, LineModeDecodesSequences) {
    const KeyCase cases[] = {
        {"a\n\b\177", "97 13 263 263"},
        {"\033OPx\033OTx", "265 120 0 120"},
        {"\033x\033\033", "120 27"},
        {"\033[[E\033[Xx", "269 0 120"},
        {"\033[A\033[B\033[C\033[D", "259 258 261 260"},
        {"\033[1~\033[4~", "262 347"},
        {"\033[11~\033[15!", "265 269"},
        {"\033[19~\033[16~x", "272 0 120"},
        {"\033[24~\033[20~\033[29~x", "276 273 0 120"},
        {"\033[2~\033[3~", "331 330"},
        {"\033[5~\033[6~", "339 338"},
        {"\033[7~\033[1;", "0 126 0"},
    };
    Terminal terminal(80, 25);
    terminal.run([] {
        con_rawmode();
        return show_keys();
    });
    expect_keys(terminal, cases);
}

TEST(Con, LineModeHoldsRawModeForOneWholeKey) {
    Terminal terminal(80, 25);
    const termios before = settings_of(terminal.slave());
    const auto echo_off = [&] { return (settings_of(terminal.slave()).c_lflag & ECHO) == 0; };
    terminal.run([] {
        con_printf("key %d\n", con_getkey());
        while (con_kbhit() == 0) { // a key counts before its line is complete
            con_idle(10);
        }
        return con_getkey();
    });
    terminal.wait_until(echo_off, "raw mode");
    terminal.type("\033[5~");
    terminal.wait_for("key 339");
    EXPECT_EQ(terminal.row(0), "key 339") << "nothing of the sequence was echoed";
    terminal.type("q");
    EXPECT_EQ(terminal.wait_exit(), 'q');
    EXPECT_TRUE(same_settings(settings_of(terminal.slave()), before));
}

TEST(Con, ScreenModeDecodesWhatCursesLeaves) {
    const KeyCase cases[] = {
        {"a\r\t", "97 13 9"}, {"\033", "27"},         {"\033[F", "347"},     {"\033[H", "262"},
        {"\033[X", "27 88"},  {"\033OPx", "265 120"}, {"\033OT", "27 84"},   {"\033O", "27 79"},
        {"\033[", "27 91"},   {"\033x", "27 120"},    {"\033\033", "27 27"},
    };
    const KeyCase xterm[] = {
        {"\033OF\033OH", "347 262"}, {"\033OA\033[6~", "259 338"}, {"\033[24~", "276"}};
    for (const char* term : {"xterm", "vt100"}) {
        SCOPED_TRACE(term);
        Terminal terminal(80, 25);
        terminal.run(
            [] {
                con_open();
                con_ungetkey(KEYCODE_F1 + 11);
                con_idle(60000); // a key pushed back is not waited for
                return con_kbhit() == 1 ? show_keys() : 1;
            },
            {.term = term});
        expect_keys(terminal, cases, 1);
    }
    Terminal terminal(80, 25);
    terminal.run([] { return con_open() == 1 ? show_keys() : 1; });
    expect_keys(terminal, xterm);
}

TEST(Con, ColoursFollowTheTerminalsPairs) {
    struct {
        const char* term;
        int text, back, reverse;
        int fg, bg; // as curses numbers them, -1: the terminal's own
        bool bold;
    } const cases[] = {
        {"xterm", 1, 4, 0, 4, 1, false},          {"xterm", 14, 3, 0, 3, 6, true},
        {"xterm", 7, 9, 0, 7, 4, false},          {"xterm", 2, 12, 1, 1, 2, true},
        {"xterm-256color", 4, 1, 0, 1, 0, false}, {"xterm-256color", 11, 7, 0, 6, 0, true},
        {"vt100", 4, 1, 0, -1, -1, false},        {"vt100", 12, 1, 0, -1, -1, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.term) + " " + std::to_string(row.text) + " on " +
                     std::to_string(row.back));
        Drawn terminal(20, 5,
                       [&] {
                           con_textcolor(row.text);
                           con_textbackground(row.back);
                           con_reverse(row.reverse);
                           con_puts("x");
                           con_highlight(1);
                           con_puts("y");
                           con_highlight(0);
                           con_puts("z");
                       },
                       {.term = row.term});
        for (int x = 0; x < 3; ++x) {
            const Cell cell = terminal.cell(x, 0);
            EXPECT_EQ(cell.fg, row.fg) << x;
            EXPECT_EQ(cell.bg, row.bg) << x;
            EXPECT_EQ(cell.bold, x == 0 ? row.bold : x == 1) << x;
        }
    }
}

struct Text {
    int x, y;
    const char* bytes;
};

TEST(Con, DrawingIsClippedAndNeverScrollsByItself) {
    struct {
        const char* screen; // rows of a screen of 8 by 4, '.' for the corner
        std::function<void()> draw;
        std::vector<Text> texts; // written before, byte by byte
    } const cases[] = {
        {" .---.\n |   |\n |   |\n .---.\n", [] { con_frame(1, 0, 5, 4); }, {}},
        {"\n     .-.\n     | |\n     .-.\n", [] { con_frame(5, 1, 3, 3); }, {}},
        {"\n\n--------\n\n", [] { con_frame(-1, 2, 11, 4); }, {}},
        {"\n\n   |\n   |\n", [] { con_vline(9); }, {{3, 2, ""}}},
        {"\n\n\n\n", con_clrscr, {{0, 0, "abcdefgh"}, {0, 3, "abcdefgh"}}},
        {"Y123456X\n\n\n\n", {}, {{0, 0, "0123456789\b\b\bX\rY"}}},
        {"ab-defgh\n=jkl\n\n\n", {}, {{0, 0, "abcdefgh\r\nijkl"}, {2, 0, "-\r\n="}}},
        {"two\n\n       x\nend\n", {}, {{0, 0, "one\r\ntwo"}, {7, 3, "xyz\r\nend"}}},
        {"\nft\n\n\n", {}, {{0, 4, "below"}, {8, 0, "right"}, {-2, 1, "left"}}},
        {"a [1mb\na\n\n\n", {}, {{0, 0, "a\033[1mb\x01\x7f\u0085c"}, {0, 1, "\tx\ra"}}},
        {"\u20ac\ufffdg\ufffd\u4e00\n\n\n\n", {}, {{0, 0, "\u20ac\xc3g\xff\u4e00"}}},
    };
    for (const auto& row : cases) {
        Drawn terminal(8, 4, [&] {
            for (const auto& [x, y, text] : row.texts) {
                con_gotoxy(x, y);
                std::for_each(text, text + std::strlen(text), con_putch);
            }
            if (row.draw) {
                row.draw();
            }
        });
        std::string want;
        for (const char c : std::string(row.screen)) {
            want += c == '.' ? "\u00b7" : std::string(1, c);
        }
        EXPECT_EQ(terminal.screen(), want);
        EXPECT_EQ(terminal.cursor_x() * 10 + terminal.cursor_y(), 73) << want;
    }
}

TEST(Con, ClearingLeavesTheLastTwoCellsUncoloured) {
    Drawn terminal(8, 4, [] {
        con_textbackground(4);
        con_clrscr();
    });
    EXPECT_EQ(terminal.cell(7, 2).bg, 1);
    EXPECT_EQ(terminal.cell(5, 3).bg, 1);
    EXPECT_EQ(terminal.cell(6, 3).bg, 0);
    EXPECT_EQ(terminal.cell(7, 3).bg, 0);
}

TEST(Con, EightBitLocaleGetsTheCornerAsAByte) {
    Drawn terminal(20, 5, [] { con_frame(0, 0, 4, 2); }, {.env = {{"LANG", "C"}}});
    EXPECT_NE(terminal.output().find("\xb7--\xb7"), std::string::npos)
        << testing::PrintToString(terminal.output());
}

TEST(Con, ResizeIsNoKeyAndChangesTheSize) {
    Terminal terminal(40, 10);
    terminal.run([] {
        con_open();
        con_puts("small");
        con_refresh();
        int keys = 0;
        while (con_cols() != 60) {
            keys += con_kbhit();
            con_idle(10);
        }
        con_printf("\r\nnow %dx%d, %d keys", con_cols(), con_rows(), keys);
        return con_getkey();
    });
    terminal.wait_for("small");
    terminal.resize(60, 12);
    terminal.wait_for("now 60x12, 0 keys");
    terminal.resize(30, 8); // while a key is waited for
    terminal.type("k");
    EXPECT_EQ(terminal.wait_exit(), 'k');
}

TEST(Con, MouseButtonsAreFollowed) {
    Terminal terminal(40, 10);
    terminal.run([] {
        con_open();
        con_mouse_on();
        for (;;) {
            con_refresh();
            con_gotoxy(0, 0);
            con_printf("left %d right %d at %d,%d ", con_mouse_left(), con_mouse_right(),
                       con_mouse_x(), con_mouse_y());
            con_idle(10);
            if (con_kbhit() != 0) {
                return con_getkey();
            }
        }
    });
    terminal.wait_for("left 0 right 0 at 0,0");
    terminal.type("\033[<0;5;3M");
    terminal.wait_for("left 1 right 0 at 4,2");
    terminal.type("\033[<2;6;3M");
    terminal.wait_for("left 1 right 1 at 5,2");
    terminal.type("\033[<0;6;4m");
    terminal.wait_for("left 0 right 1 at 5,3");
    terminal.type("k");
    EXPECT_EQ(terminal.wait_exit(), 'k');
}

TEST(Con, EndOfInputActsAsEscape) {
    const auto body = [](bool screen) {
        std::signal(SIGHUP, SIG_IGN); // as under nohup: the program outlives its terminal
        if (screen) {
            con_open();
        }
        con_puts("ready\r\n");
        con_refresh();
        const int key = con_getkey();
        con_drain();
        const bool waiting = con_kbhit() == 1;
        return key == KEYCODE_ESCAPE && waiting && con_getkey() == KEYCODE_ESCAPE ? 0 : 1;
    };
    for (const bool screen : {true, false}) {
        Terminal hung(40, 10);
        hung.run([&] { return body(screen); });
        hung.wait_for("ready");
        hung.hang_up();
        EXPECT_EQ(hung.wait_exit(), 0) << screen;
        Terminal ended(40, 10);
        ended.run(
            [&] { return std::freopen("/dev/null", "r", stdin) != nullptr ? body(screen) : 2; });
        EXPECT_EQ(ended.wait_exit(), 0) << screen;
    }
}

// Every way out of a program with a screen or in raw mode.
TEST(Con, TerminalIsRestoredOnEveryWayOut) {
    struct {
        const char* what;
        int number; // the signal; 0: the program exits
        bool screen;
    } const cases[] = {
        {"exit", 0, true},        {"SIGINT", SIGINT, true},      {"SIGTERM", SIGTERM, true},
        {"SIGHUP", SIGHUP, true}, {"SIGQUIT", SIGQUIT, true},    {"SIGABRT", SIGABRT, true},
        {"raw exit", 0, false},   {"raw SIGINT", SIGINT, false}, {"raw SIGTERM", SIGTERM, false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        Terminal terminal(40, 10);
        const termios before = settings_of(terminal.slave());
        terminal.run([&]() -> int {
            const rlimit no_core = {0, 0};
            setrlimit(RLIMIT_CORE, &no_core);
            std::printf("before\n");
            con_rawmode();
            for (int i = 0; row.screen && i < 2; ++i) { // a screen may be opened again
                con_close();
                con_open();
                con_mouse_on();
            }
            con_after_screen("why it ended\n");
            con_gotoxy(0, 5);
            con_puts("open");
            con_refresh();
            con_getkey();
            std::exit(5);
        });
        terminal.wait_for("open");
        terminal.wait_until([&] { return (settings_of(terminal.slave()).c_lflag & ECHO) == 0; },
                            "raw mode");
        if (row.screen) {
            EXPECT_EQ(terminal.output().find("why"), std::string::npos) << "it would be overdrawn";
        }
        row.number != 0 ? terminal.signal(row.number) : terminal.type("x");
        EXPECT_EQ(terminal.wait_exit(), row.number != 0 ? 128 + row.number : 5);
        EXPECT_TRUE(same_settings(settings_of(terminal.slave()), before));
        EXPECT_EQ(terminal.screen().substr(0, 20), "before\nwhy it ended\n");
        if (row.screen) {
            EXPECT_GT(terminal.output().rfind("1000l"), terminal.output().rfind("1000h"));
            EXPECT_GT(terminal.output().rfind("\033[?1l"), terminal.output().rfind("\033[?1h"));
        }
    }
}
