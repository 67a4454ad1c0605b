// What the files of the console share: con.cpp draws, con_keys.cpp reads keys, con_screen.cpp
// opens and closes the screen, con_restore.cpp puts the terminal back on every way out.
#pragma once

#include <string_view>
#include <termios.h>

namespace kx {

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

/// What such a signal sends to the terminal, at most some hundred bytes; "" for nothing. Neither
/// that nor the settings are its business while `is_away`, which a signal handler may call, says
/// that the screen has been left already; null: never.
void con_set_reset(std::string_view bytes, bool (*is_away)());

/// Writes what `con_after_screen` has held back.
void con_write_held();

/// Ends the raw mode of `con_rawmode`.
void con_leave_rawmode();

/// Readies drawing and key reading for a screen just opened.
void con_start_drawing();
void con_start_keys();

/// Takes the environment's locale for what is drawn, unless the program has chosen one.
void con_use_locale();

/// Whether the terminal has changed its size since the last time this was asked, if only to and
/// fro.
bool con_take_size_change();

/// Whether a character may have several bytes in the terminal's locale.
bool con_multibyte();

} // namespace kx
