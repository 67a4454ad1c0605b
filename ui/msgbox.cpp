// Message boxes.

#include "ui/msgbox.h"

#include "ui/cells_private.h"
#include "ui/col.h"

#include <algorithm>
#include <climits>
#include <optional>

namespace kx {

namespace {

constexpr int MIN_WIDTH = 8;
constexpr int MIN_HEIGHT = 3;
constexpr int POLL_MS = 10;

// Hands each character of the text and its place to `place`, lines wrapped at `width` columns.
// Returns the number of rows.
template <typename Place>
int lay_out(std::string_view text, int width, Place place) {
    int row = 0;
    int column = 0;
    while (!text.empty()) {
        const CellChar c = cell_char(text);
        if (text[0] == '\n') {
            row++;
            column = 0;
        } else if (text[0] == '\r') {
            column = 0;
        } else {
            if (column > 0 && column > width - c.columns) {
                row++;
                column = 0;
            }
            place(column, row, c);
            column += c.columns;
        }
        text.remove_prefix(c.bytes);
    }
    return row + 1;
}

std::size_t line_down(std::string_view text, std::size_t pos) {
    const std::size_t end = text.find('\n', pos);
    return end == std::string_view::npos ? pos : end + 1;
}

// Meant: one character further back than the line end. The first row then starts with the last
// character of the line before, as the box has always scrolled up.
std::size_t line_up(std::string_view text, std::size_t pos) {
    if (pos == 0) {
        return 0;
    }
    const std::size_t line_end = text.rfind('\n', pos - 1);
    if (line_end == std::string_view::npos || line_end == 0) {
        return 0;
    }
    pos = line_end - 1;
    while (pos > 0 && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) {
        pos--; // to the start of a UTF-8 character
    }
    return pos;
}

// The key pressed; none when the screen has changed its size since `changes` were counted.
std::optional<int> wait_key(unsigned changes) {
    while (con_kbhit() == 0) {
        if (con_size_changes() != changes) {
            return std::nullopt;
        }
        con_idle(POLL_MS);
    }
    return con_getkey();
}

} // namespace

void msgbox_size(ConRect& rect, std::string_view text) {
    int longest = 0;
    lay_out(text, INT_MAX, [&](int column, int, const CellChar& c) {
        longest = std::max(longest, column + c.columns);
    });
    rect.width = std::min(std::max(longest + 2, MIN_WIDTH), con_cols());
    // Lines that the screen cuts get the rows they wrap into.
    const int lines = lay_out(text, rect.width - 2, [](int, int, const CellChar&) {});
    rect.height = std::min(std::max(lines + 2, MIN_HEIGHT), con_rows());
    rect.x = rect.width < con_cols() ? con_cols() / 2 - rect.width / 2 : 0;
    rect.y = rect.height < con_rows() ? con_rows() / 2 - rect.height / 2 : 0;
}

void msgbox_draw(const ConRect& rect, std::string_view text) {
    con_showcursor(0);
    const ColScope border(COL_WINDOW_BORDER);
    cell_blank(rect);
    con_frame(rect.x, rect.y, rect.width, rect.height);
    col_set(COL_WINDOW);
    const int width = rect.width - 2;
    lay_out(text, width, [&](int column, int row, const CellChar& c) {
        if (row < rect.height - 2) {
            con_gotoxy(rect.x + 1 + column, rect.y + 1 + row);
            cell_puts(c.shown, width - column);
        }
    });
}

int msgbox_run(std::string_view text) {
    con_showcursor(0);
    std::size_t pos = 0; // of the first character shown
    for (unsigned changes = con_size_changes();;) {
        ConRect rect;
        msgbox_size(rect, text);
        msgbox_draw(rect, text.substr(pos));
        con_refresh();
        const std::optional<int> key = wait_key(changes);
        if (!key) {
            changes = con_size_changes();
            if (!con_redraw()) {
                cell_blank(rect); // the next frame may stand elsewhere
            }
        } else if (*key == KEYCODE_DOWN) {
            pos = line_down(text, pos);
        } else if (*key == KEYCODE_UP) {
            pos = line_up(text, pos);
        } else {
            return *key;
        }
    }
}

} // namespace kx
