// The main menu's screen: its bottom line, and what stays of all that is open when the terminal
// changes its size. The program itself, on a terminal.
#include "tests/support/base_dir.h"
#include "tests/support/terminal.h"

#include <unistd.h>

namespace kx::test {
namespace {

struct MainMenu : testing::Test {
    BaseDir base;
    TempDir cwd;

    // The base directory's scheme leaves the background and the bottom line black.
    MainMenu() {
        base.dir.write("config/col_kx.ini",
                       scheme_text("white") +
                           "bg=blue,white\nstatusbartext=black,green\nstatusbarbg=red,white\n");
    }

    void start(Terminal& terminal) {
        terminal.spawn({KX_PROGRAM}, {.env = {{"KXPATH", base.dir.path()}}, .cwd = cwd.path()});
        terminal.wait_for("exit");
    }
};

TEST_F(MainMenu, BottomLineTellsWhatIsChosenAndWhatEscapeDoes) {
    base.dir.write("kx.ini", main_text("col_kx\n", "c64\n", "another\n"));
    const std::string main = " ESC leaves and writes  target c64, col_kx, another  crsr to scroll";
    const std::string back = " ESC back  target c64, col_kx, another  crsr to scroll";
    const struct {
        int cols, rows;
        std::string keys, line;
    } rows[] = {
        {80, 25, "", main},
        {50, 25, "", main.substr(0, 49)},
        {80, 25, "\r", back}, // a list, then a box
        {80, 25, times(5, DOWN) + "\r", back},
        {80, 25, "\r" + ESCAPE, main},
        {80, 25, times(2, DOWN) + "\r\r",
         " ESC leaves and writes  target c64, col_kx, map_ascii  crsr to scroll"},
        {80, 12, "\r", std::string(15, ' ') + "·" + times(48, "-") + "·"},
        {60, 10, "", std::string(10, ' ') + "·" + times(38, "-") + "·"},
    };
    for (const auto& row : rows) {
        Terminal terminal(row.cols, row.rows);
        start(terminal);
        terminal.type(row.keys);
        terminal.wait_until([&] { return terminal.row(row.rows - 1) == row.line; }, row.line);
        const bool covered = row.line[0] == ' ' && row.line[1] == ' ';
        const int last = row.rows - 1;
        terminal.wait_looks({{1, last}, {row.cols - 2, last}, {row.cols - 1, last}},
                            covered ? "7/4+ 7/4+ 7/0" : "2/1 2/1 7/0");
    }
}

// What a user who drags the window's corner does: sizes follow each other in milliseconds.
TEST_F(MainMenu, ChangesOfSizeLeaveAllThatIsOpenWhereItStands) {
    for (const std::string keys : {"", "\r"}) {
        Terminal terminal(80, 25);
        start(terminal);
        terminal.type(keys);
        terminal.wait_for(std::string(keys.empty() ? " ESC leaves and writes" : " ESC back") +
                          "  target none, col_kx, map_ascii  crsr to scroll\n");
        const std::string found = terminal.screen();
        const std::size_t last_row = found.find(" ESC");
        const std::string larger =
            found.substr(0, last_row) + std::string(15, '\n') + found.substr(last_row);
        for (int i = 0; i < 8; ++i) {
            terminal.resize(100, 30);
            usleep(4000);
            terminal.resize(132, 40);
            const auto is_whole = [&] {
                const bool shown = terminal.screen() == larger;
                return shown && terminal.looks({{100, 5}, {130, 38}, {0, 38}}) == "7/4+ 7/4+ 7/4+";
            };
            terminal.wait_until(is_whole, larger);
            terminal.resize(80, 25);
            terminal.wait_until([&] { return terminal.screen() == found; }, found);
            terminal.resize(30, 8); // cuts what stood there, and may be over before it is seen
            terminal.resize(80, 25);
            terminal.wait_until([&] { return terminal.screen() == found; }, found);
        }
    }
}

TEST_F(MainMenu, IsDrawnAgainUnderABox) {
    const std::string edge = std::string(20, ' ') + "·" + times(38, "-") + "·";
    Terminal terminal(80, 10);
    start(terminal);
    terminal.type(times(3, DOWN) + "\r");
    terminal.wait_for("|sorry,");
    EXPECT_EQ(terminal.row(9), edge) << "the menu's, where the bottom line has no room";
    terminal.resize(100, 30);
    terminal.wait_for("                   |sorry,"); // a box stands in the middle
    EXPECT_EQ(terminal.row(1), edge);
    EXPECT_EQ(terminal.row(4), std::string(20, ' ') + "|      Setup Target                    |");
}

} // namespace
} // namespace kx::test
