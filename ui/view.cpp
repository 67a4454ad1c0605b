// The text viewer. One loop reads a piece of each text, draws what changed, and takes a key, so
// that the first screen of a large file stands at once and keys work while the rest arrives.
#include "ui/view.h"

#include "ui/col.h"
#include "ui/con.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <climits>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr char VIEW_VERSION[] = "0.2";
constexpr int SCREEN_MIN = 4;  // columns and rows below which nothing fits
constexpr int BAR_ROWS = 2;    // title and status bar
constexpr int QUIT_CELLS = 12; // what the status bar keeps for its last entry
constexpr int IDLE_MS = 10;

struct State {
    int cols = -1; // the screen's size at the last draw; -1: clear it at the next
    int rows = -1;
    unsigned screen = 0; // counts the clearings: what was drawn before one is gone
    bool second_focused = false;
};
State state;

/// A pane in the loop.
struct Shown {
    ViewPane* pane;
    LineSource* source;
    bool reading = true;
    int top = 0;
    int y = 0;
    int height = 0;
};

void clear_screen() {
    const ColScope colours(COL_TEXT);
    con_clrscr();
}

std::string_view strip(std::string_view text) {
    const auto is_blank = [](char c) { return c == ' ' || ascii_is_control(c); };
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// Writes a bar's text behind a blank, stripped and cut to `width` cells. The cells taken.
int draw_bar_text(std::string_view text, int width) {
    int cells = 0;
    con_putch(' ');
    con_puts(linedoc_cells(strip(text), 0, width, cells).c_str());
    return cells + 1;
}

void draw_title(const std::string& name, int y) {
    const ColScope colours(COL_MENUBAR);
    const int cols = con_cols();
    con_gotoxy(0, y);
    const std::string title = std::string("[KXVIEW ") + VIEW_VERSION + "] [" + name + "]";
    con_hline(cols - 1 - draw_bar_text(title, cols - 2));
    con_putch(' ');
}

void draw_text(const ViewPane& pane, int top, int y, int rows) {
    const ColScope colours(COL_TEXT);
    for (int row = 0; row < rows; ++row) {
        con_gotoxy(0, y + row);
        linedoc_draw(pane.doc, static_cast<std::size_t>(top) + static_cast<std::size_t>(row),
                     pane.offset, con_cols());
    }
}

/// The status bar ends a cell before the edge, but one with larger numbers may have reached it.
void clear_last_cell(int y) {
    const ColScope colours(COL_TEXT);
    con_gotoxy(con_cols() - 1, y);
    con_putch(' ');
}

/// Meant: the second number is the last row's line, also when the text ends before it.
void draw_status(const LineDoc& doc, int top, int y, int height) {
    const ColScope colours(COL_STATUSBAR);
    const int cols = con_cols();
    clear_last_cell(y);
    const std::string text = text_printf("lines %d-%d of %ld %c ", top + 1, top + height - BAR_ROWS,
                                         static_cast<long>(linedoc_count(doc)), '-');
    con_gotoxy(0, y);
    draw_bar_text(text, cols - 1);
    con_putch(' ');
    constexpr int KEY = COL_MENUBAR_HOTKEY;
    constexpr int BAR = COL_STATUSBAR;
    col_puts("[%YCursor%Y/%YPageUp%Y-%YDown%Y/%YHome%Y/%YEnd%Y] Scroll", KEY, BAR, KEY, BAR, KEY,
             BAR, KEY, BAR, KEY, BAR);
    if (con_wherex() < cols - 1) {
        con_hline(cols - QUIT_CELLS - con_wherex());
    }
    col_puts(" [%YESC%Y] Quit", KEY, BAR);
}

/// The screen no longer shows what the pane holds. A growing text counts only where its end is in
/// sight: the rows behind it, and its last line, which may have been drawn before it was whole.
bool is_stale(const ViewPane& pane, int top) {
    return pane.drawn_screen != state.screen || pane.drawn_top != top ||
           pane.drawn_offset != pane.offset ||
           (pane.drawn_end && pane.drawn_size != linedoc_size(pane.doc));
}

/// Reads the next piece of the pane's text; whether any came.
bool read_more(Shown& shown) {
    if (!shown.reading) {
        return false;
    }
    const long taken = linedoc_read(shown.pane->doc, *shown.source);
    shown.reading = taken >= 0;
    return taken > 0;
}

/// The main pane has the upper three quarters of the screen when there is a second one.
void lay_out(Shown& first, Shown* second) {
    first.height = con_rows();
    if (second != nullptr) {
        first.height = con_rows() / 4 * 3;
        second->y = first.height;
        second->height = con_rows() - first.height;
    }
}

void draw(Shown& shown) {
    shown.top = view_drawpane(*shown.pane, shown.top, shown.y, shown.height);
}

/// The first line of the last page; negative when the text is shorter than a page.
int last_page(const Shown& shown) {
    const std::size_t count = std::min<std::size_t>(linedoc_count(shown.pane->doc), INT_MAX);
    return static_cast<int>(count) - (shown.height - BAR_ROWS);
}

/// Where the pane stands until a key moves it: at the line asked for, or on the last page while
/// the text has no such line.
int start_line(const Shown& shown) {
    const int first = shown.pane->first;
    const bool exists = linedoc_count(shown.pane->doc) > static_cast<std::size_t>(first);
    return exists ? first : std::max(last_page(shown), 0);
}

/// Scrolls the pane. Its text may shrink to less than a screen, never move above its first line.
void apply_key(Shown& shown, int key) {
    const int page = shown.height - BAR_ROWS;
    const int end = last_page(shown);
    int& offset = shown.pane->offset;
    switch (key) {
    case KEYCODE_DOWN:
        ++shown.top;
        break;
    case KEYCODE_UP:
        --shown.top;
        break;
    case KEYCODE_LEFT:
        --offset;
        break;
    case KEYCODE_RIGHT:
        ++offset;
        break;
    case KEYCODE_HOME:
        shown.top = 0;
        break;
    case KEYCODE_PAGE_DOWN:
        shown.top += page;
        break;
    case KEYCODE_PAGE_UP:
        shown.top -= page;
        break;
    case KEYCODE_END:
        shown.top = end;
        break;
    default:
        break;
    }
    shown.top = std::max(std::min(shown.top, end), 0);
    offset = std::max(offset, 0);
}

/// Takes a waiting key. False when the user leaves.
bool take_key(Shown& first, Shown* second) {
    // Meant: of a key code the low 16 bits count.
    const int key = con_getkey() & 0xFFFF;
    if (key == KEYCODE_TAB) {
        state.second_focused = !state.second_focused;
    }
    apply_key(second != nullptr && state.second_focused ? *second : first, key);
    return key != KEYCODE_ESCAPE && key != 'q';
}

/// Gives a text on standard input a descriptor of its own and the keyboard standard input. Where
/// there is no terminal the keys are at their end at once, rather than being the text.
void split_standard_input(LineSource& source) {
    if (source.fd != STDIN_FILENO) {
        return;
    }
    source.owned.release(); // standard input stays open until the terminal takes its place
    source = LineSource(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), true);
    Fd keys(open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (!keys.is_open()) {
        keys.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    dup2(keys.get(), STDIN_FILENO);
}

} // namespace

int view_drawpane(ViewPane& pane, int top, int y, int height) {
    if (con_kbhit() != 0) {
        return top;
    }
    const int cols = con_cols();
    const int rows = con_rows();
    if (cols != state.cols || rows != state.rows) {
        state.cols = cols;
        state.rows = rows;
        ++state.screen;
        clear_screen();
    }
    if (cols < SCREEN_MIN || rows < SCREEN_MIN) {
        clear_screen();
        return top;
    }
    if (is_stale(pane, top)) {
        draw_title(pane.doc.file_name, y);
        draw_text(pane, top, y + 1, height - BAR_ROWS);
        pane.drawn_screen = state.screen;
        pane.drawn_top = top;
        pane.drawn_offset = pane.offset;
        pane.drawn_size = linedoc_size(pane.doc);
        pane.drawn_end = static_cast<long>(linedoc_count(pane.doc)) <= top + height - BAR_ROWS;
    }
    draw_status(pane.doc, top, y + height - 1, height);
    return top;
}

int view_run(ViewPane& pane, LineSource& source, ViewPane* pane2, LineSource* source2) {
    clear_screen();
    state.cols = -1;
    state.rows = -1;
    split_standard_input(source);
    Shown first{.pane = &pane, .source = &source, .top = pane.first};
    Shown other{.pane = pane2, .source = source2};
    Shown* const second = pane2 != nullptr && source2 != nullptr ? &other : nullptr;
    for (bool moved = false;;) {
        bool came = read_more(first);
        const int rows = con_rows();
        lay_out(first, second);
        if (!moved && !came) {
            first.top = start_line(first);
        }
        came = (second != nullptr && read_more(*second)) || came;
        draw(first);
        if (second != nullptr) {
            draw(*second);
        }
        if (con_rows() != rows) { // changed under the drawing: the bars stand in wrong places
            state.rows = -1;
            continue;
        }
        con_refresh();
        if (con_kbhit() != 0) {
            moved = true;
            if (!take_key(first, second)) {
                return 0;
            }
        } else if (!came) {
            con_idle(IDLE_MS);
        }
    }
}

int view_file(const std::string& dir, const std::string& name) {
    ViewPane pane;
    LineSource source = linedoc_open(pane.doc, dir, name);
    if (source.fd < 0) {
        return -1;
    }
    view_run(pane, source, nullptr, nullptr);
    clear_screen();
    return 0;
}

void view_reset() {
    state = {};
}

} // namespace kx
