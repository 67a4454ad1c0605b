// Message boxes: a text in a centred frame, scrolled with the cursor keys, closed by any other.
#pragma once

#include "ui/con.h"

#include <string_view>

namespace kx {

/// The frame a text needs, centred, cut to the screen: at least 8 by 3 cells.
void msgbox_size(ConRect& rect, std::string_view text);

/// Draws the frame and as much of `text` as fits; lines wrap at the frame's inner width. Control
/// characters other than "\n" and "\r" are drawn as blanks.
void msgbox_draw(const ConRect& rect, std::string_view text);

/// Shows the text until a key other than up and down; returns that key. What was on the screen is
/// not restored. Without a usable screen it draws into the void and still waits for a key.
int msgbox_run(std::string_view text);

} // namespace kx
