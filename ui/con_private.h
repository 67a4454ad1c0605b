// What the files of the console share. Without a screen con.cpp writes and con_keys.cpp reads keys;
// con_restore.cpp puts the terminal back on every way out. The screen is what con_open installs,
// con_screen*.cpp: a program that never opens one links without curses.
#pragma once

#include "ui/con.h"

#include <string_view>
#include <termios.h>

namespace kx {

/// Drawing on a screen, as ui/con.h has it.
struct ConDrawing {
    void (*start)(); // on a screen just opened
    int (*cols)();
    int (*rows)();
    int (*where_x)();
    int (*where_y)();
    void (*go_to)(int x, int y);
    void (*left)();
    void (*set_colours)(int text, int back);
    void (*highlight)(bool on);
    void (*tell_attributes)(ConTextInfo& info); // both attributes
    void (*put_text)(const char* text, std::size_t size);
    void (*put_character)(wchar_t c);
    void (*put_repeated)(char c, int n); // nothing for n below 1
    void (*put_down)(char c, int n);
    void (*clear)(); // without bringing the screen up to date
    void (*refresh)(bool cursor_visible);
};

/// Keys and the mouse of a screen.
struct ConKeyboard {
    void (*start)();
    int (*get)();
    int (*is_waiting)(); // 0 or 1
    void (*unget)(int key);
    void (*drain)();
    void (*poll_mouse)();
};

struct ConScreen {
    const ConDrawing* drawing;
    const ConKeyboard* keyboard;
    void (*close)();
    void (*mouse_on)();
    bool (*covers)(int fd);
};

/// Makes the console's operations the screen's; null: line mode again.
void con_install(const ConScreen* screen);

/// The screen's keyboard; null in line mode.
const ConKeyboard* con_keyboard();

/// The curses half, of con_screen_draw.cpp and con_screen_keys.cpp.
extern const ConDrawing con_screen_drawing;
extern const ConKeyboard con_screen_keyboard;

/// Where a screen's mouse stands and which buttons are down.
struct ConMouse {
    int x = 0;
    int y = 0;
    int left_down = 0;
    int right_down = 0;
};
extern ConMouse con_mouse;

/// How many keys or bytes are discarded at most: input may never pause.
constexpr int CON_DRAIN_MAX = 0x10000;

/// Waits for input, at most `ms` milliseconds: the bytes that can be read at once, 0 when there are
/// none yet, -1 at the end of the input.
int con_waiting_bytes(int ms);

/// See `con_size_changes`.
void con_count_size_change();

/// The settings of standard input and output; what is no terminal is not touched.
struct TerminalSettings {
    bool known[2] = {false, false};
    termios settings[2] = {};
};
TerminalSettings con_settings_now();
void con_settings_restore(const TerminalSettings& saved);

/// Between the two a signal that ends the program first restores the terminal as it was at the
/// first, outermost hold. Registers the restoring at process exit as well.
void con_hold_terminal();
void con_release_terminal();

/// What such a signal sends to the terminal, at most some hundred bytes; "" for nothing. It sends
/// nothing while `is_away`, which a signal handler may call, says that the screen has been left
/// already, and then puts the settings back in the foreground only; null: never.
void con_set_reset(std::string_view bytes, bool (*is_away)());

/// Writes what `con_after_screen` has held back.
void con_write_held();

/// Ends the raw mode of `con_rawmode`.
void con_leave_rawmode();

/// Closes the screen, ends the raw mode, and forgets all that was set and counted; the second is
/// the part of the keys and the mouse.
void con_reset();
void con_reset_keys();

/// Takes the environment's locale for what is drawn, unless the program has chosen one.
void con_use_locale();

/// Whether the terminal has changed its size since the last time this was asked, if only to and
/// fro.
bool con_take_size_change();

/// Whether a character may have several bytes in the terminal's locale.
bool con_multibyte();

} // namespace kx
