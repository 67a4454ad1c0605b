// Colour schemes: the colours of the 98 elements of the user interface, read from a scheme file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kx {

constexpr int COL_KEYS = 98;

// Elements the code draws with: the index of the text key; the background key is one higher.
constexpr int COL_TEXT = 0;
constexpr int COL_MENUBAR = 2;
constexpr int COL_STATUSBAR = 6;
constexpr int COL_WINDOW = 16;
constexpr int COL_WINDOW_BORDER = 18;
constexpr int COL_CONSOLE_PROGRESS = 20;
constexpr int COL_CONSOLE_PROGRESS_OK = 22;
constexpr int COL_CONSOLE_PROGRESS_ERROR = 24;
constexpr int COL_CONSOLE_WARNING = 26;
constexpr int COL_CONSOLE_ERROR = 28;
constexpr int COL_MENUBAR_HOTKEY = 70;
constexpr int COL_MENU = 82;
constexpr int COL_MENU_HOTKEY = 84;
constexpr int COL_MENU_BORDER = 86;
constexpr int COL_MENU_SELECTED = 88;
constexpr int COL_MENU_HOTKEY_SELECTED = 90;
constexpr int COL_WINDOW_PROGRESS_ERROR = 92;
constexpr int COL_WINDOW_PROGRESS_OK = 94;
constexpr int COL_WINDOW_PROGRESS = 96;

/// The keys in index order: an element's text key is even, its background key follows.
extern const char* const col_keys[COL_KEYS];

/// The names that colours have in scheme files.
std::vector<std::string> col_names();

/// What each key of the scheme gives, 0 to 15; all 0 before a scheme is loaded.
extern std::int8_t key_textcolour[COL_KEYS];
extern std::int8_t key_backcolour[COL_KEYS];

/// The active scheme's file, set by whoever chooses it before `col_loadscheme`.
extern std::string col_scheme_path;

/// Reads the scheme file and takes both arrays from `section`. Keys that are missing or name no
/// colour, and a file that cannot be read, leave the entries as they were. A file without the
/// section ends the program.
void col_loadscheme(const char* section);

/// As before a scheme is loaded.
void col_reset();

/// Set the console's text colour or background from a key (0 to COL_KEYS - 1); return the previous
/// colour.
int col_text(int index);
int col_back(int index);

/// Both colours of an element (index of its text key), put back when the owner goes.
class ColScope {
public:
    explicit ColScope(int element);
    ~ColScope();
    ColScope(const ColScope&) = delete;
    ColScope& operator=(const ColScope&) = delete;

private:
    int text_;
    int back_;
};

/// Sets both colours of an element for good.
void col_set(int element);

/// Writes `text`, in which every "%Y" takes the next argument, a text key's index k, and switches
/// to key_textcolour[k] on key_backcolour[k]. Colours are not restored. No other "%" is special.
void col_puts(const char* text, ...);

} // namespace kx
