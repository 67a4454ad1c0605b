// Drawing: cursor, colours and text, on the curses standard screen or on plain standard output.
#include "ui/con.h"
#include "ui/con_private.h"

#define NCURSES_NOMACROS 1
#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <cwchar>
#include <memory>

namespace kx {

namespace {

constexpr int CORNER = 183; // the middle dot, in Latin-1 and in Unicode
constexpr wchar_t REPLACEMENT = 0xfffd;
constexpr int TAB_WIDTH = 8;
// Without a screen clearing writes as many blanks as fill 50 rows of 80, but for the last two.
constexpr int LINE_MODE_BLANKS = 49 * 80 + 78;

struct DrawState {
    int text_colour = 7;
    int back_colour = 0;
    int reverse = 0;
    int cursor_visible = 1;
    // The cursor, which may stand outside of the screen: what is written there is clipped.
    int x = 0;
    int y = 0;
    // A character whose bytes have not all been written yet.
    std::mbstate_t partial = {};
    bool in_character = false;
    chtype normal_attribute = 0;
    void (*redraw)() = nullptr;
};
DrawState state;

void move_to(int x, int y) {
    state.x = x;
    state.y = y;
    state.in_character = false;
    state.partial = {};
}

void apply_colours() {
    if (!con_screen_active()) {
        return;
    }
    const int text = state.reverse != 0 ? state.back_colour : state.text_colour;
    const int back = state.reverse != 0 ? state.text_colour : state.back_colour;
    // The stride is the number of colours even where the pairs were set up with a stride of 16,
    // and COLOR_PAIR keeps the low 8 bits of the pair: with 256 colours only the text colour is
    // left. Both are meant: colour schemes are made for it.
    const int pair = (back & 7) * COLORS + (text & 7);
    const auto colours = static_cast<chtype>(COLOR_PAIR(pair));
    attrset(static_cast<int>(colours | (text > 7 ? A_BOLD : A_NORMAL)));
}

int set_colour(int& colour, int value) {
    const int before = colour;
    colour = value & 15;
    apply_colours();
    return before;
}

// Text --------------------------------------------------------------------------------------

// At the cursor, which moves on: also beyond the edges, where nothing is drawn.
void draw_cell(wchar_t c, int width) {
    const int x = state.x;
    state.x += width;
    if (state.y < 0 || state.y >= con_rows() || x < 0 || x + width > con_cols()) {
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
        if (state.y == con_rows() - 1) {
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
void put_repeated(int n, char c) {
    if (!con_screen_active()) {
        for (int i = 0; i < n; ++i) {
            std::putchar(c);
        }
        return;
    }
    n = std::max(n, 0);
    const int first = std::max(state.x, 0);
    const int last = std::min(state.x + n, con_cols());
    if (state.y >= 0 && state.y < con_rows() && first < last) {
        mvhline(state.y, first, static_cast<chtype>(c), last - first);
    }
    move_to(state.x + n, state.y);
}

void put_corner() {
    if (con_screen_active()) {
        con_multibyte() ? draw_wide(CORNER) : draw_byte(CORNER);
        return;
    }
    con_use_locale();
    if (con_multibyte()) {
        std::printf("%lc", static_cast<wint_t>(CORNER));
    } else {
        std::putchar(CORNER);
    }
}

void put_edge(int x, int y, int w) {
    con_gotoxy(x, y);
    put_corner();
    con_hline(w - 2);
    put_corner();
}

// Attribute words fold into one byte as their two low bytes together.
std::uint8_t folded(chtype attribute) {
    return static_cast<std::uint8_t>((attribute | attribute >> 8) & 0xff);
}

} // namespace

void con_use_locale() {
    if (std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0) {
        std::setlocale(LC_CTYPE, "");
    }
}

bool con_multibyte() {
    return MB_CUR_MAX > 1;
}

void con_start_drawing() {
    state.normal_attribute = static_cast<chtype>(getattrs(stdscr));
    move_to(0, 0);
}

// Size and cursor ---------------------------------------------------------------------------

int con_cols() {
    return con_screen_active() ? getmaxx(stdscr) : 80;
}

int con_rows() {
    return con_screen_active() ? getmaxy(stdscr) : 25;
}

int con_wherex() {
    return con_screen_active() ? std::clamp(state.x, 0, con_cols() - 1) : 1;
}

int con_wherey() {
    return con_screen_active() ? std::clamp(state.y, 0, con_rows() - 1) : 1;
}

void con_gotoxy(int x, int y) {
    if (con_screen_active()) {
        move_to(x, y);
    }
}

void con_left() {
    if (con_screen_active()) {
        move_to(std::max(state.x - 1, 0), state.y);
    } else {
        std::putchar('\b');
    }
}

void con_right() {
    con_gotoxy(std::min(con_wherex() + 1, con_cols() - 1), con_wherey());
}

void con_up() {
    con_gotoxy(con_wherex(), std::max(con_wherey() - 1, 0));
}

void con_down() {
    con_gotoxy(con_wherex(), std::min(con_wherey() + 1, con_rows() - 1));
}

int con_showcursor(int flag) {
    const int before = state.cursor_visible;
    state.cursor_visible = flag;
    return before;
}

ConTextInfo con_textinfo() {
    const bool screen = con_screen_active();
    ConTextInfo info = {};
    const auto columns = static_cast<std::uint8_t>(screen ? con_cols() : -1);
    const auto rows = static_cast<std::uint8_t>(screen ? con_rows() : -1);
    info.window_right = info.screen_width = columns;
    info.window_bottom = info.screen_height = rows;
    info.attribute = screen ? folded(static_cast<chtype>(getattrs(stdscr))) : 0;
    info.normal_attribute = folded(state.normal_attribute);
    info.cursor_x = static_cast<std::uint8_t>(con_wherex());
    info.cursor_y = static_cast<std::uint8_t>(con_wherey());
    return info;
}

// Colours -----------------------------------------------------------------------------------

int con_textcolor(int colour) {
    return set_colour(state.text_colour, colour);
}

int con_textbackground(int colour) {
    return set_colour(state.back_colour, colour);
}

int con_reverse(int flag) {
    const int before = state.reverse;
    state.reverse = flag & 1;
    apply_colours();
    return before;
}

void con_highlight(int flag) {
    if (!con_screen_active()) {
        return;
    }
    const auto pair = static_cast<chtype>(getattrs(stdscr)) & A_COLOR;
    if (flag == 1) {
        attrset(static_cast<int>(pair | A_BOLD));
    } else {
        attroff(static_cast<int>(A_BOLD));
    }
}

// Output ------------------------------------------------------------------------------------

int con_putch(int c) {
    if (con_screen_active()) {
        const char byte = static_cast<char>(c);
        draw_text(&byte, 1);
    } else {
        std::putchar(c);
    }
    return c;
}

void con_puts(const char* text) {
    if (con_screen_active()) {
        draw_text(text, std::char_traits<char>::length(text));
    } else {
        std::fputs(text, stdout);
    }
}

void con_printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    const std::unique_ptr<char, decltype(&std::free)> owner(length >= 0 ? text : nullptr,
                                                            &std::free);
    if (owner != nullptr) {
        con_puts(owner.get());
    }
    if (!con_screen_active()) {
        std::fflush(stdout);
    }
}

void con_newline() {
    con_puts("\r\n");
}

void con_spaces(int n) {
    put_repeated(n, ' ');
}

void con_hline(int n) {
    put_repeated(n, '-');
}

void con_vline(int n) {
    const int x = state.x;
    const int y = state.y;
    for (int i = 0; i < n; ++i) {
        con_gotoxy(x, y + i);
        con_putch('|');
    }
}

void con_frame(int x, int y, int w, int h) {
    put_edge(x, y, w);
    put_edge(x, y + h - 1, w);
    con_gotoxy(x, y + 1);
    con_vline(h - 2);
    con_gotoxy(x + w - 1, y + 1);
    con_vline(h - 2);
}

void con_clrscr() {
    if (!con_screen_active()) {
        con_spaces(LINE_MODE_BLANKS);
        return;
    }
    const int last = con_rows() - 1;
    for (int y = 0; y < last; ++y) {
        con_gotoxy(0, y);
        con_spaces(con_cols());
    }
    // The last two cells are not written. Meant: nothing may scroll the screen here. They become
    // as a screen just opened has them, or what stood there would outlive the clearing.
    move(last, std::max(con_cols() - 2, 0));
    clrtoeol();
    con_gotoxy(0, last);
    con_spaces(con_cols() - 2);
    con_gotoxy(0, 0);
    con_refresh();
}

void con_refresh() {
    if (con_screen_active()) {
        if (state.cursor_visible != 0) {
            move(con_wherey(), con_wherex());
        } else {
            move(con_rows() - 1, con_cols() - 1); // out of the way
        }
        refresh();
    } else {
        std::fflush(stderr);
        std::fflush(stdout);
    }
}

void con_set_redraw(void (*redraw)()) {
    state.redraw = redraw;
}

bool con_redraw() {
    if (state.redraw != nullptr) {
        state.redraw();
    }
    return state.redraw != nullptr;
}

ConRect* con_rect_new(int x, int y, int w, int h) {
    return std::make_unique<ConRect>(ConRect{x, y, w, h}).release();
}

void con_rect_free(ConRect* rect) {
    const std::unique_ptr<ConRect> owner(rect);
}

} // namespace kx
