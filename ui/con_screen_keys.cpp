// Keys and the mouse on an open screen, from curses.
#include "ui/con.h"
#include "ui/con_private.h"

#define NCURSES_NOMACROS 1
#include <curses.h>

namespace kx {

namespace {

constexpr int NO_KEY = -1;
constexpr int INPUT_ENDED = -2;
constexpr int IDLE_MS = 10;
constexpr int UNREADABLE_TURNS = 100; // input that says it has bytes and gives none has ended

struct State {
    WINDOW* pad = nullptr;
    int unreadable = 0;
};
State state;

void start() {
    state.pad = newpad(1, 1); // goes with the screen
    nodelay(state.pad, TRUE);
    keypad(state.pad, TRUE);
    state.unreadable = 0;
}

void take_mouse_event() {
    MEVENT event;
    if (getmouse(&event) != OK) {
        return;
    }
    con_mouse.x = event.x;
    con_mouse.y = event.y;
    if ((event.bstate & BUTTON1_PRESSED) != 0) {
        con_mouse.left_down = 1;
    } else if ((event.bstate & BUTTON1_RELEASED) != 0) {
        con_mouse.left_down = 0;
    }
    if ((event.bstate & BUTTON3_PRESSED) != 0) {
        con_mouse.right_down = 1;
    } else if ((event.bstate & BUTTON3_RELEASED) != 0) {
        con_mouse.right_down = 0;
    }
}

// Curses may have taken the new size in amidst drawing. Then it thinks that it has drawn what was
// only written, and that the terminal shows what its new size has cut.
void repaint() {
    con_take_size_change();
    touchwin(stdscr);
    clearok(curscr, TRUE);
    con_gotoxy(con_wherex(), con_wherey());
    con_refresh();
}

// Curses gave no key: is there none yet, or will there never be one?
int no_key_or_end() {
    const int waiting = con_waiting_bytes(0);
    state.unreadable = waiting > 0 ? state.unreadable + 1 : 0;
    return waiting < 0 || state.unreadable > UNREADABLE_TURNS ? INPUT_ENDED : NO_KEY;
}

// One key without waiting; NO_KEY or INPUT_ENDED. Mouse events and size changes are taken in.
// Read through a pad: on a window curses would bring a half drawn screen up to date.
int read_key() {
    const int key = wgetch(state.pad);
    switch (key) {
    case ERR:
        if (con_take_size_change()) { // to and fro, too quickly for curses
            repaint();
        }
        return no_key_or_end();
    case KEY_MOUSE:
        take_mouse_event();
        return NO_KEY;
    case KEY_RESIZE:
        con_count_size_change();
        repaint();
        return NO_KEY;
    case 255: // Meant: what a read without result looks like as a byte
        return NO_KEY;
    default:
        state.unreadable = 0;
        return key;
    }
}

void unget_key(int key) {
    if (key >= 0) {
        ungetch(key);
    }
}

// After an Escape: what curses, which knows the terminal's own sequences, did not decode. Meant:
// only the last character read goes back, so that of an unknown "[X" the "[" is lost.
int finish_escape() {
    int key = read_key();
    if (key == 'O') {
        key = read_key();
        if (key >= 'P' && key <= 'S') {
            return KEYCODE_F1 + (key - 'P');
        }
        unget_key(key >= 0 ? key : 'O');
    } else if (key == '[') {
        key = read_key();
        if (key == 'H' || key == 'F') {
            return key == 'H' ? KEYCODE_HOME : KEYCODE_END;
        }
        unget_key(key >= 0 ? key : '[');
    } else if (key >= 0) {
        unget_key(key);
    }
    return KEYCODE_ESCAPE;
}

int get_key() {
    con_refresh();
    int key = read_key();
    while (key == NO_KEY) {
        con_waiting_bytes(IDLE_MS);
        key = read_key();
    }
    switch (key) {
    case INPUT_ENDED:
        return KEYCODE_ESCAPE;
    case KEY_END:
        return KEYCODE_END;
    case KEYCODE_ESCAPE:
        return finish_escape();
    default:
        return key;
    }
}

int is_key_waiting() {
    const int key = read_key();
    unget_key(key);
    return key == NO_KEY ? 0 : 1;
}

void drain() {
    for (int i = 0; i < CON_DRAIN_MAX; ++i) {
        const int key = read_key();
        if (key == INPUT_ENDED || (key == NO_KEY && con_waiting_bytes(0) <= 0)) {
            break;
        }
    }
}

void poll_mouse() {
    unget_key(read_key());
}

} // namespace

const ConKeyboard con_screen_keyboard = {
    .start = start,
    .get = get_key,
    .is_waiting = is_key_waiting,
    .unget = unget_key,
    .drain = drain,
    .poll_mouse = poll_mouse,
};

} // namespace kx
