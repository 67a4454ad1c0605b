// The main menu and its three selection lists: what they hold and what a choice does.
#include "setup/main_menu.h"

#include "core/config/config.h"
#include "setup/version.h"
#include "ui/col.h"
#include "ui/con.h"
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
constexpr const char* help_file = "docs/kxsetup.txt";

constexpr const char* menu_title = "main"; // of all four menus
constexpr const char* menu_hint = "crsr to scroll";

struct List {
    const char* type;    // of `config` in its files
    const char* section; // of the main configuration
    Menu menu;
};

List make_list(const char* type, const char* section) {
    return {type, section, Menu{{}, menu_title, menu_hint, 0, 0, 50, 12}};
}

// The lists are filled once per run and keep where the user left them.
struct State {
    List targets = make_list("target", "targets");
    List colours = make_list("colors", "colors");
    List charsets = make_list("charset", "charsets"); // type in the singular, unlike its section
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

/// Lets the user choose from the list and makes the choice the default. Whether one was made.
bool choose_default(List& list, IniDocument& new_main) {
    menu_centre(list.menu);
    const int choice = menu_run(list.menu);
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
    if (view_file(active_config.base_dir, help_file) != 0) {
        msgbox_run("couldn't open file '" + active_config.base_dir + help_file + "'.");
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

// The texts are meant as they stand, "Colorsheme" included.
constexpr Entry entries[] = {
    {5, 0, "", "Select Target", choose_target},
    {6, 0, "", "Select Colorsheme", choose_colours},
    {0, 0, "", "Setup Target", choose_charset}, // meant: this entry chooses the charset
    {1, 0, "", "Setup Colorsheme", show_excuse},
    {2, KEYCODE_F1, "F1", "help", show_help},
    {3, 0, "", "about", show_about},
    {4, KEYCODE_ESCAPE, "ESC", "exit", nullptr},
};

Menu make_main_menu() {
    Menu menu{{}, menu_title, menu_hint, 0, 0, 40, 9};
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

void clear_screen() {
    col_set(COL_TEXT);
    con_clrscr();
}

/// Shows the main menu once and acts on the choice. False when the user leaves.
bool run_choice(Menu& menu, IniDocument& new_main) {
    const int result = menu_run(menu);
    for (const Entry& entry : entries) {
        if (entry.result == result && entry.run != nullptr) {
            entry.run(new_main);
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
    clear_screen();
    Menu menu = make_main_menu();
    menu_centre(menu); // once: the main menu stays where it opened
    con_drain();
    while (run_choice(menu, new_main)) {
        clear_screen();
    }
    clear_screen();
    // The files are written on a terminal that is the user's again: what is printed from here on
    // stays readable, and a signal ends the program as it would any other.
    con_close();
}

} // namespace kx
