// The console in a real pseudo-terminal: keys as terminals send them, the screen as users see it,
// and the terminal's state after every way out.
#include "tests/support/terminal.h"
#include "ui/con.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

extern "C" int get_escdelay(); // of curses, whose header has too many names

using namespace kx;
using kx::test::RunOptions;
using kx::test::Terminal;

namespace {

// What is typed, and what con_getkey then gives, each with a comma.
using KeyRows = std::vector<std::pair<const char*, const char*>>;

// Types what the rows say into a program that shows its keys in one long line.
void expect_keys(const char* term, bool screen, const KeyRows& rows) {
    const auto show_keys = [&]() -> int {
        screen ? con_open() : (con_rawmode(), 0);
        con_ungetkey(KEYCODE_F1 + 11); // on a screen: it comes first, and is not waited for
        con_idle(screen ? 60000 : 0);
        for (con_puts("keys:");; con_printf("%d,", con_getkey())) {
            con_refresh();
        }
    };
    Terminal terminal(500, 3);
    terminal.run(show_keys, {.env = {{"TERM", term}}});
    std::string shown = screen ? "keys:276," : "keys:";
    terminal.wait_for(shown);
    for (const auto& [typed, keys] : rows) {
        terminal.type(typed);
        terminal.wait_for(shown += keys);
    }
}

// A screen on which `draw` has drawn, and which is then open until the test's end.
struct Drawn : Terminal {
    Drawn(int cols, int rows, const std::function<void()>& draw, const RunOptions& options = {})
        : Terminal(cols, rows) {
        const std::string done = "\033]0;drawn\a"; // a title, which nobody sees
        const auto body = [&] {
            con_open();
            con_showcursor(0);
            draw();
            con_refresh();
            (void)!write(1, done.data(), done.size());
            return con_getkey();
        };
        run(body, options);
        wait_until([&] { return output().find(done) != std::string::npos; }, "a drawn screen");
    }
};

} // namespace

TEST(Con, DecodesKeys) {
    expect_keys("xterm", false,
                {
                    {"a\n\b\177", "97,13,263,263,"},
                    {"\033OPx\033OTx", "265,120,0,120,"},
                    {"\033OQ\033OR\033OS", "266,267,268,"},
                    {"\033[[A\033[[B\033[[C\033[[D", "265,266,267,268,"},
                    {"\033[12~\033[13~\033[14~\033[17~", "266,267,268,270,"},
                    {"\033[18~\033[21~\033[23~", "271,274,275,"},
                    {"\033x\033\033", "120,27,"},
                    {"\033[[E\033[Xx", "269,0,120,"},
                    {"\033[A\033[B\033[C\033[D", "259,258,261,260,"},
                    {"\033[1~\033[4~\033[2~\033[3~\033[5~\033[6~", "262,347,331,330,339,338,"},
                    {"\033[11~\033[15!\033[19~\033[16~x", "265,269,272,0,120,"},
                    {"\033[24~\033[20~\033[29~x", "276,273,0,120,"},
                    {"\033[7~\033[1;", "0,126,0,"},
                });
    expect_keys("ansi", true, // which has no sequences for these keys
                {
                    {"\033OP\033OQ\033OR\033OS", "265,266,267,268,"},
                    {"\033[F", "347,"},
                });
    KeyRows rows = {
        {"a\377\r\t\033", "97,13,9,27,"}, // 255 is no key
        {"\033[F\033[H\033[X", "347,262,27,88,"},
        {"\033OPx\033OT", "265,120,27,84,"},
        {"\033O", "27,79,"},
        {"\033[", "27,91,"},
        {"\033x\033\033", "27,120,27,27,"},
    };
    expect_keys("vt100", true, rows);
    rows.push_back({"\033OF\033OH\033OA\033[6~\033[24~", "347,262,259,338,276,"});
    expect_keys("xterm", true, rows); // which knows these by its terminal description
}

TEST(Con, ColoursFollowTheTerminalsPairs) {
    struct {
        const char* term;
        int text, back, reverse;
        const char* cells; // plain and highlighted: text/background as curses numbers them
    } const cases[] = {
        {"xterm", 1, 4, 0, "4/1 4/1+"},
        {"xterm", 14, 3, 0, "3/6+ 3/6+"},
        {"xterm", 7, 9, 0, "7/4 7/4+"},
        {"xterm", 2, 12, 1, "1/2+ 1/2+"},
        {"xterm-256color", 4, 1, 0, "1/0 1/0+"},
        {"xterm-256color", 11, 7, 0, "6/0+ 6/0+"},
        {"xterm-256color", 10, 4, 0, "2/0+ 2/0+"},
        {"vt100", 12, 1, 0, "-1/-1+ -1/-1+"},
    };
    for (const auto& row : cases) {
        const auto draw = [&] {
            con_textcolor(row.text);
            con_textbackground(row.back);
            con_reverse(row.reverse);
            con_puts("x");
            con_highlight(1);
            con_puts("y");
        };
        Drawn terminal(20, 5, draw, {.env = {{"TERM", row.term}}});
        EXPECT_EQ(terminal.looks({{0, 0}, {1, 0}}), row.cells)
            << row.term << " " << row.text << " on " << row.back;
    }
}

TEST(Con, DrawingIsClippedAndNeverScrollsByItself) {
    struct {
        const char* screen; // of 8 by 4
        std::function<void()> draw;
        std::vector<std::tuple<int, int, const char*>> texts; // written before, byte by byte
    } const cases[] = {
        {"\n     ·-·\n     | |\n     ·-·\n", [] { con_frame(5, 1, 3, 3); }, {}},
        {"\n\n--------\n\n", [] { con_frame(-1, 2, 11, 4); }, {}},
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
            row.draw ? row.draw() : void();
        });
        EXPECT_EQ(terminal.screen(), row.screen);
        EXPECT_EQ(terminal.cursor(), "7,3") << row.screen;
    }
}

TEST(Con, ClearingLeavesTheLastTwoCellsUncoloured) {
    Drawn terminal(8, 4, [] {
        con_textbackground(4);
        con_clrscr();
    });
    EXPECT_EQ(terminal.looks({{7, 2}, {5, 3}, {6, 3}, {7, 3}}), "7/1 7/1 7/0 7/0");
}

TEST(Con, CornersAreCharactersOfTheLocale) {
    for (const auto& [screen, locale, edge] : {std::tuple{true, "C", "\xb7--\xb7"},
                                               {false, "C", "\xb7--\xb7"},
                                               {false, "C.UTF-8", "\u00b7--\u00b7"}}) {
        Terminal terminal(20, 5);
        const auto body = [on_screen = screen] {
            on_screen ? con_open() : 0;
            con_frame(0, 0, 4, 2);
            con_refresh();
            return 0;
        };
        terminal.run(body, {.env = {{"LANG", locale}}});
        terminal.wait_exit();
        EXPECT_THAT(terminal.output(), testing::HasSubstr(edge)) << screen << locale;
    }
}

TEST(Con, EscapeIsNotWaitedOutForASecond) {
    Terminal terminal(40, 10);
    terminal.run([] { return con_open() == 1 ? get_escdelay() : 255; });
    EXPECT_LE(terminal.wait_exit(), 100) << "milliseconds for the rest of a key's bytes";
}

TEST(Con, MouseTellsButtonsAndPlaces) {
    Terminal terminal(60, 10);
    terminal.run([]() -> int {
        con_open();
        con_mouse_on();
        for (;;) {
            con_gotoxy(0, 0);
            con_printf("at %d,%d left %d right %d.  ", con_mouse_x(), con_mouse_y(),
                       con_mouse_left(), con_mouse_right());
            con_refresh();
            con_idle(10);
        }
    });
    terminal.wait_for("at 0,0 left 0 right 0.");
    // As xterm reports them: pressed "M" or released "m", the column and row counted from 1.
    const std::pair<const char*, const char*> events[] = {
        {"\033[<0;5;3M", "at 4,2 left 1 right 0."},
        {"\033[<2;7;9M", "at 6,8 left 1 right 1."},
        {"\033[<0;1;1m", "at 0,0 left 0 right 1."},
        {"\033[<2;60;10m", "at 59,9 left 0 right 0."},
    };
    for (const auto& [bytes, shown] : events) {
        terminal.type(bytes);
        terminal.wait_for(shown);
    }
}

TEST(Con, LineModeTakesKeysAsTheyAreTypedAndShowsTextAtOnce) {
    Terminal terminal(40, 10);
    terminal.run([] {
        con_printf("prompt");
        while (con_kbhit() == 0) {
            con_idle(10);
        }
        const int key = con_getkey();
        return con_kbhit() == 0 ? key : 0;
    });
    terminal.wait_for("prompt");
    terminal.type("xy"); // what is typed ahead is lost
    EXPECT_EQ(terminal.wait_exit(), 'x');
}

TEST(Con, DrainingTakesAllKeysThatWait) {
    for (const bool screen : {true, false}) {
        Terminal terminal(40, 10);
        terminal.run([&] {
            screen ? con_open() : (con_rawmode(), 0);
            con_printf("ready");
            con_refresh();
            con_idle(60000);
            con_drain();
            con_printf("drained");
            const int key = con_getkey();
            dup2(open("/dev/zero", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
            con_drain(); // and ends where input never does
            return key;
        });
        terminal.wait_for("ready");
        terminal.type("abc\033OP");
        terminal.wait_for("drained");
        terminal.type("x");
        EXPECT_EQ(terminal.wait_exit(), 'x') << screen;
    }
}

TEST(Con, EndOfInputActsAsEscape) {
    for (const auto& [screen, hung] :
         {std::pair{true, true}, {true, false}, {false, true}, {false, false}}) {
        Terminal terminal(40, 10);
        terminal.run([screen = screen, hung = hung] {
            std::signal(SIGHUP, SIG_IGN); // as under nohup: the program outlives its terminal
            if (!hung && std::freopen("/dev/null", "r", stdin) == nullptr) {
                return 2;
            }
            screen ? con_open() : 0;
            con_puts("ready\r\n");
            con_refresh();
            int wrong = con_getkey() == KEYCODE_ESCAPE ? 0 : 1;
            con_drain();
            wrong |= con_kbhit() == 1 ? 0 : 4;
            return wrong == 0 && con_getkey() != KEYCODE_ESCAPE ? 8 : wrong;
        });
        if (hung) {
            terminal.wait_for("ready");
            terminal.hang_up();
        }
        EXPECT_EQ(terminal.wait_exit(), 0) << screen << hung;
    }
}

TEST(Con, TerminalIsRestoredOnEveryWayOut) {
    // By a signal, or 0: by itself; on a screen.
    const std::pair<int, bool> ways[] = {
        {0, true},       {SIGINT, true},  {SIGTERM, true},  {SIGHUP, true},  {SIGQUIT, true},
        {SIGABRT, true}, {SIGALRM, true}, {SIGUSR1, true},  {SIGXCPU, true}, {SIGSEGV, true},
        {0, false},      {SIGINT, false}, {SIGTERM, false}, {SIGBUS, false}};
    for (const auto& [number, screen] : ways) {
        SCOPED_TRACE(testing::Message() << "signal " << number << " screen " << screen);
        Terminal terminal(40, 10);
        const std::vector<tcflag_t> before = terminal.pty.settings();
        terminal.run([screen = screen, number = number]() -> int {
            std::signal(number, SIG_DFL); // also where a sanitizer has a handler
            const rlimit no_core = {0, 0};
            setrlimit(RLIMIT_CORE, &no_core);
            std::printf("before\n");
            con_rawmode();
            for (int i = 0; screen && i < 2; ++i) { // a screen may be opened again
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
        EXPECT_EQ(terminal.pty.settings()[3] & ECHO, 0U);
        EXPECT_EQ(terminal.output().find("why") == std::string::npos, screen) << "overdrawn";
        number != 0 ? terminal.signal(number) : terminal.type("x");
        EXPECT_EQ(terminal.wait_exit(), number != 0 ? 128 + number : 5);
        EXPECT_EQ(terminal.pty.settings(), before);
        EXPECT_EQ(terminal.screen().substr(0, 20), "before\nwhy it ended\n");
        for (const auto& [on, off] : {std::pair{"1000h", "1000l"}, {"\033[?1h", "\033[?1l"}}) {
            if (screen) {
                const std::size_t begun = terminal.output().rfind(on);
                EXPECT_NE(terminal.output().find(off, begun), std::string::npos) << off;
            }
        }
    }
}

TEST(Con, AKillAfterAStopLeavesTheTerminalToTheShell) {
    Terminal terminal(40, 10);
    terminal.run([] {
        con_open();
        con_puts("open");
        return con_getkey();
    });
    terminal.wait_for("open");
    const std::string leave = "\033[?1049l";
    const std::size_t opened = terminal.output().size();
    const auto is_left = [&] {
        terminal.signal(SIGTSTP); // which curses ignores while it draws
        return terminal.output().find(leave, opened) != std::string::npos;
    };
    terminal.wait_until(is_left, "the stop");
    const std::size_t left = terminal.output().size();
    terminal.signal(SIGTERM);
    terminal.signal(SIGCONT);
    EXPECT_EQ(terminal.wait_exit(), 128 + SIGTERM);
    EXPECT_EQ(terminal.output().substr(left).find(leave), std::string::npos);
}
