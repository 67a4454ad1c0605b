// Drawing on the curses standard screen.
#include "ui/con.h"
#include "ui/con_private.h"

#define NCURSES_NOMACROS 1
#include <algorithm>
#include <curses.h>
#include <cwchar>

namespace kx {

namespace {

constexpr wchar_t REPLACEMENT = 0xfffd;
constexpr int TAB_WIDTH = 8;

struct State {
    // The cursor, which may stand outside of the screen: what is written there is clipped.
    int x = 0;
    int y = 0;
    // A character whose bytes have not all been written yet.
    std::mbstate_t partial = {};
    bool in_character = false;
    chtype normal_attribute = 0;
};
State state;

void move_to(int x, int y) {
    state.x = x;
    state.y = y;
    state.in_character = false;
    state.partial = {};
}

void start() {
    state.normal_attribute = static_cast<chtype>(getattrs(stdscr));
    move_to(0, 0);
}

// Size, cursor, colours ---------------------------------------------------------------------

int cols() {
    return getmaxx(stdscr);
}

int rows() {
    return getmaxy(stdscr);
}

int where_x() {
    return std::clamp(state.x, 0, cols() - 1);
}

int where_y() {
    return std::clamp(state.y, 0, rows() - 1);
}

void left() {
    move_to(std::max(state.x - 1, 0), state.y);
}

void set_colours(int text, int back) {
    // The stride is the number of colours even where the pairs were set up with a stride of 16,
    // and COLOR_PAIR keeps the low 8 bits of the pair: with 256 colours only the text colour is
    // left. Meant: colour schemes are made for both.
    const int pair = (back & 7) * COLORS + (text & 7);
    const auto colours = static_cast<chtype>(COLOR_PAIR(pair));
    attrset(static_cast<int>(colours | (text > 7 ? A_BOLD : A_NORMAL)));
}

void highlight(bool on) {
    const auto pair = static_cast<chtype>(getattrs(stdscr)) & A_COLOR;
    if (on) {
        attrset(static_cast<int>(pair | A_BOLD));
    } else {
        attroff(static_cast<int>(A_BOLD));
    }
}

// Attribute words fold into one byte as their two low bytes together.
std::uint8_t folded(chtype attribute) {
    return static_cast<std::uint8_t>((attribute | attribute >> 8) & 0xff);
}

void tell_attributes(ConTextInfo& info) {
    info.attribute = folded(static_cast<chtype>(getattrs(stdscr)));
    info.normal_attribute = folded(state.normal_attribute);
}

// Text --------------------------------------------------------------------------------------

// At the cursor, which moves on: also beyond the edges, where nothing is drawn.
void draw_cell(wchar_t c, int width) {
    const int x = state.x;
    state.x += width;
    if (state.y < 0 || state.y >= rows() || x < 0 || x + width > cols()) {
        return;
    }
    const wchar_t text[2] = {c, 0};
    cchar_t cell;
    setcchar(&cell, text, A_NORMAL, 0, nullptr); // the screen's attribute comes in by itself
    scrollok(stdscr, FALSE);                     // or the last cell would scroll the screen
    mvadd_wch(state.y, x, &cell);
    scrollok(stdscr, TRUE);
}

void draw_wide(wchar_t c) {
    const int width = wcwidth(c);
    if (width >= 0 && c != 0) {
        draw_cell(c, width);
    } else {
        draw_cell(L' ', 1); // a control character
    }
}

// In a locale without multibyte characters. Where it does not know the upper half of the eight
// bits, as "C" does not, the printable part is still the terminal's business.
void draw_byte(unsigned char c) {
    const auto wide = static_cast<wchar_t>(std::btowc(c));
    if (c >= 0xa0 && wcwidth(wide) < 0) {
        draw_cell(c, 1);
    } else {
        draw_wide(wide);
    }
}

// Moves without erasing, where curses would clear the rest of the line. True when it was one of
// the characters that move.
bool draw_movement(char c) {
    switch (c) {
    case '\r':
        state.x = 0;
        return true;
    case '\n':
        state.x = 0;
        if (state.y == rows() - 1) {
            scroll(stdscr);
        } else {
            ++state.y;
        }
        return true;
    case '\b':
        state.x = std::max(state.x - 1, 0);
        return true;
    case '\t':
        do {
            draw_wide(L' ');
        } while (state.x % TAB_WIDTH != 0);
        return true;
    default:
        return false;
    }
}

// One byte of a text. Characters of several bytes may arrive in several calls.
void draw_text_byte(char c) {
    if (!con_multibyte()) {
        if (!draw_movement(c)) {
            draw_byte(static_cast<unsigned char>(c));
        }
        return;
    }
    wchar_t wide = 0;
    const std::size_t length = std::mbrtowc(&wide, &c, 1, &state.partial);
    if (length == static_cast<std::size_t>(-2)) {
        state.in_character = true;
        return;
    }
    const bool broken = state.in_character;
    state.in_character = false;
    if (length == static_cast<std::size_t>(-1)) {
        state.partial = {};
        draw_wide(REPLACEMENT);
        if (broken) {
            draw_text_byte(c); // the byte that broke it may begin the next one
        }
    } else if (!draw_movement(c)) {
        draw_wide(wide);
    }
}

void draw_text(const char* text, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        draw_text_byte(text[i]);
    }
}

// Plain characters, in one stroke: whole screens are cleared through here.
void put_repeated(char c, int n) {
    const int first = std::max(state.x, 0);
    const int last = std::min(state.x + n, cols());
    if (state.y >= 0 && state.y < rows() && first < last) {
        mvhline(state.y, first, static_cast<chtype>(c), last - first);
    }
    move_to(state.x + std::max(n, 0), state.y);
}

void put_down(char c, int n) {
    const int x = state.x;
    const int y = state.y;
    for (int i = 0; i < n; ++i) {
        move_to(x, y + i);
        draw_text(&c, 1);
    }
}

void put_character(wchar_t c) {
    con_multibyte() ? draw_wide(c) : draw_byte(static_cast<unsigned char>(c));
}

void refresh_screen(bool cursor_visible) {
    if (cursor_visible) {
        move(where_y(), where_x());
    } else {
        move(rows() - 1, cols() - 1); // out of the way
    }
    refresh();
}

void clear_screen() {
    const int last = rows() - 1;
    for (int y = 0; y < last; ++y) {
        move_to(0, y);
        put_repeated(' ', cols());
    }
    // The last two cells are not written. Meant: nothing may scroll the screen here. They become
    // as a screen just opened has them, or what stood there would outlive the clearing.
    move(last, std::max(cols() - 2, 0));
    clrtoeol();
    move_to(0, last);
    put_repeated(' ', cols() - 2);
    move_to(0, 0);
}

} // namespace

const ConDrawing con_screen_drawing = {
    .start = start,
    .cols = cols,
    .rows = rows,
    .where_x = where_x,
    .where_y = where_y,
    .go_to = move_to,
    .left = left,
    .set_colours = set_colours,
    .highlight = highlight,
    .tell_attributes = tell_attributes,
    .put_text = draw_text,
    .put_character = put_character,
    .put_repeated = put_repeated,
    .put_down = put_down,
    .clear = clear_screen,
    .refresh = refresh_screen,
};

} // namespace kx
