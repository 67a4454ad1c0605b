// Menus and message boxes, as a user sees them on a terminal and steers them with keys.
#include "tests/support/terminal.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/menu.h"
#include "ui/msgbox.h"

#include <gtest/gtest.h>

namespace kx {
namespace {

using Lines = std::vector<std::string>;
using namespace test;

// A screen of `rows` rows with nothing but a frame at (x, y) and the lines in it.
std::string framed(std::size_t rows, std::size_t x, std::size_t y, const Lines& lines) {
    const std::string indent(x, ' ');
    const std::string edge = indent + "·" + std::string(lines[0].size(), '-') + "·\n";
    std::string screen = std::string(y, '\n') + edge;
    for (const std::string& line : lines) {
        screen.append(indent).append("|").append(line).append("|\n");
    }
    return screen + edge + std::string(rows - y - lines.size() - 2, '\n');
}

void wait_for_screen(Terminal& terminal, const std::string& screen) {
    terminal.wait_until([&] { return terminal.screen() == screen; }, screen);
}

// `count` items "item 0", "item 1", ... with the results 100, 101, ...; the last but one has F1 as
// its hotkey and the last Escape.
Menu list(int count, int height) {
    Menu menu;
    for (int i = 0; i < count; i++) {
        const int hotkey = count - i == 2 ? KEYCODE_F1 : count - i == 1 ? KEYCODE_ESCAPE : 0;
        menu.items.push_back({100 + i, hotkey, "", "item " + std::to_string(i)});
    }
    menu.width = 20;
    menu.height = height;
    return menu;
}

// Shows a menu; when it has ended, its result and state are what the terminal shows.
int show(Menu menu) {
    con_open();
    menu_centre(menu);
    const int result = menu_run(menu);
    con_close();
    con_printf("= %d %d %d\n", result, menu.top, menu.selected);
    return 0;
}

TEST(Menu, KeysMoveScrollAndChoose) {
    const struct {
        const char* name;
        int count;
        std::string keys;
        const char* end; // result, top, selected
    } rows[] = {
        {"ten down scroll by one", 20, times(10, DOWN) + "\r", "= 110 1 9"},
        {"stops at the end", 20, times(25, DOWN) + "\r", "= 119 10 9"},
        {"page down by a page", 35, times(2, PAGE_DOWN) + "\r", "= 119 10 9"},
        {"page up", 35, times(4, PAGE_DOWN) + times(5, PAGE_UP) + UP + "\r", "= 100 0 0"},
        {"page up to the first row", 35, times(2, PAGE_DOWN) + PAGE_UP + "\r", "= 110 10 0"},
        {"few items do not scroll", 3, times(5, DOWN) + PAGE_DOWN + "\r", "= 102 0 2"},
        {"hotkey of an item out of sight", 20, F1, "= 118 0 0"},
        {"escape is no hotkey", 20, ESCAPE, "= -1 0 0"},
        {"other keys do nothing", 20, DOWN + "q\t \r", "= 101 0 1"},
        {"nothing to choose", 0, DOWN + UP + PAGE_DOWN + PAGE_UP + "\r", "= -1 0 -1"},
    };
    for (const auto& row : rows) {
        Terminal terminal(40, 14);
        terminal.run([&] { return show(list(row.count, 12)); });
        terminal.wait_for("·------------------·");
        terminal.type(row.keys);
        EXPECT_EQ(terminal.wait_exit(), 0);
        EXPECT_EQ(terminal.row(0), row.end) << row.name;
    }
}

TEST(Menu, DrawsItemsInTheirColoursInsideTheFrame) {
    Terminal terminal(32, 8);
    terminal.run([] {
        key_textcolour[COL_MENU_BORDER] = 2;
        key_textcolour[COL_MENU] = 7;
        key_textcolour[COL_MENU_SELECTED] = 15;
        key_backcolour[COL_MENU_SELECTED + 1] = 1;
        key_textcolour[COL_MENU_HOTKEY] = 4;
        key_textcolour[COL_MENU_HOTKEY_SELECTED] = 14;
        Menu menu = list(0, 6);
        menu.items = {{1, 0, "", "a label too long"},
                      {2, KEYCODE_F1, "F1", "hälp\x1b[1m"},
                      {3, 0, "long name", "and more"}};
        menu.selected = 1;
        return show(menu);
    });
    wait_for_screen(terminal, framed(8, 6, 1,
                                     {"      a label too ", "[F1]  hälp [1m    ",
                                      "[long name]and mor", "                  "}));
    // The border, a label, the selected line and the hotkeys.
    EXPECT_EQ(terminal.looks({{6, 1}, {13, 2}, {8, 3}, {13, 3}, {24, 3}, {25, 3}, {8, 4}}),
              "2/0 7/0 3/0+ 7/4+ 7/4+ 2/0 1/0");
}

TEST(Menu, FollowsTheSizeOfTheScreenAndKeepsItsSelection) {
    Lines all;
    for (int i = 0; i < 14; ++i) {
        all.push_back("      item " + std::to_string(i) + std::string(i < 10 ? 6 : 5, ' '));
    }
    Terminal terminal(60, 20);
    terminal.run([] { return show(list(30, 16)); });
    terminal.wait_for("item 13");
    wait_for_screen(terminal, framed(20, 20, 2, all));
    terminal.resize(30, 12);
    wait_for_screen(terminal, framed(12, 10, 0, {all.begin(), all.begin() + 10}));
    terminal.type(times(13, DOWN));
    terminal.resize(16, 6);
    wait_for_screen(
        terminal,
        framed(6, 0, 0, {"      item 10 ", "      item 11 ", "      item 12 ", "      item 13 "}));
    terminal.type(times(20, DOWN));
    terminal.wait_for("item 29");
    terminal.resize(60, 20);
    terminal.wait_for("\n\n                    ·------------------·\n"
                      "                    |      item 16     |\n");
    terminal.type("\r");
    EXPECT_EQ(terminal.wait_exit(), 0);
    EXPECT_EQ(terminal.row(0), "= 129 16 13");
}

TEST(MessageBox, ShowsItsTextInACentredFrame) {
    const char* const six = "one\ntwo\nthree\nfour\nfive\nsix";
    const struct {
        const char* text;
        std::string keys;
        std::size_t x, y;
        Lines lines;
    } rows[] = {
        {"", "", 6, 2, {"      "}},
        {"abcdefghijklmnopqrstuvwxyz", "", 0, 1, {"abcdefghijklmnopqr", "stuvwxyz          "}},
        {"x\rY\tb\x1b[2J", "", 6, 2, {"Y b [2J"}},
        {six, times(2, DOWN) + UP, 6, 0, {"o     ", "three ", "four  ", "five  "}},
        {six, times(9, DOWN) + times(20, UP), 6, 0, {"one   ", "two   ", "three ", "four  "}},
    };
    for (const auto& row : rows) {
        Terminal terminal(20, 6);
        terminal.run([&] {
            con_open();
            return msgbox_run(row.text);
        });
        terminal.wait_for("·------");
        terminal.type(row.keys);
        wait_for_screen(terminal, framed(6, row.x, row.y, row.lines));
        terminal.type("x");
        EXPECT_EQ(terminal.wait_exit(), 'x');
    }
}

TEST(Menu, AndBoxGiveBackTheColoursTheyFound) {
    Terminal terminal(40, 12);
    terminal.run([] {
        for (const int element : {COL_MENU, COL_MENU_BORDER, COL_WINDOW, COL_WINDOW_BORDER}) {
            key_textcolour[element] = 4;
        }
        con_open();
        con_textcolor(2);
        con_textbackground(1);
        Menu menu = list(3, 5);
        menu_run(menu);
        con_gotoxy(0, 11);
        con_puts("m");
        msgbox_run("box");
        con_gotoxy(1, 11);
        con_puts("b");
        return con_getkey();
    });
    terminal.wait_for("item 2");
    terminal.wait_until([&] { return terminal.cursor() == "39,11"; }, "a parked cursor");
    terminal.type("\r");
    terminal.wait_for("|box");
    terminal.type("x");
    terminal.wait_for("\nmb");
    EXPECT_EQ(terminal.looks({{0, 11}, {1, 11}}), "2/4 2/4");
}

TEST(MessageBox, BlanksItsOldPlaceWhenTheScreenChangesItsSize) {
    Terminal terminal(40, 12);
    terminal.run([] {
        con_open();
        return msgbox_run("hello");
    });
    wait_for_screen(terminal, framed(12, 16, 5, {"hello "}));
    terminal.resize(60, 20);
    wait_for_screen(terminal, framed(20, 26, 9, {"hello "}));
}

} // namespace
} // namespace kx
