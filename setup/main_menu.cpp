// The main menu and its three selection lists: what they hold and what a choice does.
#include "setup/main_menu.h"

#include "core/config/config.h"
#include "setup/version.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/linedoc.h"
#include "ui/menu.h"
#include "ui/msg.h"
#include "ui/msgbox.h"
#include "ui/view.h"
#include "util/ascii.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::size_t LIST_ROOM = 64; // configurations of one kind
constexpr const char* HELP_FILE = "docs/kxsetup.txt";

constexpr const char* MENU_TITLE = "main"; // of all four menus
constexpr const char* MENU_HINT = "crsr to scroll";

struct List {
    const char* type;    // of `config` in its files
    const char* section; // of the main configuration
    Menu menu;
};

List make_list(const char* type, const char* section) {
    return {type, section, Menu{{}, MENU_TITLE, MENU_HINT, 0, 0, 50, 12}};
}

// What Escape does, as the bottom line says it.
constexpr const char* ESCAPE_LEAVES = "ESC leaves and writes";
constexpr const char* ESCAPE_BACK = "ESC back";

// The lists are filled once per run and keep where the user left them.
struct State {
    List targets = make_list("target", "targets");
    List colours = make_list("colors", "colors");
    List charsets = make_list("charset", "charsets"); // type in the singular, unlike its section
    // While the menu runs:
    Menu main;
    const Menu* list = nullptr; // that is open over it
    const char* escape = ESCAPE_LEAVES;
    std::string chosen; // as the bottom line tells it
};
State state;

// The directory scan ---------------------------------------------------------------------------

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

/// Whether the name can be the value of an INI item: any other text would be cut when it is read
/// back, or break the line and so the file.
bool is_ini_value(const std::string& name) {
    return std::all_of(name.begin(), name.end(), ascii_is_print);
}

void add_to_list(List& list, const std::string& name, const std::string& desc,
                 IniDocument& new_main) {
    std::vector<MenuItem>& items = list.menu.items;
    const std::string shown = ascii_escape(name); // a line end in it would begin a message
    if (items.size() == LIST_ROOM) {
        msg_warning("configuration '%s' left out: section %s holds %zu already.", shown.c_str(),
                    list.section, items.size());
        return;
    }
    if (!is_ini_value(name)) {
        msg_warning("configuration '%s' left out: only printable ASCII can be a name.",
                    shown.c_str());
        return;
    }
    const int position = static_cast<int>(items.size());
    ini_set_item(new_main, list.section, "n" + std::to_string(position), name);
    items.push_back({position, 0, name, desc});
}

void scan_file(const std::string& path, const std::string& name, IniDocument& new_main) {
    IniDocument doc;
    if (ini_read(path, doc) != 0) {
        return; // the reader has warned
    }
    std::string type;
    std::string desc;
    ini_get_string(doc, type, "config", "type");
    ini_get_string(doc, desc, "config", "desc");
    for (List* list : {&state.targets, &state.colours, &state.charsets}) {
        if (type == list->type) {
            add_to_list(*list, name, desc, new_main);
        }
    }
}

void scan_directory(const std::string& path, IniDocument& new_main) {
    const std::unique_ptr<DIR, DirCloser> dir(opendir(path.c_str()));
    while (const dirent* entry = dir ? readdir(dir.get()) : nullptr) {
        const std::string file = path + entry->d_name;
        struct stat status = {};
        // Only regular files: reading a pipe would wait for ever.
        if (file.ends_with(".ini") && stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            const std::string name = entry->d_name;
            scan_file(file, name.substr(0, name.size() - 4), new_main);
        }
    }
}

// The menu -------------------------------------------------------------------------------------

/// The bottom line's account of what is chosen. The names of schemes and character sets tell what
/// they are, those of targets do not.
std::string describe_choices(const IniDocument& new_main) {
    std::string text = "target ";
    for (const List* list : {&state.targets, &state.colours, &state.charsets}) {
        std::string name;
        ini_get_string(new_main, name, list->section, "default");
        text += (list == &state.targets ? "" : ", ") + name;
    }
    return text;
}

bool covers_last_row(const Menu* menu) {
    const ConRect frame = menu != nullptr ? menu_frame(*menu) : ConRect();
    return frame.y + frame.height == con_rows();
}

/// The last row but for its last cell. It stays empty where a frame reaches into it, which would
/// leave pieces of the text to both sides.
void draw_bottom_line() {
    const int room = con_cols() - 1;
    const bool covered = covers_last_row(&state.main) || covers_last_row(state.list);
    const ColScope colours(covered ? COL_TEXT : COL_STATUSBAR);
    con_gotoxy(0, con_rows() - 1);
    int column = 0;
    if (!covered) {
        const std::string text = std::string(" ") + state.escape + "  " + state.chosen + "  ";
        con_puts(linedoc_cells(text + state.main.hint, 0, room, column).c_str());
    }
    con_spaces(room - column);
    if (covers_last_row(&state.main)) {
        menu_draw(state.main); // whose edge the blanks went over
    }
}

/// The screen without the list or box on top.
void draw_below() {
    col_set(COL_TEXT);
    con_clrscr();
    draw_bottom_line();
    menu_draw(state.main);
}

/// Lets the user choose from the list and makes the choice the default. Whether one was made.
bool choose_default(List& list, IniDocument& new_main) {
    menu_centre(list.menu);
    state.list = &list.menu;
    draw_bottom_line();
    const int choice = menu_run(list.menu);
    state.list = nullptr;
    if (choice < 0) {
        return false;
    }
    const MenuItem& item = list.menu.items[static_cast<std::size_t>(choice)];
    ini_set_item(new_main, list.section, "default", item.hotkey_label);
    return true;
}

void choose_target(IniDocument& new_main) {
    choose_default(state.targets, new_main);
}

void choose_charset(IniDocument& new_main) {
    choose_default(state.charsets, new_main);
}

void choose_colours(IniDocument& new_main) {
    if (choose_default(state.colours, new_main)) {
        std::string name;
        ini_get_string(new_main, name, "colors", "default");
        config_load_scheme(name);
    }
}

void show_excuse(IniDocument&) {
    msgbox_run("sorry, not yet implemented. edit the config files manually.");
}

void show_help(IniDocument&) {
    if (view_file(active_config.base_dir, HELP_FILE) != 0) {
        msgbox_run("couldn't open file '" + active_config.base_dir + HELP_FILE + "'.");
    }
}

void show_about(IniDocument&) {
    msgbox_run(version_line());
}

struct Entry {
    int result;
    int hotkey;
    const char* hotkey_label;
    const char* label;
    void (*run)(IniDocument& new_main); // null: leaves the menu
};

// Meant: the texts as they stand, "Colorsheme" included.
constexpr Entry entries[] = {
    {5, 0, "", "Select Target", choose_target},
    {6, 0, "", "Select Colorsheme", choose_colours},
    {0, 0, "", "Setup Target", choose_charset}, // Meant: this entry chooses the charset.
    {1, 0, "", "Setup Colorsheme", show_excuse},
    {2, KEYCODE_F1, "F1", "help", show_help},
    {3, 0, "", "about", show_about},
    {4, KEYCODE_ESCAPE, "ESC", "exit", nullptr},
};

Menu make_main_menu() {
    Menu menu{{}, MENU_TITLE, MENU_HINT, 0, 0, 40, 9};
    for (const Entry& entry : entries) {
        menu.items.push_back({entry.result, entry.hotkey, entry.hotkey_label, entry.label});
    }
    return menu;
}

/// Why the console could not be opened.
std::string why_no_screen() {
    if (isatty(STDOUT_FILENO) == 0) {
        return "standard output is not a terminal";
    }
    const char* kind = std::getenv("TERM");
    return kind == nullptr || *kind == '\0' ? "TERM is not set"
                                            : "TERM is '" + ascii_escape(kind) + "'";
}

/// Shows the main menu once and acts on the choice. False when the user leaves.
bool run_choice(IniDocument& new_main) {
    const int result = menu_run(state.main);
    for (const Entry& entry : entries) {
        if (entry.result == result && entry.run != nullptr) {
            state.escape = ESCAPE_BACK;
            draw_bottom_line();
            entry.run(new_main);
            state.escape = ESCAPE_LEAVES;
            return true;
        }
    }
    return false;
}

} // namespace

void scan_configurations(IniDocument& new_main) {
    state = State();
    scan_directory(config_make_path(active_config.base_dir, "config/"), new_main);
    for (const List* list : {&state.targets, &state.colours, &state.charsets}) {
        ini_set_item(new_main, list->section, "num", std::to_string(list->menu.items.size()));
    }
}

void run_main_menu(IniDocument& new_main) {
    if (con_open() != 1) {
        msg_error("no usable terminal for the menu (%s), nothing is chosen.",
                  why_no_screen().c_str());
        return;
    }
    state.main = make_main_menu();
    menu_centre(state.main); // once: the main menu stays where it opened
    con_set_redraw(draw_below);
    con_drain();
    do {
        state.chosen = describe_choices(new_main);
        draw_below();
    } while (run_choice(new_main));
    con_set_redraw(nullptr);
    col_set(COL_TEXT);
    con_clrscr();
    // The files are written on a terminal that is the user's again: what is printed from here on
    // stays readable, and a signal ends the program as it would any other.
    con_close();
}

} // namespace kx
