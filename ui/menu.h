// Menus: a framed, scrolling list of items chosen by cursor keys, Enter, Escape or a hotkey.
#pragma once

#include "ui/con.h"

#include <string>
#include <vector>

namespace kx {

struct MenuItem {
    int result = 0;           // returned when the item is chosen
    int hotkey = 0;           // key code of ui/con.h, 0 for none
    std::string hotkey_label; // shown in brackets; empty for none
    std::string label;
};

struct Menu {
    std::vector<MenuItem> items;
    std::string title; // carried, not drawn
    std::string hint;  // carried, not drawn
    int x = 0;         // top left corner of the frame
    int y = 0;
    int width = 0; // the frame included
    int height = 0;
    int top = 0;      // first visible item; kept between calls
    int selected = 0; // line of the selection, from `top`; kept between calls
};

/// Puts the menu in the middle of the screen.
void menu_centre(Menu& menu);

/// Where its frame stands: moved and cut where the screen has no room for it.
ConRect menu_frame(const Menu& menu);

/// Draws the menu as it is, and returns.
void menu_draw(Menu& menu);

/// Shows the menu until an item is chosen. Returns its result code; -1 for Escape, for the end
/// of the input, and for Enter where no item is. Hides the cursor. A frame that the screen has no
/// room for is moved and cut, also when the screen changes its size; labels are clipped at the
/// frame. What was on the screen is not restored; after a change of its size see `con_redraw`.
int menu_run(Menu& menu);

} // namespace kx
