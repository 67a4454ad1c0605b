// Messages and progress, the one way in which every part of the program reports. Each operation
// goes through a table of functions, one table per output mode.
//
// Console mode leaves a message's line open, and the next message breaks it, so that a progress
// display can be completed on its line. Its messages go to standard error, its progress display to
// the console. While a screen is open on the terminal that is standard error too, messages are
// held back until the screen closes, so that they neither spoil it nor are lost with it.
#pragma once

#include <string>

namespace kx {

/// How much is told. Set by the command line.
struct Verbosity {
    int silent = 0;  // errors and plain messages only
    int verbose = 0; // info messages as well
    int warn = 0;    // warnings as well
};
extern Verbosity verbosity;

// Output modes of `msg_set_output`. 1 is the console as well, and 4 is quiet as well.
constexpr int MSG_CONSOLE = 0;
constexpr int MSG_QUIET = 2;
constexpr int MSG_WINDOWED = 3;

/// Installs an output mode, 0 to 4; any other value changes nothing.
void msg_set_output(int mode);

/// What becomes of messages and progress. An entry that is null does nothing.
///
/// The functions get every call, also those that `verbosity` drops in console mode: each decides
/// for itself what it tells. Texts are formatted whole, their control characters written as said
/// below, so that they may go to a terminal as they are. Progress is told at every step, which may
/// be every few bytes: whoever draws decides how often. A display can begin while another has not
/// ended, and `progress_update` can come without one.
struct MsgOutput {
    void (*info)(const std::string& text) = nullptr;
    void (*warning)(const std::string& text) = nullptr;
    void (*error)(const std::string& text) = nullptr;
    void (*message)(const std::string& text) = nullptr;
    void (*print)(const std::string& text) = nullptr;
    void (*tick)() = nullptr;
    void (*progress_begin)(const std::string& title) = nullptr;
    void (*progress_update)(int cur, int total) = nullptr; // as given: a total of 0 is the caller's
    void (*progress_update2)(int cur, int total) = nullptr;
    void (*progress_end)(int result) = nullptr; // -1: failed
};

/// Installs a program's own output in place of a mode's; `output` is copied. `msg_set_output` and
/// `msg_reset` take it away.
void msg_set_table(const MsgOutput& output);

// printf-style, of any length. Control characters other than line ends, tabs and backspaces are
// written as "\xNN". Windowed output shows errors and plain messages in message boxes, which wait
// for a key, and no others; quiet output shows nothing.

/// Only when verbose and not silent.
void msg_info(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Only when verbose or warn, and not silent.
void msg_warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Always.
void msg_error(const char* format, ...) __attribute__((format(printf, 1, 2)));
void msg_message(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The text as it stands, unless silent.
void msg_print(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// One "*".
void msg_tick();

/// Shows the title of a long operation; both counters start at 0 of 1.
void progress_begin(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Set the first or second counter; redraws at most four times a second, and only between
/// `progress_begin` and `progress_end`. A total of 0 counts as 1.
void progress_update(int cur, int total);
void progress_update2(int cur, int total);

/// Closes the display: -1 means failure, anything else success. Windowed output waits for a key
/// after a failure.
void progress_end(int result);

/// Puts the module back to its state at program start, output mode 0 included.
void msg_reset();

} // namespace kx
