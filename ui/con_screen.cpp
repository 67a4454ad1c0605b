// Opening and closing the curses screen.
#include "ini/ini.h"
#include "ui/con.h"
#include "ui/con_private.h"

#define NCURSES_NOMACROS 1
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <curses.h>
#include <optional>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <term.h> // last: its macros have the plainest names

namespace kx {

namespace {

// Curses' numbers of the program's colours. The bright ones become their dark counterparts (bold
// makes the difference), dark grey becomes white.
constexpr short curses_colours[16] = {0, 4, 2, 6, 1, 5, 3, 7, 7, 4, 2, 6, 1, 5, 3, 7};

constexpr mmask_t EVERY_MOUSE_EVENT = 0xfffffff;

volatile std::sig_atomic_t size_changed = 0;

struct State {
    SCREEN* screen = nullptr;
    TerminalSettings found;
    std::string reset;
    struct sigaction winch_found = {};
    struct sigaction winch_of_curses = {};
};
State state;

void make_pairs(int stride) {
    for (int b = 0; b < stride; ++b) {
        for (int f = 0; f < stride; ++f) {
            // Pair 0 is the terminal's own and curses refuses to set it.
            init_pair(static_cast<short>(b * stride + f), curses_colours[f], curses_colours[b]);
        }
    }
}

void start_colours() {
    if (!has_colors()) {
        return;
    }
    start_color();
    if (COLOR_PAIRS > 255) {
        make_pairs(16);
    } else if (COLOR_PAIRS >= 64) {
        make_pairs(8);
    }
}

// The terminal behind a descriptor, by the system's number for it: the same for /dev/tty and for
// the terminal's own device. None when it is no terminal.
std::optional<unsigned> terminal_of(int fd) {
    unsigned number = 0;
    return ioctl(fd, TIOCGDEV, &number) == 0 ? std::optional(number) : std::nullopt;
}

void note_size_change(int number) {
    size_changed = 1;
    const auto pass_on = state.winch_of_curses.sa_handler;
    if (pass_on != SIG_DFL && pass_on != SIG_IGN) {
        pass_on(number);
    }
}

void watch_size() {
    sigaction(SIGWINCH, nullptr, &state.winch_of_curses);
    struct sigaction action = state.winch_of_curses;
    action.sa_handler = note_size_change;
    sigaction(SIGWINCH, &action, nullptr);
}

int collect(int c) {
    state.reset += static_cast<char>(c);
    return c;
}

// A text capability that the terminal lacks is null, or all ones.
bool has(const char* capability) {
    return capability != nullptr && reinterpret_cast<std::intptr_t>(capability) != -1;
}

void collect_capability(const char* capability) {
    if (has(capability)) {
        tputs(capability, 1, collect);
    }
}

// Whether curses has left the screen for a stopped program. It reads two variables and no more, so
// that a signal handler may call it.
bool is_left() {
    return isendwin();
}

// What a signal handler sends, since it may not ask curses: what endwin sends, and a clean last
// row.
void prepare_reset(bool mouse) {
    state.reset.clear();
    const char* switching = tigetstr("XM");
    if (mouse && has(switching)) {
        collect_capability(tparm(switching, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    }
    collect_capability(orig_pair);
    collect_capability(exit_attribute_mode);
    collect_capability(tparm(cursor_address, getmaxy(stdscr) - 1, 0, 0, 0, 0, 0, 0, 0, 0));
    collect_capability(clr_eol); // without an alternate screen what follows stands in this row
    collect_capability(exit_ca_mode);
    collect_capability(keypad_local);
    collect_capability(cursor_normal);
    con_set_reset(state.reset, is_left);
}

// A terminal that cannot place its cursor is no screen. Asked before newterm, which leaks memory
// when it fails.
bool usable_terminal() {
    int error = 0;
    if (!isatty(STDOUT_FILENO) || setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
        return false;
    }
    const bool usable = has(cursor_address);
    del_curterm(cur_term);
    return usable;
}

SCREEN* new_screen() {
    con_use_locale();
    SCREEN* screen = usable_terminal() ? newterm(nullptr, stdout, stdin) : nullptr;
    if (screen != nullptr) {
        set_term(screen);
    }
    return screen;
}

void set_modes() {
    // Someone on a slow line sets a longer wait for the rest of a key's sequence.
    if (std::getenv("ESCDELAY") == nullptr) {
        set_escdelay(25);
    }
    if (!con_multibyte()) {
        use_legacy_coding(1); // the upper half of an eight-bit character set as it stands
    }
    cbreak();
    noecho();
    nonl();
    scrollok(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    keypad(stdscr, TRUE);
    start_colours();
}

// Until the screen has been left and entered again, curses flushes its output at every movement
// of the cursor: each screenful would go out in as many writes as it has rows.
void enter_for_good() {
    endwin();
    refresh();
}

bool covers(int fd) {
    const std::optional<unsigned> terminal = terminal_of(fd);
    return terminal && terminal == terminal_of(STDOUT_FILENO);
}

void turn_mouse_on() {
    mousemask(EVERY_MOUSE_EVENT, nullptr);
    mouseinterval(0); // press and release, not clicks made of both
    prepare_reset(true);
}

void close_screen() {
    attrset(0);
    endwin();
    delscreen(state.screen);
    state.screen = nullptr;
    sigaction(SIGWINCH, &state.winch_found, nullptr);
    con_settings_restore(state.found);
    con_set_reset("", nullptr);
    con_release_terminal();
    ini_set_reporter(nullptr);
}

constexpr ConScreen CURSES_SCREEN = {
    .drawing = &con_screen_drawing,
    .keyboard = &con_screen_keyboard,
    .close = close_screen,
    .mouse_on = turn_mouse_on,
    .covers = covers,
};

} // namespace

bool con_take_size_change() {
    const bool changed = size_changed != 0;
    size_changed = 0;
    return changed;
}

int con_open() {
    if (con_screen_active()) {
        return 1;
    }
    state.found = con_settings_now();
    // Before newterm, which would put handlers of its own where there are none.
    con_hold_terminal();
    sigaction(SIGWINCH, nullptr, &state.winch_found);
    state.screen = new_screen();
    if (state.screen == nullptr) {
        con_release_terminal();
        return -1;
    }
    watch_size();
    prepare_reset(false);
    set_modes();
    enter_for_good();
    con_install(&CURSES_SCREEN);
    ini_set_reporter(con_after_screen);
    return 1;
}

} // namespace kx
