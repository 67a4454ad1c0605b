// The console's operations: on the screen when one is open, else on plain standard output.
#include "ui/con.h"
#include "ui/con_private.h"
#include "util/text.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>

namespace kx {

namespace {

constexpr wchar_t CORNER = 183; // the middle dot, in Latin-1 and in Unicode
// Meant: without a screen clearing writes as many blanks as fill 50 rows of 80, but for the last
// two, and no line ends.
constexpr int LINE_MODE_BLANKS = 49 * 80 + 78;

struct State {
    const ConScreen* screen = nullptr; // null: line mode
    int text_colour = 7;
    int back_colour = 0;
    int reverse = 0;
    int cursor_visible = 1;
    std::uint8_t normal_attribute = 0; // of the last screen, as it was opened
    void (*redraw)() = nullptr;
};
State state;

// What draws on the screen; null in line mode.
const ConDrawing* drawing() {
    return state.screen != nullptr ? state.screen->drawing : nullptr;
}

void apply_colours() {
    if (drawing() == nullptr) {
        return;
    }
    if (state.reverse != 0) {
        drawing()->set_colours(state.back_colour, state.text_colour);
    } else {
        drawing()->set_colours(state.text_colour, state.back_colour);
    }
}

int set_colour(int& colour, int value) {
    const int before = colour;
    colour = value & 15;
    apply_colours();
    return before;
}

void put_repeated(char c, int n) {
    if (drawing() != nullptr) {
        drawing()->put_repeated(c, n);
        return;
    }
    for (int i = 0; i < n; ++i) {
        std::putchar(c);
    }
}

void put_corner() {
    if (drawing() != nullptr) {
        drawing()->put_character(CORNER);
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

} // namespace

void con_use_locale() {
    if (std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0) {
        std::setlocale(LC_CTYPE, "");
    }
}

bool con_multibyte() {
    return MB_CUR_MAX > 1;
}

// The screen --------------------------------------------------------------------------------

void con_install(const ConScreen* screen) {
    state.screen = screen;
    if (screen != nullptr) {
        screen->drawing->start();
        screen->keyboard->start();
        state.normal_attribute = con_textinfo().normal_attribute;
    }
}

const ConKeyboard* con_keyboard() {
    return state.screen != nullptr ? state.screen->keyboard : nullptr;
}

bool con_screen_active() {
    return state.screen != nullptr;
}

bool con_screen_covers(int fd) {
    return state.screen != nullptr && state.screen->covers(fd);
}

void con_close() {
    if (state.screen != nullptr) {
        const ConScreen* const screen = state.screen;
        state.cursor_visible = 1;
        state.screen = nullptr;
        screen->close();
        con_write_held();
    }
}

void con_reset() {
    con_close();
    con_reset_keys();
    state = {};
}

void con_mouse_on() {
    if (state.screen != nullptr) {
        state.screen->mouse_on();
    }
}

// Size and cursor ---------------------------------------------------------------------------

int con_cols() {
    return drawing() != nullptr ? drawing()->cols() : 80;
}

int con_rows() {
    return drawing() != nullptr ? drawing()->rows() : 25;
}

int con_wherex() {
    return drawing() != nullptr ? drawing()->where_x() : 1;
}

int con_wherey() {
    return drawing() != nullptr ? drawing()->where_y() : 1;
}

void con_gotoxy(int x, int y) {
    if (drawing() != nullptr) {
        drawing()->go_to(x, y);
    }
}

void con_left() {
    if (drawing() != nullptr) {
        drawing()->left();
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
    info.normal_attribute = state.normal_attribute;
    info.cursor_x = static_cast<std::uint8_t>(con_wherex());
    info.cursor_y = static_cast<std::uint8_t>(con_wherey());
    if (screen) {
        drawing()->tell_attributes(info);
    }
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
    if (drawing() != nullptr) {
        drawing()->highlight(flag == 1);
    }
}

// Output ------------------------------------------------------------------------------------

int con_putch(int c) {
    if (drawing() != nullptr) {
        const char byte = static_cast<char>(c);
        drawing()->put_text(&byte, 1);
    } else {
        std::putchar(c);
    }
    return c;
}

void con_puts(const char* text) {
    if (drawing() != nullptr) {
        drawing()->put_text(text, std::strlen(text));
    } else {
        std::fputs(text, stdout);
    }
}

void con_printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    con_puts(text_vprintf(format, args).c_str());
    va_end(args);
    if (drawing() == nullptr) {
        std::fflush(stdout);
    }
}

void con_newline() {
    con_puts("\r\n");
}

void con_spaces(int n) {
    put_repeated(' ', n);
}

void con_hline(int n) {
    put_repeated('-', n);
}

void con_vline(int n) {
    if (drawing() != nullptr) {
        drawing()->put_down('|', n);
    } else {
        put_repeated('|', n);
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
    if (drawing() == nullptr) {
        con_spaces(LINE_MODE_BLANKS);
        return;
    }
    drawing()->clear();
    con_refresh();
}

void con_refresh() {
    if (drawing() != nullptr) {
        drawing()->refresh(state.cursor_visible != 0);
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
