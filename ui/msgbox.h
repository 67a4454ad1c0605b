// Message boxes: a text in a centred frame, scrolled with the cursor keys, closed by any other.
#pragma once

#include "ui/con.h"

#include <string_view>

namespace kx {

/// The frame a text needs, centred, cut to the screen: at least 8 by 3 cells. Lines that the
/// screen's width cuts count with the rows they wrap into.
void msgbox_size(ConRect& rect, std::string_view text);

/// Draws the frame and as much of `text` as fits; lines wrap at the frame's inner width. Control
/// characters other than "\n" and "\r" are drawn as blanks. Hides the cursor.
void msgbox_draw(const ConRect& rect, std::string_view text);

/// Shows the text until a key other than up and down; returns that key. A screen that changes its
/// size is followed. What was on the screen is not restored. Without a screen the text goes to
/// standard output, unplaced, and a key is waited for all the same.
int msgbox_run(std::string_view text);

} // namespace kx
