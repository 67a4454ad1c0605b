// Texts in screen cells: how many columns a text takes, and drawing that stays in its room.
#pragma once

#include "ui/con.h"

#include <string_view>

namespace kx {

/// One character of a text as the screen shows it.
struct CellChar {
    std::size_t bytes;      // that it takes in the text, at least 1
    int columns;            // on the screen: 0 for a combining mark, 2 for a wide character
    std::string_view shown; // what to draw
};

/// The first character of a text that is not empty. A control character shows as a blank; a byte
/// that is no character in the locale, one that cannot be shown, and one that would reorder the
/// text around it, as ".".
CellChar cell_char(std::string_view text);

/// The columns that the whole text takes.
int cell_columns(std::string_view text);

/// Writes as much of `text` at the cursor as fits into `room` columns; returns the columns taken.
int cell_puts(std::string_view text, int room);

/// Blanks the area in the current colours.
void cell_blank(const ConRect& area);

} // namespace kx
