// Menus. The list scrolls by one line when the selection leaves the visible rows.

#include "ui/menu.h"

#include "ui/cells_private.h"
#include "ui/col.h"
#include "ui/con.h"

#include <algorithm>
#include <optional>

namespace kx {

namespace {

constexpr int LABEL_COLUMN = 6; // of the labels, from the frame's inner left edge
constexpr int POLL_MS = 10;

// A menu as the screen has room for it.
struct View {
    ConRect box{};   // the frame
    int visible = 0; // rows for items
    int lines = 0;   // rows that hold an item
    int maxtop = 0;  // `top` of the last page; negative when all items fit
};

int item_count(const Menu& menu) {
    return static_cast<int>(menu.items.size());
}

// The selection stays on its item when the view has changed its size since the menu was last drawn.
void keep_selection_in_view(Menu& menu, const View& view) {
    const int index = menu.top + menu.selected;
    if (index < 0 || index >= item_count(menu) || view.lines == 0) {
        return;
    }
    menu.top = std::clamp(menu.top, index - (view.lines - 1), index);
    menu.top = std::min(menu.top, std::max(view.maxtop, 0));
    menu.selected = index - menu.top;
}

// Every item stays within reach, however small the frame.
View lay_out(Menu& menu) {
    View view;
    view.box = menu_frame(menu);
    view.visible = std::max(view.box.height - 2, 0);
    view.lines = std::min(item_count(menu), view.visible);
    view.maxtop = item_count(menu) - view.visible;
    keep_selection_in_view(menu, view);
    return view;
}

void draw_item(const MenuItem& item, bool selected, int room) {
    const int colours = selected ? COL_MENU_SELECTED : COL_MENU;
    int column = 0;
    col_set(colours);
    if (!item.hotkey_label.empty()) {
        column += cell_puts("[", room);
        col_set(selected ? COL_MENU_HOTKEY_SELECTED : COL_MENU_HOTKEY);
        column += cell_puts(item.hotkey_label, room - column);
        col_set(colours);
        column += cell_puts("]", room - column);
    }
    const int indent = std::min(LABEL_COLUMN, room) - column;
    if (indent > 0) {
        con_spaces(indent);
        column += indent;
    }
    column += cell_puts(item.label, room - column);
    con_spaces(room - column);
}

void draw_items(const Menu& menu, const View& view) {
    const int room = view.box.width - 2;
    for (int i = 0; i < view.visible; i++) {
        con_gotoxy(view.box.x + 1, view.box.y + 1 + i);
        const int index = menu.top + i;
        if (index >= 0 && index < item_count(menu)) {
            draw_item(menu.items[static_cast<std::size_t>(index)], i == menu.selected, room);
        } else {
            col_set(COL_MENU);
            con_spaces(room);
        }
    }
    col_set(COL_MENU);
}

void draw_frame(const View& view) {
    cell_blank(view.box);
    con_frame(view.box.x, view.box.y, view.box.width, view.box.height);
}

// The key that waits, or 0. The operating system does the waiting: an open menu costs nothing.
int poll_key() {
    const int key = con_kbhit() != 0 ? con_getkey() : 0;
    con_refresh();
    if (key == 0) {
        con_idle(POLL_MS);
    }
    return key;
}

// Does what the key asks for. A result when it ends the menu.
std::optional<int> handle_key(Menu& menu, const View& view, int key) {
    switch (key) {
    case 0:
        break;
    case KEYCODE_DOWN:
        menu.selected++;
        break;
    case KEYCODE_UP:
        menu.selected--;
        break;
    case KEYCODE_PAGE_DOWN:
        if (menu.selected < view.lines - 1) {
            menu.selected = view.lines - 1;
        } else {
            menu.top = std::min(menu.top + view.visible, std::max(view.maxtop, 0));
        }
        break;
    case KEYCODE_PAGE_UP:
        if (menu.selected > 0) {
            menu.selected = 0;
        } else {
            menu.top = std::max(menu.top - view.visible, 0);
        }
        break;
    case KEYCODE_ENTER: {
        const int index = menu.top + menu.selected;
        const bool on_item = index >= 0 && index < item_count(menu);
        return on_item ? menu.items[static_cast<std::size_t>(index)].result : -1;
    }
    case KEYCODE_ESCAPE: // Meant: also where an item has it as its hotkey
        return -1;
    default: // the hotkeys of all items, visible or not
        for (const MenuItem& item : menu.items) {
            if (item.hotkey == key) {
                return item.result;
            }
        }
    }
    return std::nullopt;
}

// Scrolling stops at both ends. Meant: one too many is taken back by one, not set to the end, so a
// `top` that stands further out stays where it is.
int tried_top(int top, const View& view) {
    if (top < 0) {
        return 0;
    }
    return top > std::max(view.maxtop, 0) ? top - 1 : top;
}

// Brings a selection that has left the rows back, scrolling by a line. In an empty menu the
// selection comes to rest at -1, where Enter finds no item.
void normalise(Menu& menu, const View& view) {
    if (menu.selected < 0) {
        menu.selected = view.lines == 0 ? -1 : 0;
        if (view.lines != 0) {
            menu.top = tried_top(menu.top - 1, view);
        }
    }
    if (menu.selected == view.lines) {
        menu.selected = view.lines - 1;
        menu.top = tried_top(menu.top + 1, view);
    }
}

// Draws the menu and handles keys, until one ends it or the screen has changed its size since
// `changes` were counted: no result then. The caller's colours are in force again afterwards.
std::optional<int> run_in_view(Menu& menu, const View& view, unsigned changes) {
    const ColScope border(COL_MENU_BORDER);
    draw_frame(view);
    bool changed = true;
    while (con_size_changes() == changes) {
        if (changed) {
            draw_items(menu, view);
        }
        con_gotoxy(view.box.x + view.box.width - 1, view.box.y + view.box.height - 1);
        const int old_top = menu.top;
        const int old_selected = menu.selected;
        const std::optional<int> result = handle_key(menu, view, poll_key());
        normalise(menu, view);
        if (result) {
            return result;
        }
        changed = menu.top != old_top || menu.selected != old_selected;
    }
    return std::nullopt;
}

} // namespace

void menu_centre(Menu& menu) {
    menu.x = con_cols() / 2 - menu.width / 2;
    menu.y = con_rows() / 2 - menu.height / 2;
}

ConRect menu_frame(const Menu& menu) {
    ConRect frame;
    frame.width = std::min(menu.width, con_cols());
    frame.height = std::min(menu.height, con_rows());
    frame.x = std::clamp(menu.x, 0, con_cols() - frame.width);
    frame.y = std::clamp(menu.y, 0, con_rows() - frame.height);
    return frame;
}

void menu_draw(Menu& menu) {
    const View view = lay_out(menu);
    const ColScope border(COL_MENU_BORDER);
    draw_frame(view);
    draw_items(menu, view);
}

int menu_run(Menu& menu) {
    con_showcursor(0);
    for (unsigned changes = con_size_changes();;) {
        const View view = lay_out(menu);
        const std::optional<int> result = run_in_view(menu, view, changes);
        if (result) {
            return *result;
        }
        changes = con_size_changes();
        if (!con_redraw()) {
            cell_blank(view.box); // the next frame may stand elsewhere
        }
    }
}

} // namespace kx
