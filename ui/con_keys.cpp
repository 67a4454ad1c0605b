// Keys and the mouse: from curses with a screen, else from standard input, whose escape sequences
// are then decoded here.
#include "ui/con.h"
#include "ui/con_private.h"

#define NCURSES_NOMACROS 1
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <curses.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr int NO_KEY = -1;
constexpr int INPUT_ENDED = -2;
constexpr int IDLE_MS = 10;
constexpr int SEQUENCE_MS = 25;       // within which a key's bytes follow each other
constexpr int DRAIN_MAX = 0x10000;    // keys or bytes: input may never pause
constexpr int UNREADABLE_TURNS = 100; // input that says it has bytes and gives none has ended

struct KeyState {
    WINDOW* pad = nullptr;
    int unreadable = 0;
    unsigned size_changes = 0;
    bool raw_active = false;
    TerminalSettings before_raw;
    int mouse_x = 0;
    int mouse_y = 0;
    int mouse_left_down = 0;
    int mouse_right_down = 0;
};
KeyState state;

// Waiting -----------------------------------------------------------------------------------

// Bytes that can be read at once, 0 when there are none yet, -1 at the end of the input.
int waiting_bytes(int ms) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, ms) <= 0) {
        return 0;
    }
    int count = 0;
    if (ioctl(STDIN_FILENO, FIONREAD, &count) != 0 || count <= 0) {
        return -1;
    }
    return count;
}

// Keys with a screen ------------------------------------------------------------------------

void take_mouse_event() {
    MEVENT event;
    if (getmouse(&event) != OK) {
        return;
    }
    state.mouse_x = event.x;
    state.mouse_y = event.y;
    if ((event.bstate & BUTTON1_PRESSED) != 0) {
        state.mouse_left_down = 1;
    } else if ((event.bstate & BUTTON1_RELEASED) != 0) {
        state.mouse_left_down = 0;
    }
    if ((event.bstate & BUTTON3_PRESSED) != 0) {
        state.mouse_right_down = 1;
    } else if ((event.bstate & BUTTON3_RELEASED) != 0) {
        state.mouse_right_down = 0;
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
    const int waiting = waiting_bytes(0);
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
        ++state.size_changes;
        repaint();
        return NO_KEY;
    case 255: // what a read without result looks like as a byte
        return NO_KEY;
    default:
        state.unreadable = 0;
        return key;
    }
}

// After an Escape: what curses, which knows the terminal's own sequences, did not decode.
int finish_escape() {
    int key = read_key();
    if (key == 'O') {
        key = read_key();
        if (key >= 'P' && key <= 'S') {
            return KEYCODE_F1 + (key - 'P');
        }
        con_ungetkey(key >= 0 ? key : 'O');
    } else if (key == '[') {
        key = read_key();
        if (key == 'H' || key == 'F') {
            return key == 'H' ? KEYCODE_HOME : KEYCODE_END;
        }
        con_ungetkey(key >= 0 ? key : '[');
    } else if (key >= 0) {
        con_ungetkey(key);
    }
    return KEYCODE_ESCAPE;
}

int screen_getkey() {
    con_refresh();
    int key = read_key();
    while (key == NO_KEY) {
        waiting_bytes(IDLE_MS);
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

int screen_kbhit() {
    const int key = read_key();
    con_ungetkey(key);
    return key == NO_KEY ? 0 : 1;
}

// Keys without a screen ---------------------------------------------------------------------

// The bytes after an Escape. '#' stands for any digit, '?' for any byte.
struct KeySequence {
    const char* bytes;
    int key;
};
constexpr KeySequence KEY_SEQUENCES[] = {
    {"OP", KEYCODE_F1},
    {"OQ", KEYCODE_F1 + 1},
    {"OR", KEYCODE_F1 + 2},
    {"OS", KEYCODE_F1 + 3},
    {"[[A", KEYCODE_F1},
    {"[[B", KEYCODE_F1 + 1},
    {"[[C", KEYCODE_F1 + 2},
    {"[[D", KEYCODE_F1 + 3},
    {"[[E", KEYCODE_F1 + 4},
    {"[A", KEYCODE_UP},
    {"[B", KEYCODE_DOWN},
    {"[C", KEYCODE_RIGHT},
    {"[D", KEYCODE_LEFT},
    {"[1~", KEYCODE_HOME},
    {"[2~", KEYCODE_INSERT},
    {"[3~", KEYCODE_DELETE},
    {"[4~", KEYCODE_END},
    {"[5~", KEYCODE_PAGE_UP},
    {"[6~", KEYCODE_PAGE_DOWN},
    {"[11?", KEYCODE_F1},
    {"[12?", KEYCODE_F1 + 1},
    {"[13?", KEYCODE_F1 + 2},
    {"[14?", KEYCODE_F1 + 3},
    {"[15?", KEYCODE_F1 + 4},
    {"[17?", KEYCODE_F1 + 5},
    {"[18?", KEYCODE_F1 + 6},
    {"[19?", KEYCODE_F1 + 7},
    {"[20?", KEYCODE_F1 + 8},
    {"[21?", KEYCODE_F1 + 9},
    {"[23?", KEYCODE_F1 + 10},
    {"[24?", KEYCODE_F1 + 11},
    {"[1#?", 0},
    {"[2#?", 0}, // unknown ones are read to their end
};

// Whether the bytes are a beginning of the sequence.
bool begins(const char* sequence, const std::string& bytes) {
    for (const char byte : bytes) {
        const char want = *sequence++;
        const bool same = want == '#' ? byte >= '0' && byte <= '9' : want == byte;
        if (want == 0 || (want != '?' && !same)) {
            return false;
        }
    }
    return true;
}

// Canonical input and echo off while it lives, unless they are off for good or this is no
// terminal; then put back with `action`.
class RawInput {
public:
    explicit RawInput(int action) : action_(action) {
        if (state.raw_active || tcgetattr(STDIN_FILENO, &before_) != 0) {
            return;
        }
        con_hold_terminal();
        applied_ = true;
        apply(before_);
    }
    ~RawInput() {
        if (applied_) {
            tcsetattr(STDIN_FILENO, action_, &before_);
            con_release_terminal();
        }
    }
    RawInput(const RawInput&) = delete;
    RawInput& operator=(const RawInput&) = delete;

    static void apply(termios settings) {
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    }

private:
    int action_;
    bool applied_ = false;
    termios before_ = {};
};

// Waits for one byte; INPUT_ENDED when there will be none.
int read_byte() {
    unsigned char byte = 0;
    ssize_t n = 0;
    do {
        n = read(STDIN_FILENO, &byte, 1);
    } while (n < 0 && (errno == EINTR || (errno == EAGAIN && waiting_bytes(-1) >= 0)));
    return n == 1 ? byte : INPUT_ENDED;
}

// The key of the sequence after an Escape, 0 for one that is not known.
int read_sequence() {
    std::string bytes;
    for (;;) {
        const int byte = read_byte();
        if (byte == INPUT_ENDED) {
            return KEYCODE_ESCAPE;
        }
        if (bytes.empty() && byte != '[' && byte != 'O') {
            return byte; // the Escape is dropped, so a lone one waits for the next key: meant
        }
        bytes += static_cast<char>(byte);
        bool more = false;
        for (const KeySequence& sequence : KEY_SEQUENCES) {
            if (begins(sequence.bytes, bytes)) {
                if (std::strlen(sequence.bytes) == bytes.size()) {
                    return sequence.key;
                }
                more = true;
            }
        }
        if (!more) {
            return 0;
        }
    }
}

int line_getkey() {
    std::fflush(stdout); // a prompt
    // Held over the whole sequence. What was typed ahead of the reader is lost with TCSAFLUSH.
    const RawInput raw(TCSAFLUSH);
    const int byte = read_byte();
    switch (byte) {
    case INPUT_ENDED:
        return KEYCODE_ESCAPE;
    case KEYCODE_ESCAPE:
        return read_sequence();
    case '\n':
        return KEYCODE_ENTER;
    case '\b':
    case 127:
        return KEYCODE_BACKSPACE;
    default:
        return byte;
    }
}

int line_kbhit() {
    const RawInput raw(TCSANOW); // in canonical mode unfinished lines do not count
    return waiting_bytes(0) != 0 ? 1 : 0;
}

bool line_take_escape() {
    const RawInput raw(TCSAFLUSH); // the rest of a sequence goes with it
    int byte = read_byte();
    if (byte == KEYCODE_ESCAPE && waiting_bytes(SEQUENCE_MS) != 0) {
        byte = read_byte();
    }
    return byte == KEYCODE_ESCAPE || byte == INPUT_ENDED;
}

} // namespace

void con_start_keys() {
    state.pad = newpad(1, 1); // goes with the screen
    nodelay(state.pad, TRUE);
    keypad(state.pad, TRUE);
    state.unreadable = 0;
}

unsigned con_size_changes() {
    return state.size_changes;
}

void con_rawmode() {
    if (con_screen_active() || state.raw_active) {
        return;
    }
    con_hold_terminal();
    state.before_raw = con_settings_now();
    if (state.before_raw.known[STDIN_FILENO]) {
        RawInput::apply(state.before_raw.settings[STDIN_FILENO]);
    }
    state.raw_active = true;
}

void con_leave_rawmode() {
    if (state.raw_active) {
        state.raw_active = false;
        con_settings_restore(state.before_raw);
        con_release_terminal();
    }
}

int con_getkey() {
    return con_screen_active() ? screen_getkey() : line_getkey();
}

int con_kbhit() {
    return con_screen_active() ? screen_kbhit() : line_kbhit();
}

bool con_take_escape() {
    if (con_kbhit() == 0) {
        return false;
    }
    return con_screen_active() ? screen_getkey() == KEYCODE_ESCAPE : line_take_escape();
}

void con_idle(int ms) {
    // Curses may hold a key already, of which the operating system knows nothing.
    if (!con_screen_active() || con_kbhit() == 0) {
        waiting_bytes(ms);
    }
}

void con_drain() {
    if (con_screen_active()) {
        for (int i = 0; i < DRAIN_MAX; ++i) {
            const int key = read_key();
            if (key == INPUT_ENDED || (key == NO_KEY && waiting_bytes(0) <= 0)) {
                break;
            }
        }
    } else {
        const RawInput raw(TCSANOW);
        for (int i = 0; i < DRAIN_MAX && waiting_bytes(0) > 0; ++i) {
            read_byte();
        }
    }
}

void con_ungetkey(int c) {
    if (con_screen_active() && c >= 0) {
        ungetch(c);
    }
}

void con_mouse_poll() {
    if (con_screen_active()) {
        con_ungetkey(read_key());
    }
}

int con_mouse_left() {
    con_mouse_poll();
    return state.mouse_left_down;
}

int con_mouse_right() {
    con_mouse_poll();
    return state.mouse_right_down;
}

int con_mouse_x() {
    con_mouse_poll();
    return state.mouse_x;
}

int con_mouse_y() {
    con_mouse_poll();
    return state.mouse_y;
}

} // namespace kx
