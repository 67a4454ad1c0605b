// Texts in screen cells. Columns are counted here and never asked of the terminal, so that what is
// drawn does not depend on where the cursor has been left.

#include "ui/cells_private.h"

#include "ui/con_private.h"
#include "util/ascii.h"

#include <cwchar>
#include <string>

namespace kx {

namespace {

/// Invisible characters that direct how others are laid out: with them a text could show
/// something else than it says.
bool is_layout_control(wchar_t c) {
    return (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2060 && c <= 0x206F) || c == 0x061C || c == 0xFEFF;
}

} // namespace

CellChar cell_char(std::string_view text) {
    if (ascii_is_control(text[0])) {
        return {.bytes = 1, .columns = 1, .shown = " "};
    }
    wchar_t wide = 0;
    std::mbstate_t start{};
    const std::size_t bytes = std::mbrtowc(&wide, text.data(), text.size(), &start);
    if (bytes == 0 || bytes > text.size()) { // not a whole character
        return {.bytes = 1, .columns = 1, .shown = "."};
    }
    const int columns = wcwidth(wide);
    if (columns < 0 || is_layout_control(wide)) {
        return {.bytes = bytes, .columns = 1, .shown = "."};
    }
    return {.bytes = bytes, .columns = columns, .shown = text.substr(0, bytes)};
}

int cell_columns(std::string_view text) {
    con_use_locale(); // or without a screen yet, nothing but ASCII would be known
    int columns = 0;
    while (!text.empty()) {
        const CellChar c = cell_char(text);
        columns += c.columns;
        text.remove_prefix(c.bytes);
    }
    return columns;
}

int cell_puts(std::string_view text, int room) {
    std::string shown;
    int used = 0;
    while (!text.empty()) {
        const CellChar c = cell_char(text);
        if (used + c.columns > room) {
            break;
        }
        used += c.columns;
        shown += c.shown;
        text.remove_prefix(c.bytes);
    }
    con_puts(shown.c_str());
    return used;
}

void cell_blank(const ConRect& area) {
    for (int y = 0; y < area.height; y++) {
        con_gotoxy(area.x, area.y + y);
        con_spaces(area.width);
    }
}

} // namespace kx
