// The console: one set of cursor, output and keyboard operations for two modes. In screen mode
// they act on the curses standard screen; in line mode, before the screen is opened and after it
// is closed, they fall back to standard output and to reading standard input directly.
//
// Columns (x) and rows (y) count from 0. Text beyond the window is clipped.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

// Key codes: the curses numbers, kept as values that menus and tables compare with.
constexpr int KEYCODE_TAB = 9;
constexpr int KEYCODE_ENTER = 13;
constexpr int KEYCODE_ESCAPE = 27;
constexpr int KEYCODE_DOWN = 258;
constexpr int KEYCODE_UP = 259;
constexpr int KEYCODE_LEFT = 260;
constexpr int KEYCODE_RIGHT = 261;
constexpr int KEYCODE_HOME = 262;
constexpr int KEYCODE_BACKSPACE = 263;
constexpr int KEYCODE_F1 = 265; // F2 to F12 follow
constexpr int KEYCODE_DELETE = 330;
constexpr int KEYCODE_INSERT = 331;
constexpr int KEYCODE_PAGE_DOWN = 338;
constexpr int KEYCODE_PAGE_UP = 339;
constexpr int KEYCODE_END = 347; // Meant: curses' own 360 becomes this, which all compare with

// Opening and closing -----------------------------------------------------------------------

/// Opens the screen and registers its closing at process exit. A signal that ends the program then
/// restores the terminal first (see util/ending.h). While the screen is open, texts of
/// `con_after_screen` and of the INI module are held back until it closes.
/// 1; -1 when there is no usable terminal (nothing is printed). Opening an open console gives 1.
int con_open();

/// Closes a console that `con_open` opened: the terminal is as it was found.
void con_close();

/// Whether a screen is open, so that output goes to curses.
bool con_screen_active();

/// Line mode only: puts standard input into raw mode until the program exits.
void con_rawmode();

/// Asks the terminal for mouse events.
void con_mouse_on();

/// Writes `text` to standard output: at once in line mode, after the screen has closed otherwise.
void con_after_screen(const char* text);

// Size and cursor ---------------------------------------------------------------------------

/// The screen's size in cells; 80 and 25 without a screen.
int con_cols();
int con_rows();

/// Counts the changes of the screen's size. Curses may take one in during any drawing, whose places
/// then were for another screen: whoever draws compares the count from before it.
unsigned con_size_changes();

/// The cursor's column and row; 1 without a screen.
int con_wherex();
int con_wherey();

/// Moves the cursor; nothing without a screen.
void con_gotoxy(int x, int y);

/// Move the cursor one cell; without a screen only left does anything: it writes a backspace.
void con_left();
void con_right();
void con_up();
void con_down();

/// Shows or hides the cursor (hidden: parked in the bottom right cell); returns what was before.
int con_showcursor(int flag);

/// Sizes as one-byte fields: without a screen the size fields are 255 and the cursor fields 1.
struct ConTextInfo {
    std::uint8_t window_left;
    std::uint8_t window_top;
    std::uint8_t window_right;  // screen columns
    std::uint8_t window_bottom; // screen rows
    std::uint8_t attribute;     // the screen's attribute word, folded to a byte
    std::uint8_t normal_attribute;
    std::uint8_t mode; // 0
    std::uint8_t screen_height;
    std::uint8_t screen_width;
    std::uint8_t cursor_x;
    std::uint8_t cursor_y;
};
ConTextInfo con_textinfo();

// Colours -----------------------------------------------------------------------------------

/// Set the text or background colour (0 black .. 15 white, the PC order; of other numbers the low
/// four bits count); return the old one.
int con_textcolor(int colour);
int con_textbackground(int colour);

/// 1: text and background colour change places. Returns the old setting.
int con_reverse(int flag);

/// 1: the current colours in bold; any other value: not bold.
void con_highlight(int flag);

// Output ------------------------------------------------------------------------------------

/// One character; returns it. On the screen "\r" and "\n" move, and erase nothing.
int con_putch(int c);

/// A text of any length, UTF-8 where the locale is.
void con_puts(const char* text);

/// Formatted; without a screen standard output is flushed.
void con_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// "\r\n".
void con_newline();

/// n blanks, n times '-', n times '|' downwards from the cursor; nothing for n below 1.
void con_spaces(int n);
void con_hline(int n);
void con_vline(int n);

/// A frame of `w` by `h` cells with its top left corner at (x, y).
void con_frame(int x, int y, int w, int h);

/// Blanks the screen in the current colours and refreshes it. The last two cells of the last row
/// get the terminal's own colours.
void con_clrscr();

/// Brings the screen up to date; without a screen flushes standard error and standard output.
void con_refresh();

/// Installs what draws again all that lies below the menu or box on top, the background included;
/// null: nothing, as at the start. A menu or box calls it after the screen has changed its size,
/// and then draws itself.
void con_set_redraw(void (*redraw)());

/// Calls it. False when there is none: a menu or box then touches nothing but its own frame.
bool con_redraw();

/// Whether what is written to the descriptor would land on the open screen: it is the same
/// terminal.
bool con_screen_covers(int fd);

// Input -------------------------------------------------------------------------------------

/// Waits for a key and returns its code. The end of the input and a terminal that has gone act
/// as Escape; a resize is no key.
int con_getkey();

/// 1 when a key is waiting, which stays there; 0 otherwise. At the end of the input always 1.
int con_kbhit();

/// Takes the key that waits, if any: whether it is Escape. Without a screen `con_getkey` waits for
/// another key behind an Escape; here one that nothing follows within 25 ms is Escape itself.
bool con_take_escape();

/// Lets the operating system wait for input, at most `ms` milliseconds. For loops that poll.
void con_idle(int ms);

/// Discards the keys that wait, 64 KiB at most; ends also at the end of the input.
void con_drain();

/// Makes `c` the next key; nothing without a screen.
void con_ungetkey(int c);

/// Poll once for a mouse event, then tell the buttons (0 or 1) and the pointer's cell.
void con_mouse_poll();
int con_mouse_left();
int con_mouse_right();
int con_mouse_x();
int con_mouse_y();

/// Where a dialog stands. Whoever has `con_rect_new` make one frees it with `con_rect_free`.
struct ConRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};
ConRect* con_rect_new(int x, int y, int w, int h);
void con_rect_free(ConRect* rect); // null is harmless

} // namespace kx
