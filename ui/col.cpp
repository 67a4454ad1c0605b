// Colour schemes: the tables of element keys and colour names, and what a scheme file makes of
// them.

#include "ui/col.h"

#include "ini/ini.h"
#include "ui/con.h"

#include <algorithm>
#include <cstdarg>
#include <string_view>

namespace kx {

// clang-format off
const char* const col_keys[COL_KEYS] = { // an element a line: text, background
    "text", "bg",
    "menubartext", "menubarbg",
    "menubardisabledtext", "menubardisabledbg",
    "statusbartext", "statusbarbg",
    "panelactivetext", "panelactivebg",
    "panelinactivetext", "panelinactivebg",
    "panelborderactivetext", "panelborderactivebg",
    "panelborderinactivetext", "panelborderinactivebg",
    "windowtext", "windowbg",
    "windowbordertext", "windowborderbg",
    "consoleprogresstext", "consoleprogressbg",
    "consoleprogressoktext", "consoleprogressokbg",
    "consoleprogresserrortext", "consoleprogresserrorbg",
    "consolewarningtext", "consolewarningbg",
    "consoleerrortext", "consoleerrorbg",
    "consoleprompttext", "consolepromptbg",
    "consoletext", "consolebg",
    "consolepromptcmdtext", "consolepromptcmdbg",
    "consolehigh1text", "consolehigh1bg",
    "consolehigh2text", "consolehigh2bg",
    "statusbarprompttext", "statusbarpromptbg",
    "statusbarmessagetext", "statusbarmessagebg",
    "codetext", "codebg",
    "codetexttext", "codetextbg",
    "codememtext", "codemembg",
    "codeinblocktext", "codeinblockbg",
    "codecyclestext", "codecyclesbg",
    "codeerrortext", "codeerrorbg",
    "codememdumptext", "codememdumpbg",
    "codelabeltext", "codelabelbg",
    "codecommenttext", "codecommentbg",
    "codeargtext", "codeargbg",
    "panelcaptionactivetext", "panelcaptionactivebg",
    "panelcaptioninactivetext", "panelcaptioninactivebg",
    "panelprompttext", "panelpromptbg",
    "menubarhotkeytext", "menubarhotkeybg",
    "windowcaptiontext", "windowcaptionbg",
    "windowprompttext", "windowpromptbg",
    "windowlisttext", "windowlistbg",
    "windowlistselectedtext", "windowlistselectedbg",
    "windowstatustext", "windowstatusbg",
    "menutext", "menubg",
    "menuhotkeytext", "menuhotkeybg",
    "menubordertext", "menuborderbg",
    "menuselectedtext", "menuselectedbg",
    "menuhotkeyselectedtext", "menuhotkeyselectedbg",
    "windowprogresserrortext", "windowprogresserrorbg",
    "windowprogressoktext", "windowprogressokbg",
    "windowprogresstext", "windowprogressbg",
};
// clang-format on

std::int8_t key_textcolour[COL_KEYS];
std::int8_t key_backcolour[COL_KEYS];
std::string col_scheme_path;

namespace {

struct ColourName {
    std::string_view name;
    std::int8_t back;
    std::int8_t text;
};

constexpr ColourName colour_names[] = {
    {"black", 0, 0},
    {"blue", 1, 1},
    {"green", 2, 2},
    {"cyan", 3, 3},
    {"red", 4, 4},
    {"magenta", 5, 5},
    {"yellow", 14, 14},
    {"white", 15, 15},
    {"brown", 6, 6},
    {"lightgray", 7, 7},
    {"darkgray", 7, 0}, // Meant: readable on any background, so no name gives colour 8
    {"lightblue", 9, 9},
    {"lightgreen", 10, 10},
    {"lightcyan", 11, 11},
    {"lightred", 12, 12},
    {"lightmagenta", 13, 13},
};

const ColourName* find_colour(std::string_view name) {
    for (const ColourName& colour : colour_names) {
        if (colour.name == name) {
            return &colour;
        }
    }
    return nullptr;
}

} // namespace

std::vector<std::string> col_names() {
    std::vector<std::string> names;
    for (const ColourName& colour : colour_names) {
        names.emplace_back(colour.name);
    }
    return names;
}

void col_loadscheme(const char* section) {
    IniDocument scheme;
    if (ini_read(col_scheme_path, scheme) != 0) {
        return; // before a getter misses the section and ends the program
    }
    for (int key = 0; key < COL_KEYS; key++) {
        std::string values[2]; // background, text: for text keys and background keys alike
        ini_get_string_list(scheme, values, section, col_keys[key]);
        if (const ColourName* colour = find_colour(values[0])) {
            key_backcolour[key] = colour->back;
        }
        if (const ColourName* colour = find_colour(values[1])) {
            key_textcolour[key] = colour->text;
        }
    }
}

void col_reset() {
    std::ranges::fill(key_textcolour, std::int8_t{0});
    std::ranges::fill(key_backcolour, std::int8_t{0});
    col_scheme_path.clear();
}

int col_text(int index) {
    return con_textcolor(key_textcolour[index]);
}

int col_back(int index) {
    return con_textbackground(key_backcolour[index]);
}

ColScope::ColScope(int element) : text_(col_text(element)), back_(col_back(element + 1)) {}

ColScope::~ColScope() {
    con_textcolor(text_);
    con_textbackground(back_);
}

void col_set(int element) {
    col_text(element);
    col_back(element + 1);
}

void col_puts(const char* text, ...) {
    std::string_view rest = text;
    va_list elements;
    va_start(elements, text);
    for (;;) {
        const std::size_t end = rest.find("%Y");
        con_puts(std::string(rest.substr(0, end)).c_str());
        if (end == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(end + 2);
        // Meant: both colours from the one key; the background is not the next key's, as elsewhere.
        const int key = va_arg(elements, int);
        col_text(key);
        col_back(key);
    }
    va_end(elements);
}

} // namespace kx
